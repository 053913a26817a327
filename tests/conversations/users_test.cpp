// users_test.cpp - one node, programs of several users: who is let in, what the node starts as somebody else, and
// where the records of programs go that may not write in the node's directory. Needs root, to be several users.
#include "conversations/harness.hpp"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace conversations;

namespace {

constexpr char other_user[] = "nobody";

// The command that runs a program as the other user.
std::vector<std::string> as_other(std::vector<std::string> command)
{
    command.insert(command.begin(),
                   {"setpriv", std::string("--reuid=") + other_user, "--regid=nogroup", "--clear-groups"});
    return command;
}

class Users : public testing::Test
{
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root can be several users";
        if (run(as_other({"test", "-x", CPIC_TEST_TP})).code != 0)
            GTEST_SKIP() << "the user " << other_user << " does not get at " << CPIC_TEST_TP;
    }
};

std::string allowing(const std::string &user)
{
    const std::string standard = standard_configuration(), head = "[node]\n";
    return head + "allowed_users = [\"" + user + "\"]\n" + standard.substr(head.size());
}

} // namespace

TEST_F(Users, an_allowed_user_takes_part_and_its_records_are_with_the_others)
{
    node home(allowing(other_user));
    home.start();
    ASSERT_EQ(home.control({"trace", "on"}).code, 0);
    tp server(home, {}, as_other({})), client(home);
    converse(client, server);
    EXPECT_EQ(server("cminit 1 NOTHERE").rc, 24); // its audit record
    EXPECT_EQ(client("cmdeal 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").rc, 18);
    const std::string process = std::to_string(server.process());
    EXPECT_EQ(server("cmdeal 7").rc, 24); // its problem record
    // Its records have gone to the broker ahead of this request.
    EXPECT_EQ(server("cmsltp ANOTHER").rc, 0);
    EXPECT_NE(home.log("cpic.trc").find("[" + process + "/"), std::string::npos);
    EXPECT_NE(home.log("audit.log").find("[" + process + "/"), std::string::npos);
    EXPECT_NE(home.log("problem.log").find("[" + process + "/"), std::string::npos);
    struct stat status;
    ASSERT_EQ(stat((home.directory() + "/cpic.trc").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid());
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    ASSERT_EQ(stat(home.directory().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0711u) << "to pass through, not to look around";
}

TEST_F(Users, the_first_call_of_another_user_is_traced_and_nobody_complains)
{
    node home(allowing(other_user));
    home.start();
    ASSERT_EQ(home.control({"trace", "on"}).code, 0);
    const finished program = run(as_other({"sh", "-c", "echo cminit 0 ECHO | " CPIC_TEST_TP}), home.environment());
    EXPECT_EQ(program.output, "0\n") << "the answer, and no word more";
    tp own(home);
    ASSERT_EQ(own("cmsltp ANOTHER").rc, 0); // behind the records of the other, which has ended
    const std::string trace = home.log("cpic.trc");
    EXPECT_NE(trace.find("CMINIT request"), std::string::npos) << trace;
    EXPECT_LT(trace.find("CMINIT request"), trace.find("CMINIT response"));
}

TEST_F(Users, the_longest_trace_records_of_another_user_are_whole)
{
    node home(allowing(other_user));
    home.start();
    ASSERT_EQ(home.control({"trace", "on"}).code, 0);
    tp server(home, {}, as_other({})), client(home);
    converse(client, server);
    ASSERT_EQ(client("cmsend 0 32767 1").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 32767").rc, 0);
    EXPECT_EQ(server("cmsltp ANOTHER").rc, 0);
    const std::string trace = home.log("cpic.trc");
    EXPECT_NE(trace.find("00007FF0: "), std::string::npos) << "the last line of the data that was received";
    // No record has begun within another.
    std::size_t lines = 0;
    for (std::size_t at = 0; (at = trace.find("---- ", at)) != std::string::npos; at += 5)
        lines += at == 0 || trace[at - 1] == '\n';
    EXPECT_GT(lines, 10u);
}

TEST_F(Users, nobody_else_is_let_in)
{
    node home; // allows nobody
    home.start();
    chmod(home.directory().c_str(), 0711);
    tp stranger(home, {}, as_other({}));
    EXPECT_EQ(stranger("cmsltp ECHOSRV").rc, 20);
    EXPECT_EQ(stranger("cminit 0 ECHO").rc, 20);
    chmod((home.directory() + "/broker.sock").c_str(), 0666);
    EXPECT_EQ(stranger("cmsltp ECHOSRV").rc, 20);
    EXPECT_NE(home.log("broker.log").find(std::string("refused a connection of user ") + other_user), std::string::npos);
}

TEST_F(Users, a_reload_lets_a_user_in)
{
    node home;
    home.start();
    tp other(home, {}, as_other({}));
    EXPECT_EQ(other("cmsltp ECHOSRV").rc, 20);
    std::ofstream(home.directory() + "/node.toml") << allowing(other_user);
    ASSERT_EQ(home.control({"reload"}).code, 0);
    EXPECT_EQ(other("cmsltp ECHOSRV").rc, 0);
}

TEST_F(Users, a_program_is_started_as_the_user_that_the_configuration_names)
{
    node home(std::string("[[lu]]\nalias = \"LOCALLU\"\nname = \"N.A\"\n[[side_info]]\ndestination = \"HELLO\"\n"
                          "partner_lu = \"LOCALLU\"\ntp_name = \"HELLOSRV\"\n[[program]]\ntp_name = \"HELLOSRV\"\n"
                          "command = \"") + CPIC_TEST_BIN "/hello_server\"\nuser = \"" + other_user + "\"\n");
    const finished client = run({CPIC_TEST_BIN "/hello_client"}, home.environment());
    EXPECT_EQ(client.code, 0) << client.output << home.log("broker.log");
    EXPECT_EQ(home.log("broker.log").find("cannot"), std::string::npos) << home.log("broker.log");
}

TEST_F(Users, the_node_of_another_user_is_used_only_by_those_who_name_that_user)
{
    char place[] = "/tmp/cpic-other-XXXXXX";
    ASSERT_NE(mkdtemp(place), nullptr);
    const passwd *other = getpwnam(other_user);
    ASSERT_NE(other, nullptr);
    ASSERT_EQ(chown(place, other->pw_uid, other->pw_gid), 0);
    const std::map<std::string, std::string> there{{"CPIC_NODE_DIR", place}};
    const node unused;
    {
        tp early(unused, {{"CPIC_NODE_DIR", place}, {"CPIC_NODE_USER", other_user}});
        EXPECT_EQ(early("cmsltp ECHOSRV").rc, 20) << "no node runs, and none is started in a place of others";
    }
    EXPECT_FALSE(std::filesystem::exists(std::string(place) + "/start.lock"));
    ASSERT_EQ(run(as_other({CPIC_TEST_BIN "/cpicnoded", "--start"}), there).code, 0);
    {
        tp careful(unused, there);
        EXPECT_EQ(careful("cmsltp ECHOSRV").rc, 20) << "a directory that others have made may be a trap";
        tp trusting(unused, {{"CPIC_NODE_DIR", place}, {"CPIC_NODE_USER", other_user}});
        EXPECT_EQ(trusting("cmsltp ECHOSRV").rc, 0);
        tp by_number(unused, {{"CPIC_NODE_DIR", place}, {"CPIC_NODE_USER", std::to_string(other->pw_uid)}});
        EXPECT_EQ(by_number("cmsltp ECHOSRV").rc, 0);
        tp of_somebody(unused, {{"CPIC_NODE_DIR", place}, {"CPIC_NODE_USER", "daemon"}});
        EXPECT_EQ(of_somebody("cmsltp ECHOSRV").rc, 20);
    }
    EXPECT_EQ(run(as_other({CPIC_TEST_BIN "/cpicnode", "stop"}), there).code, 0);
    std::filesystem::remove_all(place);
}

TEST_F(Users, the_caller_of_a_set_user_id_program_does_not_choose_what_it_runs)
{
    const passwd *owner = getpwnam("daemon");
    ASSERT_NE(owner, nullptr);
    // What its caller says does not count, so the node of the program is where it is with no variable set.
    const std::string where = "/tmp/cpicnode-" + std::to_string(owner->pw_uid);
    if (std::filesystem::exists(where))
        GTEST_SKIP() << where << " is there, and the test would use it";
    char place[] = "/tmp/cpic-setuid-XXXXXX";
    ASSERT_NE(mkdtemp(place), nullptr);
    chmod(place, 0777);
    const std::string program = std::string(place) + "/tp", noded = std::string(place) + "/noded",
                      mark = std::string(place) + "/mark";
    std::filesystem::copy_file(CPIC_TEST_TP, program);
    ASSERT_EQ(chown(program.c_str(), owner->pw_uid, 0), 0);
    ASSERT_EQ(chmod(program.c_str(), 04755), 0);
    std::ofstream(noded) << "#!/bin/sh\ntouch " << mark << "\nexit 1\n";
    ASSERT_EQ(chmod(noded.c_str(), 0755), 0);
    run(as_other({"sh", "-c", "echo cmsltp ECHOSRV | " + program}),
        {{"CPIC_NODED", noded}, {"PATH", std::string(place) + ":/usr/bin:/bin"}, {"CPIC_NODE_DIR", std::string(place)}});
    EXPECT_TRUE(std::filesystem::exists(where)) << "the program did not run";
    EXPECT_FALSE(std::filesystem::exists(mark));
    EXPECT_FALSE(std::filesystem::exists(std::string(place) + "/start.lock"));
    run({"setpriv", "--reuid=daemon", "--clear-groups", CPIC_TEST_BIN "/cpicnode", "--dir", where, "stop"});
    std::filesystem::remove_all(where);
    std::filesystem::remove_all(place);
}
