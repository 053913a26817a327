// waiting.cpp - the lock, waiting with the lock given up, and the delivery of what is due.
//
// Every thread that waits polls three descriptors: its own (a conversation's socket, the broker's), the epoll set that
// holds everything whose progress anyone may deliver, and an eventfd by which another thread can wake it. Whoever finds
// the epoll set ready takes the lock and delivers; the others find nothing left and go on waiting.
#include "client/conversation.hpp"
#include "client/export.hpp"
#include "client/link.hpp"
#include "client/path.hpp"
#include "client/state.hpp"
#include "client/system.hpp"

#include <cerrno>
#include <cstring>

namespace client {

const u32 always_alive = 1;

runtime_state runtime = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, false, false, 0, &always_alive, {}, -1,
                         0, 0, nullptr, {}, {}, {}, nullptr};

// What vpm_lock() seldom does stands in functions of its own, here and below: every call pays for the rest of it.
[[gnu::noinline]] static void lock_await()
{
    __atomic_add_fetch(&runtime.wanted, 1, __ATOMIC_RELAXED);
    pthread_mutex_lock(&runtime.mutex);
    __atomic_sub_fetch(&runtime.wanted, 1, __ATOMIC_RELAXED);
}

void lock_take()
{
    if (__builtin_expect(pthread_mutex_trylock(&runtime.mutex) != 0, 0))
    {
        lock_await();
    }
}

void lock_give()
{
    pthread_mutex_unlock(&runtime.mutex);
}

void runtime_rest()
{
    runtime.rest_due = true;
}

std::uint64_t runtime_ticks()
{
    return sys_ticks();
}

namespace {

// Gives the lock up to wait, with a rest first where one is due.
void give_to_wait()
{
    constexpr int rest_ms = 1; // whoever waits for the lock has long had it then
    const bool rest = runtime.rest_due && __atomic_load_n(&runtime.wanted, __ATOMIC_RELAXED) != 0;
    runtime.rest_due = false;
    lock_give();
    if (rest)
    {
        sys_sleep_ms(rest_ms);
    }
}

} // namespace

// ---- waking a thread ----------------------------------------------------------------------------------------------

namespace {

// Every eventfd that was ever made, and whether a waiter has it now. They are kept: as many as threads ever waited at
// once.
struct kick_pool
{
    int *descriptors;
    bool *taken;
    u32 count;
    u32 room;
    u32 hint; // where a free one was last
};
kick_pool kicks;

bool kicks_grow()
{
    u32 room = kicks.room == 0 ? 16 : kicks.room * 2;
    auto *memory = static_cast<unsigned char *>(sys_alloc(room * (sizeof(int) + sizeof(bool))));
    if (memory == nullptr)
    {
        return false;
    }
    auto *descriptors = reinterpret_cast<int *>(memory);
    auto *taken = reinterpret_cast<bool *>(memory + room * sizeof(int));
    if (kicks.count != 0)
    {
        std::memcpy(descriptors, kicks.descriptors, kicks.count * sizeof(int));
        std::memcpy(taken, kicks.taken, kicks.count * sizeof(bool));
    }
    sys_free(kicks.descriptors);
    kicks.descriptors = descriptors;
    kicks.taken = taken;
    kicks.room = room;
    return true;
}

// A free eventfd, or -1.
int kick_take()
{
    for (u32 tried = 0; tried < kicks.count; tried++)
    {
        u32 i = (kicks.hint + tried) % kicks.count;
        if (!kicks.taken[i])
        {
            kicks.taken[i] = true;
            kicks.hint = i;
            return kicks.descriptors[i];
        }
    }
    if (kicks.count == kicks.room && !kicks_grow())
    {
        return -1;
    }
    int made = sys_eventfd();
    if (made >= 0)
    {
        kicks.descriptors[kicks.count] = made;
        kicks.taken[kicks.count] = true;
        kicks.hint = kicks.count++;
    }
    return made;
}

void kick_give(int descriptor)
{
    for (u32 tried = 0; tried < kicks.count; tried++)
    {
        u32 i = (kicks.hint + tried) % kicks.count;
        if (kicks.descriptors[i] == descriptor)
        {
            kicks.taken[i] = false;
            kicks.hint = i;
            return;
        }
    }
}

// The list of all that wait.
void enlist(runtime_waiter &waiter)
{
    waiter.next = runtime.waiting;
    waiter.link = &runtime.waiting;
    if (waiter.next != nullptr)
    {
        waiter.next->link = &waiter.next;
    }
    runtime.waiting = &waiter;
}

void delist(runtime_waiter &waiter)
{
    *waiter.link = waiter.next;
    if (waiter.next != nullptr)
    {
        waiter.next->link = waiter.link;
    }
}

// A thread that finds input of its own goes on at once. Where all threads always do, the end of the broker would stay
// unnoticed: so often, in nanoseconds, one of them looks at what else is due.
constexpr std::int64_t look_at_least = 100000000;
std::int64_t last_look;

bool look_is_due()
{
    return sys_monotonic() - last_look >= look_at_least;
}

// A call begins and the broker has gone. A program without conversations is to find a new one by this very call:
// true. One with conversations will most likely use them, and is to see them fail; were it told of the loss first,
// they would be unknown. A routine of a verb that ends with the path may wait, so this counts as a call of its own.
[[gnu::noinline]] bool lose_path()
{
    const bool none_open = runtime.conversations.used == 0;
    runtime.calls++;
    path_lost();
    runtime.calls--;
    if (runtime.calls == 0)
    {
        pthread_cond_broadcast(&runtime.idle);
    }
    return none_open;
}

// The callback frees the library's records: it must not run under a call that still uses them. All those calls have
// been woken and leave.
[[gnu::noinline]] void deliver_path()
{
    while (runtime.path_due && runtime.calls != 0)
    {
        pthread_cond_wait(&runtime.idle, &runtime.mutex);
    }
    path_deliver();
}

// A waiter that no eventfd was to be had for looks again this often, in milliseconds.
constexpr int blind_wait = 50;

} // namespace

short runtime_wait(runtime_waiter &waiter, int fd, short events, int timeout_ms)
{
    if (waiter.kicked)
    {
        waiter.kicked = false;
        return 0;
    }
    waiter.kick = kick_take();
    waiter.signalled = false;
    enlist(waiter);
    if (waiter.kick < 0 && (timeout_ms < 0 || timeout_ms > blind_wait))
    {
        timeout_ms = blind_wait;
    }
    // poll() passes over a descriptor of -1.
    pollfd watched[3] = {{fd, events, 0}, {runtime.epoll, POLLIN, 0}, {waiter.kick, POLLIN, 0}};
    waiter.waiting = true;
    give_to_wait();
    int ready = sys_poll(watched, 3, timeout_ms);
    lock_take();
    waiter.waiting = false;
    // With its own descriptor ready the thread goes on at once; what else is due can wait for the next who waits.
    if (ready > 0 && watched[1].revents != 0 && (watched[0].revents == 0 || look_is_due()))
    {
        pump();
    }
    delist(waiter);
    if (waiter.kick >= 0)
    {
        if (waiter.signalled)
        {
            std::uint64_t count;
            sys_read(waiter.kick, &count, sizeof count);
        }
        kick_give(waiter.kick);
    }
    if (waiter.kicked)
    {
        waiter.kicked = false;
        return 0;
    }
    return ready > 0 ? watched[0].revents : static_cast<short>(0);
}

void runtime_kick(runtime_waiter &waiter)
{
    if (waiter.kicked)
    {
        return;
    }
    waiter.kicked = true;
    if (waiter.receiving)
    {
        sys_shutdown_read(waiter.blocked);
    }
    if (waiter.waiting && waiter.kick >= 0 && !waiter.signalled)
    {
        waiter.signalled = true;
        std::uint64_t one = 1;
        sys_write(waiter.kick, &one, sizeof one);
    }
}

bool runtime_may_block()
{
    return runtime.epoll >= 0 && runtime.armed == 0 && runtime.requests.used == 0;
}

bool runtime_make_blocking(int fd)
{
    return sys_block(fd, receive_limit_ms) == 0;
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
    enlist(waiter);
    give_to_wait();
    const ssize_t got = sys_receive(fd, message);
    const int error = errno;
    lock_take();
    delist(waiter);
    waiter.receiving = false;
    waiter.kicked = false;
    const bool nothing = got < 0 && (error == EAGAIN || error == EINTR);
    if (runtime.epoll >= 0 && (nothing || look_is_due()))
    {
        pump();
    }
    if (nothing)
    {
        errno = EAGAIN;
        return -1;
    }
    errno = error;
    return got;
}

// ---- descriptors of pending verbs ---------------------------------------------------------------------------------

namespace {

// What the epoll set has of each descriptor number.
enum watch_state : std::uint8_t
{
    watch_none,     // not in the set
    watch_disarmed, // in the set, silent
    watch_armed,
};
std::uint8_t *watches;
u32 watches_room;

bool watches_grow(u32 wanted)
{
    u32 room = watches_room == 0 ? 256 : watches_room;
    while (room <= wanted)
    {
        room *= 2;
    }
    auto *grown = static_cast<std::uint8_t *>(sys_alloc(room));
    if (grown == nullptr)
    {
        return false;
    }
    std::memset(grown, watch_none, room);
    if (watches_room != 0)
    {
        std::memcpy(grown, watches, watches_room);
    }
    sys_free(watches);
    watches = grown;
    watches_room = room;
    return true;
}

} // namespace

bool runtime_watch(u32 conv_id, int fd, short events)
{
    if (runtime.epoll < 0 || fd < 0)
    {
        return false;
    }
    u32 number = static_cast<u32>(fd);
    if (number >= watches_room && !watches_grow(number))
    {
        return false;
    }
    epoll_event event = {};
    event.events = EPOLLONESHOT | ((events & POLLIN) != 0 ? EPOLLIN : 0u) | ((events & POLLOUT) != 0 ? EPOLLOUT : 0u);
    event.data.u64 = static_cast<std::uint64_t>(number) << 32 | conv_id;
    int operation = watches[number] == watch_none ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    if (sys_epoll_ctl(runtime.epoll, operation, fd, &event) != 0)
    {
        return false;
    }
    if (watches[number] != watch_armed)
    {
        watches[number] = watch_armed;
        runtime.armed++;
    }
    return true;
}

void runtime_unwatch(int fd)
{
    u32 number = static_cast<u32>(fd);
    if (fd < 0 || number >= watches_room || watches[number] == watch_none)
    {
        return;
    }
    if (watches[number] == watch_armed)
    {
        runtime.armed--;
    }
    watches[number] = watch_none;
    if (runtime.epoll >= 0)
    {
        epoll_event unused = {};
        sys_epoll_ctl(runtime.epoll, EPOLL_CTL_DEL, fd, &unused);
    }
}

void pump()
{
    // One event at a time: a completion routine may wait and let another thread deliver, so nothing that was taken
    // out of the set may lie about meanwhile. The bound keeps one waiting thread from working for all others for ever;
    // a partner that sends and sends ends the round even sooner.
    runtime.pumping++;
    last_look = sys_monotonic();
    runtime.rest_due = false;
    for (int round = 0; round < 256 && runtime.epoll >= 0 && !runtime.rest_due; round++)
    {
        epoll_event event;
        if (sys_epoll_wait(runtime.epoll, &event, 1) != 1)
        {
            break;
        }
        if (event.data.u64 == 0)
        {
            link_ready();
            continue;
        }
        u32 number = static_cast<u32>(event.data.u64 >> 32);
        if (watches[number] == watch_armed)
        {
            watches[number] = watch_disarmed;
            runtime.armed--;
        }
        auto *conv = static_cast<conversation *>(table_find(runtime.conversations, static_cast<u32>(event.data.u64)));
        if (conv != nullptr)
        {
            conversation_ready(conv);
        }
    }
    runtime.pumping--;
}

void pump_before_verb()
{
    if (runtime.pumping == 0 && (runtime.armed != 0 || runtime.requests.used != 0))
    {
        pump();
    }
}

void waiting_close()
{
    if (runtime.epoll >= 0)
    {
        sys_close(runtime.epoll);
        runtime.epoll = -1;
    }
    if (watches_room != 0)
    {
        std::memset(watches, watch_none, watches_room);
    }
    runtime.armed = 0;
}

void waiting_forget_threads()
{
    runtime.waiting = nullptr;
    for (u32 i = 0; i < kicks.count; i++)
    {
        sys_close(kicks.descriptors[i]);
    }
    kicks.count = 0;
    kicks.hint = 0;
}

} // namespace client

using namespace client;

CPICNODE_EXPORT u16 vpm_lock(void)
{
    lock_take();
    bool tell = true;
    if (__builtin_expect((__atomic_load_n(runtime.broker_life, __ATOMIC_RELAXED) & wire::life_mask) == 0, 0))
    {
        tell = lose_path();
    }
    if (__builtin_expect(runtime.path_due, 0) && tell)
    {
        deliver_path();
    }
    runtime.calls++;
    return 1;
}

CPICNODE_EXPORT void vpm_unlock(u16)
{
    runtime.calls--;
    if (__builtin_expect(runtime.path_due && runtime.calls == 0, 0))
    {
        pthread_cond_broadcast(&runtime.idle);
    }
    lock_give();
}

CPICNODE_EXPORT void vpm_asm_event_fd(void)
{
    u16 token = vpm_lock();
    if (runtime.epoll >= 0)
    {
        pump();
    }
    bool due = runtime.path_due;
    vpm_unlock(token);
    if (due)
    {
        // The delivery found the path lost: with this call out of the way the event can be delivered as well.
        vpm_unlock(vpm_lock());
    }
}
