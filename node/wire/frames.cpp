// frames.cpp - writing and checked reading of frame headers. Called by the conversation verbs of the client library
// and by the broker (for the ATTACH). No state, no lock.
#include "wire/frames.hpp"

namespace wire {

void frame_put(std::uint8_t *at, frame_kind kind, std::uint8_t flags, std::uint32_t length)
{
    at[0] = static_cast<std::uint8_t>(length);
    at[1] = static_cast<std::uint8_t>(length >> 8);
    at[2] = static_cast<std::uint8_t>(length >> 16);
    at[3] = static_cast<std::uint8_t>(length >> 24);
    at[4] = static_cast<std::uint8_t>(kind);
    at[5] = flags;
    at[6] = 0;
    at[7] = 0;
}

static bool data_check(const frame_header &header)
{
    constexpr std::uint8_t known = flag_record_end | flag_turn | flag_confirm | flag_end;

    if ((header.flags & ~known) != 0 || header.length > max_payload)
    {
        return false;
    }
    if ((header.flags & flag_turn) != 0 && (header.flags & flag_end) != 0)
    {
        return false;
    }
    // A frame that says nothing would let a partner keep its reader busy for ever.
    return header.length != 0 || header.flags != 0;
}

static bool error_check(const frame_header &header)
{
    constexpr std::uint8_t known = flag_end | flag_truncated | flag_purging;

    if ((header.flags & ~known) != 0)
    {
        return false;
    }
    // Who discards its input was not sending, so it cut nothing off and has not ended the conversation.
    if ((header.flags & flag_purging) != 0 && header.flags != flag_purging)
    {
        return false;
    }
    return header.length >= sizeof(error_head) && header.length <= sizeof(error_head) + max_log_data;
}

bool frame_check(const std::uint8_t *at, frame_header &header)
{
    header.length = static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
                    static_cast<std::uint32_t>(at[2]) << 16 | static_cast<std::uint32_t>(at[3]) << 24;
    header.kind = at[4];
    header.flags = at[5];
    header.zero = static_cast<std::uint16_t>(at[6] | at[7] << 8);
    if (header.zero != 0)
    {
        return false;
    }
    switch (static_cast<frame_kind>(header.kind))
    {
    case frame_kind::data:
        return data_check(header);
    case frame_kind::error:
        return error_check(header);
    case frame_kind::attach:
    case frame_kind::reply:
    case frame_kind::request_to_send:
    case frame_kind::purged:
        return header.flags == 0 && header.length == 0;
    }
    return false;
}

} // namespace wire
