// server.cpp - the broker's event loop and the signals it takes. Connections are in server_links.cpp, the sockets of
// sessions in server_sessions.cpp, the listening socket and the way out in server_listener.cpp. One thread.
#include "broker/server.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr milliseconds output_check = 5'000; // between looks at the log's size while programs write to it

} // namespace

milliseconds server::now() const
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<milliseconds>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
}

server::server(server_options options, config settings)
    : options_(std::move(options)), started_(now()),
      exchange_(*this, std::move(settings), static_cast<std::uint32_t>(getpid())), records_(options_.directory),
      idle_since_(started_),
      buffer_(wire::max_message + 1)
{
}

server::~server()
{
    for (auto &[id, connection] : links_)
    {
        close(connection.fd);
        for (const outgoing &message : connection.queue)
        {
            drop(message);
        }
    }
    for (auto &[id, session] : held_)
    {
        close(session.held_end);
        if (session.allocating_end >= 0)
        {
            close(session.allocating_end);
        }
    }
    for (const auto &[process, one] : children_)
    {
        if (one.report >= 0)
        {
            close(one.report);
        }
    }
    for (int fd : {listener_, signals_, spare_, epoll_})
    {
        if (fd >= 0)
        {
            close(fd);
        }
    }
}

bool server::watch(int fd, watched what, std::uint32_t number, std::uint32_t events)
{
    epoll_event event{};
    event.events = events;
    event.data.u64 = event_word(what, number);
    return epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) == 0;
}

void server::settings_into_page()
{
    const config &settings = exchange_.settings();
    wire::control_page &shared = *page_.content();
    shared.problem_log_limit = settings.problem_log_limit;
    shared.audit_log_limit = settings.audit_log_limit;
    shared.trace_file_limit = settings.trace_file_limit;
}

bool server::open(std::string &trouble)
{
    sigset_t taken;
    sigemptyset(&taken);
    for (int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
    {
        sigaddset(&taken, number);
        std::signal(number, SIG_DFL); // the caller may have ignored it, and then it would not arrive
    }
    sigprocmask(SIG_BLOCK, &taken, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    epoll_ = epoll_create1(EPOLL_CLOEXEC);
    signals_ = signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK);
    spare_ = fcntl(epoll_, F_DUPFD_CLOEXEC, 0);
    if (epoll_ < 0 || signals_ < 0 || spare_ < 0 || !passwords_.open() || !page_.open(options_.directory) ||
        !watch(signals_, watched::signals, 0, EPOLLIN) ||
        !watch(passwords_.descriptor(), watched::passwords, 0, EPOLLIN))
    {
        trouble = std::string("the system refuses what every node needs (") + std::strerror(errno) +
                  "); look at its limits for open files and memory";
        return false;
    }
    // Each session that no program has accepted yet takes a descriptor, or two; each connection takes one.
    const config &settings = exchange_.settings();
    rlimit files;
    if (getrlimit(RLIMIT_NOFILE, &files) == 0 &&
        files.rlim_cur < settings.connections_per_user + settings.attaches_per_user)
    {
        log_line("warning: the limit of open files, " + std::to_string(files.rlim_cur) +
                 ", is lower than what one user may have of connections and attaches together; raise it, or lower "
                 "connections_per_user and attaches_per_user in the configuration");
    }
    settings_into_page();
    wire::control_page &shared = *page_.content();
    shared.config_generation = 1;
    shared.trace_control[wire::trace_byte] = exchange_.settings().trace ? wire::trace_bit : 0;
    shared.trace_control[wire::audit_byte] = exchange_.settings().audit ? 0 : wire::audit_off_bit;
    page_.mark_trace(); // also takes away what a broker that was killed has left
    return open_listener(trouble);
}

void server::run()
{
    for (;;)
    {
        milliseconds idle_left = 0;
        bool idle_runs = idle_for(idle_left);
        if (stopping_ || (idle_runs && idle_left <= 0))
        {
            if (leave())
            {
                log_tick(true);
                return;
            }
            idle_since_ = now();
            continue;
        }
        milliseconds wait = idle_runs ? idle_left : -1;
        auto wake_within = [&](milliseconds left) { wait = wait < 0 ? left : std::min(wait, left); };
        if (auto deadline = exchange_.next_deadline())
        {
            wake_within(std::max<milliseconds>(*deadline - now(), 0));
        }
        if (auto deadline = links_deadline())
        {
            wake_within(std::max<milliseconds>(*deadline - now(), 0));
        }
        if (milliseconds due = log_due(); due >= 0)
        {
            wake_within(due);
        }
        if (!children_.empty())
        {
            wake_within(output_check); // their output may fill the log
        }
        epoll_event events[64];
        int count = epoll_wait(epoll_, events, 64, static_cast<int>(std::min<milliseconds>(wait, 1 << 30)));
        for (int i = 0; i < count; ++i)
        {
            auto number = static_cast<std::uint32_t>(events[i].data.u64);
            auto what = static_cast<watched>(events[i].data.u64 >> 32);
            guarded(what, number, [&] { serve(what, number, events[i].events); });
        }
        guarded(watched::clock, 0, [&] { log_tick(); });
        guarded(watched::clock, 0, [&] { tick_links(); });
        guarded(watched::clock, 0, [&] { exchange_.tick(now()); });
        guarded(watched::clock, 0, [&] {
            while (!not_started_.empty()) // what the end of one brings about may be a start that fails again
            {
                auto [tp_name, how] = std::move(not_started_.back());
                not_started_.pop_back();
                exchange_.program_ended(tp_name, how, now());
            }
        });
        guarded(watched::clock, 0, [&] { reap_connections(); });
    }
}

void server::end_of(watched what, std::uint32_t number, const char *trouble)
{
    if (what == watched::connection)
    {
        try
        {
            close_connection(number, "it asks for more than the node can do");
        }
        catch (const std::exception &) // not even a line for the log
        {
            close_connection(number, "");
        }
    }
    try
    {
        log_limited("trouble", std::string("cannot do something that it should (") + trouble + ")");
        if (what == watched::session)
        {
            exchange_.abandon(number, now());
        }
    }
    catch (const std::exception &) // nothing is left to be done
    {
    }
}

void server::serve(watched what, std::uint32_t number, std::uint32_t events)
{
    switch (what)
    {
    case watched::listener:
        accept_connections();
        break;
    case watched::signals:
        read_signals();
        break;
    case watched::passwords:
        read_passwords();
        break;
    case watched::connection:
        if ((events & EPOLLOUT) != 0)
        {
            write_connection(number);
        }
        if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0)
        {
            read_connection(number);
        }
        break;
    case watched::session:
        exchange_.attach(number, look(number), now());
        break;
    case watched::program:
        read_report(static_cast<int>(number));
        break;
    case watched::clock:
        break;
    }
}

counted_ends server::counted() const
{
    counted_ends ends;
    for (const auto &[id, connection] : links_)
    {
        add_counted(ends, exchange_, id, connection.counters.read());
    }
    return ends;
}

bool server::reload(config_findings &findings, reload_report &report)
{
    std::optional<config> fresh = default_config();
    std::string in_directory = options_.directory + "/node.toml";
    if (options_.config_file.empty() && access(in_directory.c_str(), F_OK) == 0)
    {
        options_.config_file = in_directory; // it has come since the start
    }
    if (!options_.config_file.empty())
    {
        fresh = read_config_file(options_.config_file, findings);
    }
    for (const std::string &error : findings.errors)
    {
        log_line(error);
    }
    if (!fresh)
    {
        log_line("keeps the configuration it had");
        return false;
    }
    report = exchange_.reconfigure(*fresh, now());
    settings_into_page();
    open_to_users();
    ++page_.content()->config_generation;
    log_line("has read its configuration again");
    return true;
}

void server::read_signals()
{
    signalfd_siginfo info;
    while (read(signals_, &info, sizeof info) == sizeof info)
    {
        if (info.ssi_signo == SIGCHLD)
        {
            reap_children();
        }
        else if (info.ssi_signo == SIGHUP)
        {
            config_findings findings;
            reload_report report;
            reload(findings, report);
        }
        else
        {
            stopping_ = true;
        }
    }
}

void server::reap_children()
{
    int status;
    for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;)
    {
        read_report(pid); // a program that could not be started has never been one
        auto found = children_.find(pid);
        if (found == children_.end())
        {
            continue;
        }
        child ended = std::move(found->second);
        children_.erase(found);
        bool failed = !WIFEXITED(status) || WEXITSTATUS(status) != 0;
        if (failed)
        {
            log_limited("ended", ended.command + " (process " + std::to_string(pid) + ") ended with " +
                                     (WIFEXITED(status) ? "exit code " + std::to_string(WEXITSTATUS(status))
                                                        : "signal " + std::to_string(WTERMSIG(status))));
        }
        exchange_.program_ended(ended.tp_name, failed ? program_end::failed : program_end::done, now());
    }
}

void server::read_passwords()
{
    for (const password_checker::verdict &one : passwords_.take())
    {
        guarded(watched::session, one.session, [&] { exchange_.verified(one.session, one.good, now()); });
    }
}

} // namespace broker
