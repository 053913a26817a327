// shared_file.cpp - files in the node's directory that all programs of the node append to.
#include "client/shared_file.hpp"

#include "client/link.hpp"
#include "client/system.hpp"
#include "client/text.hpp"

#include <cstring>

namespace client {

namespace {

// The one warning of this process about each kind of trouble.
bool warned;

void warn(const wire::node_file &file, const char *why)
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
    put_text(line, wire::node_file_name(file.kind));
    put_text(line, ": ");
    put_text(line, why);
    put_text(line, " (records are lost; conversations go on)");
    bytes[line.length++] = '\n';
    sys_complain(bytes, line.length);
}

// The files' road to the system.
struct files_system
{
    bool directory(char (&path)[wire::max_directory + 1])
    {
        return wire::node_directory(path) && wire::directory_check(path, true) == wire::directory_state::good;
    }
    int open(const char *path, int flags, mode_t mode) { return sys_open(path, flags, mode); }
    int close(int fd) { return sys_close(fd); }
    int fstat(int fd, struct stat *found) { return sys_fstat(fd, found); }
    int stat(const char *path, struct stat *found) { return sys_stat(path, found); }
    int rename(const char *from, const char *to) { return sys_rename(from, to); }
    int flock(int fd, int operation) { return sys_flock(fd, operation); }
    ssize_t append(int fd, const iovec *pieces, int count) { return sys_append(fd, pieces, count); }
};
files_system files;

} // namespace

bool shared_file_prepare(wire::node_file &file, u32 size, u32 limit)
{
    return broker.of_another || wire::node_file_prepare(files, file, size, limit);
}

bool shared_file_append(wire::node_file &file, const char *record, u32 size, u32 limit)
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
    if (broker.of_another)
    {
        if (!link_record(file.kind, record, size))
        {
            warn(file, "the node does not take them fast enough");
            return false;
        }
        return true;
    }
    if (!wire::node_file_append(files, file, record, size))
    {
        warn(file, std::strerror(errno));
        return false;
    }
    return true;
}

} // namespace client
