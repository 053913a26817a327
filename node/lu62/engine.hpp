// engine.hpp - the LU 6.2 engine of one end of a conversation: which verb may be issued now, what it puts on the wire,
// what the bytes from the partner mean.
//
// No I/O, no clock, no lock, no allocation: the client library moves the bytes, keeps the buffers and waits. The same
// code runs in a program, in a test with two engines back to back, and under a fuzzer. An engine is a plain record
// that its owner serialises (in the client library: the process-wide lock).
//
// A verb goes: plan_...() says whether it is allowed and what has to travel; the owner sends it, and if the plan asks
// for an answer feeds what comes in to look() until that tells of one; then finish() moves the state. Codes are the
// architecture's numbers (wire::rc_...), not in the byte order of a verb record.
#pragma once

#include "lu62/records.hpp"
#include "lu62/states.hpp"
#include "wire/broker.hpp"

namespace lu62 {

struct outcome
{
    std::uint32_t primary; // wire::rc_ok: all is well
    std::uint32_t secondary;
};

// What look() finds at the head of the input.
enum class head : std::uint8_t
{
    none,   // more bytes are needed to say
    data,   // bytes of the conversation, or an empty mapped record
    status, // turn or request for confirmation
    reply,  // the partner has confirmed; already taken from the input
    news,   // an error or the end of the conversation; take_news() tells it to the program
};

struct engine
{
    bool mapped;
    bool sync_confirm;
    bool allocating; // wins when both ends discard their input because of each other
    state now;

    record_position out; // basic: in the stream sent

    record_position in;      // basic: in the stream received
    std::uint32_t frame_left; // bytes of payload still to come of the DATA frame being read
    std::uint8_t frame_flags; // what is still to be told of it
    bool in_frame;
    bool in_record;   // mapped: part of a record has been read
    bool rts;         // the partner has requested to send and the program has not been told
    bool reply_due;   // a CONFIRM has gone out and no answer come
    bool purged_owed; // the partner discards its input until we send PURGED
    std::uint32_t purging; // PURGED frames that the partner owes us: all input is void until the last of them

    head held;             // reply or news that has been read and not been told
    input_row news_row;
    outcome news_outcome;
    const std::uint8_t *log_data; // of the news, in the caller's input; the caller uses it before it moves the input
    std::uint32_t log_length;     // and sets this to 0
};

void engine_init(engine &e, bool mapped, bool sync_confirm, bool allocating);

// ---- verbs -------------------------------------------------------------------------------------------------------

// What a verb needs. A verb that is refused has changed nothing.
struct plan
{
    outcome refused;       // primary not 0: refused, and the rest says nothing
    input_row row;         // what finish() applies
    bool flush;            // the bytes gathered travel now
    bool look;             // see first whether the partner has sent an error
    std::uint8_t flags;    // of the last DATA frame; an empty one when there is none and flags are not 0
    bool reply;            // ends with the partner's answer
    bool abend;            // an ERROR with END goes after the data
    bool error;            // an ERROR without END goes after the data
    std::uint8_t error_flags; // flags and sense of that ERROR
    std::uint32_t sense;
};

// type: send type byte 0 to 7. The bytes are looked at only on basic conversations, for their LLs, and count as sent
// once the plan is made.
plan plan_send_data(engine &e, std::uint8_t type, const std::uint8_t *bytes, std::uint32_t count);
// The same for the one case that has to be fast: bytes that are only gathered, in send state. True: allowed, and they
// count as sent; nothing else changes and there is nothing to finish. False: make the plan.
inline bool send_quickly(engine &e, const std::uint8_t *bytes, std::uint32_t count)
{
    if (e.now != state::send)
    {
        return false;
    }
    if (!e.mapped)
    {
        record_position after = e.out;
        if (!walk(after, bytes, count))
        {
            return false;
        }
        e.out = after;
    }
    return true;
}

plan plan_flush(engine &e);
plan plan_confirm(engine &e);
plan plan_confirmed(engine &e); // sends REPLY
plan plan_prepare_to_receive(engine &e, std::uint8_t type);
plan plan_deallocate(engine &e, std::uint8_t type);
// type: 0 program, 1 service. direction: 1 the error is in what this end was sending; counts in send pending state.
// When the plan's error_flags have flag_purging, the owner calls purge_begin() before it looks at the input.
plan plan_send_error(engine &e, std::uint8_t type, std::uint8_t direction);
// The plan of a receive in send state gives the turn first; in receive state nothing travels.
plan plan_receive(engine &e, bool immediate);
plan plan_request_to_send(engine &e);
outcome check_test_rts(const engine &e);

// The plan has been carried out (its answer has come, where it wants one): the verb's state change.
void finish(engine &e, const plan &p);

// A CONFIRM is about to be handed to the socket.
void reply_expected(engine &e);
// A Send Error is about to go out: what the partner sends is void until it has seen it, and so is an error of the
// partner that has been read and not told. Only one that wins over ours stays, for look() to tell.
void purge_begin(engine &e);

// A request to send that the program has not been told of; told now.
bool take_rts(engine &e);

// ---- input -------------------------------------------------------------------------------------------------------

// Bytes read from the socket and not taken yet. at and left move as the engine takes them.
struct input
{
    const std::uint8_t *at;
    std::uint32_t left;
    bool ended; // nothing comes after them
};

// The longest thing that must lie in the input as a whole: an ERROR with its log data.
inline constexpr std::uint32_t longest_whole =
    sizeof(wire::frame_header) + sizeof(wire::error_head) + wire::max_log_data;

// Takes what needs no program (requests to send, what is void) and says what comes then. The same answer comes until
// it is taken: data and status by receive_step(), news by take_news().
head look(engine &e, input &in);

// Tells the news and makes its state change. After the end of a conversation the state is reset.
outcome take_news(engine &e);

struct receiving
{
    std::uint8_t *buffer;
    std::uint32_t max;
    std::uint32_t got;
    bool fill_ll;          // basic: one logical record at most; else as many bytes as were asked for
    bool status_with_data;
    bool immediate;        // no part of a mapped record before all of it is there
    bool touched;          // data has come, perhaps of length 0
    std::uint16_t what;    // what_received as the verb record has it
    outcome result;
};

// Goes on with a receive. True: it is complete. False: the input is used up and more is needed; an immediate receive
// that finds no more is ended by receive_now().
bool receive_step(engine &e, receiving &r, input &in);
void receive_now(engine &e, receiving &r);

// Bytes that may be read from the socket straight to buffer + got while the input is empty, and the note that it has
// been done.
std::uint32_t direct_room(const engine &e, const receiving &r);
void direct_done(engine &e, receiving &r, std::uint32_t count);

} // namespace lu62
