/* send_test.cpp - CMSEND: the verb with each send type, the deallocation chained behind it, both completions. */
#include "calls.hpp"

namespace
{

class Send : public CallTest
{
protected:
    /* The send type byte of one send with these characteristics. */
    static unsigned type_byte(u32 send_type, u32 prepare_type, u32 deallocate_type)
    {
        Id id = allocated();
        id.cccb().ulSendType = send_type;
        id.cccb().ulPrepareToReceiveType = prepare_type;
        id.cccb().ulDeallocateType = deallocate_type;
        Out rts;
        EXPECT_EQ(CM_OK, call(cmsend, id, "x", 1, rts));
        return node.only(NAP_SEND_DATA).u8_at(32);
    }

    /* A basic conversation about to be ended abnormally with its next send, log data set. */
    static Id ending_with_log_data(bool blocking = true)
    {
        Id id = blocking ? allocated(0) : non_blocking(0);
        id.cccb().ulSendType = CM_SEND_AND_DEALLOCATE;
        id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
        give_log_data(id, "why");
        return id;
    }
};

/* What DEALLOCATE carries: the header that give_log_data() writes, and the text. */
const Bytes log_record = {0, 0, 0x12, 0xE1, 0, 2, 0, 0, 'w', 'h', 'y'};

Image chained_deallocate(const CCCB &c)
{
    return Image(NAP_DEALLOCATE).of(c).put8(2, 0).put8(25, 2).put16(26, 11);
}

} // namespace

TEST_F(Send, cmsend_verb_field_by_field)
{
    Id id = allocated();
    Out rts;
    const char data[] = "hello";
    EXPECT_EQ(CM_OK, call(cmsend, id, data, 5, rts));
    Verb &verb = node.only(NAP_SEND_DATA);
    EXPECT_VERB(verb, Image(NAP_SEND_DATA).of(*verb.cccb).put16(26, 5).point(28, data));
    EXPECT_EQ(nullptr, verb.routine);
    EXPECT_EQ(1u, verb.user_word);
    expect_pending_call(verb, 15, id, rts.address());
    EXPECT_EQ(CM_REQ_TO_SEND_NOT_RECEIVED, rts.value());
    EXPECT_EQ(1u, node.verbs.size());
    EXPECT_EQ(0, id.cccb().usVerbsPending);
}

TEST_F(Send, cmsend_on_a_basic_conversation)
{
    Id id = allocated(0);
    Out rts;
    EXPECT_EQ(CM_OK, call(cmsend, id, "hello", 5, rts));
    Verb &verb = node.only(NAP_SEND_DATA);
    EXPECT_EQ(0, verb.u8_at(2));
    EXPECT_EQ("hello", std::string(verb.pointed_at.begin(), verb.pointed_at.end()))
        << "logical records are the node's business";
}

TEST_F(Send, cmsend_lengths)
{
    Id id = allocated();
    const std::string data(32768, 'x');
    Out rts;
    EXPECT_EQ(CM_OK, call(cmsend, id, data, 32767, rts));
    EXPECT_EQ(32767, node.last(NAP_SEND_DATA).u16_at(26));
    EXPECT_EQ(CM_OK, call(cmsend, id, data, 0, rts));
    EXPECT_EQ(0, node.last(NAP_SEND_DATA).u16_at(26));
    node.forget();
    for (int length : {32768, -1, 65536, INT32_MIN})
    {
        Out unset;
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsend, id, data, length, unset));
        const Log log = node.problem(0x20030007, 1);
        EXPECT_EQ("l", log.format);
        EXPECT_EQ(static_cast<u32>(length), log.items.at(0).first);
        EXPECT_TRUE(unset.untouched());
    }
    expect_no_verb();
    EXPECT_EQ(0, id.cccb().usVerbsPending);
}

TEST_F(Send, cmsend_state_comes_before_length)
{
    Out rts;
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmsend, id, "x", -1, rts));
    Id pending = busy();
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmsend, pending, "x", -1, rts));
    EXPECT_TRUE(rts.untouched());
    node.deliver_all();
}

TEST_F(Send, cmsend_type_bytes_0_to_2_go_as_they_are)
{
    EXPECT_EQ(0u, type_byte(CM_BUFFER_DATA, 1, 3));
    EXPECT_EQ(1u, type_byte(CM_SEND_AND_FLUSH, 1, 3));
    EXPECT_EQ(2u, type_byte(CM_SEND_AND_CONFIRM, 1, 3));
}

TEST_F(Send, cmsend_and_prepare_to_receive)
{
    EXPECT_EQ(4u, type_byte(CM_SEND_AND_PREP_TO_RECEIVE, CM_PREP_TO_RECEIVE_SYNC_LEVEL, 0));
    EXPECT_EQ(3u, type_byte(CM_SEND_AND_PREP_TO_RECEIVE, CM_PREP_TO_RECEIVE_FLUSH, 0));
    EXPECT_EQ(4u, type_byte(CM_SEND_AND_PREP_TO_RECEIVE, CM_PREP_TO_RECEIVE_CONFIRM, 0));
}

TEST_F(Send, cmsend_and_deallocate)
{
    EXPECT_EQ(6u, type_byte(CM_SEND_AND_DEALLOCATE, 0, CM_DEALLOCATE_SYNC_LEVEL));
    EXPECT_EQ(5u, type_byte(CM_SEND_AND_DEALLOCATE, 0, CM_DEALLOCATE_FLUSH));
    EXPECT_EQ(6u, type_byte(CM_SEND_AND_DEALLOCATE, 0, CM_DEALLOCATE_CONFIRM));
    EXPECT_EQ(7u, type_byte(CM_SEND_AND_DEALLOCATE, 0, CM_DEALLOCATE_ABEND));
}

TEST_F(Send, cmsend_and_deallocate_frees_the_conversation)
{
    Id id = allocated();
    id.cccb().ulSendType = CM_SEND_AND_DEALLOCATE;
    Out rts;
    EXPECT_EQ(CM_OK, call(cmsend, id, "bye", 3, rts));
    EXPECT_FALSE(id.exists());
    EXPECT_TRUE(node.issued(NAP_DEALLOCATE).empty());
    EXPECT_EQ(0u, node.count_audits(0x20030003)) << "only DEALLOCATE is audited";
}

TEST_F(Send, cmsend_and_deallocate_that_fails_keeps_the_conversation)
{
    Id id = allocated();
    id.cccb().ulSendType = CM_SEND_AND_DEALLOCATE;
    node.next(NAP_SEND_DATA, fails(0x0200));
    Out rts;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmsend, id, "bye", 3, rts));
    EXPECT_EQ(0, id.cccb().usConversationEnded);
}

TEST_F(Send, cmsend_stores_request_to_send_whatever_the_result)
{
    Id id = allocated();
    Out rts;
    node.next(NAP_SEND_DATA, succeeds().put8(24, 1));
    EXPECT_EQ(CM_OK, call(cmsend, id, "x", 1, rts));
    EXPECT_EQ(CM_REQ_TO_SEND_RECEIVED, rts.value());
    Out after_error;
    node.next(NAP_SEND_DATA, fails(0x0E00).put8(24, 1));
    EXPECT_EQ(CM_PROGRAM_ERROR_PURGING, call(cmsend, id, "x", 1, after_error));
    EXPECT_EQ(CM_REQ_TO_SEND_RECEIVED, after_error.value());
    Out after_end;
    node.next(NAP_SEND_DATA, fails(0x0F00).put8(24, 0));
    EXPECT_EQ(CM_RESOURCE_FAILURE_RETRY, call(cmsend, id, "x", 1, after_end));
    EXPECT_EQ(CM_REQ_TO_SEND_NOT_RECEIVED, after_end.value());
}

TEST_F(Send, cmsend_failures)
{
    for (const EndingCode &code : ending_codes)
    {
        SCOPED_TRACE(code.primary);
        Id id = allocated();
        node.next(NAP_SEND_DATA, fails(code.primary, code.secondary));
        Out rts;
        EXPECT_EQ(code.return_code, call(cmsend, id, "x", 1, rts));
        if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
        {
            EXPECT_EQ(0x0Fu, node.problem(0x20030016, 1).items.at(0).first);
        }
        EXPECT_FALSE(id.exists());
    }
    Id id = allocated();
    for (const EndingCode &code : lasting_codes)
    {
        SCOPED_TRACE(code.primary);
        node.next(NAP_SEND_DATA, fails(code.primary, code.secondary));
        Out rts;
        EXPECT_EQ(code.return_code, call(cmsend, id, "x", 1, rts));
        EXPECT_TRUE(id.exists());
    }
}

TEST_F(Send, cmsend_non_blocking)
{
    Id id = non_blocking();
    node.next(NAP_SEND_DATA, later(succeeds().put8(24, 1)));
    Out rts;
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmsend, id, "hello", 5, rts));
    EXPECT_TRUE(rts.untouched());
    Verb &verb = node.only(NAP_SEND_DATA);
    EXPECT_EQ(cmsend_cb, verb.routine);
    EXPECT_EQ(1u, verb.user_word);
    EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
    Out second;
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmsend, id, "hello", 5, second));
    EXPECT_TRUE(second.untouched());
    EXPECT_EQ(1u, node.verbs.size());
    node.deliver(verb);
    EXPECT_EQ(1, rts.value());
    rts.check();
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(1u, node.wakes.size());
}

TEST_F(Send, cmsend_non_blocking_and_deallocate_ends_when_collected)
{
    Id id = non_blocking();
    id.cccb().ulSendType = CM_SEND_AND_DEALLOCATE;
    node.next(NAP_SEND_DATA, later());
    Out rts;
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmsend, id, "bye", 3, rts));
    node.deliver_all();
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_OK, conversation_rc.value());
    EXPECT_FALSE(id.exists());
}

TEST_F(Send, cmsend_failing_later_with_2100_is_freed_once_nothing_is_pending)
{
    Id id = non_blocking();
    node.next(NAP_SEND_DATA, later(fails(0x2100)));
    Out rts;
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmsend, id, "x", 1, rts));
    node.deliver_all();
    node.problem(0x20030016, 1);
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, conversation_rc.value());
    EXPECT_FALSE(id.exists());
}

/* ---- abnormal deallocation with log data ----------------------------------------------------------------- */

TEST_F(Send, cmsend_abend_without_log_data_is_one_verb)
{
    Id id = allocated(0);
    id.cccb().ulSendType = CM_SEND_AND_DEALLOCATE;
    id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
    Out rts;
    EXPECT_EQ(CM_OK, call(cmsend, id, "x", 1, rts));
    EXPECT_EQ(1u, node.issued(NAP_SEND_DATA).size());
    EXPECT_EQ(7, node.only(NAP_SEND_DATA).u8_at(32));
    EXPECT_TRUE(node.issued(NAP_DEALLOCATE).empty());
    EXPECT_FALSE(id.exists());
}

TEST_F(Send, cmsend_abend_with_log_data_is_send_then_deallocate)
{
    Id id = ending_with_log_data();
    const void *tps_own = id.cccb().LogData;
    Out rts;
    EXPECT_EQ(CM_OK, call(cmsend, id, "x", 1, rts));
    Verb &send = node.only(NAP_SEND_DATA);
    EXPECT_EQ(0, send.u8_at(32)) << "buffer only";
    EXPECT_EQ(11, send.cccb->DeallcLogDataLength);
    EXPECT_NE(nullptr, send.cccb->DeallcLogData);
    EXPECT_NE(tps_own, send.cccb->DeallcLogData) << "a copy";
    Verb &deallocate = node.only(NAP_DEALLOCATE);
    EXPECT_VERB(deallocate, chained_deallocate(*send.cccb).point(28, send.cccb->DeallcLogData));
    EXPECT_EQ(hex(log_record), hex(deallocate.pointed_at));
    EXPECT_EQ(nullptr, deallocate.routine);
    EXPECT_EQ(1u, deallocate.user_word);
    EXPECT_EQ(15, deallocate.cccb->usTraceCallNo) << "the pending-call record stays that of the send";
    EXPECT_EQ(2, deallocate.cccb->usVerbsPending);
    EXPECT_FALSE(id.exists());
    EXPECT_EQ(1u, node.count_audits(0x20030003));
    EXPECT_TRUE(node.memory.empty()) << "both log data records went with the conversation";
}

TEST_F(Send, cmsend_abend_stores_byte_24_of_both_verbs_in_turn)
{
    Id id = ending_with_log_data();
    Out rts;
    long seen = -1;
    node.next(NAP_SEND_DATA, succeeds().put8(24, 1));
    node.at_issue = [&](Verb &verb) {
        if (verb.opcode == NAP_DEALLOCATE)
        {
            seen = rts.value();
        }
    };
    EXPECT_EQ(CM_OK, call(cmsend, id, "x", 1, rts));
    EXPECT_EQ(1, seen) << "stored before the chain";
    EXPECT_EQ(0, rts.value()) << "then written over from the record of the deallocation";
}

TEST_F(Send, cmsend_abend_log_data_without_a_buffer)
{
    Id id = ending_with_log_data();
    u8 *own = id.cccb().LogData;
    id.cccb().LogData = nullptr;
    Out rts;
    const size_t before = node.memory.size();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmsend, id, "x", 1, rts));
    EXPECT_EQ("", node.problem(0x2003000B, 16).format);
    expect_no_verb();
    EXPECT_EQ(before, node.memory.size());
    EXPECT_EQ(0, id.cccb().DeallcLogDataLength);
    EXPECT_EQ(nullptr, id.cccb().DeallcLogData);
    EXPECT_TRUE(rts.untouched());
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    id.cccb().LogData = own;
}

TEST_F(Send, cmsend_abend_without_memory_for_the_copy)
{
    Id id = ending_with_log_data();
    node.allocation.fail();
    Out rts;
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmsend, id, "x", 1, rts));
    node.problem(0x2003000B, 16);
    expect_no_verb();
    EXPECT_EQ(0, id.cccb().DeallcLogDataLength);
    EXPECT_EQ(nullptr, id.cccb().DeallcLogData);
    EXPECT_EQ(CM_OK, call(cmsend, id, "x", 1, rts)) << "it may be tried again";
}

TEST_F(Send, cmsend_abend_whose_send_fails_drops_the_deallocation)
{
    Id id = ending_with_log_data();
    node.next(NAP_SEND_DATA, fails(0x0200));
    Out rts;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmsend, id, "x", 1, rts));
    EXPECT_TRUE(node.issued(NAP_DEALLOCATE).empty());
    EXPECT_EQ(0, id.cccb().DeallcLogDataLength);
    EXPECT_EQ(nullptr, id.cccb().DeallcLogData);
    EXPECT_EQ(2u, node.memory.size()) << "the record and the program's own log data";
}

TEST_F(Send, cmsend_abend_whose_deallocation_fails_still_ends)
{
    Id id = ending_with_log_data();
    node.next(NAP_DEALLOCATE, fails(0x0200));
    Out rts;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmsend, id, "x", 1, rts));
    EXPECT_FALSE(id.exists());
    EXPECT_EQ(0u, node.count_audits(0x20030003));
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Send, cmsend_abend_on_a_mapped_conversation_fails_the_check_and_goes_on)
{
    Id id = ending_with_log_data();
    id.cccb().ulConversationType = 1;
    Out rts;
    EXPECT_EQ(CM_OK, call(cmsend, id, "x", 1, rts));
    node.assertion("cccb_ptr->ulConversationType == CM_BASIC_CONVERSATION");
    EXPECT_EQ(0, node.only(NAP_DEALLOCATE).u8_at(2));
}

TEST_F(Send, cmsend_abend_checks_that_no_copy_is_there)
{
    Id id = ending_with_log_data();
    {
        Locked held;
        id.cccb().DeallcLogData = static_cast<u8 *>(nba_mm_alloc(8, MM_TYPE_RECORD, nba_blank_name));
    }
    u8 *old = id.cccb().DeallcLogData;
    Out rts;
    EXPECT_EQ(CM_OK, call(cmsend, id, "x", 1, rts));
    node.assertion("cccb_ptr->DeallcLogData == NULL");
    Locked held;
    nba_mm_free(old);
}

TEST_F(Send, cmsend_cb_checks_what_a_dropped_deallocation_belongs_to)
{
    Id id = ending_with_log_data();
    node.next(NAP_SEND_DATA, fails(0x0200));
    node.at_issue = [&](Verb &) {
        id.cccb().ulSendType = 0;
        id.cccb().ulDeallocateType = 0;
    };
    Out rts;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmsend, id, "x", 1, rts));
    node.assertion("cccb_ptr->ulSendType == CM_SEND_AND_DEALLOCATE");
    node.assertion("cccb_ptr->ulDeallocateType == CM_DEALLOCATE_ABEND");
}

/* Takes the copy away while its length says that there is one. */
static void lose_the_copy(const Id &id)
{
    nba_mm_free(id.cccb().DeallcLogData);
    id.cccb().DeallcLogData = nullptr;
}

TEST_F(Send, cmsend_cb_checks_that_the_copy_is_there)
{
    for (const bool send_fails : {true, false})
    {
        Id id = ending_with_log_data();
        node.at_issue = [&](Verb &verb) {
            if (verb.opcode == NAP_SEND_DATA)
            {
                lose_the_copy(id);
            }
        };
        node.next(NAP_SEND_DATA, send_fails ? fails(0x0200) : succeeds());
        Out rts;
        EXPECT_EQ(send_fails ? CM_PROGRAM_STATE_CHECK : CM_OK, call(cmsend, id, "x", 1, rts));
        node.assertion("cccb_ptr->DeallcLogData != NULL");
        EXPECT_EQ(send_fails, id.exists());
    }
}

TEST_F(Send, cmdeal_cb_checks_what_a_failed_chained_deallocation_belongs_to)
{
    Id id = ending_with_log_data();
    node.next(NAP_DEALLOCATE, fails(0x0200));
    node.at_issue = [&](Verb &verb) {
        if (verb.opcode == NAP_DEALLOCATE)
        {
            id.cccb().ulSendType = CM_BUFFER_DATA;
            id.cccb().ulDeallocateType = CM_DEALLOCATE_FLUSH;
            lose_the_copy(id);
        }
    };
    Out rts;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmsend, id, "x", 1, rts));
    node.assertion("cccb_ptr->ulSendType == CM_SEND_AND_DEALLOCATE");
    node.assertion("cccb_ptr->ulDeallocateType == CM_DEALLOCATE_ABEND");
    node.assertion("cccb_ptr->DeallcLogData != NULL");
}

TEST_F(Send, cmsend_abend_later_with_the_deallocation_complete_at_once)
{
    Id id = ending_with_log_data(false);
    node.next(NAP_SEND_DATA, later(succeeds().put8(24, 1)));
    Out rts;
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmsend, id, "x", 1, rts));
    /* The program may change its log data meanwhile: the copy is what is sent. */
    memset(id.cccb().LogData + 8, 'Z', 3);
    node.deliver(node.only(NAP_SEND_DATA));
    Verb &deallocate = node.only(NAP_DEALLOCATE);
    EXPECT_EQ(cmdeal_cb, deallocate.routine);
    EXPECT_EQ(hex(log_record), hex(deallocate.pointed_at));
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(0u, id.cccb().ulPendingRc);
    EXPECT_EQ(1u, node.count_audits(0x20030003));
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_FALSE(id.exists());
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Send, cmsend_abend_later_with_the_deallocation_later_books_only_the_deallocation)
{
    Id id = ending_with_log_data(false);
    node.next(NAP_SEND_DATA, later(succeeds().put8(24, 1)));
    node.next(NAP_DEALLOCATE, later());
    Out rts;
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmsend, id, "x", 1, rts));
    node.deliver(node.only(NAP_SEND_DATA));
    EXPECT_EQ(1, rts.value());
    EXPECT_EQ(2, id.cccb().usVerbsPending) << "the send's own is never taken back";
    EXPECT_EQ(2u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(0, id.cccb().usCompletionPending);
    EXPECT_TRUE(node.wakes.empty());
    EXPECT_EQ(35u, id.cccb().ulPendingRc);
    EXPECT_EQ(15, id.cccb().usTraceCallNo);

    node.deliver(node.only(NAP_DEALLOCATE));
    EXPECT_EQ(1, id.cccb().usVerbsPending);
    EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    EXPECT_EQ(0u, id.cccb().ulPendingRc);
    EXPECT_EQ(1u, node.count_audits(0x20030003));
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_OK, conversation_rc.value());
    EXPECT_TRUE(id.exists()) << "the record stays: its count never reaches 0";
}

TEST_F(Send, cmsend_abend_non_blocking_send_at_once_and_deallocation_later)
{
    Id id = ending_with_log_data(false);
    node.next(NAP_DEALLOCATE, later());
    Out rts;
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmsend, id, "x", 1, rts));
    EXPECT_EQ(1, id.cccb().usVerbsPending) << "that of the deallocation";
    EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
    node.deliver(node.only(NAP_DEALLOCATE));
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_FALSE(id.exists());
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Send, cmsend_abend_whose_deallocation_fails_later)
{
    Id id = ending_with_log_data(false);
    node.next(NAP_DEALLOCATE, later(fails(0x0F00)));
    Out rts;
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmsend, id, "x", 1, rts));
    node.deliver(node.only(NAP_DEALLOCATE));
    EXPECT_EQ(27u, id.cccb().ulPendingRc);
    EXPECT_EQ(0, id.cccb().DeallcLogDataLength);
    EXPECT_EQ(nullptr, id.cccb().DeallcLogData);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_RESOURCE_FAILURE_RETRY, conversation_rc.value());
    EXPECT_FALSE(id.exists());
}
