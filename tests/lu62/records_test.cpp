// records_test.cpp - logical records: the walk, wrong LLs, and records split at every place on their way through two
// engines, received by LL and by buffer.
#include "lu62/pair.hpp"

#include <gtest/gtest.h>

using lu62_test::pair;
using lu62_test::received;
using lu62_test::record;
using lu62_test::waiting;

namespace {

const std::uint8_t *bytes(const std::string &text)
{
    return reinterpret_cast<const std::uint8_t *>(text.data());
}

TEST(Records, WalkInOneByteStepsEqualsWalkAtOnce)
{
    const std::string stream = record("abc") + record("") + record("continued", true) + record(std::string(300, 'x'));
    lu62::record_position step{};
    for (std::size_t i = 0; i < stream.size(); i++)
    {
        ASSERT_TRUE(lu62::walk(step, bytes(stream) + i, 1));
        lu62::record_position whole{};
        ASSERT_TRUE(lu62::walk(whole, bytes(stream), static_cast<std::uint32_t>(i + 1)));
        EXPECT_EQ(step.left, whole.left);
        EXPECT_EQ(step.ll_have, whole.ll_have);
    }
    EXPECT_TRUE(lu62::at_boundary(step));
}

TEST(Records, LengthsBelowTwoAreWrong)
{
    for (const std::string &wrong : {std::string("\x00\x00", 2), std::string("\x00\x01", 2), std::string("\x80\x00", 2),
                                     std::string("\x80\x01", 2)})
    {
        lu62::record_position position{};
        EXPECT_FALSE(lu62::walk(position, bytes(wrong), 2));
        lu62_test::end sender(false, false, true);
        EXPECT_EQ(sender.send(record("good")), wire::rc_ok);
        const lu62::outcome refused = sender.send_full(wrong, 0);
        EXPECT_EQ(refused.primary, wire::rc_parameter_check);
        EXPECT_EQ(refused.secondary, wire::rc_bad_ll);
        // The refused verb changed nothing: the stream goes on as if it had not been.
        EXPECT_EQ(sender.send(record("more")), wire::rc_ok);
        EXPECT_TRUE(lu62::at_boundary(sender.e.out));
    }
    lu62::record_position position{};
    EXPECT_TRUE(lu62::walk(position, bytes(std::string("\x80\x02", 2)), 2));
    EXPECT_TRUE(lu62::at_boundary(position));
    EXPECT_TRUE(lu62::walk(position, bytes(std::string("\xFF\xFF", 2)), 2));
    EXPECT_EQ(position.left, 32765u);
}

TEST(Records, VerbsThatNeedABoundary)
{
    lu62_test::end sender(false, true, true);
    ASSERT_EQ(sender.send(record("abc").substr(0, 3)), wire::rc_ok);
    EXPECT_EQ(sender.confirm(), wire::rc_state_check);
    EXPECT_EQ(sender.prepare(0), wire::rc_state_check);
    EXPECT_EQ(sender.prepare(1), wire::rc_state_check);
    EXPECT_EQ(sender.deallocate(0), wire::rc_state_check);
    EXPECT_EQ(sender.deallocate(1), wire::rc_state_check);
    EXPECT_EQ(sender.receive(10).primary, wire::rc_state_check);
    for (std::uint8_t type = 2; type <= 6; type++)
    {
        EXPECT_EQ(sender.send("b", type), wire::rc_state_check);
    }
    EXPECT_EQ(sender.e.now, lu62::state::send);
    // Nothing of the refused sends counts; the record ends where it ends.
    EXPECT_EQ(sender.send("b"), wire::rc_ok);
    EXPECT_EQ(sender.flush(), wire::rc_ok);
    EXPECT_EQ(sender.send("c", 3), wire::rc_ok);
    EXPECT_EQ(sender.e.now, lu62::state::receive);
    lu62_test::end other(false, true, true);
    ASSERT_EQ(other.send("\x7F"), wire::rc_ok); // half an LL
    EXPECT_EQ(other.deallocate(1), wire::rc_state_check);
    EXPECT_EQ(other.deallocate(2), wire::rc_ok);
}

// Sent in two pieces split at every place, arriving in two portions split at every place, received by LL.
TEST(Records, EverySplit)
{
    const std::string texts[] = {"abc", "", "de", std::string(20, 'z')};
    std::string stream;
    for (const std::string &text : texts)
    {
        stream += record(text);
    }
    for (std::size_t cut = 1; cut < stream.size(); cut++)
    {
        pair sample(false);
        ASSERT_EQ(sample.a.send(stream.substr(0, cut), 1), wire::rc_ok);
        ASSERT_EQ(sample.a.send(stream.substr(cut), 3), wire::rc_ok);
        const std::string wire_bytes = sample.a.wire_out;
        for (std::size_t portion = 0; portion <= wire_bytes.size(); portion++)
        {
            pair p(false);
            p.b.wire_in = wire_bytes.substr(0, portion);
            std::size_t next = 0;
            bool all_here = false;
            while (next < 4)
            {
                const received got = p.b.receive(100, true, true, false);
                if (got.primary == waiting)
                {
                    // What the verb had taken is lost to this test's verb-by-verb view, so begin again with all of it.
                    ASSERT_FALSE(all_here);
                    all_here = true;
                    p.b = lu62_test::end(false, true, false);
                    p.b.wire_in = wire_bytes;
                    next = 0;
                    continue;
                }
                ASSERT_EQ(got.primary, wire::rc_ok);
                ASSERT_EQ(got.data, record(texts[next]));
                ASSERT_EQ(got.what, next == 3 ? 0x0201 : 0x0200);
                next++;
            }
            ASSERT_EQ(p.b.e.now, lu62::state::send_pending);
        }
    }
}

// One receive stays at work while its bytes come one at a time.
TEST(Records, ReceiveGoesOnByteByByte)
{
    for (const bool ll : {true, false})
    {
        pair sample(false);
        const std::string stream = record("hello") + record("world");
        ASSERT_EQ(sample.a.send(stream, 3), wire::rc_ok);
        const std::string wire_bytes = sample.a.wire_out;
        lu62::engine e;
        lu62::engine_init(e, false, true, false);
        std::string out;
        std::uint8_t room[32];
        lu62::receiving r{};
        r.buffer = room;
        r.max = ll ? 32u : 14u;
        r.fill_ll = ll;
        r.status_with_data = true;
        std::uint32_t completions = 0;
        for (std::size_t i = 0; i < wire_bytes.size(); i++)
        {
            lu62::input in{bytes(wire_bytes) + i, 1, false};
            // Headers have to be whole; feed them as such.
            if (i == 0)
            {
                in.left = 8;
                i = 7;
            }
            if (lu62::receive_step(e, r, in))
            {
                completions++;
                out.append(reinterpret_cast<char *>(room), r.got);
                r.got = 0;
                r.touched = false;
                r.what = 0;
            }
            ASSERT_EQ(in.left, 0u);
        }
        EXPECT_EQ(out, stream);
        EXPECT_EQ(completions, ll ? 2u : 1u);
        EXPECT_EQ(e.now, lu62::state::send_pending);
    }
}

TEST(Records, IncompleteByLl)
{
    pair p(false);
    ASSERT_EQ(p.a.send(record("abcdef"), 3), wire::rc_ok);
    p.pump();
    received got = p.b.receive(3);
    EXPECT_EQ(got.what, 0x0400);
    EXPECT_EQ(got.data, record("abcdef").substr(0, 3));
    got = p.b.receive(0);
    EXPECT_EQ(got.what, 0x0400);
    EXPECT_EQ(got.data, "");
    got = p.b.receive(5);
    EXPECT_EQ(got.what, 0x0201);
    EXPECT_EQ(got.data, "bcdef");
    EXPECT_EQ(p.b.e.now, lu62::state::send_pending);
}

TEST(Records, NothingFitsIntoNothing)
{
    pair p(false);
    ASSERT_EQ(p.a.send(record("") + record("x"), 3), wire::rc_ok);
    p.pump();
    EXPECT_EQ(p.b.receive(0).what, 0x0400); // a record is there, and none of it was taken
    EXPECT_EQ(p.b.receive(0, false).what, 0x0100);
    EXPECT_EQ(p.b.receive(2).what, 0x0200);
    EXPECT_EQ(p.b.receive(3).what, 0x0201);
}

TEST(Records, ByBufferAcrossRecords)
{
    pair p(false);
    const std::string stream = record("abc") + record("def") + record("g");
    ASSERT_EQ(p.a.send(stream, 1), wire::rc_ok);
    p.pump();
    received got = p.b.receive(7, false);
    EXPECT_EQ(got.what, 0x0100);
    EXPECT_EQ(got.data, stream.substr(0, 7));
    // More than there is: it waits for the length or a status.
    EXPECT_EQ(p.b.receive(100, false).primary, waiting);
}

TEST(Records, ByBufferEndsWithStatus)
{
    pair p(false);
    ASSERT_EQ(p.a.send(record("abc"), 1), wire::rc_ok);
    ASSERT_EQ(p.a.prepare(1), wire::rc_ok);
    p.pump();
    received got = p.b.receive(100, false);
    EXPECT_EQ(got.what, 0x0101);
    EXPECT_EQ(got.data, record("abc"));
    EXPECT_EQ(p.b.e.now, lu62::state::send_pending);
}

TEST(Records, ImmediateByLlTellsWhatIsThere)
{
    pair p(false);
    ASSERT_EQ(p.a.send(record("abcdef").substr(0, 5), 1), wire::rc_ok);
    EXPECT_EQ(p.b.receive(100, true, true, true).primary, wire::rc_unsuccessful);
    p.pump();
    received got = p.b.receive(100, true, true, true);
    EXPECT_EQ(got.what, 0x0400);
    EXPECT_EQ(got.data, record("abcdef").substr(0, 5));
    EXPECT_EQ(p.b.receive(100, true, true, true).primary, wire::rc_unsuccessful);
    ASSERT_EQ(p.a.send("def", 1), wire::rc_ok);
    p.pump();
    got = p.b.receive(100, true, true, true);
    EXPECT_EQ(got.what, 0x0200);
    EXPECT_EQ(got.data, "def");
}

TEST(Records, DirectPlacement)
{
    pair p(false);
    ASSERT_EQ(p.a.send(record("abcdefgh"), 3), wire::rc_ok);
    const std::string all = p.a.wire_out;
    for (const std::uint32_t max : {6u, 10u, 30u})
    {
        lu62::engine e;
        lu62::engine_init(e, false, true, false);
        std::uint8_t room[32];
        lu62::receiving r{};
        r.buffer = room;
        r.max = max;
        r.fill_ll = true;
        r.status_with_data = true;
        lu62::input in{bytes(all), 10, false}; // header and LL
        ASSERT_FALSE(lu62::receive_step(e, r, in));
        ASSERT_EQ(in.left, 0u);
        const std::uint32_t direct = lu62::direct_room(e, r);
        ASSERT_EQ(direct, (max < 10 ? max : 10u) - 2u);
        std::memcpy(room + r.got, all.data() + 10, direct);
        lu62::direct_done(e, r, direct);
        lu62::input nothing{bytes(all), 0, false};
        ASSERT_TRUE(lu62::receive_step(e, r, nothing));
        EXPECT_EQ(r.what, max < 10 ? 0x0400 : 0x0201);
        EXPECT_EQ(std::memcmp(room, record("abcdefgh").data(), r.got), 0);
    }
}

} // namespace
