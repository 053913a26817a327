// counters.hpp - what programs count of their conversations, read by the broker. A table belongs to the program that
// has sent it, so nothing in it is believed: it can neither harm the broker nor speak of conversations of others. One
// thread.
#pragma once

#include "broker/exchange.hpp"

#include <map>
#include <utility>
#include <vector>

namespace broker {

// A table of one program, mapped read-only.
class counter_view
{
public:
    counter_view() = default;
    ~counter_view();
    counter_view(counter_view &&other) noexcept : table_(std::exchange(other.table_, nullptr)) {}
    counter_view &operator=(counter_view &&other) noexcept
    {
        std::swap(table_, other.table_);
        return *this;
    }

    // True: the descriptor is a table of the right size that nobody can make shorter any more; reading memory that is
    // not there would kill the broker.
    static bool proper(int fd);

    // Maps a proper table; the descriptor stays the caller's. False: the system has no room for it.
    bool open(int fd);

    // The slots in use now, as the program left them.
    std::vector<wire::conversation_counters> read() const;

private:
    const wire::counter_table *table_ = nullptr; // null: the program counts nothing
};

// The ends of conversations that are counted: by session, then by whether it is the allocating end.
using counted_ends = std::map<std::pair<session_id, bool>, wire::conversation_counters>;

// Adds what a program's slots say of conversations that are its own; the rest is left out.
void add_counted(counted_ends &ends, const exchange &books, connection_id program,
                 const std::vector<wire::conversation_counters> &slots);

// The LU 6.2 state for people.
const char *conversation_state_text(std::uint8_t state);

} // namespace broker
