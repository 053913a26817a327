// fake_broker.cpp - the broker inside the test.
#include "fake_broker.hpp"

#include <chrono>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace wire;

namespace {

template <typename record>
record fresh(message_kind kind, std::uint32_t correlation)
{
    record made = {};
    made.head = {static_cast<std::uint16_t>(kind), 0, sizeof made, correlation};
    return made;
}

} // namespace

fake_broker::fake_broker(const std::string &directory)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/%s", directory.c_str(), socket_name);
    unlink(address.sun_path);
    listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || listen(listener, 16) != 0 ||
        pipe2(stop, O_CLOEXEC) != 0)
    {
        std::perror("fake broker");
        std::abort();
    }
    page = memfd_create("control page", MFD_CLOEXEC);
    if (ftruncate(page, control_page_size) != 0)
    {
        std::abort();
    }
    mapped = static_cast<unsigned char *>(mmap(nullptr, control_page_size, PROT_READ | PROT_WRITE, MAP_SHARED, page, 0));
    thread = std::thread([this] { run(); });
}

fake_broker::~fake_broker()
{
    die();
    for (int partner : partners)
    {
        close(partner);
    }
    munmap(mapped, control_page_size);
    close(page);
    close(stop[0]);
    close(stop[1]);
}

void fake_broker::die()
{
    if (thread.joinable())
    {
        if (write(stop[1], "", 1) != 1)
        {
            std::abort();
        }
        thread.join();
    }
}

void fake_broker::run()
{
    for (;;)
    {
        std::vector<pollfd> watched = {{stop[0], POLLIN, 0}, {listener, POLLIN, 0}};
        {
            std::lock_guard guard(mutex);
            for (int socket : connections)
            {
                watched.push_back({socket, POLLIN, 0});
            }
        }
        poll(watched.data(), watched.size(), -1);
        if (watched[0].revents != 0)
        {
            break;
        }
        if (watched[1].revents != 0)
        {
            std::lock_guard guard(mutex);
            connections.push_back(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        }
        for (std::size_t i = 2; i < watched.size(); i++)
        {
            if (watched[i].revents != 0)
            {
                serve(watched[i].fd);
            }
        }
    }
    std::lock_guard guard(mutex);
    for (int socket : connections)
    {
        close(socket);
    }
    connections.clear();
    close(listener);
}

void fake_broker::serve(int socket)
{
    std::vector<unsigned char> message(max_message);
    ssize_t size = recv(socket, message.data(), message.size(), MSG_DONTWAIT);
    if (size <= 0)
    {
        std::lock_guard guard(mutex);
        std::erase(connections, socket);
        close(socket);
        return;
    }
    message.resize(static_cast<std::size_t>(size));
    bool good = message_check(message.data(), message.size(), sender::program);
    EXPECT_TRUE(good) << "the program sent a wrong message";
    if (!good)
    {
        return;
    }
    bool handled = special && special(socket, message);
    if (!handled)
    {
        answer(socket, message);
    }
    message_head head;
    std::memcpy(&head, message.data(), sizeof head);
    std::lock_guard guard(mutex);
    counts[head.kind]++;
    changed.notify_all();
}

void fake_broker::answer(int socket, const std::vector<unsigned char> &message)
{
    message_head head;
    std::memcpy(&head, message.data(), sizeof head);
    switch (static_cast<message_kind>(head.kind))
    {
    case message_kind::hello:
    {
        auto reply = fresh<welcome>(message_kind::welcome, head.correlation);
        reply.version = protocol_version;
        reply.connection = ++programs;
        reply.broker_pid = static_cast<std::uint32_t>(getpid());
        std::memcpy(reply.default_alias, "LOCALLU ", 8);
        send(socket, &reply, sizeof reply, {page});
        break;
    }
    case message_kind::find_lu:
    {
        auto reply = fresh<lu_found>(message_kind::lu_found, head.correlation);
        std::memcpy(reply.alias, message.data() + offsetof(find_lu, alias), 8);
        if (std::memcmp(reply.alias, "LOCALLU ", 8) != 0)
        {
            reply.status = {rc_parameter_check, rc_bad_lu_alias};
        }
        send(socket, &reply, sizeof reply);
        break;
    }
    case message_kind::add_name:
    case message_kind::remove_name:
    {
        auto reply = fresh<done>(message_kind::done, head.correlation);
        send(socket, &reply, sizeof reply);
        break;
    }
    case message_kind::allocate:
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0)
        {
            std::abort();
        }
        auto reply = fresh<allocated>(message_kind::allocated, head.correlation);
        reply.session = ++session;
        send(socket, &reply, sizeof reply, {ends[0]});
        close(ends[0]);
        std::lock_guard guard(mutex);
        partners.push_back(ends[1]);
        break;
    }
    case message_kind::accept:
    {
        std::lock_guard guard(mutex);
        accepts.push_back({socket, head.correlation});
        break;
    }
    case message_kind::cancel:
    {
        std::uint32_t target;
        std::memcpy(&target, message.data() + offsetof(cancel, target), sizeof target);
        {
            std::lock_guard guard(mutex);
            for (auto one = accepts.begin(); one != accepts.end(); ++one)
            {
                if (one->correlation == target && one->socket == socket)
                {
                    auto cancelled = fresh<accepted>(message_kind::accepted, target);
                    cancelled.status = {rc_cancelled, 0};
                    send(socket, &cancelled, sizeof cancelled);
                    accepts.erase(one);
                    break;
                }
            }
        }
        auto reply = fresh<done>(message_kind::done, head.correlation);
        send(socket, &reply, sizeof reply);
        break;
    }
    case message_kind::query_side_info:
    {
        auto reply = fresh<side_info>(message_kind::side_info, head.correlation);
        const unsigned char *name = message.data() + offsetof(query_side_info, sym_dest_name);
        if (std::memcmp(name, "KNOWN   ", 8) == 0)
        {
            std::memset(reply.record, ' ', sizeof reply.record);
            std::memcpy(reply.record + 2, name, 8);
        }
        else
        {
            reply.status = {rc_state_check, rc_unknown_symbolic_destination};
        }
        send(socket, &reply, sizeof reply);
        break;
    }
    default:
        break;
    }
}

void fake_broker::send(int socket, const void *message, std::size_t size, const std::vector<int> &descriptors)
{
    iovec piece = {const_cast<void *>(message), size};
    alignas(cmsghdr) char control[CMSG_SPACE(32 * sizeof(int))] = {};
    msghdr header = {};
    header.msg_iov = &piece;
    header.msg_iovlen = 1;
    if (!descriptors.empty())
    {
        std::size_t bytes = descriptors.size() * sizeof(int);
        header.msg_control = control;
        header.msg_controllen = CMSG_SPACE(bytes);
        cmsghdr *part = CMSG_FIRSTHDR(&header);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(bytes);
        std::memcpy(CMSG_DATA(part), descriptors.data(), bytes);
    }
    sendmsg(socket, &header, MSG_NOSIGNAL);
}

int fake_broker::partner()
{
    std::unique_lock guard(mutex);
    changed.wait_for(guard, std::chrono::seconds(10), [&] { return !partners.empty(); });
    return partners.empty() ? -1 : partners.back();
}

int fake_broker::attach(accepted answer)
{
    std::unique_lock guard(mutex);
    if (!changed.wait_for(guard, std::chrono::seconds(10), [&] { return !accepts.empty(); }))
    {
        return -1;
    }
    waiting_accept first = accepts.front();
    accepts.erase(accepts.begin());
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0)
    {
        std::abort();
    }
    answer.head = {static_cast<std::uint16_t>(message_kind::accepted), 0, sizeof answer, first.correlation};
    answer.session = ++session;
    send(first.socket, &answer, sizeof answer, {ends[0]});
    close(ends[0]);
    partners.push_back(ends[1]);
    return ends[1];
}

int fake_broker::count(message_kind kind)
{
    std::lock_guard guard(mutex);
    return counts[static_cast<int>(kind)];
}

bool fake_broker::wait_for(message_kind kind, int wanted)
{
    std::unique_lock guard(mutex);
    return changed.wait_for(guard, std::chrono::seconds(10),
                            [&] { return counts[static_cast<int>(kind)] >= wanted; });
}

unsigned char fake_broker::page_byte(std::size_t offset) const
{
    return mapped[offset];
}

void fake_broker::set_page_byte(std::size_t offset, unsigned char value)
{
    mapped[offset] = value;
}

// ---- fixtures -----------------------------------------------------------------------------------------------------

void node_directory_test::SetUp()
{
    char name[] = "/tmp/cpic-client-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    directory = name;
    setenv("CPIC_NODE_DIR", name, 1);
}

void node_directory_test::TearDown()
{
    if (DIR *opened = opendir(directory.c_str()); opened != nullptr)
    {
        while (dirent *entry = readdir(opened))
        {
            unlink((directory + "/" + entry->d_name).c_str());
        }
        closedir(opened);
    }
    rmdir(directory.c_str());
}

std::string node_directory_test::contents(const char *file) const
{
    std::ifstream stream(directory + "/" + file);
    std::stringstream all;
    all << stream.rdbuf();
    return all.str();
}

void leave_child(int code)
{
    std::string command = "exit " + std::to_string(code);
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(126);
}

void connected_test::SetUp()
{
    node_directory_test::SetUp();
    broker = std::make_unique<fake_broker>(directory);
}

void connected_test::TearDown()
{
    if (path_user_handle != 0)
    {
        lose_path();
    }
    broker.reset();
    node_directory_test::TearDown();
}

u32 connected_test::path_called(u32 user_word, path_event *event)
{
    auto *self = reinterpret_cast<connected_test *>(user_word);
    EXPECT_EQ(event->code, PATH_EVENT_FAILURE);
    self->events++;
    vpm_terminate_path_user(self->path_user_handle);
    self->path_user_handle = 0;
    return 0;
}

void connected_test::connect()
{
    u16 token = vpm_lock();
    vpm_init_path_user(0, 0, path_called, reinterpret_cast<u32>(this), &path_user_handle);
    vpm_unlock(token);
    ASSERT_NE(path_user_handle, 0u);
}

void connected_test::lose_path()
{
    broker->die();
    vpm_asm_event_fd();
}

u16 connected_test::issue(void *record, appc_completion *routine, u32 user_word)
{
    u16 token = vpm_lock();
    u16 result = appc_c_async_version(NAP_VERSION, record, routine, user_word);
    vpm_unlock(token);
    return result;
}

VERB_RECORD connected_test::started()
{
    VERB_RECORD record = {};
    record.opcode = NAP_TP_STARTED;
    issue(&record);
    EXPECT_EQ(record.header.primary_rc, 0);
    return record;
}

VERB_RECORD connected_test::allocate(const u8 *tp_id) const
{
    VERB_RECORD record = {};
    record.opcode = NAP_M_ALLOCATE;
    record.alloc.header.opext = 1;
    record.alloc.header.allocating = 1;
    std::memcpy(record.alloc.header.tp_id, tp_id, 8);
    std::memcpy(record.alloc.plu_alias, "LOCALLU ", 8);
    std::memset(record.alloc.mode_name, 0x40, 8);
    std::memset(record.alloc.tp_name, 0xC1, 64);
    record.alloc.security = 1;
    return record;
}

VERB_RECORD connected_test::accept(u32 handle) const
{
    static u8 names[64];
    std::memset(names, 0xC1, sizeof names);
    VERB_RECORD record = {};
    record.opcode = NAP_RECEIVE_ALLOCATE_CPIC;
    record.header.allocating = 1;
    record.rcvallcp.rcv_alloc.conv_id = handle;
    record.rcvallcp.rcv_alloc.tp_name_count = 1;
    record.rcvallcp.rcv_alloc.tp_name_list = names;
    return record;
}
