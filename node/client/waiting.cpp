// waiting.cpp - the lock, waiting with the lock given up, wait objects, and the delivery of what is due.
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
#include <new>

namespace client {

runtime_state runtime = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, false, {}, -1, 0, 0, nullptr,
                         {}, {}, {}, nullptr};

void lock_take()
{
    pthread_mutex_lock(&runtime.mutex);
}

void lock_give()
{
    pthread_mutex_unlock(&runtime.mutex);
}

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
    lock_give();
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
    lock_give();
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
    // out of the set may lie about meanwhile. The bound keeps one waiting thread from working for all others for ever.
    runtime.pumping++;
    last_look = sys_monotonic();
    for (int round = 0; round < 256 && runtime.epoll >= 0; round++)
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

// ---- wait objects -------------------------------------------------------------------------------------------------

namespace {

struct sleeper
{
    runtime_waiter waiter;
    bool woken;
    bool released; // the object went away under the sleeper
    sleeper *next;
};

struct wait_object
{
    bool kept; // a wake-up that nobody has slept on yet
    sleeper *sleepers;
};

handle_table wait_objects;
bool wait_objects_begun;

wait_object *object_of(u32 handle)
{
    return wait_objects_begun ? static_cast<wait_object *>(table_find(wait_objects, handle)) : nullptr;
}

} // namespace

void wait_objects_forget_sleepers()
{
    for (u32 handle = wait_objects_begun ? table_next(wait_objects, 0) : 0; handle != 0;
         handle = table_next(wait_objects, handle))
    {
        object_of(handle)->sleepers = nullptr;
    }
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
    if (__builtin_expect(runtime.path_due, 0))
    {
        // The callback frees the library's records: it must not run under a call that still uses them. All those
        // calls have been woken and leave.
        while (runtime.path_due && runtime.calls != 0)
        {
            pthread_cond_wait(&runtime.idle, &runtime.mutex);
        }
        path_deliver();
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

CPICNODE_EXPORT u32 vpm_allocate_wait_object(void)
{
    if (!wait_objects_begun)
    {
        table_begin(wait_objects);
        wait_objects_begun = true;
    }
    auto *memory = sys_alloc(sizeof(wait_object));
    if (memory == nullptr)
    {
        return NB_NULL_HANDLE;
    }
    auto *made = new (memory) wait_object{false, nullptr};
    u32 handle = table_add(wait_objects, made);
    if (handle == NB_NULL_HANDLE)
    {
        sys_free(made);
    }
    return handle;
}

CPICNODE_EXPORT void vpm_release_wait_object(u32 handle)
{
    wait_object *object = object_of(handle);
    if (object == nullptr)
    {
        return;
    }
    for (sleeper *one = object->sleepers; one != nullptr; one = one->next)
    {
        one->released = true;
        runtime_kick(one->waiter);
    }
    table_remove(wait_objects, handle);
    sys_free(object);
}

CPICNODE_EXPORT int vpm_sleep(u32 handle, int timeout_ms)
{
    constexpr int woken = 0;
    constexpr int timed_out = 1;
    constexpr int failed = -1;
    wait_object *object = object_of(handle);
    if (object == nullptr)
    {
        return failed;
    }
    if (object->kept)
    {
        object->kept = false;
        return woken;
    }
    sleeper self = {};
    self.next = object->sleepers;
    object->sleepers = &self;
    std::int64_t deadline = sys_monotonic() + static_cast<std::int64_t>(timeout_ms) * 1000000;
    int result = woken;
    while (!self.woken && !self.released)
    {
        int left = -1;
        if (timeout_ms >= 0)
        {
            // Rounded up, so that the time has really passed when the sleep says so.
            std::int64_t nanoseconds = deadline - sys_monotonic();
            left = nanoseconds <= 0 ? 0 : static_cast<int>((nanoseconds + 999999) / 1000000);
        }
        if (left == 0 || runtime.path_due)
        {
            result = left == 0 ? timed_out : failed;
            break;
        }
        runtime_wait(self.waiter, -1, 0, left);
    }
    if (self.released)
    {
        return failed; // the object and its list of sleepers are gone
    }
    sleeper **place = &object->sleepers;
    while (*place != &self)
    {
        place = &(*place)->next;
    }
    *place = self.next;
    return self.woken ? woken : result;
}

CPICNODE_EXPORT void vpm_wakeup(u32 handle)
{
    wait_object *object = object_of(handle);
    if (object == nullptr)
    {
        return;
    }
    bool anyone = false;
    for (sleeper *one = object->sleepers; one != nullptr; one = one->next)
    {
        if (!one->woken)
        {
            anyone = true;
            one->woken = true;
            runtime_kick(one->waiter);
        }
    }
    if (!anyone)
    {
        object->kept = true;
    }
}
