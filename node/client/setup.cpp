// setup.cpp - ALLOCATE, RECEIVE_ALLOCATE, CANCEL_CONVERSATION.
//
// An allocation or accept in progress is an `operation`: a request to the broker and the verb that waits for it. The
// two can part: a cancelled verb is complete at once, while the broker may be answering the request at that very
// moment. The operation then lives on until the answer has come, and gives back what it brings.
#include "client/setup.hpp"

#include "client/conversation.hpp"
#include "client/counters.hpp"
#include "client/link.hpp"
#include "client/system.hpp"
#include "client/tp.hpp"

#include <cerrno>
#include <cstring>
#include <new>

namespace client {

struct operation
{
    request r; // first: the request's routine gets it
    operation *next;
    operation **link;
    VERB_RECORD *record;      // null: the verb is complete
    appc_completion *routine; // null: a thread waits
    u32 user_word;
    runtime_waiter waiter;    // that thread
    bool answered;            // the request is over
    bool collected;           // nobody waits for the verb any more
    u8 tp_id[8];              // of an allocation
    u32 caller_handle;        // of an accept: what the library calls it
    bool accepting;
};

namespace {

operation *operation_make(VERB_RECORD *record, appc_completion *routine, u32 user_word)
{
    void *memory = sys_alloc(sizeof(operation));
    if (memory == nullptr)
    {
        return nullptr;
    }
    auto *made = new (memory) operation{};
    made->record = record;
    made->routine = routine;
    made->user_word = user_word;
    made->next = runtime.operations;
    made->link = &runtime.operations;
    if (made->next != nullptr)
    {
        made->next->link = &made->next;
    }
    runtime.operations = made;
    return made;
}

void operation_free(operation *op)
{
    request_release(op->r);
    *op->link = op->next;
    if (op->next != nullptr)
    {
        op->next->link = op->link;
    }
    sys_free(op);
}

// Frees an operation when neither the request nor a thread needs it any more.
void operation_release(operation *op)
{
    if (op->answered && op->collected)
    {
        operation_free(op);
    }
}

// Completes the verb of an operation. The operation may be gone afterwards.
void operation_complete(operation *op, u32 primary, u32 secondary)
{
    VERB_RECORD *record = op->record;
    op->record = nullptr;
    if (op->routine == nullptr)
    {
        runtime_set_rc(record, primary, secondary);
        runtime_kick(op->waiter);
        return;
    }
    appc_completion *routine = op->routine;
    u32 user_word = op->user_word;
    op->collected = true;
    operation_release(op);
    runtime_complete(record, primary, secondary, routine, user_word);
}

// The answer to the broker's `cancel`: nothing to be done, the cancelled request answers for itself.
struct cancel_request
{
    request r;
};

void cancel_done(request &self, const void *, int fd)
{
    if (fd >= 0)
    {
        sys_close(fd);
    }
    sys_free(&self);
}

// The verb is cancelled: complete now, the broker is asked to forget the request.
void operation_cancel(operation *op)
{
    u32 correlation = op->r.correlation;
    void *memory = sys_alloc(sizeof(cancel_request));
    if (memory != nullptr)
    {
        auto *asked = new (memory) cancel_request{{0, wire::message_kind::done, cancel_done}};
        wire::cancel message = {};
        message.target = correlation;
        if (!link_post(asked->r, message.head, sizeof message, wire::message_kind::cancel, wire::message_kind::done))
        {
            sys_free(asked);
        }
    }
    operation_complete(op, wire::rc_cancelled, 0);
}

// Makes a conversation of what the broker has handed over. 0: no descriptor came, or there is no memory; then all of it
// has been given back.
u32 conversation_begin(conversation_origin &origin, tp *owner)
{
    conversation *conv = origin.fd >= 0 ? conversation_make(origin) : nullptr;
    if (conv == nullptr)
    {
        if (origin.fd >= 0)
        {
            sys_close(origin.fd);
        }
        link_ended(origin.session);
        return 0;
    }
    u32 id = table_add(runtime.conversations, conv);
    if (id == NB_NULL_HANDLE)
    {
        conversation_drop(conv);
        link_ended(origin.session);
        return 0;
    }
    conversation_set_id(conv, id);
    if (wire::conversation_counters *slot = counters_slot(id))
    {
        conversation_count(conv, slot);
    }
    owner->conversations++;
    return id;
}

// Gives back what an answer brings that nobody waits for any more.
void give_back(const wire::result &status, u32 session, int fd)
{
    if (fd >= 0)
    {
        sys_close(fd);
    }
    if (status.primary == wire::rc_ok)
    {
        link_ended(session);
    }
}

void allocate_done(request &self, const void *reply, int fd)
{
    auto *op = reinterpret_cast<operation *>(&self);
    const auto *answer = static_cast<const wire::allocated *>(reply);
    op->answered = true;
    if (op->record == nullptr)
    {
        if (answer != nullptr)
        {
            give_back(answer->status, answer->session, fd);
        }
        operation_release(op);
        return;
    }
    if (answer == nullptr)
    {
        operation_complete(op, wire::rc_allocation_error, wire::rc_allocation_failure_retry);
        return;
    }
    if (answer->status.primary != wire::rc_ok)
    {
        give_back(answer->status, answer->session, fd);
        operation_complete(op, answer->status.primary, answer->status.secondary);
        return;
    }
    VERB_ALLOCATE &verb = op->record->alloc;
    tp *owner = tp_find(op->tp_id); // there: an allocation is cancelled before its TP goes
    conversation_origin origin = {fd, true, verb.header.opext, verb.sync_level, answer->session, 0, {}};
    std::memcpy(origin.tp_id, op->tp_id, sizeof origin.tp_id);
    u32 id = conversation_begin(origin, owner);
    if (id == 0)
    {
        operation_complete(op, wire::rc_allocation_error, wire::rc_allocation_failure_retry);
        return;
    }
    verb.header.conv_id = id;
    operation_complete(op, wire::rc_ok, 0);
}

void accept_done(request &self, const void *reply, int fd)
{
    auto *op = reinterpret_cast<operation *>(&self);
    const auto *answer = static_cast<const wire::accepted *>(reply);
    op->answered = true;
    if (op->record == nullptr)
    {
        if (answer != nullptr)
        {
            give_back(answer->status, answer->session, fd);
        }
        operation_release(op);
        return;
    }
    if (answer == nullptr)
    {
        operation_complete(op, wire::rc_comm_subsystem_abended, 0);
        return;
    }
    if (answer->status.primary != wire::rc_ok)
    {
        give_back(answer->status, answer->session, fd);
        operation_complete(op, answer->status.primary, answer->status.secondary);
        return;
    }
    tp *owner = tp_make(answer->local_alias);
    u32 id = 0;
    if (owner == nullptr)
    {
        give_back(answer->status, answer->session, fd);
    }
    else
    {
        conversation_origin origin = {fd, false, answer->conv_type, answer->sync_level, answer->session, 0, {}};
        std::memcpy(origin.tp_id, owner->id, sizeof origin.tp_id);
        id = conversation_begin(origin, owner);
        if (id == 0)
        {
            tp_remove(owner);
        }
    }
    if (id == 0)
    {
        operation_complete(op, wire::rc_unexpected_system_error, 12); // no memory, or no descriptor
        return;
    }
    VERB_RECEIVE_ALLOCATE &verb = op->record->rcvallcp.rcv_alloc;
    std::memcpy(verb.tp_name, answer->tp_name, sizeof verb.tp_name);
    std::memcpy(verb.tp_id, owner->id, sizeof verb.tp_id);
    verb.conv_id = id;
    verb.sync_level = answer->sync_level;
    verb.conv_type = answer->conv_type;
    std::memcpy(verb.user_id, answer->user_id, sizeof verb.user_id);
    std::memcpy(verb.lu_alias, answer->local_alias, sizeof verb.lu_alias);
    std::memcpy(verb.mode_name, answer->mode, sizeof verb.mode_name);
    std::memcpy(verb.fqplu_name, answer->partner_fq_name, sizeof verb.fqplu_name);
    operation_complete(op, wire::rc_ok, 0);
}

// The request is on its way: the verb completes later, or now after a wait.
u16 operation_await(operation *op)
{
    if (op->routine != nullptr)
    {
        return NAP_IN_PROGRESS;
    }
    while (op->record != nullptr)
    {
        if (runtime_wait(op->waiter, broker.fd, POLLIN, -1) != 0)
        {
            link_ready();
        }
    }
    op->collected = true;
    operation_release(op);
    return 0;
}

// What of an allocation can be judged here. 0: all of it is good; else the secondary code of the parameter check.
u32 allocate_check(const VERB_ALLOCATE &verb)
{
    if (verb.header.opext > 1)
    {
        return wire::rc_bad_conv_type;
    }
    if (verb.sync_level > 1)
    {
        return wire::rc_bad_sync_level;
    }
    if (verb.security > 2 && verb.security != 5)
    {
        return wire::rc_bad_security;
    }
    return verb.return_control > 1 ? wire::rc_bad_return_control : 0;
}

} // namespace

u16 allocate_issue(VERB_RECORD *record, appc_completion *routine, u32 user_word)
{
    VERB_ALLOCATE &verb = record->alloc;
    tp *owner = tp_find(verb.header.tp_id);
    u32 wrong = owner == nullptr ? wire::rc_bad_tp_id : allocate_check(verb);
    if (wrong != 0)
    {
        runtime_set_rc(record, wire::rc_parameter_check, wrong);
        return 0;
    }
    wire::allocate message = {};
    std::memcpy(message.tp_id, owner->id, sizeof message.tp_id);
    std::memcpy(message.local_alias, owner->alias, sizeof message.local_alias);
    std::memcpy(message.partner_alias, verb.plu_alias, sizeof message.partner_alias);
    std::memcpy(message.partner_fq_name, verb.fqplu_name, sizeof message.partner_fq_name);
    message.conv_type = verb.header.opext;
    message.sync_level = verb.sync_level;
    message.return_control = verb.return_control;
    std::memcpy(message.mode, verb.mode_name, sizeof message.mode);
    std::memcpy(message.tp_name, verb.tp_name, sizeof message.tp_name);
    message.security = verb.security;
    std::memcpy(message.user_id, verb.user_id, sizeof message.user_id);
    std::memcpy(message.password, verb.password, sizeof message.password);
    operation *op = operation_make(record, routine, user_word);
    bool sent = false;
    if (op != nullptr)
    {
        op->r.done = allocate_done;
        std::memcpy(op->tp_id, owner->id, sizeof op->tp_id);
        sent = link_post(op->r, message.head, sizeof message, wire::message_kind::allocate,
                         wire::message_kind::allocated);
        if (!sent)
        {
            operation_free(op);
        }
    }
    std::memset(message.password, 0, sizeof message.password);
    asm volatile("" : : "r"(message.password) : "memory"); // the clearing is not left out
    if (!sent)
    {
        runtime_set_rc(record, wire::rc_allocation_error, wire::rc_allocation_failure_retry);
        return 0;
    }
    return operation_await(op);
}

u16 accept_issue(VERB_RECORD *record, appc_completion *routine, u32 user_word)
{
    VERB_RECEIVE_ALLOCATE &verb = record->rcvallcp.rcv_alloc;
    if (verb.tp_name_count == 0 || verb.tp_name_count > wire::max_accept_names || verb.tp_name_list == nullptr)
    {
        runtime_set_rc(record, wire::rc_parameter_check, wire::rc_bad_tp_name);
        return 0;
    }
    std::size_t names = verb.tp_name_count * wire::tp_name_size;
    auto *bytes = static_cast<u8 *>(sys_alloc(sizeof(wire::accept) + names));
    operation *op = bytes != nullptr ? operation_make(record, routine, user_word) : nullptr;
    bool sent = false;
    // An accept that could not take its conversation would cost the partner that conversation.
    if (op != nullptr && !request_reserve(op->r))
    {
        runtime_set_rc(record, wire::rc_unexpected_system_error, static_cast<u32>(errno));
        operation_free(op);
        sys_free(bytes);
        return 0;
    }
    if (op != nullptr)
    {
        auto *message = new (bytes) wire::accept{};
        message->count = verb.tp_name_count;
        std::memcpy(bytes + sizeof(wire::accept), verb.tp_name_list, names);
        op->r.done = accept_done;
        op->accepting = true;
        op->caller_handle = verb.conv_id;
        sent = link_post(op->r, message->head, sizeof(wire::accept) + names, wire::message_kind::accept,
                         wire::message_kind::accepted);
        if (!sent)
        {
            operation_free(op);
        }
    }
    sys_free(bytes);
    if (!sent)
    {
        set_rc_no_path(record);
        return 0;
    }
    return operation_await(op);
}

void operations_cancel_of(const u8 *tp_id)
{
    // A routine may issue verbs and change the list: look from the front again after each. A cancelled one has no
    // record any more and is passed over.
    for (operation *op = runtime.operations; op != nullptr;)
    {
        if (op->record != nullptr && !op->accepting && std::memcmp(op->tp_id, tp_id, sizeof op->tp_id) == 0)
        {
            operation_cancel(op);
            op = runtime.operations;
        }
        else
        {
            op = op->next;
        }
    }
}

void operations_forget()
{
    while (runtime.operations != nullptr)
    {
        operation_free(runtime.operations);
    }
}

namespace {

// The accept in progress that the library knows by this handle, or null.
operation *accept_of(u32 caller_handle)
{
    operation *op = runtime.operations;
    while (op != nullptr && (op->record == nullptr || !op->accepting || op->caller_handle != caller_handle))
    {
        op = op->next;
    }
    return op;
}

} // namespace

void cancel_conversation(VERB_HEADER *record)
{
    constexpr u8 none[8] = {};
    bool with_tp = std::memcmp(record->tp_id, none, sizeof none) != 0;
    u32 conv_id = record->conv_id;
    if (with_tp && conv_id != 0)
    {
        auto *conv = static_cast<conversation *>(table_find(runtime.conversations, conv_id));
        if (conv == nullptr || std::memcmp(conversation_tp_id(conv), record->tp_id, 8) != 0)
        {
            runtime_set_rc(record, wire::rc_parameter_check,
                           conv == nullptr ? wire::rc_bad_conv_id : wire::rc_bad_tp_id);
            return;
        }
        conversation_cancel(conv);
    }
    else if (with_tp)
    {
        operations_cancel_of(record->tp_id);
    }
    else if (conv_id != 0)
    {
        operation *op = accept_of(conv_id);
        if (op != nullptr)
        {
            operation_cancel(op);
        }
    }
    else
    {
        link_cancel_only(wire::message_kind::find_lu); // of an allocation that is still having its TP started
    }
    runtime_set_rc(record, wire::rc_ok, 0);
}

} // namespace client
