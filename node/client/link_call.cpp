// link_call.cpp - requests to the broker whose sender waits for the answer. Lock held, but given up while it waits.
#include "client/link.hpp"
#include "client/system.hpp"

#include <cstring>
#include <new>

namespace client {

namespace {

// A request whose sender waits for it. It is in memory of its own: the answer may come when the sender has been
// cancelled.
struct call
{
    request r; // first: `done` gets it
    runtime_waiter waiter;
    wire::message_kind kind;
    void *reply;
    std::size_t size;
    bool answered;
    bool lost;
    bool cancelled;
    bool left; // the sender waits no more, and the answer, still to come, frees this
    call *next;
    call **link;
};
call *calls; // whose senders wait

void call_done(request &self, const void *reply, int fd)
{
    call &c = reinterpret_cast<call &>(self);
    if (fd >= 0)
    {
        sys_close(fd); // no reply that is waited for here brings one
    }
    if (c.left)
    {
        sys_free(&c);
        return;
    }
    if (reply == nullptr)
    {
        c.lost = true;
    }
    else
    {
        std::memcpy(c.reply, reply, c.size);
        c.answered = true;
    }
    runtime_kick(c.waiter);
}

} // namespace

called link_call(wire::message_head &message, std::size_t message_size, wire::message_kind kind, void *reply,
               std::size_t size, wire::message_kind expected)
{
    void *memory = sys_alloc(sizeof(call));
    if (memory == nullptr)
    {
        return called::failed;
    }
    call &c = *new (memory) call{};
    c.r.expected = expected;
    c.r.done = call_done;
    c.kind = kind;
    c.reply = reply;
    c.size = size;
    if (!link_post(c.r, message, message_size, kind, expected))
    {
        sys_free(&c);
        return called::failed;
    }
    c.next = calls;
    c.link = &calls;
    if (calls != nullptr)
    {
        calls->link = &c.next;
    }
    calls = &c;
    while (!c.answered && !c.lost && !c.cancelled)
    {
        if (runtime_wait(c.waiter, broker.fd, POLLIN, -1) != 0)
        {
            link_ready();
        }
    }
    *c.link = c.next;
    if (c.next != nullptr)
    {
        c.next->link = c.link;
    }
    const called result = c.answered ? called::answered : c.lost ? called::failed : called::cancelled;
    c.left = true;
    if (result != called::cancelled)
    {
        sys_free(&c);
    }
    return result;
}

void link_cancel_only(wire::message_kind kind)
{
    call *only = nullptr;
    for (call *one = calls; one != nullptr; one = one->next)
    {
        if (one->kind == kind && !one->answered && !one->lost && !one->cancelled)
        {
            if (only != nullptr)
            {
                return;
            }
            only = one;
        }
    }
    if (only != nullptr)
    {
        only->cancelled = true;
        runtime_kick(only->waiter);
    }
}

void link_calls_forget()
{
    calls = nullptr;
}

} // namespace client
