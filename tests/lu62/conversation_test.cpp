// conversation_test.cpp - two engines that talk as they should: mapped records, turns, confirmation, deallocation,
// requests to send.
#include "lu62/pair.hpp"

#include <gtest/gtest.h>

using lu62::state;
using lu62_test::pair;
using lu62_test::received;
using lu62_test::waiting;

namespace {

TEST(Conversation, BeginsWithTheAllocatorSending)
{
    pair p(true);
    EXPECT_EQ(p.a.e.now, state::send);
    EXPECT_EQ(p.b.e.now, state::receive);
}

TEST(Conversation, MappedRecordsStayApart)
{
    pair p(true);
    EXPECT_EQ(p.a.send("one"), wire::rc_ok);
    EXPECT_EQ(p.a.send(""), wire::rc_ok);
    EXPECT_EQ(p.a.wire_out, ""); // gathered
    EXPECT_EQ(p.a.send("three", 3), wire::rc_ok);
    EXPECT_EQ(p.a.e.now, state::receive);
    p.pump();
    received got = p.b.receive(32767);
    EXPECT_EQ(got.data, "one");
    EXPECT_EQ(got.what, 0x0200);
    got = p.b.receive(32767);
    EXPECT_EQ(got.data, "");
    EXPECT_EQ(got.what, 0x0200);
    got = p.b.receive(32767);
    EXPECT_EQ(got.data, "three");
    EXPECT_EQ(got.what, 0x0201);
    EXPECT_EQ(p.b.e.now, state::send_pending);
}

TEST(Conversation, StatusAloneWhenTheVerbWantsIt)
{
    pair p(true);
    ASSERT_EQ(p.a.send("data", 3), wire::rc_ok);
    p.pump();
    received got = p.b.receive(100, true, false);
    EXPECT_EQ(got.what, 0x0200);
    EXPECT_EQ(p.b.e.now, state::receive);
    got = p.b.receive(100, true, false);
    EXPECT_EQ(got.what, 0x0001);
    EXPECT_EQ(got.data, "");
    EXPECT_EQ(p.b.e.now, state::send);
}

TEST(Conversation, MappedIncomplete)
{
    pair p(true);
    ASSERT_EQ(p.a.send("abcdef", 3), wire::rc_ok);
    p.pump();
    EXPECT_EQ(p.b.receive(0).what, 0x0400);
    received got = p.b.receive(4);
    EXPECT_EQ(got.what, 0x0400);
    EXPECT_EQ(got.data, "abcd");
    EXPECT_EQ(p.b.e.now, state::receive);
    got = p.b.receive(2);
    EXPECT_EQ(got.what, 0x0201);
    EXPECT_EQ(got.data, "ef");
}

TEST(Conversation, ImmediateNeverSeesPartOfARecord)
{
    pair sample(true);
    ASSERT_EQ(sample.a.send("abcdef", 1), wire::rc_ok);
    const std::string all = sample.a.wire_out;
    for (std::size_t portion = 0; portion < all.size(); portion++)
    {
        pair p(true);
        p.b.wire_in = all.substr(0, portion);
        EXPECT_EQ(p.b.receive(100, true, true, true).primary, wire::rc_unsuccessful);
        p.b.wire_in += all.substr(portion);
        if (portion >= 8)
        {
            p.b.wire_in = all.substr(portion < 8 ? portion : 8);
        }
        const received got = p.b.receive(100, true, true, true);
        EXPECT_EQ(got.data, "abcdef");
        EXPECT_EQ(got.what, 0x0200);
    }
}

TEST(Conversation, ReceiveInSendStateGivesTheTurn)
{
    pair p(true);
    ASSERT_EQ(p.a.send("ask"), wire::rc_ok);
    EXPECT_EQ(p.a.receive(100).primary, waiting);
    EXPECT_EQ(p.a.e.now, state::receive);
    p.pump();
    EXPECT_EQ(p.b.receive(100).what, 0x0201);
    // And so in send pending state, with nothing sent.
    EXPECT_EQ(p.b.receive(100).primary, waiting);
    EXPECT_EQ(p.b.e.now, state::receive);
    p.pump();
    EXPECT_EQ(p.a.receive(100).what, 0x0001);
    EXPECT_EQ(p.a.e.now, state::send);
}

TEST(Conversation, Confirm)
{
    pair p(true);
    ASSERT_EQ(p.a.send("x"), wire::rc_ok);
    ASSERT_EQ(p.a.confirm(), waiting);
    EXPECT_EQ(p.a.go_on(), waiting);
    p.pump();
    EXPECT_EQ(p.b.receive(100).what, 0x0202);
    EXPECT_EQ(p.b.e.now, state::confirm);
    EXPECT_EQ(p.b.send("no"), wire::rc_state_check);
    EXPECT_EQ(p.b.receive(100).primary, wire::rc_state_check);
    EXPECT_EQ(p.b.confirmed(), wire::rc_ok);
    EXPECT_EQ(p.b.e.now, state::receive);
    p.pump();
    EXPECT_EQ(p.a.go_on(), wire::rc_ok);
    EXPECT_EQ(p.a.e.now, state::send);
    // The next confirmation stands on its own.
    ASSERT_EQ(p.a.confirm(), waiting);
    EXPECT_EQ(p.a.go_on(), waiting);
    p.pump();
    EXPECT_EQ(p.b.receive(100).what, 0x0002);
}

TEST(Conversation, ConfirmWithTheTurn)
{
    pair p(true);
    ASSERT_EQ(p.a.send("x", 4), waiting);
    p.pump();
    EXPECT_EQ(p.b.receive(100).what, 0x0203);
    EXPECT_EQ(p.b.e.now, state::confirm_send);
    EXPECT_EQ(p.b.confirmed(), wire::rc_ok);
    EXPECT_EQ(p.b.e.now, state::send);
    p.pump();
    EXPECT_EQ(p.a.go_on(), wire::rc_ok);
    EXPECT_EQ(p.a.e.now, state::receive);
    ASSERT_EQ(p.b.send("y", 1), wire::rc_ok);
    p.pump();
    EXPECT_EQ(p.a.receive(100).data, "y");
}

TEST(Conversation, DeallocateConfirmed)
{
    pair p(true);
    ASSERT_EQ(p.a.deallocate(0), waiting);
    p.pump();
    EXPECT_EQ(p.b.receive(100).what, 0x0004);
    EXPECT_EQ(p.b.e.now, state::confirm_deallocate);
    EXPECT_EQ(p.b.confirmed(), wire::rc_ok);
    EXPECT_EQ(p.b.e.now, state::reset);
    p.pump();
    EXPECT_EQ(p.a.go_on(), wire::rc_ok);
    EXPECT_EQ(p.a.e.now, state::reset);
}

TEST(Conversation, DeallocateFlushTellsTheDataFirst)
{
    for (const std::uint8_t type : {std::uint8_t{5}, std::uint8_t{0}})
    {
        pair p(true);
        if (type == 5)
        {
            ASSERT_EQ(p.a.send("last", 5), wire::rc_ok);
        }
        else
        {
            ASSERT_EQ(p.a.send("last"), wire::rc_ok);
            ASSERT_EQ(p.a.deallocate(1), wire::rc_ok);
        }
        EXPECT_EQ(p.a.e.now, state::reset);
        p.pump();
        p.b.ended = true;
        const received got = p.b.receive(100);
        EXPECT_EQ(got.data, "last");
        EXPECT_EQ(got.what, 0x0200);
        EXPECT_EQ(p.b.receive(100).primary, wire::rc_dealloc_normal);
        EXPECT_EQ(p.b.e.now, state::reset);
    }
}

TEST(Conversation, RequestToSendIsToldOnce)
{
    pair p(true);
    ASSERT_EQ(p.a.send("x", 1), wire::rc_ok);
    p.pump();
    ASSERT_EQ(p.b.receive(100).data, "x");
    EXPECT_EQ(p.b.request_to_send(), wire::rc_ok);
    EXPECT_FALSE(p.a.rts());
    p.pump();
    EXPECT_TRUE(p.a.rts());
    EXPECT_FALSE(p.a.rts());
    EXPECT_EQ(p.a.request_to_send(), wire::rc_state_check);
    EXPECT_EQ(lu62::check_test_rts(p.a.e).primary, wire::rc_ok);
}

TEST(Conversation, RequestToSendWhileConfirming)
{
    pair p(true);
    ASSERT_EQ(p.a.confirm(), waiting);
    p.pump();
    ASSERT_EQ(p.b.receive(100).what, 0x0002);
    EXPECT_EQ(lu62::check_test_rts(p.b.e).primary, wire::rc_state_check);
    EXPECT_EQ(p.b.request_to_send(), wire::rc_ok);
    EXPECT_EQ(p.b.confirmed(), wire::rc_ok);
    p.pump();
    EXPECT_EQ(p.a.go_on(), wire::rc_ok);
    EXPECT_TRUE(p.a.rts());
}

TEST(Conversation, PartnerGone)
{
    pair p(true);
    ASSERT_EQ(p.a.send("x", 1), wire::rc_ok);
    p.pump();
    p.b.ended = true;
    EXPECT_EQ(p.b.receive(100).data, "x");
    EXPECT_EQ(p.b.receive(100).primary, wire::rc_conv_failure_retry);
    EXPECT_EQ(p.b.e.now, state::reset);
    p.a.ended = true;
    EXPECT_EQ(p.a.confirm(), waiting);
    EXPECT_EQ(p.a.go_on(), wire::rc_conv_failure_retry);
}

// The end of the socket in the middle of a frame is a failure, after what had come whole.
TEST(Conversation, PartnerGoneInTheMiddleOfAFrame)
{
    pair sample(true);
    ASSERT_EQ(sample.a.send("abcdef", 3), wire::rc_ok);
    const std::string all = sample.a.wire_out;
    for (const bool immediate : {false, true})
    {
        for (std::size_t portion = 0; portion < all.size(); portion++)
        {
            pair p(true);
            p.b.wire_in = all.substr(0, portion);
            p.b.ended = true;
            received got = p.b.receive(100, true, true, immediate);
            if (portion > 8 && !immediate)
            {
                EXPECT_EQ(got.what, 0x0400);
                EXPECT_EQ(got.data, std::string("abcdef").substr(0, portion - 8));
                got = p.b.receive(100, true, true, immediate);
            }
            EXPECT_EQ(got.primary, wire::rc_conv_failure_retry);
        }
    }
}

} // namespace
