// nonblocking_test.cpp - non-blocking processing between real programs: completions collected with CMWAIT, looked for
// with CMCHCK, given up with CMCANC.
#include "conversations/harness.hpp"

#include <gtest/gtest.h>

using namespace conversations;

TEST(NonBlocking, a_receive_completes_when_the_partner_sends)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(server("set cmspm 0 1").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").rc, 35);
    EXPECT_EQ(server("cmrcv 0 100").rc, 37); // one at a time
    EXPECT_EQ(server("cmchck").rc, 28);      // still out
    ASSERT_EQ(client("cmtext 0 late").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    const reply collected = server("cmwait");
    EXPECT_EQ(collected.rc, 0);
    EXPECT_EQ(collected.number("slot"), 0);
    EXPECT_EQ(collected.number("code"), 0);
    const reply got = server("show 0");
    EXPECT_EQ(got.number("data"), 2);
    EXPECT_EQ(got.text("text"), "late");
    EXPECT_EQ(server("cmwait").rc, 25); // nothing more to wait for
}

TEST(NonBlocking, check_finds_a_completion_and_leaves_it)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    EXPECT_EQ(server("cmchck").rc, 25);
    ASSERT_EQ(server("set cmspm 0 1").rc, 0);
    ASSERT_EQ(server("cmrcv 0 100").rc, 35);
    ASSERT_EQ(client("cmtext 0 here").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    // The data is on its way when the flush has returned: looking again and again must find it.
    reply checked = server("cmchck");
    for (int i = 0; i < 2000 && checked.rc == 28; ++i)
        checked = server("cmchck");
    EXPECT_EQ(checked.rc, 0);
    EXPECT_EQ(checked.number("slot"), 0);
    EXPECT_EQ(server("cmchck").number("slot"), 0);
    EXPECT_EQ(server("cmwait").number("slot"), 0);
    EXPECT_EQ(server("cmchck").rc, 25);
}

TEST(NonBlocking, two_conversations_complete_one_after_the_other)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("cminit 1 ECHO").rc, 0);
    ASSERT_EQ(client("cmallc 1").rc, 0);
    ASSERT_EQ(client("cmflus 1").rc, 0);
    ASSERT_EQ(server("cmaccp 1").rc, 0);
    for (const char *slot : {"0", "1"})
    {
        ASSERT_EQ(server(std::string("set cmspm ") + slot + " 1").rc, 0);
        ASSERT_EQ(server(std::string("cmrcv ") + slot + " 100").rc, 35);
    }
    server.send("cmwait");
    EXPECT_FALSE(server.answers(100));
    ASSERT_EQ(client("cmtext 1 one").rc, 0);
    ASSERT_EQ(client("cmflus 1").rc, 0);
    EXPECT_EQ(server.receive().number("slot"), 1);
    ASSERT_EQ(client("cmtext 0 zero").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmwait").number("slot"), 0);
    EXPECT_EQ(server("show 0").text("text"), "zero");
    EXPECT_EQ(server("show 1").text("text"), "one");
}

TEST(NonBlocking, an_accept_completes_when_a_client_comes)
{
    node home;
    tp server(home), client(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(server("cminic 0").rc, 0);
    ASSERT_EQ(server("set cmspm 0 1").rc, 0);
    EXPECT_EQ(server("cmacci 0").rc, 35);
    ASSERT_EQ(client("cminit 0 ECHO").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmtext 0 knock").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    const reply accepted = server("cmwait");
    EXPECT_EQ(accepted.rc, 0);
    EXPECT_EQ(accepted.number("slot"), 0);
    EXPECT_EQ(accepted.number("code"), 0);
    ASSERT_EQ(server("set cmspm 0 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "knock");
}

TEST(NonBlocking, an_allocation_that_waits_for_a_session_completes_later)
{
    node home(standard_configuration() + "\n[[mode]]\nname = \"NARROW\"\nsession_limit = 1\n\n[[side_info]]\n"
                                               "destination = \"NARROW\"\npartner_lu = \"LOCALLU\"\n"
                                               "tp_name = \"ECHOSRV\"\nmode = \"NARROW\"\n");
    tp server(home), client(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(client("cminit 0 NARROW").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    ASSERT_EQ(server("cmaccp 0").rc, 0);
    ASSERT_EQ(client("cminit 1 NARROW").rc, 0);
    ASSERT_EQ(client("set cmspm 1 1").rc, 0);
    EXPECT_EQ(client("cmallc 1").rc, 35);
    ASSERT_EQ(client("cmdeal 0").rc, 0);
    ASSERT_EQ(server("cmrcv 0 100").rc, 18);
    const reply collected = client("cmwait");
    EXPECT_EQ(collected.number("slot"), 1);
    EXPECT_EQ(collected.number("code"), 0);
}

TEST(NonBlocking, a_send_into_a_full_pipe_completes_when_the_partner_reads)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("set cmspm 0 1").rc, 0);
    // Sends until one has to wait.
    const reply filled = client("sendmany 0 100000 32767 4", 60000);
    ASSERT_EQ(filled.rc, 35) << filled.line;
    server.send("rcvall 0");
    const reply collected = client("cmwait", 60000);
    EXPECT_EQ(collected.rc, 0);
    EXPECT_EQ(collected.number("code"), 0);
    ASSERT_EQ(client("set cmspm 0 0").rc, 0);
    ASSERT_EQ(client("cmdeal 0").rc, 0);
    const reply got = server.receive(60000);
    EXPECT_EQ(got.rc, 18);
    EXPECT_EQ(got.text("records"), filled.text("records"));
    EXPECT_EQ(got.text("hash"), filled.text("hash"));
}

TEST(NonBlocking, a_pending_accept_can_be_cancelled)
{
    node home;
    tp server(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(server("cminic 0").rc, 0);
    ASSERT_EQ(server("set cmspm 0 1").rc, 0);
    ASSERT_EQ(server("cmacci 0").rc, 35);
    EXPECT_EQ(server("cmcanc 0").rc, 0);
    // The name is still served: the next accept works.
    tp client(home);
    ASSERT_EQ(client("cminit 0 ECHO").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmtext 0 again").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    ASSERT_EQ(server("cmaccp 1").rc, 0);
    EXPECT_EQ(server("cmrcv 1 100").text("text"), "again");
}

TEST(NonBlocking, a_blocked_receive_is_cancelled_from_another_thread)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(server("bg cmrcv 0 100").rc, 0);
    // The receive has begun when a second call on the conversation is refused.
    reply second = server("cmflus 0");
    for (int i = 0; i < 2000 && second.rc != 37; ++i)
        second = server("cmflus 0");
    ASSERT_EQ(second.rc, 37);
    EXPECT_EQ(server("cmcanc 0").rc, 0);
    EXPECT_NE(server.background().rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").rc, 24);
    EXPECT_NE(client("cmrcv 0 100").rc, 0); // the partner learns that it is over
}
