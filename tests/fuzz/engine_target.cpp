// engine_target.cpp - one end of a conversation whose partner may send anything: see target.hpp.
#include "fuzz/probe.hpp"

namespace fuzz {

namespace {

// Logical records of a basic conversation are sent as they come out of the input: mostly wrong ones. This makes the
// next `count` bytes right where the stream stands.
std::string right_bytes(const lu62::record_position &position, std::uint32_t count, std::uint8_t shape)
{
    lu62::record_position at = position;
    std::string bytes;
    while (bytes.size() < count)
    {
        std::uint8_t next = static_cast<std::uint8_t>(bytes.size() + shape);
        if (at.left == 0)
            next = at.ll_have == 0 ? static_cast<std::uint8_t>(shape & 0x80u)
                                   : std::max<std::uint8_t>(shape & 0x3Fu, 2);
        bytes += static_cast<char>(next);
        lu62::walk(at, &next, 1);
    }
    return bytes;
}

void verb(probe &end, numbers &input)
{
    const std::uint8_t which = input.byte(), more = input.byte();
    switch (which % 11)
    {
    case 0:
    {
        const std::uint32_t count = input.length();
        const bool right = (more & 0x40u) == 0;
        std::string data = right_bytes(end.end.e.out, count, more);
        if (!right)
            std::reverse(data.begin(), data.end());
        end.send(data, more % 9);
        break;
    }
    case 1:
        end.flush();
        break;
    case 2:
        end.confirm();
        break;
    case 3:
        end.confirmed();
        break;
    case 4:
        end.prepare(more % 3);
        break;
    case 5:
        end.request_to_send();
        break;
    case 6:
        end.error(more % 3, more >> 4 & 1u, std::string(more >> 5, 'l'));
        break;
    case 7:
        end.deallocate(more % 7);
        break;
    case 8:
        end.test_rts();
        break;
    default:
        end.receive(input.length(), (more & 1u) != 0, (more & 2u) == 0, (more & 4u) != 0);
        break;
    }
}

} // namespace

void engine(const std::uint8_t *bytes, std::size_t size)
{
    numbers input(bytes, size);
    const std::uint8_t kind = input.byte();
    probe end((kind & 1u) != 0, (kind & 2u) != 0, (kind & 4u) != 0);
    while (!input.empty())
    {
        const std::uint8_t what = input.byte();
        if (what < 0x60 && !end.end.ended)
        {
            // Bytes from the partner: as they are, or a header that may exist, so that the way leads further in.
            std::string arrived;
            if (what < 0x40)
            {
                std::string head(8, '\0');
                const std::uint8_t flags = input.byte(), length = input.byte();
                wire::frame_put(reinterpret_cast<std::uint8_t *>(head.data()),
                                static_cast<wire::frame_kind>(what % 8), flags, length);
                arrived = head;
            }
            const std::size_t wanted = input.byte();
            const std::size_t count = std::min(wanted, input.left());
            arrived.append(reinterpret_cast<const char *>(input.take(count)), count);
            end.end.wire_in += arrived;
        }
        else if (what < 0x62)
            end.end.ended = true;
        else if (end.in_verb)
            end.go_on();
        else if (end.in_receive)
            end.receive_more();
        else
            verb(end, input);
    }
    // With the partner gone every call comes to an end.
    end.end.ended = true;
    if (end.in_verb)
        end.go_on();
    if (end.in_receive)
        end.receive_more();
    MUST(!end.busy());
    for (int calls = 0; end.now() != state::reset; ++calls)
    {
        MUST(calls < 100000);
        if (end.now() == state::receive)
            end.receive(30000, true, true, false);
        else if (end.now() == state::send || end.now() == state::send_pending)
            end.deallocate(2);
        else
            end.confirmed();
    }
}

namespace {

// What a receive told, to be compared.
struct told
{
    lu62::outcome result;
    std::uint16_t what;
    std::string data;
    state after;

    bool operator==(const told &other) const
    {
        return result.primary == other.result.primary && result.secondary == other.result.secondary &&
               what == other.what && data == other.data && after == other.after;
    }
};

// Bytes that come in portions; the reader decides how many and whether to read them into the program's buffer.
class arriving
{
public:
    arriving(const std::uint8_t *bytes, std::size_t size, bool whole, std::uint8_t seed)
        : at_(bytes), left_(size), whole_(whole), next_(seed)
    {
    }

    // False: there is nothing more, and the engine has been told of it.
    bool more(lu62::engine &engine, lu62::receiving &reading)
    {
        const std::size_t portion = std::min(left_, whole_ ? left_ : std::size_t{1} + next());
        if (portion == 0)
        {
            const bool first = !ended_;
            ended_ = true;
            return first;
        }
        std::size_t direct = 0;
        if (!whole_ && buffer_.empty() && (next_ & 1u) != 0)
        {
            direct = std::min<std::size_t>(portion, lu62::direct_room(engine, reading));
            MUST(direct <= reading.max - reading.got);
            if (direct != 0)
            {
                std::memcpy(reading.buffer + reading.got, at_, direct);
                lu62::direct_done(engine, reading, static_cast<std::uint32_t>(direct));
            }
        }
        buffer_.append(reinterpret_cast<const char *>(at_) + direct, portion - direct);
        at_ += portion;
        left_ -= portion;
        ended_ = whole_ && left_ == 0;
        return true;
    }

    bool step(lu62::engine &engine, lu62::receiving &reading)
    {
        const auto lent = std::make_unique<std::uint8_t[]>(buffer_.size());
        std::copy(buffer_.begin(), buffer_.end(), lent.get());
        lu62::input in{lent.get(), static_cast<std::uint32_t>(buffer_.size()), ended_};
        const bool complete = lu62::receive_step(engine, reading, in);
        MUST(in.left <= buffer_.size() && in.at == lent.get() + (buffer_.size() - in.left));
        if (engine.log_length != 0)
        {
            const std::string log(reinterpret_cast<const char *>(engine.log_data), engine.log_length);
            MUST(log.size() <= wire::max_log_data);
            engine.log_length = 0;
        }
        buffer_.erase(0, buffer_.size() - in.left);
        return complete;
    }

private:
    std::uint8_t next()
    {
        next_ = static_cast<std::uint8_t>(next_ * 77u + 31u);
        return static_cast<std::uint8_t>(next_ >> 4);
    }

    const std::uint8_t *at_;
    std::size_t left_;
    bool whole_, ended_ = false;
    std::uint8_t next_;
    std::string buffer_;
};

std::vector<told> all_receives(const std::uint8_t *bytes, std::size_t size, const std::uint8_t (&how)[4], bool whole)
{
    lu62::engine engine;
    lu62::engine_init(engine, (how[0] & 1u) != 0, (how[0] & 2u) != 0, false);
    if ((how[0] & 4u) != 0)
    {
        const lu62::plan error = lu62::plan_send_error(engine, 0, 0);
        lu62::purge_begin(engine);
        lu62::finish(engine, error);
        engine.now = state::receive; // as after the turn was given again
    }
    arriving input(bytes, size, whole, how[1]);
    std::vector<told> all;
    const std::uint32_t max = how[2] == 0 ? 40000u : how[2];
    for (std::size_t calls = 0; engine.now != state::reset; ++calls)
    {
        MUST(calls < 4 * size + 100);
        if (engine.now != state::receive)
        {
            const bool confirms = lu62::transition(engine.now, input_row::confirmed).kind == lu62::cell_kind::allowed;
            const lu62::plan next = confirms ? lu62::plan_confirmed(engine) : lu62::plan_prepare_to_receive(engine, 1);
            MUST(next.refused.primary == wire::rc_ok);
            lu62::finish(engine, next);
            continue;
        }
        const auto room = std::make_unique<std::uint8_t[]>(max);
        lu62::receiving reading{};
        reading.buffer = room.get();
        reading.max = max;
        reading.fill_ll = (how[3] & 1u) != 0;
        reading.status_with_data = (how[3] & 2u) == 0;
        while (!input.step(engine, reading))
            MUST(input.more(engine, reading));
        engine.purged_owed = false;
        all.push_back({reading.result, reading.what,
                       std::string(reinterpret_cast<const char *>(room.get()), reading.got), engine.now});
    }
    return all;
}

} // namespace

void portions(const std::uint8_t *bytes, std::size_t size)
{
    if (size < 4)
        return;
    const std::uint8_t how[4] = {bytes[0], bytes[1], bytes[2], bytes[3]};
    const std::vector<told> whole = all_receives(bytes + 4, size - 4, how, true);
    const std::vector<told> pieces = all_receives(bytes + 4, size - 4, how, false);
    MUST(whole.size() == pieces.size());
    for (std::size_t i = 0; i < whole.size(); ++i)
    {
        // Data in front of a broken protocol: how much of it a program sees depends on how it came.
        const bool broken = i + 2 == whole.size() && whole[i + 1].result.primary == wire::rc_conv_failure_no_retry &&
                            whole[i].what == 0x0100;
        const std::size_t common = std::min(whole[i].data.size(), pieces[i].data.size());
        told other = pieces[i];
        if (broken && whole[i].data.compare(0, common, other.data, 0, common) == 0)
            other.data = whole[i].data;
        MUST(whole[i] == other);
    }
}

} // namespace fuzz
