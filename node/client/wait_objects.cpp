// wait_objects.cpp - what the library sleeps on and wakes. Lock held throughout; a sleeper gives it up in
// runtime_wait().
#include "client/export.hpp"
#include "client/state.hpp"
#include "client/system.hpp"

#include <new>

namespace client {

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
}

} // namespace client

using namespace client;

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
