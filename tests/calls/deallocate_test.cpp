/* deallocate_test.cpp - CMDEAL and its completion. */
#include "calls.hpp"

namespace
{

class Deallocate : public CallTest
{
protected:
    static Image image(u32 conversation_type, u32 deallocate_type)
    {
        Id id = allocated(static_cast<int>(conversation_type));
        id.cccb().ulDeallocateType = deallocate_type;
        const CCCB before = id.cccb();
        EXPECT_EQ(CM_OK, call(cmdeal, id));
        Verb &verb = node.only(NAP_DEALLOCATE);
        EXPECT_FALSE(id.exists());
        const unsigned type = verb.u8_at(25);
        EXPECT_VERB(verb, Image(NAP_DEALLOCATE).of(before).put8(25, type));
        Image found(NAP_DEALLOCATE);
        found.bytes = verb.issued;
        return found;
    }
    static unsigned type_byte(u32 conversation_type, u32 deallocate_type)
    {
        return image(conversation_type, deallocate_type).bytes[25];
    }
};

} // namespace

TEST_F(Deallocate, cmdeal_type_byte_of_a_basic_conversation)
{
    EXPECT_EQ(0u, type_byte(0, CM_DEALLOCATE_SYNC_LEVEL));
    EXPECT_EQ(1u, type_byte(0, CM_DEALLOCATE_FLUSH));
    EXPECT_EQ(0u, type_byte(0, CM_DEALLOCATE_CONFIRM));
    EXPECT_EQ(2u, type_byte(0, CM_DEALLOCATE_ABEND));
}

TEST_F(Deallocate, cmdeal_type_byte_of_a_mapped_conversation)
{
    EXPECT_EQ(0u, type_byte(1, CM_DEALLOCATE_SYNC_LEVEL));
    EXPECT_EQ(1u, type_byte(1, CM_DEALLOCATE_FLUSH));
    EXPECT_EQ(0u, type_byte(1, CM_DEALLOCATE_CONFIRM));
    EXPECT_EQ(5u, type_byte(1, CM_DEALLOCATE_ABEND));
}

TEST_F(Deallocate, cmdeal_pending_call)
{
    Id id = allocated();
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    Verb &verb = node.only(NAP_DEALLOCATE);
    expect_pending_call(verb, 4, id);
    EXPECT_EQ(nullptr, verb.routine);
    EXPECT_EQ(1u, verb.user_word);
}

TEST_F(Deallocate, cmdeal_basic_abend_passes_the_programs_log_data)
{
    Id id = allocated(0);
    id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
    give_log_data(id, "why");
    const CCCB before = id.cccb();
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    EXPECT_VERB(node.only(NAP_DEALLOCATE),
                Image(NAP_DEALLOCATE).of(before).put8(25, 2).put16(26, 11).point(28, before.LogData));
    EXPECT_TRUE(node.memory.empty()) << "it goes with the conversation";
}

TEST_F(Deallocate, cmdeal_mapped_abend_passes_none)
{
    Id id = allocated(0);
    give_log_data(id, "why");
    id.cccb().ulConversationType = 1;
    id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
    const CCCB before = id.cccb();
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    EXPECT_VERB(node.only(NAP_DEALLOCATE), Image(NAP_DEALLOCATE).of(before).put8(25, 5));
}

TEST_F(Deallocate, cmdeal_without_abend_passes_no_log_data)
{
    Id id = allocated(0);
    give_log_data(id, "why");
    id.cccb().ulDeallocateType = CM_DEALLOCATE_FLUSH;
    const CCCB before = id.cccb();
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    EXPECT_VERB(node.only(NAP_DEALLOCATE), Image(NAP_DEALLOCATE).of(before).put8(25, 1));
}

TEST_F(Deallocate, cmdeal_log_data_without_a_buffer)
{
    Id id = allocated(0);
    id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
    id.cccb().usLogDataLen = 11;
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmdeal, id));
    EXPECT_EQ("", node.problem(0x20030012, 1).format);
    expect_no_verb();
    EXPECT_TRUE(id.exists());
    EXPECT_EQ(0, id.cccb().usVerbsPending);
}

TEST_F(Deallocate, cmdeal_abend_of_an_initialised_conversation_needs_no_verb)
{
    Id id = initialised();
    id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    expect_no_verb();
    EXPECT_FALSE(id.exists());
    EXPECT_TRUE(node.memory.empty());
    EXPECT_TRUE(node.audits.empty());
}

TEST_F(Deallocate, cmdeal_abend_of_an_initialised_conversation_with_a_completion_waits_for_it)
{
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_M_ALLOCATE, later(fails(0x0200)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmallc, id));
    node.deliver_all();
    id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    EXPECT_TRUE(id.exists());
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, conversation_rc.value());
    EXPECT_FALSE(id.exists());
}

TEST_F(Deallocate, cmdeal_of_an_initialised_conversation_with_another_type)
{
    for (u32 type : {0u, 1u, 2u})
    {
        Id id = initialised();
        id.cccb().ulDeallocateType = type;
        EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmdeal, id));
        EXPECT_TRUE(id.exists());
    }
    expect_no_verb();
}

TEST_F(Deallocate, cmdeal_of_an_incoming_conversation_is_a_state_check)
{
    Id id = incoming();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmdeal, id));
    id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmdeal, id));
    EXPECT_TRUE(id.exists());
}

TEST_F(Deallocate, cmdeal_with_a_verb_pending)
{
    Id id = busy();
    id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmdeal, id));
    EXPECT_EQ(1u, node.verbs.size());
    node.deliver_all();
}

TEST_F(Deallocate, cmdeal_writes_one_audit_record)
{
    Id id = allocated();
    memcpy(id.cccb().SideInfo.SideInfoLUAlias, "SIDELU  ", 8);
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    ASSERT_EQ(1u, node.audits.size());
    const Log log = node.audit(0x20030003);
    EXPECT_EQ(0u, log.detail);
    EXPECT_EQ("ba ca", log.format);
    ASSERT_EQ(2u, log.items.size());
    EXPECT_EQ(hex(id.content()), hex(log.items[0].second));
    EXPECT_EQ(hex(ascii("SIDELU", 8)), hex(log.items[1].second));
}

TEST_F(Deallocate, cmdeal_writes_none_when_suppressed)
{
    Id id = allocated();
    node.suppress_audits(true);
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    EXPECT_TRUE(node.audits.empty());
}

TEST_F(Deallocate, cmdeal_then_the_id_is_unknown_and_the_context_ended)
{
    Id id = allocated();
    const Bytes tp(id.cccb().TpId, id.cccb().TpId + 8);
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    Verb &ended = node.only(NAP_TP_ENDED);
    EXPECT_VERB(ended, Image(NAP_TP_ENDED).put(12, tp).put8(20, 1));
    EXPECT_EQ(scripted::Entry::synchronous, ended.entry) << "inside a deallocation";
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmdeal, id));
    expect_unknown_id(5, id);
}

TEST_F(Deallocate, cmdeal_failures)
{
    for (const EndingCode &code : ending_codes)
    {
        SCOPED_TRACE(code.primary);
        Id id = allocated();
        node.next(NAP_DEALLOCATE, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, call(cmdeal, id));
        if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
        {
            EXPECT_EQ(5u, node.problem(0x20030016, 1).items.at(0).first);
        }
        EXPECT_FALSE(id.exists());
        EXPECT_TRUE(node.audits.empty());
    }
    Id id = allocated();
    for (const EndingCode &code : lasting_codes)
    {
        SCOPED_TRACE(code.primary);
        node.next(NAP_DEALLOCATE, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, call(cmdeal, id));
        EXPECT_TRUE(id.exists());
        EXPECT_TRUE(node.audits.empty());
    }
    EXPECT_EQ(CM_OK, call(cmdeal, id)) << "it may be tried again";
}

TEST_F(Deallocate, cmdeal_non_blocking)
{
    Id id = non_blocking();
    node.next(NAP_DEALLOCATE, later());
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmdeal, id));
    Verb &verb = node.only(NAP_DEALLOCATE);
    EXPECT_EQ(cmdeal_cb, verb.routine);
    EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_TRUE(node.audits.empty());
    node.deliver(verb);
    EXPECT_EQ(1u, node.count_audits(0x20030003));
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    EXPECT_EQ(1u, node.wakes.size());
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_OK, conversation_rc.value());
    EXPECT_EQ(hex(id.content()), hex(found.content()));
    EXPECT_FALSE(id.exists());
    EXPECT_EQ(scripted::Entry::synchronous, node.only(NAP_TP_ENDED).entry);
}

TEST_F(Deallocate, cmdeal_non_blocking_failing_later)
{
    Id id = non_blocking();
    node.next(NAP_DEALLOCATE, later(fails(0x0200)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmdeal, id));
    node.deliver_all();
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, conversation_rc.value());
    EXPECT_TRUE(id.exists());
}
