// state.hpp - what the files of the runtime share: the lock, the descriptors and tables of this process. One record,
// guarded by the process-wide lock in every field but those that say otherwise.
#pragma once

#include "client/runtime.hpp"
#include "client/tables.hpp"
#include "wire/broker.hpp"

#include <pthread.h>

namespace client {

struct operation; // setup.cpp: an allocation or accept in progress

inline constexpr u32 max_path_users = 8;

struct path_user
{
    path_callback *callback; // null: free
    u32 user_word;
};

struct runtime_state
{
    pthread_mutex_t mutex;
    pthread_cond_t idle;      // path_due, and no call is in flight any more
    u32 calls;                // calls between vpm_lock() and vpm_unlock(), also those that gave the lock up to wait
    bool path_due;            // the path is lost and the library has not been told yet
    bool rest_due;            // see runtime_rest()
    u32 wanted;               // threads that wait for the lock; atomic
    const u32 *broker_life;   // word of the broker's control page, or one that always says it lives; never null
    path_user users[max_path_users];

    int epoll;                // the broker's socket and every watched descriptor; -1: no path
    u32 armed;                // descriptors that are watched now
    u32 pumping;              // deliveries that are in progress, nested ones counted
    runtime_waiter *waiting;  // every thread inside runtime_wait()

    handle_table conversations; // conversation *, by the node's conversation identifier
    handle_table tps;           // tp *, by the second half of the TP identifier
    handle_table requests;      // request *, by correlation
    operation *operations;      // in progress
};

extern runtime_state runtime;
extern const u32 always_alive; // for broker_life

// The lock without the counting of calls, for giving it up in the middle of a call.
void lock_take();
void lock_give();

// Delivers what is due without waiting: messages of the broker, progress of pending verbs.
void pump();

// The same, before a verb, when there is anything to be delivered at all.
void pump_before_verb();

// The path to the broker is lost: every request and conversation fails, every waiting thread is woken, the path event
// becomes due. Does nothing when that has happened already.
void path_lost();

// Closes the descriptors of the runtime; in the child of a fork nothing of it reaches the parent.
void waiting_close();

// In the child of a fork: nobody waits here, and nobody sleeps.
void waiting_forget_threads();
void wait_objects_forget_sleepers();

} // namespace client
