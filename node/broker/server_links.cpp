// server_links.cpp - the connections of programs: their messages in and out, answers to the operator's commands. One
// thread.
#include "broker/server.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr std::size_t max_queued_bytes = 4u << 20; // for one connection that does not read
constexpr std::size_t max_record = 512u << 10;     // that comes in parts; the longest of the trace is shorter
constexpr std::size_t max_answer = 64u << 20;      // of an operator's command
constexpr std::size_t max_answers_of_user = 16u << 20; // to the connections of a user, before the next long one is made
constexpr std::size_t max_answers = 64u << 20;     // the same of all users
constexpr milliseconds answer_pause = 5'000;       // without reading on, before the connection is closed
constexpr milliseconds answer_time = 30'000;       // for all of an answer
constexpr milliseconds answer_stale = 1'000;       // without reading on, before it gives way to others
constexpr milliseconds retry_pause = 20;           // until the system may have room again
constexpr int messages_at_once = 16;               // of one connection before others have their turn

} // namespace

void server::read_connection(connection_id id)
{
    auto found = links_.find(id);
    if (found == links_.end())
    {
        return;
    }
    for (int i = 0; i < messages_at_once && !found->second.closing; ++i)
    {
        // Room for one descriptor, and not for the two that the padding of the record would take: more are dropped by
        // the system, and their sender is found out by the flag.
        iovec place{buffer_.data(), buffer_.size()};
        alignas(cmsghdr) char room[CMSG_SPACE(sizeof(int))]{};
        msghdr message{};
        message.msg_iov = &place;
        message.msg_iovlen = 1;
        message.msg_control = room;
        message.msg_controllen = CMSG_LEN(sizeof(int));
        ssize_t size = recvmsg(found->second.fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (size < 0 && errno == EINTR)
        {
            continue;
        }
        if (size < 0 && errno == EAGAIN)
        {
            return;
        }
        int descriptor = -1;
        cmsghdr *part = size < 0 ? nullptr : CMSG_FIRSTHDR(&message);
        if (part != nullptr && part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_RIGHTS &&
            part->cmsg_len >= CMSG_LEN(sizeof(int)))
        {
            std::memcpy(&descriptor, CMSG_DATA(part), sizeof descriptor);
        }
        // The one descriptor of a greeting may also be cut off because the broker has none left for it.
        bool greets = !exchange_.connections().at(id).greeted;
        bool surplus = (message.msg_flags & MSG_CTRUNC) != 0 && (descriptor >= 0 || !greets);
        if (size <= 0)
        {
            close_connection(id, "");
        }
        else if ((message.msg_flags & MSG_TRUNC) != 0 || surplus || (descriptor >= 0 && !greets))
        {
            close_connection(id, "it has sent more than a message");
        }
        else if (descriptor >= 0 && !counter_view::proper(descriptor))
        {
            close_connection(id, "its table of counters is none");
        }
        else
        {
            if (descriptor >= 0)
            {
                found->second.counters.open(descriptor); // with no room for it the program goes uncounted
            }
            exchange_.message(id, std::span(buffer_.data(), static_cast<std::size_t>(size)), now());
            explicit_bzero(buffer_.data(), static_cast<std::size_t>(size)); // a password may have been in it
        }
        if (descriptor >= 0)
        {
            close(descriptor);
        }
    }
}

void server::close_connection(connection_id id, const char *reason)
{
    auto found = links_.find(id);
    if (found == links_.end() || found->second.closing)
    {
        return;
    }
    if (*reason != 0)
    {
        auto known = exchange_.connections().find(id);
        std::string process = known == exchange_.connections().end() ? "" : std::to_string(known->second.who.pid);
        log_limited(reason, "closes the connection of process " + process + ": " + reason);
    }
    found->second.closing = true;
    closing_.push_back(id); // has room for all links, so that this never fails
    forget_answer(id, found->second);
}

void server::reap_connections()
{
    // The end of one may make others fail; go on until there are none.
    while (!closing_.empty())
    {
        connection_id id = closing_.back();
        closing_.pop_back();
        link gone = std::move(links_.at(id));
        links_.erase(id);
        retries_.erase(id);
        for (const outgoing &message : gone.queue)
        {
            drop(message);
        }
        close(gone.fd);
        idle_since_ = now();
        exchange_.disconnected(id, now());
    }
}

server::sent server::write_one(const link &connection, const outgoing &message)
{
    iovec place{const_cast<std::byte *>(message.bytes.data()), message.bytes.size()};
    msghdr header{};
    header.msg_iov = &place;
    header.msg_iovlen = 1;
    alignas(cmsghdr) char room[CMSG_SPACE(sizeof(int))]{};
    if (message.descriptor >= 0)
    {
        header.msg_control = room;
        header.msg_controllen = sizeof room;
        cmsghdr *rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(rights), &message.descriptor, sizeof(int));
    }
    for (;;)
    {
        if (sendmsg(connection.fd, &header, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0)
        {
            return sent::whole;
        }
        switch (errno)
        {
        case EINTR:
            break;
        case EAGAIN:
            return sent::full;
        case ENOBUFS:
        case ENOMEM:
        case ETOOMANYREFS: // too many descriptors of our user are on their way, to whomever
            return sent::later;
        default:
            return sent::failed;
        }
    }
}

// Watches the connection for room, or no longer. A full one that cannot be watched is tried again by the clock.
void server::want_room(connection_id id, link &connection, bool wanted)
{
    if (connection.watching_output == wanted)
    {
        return;
    }
    epoll_event event{};
    event.events = wanted ? EPOLLIN | EPOLLOUT : EPOLLIN;
    event.data.u64 = event_word(watched::connection, id);
    if (epoll_ctl(epoll_, EPOLL_CTL_MOD, connection.fd, &event) == 0)
    {
        connection.watching_output = wanted;
    }
    else if (wanted)
    {
        retry_later(id);
    }
}

void server::retry_later(connection_id id)
{
    if (retries_.empty())
    {
        retry_at_ = now() + retry_pause;
    }
    retries_.insert(id);
}

// Takes over the message's descriptor if it is ours.
void server::enqueue(connection_id to, link &connection, outgoing message)
{
    bool must_wait = !connection.queue.empty();
    connection.queued_bytes += message.bytes.size();
    try
    {
        connection.queue.push_back(std::move(message));
    }
    catch (...)
    {
        drop(message);
        throw;
    }
    if (!must_wait)
    {
        write_connection(to);
    }
}

void server::drop(const outgoing &message)
{
    if (message.ours)
    {
        close(message.descriptor);
    }
}

void server::write_connection(connection_id id)
{
    auto found = links_.find(id);
    if (found == links_.end() || found->second.closing)
    {
        return;
    }
    link &connection = found->second;
    while (!connection.queue.empty() || next_piece(id, connection))
    {
        const outgoing &next = connection.queue.front();
        switch (write_one(connection, next))
        {
        case sent::whole:
            break;
        case sent::full:
            want_room(id, connection, true);
            return;
        case sent::later:
            want_room(id, connection, false); // there is room enough in it
            retry_later(id);
            return;
        case sent::failed:
            close_connection(id, "");
            return;
        }
        connection.queued_bytes -= next.bytes.size();
        drop(next);
        connection.queue.pop_front();
    }
    want_room(id, connection, false);
}

// A program that cannot be told something must not wait for it: it loses its connection, whoever's message brought it
// about.
void server::send(connection_id to, std::span<const std::byte> message, handover what, session_id session)
{
    guarded(watched::connection, to, [&] { send_or_throw(to, message, what, session); });
}

void server::send_or_throw(connection_id to, std::span<const std::byte> message, handover what, session_id session)
{
    outgoing item{{message.begin(), message.end()}, -1, false};
    if (what == handover::control_page)
    {
        item.descriptor = page_.reader();
    }
    else if (what != handover::nothing)
    {
        auto held = held_.find(session);
        int &end = what == handover::allocating_end ? held->second.allocating_end : held->second.held_end;
        item.descriptor = end;
        item.ours = true;
        end = -1;
        if (what == handover::accepting_end)
        {
            epoll_ctl(epoll_, EPOLL_CTL_DEL, item.descriptor, nullptr);
            held_.erase(held);
        }
    }
    auto found = links_.find(to);
    if (found == links_.end() || found->second.closing)
    {
        if (item.ours)
        {
            close(item.descriptor);
        }
        return;
    }
    enqueue(to, found->second, std::move(item));
    if (found->second.queued_bytes > max_queued_bytes)
    {
        close_connection(to, "it does not read what it is sent");
    }
}

void server::record(connection_id from, wire::node_file_kind file, bool begins, bool more, std::string_view text)
{
    auto found = links_.find(from);
    if (found == links_.end() || found->second.closing)
    {
        return;
    }
    std::string &whole = found->second.record;
    if (begins)
    {
        whole.clear();
    }
    else if (whole.empty())
    {
        return; // the rest of one whose beginning was lost
    }
    if (whole.size() + text.size() > max_record)
    {
        close_connection(from, "it has sent a record longer than any");
        return;
    }
    whole += text;
    if (!more)
    {
        const wire::control_page &shared = *page_.content();
        records_.append(file, whole,
                        file == wire::node_file_kind::problem_log ? shared.problem_log_limit
                        : file == wire::node_file_kind::audit_log ? shared.audit_log_limit
                                                                  : shared.trace_file_limit);
        whole = {};
    }
}

void server::control(connection_id from, std::uint32_t correlation, bool json, const std::string &command)
{
    auto found = links_.find(from);
    if (found == links_.end() || found->second.closing)
    {
        return;
    }
    link &connection = found->second;
    if (!connection.queue.empty() || connection.answer)
    {
        close_connection(from, "it asks on without reading the answers");
        return;
    }
    control_answer answer;
    if (command.starts_with("show ") && !room_for_answer(from))
    {
        answer = refused_command("too many answers are on their way to programs of this user; ask again in some seconds",
                                 json);
    }
    else
    {
        answer = answer_command(*this, command, json, connection.may_change);
    }
    if (answer.text.size() > max_answer)
    {
        answer = refused_command("the answer is too long to be sent", json);
    }
    answer_bytes_ += answer.text.size();
    connection.answer.emplace(std::move(answer), correlation, now());
    answering_.insert(from);
    write_connection(from);
}

// Puts the next piece of the connection's answer into its queue, which is empty. False: there is none.
bool server::next_piece(connection_id id, link &connection)
{
    if (!connection.answer)
    {
        return false;
    }
    if (connection.answer->all_taken)
    {
        forget_answer(id, connection);
        return false;
    }
    constexpr std::size_t most = wire::max_message - sizeof(wire::control_reply);
    pending_answer &answer = *connection.answer;
    const std::string &text = answer.whole.text;
    std::size_t size = std::min(most, text.size() - answer.done);
    wire::control_reply head{};
    head.head = {static_cast<std::uint16_t>(wire::message_kind::control_reply), 0,
                 static_cast<std::uint32_t>(sizeof head + size), answer.correlation};
    head.status.primary = answer.whole.good ? wire::rc_ok : wire::rc_unsuccessful;
    head.more = answer.done + size < text.size() ? 1 : 0;
    head.text_length = static_cast<std::uint32_t>(size);
    outgoing item{{}, -1, false};
    item.bytes.resize(sizeof head + size);
    std::memcpy(item.bytes.data(), &head, sizeof head);
    std::memcpy(item.bytes.data() + sizeof head, text.data() + answer.done, size);
    connection.queued_bytes += item.bytes.size();
    connection.queue.push_back(std::move(item));
    answer.done += size;
    answer.read_on = now();
    answer.all_taken = head.more == 0;
    return true;
}

void server::forget_answer(connection_id id, link &connection)
{
    if (connection.answer)
    {
        answer_bytes_ -= connection.answer->whole.text.size();
        connection.answer.reset();
        answering_.erase(id);
    }
}

// True when the answers on their way to the user of a connection, and to all users, leave room for another.
bool server::room_for_answer(connection_id to)
{
    const std::uint32_t uid = exchange_.connections().at(to).who.uid;
    auto room = [&] {
        std::size_t bytes = 0;
        for (connection_id id : answering_)
        {
            bytes += exchange_.connections().at(id).who.uid == uid ? links_.at(id).answer->whole.text.size() : 0;
        }
        return bytes < max_answers_of_user && answer_bytes_ < max_answers;
    };
    if (room())
    {
        return true;
    }
    end_answers(answer_stale);
    return room();
}

// Closes the connections that have not read on in their answer for so long.
void server::end_answers(milliseconds pause)
{
    std::vector<connection_id> late;
    for (connection_id id : answering_)
    {
        const pending_answer &answer = *links_.at(id).answer;
        if (now() >= answer.read_on + pause || now() >= answer.begun + answer_time)
        {
            late.push_back(id);
        }
    }
    for (connection_id id : late)
    {
        close_connection(id, "it does not read the answer that it has asked for");
    }
}

std::optional<milliseconds> server::links_deadline() const
{
    std::optional<milliseconds> first;
    auto earlier = [&](milliseconds when) { first = first ? std::min(*first, when) : when; };
    if (!retries_.empty())
    {
        earlier(retry_at_);
    }
    for (connection_id id : answering_)
    {
        const pending_answer &answer = *links_.at(id).answer;
        earlier(std::min(answer.read_on + answer_pause, answer.begun + answer_time));
    }
    return first;
}

void server::tick_links()
{
    end_answers(answer_pause);
    if (!retries_.empty() && retry_at_ <= now())
    {
        for (connection_id id : std::exchange(retries_, {}))
        {
            guarded(watched::connection, id, [&] { write_connection(id); });
        }
    }
}

} // namespace broker
