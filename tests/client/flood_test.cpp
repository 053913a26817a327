// flood_test.cpp - a partner that sends without end what brings the program nothing, over a broker inside the test: the
// other threads of the program get the lock all the same.
#include "fake_broker.hpp"

#include "wire/frames.hpp"

#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class flood : public connected_test
{
protected:
    static constexpr int times = 100;

    void SetUp() override
    {
        connected_test::SetUp();
        connect();
        VERB_RECORD tp = started();
        conversation = allocate(tp.tp_started.tp_id);
        ASSERT_EQ(issue(&conversation), 0);
        ASSERT_EQ(conversation.header.primary_rc, 0);
        partner = broker->partner();
        ASSERT_EQ(fcntl(partner, F_SETFL, 0), 0);
        receive.opcode = NAP_RECEIVE_AND_WAIT;
        receive.header.opext = conversation.header.opext;
        std::memcpy(receive.header.tp_id, conversation.header.tp_id, 8);
        receive.header.conv_id = conversation.header.conv_id;
        receive.receive.buffer = buffer;
        receive.receive.max_length = sizeof buffer;
    }

    // Requests to send, until the conversation is closed.
    void begin_flood()
    {
        flooder = std::thread([this] {
            std::vector<unsigned char> frames(65536);
            for (std::size_t at = 0; at < frames.size(); at += sizeof(wire::frame_header))
            {
                wire::frame_put(frames.data() + at, wire::frame_kind::request_to_send, 0, 0);
            }
            for (ssize_t sent = 0; sent >= 0;)
            {
                sent = send(partner, frames.data(), frames.size(), MSG_NOSIGNAL);
                flooded += sent > 0 ? static_cast<unsigned long long>(sent) : 0;
            }
        });
        while (flooded < 1000000)
        {
            std::this_thread::yield();
        }
    }

    // How much the partner gets rid of while this thread asks for the lock, now and then: a measure of the wait that
    // does not depend on how busy the machine is.
    void expect_the_lock()
    {
        unsigned long long sum = 0;
        for (int i = 0; i < times; i++)
        {
            const unsigned long long last = flooded;
            while (flooded - last < 1000000)
            {
                std::this_thread::yield();
            }
            const unsigned long long before = flooded;
            vpm_unlock(vpm_lock());
            sum += flooded - before;
        }
        std::printf("%llu bytes of flood for each time the lock was taken\n", sum / times);
        EXPECT_LT(sum / times, 4u << 20);
    }

    void end_flood()
    {
        VERB_RECORD cancel = {};
        cancel.opcode = NAP_CANCEL_CONVERSATION;
        std::memcpy(cancel.header.tp_id, conversation.header.tp_id, 8);
        cancel.header.conv_id = conversation.header.conv_id;
        issue(&cancel);
        flooder.join();
    }

    int partner = -1;
    std::thread flooder;
    std::atomic<unsigned long long> flooded{0};
    VERB_RECORD conversation = {};
    VERB_RECORD receive = {};
    u8 buffer[100];
};

TEST_F(flood, under_a_blocked_receive)
{
    std::thread receiver([this] { issue(&receive); });
    begin_flood();
    expect_the_lock();
    end_flood();
    receiver.join();
    EXPECT_EQ(receive.header.primary_rc, primary_word(wire::rc_cancelled));
}

TEST_F(flood, under_a_pending_receive_that_a_sleeper_delivers)
{
    ASSERT_EQ(issue(&receive, [](void *, u32, u32, u32) {}), NAP_IN_PROGRESS);
    std::atomic<u32> object{0};
    std::thread sleeper([&] {
        u16 token = vpm_lock();
        object = vpm_allocate_wait_object();
        vpm_sleep(object, -1);
        vpm_unlock(token);
    });
    begin_flood();
    expect_the_lock();
    end_flood();
    EXPECT_EQ(receive.header.primary_rc, primary_word(wire::rc_cancelled));
    u16 token = vpm_lock();
    vpm_wakeup(object);
    vpm_unlock(token);
    sleeper.join();
    token = vpm_lock();
    vpm_release_wait_object(object);
    vpm_unlock(token);
}

} // namespace
