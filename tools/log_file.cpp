// log_file.cpp - reading logs and trace files.
#include "log_file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {

namespace {

constexpr std::size_t block_size = 65536;

// Bytes at an offset, fewer when the file ends there or cannot be read.
std::string read_at(int fd, off_t offset, std::size_t size)
{
    std::string bytes(size, 0);
    std::size_t have = 0;
    while (have < size)
    {
        ssize_t got = pread(fd, bytes.data() + have, size - have, offset + static_cast<off_t>(have));
        if (got == 0 || (got < 0 && errno != EINTR))
        {
            break;
        }
        have += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    bytes.resize(have);
    return bytes;
}

} // namespace

log_file::~log_file()
{
    close();
}

void log_file::close()
{
    if (fd_ >= 0)
    {
        ::close(fd_);
    }
    fd_ = -1;
    go_to(0);
}

bool log_file::open(const std::string &path, std::string &trouble)
{
    close();
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); // something else may stand there
    struct stat status;
    if (fd < 0)
    {
        const int error = errno;
        trouble = path + " cannot be read: " + std::strerror(error) +
                  (error == EACCES ? "; the files of a node belong to its user" : "");
        return error == ENOENT;
    }
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
    {
        trouble = path + " is no file";
        ::close(fd);
        return false;
    }
    fd_ = fd;
    return true;
}

off_t log_file::size() const
{
    struct stat status;
    return fd_ >= 0 && fstat(fd_, &status) == 0 ? status.st_size : 0;
}

bool log_file::same_as(const log_file &other) const
{
    struct stat ours;
    struct stat theirs;
    return fd_ >= 0 && other.fd_ >= 0 && fstat(fd_, &ours) == 0 && fstat(other.fd_, &theirs) == 0 &&
           ours.st_ino == theirs.st_ino && ours.st_dev == theirs.st_dev;
}

bool log_file::is_at(const std::string &path) const
{
    struct stat ours;
    struct stat there;
    if (stat(path.c_str(), &there) != 0)
    {
        return true;
    }
    return fd_ >= 0 && fstat(fd_, &ours) == 0 && ours.st_ino == there.st_ino && ours.st_dev == there.st_dev;
}

last_part log_file::find_last(file_kind kind, std::size_t wanted, bool by_records) const
{
    std::size_t lines = 0;
    std::size_t records = 0;
    std::size_t before = 0; // lines since a record began, going backwards
    std::string behind;     // the beginning of what follows the block
    off_t begin = size();
    if (wanted == 0)
    {
        return {begin, 0, 0};
    }
    const off_t end = begin;
    while (begin > 0)
    {
        const std::size_t here = std::min(block_size, static_cast<std::size_t>(begin));
        begin -= static_cast<off_t>(here);
        std::string block = read_at(fd_, begin, here);
        block.resize(here); // made shorter meanwhile
        block += behind;
        std::string_view text = block;
        // Every line end in this block, and the beginning of the file, is where a line may begin.
        for (std::size_t place = here; place > 0 || begin == 0;)
        {
            const void *found = place > 0 ? memrchr(block.data(), '\n', place) : nullptr;
            if (found == nullptr && begin > 0)
            {
                break;
            }
            place = found == nullptr ? 0 : static_cast<std::size_t>(static_cast<const char *>(found) - block.data());
            const std::size_t first = found == nullptr ? 0 : place + 1;
            if (begin + static_cast<off_t>(first) < end)
            {
                ++lines;
                ++before;
                std::string_view line = text.substr(first, beginning_size);
                if (begins_record(kind, line.substr(0, line.find('\n'))))
                {
                    ++records;
                    before = 0;
                    if ((by_records ? records : lines) >= wanted)
                    {
                        return {begin + static_cast<off_t>(first), 0, wanted};
                    }
                }
            }
            if (found == nullptr)
            {
                break;
            }
        }
        behind = block.substr(0, beginning_size);
    }
    const std::size_t all = by_records ? records + before : lines;
    const std::size_t more = all > wanted ? all - wanted : 0;
    return {0, std::min(before, more), std::min(all, wanted)};
}

void log_file::go_to(off_t offset)
{
    at_ = offset;
    rest_.clear();
}

bool log_file::read_lines(off_t until, const std::function<void(std::string_view)> &line)
{
    if (until < at_)
    {
        go_to(0);
    }
    bool some = false;
    while (fd_ >= 0 && at_ < until)
    {
        std::string block = read_at(fd_, at_, std::min(block_size, static_cast<std::size_t>(until - at_)));
        if (block.empty())
        {
            break;
        }
        some = true;
        at_ += static_cast<off_t>(block.size());
        std::string_view text = block;
        for (std::size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1))
        {
            if (rest_.empty())
            {
                line(text.substr(0, end));
                continue;
            }
            rest_ += text.substr(0, end);
            line(rest_);
            rest_.clear();
        }
        rest_ += text;
    }
    return some;
}

void log_file::read_rest(const std::function<void(std::string_view)> &line)
{
    if (!rest_.empty())
    {
        line(rest_);
        rest_.clear();
    }
}

} // namespace tool
