// broker.cpp - the check that every message between a program and the broker passes before anyone believes it. Both
// sides use it, the program's side inside a 32-bit library that has libc only. No state, no lock.
#include "wire/broker.hpp"

#include <cstring>

namespace wire {

// Both sides of the road may be compiled for different word sizes: the records have the same bytes in each.
static_assert(sizeof(hello) == 84 && sizeof(welcome) == 40 && sizeof(find_lu) == 20 && sizeof(lu_found) == 48);
static_assert(sizeof(name_change) == 76 && sizeof(done) == 20 && sizeof(allocate) == 152 && sizeof(allocated) == 44);
static_assert(sizeof(accept) == 20 && sizeof(accepted) == 136 && sizeof(cancel) == 16 && sizeof(ended) == 16);
static_assert(sizeof(query_side_info) == 20 && sizeof(side_info) == 232 && sizeof(control) == 20);
static_assert(sizeof(control_reply) == 28 && sizeof(record) == 28 && sizeof(control_page) == 128);
static_assert(offsetof(control_page, life) == 64);
static_assert(sizeof(conversation_counters) == 32 && sizeof(counter_table) == 32 * (counter_slots + 1));
static_assert(offsetof(conversation_counters, sent) == 8 && offsetof(conversation_counters, received) == 16);

namespace {

// One row per kind: who sends it, how long its fixed part is, whether it is a notice.
struct rule
{
    message_kind kind;
    sender from;
    bool notice;
    std::size_t size;
};

constexpr rule rules[] = {
    {message_kind::hello, sender::program, false, sizeof(hello)},
    {message_kind::welcome, sender::broker, false, sizeof(welcome)},
    {message_kind::find_lu, sender::program, false, sizeof(find_lu)},
    {message_kind::lu_found, sender::broker, false, sizeof(lu_found)},
    {message_kind::add_name, sender::program, false, sizeof(name_change)},
    {message_kind::remove_name, sender::program, false, sizeof(name_change)},
    {message_kind::done, sender::broker, false, sizeof(done)},
    {message_kind::allocate, sender::program, false, sizeof(allocate)},
    {message_kind::allocated, sender::broker, false, sizeof(allocated)},
    {message_kind::accept, sender::program, false, sizeof(accept)},
    {message_kind::accepted, sender::broker, false, sizeof(accepted)},
    {message_kind::cancel, sender::program, false, sizeof(cancel)},
    {message_kind::ended, sender::program, true, sizeof(ended)},
    {message_kind::query_side_info, sender::program, false, sizeof(query_side_info)},
    {message_kind::side_info, sender::broker, false, sizeof(side_info)},
    {message_kind::control, sender::program, false, sizeof(control)},
    {message_kind::control_reply, sender::broker, false, sizeof(control_reply)},
    {message_kind::record, sender::program, true, sizeof(record)},
};

// The 32-bit word at an offset; the message need not be aligned.
std::uint32_t word_at(const void *message, std::size_t offset)
{
    std::uint32_t word;
    std::memcpy(&word, static_cast<const char *>(message) + offset, sizeof word);
    return word;
}

} // namespace

bool message_check(const void *message, std::size_t size, sender from)
{
    message_head head;
    if (size < sizeof head || size > max_message)
    {
        return false;
    }
    std::memcpy(&head, message, sizeof head);
    if (head.zero != 0 || head.length != size)
    {
        return false;
    }
    for (const rule &row : rules)
    {
        if (static_cast<std::uint16_t>(row.kind) != head.kind)
        {
            continue;
        }
        if (row.from != from || row.notice != (head.correlation == 0) || size < row.size)
        {
            return false;
        }
        // What follows the fixed part. No sum can overflow: every count is bounded before it is multiplied.
        std::size_t more = size - row.size;
        if (row.kind == message_kind::accept)
        {
            std::uint32_t count = word_at(message, offsetof(accept, count));
            return count >= 1 && count <= max_accept_names && more == count * tp_name_size;
        }
        if (row.kind == message_kind::control)
        {
            return more == word_at(message, offsetof(control, text_length));
        }
        if (row.kind == message_kind::control_reply)
        {
            return more == word_at(message, offsetof(control_reply, text_length));
        }
        if (row.kind == message_kind::record)
        {
            return more == word_at(message, offsetof(record, text_length));
        }
        return more == 0;
    }
    return false;
}

} // namespace wire
