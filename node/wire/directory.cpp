// directory.cpp - the rule of directory.hpp.
#include "wire/directory.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace wire {

bool node_directory(char (&path)[max_directory + 1])
{
    const char *own = std::getenv("CPIC_NODE_DIR");
    const char *runtime = std::getenv("XDG_RUNTIME_DIR");
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
    if (found.st_uid != geteuid())
    {
        return directory_state::not_ours;
    }
    return (found.st_mode & (S_IWGRP | S_IWOTH)) != 0 ? directory_state::open_to_others : directory_state::good;
}

const char *directory_advice(directory_state state)
{
    switch (state)
    {
    case directory_state::good:
        return "";
    case directory_state::missing:
        return "it does not exist; make it, or name another in CPIC_NODE_DIR";
    case directory_state::not_a_directory:
        return "it is not a directory; remove what stands there, or name another in CPIC_NODE_DIR";
    case directory_state::not_ours:
        return "it belongs to another user; name a directory of your own in CPIC_NODE_DIR";
    case directory_state::open_to_others:
        return "other users may write to it; run chmod go-w on it, or name another in CPIC_NODE_DIR";
    case directory_state::failed:
        return "it cannot be made or looked at; name another in CPIC_NODE_DIR";
    }
    return "";
}

} // namespace wire
