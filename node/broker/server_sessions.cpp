// server_sessions.cpp - the socket pairs of sessions while the broker holds an end, and the programs that it starts.
// One thread.
#include "broker/server.hpp"

#include "broker/names.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <csignal>
#include <optional>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace broker {

namespace {

// What the environment of a started program is made of, and the arguments; pointers into the strings.
std::vector<char *> pointers(std::vector<std::string> &strings)
{
    std::vector<char *> list;
    for (std::string &one : strings)
    {
        list.push_back(one.data());
    }
    list.push_back(nullptr);
    return list;
}

// Sets a variable, whether it is there already or not.
void set_variable(std::vector<std::string> &environment, const std::string &name, const std::string &value)
{
    std::erase_if(environment, [&](const std::string &one) { return one.starts_with(name + "="); });
    environment.push_back(name + "=" + value);
}

// The limits that the broker was started with; none before set_own_limits().
std::optional<rlimit> files_before;
std::optional<rlimit> core_before;

void give_back(int resource, const std::optional<rlimit> &before)
{
    if (before)
    {
        setrlimit(static_cast<__rlimit_resource>(resource), &*before);
    }
}

// Why a program could not be started; no text: it could.
struct start_trouble
{
    std::string text;
    program_end how = program_end::cannot_start;
};

// The trouble that an error of the system is. Some pass with time; of all others the configuration has to take care.
start_trouble trouble_of(int error)
{
    static constexpr int passing[] = {EAGAIN, ENOMEM, EMFILE, ENFILE, ENOSPC, EIO, ETXTBSY, EINTR};
    bool passes = std::find(std::begin(passing), std::end(passing), error) != std::end(passing);
    return {std::strerror(error), passes ? program_end::not_now : program_end::cannot_start};
}

// The user that a program is to run as.
struct account
{
    bool other = false; // than the broker's own; the rest holds only then
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;
};

start_trouble account_of(const std::string &user, account &as)
{
    if (user.empty())
    {
        return {};
    }
    char room[16384];
    passwd entry;
    passwd *found = nullptr;
    int error = getpwnam_r(user.c_str(), &entry, room, sizeof room, &found);
    if (found == nullptr)
    {
        const start_trouble trouble = trouble_of(error);
        return error != 0 && trouble.how == program_end::not_now ? trouble
                                                                 : start_trouble{"user " + user + " does not exist"};
    }
    if (found->pw_uid == geteuid())
    {
        return {};
    }
    if (geteuid() != 0)
    {
        return {"only a node that runs as root can start it as user " + user};
    }
    as.other = true;
    as.uid = found->pw_uid;
    as.gid = found->pw_gid;
    int count = 256;
    as.groups.resize(static_cast<std::size_t>(count));
    getgrouplist(user.c_str(), as.gid, as.groups.data(), &count);
    as.groups.resize(static_cast<std::size_t>(std::min(count, 256)));
    return {};
}

// Starts a program in a session of its own. `report` ends when it runs; what has gone wrong before its first
// instruction comes through it. A program may lie where reading it takes long, so nobody waits for that here.
start_trouble launch(const std::string &command, std::vector<char *> arguments, std::vector<char *> environment,
                     const account &as, pid_t &pid, int &report)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
    {
        return trouble_of(errno);
    }
    pid = fork();
    if (pid == 0)
    {
        // Only what a forked thread may call. Standard output and error are the broker's: its log. Nothing else of the
        // broker's goes further, from this moment on: a socket that is held here would seem to live on elsewhere.
        constexpr int out = STDERR_FILENO + 1; // at most a pipe's first end has had this number
        dup3(ends[1], out, O_CLOEXEC);
        close_range(out + 1, ~0u, 0);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        std::signal(SIGPIPE, SIG_DFL);
        setsid();
        give_back(RLIMIT_NOFILE, files_before);
        give_back(RLIMIT_CORE, core_before);
        int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        dup2(null, STDIN_FILENO);
        if (!as.other ||
            (setgroups(as.groups.size(), as.groups.data()) == 0 && setgid(as.gid) == 0 && setuid(as.uid) == 0))
        {
            execve(command.c_str(), arguments.data(), environment.data());
        }
        int error = errno;
        [[maybe_unused]] ssize_t written = write(out, &error, sizeof error);
        _exit(127);
    }
    int error = pid < 0 ? errno : 0;
    close(ends[1]);
    if (pid < 0)
    {
        close(ends[0]);
        return trouble_of(error);
    }
    report = ends[0];
    return {};
}

void say_not_started(const std::string &command, const std::string &tp_name, const std::string &why)
{
    log_limited("start", "cannot start " + command + " for TP " + tp_name_text(tp_name) + ": " + why);
}

} // namespace

void set_own_limits()
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0)
    {
        files_before = limit;
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    if (getrlimit(RLIMIT_CORE, &limit) == 0)
    {
        core_before = limit;
        limit.rlim_cur = 0;
        setrlimit(RLIMIT_CORE, &limit);
    }
}

bool server::open_session(session_id id)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0)
    {
        log_limited("session", std::string("cannot make a session: ") + std::strerror(errno));
        return false;
    }
    if (!watch(ends[1], watched::session, id, EPOLLIN))
    {
        close(ends[0]);
        close(ends[1]);
        return false;
    }
    held_session &added = held_[id];
    added.allocating_end = ends[0];
    added.held_end = ends[1];
    return true;
}

// Never reads past the ATTACH: what follows is for the accepting program.
attach_seen server::look(session_id id)
{
    auto found = held_.find(id);
    if (found == held_.end())
    {
        return attach_seen::nothing;
    }
    held_session &session = found->second;
    while (session.read < sizeof session.header)
    {
        ssize_t size = recv(session.held_end, session.header + session.read, sizeof session.header - session.read,
                            MSG_DONTWAIT);
        if (size < 0 && errno == EINTR)
        {
            continue;
        }
        if (size < 0 && errno == EAGAIN)
        {
            return attach_seen::nothing;
        }
        if (size <= 0)
        {
            return attach_seen::broken;
        }
        session.read += static_cast<std::size_t>(size);
    }
    epoll_ctl(epoll_, EPOLL_CTL_DEL, session.held_end, nullptr);
    wire::frame_header wanted{};
    wanted.kind = static_cast<std::uint8_t>(wire::frame_kind::attach);
    return std::memcmp(session.header, &wanted, sizeof wanted) == 0 ? attach_seen::attach : attach_seen::broken;
}

void server::refuse(session_id id, std::uint32_t sense)
{
    auto found = held_.find(id);
    if (found == held_.end())
    {
        return;
    }
    struct
    {
        wire::frame_header header;
        wire::error_head error;
    } frame{};
    frame.header.length = sizeof frame.error;
    frame.header.kind = static_cast<std::uint8_t>(wire::frame_kind::error);
    frame.header.flags = wire::flag_end;
    frame.error.sense = sense;
    int fd = found->second.held_end;
    ::send(fd, &frame, sizeof frame, MSG_DONTWAIT | MSG_NOSIGNAL);
    // A socket that is closed with data unread resets the other end; take what is there, within reason.
    char unread[16384];
    for (int i = 0; i < 64 && recv(fd, unread, sizeof unread, MSG_DONTWAIT) > 0; ++i)
    {
    }
    drop_session(id);
}

void server::drop_session(session_id id)
{
    auto found = held_.find(id);
    if (found == held_.end())
    {
        return;
    }
    epoll_ctl(epoll_, EPOLL_CTL_DEL, found->second.held_end, nullptr);
    close(found->second.held_end);
    if (found->second.allocating_end >= 0)
    {
        close(found->second.allocating_end);
    }
    held_.erase(found);
}

void server::verify(session_id session, const peer &who, const std::string &hash, secret password)
{
    passwords_.check(session, who.uid, who.pid, hash, std::move(password));
}

void server::start_program(const program_entry &program, const std::string &local_alias)
{
    std::vector<std::string> arguments{program.command};
    arguments.insert(arguments.end(), program.arguments.begin(), program.arguments.end());
    std::vector<std::string> environment;
    for (char **variable = environ; *variable != nullptr; ++variable)
    {
        environment.emplace_back(*variable);
    }
    // What a service manager has told the broker is for the broker alone.
    std::erase_if(environment, [](const std::string &one) {
        return one.starts_with("NOTIFY_SOCKET=") || one.starts_with("WATCHDOG_");
    });
    set_variable(environment, "CPIC_NODE_DIR", options_.directory);
    // A service TP name is no text that the variable could carry: such a program names itself.
    std::string name = tp_name_text(program.tp_name);
    if (tp_name_bytes(name) == program.tp_name)
    {
        set_variable(environment, "APPCTPN", name);
    }
    set_variable(environment, "APPCLLU", local_alias);
    for (const auto &[variable, value] : program.environment)
    {
        set_variable(environment, variable, value);
    }
    account as;
    start_trouble trouble = account_of(program.user, as);
    pid_t pid = -1;
    int report = -1;
    if (trouble.text.empty())
    {
        trouble = launch(program.command, pointers(arguments), pointers(environment), as, pid, report);
    }
    if (pid > 0)
    {
        children_[pid] = {program.tp_name, program.command, report};
        watch(report, watched::program, static_cast<std::uint32_t>(pid), EPOLLIN); // else its end tells
        return;
    }
    say_not_started(program.command, program.tp_name, trouble.text);
    not_started_.emplace_back(program.tp_name, trouble.how);
}

// Whether a program that is being started runs now, or never will.
void server::read_report(int process)
{
    auto found = children_.find(process);
    if (found == children_.end() || found->second.report < 0)
    {
        return;
    }
    int error = 0;
    ssize_t size = read(found->second.report, &error, sizeof error);
    if (size < 0 && (errno == EAGAIN || errno == EINTR))
    {
        return;
    }
    epoll_ctl(epoll_, EPOLL_CTL_DEL, found->second.report, nullptr);
    close(std::exchange(found->second.report, -1));
    if (size != sizeof error)
    {
        return;
    }
    child failed = std::move(found->second);
    children_.erase(found); // its process is collected like any other, but was never a program
    start_trouble trouble = trouble_of(error);
    say_not_started(failed.command, failed.tp_name, trouble.text);
    exchange_.program_ended(failed.tp_name, trouble.how, now());
}

} // namespace broker
