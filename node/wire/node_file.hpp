// node_file.hpp - a text file in a node's directory that several processes append to: the problem log, the audit log,
// the trace file. A record is one write at the end of the file, so records of different writers never mix. A file
// that would pass its limit is renamed to NAME.1, and a new one begun. Programs of the node's own user write
// themselves; for those of other users the broker writes.
//
// Nothing here waits for another process: one that is stopped in the middle of renaming keeps the others from renaming
// too, and the file grows past its limit until it goes on.
//
// `system` is the road to the system, so that each side keeps its own seam:
//
//   bool directory(char (&path)[max_directory + 1])   the node's directory, if this process may write there
//   int open(const char *path, int flags, mode_t mode), int close(int fd), int fstat(int fd, struct stat *found),
//   int stat(const char *path, struct stat *found), int rename(const char *from, const char *to),
//   int flock(int fd, int operation)                  as the calls of those names
//   ssize_t append(int fd, const iovec *pieces, int count)   writev()
//
// lock: whatever keeps two threads of one process from using the same record at once.
#pragma once

#include "wire/directory.hpp"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>

namespace wire {

enum class node_file_kind : std::uint32_t
{
    problem_log = 1,
    audit_log = 2,
    trace = 3,
};
inline constexpr std::uint32_t node_file_kinds = 3;

inline const char *node_file_name(node_file_kind kind)
{
    return kind == node_file_kind::problem_log ? "problem.log"
           : kind == node_file_kind::audit_log ? "audit.log"
                                               : "cpic.trc";
}

struct node_file
{
    node_file_kind kind;
    int fd;            // -1: not open
    bool torn = false; // the last record of this process was cut short, by a full disk say, and ends without a newline
};

template <class System>
bool node_file_path(System &system, const node_file &file, char (&path)[max_directory + 32], const char *suffix)
{
    char directory[max_directory + 1];
    if (!system.directory(directory))
    {
        return false;
    }
    std::snprintf(path, sizeof path, "%s/%s%s", directory, node_file_name(file.kind), suffix);
    return true;
}

template <class System>
void node_file_close(System &system, node_file &file)
{
    system.close(file.fd);
    file.fd = -1;
    file.torn = false;
}

template <class System>
bool node_file_open(System &system, node_file &file)
{
    char path[max_directory + 32];
    if (!node_file_path(system, file, path, ""))
    {
        errno = 0;
        return false;
    }
    file.fd = system.open(path, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    struct stat found;
    if (file.fd >= 0 && (system.fstat(file.fd, &found) != 0 || !S_ISREG(found.st_mode)))
    {
        node_file_close(system, file);
        errno = EINVAL;
    }
    return file.fd >= 0;
}

// The file is full: whoever gets its lock first renames it, the others find that it has been done.
template <class System>
void node_file_rotate(System &system, node_file &file)
{
    char path[max_directory + 32];
    char old[max_directory + 32];
    struct stat ours;
    struct stat there;
    if (node_file_path(system, file, path, "") && node_file_path(system, file, old, ".1") &&
        system.flock(file.fd, LOCK_EX | LOCK_NB) == 0 && system.fstat(file.fd, &ours) == 0 &&
        system.stat(path, &there) == 0 && ours.st_ino == there.st_ino && ours.st_dev == there.st_dev)
    {
        system.rename(path, old);
    }
    node_file_close(system, file); // gives the lock up as well
}

// Opens the file if it is not open, and makes room for a record of `size` bytes under `limit` (bytes; 0: none).
// False: it cannot be opened; errno says why, or, when that is 0, the node's directory cannot be used.
template <class System>
bool node_file_prepare(System &system, node_file &file, std::uint32_t size, std::uint32_t limit)
{
    // Three times: a new file may be full at once when many programs write.
    for (int attempt = 0; attempt < 3; attempt++)
    {
        struct stat found;
        if (file.fd < 0 && !node_file_open(system, file))
        {
            return false;
        }
        if (system.fstat(file.fd, &found) != 0 || found.st_nlink == 0)
        {
            node_file_close(system, file); // somebody has removed it
            continue;
        }
        // An empty file takes any record.
        if (limit == 0 || found.st_size == 0 || found.st_size + static_cast<off_t>(size) <= static_cast<off_t>(limit))
        {
            return true;
        }
        node_file_rotate(system, file);
    }
    return file.fd >= 0 || node_file_open(system, file);
}

// Appends a record, which ends with a newline, to the open file. After one that was cut short it begins a line of its
// own. False: not all of it could be written; errno says why.
template <class System>
bool node_file_append(System &system, node_file &file, const char *record, std::uint32_t size)
{
    static char newline = '\n';
    const iovec pieces[2] = {{&newline, 1}, {const_cast<char *>(record), size}};
    const int first = file.torn ? 0 : 1;
    const ssize_t written = system.append(file.fd, pieces + first, 2 - first);
    if (written <= 0)
    {
        return false;
    }
    const std::uint32_t of_record = static_cast<std::uint32_t>(written) - (file.torn ? 1 : 0);
    file.torn = of_record != 0 && of_record != size;
    errno = of_record != size ? ENOSPC : errno;
    return of_record == size;
}

} // namespace wire
