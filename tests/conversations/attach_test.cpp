// attach_test.cpp - the road of an attach: each refusal with its return code, security, sessions that are used up,
// queues, several programs with one name, names that go, service TP names.
#include "conversations/harness.hpp"

#include <csignal>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace conversations;

namespace {

std::string destination(const std::string &name, const std::string &tp_name, const std::string &more = "",
                        const std::string &mode = "#INTER")
{
    return "\n[[side_info]]\ndestination = \"" + name + "\"\npartner_lu = \"LOCALLU\"\ntp_name = \"" + tp_name +
           "\"\nmode = \"" + mode + "\"\n" + more;
}

// The password is "sesame".
constexpr char alice[] = "\n[[user]]\nname = \"ALICE\"\npassword_hash = \"$6$abcdefgh$Bk2D4uYVcw0FbFPsWa0iJZ1DNfy8v6O"
                         "jKcRcuBfMkWD1KdADPVnmQf5cr0O8HfAYpq1XrrjdgIRINkwgSKJ8/1\"\n";

// A conversation in slot 0 up to its first data; the code of the receive that shows what became of it.
long first_answer(tp &client, const std::string &name)
{
    EXPECT_EQ(client("cminit 0 " + name).rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 0);
    EXPECT_EQ(client("cmtext 0 hello").rc, 0);
    return client("cmrcv 0 100").rc;
}

} // namespace

TEST(Attach, a_program_that_takes_one_type_of_conversation)
{
    node home(standard_configuration() + destination("BASIC", "BASICSRV") +
              "\n[[program]]\ntp_name = \"BASICSRV\"\nconversation_type = \"basic\"\n" + destination("MAPPED", "MAPSRV") +
              "\n[[program]]\ntp_name = \"MAPSRV\"\nconversation_type = \"mapped\"\n");
    tp client(home), server(home);
    ASSERT_EQ(server("cmsltp BASICSRV").rc, 0);
    ASSERT_EQ(server("cmsltp MAPSRV").rc, 0);
    EXPECT_EQ(first_answer(client, "BASIC"), 3);
    EXPECT_EQ(client("cmrcv 0 100").rc, 24);
    ASSERT_EQ(client("cminit 0 MAPPED").rc, 0);
    ASSERT_EQ(client("set cmsct 0 0").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmhex 0 00043132").rc, 0);
    EXPECT_EQ(client("cmrcv 0 100").rc, 3);
    // The right type gets through.
    ASSERT_EQ(client("cminit 0 BASIC").rc, 0);
    ASSERT_EQ(client("set cmsct 0 0").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    ASSERT_EQ(server("cmaccp 0").rc, 0);
    EXPECT_EQ(server("ask cmect 0").number("value"), 0);
}

TEST(Attach, a_program_that_takes_one_sync_level)
{
    node home(standard_configuration() + destination("NOCONF", "NONESRV") +
              "\n[[program]]\ntp_name = \"NONESRV\"\nsync_level = \"none\"\n" + destination("CONF", "CONFSRV") +
              "\n[[program]]\ntp_name = \"CONFSRV\"\nsync_level = \"confirm\"\n");
    tp client(home), server(home);
    ASSERT_EQ(server("cmsltp CONFSRV").rc, 0);
    EXPECT_EQ(first_answer(client, "CONF"), 8);
    ASSERT_EQ(client("cminit 0 NOCONF").rc, 0);
    ASSERT_EQ(client("set cmssl 0 1").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    EXPECT_EQ(client("ask cmcfm 0").rc, 8); // reported with the first call that waits for the partner
    ASSERT_EQ(client("cminit 0 CONF").rc, 0);
    ASSERT_EQ(client("set cmssl 0 1").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    ASSERT_EQ(server("cmaccp 0").rc, 0);
    EXPECT_EQ(server("ask cmesl 0").number("value"), 1);
}

TEST(Attach, a_refusal_shows_in_whatever_call_comes_next)
{
    node home(standard_configuration(1));
    tp client(home);
    for (const char *call : {"cmptr 0", "cmrcv 0 10", "cmserr 0", "ask cmcfm 0"})
    {
        ASSERT_EQ(client("cminit 0 NOTPN").rc, 0);
        ASSERT_EQ(client("set cmssl 0 1").rc, 0);
        ASSERT_EQ(client("cmallc 0").rc, 0);
        // A call that does not wait for the partner may come too early to hear of it: its receive does then.
        const std::string text = call == std::string("cmserr 0") ? "ask cmserr 0" : call;
        const long rc = client(text).rc;
        EXPECT_TRUE(rc == 9 || (rc == 0 && client("cmrcv 0 10").rc == 9)) << call << ": " << rc;
        EXPECT_EQ(client("cmrcv 0 10").rc, 24) << call;
    }
}

TEST(Attach, user_and_password)
{
    node home(standard_configuration() + alice +
              destination("GOOD", "ECHOSRV", "security = \"program\"\nuser = \"ALICE\"\npassword = \"sesame\"\n") +
              destination("STRONG", "ECHOSRV",
                          "security = \"program_strong\"\nuser = \"ALICE\"\npassword = \"sesame\"\n") +
              destination("WRONG", "ECHOSRV", "security = \"program\"\nuser = \"ALICE\"\npassword = \"sesamo\"\n") +
              destination("NOUSER", "ECHOSRV", "security = \"program\"\nuser = \"MALLORY\"\npassword = \"sesame\"\n") +
              destination("PLAIN", "ECHOSRV", "security = \"none\"\n"));
    chmod((home.directory() + "/node.toml").c_str(), 0600);
    tp client(home), server(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(home.control({"trace", "on"}).code, 0);
    EXPECT_EQ(first_answer(client, "WRONG"), 6);
    EXPECT_EQ(first_answer(client, "NOUSER"), 6);
    int slot = 0;
    for (const char *name : {"GOOD", "STRONG"})
    {
        const std::string number = std::to_string(slot++);
        ASSERT_EQ(client("cminit " + number + " " + name).rc, 0);
        ASSERT_EQ(client("cmallc " + number).rc, 0);
        ASSERT_EQ(client("cmflus " + number).rc, 0);
        ASSERT_EQ(server("cmaccp " + number).rc, 0);
        for (const char *call : {"cmesui", "cmecsu"})
        {
            const reply user = server("gettext " + std::string(call) + " " + number);
            EXPECT_EQ(user.rc, 0) << call;
            EXPECT_EQ(user.text("text"), "ALICE") << call << ": " << user.line;
            EXPECT_EQ(user.number("length"), 5) << call;
        }
    }
    // Given by the program itself, over what the side information says.
    ASSERT_EQ(client("cminit 2 PLAIN").rc, 0);
    ASSERT_EQ(client("set cmscst 2 2").rc, 0);
    ASSERT_EQ(client("settext cmscsu 2 ALICE").rc, 0);
    ASSERT_EQ(client("settext cmscsp 2 sesame").rc, 0);
    ASSERT_EQ(client("cmallc 2").rc, 0);
    ASSERT_EQ(client("cmflus 2").rc, 0);
    ASSERT_EQ(server("cmaccp 2").rc, 0);
    EXPECT_EQ(server("gettext cmesui 2").text("text"), "ALICE");
    // With no security there is no user to be seen.
    ASSERT_EQ(client("cminit 3 PLAIN").rc, 0);
    ASSERT_EQ(client("cmallc 3").rc, 0);
    ASSERT_EQ(client("cmflus 3").rc, 0);
    ASSERT_EQ(server("cmaccp 3").rc, 0);
    EXPECT_EQ(server("gettext cmesui 3").text("text").find("ALICE"), std::string::npos);
    // No password anywhere.
    for (const char *file : {"broker.log", "problem.log", "audit.log", "cpic.trc"})
    {
        EXPECT_EQ(home.log(file).find("sesam"), std::string::npos) << file;
        EXPECT_EQ(home.log(file).find("SESAM"), std::string::npos) << file;
    }
    EXPECT_NE(home.log("cpic.trc").find("CMSCSP"), std::string::npos); // it was traced, without its value
}

TEST(Attach, with_security_same_the_user_is_the_one_that_the_kernel_knows)
{
    const passwd *own = getpwuid(geteuid());
    ASSERT_NE(own, nullptr);
    const std::string name = own->pw_name;
    for (const bool verified : {true, false})
    {
        const std::string standard = standard_configuration(), head = "[node]\n";
        node home(head + (verified ? "" : "already_verified = false\n") + standard.substr(head.size()));
        tp client(home), server(home);
        converse(client, server);
        const reply user = server("gettext cmesui 0");
        EXPECT_EQ(user.rc, 0);
        if (verified && name.size() <= 10)
        {
            EXPECT_EQ(user.text("text").substr(0, name.size()), name) << user.line;
            EXPECT_EQ(user.number("length"), static_cast<long>(name.size()));
        }
        else
            EXPECT_EQ(user.text("text").find(name), std::string::npos) << user.line;
    }
}

// A destination whose program the node is to start; the time limit for an accept is longer than any test waits.
std::string startable(const std::string &name, const std::string &program)
{
    return destination(name, name + "SRV") + "\n[[program]]\ntp_name = \"" + name + "SRV\"\n" + program + "\n";
}

TEST(Attach, a_program_that_cannot_be_started)
{
    node home(standard_configuration(3600) + startable("MISSING", "command = \"/does/not/exist\"") +
              startable("NOPROG", "command = \"/etc/passwd\"") +
              startable("NOUSER", "command = \"/bin/true\"\nuser = \"no such user\"") +
              startable("FAILS", "command = \"/bin/false\"") +
              startable("DIES", "command = \"/bin/sh\"\narguments = [\"-c\", \"kill -9 $$\"]"));
    tp client(home);
    EXPECT_EQ(first_answer(client, "MISSING"), 10); // not available, and trying again will not help
    EXPECT_EQ(first_answer(client, "NOPROG"), 10);
    EXPECT_EQ(first_answer(client, "NOUSER"), 10);
    EXPECT_EQ(first_answer(client, "FAILS"), 11); // not available now
    EXPECT_EQ(first_answer(client, "DIES"), 11);
    // A program that somebody starts by hand is served in spite of the configuration.
    tp server(home);
    ASSERT_EQ(server("cmsltp MISSINGSRV").rc, 0);
    ASSERT_EQ(client("cminit 0 MISSING").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmaccp 0").rc, 0);
}

TEST(Attach, a_session_at_once_or_not_at_all)
{
    node home(standard_configuration() + "\n[[mode]]\nname = \"NARROW\"\nsession_limit = 1\n" +
              destination("NARROW", "ECHOSRV", "", "NARROW"));
    tp client(home), other(home), server(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(client("cminit 0 NARROW").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(other("cminit 0 NARROW").rc, 0);
    ASSERT_EQ(other("set cmsrc 0 1").rc, 0);
    EXPECT_EQ(other("cmallc 0").rc, 28); // unsuccessful
    EXPECT_EQ(other("cmallc 0").rc, 28); // and the conversation stays for another try
    ASSERT_EQ(other("set cmsrc 0 0").rc, 0);
    other.send("cmallc 0");
    EXPECT_FALSE(other.answers(100));
    client.kill(SIGKILL); // a session ends with its program, too
    EXPECT_EQ(other.receive().rc, 0);
    EXPECT_EQ(other("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmaccp 0").rc, 0);
}

TEST(Attach, no_more_than_the_queue_holds)
{
    std::string text = standard_configuration();
    text.insert(text.find("idle_seconds"), "attach_queue_depth = 2\n");
    node home(text);
    tp client(home), server(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    for (const char *slot : {"1", "2"})
    {
        ASSERT_EQ(client(std::string("cminit ") + slot + " ECHO").rc, 0);
        ASSERT_EQ(client(std::string("cmallc ") + slot).rc, 0);
        ASSERT_EQ(client(std::string("cmtext ") + slot + " number" + slot).rc, 0);
        ASSERT_EQ(client(std::string("cmflus ") + slot).rc, 0);
    }
    EXPECT_EQ(first_answer(client, "ECHO"), 11); // not available now: try again
    // The two that were in time are served in their order, and there is room again.
    for (const char *slot : {"1", "2"})
    {
        ASSERT_EQ(server(std::string("cmaccp ") + slot).rc, 0);
        EXPECT_EQ(server(std::string("cmrcv ") + slot + " 100").text("text"), std::string("number") + slot);
    }
    server.send("servers 1");
    EXPECT_EQ(client("clients 1 1 10 ECHO").rc, 0);
    EXPECT_EQ(server.receive().rc, 0);
}

TEST(Attach, the_program_that_has_waited_longest_is_served)
{
    node home;
    tp first(home), second(home), third(home), client(home);
    tp *order[] = {&second, &third, &first}; // not the order in which they came
    for (tp *server : {&first, &second, &third})
        ASSERT_EQ((*server)("cmsltp ECHOSRV").rc, 0);
    for (tp *server : order)
    {
        server->send("cmaccp 0");
        ASSERT_FALSE(server->answers(100)); // it waits, by now
    }
    int number = 0;
    for (tp *server : order)
    {
        const std::string slot = std::to_string(number++);
        ASSERT_EQ(client("cminit " + slot + " ECHO").rc, 0);
        ASSERT_EQ(client("cmallc " + slot).rc, 0);
        ASSERT_EQ(client("cmtext " + slot + " number" + slot).rc, 0);
        ASSERT_EQ(client("cmflus " + slot).rc, 0);
        ASSERT_EQ(server->receive().rc, 0);
        EXPECT_EQ((*server)("cmrcv 0 100").text("text"), "number" + slot);
    }
}

TEST(Attach, a_dead_waiter_is_passed_over)
{
    node home;
    tp dead(home), alive(home), client(home);
    for (tp *server : {&dead, &alive})
    {
        ASSERT_EQ((*server)("cmsltp ECHOSRV").rc, 0);
        server->send("cmaccp 0");
        ASSERT_FALSE(server->answers(100));
    }
    dead.kill(SIGKILL);
    ASSERT_EQ(client("cminit 0 ECHO").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmtext 0 hello").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    ASSERT_EQ(alive.receive().rc, 0);
    EXPECT_EQ(alive("cmrcv 0 100").text("text"), "hello");
}

// Until an accept waits at the broker: one that a thread of the program has just begun may still be on its way.
static void until_an_accept_waits(const node &home)
{
    for (int tries = 0; tries < 1000; ++tries)
    {
        if (home.control({"status", "--json"}).output.find("\"waiting_accepts\": 1") != std::string::npos)
            return;
        usleep(10000);
    }
    FAIL() << "no accept waits";
}

TEST(Attach, a_name_is_released_while_an_accept_waits)
{
    node home(standard_configuration(1));
    tp server(home), client(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(server("cmsltp OTHERSRV").rc, 0);
    ASSERT_EQ(server("bg cmaccp 0").rc, 0);
    until_an_accept_waits(home);
    // Attaches for a name that the accept has no more wait for another program, and give up.
    ASSERT_EQ(server("cmrltp ECHOSRV").rc, 0);
    EXPECT_EQ(first_answer(client, "ECHO"), 11);
    // The accept goes on waiting for the rest of its names.
    ASSERT_EQ(client("cminit 0 OTHER").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server.background().rc, 0);
    EXPECT_EQ(server("cmetpn 0").text("name"), "OTHERSRV");
}

TEST(Attach, the_last_name_is_released_while_an_accept_waits)
{
    node home;
    tp server(home), client(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("bg cmaccp 0");
    ASSERT_EQ(server.receive().rc, 0);
    ASSERT_FALSE(server.answers(100)); // the accept is on its way
    ASSERT_EQ(server("cmrltp ECHOSRV").rc, 0);
    EXPECT_NE(server.background().rc, 0); // it does not wait for ever
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("servers 1");
    EXPECT_EQ(client("clients 1 1 10 ECHO").rc, 0);
    EXPECT_EQ(server.receive().rc, 0);
}

TEST(Attach, a_service_tp_name)
{
    node home(standard_configuration() + destination("SERVICE", "06F1F2F3", "tp_name_type = \"service\"\n"));
    tp server(home, {{"APPCTPN", "SNA_SERVICE_TP_0x06F1F2F3"}}), client(home);
    server.send("cmaccp 0");
    ASSERT_EQ(client("cminit 0 SERVICE").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmtext 0 served").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    ASSERT_EQ(server.receive().rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "served");
}
