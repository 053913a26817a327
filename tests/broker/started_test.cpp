// started_test.cpp - what programs that the broker starts get from it, and how long they may take to begin.
#include "abused_node.hpp"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

using nlohmann::json;

struct started : abused_node
{
    void SetUp() override { node::SetUp(); }

    std::string program(const std::string &command, const std::string &arguments = "")
    {
        return "[[program]]\ntp_name = \"SERVER\"\ncommand = \"" + command + "\"\narguments = [" + arguments + "]\n";
    }
    // One that notes its process and goes on sleeping.
    std::string sleeper()
    {
        return program("/bin/sh", "\"-c\", \"echo $$ > " + noted + ".new; mv " + noted + ".new " + noted +
                                      "; exec sleep 100\"");
    }
    void attach()
    {
        caller = std::make_unique<client>(directory);
        caller->greet();
        received granted = caller->allocate("SERVER");
        send_attach(granted.descriptors.at(0));
        close(granted.descriptors[0]);
    }
    pid_t started_process()
    {
        EXPECT_TRUE(wait_until([&] { return std::filesystem::exists(noted); }));
        pid_t pid = 0;
        std::ifstream(noted) >> pid;
        return pid;
    }
    // The shell that becomes the program has others for a moment, while it notes its number.
    static void expect_standard_descriptors(pid_t pid)
    {
        const std::set<std::string> standard{"0", "1", "2"};
        std::set<std::string> found;
        wait_until([&] {
            found.clear();
            for (const auto &one : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"))
            {
                found.insert(one.path().filename());
            }
            return found == standard;
        });
        EXPECT_EQ(found, standard);
    }
    // The soft limit of a process, as /proc names it.
    static std::string limit_of(pid_t pid, const std::string &name)
    {
        std::ifstream limits("/proc/" + std::to_string(pid) + "/limits");
        for (std::string line; std::getline(limits, line);)
        {
            if (line.starts_with(name))
            {
                std::istringstream rest(line.substr(name.size()));
                rest >> line;
                return line;
            }
        }
        return "";
    }
    json running() { return json::parse(tool({"show", "startable", "--json"}).out)[0]["running"]; }

    std::string noted;
    std::unique_ptr<client> caller;
};

TEST_F(started, ProgramsHaveTheStandardDescriptorsAlone)
{
    noted = directory + "/noted";
    start(sleeper());
    attach();
    pid_t pid = started_process();
    ASSERT_GT(pid, 0);
    expect_standard_descriptors(pid);
    kill(pid, SIGKILL);
}

TEST_F(started, WhatTheBrokerHasFromItsOwnCallerGoesNoFurther)
{
    noted = directory + "/noted";
    std::string file = write_config(sleeper());
    pid_t broker = fork();
    if (broker == 0)
    {
        dup2(open("/dev/null", O_RDWR), 9); // stays open on exec
        setenv("NOTIFY_SOCKET", "/nowhere/at/all", 1);
        rlimit files{100, 200}, core{4096, 4096};
        setrlimit(RLIMIT_NOFILE, &files);
        setrlimit(RLIMIT_CORE, &core);
        execl(CPICNODED, CPICNODED, "--dir", directory.c_str(), "--config", file.c_str(), nullptr);
        _exit(127);
    }
    ASSERT_TRUE(wait_until([&] { return std::filesystem::exists(directory + "/broker.sock"); }));
    attach();
    pid_t pid = started_process();
    ASSERT_GT(pid, 0);
    expect_standard_descriptors(pid);
    std::ifstream in("/proc/" + std::to_string(pid) + "/environ");
    std::string environment{std::istreambuf_iterator<char>(in), {}};
    EXPECT_NE(environment.find("APPCTPN=SERVER"), std::string::npos);
    EXPECT_EQ(environment.find("NOTIFY_SOCKET"), std::string::npos);
    // It has the limits that the broker was started with; the broker writes no passwords into a core file.
    EXPECT_EQ(limit_of(pid, "Max open files"), "100");
#ifndef __SANITIZE_ADDRESS__ // which takes the core file away from the broker before it begins
    EXPECT_EQ(limit_of(pid, "Max core file size"), "4096");
#endif
    EXPECT_EQ(limit_of(broker, "Max open files"), "200");
    EXPECT_EQ(limit_of(broker, "Max core file size"), "0");
    kill(pid, SIGKILL);
    kill(broker, SIGTERM);
    EXPECT_EQ(waitpid(broker, nullptr, 0), broker);
}

TEST_F(started, AProgramThatIsSlowToBeginHoldsUpNobody)
{
    std::string slow = directory + "/slow";
    std::string done = directory + "/done";
    std::ofstream(slow) << "#!/bin/sh\n: > " << done << "\n";
    chmod(slow.c_str(), 0700);
    // Whoever opens a file with a lease waits for the one that holds it; so does whoever wants to execute it.
    signal(SIGIO, SIG_IGN);
    int lease = open(slow.c_str(), O_RDONLY | O_CLOEXEC);
    if (fcntl(lease, F_SETLEASE, F_WRLCK) != 0)
    {
        close(lease);
        GTEST_SKIP() << "the file system of " << directory << " has no leases";
    }
    start(program(slow));
    attach();
    ASSERT_TRUE(wait_until([&] { return fcntl(lease, F_GETLEASE) != F_WRLCK; })) << "it is not even begun";
    client bad(directory);
    const std::byte garbage{7};
    EXPECT_TRUE(bad.send_bytes({&garbage, 1}));
    EXPECT_TRUE(bad.closed_by_broker());
    expect_service();
    EXPECT_EQ(running(), 1);
    EXPECT_FALSE(std::filesystem::exists(done));
    fcntl(lease, F_SETLEASE, F_UNLCK);
    close(lease);
    EXPECT_TRUE(wait_until([&] { return std::filesystem::exists(done); }));
    EXPECT_TRUE(wait_until([&] { return running() == 0; }));
}

TEST_F(started, AProgramThatCannotBeginIsCountedNoLonger)
{
    start(program("/does/not/exist"));
    for (int i = 0; i < 5; ++i)
    {
        attach();
        EXPECT_TRUE(wait_until([&] { return running() == 0; }));
    }
    EXPECT_EQ(log().find("ended with"), std::string::npos) << "it has never been a program";
}

} // namespace
} // namespace test
