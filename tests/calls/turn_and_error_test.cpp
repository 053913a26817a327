/* turn_and_error_test.cpp - CMPTR, CMSERR, CMRTS, CMTRTS. */
#include "calls.hpp"

#include <memory>

using TurnAndError = CallTest;

/* ---- CMPTR ---------------------------------------------------------------------------------------------- */

TEST_F(TurnAndError, cmptr_verb_field_by_field)
{
    const unsigned bytes_by_type[] = {0, 1, 0}; /* sync level, flush, confirm */
    for (unsigned type = 0; type < 3; type++)
    {
        Id id = allocated(static_cast<int>(type & 1));
        id.cccb().ulPrepareToReceiveType = type;
        memset(id.cccb().vcb.bytes, 0xFF, CPIC_VERB_SIZE);
        EXPECT_EQ(CM_OK, call(cmptr, id));
        Verb &verb = node.only(NAP_PREPARE_TO_RECEIVE);
        EXPECT_VERB(verb, Image(NAP_PREPARE_TO_RECEIVE).of(*verb.cccb).put8(24, bytes_by_type[type]));
        EXPECT_EQ(nullptr, verb.routine);
        EXPECT_EQ(1u, verb.user_word);
        expect_pending_call(verb, 12, id);
        node.forget();
    }
}

/* ---- CMRTS ---------------------------------------------------------------------------------------------- */

TEST_F(TurnAndError, cmrts_verb_field_by_field)
{
    for (int type : {0, 1})
    {
        Id id = allocated(type);
        memset(id.cccb().vcb.bytes, 0xFF, CPIC_VERB_SIZE);
        EXPECT_EQ(CM_OK, call(cmrts, id));
        Verb &verb = node.only(NAP_REQUEST_TO_SEND);
        EXPECT_VERB(verb, Image(NAP_REQUEST_TO_SEND).of(*verb.cccb));
        EXPECT_EQ(nullptr, verb.routine);
        EXPECT_EQ(1u, verb.user_word);
        expect_pending_call(verb, 14, id);
        node.forget();
    }
}

TEST_F(TurnAndError, cmptr_and_cmrts_failures)
{
    const struct
    {
        void (*function)(unsigned char *, CM_RETURN_CODE *);
        u16 opcode;
    } calls[] = {{cmptr, NAP_PREPARE_TO_RECEIVE}, {cmrts, NAP_REQUEST_TO_SEND}};
    for (const auto &c : calls)
    {
        for (const EndingCode &code : ending_codes)
        {
            SCOPED_TRACE(code.primary);
            Id id = allocated();
            node.next(c.opcode, fails(code.primary, code.secondary));
            EXPECT_EQ(code.return_code, call(c.function, id));
            if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
            {
                EXPECT_EQ(c.opcode, node.problem(0x20030016, 1).items.at(0).first);
            }
            EXPECT_FALSE(id.exists());
        }
        Id id = allocated();
        for (const EndingCode &code : lasting_codes)
        {
            SCOPED_TRACE(code.primary);
            node.next(c.opcode, fails(code.primary, code.secondary));
            EXPECT_EQ(code.return_code, call(c.function, id));
            EXPECT_TRUE(id.exists());
        }
        EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(c.function, *std::make_unique<Id>(initialised())));
        EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(c.function, *std::make_unique<Id>(incoming())));
        node.forget();
    }
}

TEST_F(TurnAndError, cmptr_and_cmrts_non_blocking)
{
    const struct
    {
        void (*function)(unsigned char *, CM_RETURN_CODE *);
        u16 opcode;
        appc_completion *routine;
    } calls[] = {{cmptr, NAP_PREPARE_TO_RECEIVE, cmptr_cb}, {cmrts, NAP_REQUEST_TO_SEND, cmrts_cb}};
    for (const auto &c : calls)
    {
        Id id = non_blocking();
        node.next(c.opcode, later(fails(0x0200)));
        EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(c.function, id));
        EXPECT_EQ(c.routine, node.only(c.opcode).routine);
        EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
        EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(c.function, id));
        node.deliver_all();
        EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
        EXPECT_EQ(0, id.cccb().usVerbsPending);
        EXPECT_EQ(1u, node.wakes.size());
        Id found;
        Out conversation_rc;
        EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
        EXPECT_EQ(CM_PROGRAM_STATE_CHECK, conversation_rc.value());
        EXPECT_TRUE(id.exists());
        node.forget();
    }
}

/* ---- CMSERR --------------------------------------------------------------------------------------------- */

TEST_F(TurnAndError, cmserr_mapped_field_by_field)
{
    for (u32 direction : {0u, 1u})
    {
        Id id = allocated(0);
        give_log_data(id, "why");
        id.cccb().ulConversationType = 1;
        id.cccb().ulErrorDirection = direction;
        memset(id.cccb().vcb.bytes, 0xFF, CPIC_VERB_SIZE);
        Out rts;
        EXPECT_EQ(CM_OK, call(cmserr, id, rts));
        Verb &verb = node.only(NAP_SEND_ERROR);
        EXPECT_VERB(verb, Image(NAP_SEND_ERROR).of(*verb.cccb).put8(26, direction));
        EXPECT_EQ(nullptr, verb.routine);
        EXPECT_EQ(1u, verb.user_word);
        expect_pending_call(verb, 16, id, rts.address());
        EXPECT_EQ(0, rts.value());
        node.forget();
    }
}

TEST_F(TurnAndError, cmserr_basic_passes_the_programs_log_data_once)
{
    Id id = allocated(0);
    give_log_data(id, "why");
    id.cccb().ulErrorDirection = CM_SEND_ERROR;
    u8 *own = id.cccb().LogData;
    Out rts;
    EXPECT_EQ(CM_OK, call(cmserr, id, rts));
    Verb &verb = node.only(NAP_SEND_ERROR);
    EXPECT_VERB(verb, Image(NAP_SEND_ERROR).of(*verb.cccb).put8(26, 1).put16(28, 11).point(32, own));
    EXPECT_EQ(0, id.cccb().usLogDataLen);
    EXPECT_EQ(nullptr, id.cccb().LogData);
    EXPECT_EQ(0u, node.memory.count(own));
    node.forget();
    EXPECT_EQ(CM_OK, call(cmserr, id, rts));
    EXPECT_VERB(node.only(NAP_SEND_ERROR), Image(NAP_SEND_ERROR).of(id.cccb()).put8(26, 1));
    id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
    const CCCB before = id.cccb();
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    EXPECT_VERB(node.only(NAP_DEALLOCATE), Image(NAP_DEALLOCATE).of(before).put8(25, 2));
}

TEST_F(TurnAndError, cmserr_that_fails_keeps_log_data_and_marks)
{
    Id id = allocated(0);
    give_log_data(id, "why");
    id.cccb().usConfirmPending = 1;
    id.cccb().usDeallocPending = 1;
    Out rts;
    node.next(NAP_SEND_ERROR, fails(0x0200).put8(24, 1));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmserr, id, rts));
    EXPECT_EQ(1, rts.value()) << "stored whatever the result";
    EXPECT_EQ(11, id.cccb().usLogDataLen);
    EXPECT_NE(nullptr, id.cccb().LogData);
    EXPECT_EQ(1, id.cccb().usConfirmPending);
    EXPECT_EQ(1, id.cccb().usDeallocPending);
}

TEST_F(TurnAndError, cmserr_clears_what_a_confirmation_request_left)
{
    Id id = allocated();
    id.cccb().usConfirmPending = 1;
    id.cccb().usDeallocPending = 1;
    Out rts;
    node.next(NAP_SEND_ERROR, succeeds().put8(24, 1));
    EXPECT_EQ(CM_OK, call(cmserr, id, rts));
    EXPECT_EQ(1, rts.value());
    EXPECT_EQ(0, id.cccb().usConfirmPending);
    EXPECT_EQ(0, id.cccb().usDeallocPending);
    EXPECT_EQ(0, id.cccb().usConversationEnded);
}

TEST_F(TurnAndError, cmserr_log_data_without_a_buffer)
{
    Id id = allocated(0);
    id.cccb().usLogDataLen = 11;
    Out rts;
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmserr, id, rts));
    EXPECT_EQ("", node.problem(0x20030012, 2).format);
    expect_no_verb();
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_TRUE(rts.untouched());
    id.cccb().ulConversationType = 1;
    EXPECT_EQ(CM_OK, call(cmserr, id, rts)) << "a mapped conversation sends none";
}

TEST_F(TurnAndError, cmserr_failures_that_end)
{
    for (const EndingCode &code : ending_codes)
    {
        SCOPED_TRACE(code.primary);
        Id id = allocated();
        Out rts;
        node.next(NAP_SEND_ERROR, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, call(cmserr, id, rts));
        if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
        {
            node.problem(0x20030016, 1);
        }
        EXPECT_FALSE(id.exists());
    }
    Out rts;
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmserr, id, rts));
    EXPECT_TRUE(rts.untouched());
}

TEST_F(TurnAndError, cmserr_non_blocking)
{
    Id id = non_blocking(0);
    give_log_data(id, "why");
    Out rts;
    node.next(NAP_SEND_ERROR, later(succeeds().put8(24, 1)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmserr, id, rts));
    EXPECT_TRUE(rts.untouched());
    EXPECT_NE(nullptr, id.cccb().LogData);
    Verb &verb = node.only(NAP_SEND_ERROR);
    EXPECT_EQ(cmserr_cb, verb.routine);
    node.deliver(verb);
    EXPECT_EQ(1, rts.value());
    EXPECT_EQ(nullptr, id.cccb().LogData);
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(1u, node.wakes.size());
}

/* ---- CMTRTS --------------------------------------------------------------------------------------------- */

TEST_F(TurnAndError, cmtrts_verb_field_by_field)
{
    for (int mode : {0, 1})
    {
        Id id = allocated();
        id.cccb().usProcessingMode = static_cast<u16>(mode);
        memset(id.cccb().vcb.bytes, 0xFF, CPIC_VERB_SIZE);
        Out rts;
        EXPECT_EQ(CM_OK, call(cmtrts, id, rts));
        Verb &verb = node.only(NAP_TEST_RTS);
        EXPECT_VERB(verb, Image(NAP_TEST_RTS).of(*verb.cccb));
        EXPECT_EQ(scripted::Entry::asynchronous, verb.entry);
        EXPECT_EQ(nullptr, verb.routine) << "synchronous in either mode";
        EXPECT_EQ(0u, verb.user_word);
        EXPECT_EQ(0, verb.cccb->usVerbsPending) << "not counted";
        EXPECT_EQ(30, verb.cccb->usTraceCallNo);
        EXPECT_EQ(static_cast<void *>(rts.address()), verb.cccb->pOut1);
        EXPECT_EQ(nullptr, verb.cccb->pOut2);
        EXPECT_EQ(hex(id.content()), hex(verb.cccb->SavedConvId, 8));
        EXPECT_EQ(CM_REQ_TO_SEND_RECEIVED, rts.value());
        EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
        node.forget();
    }
}

TEST_F(TurnAndError, cmtrts_nothing_received)
{
    Id id = allocated();
    Out rts;
    node.next(NAP_TEST_RTS, fails(0x1400));
    EXPECT_EQ(CM_OK, call(cmtrts, id, rts));
    EXPECT_EQ(CM_REQ_TO_SEND_NOT_RECEIVED, rts.value());
    EXPECT_EQ(0u, id.cccb().ulPendingRc);
}

TEST_F(TurnAndError, cmtrts_failed_by_the_node_still_returns_ok)
{
    for (const EndingCode &code : ending_codes)
    {
        SCOPED_TRACE(code.primary);
        Id id = allocated();
        Out rts;
        node.next(NAP_TEST_RTS, fails(code.primary, code.secondary));
        EXPECT_EQ(CM_OK, call(cmtrts, id, rts));
        EXPECT_TRUE(rts.untouched());
        if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
        {
            node.problem(0x20030016, 1);
        }
        EXPECT_EQ(1, id.cccb().usConversationEnded);
        EXPECT_EQ(code.return_code, static_cast<long>(id.cccb().ulPendingRc));
    }
    Id id = allocated();
    Out rts;
    node.next(NAP_TEST_RTS, fails(0x0200));
    EXPECT_EQ(CM_OK, call(cmtrts, id, rts));
    EXPECT_EQ(25u, id.cccb().ulPendingRc);
    EXPECT_EQ(0, id.cccb().usConversationEnded);
    EXPECT_TRUE(rts.untouched());
}

TEST_F(TurnAndError, cmtrts_while_a_confirmation_is_owed)
{
    Id id = allocated();
    Buffer buffer(10);
    Out data, length, status, received_rts, rts;
    node.next(NAP_RECEIVE_AND_WAIT, succeeds().put16(24, 2));
    EXPECT_EQ(CM_OK, call(cmrcv, id, buffer, 10, data, length, status, received_rts));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmtrts, id, rts));
    EXPECT_TRUE(node.issued(NAP_TEST_RTS).empty());
    EXPECT_TRUE(rts.untouched());
    EXPECT_EQ(CM_OK, call(cmcfmd, id));
    EXPECT_EQ(CM_OK, call(cmtrts, id, rts));
    EXPECT_EQ(1, rts.value());
}

TEST_F(TurnAndError, cmtrts_before_allocation)
{
    Out rts;
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmtrts, id, rts));
    EXPECT_TRUE(rts.untouched());
    expect_no_verb();
}

TEST_F(TurnAndError, cmtrts_leaves_a_posted_completion)
{
    Id id = completed();
    Out rts;
    EXPECT_EQ(CM_OK, call(cmtrts, id, rts));
    EXPECT_EQ(1, id.cccb().usCompletionPending);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
}
