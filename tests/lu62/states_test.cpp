// states_test.cpp - every cell of the state table, written down a second time in the words of the documentation of the
// verbs, and every verb issued in every state on a live engine.
#include "lu62/pair.hpp"

#include <gtest/gtest.h>

using lu62::cell_kind;
using lu62::input_row;
using lu62::state;

namespace {

struct allowed
{
    input_row row;
    state from;
    state to;
};

// Everything that is allowed or can happen; every pair that is not here is refused (verbs) or impossible (news).
const allowed transitions[] = {
    {input_row::send_data, state::send, state::send},
    {input_row::send_data, state::send_pending, state::send},
    {input_row::flush, state::send, state::send},
    {input_row::flush, state::send_pending, state::send},
    {input_row::confirm, state::send, state::send},
    {input_row::confirm, state::send_pending, state::send},
    {input_row::confirmed, state::confirm, state::receive},
    {input_row::confirmed, state::confirm_send, state::send},
    {input_row::confirmed, state::confirm_deallocate, state::reset},
    {input_row::prepare_to_receive_flush, state::send, state::receive},
    {input_row::prepare_to_receive_flush, state::send_pending, state::receive},
    {input_row::prepare_to_receive_confirm, state::send, state::receive},
    {input_row::prepare_to_receive_confirm, state::send_pending, state::receive},
    {input_row::receive_and_wait, state::send, state::receive},
    {input_row::receive_and_wait, state::receive, state::receive},
    {input_row::receive_and_wait, state::send_pending, state::receive},
    {input_row::receive_immediate, state::receive, state::receive},
    {input_row::request_to_send, state::receive, state::receive},
    {input_row::request_to_send, state::confirm, state::confirm},
    {input_row::request_to_send, state::confirm_send, state::confirm_send},
    {input_row::request_to_send, state::confirm_deallocate, state::confirm_deallocate},
    {input_row::test_rts, state::send, state::send},
    {input_row::test_rts, state::receive, state::receive},
    {input_row::test_rts, state::send_pending, state::send_pending},
    {input_row::send_error, state::send, state::send},
    {input_row::send_error, state::receive, state::send},
    {input_row::send_error, state::confirm, state::send},
    {input_row::send_error, state::confirm_send, state::send},
    {input_row::send_error, state::confirm_deallocate, state::send},
    {input_row::send_error, state::send_pending, state::send},
    {input_row::deallocate_flush, state::send, state::reset},
    {input_row::deallocate_flush, state::send_pending, state::reset},
    {input_row::deallocate_confirm, state::send, state::reset},
    {input_row::deallocate_confirm, state::send_pending, state::reset},
    {input_row::deallocate_abend, state::send, state::reset},
    {input_row::deallocate_abend, state::receive, state::reset},
    {input_row::deallocate_abend, state::confirm, state::reset},
    {input_row::deallocate_abend, state::confirm_send, state::reset},
    {input_row::deallocate_abend, state::confirm_deallocate, state::reset},
    {input_row::deallocate_abend, state::send_pending, state::reset},
    {input_row::get_state, state::send, state::send},
    {input_row::get_state, state::receive, state::receive},
    {input_row::get_state, state::confirm, state::confirm},
    {input_row::get_state, state::confirm_send, state::confirm_send},
    {input_row::get_state, state::confirm_deallocate, state::confirm_deallocate},
    {input_row::get_state, state::send_pending, state::send_pending},

    {input_row::data_came, state::receive, state::receive},
    {input_row::turn_came, state::receive, state::send},
    {input_row::data_and_turn_came, state::receive, state::send_pending},
    {input_row::confirm_came, state::receive, state::confirm},
    {input_row::confirm_send_came, state::receive, state::confirm_send},
    {input_row::confirm_deallocate_came, state::receive, state::confirm_deallocate},
    {input_row::error_came, state::receive, state::receive},
    {input_row::error_purging_came, state::send, state::receive},
    {input_row::error_purging_came, state::send_pending, state::receive},
    {input_row::error_purging_came, state::receive, state::receive},
    {input_row::end_came, state::send, state::reset},
    {input_row::end_came, state::receive, state::reset},
    {input_row::end_came, state::confirm, state::reset},
    {input_row::end_came, state::confirm_send, state::reset},
    {input_row::end_came, state::confirm_deallocate, state::reset},
    {input_row::end_came, state::send_pending, state::reset},
};

constexpr state all_states[] = {state::reset,        state::send,               state::receive,     state::confirm,
                                state::confirm_send, state::confirm_deallocate, state::send_pending};

const allowed *find(input_row row, state from)
{
    for (const allowed &entry : transitions)
    {
        if (entry.row == row && entry.from == from)
        {
            return &entry;
        }
    }
    return nullptr;
}

TEST(States, EveryCell)
{
    for (unsigned i = 0; i < lu62::row_count; i++)
    {
        const auto row = static_cast<input_row>(i);
        for (const state from : all_states)
        {
            SCOPED_TRACE(testing::Message() << "row " << i << " state " << static_cast<unsigned>(from));
            const allowed *expected = find(row, from);
            const lu62::cell cell = lu62::transition(from, row);
            if (expected != nullptr)
            {
                EXPECT_EQ(cell.kind, cell_kind::allowed);
                EXPECT_EQ(cell.next, expected->to);
            }
            else
            {
                EXPECT_EQ(cell.kind, i < lu62::first_indication ? cell_kind::state_check : cell_kind::impossible);
                EXPECT_EQ(cell.next, from);
            }
        }
    }
}

TEST(States, NumbersOfGetState)
{
    EXPECT_EQ(static_cast<unsigned>(state::reset), 0u);
    EXPECT_EQ(static_cast<unsigned>(state::send), 1u);
    EXPECT_EQ(static_cast<unsigned>(state::receive), 2u);
    EXPECT_EQ(static_cast<unsigned>(state::confirm), 3u);
    EXPECT_EQ(static_cast<unsigned>(state::confirm_send), 4u);
    EXPECT_EQ(static_cast<unsigned>(state::confirm_deallocate), 5u);
    EXPECT_EQ(static_cast<unsigned>(state::send_pending), 9u);
}

struct verb_case
{
    const char *name;
    input_row row;
    lu62::plan (*plan)(lu62::engine &);
};

const verb_case verbs[] = {
    {"send", input_row::send_data, [](lu62::engine &e) { return lu62::plan_send_data(e, 0, nullptr, 0); }},
    {"send flush", input_row::send_data, [](lu62::engine &e) { return lu62::plan_send_data(e, 1, nullptr, 0); }},
    {"send confirm", input_row::send_data, [](lu62::engine &e) { return lu62::plan_send_data(e, 2, nullptr, 0); }},
    {"send turn", input_row::send_data, [](lu62::engine &e) { return lu62::plan_send_data(e, 3, nullptr, 0); }},
    {"send turn confirm", input_row::send_data,
     [](lu62::engine &e) { return lu62::plan_send_data(e, 4, nullptr, 0); }},
    {"send end", input_row::send_data, [](lu62::engine &e) { return lu62::plan_send_data(e, 5, nullptr, 0); }},
    {"send end confirm", input_row::send_data, [](lu62::engine &e) { return lu62::plan_send_data(e, 6, nullptr, 0); }},
    {"send abend", input_row::send_data, [](lu62::engine &e) { return lu62::plan_send_data(e, 7, nullptr, 0); }},
    {"flush", input_row::flush, lu62::plan_flush},
    {"confirm", input_row::confirm, lu62::plan_confirm},
    {"confirmed", input_row::confirmed, lu62::plan_confirmed},
    {"prepare", input_row::prepare_to_receive_flush,
     [](lu62::engine &e) { return lu62::plan_prepare_to_receive(e, 1); }},
    {"prepare confirm", input_row::prepare_to_receive_confirm,
     [](lu62::engine &e) { return lu62::plan_prepare_to_receive(e, 0); }},
    {"receive", input_row::receive_and_wait, [](lu62::engine &e) { return lu62::plan_receive(e, false); }},
    {"receive now", input_row::receive_immediate, [](lu62::engine &e) { return lu62::plan_receive(e, true); }},
    {"request", input_row::request_to_send, lu62::plan_request_to_send},
    {"error", input_row::send_error, [](lu62::engine &e) { return lu62::plan_send_error(e, 0, 0); }},
    {"end", input_row::deallocate_flush, [](lu62::engine &e) { return lu62::plan_deallocate(e, 1); }},
    {"end confirm", input_row::deallocate_confirm, [](lu62::engine &e) { return lu62::plan_deallocate(e, 0); }},
    {"abend", input_row::deallocate_abend, [](lu62::engine &e) { return lu62::plan_deallocate(e, 2); }},
    {"test", input_row::test_rts,
     [](lu62::engine &e) {
         lu62::plan p{};
         p.refused = lu62::check_test_rts(e);
         p.row = input_row::test_rts;
         return p;
     }},
};

// A refused verb is a state check with a secondary code of its own and changes nothing of the engine.
TEST(States, EveryVerbInEveryState)
{
    for (const bool mapped : {false, true})
    {
        for (const state now : all_states)
        {
            for (const verb_case &verb : verbs)
            {
                SCOPED_TRACE(testing::Message() << verb.name << " in state " << static_cast<unsigned>(now));
                lu62::engine e;
                std::memset(&e, 0, sizeof e);
                lu62::engine_init(e, mapped, true, true);
                e.now = now;
                const lu62::engine before = e;
                const lu62::plan p = verb.plan(e);
                if (find(verb.row, now) != nullptr)
                {
                    EXPECT_EQ(p.refused.primary, wire::rc_ok);
                    lu62::finish(e, p);
                    const state from = verb.row == input_row::send_data ? state::send : now;
                    EXPECT_EQ(e.now, lu62::transition(from, p.row).next);
                }
                else
                {
                    EXPECT_EQ(p.refused.primary, wire::rc_state_check);
                    EXPECT_EQ(p.refused.secondary, lu62::state_check_code(verb.row));
                    EXPECT_NE(p.refused.secondary, 0u);
                    EXPECT_EQ(e.now, before.now);
                    EXPECT_EQ(std::memcmp(&e, &before, sizeof e), 0);
                }
            }
        }
    }
}

// Where the types of SEND_DATA lead, from send state, by sync level.
TEST(States, SendTypes)
{
    const state none[8] = {state::send,    state::send,  state::send,  state::receive,
                           state::receive, state::reset, state::reset, state::reset};
    for (const bool confirm : {false, true})
    {
        for (std::uint8_t type = 0; type < 8; type++)
        {
            SCOPED_TRACE(testing::Message() << "type " << unsigned{type} << " confirm " << confirm);
            lu62::engine e;
            lu62::engine_init(e, true, confirm, true);
            const lu62::plan p = lu62::plan_send_data(e, type, nullptr, 0);
            if (type == 2 && !confirm)
            {
                EXPECT_EQ(p.refused.primary, wire::rc_parameter_check);
                EXPECT_EQ(p.refused.secondary, wire::rc_confirm_on_sync_level_none);
                continue;
            }
            ASSERT_EQ(p.refused.primary, wire::rc_ok);
            EXPECT_EQ(p.flush, type != 0);
            EXPECT_EQ(p.reply, confirm && (type == 2 || type == 4 || type == 6));
            EXPECT_EQ(p.abend, type == 7);
            lu62::finish(e, p);
            EXPECT_EQ(e.now, none[type]);
        }
    }
}

TEST(States, WrongTypesAreParameterChecks)
{
    lu62::engine e;
    lu62::engine_init(e, true, true, true);
    EXPECT_EQ(lu62::plan_send_data(e, 8, nullptr, 0).refused.primary, wire::rc_parameter_check);
    EXPECT_EQ(lu62::plan_prepare_to_receive(e, 2).refused.primary, wire::rc_parameter_check);
    EXPECT_EQ(lu62::plan_deallocate(e, 6).refused.primary, wire::rc_parameter_check);
    EXPECT_EQ(lu62::plan_deallocate(e, 6).refused.secondary, wire::rc_bad_deallocate_type);
    EXPECT_EQ(lu62::plan_send_error(e, 2, 0).refused.primary, wire::rc_parameter_check);
    EXPECT_EQ(e.now, state::send);
}

TEST(States, ConfirmOnSyncLevelNone)
{
    lu62::engine e;
    lu62::engine_init(e, true, false, true);
    const lu62::plan p = lu62::plan_confirm(e);
    EXPECT_EQ(p.refused.primary, wire::rc_parameter_check);
    EXPECT_EQ(p.refused.secondary, wire::rc_confirm_on_sync_level_none);
    // Types that follow the sync level do without.
    EXPECT_FALSE(lu62::plan_prepare_to_receive(e, 0).reply);
    EXPECT_FALSE(lu62::plan_deallocate(e, 0).reply);
}

} // namespace
