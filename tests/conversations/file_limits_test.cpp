// file_limits_test.cpp - programs that may write no long files (RLIMIT_FSIZE): logs and trace stop at the limit, the
// program does not; and what is written once there is room again stands on lines of its own.
#include "conversations/harness.hpp"

#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/resource.h>

using namespace conversations;

namespace {

constexpr unsigned file_limit = 8192;

void limit_files(const tp &program, rlim_t bytes)
{
    const rlimit limit = {bytes, RLIM_INFINITY};
    ASSERT_EQ(prlimit(program.process(), RLIMIT_FSIZE, &limit, nullptr), 0);
}

// Problem records, one for each call on a conversation that does not exist, until the log has come to the limit.
void fill_problem_log(const node &home, tp &program)
{
    for (int i = 0; i < 1000 && home.log("problem.log").size() < file_limit; ++i)
        ASSERT_EQ(program("cmrcv 7 10").rc, 24);
    ASSERT_EQ(home.log("problem.log").size(), file_limit);
}

} // namespace

TEST(File_limits, a_program_at_its_limit_goes_on_with_one_warning)
{
    node home;
    home.start(); // not by the program, whose limit it would have
    const std::string errors = home.directory() + "/errors";
    tp server(home), client(home);
    limit_files(client, file_limit);
    ASSERT_EQ(client("errors " + errors).rc, 0);
    converse(client, server);
    fill_problem_log(home, client);
    EXPECT_EQ(client("cmrcv 7 10").rc, 24);
    ASSERT_EQ(home.control({"trace", "on"}).code, 0);
    server.send("echo 0");
    EXPECT_EQ(client("pingpong 0 20 5000").rc, 0);
    EXPECT_EQ(home.log("cpic.trc").substr(0, 4), "----");
    EXPECT_EQ(client("cmdeal 0").rc, 0);
    EXPECT_EQ(server.receive().rc, 18);
    server.send("servers 1");
    EXPECT_EQ(client("clients 1 5 100 ECHO").rc, 0);
    EXPECT_EQ(server.receive().rc, 0);
    const std::string said = home.log("errors");
    EXPECT_NE(said.find("records are lost; conversations go on"), std::string::npos) << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
}

TEST(File_limits, after_a_record_that_was_cut_short_the_next_begins_a_line)
{
    node home;
    home.start();
    tp client(home);
    ASSERT_EQ(client("cmrcv 7 10").rc, 24);
    const std::size_t length = home.log("problem.log").size();
    ASSERT_GT(length, 20u);
    limit_files(client, length * 5 / 2); // the third record does not fit
    for (int i = 0; i < 4; ++i)
        ASSERT_EQ(client("cmrcv 7 10").rc, 24);
    ASSERT_EQ(home.log("problem.log").size(), length * 5 / 2);
    limit_files(client, RLIM_INFINITY);
    EXPECT_EQ(client("cmrcv 7 10").rc, 24);
    EXPECT_EQ(client("cmrcv 7 10").rc, 24);
    std::istringstream text(home.log("problem.log"));
    std::vector<std::size_t> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line.size() + 1);
    EXPECT_EQ(lines, (std::vector<std::size_t>{length, length, length * 5 / 2 - length * 2 + 1, length, length}));
}
