// failure_test.cpp - partners and brokers that die. Whatever happens to one process, no call of another one hangs, and
// its next conversation works.
#include "conversations/harness.hpp"

#include <csignal>
#include <gtest/gtest.h>

using namespace conversations;

namespace {

constexpr long resource_failure_retry = 27;

// The two hold a conversation in slot 2 and see it through.
void expect_new_conversation(tp &client, tp &server)
{
    server.send("cmaccp 2");
    ASSERT_EQ(client("cminit 2 ECHO").rc, 0);
    ASSERT_EQ(client("cmallc 2").rc, 0);
    ASSERT_EQ(client("cmtext 2 alive").rc, 0);
    ASSERT_EQ(client("cmdeal 2").rc, 0);
    ASSERT_EQ(server.receive().rc, 0);
    EXPECT_EQ(server("cmrcv 2 100").text("text"), "alive");
    EXPECT_EQ(server("cmrcv 2 100").rc, 18);
}

} // namespace

TEST(Failure, the_client_dies_while_the_server_receives)
{
    node home;
    tp server(home);
    {
        tp client(home);
        converse(client, server);
        server.send("cmrcv 0 100");
        client.kill(SIGKILL);
    }
    EXPECT_EQ(server.receive().rc, resource_failure_retry);
    EXPECT_EQ(server("cmrcv 0 100").rc, 24); // the conversation is gone
    tp client(home);
    expect_new_conversation(client, server);
}

TEST(Failure, the_server_dies_while_the_client_waits_for_its_answer)
{
    node home;
    tp client(home);
    {
        tp server(home);
        converse(client, server);
        client.send("cmrcv 0 100");
        ASSERT_EQ(server("cmrcv 0 100").number("status"), 1);
        server.kill(SIGKILL);
    }
    EXPECT_EQ(client.receive().rc, resource_failure_retry);
}

TEST(Failure, the_server_dies_while_the_client_sends)
{
    node home;
    tp client(home);
    tp server(home);
    converse(client, server);
    client.send("sendmany 0 100000 32767 1");
    ASSERT_FALSE(client.answers(100));
    server.kill(SIGKILL);
    EXPECT_EQ(client.receive(30000).rc, resource_failure_retry);
}

TEST(Failure, a_partner_that_just_exits_is_a_failure_too)
{
    node home;
    tp server(home);
    {
        tp client(home);
        converse(client, server);
        client.send("quit");
    }
    EXPECT_EQ(server("cmrcv 0 100").rc, resource_failure_retry);
}

TEST(Failure, data_sent_before_the_sender_died_still_arrives)
{
    node home;
    tp server(home);
    {
        tp client(home);
        converse(client, server);
        ASSERT_EQ(client("cmtext 0 legacy").rc, 0);
        ASSERT_EQ(client("cmflus 0").rc, 0);
        client.kill(SIGKILL);
    }
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "legacy");
    EXPECT_EQ(server("cmrcv 0 100").rc, resource_failure_retry);
}

TEST(Failure, a_partner_dies_under_a_non_blocking_receive)
{
    node home;
    tp server(home);
    {
        tp client(home);
        converse(client, server);
        ASSERT_EQ(server("set cmspm 0 1").rc, 0);
        ASSERT_EQ(server("cmrcv 0 100").rc, 35);
        client.kill(SIGKILL);
    }
    const reply collected = server("cmwait");
    EXPECT_EQ(collected.rc, 0);
    EXPECT_EQ(collected.number("code"), resource_failure_retry);
    EXPECT_EQ(server("cmrcv 0 100").rc, 24);
}

TEST(Failure, a_partner_that_is_stopped_stalls_its_own_conversation_only)
{
    node home;
    tp server(home), client(home), other(home);
    converse(client, server);
    client.kill(SIGSTOP);
    ASSERT_EQ(server("bg cmrcv 0 100").rc, 0);
    server.send("cmaccp 1");
    ASSERT_EQ(other("cminit 0 ECHO").rc, 0);
    ASSERT_EQ(other("cmallc 0").rc, 0);
    ASSERT_EQ(other("cmtext 0 through").rc, 0);
    ASSERT_EQ(other("cmflus 0").rc, 0);
    ASSERT_EQ(server.receive().rc, 0);
    EXPECT_EQ(server("cmrcv 1 100").text("text"), "through");
    client.kill(SIGCONT);
    ASSERT_EQ(client("cmtext 0 back").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server.background().text("text"), "back");
}

TEST(Failure, the_broker_dies_while_a_receive_waits)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    server.send("cmrcv 0 100");
    ASSERT_FALSE(server.answers(50));
    home.kill_broker();
    EXPECT_EQ(server.receive().rc, resource_failure_retry);
}

TEST(Failure, the_broker_dies_while_an_accept_waits)
{
    node home;
    tp server(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("cmaccp 0");
    ASSERT_FALSE(server.answers(50));
    home.kill_broker();
    EXPECT_NE(server.receive().rc, 0);
    // A new broker, and everything works again: the name has to be said again, as after a first start.
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    tp client(home);
    expect_new_conversation(client, server);
}

TEST(Failure, after_a_dead_broker_the_next_call_starts_afresh)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    const long before = home.broker();
    home.kill_broker();
    // Neither is in a call: the next one shows each that its conversation has failed, and the one after it is served.
    EXPECT_EQ(server("cmrcv 0 100").rc, resource_failure_retry);
    EXPECT_EQ(client("cmtext 0 hello").rc, resource_failure_retry);
    for (tp *program : {&server, &client})
        EXPECT_EQ((*program)("cmsltp ECHOSRV").rc, 0);
    EXPECT_NE(home.broker(), before);
    EXPECT_EQ(server("cmrcv 0 100").rc, 24); // nothing of the old node is left
    expect_new_conversation(client, server);
}

// Programs that were idle while the broker died, and whose first call after it needs a broker.
TEST(Failure, the_first_call_of_an_idle_program_works_after_a_dead_broker)
{
    node home;
    tp server(home), client(home), third(home);
    converse(client, server);
    ASSERT_EQ(client("cmdeal 0").rc, 0);
    ASSERT_EQ(server("cmrcv 0 100").rc, 18);
    ASSERT_EQ(third("cminit 5 ECHO").rc, 0);
    home.kill_broker();
    EXPECT_EQ(client("cminit 2 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 2").rc, 0);
    EXPECT_EQ(server("cmsltp ECHOSRV").rc, 0);
    // What was initialized before the loss is gone with it; initialized again it can be allocated.
    EXPECT_EQ(third("cmallc 5").rc, 24);
    EXPECT_EQ(third("cminit 5 ECHO").rc, 0);
    EXPECT_EQ(third("cmallc 5").rc, 0);
}

TEST(Failure, an_accept_is_the_first_call_after_a_dead_broker)
{
    node home;
    tp server(home, {{"APPCTPN", "ECHOSRV"}}), client(home);
    ASSERT_EQ(server("cminit 0 ECHO").rc, 0);
    ASSERT_EQ(client("cminit 0 ECHO").rc, 0);
    home.kill_broker();
    server.send("cmaccp 2");
    ASSERT_EQ(client("cminit 2 ECHO").rc, 0);
    ASSERT_EQ(client("cmallc 2").rc, 0);
    ASSERT_EQ(client("cmtext 2 alive").rc, 0);
    ASSERT_EQ(client("cmflus 2").rc, 0);
    EXPECT_EQ(server.receive().rc, 0);
    EXPECT_EQ(server("cmrcv 2 100").text("text"), "alive");
}

TEST(Failure, the_broker_dies_under_non_blocking_calls)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(server("set cmspm 0 1").rc, 0);
    ASSERT_EQ(server("cmrcv 0 100").rc, 35);
    home.kill_broker();
    // CMWAIT must come back: with the failed conversation, or with nothing to wait for any more.
    const reply collected = server("cmwait");
    if (collected.rc == 0)
        EXPECT_EQ(collected.number("code"), resource_failure_retry);
    else
        EXPECT_EQ(collected.rc, 25);
}

TEST(Failure, an_operator_stops_the_node_under_a_conversation)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    server.send("cmrcv 0 100");
    ASSERT_FALSE(server.answers(50));
    EXPECT_EQ(home.control({"stop"}).code, 0);
    EXPECT_EQ(server.receive().rc, resource_failure_retry);
}
