// link.cpp - the connection to the broker.
#include "client/link.hpp"

#include "client/counters.hpp"
#include "client/export.hpp"
#include "client/problems.hpp"
#include "client/shared_file.hpp"
#include "client/start.hpp"
#include "client/system.hpp"
#include "wire/directory.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <unistd.h>

namespace client {

broker_link broker = {-1, false, false, 0, {}, nullptr};

namespace {

// What the trace-control pointer shows while there is no broker: nothing is on.
unsigned char nothing_on[PTRC_SIZE];

// What it points to when a running node has the trace on and this program has not connected yet.
unsigned char trace_awaits[PTRC_SIZE] = {PTRC_API_BIT};

// The longest message that the broker sends to a program fits; a longer one is none of ours.
constexpr std::size_t longest_reply = 512;
constexpr int most_descriptors = 16;

// Messages that the socket had no room for, in order.
struct waiting_message
{
    waiting_message *next;
    std::size_t size;
    unsigned char bytes[]; // size
};
waiting_message *outbox_first;
waiting_message **outbox_end = &outbox_first;
std::size_t outbox_bytes; // of all of them

// So much may wait when a record is to be added: log and trace are not worth more memory than that.
constexpr std::size_t outbox_for_records = 4u << 20;

void watch_broker(int operation, bool to_write)
{
    epoll_event event = {};
    event.events = to_write ? EPOLLIN | EPOLLOUT : EPOLLIN;
    event.data.u64 = 0;
    sys_epoll_ctl(runtime.epoll, operation, broker.fd, &event);
}

bool send_now(const void *message, std::size_t size)
{
    iovec piece = {const_cast<void *>(message), size};
    msghdr header = {};
    header.msg_iov = &piece;
    header.msg_iovlen = 1;
    return sys_sendmsg(broker.fd, &header, 0) == static_cast<ssize_t>(size);
}

void forget_message(waiting_message *message)
{
    explicit_bzero(message->bytes, message->size); // it may hold a password
    sys_free(message);
}

// Sends what waits, as far as there is room.
void outbox_send()
{
    while (outbox_first != nullptr)
    {
        waiting_message *first = outbox_first;
        if (!send_now(first->bytes, first->size))
        {
            broker.broken = broker.broken || errno != EAGAIN;
            return;
        }
        outbox_first = first->next;
        outbox_bytes -= first->size;
        forget_message(first);
    }
    outbox_end = &outbox_first;
    watch_broker(EPOLL_CTL_MOD, false);
}

void outbox_forget()
{
    while (outbox_first != nullptr)
    {
        waiting_message *first = outbox_first;
        outbox_first = first->next;
        forget_message(first);
    }
    outbox_end = &outbox_first;
    outbox_bytes = 0;
}

// Sends a message, now or when there is room. False: the path is lost, or there is no memory to keep the message in.
bool send(const void *message, std::size_t size)
{
    if (broker.fd < 0 || broker.broken)
    {
        return false;
    }
    if (outbox_first == nullptr)
    {
        if (send_now(message, size))
        {
            return true;
        }
        if (errno != EAGAIN)
        {
            broker.broken = true;
            return false;
        }
    }
    void *memory = sys_alloc(sizeof(waiting_message) + size);
    if (memory == nullptr)
    {
        return false;
    }
    auto *waiting = new (memory) waiting_message{nullptr, size};
    std::memcpy(waiting->bytes, message, size);
    bool first = outbox_first == nullptr;
    *outbox_end = waiting;
    outbox_end = &waiting->next;
    outbox_bytes += size;
    if (first)
    {
        watch_broker(EPOLL_CTL_MOD, true);
    }
    return true;
}

u32 spares; // requests that hold a descriptor

// The message that is next answers such a request: makes room for the descriptor it brings.
void make_room()
{
    wire::message_head head;
    iovec piece = {&head, sizeof head};
    msghdr header = {};
    header.msg_iov = &piece;
    header.msg_iovlen = 1;
    if (sys_recvmsg(broker.fd, &header, MSG_DONTWAIT | MSG_PEEK) != static_cast<ssize_t>(sizeof head))
    {
        return;
    }
    auto *r = static_cast<request *>(table_find(runtime.requests, head.correlation));
    if (r != nullptr)
    {
        request_release(*r);
    }
}

// Reads one message without waiting. 0: nothing there. -1: the path is lost. Else its size; fd: the first descriptor
// that came with it, or -1. Further ones are closed: the broker never sends two.
ssize_t receive(int socket, void *buffer, std::size_t room, int &fd)
{
    fd = -1;
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(most_descriptors * sizeof(int))];
    iovec piece = {buffer, room};
    msghdr header = {};
    header.msg_iov = &piece;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    ssize_t size = sys_recvmsg(socket, &header, MSG_DONTWAIT);
    if (size < 0)
    {
        return errno == EAGAIN || errno == ENOMEM || errno == ENOBUFS ? 0 : -1;
    }
    for (cmsghdr *part = CMSG_FIRSTHDR(&header); part != nullptr; part = CMSG_NXTHDR(&header, part))
    {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS)
        {
            continue;
        }
        std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; i++)
        {
            int one;
            std::memcpy(&one, CMSG_DATA(part) + i * sizeof(int), sizeof one);
            if (fd < 0)
            {
                fd = sys_clear_of_standard(one);
            }
            else
            {
                sys_close(one);
            }
        }
    }
    bool whole = size > 0 && (header.msg_flags & MSG_TRUNC) == 0;
    if (!whole && fd >= 0)
    {
        sys_close(fd);
        fd = -1;
    }
    return whole ? size : -1;
}

// The greeting gets this many milliseconds.
constexpr int greeting_patience = 10000;

// Sends the greeting with the table of counters, or without one when there is none or the system does not take it.
bool say_hello(int socket, int table)
{
    wire::hello hello = {};
    hello.head = {static_cast<std::uint16_t>(wire::message_kind::hello), 0, sizeof hello, 1};
    hello.version = wire::protocol_version;
    std::strncpy(hello.program, program_invocation_short_name, sizeof hello.program - 1);
    iovec piece = {&hello, sizeof hello};
    msghdr header = {};
    header.msg_iov = &piece;
    header.msg_iovlen = 1;
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof table)] = {};
    if (table >= 0)
    {
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        cmsghdr *rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof table);
        std::memcpy(CMSG_DATA(rights), &table, sizeof table);
    }
    bool sent = sys_sendmsg(socket, &header, 0) == static_cast<ssize_t>(sizeof hello);
    if (!sent && table >= 0)
    {
        header.msg_control = nullptr;
        header.msg_controllen = 0;
        sent = sys_sendmsg(socket, &header, 0) == static_cast<ssize_t>(sizeof hello);
    }
    return sent;
}

// Says hello and reads the welcome with its control page. The state of the link is set only when all is well.
bool greet(int socket, int table)
{
    if (!say_hello(socket, table))
    {
        return false;
    }
    alignas(wire::welcome) unsigned char buffer[longest_reply];
    wire::welcome welcome;
    int page = -1;
    ssize_t size = 0;
    std::int64_t deadline = sys_monotonic() + greeting_patience * 1000000LL;
    while (size == 0)
    {
        pollfd watched = {socket, POLLIN, 0};
        std::int64_t left = (deadline - sys_monotonic()) / 1000000;
        if (left <= 0)
        {
            return false;
        }
        sys_poll(&watched, 1, static_cast<int>(left));
        size = receive(socket, buffer, sizeof buffer, page);
    }
    std::memcpy(&welcome, buffer, sizeof welcome);
    struct stat found;
    bool good = size == sizeof welcome && wire::message_check(buffer, sizeof welcome, wire::sender::broker) &&
                welcome.head.kind == static_cast<std::uint16_t>(wire::message_kind::welcome) &&
                welcome.head.correlation == 1 && welcome.status.primary == 0 &&
                welcome.version == wire::protocol_version && page >= 0 && sys_fstat(page, &found) == 0 &&
                found.st_size >= static_cast<off_t>(wire::control_page_size);
    const void *mapped = good ? sys_map_page(page, wire::control_page_size) : nullptr;
    if (page >= 0)
    {
        sys_close(page);
    }
    if (mapped == nullptr)
    {
        return false;
    }
    broker.connection = welcome.connection;
    std::memcpy(broker.default_alias, welcome.default_alias, sizeof broker.default_alias);
    broker.page = static_cast<const wire::control_page *>(mapped);
    return true;
}

} // namespace

static bool open_link()
{
    // A broker that is just leaving may still take a connection; the next one is then another broker's.
    for (int attempt = 0; attempt < 3; attempt++)
    {
        bool of_another = false;
        int socket = broker_reach(of_another);
        if (socket < 0)
        {
            return false;
        }
        int table = counters_open();
        bool greeted = greet(socket, table);
        if (table >= 0)
        {
            sys_close(table);
            if (!greeted)
            {
                counters_close();
            }
        }
        if (greeted)
        {
            runtime.epoll = sys_epoll_create();
            if (runtime.epoll < 0)
            {
                report_problem(problem_no_connection, errno, "the system gives no epoll set: ", std::strerror(errno));
                broker.fd = socket;
                link_close();
                counters_close();
                return false;
            }
            broker.fd = socket;
            broker.broken = false;
            broker.of_another = of_another;
            watch_broker(EPOLL_CTL_ADD, false);
            // The page is writable for the broker alone; the library only ever reads through the pointer.
            ptrc = const_cast<unsigned char *>(broker.page->trace_control);
            if ((broker.page->life & wire::life_mask) != 0)
            {
                runtime.broker_life = &broker.page->life;
            }
            return true;
        }
        sys_close(socket);
    }
    report_problem(problem_no_connection, 0, "the broker does not answer the greeting as it should", "");
    return false;
}

bool link_open()
{
    if (broker.fd < 0)
    {
        shared_files_reached(open_link());
    }
    return broker.fd >= 0;
}

void link_trace_before_open()
{
    char path[wire::max_directory + 1 + sizeof wire::trace_mark];
    char directory[wire::max_directory + 1];
    struct stat found;

    if (ptrc != nothing_on || !wire::node_directory(directory))
    {
        return;
    }
    wire::directory_state state = wire::directory_check(directory, false);
    if (state != wire::directory_state::good && state != wire::directory_state::of_another)
    {
        return;
    }
    std::snprintf(path, sizeof path, "%s/%s", directory, wire::trace_mark);
    if (sys_stat(path, &found) == 0)
    {
        ptrc = trace_awaits;
    }
}

void link_close()
{
    ptrc = nothing_on;
    runtime.broker_life = &always_alive;
    if (broker.page != nullptr)
    {
        sys_unmap_page(const_cast<wire::control_page *>(broker.page), wire::control_page_size);
        broker.page = nullptr;
    }
    if (broker.fd >= 0)
    {
        sys_close(broker.fd);
        broker.fd = -1;
    }
    broker.broken = false;
    broker.of_another = false;
    outbox_forget();
    waiting_close();
}

bool link_post(request &r, wire::message_head &message, std::size_t size, wire::message_kind kind,
               wire::message_kind expected)
{
    r.correlation = table_add(runtime.requests, &r);
    r.expected = expected;
    if (r.correlation == NB_NULL_HANDLE)
    {
        return false;
    }
    message = {static_cast<std::uint16_t>(kind), 0, static_cast<std::uint32_t>(size), r.correlation};
    if (!send(&message, size))
    {
        table_remove(runtime.requests, r.correlation);
        return false;
    }
    return true;
}

bool request_reserve(request &r)
{
    r.spare = sys_eventfd();
    spares += r.spare >= 0 ? 1 : 0;
    return r.spare >= 0;
}

void request_release(request &r)
{
    if (r.spare >= 0)
    {
        sys_close(r.spare);
        r.spare = -1;
        spares--;
    }
}

void link_ended(u32 session)
{
    wire::ended notice = {};
    notice.head = {static_cast<std::uint16_t>(wire::message_kind::ended), 0, sizeof notice, 0};
    notice.session = session;
    send(&notice, sizeof notice); // lost with the path: then the broker has forgotten the session anyway
}

bool link_record(wire::node_file_kind file, const char *record, std::size_t size)
{
    constexpr std::size_t piece_most = wire::max_message - sizeof(wire::record);
    alignas(wire::record) static unsigned char message[wire::max_message]; // guarded by the lock like all of the link

    if (outbox_first != nullptr)
    {
        outbox_send();
    }
    if (outbox_bytes + size > outbox_for_records)
    {
        return false;
    }
    for (bool first = true; size != 0; first = false)
    {
        std::size_t piece = size < piece_most ? size : piece_most;
        auto *head = new (message) wire::record{};
        head->head = {static_cast<std::uint16_t>(wire::message_kind::record), 0,
                      static_cast<std::uint32_t>(sizeof *head + piece), 0};
        head->file = static_cast<std::uint32_t>(file);
        head->begins = first ? 1 : 0;
        head->more = piece < size ? 1 : 0;
        head->text_length = static_cast<std::uint32_t>(piece);
        std::memcpy(message + sizeof *head, record, piece);
        if (!send(message, sizeof *head + piece))
        {
            return false; // the path is lost, which others will tell
        }
        record += piece;
        size -= piece;
    }
    return true;
}

void link_ready()
{
    if (broker.fd < 0)
    {
        return;
    }
    if (outbox_first != nullptr)
    {
        outbox_send();
    }
    if (spares != 0)
    {
        make_room();
    }
    alignas(8) unsigned char buffer[longest_reply];
    int fd;
    ssize_t size = receive(broker.fd, buffer, sizeof buffer, fd);
    if (size == 0)
    {
        return;
    }
    request *r = nullptr;
    if (size > 0 && wire::message_check(buffer, static_cast<std::size_t>(size), wire::sender::broker))
    {
        wire::message_head head;
        std::memcpy(&head, buffer, sizeof head);
        r = static_cast<request *>(table_find(runtime.requests, head.correlation));
        if (r != nullptr && static_cast<std::uint16_t>(r->expected) != head.kind)
        {
            r = nullptr;
        }
    }
    if (r == nullptr)
    {
        if (fd >= 0)
        {
            sys_close(fd);
        }
        if (size > 0)
        {
            report_problem(problem_bad_message, static_cast<unsigned>(size),
                           "the broker sent what answers no request of this program", "");
        }
        path_lost();
        return;
    }
    table_remove(runtime.requests, r->correlation);
    r->done(*r, buffer, fd);
}

} // namespace client

// The trace-control block: the broker's control page while there is one.
CPICNODE_EXPORT_DATA unsigned char *ptrc = client::nothing_on;
