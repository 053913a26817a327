// path.cpp - path users, the loss of the path to the node, the child of a fork.
//
// The loss goes in two steps. path_lost() comes at any moment, under any call: it fails what is in progress and wakes
// whoever waits, so that every call of the library ends soon. path_deliver() comes when the last of them has: only then
// may the library be told, because it throws its records away.
#include "client/path.hpp"

#include "client/conversation.hpp"
#include "client/counters.hpp"
#include "client/export.hpp"
#include "client/link.hpp"
#include "client/problems.hpp"
#include "client/setup.hpp"
#include "client/tp.hpp"

namespace client {

bool runtime_path_lost()
{
    return runtime.path_due;
}

namespace {

bool any_user()
{
    for (const path_user &user : runtime.users)
    {
        if (user.callback != nullptr)
        {
            return true;
        }
    }
    return false;
}

// Forgets, without a word to anyone, all that was made over a path.
void forget_everything()
{
    for (u32 id = table_next(runtime.conversations, 0); id != 0; id = table_next(runtime.conversations, id))
    {
        conversation_drop(static_cast<conversation *>(table_find(runtime.conversations, id)));
    }
    table_end(runtime.conversations);
    counters_close();
    tps_forget();
    table_end(runtime.requests);
}

} // namespace

void path_lost()
{
    if (runtime.path_due || broker.fd < 0)
    {
        return;
    }
    runtime.path_due = true;
    link_close();
    report_problem(problem_path_lost, 0, "the connection to the broker is gone; every conversation has failed", "");
    for (u32 i = table_next(runtime.requests, 0); i != 0; i = table_next(runtime.requests, i))
    {
        auto *r = static_cast<request *>(table_find(runtime.requests, i));
        table_remove(runtime.requests, i);
        r->done(*r, nullptr, -1);
    }
    for (u32 id = table_next(runtime.conversations, 0); id != 0; id = table_next(runtime.conversations, id))
    {
        conversation_fail(static_cast<conversation *>(table_find(runtime.conversations, id)));
    }
    for (runtime_waiter *one = runtime.waiting; one != nullptr; one = one->next)
    {
        runtime_kick(*one);
    }
}

void path_deliver()
{
    if (!runtime.path_due)
    {
        return;
    }
    for (path_user &user : runtime.users)
    {
        if (user.callback != nullptr)
        {
            path_event event = {PATH_EVENT_FAILURE, 0};
            user.callback(user.user_word, &event);
        }
    }
    forget_everything();
    runtime.path_due = false;
}

// ---- fork ---------------------------------------------------------------------------------------------------------

namespace {

void before_fork()
{
    lock_take(); // the child gets a consistent copy
}

void after_fork_parent()
{
    lock_give();
}

// The child shares every open descriptor with its parent. It closes its copies and says nothing to anyone: no shutdown,
// no message, nothing taken out of the epoll set, which is the parent's too.
void after_fork_child()
{
    runtime.mutex = PTHREAD_MUTEX_INITIALIZER;
    runtime.idle = PTHREAD_COND_INITIALIZER;
    runtime.calls = 0;
    runtime.wanted = 0;
    runtime.pumping = 0;
    bool had_path = broker.fd >= 0 || runtime.path_due;
    link_close();
    waiting_forget_threads();
    wait_objects_forget_sleepers();
    operations_forget();
    link_calls_forget();
    forget_everything();
    runtime.path_due = had_path && any_user();
}

__attribute__((constructor)) void library_begin()
{
    table_begin(runtime.conversations);
    table_begin(runtime.tps);
    table_begin(runtime.requests);
    pthread_atfork(before_fork, after_fork_parent, after_fork_child);
}

} // namespace

} // namespace client

using namespace client;

CPICNODE_EXPORT void vpm_init_path_user(u32, u32, path_callback *callback, u32 user_word, u32 *result)
{
    *result = NB_NULL_HANDLE;
    if (callback == nullptr || !link_open())
    {
        return;
    }
    for (u32 i = 0; i < max_path_users; i++)
    {
        if (runtime.users[i].callback == nullptr)
        {
            runtime.users[i] = {callback, user_word};
            *result = i + 1;
            return;
        }
    }
}

CPICNODE_EXPORT void vpm_terminate_path_user(u32 user)
{
    if (user >= 1 && user <= max_path_users)
    {
        runtime.users[user - 1] = {nullptr, 0};
    }
    // Without users and conversations nothing needs the broker; it may leave when it is idle.
    if (!any_user() && runtime.conversations.used == 0 && runtime.requests.used == 0 && !runtime.path_due)
    {
        link_close();
        counters_close();
        tps_forget();
    }
}
