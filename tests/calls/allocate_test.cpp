/* allocate_test.cpp - CMALLC and its completion. */
#include "calls.hpp"

using Allocate = CallTest;

namespace
{

/* Initialised, every characteristic that the verb carries set to something of its own. */
struct Prepared : Id
{
    explicit Prepared(bool qualified = false)
    {
        EXPECT_EQ(CM_OK, call(cminit, *this, "        "));
        CCCB &c = cccb();
        if (qualified)
        {
            memcpy(c.SideInfo.PartnerLUName, ebcdic("NETA.PARTNER", 17).data(), 17);
            c.SideInfo.usPartnerLUQualified = 1;
            c.SideInfo.usPartnerNetIdLen = 4;
            c.SideInfo.usPartnerLUNameLen = 12;
        }
        else
        {
            memcpy(c.SideInfo.PartnerLUName, "PARTNERLUNAME    ", 17);
            c.SideInfo.usPartnerLUNameLen = 13;
        }
        memcpy(c.SideInfo.ModeName, ebcdic("#BATCH", 8).data(), 8);
        memcpy(c.SideInfo.TPName, ebcdic("SERVER", 64).data(), 64);
        memcpy(c.SideInfo.SecurityUserId, ebcdic("USER", 10).data(), 10);
        memcpy(c.SideInfo.SecurityPassword, ebcdic("SECRET", 10).data(), 10);
        memcpy(c.LocalLUName, "OURLU   ", 8);
        c.ulSyncLevel = 1;
        c.ulReturnControl = 1;
    }
};

Image allocate_image(const CCCB &c)
{
    Image image(NAP_M_ALLOCATE);
    image.put8(2, c.ulConversationType).put8(3, 1).put(12, Bytes(c.TpId, c.TpId + 8));
    image.put8(25, 1).put8(28, 1);
    image.put(48, ebcdic("#BATCH", 8)).put(56, ebcdic("SERVER", 64));
    image.put8(120, c.SideInfo.ulSecurityType).put(142, ebcdic("USER", 10));
    return image;
}

void make_current(const u8 *tp_id, const char *alias)
{
    memcpy(library_gcb.CurrentTpId, tp_id, 8);
    memcpy(library_gcb.ContextLUAlias, alias, 8);
}

const u8 current_tp[8] = {0xC5, 0xD5, 3, 4, 5, 6, 7, 8};

} // namespace

TEST_F(Allocate, cmallc_starts_a_tp_field_by_field)
{
    Prepared id;
    u16 pending = 99;
    node.at_issue = [&](Verb &verb) {
        if (verb.opcode == NAP_TP_STARTED)
        {
            pending = id.cccb().usVerbsPending;
        }
    };
    memset(id.cccb().vcb.bytes, 0xFF, CPIC_VERB_SIZE);
    node.next(NAP_TP_STARTED, succeeds().put(12, scripted::bytes("USEDLU  ")).put(20, scripted::bytes("NEWTPID1")));
    EXPECT_EQ(CM_OK, call(cmallc, id));
    Verb &started = node.only(NAP_TP_STARTED);
    EXPECT_EQ(1, pending);
    EXPECT_EQ(scripted::Entry::asynchronous, started.entry);
    EXPECT_EQ(nullptr, started.routine);
    EXPECT_EQ(0u, started.user_word);
    EXPECT_EQ(id.find(), started.record);
    EXPECT_VERB(started,
                Image(NAP_TP_STARTED).put(12, scripted::bytes("OURLU   ")).put(28, ebcdic("CPIC_DEFAULT_TPNAME", 64)));
    EXPECT_EQ(hex(scripted::bytes("NEWTPID1")), hex(id.cccb().TpId, 8));
    EXPECT_EQ(hex(scripted::bytes("USEDLU  ")), hex(id.cccb().LocalLUName, 8)) << "the alias that the node used";
    EXPECT_EQ("00 00 00 00 00 00 00 00", hex(library_gcb.CurrentTpId, 8)) << "not made current";
    const Log log = node.audit(0x20030000);
    EXPECT_EQ(0u, log.detail);
    EXPECT_EQ("ba", log.format);
    EXPECT_EQ(hex(scripted::bytes("NEWTPID1")), hex(log.items.at(0).second));
}

TEST_F(Allocate, cmallc_mapped_to_an_alias_field_by_field)
{
    Prepared id;
    EXPECT_EQ(CM_OK, call(cmallc, id));
    Verb &verb = node.only(NAP_M_ALLOCATE);
    EXPECT_VERB(verb, allocate_image(*verb.cccb).put(40, scripted::bytes("PARTNERL")));
    EXPECT_EQ(scripted::Entry::asynchronous, verb.entry);
    EXPECT_EQ(nullptr, verb.routine);
    EXPECT_EQ(1u, verb.user_word);
    expect_pending_call(verb, 1, id);
    EXPECT_EQ(1, verb.cccb->usAllocContextFlag);
    EXPECT_EQ(0x00C00001u, id.cccb().ulAppcConvId);
    EXPECT_EQ(0, id.cccb().usAllocContextFlag);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(2u, node.verbs.size());
}

TEST_F(Allocate, cmallc_basic_to_a_qualified_name_field_by_field)
{
    Prepared id(true);
    id.cccb().ulConversationType = 0;
    EXPECT_EQ(CM_OK, call(cmallc, id));
    Verb &verb = node.only(NAP_B_ALLOCATE);
    EXPECT_VERB(verb, allocate_image(*verb.cccb).put8(40, 0).put(161, ebcdic("NETA.PARTNER", 17)));
}

TEST_F(Allocate, cmallc_carries_the_password_for_every_security_type_but_same)
{
    for (unsigned type : {0u, 1u, 2u, 5u})
    {
        SCOPED_TRACE(type);
        Prepared id;
        id.cccb().SideInfo.ulSecurityType = type;
        EXPECT_EQ(CM_OK, call(cmallc, id));
        Verb &verb = node.only(NAP_M_ALLOCATE);
        Image image = allocate_image(*verb.cccb).put(40, scripted::bytes("PARTNERL"));
        if (type != 1)
        {
            image.put(132, ebcdic("SECRET", 10));
        }
        EXPECT_VERB(verb, image);
        node.forget();
    }
}

TEST_F(Allocate, cmallc_success_is_audited)
{
    Prepared id;
    memcpy(id.cccb().SideInfo.SideInfoLUAlias, "SIDELU  ", 8);
    EXPECT_EQ(CM_OK, call(cmallc, id));
    const Log log = node.audit(0x20030002);
    EXPECT_EQ(0u, log.detail);
    EXPECT_EQ("ba ca", log.format);
    ASSERT_EQ(2u, log.items.size());
    EXPECT_EQ(hex(id.content()), hex(log.items[0].second));
    EXPECT_EQ(hex(scripted::bytes("SIDELU  ")), hex(log.items[1].second));
}

TEST_F(Allocate, cmallc_audits_nothing_when_suppressed)
{
    node.suppress_audits(true);
    Prepared id;
    EXPECT_EQ(CM_OK, call(cmallc, id));
    EXPECT_TRUE(node.audits.empty());
}

TEST_F(Allocate, cmallc_in_the_current_context_starts_no_tp)
{
    Prepared id;
    make_current(current_tp, "OURLU   ");
    EXPECT_EQ(CM_OK, call(cmallc, id));
    EXPECT_TRUE(node.issued(NAP_TP_STARTED).empty());
    Verb &verb = node.only(NAP_M_ALLOCATE);
    EXPECT_EQ(hex(current_tp, 8), hex(verb.bytes_at(12, 8)));
    EXPECT_EQ(0, verb.cccb->usAllocContextFlag);
    EXPECT_EQ(0u, node.count_audits(0x20030000));
}

TEST_F(Allocate, cmallc_after_cmaccp_on_the_same_lu_uses_its_context)
{
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, succeeds().put(90, ebcdic("USER", 10)));
    Id accepted;
    EXPECT_EQ(CM_OK, call(cmaccp, accepted));
    Id id;
    EXPECT_EQ(CM_OK, call(cminit, id, "        "));
    EXPECT_EQ(CM_OK, call(cmallc, id));
    EXPECT_TRUE(node.issued(NAP_TP_STARTED).empty());
    EXPECT_EQ(hex(accepted.cccb().TpId, 8), hex(node.only(NAP_M_ALLOCATE).bytes_at(12, 8)));
}

TEST_F(Allocate, cmallc_with_a_current_context_on_another_lu_starts_a_tp)
{
    Prepared id;
    make_current(current_tp, "OTHERLU ");
    EXPECT_EQ(CM_OK, call(cmallc, id));
    EXPECT_EQ(1u, node.issued(NAP_TP_STARTED).size());
    EXPECT_NE(hex(current_tp, 8), hex(node.only(NAP_M_ALLOCATE).bytes_at(12, 8)));
}

TEST_F(Allocate, cmallc_tp_refused_frees_the_conversation)
{
    Prepared id;
    node.next(NAP_TP_STARTED, fails(0x0100, 0x18000000));
    EXPECT_EQ(CM_PARAMETER_ERROR, call(cmallc, id));
    EXPECT_FALSE(id.exists());
    EXPECT_TRUE(node.issued(NAP_M_ALLOCATE).empty());
    EXPECT_TRUE(node.issued(NAP_TP_ENDED).empty());
    EXPECT_TRUE(node.audits.empty());
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmallc, id));
    expect_unknown_id(1, id);
}

TEST_F(Allocate, cmallc_tp_refused_is_mapped_with_its_opcode)
{
    Prepared id;
    node.next(NAP_TP_STARTED, fails(0x4400, 1));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmallc, id));
    EXPECT_EQ(0x14u, node.problem(0x20030016, 1).items.at(0).first);
}

TEST_F(Allocate, cmallc_twice_ends_the_tp_it_started_the_second_time)
{
    Prepared id;
    EXPECT_EQ(CM_OK, call(cmallc, id));
    node.forget();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmallc, id));
    EXPECT_EQ(1u, node.issued(NAP_TP_STARTED).size());
    EXPECT_TRUE(node.issued(NAP_M_ALLOCATE).empty());
    Verb &ended = node.only(NAP_TP_ENDED);
    const Bytes new_tp(node.only(NAP_TP_STARTED).completed.begin() + 20,
                       node.only(NAP_TP_STARTED).completed.begin() + 28);
    EXPECT_VERB(ended, Image(NAP_TP_ENDED).put(12, new_tp).put8(20, 1));
    EXPECT_EQ(scripted::Entry::asynchronous, ended.entry);
    EXPECT_TRUE(id.exists());
}

TEST_F(Allocate, cmallc_twice_leaves_the_conversation_under_its_own_tp)
{
    Prepared id;
    EXPECT_EQ(CM_OK, call(cmallc, id));
    const CCCB before = id.cccb();
    node.next(NAP_TP_STARTED, succeeds().put(12, scripted::bytes("NEWLU   ")));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmallc, id));
    EXPECT_EQ(hex(before.TpId, 8), hex(id.cccb().TpId, 8));
    EXPECT_EQ(hex(before.LocalLUName, 8), hex(id.cccb().LocalLUName, 8));
    EXPECT_EQ(CM_OK, call(cmflus, id));
    EXPECT_EQ(hex(before.TpId, 8), hex(node.only(NAP_FLUSH).bytes_at(12, 8)));
}

TEST_F(Allocate, cmallc_twice_in_the_current_context_ends_nothing)
{
    Prepared id;
    make_current(current_tp, "OURLU   ");
    EXPECT_EQ(CM_OK, call(cmallc, id));
    node.forget();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmallc, id));
    expect_no_verb();
}

TEST_F(Allocate, cmallc_of_an_incoming_conversation_is_a_state_check)
{
    Id id = incoming();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmallc, id));
    EXPECT_EQ(1u, node.issued(NAP_TP_ENDED).size());
    EXPECT_TRUE(id.exists());
}

TEST_F(Allocate, cmallc_with_a_verb_pending_is_not_accepted_and_ends_its_new_tp)
{
    Id id = busy();
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmallc, id));
    EXPECT_EQ(1u, node.issued(NAP_TP_STARTED).size());
    EXPECT_EQ(1u, node.issued(NAP_TP_ENDED).size());
    EXPECT_EQ(1, id.cccb().usVerbsPending);
    node.deliver_all();
}

TEST_F(Allocate, cmallc_with_a_verb_pending_and_the_tp_refused_keeps_the_pending_verb)
{
    Id id = busy();
    node.next(NAP_TP_STARTED, fails(0x0200));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmallc, id));
    EXPECT_EQ(1, id.cccb().usVerbsPending) << "its record is still the node's";
    node.deliver_all();
    EXPECT_EQ(0, id.cccb().usVerbsPending);
}

TEST_F(Allocate, cmallc_with_a_verb_pending_in_the_current_context_issues_nothing)
{
    Id id = busy();
    make_current(id.cccb().TpId, "NODELU  ");
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmallc, id));
    EXPECT_EQ(1u, node.verbs.size()) << "only the flush";
    node.deliver_all();
}

TEST_F(Allocate, cmallc_refused_with_an_ending_code_frees_the_conversation)
{
    for (const EndingCode &code : ending_codes)
    {
        SCOPED_TRACE(code.primary);
        Prepared id;
        node.next(NAP_M_ALLOCATE, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, call(cmallc, id));
        if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
        {
            node.problem(0x20030016, 1);
        }
        EXPECT_FALSE(id.exists());
        EXPECT_EQ(1u, node.issued(NAP_TP_ENDED).size()) << "the TP it started is ended with it, once";
        node.forget();
    }
}

TEST_F(Allocate, cmallc_refused_with_another_code_leaves_the_conversation)
{
    const struct
    {
        u16 primary;
        u32 secondary;
        long return_code;
        bool ends_context;
    } cases[] = {{0x0100, 0x18000000, 19, true},
                 {0x0100, 0x31000000, 24, true},
                 {0x1400, 0, 28, true},
                 {0x0200, 0, 25, false},
                 {0x1100, 0, 32, false}};
    for (const auto &c : cases)
    {
        SCOPED_TRACE(c.return_code);
        Prepared id;
        node.next(NAP_M_ALLOCATE, fails(c.primary, c.secondary));
        EXPECT_EQ(c.return_code, call(cmallc, id));
        EXPECT_EQ(0u, id.cccb().ulAppcConvId);
        EXPECT_EQ(0, id.cccb().usAllocContextFlag);
        EXPECT_EQ(c.ends_context ? 1u : 0u, node.issued(NAP_TP_ENDED).size());
        if (c.ends_context)
        {
            EXPECT_VERB(node.only(NAP_TP_ENDED),
                        Image(NAP_TP_ENDED).put(12, Bytes(id.cccb().TpId, id.cccb().TpId + 8)).put8(20, 1));
        }
        node.forget();
        EXPECT_EQ(CM_OK, call(cmallc, id)) << "it may be tried again";
        node.forget();
    }
}

TEST_F(Allocate, cmallc_refused_in_the_current_context_does_not_end_it)
{
    Prepared id;
    make_current(current_tp, "OURLU   ");
    node.next(NAP_M_ALLOCATE, fails(0x1400));
    EXPECT_EQ(CM_UNSUCCESSFUL, call(cmallc, id));
    EXPECT_TRUE(node.issued(NAP_TP_ENDED).empty());
}

TEST_F(Allocate, cmallc_non_blocking)
{
    Prepared id;
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_M_ALLOCATE, later());
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmallc, id));
    Verb &verb = node.only(NAP_M_ALLOCATE);
    EXPECT_EQ(cmallc_cb, verb.routine);
    EXPECT_EQ(1u, verb.user_word);
    EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1, id.cccb().usVerbsPending);
    EXPECT_EQ(1, id.cccb().usAllocContextFlag);
    EXPECT_EQ(0u, id.cccb().ulAppcConvId);
    node.deliver(verb);
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(0, id.cccb().usAllocContextFlag);
    EXPECT_EQ(0x00C00001u, id.cccb().ulAppcConvId);
    EXPECT_EQ(1u, node.wakes.size());
    EXPECT_EQ(1u, node.count_audits(0x20030002));
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_OK, conversation_rc.value());
}

TEST_F(Allocate, cmallc_non_blocking_refused)
{
    Prepared id;
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_M_ALLOCATE, later(fails(0x0300, 0x04000000)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmallc, id));
    node.deliver_all();
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_ALLOCATE_FAILURE_NO_RETRY, conversation_rc.value());
    EXPECT_FALSE(id.exists());
}

TEST_F(Allocate, cmallc_drops_a_posted_completion)
{
    Prepared id;
    id.cccb().usCompletionPending = 1;
    library_gcb.NumVerbsWaiting = 1;
    EXPECT_EQ(CM_OK, call(cmallc, id));
    EXPECT_EQ(0, id.cccb().usCompletionPending);
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
    id = Prepared();
    id.cccb().usCompletionPending = 1;
    Out rc;
    cmallc(id.address(), rc.address());
    node.assertion("(pGCB)->NumVerbsWaiting > 0");
    library_gcb.NumVerbsWaiting = 0;
}

TEST_F(Allocate, cmallc_cb_after_a_cancel_ends_the_new_conversation_at_once)
{
    Prepared id;
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_M_ALLOCATE, later());
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmallc, id));
    id.cccb().usCancelPending = 1;
    const Bytes tp(id.cccb().TpId, id.cccb().TpId + 8);
    node.deliver_all();
    Verb &cancel = node.only(NAP_CANCEL_CONVERSATION);
    EXPECT_EQ(scripted::Entry::synchronous, cancel.entry);
    EXPECT_VERB(cancel, Image(NAP_CANCEL_CONVERSATION).put8(2, 1).put(12, tp).put32(20, 0x00C00001));
    node.problem(0x20030011, 1);
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    EXPECT_EQ(0, id.cccb().usCancelPending);
    EXPECT_EQ(20u, id.cccb().ulPendingRc);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, conversation_rc.value());
    EXPECT_FALSE(id.exists());
}

TEST_F(Allocate, cmallc_cb_after_a_cancel_ends_the_conversation_whatever_the_failure)
{
    Prepared id;
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_M_ALLOCATE, later(fails(0x0200)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmallc, id));
    id.cccb().usCancelPending = 1;
    node.deliver_all();
    EXPECT_EQ(1, id.cccb().usConversationEnded);
    EXPECT_TRUE(node.issued(NAP_CANCEL_CONVERSATION).empty());
    EXPECT_EQ(25u, id.cccb().ulPendingRc);
    EXPECT_EQ(0, id.cccb().usCancelPending);
}
