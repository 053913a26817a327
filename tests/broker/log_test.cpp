// log_test.cpp - the broker's log: it stays within its limit, floods are counted instead of written, and nobody has to
// read it.
#include "abused_node.hpp"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

constexpr std::size_t log_limit = 1 << 20;

std::string contents(const std::string &path)
{
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

void be_bad(const std::string &directory)
{
    client bad(directory);
    const std::byte garbage{7};
    EXPECT_TRUE(bad.send_bytes({&garbage, 1}));
    EXPECT_TRUE(bad.closed_by_broker());
}

TEST_F(abused_node, AFloodOfTheSameLineIsCounted)
{
    constexpr unsigned long times = 500;
    long long begun = now_ms();
    for (unsigned long i = 0; i < times; ++i)
    {
        be_bad(directory);
    }
    unsigned long written = 0;
    unsigned long counted = 0;
    EXPECT_TRUE(wait_until([&] {
        written = counted = 0;
        std::istringstream lines(log());
        for (std::string line; std::getline(lines, line);)
        {
            if (auto at = line.find("... and "); at != line.npos)
            {
                EXPECT_NE(line.find(" more like this: closes the connection of process "), line.npos) << line;
                counted += std::stoul(line.substr(at + 8));
            }
            else
            {
                written += line.find("it has sent a message that is none") != line.npos;
            }
        }
        return written + counted == times;
    })) << written << " lines, " << counted << " counted";
    EXPECT_LE(written, 10 * static_cast<unsigned long>(2 + (now_ms() - begun) / 1000));
    EXPECT_GE(written, 10u);
}

TEST_F(node, TheLogIsPutAsideWhileTheBrokerRunsAndItsProgramsGoOnInIt)
{
    std::string gate = directory + "/gate";
    ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
    start("[[program]]\ntp_name = \"SERVER\"\ncommand = \"/bin/sh\"\n"
          "arguments = [\"-c\", \"echo before >&2; read line < " + gate + "; echo after >&2\"]\n");
    client caller(directory);
    caller.greet();
    received granted = caller.allocate("SERVER");
    send_attach(granted.descriptors.at(0));
    ASSERT_TRUE(wait_until([&] { return log().find("before\n") != std::string::npos; }));
    std::ofstream(directory + "/broker.log", std::ios::app) << std::string(log_limit, 'x') << "\n";
    be_bad(directory);
    EXPECT_TRUE(wait_until([&] { return log().size() < log_limit; }));
    EXPECT_NE(contents(directory + "/broker.log.1").find("xxx\n"), std::string::npos);
    std::ofstream(gate) << "go\n";
    EXPECT_TRUE(wait_until([&] { return log().find("after\n") != std::string::npos; }));
    EXPECT_EQ(contents(directory + "/broker.log.1").find("after\n"), std::string::npos);
    close(granted.descriptors[0]);
}

TEST_F(node, ProgramsThatWriteMuchFillTheLogToItsLimit)
{
    start("[[program]]\ntp_name = \"SERVER\"\ncommand = \"/bin/sh\"\n"
          "arguments = [\"-c\", \"yes | head -c 3000000; read line\"]\n");
    client caller(directory);
    caller.greet();
    received granted = caller.allocate("SERVER");
    send_attach(granted.descriptors.at(0));
    EXPECT_TRUE(wait_until([&] { return std::filesystem::exists(directory + "/broker.log.1"); }));
    EXPECT_TRUE(wait_until([&] { return log().size() <= log_limit; }));
    EXPECT_LE(std::filesystem::file_size(directory + "/broker.log.1"), log_limit);
    close(granted.descriptors[0]);
}

// Whoever should read the broker's standard error does not: the broker serves as ever, and says later what is missing.
void nobody_reads(node &home, int out, int in)
{
    pid_t pid = fork();
    if (pid == 0)
    {
        dup2(in, STDERR_FILENO);
        execl(CPICNODED, CPICNODED, "--dir", home.directory.c_str(), nullptr);
        _exit(127);
    }
    close(in);
    ASSERT_TRUE(wait_until([&] { return std::filesystem::exists(home.directory + "/broker.sock"); }));
    for (int i = 0; i < 20 && !testing::Test::HasFailure(); ++i)
    {
        be_bad(home.directory);
    }
    client honest(home.directory);
    EXPECT_EQ(honest.greet().status.primary, wire::rc_ok);
    std::string all;
    EXPECT_TRUE(wait_until([&] {
        char bytes[65536];
        pollfd ready{out, POLLIN, 0};
        ssize_t size = poll(&ready, 1, 100) == 1 ? read(out, bytes, sizeof bytes) : 0;
        all.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        return all.find("lines of this log were lost here") != std::string::npos;
    }));
    kill(pid, SIGTERM);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    close(out);
}

TEST_F(node, APipeThatNobodyReadsDoesNotHoldUpTheBroker)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    int size = fcntl(ends[1], F_SETPIPE_SZ, 4096);
    ASSERT_GT(size, 0);
    std::string filler(static_cast<std::size_t>(size), 'x');
    ASSERT_EQ(write(ends[1], filler.data(), filler.size()), size);
    nobody_reads(*this, ends[0], ends[1]);
}

TEST_F(node, ASocketThatNobodyReadsDoesNotHoldUpTheBroker)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    std::string filler(4096, 'x');
    while (send(ends[1], filler.data(), filler.size(), MSG_DONTWAIT) > 0)
    {
    }
    nobody_reads(*this, ends[0], ends[1]);
}

} // namespace
} // namespace test
