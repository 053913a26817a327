// fake_broker.hpp - a broker inside the test: a thread that listens in a directory of its own and answers as the real
// one does, or as a test wants it to: wrongly, with too many descriptors, not at all. And the fixture that uses it.
#pragma once

#include "node_verbs.h"
#include "wire/broker.hpp"

#include <atomic>
#include <cstring>
#include <condition_variable>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class fake_broker
{
public:
    explicit fake_broker(const std::string &directory);
    ~fake_broker();

    // Looks at a message before the usual answer; true: it has been dealt with. Runs in the broker's thread. To be set
    // before the program connects.
    std::function<bool(int socket, const std::vector<unsigned char> &message)> special;

    // Sends `size` bytes with these descriptors, which stay the caller's.
    static void send(int socket, const void *message, std::size_t size, const std::vector<int> &descriptors = {});

    // Closes every connection, as a broker that dies does, and listens no more.
    void die();

    // The partner's end of the conversation allocated last, -1: none; waits for it.
    int partner();

    // Answers the oldest accept that waits, waiting for one to come: the partner's end of the new conversation.
    int attach(wire::accepted answer);

    int count(wire::message_kind kind); // messages of a kind that have come
    bool wait_for(wire::message_kind kind, int wanted); // until so many have; false: not within ten seconds

    unsigned char page_byte(std::size_t offset) const;
    void set_page_byte(std::size_t offset, unsigned char value);

private:
    void run();
    void serve(int socket);
    void answer(int socket, const std::vector<unsigned char> &message);

    int listener = -1;
    int stop[2] = {-1, -1};
    int page = -1;
    unsigned char *mapped = nullptr;
    std::thread thread;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<int> connections;
    std::vector<int> partners;
    struct waiting_accept
    {
        int socket;
        std::uint32_t correlation;
    };
    std::vector<waiting_accept> accepts;
    int counts[32] = {};
    std::uint32_t session = 100;
    std::uint32_t programs = 0;
};

// A directory of its own, CPIC_NODE_DIR set to it; removed at the end.
class node_directory_test : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;
    std::string contents(const char *file) const; // of a file in the directory; "" when there is none

    std::string directory;
};

// Ends the child of a fork with an exit code. It leaves through another program: to a memory checker that follows the
// child, what the other threads of the parent had in their hands would look lost.
[[noreturn]] void leave_child(int code);

// Beside that: a fake broker, and the program connected to it as a path user.
class connected_test : public node_directory_test
{
protected:
    void SetUp() override;
    void TearDown() override;

    void connect();
    void lose_path(); // the broker dies, and the loss has been delivered when this returns

    static u32 path_called(u32 user_word, path_event *event);

    // Verbs, as the library above issues them: under the lock.
    u16 issue(void *record, appc_completion *routine = nullptr, u32 user_word = 0);
    VERB_RECORD started();                      // TP_STARTED, complete
    VERB_RECORD allocate(const u8 *tp_id) const; // the record only
    VERB_RECORD accept(u32 handle) const;

    std::unique_ptr<fake_broker> broker;
    u32 path_user_handle = 0;
    std::atomic<int> events{0}; // path events delivered
};

// Return codes as they stand in a record.
constexpr u16 primary_word(unsigned value)
{
    return static_cast<u16>((value & 0xFF) << 8 | value >> 8);
}
constexpr u32 secondary_word(u32 value)
{
    return __builtin_bswap32(value);
}
