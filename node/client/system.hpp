// system.hpp - the one seam between the client library and the system: every system call, the clock and the memory of
// the library go through here, so that a test which links another system.cpp can make each of them fail in turn.
//
// The calls are those of the same name and return what those return, errno included, but for one thing: a call that a
// signal interrupted is begun again wherever that can be done without anyone noticing. They take no lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

namespace client {

// Memory; the contents are undefined. Null when there is none.
void *sys_alloc(std::size_t size);
void sys_free(void *memory);

// Nanoseconds of the monotonic clock, for time limits.
std::int64_t sys_monotonic();
inline std::uint64_t sys_ticks() // goes up all the time, 10^9 to 5 * 10^9 a second; had for a few nanoseconds
{
    return __builtin_ia32_rdtsc();
}

// Wall clock, for logs and trace: seconds and microseconds.
struct wall_time
{
    std::int64_t seconds;
    std::int32_t microseconds;
};
wall_time sys_wall_clock();

// Descriptors are always made close-on-exec, and never with the numbers 0 to 2: a program that has closed its standard
// descriptors and prints all the same would print into a conversation, or to the broker.
int sys_clear_of_standard(int fd); // the same file under a higher number, where fd is one of the three; -1: there is none
int sys_open(const char *path, int flags, mode_t mode);
int sys_close(int fd);
ssize_t sys_read(int fd, void *buffer, std::size_t size);
ssize_t sys_write(int fd, const void *buffer, std::size_t size);
ssize_t sys_append(int fd, const iovec *pieces, int count); // writev(); no SIGXFSZ where a limit of file sizes is met
void sys_complain(const char *text, std::size_t size);      // to standard error; no SIGPIPE when nobody reads it
int sys_fstat(int fd, struct stat *found);
int sys_stat(const char *path, struct stat *found);
int sys_rename(const char *from, const char *to);
int sys_flock(int fd, int operation);
int sys_shared_memory(const char *name, std::size_t size); // all zero, sealed: its size is what it is; no SIGXFSZ
void *sys_map_page(int fd, std::size_t size);   // read-only, shared; null when it cannot be done
void *sys_map_shared(int fd, std::size_t size); // the same, to be written
void sys_unmap_page(void *page, std::size_t size);

int sys_eventfd();
int sys_epoll_create();
int sys_epoll_ctl(int epoll, int operation, int fd, epoll_event *event);
int sys_epoll_wait(int epoll, epoll_event *events, int count); // never waits
int sys_poll(pollfd *fds, unsigned count, int timeout_ms);     // EINTR is returned: the time limit is the caller's

int sys_socket(); // Unix SOCK_SEQPACKET, non-blocking
int sys_connect(int fd, const char *path);
int sys_peer_uid(int fd, unsigned *uid);
ssize_t sys_recvmsg(int fd, msghdr *message, int flags);
ssize_t sys_receive(int fd, msghdr *message); // may wait; EINTR is returned: the time limit would begin again
int sys_block(int fd, int limit_ms);          // from now on the descriptor blocks, in a receive at most so long
int sys_shutdown_read(int fd);
ssize_t sys_sendmsg(int fd, const msghdr *message, int flags);

void sys_sleep_ms(int milliseconds);

// Runs a program to its end without the calling program noticing: no SIGCHLD, nothing that its wait() could collect.
// Its standard error is the caller's, input and output are /dev/null. Its exit status, or -1 when it could not be run
// or was ended by a signal.
int sys_run(const char *program, char *const *arguments);

} // namespace client
