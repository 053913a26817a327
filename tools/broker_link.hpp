// broker_link.hpp - the control program's way to a running broker: connect, say hello, ask one command at a time.
#pragma once

#include <optional>
#include <string>

namespace tool {

struct answer
{
    bool good;        // else the text says what is wrong
    std::string text; // as the broker has written it, text or JSON
};

class broker_link
{
public:
    broker_link() = default;
    ~broker_link();
    broker_link(const broker_link &) = delete;
    broker_link &operator=(const broker_link &) = delete;

    enum class outcome
    {
        connected,
        no_node, // nobody answers in that directory
        failed,  // trouble says why
    };
    outcome connect(const std::string &directory, std::string &trouble);
    int broker_pid() const { return broker_pid_; }

    // No value: the broker did not answer, or has gone; trouble says so.
    std::optional<answer> ask(const std::string &command, bool json, std::string &trouble);

    // Waits until the broker has closed the connection. False: it still has not after `seconds`.
    bool wait_for_end(int seconds);

private:
    bool send(const void *message, std::size_t size, std::string &trouble);
    bool receive(std::string &message, std::string &trouble);

    int fd_ = -1;
    int broker_pid_ = 0;
    unsigned correlation_ = 0;
};

} // namespace tool
