// message_target.cpp - the checks that stand before every message of the broker's socket and every frame of a
// conversation: see target.hpp.
#include "fuzz/target.hpp"
#include "wire/broker.hpp"
#include "wire/frames.hpp"

#include <algorithm>
#include <cstring>
#include <memory>

namespace fuzz {

namespace {

void frame(const std::uint8_t *at)
{
    wire::frame_header header{};
    const bool good = wire::frame_check(at, header);
    std::uint8_t again[sizeof(wire::frame_header)];
    wire::frame_put(again, static_cast<wire::frame_kind>(header.kind), header.flags, header.length);
    // What was read is what was written, and a length that is believed can be held.
    MUST(!good || std::memcmp(again, at, sizeof again) == 0);
    MUST(!good || header.length <= wire::max_payload);
    MUST(!good || header.kind != static_cast<std::uint8_t>(wire::frame_kind::error) ||
         header.length >= sizeof(wire::error_head));
}

} // namespace

void message(const std::uint8_t *bytes, std::size_t size)
{
    if (size >= sizeof(wire::frame_header))
        frame(bytes);
    // Of just its size, so that a checker sees every byte read beyond; and again with a length that fits, or few
    // inputs would get further.
    const auto copy = std::make_unique<std::uint8_t[]>(size);
    std::copy(bytes, bytes + size, copy.get());
    for (const bool fitting : {false, true})
    {
        wire::message_head head{};
        if (fitting && size >= sizeof head)
        {
            std::memcpy(&head, copy.get(), sizeof head);
            head.length = static_cast<decltype(head.length)>(size);
            head.zero = 0;
            std::memcpy(copy.get(), &head, sizeof head);
        }
        const bool program = wire::message_check(copy.get(), size, wire::sender::program);
        const bool broker = wire::message_check(copy.get(), size, wire::sender::broker);
        MUST(!(program && broker));
        if (!program && !broker)
            continue;
        MUST(size >= sizeof head && size <= wire::max_message);
        std::memcpy(&head, copy.get(), sizeof head);
        MUST(head.length == size && head.zero == 0);
        if (head.kind == static_cast<std::uint16_t>(wire::message_kind::accept))
        {
            wire::accept fixed;
            MUST(size >= sizeof fixed);
            std::memcpy(&fixed, copy.get(), sizeof fixed);
            MUST(fixed.count >= 1 && fixed.count <= wire::max_accept_names);
            MUST(size == sizeof fixed + fixed.count * wire::tp_name_size);
        }
    }
}

} // namespace fuzz
