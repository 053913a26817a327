// pair_target.cpp - two ends of one conversation, both in the hands of a random program: see target.hpp. What one end
// sends the other receives, byte for byte and record for record, but for what a Send Error of the receiver made void;
// neither ever finds that the other has broken the protocol; and when all has arrived, both agree who has the turn.
#include "fuzz/probe.hpp"

#include <set>

namespace fuzz {

namespace {

// What a side has sent, as its program sees it.
struct sent_stream
{
    std::string bytes;
    std::set<std::size_t> ends;  // of records
    std::set<std::size_t> turns; // where the turn was given or a confirmation asked for
    std::size_t cleared = 0;     // where it stood when it last learned that all before is void
};

struct side
{
    probe end;
    sent_stream sent;
    std::size_t taken = 0;    // bytes of the partner's stream received, or void
    std::size_t in_hand = 0;  // of them, in a receive that still waits
    bool may_skip = false;    // a Send Error has made something of it void, and no data has come since
    bool requested = false;   // request to send issued, not seen by the partner
    bool ended_by_us = false, ended_well = false;
    std::string log_sent;

    side(bool mapped, bool confirm, bool allocating) : end(mapped, confirm, allocating) {}
};

// Log data of an error: where the stream of its sender stood.
std::string mark(const side &of)
{
    std::string text(4, '\0');
    for (unsigned i = 0; i < 4; ++i)
        text[i] = static_cast<char>(of.sent.bytes.size() >> (8 * i));
    return text;
}
std::size_t marked(const std::string &text)
{
    MUST(text.size() == 4);
    std::size_t position = 0;
    for (unsigned i = 0; i < 4; ++i)
        position |= static_cast<std::size_t>(static_cast<std::uint8_t>(text[i])) << (8 * i);
    return position;
}

class conversation
{
public:
    explicit conversation(std::uint8_t kind)
        : mapped_((kind & 1u) != 0), confirm_((kind & 2u) != 0), sides_{{mapped_, confirm_, true},
                                                                         {mapped_, confirm_, false}}
    {
    }

    void act(numbers &input)
    {
        const std::uint8_t first = input.byte(), more = input.byte();
        const unsigned which = first & 1u;
        side &us = sides_[which], &partner = sides_[1 - which];
        const unsigned what = (first >> 1) % 14;
        if (what == 12)
            return deliver(which, 1u + more);
        if (what == 13)
            return deliver(which, 1000000);
        if (us.end.busy())
            return go_on(us, partner);
        switch (what)
        {
        case 0:
        case 1:
        case 2:
            send(us, partner, what == 0 ? 0 : more % 8, input.length());
            break;
        case 3:
            note(us, partner, us.end.flush());
            break;
        case 4:
            us.sent.turns.insert(us.sent.bytes.size());
            note(us, partner, us.end.confirm());
            break;
        case 5:
            note(us, partner, us.end.confirmed());
            break;
        case 6:
            us.sent.turns.insert(us.sent.bytes.size());
            note(us, partner, us.end.prepare(more & 1u));
            break;
        case 7:
            if (us.end.request_to_send().primary == wire::rc_ok)
                us.requested = true;
            break;
        case 8:
            error(us, partner, more & 1u, more >> 1 & 1u);
            break;
        case 9:
            deallocate(us, partner, more % 6);
            break;
        case 10:
            if (us.end.test_rts())
            {
                MUST(partner.requested);
                partner.requested = false;
            }
            break;
        default:
            receive(us, partner, input.length(), (more & 1u) != 0, (more & 2u) == 0, (more & 4u) != 0);
        }
    }

    // Lets everything arrive and both ends take it, each answering what it is asked for.
    void settle()
    {
        for (bool moved = true; moved;)
        {
            moved = false;
            for (unsigned which = 0; which < 2; ++which)
            {
                side &us = sides_[which], &partner = sides_[1 - which];
                moved = moved || !us.end.end.wire_out.empty();
                deliver(which, 1000000);
                if (partner.end.busy())
                {
                    go_on(partner, us);
                    moved = moved || !partner.end.busy();
                }
                else if (partner.end.now() == state::receive)
                {
                    receive(partner, us, 5000, true, true, true);
                    moved = moved || last_ != wire::rc_unsuccessful;
                }
                else if (lu62::transition(partner.end.now(), input_row::confirmed).kind == lu62::cell_kind::allowed)
                {
                    note(partner, us, partner.end.confirmed());
                    moved = true;
                }
                else if (partner.end.now() != state::reset && partner.end.end.look() == lu62::head::news)
                {
                    note(partner, us, partner.end.flush());
                    moved = true;
                }
            }
        }
        agree();
    }

private:
    static bool has_turn(const side &us)
    {
        return us.end.now() == state::send || us.end.now() == state::send_pending;
    }

    void agree()
    {
        side &a = sides_[0], &b = sides_[1];
        MUST(!a.end.in_verb && !b.end.in_verb);
        if (a.end.now() == state::reset || b.end.now() == state::reset)
        {
            MUST(a.end.now() == b.end.now());
            for (const unsigned which : {0u, 1u})
            {
                const side &us = sides_[which], &partner = sides_[1 - which];
                // Who is told of a normal end has received everything, unless its own Send Error was on its way.
                MUST(!us.ended_well || us.ended_by_us || us.may_skip || us.taken == partner.sent.bytes.size());
            }
            return;
        }
        MUST(has_turn(a) != has_turn(b));
        const side &talks = has_turn(a) ? a : b, &listens = has_turn(a) ? b : a;
        MUST(listens.end.now() == state::receive);
        MUST(talks.taken == listens.sent.bytes.size() || talks.may_skip ||
             listens.sent.cleared == listens.sent.bytes.size());
        MUST(a.end.end.e.purging == 0 && b.end.end.e.purging == 0);
    }

    void deliver(unsigned which, std::size_t most)
    {
        std::string &out = sides_[which].end.end.wire_out;
        const std::size_t count = std::min(most, out.size());
        sides_[1 - which].end.end.wire_in.append(out, 0, count);
        out.erase(0, count);
    }

    // What a verb told of, beside its own affair.
    void note(side &us, side &partner, const step &done)
    {
        last_ = done.primary;
        if (!done.told_news)
            return;
        switch (done.primary)
        {
        case wire::rc_conv_failure_retry:
        case wire::rc_conv_failure_no_retry:
        case wire::rc_allocation_error:
            violated("an end breaks the protocol", __FILE__, __LINE__);
        case wire::rc_program_error_purging:
        case wire::rc_service_error_purging:
            us.sent.cleared = us.sent.bytes.size();
            if (!mapped_)
                us.sent.ends.insert(us.sent.cleared);
            [[fallthrough]];
        case wire::rc_program_error_no_trunc:
        case wire::rc_program_error_trunc:
        case wire::rc_service_error_no_trunc:
        case wire::rc_service_error_trunc:
        {
            const std::size_t position = marked(us.end.end.log);
            MUST(position >= us.taken && (us.may_skip || position == us.taken));
            us.taken = position;
            us.may_skip = false;
            us.end.end.log.clear();
            break;
        }
        case wire::rc_dealloc_normal:
            MUST(partner.ended_by_us && partner.ended_well);
            us.ended_well = true;
            break;
        default:
            MUST(partner.ended_by_us && !partner.ended_well);
            break;
        }
    }

    void go_on(side &us, side &partner)
    {
        if (us.end.in_verb)
            note(us, partner, us.end.go_on());
        else
            came(us, partner, us.end.receive_more());
        if (us.ended_by_us && !us.end.busy() && us.end.now() != state::reset)
            us.ended_by_us = us.ended_well = false; // the partner has refused it
    }

    void send(side &us, side &partner, std::uint8_t type, std::uint32_t count)
    {
        std::string data;
        lu62::record_position at = us.end.end.e.out;
        std::set<std::size_t> ends;
        while (data.size() < count)
        {
            const std::size_t position = us.sent.bytes.size() + data.size();
            // Bytes that tell where they belong.
            std::uint8_t next = static_cast<std::uint8_t>(position * 37 + (position >> 8) * 11 + (position >> 16));
            if (!mapped_ && at.left == 0 && at.ll_have == 0)
                next = next % 16 == 0 ? 0x81 : next % 2 != 0 ? 0x80 : 0;
            else if (!mapped_ && at.left == 0)
                next = std::max<std::uint8_t>(next, 2);
            data += static_cast<char>(next);
            if (!mapped_)
            {
                MUST(lu62::walk(at, &next, 1));
                if (lu62::at_boundary(at))
                    ends.insert(position + 1);
            }
        }
        const bool ends_it = type >= 5;
        const step done = us.end.send(data, type);
        if (done.primary != wire::rc_state_check && done.primary != wire::rc_parameter_check && !done.told_news)
        {
            us.sent.bytes += data;
            us.sent.ends.merge(ends);
            if (mapped_)
                us.sent.ends.insert(us.sent.bytes.size());
            if (type >= 2)
                us.sent.turns.insert(us.sent.bytes.size());
            if (ends_it)
                end_by(us, type != 7);
        }
        note(us, partner, done);
    }

    static void end_by(side &us, bool well)
    {
        us.ended_by_us = true;
        us.ended_well = well;
    }

    void deallocate(side &us, side &partner, std::uint8_t type)
    {
        us.sent.turns.insert(us.sent.bytes.size());
        const step done = us.end.deallocate(type);
        if (done.primary == wire::rc_ok || done.primary == waiting)
            end_by(us, type < 2);
        note(us, partner, done);
    }

    void error(side &us, side &partner, std::uint8_t type, std::uint8_t direction)
    {
        const std::uint32_t purging = us.end.end.e.purging;
        const step done = us.end.error(type, direction, mark(us));
        if (done.primary == wire::rc_ok && !mapped_)
            us.sent.ends.insert(us.sent.bytes.size()); // a record that was cut off is over
        us.may_skip = us.may_skip || us.end.end.e.purging > purging || (done.told_news && us.end.now() != state::reset);
        note(us, partner, done);
    }

    void receive(side &us, side &partner, std::uint32_t max, bool ll, bool with_data, bool immediate)
    {
        us.in_hand = 0;
        us.end.received.clear();
        us.sent.turns.insert(us.sent.bytes.size()); // in send state it gives the turn
        came(us, partner, us.end.receive(max, ll, with_data, immediate));
    }

    void came(side &us, side &partner, const step &done)
    {
        const std::string &data = us.end.received;
        if (done.primary == wire::rc_ok || done.primary == waiting)
        {
            if (us.may_skip && (!data.empty() || (us.end.what & 0xFF00u) != 0))
            {
                us.taken = std::max(us.taken, partner.sent.cleared);
                us.may_skip = false;
            }
            MUST(data.size() >= us.in_hand);
            const std::size_t from = us.taken - us.in_hand;
            MUST(from + data.size() <= partner.sent.bytes.size());
            MUST(partner.sent.bytes.compare(from, data.size(), data) == 0);
            us.taken = from + data.size();
            us.in_hand = data.size();
        }
        if (done.primary == wire::rc_ok)
        {
            us.in_hand = 0;
            if ((us.end.what & 0xFF00u) == 0x200)
                MUST(partner.sent.ends.count(us.taken) != 0);
            if ((us.end.what & 0xFFu) != 0)
                MUST(partner.sent.turns.count(us.taken) != 0 || us.may_skip);
        }
        note(us, partner, done);
    }

    bool mapped_, confirm_;
    side sides_[2];
    std::uint32_t last_ = wire::rc_ok;
};

} // namespace

void pair(const std::uint8_t *bytes, std::size_t size)
{
    numbers input(bytes, size);
    conversation both(input.byte());
    while (!input.empty())
        both.act(input);
    both.settle();
}

} // namespace fuzz
