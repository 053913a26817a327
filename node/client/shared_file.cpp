// shared_file.cpp - files in the node's directory that all programs of the node append to.
#include "client/shared_file.hpp"

#include "client/text.hpp"
#include "wire/directory.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace client {

namespace {

constexpr std::size_t path_room = wire::max_directory + 32;

// The one warning of this process about each kind of trouble.
bool warned;

void warn(const shared_file &file, const char *why)
{
    if (warned)
    {
        return;
    }
    warned = true;
    char bytes[400];
    text_line line = {bytes, sizeof bytes - 1, 0, false};
    char directory[wire::max_directory + 1];
    put_text(line, program_invocation_short_name);
    put_text(line, ": cannot write ");
    put_text(line, wire::node_directory(directory) ? directory : "the node's directory");
    put_char(line, '/');
    put_text(line, file.name);
    put_text(line, ": ");
    put_text(line, why);
    put_text(line, " (records are lost; conversations go on)");
    bytes[line.length++] = '\n';
    sys_complain(bytes, line.length);
}

bool path_of(const shared_file &file, char (&path)[path_room], const char *suffix)
{
    char directory[wire::max_directory + 1];
    if (!wire::node_directory(directory) || wire::directory_check(directory, true) != wire::directory_state::good)
    {
        return false;
    }
    std::snprintf(path, sizeof path, "%s/%s%s", directory, file.name, suffix);
    return true;
}

bool open_file(shared_file &file)
{
    char path[path_room];
    if (!path_of(file, path, ""))
    {
        errno = 0;
        return false;
    }
    file.fd = sys_open(path, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600);
    struct stat found;
    if (file.fd >= 0 && (sys_fstat(file.fd, &found) != 0 || !S_ISREG(found.st_mode)))
    {
        sys_close(file.fd);
        file.fd = -1;
        errno = EINVAL;
    }
    return file.fd >= 0;
}

void close_file(shared_file &file)
{
    sys_close(file.fd);
    file.fd = -1;
}

// The file is full: whoever gets its lock first renames it, the others find that it has been done.
void rotate(shared_file &file)
{
    char path[path_room];
    char old[path_room];
    struct stat ours;
    struct stat there;
    if (path_of(file, path, "") && path_of(file, old, ".1") && sys_flock(file.fd, LOCK_EX) == 0 &&
        sys_fstat(file.fd, &ours) == 0 && sys_stat(path, &there) == 0 && ours.st_ino == there.st_ino &&
        ours.st_dev == there.st_dev)
    {
        sys_rename(path, old);
    }
    close_file(file); // gives the lock up as well
}

} // namespace

bool shared_file_prepare(shared_file &file, u32 size, u32 limit)
{
    // Three times: a new file may be full at once when many programs write.
    for (int attempt = 0; attempt < 3; attempt++)
    {
        struct stat found;
        if (file.fd < 0 && !open_file(file))
        {
            return false;
        }
        if (sys_fstat(file.fd, &found) != 0 || found.st_nlink == 0)
        {
            close_file(file); // somebody has removed it
            continue;
        }
        // An empty file takes any record.
        if (limit == 0 || found.st_size == 0 || found.st_size + static_cast<off_t>(size) <= static_cast<off_t>(limit))
        {
            return true;
        }
        rotate(file);
    }
    return file.fd >= 0 || open_file(file);
}

bool shared_file_append(shared_file &file, const char *record, u32 size, u32 limit)
{
    if (!shared_file_prepare(file, size, limit))
    {
        char directory[wire::max_directory + 1];
        const char *why = errno != 0 ? std::strerror(errno) : "its name is too long or not absolute";
        if (errno == 0 && wire::node_directory(directory))
        {
            why = wire::directory_advice(wire::directory_check(directory, false));
        }
        warn(file, why);
        return false;
    }
    ssize_t written = sys_write(file.fd, record, size);
    if (written != static_cast<ssize_t>(size))
    {
        warn(file, written < 0 ? std::strerror(errno) : "the disk is full");
        return false;
    }
    return true;
}

} // namespace client
