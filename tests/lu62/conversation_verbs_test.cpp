// conversation_verbs_test.cpp - the conversation verbs over a real socket pair: both ends in this process, one lock,
// the runtime a double.
#include "lu62/double_runtime.hpp"

#include <random>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

using namespace conversation_double;

namespace {

TEST_F(Verbs, NothingTravelsBeforeTheFirstFlush)
{
    two_programs t(true);
    EXPECT_EQ(t.a->send("one"), 0);
    u8 byte;
    EXPECT_EQ(recv(t.fds[1], &byte, 1, MSG_DONTWAIT), -1);
    EXPECT_EQ(t.a->simple(NAP_FLUSH), 0);
    t.take_attach();
    EXPECT_EQ(t.b->receive(100), 0);
    EXPECT_EQ(t.b->data, "one");
    EXPECT_EQ(t.b->what, 0x0200);
    EXPECT_EQ(t.a->state(), 1);
    EXPECT_EQ(t.b->state(), 2);
}

// What an operator sees: states and bytes as the verbs leave them, also those of a send that only joins what is
// gathered.
TEST_F(Verbs, CountersFollowEveryVerb)
{
    wire::conversation_counters from{9, 9, 9, {}, 9, 9, {}};
    wire::conversation_counters to{};
    two_programs t(true, false);
    lock();
    client::conversation_count(t.a->conv, &from);
    client::conversation_count(t.b->conv, &to);
    unlock();
    EXPECT_EQ(from.session, 7u);
    EXPECT_EQ(from.allocating, 1);
    EXPECT_EQ(from.state, 1);
    EXPECT_EQ(from.sent, 0u);
    EXPECT_EQ(from.received, 0u);
    EXPECT_EQ(to.allocating, 0);
    EXPECT_EQ(to.state, 2);

    ASSERT_EQ(t.a->send("12345"), 0);
    EXPECT_EQ(from.sent, 5u);
    ASSERT_EQ(t.a->send("678"), 0);
    EXPECT_EQ(from.sent, 8u);
    EXPECT_NE(t.b->send("not now"), 0); // a state check
    EXPECT_EQ(to.sent, 0u);
    ASSERT_EQ(t.a->prepare(0), 0);
    EXPECT_EQ(from.state, 2);
    t.take_attach();
    ASSERT_EQ(t.b->receive(3), 0); // part of a record
    EXPECT_EQ(to.received, 3u);
    EXPECT_EQ(to.state, 2);
    ASSERT_EQ(t.b->receive(100), 0);
    ASSERT_EQ(t.b->receive(100), 0);
    EXPECT_EQ(to.received, 8u);
    if (to.state == 2)
    {
        ASSERT_EQ(t.b->receive(100), 0); // the turn alone
    }
    EXPECT_NE(to.state, 2);
    EXPECT_EQ(to.received, 8u);
    ASSERT_EQ(t.b->deallocate(0), 0);
    EXPECT_EQ(to.session, 0u) << "over: the slot is free";
    EXPECT_EQ(from.session, 7u);
    t.a->cancel();
    EXPECT_EQ(from.session, 0u);
}

TEST_F(Verbs, EverySendType)
{
    for (u8 type = 0; type < 8; type++)
    {
        SCOPED_TRACE(unsigned{type});
        for (const std::size_t size : {std::size_t{0}, std::size_t{5}, std::size_t{32767}})
        {
            two_programs t(true);
            const std::string bytes = pattern(size, type);
            ASSERT_EQ(t.a->send("before"), 0);
            std::thread partner([&] {
                t.take_attach();
                EXPECT_EQ(t.b->receive(32767), 0);
                EXPECT_EQ(t.b->data, "before");
                EXPECT_EQ(t.b->receive(32767), 0);
                EXPECT_EQ(t.b->data, bytes);
                const u16 whats[] = {0x0200, 0x0200, 0x0202, 0x0201, 0x0203, 0x0200, 0x0204, 0x0200};
                EXPECT_EQ(t.b->what, whats[type]);
                if (type == 2 || type == 4 || type == 6)
                {
                    EXPECT_EQ(t.b->simple(NAP_CONFIRMED), 0);
                }
                if (type == 5 || type == 7)
                {
                    EXPECT_EQ(t.b->receive(100), word(type == 5 ? wire::rc_dealloc_normal : wire::rc_dealloc_abend));
                    EXPECT_TRUE(t.b->over);
                }
                EXPECT_EQ(t.b->over, type >= 5);
            });
            EXPECT_EQ(t.a->send(bytes, type), 0);
            if (type == 0)
            {
                EXPECT_EQ(t.a->simple(NAP_FLUSH), 0);
            }
            partner.join();
            EXPECT_EQ(t.a->over, type >= 5);
            if (type < 5)
            {
                EXPECT_EQ(t.a->state(), type == 3 || type == 4 ? 2 : 1);
            }
        }
    }
}

TEST_F(Verbs, IdleConversationsHoldNoBuffer)
{
    two_programs t(true);
    const int idle = count.memory;
    ASSERT_EQ(t.a->send(std::string(1000, 'x'), 3), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(2000), 0);
    client::conversation_release_buffers();
    EXPECT_EQ(count.memory, idle);
}

TEST_F(Verbs, SmallRecordsNeedFewSystemCalls)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(100), 0);
    const unsigned sends = count.sends;
    const unsigned receives = count.receives;
    for (unsigned i = 0; i < 1000; i++)
    {
        ASSERT_EQ(t.a->send(pattern(100, i)), 0);
    }
    ASSERT_EQ(t.a->prepare(1), 0);
    EXPECT_LE(count.sends - sends, 5u);
    EXPECT_LE(count.receives - receives, 10u); // looks for errors, one a buffer
    const unsigned before = count.receives;
    for (unsigned i = 0; i < 1000; i++)
    {
        ASSERT_EQ(t.b->receive(100), 0);
        ASSERT_EQ(t.b->data, pattern(100, i));
    }
    EXPECT_EQ(t.b->what, 0x0201);
    EXPECT_LE(count.receives - before, 4u);
}

TEST_F(Verbs, LongRecordsNeedOneSystemCallEach)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(100), 0);
    ASSERT_EQ(t.a->send(pattern(32767, 1)), 0);
    ASSERT_EQ(t.a->send(pattern(32767, 2)), 0);
    ASSERT_EQ(t.b->receive(32767), 0);
    ASSERT_EQ(t.b->receive(32767), 0);
    for (unsigned i = 0; i < 10; i++)
    {
        const unsigned sends = count.sends;
        ASSERT_EQ(t.a->send(pattern(32767, i)), 0);
        EXPECT_EQ(count.sends - sends, 1u);
        ASSERT_EQ(t.a->send(pattern(32767, i + 50)), 0);
        ASSERT_EQ(t.b->receive(32767), 0);
        ASSERT_EQ(t.b->data, pattern(32767, i));
        const unsigned receives = count.receives;
        ASSERT_EQ(t.b->receive(32767), 0);
        ASSERT_EQ(t.b->data, pattern(32767, i + 50));
        EXPECT_LE(count.receives - receives, 2u);
    }
}

// Records of every size, in every way, while writes are cut at odd places.
TEST_F(Verbs, StreamOfRecords)
{
    for (const unsigned most : {0u, 1000u, 7u})
    {
        for (const bool mapped : {true, false})
        {
            SCOPED_TRACE(testing::Message() << "writes of " << most << " mapped " << mapped);
            count.most = most;
            two_programs t(mapped);
            constexpr unsigned records = 300;
            std::vector<std::string> sent;
            std::mt19937 random(most + mapped);
            for (unsigned i = 0; i < records; i++)
            {
                const bool large = i % 10 == 0 && most != 7;
                const auto size = static_cast<std::size_t>(random() % (large ? 32766 : 200));
                sent.push_back(mapped ? pattern(size, i) : record_of(pattern(size, i)));
            }
            std::thread sender([&] {
                std::mt19937 choice(5);
                for (const std::string &bytes : sent)
                {
                    if (mapped)
                    {
                        ASSERT_EQ(t.a->send(bytes, choice() % 4 == 0 ? 1 : 0), 0);
                        continue;
                    }
                    for (std::size_t at = 0; at < bytes.size();)
                    {
                        const std::size_t piece = std::min<std::size_t>(bytes.size() - at, 1 + choice() % 5000);
                        ASSERT_EQ(t.a->send(bytes.substr(at, piece), choice() % 4 == 0 ? 1 : 0), 0);
                        at += piece;
                    }
                }
                ASSERT_EQ(t.a->prepare(1), 0);
            });
            t.take_attach();
            std::mt19937 choice(9);
            for (unsigned i = 0; i < records; i++)
            {
                std::string got;
                do
                {
                    const u32 max = choice() % 3 == 0 ? static_cast<u32>(choice() % 20000 + 1) : 32767u;
                    ASSERT_EQ(t.b->receive(max), 0);
                    got += t.b->data;
                } while (t.b->what == 0x0400);
                ASSERT_EQ(got, sent[i]) << "record " << i;
                if (t.b->what != 0x0200)
                {
                    ASSERT_EQ(t.b->what, 0x0201);
                    ASSERT_EQ(i, records - 1);
                }
            }
            if (t.b->what == 0x0200)
            {
                ASSERT_EQ(t.b->receive(10), 0);
                ASSERT_EQ(t.b->what, 0x0001);
            }
            sender.join();
        }
    }
}

TEST_F(Verbs, ByBufferOverTheSocket)
{
    two_programs t(false);
    std::string stream;
    for (unsigned i = 0; i < 100; i++)
    {
        stream += record_of(pattern(i * 31 % 3000, i));
    }
    std::thread sender([&] {
        for (std::size_t at = 0; at < stream.size(); at += 20000)
        {
            ASSERT_EQ(t.a->send(stream.substr(at, 20000)), 0);
        }
        ASSERT_EQ(t.a->deallocate(1), 0);
    });
    t.take_attach();
    std::string got;
    while (t.b->receive(9999, false) == 0)
    {
        EXPECT_EQ(t.b->what, 0x0100);
        got += t.b->data;
    }
    sender.join();
    EXPECT_EQ(got, stream);
    EXPECT_TRUE(t.b->over);
}

TEST_F(Verbs, ImmediateWaitsForNothing)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(10, true, true), 0);
    EXPECT_EQ(t.b->data, "x");
    EXPECT_EQ(t.b->receive(10, true, true), word(wire::rc_unsuccessful));
    EXPECT_EQ(t.b->what, 0);
    EXPECT_EQ(t.b->data, "");
    // A record of which a part has come is not there yet.
    u8 header[8] = {10, 0, 0, 0, 2, 1, 0, 0};
    ASSERT_EQ(send(t.fds[0], header, 8, 0), 8);
    ASSERT_EQ(send(t.fds[0], "12345", 5, 0), 5);
    EXPECT_EQ(t.b->receive(10, true, true), word(wire::rc_unsuccessful));
    ASSERT_EQ(send(t.fds[0], "67890", 5, 0), 5);
    EXPECT_EQ(t.b->receive(10, true, true), 0);
    EXPECT_EQ(t.b->data, "1234567890");
    EXPECT_EQ(t.a->receive(10, true, true), word(wire::rc_state_check));
}

TEST_F(Verbs, RequestToSend)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(10), 0);
    EXPECT_EQ(t.a->simple(NAP_TEST_RTS), word(wire::rc_unsuccessful));
    EXPECT_EQ(t.b->simple(NAP_REQUEST_TO_SEND), 0);
    EXPECT_EQ(t.a->simple(NAP_TEST_RTS), 0);
    EXPECT_EQ(t.a->simple(NAP_TEST_RTS), word(wire::rc_unsuccessful));
    EXPECT_EQ(t.b->simple(NAP_REQUEST_TO_SEND), 0);
    EXPECT_EQ(t.a->send("gathered"), 0); // nothing is written, and still it is told
    EXPECT_EQ(t.a->rts, 1);
    EXPECT_EQ(t.a->send("y", 1), 0);
    EXPECT_EQ(t.a->rts, 0);
}

TEST_F(Verbs, ErrorOfTheReceiverWithLogData)
{
    two_programs t(false);
    ASSERT_EQ(t.a->send(record_of("void") + record_of("void"), 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(100), 0);
    EXPECT_EQ(t.b->error(0, "what went wrong"), 0);
    EXPECT_EQ(t.b->state(), 1);
    EXPECT_EQ(t.a->send(record_of("more")), word(wire::rc_program_error_purging));
    EXPECT_EQ(count.log, "what went wrong");
    EXPECT_EQ(t.a->state(), 2);
    ASSERT_EQ(t.b->send(record_of("again"), 3), 0);
    EXPECT_EQ(t.a->receive(100), 0);
    EXPECT_EQ(t.a->data, record_of("again"));
    ASSERT_EQ(t.a->send(record_of("good"), 1), 0);
    EXPECT_EQ(t.b->receive(100), 0);
    EXPECT_EQ(t.b->data, record_of("good"));
}

TEST_F(Verbs, AbendWithLogDataInsideARecord)
{
    two_programs t(false);
    ASSERT_EQ(t.a->send(record_of("abcdef").substr(0, 4)), 0);
    ASSERT_EQ(t.a->deallocate(2, "the end"), 0);
    EXPECT_TRUE(t.a->over);
    t.take_attach();
    EXPECT_EQ(t.b->receive(100), 0);
    EXPECT_EQ(t.b->what, 0x0400);
    EXPECT_EQ(t.b->receive(100), word(wire::rc_dealloc_abend_program));
    EXPECT_EQ(count.log, "the end");
    EXPECT_TRUE(t.b->over);
    EXPECT_EQ(count.over, 2u);
}

// A mapped conversation carries no log data.
TEST_F(Verbs, NoLogDataOnMapped)
{
    two_programs t(true);
    ASSERT_EQ(t.a->deallocate(5, "not this"), 0);
    t.take_attach();
    EXPECT_EQ(t.b->receive(100), word(wire::rc_dealloc_abend));
    EXPECT_EQ(count.log, "");
}

TEST_F(Verbs, PartnerGoneEndsTheConversation)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    t.b->drop();
    EXPECT_EQ(t.a->send("y", 1), word(wire::rc_conv_failure_retry));
    EXPECT_TRUE(t.a->over);
}

// The partner's end is told although the bytes written to it are refused.
TEST_F(Verbs, AbendBehindARefusedWrite)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->deallocate(5), 0);
    EXPECT_EQ(t.a->prepare(1), word(wire::rc_dealloc_abend));
    EXPECT_TRUE(t.a->over);
}

TEST_F(Verbs, StateChecksKeepTheConversation)
{
    two_programs t(true);
    EXPECT_EQ(t.b->send("x"), word(wire::rc_state_check));
    EXPECT_EQ(t.b->simple(NAP_FLUSH), word(wire::rc_state_check));
    EXPECT_EQ(t.a->simple(NAP_CONFIRMED), word(wire::rc_state_check));
    EXPECT_EQ(t.a->simple(NAP_REQUEST_TO_SEND), word(wire::rc_state_check));
    EXPECT_EQ(t.a->simple(0x7777), word(wire::rc_invalid_verb));
    EXPECT_EQ(t.a->send(std::string(32768, 'x'), 1), word(wire::rc_parameter_check));
    EXPECT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    EXPECT_EQ(t.b->receive(10), 0);
    EXPECT_EQ(t.b->data, "x");
}

// Each allocation in turn fails: no leak, no hang; the conversation goes on or fails as a whole.
TEST_F(Verbs, NoMemory)
{
    for (int nth = 1; nth < 8; nth++)
    {
        SCOPED_TRACE(nth);
        client::conversation_release_buffers();
        two_programs t(true);
        count.fail_alloc = nth;
        bool ok = true;
        ok = ok && t.a->send("one") == 0;
        ok = ok && t.a->send("two", 3) == 0;
        ok = ok && (t.take_attach(), true);
        for (int i = 0; ok && i < 2; i++)
        {
            const u16 code = t.b->receive(10);
            ok = code == 0;
            EXPECT_TRUE(ok || (code == word(wire::rc_conv_failure_no_retry) && t.b->over));
        }
        EXPECT_TRUE(!ok || t.b->data == "two");
        count.fail_alloc = 0;
    }
}

TEST_F(Verbs, AWrongLlAmongGatheredSends)
{
    two_programs t(false);
    ASSERT_EQ(t.a->send(record_of("one")), 0);
    ASSERT_EQ(t.a->send(record_of("two")), 0);
    EXPECT_EQ(t.a->send(std::string("\0\1", 2)), word(wire::rc_parameter_check));
    EXPECT_EQ(t.a->record.header.secondary_rc, __builtin_bswap32(wire::rc_bad_ll));
    ASSERT_EQ(t.a->send(record_of("three").substr(0, 3)), 0);
    EXPECT_EQ(t.a->prepare(1), word(wire::rc_state_check));
    ASSERT_EQ(t.a->send(record_of("three").substr(3)), 0);
    ASSERT_EQ(t.a->prepare(1), 0);
    t.take_attach();
    for (const char *text : {"one", "two", "three"})
    {
        ASSERT_EQ(t.b->receive(100), 0);
        EXPECT_EQ(t.b->data, record_of(text));
    }
    EXPECT_EQ(t.b->what, 0x0201);
}

// The longest record and the turn that follows it are one write, and one receive tells both.
TEST_F(Verbs, ALongRecordTravelsWithTheTurn)
{
    two_programs t(true);
    const unsigned sends = count.sends;
    ASSERT_EQ(t.a->send(pattern(32767, 3)), 0);
    EXPECT_EQ(count.sends, sends);
    ASSERT_EQ(t.a->prepare(1), 0);
    EXPECT_EQ(count.sends, sends + 1);
    t.take_attach();
    ASSERT_EQ(t.b->receive(32767), 0);
    EXPECT_EQ(t.b->data, pattern(32767, 3));
    EXPECT_EQ(t.b->what, 0x0201);
}

// A program that only ever sends long records, none of them flushed, learns of the partner's error all the same.
TEST_F(Verbs, AnErrorReachesAStreamOfLongSends)
{
    two_programs t(true);
    ASSERT_EQ(t.a->send("x", 1), 0);
    t.take_attach();
    ASSERT_EQ(t.b->receive(10), 0);
    ASSERT_EQ(t.b->error(), 0);
    unsigned sends = 0;
    u16 code = 0;
    while (code == 0 && sends < 5)
    {
        code = t.a->send(pattern(32767, sends++));
    }
    EXPECT_EQ(code, word(wire::rc_program_error_purging));
    EXPECT_EQ(t.a->state(), 2);
}

TEST_F(Verbs, PingPongNeedsFewSystemCalls)
{
    two_programs t(true);
    constexpr unsigned rounds = 100;
    ASSERT_EQ(t.a->send("p", 1), 0);
    t.take_attach();
    const unsigned sends = count.sends;
    const unsigned receives = count.receives;
    std::thread partner([&] {
        for (unsigned i = 0; i <= rounds; i++)
        {
            EXPECT_EQ(t.b->receive(10), 0);
            if (i != 0)
            {
                EXPECT_EQ(t.b->send("q"), 0);
            }
        }
        EXPECT_EQ(t.b->deallocate(1), 0);
    });
    for (unsigned i = 0; i < rounds; i++)
    {
        EXPECT_EQ(t.a->send("p"), 0);
        EXPECT_EQ(t.a->receive(10), 0);
        EXPECT_EQ(t.a->data, "q");
    }
    partner.join();
    // Each turn is one write and, once the wait is over, one read.
    EXPECT_LE(count.sends - sends, 2 * rounds + 2);
    EXPECT_LE(count.receives - receives, 2 * rounds + 10);
}

} // namespace
