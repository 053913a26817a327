// system.cpp - the system calls, clock and memory of system.hpp.
#include "client/system.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace client {

namespace {

// Begins a call again for as long as signals interrupt it.
template <typename call_type>
auto uninterrupted(call_type call)
{
    auto result = call();
    while (result == -1 && errno == EINTR)
    {
        result = call();
    }
    return result;
}

// Makes a call that may raise `number`, a signal for this thread alone, and fail with `error`: the program gets no such
// signal for what we do, however it deals with its own.
template <typename call_type>
auto without_signal(int number, int error, call_type call)
{
    sigset_t one;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&one);
    sigaddset(&one, number);
    pthread_sigmask(SIG_BLOCK, &one, &before);
    sigpending(&pending);
    auto result = call();
    int why = errno;
    if (result < 0 && why == error && sigismember(&pending, number) == 0)
    {
        timespec at_once = {};
        uninterrupted([&] { return sigtimedwait(&one, nullptr, &at_once); });
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = why;
    return result;
}

} // namespace

void *sys_alloc(std::size_t size)
{
    return std::malloc(size);
}

void sys_free(void *memory)
{
    std::free(memory);
}

std::int64_t sys_monotonic()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

wall_time sys_wall_clock()
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return {now.tv_sec, static_cast<std::int32_t>(now.tv_nsec / 1000)};
}

int sys_clear_of_standard(int fd)
{
    if (fd < 0 || fd > STDERR_FILENO)
    {
        return fd;
    }
    int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    int error = errno;
    close(fd);
    errno = error;
    return moved;
}

int sys_open(const char *path, int flags, mode_t mode)
{
    return sys_clear_of_standard(
        uninterrupted([&] { return open(path, flags | O_CLOEXEC | O_LARGEFILE, mode); }));
}

int sys_close(int fd)
{
    return close(fd); // not begun again: the descriptor is gone in either case
}

ssize_t sys_read(int fd, void *buffer, std::size_t size)
{
    return uninterrupted([&] { return read(fd, buffer, size); });
}

ssize_t sys_write(int fd, const void *buffer, std::size_t size)
{
    return uninterrupted([&] { return write(fd, buffer, size); });
}

ssize_t sys_append(int fd, const iovec *pieces, int count)
{
    return without_signal(SIGXFSZ, EFBIG, [&] { return uninterrupted([&] { return writev(fd, pieces, count); }); });
}

void sys_complain(const char *text, std::size_t size)
{
    // Standard error may be a pipe that nobody reads, or a file that has its limit.
    without_signal(SIGXFSZ, EFBIG, [&] {
        return without_signal(SIGPIPE, EPIPE, [&] { return sys_write(STDERR_FILENO, text, size); });
    });
}

int sys_fstat(int fd, struct stat *found)
{
    return fstat(fd, found);
}

int sys_stat(const char *path, struct stat *found)
{
    return stat(path, found);
}

int sys_rename(const char *from, const char *to)
{
    return rename(from, to);
}

int sys_flock(int fd, int operation)
{
    return uninterrupted([&] { return flock(fd, operation); });
}

void *sys_map_page(int fd, std::size_t size)
{
    void *page = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
    return page == MAP_FAILED ? nullptr : page;
}

void *sys_map_shared(int fd, std::size_t size)
{
    void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

int sys_shared_memory(const char *name, std::size_t size)
{
    int fd = memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING);
    // A limit of file sizes counts for it as for any file.
    auto set_size = [&] { return ftruncate(fd, static_cast<off_t>(size)); };
    if (fd >= 0 && (without_signal(SIGXFSZ, EFBIG, set_size) != 0 ||
                    fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0))
    {
        close(fd);
        fd = -1;
    }
    return fd;
}

void sys_unmap_page(void *page, std::size_t size)
{
    munmap(page, size);
}

int sys_eventfd()
{
    return sys_clear_of_standard(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

int sys_epoll_create()
{
    return sys_clear_of_standard(epoll_create1(EPOLL_CLOEXEC));
}

int sys_epoll_ctl(int epoll, int operation, int fd, epoll_event *event)
{
    return epoll_ctl(epoll, operation, fd, event);
}

int sys_epoll_wait(int epoll, epoll_event *events, int count)
{
    return uninterrupted([&] { return epoll_wait(epoll, events, count, 0); });
}

int sys_poll(pollfd *fds, unsigned count, int timeout_ms)
{
    return poll(fds, count, timeout_ms);
}

int sys_socket()
{
    return sys_clear_of_standard(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

int sys_connect(int fd, const char *path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::size_t length = std::strlen(path);
    if (length >= sizeof address.sun_path)
    {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path, length);
    return uninterrupted([&] { return connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address); });
}

int sys_peer_uid(int fd, unsigned *uid)
{
    ucred peer;
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
    {
        return -1;
    }
    *uid = peer.uid;
    return 0;
}

ssize_t sys_recvmsg(int fd, msghdr *message, int flags)
{
    return uninterrupted([&] { return recvmsg(fd, message, flags | MSG_CMSG_CLOEXEC); });
}

ssize_t sys_receive(int fd, msghdr *message)
{
    return recvmsg(fd, message, MSG_CMSG_CLOEXEC);
}

int sys_block(int fd, int limit_ms)
{
    timeval limit = {limit_ms / 1000, limit_ms % 1000 * 1000};
    if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0)
    {
        return -1;
    }
    return fcntl(fd, F_SETFL, 0); // of the flags that can be set, O_NONBLOCK is the only one it has
}

int sys_shutdown_read(int fd)
{
    return shutdown(fd, SHUT_RD);
}

ssize_t sys_sendmsg(int fd, const msghdr *message, int flags)
{
    return uninterrupted([&] { return sendmsg(fd, message, flags | MSG_NOSIGNAL); });
}

void sys_sleep_ms(int milliseconds)
{
    timespec rest = {milliseconds / 1000, (milliseconds % 1000) * 1000000L};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR)
    {
    }
}

namespace {

// In the process in between: gives every signal its default action back, runs the program, waits for it. Between the
// two forks and exec only system calls are made: the other threads of the program do not exist here.
[[noreturn]] void run_in_between(const char *program, char *const *arguments, const sigset_t *none)
{
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; number++)
    {
        sigaction(number, &standard, nullptr);
    }
    pid_t child = static_cast<pid_t>(syscall(SYS_fork));
    if (child == 0)
    {
        int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        if (nothing >= 0)
        {
            dup2(nothing, STDIN_FILENO);
            dup2(nothing, STDOUT_FILENO);
        }
        sigprocmask(SIG_SETMASK, none, nullptr);
        execve(program, arguments, environ);
        _exit(127);
    }
    int status = 0;
    if (child < 0 || uninterrupted([&] { return waitpid(child, &status, 0); }) != child || !WIFEXITED(status))
    {
        _exit(126);
    }
    _exit(WEXITSTATUS(status));
}

} // namespace

// The process in between is made with no exit signal: the program gets no SIGCHLD for it, and neither wait() nor
// waitpid(-1) of the program sees it. What it runs in turn is its child, not the program's.
int sys_run(const char *program, char *const *arguments)
{
    sigset_t all;
    sigset_t before;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pid_t between = static_cast<pid_t>(syscall(SYS_clone, 0, nullptr, nullptr, nullptr, nullptr));
    if (between == 0)
    {
        run_in_between(program, arguments, &none);
    }
    int status = 0;
    bool ended = between > 0 && uninterrupted([&] { return waitpid(between, &status, __WCLONE); }) == between;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return ended && WIFEXITED(status) && WEXITSTATUS(status) < 126 ? WEXITSTATUS(status) : -1;
}

} // namespace client
