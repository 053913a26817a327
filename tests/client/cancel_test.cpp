// cancel_test.cpp - the cancel of an allocation that is still having its TP started, by a broker that takes its time.
#include "fake_broker.hpp"

#include <deque>

namespace {

class cancel_of_start : public connected_test
{
protected:
    void SetUp() override
    {
        connected_test::SetUp();
        broker->special = [this](int socket, const std::vector<unsigned char> &message) {
            wire::message_head head;
            std::memcpy(&head, message.data(), sizeof head);
            if (!slow || head.kind != static_cast<std::uint16_t>(wire::message_kind::find_lu))
            {
                return false;
            }
            std::lock_guard<std::mutex> guard(mutex);
            questions.push_back({socket, head.correlation});
            return true;
        };
        connect();
    }

    void answer_all()
    {
        std::lock_guard<std::mutex> guard(mutex);
        for (const question &one : questions)
        {
            wire::lu_found reply = {};
            reply.head = {static_cast<std::uint16_t>(wire::message_kind::lu_found), 0, sizeof reply, one.correlation};
            std::memcpy(reply.alias, "LOCALLU ", 8);
            fake_broker::send(one.socket, &reply, sizeof reply);
        }
        questions.clear();
    }

    // As the library cancels an allocation that has neither TP nor conversation yet.
    void cancel()
    {
        VERB_RECORD record = {};
        record.opcode = NAP_CANCEL_CONVERSATION;
        EXPECT_EQ(issue(&record), 0);
        EXPECT_EQ(record.header.primary_rc, 0);
    }

    // Starts a TP in a thread of its own.
    struct starting
    {
        explicit starting(cancel_of_start &test)
        {
            record.opcode = NAP_TP_STARTED;
            thread = std::thread([this, &test] {
                test.issue(&record);
                done = true;
            });
        }
        VERB_RECORD record = {};
        std::atomic<bool> done{false};
        std::thread thread;
    };

    struct question
    {
        int socket;
        std::uint32_t correlation;
    };
    std::atomic<bool> slow{true};
    std::mutex mutex;
    std::deque<question> questions;
};

TEST_F(cancel_of_start, ends_the_wait)
{
    starting one(*this);
    ASSERT_TRUE(broker->wait_for(wire::message_kind::find_lu, 1));
    cancel();
    one.thread.join(); // the broker has not answered
    EXPECT_EQ(one.record.header.primary_rc, primary_word(wire::rc_cancelled));
    answer_all(); // too late; nobody minds
    slow = false;
    VERB_RECORD again = started();
    EXPECT_EQ(again.header.primary_rc, 0);
    EXPECT_EQ(events, 0);
}

TEST_F(cancel_of_start, without_one_nothing_happens)
{
    cancel();
    slow = false;
    EXPECT_EQ(started().header.primary_rc, 0);
}

TEST_F(cancel_of_start, ends_none_of_several)
{
    starting one(*this);
    starting two(*this);
    ASSERT_TRUE(broker->wait_for(wire::message_kind::find_lu, 2));
    cancel();
    EXPECT_FALSE(one.done || two.done);
    answer_all();
    one.thread.join();
    two.thread.join();
    EXPECT_EQ(one.record.header.primary_rc, 0);
    EXPECT_EQ(two.record.header.primary_rc, 0);
}

TEST_F(cancel_of_start, and_then_the_path_is_lost)
{
    starting one(*this);
    ASSERT_TRUE(broker->wait_for(wire::message_kind::find_lu, 1));
    cancel();
    one.thread.join();
    lose_path();
    EXPECT_EQ(events, 1);
}

} // namespace
