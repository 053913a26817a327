// shared_file.cpp - files in the node's directory that all programs of the node append to.
#include "client/shared_file.hpp"

#include "client/link.hpp"
#include "client/system.hpp"
#include "client/text.hpp"

#include <cstring>
#include <new>

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

// Records that wait for the broker of a node of another user.
struct early_record
{
    wire::node_file_kind kind;
    u32 size; // of the text that follows
};
alignas(early_record) char early[16384];
u32 early_used;
bool early_lost; // one had no room

void keep_early(wire::node_file_kind kind, const char *record, u32 size)
{
    const u32 room = (static_cast<u32>(sizeof(early_record)) + size + 7) / 8 * 8;
    if (room > sizeof early - early_used)
    {
        early_lost = true;
        return;
    }
    new (early + early_used) early_record{kind, size};
    std::memcpy(early + early_used + sizeof(early_record), record, size);
    early_used += room;
}

// The program is not connected, and only the broker may write the files.
bool waits_for_broker()
{
    char directory[wire::max_directory + 1];
    return broker.fd < 0 && wire::node_directory(directory) &&
           wire::directory_check(directory, false) == wire::directory_state::of_another;
}

} // namespace

void shared_files_reached(bool reached)
{
    wire::node_file lost = {wire::node_file_kind::problem_log, -1};
    for (u32 at = 0; at < early_used;)
    {
        early_record head;
        std::memcpy(&head, early + at, sizeof head);
        if (reached)
        {
            link_record(head.kind, early + at + sizeof head, head.size);
        }
        lost.kind = head.kind;
        at += (static_cast<u32>(sizeof head) + head.size + 7) / 8 * 8;
    }
    if (early_lost || (early_used != 0 && !reached))
    {
        warn(lost, reached ? "there was no room for them before the node was reached"
                           : wire::directory_advice(wire::directory_state::of_another));
    }
    early_used = 0;
    early_lost = false;
}

bool shared_file_prepare(wire::node_file &file, u32 size, u32 limit)
{
    return broker.of_another || (file.fd < 0 && waits_for_broker()) ||
           wire::node_file_prepare(files, file, size, limit);
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
    if (!broker.of_another && file.fd < 0)
    {
        keep_early(file.kind, record, size);
        return true;
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
