// records.cpp - appends records to the node's files.
#include "broker/records.hpp"

#include "broker/server.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace broker {

// The files' road to the system.
struct record_files::road
{
    const std::string &where;

    bool directory(char (&path)[wire::max_directory + 1])
    {
        std::snprintf(path, sizeof path, "%s", where.c_str());
        return true;
    }
    int open(const char *path, int flags, mode_t mode) { return ::open(path, flags, mode); }
    int close(int fd) { return ::close(fd); }
    int fstat(int fd, struct stat *found) { return ::fstat(fd, found); }
    int stat(const char *path, struct stat *found) { return ::stat(path, found); }
    int rename(const char *from, const char *to) { return ::rename(from, to); }
    int flock(int fd, int operation) { return ::flock(fd, operation); }
    ssize_t append(int fd, const iovec *pieces, int count) { return ::writev(fd, pieces, count); }
};

record_files::record_files(std::string directory) : directory_(std::move(directory))
{
    for (std::uint32_t i = 0; i < wire::node_file_kinds; ++i)
    {
        files_[i] = {static_cast<wire::node_file_kind>(i + 1), -1};
    }
}

record_files::~record_files()
{
    for (const wire::node_file &file : files_)
    {
        if (file.fd >= 0)
        {
            close(file.fd);
        }
    }
}

void record_files::append(wire::node_file_kind kind, std::string_view text, std::uint32_t limit)
{
    std::string record(text);
    std::replace_if(record.begin(), record.end(), [](char c) { return c != '\n' && (c < 0x20 || c > 0x7E); }, '.');
    if (record.empty() || record.back() != '\n')
    {
        record += '\n';
    }
    road system{directory_};
    wire::node_file &file = files_[static_cast<std::uint32_t>(kind) - 1];
    const std::uint32_t size = static_cast<std::uint32_t>(record.size());
    bool good = wire::node_file_prepare(system, file, size, limit) &&
                wire::node_file_append(system, file, record.data(), size);
    if (!good && !warned_)
    {
        warned_ = true;
        log_line("cannot write " + directory_ + "/" + wire::node_file_name(kind) + ": " + std::strerror(errno) +
                 " (records of programs of other users are lost)");
    }
}

} // namespace broker
