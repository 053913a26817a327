/* switch_test.cpp - when a record is written: the switch, the first call, the trace file and its lock. */
#include "trace/trace_file.hpp"

class Switch : public TraceTest
{
protected:
    static void flush_request()
    {
        static const u8 id[8] = {1};
        seputrcp(1, 10, nullptr, id, nullptr, nullptr, nullptr, nullptr, nullptr);
    }
};

using Calls = std::vector<std::string>;

TEST_F(Switch, a_record_is_written_under_the_lock_of_the_file)
{
    flush_request();
    EXPECT_EQ(Calls({"lock", "write", "unlock"}), trace_file.calls);
    EXPECT_EQ(Lines({"--", "CMFLUS request", " Conversation ID = 01000000"}), trace_file.lines);
}

TEST_F(Switch, all_arguments_reach_the_record)
{
    const u32 ok = 0;
    const u8 buffer[1] = {0xC1};
    const u32 values[] = {1, 1, 2, 0};
    seputrcp(2, 13, nullptr, &ok, buffer, &values[0], &values[1], &values[2], &values[3]);
    ASSERT_EQ(8u, trace_file.lines.size());
    EXPECT_EQ("[C1]", trace_file.lines[3]);
    EXPECT_EQ(" Data received type = CM_DATA_RECEIVED", trace_file.lines[4]);
    EXPECT_EQ(" Received length = 1", trace_file.lines[5]);
    EXPECT_EQ(" Status received = CM_CONFIRM_RECEIVED", trace_file.lines[6]);
    EXPECT_EQ(" Request to send received = CM_REQ_TO_SEND_NOT_RECEIVED", trace_file.lines[7]);
}

TEST_F(Switch, the_conversation_reaches_the_record)
{
    const u32 ok = 0;
    CCCB cccb = {};
    cccb.ulSendType = 1;
    seputrcp(2, 27, &cccb, &ok, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(" Send type = CM_SEND_AND_FLUSH", trace_file.lines.back());
}

TEST_F(Switch, nothing_is_written_while_the_trace_is_off)
{
    trace(false);
    EXPECT_FALSE(trace_on());
    flush_request();
    EXPECT_TRUE(trace_file.calls.empty());
    trace(true);
    EXPECT_TRUE(trace_on());
}

TEST_F(Switch, the_first_record_prepares_the_trace_even_while_it_is_off)
{
    trace(false);
    trc_api.initialised = 0;
    flush_request();
    flush_request();
    EXPECT_EQ(Calls({"init"}), trace_file.calls);
    EXPECT_EQ(1, trc_api.initialised);
}

TEST_F(Switch, the_first_record_is_written_once_the_trace_is_prepared)
{
    trc_api.initialised = 0;
    flush_request();
    EXPECT_EQ(Calls({"init", "lock", "write", "unlock"}), trace_file.calls);
}

TEST_F(Switch, without_a_trace_file_nothing_is_written_and_nothing_unlocked)
{
    trc_api.handle = -1;
    flush_request();
    EXPECT_EQ(Calls({"lock"}), trace_file.calls);
    EXPECT_TRUE(trace_file.lines.empty());
}
