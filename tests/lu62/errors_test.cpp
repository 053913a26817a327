// errors_test.cpp - Send Error in every place, crossing included; abnormal ends; refused attaches; log data.
#include "lu62/pair.hpp"

#include <gtest/gtest.h>

using lu62::state;
using lu62_test::error_frame;
using lu62_test::pair;
using lu62_test::received;
using lu62_test::record;
using lu62_test::waiting;

namespace {

TEST(Errors, OfTheReceiverPurges)
{
    for (const std::uint8_t type : {std::uint8_t{0}, std::uint8_t{1}})
    {
        pair p(true);
        ASSERT_EQ(p.a.send("one"), wire::rc_ok);
        ASSERT_EQ(p.a.send("two", 1), wire::rc_ok);
        p.pump();
        ASSERT_EQ(p.b.receive(100).data, "one");
        EXPECT_EQ(p.b.error(type), wire::rc_ok);
        EXPECT_EQ(p.b.e.now, state::send);
        // The partner does not know yet and sends on; all of it is void.
        ASSERT_EQ(p.a.send("three", 1), wire::rc_ok);
        ASSERT_EQ(p.b.send("reply", 3), wire::rc_ok);
        p.pump();
        ASSERT_EQ(p.a.send("four"), wire::rc_ok);
        EXPECT_EQ(p.a.flush(), type == 0 ? wire::rc_program_error_purging : wire::rc_service_error_purging);
        EXPECT_EQ(p.a.e.now, state::receive);
        received got = p.a.receive(100);
        EXPECT_EQ(got.data, "reply");
        EXPECT_EQ(got.what, 0x0201);
        ASSERT_EQ(p.a.send("five", 1), wire::rc_ok);
        p.pump();
        EXPECT_EQ(p.b.receive(100).data, "five");
        EXPECT_EQ(p.b.e.purging, 0u);
    }
}

TEST(Errors, OfTheSenderBetweenRecordsAndInside)
{
    for (const bool inside : {false, true})
    {
        for (const std::uint8_t type : {std::uint8_t{0}, std::uint8_t{1}})
        {
            pair p(false);
            ASSERT_EQ(p.a.send(record("abc") + (inside ? record("defg").substr(0, 4) : "")), wire::rc_ok);
            EXPECT_EQ(p.a.error(type, 0), wire::rc_ok);
            EXPECT_EQ(p.a.e.now, state::send);
            ASSERT_EQ(p.a.send(record("next"), 3), wire::rc_ok);
            p.pump();
            EXPECT_EQ(p.b.receive(100).data, record("abc"));
            received got = p.b.receive(100);
            if (inside)
            {
                EXPECT_EQ(got.what, 0x0400);
                EXPECT_EQ(got.data, record("defg").substr(0, 4));
                got = p.b.receive(100);
                EXPECT_EQ(got.primary, type == 0 ? wire::rc_program_error_trunc : wire::rc_service_error_trunc);
            }
            else
            {
                EXPECT_EQ(got.primary, type == 0 ? wire::rc_program_error_no_trunc : wire::rc_service_error_no_trunc);
            }
            EXPECT_EQ(p.b.e.now, state::receive);
            got = p.b.receive(100);
            EXPECT_EQ(got.data, record("next"));
            EXPECT_EQ(got.what, 0x0201);
        }
    }
}

TEST(Errors, InsideTheLl)
{
    pair p(false);
    ASSERT_EQ(p.a.send(std::string("\0", 1)), wire::rc_ok);
    EXPECT_EQ(p.a.error(), wire::rc_ok);
    p.pump();
    EXPECT_EQ(p.b.receive(100).what, 0x0400);
    EXPECT_EQ(p.b.receive(100).primary, wire::rc_program_error_trunc);
}

TEST(Errors, SendPendingDirection)
{
    for (const std::uint8_t direction : {std::uint8_t{0}, std::uint8_t{1}})
    {
        pair p(true);
        ASSERT_EQ(p.a.send("x", 3), wire::rc_ok);
        p.pump();
        ASSERT_EQ(p.b.receive(100).what, 0x0201);
        ASSERT_EQ(p.b.e.now, state::send_pending);
        EXPECT_EQ(p.b.error(0, direction), wire::rc_ok);
        EXPECT_EQ(p.b.e.now, state::send);
        ASSERT_EQ(p.b.send("y", 3), wire::rc_ok);
        p.pump();
        EXPECT_EQ(p.a.receive(100).primary,
                  direction == 1 ? wire::rc_program_error_no_trunc : wire::rc_program_error_purging);
        EXPECT_EQ(p.a.receive(100).what, 0x0201);
        p.pump();
        ASSERT_EQ(p.a.send("z", 1), wire::rc_ok);
        p.pump();
        EXPECT_EQ(p.b.receive(100).data, "z");
    }
}

TEST(Errors, NegativeAnswers)
{
    // CONFIRM, PREPARE_TO_RECEIVE with confirmation, DEALLOCATE with confirmation.
    for (int which = 0; which < 3; which++)
    {
        pair p(true);
        const std::uint32_t begun = which == 0 ? p.a.confirm() : which == 1 ? p.a.prepare(0) : p.a.deallocate(0);
        ASSERT_EQ(begun, waiting);
        p.pump();
        EXPECT_EQ(p.b.receive(100).what, which == 0 ? 2 : which == 1 ? 3 : 4);
        EXPECT_EQ(p.b.error(1), wire::rc_ok);
        EXPECT_EQ(p.b.e.now, state::send);
        p.pump();
        EXPECT_EQ(p.a.go_on(), wire::rc_service_error_purging);
        EXPECT_EQ(p.a.e.now, state::receive);
        ASSERT_EQ(p.b.send("why", 3), wire::rc_ok);
        p.pump();
        EXPECT_EQ(p.a.receive(100).data, "why");
        EXPECT_EQ(p.a.confirm(), waiting);
        p.pump();
        EXPECT_EQ(p.b.receive(100).what, 0x0002);
    }
}

// The partner gave the turn, or asked, before it could see the error: that is void too.
TEST(Errors, CrossingTheTurn)
{
    for (int which = 0; which < 3; which++)
    {
        pair p(true);
        ASSERT_EQ(p.a.send("x", 1), wire::rc_ok);
        p.pump();
        ASSERT_EQ(p.b.receive(100).data, "x");
        const std::uint32_t begun = which == 0 ? p.a.prepare(1) : which == 1 ? p.a.confirm() : p.a.deallocate(0);
        ASSERT_EQ(begun, which == 0 ? wire::rc_ok : waiting);
        ASSERT_EQ(p.b.error(), wire::rc_ok); // nothing of it has arrived
        p.pump();
        EXPECT_EQ(which == 0 ? p.a.receive(100).primary : p.a.go_on(), wire::rc_program_error_purging);
        EXPECT_EQ(p.a.e.now, state::receive);
        p.pump();
        ASSERT_EQ(p.b.send("y", 3), wire::rc_ok);
        EXPECT_EQ(p.b.e.now, state::receive);
        p.pump();
        EXPECT_EQ(p.a.receive(100).data, "y");
        ASSERT_EQ(p.a.send("z", 3), wire::rc_ok);
        p.pump();
        EXPECT_EQ(p.b.receive(100).data, "z");
    }
}

// Both ends were receiving as far as they knew, and both send an error: the one that allocated keeps the turn.
TEST(Errors, BothAtOnce)
{
    pair p(true);
    ASSERT_EQ(p.a.send("x", 1), wire::rc_ok);
    p.pump();
    ASSERT_EQ(p.b.receive(100).data, "x");
    ASSERT_EQ(p.a.prepare(1), wire::rc_ok); // on its way
    ASSERT_EQ(p.a.error(), wire::rc_ok);
    ASSERT_EQ(p.b.error(), wire::rc_ok);
    EXPECT_EQ(p.a.e.now, state::send);
    EXPECT_EQ(p.b.e.now, state::send);
    p.pump();
    EXPECT_EQ(p.b.flush(), wire::rc_program_error_purging);
    EXPECT_EQ(p.b.e.now, state::receive);
    p.pump();
    ASSERT_EQ(p.a.send("mine", 3), wire::rc_ok);
    p.pump();
    EXPECT_EQ(p.b.receive(100).data, "mine");
    ASSERT_EQ(p.b.send("yours", 1), wire::rc_ok);
    p.pump();
    EXPECT_EQ(p.a.receive(100).data, "yours");
    EXPECT_EQ(p.a.e.purging, 0u);
    EXPECT_EQ(p.b.e.purging, 0u);
}

// A second error before the partner has answered the first: the input is void up to the second answer.
TEST(Errors, TwoErrorsBeforeAnAnswer)
{
    pair p(true);
    ASSERT_EQ(p.a.send("x", 1), wire::rc_ok);
    p.pump();
    ASSERT_EQ(p.b.receive(100).data, "x");
    ASSERT_EQ(p.b.error(), wire::rc_ok);
    ASSERT_EQ(p.b.prepare(1), wire::rc_ok);
    ASSERT_EQ(p.b.error(), wire::rc_ok);
    EXPECT_EQ(p.b.e.purging, 2u);
    p.pump();
    EXPECT_EQ(p.a.flush(), wire::rc_program_error_purging);
    EXPECT_EQ(p.a.receive(100).what, 0x0001);
    EXPECT_EQ(p.a.flush(), wire::rc_program_error_purging);
    ASSERT_EQ(p.b.send("y", 3), wire::rc_ok);
    p.pump();
    EXPECT_EQ(p.a.receive(100).data, "y");
    ASSERT_EQ(p.a.send("z", 1), wire::rc_ok);
    p.pump();
    EXPECT_EQ(p.b.receive(100).data, "z");
}

TEST(Errors, FindsThePartnersEnd)
{
    const struct
    {
        std::uint8_t type;
        std::uint32_t code;
    } ends[] = {{1, wire::rc_dealloc_normal}, {2, wire::rc_dealloc_abend}, {4, wire::rc_dealloc_abend_timer}};
    for (const auto &sample : ends)
    {
        // The end is there already when the error is to be sent, behind data.
        pair p(true);
        ASSERT_EQ(p.a.send("data"), wire::rc_ok);
        ASSERT_EQ(p.a.deallocate(sample.type), wire::rc_ok);
        p.pump();
        EXPECT_EQ(p.b.error(), sample.code);
        EXPECT_EQ(p.b.e.now, state::reset);
        EXPECT_EQ(p.b.wire_out, "");

        // It comes after the error: a later verb tells.
        pair q(true);
        ASSERT_EQ(q.a.send("data"), wire::rc_ok);
        ASSERT_EQ(q.a.deallocate(sample.type), wire::rc_ok);
        ASSERT_EQ(q.b.error(), wire::rc_ok);
        q.pump();
        EXPECT_EQ(q.b.flush(), sample.code);
        EXPECT_EQ(q.b.e.now, state::reset);
    }
}

TEST(Errors, AbnormalEnds)
{
    const struct
    {
        std::uint8_t type;
        std::uint32_t basic;
        std::uint32_t mapped;
    } ends[] = {{2, wire::rc_dealloc_abend_program, wire::rc_dealloc_abend},
                {3, wire::rc_dealloc_abend_service, wire::rc_dealloc_abend_service},
                {4, wire::rc_dealloc_abend_timer, wire::rc_dealloc_abend_timer},
                {5, wire::rc_dealloc_abend_program, wire::rc_dealloc_abend}};
    for (const bool mapped : {false, true})
    {
        for (const auto &sample : ends)
        {
            // By the sender, after data; by the receiver, seen by a flush and by a confirm.
            pair p(mapped);
            ASSERT_EQ(p.a.send(mapped ? "x" : record("x")), wire::rc_ok);
            ASSERT_EQ(p.a.deallocate(sample.type), wire::rc_ok);
            p.pump();
            EXPECT_EQ(p.b.receive(100).what, 0x0200);
            EXPECT_EQ(p.b.receive(100).primary, mapped ? sample.mapped : sample.basic);

            pair q(mapped);
            ASSERT_EQ(q.b.deallocate(sample.type), wire::rc_ok);
            EXPECT_EQ(q.a.confirm(), waiting);
            q.pump();
            EXPECT_EQ(q.a.go_on(), mapped ? sample.mapped : sample.basic);
            EXPECT_EQ(q.a.e.now, state::reset);
        }
    }
}

TEST(Errors, AbendInsideARecord)
{
    pair p(false);
    ASSERT_EQ(p.a.send(record("abcdef").substr(0, 4), 7), wire::rc_ok);
    EXPECT_EQ(p.a.e.now, state::reset);
    p.pump();
    received got = p.b.receive(100);
    EXPECT_EQ(got.what, 0x0400);
    EXPECT_EQ(got.data, record("abcdef").substr(0, 4));
    EXPECT_EQ(p.b.receive(100).primary, wire::rc_dealloc_abend_program);
}

TEST(Errors, RefusedAttach)
{
    for (const std::uint32_t sense :
         {wire::sense_security_not_valid, wire::sense_tp_name_not_recognised, wire::sense_pip_not_allowed,
          wire::sense_type_mismatch, wire::sense_sync_level_not_supported, wire::sense_tp_not_available_no_retry,
          wire::sense_tp_not_available_retry})
    {
        for (int verb = 0; verb < 4; verb++)
        {
            lu62_test::end a(true, true, true);
            a.wire_in = error_frame(wire::flag_end, sense);
            std::uint32_t code = 0;
            std::uint32_t secondary = 0;
            if (verb == 0)
            {
                const received got = a.receive(10);
                code = got.primary;
                secondary = got.secondary;
            }
            else
            {
                const lu62::outcome sent = verb == 1 ? a.send_full("x", 1) : lu62::outcome{0, sense};
                code = verb == 1 ? sent.primary : verb == 2 ? (a.confirm(), a.go_on()) : (a.deallocate(0), a.go_on());
                secondary = sent.secondary;
            }
            EXPECT_EQ(code, wire::rc_allocation_error);
            EXPECT_EQ(secondary, sense);
            EXPECT_EQ(a.e.now, state::reset);
        }
    }
}

TEST(Errors, LogDataReachesThePartner)
{
    pair p(false);
    const std::string log(300, 'L');
    ASSERT_EQ(p.a.send(record("x")), wire::rc_ok);
    ASSERT_EQ(p.a.error(0, 0, log), wire::rc_ok);
    p.pump();
    EXPECT_EQ(p.b.receive(100).data, record("x"));
    EXPECT_EQ(p.b.receive(100).primary, wire::rc_program_error_no_trunc);
    EXPECT_EQ(p.b.log, log);
}

// An ERROR arrives in two portions, cut at every place: it is told when it is whole.
TEST(Errors, ErrorInPortions)
{
    const std::string all = error_frame(wire::flag_purging, wire::sense_program_error, "log");
    for (std::size_t portion = 0; portion < all.size(); portion++)
    {
        lu62_test::end a(false, true, true);
        a.wire_in = all.substr(0, portion);
        EXPECT_EQ(a.flush(), wire::rc_ok);
        a.wire_in += all.substr(portion);
        EXPECT_EQ(a.flush(), wire::rc_program_error_purging);
        EXPECT_EQ(a.log, "log");
    }
}

// The partner's error has been read but not told when we report one of our own, as after a test for a request to send.
// Read before or after, the same must come of it: the error of a sender is void, and of two receivers the end that
// allocated goes on.
TEST(Errors, OfBothEndsWhenOneHasBeenReadAndNotTold)
{
    for (const bool read_before : {false, true})
    {
        SCOPED_TRACE(read_before ? "read before" : "read by the verb");
        pair p(true);
        ASSERT_EQ(p.a.error(), wire::rc_ok);
        ASSERT_EQ(p.a.send("void", 1), wire::rc_ok);
        p.pump();
        if (read_before)
        {
            EXPECT_FALSE(p.b.rts());
        }
        EXPECT_EQ(p.b.error(), wire::rc_ok);
        EXPECT_EQ(p.b.e.now, state::send);
        ASSERT_EQ(p.b.send("reply", 3), wire::rc_ok);
        p.pump();
        EXPECT_EQ(p.a.flush(), wire::rc_program_error_purging);
        EXPECT_EQ(p.a.receive(100).data, "reply");
        ASSERT_EQ(p.a.send("on", 1), wire::rc_ok);
        p.pump();
        EXPECT_EQ(p.b.receive(100).data, "on");
        EXPECT_EQ(p.b.e.purging, 0u);
    }
    for (const bool read_before : {false, true})
    {
        for (const bool allocating : {false, true})
        {
            SCOPED_TRACE(testing::Message() << read_before << allocating);
            pair p(true);
            lu62_test::end &had_turn = allocating ? p.a : p.b, &got_turn = allocating ? p.b : p.a;
            if (!allocating)
            {
                ASSERT_EQ(p.a.prepare(1), wire::rc_ok);
                p.pump();
                ASSERT_EQ(p.b.receive(10).what, 0x0001);
            }
            ASSERT_EQ(had_turn.send("x", 3), wire::rc_ok);
            p.pump();
            ASSERT_EQ(got_turn.receive(10).what, 0x0201);
            ASSERT_EQ(got_turn.error(), wire::rc_ok); // in what has come: send pending state
            p.pump();
            if (read_before)
            {
                EXPECT_FALSE(had_turn.rts());
            }
            if (allocating)
            {
                EXPECT_EQ(had_turn.error(), wire::rc_ok);
                EXPECT_EQ(had_turn.e.now, state::send);
                p.pump();
                EXPECT_EQ(got_turn.flush(), wire::rc_program_error_purging);
            }
            else
            {
                EXPECT_EQ(had_turn.error(), wire::rc_program_error_purging);
                EXPECT_EQ(had_turn.e.now, state::receive);
            }
            p.pump();
            lu62_test::end &talks = allocating ? had_turn : got_turn, &listens = allocating ? got_turn : had_turn;
            ASSERT_EQ(talks.send("on", 3), wire::rc_ok);
            p.pump();
            EXPECT_EQ(listens.receive(10).data, "on");
            ASSERT_EQ(listens.send("back", 3), wire::rc_ok);
            p.pump();
            EXPECT_EQ(talks.receive(10).data, "back");
            EXPECT_EQ(p.a.e.purging, 0u);
            EXPECT_EQ(p.b.e.purging, 0u);
        }
    }
}

TEST(Errors, RequestToSendSurvivesPurging)
{
    pair p(true);
    ASSERT_EQ(p.a.send("x", 3), wire::rc_ok);
    ASSERT_EQ(p.a.request_to_send(), wire::rc_ok);
    ASSERT_EQ(p.b.error(), wire::rc_ok);
    p.pump();
    EXPECT_TRUE(p.b.rts());
}

} // namespace
