// input.cpp - what the bytes from the partner mean: frames, checked against what the partner may send at this moment,
// become data, status, answers and news for the program.
#include "lu62/engine.hpp"

#include <string.h>

namespace lu62 {

namespace {

constexpr std::uint32_t header_size = sizeof(wire::frame_header);

void advance(input &in, std::uint32_t count)
{
    in.at += count;
    in.left -= count;
}

head hold(engine &e, input_row row, std::uint32_t primary, std::uint32_t secondary)
{
    e.held = head::news;
    e.news_row = row;
    e.news_outcome = {primary, secondary};
    return head::news;
}

// The partner has broken the protocol.
head violation(engine &e)
{
    return hold(e, input_row::end_came, wire::rc_conv_failure_no_retry, 0);
}

// More bytes are needed; when there can be none the conversation has failed.
head starved(engine &e, const input &in)
{
    if (!in.ended)
    {
        return head::none;
    }
    return hold(e, input_row::end_came, wire::rc_conv_failure_retry, 0);
}

// ---- DATA --------------------------------------------------------------------------------------------------------

// A DATA header that may exist; may it come now?
bool data_allowed(const engine &e, const wire::frame_header &header)
{
    const bool status = (header.flags & (wire::flag_turn | wire::flag_confirm | wire::flag_end)) != 0;
    const bool ends_record = (header.flags & wire::flag_record_end) != 0;

    if (e.purging == 0 && e.now != state::receive)
    {
        return false;
    }
    if ((header.flags & wire::flag_confirm) != 0 && !e.sync_confirm)
    {
        return false;
    }
    if (!e.mapped)
    {
        return !ends_record;
    }
    // A turn or an end in the middle of a record cannot be; what is void need not be followed record by record.
    return e.purging != 0 || ends_record || !status || (header.length == 0 && !e.in_record);
}

// The DATA frame being read, while our Send Error makes it void. True: it is behind us, or the conversation ended.
bool discard_frame(engine &e, input &in)
{
    const std::uint32_t step = e.frame_left < in.left ? e.frame_left : in.left;

    advance(in, step);
    e.frame_left -= step;
    if (e.frame_left != 0)
    {
        return false;
    }
    e.in_frame = false;
    // An end is an end; only a deallocation that waits for our answer gets the error as that answer.
    if ((e.frame_flags & wire::flag_end) != 0 && (e.frame_flags & wire::flag_confirm) == 0)
    {
        hold(e, input_row::end_came, wire::rc_dealloc_normal, 0);
    }
    return true;
}

head look_in_frame(engine &e)
{
    if (e.frame_left != 0 || (e.frame_flags & wire::flag_record_end) != 0)
    {
        return head::data;
    }
    if ((e.frame_flags & (wire::flag_turn | wire::flag_confirm | wire::flag_end)) == 0)
    {
        e.in_frame = false;
        return head::none;
    }
    if (!e.mapped && !at_boundary(e.in))
    {
        return violation(e);
    }
    if ((e.frame_flags & wire::flag_confirm) == 0 && (e.frame_flags & wire::flag_end) != 0)
    {
        return hold(e, input_row::end_came, wire::rc_dealloc_normal, 0);
    }
    return head::status;
}

// ---- ERROR -------------------------------------------------------------------------------------------------------

head end_by_error(engine &e, std::uint32_t sense)
{
    switch (sense)
    {
    case wire::sense_abend_program:
        return hold(e, input_row::end_came, e.mapped ? wire::rc_dealloc_abend : wire::rc_dealloc_abend_program, 0);
    case wire::sense_abend_service:
        return hold(e, input_row::end_came, wire::rc_dealloc_abend_service, 0);
    case wire::sense_abend_timer:
        return hold(e, input_row::end_came, wire::rc_dealloc_abend_timer, 0);
    default:
        break;
    }
    // An attach is refused to the end that sent it, with sense data of these kinds.
    const std::uint32_t kind = sense >> 16;
    if (e.allocating && (kind == 0x1008 || kind == 0x080F || kind == 0x084B || kind == 0x084C))
    {
        return hold(e, input_row::end_came, wire::rc_allocation_error, sense);
    }
    return violation(e);
}

// The number of a Send Error: three for a program's and three for a service's.
std::uint32_t error_code(bool service, std::uint8_t flags)
{
    if ((flags & wire::flag_purging) != 0)
    {
        return service ? wire::rc_service_error_purging : wire::rc_program_error_purging;
    }
    if ((flags & wire::flag_truncated) != 0)
    {
        return service ? wire::rc_service_error_trunc : wire::rc_program_error_trunc;
    }
    return service ? wire::rc_service_error_no_trunc : wire::rc_program_error_no_trunc;
}

head program_error(engine &e, std::uint8_t flags, std::uint32_t sense)
{
    const bool purging = (flags & wire::flag_purging) != 0;

    if ((sense & 0xFFFF0000u) != wire::sense_program_error)
    {
        return violation(e);
    }
    if (e.purging != 0)
    {
        // Both ends have discarded what the other sent, each for an error of its own. The end that allocated the
        // conversation goes on; the other one obeys, and the partner gets the PURGED that it waits for.
        if (!purging || e.allocating)
        {
            return head::none;
        }
        e.purging = 0;
    }
    const input_row row = purging ? input_row::error_purging_came : input_row::error_came;
    if (transition(e.now, row).kind != cell_kind::allowed)
    {
        return violation(e);
    }
    // A sender that has cut off a record says so.
    if (!purging && !e.mapped && !at_boundary(e.in) && (flags & wire::flag_truncated) == 0)
    {
        return violation(e);
    }
    e.purged_owed = purging;
    return hold(e, row, error_code((sense & 0x0100u) != 0, flags), 0);
}

// An ERROR frame whose header is at the head of the input; it is taken as a whole.
head read_error(engine &e, input &in, const wire::frame_header &header)
{
    if (in.left < header_size + header.length)
    {
        return starved(e, in);
    }
    const std::uint8_t *payload = in.at + header_size;
    const std::uint32_t sense = static_cast<std::uint32_t>(payload[0]) | static_cast<std::uint32_t>(payload[1]) << 8 |
                                static_cast<std::uint32_t>(payload[2]) << 16 |
                                static_cast<std::uint32_t>(payload[3]) << 24;
    advance(in, header_size + header.length);
    const head found = (header.flags & wire::flag_end) != 0 ? end_by_error(e, sense)
                                                            : program_error(e, header.flags, sense);
    if (found == head::news) // not one that is void
    {
        e.log_data = payload + sizeof(wire::error_head);
        e.log_length = header.length - static_cast<std::uint32_t>(sizeof(wire::error_head));
    }
    return found;
}

// ---- frames ------------------------------------------------------------------------------------------------------

// Takes the frame at the head of the input as far as the engine needs no program for it. none: it was taken, or is not
// there yet; `more` tells which.
head read_frame(engine &e, input &in, bool &more)
{
    wire::frame_header header;

    more = false;
    if (in.left < header_size)
    {
        more = true;
        return starved(e, in);
    }
    if (!wire::frame_check(in.at, header))
    {
        return violation(e);
    }
    switch (static_cast<wire::frame_kind>(header.kind))
    {
    case wire::frame_kind::data:
        if (!data_allowed(e, header))
        {
            return violation(e);
        }
        advance(in, header_size);
        e.in_frame = true;
        e.frame_left = header.length;
        e.frame_flags = header.flags;
        return head::none;
    case wire::frame_kind::reply:
        if (!e.reply_due)
        {
            return violation(e);
        }
        advance(in, header_size);
        e.held = head::reply;
        return head::reply;
    case wire::frame_kind::error:
        more = in.left < header_size + header.length;
        return read_error(e, in, header);
    case wire::frame_kind::request_to_send:
        advance(in, header_size);
        e.rts = true;
        return head::none;
    case wire::frame_kind::purged:
        if (e.purging == 0)
        {
            return violation(e);
        }
        advance(in, header_size);
        e.purging--;
        return head::none;
    case wire::frame_kind::attach:
        break;
    }
    return violation(e);
}

// ---- receiving ---------------------------------------------------------------------------------------------------

// Notes that `count` bytes of the frame have gone to the program. False: a wrong LL among them.
bool account(engine &e, receiving &r, const std::uint8_t *bytes, std::uint32_t count)
{
    r.got += count;
    r.touched = true;
    e.frame_left -= count;
    e.in_record = e.mapped;
    return e.mapped || walk(e.in, bytes, count);
}

bool complete(const engine &e, const receiving &r)
{
    if (!r.touched)
    {
        return false;
    }
    if (e.mapped)
    {
        return e.frame_left == 0 && (e.frame_flags & wire::flag_record_end) != 0;
    }
    return r.fill_ll ? r.got != 0 && at_boundary(e.in) : r.got == r.max;
}

std::uint16_t status_of(std::uint8_t flags)
{
    if ((flags & wire::flag_confirm) == 0)
    {
        return 1;
    }
    return (flags & wire::flag_turn) != 0 ? 3 : (flags & wire::flag_end) != 0 ? 4 : 2;
}

// Tells the status of the frame, together with data or alone.
void tell_status(engine &e, receiving &r)
{
    static constexpr input_row rows[] = {input_row::turn_came, input_row::confirm_came, input_row::confirm_send_came,
                                         input_row::confirm_deallocate_came};
    const std::uint16_t status = status_of(e.frame_flags);

    r.what = static_cast<std::uint16_t>(r.what | status);
    const input_row row = status == 1 && r.touched ? input_row::data_and_turn_came : rows[status - 1];
    e.now = transition(e.now, row).next;
    e.in_frame = false;
}

// The receive is complete with data; the status of the same frame comes with it when the verb wants it.
bool done_with_data(engine &e, receiving &r, bool incomplete)
{
    r.what = incomplete ? 0x0400 : (e.mapped || r.fill_ll) ? 0x0200 : 0x0100;
    if (!incomplete && e.mapped)
    {
        e.frame_flags = static_cast<std::uint8_t>(e.frame_flags & ~wire::flag_record_end);
        e.in_record = false;
    }
    if (!incomplete && r.status_with_data && e.in_frame && e.frame_left == 0 && look_in_frame(e) == head::status)
    {
        tell_status(e, r);
    }
    return true;
}

bool done_with_news(engine &e, receiving &r)
{
    if (r.touched)
    {
        return done_with_data(e, r, e.mapped || r.fill_ll);
    }
    r.result = take_news(e);
    return true;
}

// Moves data from the input to the program's buffer. False: there is none to move yet.
bool copy_data(engine &e, receiving &r, input &in)
{
    const std::uint32_t room = r.max - r.got;
    std::uint32_t count = e.frame_left < in.left ? e.frame_left : in.left;

    if (count == 0 && e.frame_left != 0)
    {
        return false;
    }
    if (e.mapped && r.immediate && count < e.frame_left && count < room)
    {
        return false; // not all of the record is here, and the program is not to see part of it
    }
    if (!e.mapped && r.fill_ll)
    {
        count = record_rest(e.in, in.at, count);
    }
    count = count < room ? count : room;
    if (count != 0)
    {
        memcpy(r.buffer + r.got, in.at, count);
    }
    if (!account(e, r, in.at, count))
    {
        violation(e);
    }
    advance(in, count);
    return true;
}

} // namespace

head look(engine &e, input &in)
{
    for (;;)
    {
        if (e.held != head::none)
        {
            return e.held;
        }
        if (e.in_frame && e.purging != 0)
        {
            if (!discard_frame(e, in))
            {
                return starved(e, in);
            }
            continue;
        }
        if (e.in_frame)
        {
            const head found = look_in_frame(e);
            if (found != head::none)
            {
                return found;
            }
            continue;
        }
        bool more = false;
        const head found = read_frame(e, in, more);
        if (found != head::none || more)
        {
            return found;
        }
    }
}

outcome take_news(engine &e)
{
    const outcome told = e.news_outcome;

    e.held = head::none;
    e.reply_due = false;
    e.in = {};
    e.in_record = false;
    if (e.news_row == input_row::end_came)
    {
        e.now = state::reset;
        return told;
    }
    e.now = transition(e.now, e.news_row).next;
    if (e.news_row == input_row::error_purging_came)
    {
        e.out = {}; // what we were sending is void
    }
    return told;
}

bool receive_step(engine &e, receiving &r, input &in)
{
    for (;;)
    {
        if (e.held == head::none && complete(e, r))
        {
            return done_with_data(e, r, false);
        }
        if (e.held == head::none && r.touched && r.got == r.max)
        {
            return done_with_data(e, r, true);
        }
        switch (look(e, in))
        {
        case head::none:
            return false;
        case head::data:
            if (copy_data(e, r, in))
            {
                break;
            }
            if (starved(e, in) == head::none)
            {
                return false;
            }
            break;
        case head::status:
            if (r.touched)
            {
                return done_with_data(e, r, false);
            }
            tell_status(e, r);
            return true;
        case head::reply: // comes only while a CONFIRM waits for it, and then no receive is at work
        case head::news:
            return done_with_news(e, r);
        }
    }
}

void receive_now(engine &e, receiving &r)
{
    if (r.touched)
    {
        done_with_data(e, r, e.mapped || r.fill_ll);
        return;
    }
    r.result = {wire::rc_unsuccessful, 0};
}

std::uint32_t direct_room(const engine &e, const receiving &r)
{
    if (!e.in_frame || e.purging != 0 || r.immediate || e.held != head::none)
    {
        return 0;
    }
    const std::uint32_t room = r.max - r.got;
    std::uint32_t count = e.frame_left < room ? e.frame_left : room;
    if (!e.mapped && r.fill_ll)
    {
        count = count < e.in.left ? count : e.in.left;
    }
    return count;
}

void direct_done(engine &e, receiving &r, std::uint32_t count)
{
    if (!account(e, r, r.buffer + r.got, count))
    {
        violation(e);
    }
}

} // namespace lu62
