// tp.cpp - the TPs of this process.
#include "client/tp.hpp"

#include "client/conversation.hpp"
#include "client/link.hpp"
#include "client/setup.hpp"
#include "client/system.hpp"

#include <cstring>
#include <new>

namespace client {

namespace {

static_assert(sizeof(wire::find_lu::alias) == sizeof(VERB_TP_STARTED::lu_alias));

// Local LU aliases that the broker has confirmed, so that starting a TP asks once for each. A reload of the
// configuration makes them void.
constexpr u32 most_aliases = 8;
struct alias_cache
{
    u32 generation; // of the configuration
    u32 count;
    u32 oldest;     // the next to be replaced
    u8 aliases[most_aliases][8];
};
alias_cache known;

// The configuration's generation now. The broker writes it while programs run.
u32 generation_now()
{
    return __atomic_load_n(&broker.page->config_generation, __ATOMIC_RELAXED);
}

bool alias_known(const u8 *alias)
{
    if (broker.page == nullptr || known.generation != generation_now())
    {
        return false;
    }
    for (u32 i = 0; i < known.count; i++)
    {
        if (std::memcmp(known.aliases[i], alias, 8) == 0)
        {
            return true;
        }
    }
    return false;
}

void alias_remember(const u8 *alias, u32 generation)
{
    if (known.generation != generation)
    {
        known = {};
        known.generation = generation;
    }
    u32 place = known.count < most_aliases ? known.count++ : known.oldest++ % most_aliases;
    std::memcpy(known.aliases[place], alias, 8);
}

u32 handle_of(const u8 *id)
{
    u32 handle;
    std::memcpy(&handle, id + 4, sizeof handle);
    return handle;
}

} // namespace

void set_rc_no_path(void *record)
{
    u32 primary = runtime.path_due || broker.broken ? wire::rc_comm_subsystem_abended : wire::rc_comm_subsystem_not_loaded;
    runtime_set_rc(record, primary, 0);
}

tp *tp_make(const u8 *alias)
{
    void *memory = sys_alloc(sizeof(tp));
    if (memory == nullptr)
    {
        return nullptr;
    }
    tp *made = new (memory) tp{};
    u32 handle = table_add(runtime.tps, made);
    if (handle == NB_NULL_HANDLE)
    {
        sys_free(made);
        return nullptr;
    }
    std::memcpy(made->id, &broker.connection, 4);
    std::memcpy(made->id + 4, &handle, 4);
    std::memcpy(made->alias, alias, 8);
    return made;
}

tp *tp_find(const u8 *id)
{
    tp *found = static_cast<tp *>(table_find(runtime.tps, handle_of(id)));
    return found != nullptr && std::memcmp(found->id, id, sizeof found->id) == 0 ? found : nullptr;
}

void tp_remove(tp *one)
{
    table_remove(runtime.tps, handle_of(one->id));
    sys_free(one);
}

void tps_forget()
{
    for (u32 handle = table_next(runtime.tps, 0); handle != 0; handle = table_next(runtime.tps, handle))
    {
        sys_free(table_find(runtime.tps, handle));
    }
    table_end(runtime.tps);
    known = {};
}

void tp_started(VERB_TP_STARTED *record)
{
    constexpr u8 none[8] = {};
    u8 alias[8];
    std::memcpy(alias, std::memcmp(record->lu_alias, none, 8) == 0 ? broker.default_alias : record->lu_alias, 8);
    if (broker.fd < 0)
    {
        set_rc_no_path(record);
        return;
    }
    if (!alias_known(alias))
    {
        u32 generation = generation_now(); // before the question: a reload in between makes the answer void
        wire::find_lu question = {};
        std::memcpy(question.alias, alias, 8);
        wire::lu_found answer;
        const called asked = link_call(question.head, sizeof question, wire::message_kind::find_lu, &answer,
                                       sizeof answer, wire::message_kind::lu_found);
        if (asked == called::cancelled)
        {
            runtime_set_rc(record, wire::rc_cancelled, 0);
            return;
        }
        if (asked == called::failed)
        {
            set_rc_no_path(record);
            return;
        }
        if (answer.status.primary != wire::rc_ok)
        {
            runtime_set_rc(record, answer.status.primary, answer.status.secondary);
            return;
        }
        alias_remember(alias, generation);
    }
    tp *made = tp_make(alias);
    if (made == nullptr)
    {
        runtime_set_rc(record, wire::rc_unexpected_system_error, 12); // no memory
        return;
    }
    std::memcpy(record->lu_alias, alias, 8);
    std::memcpy(record->tp_id, made->id, 8);
    runtime_set_rc(record, wire::rc_ok, 0);
}

void tp_ended(VERB_TP_ENDED *record)
{
    tp *one = tp_find(record->tp_id);
    if (one == nullptr)
    {
        runtime_set_rc(record, wire::rc_parameter_check, wire::rc_bad_tp_id);
        return;
    }
    u8 id[8];
    std::memcpy(id, one->id, sizeof id);
    // From here on nothing new can begin under it, whatever the routines of the verbs that end now do.
    u32 left = one->conversations;
    tp_remove(one);
    operations_cancel_of(id);
    // Whether hard or soft: a conversation without its TP could not be used any more.
    for (u32 i = left == 0 ? 0 : table_next(runtime.conversations, 0); i != 0; i = table_next(runtime.conversations, i))
    {
        auto *conv = static_cast<conversation *>(table_find(runtime.conversations, i));
        if (std::memcmp(conversation_tp_id(conv), id, sizeof id) == 0)
        {
            conversation_abend(conv);
        }
    }
    runtime_set_rc(record, wire::rc_ok, 0);
}

void tp_name_change(VERB_LOCAL_TP_NAME *record, wire::message_kind kind)
{
    wire::name_change change = {};
    std::memcpy(change.tp_name, record->tp_name, sizeof change.tp_name);
    wire::done answer;
    if (link_call(change.head, sizeof change, kind, &answer, sizeof answer, wire::message_kind::done) !=
        called::answered)
    {
        set_rc_no_path(record);
        return;
    }
    runtime_set_rc(record, answer.status.primary, answer.status.secondary);
}

} // namespace client
