// verbs.cpp - what each verb needs: its place in the state table, the rules that the table does not show (record
// boundaries, sync level, type bytes), and what it puts on the wire. Nothing here reads input.
#include "lu62/engine.hpp"

namespace lu62 {

namespace {

// Secondary codes of a state check in the middle of a logical record.
constexpr std::uint32_t confirm_not_at_boundary = 0x33;
constexpr std::uint32_t deallocate_not_at_boundary = 0x55;
constexpr std::uint32_t prepare_not_at_boundary = 0xA2;
constexpr std::uint32_t receive_not_at_boundary = 0xB2;
constexpr std::uint32_t send_not_at_boundary = 0xF6;

// Secondary codes of a parameter check.
constexpr std::uint32_t bad_prepare_type = 0xA1;
constexpr std::uint32_t bad_send_type = 0xF4;
constexpr std::uint32_t bad_error_type = 0x103;

plan refuse(std::uint32_t primary, std::uint32_t secondary)
{
    plan p{};
    p.refused = {primary, secondary};
    return p;
}

// The plan of an allowed verb of this row, or the state check of the table.
plan from_table(const engine &e, input_row row)
{
    if (transition(e.now, row).kind != cell_kind::allowed)
    {
        return refuse(wire::rc_state_check, state_check_code(row));
    }
    plan p{};
    p.row = row;
    return p;
}

bool mid_record(const engine &e)
{
    return !e.mapped && !at_boundary(e.out);
}

void ask_confirm(plan &p, std::uint8_t flags)
{
    p.flush = true;
    p.flags = static_cast<std::uint8_t>(flags | wire::flag_confirm);
    p.reply = true;
}

// Gives the turn, with confirmation when `confirm` says so.
void give_turn(plan &p, bool confirm)
{
    p.flush = true;
    p.flags = wire::flag_turn;
    if (confirm)
    {
        ask_confirm(p, wire::flag_turn);
    }
}

void deallocate_normally(plan &p, bool confirm)
{
    p.flush = true;
    p.flags = wire::flag_end;
    if (confirm)
    {
        ask_confirm(p, wire::flag_end);
    }
}

void deallocate_abnormally(plan &p, std::uint32_t sense)
{
    p.flush = true;
    p.abend = true;
    p.error_flags = wire::flag_end;
    p.sense = sense;
}

struct send_rule
{
    input_row row;
    bool boundary; // must end at a record boundary
};

// By send type byte, for sync level none; the rows of types 4 and 6 with confirmation are beside them in
// plan_send_data.
constexpr send_rule send_rules[] = {
    {input_row::send_data, false},
    {input_row::flush, false},
    {input_row::confirm, true},
    {input_row::prepare_to_receive_flush, true},
    {input_row::prepare_to_receive_flush, true},
    {input_row::deallocate_flush, true},
    {input_row::deallocate_flush, true},
    {input_row::deallocate_abend, false},
};

} // namespace

void engine_init(engine &e, bool mapped, bool sync_confirm, bool allocating)
{
    e = engine{};
    e.mapped = mapped;
    e.sync_confirm = sync_confirm;
    e.allocating = allocating;
    e.now = allocating ? state::send : state::receive;
}

plan plan_send_data(engine &e, std::uint8_t type, const std::uint8_t *bytes, std::uint32_t count)
{
    if (type >= sizeof(send_rules) / sizeof(send_rules[0]))
    {
        return refuse(wire::rc_parameter_check, bad_send_type);
    }
    plan p = from_table(e, input_row::send_data);
    if (p.refused.primary != wire::rc_ok)
    {
        return p;
    }
    if (type == 2 && !e.sync_confirm)
    {
        return refuse(wire::rc_parameter_check, wire::rc_confirm_on_sync_level_none);
    }
    if (!e.mapped)
    {
        record_position after = e.out;
        if (!walk(after, bytes, count))
        {
            return refuse(wire::rc_parameter_check, wire::rc_bad_ll);
        }
        if (send_rules[type].boundary && !at_boundary(after))
        {
            return refuse(wire::rc_state_check, send_not_at_boundary);
        }
        e.out = after;
    }
    e.now = state::send;
    p.row = send_rules[type].row;
    switch (type)
    {
    case 1:
        p.flush = true;
        p.look = true;
        break;
    case 2:
        ask_confirm(p, 0);
        break;
    case 3:
        give_turn(p, false);
        break;
    case 4:
        give_turn(p, e.sync_confirm);
        break;
    case 5:
        deallocate_normally(p, false);
        break;
    case 6:
        deallocate_normally(p, e.sync_confirm);
        break;
    case 7:
        deallocate_abnormally(p, wire::sense_abend_program);
        break;
    default:
        break;
    }
    return p;
}

plan plan_flush(engine &e)
{
    plan p = from_table(e, input_row::flush);
    p.flush = true;
    p.look = true;
    return p;
}

plan plan_confirm(engine &e)
{
    plan p = from_table(e, input_row::confirm);
    if (p.refused.primary != wire::rc_ok)
    {
        return p;
    }
    if (!e.sync_confirm)
    {
        return refuse(wire::rc_parameter_check, wire::rc_confirm_on_sync_level_none);
    }
    if (mid_record(e))
    {
        return refuse(wire::rc_state_check, confirm_not_at_boundary);
    }
    ask_confirm(p, 0);
    return p;
}

plan plan_confirmed(engine &e)
{
    return from_table(e, input_row::confirmed);
}

plan plan_prepare_to_receive(engine &e, std::uint8_t type)
{
    if (type > 1)
    {
        return refuse(wire::rc_parameter_check, bad_prepare_type);
    }
    const bool confirm = type == 0 && e.sync_confirm;
    plan p = from_table(e, confirm ? input_row::prepare_to_receive_confirm : input_row::prepare_to_receive_flush);
    if (p.refused.primary != wire::rc_ok)
    {
        return p;
    }
    if (mid_record(e))
    {
        return refuse(wire::rc_state_check, prepare_not_at_boundary);
    }
    give_turn(p, confirm);
    return p;
}

plan plan_deallocate(engine &e, std::uint8_t type)
{
    static constexpr std::uint32_t senses[] = {wire::sense_abend_program, wire::sense_abend_service,
                                               wire::sense_abend_timer, wire::sense_abend_program};
    if (type > 5)
    {
        return refuse(wire::rc_parameter_check, wire::rc_bad_deallocate_type);
    }
    const bool confirm = type == 0 && e.sync_confirm;
    const input_row row = type >= 2 ? input_row::deallocate_abend
                          : confirm ? input_row::deallocate_confirm
                                    : input_row::deallocate_flush;
    plan p = from_table(e, row);
    if (p.refused.primary != wire::rc_ok)
    {
        return p;
    }
    if (type >= 2)
    {
        deallocate_abnormally(p, senses[type - 2]);
        return p;
    }
    if (mid_record(e))
    {
        return refuse(wire::rc_state_check, deallocate_not_at_boundary);
    }
    deallocate_normally(p, confirm);
    return p;
}

plan plan_send_error(engine &e, std::uint8_t type, std::uint8_t direction)
{
    if (type > 1)
    {
        return refuse(wire::rc_parameter_check, bad_error_type);
    }
    plan p = from_table(e, input_row::send_error);
    if (p.refused.primary != wire::rc_ok)
    {
        return p;
    }
    p.flush = true;
    p.look = true;
    p.error = true;
    // A program with the turn reports an error of its own sending, but in send pending state the error may be in the
    // data that came with the turn; the direction tells.
    const bool sending = e.now == state::send || (e.now == state::send_pending && direction == 1);
    const bool truncates = sending && mid_record(e);
    p.error_flags = !sending ? wire::flag_purging : truncates ? wire::flag_truncated : std::uint8_t{0};
    if (type == 0)
    {
        p.sense = truncates ? wire::sense_program_error_trunc : wire::sense_program_error;
    }
    else
    {
        p.sense = truncates ? wire::sense_service_error_trunc : wire::sense_service_error;
    }
    return p;
}

plan plan_receive(engine &e, bool immediate)
{
    plan p = from_table(e, immediate ? input_row::receive_immediate : input_row::receive_and_wait);
    if (p.refused.primary == wire::rc_ok && e.now != state::receive)
    {
        if (mid_record(e))
        {
            return refuse(wire::rc_state_check, receive_not_at_boundary);
        }
        give_turn(p, false);
    }
    return p;
}

plan plan_request_to_send(engine &e)
{
    return from_table(e, input_row::request_to_send);
}

outcome check_test_rts(const engine &e)
{
    return from_table(e, input_row::test_rts).refused;
}

void finish(engine &e, const plan &p)
{
    e.now = transition(e.now, p.row).next;
    if (p.reply)
    {
        e.reply_due = false;
        e.held = head::none;
    }
    if (p.error)
    {
        e.out = {}; // a record that was cut off is over
    }
}

void reply_expected(engine &e)
{
    e.reply_due = true;
}

void purge_begin(engine &e)
{
    // An error of the partner may have been read already and not told. What comes of the two must not depend on that:
    // one that would be void had it come now is void, and one that wins is left for look() to tell.
    if (e.held == head::news && e.news_row != input_row::end_came)
    {
        if (e.news_row == input_row::error_purging_came && !e.allocating)
        {
            return;
        }
        e.held = head::none;
        e.purged_owed = false;
    }
    e.purging++;
    e.in = {};
    e.in_record = false;
}

bool take_rts(engine &e)
{
    const bool rts = e.rts;
    e.rts = false;
    return rts;
}

} // namespace lu62
