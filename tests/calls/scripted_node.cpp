/* scripted_node.cpp - the functions of node_client.h as tests need them; see scripted_node.hpp. */
#include "scripted_node.hpp"

#include "private.hpp"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace scripted
{

Node node;

/* ---- bytes ---------------------------------------------------------------------------------------------- */

Bytes bytes(const std::string &text)
{
    return Bytes(text.begin(), text.end());
}

std::string hex(const void *address, size_t length)
{
    static const char digits[] = "0123456789ABCDEF";
    const u8 *p = static_cast<const u8 *>(address);
    std::string text;
    for (size_t i = 0; i < length; i++)
    {
        if (i != 0)
        {
            text += ' ';
        }
        text += digits[p[i] >> 4];
        text += digits[p[i] & 15];
    }
    return text;
}

static u8 ebcdic_of(char c)
{
    static const struct
    {
        char c;
        u8 e;
    } others[] = {{' ', 0x40}, {'.', 0x4B}, {'#', 0x7B}, {'$', 0x5B}, {'@', 0x7C}, {'_', 0x6D}, {'-', 0x60},
                  {'/', 0x61}, {'&', 0x50}, {'*', 0x5C}, {'"', 0x7F}, {'%', 0x6C}, {'?', 0x6F}, {':', 0x7A}};
    if (c >= 'A' && c <= 'Z')
    {
        const int i = c - 'A';
        return static_cast<u8>(i < 9 ? 0xC1 + i : i < 18 ? 0xD1 + i - 9 : 0xE2 + i - 18);
    }
    if (c >= 'a' && c <= 'z')
    {
        return static_cast<u8>(ebcdic_of(static_cast<char>(c - 'a' + 'A')) - 0x40);
    }
    if (c >= '0' && c <= '9')
    {
        return static_cast<u8>(0xF0 + c - '0');
    }
    for (const auto &other : others)
    {
        if (other.c == c)
        {
            return other.e;
        }
    }
    ADD_FAILURE() << "the tests do not know '" << c << "' in EBCDIC";
    return 0;
}

Bytes ebcdic(const std::string &text, size_t width)
{
    Bytes result;
    for (char c : text)
    {
        result.push_back(ebcdic_of(c));
    }
    if (result.size() < width)
    {
        result.resize(width, EBCDIC_BLANK);
    }
    return result;
}

Bytes ascii(const std::string &text, size_t width)
{
    Bytes result = bytes(text);
    if (result.size() < width)
    {
        result.resize(width, ASCII_BLANK);
    }
    return result;
}

static Bytes little_endian(u32 value, unsigned size)
{
    Bytes result;
    for (unsigned i = 0; i < size; i++)
    {
        result.push_back(static_cast<u8>(value >> (8 * i)));
    }
    return result;
}

static u32 number_at(const Bytes &b, unsigned offset, unsigned size)
{
    u32 value = 0;
    for (unsigned i = 0; i < size; i++)
    {
        value |= static_cast<u32>(b.at(offset + i)) << (8 * i);
    }
    return value;
}

/* ---- answers and images --------------------------------------------------------------------------------- */

Answer &Answer::put(unsigned offset, const Bytes &value)
{
    fields.emplace_back(offset, value);
    return *this;
}

Answer &Answer::put8(unsigned offset, unsigned value)
{
    return put(offset, little_endian(value, 1));
}

Answer &Answer::put16(unsigned offset, unsigned value)
{
    return put(offset, little_endian(value, 2));
}

Answer &Answer::put32(unsigned offset, u32 value)
{
    return put(offset, little_endian(value, 4));
}

Answer &Answer::received(const std::string &text, unsigned what_received)
{
    data = text;
    put16(32, static_cast<unsigned>(text.size()));
    return put16(24, what_received);
}

Answer &Answer::in_progress()
{
    when = later;
    return *this;
}

Answer fails(u16 primary, u32 secondary)
{
    Answer answer;
    answer.primary = primary;
    answer.secondary = secondary;
    return answer;
}

Answer later(const Answer &outcome)
{
    Answer answer = outcome;
    answer.when = Answer::later;
    return answer;
}

Answer never_calls_back(const Answer &outcome)
{
    Answer answer = outcome;
    answer.when = Answer::no_callback;
    return answer;
}

Image::Image(u16 opcode, size_t size) : bytes(size, 0)
{
    put16(0, opcode);
}

Image &Image::put(unsigned offset, const Bytes &value)
{
    for (size_t i = 0; i < value.size(); i++)
    {
        bytes.at(offset + i) = value[i];
    }
    return *this;
}

Image &Image::put8(unsigned offset, unsigned value)
{
    return put(offset, little_endian(value, 1));
}

Image &Image::put16(unsigned offset, unsigned value)
{
    return put(offset, little_endian(value, 2));
}

Image &Image::put32(unsigned offset, u32 value)
{
    return put(offset, little_endian(value, 4));
}

Image &Image::point(unsigned offset, const void *address)
{
    return put32(offset, reinterpret_cast<u32>(address));
}

Image &Image::of(const CCCB &cccb)
{
    put8(2, cccb.ulConversationType & 0xFF);
    put(12, Bytes(cccb.TpId, cccb.TpId + sizeof(cccb.TpId)));
    return put32(20, cccb.ulAppcConvId);
}

std::string difference(const Bytes &expected, const Bytes &found)
{
    std::string text;
    if (expected.size() != found.size())
    {
        return "sizes " + std::to_string(expected.size()) + " and " + std::to_string(found.size());
    }
    for (size_t i = 0; i < expected.size(); i++)
    {
        if (expected[i] != found[i])
        {
            text += "at " + std::to_string(i) + ": expected " + hex(&expected[i], 1) + " found " + hex(&found[i], 1) +
                    "\n";
        }
    }
    return text;
}

u8 Verb::u8_at(unsigned offset) const
{
    return static_cast<u8>(number_at(issued, offset, 1));
}

u16 Verb::u16_at(unsigned offset) const
{
    return static_cast<u16>(number_at(issued, offset, 2));
}

u32 Verb::u32_at(unsigned offset) const
{
    return number_at(issued, offset, 4);
}

Bytes Verb::bytes_at(unsigned offset, unsigned length) const
{
    return Bytes(issued.begin() + static_cast<int>(offset), issued.begin() + static_cast<int>(offset + length));
}

/* ---- scripts -------------------------------------------------------------------------------------------- */

static std::map<u16, std::deque<Answer>> queued;
static std::map<u16, Answer> standing;
static u32 tps_started;
static u32 conversations_made;
static u32 tables_made;
static u32 wait_objects_made;
static std::map<void *, Bytes> freed; /* contents are checked for writes after the release */
static unsigned char control_block[PTRC_SIZE];
static bool trace_was_on;

void Node::next(u16 opcode, const Answer &answer)
{
    queued[opcode].push_back(answer);
}

void Node::every(u16 opcode, const Answer &answer)
{
    standing[opcode] = answer;
}

void Node::api_trace(bool on)
{
    control_block[PTRC_API_BYTE] = static_cast<u8>(on ? PTRC_API_BIT : 0);
    trace_was_on = trace_was_on || on;
}

void Node::suppress_audits(bool on)
{
    control_block[PTRC_AUDIT_BYTE] = static_cast<u8>(on ? PTRC_AUDIT_BIT : 0);
}

/* What a node does of its own accord: a new TP or conversation gets an identifier, an accept a plain partner. The
 * test's own fields come after these. */
static void fill_defaults(Verb &verb)
{
    u8 *r = static_cast<u8 *>(verb.record);
    switch (verb.opcode)
    {
    case NAP_TP_STARTED:
    {
        const u8 none[8] = {};
        if (memcmp(r + 12, none, 8) == 0)
        {
            memcpy(r + 12, "NODELU  ", 8);
        }
        tps_started++;
        const u8 tp_id[8] = {0x54, 0x50, 0xAA, 0xBB, 0, 0, 0, static_cast<u8>(tps_started)};
        memcpy(r + 20, tp_id, 8);
        break;
    }
    case NAP_M_ALLOCATE:
    {
        const u32 id = 0x00C00001 + conversations_made++;
        memcpy(r + 20, &id, 4);
        break;
    }
    case NAP_RECEIVE_ALLOCATE_CPIC:
    {
        const u32 id = 0x00C00001 + conversations_made++;
        tps_started++;
        const u8 tp_id[8] = {0x49, 0x4E, 0xCC, 0xDD, 0, 0, 0, static_cast<u8>(tps_started)};
        memcpy(r + 12, verb.pointed_at.data(), 64);
        memcpy(r + 76, tp_id, 8);
        memcpy(r + 84, &id, 4);
        r[88] = 0;
        r[89] = 1;
        memset(r + 90, EBCDIC_BLANK, 10);
        memcpy(r + 100, "INLU    ", 8);
        memcpy(r + 116, ebcdic("#INTER", 8).data(), 8);
        memcpy(r + 132, ebcdic("NETA.PARTNER", 17).data(), 17);
        break;
    }
    case NAP_GET_STATE:
        r[24] = 1;
        break;
    case NOF_OPEN:
    {
        const u32 handle = 0x77;
        memcpy(r + 224, &handle, 4);
        break;
    }
    default:
        break;
    }
}

static void complete(Verb &verb)
{
    u8 *r = static_cast<u8 *>(verb.record);
    if (verb.answer.primary == 0)
    {
        fill_defaults(verb);
    }
    memcpy(r + 4, &verb.answer.primary, 2);
    memcpy(r + 8, &verb.answer.secondary, 4);
    for (const auto &field : verb.answer.fields)
    {
        if (field.first + field.second.size() <= verb.issued.size())
        {
            memcpy(r + field.first, field.second.data(), field.second.size());
        }
        else
        {
            ADD_FAILURE() << "the test scripts bytes behind the verb record";
        }
    }
    if (!verb.answer.data.empty())
    {
        const u32 address = number_at(verb.issued, 36, 4);
        memcpy(reinterpret_cast<void *>(address), verb.answer.data.data(), verb.answer.data.size());
    }
    verb.completed.assign(r, r + verb.issued.size());
}

static void expect_held(const char *function)
{
    EXPECT_TRUE(node.held) << function << " called without the lock";
}

static size_t record_size(u16 opcode)
{
    switch (opcode)
    {
    case NAP_DEFINE_LOCAL_TP_NAME:
    case NAP_DELETE_LOCAL_TP_NAME:
        return sizeof(VERB_LOCAL_TP_NAME);
    case NOF_OPEN:
        return sizeof(NOF_OPEN_VERB);
    case NOF_QUERY_SIDE_INFO:
        return sizeof(NOF_QUERY_SIDE_INFO_VERB);
    case NOF_CLOSE:
        return sizeof(NOF_CLOSE_VERB);
    default:
        return CPIC_VERB_SIZE;
    }
}

static Bytes what_it_points_at(const Verb &verb)
{
    u32 address = 0;
    u32 length = 0;
    switch (verb.opcode)
    {
    case NAP_SEND_DATA:
        address = verb.u32_at(28);
        length = verb.u16_at(26);
        break;
    case NAP_DEALLOCATE:
        address = verb.u32_at(28);
        length = verb.u16_at(26);
        break;
    case NAP_SEND_ERROR:
        address = verb.u32_at(32);
        length = verb.u16_at(28);
        break;
    case NAP_RECEIVE_ALLOCATE_CPIC:
        address = verb.u32_at(196);
        length = 64u * verb.u16_at(192);
        break;
    default:
        break;
    }
    const u8 *p = reinterpret_cast<const u8 *>(address);
    return p == nullptr ? Bytes() : Bytes(p, p + length);
}

static Verb &record_verb(Entry entry, u16 version, void *record, appc_completion *routine, u32 user_word)
{
    node.verbs.emplace_back();
    Verb &verb = node.verbs.back();
    u8 *r = static_cast<u8 *>(record);
    verb.entry = entry;
    verb.version = version;
    memcpy(&verb.opcode, r, 2);
    verb.record = record;
    verb.issued.assign(r, r + record_size(verb.opcode));
    verb.routine = routine;
    verb.user_word = user_word;
    verb.gcb = *library_gcb_pointer;
    const auto conversations = node.tables.find(library_gcb_pointer->ConvTable);
    if (conversations != node.tables.end())
    {
        for (const auto &entry_of_table : conversations->second.entries)
        {
            if (entry_of_table.second == record)
            {
                verb.cccb = *static_cast<CCCB *>(record);
            }
        }
    }
    verb.pointed_at = what_it_points_at(verb);
    EXPECT_EQ(NAP_VERSION, version) << "version of the verb interface";

    auto &queue = queued[verb.opcode];
    if (!queue.empty())
    {
        verb.answer = queue.front();
        queue.pop_front();
    }
    else if (standing.count(verb.opcode) != 0)
    {
        verb.answer = standing[verb.opcode];
    }
    if (node.at_issue)
    {
        node.at_issue(verb);
    }
    return verb;
}

void Node::deliver(Verb &verb)
{
    const bool was_held = held;
    if (!verb.pending)
    {
        ADD_FAILURE() << "the test delivers a verb that is not pending";
        return;
    }
    verb.pending = false;
    EXPECT_EQ(0, memcmp(verb.record, verb.issued.data(), verb.issued.size()))
        << "the library wrote to the record of a pending verb";
    complete(verb);
    held = true;
    verb.routine(verb.record, 0xEEEEEEEE, 0xDDDDDDDD, verb.user_word);
    held = was_held;
}

void Node::deliver_all()
{
    for (Verb &verb : verbs)
    {
        if (verb.pending)
        {
            deliver(verb);
        }
    }
}

u32 Node::pending() const
{
    u32 count = 0;
    for (const Verb &verb : verbs)
    {
        count += verb.pending ? 1 : 0;
    }
    return count;
}

u16 Node::path_event(u16 code)
{
    struct path_event event = {code, 0xFFFF};
    if (path_routine == nullptr)
    {
        ADD_FAILURE() << "nobody registered for path events";
        return 0xFFFF;
    }
    if (code == PATH_EVENT_FAILURE)
    {
        for (Verb &verb : verbs)
        {
            verb.pending = false;
        }
    }
    held = true;
    EXPECT_EQ(0u, path_routine(path_word, &event)) << "result of the path callback";
    held = false;
    return event.result;
}

/* ---- looking at the records ----------------------------------------------------------------------------- */

std::vector<Verb *> Node::issued(u16 opcode)
{
    std::vector<Verb *> found;
    for (Verb &verb : verbs)
    {
        if (verb.opcode == opcode)
        {
            found.push_back(&verb);
        }
    }
    return found;
}

static Verb &no_verb()
{
    static Verb nothing;
    nothing = Verb();
    nothing.issued.assign(256, 0);
    nothing.cccb = CCCB();
    return nothing;
}

Verb &Node::last(u16 opcode)
{
    const std::vector<Verb *> found = issued(opcode);
    EXPECT_FALSE(found.empty()) << "no verb with opcode " << std::hex << opcode << " was issued";
    return found.empty() ? no_verb() : *found.back();
}

Verb &Node::only(u16 opcode)
{
    const std::vector<Verb *> found = issued(opcode);
    EXPECT_EQ(1u, found.size()) << "verbs issued with opcode " << std::hex << opcode;
    return found.empty() ? no_verb() : *found.back();
}

void Node::forget()
{
    EXPECT_EQ(0u, pending()) << "a pending verb must be delivered before the test forgets it";
    verbs.clear();
    audits.clear();
    sleeps.clear();
    wakes.clear();
}

Log Node::problem(u32 code, u32 detail)
{
    if (problems.empty())
    {
        ADD_FAILURE() << "no problem was logged, expected " << std::hex << code << " detail " << std::dec << detail;
        return Log();
    }
    Log log = problems.front();
    problems.erase(problems.begin());
    EXPECT_EQ(code, log.code) << "problem code";
    EXPECT_EQ(detail, log.detail) << "detail of the problem";
    return log;
}

void Node::assertion(const std::string &text)
{
    if (assertions.empty())
    {
        ADD_FAILURE() << "no check failed, expected \"" << text << "\"";
        return;
    }
    EXPECT_EQ(text, assertions.front());
    assertions.erase(assertions.begin());
}

Log Node::audit(u32 code)
{
    for (size_t i = 0; i < audits.size(); i++)
    {
        if (audits[i].code == code)
        {
            Log log = audits[i];
            audits.erase(audits.begin() + static_cast<int>(i));
            return log;
        }
    }
    ADD_FAILURE() << "no audit record " << std::hex << code;
    return Log();
}

unsigned Node::count_audits(u32 code) const
{
    unsigned count = 0;
    for (const Log &log : audits)
    {
        count += log.code == code ? 1 : 0;
    }
    return count;
}

/* ---- rules ---------------------------------------------------------------------------------------------- */

constexpr size_t guard_size = 16;
constexpr u8 guard_byte = 0xC3;
constexpr u8 fresh_byte = 0xA5;
constexpr u8 dead_byte = 0xDD;

static void check_guards(const void *memory, u32 size)
{
    const u8 *p = static_cast<const u8 *>(memory);
    for (size_t i = 0; i < guard_size; i++)
    {
        if (p[size + i] != guard_byte || *(p - 1 - i) != guard_byte)
        {
            ADD_FAILURE() << "memory of " << size << " bytes was written to outside its bounds";
            return;
        }
    }
}

static void give_back(void *block)
{
    free(static_cast<u8 *>(block) - guard_size);
}

void Node::reset()
{
    queued.clear();
    standing.clear();
    for (const auto &block : freed)
    {
        give_back(block.first);
    }
    for (const auto &block : memory)
    {
        give_back(block.first);
    }
    freed.clear();
    tps_started = 0;
    conversations_made = 0;
    tables_made = 0;
    wait_objects_made = 0;
    trace_was_on = false;
    memset(control_block, 0, sizeof(control_block));
    *this = Node();
    library_gcb = GCB();
    library_started = 0;
}

void Node::check_counters()
{
    if (library_started == 0)
    {
        return;
    }
    u32 completions = 0;
    for (const auto &entry : tables[library_gcb.ConvTable].entries)
    {
        completions += static_cast<CCCB *>(entry.second)->usCompletionPending;
    }
    EXPECT_EQ(completions, library_gcb.NumVerbsWaiting) << "completions posted, and their count";
}

void Node::verify()
{
    EXPECT_FALSE(held) << "the lock is still held";
    for (const Log &log : problems)
    {
        ADD_FAILURE() << "unexpected problem " << std::hex << log.code << " detail " << std::dec << log.detail;
    }
    for (const std::string &text : assertions)
    {
        ADD_FAILURE() << "unexpected failed check: " << text;
    }
    EXPECT_TRUE(trace_was_on || trace.empty()) << "trace lines were written with the trace off";
    for (const auto &queue : queued)
    {
        EXPECT_TRUE(queue.second.empty()) << "a scripted answer was never asked for, opcode " << std::hex
                                          << queue.first;
    }
    EXPECT_TRUE(sleeps_do.empty()) << "a scripted sleep never happened";
    check_counters();

    /* Memory: what some record points at may live. */
    std::set<void *> owned;
    for (const auto &table : tables)
    {
        for (const auto &entry : table.second.entries)
        {
            const auto block = memory.find(entry.second);
            if (block == memory.end())
            {
                ADD_FAILURE() << "a table entry points at memory that is not there any more";
                continue;
            }
            owned.insert(entry.second);
            if (block->second.size == sizeof(CCCB))
            {
                const CCCB *cccb = static_cast<const CCCB *>(entry.second);
                for (void *log_data : {static_cast<void *>(cccb->LogData), static_cast<void *>(cccb->DeallcLogData)})
                {
                    EXPECT_TRUE(log_data == nullptr || memory.count(log_data) != 0) << "dangling log data";
                    owned.insert(log_data);
                }
                if (cccb->usVerbsPending != 0 && cccb->vcb.opcode == NAP_RECEIVE_ALLOCATE_CPIC)
                {
                    owned.insert(cccb->vcb.rcvallcp.rcv_alloc.tp_name_list);
                }
            }
        }
    }
    for (const Verb &verb : verbs)
    {
        if (verb.pending)
        {
            owned.insert(verb.record);
        }
    }
    for (const auto &block : memory)
    {
        check_guards(block.first, block.second.size);
        EXPECT_TRUE(may_leak || owned.count(block.first) != 0)
            << "memory of " << block.second.size << " bytes, type " << block.second.type << ", was left behind";
    }
    for (const auto &block : freed)
    {
        const u8 *p = static_cast<const u8 *>(block.first);
        EXPECT_EQ(block.second, Bytes(p, p + block.second.size())) << "memory was written to after its release";
    }

    unsigned objects = 0;
    for (const auto &object : wait_objects)
    {
        objects += library_started != 0 && object.first == library_gcb.WaitObject ? 0 : 1;
    }
    EXPECT_EQ(wait_objects_left, objects) << "wait objects left behind";
    if (library_started == 0)
    {
        EXPECT_TRUE(path_users.empty()) << "still registered for path events";
        for (const auto &table : tables)
        {
            EXPECT_FALSE(table.second.open) << "a table was left behind";
        }
    }
}

Locked::Locked() : token(vpm_lock())
{
}

Locked::~Locked()
{
    vpm_unlock(token);
}

} // namespace scripted

/* ---- node_client.h -------------------------------------------------------------------------------------- */

using namespace scripted;

extern "C"
{

const char nba_blank_name[8] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
unsigned char *ptrc = scripted::control_block;
struct trc_api_state trc_api = {0, 3};

u16 appc_c_version(u16 version, void *record)
{
    expect_held("appc_c_version");
    Verb &verb = record_verb(Entry::synchronous, version, record, nullptr, 0);
    complete(verb);
    return 0;
}

u16 appc_c_async_version(u16 version, void *record, appc_completion *routine, u32 user_word)
{
    expect_held("appc_c_async_version");
    Verb &verb = record_verb(Entry::asynchronous, version, record, routine, user_word);
    if (verb.answer.when == Answer::later && routine != nullptr)
    {
        verb.pending = true;
        return NAP_IN_PROGRESS;
    }
    complete(verb);
    /* A context that nobody waits for: the library frees its record on 0x18F0, the routine in every other case. */
    if (verb.opcode == NAP_TP_ENDED && routine != nullptr)
    {
        return NAP_NO_CALLBACK;
    }
    return verb.answer.when == Answer::no_callback ? NAP_NO_CALLBACK : 1;
}

u16 nof_version(u16 version, u32 target_handle, void *record, void *buffer)
{
    expect_held("nof_version");
    Verb &verb = record_verb(Entry::operator_verb, version, record, nullptr, 0);
    verb.target_handle = target_handle;
    verb.buffer = buffer;
    if (verb.opcode == NOF_QUERY_SIDE_INFO && verb.answer.primary == 0)
    {
        const Bytes name = verb.bytes_at(30, 8);
        const auto found = node.side_info.find(std::string(name.begin(), name.end()));
        if (found == node.side_info.end())
        {
            verb.answer = fails(0x0200, 0x58100000);
        }
        else if (buffer != nullptr)
        {
            memcpy(buffer, &found->second, sizeof(found->second));
        }
    }
    complete(verb);
    return 0;
}

u16 vpm_lock(void)
{
    EXPECT_FALSE(node.held) << "vpm_lock: the lock is not recursive";
    node.held = true;
    node.lock_calls++;
    node.token = static_cast<u16>(node.token * 5u + 0x1235u);
    return node.token;
}

void vpm_unlock(u16 token)
{
    expect_held("vpm_unlock");
    EXPECT_EQ(node.token, token) << "vpm_unlock: token of vpm_lock";
    node.held = false;
}

u32 vpm_allocate_wait_object(void)
{
    expect_held("vpm_allocate_wait_object");
    if (node.wait_object.hits())
    {
        return 0;
    }
    const u32 object = 0x3000 + ++wait_objects_made;
    node.wait_objects[object] = false;
    return object;
}

void vpm_release_wait_object(u32 wait_object)
{
    expect_held("vpm_release_wait_object");
    EXPECT_EQ(1u, node.wait_objects.erase(wait_object)) << "released a wait object that does not exist";
}

int vpm_sleep(u32 wait_object, int timeout_ms)
{
    expect_held("vpm_sleep");
    node.sleeps.emplace_back(wait_object, timeout_ms);
    if (node.wait_objects.count(wait_object) == 0)
    {
        EXPECT_EQ(0, library_started) << "sleeps on a wait object that does not exist";
        return 1; /* released at a path failure: nothing will ever wake it */
    }
    const u16 token = node.token; /* the sleeper's again when it wakes, whoever had the lock meanwhile */
    node.held = false;
    int result = 0;
    if (!node.sleeps_do.empty())
    {
        const auto action = node.sleeps_do.front();
        node.sleeps_do.pop_front();
        result = action(wait_object);
    }
    else
    {
        /* The node at work meanwhile: verbs complete one by one, the oldest first, until one wakes the sleeper. */
        for (size_t i = 0; i < node.verbs.size() && !node.wait_objects[wait_object]; i++)
        {
            if (node.verbs[i].pending)
            {
                node.deliver(node.verbs[i]);
            }
        }
        if (!node.wait_objects[wait_object])
        {
            fprintf(stderr, "vpm_sleep: nothing is left that could wake the sleeper\n");
            abort();
        }
    }
    if (result == 0)
    {
        node.wait_objects[wait_object] = false;
    }
    if (library_started == 0)
    {
        node.wait_objects.erase(wait_object);
    }
    node.held = true;
    node.token = token;
    return result;
}

void vpm_wakeup(u32 wait_object)
{
    expect_held("vpm_wakeup");
    EXPECT_EQ(1u, node.wait_objects.count(wait_object)) << "wakes a wait object that does not exist";
    node.wait_objects[wait_object] = true;
    node.wakes.push_back(wait_object);
}

void vpm_asm_event_fd(void)
{
    EXPECT_FALSE(node.held) << "vpm_asm_event_fd called with the lock held";
    node.event_fd_calls++;
    if (node.deliver_on_event_fd)
    {
        node.deliver_all();
    }
}

void vpm_init_path_user(u32 unused1, u32 unused2, path_callback *callback, u32 user_word, u32 *path_user)
{
    expect_held("vpm_init_path_user");
    EXPECT_EQ(0u, unused1);
    EXPECT_EQ(0u, unused2);
    if (node.path_user.hits())
    {
        return;
    }
    node.path_routine = callback;
    node.path_word = user_word;
    *path_user = 0x9001;
    node.path_users.push_back(*path_user);
}

void vpm_terminate_path_user(u32 path_user)
{
    expect_held("vpm_terminate_path_user");
    ASSERT_EQ(1u, node.path_users.size()) << "not registered for path events";
    EXPECT_EQ(node.path_users[0], path_user);
    node.path_users.clear();
}

void vtm_table_init(u32 *table, u32 zero)
{
    expect_held("vtm_table_init");
    EXPECT_EQ(0u, zero);
    if (node.table_init.hits())
    {
        return;
    }
    tables_made++;
    *table = 0x7AB10000 + tables_made;
    node.tables[*table].open = true;
    node.tables[*table].last = tables_made << 20;
}

void vtm_table_terminate(u32 *table)
{
    expect_held("vtm_table_terminate");
    ASSERT_TRUE(node.tables.count(*table) != 0 && node.tables[*table].open) << "terminates a table that is not there";
    node.tables[*table] = Table();
    *table = 0;
}

u32 vtm_get_free_entry(u32 table, void *record)
{
    expect_held("vtm_get_free_entry");
    EXPECT_TRUE(node.tables.count(table) != 0 && node.tables[table].open) << "entry of a table that is not there";
    if (node.table_entry.hits())
    {
        return 0;
    }
    Table &t = node.tables[table];
    t.last++;
    t.entries[t.last] = record;
    return t.last;
}

void *vtm_get_pointer(u32 table, u32 handle)
{
    expect_held("vtm_get_pointer");
    const auto t = node.tables.find(table);
    if (t == node.tables.end() || t->second.entries.count(handle) == 0)
    {
        return nullptr;
    }
    return t->second.entries[handle];
}

u32 vtm_get_next_used(u32 table, u32 handle)
{
    expect_held("vtm_get_next_used");
    const auto t = node.tables.find(table);
    if (table == 0 || t == node.tables.end())
    {
        return 0;
    }
    const auto entry = t->second.entries.upper_bound(handle);
    return entry == t->second.entries.end() ? 0 : entry->first;
}

void vtm_release_entry(u32 table, u32 handle)
{
    expect_held("vtm_release_entry");
    ASSERT_TRUE(node.tables.count(table) != 0) << "releases an entry of a table that is not there";
    EXPECT_EQ(1u, node.tables[table].entries.erase(handle)) << "releases an entry that is not in use";
}

void *nba_mm_alloc(u32 size, u16 type, const char *name)
{
    expect_held("nba_mm_alloc");
    EXPECT_EQ(nba_blank_name, name) << "every allocation of the library has the blank name";
    if (node.allocation.hits())
    {
        return nullptr;
    }
    u8 *raw = static_cast<u8 *>(malloc(size + 2 * guard_size));
    memset(raw, guard_byte, size + 2 * guard_size);
    memset(raw + guard_size, fresh_byte, size);
    node.memory[raw + guard_size] = {size, type};
    return raw + guard_size;
}

/* The memory stays with the test until its end, so that a late write is noticed. Null is taken as free() takes it: the
 * library hands it on only after a check has failed on it. */
void nba_mm_free(void *memory)
{
    expect_held("nba_mm_free");
    if (memory == nullptr)
    {
        return;
    }
    const auto block = node.memory.find(memory);
    ASSERT_TRUE(block != node.memory.end()) << "frees memory that is not allocated";
    check_guards(memory, block->second.size);
    for (const auto &table : node.tables)
    {
        for (const auto &entry : table.second.entries)
        {
            EXPECT_NE(entry.second, memory) << "frees a record that a table entry still points at";
        }
    }
    memset(memory, dead_byte, block->second.size);
    freed[memory] = Bytes(block->second.size, dead_byte);
    node.memory.erase(block);
}

static Log read_log(bool audit, u32 code, u32 detail, const char *format, va_list arguments)
{
    Log log = {audit, code, detail, format, {}};
    const std::string items = log.format + " ";
    size_t start = 0;
    for (size_t i = 0; i < items.size(); i++)
    {
        if (items[i] != ' ')
        {
            continue;
        }
        const std::string item = items.substr(start, i - start);
        start = i + 1;
        if (item == "x" || item == "lx" || item == "l")
        {
            log.items.emplace_back(va_arg(arguments, u32), Bytes());
        }
        else if (item == "ba" || item == "ca" || item == "es")
        {
            const u8 *p = va_arg(arguments, const u8 *);
            const u32 length = va_arg(arguments, u32);
            log.items.emplace_back(length, Bytes(p, p + length));
        }
        else
        {
            EXPECT_EQ("", item) << "unknown item in a log format";
        }
    }
    return log;
}

void nba_pd_print_problem(u32 code, u32 detail, const char *format, ...)
{
    expect_held("nba_pd_print_problem");
    va_list arguments;
    va_start(arguments, format);
    node.problems.push_back(read_log(false, code, detail, format, arguments));
    va_end(arguments);
}

void nba_pd_print_audit(u32 code, u32 detail, const char *format, ...)
{
    expect_held("nba_pd_print_audit");
    va_list arguments;
    va_start(arguments, format);
    node.audits.push_back(read_log(true, code, detail, format, arguments));
    va_end(arguments);
}

void v0_assert(const char *source, int line, const char *expression)
{
    expect_held("v0_assert");
    EXPECT_NE(nullptr, source);
    EXPECT_LT(0, line);
    node.assertions.push_back(expression);
}

void sepuapi_init(unsigned char *)
{
}

void trc_lock_file(struct trc_api_state *)
{
}

void trc_unlock_file(struct trc_api_state *)
{
}

void com_trc_sep(int, const char *tag)
{
    node.trace.emplace_back("sep", tag);
}

void com_trc_line(int, const char *, const char *text)
{
    node.trace.emplace_back("line", text);
}

void com_trc_dump(int, const char *, const void *address, u32 length)
{
    node.trace.emplace_back("dump", hex(address, length));
}

} /* extern "C" */
