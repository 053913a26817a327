/* scripted_node.hpp - a node client library for tests, with nothing behind it.
 *
 * It defines every function of node_client.h inside the test program, so that libcpic.so calls it instead of the real
 * one. It records whatever the library asks for (each verb byte for byte, each log, assertion, wait, wake-up, trace
 * line and allocation) and answers as the test says: what a verb returns, whether it completes at once or later, which
 * allocation or table entry fails. It also watches the rules that hold for every call, and fails the test that breaks
 * one: the lock is balanced and held around each call into the node, nothing is written outside a piece of memory or
 * used after it was freed, nothing is left behind that no record points at, no assertion or problem goes unnoticed.
 *
 * One thread only; the lock is a flag. Return codes are given as the library compares them, as machine words: 0x0300
 * is what stands in the record as the bytes 00 03.
 */
#ifndef TESTS_CALLS_SCRIPTED_NODE_HPP
#define TESTS_CALLS_SCRIPTED_NODE_HPP

#include "cpicpriv.h"

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace scripted
{

using Bytes = std::vector<u8>;

/* Text as bytes, and bytes as readable text ("0F 00 01"). */
Bytes bytes(const std::string &text);
std::string hex(const void *address, size_t length);
inline std::string hex(const Bytes &b)
{
    return hex(b.data(), b.size());
}

/* ASCII to EBCDIC, code page 037, for letters, digits, blank, and the punctuation that names use. Written out on its
 * own, so that the library's tables are not tested against themselves. padded to `width` with 0x40. */
Bytes ebcdic(const std::string &text, size_t width = 0);
/* text padded with blanks to `width`. */
Bytes ascii(const std::string &text, size_t width = 0);

/* ---- what a verb answers -------------------------------------------------------------------------------- */

struct Answer
{
    enum When
    {
        at_once,     /* complete before the call into the node returns */
        later,       /* 0x17F0; completes when the test delivers it (at once where there is no routine) */
        no_callback, /* 0x18F0, complete, the routine is never called */
    };

    u16 primary = 0;
    u32 secondary = 0;
    When when = at_once;
    std::vector<std::pair<unsigned, Bytes>> fields; /* written at completion: offset, bytes */
    std::string data;                               /* receive verbs: written to the caller's buffer, with its length */

    Answer &put8(unsigned offset, unsigned value);
    Answer &put16(unsigned offset, unsigned value);
    Answer &put32(unsigned offset, u32 value);
    Answer &put(unsigned offset, const Bytes &value);
    Answer &received(const std::string &text, unsigned what_received);
    Answer &in_progress(); /* turns it into one that completes later */
};

inline Answer succeeds()
{
    return {};
}
Answer fails(u16 primary, u32 secondary = 0);
Answer later(const Answer &outcome = {});
Answer never_calls_back(const Answer &outcome = {});

/* ---- what was recorded ---------------------------------------------------------------------------------- */

enum class Entry
{
    synchronous,  /* appc_c_version */
    asynchronous, /* appc_c_async_version */
    operator_verb /* nof_version */
};

struct Verb
{
    Entry entry;
    u16 version;
    u16 opcode;
    void *record; /* where it stood */
    Bytes issued; /* as the library handed it over */
    Bytes completed;
    appc_completion *routine = nullptr;
    u32 user_word = 0;
    u32 target_handle = 0; /* node operator verbs */
    void *buffer = nullptr;
    bool pending = false;

    /* At the moment of issue: the global control block; the conversation, when the record is one; what the verb's
     * pointer leads to (data of a send, log data, the TP name list). */
    GCB gcb;
    std::optional<CCCB> cccb;
    Bytes pointed_at;

    u8 u8_at(unsigned offset) const;
    u16 u16_at(unsigned offset) const;
    u32 u32_at(unsigned offset) const;
    Bytes bytes_at(unsigned offset, unsigned length) const;

    Answer answer;
};

struct Log
{
    bool audit;
    u32 code, detail;
    std::string format;
    std::vector<std::pair<u32, Bytes>> items; /* per item: its value (x, lx, l), or its bytes (ba, ca, es) */
};

struct Block
{
    u32 size;
    u16 type;
};

/* An expected verb record, for comparing all of its bytes: Image(NAP_FLUSH).of(conversation).put8(24, 1). */
struct Image
{
    Bytes bytes;
    explicit Image(u16 opcode, size_t size = CPIC_VERB_SIZE);
    Image &of(const CCCB &cccb); /* operation extension, TP identifier, node conversation identifier */
    Image &put8(unsigned offset, unsigned value);
    Image &put16(unsigned offset, unsigned value);
    Image &put32(unsigned offset, u32 value);
    Image &put(unsigned offset, const Bytes &value);
    Image &point(unsigned offset, const void *address);
};

/* Empty when the verb was issued exactly like this, else the offsets that differ with both values. */
std::string difference(const Bytes &expected, const Bytes &found);

/* ---- the node ------------------------------------------------------------------------------------------- */

/* Fails one request: fail(1) the next, fail(2) the one after it; every request when `always`. */
struct Fault
{
    int countdown = 0;
    bool always = false;
    void fail(int nth = 1)
    {
        countdown = nth;
    }
    bool hits()
    {
        return always || (countdown > 0 && --countdown == 0);
    }
};

struct Table
{
    bool open = false;
    u32 last = 0; /* the handle given out last */
    std::map<u32, void *> entries;
};

struct Node
{
    /* -- scripts -- */
    void next(u16 opcode, const Answer &answer);  /* the next verb with this opcode; may be queued */
    void every(u16 opcode, const Answer &answer); /* each one for which nothing is queued */
    Fault allocation, table_entry, table_init, wait_object, path_user;
    std::function<void(Verb &)> at_issue;         /* sees each verb as it is issued */
    std::map<std::string, NOF_SIDE_INFO> side_info; /* by 8-byte name: what the node defines */
    std::deque<std::function<int(u32)>> sleeps_do;  /* per sleep: what happens; the result of vpm_sleep() */
    bool deliver_on_event_fd = false;
    bool may_leak = false;          /* a path failure discards what it does not walk */
    unsigned wait_objects_left = 0; /* private wait objects that a test expects to be left behind */

    /* -- deliveries, from outside any call: taken under the lock -- */
    void deliver(Verb &verb);
    void deliver_all();
    u16 path_event(u16 code); /* the callback's result word */

    /* -- records -- */
    std::deque<Verb> verbs;
    std::vector<Log> problems, audits;
    std::vector<std::string> assertions;
    std::vector<std::pair<u32, int>> sleeps; /* wait object, time limit */
    std::vector<u32> wakes;
    std::vector<std::pair<std::string, std::string>> trace; /* kind (sep, line, dump), text */
    unsigned event_fd_calls = 0;
    unsigned lock_calls = 0;
    std::map<void *, Block> memory; /* live */
    std::map<u32, bool> wait_objects; /* live; a wake-up is kept */
    std::map<u32, Table> tables;      /* by table word */
    path_callback *path_routine = nullptr;
    u32 path_word = 0;
    std::vector<u32> path_users; /* registered */

    /* Verbs of one opcode in order of issue; forget() starts a new count. */
    std::vector<Verb *> issued(u16 opcode);
    Verb &last(u16 opcode); /* fails the test when there is none */
    Verb &only(u16 opcode); /* exactly one */
    void forget();
    u32 pending() const; /* verbs in progress */

    /* Takes the oldest problem, or the oldest assertion; fails when it is another one or there is none. */
    Log problem(u32 code, u32 detail);
    void assertion(const std::string &text);
    /* Takes the oldest audit record with this code. */
    Log audit(u32 code);
    unsigned count_audits(u32 code) const;

    void api_trace(bool on);
    void suppress_audits(bool on);

    /* -- rules -- */
    void reset();
    void verify(); /* at the end of a test */
    void check_counters(); /* the books of the global control block agree with the conversations */

    bool held = false;
    u16 token = 0;
};

extern Node node;

/* Holds the lock for a piece of a test that calls a routine of the library directly. */
struct Locked
{
    u16 token;
    Locked();
    ~Locked();
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
};

} // namespace scripted

#endif
