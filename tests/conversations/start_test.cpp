// start_test.cpp - the node starts itself: one broker, however many programs come at once, in a private directory.
#include "conversations/harness.hpp"

#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <list>
#include <sys/stat.h>
#include <unistd.h>

using namespace conversations;

namespace {

// The brokers that run for a directory: those whose command line names it.
int brokers_of(const std::string &directory)
{
    int count = 0;
    DIR *processes = opendir("/proc");
    while (const dirent *entry = readdir(processes))
    {
        std::ifstream file(std::string("/proc/") + entry->d_name + "/cmdline");
        const std::string line{std::istreambuf_iterator<char>(file), {}};
        if (line.find("cpicnoded") != std::string::npos && line.find(directory) != std::string::npos)
            ++count;
    }
    closedir(processes);
    return count;
}

} // namespace

TEST(Start, the_first_call_starts_the_node)
{
    node home;
    EXPECT_EQ(home.broker(), 0);
    tp client(home);
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0);
    EXPECT_NE(home.broker(), 0);
}

TEST(Start, ten_programs_at_once_share_one_broker)
{
    node home;
    std::list<tp> programs;
    for (int i = 0; i < 10; ++i)
        programs.emplace_back(home);
    for (tp &program : programs)
        program.send("cmsltp ECHOSRV"); // the first call of each, all at once
    for (tp &program : programs)
        EXPECT_EQ(program.receive().rc, 0);
    EXPECT_EQ(brokers_of(home.directory()), 1);
    // They are all at the same one: each can talk to some other.
    tp &server = programs.front(), &client = programs.back();
    ASSERT_EQ(client("cminit 0 ECHO").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmtext 0 hello").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmaccp 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "hello");
}

TEST(Start, the_directory_is_made_private)
{
    node home;
    const std::string made = home.directory() + "/made";
    tp client(home, {{"CPIC_NODE_DIR", made}});
    // No configuration there: the built-in one has no side information, and that is a working node too.
    EXPECT_EQ(client("cminit 0 ECHO").rc, 24);
    EXPECT_EQ(client("cminit 0 -").rc, 0);
    struct stat status = {};
    ASSERT_EQ(stat(made.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0700u);
    EXPECT_EQ(status.st_uid, getuid());
    EXPECT_EQ(run({CPIC_TEST_BIN "/cpicnode", "stop"}, {{"CPIC_NODE_DIR", made}}).code, 0);
}

TEST(Start, without_a_directory_named_it_is_the_runtime_directory)
{
    node home;
    tp client(home, {{"CPIC_NODE_DIR", ""}, {"XDG_RUNTIME_DIR", home.directory()}});
    EXPECT_EQ(client("cminit 0 -").rc, 0);
    struct stat status = {};
    EXPECT_EQ(stat((home.directory() + "/cpicnode/broker.sock").c_str(), &status), 0);
    EXPECT_EQ(run({CPIC_TEST_BIN "/cpicnode", "stop"}, {{"CPIC_NODE_DIR", home.directory() + "/cpicnode"}}).code, 0);
}

TEST(Start, a_directory_that_others_may_write_is_refused)
{
    node home;
    const std::string open_to_all = home.directory() + "/open";
    ASSERT_EQ(mkdir(open_to_all.c_str(), 0700), 0);
    ASSERT_EQ(chmod(open_to_all.c_str(), 0777), 0);
    tp client(home, {{"CPIC_NODE_DIR", open_to_all}});
    EXPECT_EQ(client("cminit 0 -").rc, 20);
    EXPECT_EQ(brokers_of(open_to_all), 0);
}

TEST(Start, a_broken_configuration_starts_no_node_and_no_call_hangs)
{
    node home("[node\n");
    tp client(home);
    EXPECT_EQ(client("cminit 0 ECHO").rc, 20);
    const finished start = home.control({"start"});
    EXPECT_NE(start.code, 0);
    EXPECT_NE(start.output.find("node.toml:1"), std::string::npos) << start.output;
}

// A program learns the switch of the trace when it connects, which its first call does: that call is traced all the
// same.
TEST(Start, the_first_call_of_a_program_is_traced)
{
    node home;
    home.start();
    ASSERT_EQ(home.control({"trace", "on"}).code, 0);
    tp client(home);
    ASSERT_EQ(client("cminit 0 ECHO").rc, 0);
    std::ifstream file(home.directory() + "/cpic.trc");
    std::string separator, first;
    ASSERT_TRUE(std::getline(file, separator) && std::getline(file, first));
    EXPECT_EQ(first, "CPIC CMINIT request");
    EXPECT_EQ(access((home.directory() + "/trace.on").c_str(), F_OK), 0);
    ASSERT_EQ(home.control({"trace", "off"}).code, 0);
    EXPECT_NE(access((home.directory() + "/trace.on").c_str(), F_OK), 0);
}
