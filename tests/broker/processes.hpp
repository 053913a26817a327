// processes.hpp - the real broker and control program in a directory of their own, and a client that speaks to the
// broker's socket byte by byte, well or badly.
#pragma once

#include "broker/names.hpp"
#include "wire/broker.hpp"
#include "wire/frames.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

namespace test {

inline constexpr int patience = 20'000; // milliseconds: what a slow machine may need for one step

struct finished
{
    int code;         // exit code, or minus the signal
    std::string out;  // standard output
    std::string error;
};

// Runs a program to its end.
finished run(std::vector<std::string> arguments, std::vector<std::string> more_environment = {});

// A program whose output is read while it runs.
class watched
{
public:
    explicit watched(std::vector<std::string> arguments);
    ~watched(); // kills it
    watched(const watched &) = delete;
    watched &operator=(const watched &) = delete;

    pid_t pid() const { return pid_; }
    std::string line(); // the next one of its standard output; fails when none comes
    int stop_reading(); // goes away, and gives the exit code (or minus the signal) with which the program then ends

private:
    pid_t pid_ = 0;
    int out_ = -1;
    std::string have_;
};

// Waits until a condition holds; false when it does not within the patience.
template <class Condition>
bool wait_until(Condition holds);
void sleep_ms(int milliseconds);
long long now_ms();

struct received
{
    std::vector<std::byte> bytes; // empty: the broker has closed the connection
    std::vector<int> descriptors;

    template <class Message>
    Message as(wire::message_kind kind) const
    {
        Message message{};
        EXPECT_GE(bytes.size(), sizeof message);
        std::memcpy(&message, bytes.data(), std::min(sizeof message, bytes.size()));
        EXPECT_EQ(message.head.kind, static_cast<std::uint16_t>(kind));
        return message;
    }
};

// A connection to the broker.
class client
{
public:
    explicit client(const std::string &directory);
    ~client();
    client(const client &) = delete;
    client &operator=(const client &) = delete;

    bool connected() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    void close();

    bool send_bytes(std::span<const std::byte> bytes, std::span<const int> descriptors = {});
    template <class Message>
    bool say(Message message, wire::message_kind kind, std::uint32_t correlation,
             std::span<const int> descriptors = {})
    {
        message.head = {static_cast<std::uint16_t>(kind), 0, sizeof message, correlation};
        return send_bytes(std::as_bytes(std::span(&message, 1)), descriptors);
    }
    // The next message, or nothing when the connection has been closed; fails when neither comes.
    received next();
    bool closed_by_broker(); // reads on until the end; false when it does not come
    bool quiet();            // nothing is there to be read now

    wire::welcome greet(int *page = nullptr);
    void add_name(const char *name);
    received allocate(const char *tp_name, std::uint32_t correlation = 10);
    bool accept(const char *tp_name, std::uint32_t correlation = 20);
    bool ask(const std::string &command); // of the operator, in JSON; the answer is left to be read

private:
    int fd_ = -1;
};

// A directory of its own, and a broker in it when one is started. Both are gone afterwards.
struct node : testing::Test
{
    void SetUp() override;
    void TearDown() override;

    finished broker(std::vector<std::string> arguments); // cpicnoded --dir DIR ...
    finished tool(std::vector<std::string> arguments);   // cpicnode --dir DIR ...
    void start(const std::string &config = "");          // in the background
    pid_t broker_pid() const;                            // of the broker.lock, 0: none
    bool running() const;                                // somebody holds the lock
    std::string write_config(const std::string &text);
    std::string log() const;

    std::string directory;
};

// Sends an ATTACH over a session's socket, then more bytes.
void send_attach(int fd, const std::string &more = "");

// Everything a socket gives until its end, at most `size` bytes; waits for it.
std::string read_bytes(int fd, std::size_t size);

template <class Condition>
bool wait_until(Condition holds)
{
    for (long long until = now_ms() + patience; now_ms() < until; sleep_ms(5))
    {
        if (holds())
        {
            return true;
        }
    }
    return holds();
}

} // namespace test
