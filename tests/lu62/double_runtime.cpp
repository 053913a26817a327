// double_runtime.cpp - see double_runtime.hpp.
#include "lu62/double_runtime.hpp"

#include "client/runtime.hpp"
#include "client/system.hpp"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/eventfd.h>
#include <unistd.h>

namespace conversation_double {

counters count;

namespace {

std::mutex big_lock;

struct watched
{
    u32 conv_id;
    short events;
};
std::map<int, watched> watches;
std::map<u32, program *> programs;
u32 next_id = 100;

} // namespace

// recvmsg(), or what a partner that sends requests to send without end has put into the last piece of a read.
static ssize_t receive(int fd, msghdr *message, int flags)
{
    if (count.flood == 0)
    {
        return recvmsg(fd, message, flags);
    }
    count.flood--;
    const iovec &piece = message->msg_iov[message->msg_iovlen - 1];
    u8 *bytes = static_cast<u8 *>(piece.iov_base);
    std::size_t got = 0;
    for (; got + sizeof(wire::frame_header) <= piece.iov_len; got += sizeof(wire::frame_header))
    {
        wire::frame_put(bytes + got, wire::frame_kind::request_to_send, 0, 0);
    }
    return static_cast<ssize_t>(got);
}

void lock()
{
    big_lock.lock();
}

void unlock()
{
    big_lock.unlock();
}

unsigned pump(int timeout_ms)
{
    lock();
    std::vector<pollfd> fds;
    for (const auto &[fd, watch] : watches)
    {
        fds.push_back({fd, watch.events, 0});
    }
    unlock();
    if (fds.empty() || poll(fds.data(), static_cast<nfds_t>(fds.size()), timeout_ms) <= 0)
    {
        return 0;
    }
    unsigned ready = 0;
    lock();
    for (const pollfd &fd : fds)
    {
        const auto found = watches.find(fd.fd);
        if (fd.revents != 0 && found != watches.end())
        {
            const u32 conv_id = found->second.conv_id;
            watches.erase(found);
            ready++;
            if (const auto owner = programs.find(conv_id); owner != programs.end() && !owner->second->over)
            {
                client::conversation_ready(owner->second->conv);
            }
        }
    }
    unlock();
    return ready;
}

program::program(int socket, bool is_mapped, bool allocating, bool confirm) : fd(socket), mapped(is_mapped)
{
    lock();
    client::conversation_origin origin{};
    origin.fd = socket;
    origin.allocating = allocating;
    origin.conv_type = is_mapped ? 1 : 0;
    origin.sync_level = confirm ? 1 : 0;
    origin.session = 7;
    origin.conv_id = next_id++;
    conv = client::conversation_make(origin);
    programs[origin.conv_id] = this;
    unlock();
}

program::~program()
{
    if (!over)
    {
        drop();
    }
}

void program::clear(u16 opcode)
{
    record = VERB_RECORD{};
    record.header.opcode = opcode;
    record.header.opext = mapped ? 1 : 0;
}

static bool has_rts(u16 opcode)
{
    return opcode == NAP_SEND_DATA || opcode == NAP_CONFIRM || opcode == NAP_SEND_ERROR;
}

void program::completed(const VERB_RECORD &verb)
{
    if (verb.opcode == NAP_RECEIVE_AND_WAIT || verb.opcode == NAP_RECEIVE_IMMEDIATE)
    {
        what = verb.receive.what_received;
        rts = verb.receive.rts_received;
        data.assign(reinterpret_cast<const char *>(room.data()), verb.receive.length);
    }
    else if (has_rts(verb.opcode))
    {
        rts = verb.confirm.rts_received;
    }
}

u16 program::run()
{
    lock();
    if (over)
    {
        unlock();
        ADD_FAILURE() << "a verb on a conversation that is over";
        return 0xFFFF;
    }
    client::conversation_issue(conv, &record, nullptr, 0);
    unlock();
    completed(record);
    return record.header.primary_rc;
}

u16 program::send(const std::string &bytes, u8 type)
{
    clear(NAP_SEND_DATA);
    record.send.buffer = reinterpret_cast<const u8 *>(bytes.data());
    record.send.length = static_cast<u16>(bytes.size());
    record.send.type = type;
    return run();
}

u16 program::simple(u16 opcode)
{
    clear(opcode);
    return run();
}

u16 program::prepare(u8 type)
{
    clear(NAP_PREPARE_TO_RECEIVE);
    record.prepare.ptr_type = type;
    return run();
}

u16 program::deallocate(u8 type, const std::string &log)
{
    clear(NAP_DEALLOCATE);
    record.dealloc.dealloc_type = type;
    record.dealloc.log_length = static_cast<u16>(log.size());
    record.dealloc.log_data = reinterpret_cast<u8 *>(const_cast<char *>(log.data()));
    return run();
}

u16 program::error(u8 direction, const std::string &log, u8 type)
{
    clear(NAP_SEND_ERROR);
    record.send_error.err_dir = direction;
    record.send_error.err_type = type;
    record.send_error.log_length = static_cast<u16>(log.size());
    record.send_error.log_data = reinterpret_cast<u8 *>(const_cast<char *>(log.data()));
    return run();
}

static void fill_receive(program &p, u32 max, bool ll, bool with_data)
{
    p.room.assign(max + 16, 0xEE);
    p.record.receive.buffer = p.room.data();
    p.record.receive.max_length = static_cast<u16>(max);
    p.record.receive.fill = ll ? 1 : 0;
    p.record.receive.status_with_data = with_data ? 1 : 0;
}

u16 program::receive(u32 max, bool ll, bool immediate, bool with_data)
{
    clear(immediate ? NAP_RECEIVE_IMMEDIATE : NAP_RECEIVE_AND_WAIT);
    fill_receive(*this, max, ll, with_data);
    const u16 code = run();
    // Nothing beyond what was received has been written.
    for (std::size_t i = data.size(); i < room.size(); i++)
    {
        if (room[i] != 0xEE)
        {
            ADD_FAILURE() << "byte " << i << " behind the data was changed";
            break;
        }
    }
    return code;
}

u8 program::state()
{
    simple(NAP_GET_STATE);
    return record.get_state.conv_state;
}

// The completion routine of every pending verb; the user word is the program.
static void routine(void *verb, u32, u32, u32 user_word)
{
    program *p = reinterpret_cast<program *>(static_cast<std::uintptr_t>(user_word));
    EXPECT_EQ(verb, &p->record);
    p->completed(p->record);
    p->done++;
}

static u32 user_word_of(program *p)
{
    return static_cast<u32>(reinterpret_cast<std::uintptr_t>(p));
}

bool program::begin_send(const std::string &bytes, u8 type)
{
    clear(NAP_SEND_DATA);
    sending = bytes;
    record.send.buffer = reinterpret_cast<const u8 *>(sending.data());
    record.send.length = static_cast<u16>(sending.size());
    record.send.type = type;
    lock();
    const u16 answer = client::conversation_issue(conv, &record, routine, user_word_of(this));
    unlock();
    return answer == NAP_IN_PROGRESS;
}

bool program::begin_receive(u32 max)
{
    clear(NAP_RECEIVE_AND_WAIT);
    fill_receive(*this, max, true, true);
    lock();
    const u16 answer = client::conversation_issue(conv, &record, routine, user_word_of(this));
    unlock();
    if (answer != NAP_IN_PROGRESS)
    {
        completed(record);
    }
    return answer == NAP_IN_PROGRESS;
}

void program::cancel()
{
    lock();
    client::conversation_cancel(conv);
    unlock();
}

void program::fail()
{
    lock();
    client::conversation_fail(conv);
    unlock();
}

void program::abend()
{
    lock();
    client::conversation_abend(conv);
    unlock();
}

void program::drop()
{
    lock();
    programs.erase(client::conversation_id(conv));
    watches.erase(fd);
    client::conversation_drop(conv);
    over = true;
    unlock();
}

two_programs::two_programs(bool mapped, bool confirm)
{
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, fds), 0);
    a = new program(fds[0], mapped, true, confirm);
    b = new program(fds[1], mapped, false, confirm);
}

two_programs::~two_programs()
{
    delete a;
    delete b;
    client::conversation_release_buffers();
}

void two_programs::take_attach()
{
    u8 frame[8] = {};
    const u8 attach[8] = {0, 0, 0, 0, 1, 0, 0, 0};
    for (std::size_t have = 0; have < sizeof frame;)
    {
        pollfd ready{fds[1], POLLIN, 0};
        ASSERT_EQ(poll(&ready, 1, 10000), 1);
        const ssize_t got = recv(fds[1], frame + have, sizeof frame - have, 0);
        ASSERT_GT(got, 0);
        have += static_cast<std::size_t>(got);
    }
    EXPECT_EQ(std::memcmp(frame, attach, sizeof frame), 0);
}

} // namespace conversation_double

// ---- the runtime -------------------------------------------------------------------------------------------------

namespace client {

using namespace conversation_double;

short runtime_wait(runtime_waiter &waiter, int fd, short events, int timeout_ms)
{
    if (waiter.kicked)
    {
        waiter.kicked = false;
        return 0;
    }
    waiter.kick = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    waiter.waiting = true;
    unlock();
    pollfd fds[2] = {{fd, events, 0}, {waiter.kick, POLLIN, 0}};
    count.polls++;
    poll(fds, 2, timeout_ms);
    lock();
    waiter.waiting = false;
    ::close(waiter.kick);
    if (waiter.kicked)
    {
        waiter.kicked = false;
        return 0;
    }
    return fds[0].revents;
}

void runtime_kick(runtime_waiter &waiter)
{
    waiter.kicked = true;
    if (waiter.receiving)
    {
        shutdown(waiter.blocked, SHUT_RD);
    }
    if (waiter.waiting)
    {
        EXPECT_EQ(eventfd_write(waiter.kick, 1), 0);
    }
}

void runtime_rest()
{
    count.rests++;
}

std::uint64_t runtime_ticks()
{
    return count.ticks;
}

bool runtime_may_block()
{
    return count.may_block;
}

bool runtime_make_blocking(int fd)
{
    const timeval limit = {0, 20000};
    return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0 && fcntl(fd, F_SETFL, 0) == 0;
}

ssize_t runtime_receive(runtime_waiter &waiter, int fd, msghdr *message)
{
    if (waiter.kicked)
    {
        waiter.kicked = false;
        errno = EAGAIN;
        return -1;
    }
    waiter.blocked = fd;
    waiter.receiving = true;
    unlock();
    count.blocked++;
    const ssize_t got = receive(fd, message, 0);
    const int error = errno;
    lock();
    waiter.receiving = false;
    waiter.kicked = false;
    errno = error;
    return got;
}

bool runtime_watch(u32 conv_id, int fd, short events)
{
    if (count.no_watch)
    {
        return false;
    }
    watches[fd] = {conv_id, events};
    return true;
}

void runtime_unwatch(int fd)
{
    watches.erase(fd);
}

void runtime_set_rc(void *record, u32 primary, u32 secondary)
{
    auto *header = static_cast<VERB_HEADER *>(record);
    header->primary_rc = word(primary);
    header->secondary_rc = __builtin_bswap32(secondary);
}

void runtime_complete(void *record, u32 primary, u32 secondary, appc_completion *completion, u32 user_word)
{
    runtime_set_rc(record, primary, secondary);
    if (completion != nullptr)
    {
        completion(record, 0, 0, user_word);
    }
}

void runtime_conversation_over(conversation *conv)
{
    const auto found = programs.find(conversation_id(conv));
    ASSERT_NE(found, programs.end());
    found->second->over = true;
    programs.erase(found);
    count.over++;
}

// ---- the system --------------------------------------------------------------------------------------------------

void *sys_alloc(std::size_t size)
{
    if (count.fail_alloc > 0 && --count.fail_alloc == 0)
    {
        return nullptr;
    }
    void *memory = std::malloc(size);
    count.memory++;
    return memory;
}

void sys_free(void *memory)
{
    if (memory != nullptr)
    {
        count.memory--;
        std::free(memory);
    }
}

int sys_close(int fd)
{
    return ::close(fd);
}

ssize_t sys_recvmsg(int fd, msghdr *message, int flags)
{
    count.receives++;
    return receive(fd, message, flags);
}

ssize_t sys_sendmsg(int fd, const msghdr *message, int flags)
{
    count.sends++;
    const unsigned most = count.most;
    if (most == 0)
    {
        return ::sendmsg(fd, message, flags);
    }
    // As a socket with little room left would: some of the first piece.
    msghdr shorter = *message;
    iovec first = message->msg_iov[0];
    first.iov_len = first.iov_len < most ? first.iov_len : most;
    shorter.msg_iov = &first;
    shorter.msg_iovlen = 1;
    return ::sendmsg(fd, &shorter, flags);
}

} // namespace client

extern "C" void nba_pd_print_problem(u32, u32, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    EXPECT_STREQ(format, "ba");
    const char *bytes = va_arg(arguments, const char *);
    const u32 length = va_arg(arguments, u32);
    conversation_double::count.log.assign(bytes, length);
    va_end(arguments);
}
