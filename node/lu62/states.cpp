// states.cpp - the state table. One line is one verb or one kind of news, one column is one state; an entry is the next
// state, `no` for a state check, `xx` for what cannot happen. It is meant to be read beside the architecture's matrix.
#include "lu62/states.hpp"

namespace lu62 {

namespace {

constexpr std::uint8_t no = 0xFE;
constexpr std::uint8_t xx = 0xFF;
constexpr std::uint8_t RS = static_cast<std::uint8_t>(state::reset);
constexpr std::uint8_t SD = static_cast<std::uint8_t>(state::send);
constexpr std::uint8_t RV = static_cast<std::uint8_t>(state::receive);
constexpr std::uint8_t CF = static_cast<std::uint8_t>(state::confirm);
constexpr std::uint8_t CS = static_cast<std::uint8_t>(state::confirm_send);
constexpr std::uint8_t CD = static_cast<std::uint8_t>(state::confirm_deallocate);
constexpr std::uint8_t SP = static_cast<std::uint8_t>(state::send_pending);

struct table_row
{
    input_row row;
    std::uint32_t state_check; // secondary return code of `no`
    std::uint8_t next[7];
};

// The numbers of the state checks are those that the verbs' documentation has always had; a verb without one of its own
// shares the code of the verb it is closest to.
constexpr table_row table[] = {
    //                                              reset  send  receive confirm conf.send conf.deal send pend.
    {input_row::send_data, 0xF2,                    {no,   SD,   no,     no,     no,       no,       SD}},
    {input_row::flush, 0x61,                        {no,   SD,   no,     no,     no,       no,       SD}},
    {input_row::confirm, 0x32,                      {no,   SD,   no,     no,     no,       no,       SD}},
    {input_row::confirmed, 0x41,                    {no,   no,   no,     RV,     SD,       RS,       no}},
    {input_row::prepare_to_receive_flush, 0xA3,     {no,   RV,   no,     no,     no,       no,       RV}},
    {input_row::prepare_to_receive_confirm, 0xA3,   {no,   RV,   no,     no,     no,       no,       RV}},
    {input_row::receive_and_wait, 0xB1,             {no,   RV,   RV,     no,     no,       no,       RV}},
    {input_row::receive_immediate, 0xC1,            {no,   no,   RV,     no,     no,       no,       no}},
    {input_row::request_to_send, 0xE1,              {no,   no,   RV,     CF,     CS,       CD,       no}},
    {input_row::test_rts, 0x121,                    {no,   SD,   RV,     no,     no,       no,       SP}},
    {input_row::send_error, 0x101,                  {no,   SD,   SD,     SD,     SD,       SD,       SD}},
    {input_row::deallocate_flush, 0x52,             {no,   RS,   no,     no,     no,       no,       RS}},
    {input_row::deallocate_confirm, 0x53,           {no,   RS,   no,     no,     no,       no,       RS}},
    {input_row::deallocate_abend, 0x52,             {no,   RS,   RS,     RS,     RS,       RS,       RS}},
    {input_row::get_state, 0x12,                    {no,   SD,   RV,     CF,     CS,       CD,       SP}},

    {input_row::data_came, 0,                       {xx,   xx,   RV,     xx,     xx,       xx,       xx}},
    {input_row::turn_came, 0,                       {xx,   xx,   SD,     xx,     xx,       xx,       xx}},
    {input_row::data_and_turn_came, 0,              {xx,   xx,   SP,     xx,     xx,       xx,       xx}},
    {input_row::confirm_came, 0,                    {xx,   xx,   CF,     xx,     xx,       xx,       xx}},
    {input_row::confirm_send_came, 0,               {xx,   xx,   CS,     xx,     xx,       xx,       xx}},
    {input_row::confirm_deallocate_came, 0,         {xx,   xx,   CD,     xx,     xx,       xx,       xx}},
    {input_row::error_came, 0,                      {xx,   xx,   RV,     xx,     xx,       xx,       xx}},
    {input_row::error_purging_came, 0,              {xx,   RV,   RV,     xx,     xx,       xx,       RV}},
    {input_row::end_came, 0,                        {xx,   RS,   RS,     RS,     RS,       RS,       RS}},
};
static_assert(sizeof(table) / sizeof(table[0]) == row_count);

constexpr bool in_order()
{
    for (unsigned i = 0; i < row_count; i++)
    {
        if (static_cast<unsigned>(table[i].row) != i)
        {
            return false;
        }
    }
    return true;
}
static_assert(in_order());

unsigned column(state now)
{
    return now == state::send_pending ? 6 : static_cast<unsigned>(now);
}

} // namespace

cell transition(state now, input_row row)
{
    const std::uint8_t next = table[static_cast<unsigned>(row)].next[column(now)];

    if (next == no)
    {
        return {cell_kind::state_check, now};
    }
    if (next == xx)
    {
        return {cell_kind::impossible, now};
    }
    return {cell_kind::allowed, static_cast<state>(next)};
}

std::uint32_t state_check_code(input_row row)
{
    return table[static_cast<unsigned>(row)].state_check;
}

} // namespace lu62
