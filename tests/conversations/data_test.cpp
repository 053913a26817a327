// data_test.cpp - data between real programs, mapped conversations: record boundaries, sizes, buffering, a reader that
// is slow, calls in the wrong state.
#include "conversations/harness.hpp"

#include <gtest/gtest.h>

using namespace conversations;

TEST(Data, every_record_arrives_as_it_was_sent)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    for (const int length : {1, 2, 100, 255, 256, 4095, 4096, 8191, 16384, 32766, 32767})
    {
        const reply sent = client("cmsend 0 " + std::to_string(length) + " 7");
        ASSERT_EQ(sent.rc, 0);
        ASSERT_EQ(client("cmflus 0").rc, 0);
        const reply got = server("cmrcv 0 32767");
        ASSERT_EQ(got.rc, 0);
        EXPECT_EQ(got.number("data"), 2);
        EXPECT_EQ(got.number("length"), length);
        EXPECT_EQ(got.text("hash"), sent.text("hash"));
    }
}

// The operator sees both ends of a conversation: states, and bytes as the programs count them.
TEST(Data, the_operator_sees_states_and_bytes)
{
    node home;
    tp server(home), client(home);
    converse(client, server); // 5 bytes
    ASSERT_EQ(client("cmsend 0 30000 7").rc, 0);
    ASSERT_EQ(client("cmsend 0 200 7").rc, 0); // gathered, the turn not given
    const finished halfway = home.control({"show", "conversations", "--json"});
    EXPECT_NE(halfway.output.find("\"from_state\": \"send\""), std::string::npos) << halfway.output;
    EXPECT_NE(halfway.output.find("\"to_state\": \"receive\""), std::string::npos) << halfway.output;
    EXPECT_NE(halfway.output.find("\"from_bytes\": 30205"), std::string::npos) << halfway.output;
    EXPECT_NE(halfway.output.find("\"to_bytes\": 0"), std::string::npos) << halfway.output;
    ASSERT_EQ(client("cmptr 0").rc, 0);
    for (int i = 0; i < 2; ++i) // the turn comes with the second
        ASSERT_EQ(server("cmrcv 0 32767").rc, 0);
    ASSERT_EQ(server("cmtext 0 answer").rc, 0);
    const finished turned = home.control({"show", "conversations", "--json"});
    EXPECT_NE(turned.output.find("\"from_state\": \"receive\""), std::string::npos) << turned.output;
    EXPECT_NE(turned.output.find("\"to_state\": \"send\""), std::string::npos) << turned.output;
    EXPECT_NE(turned.output.find("\"to_bytes\": 6"), std::string::npos) << turned.output;
}

TEST(Data, an_empty_record_is_a_record)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("cmsend 0 0 1").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    const reply got = server("cmrcv 0 100");
    EXPECT_EQ(got.rc, 0);
    EXPECT_EQ(got.number("data"), 2);
    EXPECT_EQ(got.number("length"), 0);
}

TEST(Data, a_record_longer_than_the_buffer_comes_in_pieces)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("cmsend 0 250 3").rc, 0);
    ASSERT_EQ(client("cmtext 0 next").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    const int lengths[] = {100, 100, 50};
    for (int i = 0; i < 3; ++i)
    {
        const reply got = server("cmrcv 0 100");
        EXPECT_EQ(got.rc, 0);
        EXPECT_EQ(got.number("length"), lengths[i]);
        EXPECT_EQ(got.number("data"), i < 2 ? 3 : 2); // incomplete, incomplete, complete
    }
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "next");
}

TEST(Data, megabytes_in_both_directions)
{
    node home;
    tp server(home), client(home);
    converse(client, server);

    server.send("rcvall 0");
    const reply there = client("sendmany 0 1000 32767 5", 60000);
    ASSERT_EQ(there.rc, 0);
    client.send("rcvall 0"); // gives the turn
    const reply got = server.receive(60000);
    EXPECT_EQ(got.rc, 0);
    EXPECT_EQ(got.number("status"), 1);
    EXPECT_EQ(got.number("records"), 1000);
    EXPECT_EQ(got.text("bytes"), there.text("bytes"));
    EXPECT_EQ(got.text("hash"), there.text("hash"));

    const reply back = server("sendmany 0 1000 32767 9", 60000);
    ASSERT_EQ(back.rc, 0);
    ASSERT_EQ(server("cmdeal 0").rc, 0);
    const reply end = client.receive(60000);
    EXPECT_EQ(end.rc, 18);
    EXPECT_EQ(end.number("records"), 1000);
    EXPECT_EQ(end.text("hash"), back.text("hash"));
}

TEST(Data, small_sends_are_gathered_until_they_are_flushed)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    server.send("cmrcv 0 100");
    ASSERT_EQ(client("cmtext 0 buffered").rc, 0);
    EXPECT_FALSE(server.answers(100));
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server.receive().text("text"), "buffered");
}

TEST(Data, a_full_buffer_travels_without_a_flush)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    client.send("sendmany 0 20 32767 2");
    EXPECT_EQ(server("cmrcv 0 32767").number("length"), 32767);
    server.send("rcvall 0");
    EXPECT_EQ(client.receive().rc, 0);
}

TEST(Data, a_receiver_that_does_not_receive_holds_the_sender_up_and_nothing_is_lost)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    client.send("sendmany 0 2000 32767 11"); // more than any socket takes
    EXPECT_FALSE(client.answers(300));
    server.send("rcvall 0");
    const reply sent = client.receive(60000);
    ASSERT_EQ(sent.rc, 0);
    ASSERT_EQ(client("cmdeal 0").rc, 0);
    const reply got = server.receive(60000);
    EXPECT_EQ(got.rc, 18);
    EXPECT_EQ(got.number("records"), 2000);
    EXPECT_EQ(got.text("hash"), sent.text("hash"));
}

TEST(Data, many_turns)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    server.send("echo 0");
    EXPECT_EQ(client("pingpong 0 500 1").rc, 0);
    EXPECT_EQ(client("pingpong 0 200 32767").rc, 0);
    ASSERT_EQ(client("cmdeal 0").rc, 0);
    const reply end = server.receive();
    EXPECT_EQ(end.rc, 18);
    EXPECT_EQ(end.number("rounds"), 700);
}

TEST(Data, without_the_turn_nothing_can_be_sent_and_the_conversation_lives_on)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    EXPECT_EQ(server("cmtext 0 wrong").rc, 25);
    EXPECT_EQ(server("cmflus 0").rc, 25);
    EXPECT_EQ(server("cmdeal 0").rc, 25);
    server.send("echo 0");
    EXPECT_EQ(client("pingpong 0 3 100").rc, 0);
}

TEST(Data, lengths_that_no_send_takes)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    EXPECT_EQ(client("cmsend 0 32768 1").rc, 24);
    EXPECT_EQ(client("cmsend 0 -1 1").rc, 24);
    EXPECT_EQ(server("cmrcv 0 32768").rc, 24);
    EXPECT_EQ(server("cmrcv 0 -1").rc, 24);
    EXPECT_EQ(client("cmtext 0 fine").rc, 0);
    EXPECT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "fine");
}
