// probe.hpp - one end of a conversation, with each verb checked against the state table as it returns: a refused one
// has changed nothing, an allowed one leads where the table says, news lead where they must, and nothing else happens.
#pragma once

#include "fuzz/target.hpp"
#include "lu62/pair.hpp"

#include <functional>

namespace fuzz {

using lu62::input_row;
using lu62::state;
using lu62_test::waiting;

// What an end does after it was told to.
struct step
{
    std::uint32_t primary;
    bool told_news; // an error or the end
};

class probe
{
public:
    lu62_test::end end;
    bool in_verb = false; // a verb waits for the partner's answer
    bool in_receive = false;
    std::string received; // data of the last receive; of one that waits: so far
    std::uint16_t what = 0;

    probe(bool mapped, bool confirm, bool allocating) : end(mapped, confirm, allocating) {}

    bool busy() const { return in_verb || in_receive; }
    state now() const { return end.e.now; }

    step send(const std::string &data, std::uint8_t type)
    {
        static constexpr input_row rows[] = {input_row::send_data,
                                             input_row::flush,
                                             input_row::confirm,
                                             input_row::prepare_to_receive_flush,
                                             input_row::prepare_to_receive_confirm,
                                             input_row::deallocate_flush,
                                             input_row::deallocate_confirm,
                                             input_row::deallocate_abend};
        // Where it leads is the affair of the verb that the type stands for, from send state.
        return verb(input_row::send_data, rows[type % 8], state::send,
                    [&] { return end.send_full(data, type).primary; });
    }
    step flush()
    {
        const step done = verb(input_row::flush, [&] { return end.flush(); });
        MUST(done.primary != wire::rc_ok || nothing_but_news());
        return done;
    }
    step confirm()
    {
        return verb(input_row::confirm, [&] { return end.confirm(); });
    }
    step confirmed()
    {
        return verb(input_row::confirmed, [&] { return end.confirmed(); });
    }
    step prepare(std::uint8_t type)
    {
        return verb(input_row::prepare_to_receive_flush, [&] { return end.prepare(type); });
    }
    step request_to_send()
    {
        return verb(input_row::request_to_send, [&] { return end.request_to_send(); });
    }
    step error(std::uint8_t type, std::uint8_t direction, const std::string &log)
    {
        const step done = verb(input_row::send_error, [&] { return end.error(type, direction, log); });
        MUST(done.primary != wire::rc_ok || lu62::at_boundary(end.e.out)); // what was cut off is over
        return done;
    }
    step deallocate(std::uint8_t type)
    {
        const input_row row = type >= 2 ? input_row::deallocate_abend : input_row::deallocate_flush;
        return verb(row, [&] { return end.deallocate(type); });
    }
    // A test for a request to send; what it finds.
    bool test_rts()
    {
        const state before = now();
        const bool allowed = lu62::check_test_rts(end.e).primary == wire::rc_ok;
        MUST(allowed == (lu62::transition(before, input_row::test_rts).kind == lu62::cell_kind::allowed));
        const bool found = allowed && end.rts();
        MUST(!allowed || now() == state::receive || nothing_but_news());
        MUST(now() == before); // news stays for the next verb
        return found;
    }

    // Takes up the verb that waits.
    step go_on()
    {
        MUST(in_verb);
        const state before = now();
        const std::uint32_t primary = end.go_on();
        if (primary == waiting)
        {
            MUST(now() == before && nothing_but_news());
            return {primary, false};
        }
        in_verb = false;
        if (primary == wire::rc_ok)
        {
            MUST(now() == lu62::transition(before, waiting_for_).next);
            return {primary, false};
        }
        news(primary, before);
        return {primary, true};
    }

    step receive(std::uint32_t max, bool ll, bool with_data, bool immediate)
    {
        const lu62::engine before = image();
        const input_row row = immediate ? input_row::receive_immediate : input_row::receive_and_wait;
        const lu62_test::received got = end.receive(max, ll, with_data, immediate);
        max_ = max;
        ll_ = ll;
        with_data_ = with_data;
        immediate_ = immediate;
        if (refusal(got.primary))
        {
            MUST(got.primary != wire::rc_state_check || before.now != state::receive);
            unchanged(before);
            return {got.primary, false};
        }
        MUST(lu62::transition(before.now, row).kind == lu62::cell_kind::allowed);
        return came(got);
    }
    step receive_more()
    {
        MUST(in_receive);
        return came(end.receive_more());
    }

private:
    using call = std::function<std::uint32_t()>;

    static bool refusal(std::uint32_t primary)
    {
        return primary == wire::rc_parameter_check || primary == wire::rc_state_check;
    }

    // A partner without the turn has neither data nor a status to send.
    bool nothing_but_news()
    {
        const lu62::head found = end.look();
        return found == lu62::head::none || found == lu62::head::news;
    }

    lu62::engine image() const
    {
        lu62::engine copy;
        std::memcpy(static_cast<void *>(&copy), &end.e, sizeof copy);
        return copy;
    }
    void unchanged(const lu62::engine &before) const { MUST(std::memcmp(&before, &end.e, sizeof before) == 0); }

    step verb(input_row row, const call &what_to_do) { return verb(row, row, now(), what_to_do); }

    // `row` decides whether the verb is allowed now, `leads` from `from` where it ends.
    step verb(input_row row, input_row leads, state from, const call &what_to_do)
    {
        MUST(!busy());
        const lu62::engine before = image();
        const bool allowed = lu62::transition(before.now, row).kind == lu62::cell_kind::allowed;
        const std::uint32_t primary = what_to_do();
        if (refusal(primary))
        {
            // What the table allows is refused in the middle of a logical record, or for a wrong type or level.
            MUST(!allowed || primary == wire::rc_parameter_check || !before.mapped);
            unchanged(before);
            return {primary, false};
        }
        MUST(allowed);
        if (primary == waiting)
        {
            MUST(end.e.sync_confirm && end.e.reply_due && now() == from);
            in_verb = true;
            waiting_for_ = leads;
            return {primary, false};
        }
        if (primary == wire::rc_ok)
        {
            MUST(now() == lu62::transition(from, leads).next);
            return {primary, false};
        }
        news(primary, from);
        return {primary, true};
    }

    // Errors leave the turn with the partner, everything else is the end.
    void news(std::uint32_t primary, state before) const
    {
        switch (primary)
        {
        case wire::rc_program_error_no_trunc:
        case wire::rc_program_error_trunc:
        case wire::rc_service_error_no_trunc:
        case wire::rc_service_error_trunc:
            MUST(before == state::receive && now() == state::receive);
            break;
        case wire::rc_program_error_purging:
        case wire::rc_service_error_purging:
            MUST(before == state::receive || before == state::send || before == state::send_pending);
            MUST(now() == state::receive);
            break;
        case wire::rc_allocation_error:
            MUST(end.e.allocating);
            MUST(now() == state::reset);
            break;
        case wire::rc_dealloc_abend:
        case wire::rc_dealloc_abend_program:
            MUST((primary == wire::rc_dealloc_abend) == end.e.mapped);
            MUST(now() == state::reset);
            break;
        case wire::rc_dealloc_abend_service:
        case wire::rc_dealloc_abend_timer:
        case wire::rc_dealloc_normal:
        case wire::rc_conv_failure_retry:
        case wire::rc_conv_failure_no_retry:
            MUST(now() == state::reset);
            break;
        default:
            violated("a code that no news has", __FILE__, __LINE__);
        }
    }

    step came(const lu62_test::received &got)
    {
        MUST(got.data.size() <= max_);
        received = got.data;
        what = 0;
        in_receive = got.primary == waiting;
        if (in_receive)
        {
            MUST(!immediate_ && now() == state::receive);
            return {waiting, false};
        }
        if (got.primary == wire::rc_unsuccessful)
        {
            MUST(immediate_ && now() == state::receive && got.data.empty());
            return {got.primary, false};
        }
        if (got.primary != wire::rc_ok)
        {
            MUST(got.data.empty());
            news(got.primary, state::receive);
            return {got.primary, true};
        }
        what = got.what;
        const unsigned data = what & 0xFF00u, status = what & 0xFFu;
        static constexpr state alone[] = {state::receive, state::send, state::confirm, state::confirm_send,
                                          state::confirm_deallocate};
        MUST(status <= 4 && (data != 0 || status != 0));
        MUST(data == 0 || data == 0x400 || data == (end.e.mapped || ll_ ? 0x200u : 0x100u));
        MUST(data != 0 || got.data.empty());
        MUST(data == 0 || status == 0 || with_data_);
        MUST(data != 0x400 || (status == 0 && (end.e.mapped || ll_)));
        MUST(now() == (status == 1 && data != 0 ? state::send_pending : alone[status]));
        return {wire::rc_ok, false};
    }

    input_row waiting_for_{};
    std::uint32_t max_ = 0;
    bool ll_ = false, with_data_ = false, immediate_ = false;
};

} // namespace fuzz
