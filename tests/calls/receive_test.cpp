/* receive_test.cpp - CMRCV: the verb, the translation of what was received, both completions. */
#include "calls.hpp"

namespace
{

struct Results
{
    Buffer buffer{100};
    Out data, length, status, rts;

    long receive(Id &id, int requested = 100)
    {
        return call(cmrcv, id, buffer, requested, data, length, status, rts);
    }
};

class Receive : public CallTest
{
};

} // namespace

TEST_F(Receive, cmrcv_verb_field_by_field)
{
    Id id = allocated();
    Results r;
    node.next(NAP_RECEIVE_AND_WAIT, succeeds().received("hello", 0x0200).put8(28, 1));
    EXPECT_EQ(CM_OK, r.receive(id));
    Verb &verb = node.only(NAP_RECEIVE_AND_WAIT);
    EXPECT_VERB(verb, Image(NAP_RECEIVE_AND_WAIT)
                          .of(*verb.cccb)
                          .put8(26, 1)
                          .put8(27, 1)
                          .put16(30, 100)
                          .point(36, r.buffer.address()));
    EXPECT_EQ(nullptr, verb.routine);
    EXPECT_EQ(1u, verb.user_word);
    expect_pending_call(verb, 13, id, r.buffer.address(), r.data.address(), r.length.address(), r.status.address(),
                        r.rts.address());
    EXPECT_EQ(CM_COMPLETE_DATA_RECEIVED, r.data.value());
    EXPECT_EQ(5, r.length.value());
    EXPECT_EQ(CM_NO_STATUS_RECEIVED, r.status.value());
    EXPECT_EQ(CM_REQ_TO_SEND_RECEIVED, r.rts.value());
    EXPECT_EQ(hex(scripted::bytes("hello")), hex(r.buffer.content(5)));
    EXPECT_TRUE(r.buffer.untouched(5));
}

TEST_F(Receive, cmrcv_immediate_fill_buffer_basic)
{
    Id id = allocated(0);
    id.cccb().ulReceiveType = CM_RECEIVE_IMMEDIATE;
    id.cccb().ulFill = CM_FILL_BUFFER;
    Results r;
    EXPECT_EQ(CM_OK, r.receive(id));
    Verb &verb = node.only(NAP_RECEIVE_IMMEDIATE);
    EXPECT_VERB(verb, Image(NAP_RECEIVE_IMMEDIATE)
                          .of(*verb.cccb)
                          .put8(26, 1)
                          .put8(27, 0)
                          .put16(30, 100)
                          .point(36, r.buffer.address()));
    EXPECT_EQ(0, verb.u8_at(2));
}

TEST_F(Receive, cmrcv_lengths)
{
    Id id = allocated();
    Results r;
    EXPECT_EQ(CM_OK, r.receive(id, 0));
    EXPECT_EQ(0, node.last(NAP_RECEIVE_AND_WAIT).u16_at(30));
    EXPECT_EQ(CM_OK, r.receive(id, 32767));
    EXPECT_EQ(32767, node.last(NAP_RECEIVE_AND_WAIT).u16_at(30));
    node.forget();
    for (int length : {32768, -1, 65536, INT32_MIN})
    {
        Results fresh;
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, fresh.receive(id, length));
        const Log log = node.problem(0x20030007, 0);
        EXPECT_EQ("l", log.format);
        EXPECT_EQ(static_cast<u32>(length), log.items.at(0).first);
        EXPECT_EQ(0, fresh.length.value());
        EXPECT_TRUE(fresh.data.untouched() && fresh.status.untouched() && fresh.rts.untouched());
        EXPECT_TRUE(fresh.buffer.untouched());
    }
    expect_no_verb();
}

TEST_F(Receive, cmrcv_early_returns_set_only_the_length_to_0)
{
    Results r;
    Id unknown{Bytes(8, 0x11)};
    initialised();
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, r.receive(unknown));
    expect_unknown_id(14, unknown);
    EXPECT_EQ(0, r.length.value());
    EXPECT_TRUE(r.data.untouched() && r.status.untouched() && r.rts.untouched() && r.buffer.untouched());

    Results s;
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, s.receive(id, -1)) << "before the length is looked at";
    EXPECT_EQ(0, s.length.value());
    EXPECT_TRUE(s.data.untouched() && s.status.untouched() && s.rts.untouched() && s.buffer.untouched());

    Results t;
    Id pending = busy();
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, t.receive(pending));
    EXPECT_EQ(0, t.length.value());
    EXPECT_TRUE(t.data.untouched() && t.status.untouched() && t.rts.untouched() && t.buffer.untouched());
    node.deliver_all();
}

TEST_F(Receive, cmrcv_translates_what_was_received)
{
    for (unsigned high : {0u, 1u, 2u})
    {
        for (unsigned low = 0; low <= 4; low++)
        {
            const unsigned what = high << 8 | low;
            SCOPED_TRACE(what);
            Id id = allocated();
            Results r;
            node.next(NAP_RECEIVE_AND_WAIT, succeeds().put16(24, what));
            EXPECT_EQ(CM_OK, r.receive(id));
            EXPECT_EQ(static_cast<long>(high), r.data.value());
            EXPECT_EQ(static_cast<long>(low), r.status.value());
            EXPECT_EQ(low >= 2 ? 1 : 0, id.cccb().usConfirmPending);
            EXPECT_EQ(low == 4 ? 1 : 0, id.cccb().usDeallocPending);
        }
    }
}

TEST_F(Receive, cmrcv_incomplete_data)
{
    Id id = allocated();
    Results r;
    node.next(NAP_RECEIVE_AND_WAIT, succeeds().received("part", 0x0400));
    EXPECT_EQ(CM_OK, r.receive(id));
    EXPECT_EQ(CM_INCOMPLETE_DATA_RECEIVED, r.data.value());
    EXPECT_EQ(CM_NO_STATUS_RECEIVED, r.status.value());
    EXPECT_EQ(4, r.length.value());
}

TEST_F(Receive, cmrcv_unknown_values_fail_two_checks)
{
    for (unsigned what : {0x0005u, 0x0105u, 0x0205u, 0x0300u, 0x0401u, 0x0500u, 0x00FFu, 0xFFFFu})
    {
        SCOPED_TRACE(what);
        Id id = allocated();
        Results r;
        node.next(NAP_RECEIVE_AND_WAIT, succeeds().put16(24, what));
        EXPECT_EQ(CM_OK, r.receive(id));
        EXPECT_EQ(0, r.data.value());
        EXPECT_EQ(0, r.status.value());
        node.assertion("FALSE");
        node.assertion("FALSE");
        EXPECT_EQ(0, id.cccb().usConfirmPending);
    }
}

TEST_F(Receive, cmrcv_clears_neither_mark)
{
    Id id = allocated();
    id.cccb().usConfirmPending = 1;
    id.cccb().usDeallocPending = 1;
    Results r;
    node.next(NAP_RECEIVE_AND_WAIT, succeeds().put16(24, 0x0201));
    EXPECT_EQ(CM_OK, r.receive(id));
    EXPECT_EQ(1, id.cccb().usConfirmPending);
    EXPECT_EQ(1, id.cccb().usDeallocPending);
}

TEST_F(Receive, cmrcv_failure_still_gives_the_outputs_of_the_verb)
{
    Id id = allocated();
    Results r;
    node.next(NAP_RECEIVE_AND_WAIT, fails(0x0C00).received("data", 0x0104).put8(28, 1));
    EXPECT_EQ(CM_PROGRAM_ERROR_NO_TRUNC, r.receive(id));
    EXPECT_EQ(CM_DATA_RECEIVED, r.data.value());
    EXPECT_EQ(CM_CONFIRM_DEALLOC_RECEIVED, r.status.value());
    EXPECT_EQ(4, r.length.value());
    EXPECT_EQ(1, r.rts.value());
    EXPECT_EQ(1, id.cccb().usConfirmPending);
    EXPECT_EQ(1, id.cccb().usDeallocPending);
}

TEST_F(Receive, cmrcv_of_the_end_frees_the_conversation)
{
    for (const EndingCode &code : ending_codes)
    {
        SCOPED_TRACE(code.primary);
        Id id = allocated();
        Results r;
        node.next(NAP_RECEIVE_AND_WAIT, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, r.receive(id));
        if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
        {
            node.problem(0x20030016, 1);
        }
        EXPECT_EQ(0, r.data.value());
        EXPECT_EQ(0, r.length.value());
        EXPECT_EQ(0, r.status.value());
        EXPECT_EQ(0, r.rts.value());
        EXPECT_FALSE(id.exists());
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, r.receive(id));
        expect_unknown_id(14, id);
    }
}

TEST_F(Receive, cmrcv_other_failures_keep_the_conversation)
{
    Id id = allocated();
    for (const EndingCode &code : lasting_codes)
    {
        SCOPED_TRACE(code.primary);
        Results r;
        node.next(NAP_RECEIVE_AND_WAIT, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, r.receive(id));
        EXPECT_TRUE(id.exists());
    }
}

TEST_F(Receive, cmrcv_non_blocking)
{
    Id id = non_blocking();
    Results r;
    node.next(NAP_RECEIVE_AND_WAIT, later(succeeds().received("hello", 0x0203).put8(28, 1)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, r.receive(id));
    EXPECT_EQ(0, r.length.value());
    EXPECT_TRUE(r.data.untouched() && r.status.untouched() && r.rts.untouched() && r.buffer.untouched());
    Verb &verb = node.only(NAP_RECEIVE_AND_WAIT);
    EXPECT_EQ(cmrcv_cb, verb.routine);
    EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
    node.deliver(verb);
    EXPECT_EQ(CM_COMPLETE_DATA_RECEIVED, r.data.value());
    EXPECT_EQ(5, r.length.value());
    EXPECT_EQ(CM_CONFIRM_SEND_RECEIVED, r.status.value());
    EXPECT_EQ(1, r.rts.value());
    EXPECT_EQ(hex(scripted::bytes("hello")), hex(r.buffer.content(5)));
    r.buffer.check();
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(1, id.cccb().usConfirmPending);
    EXPECT_EQ(1u, node.wakes.size());
}

TEST_F(Receive, cmrcv_non_blocking_ended_by_the_partner)
{
    Id id = non_blocking();
    Results r;
    node.next(NAP_RECEIVE_AND_WAIT, later(fails(0x0900)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, r.receive(id));
    node.deliver_all();
    EXPECT_EQ(0, r.data.value());
    EXPECT_EQ(0, r.status.value());
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_DEALLOCATED_NORMAL, conversation_rc.value());
    EXPECT_FALSE(id.exists());
}
