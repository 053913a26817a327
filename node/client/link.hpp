// link.hpp - the connection to the broker: messages out, replies in, each to the request it answers.
//
// lock: held throughout. Replies are read by whoever delivers what is due, so a request's routine may run in any
// thread.
#pragma once

#include "client/state.hpp"
#include "wire/node_file.hpp"

namespace client {

// A request on its way. The owner of the record keeps it until `done` has been called, exactly once: with the reply, a
// whole and checked message of the kind expected, and the descriptor that came with it (-1: none), which is the
// routine's from then on; or with null when the path was lost.
struct request
{
    u32 correlation;
    wire::message_kind expected;
    void (*done)(request &self, const void *reply, int fd);
    int spare = -1; // see request_reserve(); -1: none
};

struct broker_link
{
    int fd;                // -1: not connected
    bool broken;           // a send has failed; the next delivery finds out
    bool of_another;       // the node belongs to another user: this program makes nothing in its directory
    u32 connection;        // the broker's number for this program
    u8 default_alias[8];
    const wire::control_page *page; // null: not connected
};
extern broker_link broker;

// Connects, starting a broker when there is none, and greets it. Waits, with the lock held: nobody else can do anything
// before the library is up. False: no broker is to be had; the problem log says why.
bool link_open();

// Before the first connection: when the node that runs has API trace on, the trace-control block says so already.
void link_trace_before_open();
void link_close();

// Sends a request; head.correlation and head.length are filled in here. False: the path is lost, `done` is not called.
bool link_post(request &r, wire::message_head &message, std::size_t size, wire::message_kind kind,
               wire::message_kind expected);

// Holds a descriptor until just before the reply is received, so that the one it brings finds a place in a program that
// has no other left: what a reply brings and cannot be taken is lost. False: there is none to be had.
bool request_reserve(request &r);
void request_release(request &r); // before the record goes; without a descriptor nothing happens

// Sends a request and waits, with the lock given up, for its reply, which is copied to `reply` (`size` bytes, the
// size of the expected kind).
enum class called
{
    answered,
    failed,    // the path is lost, or there is no memory
    cancelled, // by link_cancel_only()
};
called link_call(wire::message_head &message, std::size_t message_size, wire::message_kind kind, void *reply,
               std::size_t size, wire::message_kind expected);

// Ends the wait of the link_call() of this kind; its answer is dropped when it comes. Where several threads wait for
// one nothing happens: nobody can say which of them is meant, and each other would fail for nothing.
void link_cancel_only(wire::message_kind kind);

// In the child of a fork: nobody waits here.
void link_calls_forget();

// Tells the broker that a session is over at this end.
void link_ended(u32 session);

// Hands the broker a record for a file of the node that this program may not write. False: so much waits already for a
// broker that does not take it that the record is lost.
bool link_record(wire::node_file_kind file, const char *record, std::size_t size);

// The broker's socket is ready: reads one message and hands it on, or finds the path lost.
void link_ready();

} // namespace client
