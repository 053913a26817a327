// setup_test.cpp - how conversations begin and end between real programs: names, accepts, refusals, waiting for a
// session.
#include "conversations/harness.hpp"

#include <gtest/gtest.h>

using namespace conversations;

TEST(Setup, a_whole_conversation_from_initialize_to_deallocate)
{
    node home;
    tp server(home), client(home);
    EXPECT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("cmaccp 0");
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 0);
    EXPECT_EQ(client("cmtext 0 question").rc, 0);
    client.send("cmrcv 0 100"); // gives the turn and waits

    EXPECT_EQ(server.receive().rc, 0);
    const reply question = server("rcvall 0");
    EXPECT_EQ(question.rc, 0);
    EXPECT_EQ(question.number("status"), 1); // the turn
    EXPECT_EQ(question.number("records"), 1);
    EXPECT_EQ(question.number("bytes"), 8);
    EXPECT_EQ(server("cmtext 0 answer").rc, 0);
    EXPECT_EQ(server("cmdeal 0").rc, 0);

    const reply answer = client.receive();
    EXPECT_EQ(answer.rc, 0);
    EXPECT_EQ(answer.number("data"), 2); // complete
    EXPECT_EQ(answer.text("text"), "answer");
    EXPECT_EQ(client("cmrcv 0 100").rc, 18); // deallocated
    // Over on both sides: neither ID means anything any more.
    EXPECT_EQ(client("cmrcv 0 100").rc, 24);
    EXPECT_EQ(server("cmdeal 0").rc, 24);
}

TEST(Setup, accept_may_come_after_the_allocation)
{
    node home;
    tp server(home), client(home);
    EXPECT_EQ(server("cmsltp ECHOSRV").rc, 0);
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 0);
    EXPECT_EQ(client("cmtext 0 early").rc, 0);
    EXPECT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmaccp 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "early");
}

TEST(Setup, accept_may_come_before_any_client)
{
    node home;
    tp server(home);
    EXPECT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("cmaccp 0");
    tp client(home);
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 0);
    EXPECT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server.receive().rc, 0);
}

TEST(Setup, conversations_are_accepted_in_the_order_of_their_attaches)
{
    node home;
    tp server(home), first(home), second(home);
    EXPECT_EQ(server("cmsltp ECHOSRV").rc, 0);
    for (tp *client : {&first, &second})
    {
        EXPECT_EQ((*client)("cminit 0 ECHO").rc, 0);
        EXPECT_EQ((*client)("cmallc 0").rc, 0);
        EXPECT_EQ((*client)(client == &first ? "cmtext 0 first" : "cmtext 0 second").rc, 0);
        EXPECT_EQ((*client)("cmflus 0").rc, 0);
    }
    EXPECT_EQ(server("cmaccp 0").rc, 0);
    EXPECT_EQ(server("cmaccp 1").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "first");
    EXPECT_EQ(server("cmrcv 1 100").text("text"), "second");
}

TEST(Setup, server_name_from_the_environment)
{
    node home;
    tp server(home, {{"APPCTPN", "ECHOSRV"}}), client(home);
    server.send("cmaccp 0");
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 0);
    EXPECT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server.receive().rc, 0);
    EXPECT_EQ(server("cmetpn 0").text("name"), "ECHOSRV");
}

TEST(Setup, server_without_a_name_has_the_default_name)
{
    node home(standard_configuration() + "\n[[side_info]]\ndestination = \"DEFAULT\"\npartner_lu = \"LOCALLU\"\n"
                                               "tp_name = \"CPIC_DEFAULT_TPNAME\"\nmode = \"#INTER\"\n");
    tp server(home), client(home);
    server.send("cmaccp 0");
    EXPECT_EQ(client("cminit 0 DEFAULT").rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 0);
    EXPECT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server.receive().rc, 0);
    EXPECT_EQ(server("cmetpn 0").text("name"), "CPIC_DEFAULT_TPNAME");
}

TEST(Setup, one_program_serves_two_names_and_learns_which_was_called)
{
    node home;
    tp server(home), client(home);
    EXPECT_EQ(server("cmsltp ECHOSRV").rc, 0);
    EXPECT_EQ(server("cmsltp OTHERSRV").rc, 0);
    int slot = 0;
    for (const char *destination : {"OTHER", "ECHO"})
    {
        const std::string number = std::to_string(slot++);
        EXPECT_EQ(client("cminit " + number + " " + destination).rc, 0);
        EXPECT_EQ(client("cmallc " + number).rc, 0);
        EXPECT_EQ(client("cmflus " + number).rc, 0);
        EXPECT_EQ(server("cmaccp " + number).rc, 0);
        EXPECT_EQ(server("cmetpn " + number).text("name"), std::string(destination) + "SRV");
    }
}

TEST(Setup, unknown_destination)
{
    node home;
    tp client(home);
    EXPECT_EQ(client("cminit 0 NOWHERE").rc, 24);
    EXPECT_EQ(client("cmallc 0").rc, 24); // and no conversation was left
}

TEST(Setup, a_partner_lu_or_mode_that_the_node_does_not_know)
{
    node home(standard_configuration() + "\n[[side_info]]\ndestination = \"NOLU\"\npartner_lu = \"NOSUCHLU\"\n"
                                         "tp_name = \"ECHOSRV\"\nmode = \"#INTER\"\n\n[[side_info]]\n"
                                         "destination = \"NOFQLU\"\npartner_lu = \"LOCALNET.NOSUCH\"\n"
                                         "tp_name = \"ECHOSRV\"\nmode = \"#INTER\"\n\n[[side_info]]\n"
                                         "destination = \"NOMODE\"\npartner_lu = \"LOCALLU\"\n"
                                         "tp_name = \"ECHOSRV\"\nmode = \"NOMODE\"\n");
    tp client(home);
    for (const char *destination : {"NOLU", "NOFQLU", "NOMODE"})
    {
        EXPECT_EQ(client(std::string("cminit 0 ") + destination).rc, 0);
        EXPECT_EQ(client("cmallc 0").rc, 19) << destination;
        // A refused allocation leaves the conversation as it was: other characteristics can be tried.
        EXPECT_EQ(client("ask cmecs 0").number("value"), 2) << destination;
    }
}

TEST(Setup, unknown_local_lu)
{
    node home;
    tp client(home, {{"APPCLLU", "NOSUCHLU"}});
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 20);
    EXPECT_EQ(client("cmallc 0").rc, 24); // the failed start of the TP has taken the conversation with it
}

TEST(Setup, nobody_serves_the_tp_name)
{
    node home(standard_configuration(1));
    tp client(home);
    EXPECT_EQ(client("cminit 0 NOTPN").rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 0); // the partner hears of it with the first data
    EXPECT_EQ(client("cmtext 0 hello").rc, 0);
    EXPECT_EQ(client("cmrcv 0 100").rc, 9);
    EXPECT_EQ(client("cmrcv 0 100").rc, 24);
}

TEST(Setup, the_program_that_served_the_tp_name_is_gone)
{
    node home(standard_configuration(1));
    tp client(home);
    {
        tp server(home);
        EXPECT_EQ(server("cmsltp ECHOSRV").rc, 0);
    }
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 0);
    EXPECT_EQ(client("cmrcv 0 100").rc, 11); // not now: try again
}

TEST(Setup, allocation_waits_for_a_session)
{
    node home(standard_configuration() + "\n[[mode]]\nname = \"NARROW\"\nsession_limit = 1\n\n[[side_info]]\n"
                                               "destination = \"NARROW\"\npartner_lu = \"LOCALLU\"\n"
                                               "tp_name = \"ECHOSRV\"\nmode = \"NARROW\"\n");
    tp server(home), first(home), second(home);
    EXPECT_EQ(server("cmsltp ECHOSRV").rc, 0);
    EXPECT_EQ(first("cminit 0 NARROW").rc, 0);
    EXPECT_EQ(first("cmallc 0").rc, 0);
    EXPECT_EQ(first("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmaccp 0").rc, 0);

    EXPECT_EQ(second("cminit 0 NARROW").rc, 0);
    second.send("cmallc 0");
    EXPECT_FALSE(second.answers(200));
    EXPECT_EQ(first("cmdeal 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").rc, 18);
    EXPECT_EQ(second.receive().rc, 0);
    EXPECT_EQ(second("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmaccp 1").rc, 0);
}

TEST(Setup, an_allocation_of_no_session_gives_up_after_the_configured_time)
{
    node home("[node]\nallocation_wait_seconds = 1\n\n[[lu]]\nalias = \"LOCALLU\"\nname = \"LOCALNET.LOCALLU\"\n\n"
              "[[mode]]\nname = \"NARROW\"\nsession_limit = 1\n\n[[side_info]]\ndestination = \"NARROW\"\n"
              "partner_lu = \"LOCALLU\"\ntp_name = \"ECHOSRV\"\nmode = \"NARROW\"\n");
    tp first(home), second(home);
    EXPECT_EQ(first("cminit 0 NARROW").rc, 0);
    EXPECT_EQ(first("cmallc 0").rc, 0);
    EXPECT_EQ(second("cminit 0 NARROW").rc, 0);
    EXPECT_EQ(second("cmallc 0").rc, 2); // retry later
}

TEST(Setup, upper_case_calls_and_lower_case_calls_are_the_same)
{
    node home;
    tp server(home), client(home);
    EXPECT_EQ(server("cmsltp ECHOSRV").rc, 0);
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0);
    EXPECT_EQ(client("CMALLC 0").rc, 0);
    EXPECT_EQ(client("CMFLUS 0").rc, 0);
    EXPECT_EQ(server("CMACCP 0").rc, 0);
    EXPECT_EQ(client("CMDEAL 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 10").rc, 18);
}

TEST(Setup, terminate_ends_the_context_and_the_program_can_go_on)
{
    node home;
    tp client(home), server(home);
    converse(client, server);
    EXPECT_EQ(server("cmterm 2").rc, 19);
    EXPECT_EQ(server("cmterm 0").rc, 0);
    EXPECT_EQ(client("cmdeal 0").rc, 0);
    // The library is still there for the next conversation.
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 0);
    EXPECT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmaccp 1").rc, 0);
}
