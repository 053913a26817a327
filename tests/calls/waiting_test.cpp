/* waiting_test.cpp - processing mode, CMWAIT and CMCHCK, CMCANC. */
#include "calls.hpp"

using Waiting = CallTest;

/* ---- CMSPM ---------------------------------------------------------------------------------------------- */

TEST_F(Waiting, cmspm_sets_both_modes)
{
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    EXPECT_EQ(1, id.cccb().usProcessingMode);
    EXPECT_EQ(CM_OK, call(cmspm, id, 0));
    EXPECT_EQ(0, id.cccb().usProcessingMode);
    expect_no_verb();
}

TEST_F(Waiting, cmspm_of_another_value_changes_nothing)
{
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    for (int mode : {2, -1, 0x10000, 0x10001})
    {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmspm, id, mode));
        EXPECT_EQ(1, id.cccb().usProcessingMode);
    }
}

TEST_F(Waiting, cmspm_with_a_verb_pending_is_not_accepted)
{
    Id id = busy();
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmspm, id, 0));
    EXPECT_EQ(1, id.cccb().usProcessingMode);
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmspm, id, 7)) << "before the value is looked at";
    node.deliver_all();
    EXPECT_EQ(CM_OK, call(cmspm, id, 0));
}

/* ---- CMWAIT --------------------------------------------------------------------------------------------- */

TEST_F(Waiting, cmwait_with_nothing_outstanding_returns_at_once)
{
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmwait, found, conversation_rc)) << "before the start, too";
    initialised();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmwait, found, conversation_rc));
    EXPECT_TRUE(node.sleeps.empty());
    EXPECT_TRUE(found.untouched());
    EXPECT_TRUE(conversation_rc.untouched());
}

TEST_F(Waiting, cmwait_collects_a_completion_that_is_there)
{
    Id id = completed();
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(hex(id.content()), hex(found.content()));
    EXPECT_EQ(CM_OK, conversation_rc.value());
    EXPECT_TRUE(node.sleeps.empty());
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(0, id.cccb().usCompletionPending);
    EXPECT_TRUE(id.exists());
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmwait, found, conversation_rc)) << "it is collected once";
}

TEST_F(Waiting, cmwait_returns_the_callers_own_id)
{
    Id id = non_blocking();
    Id spelled(id.content());
    spelled.address()[7] = 0x5A; /* the second half does not matter for finding, and comes back as given */
    node.next(NAP_FLUSH, later());
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmflus, spelled));
    node.deliver_all();
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(hex(spelled.content()), hex(found.content()));
}

TEST_F(Waiting, cmwait_sleeps_without_limit_until_a_completion)
{
    Id id = busy();
    node.verbs.back().answer = fails(0x0200);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    ASSERT_EQ(1u, node.sleeps.size());
    EXPECT_EQ(library_gcb.WaitObject, node.sleeps[0].first);
    EXPECT_EQ(-1, node.sleeps[0].second);
    EXPECT_EQ(hex(id.content()), hex(found.content()));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, conversation_rc.value());
}

TEST_F(Waiting, cmwait_looks_again_after_a_wake_up_for_nothing)
{
    Id id = busy();
    node.sleeps_do.push_back([](u32) { return 0; });
    node.sleeps_do.push_back([](u32) { return 110; }); /* a sleep that fails is no reason to give up either */
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(3u, node.sleeps.size());
    EXPECT_EQ(hex(id.content()), hex(found.content()));
}

TEST_F(Waiting, cmwait_gives_up_when_it_cannot_sleep)
{
    busy();
    node.sleeps_do.push_back([](u32) { return 5; });
    node.sleeps_do.push_back([](u32) { return 5; });
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmwait, found, conversation_rc)) << "two sleeps failed one after the other";
    EXPECT_TRUE(found.untouched());
    node.deliver_all();
}

TEST_F(Waiting, cmwait_gives_up_when_the_outstanding_verb_goes_away)
{
    Id id = busy();
    /* Another thread meanwhile collected the completion. */
    node.sleeps_do.push_back([&](u32) {
        node.deliver_all();
        Locked held;
        id.cccb().usCompletionPending = 0;
        library_gcb.NumVerbsWaiting = 0;
        return 0;
    });
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmwait, found, conversation_rc));
    EXPECT_TRUE(found.untouched());
}

TEST_F(Waiting, cmwait_takes_two_completions_in_table_order)
{
    Id first = busy();
    Verb &verb_of_first = node.verbs.back();
    node.verbs.back().answer = fails(0x0200);
    Id second = initialised();
    EXPECT_EQ(CM_OK, call(cmallc, second));
    EXPECT_EQ(CM_OK, call(cmspm, second, 1));
    node.next(NAP_FLUSH, later());
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmflus, second));
    EXPECT_EQ(2u, library_gcb.ulAsyncVerbsOutstanding);
    node.deliver(node.verbs.back()); /* the second one completes first */
    node.deliver(verb_of_first);
    EXPECT_EQ(2u, library_gcb.NumVerbsWaiting);

    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(hex(first.content()), hex(found.content()));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, conversation_rc.value());
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(hex(second.content()), hex(found.content()));
    EXPECT_EQ(CM_OK, conversation_rc.value());
}

TEST_F(Waiting, cmwait_checks_that_a_counted_completion_exists)
{
    initialised();
    library_gcb.NumVerbsWaiting = 1;
    Id found;
    Out conversation_rc;
    Out rc;
    cmwait(found.address(), conversation_rc.address(), rc.address());
    node.assertion("tm_handle != NB_NULL_HANDLE");
    library_gcb.NumVerbsWaiting = 0;
}

TEST_F(Waiting, cmwait_checks_that_every_entry_has_a_record)
{
    Id first = initialised();
    Id second = completed();
    CCCB *const record = first.find();
    auto &entries = node.tables[library_gcb.ConvTable].entries;
    entries[first.handle()] = nullptr;
    Id found;
    Out conversation_rc;
    Out rc;
    cmwait(found.address(), conversation_rc.address(), rc.address());
    entries[first.handle()] = record;
    EXPECT_EQ(CM_OK, rc.value());
    EXPECT_EQ(hex(second.content()), hex(found.content()));
    node.assertion("cccb_ptr != NULL");
}

TEST_F(Waiting, cmwait_after_a_path_failure_does_not_wait_for_what_is_lost)
{
    busy();
    node.path_event(PATH_EVENT_FAILURE);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmwait, found, conversation_rc));
    EXPECT_TRUE(found.untouched());
    EXPECT_TRUE(conversation_rc.untouched());
}

TEST_F(Waiting, cmwait_with_the_path_failing_while_it_sleeps)
{
    busy();
    node.sleeps_do.push_back([](u32) {
        node.path_event(PATH_EVENT_FAILURE);
        return 1;
    });
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(0, library_started);
}

TEST_F(Waiting, cmwait_after_a_path_failure_finds_no_completion)
{
    completed();
    node.path_event(PATH_EVENT_FAILURE);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmwait, found, conversation_rc));
    node.assertion("tm_handle != NB_NULL_HANDLE");
    EXPECT_TRUE(found.untouched());
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmwait, found, conversation_rc)) << "the counts start anew";
}

/* ---- CMCHCK --------------------------------------------------------------------------------------------- */

TEST_F(Waiting, cmchck_with_nothing_outstanding_is_a_state_check)
{
    Id found;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmchck, found));
    EXPECT_EQ(1u, node.event_fd_calls);
    EXPECT_TRUE(found.untouched());
}

TEST_F(Waiting, cmchck_with_verbs_still_out_is_unsuccessful)
{
    busy();
    Id found;
    EXPECT_EQ(CM_UNSUCCESSFUL, call(cmchck, found));
    EXPECT_TRUE(found.untouched());
    EXPECT_TRUE(node.sleeps.empty());
    node.deliver_all();
}

TEST_F(Waiting, cmchck_lets_due_completions_arrive_first)
{
    Id id = busy();
    node.deliver_on_event_fd = true;
    Id found;
    EXPECT_EQ(CM_OK, call(cmchck, found));
    EXPECT_EQ(hex(id.content()), hex(found.content()));
}

TEST_F(Waiting, cmchck_twice_then_cmwait_is_the_same_conversation)
{
    Id id = completed();
    Id found;
    EXPECT_EQ(CM_OK, call(cmchck, found));
    EXPECT_EQ(hex(id.content()), hex(found.content()));
    Id again;
    EXPECT_EQ(CM_OK, call(cmchck, again));
    EXPECT_EQ(hex(id.content()), hex(again.content()));
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(1, id.cccb().usCompletionPending);
    Id collected;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, collected, conversation_rc));
    EXPECT_EQ(hex(id.content()), hex(collected.content()));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmchck, again));
}

TEST_F(Waiting, cmchck_count_without_a_completion_fails_the_check)
{
    initialised();
    library_gcb.NumVerbsWaiting = 1;
    Id found;
    Out rc;
    cmchck(found.address(), rc.address());
    EXPECT_EQ(CM_UNSUCCESSFUL, rc.value());
    node.assertion("FALSE");
    library_gcb.NumVerbsWaiting = 0;
}

/* ---- CMCANC --------------------------------------------------------------------------------------------- */

TEST_F(Waiting, cmcanc_of_a_conversation_never_allocated_frees_it_without_a_verb)
{
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    expect_no_verb();
    EXPECT_FALSE(id.exists());
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmcanc, id));
    expect_unknown_id(2, id);
}

TEST_F(Waiting, cmcanc_of_an_idle_incoming_conversation_frees_it_without_a_verb)
{
    Id id = incoming();
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    expect_no_verb();
    EXPECT_FALSE(id.exists());
}

TEST_F(Waiting, cmcanc_of_an_idle_allocated_conversation)
{
    Id id = allocated();
    const CCCB before = id.cccb();
    const size_t objects = node.wait_objects.size();
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    Verb &cancel = node.only(NAP_CANCEL_CONVERSATION);
    EXPECT_VERB(cancel, Image(NAP_CANCEL_CONVERSATION).of(before));
    EXPECT_EQ(scripted::Entry::asynchronous, cancel.entry);
    EXPECT_EQ(cmcanc_cb, cancel.routine);
    EXPECT_NE(library_gcb.WaitObject, cancel.user_word) << "a wait object of its own";
    EXPECT_FALSE(cancel.cccb.has_value()) << "a record of its own";
    EXPECT_TRUE(node.sleeps.empty()) << "the node answered at once";
    EXPECT_EQ(objects, node.wait_objects.size());
    EXPECT_FALSE(id.exists());
}

TEST_F(Waiting, cmcanc_books_while_its_verb_is_out)
{
    Id id = allocated(0);
    node.at_issue = [&](Verb &verb) {
        if (verb.opcode == NAP_CANCEL_CONVERSATION)
        {
            EXPECT_EQ(1, id.cccb().usVerbsPending);
            EXPECT_EQ(1, id.cccb().usConversationEnded);
            EXPECT_EQ(0, verb.u8_at(2)) << "basic";
            EXPECT_EQ(1u, node.wait_objects.count(verb.user_word));
        }
    };
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    EXPECT_EQ(1u, node.issued(NAP_CANCEL_CONVERSATION).size());
}

TEST_F(Waiting, cmcanc_waits_for_its_verb_whatever_the_mode)
{
    for (int mode : {0, 1})
    {
        Id id = allocated();
        id.cccb().usProcessingMode = static_cast<u16>(mode);
        node.next(NAP_CANCEL_CONVERSATION, later());
        EXPECT_EQ(CM_OK, call(cmcanc, id));
        ASSERT_EQ(1u, node.sleeps.size());
        EXPECT_EQ(node.only(NAP_CANCEL_CONVERSATION).user_word, node.sleeps[0].first);
        EXPECT_EQ(-1, node.sleeps[0].second);
        EXPECT_EQ(1u, node.wait_objects.size()) << "the private one was released";
        EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
        EXPECT_FALSE(id.exists());
        node.forget();
    }
}

TEST_F(Waiting, cmcanc_keeps_its_wait_object_when_the_sleep_fails)
{
    Id id = allocated();
    node.next(NAP_CANCEL_CONVERSATION, later());
    node.sleeps_do.push_back([](u32) {
        node.deliver_all();
        return 5;
    });
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    node.wait_objects_left = 1;
}

TEST_F(Waiting, cmcanc_with_a_verb_pending_leaves_the_conversation_to_its_completion)
{
    Id id = busy();
    const CCCB before = id.cccb();
    Verb &flush = node.only(NAP_FLUSH);
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    EXPECT_VERB(node.only(NAP_CANCEL_CONVERSATION), Image(NAP_CANCEL_CONVERSATION).of(before));
    EXPECT_TRUE(id.exists());
    EXPECT_EQ(1, id.cccb().usVerbsPending);
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    flush.answer = fails(0x2100);
    node.deliver(flush);
    node.problem(0x20030016, 1);
    EXPECT_TRUE(id.exists()) << "until the completion is collected";
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, conversation_rc.value());
    EXPECT_FALSE(id.exists());
}

TEST_F(Waiting, cmcanc_with_a_completion_posted_leaves_it_to_be_collected)
{
    Id id = completed();
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    EXPECT_TRUE(id.exists());
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_FALSE(id.exists());
}

TEST_F(Waiting, cmcanc_without_a_wait_object_says_20_and_leaves_the_count)
{
    Id id = allocated();
    node.wait_object.fail();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmcanc, id));
    node.problem(0x2003000B, 18);
    expect_no_verb();
    EXPECT_EQ(1, id.cccb().usVerbsPending);
    EXPECT_EQ(1, id.cccb().usConversationEnded);
}

TEST_F(Waiting, cmcanc_refused_by_the_node_maps_the_code_and_still_ends)
{
    Id id = allocated();
    node.next(NAP_CANCEL_CONVERSATION, fails(0x0200));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmcanc, id));
    EXPECT_FALSE(id.exists());
    id = allocated();
    node.next(NAP_CANCEL_CONVERSATION, fails(0x5500, 3));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmcanc, id));
    EXPECT_EQ(0x72u, node.problem(0x20030016, 1).items.at(0).first);
}

TEST_F(Waiting, cmcanc_of_a_pending_accept_names_it_by_the_callers_id)
{
    Id id = incoming();
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, later(fails(0x2100)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmacci, id));
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    EXPECT_VERB(node.only(NAP_CANCEL_CONVERSATION),
                Image(NAP_CANCEL_CONVERSATION).put8(2, 1).put32(20, id.handle()));
    EXPECT_TRUE(id.exists()) << "its accept is still out";
    node.deliver_all();
    node.problem(0x20030016, 1);
    node.problem(0x2003000C, 3);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_FALSE(id.exists());
}

TEST_F(Waiting, cmcanc_of_an_allocation_in_progress_names_its_tp)
{
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_M_ALLOCATE, later(fails(0x0300, 0x05000000)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmallc, id));
    const Bytes tp(id.cccb().TpId, id.cccb().TpId + 8);
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    EXPECT_VERB(node.only(NAP_CANCEL_CONVERSATION), Image(NAP_CANCEL_CONVERSATION).put8(2, 1).put(12, tp));
    EXPECT_TRUE(id.exists());
    node.deliver_all();
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_ALLOCATE_FAILURE_RETRY, conversation_rc.value());
    EXPECT_FALSE(id.exists());
}

TEST_F(Waiting, cmcanc_while_a_tp_is_being_started_names_nothing)
{
    /* The verb is never pending in this library's own calls; the record says so here. */
    Id id = initialised();
    id.cccb().vcb.opcode = NAP_TP_STARTED;
    id.cccb().usVerbsPending = 1;
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    EXPECT_VERB(node.only(NAP_CANCEL_CONVERSATION), Image(NAP_CANCEL_CONVERSATION).put8(2, 1));
    EXPECT_EQ(1, id.cccb().usVerbsPending);
    EXPECT_EQ(1, id.cccb().usConversationEnded);
}

TEST_F(Waiting, cmcanc_of_an_initialised_conversation_with_an_unexpected_verb_marks_it)
{
    Id id = initialised();
    id.cccb().vcb.opcode = NAP_FLUSH;
    id.cccb().usVerbsPending = 1;
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    node.assertion("cccb_ptr->vcb.alloc.opcode == NAP_B_ALLOCATE");
    EXPECT_EQ(1, id.cccb().usCancelPending);
    expect_no_verb();
}

TEST_F(Waiting, cmcanc_after_a_refused_allocation_still_talks_to_the_node)
{
    /* The refused verb is still in the record, and it is what decides. */
    Id id = initialised();
    node.next(NAP_M_ALLOCATE, fails(0x0200));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmallc, id));
    const Bytes tp(id.cccb().TpId, id.cccb().TpId + 8);
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    EXPECT_VERB(node.only(NAP_CANCEL_CONVERSATION), Image(NAP_CANCEL_CONVERSATION).put8(2, 1).put(12, tp));
    EXPECT_FALSE(id.exists());
}

TEST_F(Waiting, cmcanc_of_an_incoming_conversation_with_an_unexpected_verb_fails_the_check)
{
    Id id = incoming();
    id.cccb().vcb.opcode = NAP_TP_STARTED;
    id.cccb().usVerbsPending = 1;
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    node.assertion("cccb_ptr->vcb.rcvallcp.rcv_alloc.opcode == NAP_RECEIVE_ALLOCATE_CPIC");
    EXPECT_VERB(node.only(NAP_CANCEL_CONVERSATION),
                Image(NAP_CANCEL_CONVERSATION).put8(2, 1).put32(20, id.handle()));
}
