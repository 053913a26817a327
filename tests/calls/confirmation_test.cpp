/* confirmation_test.cpp - CMCFM and CMCFMD. */
#include "calls.hpp"

namespace
{

class Confirmation : public CallTest
{
protected:
    /* A conversation whose partner asked for a confirmation: what_received 2 confirm, 3 and send, 4 and deallocate. */
    static Id asked(unsigned what_received)
    {
        Id id = allocated();
        Buffer buffer(10);
        Out data, length, status, rts;
        node.next(NAP_RECEIVE_AND_WAIT, succeeds().put16(24, what_received));
        EXPECT_EQ(CM_OK, call(cmrcv, id, buffer, 10, data, length, status, rts));
        node.forget();
        return id;
    }
};

} // namespace

TEST_F(Confirmation, cmcfm_verb_field_by_field)
{
    for (int type : {0, 1})
    {
        Id id = allocated(type);
        memset(id.cccb().vcb.bytes, 0xFF, CPIC_VERB_SIZE);
        Out rts;
        node.next(NAP_CONFIRM, succeeds().put8(24, 1));
        EXPECT_EQ(CM_OK, call(cmcfm, id, rts));
        Verb &verb = node.only(NAP_CONFIRM);
        EXPECT_EQ(1u, node.verbs.size());
        EXPECT_VERB(verb, Image(NAP_CONFIRM).of(*verb.cccb).put8(2, static_cast<unsigned>(type)));
        EXPECT_EQ(nullptr, verb.routine);
        EXPECT_EQ(1u, verb.user_word);
        expect_pending_call(verb, 2, id, rts.address());
        EXPECT_EQ(CM_REQ_TO_SEND_RECEIVED, rts.value());
        node.forget();
    }
}

TEST_F(Confirmation, cmcfm_rejected_still_writes_request_to_send)
{
    Id id = allocated();
    Out rts;
    node.next(NAP_CONFIRM, fails(0x0E00).put8(24, 1));
    EXPECT_EQ(CM_PROGRAM_ERROR_PURGING, call(cmcfm, id, rts));
    EXPECT_EQ(CM_REQ_TO_SEND_RECEIVED, rts.value());
    EXPECT_TRUE(id.exists());
    Out after_end;
    node.next(NAP_CONFIRM, fails(0x0500).put8(24, 0));
    EXPECT_EQ(CM_DEALLOCATED_ABEND, call(cmcfm, id, after_end));
    EXPECT_EQ(CM_REQ_TO_SEND_NOT_RECEIVED, after_end.value());
    EXPECT_FALSE(id.exists());
}

TEST_F(Confirmation, cmcfm_before_allocation_issues_nothing)
{
    Out rts;
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmcfm, id, rts));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmcfmd, id));
    EXPECT_TRUE(rts.untouched());
    expect_no_verb();
}

TEST_F(Confirmation, cmcfm_failures)
{
    for (const EndingCode &code : ending_codes)
    {
        SCOPED_TRACE(code.primary);
        Id id = allocated();
        Out rts;
        node.next(NAP_CONFIRM, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, call(cmcfm, id, rts));
        if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
        {
            EXPECT_EQ(3u, node.problem(0x20030016, 1).items.at(0).first);
        }
        EXPECT_FALSE(id.exists());
    }
    Id id = allocated();
    for (const EndingCode &code : lasting_codes)
    {
        SCOPED_TRACE(code.primary);
        Out rts;
        node.next(NAP_CONFIRM, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, call(cmcfm, id, rts));
        EXPECT_TRUE(id.exists());
    }
}

TEST_F(Confirmation, cmcfm_non_blocking)
{
    Id id = non_blocking();
    Out rts;
    node.next(NAP_CONFIRM, later(succeeds().put8(24, 1)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmcfm, id, rts));
    EXPECT_TRUE(rts.untouched());
    Verb &verb = node.only(NAP_CONFIRM);
    EXPECT_EQ(cmcfm_cb, verb.routine);
    EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
    Out second;
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmcfm, id, second));
    node.deliver(verb);
    EXPECT_EQ(1, rts.value());
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(1u, node.wakes.size());
}

TEST_F(Confirmation, cmcfmd_verb_field_by_field)
{
    Id id = asked(2);
    memset(id.cccb().vcb.bytes, 0xFF, CPIC_VERB_SIZE);
    EXPECT_EQ(CM_OK, call(cmcfmd, id));
    Verb &verb = node.only(NAP_CONFIRMED);
    EXPECT_VERB(verb, Image(NAP_CONFIRMED).of(*verb.cccb).put8(2, 1));
    EXPECT_EQ(nullptr, verb.routine);
    expect_pending_call(verb, 3, id);
    EXPECT_EQ(1, verb.cccb->usConfirmPending) << "cleared by the completion, not before";
}

TEST_F(Confirmation, cmcfmd_of_a_confirmation_goes_on)
{
    for (unsigned what : {2u, 3u})
    {
        Id id = asked(what);
        EXPECT_EQ(1, id.cccb().usConfirmPending);
        EXPECT_EQ(CM_OK, call(cmcfmd, id));
        EXPECT_EQ(0, id.cccb().usConfirmPending);
        EXPECT_EQ(0, id.cccb().usConversationEnded);
    }
}

TEST_F(Confirmation, cmcfmd_of_a_deallocation_ends_the_conversation)
{
    Id id = asked(4);
    EXPECT_EQ(CM_OK, call(cmcfmd, id));
    EXPECT_FALSE(id.exists());
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmcfmd, id));
    expect_unknown_id(4, id);
}

TEST_F(Confirmation, cmcfmd_that_fails_leaves_the_marks)
{
    Id id = asked(4);
    node.next(NAP_CONFIRMED, fails(0x0200));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmcfmd, id));
    EXPECT_EQ(1, id.cccb().usConfirmPending);
    EXPECT_EQ(1, id.cccb().usDeallocPending);
    EXPECT_EQ(0, id.cccb().usConversationEnded);
}

TEST_F(Confirmation, cmcfmd_failures_that_end)
{
    for (const EndingCode &code : ending_codes)
    {
        SCOPED_TRACE(code.primary);
        Id id = asked(2);
        node.next(NAP_CONFIRMED, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, call(cmcfmd, id));
        if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
        {
            node.problem(0x20030016, 1);
        }
        EXPECT_FALSE(id.exists());
    }
}

TEST_F(Confirmation, cmcfmd_non_blocking_of_a_deallocation)
{
    Id id = asked(4);
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_CONFIRMED, later());
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmcfmd, id));
    EXPECT_EQ(cmcfmd_cb, node.only(NAP_CONFIRMED).routine);
    EXPECT_EQ(1, id.cccb().usConfirmPending);
    node.deliver_all();
    EXPECT_EQ(0, id.cccb().usConfirmPending);
    EXPECT_EQ(1, id.cccb().usDeallocPending) << "left set";
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_FALSE(id.exists());
}
