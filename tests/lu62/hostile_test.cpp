// hostile_test.cpp - what a partner must not send: every such frame fails the conversation without retry, whatever was
// going on, and nothing is read beyond what has come.
#include "lu62/pair.hpp"

#include <gtest/gtest.h>

#include <random>

using lu62::state;
using lu62_test::error_frame;
using lu62_test::frame;
using lu62_test::record;

namespace {

constexpr std::uint8_t turn = wire::flag_turn;
constexpr std::uint8_t confirm = wire::flag_confirm;
constexpr std::uint8_t finish = wire::flag_end;
constexpr std::uint8_t whole = wire::flag_record_end;

std::uint32_t receive_all(lu62_test::end &e)
{
    for (int i = 0; i < 100; i++)
    {
        const lu62_test::received got = e.receive(1000);
        if (got.primary != wire::rc_ok)
        {
            return got.primary;
        }
    }
    return wire::rc_ok;
}

void expect_violation(bool mapped, state now, const std::string &bytes, bool sync_confirm = true)
{
    lu62_test::end e(mapped, sync_confirm, true);
    e.e.now = now;
    e.wire_in = bytes;
    EXPECT_EQ(now == state::receive ? receive_all(e) : e.news(), wire::rc_conv_failure_no_retry);
    EXPECT_EQ(e.e.now, state::reset);
}

TEST(Hostile, FramesThatCannotExist)
{
    const auto data = wire::frame_kind::data;
    std::string samples[] = {
        frame(static_cast<wire::frame_kind>(0), 0),
        frame(static_cast<wire::frame_kind>(7), 0),
        frame(wire::frame_kind::attach, 0),
        frame(wire::frame_kind::attach, 1),
        frame(data, 0),
        frame(data, turn | finish),
        frame(data, 0x10, "x"),
        frame(data, 0x80, "x"),
        frame(data, whole, std::string(65536, 'x')),
        frame(wire::frame_kind::reply, 1),
        frame(wire::frame_kind::request_to_send, 0, "x"),
        frame(wire::frame_kind::purged, 2),
        frame(wire::frame_kind::error, 0, "1234567"),
        frame(wire::frame_kind::error, 0, std::string(8 + 32768, 'x')),
        frame(wire::frame_kind::error, turn, std::string(8, '\0')),
        error_frame(wire::flag_purging | finish, wire::sense_abend_program),
        error_frame(wire::flag_purging | wire::flag_truncated, wire::sense_program_error),
        std::string("\xFF\xFF\xFF\xFF\x02\x01\x00\x00", 8),
        std::string("\x01\x00\x00\x00\x02\x01\x01\x00", 8),
        std::string("\x01\x00\x00\x00\x02\x01\x00\x01", 8),
    };
    for (const std::string &sample : samples)
    {
        SCOPED_TRACE(testing::PrintToString(sample.substr(0, 8)));
        expect_violation(true, state::receive, sample);
        expect_violation(true, state::send, sample);
    }
}

TEST(Hostile, FramesAtTheWrongTime)
{
    const auto data = wire::frame_kind::data;
    // Without the turn.
    for (const state now : {state::send, state::send_pending, state::confirm, state::confirm_send,
                            state::confirm_deallocate})
    {
        expect_violation(true, now, frame(data, whole, "x"));
        expect_violation(true, now, frame(data, turn));
        expect_violation(true, now, frame(data, finish));
        expect_violation(true, now, error_frame(0, wire::sense_program_error));
    }
    // A Send Error of a partner that waits for a confirmation.
    for (const state now : {state::confirm, state::confirm_send, state::confirm_deallocate})
    {
        expect_violation(true, now, error_frame(wire::flag_purging, wire::sense_program_error));
    }
    // Answers that nobody asked for.
    for (const state now : {state::send, state::receive})
    {
        expect_violation(true, now, frame(wire::frame_kind::reply, 0));
        expect_violation(true, now, frame(wire::frame_kind::purged, 0));
    }
}

// The program learns of the turn first, then of the failure.
TEST(Hostile, DataBehindTheTurn)
{
    lu62_test::end e(true, true, false);
    e.wire_in = frame(wire::frame_kind::data, whole | turn, "x") + frame(wire::frame_kind::data, whole, "y");
    EXPECT_EQ(e.receive(10).what, 0x0201);
    EXPECT_EQ(e.flush(), wire::rc_conv_failure_no_retry);
}

TEST(Hostile, RecordsThatBreakOff)
{
    const auto data = wire::frame_kind::data;
    expect_violation(true, state::receive, frame(data, turn, "part"));
    expect_violation(true, state::receive, frame(data, 0, "part") + frame(data, finish));
    expect_violation(false, state::receive, frame(data, whole, record("x")));
    expect_violation(false, state::receive, frame(data, turn, record("abc").substr(0, 4)));
    expect_violation(false, state::receive, frame(data, finish, record("abc").substr(0, 1)));
    expect_violation(false, state::receive, frame(data, 0, std::string("\0\1", 2)));
    expect_violation(false, state::receive, frame(data, 0, record("abc").substr(0, 4)) +
                                                error_frame(0, wire::sense_program_error));
    expect_violation(true, state::receive, frame(data, confirm), false);
}

TEST(Hostile, SenseDataOfNoKind)
{
    expect_violation(true, state::receive, error_frame(0, 0x12345678));
    expect_violation(true, state::receive, error_frame(finish, 0x12345678));
    expect_violation(true, state::send, error_frame(wire::flag_purging, wire::sense_abend_program));
    // An attach that this end never sent cannot be refused.
    lu62_test::end accepting(true, true, false);
    accepting.wire_in = error_frame(finish, wire::sense_tp_name_not_recognised);
    EXPECT_EQ(receive_all(accepting), wire::rc_conv_failure_no_retry);
}

// Random bytes and random mutations of good traffic, into every kind of end: each verb returns, and the same bytes in
// other portions give the same answer.
TEST(Hostile, RandomBytes)
{
    std::mt19937 random(20240607);
    for (int round = 0; round < 20000; round++)
    {
        const bool mapped = (random() & 1) != 0;
        lu62_test::end sender(mapped, true, true);
        for (int i = 0; i < 3; i++)
        {
            sender.send(mapped ? "data" : record("data"), static_cast<std::uint8_t>(random() % 2));
        }
        if ((random() & 1) != 0)
        {
            sender.error();
        }
        sender.prepare(1);
        std::string bytes = sender.wire_out;
        for (auto i = random() % 4; i != 0; i--)
        {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        if (random() % 10 == 0)
        {
            for (char &byte : bytes)
            {
                byte = static_cast<char>(random() % 8);
            }
        }
        const bool ll = (random() & 1) != 0;
        const auto max = static_cast<std::uint32_t>(random() % 12);
        lu62_test::end receiver(mapped, true, false);
        receiver.wire_in = bytes;
        receiver.ended = true;
        if ((random() & 3) == 0)
        {
            receiver.error();
        }
        unsigned verbs = 0;
        while (receiver.e.now == state::receive && verbs < 1000)
        {
            const lu62_test::received got = receiver.receive(max, ll);
            ASSERT_NE(got.primary, lu62_test::waiting);
            ASSERT_LE(got.data.size(), max);
            if (max == 0 && (got.what == 0x0400 || got.what == 0x0100))
            {
                break; // a receive of nothing does not get on
            }
            verbs++;
        }
        ASSERT_LT(verbs, 1000u);
    }
}

} // namespace
