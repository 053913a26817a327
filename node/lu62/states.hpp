// states.hpp - the states of a half-duplex conversation and the one table that says which verb is allowed in which
// state and where verbs and news from the partner lead. Pure data and look-ups; called by the engine and its tests.
#pragma once

#include <cstdint>

namespace lu62 {

// The values are those that GET_STATE returns.
enum class state : std::uint8_t
{
    reset = 0,
    send = 1,
    receive = 2,
    confirm = 3,            // the partner wants a confirmation
    confirm_send = 4,       // the same, and gives the turn with it
    confirm_deallocate = 5, // the same, and the conversation ends with it
    send_pending = 9,       // the turn came together with data
};

// What moves a conversation. First the verbs, then what arrives from the partner, at the moment it is told to the
// program.
enum class input_row : std::uint8_t
{
    send_data,
    flush,
    confirm,
    confirmed,
    prepare_to_receive_flush,
    prepare_to_receive_confirm,
    receive_and_wait,
    receive_immediate,
    request_to_send,
    test_rts,
    send_error,
    deallocate_flush,
    deallocate_confirm,
    deallocate_abend,
    get_state,

    data_came,
    turn_came,               // alone
    data_and_turn_came,
    confirm_came,
    confirm_send_came,
    confirm_deallocate_came,
    error_came,              // Send Error of a partner that had the turn
    error_purging_came,      // Send Error of a partner that had not
    end_came,                // deallocation, abnormal end, refused attach, failure
};
inline constexpr unsigned row_count = 24;
inline constexpr unsigned first_indication = static_cast<unsigned>(input_row::data_came);

enum class cell_kind : std::uint8_t
{
    allowed,     // leads to `next`
    state_check, // a verb that is refused and changes nothing
    impossible,  // a partner that keeps to the protocol cannot cause it
};

struct cell
{
    cell_kind kind;
    state next;
};

cell transition(state now, input_row row);

// Secondary return code of the state check that a verb's row gives.
std::uint32_t state_check_code(input_row row);

} // namespace lu62
