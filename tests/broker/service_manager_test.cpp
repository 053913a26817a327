// service_manager_test.cpp - a broker whose socket a service manager makes and keeps.
#include "processes.hpp"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace test {
namespace {

// A service manager: it listens at the node's socket and, once told to, starts the broker and gives it the socket. The
// test plays the manager; run() is its reaction to a connection.
class service_manager
{
public:
    explicit service_manager(const std::string &directory) : directory_(directory)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string path = directory + "/broker.sock";
        std::memcpy(address.sun_path, path.c_str(), path.size());
        listener_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 5), 0);
    }
    ~service_manager() { close(listener_); }

    pid_t run(const char *idle) const
    {
        pid_t pid = fork();
        if (pid == 0)
        {
            dup2(listener_, 3);
            fcntl(3, F_SETFD, 0); // also when it was 3 already
            setenv("LISTEN_FDS", "1", 1);
            setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
            execl(CPICNODED, CPICNODED, "--dir", directory_.c_str(), "--idle", idle, nullptr);
            _exit(127);
        }
        return pid;
    }
    // Waits for a connection without taking it.
    bool called_for() const
    {
        pollfd ready{listener_, POLLIN, 0};
        return poll(&ready, 1, 20'000) == 1;
    }

private:
    std::string directory_;
    int listener_;
};

TEST_F(node, AServiceManagerMayHandOverTheSocket)
{
    service_manager manager(directory);
    client early(directory); // waits before anybody serves
    pid_t pid = manager.run("0.2");
    EXPECT_EQ(early.greet().status.primary, wire::rc_ok);
    early.close();
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(std::filesystem::exists(directory + "/broker.sock")) << "it belongs to the service manager";
    client late(directory); // still waits for the next one
    EXPECT_TRUE(late.connected());
}

TEST_F(node, AStartLeavesTheSocketOfAServiceManagerAlone)
{
    service_manager manager(directory);
    std::thread starter([&] {
        finished result = tool({"start"});
        EXPECT_EQ(result.code, 0) << result.error;
        EXPECT_NE(result.out.find("already running in " + directory + " (process "), std::string::npos) << result.out;
    });
    EXPECT_TRUE(manager.called_for());
    pid_t pid = manager.run("1");
    starter.join();
    EXPECT_NE(tool({"status"}).out.find(std::to_string(pid)), std::string::npos) << "the manager's broker serves";
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(std::filesystem::exists(directory + "/broker.sock"));
}

} // namespace
} // namespace test
