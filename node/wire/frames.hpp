// frames.hpp - the bytes that travel between two partners of a conversation.
//
// A conversation is one connected Unix stream socket with a program at each end and no process between them. Each
// direction is a sequence of frames: an 8-byte header, then `length` bytes of payload. Integers are little-endian.
// Whoever reads a frame checks its header with frame_check() before believing any of it.
//
//   allocating end                                     accepting end
//   ATTACH (first, once; read by the broker, which then hands the other end of the socket to a waiting program)
//   DATA   payload: bytes of the conversation; flags tell what ends with it
//   REPLY  positive answer to a DATA that carried CONFIRM
//   ERROR  Send Error, abnormal end, refused attach; payload: error_head, then log data
//   RTS    request to send; may come at any time
//   PURGED the sender has stopped because of the partner's ERROR: what was sent before is void
#pragma once

#include <cstddef>
#include <cstdint>

namespace wire {

enum class frame_kind : std::uint8_t
{
    attach = 1,
    data = 2,
    reply = 3,
    error = 4,
    request_to_send = 5,
    purged = 6,
};

// Flags of a DATA frame. TURN, CONFIRM and END hold after its payload: CONFIRM alone asks for confirmation, with TURN
// it also gives the turn, with END it asks to confirm a deallocation; TURN alone gives the turn; END alone
// deallocates.
inline constexpr std::uint8_t flag_record_end = 0x01; // a mapped record ends with this payload
inline constexpr std::uint8_t flag_turn = 0x02;
inline constexpr std::uint8_t flag_confirm = 0x04;
inline constexpr std::uint8_t flag_end = 0x08; // DATA, ERROR: the conversation ends
inline constexpr std::uint8_t flag_truncated = 0x10; // ERROR: it cut off the logical record that was being sent
inline constexpr std::uint8_t flag_purging = 0x20; // ERROR: its sender discards all input up to the PURGED it is owed

struct frame_header
{
    std::uint32_t length; // bytes of payload, at most max_payload
    std::uint8_t kind;    // frame_kind
    std::uint8_t flags;
    std::uint16_t zero;
};
static_assert(sizeof(frame_header) == 8);

// What begins the payload of an ERROR; the rest is log data (a complete error-log record).
struct error_head
{
    std::uint32_t sense; // SNA sense data as a number: 0x08890000 reads 08 89 00 00
    std::uint32_t zero;
};
static_assert(sizeof(error_head) == 8);

inline constexpr std::uint32_t max_payload = 65535;
inline constexpr std::uint32_t max_log_data = 32767;

// Writes the 8 bytes of a header at `at`.
void frame_put(std::uint8_t *at, frame_kind kind, std::uint8_t flags, std::uint32_t length);

// Reads the 8 bytes of a header at `at` and says whether such a frame can exist at all: kind, flags and length fit each
// other. Whether it may come at this moment of a conversation is for the engine to say. The record is filled in either
// case.
bool frame_check(const std::uint8_t *at, frame_header &header);

// Sense data of an ERROR, as FMH-7 has them.
inline constexpr std::uint32_t sense_program_error = 0x08890000;       // program error, no truncation or purging
inline constexpr std::uint32_t sense_program_error_trunc = 0x08890001; // program error, record truncated
inline constexpr std::uint32_t sense_service_error = 0x08890100;
inline constexpr std::uint32_t sense_service_error_trunc = 0x08890101;
inline constexpr std::uint32_t sense_abend_program = 0x08640000;
inline constexpr std::uint32_t sense_abend_service = 0x08640001;
inline constexpr std::uint32_t sense_abend_timer = 0x08640002;

// Sense data with which the broker, or the accepting end, refuses an attach.
inline constexpr std::uint32_t sense_security_not_valid = 0x080F6051;
inline constexpr std::uint32_t sense_tp_name_not_recognised = 0x10086021;
inline constexpr std::uint32_t sense_pip_not_allowed = 0x10086031;
inline constexpr std::uint32_t sense_type_mismatch = 0x10086034;
inline constexpr std::uint32_t sense_sync_level_not_supported = 0x10086041;
inline constexpr std::uint32_t sense_tp_not_available_no_retry = 0x084C0000;
inline constexpr std::uint32_t sense_tp_not_available_retry = 0x084B6031;

} // namespace wire
