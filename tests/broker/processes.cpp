// processes.cpp - running programs and speaking to the broker's socket.
#include "processes.hpp"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace test {

void sleep_ms(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

long long now_ms()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

namespace {

std::string contents(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace

finished run(std::vector<std::string> arguments, std::vector<std::string> more_environment)
{
    char out_name[] = "/tmp/cpic-out-XXXXXX";
    char error_name[] = "/tmp/cpic-err-XXXXXX";
    int out = mkostemp(out_name, O_CLOEXEC);
    int error = mkostemp(error_name, O_CLOEXEC);
    std::vector<std::string> environment = std::move(more_environment);
    for (char **variable = environ; *variable != nullptr; ++variable)
    {
        std::string one = *variable;
        if (!one.starts_with("CPIC_") && !one.starts_with("XDG_RUNTIME_DIR="))
        {
            environment.push_back(one);
        }
    }
    auto pointers = [](std::vector<std::string> &strings) {
        std::vector<char *> list;
        for (std::string &one : strings)
        {
            list.push_back(one.data());
        }
        list.push_back(nullptr);
        return list;
    };
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out, 1);
    posix_spawn_file_actions_adddup2(&actions, error, 2);
    pid_t pid = 0;
    auto argv = pointers(arguments);
    auto envp = pointers(environment);
    int failed = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    EXPECT_EQ(failed, 0) << arguments[0];
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    finished result{WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), contents(out_name),
                    contents(error_name)};
    close(out);
    close(error);
    unlink(out_name);
    unlink(error_name);
    return result;
}

watched::watched(std::vector<std::string> arguments)
{
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    out_ = ends[0];
    std::vector<char *> argv;
    for (std::string &argument : arguments)
    {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    EXPECT_EQ(posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ), 0) << arguments[0];
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
}

watched::~watched()
{
    if (pid_ > 0)
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0)
    {
        close(out_);
    }
}

std::string watched::line()
{
    std::size_t end;
    while ((end = have_.find('\n')) == have_.npos)
    {
        pollfd ready{out_, POLLIN, 0};
        char buffer[4096];
        ssize_t size = poll(&ready, 1, patience) > 0 ? read(out_, buffer, sizeof buffer) : 0;
        if (size <= 0)
        {
            ADD_FAILURE() << "no line comes; the last bytes: " << have_;
            return "";
        }
        have_.append(buffer, static_cast<std::size_t>(size));
    }
    std::string line = have_.substr(0, end);
    have_.erase(0, end + 1);
    return line;
}

int watched::stop_reading()
{
    close(out_);
    out_ = -1;
    int status = 0;
    if (!wait_until([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }))
    {
        ADD_FAILURE() << "the program goes on though nobody reads what it writes";
        return 0;
    }
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

client::client(const std::string &directory)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = directory + "/broker.sock";
    std::memcpy(address.sun_path, path.c_str(), path.size());
    fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd_ >= 0 && connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
    {
        close();
    }
}

client::~client()
{
    close();
}

void client::close()
{
    if (fd_ >= 0)
    {
        ::close(fd_);
    }
    fd_ = -1;
}

bool client::send_bytes(std::span<const std::byte> bytes, std::span<const int> descriptors)
{
    iovec place{const_cast<std::byte *>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    std::vector<char> room(CMSG_SPACE(descriptors.size_bytes()));
    if (!descriptors.empty())
    {
        message.msg_control = room.data();
        message.msg_controllen = room.size();
        cmsghdr *rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(descriptors.size_bytes());
        std::memcpy(CMSG_DATA(rights), descriptors.data(), descriptors.size_bytes());
    }
    return sendmsg(fd_, &message, MSG_NOSIGNAL) >= 0;
}

received client::next()
{
    received result;
    pollfd ready{fd_, POLLIN, 0};
    if (poll(&ready, 1, patience) <= 0)
    {
        ADD_FAILURE() << "the broker says nothing";
        return result;
    }
    result.bytes.resize(wire::max_message);
    char room[CMSG_SPACE(16 * sizeof(int))];
    iovec place{result.bytes.data(), result.bytes.size()};
    msghdr message{};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    message.msg_control = room;
    message.msg_controllen = sizeof room;
    ssize_t size = recvmsg(fd_, &message, MSG_CMSG_CLOEXEC);
    result.bytes.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    for (cmsghdr *part = size > 0 ? CMSG_FIRSTHDR(&message) : nullptr; part != nullptr;
         part = CMSG_NXTHDR(&message, part))
    {
        std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        const auto *fds = reinterpret_cast<const int *>(CMSG_DATA(part));
        result.descriptors.insert(result.descriptors.end(), fds, fds + count);
    }
    if (!result.bytes.empty())
    {
        EXPECT_TRUE(wire::message_check(result.bytes.data(), result.bytes.size(), wire::sender::broker));
    }
    return result;
}

bool client::closed_by_broker()
{
    for (;;)
    {
        pollfd ready{fd_, POLLIN, 0};
        if (poll(&ready, 1, patience) <= 0)
        {
            return false;
        }
        char bytes[4096];
        if (recv(fd_, bytes, sizeof bytes, 0) <= 0)
        {
            return true;
        }
    }
}

bool client::quiet()
{
    pollfd ready{fd_, POLLIN, 0};
    return poll(&ready, 1, 0) == 0;
}

wire::welcome client::greet(int *page)
{
    wire::hello hello{};
    hello.version = wire::protocol_version;
    std::strcpy(hello.program, "test");
    EXPECT_TRUE(say(hello, wire::message_kind::hello, 1));
    received answer = next();
    auto welcome = answer.as<wire::welcome>(wire::message_kind::welcome);
    EXPECT_EQ(answer.descriptors.size(), 1u);
    for (int fd : answer.descriptors)
    {
        if (page != nullptr && *page < 0)
        {
            *page = fd;
        }
        else
        {
            ::close(fd);
        }
    }
    return welcome;
}

void client::add_name(const char *name)
{
    wire::name_change message{};
    broker::to_ebcdic(message.tp_name, name);
    ASSERT_TRUE(say(message, wire::message_kind::add_name, 2));
    EXPECT_EQ(next().as<wire::done>(wire::message_kind::done).status.primary, wire::rc_ok);
}

received client::allocate(const char *tp_name, std::uint32_t correlation)
{
    wire::allocate message{};
    broker::to_ascii(message.partner_alias, "LOCALLU");
    broker::to_ebcdic(message.mode, "#INTER");
    broker::to_ebcdic(message.tp_name, tp_name);
    broker::to_ebcdic(message.user_id, "");
    broker::to_ebcdic(message.password, "");
    message.conv_type = 1;
    EXPECT_TRUE(say(message, wire::message_kind::allocate, correlation));
    return next();
}

bool client::ask(const std::string &command)
{
    std::vector<std::byte> bytes(sizeof(wire::control) + command.size());
    wire::control head{};
    head.head = {static_cast<std::uint16_t>(wire::message_kind::control), 0, static_cast<std::uint32_t>(bytes.size()),
                 5};
    head.text_length = static_cast<std::uint32_t>(command.size());
    head.json = 1;
    std::memcpy(bytes.data(), &head, sizeof head);
    std::memcpy(bytes.data() + sizeof head, command.data(), command.size());
    return send_bytes(bytes);
}

bool client::accept(const char *tp_name, std::uint32_t correlation)
{
    std::vector<std::byte> bytes(sizeof(wire::accept) + wire::tp_name_size);
    wire::accept head{};
    head.head = {static_cast<std::uint16_t>(wire::message_kind::accept), 0, static_cast<std::uint32_t>(bytes.size()),
                 correlation};
    head.count = 1;
    std::memcpy(bytes.data(), &head, sizeof head);
    std::string name = broker::tp_name_bytes(std::string_view(tp_name));
    std::memcpy(bytes.data() + sizeof head, name.data(), name.size());
    return send_bytes(bytes);
}

void node::SetUp()
{
    char name[] = "/tmp/cpic-node-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    directory = name;
}

void node::TearDown()
{
    pid_t pid = running() ? broker_pid() : 0;
    if (pid > 0)
    {
        kill(pid, SIGKILL);
        EXPECT_TRUE(wait_until([&] { return !running(); }));
    }
    if (HasFailure())
    {
        std::string text = log();
        std::string end = text.substr(text.size() > 2000 ? text.size() - 2000 : 0);
        std::fprintf(stderr, "the end of broker.log:\n%s", end.c_str());
    }
    std::filesystem::remove_all(directory);
}

finished node::broker(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {CPICNODED, "--dir", directory});
    return run(std::move(arguments));
}

finished node::tool(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {CPICNODE, "--dir", directory});
    return run(std::move(arguments));
}

void node::start(const std::string &config)
{
    std::vector<std::string> arguments{"--start"};
    if (!config.empty())
    {
        arguments.insert(arguments.end(), {"--config", write_config(config)});
    }
    finished result = broker(arguments);
    ASSERT_EQ(result.code, 0) << result.error;
    ASSERT_EQ(result.error, "");
}

pid_t node::broker_pid() const
{
    return std::atoi(contents(directory + "/broker.lock").c_str());
}

bool node::running() const
{
    int fd = open((directory + "/broker.lock").c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
    {
        return false;
    }
    bool held = flock(fd, LOCK_EX | LOCK_NB) != 0;
    close(fd);
    return held;
}

std::string node::write_config(const std::string &text)
{
    std::string path = directory + "/test.toml";
    std::ofstream(path) << text;
    return path;
}

std::string node::log() const
{
    return contents(directory + "/broker.log");
}

void send_attach(int fd, const std::string &more)
{
    wire::frame_header header{};
    header.kind = static_cast<std::uint8_t>(wire::frame_kind::attach);
    std::string bytes(reinterpret_cast<const char *>(&header), sizeof header);
    bytes += more;
    ASSERT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

std::string read_bytes(int fd, std::size_t size)
{
    std::string bytes;
    while (bytes.size() < size)
    {
        pollfd ready{fd, POLLIN, 0};
        char buffer[4096];
        if (poll(&ready, 1, patience) <= 0)
        {
            ADD_FAILURE() << "nothing comes";
            break;
        }
        ssize_t got = recv(fd, buffer, std::min(sizeof buffer, size - bytes.size()), 0);
        if (got <= 0)
        {
            break;
        }
        bytes.append(buffer, static_cast<std::size_t>(got));
    }
    return bytes;
}

} // namespace test
