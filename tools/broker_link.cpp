// broker_link.cpp - messages between control program and broker. Every message is checked before it is believed.
#include "broker_link.hpp"

#include "wire/broker.hpp"
#include "wire/directory.hpp"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace tool {

namespace {

constexpr int answer_seconds = 10; // how long the broker may take

wire::message_head head_of(wire::message_kind kind, std::size_t size, unsigned correlation)
{
    return {static_cast<std::uint16_t>(kind), 0, static_cast<std::uint32_t>(size), correlation};
}

} // namespace

broker_link::~broker_link()
{
    if (fd_ >= 0)
    {
        close(fd_);
    }
}

broker_link::outcome broker_link::connect(const std::string &directory, std::string &trouble)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = directory + "/" + wire::socket_name;
    if (path.size() >= sizeof address.sun_path)
    {
        trouble = "the path " + path + " is too long for a socket; name a shorter directory";
        return outcome::failed;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size());
    fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    timeval limit{answer_seconds, 0};
    if (fd_ < 0 || setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
        setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0)
    {
        trouble = std::string("no socket to be had: ") + std::strerror(errno);
        return outcome::failed;
    }
    if (::connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
    {
        if (errno == ENOENT || errno == ECONNREFUSED)
        {
            return outcome::no_node;
        }
        trouble = path + ": " + std::strerror(errno) +
                  (errno == EACCES ? "; the node belongs to another user, who has not allowed you to look at it" : "");
        return outcome::failed;
    }
    ucred who;
    socklen_t size = sizeof who;
    if (getsockopt(fd_, SOL_SOCKET, SO_PEERCRED, &who, &size) != 0 || (!wire::user_trusted(who.uid) && geteuid() != 0))
    {
        trouble = "the node in " + directory +
                  " belongs to another user; if you trust that user, name it in CPIC_NODE_USER";
        return outcome::failed;
    }
    wire::hello hello{};
    hello.head = head_of(wire::message_kind::hello, sizeof hello, ++correlation_);
    hello.version = wire::protocol_version;
    std::snprintf(hello.program, sizeof hello.program, "cpicnode");
    std::string reply;
    if (!send(&hello, sizeof hello, trouble) || !receive(reply, trouble))
    {
        return outcome::failed;
    }
    wire::welcome welcome;
    if (reply.size() != sizeof welcome)
    {
        trouble = "the node in " + directory + " answers in a way this program does not know";
        return outcome::failed;
    }
    std::memcpy(&welcome, reply.data(), sizeof welcome);
    if (welcome.status.primary != wire::rc_ok)
    {
        trouble = "the node in " + directory + " is of another version (" + std::to_string(welcome.version) +
                  "); stop it with the control program that it came with";
        return outcome::failed;
    }
    broker_pid_ = static_cast<int>(welcome.broker_pid);
    return outcome::connected;
}

bool broker_link::send(const void *message, std::size_t size, std::string &trouble)
{
    while (::send(fd_, message, size, MSG_NOSIGNAL) < 0)
    {
        if (errno != EINTR)
        {
            trouble = "the node has gone";
            return false;
        }
    }
    return true;
}

// One whole message of the broker. The control page's descriptor, which comes with the welcome, is not taken.
bool broker_link::receive(std::string &message, std::string &trouble)
{
    message.resize(wire::max_message);
    ssize_t size;
    do
    {
        size = recv(fd_, message.data(), message.size(), 0);
    } while (size < 0 && errno == EINTR);
    if (size <= 0)
    {
        trouble = size < 0 && errno == EAGAIN
                      ? "the node does not answer within " + std::to_string(answer_seconds) +
                            " seconds; its process may be stopped or have too little of the machine"
                      : "the node has gone";
        return false;
    }
    message.resize(static_cast<std::size_t>(size));
    if (!wire::message_check(message.data(), message.size(), wire::sender::broker))
    {
        trouble = "the node has answered with something that is no message";
        return false;
    }
    return true;
}

std::optional<answer> broker_link::ask(const std::string &command, bool json, std::string &trouble)
{
    std::string message(sizeof(wire::control) + command.size(), 0);
    wire::control request{};
    request.head = head_of(wire::message_kind::control, message.size(), ++correlation_);
    request.json = json ? 1 : 0;
    request.text_length = static_cast<std::uint32_t>(command.size());
    std::memcpy(message.data(), &request, sizeof request);
    std::memcpy(message.data() + sizeof request, command.data(), command.size());
    if (!send(message.data(), message.size(), trouble))
    {
        return std::nullopt;
    }
    answer whole{true, ""};
    for (;;)
    {
        std::string piece;
        if (!receive(piece, trouble))
        {
            return std::nullopt;
        }
        wire::control_reply head;
        if (piece.size() < sizeof head)
        {
            trouble = "the node has answered something else";
            return std::nullopt;
        }
        std::memcpy(&head, piece.data(), sizeof head);
        if (head.head.kind != static_cast<std::uint16_t>(wire::message_kind::control_reply) ||
            head.head.correlation != correlation_)
        {
            trouble = "the node has answered something else";
            return std::nullopt;
        }
        whole.good = head.status.primary == wire::rc_ok;
        whole.text.append(piece, sizeof head, piece.npos);
        if (head.more == 0)
        {
            return whole;
        }
    }
}

bool broker_link::wait_for_end(int seconds)
{
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    for (;;)
    {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        if (left.count() <= 0)
        {
            return false;
        }
        pollfd ready{fd_, POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(left.count())) > 0)
        {
            char byte;
            if (recv(fd_, &byte, 1, MSG_DONTWAIT) <= 0 && errno != EAGAIN && errno != EINTR)
            {
                return true;
            }
        }
    }
}

} // namespace tool
