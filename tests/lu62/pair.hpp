// pair.hpp - two engines back to back through byte queues, for the engine's tests: what the client library does with
// sockets, done with strings. Every verb of an end returns its outcome; a verb that waits for the partner says so with
// `waiting` and is taken up again with go_on().
#pragma once

#include "lu62/engine.hpp"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace lu62_test {

inline constexpr std::uint32_t waiting = 0xFFFFFFF0u; // primary code of a verb that is not complete

inline std::string frame(wire::frame_kind kind, std::uint8_t flags, const std::string &payload = "")
{
    std::string bytes(8, '\0');
    wire::frame_put(reinterpret_cast<std::uint8_t *>(bytes.data()), kind, flags,
                    static_cast<std::uint32_t>(payload.size()));
    return bytes + payload;
}

inline std::string error_frame(std::uint8_t flags, std::uint32_t sense, const std::string &log = "")
{
    std::string head(8, '\0');
    for (unsigned i = 0; i < 4; i++)
    {
        head[i] = static_cast<char>(sense >> (8 * i));
    }
    return frame(wire::frame_kind::error, flags, head + log);
}

// A logical record with this text in it.
inline std::string record(const std::string &text, bool continued = false)
{
    const std::size_t length = text.size() + 2;
    std::string bytes;
    bytes += static_cast<char>((length >> 8) | (continued ? 0x80u : 0u));
    bytes += static_cast<char>(length & 0xFF);
    return bytes + text;
}

struct received
{
    std::uint32_t primary;
    std::uint32_t secondary;
    std::uint16_t what;
    std::string data;
};

class end
{
public:
    lu62::engine e;
    std::string wire_out;          // on its way to the partner
    std::string wire_in;           // from the partner, not taken yet
    bool ended = false;            // nothing comes after wire_in
    std::vector<std::string> sent; // payloads gathered; mapped: one a record
    std::string log;               // log data of the last news

    end(bool mapped, bool confirm, bool allocating)
    {
        lu62::engine_init(e, mapped, confirm, allocating);
    }

    std::uint32_t send(const std::string &data, std::uint8_t type = 0)
    {
        return send_full(data, type).primary;
    }

    lu62::outcome send_full(const std::string &data, std::uint8_t type)
    {
        const lu62::plan p = lu62::plan_send_data(e, type, reinterpret_cast<const std::uint8_t *>(data.data()),
                                                  static_cast<std::uint32_t>(data.size()));
        if (p.refused.primary == wire::rc_ok)
        {
            if (e.mapped || sent.empty() || sent.back().size() + data.size() > wire::max_payload)
            {
                sent.push_back(data);
            }
            else
            {
                sent.back() += data;
            }
        }
        return carry_out(p);
    }

    std::uint32_t flush() { return carry_out(lu62::plan_flush(e)).primary; }
    std::uint32_t confirm() { return carry_out(lu62::plan_confirm(e)).primary; }
    std::uint32_t prepare(std::uint8_t type) { return carry_out(lu62::plan_prepare_to_receive(e, type)).primary; }
    std::uint32_t deallocate(std::uint8_t type) { return carry_out(lu62::plan_deallocate(e, type)).primary; }

    std::uint32_t error(std::uint8_t type = 0, std::uint8_t direction = 0, const std::string &log_data = "")
    {
        return carry_out(lu62::plan_send_error(e, type, direction), log_data).primary;
    }

    std::uint32_t confirmed()
    {
        const lu62::plan p = lu62::plan_confirmed(e);
        if (p.refused.primary == wire::rc_ok)
        {
            wire_out += frame(wire::frame_kind::reply, 0);
            lu62::finish(e, p);
        }
        return p.refused.primary;
    }

    std::uint32_t request_to_send()
    {
        const lu62::plan p = lu62::plan_request_to_send(e);
        if (p.refused.primary == wire::rc_ok)
        {
            wire_out += frame(wire::frame_kind::request_to_send, 0);
            lu62::finish(e, p);
        }
        return p.refused.primary;
    }

    bool rts()
    {
        look();
        return lu62::take_rts(e);
    }

    // The news at the head of the input, or rc_ok.
    std::uint32_t news()
    {
        return look() == lu62::head::news ? take().primary : wire::rc_ok;
    }

    lu62::head look()
    {
        lu62::input in = open();
        const lu62::head found = lu62::look(e, in);
        close(in);
        return found;
    }

    // Goes on with a verb that waits for an answer.
    std::uint32_t go_on()
    {
        switch (look())
        {
        case lu62::head::reply:
            lu62::finish(e, pending);
            return wire::rc_ok;
        case lu62::head::news:
            return take().primary;
        default:
            return waiting;
        }
    }

    received receive(std::uint32_t max, bool ll = true, bool with_data = true, bool immediate = false)
    {
        const lu62::plan p = lu62::plan_receive(e, immediate);
        const lu62::outcome begun = carry_out(p);
        if (begun.primary != wire::rc_ok)
        {
            return {begun.primary, begun.secondary, 0, ""};
        }
        // Of just the size asked for, so that a checker sees every byte beyond.
        room = std::make_unique<std::uint8_t[]>(max);
        reading = {};
        reading.buffer = room.get();
        reading.max = max;
        reading.fill_ll = ll;
        reading.status_with_data = with_data;
        reading.immediate = immediate;
        return receive_more();
    }

    // Goes on with a receive that waits.
    received receive_more()
    {
        lu62::input in = open();
        bool done = lu62::receive_step(e, reading, in);
        close(in);
        if (!done && reading.immediate)
        {
            lu62::receive_now(e, reading);
            done = true;
        }
        const std::string data(reinterpret_cast<const char *>(room.get()), reading.got);
        if (!done)
        {
            return {waiting, 0, 0, data};
        }
        owe_purged();
        return {reading.result.primary, reading.result.secondary, reading.what, data};
    }

private:
    lu62::plan pending{};
    lu62::receiving reading{};
    std::unique_ptr<std::uint8_t[]> room;
    std::unique_ptr<std::uint8_t[]> lent; // the input, of just its size

    lu62::input open()
    {
        lent = std::make_unique<std::uint8_t[]>(wire_in.size());
        std::copy(wire_in.begin(), wire_in.end(), lent.get());
        return {lent.get(), static_cast<std::uint32_t>(wire_in.size()), ended};
    }

    void close(const lu62::input &in)
    {
        if (e.log_length != 0)
        {
            log.assign(reinterpret_cast<const char *>(e.log_data), e.log_length);
            e.log_length = 0;
        }
        wire_in.erase(0, wire_in.size() - in.left);
    }

    void owe_purged()
    {
        if (e.purged_owed)
        {
            e.purged_owed = false;
            wire_out += frame(wire::frame_kind::purged, 0);
            sent.clear();
        }
    }

    lu62::outcome take()
    {
        const lu62::outcome told = lu62::take_news(e);
        owe_purged();
        return told;
    }

    lu62::outcome carry_out(const lu62::plan &p, const std::string &log_data = "")
    {
        if (p.refused.primary != wire::rc_ok)
        {
            return p.refused;
        }
        if ((p.error_flags & wire::flag_purging) != 0)
        {
            lu62::purge_begin(e);
        }
        if (p.look && look() == lu62::head::news)
        {
            return take();
        }
        if (p.flush)
        {
            write(p);
        }
        if (p.error || p.abend)
        {
            wire_out += error_frame(p.error_flags, p.sense, log_data);
        }
        if (p.reply)
        {
            lu62::reply_expected(e);
            pending = p;
            return {waiting, 0};
        }
        lu62::finish(e, p);
        return {wire::rc_ok, 0};
    }

    void write(const lu62::plan &p)
    {
        if (sent.empty() && p.flags != 0)
        {
            wire_out += frame(wire::frame_kind::data, p.flags);
        }
        for (std::size_t i = 0; i < sent.size(); i++)
        {
            const unsigned flags = (e.mapped ? wire::flag_record_end : 0u) | (i + 1 == sent.size() ? p.flags : 0u);
            if (!sent[i].empty() || flags != 0)
            {
                wire_out += frame(wire::frame_kind::data, static_cast<std::uint8_t>(flags), sent[i]);
            }
        }
        sent.clear();
    }
};

// Two ends of one conversation; a allocated it.
struct pair
{
    end a;
    end b;

    explicit pair(bool mapped, bool confirm = true) : a(mapped, confirm, true), b(mapped, confirm, false) {}

    // Everything on its way arrives.
    void pump()
    {
        b.wire_in += a.wire_out;
        a.wire_out.clear();
        a.wire_in += b.wire_out;
        b.wire_out.clear();
    }
};

} // namespace lu62_test
