// usage.cpp - what each process and each user has of the node, for the quotas.
#include "broker/exchange.hpp"

namespace broker {

namespace {

template <class Map, class Key>
usage usage_of(const Map &all, const Key &key)
{
    auto found = all.find(key);
    return found == all.end() ? usage{} : found->second;
}

// Changes one number; who has nothing left is forgotten.
template <class Map, class Key>
void change(Map &all, const Key &key, std::uint32_t usage::*what, std::int64_t by)
{
    usage &one = all[key];
    one.*what = static_cast<std::uint32_t>(one.*what + by);
    if (one == usage{})
    {
        all.erase(key);
    }
}

} // namespace

usage exchange::usage_of_process(const peer &who) const
{
    return usage_of(usage_of_process_, who.pid);
}

usage exchange::usage_of_user(const peer &who) const
{
    return usage_of(usage_of_user_, who.uid);
}

void exchange::count(const peer &who, std::uint32_t usage::*what, std::int64_t by)
{
    change(usage_of_process_, who.pid, what, by);
    change(usage_of_user_, who.uid, what, by);
}

bool exchange::conversation_quota_left(const peer &who) const
{
    return usage_of_process(who).conversations < config_.conversations_per_process &&
           usage_of_user(who).conversations < config_.conversations_per_user;
}

bool exchange::attach_quota_left(const peer &who) const
{
    return usage_of_process(who).held < config_.attaches_per_process &&
           usage_of_user(who).held < config_.attaches_per_user;
}

} // namespace broker
