// server_listener.cpp - the listening socket: how it comes, who gets in, and how the broker leaves without letting
// anybody down who has connected at the last moment. One thread; the broker's lock file is held throughout, so the
// socket's path belongs to us.
#include "broker/server.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr int connections_at_once = 64; // accepted before others have their turn

constexpr milliseconds name_time = 60'000; // before the name of another user is looked up again
constexpr std::size_t max_names = 1'000;   // that are kept

} // namespace

// The system may have to ask another machine for a name, and everybody waits meanwhile; so it is not asked each time.
const std::string &server::name_of_user(std::uint32_t uid)
{
    auto known = users_.find(uid);
    bool owner = uid == geteuid() || uid == 0;
    if (known != users_.end() && (owner || now() < known->second.since + name_time))
    {
        return known->second.name;
    }
    if (users_.size() >= max_names)
    {
        users_.clear();
    }
    char buffer[4096];
    passwd entry;
    passwd *found = nullptr;
    bool good = getpwuid_r(uid, &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr;
    return (users_[uid] = {good ? found->pw_name : std::to_string(uid), now()}).name;
}

bool server::open_listener(std::string &trouble)
{
    if (options_.listener >= 0)
    {
        listener_ = options_.listener;
        fcntl(listener_, F_SETFL, fcntl(listener_, F_GETFL) | O_NONBLOCK);
        fcntl(listener_, F_SETFD, FD_CLOEXEC);
        if (!watch(listener_, watched::listener, 0, EPOLLIN))
        {
            trouble = "the socket that the service manager has handed over cannot be watched";
            return false;
        }
        return true;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = options_.directory + "/" + wire::socket_name;
    if (path.size() >= sizeof address.sun_path)
    {
        trouble = "the path " + path + " is too long for a socket; name a shorter directory in CPIC_NODE_DIR";
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size());
    unlink(path.c_str());
    listener_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (listener_ < 0 || bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        chmod(path.c_str(), 0600) != 0 || listen(listener_, SOMAXCONN) != 0 ||
        !watch(listener_, watched::listener, 0, EPOLLIN))
    {
        trouble = "the socket " + path + " cannot be made (" + std::strerror(errno) +
                  "); look at the directory's owner, mode and free space";
        return false;
    }
    own_socket_ = true;
    open_to_users();
    return true;
}

// Lets users beside our own up to the socket when the configuration lets any of them in; who they are is looked at when
// they connect. The directory is opened for passing through, not for looking around.
void server::open_to_users() const
{
    bool others = exchange_.settings().lets_others_in();
    if (own_socket_)
    {
        chmod((options_.directory + "/" + wire::socket_name).c_str(), others ? 0666 : 0600);
    }
    struct stat status;
    if (!others || stat(options_.directory.c_str(), &status) != 0)
    {
        return;
    }
    chmod(options_.directory.c_str(), (status.st_mode & 07777) | S_IXGRP | S_IXOTH);
    for (std::size_t end = options_.directory.rfind('/'); end != 0 && end != std::string::npos;
         end = options_.directory.rfind('/', end - 1))
    {
        std::string above = options_.directory.substr(0, end);
        if (stat(above.c_str(), &status) == 0 && (status.st_mode & S_IXOTH) == 0)
        {
            log_line("warning: the configuration lets other users in, but " + above +
                     " does not let them through; run chmod o+x on it, or give the node another directory");
        }
    }
}

bool server::accept_one(int fd)
{
    ucred who;
    socklen_t size = sizeof who;
    bool good = getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &who, &size) == 0;
    peer identity{good ? who.uid : 0, good ? who.pid : 0, good ? name_of_user(who.uid) : std::string(), false};
    bool owner = good && (who.uid == geteuid() || who.uid == 0);
    identity.owner = owner;
    if (!good || (!owner && !exchange_.settings().lets_in(identity.user)))
    {
        log_limited("user", "refused a connection of user " + identity.user + ", who is not allowed here");
        return false;
    }
    do
    {
        ++last_connection_;
    } while (last_connection_ == 0 || links_.contains(last_connection_));
    connection_id id = last_connection_;
    closing_.reserve(links_.size() < closing_.capacity() ? 0 : 2 * links_.size() + 64);
    link &added = links_[id];
    added.fd = fd;
    added.may_change = owner;
    bool welcome = false;
    guarded(watched::connection, id, [&] {
        welcome = exchange_.connected(id, identity, now());
        if (welcome && !watch(fd, watched::connection, id, EPOLLIN))
        {
            close_connection(id, "the system cannot watch it");
        }
    });
    if (added.closing)
    {
        return true; // and is on its way out
    }
    if (!welcome)
    {
        links_.erase(id);
        log_limited("quota",
                    "refused a connection of process " + std::to_string(who.pid) + ": it or its user has too many");
    }
    return welcome;
}

void server::accept_connections()
{
    for (int i = 0; i < connections_at_once; ++i)
    {
        int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0)
        {
            bool taken = false;
            guarded(watched::listener, 0, [&] { taken = accept_one(fd); });
            if (!taken)
            {
                close(fd);
            }
            continue;
        }
        if (errno == EMFILE || errno == ENFILE)
        {
            // No descriptor is left: whoever waits learns it by the end of his connection, and does not wait on.
            close(spare_);
            fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0)
            {
                close(fd);
                log_limited("descriptors",
                            "refused a connection: no descriptor is left; raise the limit of open files");
            }
            spare_ = fcntl(epoll_, F_DUPFD_CLOEXEC, 0);
            continue;
        }
        if (errno != EINTR && errno != ECONNABORTED)
        {
            return;
        }
    }
}

bool server::idle_for(milliseconds &left)
{
    milliseconds limit = options_.idle_ms >= 0 ? options_.idle_ms : exchange_.settings().idle_ms;
    if (limit == 0 || !links_.empty() || !exchange_.sessions().empty() || !children_.empty())
    {
        return false;
    }
    left = idle_since_ + limit - now();
    return true;
}

// True: nobody has connected meanwhile (or we were told to stop), the broker may end. Else it goes on with a new
// socket, and those who came are served.
bool server::leave()
{
    if (!own_socket_)
    {
        return true; // the service manager keeps the socket, and whoever waits at it starts the broker again
    }
    // From here on nobody can connect; who already has is found by accept.
    shutdown(listener_, SHUT_RD);
    bool somebody = false;
    for (;;)
    {
        int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0 && errno != EINTR && errno != ECONNABORTED)
        {
            break;
        }
        if (fd >= 0 && !stopping_ && accept_one(fd))
        {
            somebody = true;
        }
        else if (fd >= 0)
        {
            close(fd);
        }
    }
    close(listener_);
    listener_ = -1;
    if (!somebody)
    {
        unlink((options_.directory + "/" + wire::socket_name).c_str());
        log_line(stopping_ ? "ends" : "ends: nobody has needed it for a while");
        return true;
    }
    std::string trouble;
    if (!open_listener(trouble))
    {
        log_line(trouble);
        return true;
    }
    return false;
}

} // namespace broker
