// directory.cpp - the rule of directory.hpp.
#include "wire/directory.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace wire {

// In a program that runs with more rights than whoever started it (set-user-ID), no variable of the caller counts.
bool node_directory(char (&path)[max_directory + 1])
{
    const char *own = secure_getenv("CPIC_NODE_DIR");
    const char *runtime = secure_getenv("XDG_RUNTIME_DIR");
    int length;
    if (own != nullptr && *own != 0)
    {
        length = std::snprintf(path, sizeof path, "%s", own);
    }
    else if (runtime != nullptr && *runtime != 0)
    {
        length = std::snprintf(path, sizeof path, "%s/cpicnode", runtime);
    }
    else
    {
        length = std::snprintf(path, sizeof path, "/tmp/cpicnode-%u", static_cast<unsigned>(geteuid()));
    }
    return length > 0 && static_cast<std::size_t>(length) < sizeof path && path[0] == '/';
}

bool user_trusted(std::uint32_t uid)
{
    if (uid == geteuid() || uid == 0)
    {
        return true;
    }
    const char *named = secure_getenv("CPIC_NODE_USER");
    if (named == nullptr || *named == 0)
    {
        return false;
    }
    char *end;
    unsigned long number = std::strtoul(named, &end, 10);
    if (*end == 0)
    {
        return number == uid;
    }
    char room[4096];
    passwd entry;
    passwd *found = nullptr;
    return getpwnam_r(named, &entry, room, sizeof room, &found) == 0 && found != nullptr && found->pw_uid == uid;
}

directory_state directory_check(const char *path, bool make)
{
    if (make && mkdir(path, 0700) != 0 && errno != EEXIST)
    {
        return directory_state::failed;
    }
    struct stat found;
    if (lstat(path, &found) != 0)
    {
        return errno == ENOENT ? directory_state::missing : directory_state::failed;
    }
    if (!S_ISDIR(found.st_mode))
    {
        return directory_state::not_a_directory;
    }
    if (!user_trusted(found.st_uid))
    {
        return directory_state::not_ours;
    }
    if ((found.st_mode & (S_IWGRP | S_IWOTH)) != 0)
    {
        return directory_state::open_to_others;
    }
    return found.st_uid == geteuid() ? directory_state::good : directory_state::of_another;
}

const char *directory_advice(directory_state state)
{
    switch (state)
    {
    case directory_state::good:
        return "";
    case directory_state::of_another:
        return "it belongs to another user, and only that user can start a node in it or write to its files";
    case directory_state::missing:
        return "it does not exist; make it, or name another in CPIC_NODE_DIR";
    case directory_state::not_a_directory:
        return "it is not a directory; remove what stands there, or name another in CPIC_NODE_DIR";
    case directory_state::not_ours:
        return "it belongs to another user; name a directory of your own in CPIC_NODE_DIR, or, to use that user's "
               "node, the user in CPIC_NODE_USER";
    case directory_state::open_to_others:
        return "users beside its owner may write to it; run chmod go-w on it, or name another in CPIC_NODE_DIR";
    case directory_state::failed:
        return "it cannot be made or looked at; name another in CPIC_NODE_DIR";
    }
    return "";
}

} // namespace wire
