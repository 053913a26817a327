// log.cpp - writes the broker's log without ever waiting for whoever reads it.
#include "broker/log.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <string_view>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr unsigned lines_of_a_cause = 10;   // within a second
constexpr std::int64_t second = 1000;       // milliseconds
constexpr std::int64_t size_check = 1000;   // milliseconds between looks at what started programs have added
constexpr std::int64_t stuck_check = 1000;  // milliseconds until a reader who was too slow is tried again

// What has been said of one cause within its second.
struct flow
{
    std::int64_t begun = 0;
    unsigned lines = 0;
    unsigned long long left_out = 0;
    std::string last; // of those that were left out
};

enum class road
{
    unknown,
    file,     // writing does not wait for anybody
    socket,
    reopened, // a pipe or terminal, through a non-blocking description of our own
    polled,   // one that cannot be opened again
};

struct
{
    std::map<std::string, flow> flows;
    road way = road::unknown;
    int out = STDERR_FILENO;
    std::string file;         // "": standard error is somebody else's
    off_t limit = 0;
    std::int64_t checked = 0; // when the file's size was last looked at
    std::string rest;         // of a line that has gone out in part
    unsigned long long lost = 0;
    std::int64_t retry = -1;  // when to try again; -1: with the next line
} state;

std::int64_t now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
}

std::string stamped(const std::string &text)
{
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    tm parts;
    localtime_r(&time.tv_sec, &parts);
    char head[80];
    std::size_t size = std::strftime(head, sizeof head, "%Y-%m-%d %H:%M:%S", &parts);
    std::snprintf(head + size, sizeof head - size, ".%06ld cpicnoded[%d]: ", time.tv_nsec / 1000, getpid());
    return head + text + "\n";
}

// Other processes have standard error too: what holds for a description holds for all of them, so it stays as it is.
void find_road()
{
    struct stat found;
    state.out = STDERR_FILENO;
    if (fstat(STDERR_FILENO, &found) != 0 || S_ISREG(found.st_mode))
    {
        state.way = road::file;
    }
    else if (S_ISSOCK(found.st_mode))
    {
        state.way = road::socket;
    }
    else
    {
        int own = ::open("/proc/self/fd/2", O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        state.way = own >= 0 ? road::reopened : road::polled;
        state.out = own >= 0 ? own : STDERR_FILENO;
    }
}

// Copies the file to FILE.1 and empties it. It stays the same file, because programs that the broker has started write
// to it as well, at its end: in a file that is only renamed they would go on without limit.
void put_aside(off_t size)
{
    int from = ::open("/proc/self/fd/2", O_RDONLY | O_CLOEXEC);
    int to = ::open((state.file + ".1").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                    0600);
    bool good = from >= 0 && to >= 0;
    off_t at = std::max<off_t>(0, size - state.limit);
    while (good && at < size)
    {
        ssize_t copied = sendfile(to, from, &at, static_cast<std::size_t>(size - at));
        good = copied > 0 || (copied < 0 && errno == EINTR);
    }
    int trouble = errno;
    for (int fd : {from, to})
    {
        if (fd >= 0)
        {
            close(fd);
        }
    }
    [[maybe_unused]] int emptied = ftruncate(STDERR_FILENO, 0); // what fails here fails again with the next line
    if (!good)
    {
        std::string line = stamped("what this log held could not be kept in " + state.file + ".1: " +
                                   std::strerror(trouble));
        [[maybe_unused]] ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    }
}

void check_size(off_t more)
{
    struct stat found;
    if (!state.file.empty() && fstat(STDERR_FILENO, &found) == 0 && found.st_size != 0 &&
        found.st_size + more > state.limit)
    {
        put_aside(found.st_size);
    }
}

// Writes what goes out now; the number of bytes.
std::size_t put(std::string_view bytes)
{
    if (state.way == road::unknown)
    {
        find_road();
    }
    check_size(static_cast<off_t>(bytes.size()));
    std::size_t done = 0;
    while (done < bytes.size())
    {
        std::size_t size = bytes.size() - done;
        ssize_t written;
        if (state.way == road::socket)
        {
            written = send(state.out, bytes.data() + done, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        }
        else
        {
            pollfd ready{state.out, POLLOUT, 0};
            if (state.way == road::polled && poll(&ready, 1, 0) == 0)
            {
                written = -1;
                errno = EAGAIN;
            }
            else
            {
                // A pipe that is ready takes so much without waiting.
                written = write(state.out, bytes.data() + done,
                                state.way == road::polled ? std::min<std::size_t>(size, PIPE_BUF) : size);
            }
        }
        if (written < 0 && errno == EINTR)
        {
            continue;
        }
        if (written <= 0)
        {
            // Of other troubles (a full disk, a reader that has gone) nothing tells when they are over.
            state.retry = written < 0 && errno == EAGAIN ? now() + stuck_check : -1;
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    return done;
}

// Says what was held up. True: nothing is in the way of the next line.
bool caught_up()
{
    state.retry = -1;
    if (state.rest.empty() && state.lost > 0)
    {
        std::string note = stamped(std::to_string(state.lost) + " lines of this log were lost here: there was no room");
        std::size_t done = put(note);
        if (done == 0)
        {
            return false;
        }
        state.lost = 0;
        state.rest = note.substr(done);
        return state.rest.empty();
    }
    if (!state.rest.empty())
    {
        state.rest.erase(0, put(state.rest));
        return state.rest.empty() && (state.lost == 0 || caught_up());
    }
    return true;
}

void say_left_out(flow &one)
{
    if (one.left_out > 0)
    {
        log_line("... and " + std::to_string(one.left_out) + " more like this: " + one.last);
    }
    one = {};
}

} // namespace

void log_line(const std::string &text)
{
    if (!caught_up())
    {
        ++state.lost;
        return;
    }
    std::string line = stamped(text);
    std::size_t done = put(line);
    if (done == 0)
    {
        ++state.lost;
    }
    else
    {
        state.rest = line.substr(done);
    }
}

void log_limited(const std::string &cause, const std::string &text)
{
    flow &one = state.flows[cause];
    if (now() - one.begun >= second)
    {
        say_left_out(one);
        one.begun = now();
    }
    if (one.lines < lines_of_a_cause)
    {
        ++one.lines;
        log_line(text);
        return;
    }
    ++one.left_out;
    one.last = text;
}

bool log_into(const std::string &file, off_t limit)
{
    int fd = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    struct stat found;
    if (fd < 0 || fstat(fd, &found) != 0)
    {
        return false;
    }
    if (!S_ISREG(found.st_mode))
    {
        close(fd);
        errno = EINVAL;
        return false;
    }
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    close(fd);
    state.way = road::file;
    state.out = STDERR_FILENO;
    state.file = file;
    state.limit = limit;
    check_size(0);
    return true;
}

std::int64_t log_due()
{
    std::int64_t due = state.retry;
    for (const auto &[cause, one] : state.flows)
    {
        if (one.left_out > 0)
        {
            due = due < 0 ? one.begun + second : std::min(due, one.begun + second);
        }
    }
    return due < 0 ? -1 : std::max<std::int64_t>(due - now(), 0);
}

void log_tick(bool ending)
{
    std::int64_t time = now();
    for (auto &[cause, one] : state.flows)
    {
        if (one.left_out > 0 && (ending || time - one.begun >= second))
        {
            say_left_out(one);
        }
    }
    if (state.retry >= 0 && (ending || state.retry <= time))
    {
        caught_up();
    }
    if (time - state.checked >= size_check)
    {
        state.checked = time;
        check_size(0);
    }
}

} // namespace broker
