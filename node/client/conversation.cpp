// conversation.cpp - the life of a conversation at this end: made from a socket, given verbs, cancelled, failed, ended,
// forgotten. Called by the runtime under the process-wide lock; a blocking verb waits here, with the lock given up by
// runtime_wait().
#include "client/conversation_record.hpp"

#include "client/system.hpp"

#include <poll.h>
#include <string.h>

namespace client {

conversation *conversation_make(const conversation_origin &origin)
{
    conversation *conv = static_cast<conversation *>(sys_alloc(sizeof(conversation)));

    if (conv == nullptr)
    {
        return nullptr;
    }
    memset(conv, 0, sizeof *conv);
    lu62::engine_init(conv->engine, origin.conv_type != 0, origin.sync_level != 0, origin.allocating);
    conv->fd = origin.fd;
    conv->conv_id = origin.conv_id;
    conv->session = origin.session;
    memcpy(conv->tp_id, origin.tp_id, sizeof conv->tp_id);
    conv->attach_due = origin.allocating;
    conv->out_frame = no_frame;
    conv->looked = runtime_ticks();
    return conv;
}

void conversation_set_id(conversation *conv, u32 conv_id)
{
    conv->conv_id = conv_id;
}

void conversation_count(conversation *conv, wire::conversation_counters *slot)
{
    *slot = {};
    slot->state = static_cast<u8>(conv->engine.now);
    slot->allocating = conv->engine.allocating ? 1 : 0;
    slot->session = conv->session;
    conv->counters = slot;
}

u32 conversation_id(const conversation *conv)
{
    return conv->conv_id;
}

u32 conversation_session(const conversation *conv)
{
    return conv->session;
}

const u8 *conversation_tp_id(const conversation *conv)
{
    return conv->tp_id;
}

bool conversation_busy(const conversation *conv)
{
    return conv->record != nullptr;
}

bool conversation_verb(u16 opcode)
{
    switch (opcode)
    {
    case NAP_CONFIRM:
    case NAP_CONFIRMED:
    case NAP_DEALLOCATE:
    case NAP_FLUSH:
    case NAP_GET_STATE:
    case NAP_PREPARE_TO_RECEIVE:
    case NAP_RECEIVE_AND_WAIT:
    case NAP_RECEIVE_IMMEDIATE:
    case NAP_REQUEST_TO_SEND:
    case NAP_SEND_DATA:
    case NAP_SEND_ERROR:
    case NAP_TEST_RTS:
        return true;
    default:
        return false;
    }
}

// True when the verb can block in its own read: it waits for input alone, and nobody needs this thread for anything
// else.
static bool may_block(conversation *conv, short events)
{
    if (events != POLLIN || conv->at == phase::write || !runtime_may_block())
    {
        return false;
    }
    conv->socket_blocks = conv->socket_blocks || runtime_make_blocking(conv->fd);
    return conv->socket_blocks;
}

// Waits in the caller's thread until the verb at work is complete or the conversation has been stopped.
static void wait_blocked(conversation *conv, short events)
{
    runtime_waiter waiter{};

    while (events != 0 && conv->stop == 0)
    {
        conv->waiter = &waiter;
        if (may_block(conv, events))
        {
            conv->block = &waiter;
            events = verb_advance(conv, POLLIN);
            conv->block = nullptr;
            conv->waiter = nullptr;
            continue;
        }
        const short ready = runtime_wait(waiter, conv->fd, events, -1);
        conv->waiter = nullptr;
        if (ready != 0 && conv->stop == 0)
        {
            events = verb_advance(conv, ready);
        }
    }
}

// Has the descriptor watched for the verb at work. False: that cannot be done, and the conversation cannot go on.
static bool wait_pending(conversation *conv, short events)
{
    conv->watched = true;
    if (runtime_watch(conv->conv_id, conv->fd, events))
    {
        return true;
    }
    conv->stop = wire::rc_conv_failure_no_retry;
    return false;
}

u16 conversation_issue(conversation *conv, VERB_RECORD *record, appc_completion *routine, u32 user_word)
{
    if (conv->record != nullptr)
    {
        runtime_set_rc(record, wire::rc_tp_busy, 0);
        return 0;
    }
    if (record->header.opcode == NAP_SEND_DATA && verb_quick_send(conv, record))
    {
        return 0;
    }
    conv->record = record;
    conv->blocking = routine == nullptr;
    const short events = conv->stop != 0 ? short{0} : verb_begin(conv);
    if (events != 0 && conv->stop == 0)
    {
        if (routine == nullptr)
        {
            wait_blocked(conv, events);
        }
        else if (wait_pending(conv, events))
        {
            conv->routine = routine;
            conv->user_word = user_word;
            return NAP_IN_PROGRESS;
        }
    }
    verb_complete(conv);
    return 0;
}

void conversation_ready(conversation *conv)
{
    // A blocked thread looks for itself; a verb that is complete already is a late report.
    if (conv->record == nullptr || conv->routine == nullptr)
    {
        return;
    }
    const short events = verb_advance(conv, POLLIN | POLLOUT);
    if (events != 0 && conv->stop == 0 && wait_pending(conv, events))
    {
        return;
    }
    verb_complete(conv);
}

void conversation_over(conversation *conv)
{
    if (conv->counters != nullptr)
    {
        conv->counters->session = 0;
    }
    runtime_conversation_over(conv);
    conversation_close(conv);
    sys_free(conv);
}

// The verb at work completes with this code, and the conversation is over.
static void stop(conversation *conv, u32 primary)
{
    if (conv->record == nullptr)
    {
        conversation_over(conv);
        return;
    }
    conv->stop = primary;
    if (conv->routine != nullptr)
    {
        verb_complete(conv);
    }
    else if (conv->waiter != nullptr)
    {
        runtime_kick(*conv->waiter);
    }
}

void conversation_cancel(conversation *conv)
{
    stop(conv, wire::rc_cancelled);
}

void conversation_fail(conversation *conv)
{
    if (conv->record == nullptr)
    {
        conv->stop = wire::rc_conv_failure_retry;
        return;
    }
    stop(conv, wire::rc_conv_failure_retry);
}

void conversation_abend(conversation *conv)
{
    // Not into the middle of a frame: a verb that is writing is cut off, and the partner sees the conversation fail.
    if (conv->at != phase::write)
    {
        conv->plan = lu62::plan_deallocate(conv->engine, 2);
        if (conv->plan.refused.primary == wire::rc_ok)
        {
            job_make(conv, false, nullptr, 0, nullptr, 0);
            job_write(conv);
        }
    }
    stop(conv, wire::rc_dealloc_abend_program);
}

void conversation_drop(conversation *conv)
{
    conversation_close(conv);
    sys_free(conv);
}

} // namespace client
