// control_test.cpp - confirmation, turns, errors and the types of sending, receiving and deallocating, between real
// programs.
#include "conversations/harness.hpp"

#include <gtest/gtest.h>

using namespace conversations;

namespace {

constexpr long turn = 1, confirm = 2, confirm_send = 3, confirm_deallocate = 4; // status received

// As converse(), with sync level confirm; nothing has crossed but the attach.
void converse_confirmed(tp &client, tp &server)
{
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("cmaccp 0");
    ASSERT_EQ(client("cminit 0 ECHO").rc, 0);
    ASSERT_EQ(client("set cmssl 0 1").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    ASSERT_EQ(server.receive().rc, 0);
    EXPECT_EQ(server("ask cmesl 0").number("value"), 1);
}

} // namespace

TEST(Control, confirm_waits_for_confirmed)
{
    node home;
    tp server(home), client(home);
    converse_confirmed(client, server);
    ASSERT_EQ(client("cmtext 0 sure?").rc, 0);
    client.send("ask cmcfm 0");
    reply got = server("cmrcv 0 100");
    EXPECT_EQ(got.text("text"), "sure?");
    if (got.number("status") == 0)
        got = server("cmrcv 0 100");
    EXPECT_EQ(got.number("status"), confirm);
    EXPECT_FALSE(client.answers(50));
    EXPECT_EQ(server("cmcfmd 0").rc, 0);
    EXPECT_EQ(client.receive().rc, 0);
}

TEST(Control, an_error_instead_of_confirmed)
{
    node home;
    tp server(home), client(home);
    converse_confirmed(client, server);
    ASSERT_EQ(client("cmtext 0 sure?").rc, 0);
    client.send("ask cmcfm 0");
    ASSERT_EQ(server("rcvall 0").rc, 0);
    EXPECT_EQ(server("ask cmserr 0").rc, 0);
    EXPECT_EQ(client.receive().rc, 22); // purging; the turn has gone to who reported it
    ASSERT_EQ(server("cmtext 0 because").rc, 0);
    ASSERT_EQ(server("cmflus 0").rc, 0);
    EXPECT_EQ(client("cmrcv 0 100").text("text"), "because");
}

TEST(Control, deallocation_is_confirmed_and_refused)
{
    for (const bool accepted : {true, false})
    {
        node home;
        tp server(home), client(home);
        converse_confirmed(client, server);
        client.send("cmdeal 0");
        EXPECT_EQ(server("rcvall 0").number("status"), confirm_deallocate);
        if (accepted)
        {
            EXPECT_EQ(server("cmcfmd 0").rc, 0);
            EXPECT_EQ(client.receive().rc, 0);
            EXPECT_EQ(server("cmrcv 0 100").rc, 24); // over here too
        }
        else
        {
            EXPECT_EQ(server("ask cmserr 0").rc, 0);
            EXPECT_EQ(client.receive().rc, 22);
            ASSERT_EQ(server("cmtext 0 not-yet").rc, 0);
            ASSERT_EQ(server("cmflus 0").rc, 0);
            EXPECT_EQ(client("cmrcv 0 100").text("text"), "not-yet"); // the conversation lives on
        }
    }
}

TEST(Control, prepare_to_receive_gives_the_turn_without_a_receive)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("cmtext 0 over-to-you").rc, 0);
    ASSERT_EQ(client("cmptr 0").rc, 0);
    EXPECT_EQ(client("cmtext 0 one-more").rc, 25);
    EXPECT_EQ(server("rcvall 0").number("status"), turn);
    ASSERT_EQ(server("cmtext 0 thanks").rc, 0);
    ASSERT_EQ(server("cmflus 0").rc, 0);
    EXPECT_EQ(client("cmrcv 0 100").text("text"), "thanks");
}

TEST(Control, prepare_to_receive_with_confirmation)
{
    node home;
    tp server(home), client(home);
    converse_confirmed(client, server);
    ASSERT_EQ(client("cmtext 0 yours").rc, 0);
    client.send("cmptr 0"); // by sync level: confirm
    EXPECT_EQ(server("rcvall 0").number("status"), confirm_send);
    EXPECT_EQ(server("cmcfmd 0").rc, 0);
    EXPECT_EQ(client.receive().rc, 0);
    EXPECT_EQ(server("cmtext 0 mine").rc, 0);
}

TEST(Control, an_error_from_the_receiver_purges_what_was_on_its_way)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("cmtext 0 void").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    server.send("ask cmserr 0");
    // The sender learns of it with one of its next sends.
    reply sent = client("sendmany 0 100000 1000 1", 60000);
    EXPECT_EQ(sent.rc, 22) << sent.line;
    EXPECT_EQ(server.receive().rc, 0);
    ASSERT_EQ(server("cmtext 0 again-please").rc, 0);
    ASSERT_EQ(server("cmflus 0").rc, 0);
    EXPECT_EQ(client("cmrcv 0 100").text("text"), "again-please");
}

TEST(Control, an_error_from_the_sender)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("ask cmserr 0").rc, 0);
    ASSERT_EQ(client("cmtext 0 explanation").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").rc, 21); // nothing truncated
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "explanation");
}

// The test for a request to send reads the partner's error without telling it. An error reported by this end then makes
// it void, and the conversation goes on.
TEST(Control, errors_of_both_when_one_has_been_read_and_not_told)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("ask cmserr 0").rc, 0);
    EXPECT_EQ(server("ask cmtrts 0").rc, 0);
    EXPECT_EQ(server("ask cmserr 0").rc, 0);
    ASSERT_EQ(server("cmtext 0 reply").rc, 0);
    ASSERT_EQ(server("cmptr 0").rc, 0);
    EXPECT_EQ(client("cmflus 0").rc, 22);
    EXPECT_EQ(client("rcvall 0").number("status"), turn);
    ASSERT_EQ(client("cmtext 0 on").rc, 0);
    ASSERT_EQ(client("cmdeal 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "on");
    EXPECT_EQ(server("cmrcv 0 100").rc, 18);
}

TEST(Control, request_to_send_is_seen_by_the_sender)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    const reply none = client("ask cmtrts 0");
    EXPECT_EQ(none.rc, 0);
    EXPECT_EQ(none.number("value"), 0);
    ASSERT_EQ(server("cmrts 0").rc, 0);
    // It travels on its own: looked for until it is there.
    reply seen = client("ask cmtrts 0");
    for (int i = 0; i < 2000 && seen.number("value") != 1; ++i)
        seen = client("ask cmtrts 0");
    EXPECT_EQ(seen.number("value"), 1);
    EXPECT_EQ(client("ask cmtrts 0").number("value"), 0); // told once
}

TEST(Control, receive_immediate)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(server("set cmsrt 0 1").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").rc, 28);
    ASSERT_EQ(client("cmtext 0 now").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    reply got = server("cmrcv 0 100");
    for (int i = 0; i < 2000 && got.rc == 28; ++i)
        got = server("cmrcv 0 100");
    EXPECT_EQ(got.rc, 0);
    EXPECT_EQ(got.text("text"), "now");
}

TEST(Control, send_types)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("set cmsst 0 1").rc, 0); // and flush
    ASSERT_EQ(client("cmtext 0 flushed").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "flushed");

    ASSERT_EQ(client("set cmsst 0 3").rc, 0); // and prepare to receive
    ASSERT_EQ(client("cmtext 0 turn").rc, 0);
    EXPECT_EQ(server("rcvall 0").number("status"), turn);

    ASSERT_EQ(server("set cmsst 0 4").rc, 0); // and deallocate
    EXPECT_EQ(server("cmtext 0 last").rc, 0);
    EXPECT_EQ(client("cmrcv 0 100").text("text"), "last");
    EXPECT_EQ(client("cmrcv 0 100").rc, 18);
    EXPECT_EQ(server("cmflus 0").rc, 24);
}

TEST(Control, send_and_confirm)
{
    node home;
    tp server(home), client(home);
    converse_confirmed(client, server);
    ASSERT_EQ(client("set cmsst 0 2").rc, 0);
    client.send("cmtext 0 important");
    const reply got = server("rcvall 0");
    EXPECT_EQ(got.number("status"), confirm);
    EXPECT_EQ(got.number("bytes"), 9);
    EXPECT_EQ(server("cmcfmd 0").rc, 0);
    EXPECT_EQ(client.receive().rc, 0);
}

TEST(Control, abend_in_either_state)
{
    for (const bool by_receiver : {false, true})
    {
        node home;
        tp server(home), client(home);
        converse(client, server);
        tp &first = by_receiver ? server : client, &second = by_receiver ? client : server;
        ASSERT_EQ(first("set cmsdt 0 3").rc, 0);
        EXPECT_EQ(first("cmdeal 0").rc, 0);
        EXPECT_EQ(second("cmrcv 0 100").rc, 17);
        EXPECT_EQ(second("cmrcv 0 100").rc, 24);
    }
}

TEST(Control, states_as_the_program_asks_for_them)
{
    constexpr long initialize = 2, send = 3, receive = 4;
    node home;
    tp server(home), client(home);
    ASSERT_EQ(client("cminit 1 ECHO").rc, 0);
    EXPECT_EQ(client("ask cmecs 1").number("value"), initialize);
    converse(client, server);
    EXPECT_EQ(client("ask cmecs 0").number("value"), send);
    EXPECT_EQ(server("ask cmecs 0").number("value"), receive);
    ASSERT_EQ(client("cmptr 0").rc, 0);
    ASSERT_EQ(server("rcvall 0").number("status"), turn);
    EXPECT_EQ(client("ask cmecs 0").number("value"), receive);
    EXPECT_EQ(server("ask cmecs 0").number("value"), send);
}

// Small records are gathered; what the partner has to say reaches their sender all the same, long before they would
// fill a buffer of 32,000 bytes.
TEST(Control, a_sender_of_small_records_hears_of_a_request_to_send)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("cmtext 0 x").rc, 0); // something is gathered from now on
    ASSERT_EQ(server("cmrts 0").rc, 0);
    reply seen;
    for (int sent = 0; sent < 2000 && seen.number("rts") != 1; ++sent)
    {
        ASSERT_EQ(client("cmtext 0 x").rc, 0);
        seen = client("show 0");
    }
    EXPECT_EQ(seen.number("rts"), 1) << seen.line;
}

TEST(Control, a_sender_of_small_records_hears_of_an_error)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("cmtext 0 x").rc, 0);
    ASSERT_EQ(server("ask cmserr 0").rc, 0);
    long rc = 0;
    for (int sent = 0; sent < 2000 && rc == 0; ++sent)
        rc = client("cmtext 0 x").rc;
    EXPECT_EQ(rc, 22);
}
