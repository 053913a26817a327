/* scripted_verbs.cpp - the scripted node's verbs: what it answers, what it records, when it completes. */
#include "scripted_state.hpp"

namespace scripted
{

/* ---- scripts -------------------------------------------------------------------------------------------- */

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

void complete(Verb &verb)
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

void expect_held(const char *function)
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

Verb &record_verb(Entry entry, u16 version, void *record, appc_completion *routine, u32 user_word)
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

} // namespace scripted
