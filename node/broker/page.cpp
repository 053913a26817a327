// page.cpp - makes the control page.
#include "broker/page.hpp"

#include "wire/directory.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

namespace broker {

control_page_file::~control_page_file()
{
    if (!mark_.empty())
    {
        unlink(mark_.c_str());
    }
    if (content_ != nullptr)
    {
        if ((content_->life & wire::life_mask) != 0)
        {
            pthread_mutex_unlock(reinterpret_cast<pthread_mutex_t *>(&content_->life));
        }
        munmap(content_, wire::control_page_size);
    }
    if (reader_ >= 0)
    {
        close(reader_);
    }
}

bool control_page_file::open(const std::string &directory)
{
    int fd = memfd_create("cpicnode control page", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0)
    {
        return false;
    }
    void *mapped = MAP_FAILED;
    if (ftruncate(fd, wire::control_page_size) == 0)
    {
        mapped = mmap(nullptr, wire::control_page_size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    if (mapped == MAP_FAILED)
    {
        int trouble = errno;
        close(fd);
        errno = trouble;
        return false;
    }
    content_ = static_cast<wire::control_page *>(mapped);
    show_life();
    mark_ = directory + "/" + wire::trace_mark;
    // Kernels before 5.1 do not have F_SEAL_FUTURE_WRITE; the read-only descriptor has to do there.
    int size_seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
    if (fcntl(fd, F_ADD_SEALS, size_seals | F_SEAL_FUTURE_WRITE) != 0)
    {
        fcntl(fd, F_ADD_SEALS, size_seals);
    }
    char path[40];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    reader_ = ::open(path, O_RDONLY | O_CLOEXEC);
    if (reader_ < 0)
    {
        reader_ = fd; // no /proc: the seals protect the page
        return true;
    }
    close(fd);
    return true;
}

// Takes the mutex whose word tells programs that the broker lives. Without it they learn of its end by their sockets.
void control_page_file::show_life()
{
    static_assert(sizeof(pthread_mutex_t) <= sizeof content_->life + sizeof content_->rest_of_mutex);
    pthread_mutexattr_t kind;
    pthread_mutexattr_init(&kind);
    auto *mutex = reinterpret_cast<pthread_mutex_t *>(&content_->life);
    if (pthread_mutexattr_setrobust(&kind, PTHREAD_MUTEX_ROBUST) == 0 &&
        pthread_mutexattr_setpshared(&kind, PTHREAD_PROCESS_SHARED) == 0 && pthread_mutex_init(mutex, &kind) == 0)
    {
        pthread_mutex_lock(mutex);
    }
    pthread_mutexattr_destroy(&kind);
}

void control_page_file::mark_trace() const
{
    if ((content_->trace_control[wire::trace_byte] & wire::trace_bit) == 0)
    {
        unlink(mark_.c_str());
        return;
    }
    int mark = ::open(mark_.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (mark >= 0)
    {
        close(mark);
    }
}

} // namespace broker
