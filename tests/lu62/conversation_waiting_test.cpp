// conversation_waiting_test.cpp - conversation verbs that have to wait: pending, blocked on a full socket, cut short by
// the partner's error, cancelled, failed with the path.
#include "lu62/double_runtime.hpp"

#include <thread>

using namespace conversation_double;

namespace {

using Waiting = Verbs;

TEST_F(Waiting, PendingReceive)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(10), 0);
    ASSERT_TRUE(t.b->begin_receive(10));
    EXPECT_EQ(pump(0), 0u);
    EXPECT_EQ(t.b->done, 0u);
    VERB_RECORD second{};
    second.header.opcode = NAP_GET_STATE;
    lock();
    EXPECT_EQ(client::conversation_issue(t.b->conv, &second, nullptr, 0), 0);
    unlock();
    EXPECT_EQ(second.header.primary_rc, word(wire::rc_tp_busy));
    ASSERT_EQ(t.a->send("later", 3), 0);
    EXPECT_EQ(pump(10000), 1u);
    EXPECT_EQ(t.b->done, 1u);
    EXPECT_EQ(t.b->record.header.primary_rc, 0);
    EXPECT_EQ(t.b->data, "later");
    EXPECT_EQ(t.b->what, 0x0201);
    EXPECT_EQ(pump(0), 0u);
}

TEST_F(Waiting, PendingVerbCompletesAtOnceWhenItCan)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 3), 0);
    t.take_attach();
    EXPECT_FALSE(t.b->begin_receive(10));
    EXPECT_EQ(t.b->data, "x");
    EXPECT_EQ(t.b->done, 0u);
}

TEST_F(Waiting, PendingVerbThatCannotBeWatchedFails)
{
    two_programs t(true);
    count.no_watch = true;
    EXPECT_FALSE(t.b->begin_receive(10));
    EXPECT_EQ(t.b->record.header.primary_rc, word(wire::rc_conv_failure_no_retry));
    EXPECT_TRUE(t.b->over);
}

// Fills the socket until a send pends.
void send_until_pending(program &p)
{
    for (unsigned i = 0; i < 1000; i++)
    {
        if (p.begin_send(pattern(32767, i), 1))
        {
            return;
        }
    }
    FAIL() << "the socket never filled";
}

TEST_F(Waiting, ErrorWhileAWriteIsBlocked)
{
    two_programs t(true);
    send_until_pending(*t.a);
    t.take_attach();
    // The receiver has read part of what was sent.
    ASSERT_EQ(t.b->receive(32767), 0);
    EXPECT_EQ(t.b->data, pattern(32767, 0));
    ASSERT_EQ(t.b->receive(100), 0);
    EXPECT_EQ(t.b->what, 0x0400);
    ASSERT_EQ(t.b->error(), 0);
    while (t.a->done == 0)
    {
        ASSERT_NE(pump(10000), 0u);
    }
    EXPECT_EQ(t.a->record.header.primary_rc, word(wire::rc_program_error_purging));
    EXPECT_EQ(t.a->state(), 2);
    // Both go on from here.
    ASSERT_EQ(t.b->send("instead", 3), 0);
    std::thread receiver([&] {
        EXPECT_EQ(t.a->receive(100), 0);
        EXPECT_EQ(t.a->data, "instead");
        EXPECT_EQ(t.a->what, 0x0201);
        EXPECT_EQ(t.a->send("fine", 3), 0);
    });
    EXPECT_EQ(t.b->receive(100), 0);
    EXPECT_EQ(t.b->data, "fine");
    receiver.join();
}

// Both ends write more than the sockets hold: the one in error reads away what is void, and neither waits for ever.
TEST_F(Waiting, BothWriteAtOnce)
{
    two_programs t(true);
    send_until_pending(*t.a);
    t.take_attach();
    ASSERT_EQ(t.b->receive(32767), 0);
    ASSERT_EQ(t.b->error(), 0);
    std::thread writer([&] {
        for (unsigned i = 0; i < 50; i++)
        {
            EXPECT_EQ(t.b->send(pattern(32767, i), 1), 0);
        }
        EXPECT_EQ(t.b->deallocate(1), 0);
    });
    while (t.a->done == 0)
    {
        ASSERT_NE(pump(10000), 0u);
    }
    EXPECT_EQ(t.a->record.header.primary_rc, word(wire::rc_program_error_purging));
    for (unsigned i = 0; i < 50; i++)
    {
        ASSERT_EQ(t.a->receive(32767), 0);
        ASSERT_EQ(t.a->data, pattern(32767, i));
    }
    EXPECT_EQ(t.a->receive(32767), word(wire::rc_dealloc_normal));
    writer.join();
    EXPECT_TRUE(t.a->over);
    EXPECT_TRUE(t.b->over);
}

// A deallocation loses none of the data before it, however full the socket is.
// What brings the program nothing may come without end: others get the lock all the same.
TEST_F(Waiting, BlockedInAFloodLetsOthersGoFirst)
{
    for (const bool in_receive : {false, true})
    {
        two_programs t(true);
        ASSERT_EQ(t.a->send("x", 1), 0);
        t.take_attach();
        ASSERT_EQ(t.b->receive(10), 0);
        ASSERT_EQ(t.a->send("later", 3), 0);
        count.may_block = in_receive;
        const unsigned before = count.polls + count.blocked;
        const unsigned rests = count.rests;
        count.flood = 170;
        EXPECT_EQ(t.b->receive(10), 0);
        EXPECT_EQ(t.b->data, "later");
        EXPECT_EQ(t.b->rts, 1);
        EXPECT_EQ(count.flood, 0u);
        EXPECT_GE(count.polls + count.blocked - before, 10u) << in_receive;
        EXPECT_GE(count.rests - rests, 10u) << in_receive;
    }
}

TEST_F(Waiting, PendingInAFloodLetsOthersGoFirst)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(10), 0);
    ASSERT_EQ(t.a->send("later", 3), 0);
    count.flood = 170;
    ASSERT_TRUE(t.b->begin_receive(10));
    unsigned goes = 0;
    for (; t.b->done == 0 && goes < 1000; goes++)
    {
        ASSERT_EQ(pump(10000), 1u);
    }
    EXPECT_GE(goes, 10u);
    EXPECT_EQ(t.b->data, "later");
}

TEST_F(Waiting, WritingInAFloodLetsOthersGoFirst)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    const unsigned rests = count.rests;
    count.flood = 10000;
    ASSERT_EQ(t.a->send(std::string(30000, 'y'), 1), 0);
    EXPECT_EQ(t.a->rts, 1);
    EXPECT_GT(count.flood, 9900u); // it did not read to the end
    EXPECT_GT(count.rests, rests);
    count.flood = 0;
}

// A program that gathers small records looks again when its last look is some time ago, and not at each of them.
TEST_F(Waiting, GatheringSendsLookNowAndThen)
{
    constexpr std::uint64_t while_later = 1u << 26;
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(10), 0);
    ASSERT_EQ(t.a->send("y"), 0);
    ASSERT_EQ(t.b->simple(NAP_REQUEST_TO_SEND), 0);
    const unsigned receives = count.receives;
    EXPECT_EQ(t.a->send("y"), 0);
    EXPECT_EQ(t.a->rts, 0);
    EXPECT_EQ(count.receives, receives);
    count.ticks += while_later;
    EXPECT_EQ(t.a->send("y"), 0);
    EXPECT_EQ(t.a->rts, 1);
    ASSERT_EQ(t.b->error(), 0);
    EXPECT_EQ(t.a->send("y"), 0);
    count.ticks += while_later;
    EXPECT_EQ(t.a->send("y"), word(wire::rc_program_error_purging));
}

TEST_F(Waiting, DeallocationWaitsForItsData)
{
    two_programs t(true);
    std::thread writer([&] {
        for (unsigned i = 0; i < 60; i++)
        {
            EXPECT_EQ(t.a->send(pattern(20000, i)), 0);
        }
        EXPECT_EQ(t.a->deallocate(1), 0);
    });
    t.take_attach();
    for (unsigned i = 0; i < 60; i++)
    {
        ASSERT_EQ(t.b->receive(32767), 0);
        ASSERT_EQ(t.b->data, pattern(20000, i));
    }
    EXPECT_EQ(t.b->receive(32767), word(wire::rc_dealloc_normal));
    writer.join();
}

// Starts a thread that is blocked in a receive, and waits until it sleeps.
std::thread blocked_receive(program &p, u16 &code)
{
    const unsigned polls = count.polls;
    std::thread thread([&] { code = p.receive(100); });
    while (count.polls == polls)
    {
        std::this_thread::yield();
    }
    return thread;
}

TEST_F(Waiting, CancelOfABlockedReceive)
{
    two_programs t(true);
    u16 code = 0;
    std::thread thread = blocked_receive(*t.b, code);
    t.b->cancel();
    thread.join();
    EXPECT_EQ(code, word(wire::rc_cancelled));
    EXPECT_TRUE(t.b->over);
    EXPECT_EQ(t.a->send("x", 1), word(wire::rc_conv_failure_retry));
}

TEST_F(Waiting, CancelOfAPendingAndOfAnIdleConversation)
{
    two_programs t(true);
    ASSERT_TRUE(t.b->begin_receive(10));
    t.b->cancel();
    EXPECT_EQ(t.b->done, 1u);
    EXPECT_EQ(t.b->record.header.primary_rc, word(wire::rc_cancelled));
    EXPECT_TRUE(t.b->over);
    EXPECT_EQ(pump(0), 0u);
    t.a->cancel();
    EXPECT_TRUE(t.a->over);
    EXPECT_EQ(count.over, 2u);
}

TEST_F(Waiting, PathLost)
{
    two_programs t(true);
    u16 code = 0;
    std::thread thread = blocked_receive(*t.b, code);
    t.b->fail();
    thread.join();
    EXPECT_EQ(code, word(wire::rc_conv_failure_retry));
    EXPECT_TRUE(t.b->over);
    t.a->fail();
    EXPECT_FALSE(t.a->over);
    EXPECT_EQ(t.a->send("x"), word(wire::rc_conv_failure_retry));
    EXPECT_TRUE(t.a->over);
}

TEST_F(Waiting, AbnormalEndOfTheProgram)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.a->send("gathered"), 0);
    t.a->abend();
    EXPECT_TRUE(t.a->over);
    EXPECT_EQ(t.b->receive(10), 0);
    EXPECT_EQ(t.b->receive(10), 0);
    EXPECT_EQ(t.b->data, "gathered");
    EXPECT_EQ(t.b->receive(10), word(wire::rc_dealloc_abend));
}

// ---- blocked in the receive itself -------------------------------------------------------------------------------

// Two programs that have conversed; from now on the second blocks in the receive itself.
void begin_to_block(two_programs &t)
{
    ASSERT_EQ(t.a->send("first", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(10), 0);
    count.may_block = true;
}

// Waits until so many receives have blocked.
void until_blocked(unsigned times)
{
    while (count.blocked < times)
    {
        std::this_thread::yield();
    }
}

TEST_F(Waiting, BlockedInTheReceiveGetsWhatComes)
{
    two_programs t(true);
    ASSERT_NO_FATAL_FAILURE(begin_to_block(t));
    const unsigned blocked = count.blocked, polls = count.polls;
    u16 code = 0xFFFF;
    std::thread thread([&] { code = t.b->receive(100); });
    until_blocked(blocked + 1);
    ASSERT_EQ(t.a->send("later", 1), 0);
    thread.join();
    EXPECT_EQ(code, 0);
    EXPECT_EQ(t.b->data, "later");
    EXPECT_EQ(count.polls, polls);
}

TEST_F(Waiting, BlockedInTheReceiveOutlivesItsTimeLimit)
{
    two_programs t(true);
    ASSERT_NO_FATAL_FAILURE(begin_to_block(t));
    const unsigned blocked = count.blocked;
    u16 code = 0xFFFF;
    std::thread thread([&] { code = t.b->receive(100); });
    until_blocked(blocked + 3); // it has come back with nothing twice
    ASSERT_EQ(t.a->send("late", 1), 0);
    thread.join();
    EXPECT_EQ(code, 0);
    EXPECT_EQ(t.b->data, "late");
}

TEST_F(Waiting, BlockedInTheReceiveIsCancelled)
{
    two_programs t(true);
    ASSERT_NO_FATAL_FAILURE(begin_to_block(t));
    const unsigned blocked = count.blocked;
    u16 code = 0;
    std::thread thread([&] { code = t.b->receive(100); });
    until_blocked(blocked + 1);
    t.b->cancel();
    thread.join();
    EXPECT_EQ(code, word(wire::rc_cancelled));
    EXPECT_TRUE(t.b->over);
    EXPECT_EQ(t.a->receive(10), word(wire::rc_conv_failure_retry));
}

TEST_F(Waiting, BlockedInTheReceiveSeesThePartnerGo)
{
    two_programs t(true);
    ASSERT_NO_FATAL_FAILURE(begin_to_block(t));
    const unsigned blocked = count.blocked;
    u16 code = 0;
    std::thread thread([&] { code = t.b->receive(100); });
    until_blocked(blocked + 1);
    t.a->drop();
    thread.join();
    EXPECT_EQ(code, word(wire::rc_conv_failure_retry));
}

// What a blocked receive places straight into the program's memory is what was sent.
TEST_F(Waiting, BlockedInTheReceiveTakesLongRecords)
{
    two_programs t(true);
    ASSERT_NO_FATAL_FAILURE(begin_to_block(t));
    std::thread sender([&] {
        for (unsigned i = 0; i < 50; i++)
        {
            EXPECT_EQ(t.a->send(pattern(32767 - i * 311, i), 1), 0);
        }
    });
    for (unsigned i = 0; i < 50; i++)
    {
        ASSERT_EQ(t.b->receive(32767), 0);
        ASSERT_EQ(t.b->data, pattern(32767 - i * 311, i)) << i;
    }
    sender.join();
}

} // namespace
