// sessions.cpp - the life of a session in the exchange: granted, attached, matched with an accept or refused, over.
// A function that may end a session returns at once after it: the record is gone then.
#include "broker/exchange.hpp"
#include "broker/names.hpp"

#include <cstring>
#include <string.h>

namespace broker {

bool exchange::session_free(const route &way) const
{
    const mode_entry *mode = config_.find_mode(way.mode);
    auto used = in_use_.find(way);
    return mode == nullptr || mode->session_limit == 0 || used == in_use_.end() || used->second < mode->session_limit;
}

void exchange::grant(connection &to, const wire::allocate &wanted, const route &way, milliseconds now)
{
    do
    {
        ++last_session_;
    } while (last_session_ == 0 || sessions_.contains(last_session_));
    session_id id = last_session_;
    const lu_entry *local = config_.find_lu(way.local);
    const lu_entry *partner = config_.find_lu(way.partner);
    if (local == nullptr || partner == nullptr || !world_.open_session(id))
    {
        answer_allocation(to.id, wanted.head.correlation, wire::rc_allocation_error,
                          wire::rc_allocation_failure_retry);
        return;
    }
    session &s = sessions_[id];
    s.id = id;
    s.way = way;
    s.local_name = local->name;
    s.allocator = to.id;
    s.allocator_uid = to.who.uid;
    s.allocator_pid = to.who.pid;
    s.tp_name = tp_name_bytes(wanted.tp_name);
    s.conv_type = wanted.conv_type;
    s.sync_level = wanted.sync_level;
    s.security = wanted.security;
    s.since = now;
    if (wanted.security == 1 && config_.already_verified)
    {
        s.user = to.who.user.substr(0, sizeof wanted.user_id);
    }
    else if (wanted.security >= 2)
    {
        s.user = from_ebcdic(wanted.user_id);
        s.password = from_ebcdic(wanted.password);
    }
    ++in_use_[way];
    ++held_of_process_[s.allocator_pid];
    ++held_of_user_[s.allocator_uid];
    to.sessions.insert(id);

    wire::allocated answer{};
    answer.session = id;
    to_ebcdic(answer.partner_fq_name, partner->name);
    reply(to.id, answer, wire::message_kind::allocated, wanted.head.correlation, handover::allocating_end, id);
}

void exchange::serve_waiting_allocations(const route &way, milliseconds now)
{
    for (auto waiters = allocations_.find(way); waiters != allocations_.end() && session_free(way);
         waiters = allocations_.find(way))
    {
        waiting next = waiters->second.begin()->second;
        connection &to = connections_.at(next.connection);
        wire::allocate wanted = to.requests.at(next.correlation).wanted;
        forget_request(to, next.correlation);
        grant(to, wanted, way, now);
    }
}

void exchange::attach(session_id id, attach_seen what, milliseconds now)
{
    auto found = sessions_.find(id);
    if (found == sessions_.end() || found->second.state != session_state::granted || what == attach_seen::nothing)
    {
        return;
    }
    session &s = found->second;
    if (what == attach_seen::attach)
    {
        check_attach(s, now);
        return;
    }
    // The allocating end has closed its socket, or has sent something else: there will be no conversation.
    no_longer_held(s);
    s.state = session_state::refused;
    if (s.allocator != 0)
    {
        end_is_done(s, true, now);
    }
    else
    {
        release(s, now);
    }
}

void exchange::check_attach(session &s, milliseconds now)
{
    if (const program_entry *program = config_.find_program(s.tp_name))
    {
        auto allowed = [](accepts what, std::uint8_t value) {
            return what == accepts::any || (what == accepts::second) == (value == 1);
        };
        if (!allowed(program->conversation_types, s.conv_type))
        {
            return refuse(s, wire::sense_type_mismatch, now);
        }
        if (!allowed(program->sync_levels, s.sync_level))
        {
            return refuse(s, wire::sense_sync_level_not_supported, now);
        }
    }
    if (s.security >= 2)
    {
        const user_entry *user = config_.find_user(s.user);
        std::string password;
        password.swap(s.password);
        if (user != nullptr)
        {
            s.state = session_state::checking;
            world_.verify(s.id, user->password_hash, password);
        }
        explicit_bzero(password.data(), password.size());
        if (user == nullptr)
        {
            refuse(s, wire::sense_security_not_valid, now);
        }
        return;
    }
    place_attach(s, now);
}

void exchange::verified(session_id id, bool good, milliseconds now)
{
    auto found = sessions_.find(id);
    if (found == sessions_.end() || found->second.state != session_state::checking)
    {
        return;
    }
    if (good)
    {
        place_attach(found->second, now);
    }
    else
    {
        refuse(found->second, wire::sense_security_not_valid, now);
    }
}

std::uint32_t exchange::unavailable_sense(const std::string &tp_name) const
{
    bool known = names_ever_.contains(tp_name) || config_.find_program(tp_name) != nullptr;
    return known ? wire::sense_tp_not_available_retry : wire::sense_tp_name_not_recognised;
}

// The attach is in order: gives it to the accept that has waited longest, else queues it.
void exchange::place_attach(session &s, milliseconds now)
{
    auto waiters = accepts_by_name_.find(s.tp_name);
    if (waiters != accepts_by_name_.end())
    {
        waiting longest = accepts_.at(*waiters->second.begin());
        connection &acceptor = connections_.at(longest.connection);
        forget_request(acceptor, longest.correlation);
        connect(s, acceptor, longest.correlation, now);
        return;
    }
    auto queue = queues_.find(s.tp_name);
    std::size_t depth = queue == queues_.end() ? 0 : queue->second.size();
    if (depth >= config_.attach_queue_depth)
    {
        refuse(s, depth == 0 ? unavailable_sense(s.tp_name) : wire::sense_tp_not_available_retry, now);
        return;
    }
    s.state = session_state::queued;
    s.since = now;
    s.order = ++last_order_;
    s.deadline = now + config_.attach_wait_ms;
    queues_[s.tp_name][s.order] = s.id;
    timers_.insert({s.deadline, alarm::queued, s.id, 0});
    start_program_for(s);
}

void exchange::start_program_for(const session &s)
{
    const program_entry *program = config_.find_program(s.tp_name);
    if (program == nullptr || program->command.empty() || (program->one_for_all && running_.contains(s.tp_name)))
    {
        return;
    }
    ++running_[s.tp_name];
    world_.start_program(*program, s.way.partner);
}

void exchange::program_ended(const std::string &tp_name, program_end how, milliseconds now)
{
    auto running = running_.find(tp_name);
    if (running == running_.end())
    {
        return;
    }
    if (--running->second == 0)
    {
        running_.erase(running);
    }
    bool worked = started_and_accepted_.erase(tp_name) != 0;
    auto queue = queues_.find(tp_name);
    if (queue == queues_.end() || running_.contains(tp_name))
    {
        return;
    }
    const program_entry *program = config_.find_program(tp_name);
    if (worked && program != nullptr && program->one_for_all)
    {
        start_program_for(sessions_.at(queue->second.begin()->second));
        return;
    }
    // One that never accepted would be started in vain. It may have left the accepting to a process of its own that is on
    // its way; one that failed has not, and unless somebody else serves the name its clients need not wait in vain too.
    if (how == program_end::done || names_.contains(tp_name))
    {
        return;
    }
    std::uint32_t sense = how == program_end::cannot_start ? wire::sense_tp_not_available_no_retry
                                                           : wire::sense_tp_not_available_retry;
    for (auto left = queues_.find(tp_name); left != queues_.end(); left = queues_.find(tp_name))
    {
        refuse(sessions_.at(left->second.begin()->second), sense, now);
    }
}

// Takes a session out of its queue, if it is in one.
void exchange::leave_queue(const session &s)
{
    if (s.state != session_state::queued)
    {
        return;
    }
    timers_.erase({s.deadline, alarm::queued, s.id, 0});
    auto queue = queues_.find(s.tp_name);
    queue->second.erase(s.order);
    if (queue->second.empty())
    {
        queues_.erase(queue);
    }
}

void exchange::connect(session &s, connection &acceptor, std::uint32_t correlation, milliseconds now)
{
    leave_queue(s);
    no_longer_held(s);
    s.state = session_state::connected;
    s.since = now;
    s.acceptor = acceptor.id;
    s.acceptor_pid = acceptor.who.pid;
    acceptor.sessions.insert(s.id);
    ++accepted_total_;
    if (running_.contains(s.tp_name))
    {
        started_and_accepted_.insert(s.tp_name);
    }

    wire::accepted answer{};
    answer.session = s.id;
    std::memcpy(answer.tp_name, s.tp_name.data(), sizeof answer.tp_name);
    answer.conv_type = s.conv_type;
    answer.sync_level = s.sync_level;
    to_ebcdic(answer.user_id, s.user);
    to_ebcdic(answer.mode, s.way.mode);
    to_ascii(answer.local_alias, s.way.partner); // the partner's view: its own LU is the one that was addressed
    to_ebcdic(answer.partner_fq_name, s.local_name);
    reply(acceptor.id, answer, wire::message_kind::accepted, correlation, handover::accepting_end, s.id);
}

void exchange::refuse(session &s, std::uint32_t sense, milliseconds now)
{
    leave_queue(s);
    no_longer_held(s);
    ++refused_total_;
    world_.refuse(s.id, sense);
    s.state = session_state::refused;
    s.since = now;
    if (s.allocator == 0)
    {
        release(s, now);
    }
}

// One end has said that it is done, or its program has gone.
void exchange::end_is_done(session &s, bool allocating_end, milliseconds now)
{
    connection_id &end = allocating_end ? s.allocator : s.acceptor;
    connection_id &other = allocating_end ? s.acceptor : s.allocator;
    if (end != other)
    {
        connections_.at(end).sessions.erase(s.id);
    }
    end = 0;
    switch (s.state)
    {
    case session_state::granted:
    {
        // The ATTACH may be on its way, and with it all that the program had to say: it goes by another socket.
        attach_seen seen = world_.look(s.id);
        attach(s.id, seen == attach_seen::attach ? seen : attach_seen::broken, now);
        break;
    }
    case session_state::checking:
    case session_state::queued: // the same: what has been sent waits for its program
        break;
    case session_state::connected:
    case session_state::refused:
        if (other == 0)
        {
            release(s, now);
        }
        break;
    }
}

// Both ends are done.
void exchange::release(session &s, milliseconds now)
{
    world_.drop_session(s.id);
    route way = s.way;
    auto used = in_use_.find(way);
    if (--used->second == 0)
    {
        in_use_.erase(used);
    }
    sessions_.erase(s.id);
    serve_waiting_allocations(way, now);
}

} // namespace broker
