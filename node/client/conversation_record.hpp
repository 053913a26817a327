// conversation_record.hpp - the record behind conversation.hpp, and what its three source files owe each other:
//
//   conversation_buffers.cpp  the buffers, and every byte in and out of the socket
//   conversation_verbs.cpp    a verb from its record to its completion
//   conversation.cpp          making, ending, cancelling
//
// Everything under the process-wide lock.
#pragma once

#include "client/conversation.hpp"
#include "client/runtime.hpp"
#include "lu62/engine.hpp"

#include <sys/uio.h>

namespace client {

// ---- sizes, in bytes ---------------------------------------------------------------------------------------------

inline constexpr u32 frame_size = sizeof(wire::frame_header);

// One size for every buffer, so that any of them serves any conversation. It holds the longest DATA frame, and so also
// the longest thing that the engine wants to see as a whole.
inline constexpr u32 buffer_size = 66u * 1024;
static_assert(buffer_size >= frame_size + wire::max_payload + 1024 && buffer_size >= lu62::longest_whole);

// Sends are gathered up to here. The first record after a receive is gathered whatever its length, because the turn
// often follows and then travels with it; after it a long record is written at once, without a copy.
inline constexpr u32 gather_size = 32u * 1024 + 512;
inline constexpr u32 long_send = 8u * 1024;

// A program that only sends learns of an error of the partner after this many bytes at the latest.
inline constexpr u32 look_size = 128u * 1024;

// One that sends little learns of it, and of a request to send, by a send this many ticks after its last look: some ten
// milliseconds.
inline constexpr std::uint64_t look_interval = 1u << 25;

// From here on payload goes from the socket straight to the program's memory, and reads beside it stay short, so that
// little of the next record is copied. Below, a copy costs less than another system call.
inline constexpr u32 direct_least = 8u * 1024;
inline constexpr u32 short_read = 1024;

inline constexpr u32 no_frame = 0xFFFFFFFFu;

// ---- the record --------------------------------------------------------------------------------------------------

// What a verb at work is waiting to have done.
enum class phase : u8
{
    none,
    write,  // the job has to be written
    answer, // the partner has to confirm
    receive,
};

struct conversation
{
    lu62::engine engine;
    int fd;
    u32 conv_id;
    u32 session;
    wire::conversation_counters *counters; // null: nobody counts
    u8 tp_id[8];

    bool attach_due;  // the ATTACH has not been put before anything yet
    bool out_dead;    // the partner does not read any more: what is to be written is dropped
    bool in_ended;    // the partner writes no more, as far as the socket goes
    bool watched;     // the runtime has been asked to watch the descriptor
    bool long_frames; // the last receive was a long one: read little ahead
    bool wait_first;  // the turn has just been given, or an answer asked for: nothing can be there yet
    bool blocking;    // the verb at work has no routine, so waiting costs one system call and trying first two
    bool sending;     // the last verb was a send

    u8 *out;       // gathered frames, null: none
    u32 out_used;
    u32 unlooked;  // bytes written since the input was looked at
    std::uint64_t looked; // when it was read last, by runtime_ticks()
    u32 out_frame; // offset of the header of the last DATA frame in out; no_frame: none

    u8 *carry;     // the rest of a write that an error of the partner has cut short, and answers that did not fit
    u32 carry_at;
    u32 carry_left;

    u8 *in;        // bytes read and not taken, null: none
    u32 in_at;
    u32 in_left;

    // The verb at work; record is null when there is none.
    VERB_RECORD *record;
    appc_completion *routine;
    u32 user_word;
    runtime_waiter *waiter; // the thread that is blocked in it
    runtime_waiter *block;  // the next read may block, as this waiter; null: it does not
    bool socket_blocks;     // the socket has been made one that blocks
    u32 stop;               // primary code with which the conversation is over at the next occasion; 0: none
    phase at;
    bool end_only;          // the job ends the conversation: nothing that comes in matters any more
    lu62::plan plan;
    lu62::outcome result;
    lu62::receiving receiving;
    iovec job[6];
    u8 job_count;
    u8 job_at;
    u8 head[2 * sizeof(wire::frame_header)];
    u8 tail[sizeof(wire::frame_header) + sizeof(wire::error_head)];
};

// ---- conversation_buffers.cpp ------------------------------------------------------------------------------------

// Null when there is no memory.
u8 *buffer_take();
void buffer_give(u8 *buffer);

// Adds a send to what is gathered. False: it does not fit (or there is no memory) and has to be written.
bool gather(conversation *conv, const u8 *bytes, u32 count);

// Makes the job of the plan: what is gathered, then `count` bytes of the program, then the plan's indicators and ERROR
// with its log data.
void job_make(conversation *conv, bool data, const u8 *bytes, u32 count, const u8 *log_data, u32 log_length);
// The job of a frame without payload.
void job_make_frame(conversation *conv, wire::frame_kind kind);
// Writes as much of the job as the socket takes. True: it is done, or the partner does not read any more.
bool job_write(conversation *conv);
// The partner has made the job void: what is left of it becomes carry, because a frame once begun has to end. False: no
// memory.
bool job_abandon(conversation *conv);
// What is gathered will not be sent.
void gathered_drop(conversation *conv);

// Writes the frame after the carry, now or later. False: no memory.
bool frame_write(conversation *conv, wire::frame_kind kind);
// Writes the carry as far as the socket takes it. True: none is left.
bool carry_write(conversation *conv);

enum class arrival : u8
{
    bytes,
    nothing,
    no_memory,
    full, // the buffer has no room; the program has to take something first
};

// Reads once. With a receive at work, payload may go straight to its memory; the engine is told. The end of the
// stream counts as bytes, once.
arrival input_read(conversation *conv, lu62::receiving *receiving);

// What the engine finds in the bytes that are here; log data among them goes to the problem log.
lu62::head input_look(conversation *conv);
bool input_receive(conversation *conv, lu62::receiving &receiving);

// The buffers and the descriptor.
void conversation_close(conversation *conv);

// ---- conversation_verbs.cpp --------------------------------------------------------------------------------------

// Begins the verb whose record has been put into conv, and goes on with it; both return the events to wait for, or 0:
// complete, conv->result says how.
short verb_begin(conversation *conv);
// A small send that joins what is gathered already: begun and complete, its record filled. False: not such a one.
bool verb_quick_send(conversation *conv, VERB_RECORD *record);
// Goes on with the verb at work as far as it gets. ready: what the descriptor is ready for, 0: nothing is known.
short verb_advance(conversation *conv, short ready);

// The verb at work is complete: fills its record, ends the conversation if it is over (conv is freed then), and calls
// the routine of a pending verb.
void verb_complete(conversation *conv);

// ---- conversation.cpp --------------------------------------------------------------------------------------------

// Tells the runtime, closes, frees.
void conversation_over(conversation *conv);

} // namespace client
