// verbs.cpp - the entry points for verbs, and what a verb record's return codes look like.
#include "client/conversation.hpp"
#include "client/export.hpp"
#include "client/link.hpp"
#include "client/setup.hpp"
#include "client/tp.hpp"

#include <cstring>

namespace client {

namespace {

u16 network_order(u16 value)
{
    return static_cast<u16>(value << 8 | value >> 8);
}

// Where the return codes stand, the same in every record.
struct rc_fields
{
    u16 opcode;
    u16 extension;
    u16 primary;
    u16 reserved;
    u32 secondary;
};
static_assert(offsetof(rc_fields, primary) == 4 && offsetof(rc_fields, secondary) == 8);

} // namespace

void runtime_set_rc(void *record, u32 primary, u32 secondary)
{
    auto *fields = static_cast<rc_fields *>(record);
    fields->primary = network_order(static_cast<u16>(primary));
    fields->secondary = __builtin_bswap32(secondary);
}

void runtime_complete(void *record, u32 primary, u32 secondary, appc_completion *routine, u32 user_word)
{
    runtime_set_rc(record, primary, secondary);
    if (routine != nullptr)
    {
        routine(record, 0, 0, user_word);
    }
}

void runtime_conversation_over(conversation *conv)
{
    table_remove(runtime.conversations, conversation_id(conv));
    tp *owner = tp_find(conversation_tp_id(conv));
    if (owner != nullptr)
    {
        owner->conversations--;
    }
    link_ended(conversation_session(conv));
}

namespace {

u16 conversation_verb_issue(VERB_RECORD *record, appc_completion *routine, u32 user_word)
{
    pump_before_verb();
    auto *conv = static_cast<conversation *>(table_find(runtime.conversations, record->header.conv_id));
    if (conv == nullptr)
    {
        runtime_set_rc(record, wire::rc_parameter_check, wire::rc_bad_conv_id);
        return 0;
    }
    if (std::memcmp(conversation_tp_id(conv), record->header.tp_id, sizeof record->header.tp_id) != 0)
    {
        runtime_set_rc(record, wire::rc_parameter_check, wire::rc_bad_tp_id);
        return 0;
    }
    u16 result = conversation_issue(conv, record, routine, user_word);
    // A partner often fails because its broker has, which is ours as well: the program's next call must find a new one.
    if (result == 0 && record->header.primary_rc == network_order(wire::rc_conv_failure_retry) && runtime.pumping == 0)
    {
        pump();
    }
    return result;
}

u16 issue(VERB_RECORD *record, appc_completion *routine, u32 user_word)
{
    switch (record->opcode)
    {
    case NAP_TP_STARTED:
        tp_started(&record->tp_started);
        return 0;
    case NAP_TP_ENDED:
        // With a routine the caller gives the record to the routine to free, but for this one answer, on which it
        // frees the record itself; any other would leak it.
        tp_ended(&record->tp_ended);
        return routine != nullptr ? NAP_NO_CALLBACK : 0;
    case NAP_DEFINE_LOCAL_TP_NAME:
        tp_name_change(reinterpret_cast<VERB_LOCAL_TP_NAME *>(record), wire::message_kind::add_name);
        return 0;
    case NAP_DELETE_LOCAL_TP_NAME:
        tp_name_change(reinterpret_cast<VERB_LOCAL_TP_NAME *>(record), wire::message_kind::remove_name);
        return 0;
    case NAP_M_ALLOCATE:
        return allocate_issue(record, routine, user_word);
    case NAP_RECEIVE_ALLOCATE_CPIC:
        return accept_issue(record, routine, user_word);
    case NAP_CANCEL_CONVERSATION:
        cancel_conversation(&record->header);
        return 0;
    default:
        if (conversation_verb(record->opcode))
        {
            return conversation_verb_issue(record, routine, user_word);
        }
        runtime_set_rc(record, wire::rc_invalid_verb, 0);
        return 0;
    }
}

} // namespace

} // namespace client

using namespace client;

CPICNODE_EXPORT u16 appc_c_async_version(u16, void *record, appc_completion *routine, u32 user_word)
{
    u16 result = issue(static_cast<VERB_RECORD *>(record), routine, user_word);
    if (__builtin_expect(broker.broken, 0))
    {
        path_lost(); // a send has shown it; what waits on other conversations must hear of it too
    }
    return result;
}

CPICNODE_EXPORT u16 appc_c_version(u16 version, void *record)
{
    return appc_c_async_version(version, record, nullptr, 0);
}
