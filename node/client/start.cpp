// start.cpp - reaching the broker; starting exactly one when none runs, however many programs want one at once.
#include "client/start.hpp"

#include "client/problems.hpp"
#include "client/system.hpp"
#include "wire/broker.hpp"
#include "wire/directory.hpp"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace client {

namespace {

enum class reached
{
    yes,
    nobody, // no broker listens there
    failed, // somebody is there, or the system is short of something
};

// A broker that is stopped, or has a long queue of new programs, gets this many milliseconds.
constexpr int connect_patience = 5000;

reached connect_once(const char *path, int &fd)
{
    fd = sys_socket();
    if (fd < 0)
    {
        report_problem(problem_no_connection, errno, "the system gives no socket: ", std::strerror(errno));
        return reached::failed;
    }
    int waited = 0;
    while (sys_connect(fd, path) != 0)
    {
        int why = errno;
        if (why == EAGAIN && waited < connect_patience)
        {
            sys_sleep_ms(5);
            waited += 5;
            continue;
        }
        sys_close(fd);
        fd = -1;
        if (why == ENOENT || why == ECONNREFUSED)
        {
            return reached::nobody;
        }
        report_problem(problem_no_connection, why, "connecting to the broker: ", std::strerror(why));
        return reached::failed;
    }
    unsigned uid;
    if (sys_peer_uid(fd, &uid) != 0 || !wire::user_trusted(uid))
    {
        report_problem(problem_wrong_broker, uid, "the broker of this directory runs as another user: ", path);
        sys_close(fd);
        fd = -1;
        return reached::failed;
    }
    return reached::yes;
}

bool runnable(const char *path)
{
    return access(path, X_OK) == 0;
}

// Where cpicnoded is: CPIC_NODED; beside this library, as it is built and as it is installed; PATH. The variables do
// not count in a set-user-ID program: they would let its caller choose what it runs.
bool find_program(char (&path)[PATH_MAX])
{
    const char *named = secure_getenv("CPIC_NODED");
    if (named != nullptr && *named != 0)
    {
        int length = std::snprintf(path, sizeof path, "%s", named);
        return length < static_cast<int>(sizeof path) && runnable(path);
    }
    Dl_info self;
    const char *slash;
    if (dladdr(reinterpret_cast<const void *>(&connect_once), &self) != 0 && self.dli_fname != nullptr &&
        (slash = std::strrchr(self.dli_fname, '/')) != nullptr)
    {
        constexpr const char *places[] = {"../bin", "../sbin", "../libexec/cpic", "."};
        for (const char *place : places)
        {
            int length = std::snprintf(path, sizeof path, "%.*s%s/cpicnoded",
                                       static_cast<int>(slash + 1 - self.dli_fname), self.dli_fname, place);
            if (length < static_cast<int>(sizeof path) && runnable(path))
            {
                return true;
            }
        }
    }
    const char *search = secure_getenv("PATH");
    while (search != nullptr && *search != 0)
    {
        const char *end = std::strchr(search, ':');
        int size = end == nullptr ? static_cast<int>(std::strlen(search)) : static_cast<int>(end - search);
        int length = std::snprintf(path, sizeof path, "%.*s/cpicnoded", size, search);
        if (size > 0 && length < static_cast<int>(sizeof path) && runnable(path))
        {
            return true;
        }
        search = end == nullptr ? nullptr : end + 1;
    }
    return false;
}

// Somebody who has the lock for starting, and starts no broker all the same, gets this many milliseconds: it may have
// been stopped, and the process-wide lock is held here.
constexpr int start_patience = 10000;

// Waits for the lock for starting a broker, and for a broker, whichever comes first. nobody: the lock is had.
reached await_turn(int lock, const char *lock_path, const char *socket_path, int &fd)
{
    constexpr int pause = 20;
    const std::int64_t deadline = sys_monotonic() + start_patience * 1000000LL;
    while (sys_flock(lock, LOCK_EX | LOCK_NB) != 0)
    {
        if (errno != EWOULDBLOCK)
        {
            report_problem(problem_no_broker, errno, "the lock for starting a broker cannot be had: ", lock_path);
            return reached::failed;
        }
        if (sys_monotonic() >= deadline)
        {
            report_problem(problem_no_broker, EWOULDBLOCK,
                           "another program has held the lock for starting a broker all the time, and started none: ",
                           lock_path);
            return reached::failed;
        }
        sys_sleep_ms(pause);
        const reached meanwhile = connect_once(socket_path, fd);
        if (meanwhile != reached::nobody)
        {
            return meanwhile;
        }
    }
    return connect_once(socket_path, fd);
}

// Starts a broker, unless somebody else has done so while this program waited for its turn.
reached start_broker(const char *directory, const char *socket_path, int &fd)
{
    char lock_path[wire::max_directory + 16];
    std::snprintf(lock_path, sizeof lock_path, "%s/start.lock", directory);
    int lock = sys_open(lock_path, O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
    if (lock < 0)
    {
        report_problem(problem_no_broker, errno, "the lock for starting a broker cannot be had: ", lock_path);
        return reached::failed;
    }
    reached result = await_turn(lock, lock_path, socket_path, fd);
    if (result == reached::nobody)
    {
        char program[PATH_MAX];
        if (!find_program(program))
        {
            report_problem(problem_no_broker, 0, "cpicnoded is not to be found; name it in ", "CPIC_NODED");
            result = reached::failed;
        }
        else
        {
            char start[] = "--start";
            char dir[] = "--dir";
            char named[wire::max_directory + 1];
            std::snprintf(named, sizeof named, "%s", directory);
            char *arguments[] = {program, start, dir, named, nullptr};
            int status = sys_run(program, arguments);
            result = status == 0 ? connect_once(socket_path, fd) : reached::failed;
            if (result != reached::yes)
            {
                report_problem(problem_no_broker, static_cast<unsigned>(status),
                               "no broker could be started; broker.log in the node's directory says why: ", program);
            }
        }
    }
    sys_close(lock); // gives the lock up as well
    return result;
}

} // namespace

int broker_reach(bool &of_another)
{
    char directory[wire::max_directory + 1];
    if (!wire::node_directory(directory))
    {
        report_problem(problem_no_directory, 0, "the name of the node's directory is too long or not absolute", "");
        return -1;
    }
    wire::directory_state state = wire::directory_check(directory, true);
    of_another = state == wire::directory_state::of_another;
    if (state != wire::directory_state::good && !of_another)
    {
        report_problem(problem_no_directory, static_cast<unsigned>(state), "the node's directory: ",
                       wire::directory_advice(state));
        return -1;
    }
    char path[wire::max_directory + 16];
    std::snprintf(path, sizeof path, "%s/%s", directory, wire::socket_name);
    int fd = -1;
    reached result = connect_once(path, fd);
    if (result == reached::nobody && of_another)
    {
        report_problem(problem_no_broker, 0, "no node runs there, and only the owner of the directory can start one: ",
                       directory);
    }
    else if (result == reached::nobody)
    {
        result = start_broker(directory, path, fd);
    }
    return result == reached::yes ? fd : -1;
}

} // namespace client
