// sessions.cpp - the life of a session in the exchange: granted, attached, matched with an accept or refused, over.
// A function that may end a session returns at once after it: the record is gone then.
#include "broker/exchange.hpp"
#include "broker/names.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace broker {

bool exchange::session_free(const route &way) const
{
    const mode_entry *mode = config_.find_mode(way.mode);
    auto used = in_use_.find(sessions_of(way));
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
    if (local == nullptr || partner == nullptr || !attach_quota_left(to.who) || !world_.open_session(id))
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
    s.allocated_by = to.who;
    s.tp_name = tp_name_bytes(wanted.tp_name);
    s.conv_type = wanted.conv_type;
    s.sync_level = wanted.sync_level;
    s.security = wanted.security;
    s.begun = now;
    s.since = now;
    // A name that does not fit is left out: cut off it might be another user's.
    if (wanted.security == 1 && config_.already_verified && to.who.user.size() <= sizeof wanted.user_id)
    {
        s.user = to.who.user;
    }
    else if (wanted.security >= 2)
    {
        s.user = from_ebcdic(wanted.user_id);
        s.password = secret_from_ebcdic(wanted.password);
    }
    ++in_use_[sessions_of(way)];
    count(to.who, &usage::held, 1);
    to.sessions.insert(id);
    count(to.who, &usage::conversations, 1);

    wire::allocated answer{};
    answer.session = id;
    to_ebcdic(answer.partner_fq_name, partner->name);
    reply(to.id, answer, wire::message_kind::allocated, wanted.head.correlation, handover::allocating_end, id);
}

void exchange::serve_waiting_allocations(const route &way, milliseconds now)
{
    const route both = sessions_of(way);
    for (auto waiters = allocations_.find(both); waiters != allocations_.end() && session_free(both);
         waiters = allocations_.find(both))
    {
        waiting next = waiters->second.begin()->second;
        connection &to = connections_.at(next.connection);
        wire::allocate wanted = to.requests.at(next.correlation).wanted;
        const route own = to.requests.at(next.correlation).way;
        forget_request(to, next.correlation);
        grant(to, wanted, own, now);
        explicit_bzero(wanted.password, sizeof wanted.password);
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
        // The password of a user whom nobody knows is checked like any other, so that the time tells nothing.
        static const std::string nobody = "$6$nobody$";
        const user_entry *user = config_.find_user(s.user);
        const std::string &hash = user != nullptr          ? user->password_hash
                                  : config_.users.empty() ? nobody
                                                          : config_.users.front().password_hash;
        s.user_known = user != nullptr;
        s.state = session_state::checking;
        s.since = now;
        world_.verify(s.id, s.allocated_by, hash, std::move(s.password));
        return;
    }
    place_attach(s, now);
}

void exchange::abandon(session_id id, milliseconds now)
{
    auto found = sessions_.find(id);
    if (found == sessions_.end())
    {
        return;
    }
    if (found->second.state == session_state::granted)
    {
        attach(id, attach_seen::broken, now);
    }
    else if (found->second.state == session_state::checking || found->second.state == session_state::queued)
    {
        refuse(found->second, wire::sense_tp_not_available_retry, now);
    }
}

void exchange::verified(session_id id, bool good, milliseconds now)
{
    auto found = sessions_.find(id);
    if (found == sessions_.end() || found->second.state != session_state::checking)
    {
        return;
    }
    if (good && found->second.user_known)
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
    if (config_.attach_queue_depth == 0)
    {
        return refuse(s, unavailable_sense(s.tp_name), now);
    }
    auto queue = queues_.find(s.tp_name);
    if (queue != queues_.end() && queue->second.waiting.size() >= config_.attach_queue_depth && !make_room(s, now))
    {
        return refuse(s, wire::sense_tp_not_available_retry, now);
    }
    enter_queue(s, now);
    start_program_for(s);
}

void exchange::enter_queue(session &s, milliseconds now)
{
    s.state = session_state::queued;
    s.since = now;
    s.order = ++last_order_;
    s.deadline = now + config_.attach_wait_ms;
    attach_queue &queue = queues_[s.tp_name];
    queue.waiting[s.order] = s.id;
    ++queue.of_user[s.allocated_by.uid];
    ++queue.of_process[{s.allocated_by.uid, s.allocated_by.pid}];
    timers_.insert({s.deadline, alarm::queued, s.id, 0});
}

// The queue that an attach is to enter is full. The user who has most of it loses a place, the last one of the process
// that has most of that user's. Nobody takes a place from one who has no more than himself. False: there is no room.
bool exchange::make_room(const session &s, milliseconds now)
{
    attach_queue &queue = queues_.at(s.tp_name);
    auto less = [](const auto &a, const auto &b) { return a.second < b.second; };
    auto of = [](const auto &shares, auto whom) {
        auto found = shares.find(whom);
        return found == shares.end() ? 0u : found->second;
    };
    const peer &newcomer = s.allocated_by;
    auto most = std::max_element(queue.of_user.begin(), queue.of_user.end(), less);
    const bool of_another = of(queue.of_user, newcomer.uid) + 1 < most->second;
    const std::uint32_t uid = of_another ? most->first : newcomer.uid;
    auto first = queue.of_process.lower_bound({uid, INT32_MIN});
    auto end = queue.of_process.upper_bound({uid, INT32_MAX});
    auto process = std::max_element(first, end, less);
    if (process == end || (!of_another &&
                           of(queue.of_process, std::pair(newcomer.uid, newcomer.pid)) + 1 >= process->second))
    {
        return false;
    }
    for (auto last = queue.waiting.rbegin(); last != queue.waiting.rend(); ++last)
    {
        session &loser = sessions_.at(last->second);
        if (std::pair(loser.allocated_by.uid, loser.allocated_by.pid) == process->first)
        {
            refuse(loser, wire::sense_tp_not_available_retry, now);
            return true;
        }
    }
    return false;
}

// Starts a program for an attach that waits: the one for all unless it runs, or one for each as far as they may be.
void exchange::start_program_for(session &s)
{
    const program_entry *program = config_.find_program(s.tp_name);
    if (program == nullptr || program->command.empty() ||
        running(s.tp_name) >= (program->one_for_all ? 1 : program->most_instances))
    {
        return;
    }
    ++running_[s.tp_name];
    s.program_started = true;
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
    if (queue == queues_.end())
    {
        return;
    }
    const program_entry *program = config_.find_program(tp_name);
    if (program != nullptr && !program->one_for_all)
    {
        // One of the attaches for which there was no room yet.
        for (const auto &[order, id] : queue->second.waiting)
        {
            if (!sessions_.at(id).program_started)
            {
                start_program_for(sessions_.at(id));
                return;
            }
        }
    }
    if (running_.contains(tp_name))
    {
        return;
    }
    if (worked && program != nullptr && program->one_for_all)
    {
        start_program_for(sessions_.at(queue->second.waiting.begin()->second));
        return;
    }
    // One that never accepted would be started in vain. It may have left the accepting to a process of its own that
    // is on its way; one that failed has not, and unless somebody else serves the name its clients need not wait in
    // vain too.
    if (how == program_end::done || names_.contains(tp_name))
    {
        return;
    }
    std::uint32_t sense = how == program_end::cannot_start ? wire::sense_tp_not_available_no_retry
                                                           : wire::sense_tp_not_available_retry;
    for (auto left = queues_.find(tp_name); left != queues_.end(); left = queues_.find(tp_name))
    {
        refuse(sessions_.at(left->second.waiting.begin()->second), sense, now);
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
    auto found = queues_.find(s.tp_name);
    attach_queue &queue = found->second;
    queue.waiting.erase(s.order);
    if (queue.waiting.empty())
    {
        queues_.erase(found);
        return;
    }
    if (--queue.of_user[s.allocated_by.uid] == 0)
    {
        queue.of_user.erase(s.allocated_by.uid);
    }
    const std::pair process(s.allocated_by.uid, s.allocated_by.pid);
    if (--queue.of_process[process] == 0)
    {
        queue.of_process.erase(process);
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
    if (acceptor.sessions.insert(s.id).second)
    {
        count(acceptor.who, &usage::conversations, 1);
    }
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
        connection &done = connections_.at(end);
        done.sessions.erase(s.id);
        count(done.who, &usage::conversations, -1);
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
    auto used = in_use_.find(sessions_of(way));
    if (--used->second == 0)
    {
        in_use_.erase(used);
    }
    sessions_.erase(s.id);
    serve_waiting_allocations(way, now);
}

} // namespace broker
