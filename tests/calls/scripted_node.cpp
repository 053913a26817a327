/* scripted_node.cpp - the scripted node's records as tests look at them, and the rules that it watches. */
#include "scripted_state.hpp"

namespace scripted
{

Node node;
std::map<u16, std::deque<Answer>> queued;
std::map<u16, Answer> standing;
u32 tps_started;
u32 conversations_made;
u32 tables_made;
u32 wait_objects_made;
std::map<void *, Bytes> freed;
unsigned char control_block[PTRC_SIZE];
bool trace_was_on;

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

void check_guards(const void *memory, u32 size)
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
