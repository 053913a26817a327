// config_record.cpp - look-ups in a configuration, and the one that holds without a file.
#include "broker/config.hpp"

#include <algorithm>

namespace broker {

namespace {

template <class Entry>
const Entry *find_by(const std::vector<Entry> &entries, std::string Entry::*field, const std::string &value)
{
    auto found = std::find_if(entries.begin(), entries.end(), [&](const Entry &e) { return e.*field == value; });
    return found == entries.end() ? nullptr : &*found;
}

} // namespace

const lu_entry *config::find_lu(const std::string &alias) const
{
    return find_by(lus, &lu_entry::alias, alias);
}

const mode_entry *config::find_mode(const std::string &mode) const
{
    return find_by(modes, &mode_entry::name, mode);
}

const side_info_entry *config::find_side_info(const std::string &destination) const
{
    return find_by(side_infos, &side_info_entry::destination, destination);
}

const user_entry *config::find_user(const std::string &user) const
{
    return find_by(users, &user_entry::name, user);
}

const program_entry *config::find_program(const std::string &tp_name_bytes) const
{
    return find_by(programs, &program_entry::tp_name, tp_name_bytes);
}

bool config::lets_in(const std::string &user) const
{
    return std::find(allowed_users.begin(), allowed_users.end(), user) != allowed_users.end() ||
           find_by(programs, &program_entry::user, user) != nullptr;
}

bool config::lets_others_in() const
{
    return !allowed_users.empty() ||
           std::any_of(programs.begin(), programs.end(), [](const program_entry &p) { return !p.user.empty(); });
}

const lu_entry *config::find_partner(const std::string &alias_or_name) const
{
    if (const lu_entry *local = find_lu(alias_or_name))
    {
        return local;
    }
    const lu_entry *partner = find_by(partner_lus, &lu_entry::alias, alias_or_name);
    return find_by(lus, &lu_entry::name, partner != nullptr ? partner->name : alias_or_name);
}

config default_config()
{
    config standard;
    standard.lus.push_back({"LOCALLU", "LOCALNET.LOCALLU"});
    for (const char *mode : {"", "#INTER", "#INTERSC", "#BATCH", "#BATCHSC", "SNASVCMG"})
    {
        standard.modes.push_back({mode, 0});
    }
    return standard;
}

} // namespace broker
