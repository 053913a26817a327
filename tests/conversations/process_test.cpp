// process_test.cpp - threads and forks of transaction programs.
#include "conversations/harness.hpp"

#include <gtest/gtest.h>

using namespace conversations;

TEST(Process, a_blocked_call_does_not_hold_up_another_thread)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("cminit 1 ECHO").rc, 0);
    ASSERT_EQ(client("cmallc 1").rc, 0);
    ASSERT_EQ(client("cmtext 1 second").rc, 0);
    ASSERT_EQ(client("cmflus 1").rc, 0);
    ASSERT_EQ(server("cmaccp 1").rc, 0);
    ASSERT_EQ(server("bg cmrcv 0 100").rc, 0); // waits in a thread of its own
    EXPECT_EQ(server("cmrcv 1 100").text("text"), "second");
    ASSERT_EQ(client("cmtext 0 first-again").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server.background().text("text"), "first-again");
}

TEST(Process, two_threads_with_a_conversation_each)
{
    node home;
    tp server(home), client(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("servers 2");
    const reply done = client("clients 2 300 1000 ECHO", 60000);
    EXPECT_EQ(done.rc, 0) << done.line;
    EXPECT_EQ(server.receive(60000).rc, 0);
}

TEST(Process, sixteen_threads_with_a_conversation_each)
{
    node home;
    tp server(home), client(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("servers 16");
    const reply done = client("clients 16 50 5000 ECHO", 60000);
    EXPECT_EQ(done.rc, 0) << done.line;
    EXPECT_EQ(server.receive(60000).rc, 0);
}

TEST(Process, two_ends_of_a_conversation_in_one_process)
{
    node home;
    tp both(home);
    ASSERT_EQ(both("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(both("bg cmaccp 0").rc, 0);
    ASSERT_EQ(both("cminit 1 ECHO").rc, 0);
    ASSERT_EQ(both("cmallc 1").rc, 0);
    ASSERT_EQ(both("cmtext 1 myself").rc, 0);
    ASSERT_EQ(both("cmflus 1").rc, 0);
    ASSERT_EQ(both.background().rc, 0);
    EXPECT_EQ(both("cmrcv 0 100").text("text"), "myself");
}

TEST(Process, a_forked_child_starts_afresh_and_leaves_the_conversation_of_its_parent_alone)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    EXPECT_EQ(client("fork cmtext 0 intruder").rc, 24); // the child has no conversation
    EXPECT_EQ(client("fork cminit 1 ECHO").rc, 0);      // but can begin its own
    server.send("echo 0");
    EXPECT_EQ(client("pingpong 0 10 1000").rc, 0);
    EXPECT_EQ(client("cmdeal 0").rc, 0);
    EXPECT_EQ(server.receive().rc, 18);
}

TEST(Process, a_forked_child_holds_a_whole_conversation)
{
    node home;
    tp first(home), second(home);
    ASSERT_EQ(first("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(second("cminit 5 ECHO").rc, 0); // the library of the parent is up and has a conversation
    first.send("servers 2");
    EXPECT_EQ(second("fork clients 1 20 500 ECHO").rc, 0);
    EXPECT_EQ(second("clients 1 20 500 ECHO").rc, 0);
    EXPECT_EQ(first.receive().rc, 0);
}
