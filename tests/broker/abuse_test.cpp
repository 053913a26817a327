// abuse_test.cpp - clients that lie, flood or stall cost their own connection, and nothing else.
#include "abused_node.hpp"
#include "wire/node_file.hpp"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/fanotify.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace test {
namespace {

TEST_F(abused_node, Garbage)
{
    std::uint32_t random = 7;
    for (int i = 0; i < 300; ++i)
    {
        client bad(directory);
        if (i % 2 == 0)
        {
            bad.greet();
        }
        random = random * 1664525 + 1013904223;
        std::vector<std::byte> bytes(1 + (random >> 8) % 300);
        for (std::byte &b : bytes)
        {
            random = random * 1664525 + 1013904223;
            b = static_cast<std::byte>(random >> 24);
        }
        ASSERT_TRUE(bad.send_bytes(bytes));
        EXPECT_TRUE(bad.closed_by_broker());
    }
    expect_service();
}

TEST_F(abused_node, AMessageLongerThanAny)
{
    client bad(directory);
    bad.greet();
    std::vector<std::byte> bytes(wire::max_message + 1);
    wire::message_head head{static_cast<std::uint16_t>(wire::message_kind::control), 0, wire::max_message, 5};
    std::memcpy(bytes.data(), &head, sizeof head);
    ASSERT_TRUE(bad.send_bytes(bytes));
    EXPECT_TRUE(bad.closed_by_broker());
    expect_service();
}

TEST_F(abused_node, HalfAMessage)
{
    client bad(directory);
    bad.greet();
    wire::allocate message{};
    message.head = {static_cast<std::uint16_t>(wire::message_kind::allocate), 0, sizeof message, 5};
    auto bytes = std::as_bytes(std::span(&message, 1));
    ASSERT_TRUE(bad.send_bytes(bytes.first(bytes.size() / 2)));
    EXPECT_TRUE(bad.closed_by_broker());
    expect_service();
}

TEST_F(abused_node, SilenceHoldsUpNobody)
{
    client silent(directory);
    ASSERT_TRUE(silent.connected());
    expect_service();
    EXPECT_TRUE(silent.closed_by_broker()); // after ten seconds
}

TEST_F(abused_node, MessagesOfTheBrokerItself)
{
    client bad(directory);
    bad.greet();
    ASSERT_TRUE(bad.say(wire::done{}, wire::message_kind::done, 5));
    EXPECT_TRUE(bad.closed_by_broker());
    expect_service();
}

TEST_F(abused_node, RequestsBeforeTheGreeting)
{
    client bad(directory);
    ASSERT_TRUE(bad.say(wire::find_lu{}, wire::message_kind::find_lu, 5));
    EXPECT_TRUE(bad.closed_by_broker());
    expect_service();
}

TEST_F(abused_node, SurplusDescriptors)
{
    std::size_t before = broker_descriptors();
    for (int i = 0; i < 20; ++i)
    {
        client bad(directory);
        bad.greet();
        const int descriptors[] = {0, 1, 2};
        ASSERT_TRUE(bad.say(wire::find_lu{}, wire::message_kind::find_lu, 5, descriptors));
        EXPECT_TRUE(bad.closed_by_broker());
    }
    EXPECT_TRUE(wait_until([&] { return broker_descriptors() <= before; }));
    expect_service();
}

TEST_F(abused_node, ADeadProgramsDescriptorsAreClosed)
{
    std::size_t before = broker_descriptors();
    {
        client caller(directory);
        caller.greet();
        for (std::uint32_t i = 0; i < 50; ++i)
        {
            received granted = caller.allocate("SERVER", 10 + i);
            close(granted.descriptors.at(0));
        }
    }
    EXPECT_TRUE(wait_until([&] { return broker_descriptors() <= before; }));
}

TEST_F(abused_node, WrongFirstFrameEndsThatConversationAlone)
{
    client caller(directory);
    caller.greet();
    received bad = caller.allocate("SERVER", 10);
    received good = caller.allocate("SERVER", 11);
    ASSERT_EQ(send(bad.descriptors.at(0), "no frame at all", 15, MSG_NOSIGNAL), 15);
    EXPECT_EQ(read_bytes(bad.descriptors[0], 100), "");
    send_attach(good.descriptors.at(0), "fine");
    client server(directory);
    server.greet();
    server.add_name("SERVER");
    ASSERT_TRUE(server.accept("SERVER"));
    received taken = server.next();
    EXPECT_EQ(read_bytes(taken.descriptors.at(0), 4), "fine");
    for (int fd : {bad.descriptors[0], good.descriptors[0], taken.descriptors[0]})
    {
        close(fd);
    }
}

TEST_F(abused_node, AttachInPiecesIsWaitedFor)
{
    client caller(directory);
    caller.greet();
    received granted = caller.allocate("SERVER");
    int fd = granted.descriptors.at(0);
    client server(directory);
    server.greet();
    server.add_name("SERVER");
    ASSERT_TRUE(server.accept("SERVER"));
    wire::frame_header header{};
    header.kind = static_cast<std::uint8_t>(wire::frame_kind::attach);
    for (std::size_t i = 0; i < sizeof header; ++i)
    {
        ASSERT_EQ(send(fd, reinterpret_cast<const char *>(&header) + i, 1, MSG_NOSIGNAL), 1);
        sleep_ms(2);
    }
    EXPECT_EQ(server.next().as<wire::accepted>(wire::message_kind::accepted).status.primary, wire::rc_ok);
    close(fd);
}

TEST_F(abused_node, ThousandsOfConnectionsOfOneProcess)
{
    std::vector<std::unique_ptr<client>> flood;
    pid_t child = fork();
    if (child == 0)
    {
        rlimit files{20'000, 20'000};
        getrlimit(RLIMIT_NOFILE, &files);
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
        int made = 0;
        for (int i = 0; i < 10'000; ++i)
        {
            flood.push_back(std::make_unique<client>(directory));
            made += flood.back()->connected();
        }
        // All but its share have been ended.
        bool most_ended = wait_until([&] {
            int ended = 0;
            for (auto &one : flood)
            {
                char byte;
                ended += one->connected() && recv(one->fd(), &byte, 1, MSG_DONTWAIT) == 0;
            }
            return ended > made - 200;
        });
        kill(getpid(), made > 1000 && most_ended ? SIGSTOP : SIGKILL);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
    EXPECT_TRUE(WIFSTOPPED(status)) << "it could not flood, or was not stopped";
    expect_service();
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    expect_service();
}

TEST_F(abused_node, AClientThatNeverReadsItsReplies)
{
    client bad(directory);
    bad.greet();
    int nonblocking = fcntl(bad.fd(), F_GETFL) | O_NONBLOCK;
    fcntl(bad.fd(), F_SETFL, nonblocking);
    // Each request is answered with 232 bytes; the broker keeps some megabytes and no more.
    wire::query_side_info request{};
    bool ended = false;
    for (long long until = now_ms() + patience; !ended && now_ms() < until;)
    {
        if (!bad.say(request, wire::message_kind::query_side_info, 5))
        {
            ended = errno == EPIPE || errno == ECONNRESET;
            if (!ended)
            {
                sleep_ms(1);
            }
        }
    }
    EXPECT_TRUE(ended);
    EXPECT_NE(log().find("it does not read what it is sent"), std::string::npos);
    expect_service();
}

TEST_F(abused_node, AFloodOfAttachesIsRefusedAndForgotten)
{
    std::size_t before = broker_descriptors();
    {
        client bad(directory);
        bad.greet();
        std::vector<int> ends;
        std::uint32_t refused = 0;
        for (std::uint32_t i = 0; i < 500; ++i)
        {
            received granted = bad.allocate("SERVER", 10 + i);
            ASSERT_EQ(granted.descriptors.size(), 1u);
            ends.push_back(granted.descriptors[0]);
            send_attach(ends.back());
        }
        for (int fd : ends)
        {
            char byte;
            refused += recv(fd, &byte, 1, MSG_DONTWAIT) == 1;
        }
        EXPECT_TRUE(wait_until([&] {
            char byte;
            return recv(ends.back(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 1;
        })) << "the last is beyond the depth of the queue";
        expect_service();
        for (int fd : ends)
        {
            close(fd);
        }
    }
    // What is queued waits its ten seconds, then the broker is as it was.
    EXPECT_TRUE(wait_until([&] { return broker_descriptors() <= before; }));
}

// A record for a file of the node, as programs of other users send it.
bool send_record(client &from, wire::node_file_kind file, const std::string &text, bool begins = true,
                 bool more = false)
{
    std::vector<std::byte> bytes(sizeof(wire::record) + text.size());
    wire::record head{};
    head.head = {static_cast<std::uint16_t>(wire::message_kind::record), 0, static_cast<std::uint32_t>(bytes.size()),
                 0};
    head.file = static_cast<std::uint32_t>(file);
    head.begins = begins ? 1 : 0;
    head.more = more ? 1 : 0;
    head.text_length = static_cast<std::uint32_t>(text.size());
    std::memcpy(bytes.data(), &head, sizeof head);
    std::memcpy(bytes.data() + sizeof head, text.data(), text.size());
    return from.send_bytes(bytes);
}

std::string contents(const std::string &path)
{
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST_F(abused_node, RecordsAreTextWhateverTheyWere)
{
    client bad(directory);
    bad.greet();
    ASSERT_TRUE(send_record(bad, wire::node_file_kind::problem_log, "one\x1B[2J\tand\xFF"));
    ASSERT_TRUE(send_record(bad, wire::node_file_kind::trace, "first part, ", true, true));
    ASSERT_TRUE(send_record(bad, wire::node_file_kind::trace, "second part\n", false));
    ASSERT_TRUE(send_record(bad, wire::node_file_kind::trace, "never ended", true, true));
    ASSERT_TRUE(send_record(bad, wire::node_file_kind::audit_log, "whole\n"));
    ASSERT_TRUE(send_record(bad, wire::node_file_kind::trace, "without a beginning\n", false));
    bad.add_name("DONE"); // answered behind all of them
    EXPECT_EQ(contents(directory + "/audit.log"), "whole\n");
    EXPECT_TRUE(wait_until([&] { return contents(directory + "/cpic.trc") == "first part, second part\n"; }));
    EXPECT_EQ(contents(directory + "/problem.log"), "one.[2J.and.\n");
}

TEST_F(abused_node, ARecordWithoutEndOrForNoFileCostsItsSender)
{
    client endless(directory);
    endless.greet();
    const std::string part(60000, 'x');
    for (int i = 0; i < 20 && send_record(endless, wire::node_file_kind::trace, part, i == 0, true); ++i)
    {
    }
    EXPECT_TRUE(endless.closed_by_broker());
    for (unsigned file : {0u, 4u, 0xFFFFFFFFu})
    {
        client lost(directory);
        lost.greet();
        send_record(lost, static_cast<wire::node_file_kind>(file), "text\n");
        EXPECT_TRUE(lost.closed_by_broker()) << file;
    }
    EXPECT_FALSE(std::filesystem::exists(directory + "/cpic.trc"));
}

TEST_F(abused_node, AFloodOfRecordsStaysWithinTheLimitOfTheFile)
{
    EXPECT_EQ(tool({"stop"}).code, 0);
    start("[node]\nproblem_log_limit = 10000\n");
    client bad(directory);
    bad.greet();
    const std::string line = std::string(99, 'x') + "\n";
    for (int i = 0; i < 1000; ++i)
    {
        ASSERT_TRUE(send_record(bad, wire::node_file_kind::problem_log, line));
    }
    bad.add_name("DONE"); // answered behind all of them
    EXPECT_LE(std::filesystem::file_size(directory + "/problem.log"), 10000u);
    EXPECT_LE(std::filesystem::file_size(directory + "/problem.log.1"), 10000u);
}

TEST_F(abused_node, UnknownCommandsOfTheOperator)
{
    client bad(directory);
    bad.greet();
    for (const std::string &command : {std::string("frobnicate"), std::string(60'000, 'x'), std::string("show"),
                                       std::string("\x00\xFF\n", 3)})
    {
        ASSERT_TRUE(bad.ask(command));
        bool more = true;
        while (more)
        {
            auto reply = bad.next().as<wire::control_reply>(wire::message_kind::control_reply);
            EXPECT_EQ(reply.status.primary, wire::rc_unsuccessful);
            more = reply.more == 1;
        }
    }
    expect_service();
}

TEST_F(abused_node, OtherUsersAreRefused)
{
    if (geteuid() != 0)
    {
        GTEST_SKIP() << "only root can play another user";
    }
    chmod(directory.c_str(), 0755);
    chmod((directory + "/broker.sock").c_str(), 0666);
    pid_t child = fork();
    if (child == 0)
    {
        if (setgid(65534) != 0 || setuid(65534) != 0)
        {
            _exit(2);
        }
        client stranger(directory);
        _exit(stranger.connected() && stranger.closed_by_broker() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_NE(log().find("who is not allowed here"), std::string::npos);
    expect_service();
}

TEST_F(abused_node, WithoutDescriptorsLeftItGoesOn)
{
    rlimit files{40, 40};
    ASSERT_EQ(prlimit(broker_pid(), RLIMIT_NOFILE, &files, nullptr), 0);
    {
        client caller(directory);
        caller.greet();
        std::vector<int> ends;
        bool retry = false;
        for (std::uint32_t i = 0; i < 50 && !retry; ++i)
        {
            received granted = caller.allocate("SERVER", 10 + i);
            auto reply = granted.as<wire::allocated>(wire::message_kind::allocated);
            ends.insert(ends.end(), granted.descriptors.begin(), granted.descriptors.end());
            retry = reply.status.primary == wire::rc_allocation_error &&
                    reply.status.secondary == wire::rc_allocation_failure_retry;
        }
        EXPECT_TRUE(retry);
        // New programs are turned away, not left waiting.
        std::vector<std::unique_ptr<client>> turned_away;
        for (int i = 0; i < 5; ++i)
        {
            turned_away.push_back(std::make_unique<client>(directory));
        }
        EXPECT_TRUE(turned_away.back()->closed_by_broker());
        for (int fd : ends)
        {
            close(fd);
        }
    }
    EXPECT_TRUE(wait_until([&] { return broker_descriptors() < 20; }));
    expect_service();
}

TEST_F(node, DescriptorsThatStayOnTheirWayCostNoProcessorTime)
{
    // The system counts a user's descriptors on their way, whoever sends them; only root is beyond that.
    const uid_t user = geteuid() == 0 ? 65534 : geteuid();
    ASSERT_TRUE(chown(directory.c_str(), user, static_cast<gid_t>(-1)) == 0);
    int news[2];
    ASSERT_EQ(pipe2(news, O_CLOEXEC), 0);
    pid_t broker = fork();
    if (broker == 0)
    {
        rlimit files{100, 100};
        setrlimit(RLIMIT_NOFILE, &files);
        if (setuid(user) == 0)
        {
            execl(CPICNODED, CPICNODED, "--dir", directory.c_str(), nullptr);
        }
        _exit(127);
    }
    ASSERT_TRUE(wait_until([&] { return std::filesystem::exists(directory + "/broker.sock"); }));
    client caller(directory);
    caller.greet();
    pid_t sender = fork();
    if (sender == 0)
    {
        int null = open("/dev/null", O_RDONLY);
        std::vector<int> many(120, null);
        bool good = setuid(user) == 0;
        int ends[2];
        for (int i = 0; i < 3 && good; ++i)
        {
            iovec place{&good, 1};
            std::vector<char> room(CMSG_SPACE(many.size() * sizeof(int)));
            msghdr message{};
            message.msg_iov = &place;
            message.msg_iovlen = 1;
            message.msg_control = room.data();
            message.msg_controllen = room.size();
            cmsghdr *rights = CMSG_FIRSTHDR(&message);
            rights->cmsg_level = SOL_SOCKET;
            rights->cmsg_type = SCM_RIGHTS;
            rights->cmsg_len = CMSG_LEN(many.size() * sizeof(int));
            std::memcpy(CMSG_DATA(rights), many.data(), many.size() * sizeof(int));
            good = socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0 && sendmsg(ends[0], &message, 0) == 1;
        }
        [[maybe_unused]] ssize_t told = write(news[1], &good, 1);
        pause();
        _exit(0);
    }
    bool flooded = false;
    ASSERT_EQ(read(news[0], &flooded, 1), 1);
    EXPECT_TRUE(flooded);
    wire::allocate request{};
    broker::to_ascii(request.partner_alias, "LOCALLU");
    broker::to_ebcdic(request.mode, "#INTER");
    broker::to_ebcdic(request.tp_name, "SERVER");
    ASSERT_TRUE(caller.say(request, wire::message_kind::allocate, 10));
    clockid_t clock;
    ASSERT_EQ(clock_getcpuclockid(broker, &clock), 0);
    timespec before, after;
    clock_gettime(clock, &before);
    pollfd ready{caller.fd(), POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, 500), 0) << "the answer's descriptor should have found no room";
    clock_gettime(clock, &after);
    EXPECT_LT((after.tv_sec - before.tv_sec) * 1000 + (after.tv_nsec - before.tv_nsec) / 1'000'000, 100);
    kill(sender, SIGKILL); // and theirs are on their way no longer
    EXPECT_EQ(waitpid(sender, nullptr, 0), sender);
    received granted = caller.next();
    EXPECT_EQ(granted.as<wire::allocated>(wire::message_kind::allocated).status.primary, wire::rc_ok);
    EXPECT_EQ(granted.descriptors.size(), 1u);
    for (int fd : {news[0], news[1], granted.descriptors.at(0)})
    {
        close(fd);
    }
    kill(broker, SIGTERM);
    EXPECT_EQ(waitpid(broker, nullptr, 0), broker);
}

TEST_F(abused_node, ConnectionsDoNotHaveTheirUserLookedUpAgainAndAgain)
{
    client(directory).greet(); // the first
    int watcher = fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK, O_RDONLY | O_CLOEXEC);
    if (watcher < 0 || fanotify_mark(watcher, FAN_MARK_ADD, FAN_OPEN, AT_FDCWD, "/etc/passwd") != 0)
    {
        close(watcher);
        GTEST_SKIP() << "the system lets only root see who opens a file";
    }
    close(open("/etc/passwd", O_RDONLY | O_CLOEXEC)); // is seen, so that the silence of the broker means something
    for (int i = 0; i < 20; ++i)
    {
        client(directory).greet();
    }
    int ours = 0;
    int brokers = 0;
    alignas(fanotify_event_metadata) char room[4096];
    for (ssize_t size; (size = read(watcher, room, sizeof room)) > 0;)
    {
        for (auto *one = reinterpret_cast<fanotify_event_metadata *>(room); FAN_EVENT_OK(one, size);
             one = FAN_EVENT_NEXT(one, size))
        {
            ours += one->pid == getpid();
            brokers += one->pid == broker_pid();
            close(one->fd);
        }
    }
    close(watcher);
    EXPECT_EQ(ours, 1);
    EXPECT_EQ(brokers, 0);
}

TEST_F(abused_node, MemoryThatRunsOutCostsThoseWhoAskForIt)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer ends a program that has no memory left";
#endif
    EXPECT_EQ(tool({"stop"}).code, 0);
    start("[node]\nconnections_per_process = 1000\n");
    rlimit memory{static_cast<rlim_t>(broker_memory("VmSize") + 8192) << 10, RLIM_INFINITY};
    ASSERT_EQ(prlimit(broker_pid(), RLIMIT_AS, &memory, nullptr), 0);
    {
        // Each begins a record that is held until its end comes.
        const std::string part(60000, 'x');
        std::vector<std::unique_ptr<client>> greedy;
        for (int i = 0; i < 60 && !HasFailure(); ++i)
        {
            greedy.push_back(std::make_unique<client>(directory));
            greedy.back()->greet();
            for (int k = 0; k < 8 && send_record(*greedy.back(), wire::node_file_kind::trace, part, k == 0, true); ++k)
            {
            }
        }
        EXPECT_TRUE(wait_until([&] {
            return log().find("it asks for more than the node can do") != std::string::npos;
        }));
    }
    expect_service();
}

} // namespace
} // namespace test
