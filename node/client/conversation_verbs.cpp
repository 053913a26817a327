// conversation_verbs.cpp - a conversation verb from its record to its completion: the engine's plan, the bytes that
// have to travel, the partner's answer. A verb that cannot go on says what it waits for; conversation.cpp waits or has
// the descriptor watched, and comes back to verb_advance(). Under the process-wide lock throughout.
#include "client/conversation_record.hpp"

#include <poll.h>

namespace client {

namespace {

// Secondary codes of a parameter check for log data longer than an ERROR carries.
constexpr u32 bad_deallocate_log_data = 0x57;
constexpr u32 bad_send_error_log_data = 0x102;

constexpr u32 longest_record = 32767; // mapped

// What can lie in the socket is read in a few goes; a partner that writes without end does not hold the reader up, nor,
// with what is of no use to the program, the other threads.
constexpr int most_reads = 16;

// The conversation cannot go on for want of memory, and bytes of it are lost.
void fail_no_memory(conversation *conv)
{
    conv->stop = wire::rc_conv_failure_no_retry;
}

short done(conversation *conv, u32 primary, u32 secondary)
{
    conv->result = {primary, secondary};
    return 0;
}

// The partner stopped sending void data to us when it saw our error; now it is told that we have seen its own.
void answer_error(conversation *conv)
{
    if (conv->engine.purged_owed)
    {
        conv->engine.purged_owed = false;
        if (!frame_write(conv, wire::frame_kind::purged))
        {
            fail_no_memory(conv);
        }
    }
}

// The verb ends with the news that the engine holds.
short tell_news(conversation *conv)
{
    gathered_drop(conv);
    conv->result = lu62::take_news(conv->engine);
    answer_error(conv);
    return 0;
}

// Reads what has come. True: an error or the end is at the head of it.
bool news_waiting(conversation *conv)
{
    for (int i = 0; i < most_reads; i++)
    {
        const lu62::head found = input_look(conv);
        if (found != lu62::head::none)
        {
            return found == lu62::head::news;
        }
        if (conv->attach_due || input_read(conv, nullptr) != arrival::bytes)
        {
            return false;
        }
    }
    runtime_rest();
    return false;
}

// The input may bring something else than at the last look.
bool look_is_due(const conversation *conv)
{
    return runtime_ticks() - conv->looked >= look_interval;
}

short write_job(conversation *conv)
{
    conv->at = phase::write;
    conv->end_only = conv->plan.abend || (conv->plan.flags & (wire::flag_end | wire::flag_confirm)) == wire::flag_end;
    if (conv->plan.reply)
    {
        lu62::reply_expected(conv->engine);
    }
    return verb_advance(conv, 0);
}

// ---- the verbs ---------------------------------------------------------------------------------------------------

short begin_send_data(conversation *conv)
{
    const VERB_SEND_DATA &verb = conv->record->send;
    lu62::engine &engine = conv->engine;

    if (engine.mapped && verb.length > longest_record)
    {
        return done(conv, wire::rc_parameter_check, wire::rc_bad_length);
    }
    conv->plan = lu62::plan_send_data(engine, verb.type, verb.buffer, verb.length);
    if (conv->plan.refused.primary != wire::rc_ok)
    {
        conv->result = conv->plan.refused;
        return 0;
    }
    const bool first = !conv->sending;
    bool look = conv->plan.look;

    conv->sending = true;
    if (!conv->plan.flush)
    {
        // While a program only gathers, it learns of a request to send when a new buffer is begun, but not right
        // after a receive, which has just read the input; and when it has not looked for a while.
        const bool small = verb.length < long_send;
        if (small && ((conv->out == nullptr && !first) || look_is_due(conv)) && news_waiting(conv))
        {
            return tell_news(conv);
        }
        if ((small || first) && gather(conv, verb.buffer, verb.length))
        {
            lu62::finish(engine, conv->plan);
            return 0;
        }
        conv->unlooked += verb.length;
        look = conv->unlooked >= look_size;
    }
    if (look)
    {
        conv->unlooked = 0;
        if (news_waiting(conv))
        {
            return tell_news(conv);
        }
    }
    job_make(conv, true, verb.buffer, verb.length, nullptr, 0);
    return write_job(conv);
}

// FLUSH, CONFIRM, PREPARE_TO_RECEIVE: the plan, and no data of its own.
short begin_planned(conversation *conv, const lu62::plan &plan)
{
    if (plan.refused.primary != wire::rc_ok)
    {
        conv->result = plan.refused;
        return 0;
    }
    conv->plan = plan;
    if (plan.look && news_waiting(conv))
    {
        return tell_news(conv);
    }
    job_make(conv, false, nullptr, 0, nullptr, 0);
    return write_job(conv);
}

// CONFIRMED and REQUEST_TO_SEND: one frame.
short begin_frame(conversation *conv, const lu62::plan &plan, wire::frame_kind kind)
{
    if (plan.refused.primary != wire::rc_ok)
    {
        conv->result = plan.refused;
        return 0;
    }
    conv->plan = plan;
    job_make_frame(conv, kind);
    return write_job(conv);
}

short begin_deallocate(conversation *conv)
{
    const VERB_DEALLOCATE &verb = conv->record->dealloc;
    const bool abend = verb.dealloc_type >= 2;
    const u32 log_length = abend && verb.header.opext == 0 ? verb.log_length : 0;

    if (log_length > wire::max_log_data)
    {
        return done(conv, wire::rc_parameter_check, bad_deallocate_log_data);
    }
    conv->plan = lu62::plan_deallocate(conv->engine, verb.dealloc_type);
    if (conv->plan.refused.primary != wire::rc_ok)
    {
        conv->result = conv->plan.refused;
        return 0;
    }
    job_make(conv, false, nullptr, 0, verb.log_data, log_length);
    return write_job(conv);
}

short begin_send_error(conversation *conv)
{
    const VERB_SEND_ERROR &verb = conv->record->send_error;
    const u32 log_length = verb.header.opext == 0 ? verb.log_length : 0;

    if (log_length > wire::max_log_data)
    {
        return done(conv, wire::rc_parameter_check, bad_send_error_log_data);
    }
    conv->plan = lu62::plan_send_error(conv->engine, verb.err_type, verb.err_dir);
    if (conv->plan.refused.primary != wire::rc_ok)
    {
        conv->result = conv->plan.refused;
        return 0;
    }
    if ((conv->plan.error_flags & wire::flag_purging) != 0)
    {
        lu62::purge_begin(conv->engine);
    }
    if (news_waiting(conv))
    {
        return tell_news(conv);
    }
    job_make(conv, false, nullptr, 0, verb.log_data, log_length);
    return write_job(conv);
}

short begin_receive(conversation *conv, bool immediate)
{
    const VERB_RECEIVE &verb = conv->record->receive;

    // In receive state both receives are allowed and nothing travels: no plan is needed.
    const bool planned = conv->engine.now != lu62::state::receive;
    if (planned)
    {
        conv->plan = lu62::plan_receive(conv->engine, immediate);
        if (conv->plan.refused.primary != wire::rc_ok)
        {
            conv->result = conv->plan.refused;
            return 0;
        }
    }
    conv->sending = false;
    conv->receiving = {};
    conv->receiving.buffer = verb.buffer;
    conv->receiving.max = verb.max_length;
    conv->receiving.fill_ll = verb.fill == 1;
    conv->receiving.status_with_data = verb.status_with_data == 1;
    conv->receiving.immediate = immediate;
    if (planned)
    {
        job_make(conv, false, nullptr, 0, nullptr, 0);
        return write_job(conv);
    }
    conv->at = phase::receive;
    return verb_advance(conv, 0);
}

short begin_test_rts(conversation *conv)
{
    conv->result = lu62::check_test_rts(conv->engine);
    if (conv->result.primary == wire::rc_ok)
    {
        news_waiting(conv); // news stays for the next verb that tells of it
        if (!lu62::take_rts(conv->engine))
        {
            conv->result = {wire::rc_unsuccessful, 0};
        }
    }
    return 0;
}

// ---- going on ----------------------------------------------------------------------------------------------------

// Whoever has the turn reads while it waits to write: the partner's error ends the verb, and what our own error has
// made void is cleared away, so that two ends that both write do not wait for each other. An end has no use for news.
bool reads_while_writing(const conversation *conv)
{
    const lu62::state now = conv->engine.now;

    return !conv->end_only && (now == lu62::state::send || now == lu62::state::send_pending);
}

// The partner has made void what the job was about to write.
short cut_short(conversation *conv)
{
    if (!job_abandon(conv))
    {
        fail_no_memory(conv);
    }
    return tell_news(conv);
}

// The job is written. True: the verb is complete.
bool written(conversation *conv)
{
    const u16 opcode = conv->record->header.opcode;

    conv->wait_first = conv->plan.reply || (conv->plan.flags & wire::flag_turn) != 0;
    if (conv->plan.reply)
    {
        conv->at = phase::answer;
        return false;
    }
    lu62::finish(conv->engine, conv->plan);
    if (opcode == NAP_RECEIVE_AND_WAIT)
    {
        conv->at = phase::receive;
        return false;
    }
    // A partner that does not read any more has said why, or is gone.
    if (conv->out_dead && conv->engine.now != lu62::state::reset && news_waiting(conv))
    {
        tell_news(conv);
    }
    return true;
}

// Reads for a verb that needs input. 0: there is some; POLLIN: wait for it. left: how often it may still be read. After
// that others have their turn; what has been read is taken then, so that waiting for the socket misses nothing.
short read_more(conversation *conv, lu62::receiving *receiving, int &left)
{
    if (left == 0)
    {
        runtime_rest();
        return POLLIN;
    }
    left--;
    if (conv->wait_first)
    {
        conv->wait_first = false;
        if (conv->blocking && !conv->in_ended && !conv->out_dead)
        {
            return POLLIN;
        }
    }
    switch (input_read(conv, receiving))
    {
    case arrival::bytes:
        return 0;
    case arrival::nothing:
        return POLLIN;
    case arrival::no_memory:
    case arrival::full:
        break;
    }
    fail_no_memory(conv);
    return 0;
}

short advance_answer(conversation *conv, bool &complete, int &reads_left)
{
    complete = true;
    switch (input_look(conv))
    {
    case lu62::head::reply:
        lu62::finish(conv->engine, conv->plan);
        return 0;
    case lu62::head::news:
        return tell_news(conv);
    case lu62::head::none:
    case lu62::head::data: // the engine has refused these two: the partner has no turn
    case lu62::head::status:
        break;
    }
    complete = false;
    return read_more(conv, nullptr, reads_left);
}

void receive_complete(conversation *conv)
{
    VERB_RECEIVE &verb = conv->record->receive;
    const lu62::receiving &receiving = conv->receiving;

    if (conv->counters != nullptr)
    {
        conv->counters->received += receiving.got;
    }
    conv->result = receiving.result;
    verb.what_received = receiving.what;
    verb.length = static_cast<u16>(receiving.got);
    if (receiving.touched)
    {
        conv->long_frames = receiving.got >= direct_least;
    }
    answer_error(conv);
}

short advance_receive(conversation *conv, bool &complete, int &reads_left)
{
    const bool clear = conv->carry == nullptr || carry_write(conv);

    complete = input_receive(conv, conv->receiving);
    if (!complete)
    {
        const short events = read_more(conv, &conv->receiving, reads_left);
        if (events == 0)
        {
            return 0;
        }
        if (!conv->receiving.immediate)
        {
            return clear ? events : static_cast<short>(events | POLLOUT);
        }
        lu62::receive_now(conv->engine, conv->receiving);
        complete = true;
    }
    receive_complete(conv);
    return 0;
}

// Stores the request-to-send indicator where the verb's record has one.
void store_rts(conversation *conv, VERB_RECORD *record)
{
    switch (record->header.opcode)
    {
    case NAP_SEND_DATA:
    case NAP_CONFIRM:
    case NAP_SEND_ERROR:
        record->confirm.rts_received = lu62::take_rts(conv->engine) ? 1 : 0;
        break;
    case NAP_RECEIVE_AND_WAIT:
    case NAP_RECEIVE_IMMEDIATE:
        record->receive.rts_received = lu62::take_rts(conv->engine) ? 1 : 0;
        break;
    default:
        break;
    }
}

// The counters after a verb; what a receive has got is counted already.
void count_verb(conversation *conv, const lu62::outcome &result)
{
    if (conv->counters == nullptr)
    {
        return;
    }
    if (conv->record->header.opcode == NAP_SEND_DATA && result.primary == wire::rc_ok)
    {
        conv->counters->sent += conv->record->send.length;
    }
    conv->counters->state = static_cast<u8>(conv->engine.now);
}

} // namespace

bool verb_quick_send(conversation *conv, VERB_RECORD *record)
{
    const VERB_SEND_DATA &verb = record->send;

    // The test for room is that of gather(), made first: once the engine has counted the bytes they have to go.
    if (verb.type != 0 || conv->stop != 0 || conv->out == nullptr || !conv->sending || verb.length >= long_send ||
        conv->out_used + 2 * frame_size + verb.length > gather_size || look_is_due(conv) ||
        !lu62::send_quickly(conv->engine, verb.buffer, verb.length))
    {
        return false;
    }
    gather(conv, verb.buffer, verb.length);
    if (conv->counters != nullptr)
    {
        conv->counters->sent += verb.length; // the state is what it was
    }
    record->send.rts_received = lu62::take_rts(conv->engine) ? 1 : 0;
    runtime_set_rc(record, wire::rc_ok, 0);
    return true;
}

short verb_begin(conversation *conv)
{
    VERB_RECORD *record = conv->record;
    lu62::engine &engine = conv->engine;

    conv->result = {wire::rc_ok, 0};
    switch (record->header.opcode)
    {
    case NAP_SEND_DATA:
        return begin_send_data(conv);
    case NAP_RECEIVE_AND_WAIT:
        return begin_receive(conv, false);
    case NAP_RECEIVE_IMMEDIATE:
        conv->wait_first = false;
        return begin_receive(conv, true);
    case NAP_FLUSH:
        return begin_planned(conv, lu62::plan_flush(engine));
    case NAP_CONFIRM:
        return begin_planned(conv, lu62::plan_confirm(engine));
    case NAP_PREPARE_TO_RECEIVE:
        return begin_planned(conv, lu62::plan_prepare_to_receive(engine, record->prepare.ptr_type));
    case NAP_CONFIRMED:
        return begin_frame(conv, lu62::plan_confirmed(engine), wire::frame_kind::reply);
    case NAP_REQUEST_TO_SEND:
        return begin_frame(conv, lu62::plan_request_to_send(engine), wire::frame_kind::request_to_send);
    case NAP_DEALLOCATE:
        return begin_deallocate(conv);
    case NAP_SEND_ERROR:
        return begin_send_error(conv);
    case NAP_TEST_RTS:
        return begin_test_rts(conv);
    case NAP_GET_STATE:
        record->get_state.conv_state = static_cast<u8>(engine.now);
        return 0;
    default:
        return done(conv, wire::rc_invalid_verb, 0);
    }
}

short verb_advance(conversation *conv, short ready)
{
    if (conv->at == phase::write && (ready & ~POLLOUT) != 0 && reads_while_writing(conv) && news_waiting(conv))
    {
        return cut_short(conv);
    }
    int reads_left = most_reads;
    while (conv->stop == 0)
    {
        bool complete = false;
        short events = 0;
        switch (conv->at)
        {
        case phase::write:
            if (!job_write(conv))
            {
                return reads_while_writing(conv) ? POLLIN | POLLOUT : POLLOUT;
            }
            complete = written(conv);
            break;
        case phase::answer:
            events = advance_answer(conv, complete, reads_left);
            break;
        case phase::receive:
            events = advance_receive(conv, complete, reads_left);
            break;
        case phase::none:
            complete = true;
            break;
        }
        if (complete || events != 0)
        {
            return events;
        }
    }
    return 0;
}

void verb_complete(conversation *conv)
{
    VERB_RECORD *record = conv->record;
    appc_completion *routine = conv->routine;
    const u32 user_word = conv->user_word;
    const lu62::outcome result = conv->stop != 0 ? lu62::outcome{conv->stop, 0} : conv->result;

    store_rts(conv, record);
    count_verb(conv, result);
    conv->record = nullptr;
    conv->routine = nullptr;
    conv->at = phase::none;
    if (conv->stop != 0 || conv->engine.now == lu62::state::reset)
    {
        conversation_over(conv);
    }
    runtime_complete(record, result.primary, result.secondary, routine, user_word);
}

} // namespace client
