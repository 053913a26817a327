/* frame_test.cpp - the frame of a call that issues a verb, with CMFLUS as its simplest user: the verb, blocking and
 * non-blocking completion, the counters after each step, when a finished conversation goes. CMFLUS itself, too. */
#include "calls.hpp"

using Frame = CallTest;

TEST_F(Frame, cmflus_issues_one_flush)
{
    Id id = allocated();
    EXPECT_EQ(CM_OK, call(cmflus, id));
    Verb &flush = node.only(NAP_FLUSH);
    EXPECT_EQ(1u, node.verbs.size());
    EXPECT_VERB(flush, Image(NAP_FLUSH).of(*flush.cccb).put8(2, 1));
    EXPECT_NE(0u, flush.u32_at(20));
    EXPECT_NE("00 00 00 00 00 00 00 00", hex(flush.bytes_at(12, 8)));
    EXPECT_EQ(scripted::Entry::asynchronous, flush.entry);
    EXPECT_EQ(nullptr, flush.routine) << "blocking";
    EXPECT_EQ(1u, flush.user_word);
    expect_pending_call(flush, 10, id);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
    EXPECT_TRUE(node.wakes.empty());
    EXPECT_TRUE(node.sleeps.empty());
}

TEST_F(Frame, cmflus_of_a_basic_conversation_has_operation_extension_0)
{
    Id id = allocated(0);
    EXPECT_EQ(CM_OK, call(cmflus, id));
    Verb &flush = node.only(NAP_FLUSH);
    EXPECT_VERB(flush, Image(NAP_FLUSH).of(*flush.cccb).put8(2, 0));
}

TEST_F(Frame, cmflus_clears_what_an_earlier_verb_left)
{
    Id id = allocated();
    memset(id.cccb().vcb.bytes, 0xFF, CPIC_VERB_SIZE);
    EXPECT_EQ(CM_OK, call(cmflus, id));
    Verb &flush = node.only(NAP_FLUSH);
    EXPECT_VERB(flush, Image(NAP_FLUSH).of(*flush.cccb));
}

TEST_F(Frame, cmflus_takes_and_gives_back_the_lock_once)
{
    Id id = allocated();
    const unsigned before = node.lock_calls;
    EXPECT_EQ(CM_OK, call(cmflus, id));
    EXPECT_EQ(before + 1, node.lock_calls);
}

TEST_F(Frame, cmflus_before_allocation_is_a_state_check)
{
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmflus, id));
    Id other = incoming();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmflus, other));
    expect_no_verb();
}

TEST_F(Frame, cmflus_failure_that_ends_the_conversation_frees_it_before_the_return)
{
    for (const EndingCode &code : ending_codes)
    {
        SCOPED_TRACE(code.primary);
        Id id = allocated();
        const CCCB *record = id.find();
        node.next(NAP_FLUSH, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, call(cmflus, id));
        if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
        {
            node.problem(0x20030016, 1);
        }
        EXPECT_FALSE(id.exists());
        EXPECT_EQ(0u, node.memory.count(const_cast<CCCB *>(record)));
        EXPECT_EQ(1u, node.issued(NAP_TP_ENDED).size()) << "its context goes with it";
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmflus, id));
        expect_unknown_id(12, id);
    }
}

TEST_F(Frame, cmflus_other_failures_leave_the_conversation)
{
    Id id = allocated();
    for (const EndingCode &code : lasting_codes)
    {
        SCOPED_TRACE(code.primary);
        node.next(NAP_FLUSH, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, call(cmflus, id));
        EXPECT_EQ(0, id.cccb().usConversationEnded);
        EXPECT_EQ(0, id.cccb().usVerbsPending);
    }
    EXPECT_EQ(CM_OK, call(cmflus, id));
}

TEST_F(Frame, cmflus_conversation_once_ended_stays_ended)
{
    Id id = non_blocking();
    id.cccb().usConversationEnded = 1;
    EXPECT_EQ(CM_OK, call(cmflus, id)) << "no completion clears the mark";
    EXPECT_FALSE(id.exists());
}

TEST_F(Frame, cmflus_non_blocking_counts_each_step)
{
    Id id = non_blocking();
    node.next(NAP_FLUSH, later());
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmflus, id));
    Verb &flush = node.only(NAP_FLUSH);
    EXPECT_EQ(cmflus_cb, flush.routine);
    EXPECT_EQ(1u, flush.user_word);
    EXPECT_EQ(0u, flush.gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1, id.cccb().usVerbsPending);
    EXPECT_EQ(0, id.cccb().usCompletionPending);
    EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);

    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmflus, id));
    EXPECT_EQ(1u, node.verbs.size());

    node.deliver(flush);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(1, id.cccb().usCompletionPending);
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(0u, id.cccb().ulPendingRc);
    EXPECT_EQ(node.wakes, std::vector<u32>{library_gcb.WaitObject});

    EXPECT_EQ(CM_OK, call(cmflus, id)) << "the next verb is accepted before the completion is collected";
    EXPECT_EQ(0, node.last(NAP_FLUSH).cccb->usCompletionPending) << "and the completion is dropped by it";
    EXPECT_EQ(0u, node.last(NAP_FLUSH).gcb.NumVerbsWaiting);
    EXPECT_EQ(0, id.cccb().usCompletionPending);
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
}

TEST_F(Frame, cmflus_non_blocking_that_completes_at_once_posts_nothing)
{
    Id id = non_blocking();
    EXPECT_EQ(CM_OK, call(cmflus, id));
    EXPECT_EQ(cmflus_cb, node.only(NAP_FLUSH).routine);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(0, id.cccb().usCompletionPending);
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_TRUE(node.wakes.empty());
}

TEST_F(Frame, cmflus_without_a_promised_callback_counts_as_complete)
{
    Id id = non_blocking();
    node.next(NAP_FLUSH, never_calls_back(fails(0x0200)));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmflus, id));
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
}

TEST_F(Frame, cmflus_dropped_completion_without_a_count_fails_the_check)
{
    Id id = completed();
    library_gcb.NumVerbsWaiting = 0;
    Out rc;
    cmflus(id.address(), rc.address());
    EXPECT_EQ(CM_OK, rc.value());
    node.assertion("(pGCB)->NumVerbsWaiting > 0");
    library_gcb.NumVerbsWaiting = 0;
}

TEST_F(Frame, cmflus_a_completion_that_is_still_posted_is_counted_once)
{
    Id id = non_blocking();
    node.next(NAP_FLUSH, later());
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmflus, id));
    id.cccb().usCompletionPending = 1;
    library_gcb.NumVerbsWaiting = 1;
    node.deliver_all();
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(1, id.cccb().usCompletionPending);
}

TEST_F(Frame, cmflus_conversation_ended_by_a_later_completion_stays_until_collected)
{
    Id id = busy();
    node.verbs.back().answer = fails(0x0900);
    node.deliver_all();
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    EXPECT_EQ(1, id.cccb().usCompletionPending);
    EXPECT_EQ(18u, id.cccb().ulPendingRc);

    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(hex(id.content()), hex(found.content()));
    EXPECT_EQ(CM_DEALLOCATED_NORMAL, conversation_rc.value());
    EXPECT_FALSE(id.exists());
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
}

TEST_F(Frame, cmflus_ended_conversation_is_freed_by_the_next_verb_when_nobody_collects)
{
    Id id = busy();
    node.verbs.back().answer = fails(0x0900);
    node.deliver_all();
    EXPECT_EQ(CM_OK, call(cmflus, id));
    EXPECT_FALSE(id.exists());
}

TEST_F(Frame, cmflus_with_the_trace_off_writes_no_record_and_looks_up_once)
{
    Id id = allocated();
    EXPECT_EQ(CM_OK, call(cmflus, id));
    EXPECT_TRUE(node.trace.empty());
}

TEST_F(Frame, cmflus_with_the_trace_on_writes_a_request_and_a_response)
{
    Id id = allocated();
    node.api_trace(true);
    EXPECT_EQ(CM_OK, call(cmflus, id));
    unsigned records = 0;
    for (const auto &line : node.trace)
    {
        records += line.first == "sep" ? 1 : 0;
    }
    EXPECT_EQ(2u, records);
}

TEST_F(Frame, cmflus_completing_later_writes_its_own_response)
{
    Id id = non_blocking();
    node.next(NAP_FLUSH, later());
    node.api_trace(true);
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmflus, id));
    const size_t before = node.trace.size();
    node.deliver_all();
    EXPECT_LT(before, node.trace.size());
}
