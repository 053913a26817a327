// server.cpp - the broker's event loop, its connections and the signals it takes. The sockets of sessions are in
// server_sessions.cpp, the listening socket and the way out in server_listener.cpp. One thread.
#include "broker/server.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr std::size_t max_queued_bytes = 4u << 20; // for one connection that does not read
constexpr std::size_t max_record = 512u << 10;     // that comes in parts; the longest of the trace is shorter
constexpr std::size_t max_answer = 64u << 20;      // of an operator's command
constexpr int messages_at_once = 16;               // of one connection before others have their turn

std::uint64_t epoll_word(std::uint32_t what, std::uint32_t number)
{
    return static_cast<std::uint64_t>(what) << 32 | number;
}

} // namespace

void log_line(const std::string &text)
{
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    tm parts;
    localtime_r(&time.tv_sec, &parts);
    char head[80];
    std::size_t size = std::strftime(head, sizeof head, "%Y-%m-%d %H:%M:%S", &parts);
    std::snprintf(head + size, sizeof head - size, ".%06ld cpicnoded[%d]: ", time.tv_nsec / 1000, getpid());
    std::string line = head + text + "\n";
    // A log that is full is no reason to stop.
    [[maybe_unused]] ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

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
            if (message.ours)
            {
                close(message.descriptor);
            }
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
    event.data.u64 = epoll_word(static_cast<std::uint32_t>(what), number);
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
    spare_ = dup(epoll_);
    if (epoll_ < 0 || signals_ < 0 || spare_ < 0 || !passwords_.open() || !page_.open(options_.directory) ||
        !watch(signals_, watched::signals, 0, EPOLLIN) ||
        !watch(passwords_.descriptor(), watched::passwords, 0, EPOLLIN))
    {
        trouble = std::string("the system refuses what every node needs (") + std::strerror(errno) +
                  "); look at its limits for open files and memory";
        return false;
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
                return;
            }
            idle_since_ = now();
            continue;
        }
        milliseconds wait = idle_runs ? idle_left : -1;
        if (auto deadline = exchange_.next_deadline())
        {
            milliseconds left = std::max<milliseconds>(*deadline - now(), 0);
            wait = wait < 0 ? left : std::min(wait, left);
        }
        epoll_event events[64];
        int count = epoll_wait(epoll_, events, 64, static_cast<int>(std::min<milliseconds>(wait, 1 << 30)));
        for (int i = 0; i < count; ++i)
        {
            auto number = static_cast<std::uint32_t>(events[i].data.u64);
            switch (static_cast<watched>(events[i].data.u64 >> 32))
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
                if ((events[i].events & EPOLLOUT) != 0)
                {
                    write_connection(number);
                }
                if ((events[i].events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0)
                {
                    read_connection(number);
                }
                break;
            case watched::session:
                exchange_.attach(number, look(number), now());
                break;
            }
        }
        exchange_.tick(now());
        while (!not_started_.empty()) // what the end of one brings about may be a start that fails again
        {
            auto [tp_name, how] = not_started_.back();
            not_started_.pop_back();
            exchange_.program_ended(tp_name, how, now());
        }
        reap_connections();
    }
}

void server::read_connection(connection_id id)
{
    auto found = links_.find(id);
    if (found == links_.end())
    {
        return;
    }
    for (int i = 0; i < messages_at_once && !found->second.closing; ++i)
    {
        // Room for one descriptor, and not for the two that the padding of the record would take: more are dropped by
        // the system, and their sender is found out by the flag.
        iovec place{buffer_.data(), buffer_.size()};
        alignas(cmsghdr) char room[CMSG_SPACE(sizeof(int))]{};
        msghdr message{};
        message.msg_iov = &place;
        message.msg_iovlen = 1;
        message.msg_control = room;
        message.msg_controllen = CMSG_LEN(sizeof(int));
        ssize_t size = recvmsg(found->second.fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (size < 0 && errno == EINTR)
        {
            continue;
        }
        if (size < 0 && errno == EAGAIN)
        {
            return;
        }
        int descriptor = -1;
        cmsghdr *part = size < 0 ? nullptr : CMSG_FIRSTHDR(&message);
        if (part != nullptr && part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_RIGHTS &&
            part->cmsg_len >= CMSG_LEN(sizeof(int)))
        {
            std::memcpy(&descriptor, CMSG_DATA(part), sizeof descriptor);
        }
        // The one descriptor of a greeting may also be cut off because the broker has none left for it.
        bool greets = !exchange_.connections().at(id).greeted;
        bool surplus = (message.msg_flags & MSG_CTRUNC) != 0 && (descriptor >= 0 || !greets);
        if (size <= 0)
        {
            close_connection(id, "");
        }
        else if ((message.msg_flags & MSG_TRUNC) != 0 || surplus || (descriptor >= 0 && !greets))
        {
            close_connection(id, "it has sent more than a message");
        }
        else if (descriptor >= 0 && !counter_view::proper(descriptor))
        {
            close_connection(id, "its table of counters is none");
        }
        else
        {
            if (descriptor >= 0)
            {
                found->second.counters.open(descriptor); // with no room for it the program goes uncounted
            }
            exchange_.message(id, std::span(buffer_.data(), static_cast<std::size_t>(size)), now());
            explicit_bzero(buffer_.data(), static_cast<std::size_t>(size)); // a password may have been in it
        }
        if (descriptor >= 0)
        {
            close(descriptor);
        }
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

void server::close_connection(connection_id id, const char *reason)
{
    auto found = links_.find(id);
    if (found == links_.end() || found->second.closing)
    {
        return;
    }
    if (*reason != 0)
    {
        auto known = exchange_.connections().find(id);
        std::string process = known == exchange_.connections().end() ? "" : std::to_string(known->second.who.pid);
        log_line("closes the connection of process " + process + ": " + reason);
    }
    found->second.closing = true;
    closing_.push_back(id);
}

void server::reap_connections()
{
    // The end of one may make others fail; go on until there are none.
    while (!closing_.empty())
    {
        connection_id id = closing_.back();
        closing_.pop_back();
        link gone = std::move(links_.at(id));
        links_.erase(id);
        for (const outgoing &message : gone.queue)
        {
            if (message.ours)
            {
                close(message.descriptor);
            }
        }
        close(gone.fd);
        exchange_.disconnected(id, now());
        idle_since_ = now();
    }
}

// Sends one message. False: the connection is of no use any more. full: it cannot take the message now.
bool server::write_one(link &connection, const outgoing &message, bool &full)
{
    iovec place{const_cast<std::byte *>(message.bytes.data()), message.bytes.size()};
    msghdr header{};
    header.msg_iov = &place;
    header.msg_iovlen = 1;
    alignas(cmsghdr) char room[CMSG_SPACE(sizeof(int))]{};
    if (message.descriptor >= 0)
    {
        header.msg_control = room;
        header.msg_controllen = sizeof room;
        cmsghdr *rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(rights), &message.descriptor, sizeof(int));
    }
    for (;;)
    {
        if (sendmsg(connection.fd, &header, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
        {
            return true;
        }
        // ETOOMANYREFS: too many descriptors of ours are on their way; they drain like bytes do.
        if (errno == EAGAIN || errno == ENOBUFS || errno == ETOOMANYREFS)
        {
            full = true;
            return true;
        }
        if (errno != EINTR)
        {
            return false;
        }
    }
}

// Takes over the message's descriptor if it is ours.
void server::enqueue(connection_id to, link &connection, outgoing message)
{
    bool full = !connection.queue.empty();
    if (!full && !write_one(connection, message, full))
    {
        close_connection(to, "");
    }
    if (full && !connection.closing)
    {
        connection.queued_bytes += message.bytes.size();
        connection.queue.push_back(std::move(message));
        if (!connection.watching_output)
        {
            epoll_event event{};
            event.events = EPOLLIN | EPOLLOUT;
            event.data.u64 = epoll_word(static_cast<std::uint32_t>(watched::connection), to);
            connection.watching_output = epoll_ctl(epoll_, EPOLL_CTL_MOD, connection.fd, &event) == 0;
        }
        return;
    }
    if (message.ours)
    {
        close(message.descriptor);
    }
}

void server::write_connection(connection_id id)
{
    auto found = links_.find(id);
    if (found == links_.end() || found->second.closing)
    {
        return;
    }
    link &connection = found->second;
    while (!connection.queue.empty())
    {
        const outgoing &next = connection.queue.front();
        bool full = false;
        if (!write_one(connection, next, full))
        {
            close_connection(id, "");
            return;
        }
        if (full)
        {
            return;
        }
        connection.queued_bytes -= next.bytes.size();
        if (next.ours)
        {
            close(next.descriptor);
        }
        connection.queue.pop_front();
    }
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = epoll_word(static_cast<std::uint32_t>(watched::connection), id);
    epoll_ctl(epoll_, EPOLL_CTL_MOD, connection.fd, &event);
    connection.watching_output = false;
}

void server::send(connection_id to, std::span<const std::byte> message, handover what, session_id session)
{
    outgoing item{{message.begin(), message.end()}, -1, false};
    if (what == handover::control_page)
    {
        item.descriptor = page_.reader();
    }
    else if (what != handover::nothing)
    {
        auto held = held_.find(session);
        int &end = what == handover::allocating_end ? held->second.allocating_end : held->second.held_end;
        item.descriptor = end;
        item.ours = true;
        end = -1;
        if (what == handover::accepting_end)
        {
            epoll_ctl(epoll_, EPOLL_CTL_DEL, item.descriptor, nullptr);
            held_.erase(held);
        }
    }
    auto found = links_.find(to);
    if (found == links_.end() || found->second.closing)
    {
        if (item.ours)
        {
            close(item.descriptor);
        }
        return;
    }
    enqueue(to, found->second, std::move(item));
    if (found->second.queued_bytes > max_queued_bytes)
    {
        close_connection(to, "it does not read what it is sent");
    }
}

void server::record(connection_id from, wire::node_file_kind file, bool more, std::string_view text)
{
    auto found = links_.find(from);
    if (found == links_.end() || found->second.closing)
    {
        return;
    }
    std::string &whole = found->second.record;
    if (whole.size() + text.size() > max_record)
    {
        close_connection(from, "it has sent a record longer than any");
        return;
    }
    whole += text;
    if (!more)
    {
        const wire::control_page &shared = *page_.content();
        records_.append(file, whole,
                        file == wire::node_file_kind::problem_log ? shared.problem_log_limit
                        : file == wire::node_file_kind::audit_log ? shared.audit_log_limit
                                                                  : shared.trace_file_limit);
        whole = {};
    }
}

void server::control(connection_id from, std::uint32_t correlation, bool json, const std::string &command)
{
    auto found = links_.find(from);
    if (found == links_.end() || found->second.closing)
    {
        return;
    }
    if (!found->second.queue.empty())
    {
        close_connection(from, "it asks on without reading the answers");
        return;
    }
    control_answer answer = answer_command(*this, command, json, found->second.may_change);
    if (answer.text.size() > max_answer)
    {
        answer = {false, "the answer is too long to be sent\n"};
    }
    constexpr std::size_t piece = wire::max_message - sizeof(wire::control_reply);
    std::size_t done = 0;
    do
    {
        std::size_t size = std::min(piece, answer.text.size() - done);
        wire::control_reply head{};
        head.head = {static_cast<std::uint16_t>(wire::message_kind::control_reply), 0,
                     static_cast<std::uint32_t>(sizeof head + size), correlation};
        head.status.primary = answer.good ? wire::rc_ok : wire::rc_unsuccessful;
        head.more = done + size < answer.text.size() ? 1 : 0;
        head.text_length = static_cast<std::uint32_t>(size);
        outgoing item{{}, -1, false};
        item.bytes.resize(sizeof head + size);
        std::memcpy(item.bytes.data(), &head, sizeof head);
        std::memcpy(item.bytes.data() + sizeof head, answer.text.data() + done, size);
        enqueue(from, found->second, std::move(item));
        done += size;
    } while (done < answer.text.size() && !found->second.closing);
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
        auto found = children_.find(pid);
        if (found == children_.end())
        {
            continue;
        }
        child ended = found->second;
        children_.erase(found);
        bool failed = !WIFEXITED(status) || WEXITSTATUS(status) != 0;
        if (failed)
        {
            log_line(ended.command + " (process " + std::to_string(pid) + ") ended with " +
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
        exchange_.verified(one.session, one.good, now());
    }
}

} // namespace broker
