// double_runtime.hpp - the runtime and the system under conversations, for tests of the conversation verbs alone: one
// lock, waiting with poll(), watched descriptors that the test pumps, and system calls that count, cut writes short or
// fail when told to.
#pragma once

#include "client/conversation.hpp"
#include "wire/broker.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

namespace conversation_double {

struct counters
{
    std::atomic<unsigned> receives;
    std::atomic<unsigned> sends;
    std::atomic<unsigned> polls;
    std::atomic<int> memory;       // blocks in use
    std::atomic<unsigned> over;    // conversations that told the runtime of their end
    std::atomic<int> fail_alloc;   // the n-th allocation from now on fails; 0: none
    std::atomic<unsigned> most;    // most bytes that one write takes; 0: no limit
    std::atomic<bool> no_watch;    // runtime_watch() fails
    std::atomic<bool> may_block;   // blocked verbs block in the receive itself
    std::atomic<unsigned> blocked; // such receives
    std::atomic<unsigned> flood;   // so many reads bring requests to send and nothing else
    std::atomic<unsigned> rests;   // times that a verb let others go first
    std::atomic<std::uint64_t> ticks;
    std::string log;               // data of the last problem record
};
extern counters count;

void lock();
void unlock();

// Calls conversation_ready() for every watched descriptor that is ready. Returns how many there were.
unsigned pump(int timeout_ms);

// A program at one end of a conversation: one call is one verb, taken under the lock.
class program
{
public:
    program(int fd, bool mapped, bool allocating, bool confirm = true);
    ~program();
    program(const program &) = delete;
    program &operator=(const program &) = delete;

    u16 send(const std::string &data, u8 type = 0);
    u16 simple(u16 opcode);
    u16 prepare(u8 type);
    u16 deallocate(u8 type, const std::string &log = "");
    u16 error(u8 direction = 0, const std::string &log = "", u8 type = 0);
    // The record's outputs stay in `what`, `data`, `rts`.
    u16 receive(u32 max, bool ll = true, bool immediate = false, bool with_data = true);
    u8 state();

    // Begins a verb with a routine; true: it is pending. done counts the calls of the routine.
    bool begin_send(const std::string &data, u8 type);
    bool begin_receive(u32 max);
    unsigned done = 0;

    void cancel();
    void fail();
    void abend();
    void drop();

    u16 what = 0;
    u8 rts = 0;
    std::string data;
    bool over = false; // the conversation is gone
    client::conversation *conv = nullptr;

    void completed(const VERB_RECORD &record);
    VERB_RECORD record{};
    std::vector<u8> room;
    std::string sending; // of a pending send
    int fd;

private:
    void clear(u16 opcode);
    u16 run();
    bool mapped;
};

// Two programs on one socket pair; a allocated the conversation.
struct two_programs
{
    int fds[2];
    program *a;
    program *b;

    explicit two_programs(bool mapped, bool confirm = true);
    ~two_programs();
    // Takes the ATTACH off the wire, as the broker does; to be called after the first flush of a.
    void take_attach();
};

// Return codes as they look in a verb record.
constexpr u16 word(u32 code)
{
    return static_cast<u16>((code & 0xFF) << 8 | (code >> 8 & 0xFF));
}

// Bytes that no other seed or place gives.
inline std::string pattern(std::size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; i++)
    {
        bytes[i] = static_cast<char>(i * 7 + seed * 131 + (i >> 8));
    }
    return bytes;
}

// A logical record with this text.
inline std::string record_of(const std::string &text)
{
    std::string bytes;
    bytes += static_cast<char>((text.size() + 2) >> 8);
    bytes += static_cast<char>((text.size() + 2) & 0xFF);
    return bytes + text;
}

// Every test begins with quiet doubles and ends with all memory given back.
class Verbs : public testing::Test
{
protected:
    void SetUp() override
    {
        count.over = 0;
        count.fail_alloc = 0;
        count.most = 0;
        count.no_watch = false;
        count.may_block = false;
        count.flood = 0;
        count.log.clear();
        ASSERT_EQ(count.memory, 0);
    }

    void TearDown() override
    {
        EXPECT_EQ(count.memory, 0);
    }
};

} // namespace conversation_double
