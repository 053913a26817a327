// runtime.hpp - what the runtime of the client library does for a conversation: waiting with the lock given up,
// watching a descriptor for a pending verb, completing a verb, and what happens when a conversation is over.
//
// Who runs what: there is no thread of our own. A thread that waits here gives the process-wide lock up, and while it
// waits it also delivers whatever else is due in the process: replies of the broker and progress of pending verbs of
// other conversations. So after every return from runtime_wait() anything may have happened to the caller's own
// conversation (a cancel, the loss of the path): look at it again before going on.
//
// Everything here is called with the process-wide lock held.
#pragma once

#include "node_verbs.h"

#include <cstdint>
#include <sys/socket.h>
#include <sys/types.h>

namespace client {

struct conversation;

// ---- waiting ------------------------------------------------------------------------------------------------------

// One thread that waits. It lives on the stack of the waiting routine, all zero at first; whoever wants to wake the
// thread keeps a pointer to it for as long as the routine waits.
struct runtime_waiter
{
    int kick;             // descriptor that wakes its poll(), -1: none was to be had; only while it waits
    int blocked;          // descriptor that it is blocked in a receive of; only while `receiving`
    bool receiving;       // it is inside runtime_receive()
    bool waiting;         // its thread is in poll(), the lock given up
    bool kicked;          // runtime_kick() came; cleared by the wait that returns for it
    bool signalled;       // the kick went through the descriptor
    runtime_waiter *next; // of all that wait now
    runtime_waiter **link;
};

// Gives the lock up, waits, takes the lock back. fd: waited for with `events` (POLLIN, POLLOUT), -1: none.
// timeout_ms: -1 is no limit. Returns what poll() said of fd, or 0 when the wait ended for another reason: a kick,
// the time limit, a signal, something else was delivered. A kick that came before the wait ends it at once.
short runtime_wait(runtime_waiter &waiter, int fd, short events, int timeout_ms);

// Ends the wait that a waiter is in, or the next one. A thread inside runtime_receive() is got out of it by shutting
// the descriptor down for reading: only for a conversation that is over.
void runtime_kick(runtime_waiter &waiter);

// This thread is busy with bytes that bring its program nothing, and its partner sends ever more of them: its next wait
// begins with a rest if others want the lock, which else it might take again before any of them is awake.
void runtime_rest();

// A count that goes up all the time, some 10^9 a second or a few times that: how long ago something was, roughly, and
// for next to nothing.
std::uint64_t runtime_ticks();

// ---- blocking in a receive ----------------------------------------------------------------------------------------

// A thread that waits for nothing but its own input may block in the receive itself: one system call instead of two,
// and the shortest way from the partner's write to this thread. It may while nobody in the process has anything pending
// that a waiting thread would have to deliver.
bool runtime_may_block();

// Makes a conversation's socket one that blocks, for at most receive_limit_ms. False: it cannot be done.
bool runtime_make_blocking(int fd);
inline constexpr int receive_limit_ms = 250; // by then the thread looks whether the broker is still there

// Gives the lock up, receives, takes the lock back. As recvmsg(): -1 with EAGAIN when nothing came in time or the wait
// was ended; what was due has then been delivered.
ssize_t runtime_receive(runtime_waiter &waiter, int fd, msghdr *message);

// ---- pending verbs ------------------------------------------------------------------------------------------------

// conversation_ready() will be called once when fd is ready for `events` (POLLIN, POLLOUT, or both), by whoever is
// inside the library then. Watch again to be called again; a second watch replaces the first. False: the kernel gave no
// memory for it; the verb cannot stay pending and has to complete.
bool runtime_watch(u32 conv_id, int fd, short events);

// Ends the watching; to be called before a descriptor is closed that was ever watched.
void runtime_unwatch(int fd);

// Stores return codes, architecture numbers as in wire/broker.hpp, into a verb record in network byte order.
void runtime_set_rc(void *record, u32 primary, u32 secondary);

// The same, then calls the routine, which may issue further verbs and even wait: the caller must be done with its
// own bookkeeping before. A null routine is not called.
void runtime_complete(void *record, u32 primary, u32 secondary, appc_completion *routine, u32 user_word);

// ---- conversations ------------------------------------------------------------------------------------------------

// A conversation is over at this end: its identifier is forgotten and the broker is told that its session has ended. To
// be called once, before its descriptor is closed and its memory freed; never by conversation_drop().
void runtime_conversation_over(conversation *conv);

// True from the moment the path to the node is lost until the library has been told of it.
bool runtime_path_lost();

} // namespace client
