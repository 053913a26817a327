// conversation_buffers.cpp - the buffers of conversations and every byte in and out of their sockets: gathering sends,
// writing a job of several pieces in one system call, reading ahead, reading straight into the program's memory.
// Called by conversation_verbs.cpp and conversation.cpp under the process-wide lock; never waits.
#include "client/conversation_record.hpp"

#include "client/problems.hpp"
#include "client/system.hpp"

#include <errno.h>
#include <string.h>

namespace client {

// ---- buffers -----------------------------------------------------------------------------------------------------

// An idle conversation has no buffer at all; these few are handed from one to the next.
static constexpr unsigned spare_most = 4;
static u8 *spare[spare_most];
static unsigned spare_count;

u8 *buffer_take()
{
    if (spare_count != 0)
    {
        return spare[--spare_count];
    }
    return static_cast<u8 *>(sys_alloc(buffer_size));
}

void buffer_give(u8 *buffer)
{
    if (buffer == nullptr)
    {
        return;
    }
    if (spare_count < spare_most)
    {
        spare[spare_count++] = buffer;
        return;
    }
    sys_free(buffer);
}

void conversation_release_buffers()
{
    while (spare_count != 0)
    {
        sys_free(spare[--spare_count]);
    }
}

static void in_release(conversation *conv)
{
    if (conv->in != nullptr && conv->in_left == 0)
    {
        buffer_give(conv->in);
        conv->in = nullptr;
        conv->in_at = 0;
    }
}

void gathered_drop(conversation *conv)
{
    buffer_give(conv->out);
    conv->out = nullptr;
    conv->out_used = 0;
    conv->out_frame = no_frame;
}

static void carry_drop(conversation *conv)
{
    sys_free(conv->carry);
    conv->carry = nullptr;
    conv->carry_at = 0;
    conv->carry_left = 0;
}

void conversation_close(conversation *conv)
{
    gathered_drop(conv);
    carry_drop(conv);
    conv->in_left = 0;
    in_release(conv);
    if (conv->watched)
    {
        runtime_unwatch(conv->fd);
    }
    sys_close(conv->fd);
}

// ---- output ------------------------------------------------------------------------------------------------------

// Puts the ATTACH where it is still due. Returns its size.
static u32 attach_put(conversation *conv, u8 *at)
{
    if (!conv->attach_due)
    {
        return 0;
    }
    conv->attach_due = false;
    wire::frame_put(at, wire::frame_kind::attach, 0, 0);
    return frame_size;
}

bool gather(conversation *conv, const u8 *bytes, u32 count)
{
    const u8 flags = conv->engine.mapped ? wire::flag_record_end : u8{0};

    if (conv->out_used + 2 * frame_size + count > gather_size)
    {
        return false;
    }
    if (conv->out == nullptr)
    {
        conv->out = buffer_take();
        if (conv->out == nullptr)
        {
            return false;
        }
        conv->out_used = attach_put(conv, conv->out);
        conv->out_frame = no_frame;
    }
    if (conv->engine.mapped || conv->out_frame == no_frame)
    {
        if (!conv->engine.mapped && count == 0)
        {
            return true;
        }
        conv->out_frame = conv->out_used;
        conv->out_used += frame_size;
    }
    if (count != 0)
    {
        memcpy(conv->out + conv->out_used, bytes, count);
        conv->out_used += count;
    }
    wire::frame_put(conv->out + conv->out_frame, wire::frame_kind::data, flags,
                    conv->out_used - conv->out_frame - frame_size);
    return true;
}

static void job_add(conversation *conv, const void *bytes, u32 count)
{
    if (count != 0)
    {
        conv->job[conv->job_count++] = {const_cast<void *>(bytes), count};
    }
}

static void job_begin(conversation *conv)
{
    conv->job_count = 0;
    conv->job_at = 0;
    job_add(conv, conv->carry + conv->carry_at, conv->carry_left);
    job_add(conv, conv->out, conv->out_used);
}

static void sense_put(u8 *at, u32 sense)
{
    for (unsigned i = 0; i < sizeof(wire::error_head); i++)
    {
        at[i] = i < 4 ? static_cast<u8>(sense >> (8 * i)) : u8{0};
    }
}

void job_make(conversation *conv, bool data, const u8 *bytes, u32 count, const u8 *log_data, u32 log_length)
{
    const lu62::plan &plan = conv->plan;
    const u8 record_end = data && conv->engine.mapped ? wire::flag_record_end : u8{0};
    const bool frame = count != 0 || record_end != 0;

    job_begin(conv);
    u32 head = attach_put(conv, conv->head);
    if (!frame && plan.flags != 0 && conv->out_frame != no_frame)
    {
        conv->out[conv->out_frame + offsetof(wire::frame_header, flags)] |= plan.flags;
    }
    else if (frame || plan.flags != 0)
    {
        wire::frame_put(conv->head + head, wire::frame_kind::data, static_cast<u8>(plan.flags | record_end), count);
        head += frame_size;
    }
    job_add(conv, conv->head, head);
    job_add(conv, bytes, count);
    if (plan.error || plan.abend)
    {
        wire::frame_put(conv->tail, wire::frame_kind::error, plan.error_flags,
                        static_cast<u32>(sizeof(wire::error_head)) + log_length);
        sense_put(conv->tail + frame_size, plan.sense);
        job_add(conv, conv->tail, sizeof conv->tail);
        job_add(conv, log_data, log_length);
    }
}

void job_make_frame(conversation *conv, wire::frame_kind kind)
{
    job_begin(conv);
    wire::frame_put(conv->tail, kind, 0, 0);
    job_add(conv, conv->tail, frame_size);
}

// Writes pieces from `at` on until all are written or the socket takes no more. True: nothing is left to be written.
static bool pieces_write(conversation *conv, iovec *pieces, u8 &at, u8 count)
{
    while (at < count)
    {
        msghdr message{};
        message.msg_iov = pieces + at;
        message.msg_iovlen = static_cast<size_t>(count - at);
        const ssize_t sent = conv->out_dead ? -1 : sys_sendmsg(conv->fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0)
        {
            if (!conv->out_dead && (errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM))
            {
                return false;
            }
            conv->out_dead = true;
            return true;
        }
        size_t left = static_cast<size_t>(sent);
        while (at < count && left >= pieces[at].iov_len)
        {
            left -= pieces[at++].iov_len;
        }
        if (left != 0)
        {
            pieces[at].iov_base = static_cast<u8 *>(pieces[at].iov_base) + left;
            pieces[at].iov_len -= left;
        }
    }
    return true;
}

bool job_write(conversation *conv)
{
    if (!pieces_write(conv, conv->job, conv->job_at, conv->job_count))
    {
        return false;
    }
    gathered_drop(conv);
    carry_drop(conv);
    conv->job_count = 0;
    conv->job_at = 0;
    return true;
}

// The pieces from `at` on in one new block, followed by room for one frame. False: no memory.
static bool carry_replace(conversation *conv, const iovec *pieces, u8 at, u8 count)
{
    size_t left = 0;
    for (u8 i = at; i < count; i++)
    {
        left += pieces[i].iov_len;
    }
    u8 *block = static_cast<u8 *>(sys_alloc(left + 1));
    if (block == nullptr)
    {
        return false;
    }
    u8 *end = block;
    for (u8 i = at; i < count; i++)
    {
        memcpy(end, pieces[i].iov_base, pieces[i].iov_len);
        end += pieces[i].iov_len;
    }
    carry_drop(conv);
    conv->carry = block;
    conv->carry_left = static_cast<u32>(left);
    return true;
}

bool job_abandon(conversation *conv)
{
    const bool kept = conv->job_at == conv->job_count ||
                      carry_replace(conv, conv->job, conv->job_at, conv->job_count);
    conv->job_count = 0;
    conv->job_at = 0;
    gathered_drop(conv);
    return kept;
}

bool carry_write(conversation *conv)
{
    if (conv->carry == nullptr)
    {
        return true;
    }
    iovec piece{conv->carry + conv->carry_at, conv->carry_left};
    u8 at = 0;
    if (pieces_write(conv, &piece, at, 1))
    {
        carry_drop(conv);
        return true;
    }
    conv->carry_at += conv->carry_left - static_cast<u32>(piece.iov_len);
    conv->carry_left = static_cast<u32>(piece.iov_len);
    return false;
}

bool frame_write(conversation *conv, wire::frame_kind kind)
{
    u8 frame[frame_size];
    u8 at = 0;

    wire::frame_put(frame, kind, 0, 0);
    iovec pieces[2] = {{conv->carry + conv->carry_at, conv->carry_left}, {frame, frame_size}};
    u8 first = conv->carry == nullptr ? 1 : 0;
    at = first;
    if (pieces_write(conv, pieces, at, 2))
    {
        carry_drop(conv);
        return true;
    }
    return carry_replace(conv, pieces, at, 2);
}

// ---- input -------------------------------------------------------------------------------------------------------

arrival input_read(conversation *conv, lu62::receiving *receiving)
{
    u32 direct = receiving != nullptr && conv->in_left == 0 ? lu62::direct_room(conv->engine, *receiving) : 0;

    if (conv->in_ended)
    {
        return arrival::nothing;
    }
    if (conv->in == nullptr)
    {
        conv->in = buffer_take();
        if (conv->in == nullptr)
        {
            return arrival::no_memory;
        }
        conv->in_at = 0;
    }
    if (conv->in_at != 0)
    {
        memmove(conv->in, conv->in + conv->in_at, conv->in_left);
        conv->in_at = 0;
    }
    if (direct < direct_least)
    {
        direct = 0;
    }
    u32 room = buffer_size - conv->in_left;
    if (room == 0)
    {
        return arrival::full;
    }
    if ((conv->long_frames || direct != 0) && room > short_read)
    {
        room = short_read;
    }
    iovec pieces[2] = {{direct != 0 ? receiving->buffer + receiving->got : nullptr, direct},
                       {conv->in + conv->in_left, room}};
    msghdr message{};
    message.msg_iov = direct != 0 ? pieces : pieces + 1;
    message.msg_iovlen = direct != 0 ? 2 : 1;
    runtime_waiter *block = conv->block;
    conv->block = nullptr;
    const ssize_t got = block != nullptr ? runtime_receive(*block, conv->fd, &message)
                                         : sys_recvmsg(conv->fd, &message, MSG_DONTWAIT);
    conv->looked = runtime_ticks();
    if (conv->stop != 0)
    {
        return arrival::nothing; // stopped by another thread meanwhile; what came is of no use any more
    }
    if (got < 0 && (errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM))
    {
        in_release(conv);
        return arrival::nothing;
    }
    if (got <= 0)
    {
        conv->in_ended = true; // closed, or reset by a partner that closed with our bytes unread
        return arrival::bytes;
    }
    u32 count = static_cast<u32>(got);
    if (direct != 0)
    {
        const u32 placed = count < direct ? count : direct;
        lu62::direct_done(conv->engine, *receiving, placed);
        count -= placed;
    }
    conv->in_left += count;
    return arrival::bytes;
}

// Lends the engine the bytes that are here, and takes back what it left.
static lu62::input in_open(const conversation *conv)
{
    return {conv->in + conv->in_at, conv->in_left, conv->in_ended};
}

static void in_close(conversation *conv, const lu62::input &in)
{
    if (conv->engine.log_length != 0)
    {
        nba_pd_print_problem(problem_partner_log_data, 0, "ba", conv->engine.log_data, conv->engine.log_length);
        conv->engine.log_length = 0;
    }
    conv->in_at += conv->in_left - in.left;
    conv->in_left = in.left;
    in_release(conv);
}

lu62::head input_look(conversation *conv)
{
    lu62::input in = in_open(conv);
    const lu62::head found = lu62::look(conv->engine, in);
    in_close(conv, in);
    return found;
}

bool input_receive(conversation *conv, lu62::receiving &receiving)
{
    lu62::input in = in_open(conv);
    const bool complete = lu62::receive_step(conv->engine, receiving, in);
    in_close(conv, in);
    return complete;
}

} // namespace client
