// exchange.cpp - connections, deadlines and the configuration of the exchange. What the messages ask for is in
// messages.cpp, the life of a session in sessions.cpp. One thread, no lock.
#include "broker/exchange.hpp"

#include <algorithm>

namespace broker {

exchange::exchange(outside &world, config settings, std::uint32_t broker_pid)
    : world_(world), config_(std::move(settings)), broker_pid_(broker_pid)
{
}

bool exchange::connected(connection_id id, peer who, milliseconds now)
{
    if (usage_of_process(who).connections >= config_.connections_per_process ||
        usage_of_user(who).connections >= config_.connections_per_user)
    {
        return false;
    }
    count(who, &usage::connections, 1);
    connection &added = connections_[id];
    added.id = id;
    added.who = std::move(who);
    added.since = now;
    timers_.insert({now + greeting_time, alarm::greeting, id, 0});
    return true;
}

void exchange::disconnected(connection_id id, milliseconds now)
{
    auto found = connections_.find(id);
    if (found == connections_.end())
    {
        return;
    }
    connection &gone = found->second;
    timers_.erase({gone.since + greeting_time, alarm::greeting, id, 0});
    while (!gone.requests.empty())
    {
        forget_request(gone, gone.requests.begin()->first);
    }
    while (!gone.names.empty())
    {
        forget_name(gone, *gone.names.begin());
    }
    // Ending a session may serve others and touches the set; go over a copy.
    for (session_id ended : std::vector<session_id>(gone.sessions.begin(), gone.sessions.end()))
    {
        for (bool allocating_end : {true, false})
        {
            auto s = sessions_.find(ended);
            if (s != sessions_.end() && (allocating_end ? s->second.allocator : s->second.acceptor) == id)
            {
                end_is_done(s->second, allocating_end, now);
            }
        }
    }
    count(gone.who, &usage::connections, -1);
    connections_.erase(found);
}

void exchange::forget_request(connection &of, std::uint32_t correlation)
{
    auto found = of.requests.find(correlation);
    const request &r = found->second;
    if (r.accepts)
    {
        accepts_.erase(r.order);
        count(of.who, &usage::awaited, -static_cast<std::int64_t>(r.tp_names.size()));
        for (const std::string *name : r.tp_names)
        {
            auto waiters = accepts_by_name_.find(*name);
            if (waiters != accepts_by_name_.end())
            {
                waiters->second.erase(r.order);
                if (waiters->second.empty())
                {
                    accepts_by_name_.erase(waiters);
                }
            }
        }
    }
    else
    {
        timers_.erase({r.deadline, alarm::allocation, of.id, correlation});
        auto waiters = allocations_.find(sessions_of(r.way));
        waiters->second.erase(r.order);
        if (waiters->second.empty())
        {
            allocations_.erase(waiters);
        }
    }
    of.requests.erase(found);
    count(of.who, &usage::conversations, -1);
}

// A program's name goes; no accept of it waits for the name any more.
void exchange::forget_name(connection &of, std::string name)
{
    auto owners = names_.find(name);
    owners->second.erase(of.id);
    if (owners->second.empty())
    {
        names_.erase(owners);
    }
    of.names.erase(name);
    count(of.who, &usage::names, -1);
}

void exchange::tick(milliseconds now)
{
    while (!timers_.empty() && timers_.begin()->when <= now)
    {
        timer due = *timers_.begin();
        timers_.erase(timers_.begin());
        switch (due.what)
        {
        case alarm::greeting:
            world_.close_connection(due.number, "it has said nothing");
            break;
        case alarm::allocation:
            forget_request(connections_.at(due.number), due.detail);
            answer_allocation(due.number, due.detail, wire::rc_allocation_error, wire::rc_allocation_failure_retry);
            break;
        case alarm::queued:
            session &s = sessions_.at(due.number);
            refuse(s, unavailable_sense(s.tp_name), now);
            break;
        }
    }
}

std::optional<milliseconds> exchange::next_deadline() const
{
    if (timers_.empty())
    {
        return std::nullopt;
    }
    return timers_.begin()->when;
}

std::uint32_t exchange::running(const std::string &tp_name) const
{
    auto found = running_.find(tp_name);
    return found == running_.end() ? 0 : found->second;
}

void exchange::no_longer_held(const session &s)
{
    count(s.allocated_by, &usage::held, -1);
}

reload_report exchange::reconfigure(config settings, milliseconds now)
{
    reload_report report;
    std::set<std::string> lus_in_use;
    std::set<std::string> modes_in_use;
    for (const auto &[way, count] : in_use_)
    {
        lus_in_use.insert(way.local);
        lus_in_use.insert(way.partner);
        modes_in_use.insert(way.mode);
    }
    for (const std::string &alias : lus_in_use)
    {
        const lu_entry old = *config_.find_lu(alias);
        auto fresh = std::find_if(settings.lus.begin(), settings.lus.end(),
                                  [&](const lu_entry &lu) { return lu.alias == alias; });
        if (fresh == settings.lus.end())
        {
            settings.lus.push_back(old);
            report.kept.push_back("LU " + alias + " has conversations and stays");
        }
        else if (fresh->name != old.name)
        {
            fresh->name = old.name;
            report.kept.push_back("LU " + alias + " has conversations and keeps the name " + old.name);
        }
    }
    for (const std::string &mode : modes_in_use)
    {
        if (settings.find_mode(mode) == nullptr)
        {
            settings.modes.push_back(*config_.find_mode(mode));
            report.kept.push_back("mode " + (mode.empty() ? "(blank)" : mode) + " has conversations and stays");
        }
    }
    auto at_start = [&](const char *key, bool on) {
        report.kept.push_back(std::string(key) + " = " + (on ? "true" : "false") +
                              " holds from the next start on; cpicnode " + key + (on ? " on" : " off") +
                              " switches it now");
    };
    if (settings.trace != config_.trace)
    {
        at_start("trace", settings.trace);
    }
    if (settings.audit != config_.audit)
    {
        at_start("audit", settings.audit);
    }
    config_ = std::move(settings);
    // A raised session limit may serve those who wait.
    std::vector<route> ways;
    for (const auto &[way, waiters] : allocations_)
    {
        ways.push_back(way);
    }
    for (const route &way : ways)
    {
        serve_waiting_allocations(way, now);
    }
    return report;
}

} // namespace broker
