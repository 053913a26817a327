/* accept_test.cpp - CMACCP and CMACCI: the own TP name, the list of names, the accepted conversation. */
#include "calls.hpp"

using Accept = CallTest;

namespace
{

const Bytes tp_id = scripted::bytes("ACCEPTED");
const Bytes nothing(8, 0);

/* A partner with every field set. */
Answer partner()
{
    return succeeds()
        .put(12, ebcdic("SERVER", 64))
        .put(76, tp_id)
        .put32(84, 0x0BADCAFE)
        .put8(88, 1)
        .put8(89, 0)
        .put(90, ebcdic("USER1", 10))
        .put(100, Bytes{0x49, 0x4E, 0x4C, 0x55, 0x20, 0, 0, 0})
        .put(116, ebcdic("#BATCH", 8))
        .put(132, ebcdic("NETX.PART1", 17));
}

Bytes default_name()
{
    return ebcdic("CPIC_DEFAULT_TPNAME", 64);
}

Image register_image(const Bytes &name)
{
    return Image(NAP_DEFINE_LOCAL_TP_NAME, sizeof(VERB_LOCAL_TP_NAME)).put(12, name);
}

} // namespace

TEST_F(Accept, cmaccp_verb_field_by_field)
{
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    Verb &verb = node.only(NAP_RECEIVE_ALLOCATE_CPIC);
    EXPECT_VERB(verb, Image(NAP_RECEIVE_ALLOCATE_CPIC)
                          .put8(3, 1)
                          .put32(84, id.handle())
                          .put16(192, 1)
                          .put32(196, verb.u32_at(196)));
    EXPECT_NE(0u, verb.u32_at(196));
    EXPECT_EQ(hex(default_name()), hex(verb.pointed_at));
    EXPECT_EQ(scripted::Entry::asynchronous, verb.entry);
    EXPECT_EQ(nullptr, verb.routine) << "an accept always waits";
    EXPECT_EQ(1u, verb.user_word);
    expect_pending_call(verb, 0, id);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(0u, node.memory.count(reinterpret_cast<void *>(verb.u32_at(196)))) << "the list is freed";
}

TEST_F(Accept, cmaccp_takes_the_characteristics_of_the_partner)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "OTHER", 5));
    EXPECT_EQ(CM_OK, call(cmsltp, "SERVER", 6));
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, partner());
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    const CCCB &c = id.cccb();
    EXPECT_EQ(hex(tp_id), hex(c.TpId, 8));
    EXPECT_EQ(hex(ebcdic("SERVER", 64)), hex(c.SideInfo.TPName, 64));
    EXPECT_EQ(0x0BADCAFEu, c.ulAppcConvId);
    EXPECT_EQ(1u, c.ulSyncLevel);
    EXPECT_EQ(0u, c.ulConversationType);
    EXPECT_EQ(hex(ebcdic("#BATCH", 8)), hex(c.SideInfo.ModeName, 8));
    EXPECT_EQ(6, c.SideInfo.usModeNameLen);
    EXPECT_EQ(hex(ebcdic("USER1", 10)), hex(c.SideInfo.SecurityUserId, 10));
    EXPECT_EQ(5, c.SideInfo.usSecurityUserIdLen);
    EXPECT_EQ(hex(ebcdic("NETX.PART1", 17)), hex(c.SideInfo.PartnerLUName, 17));
    EXPECT_EQ(1, c.SideInfo.usPartnerLUQualified);
    EXPECT_EQ(4, c.SideInfo.usPartnerNetIdLen);
    EXPECT_EQ(10, c.SideInfo.usPartnerLUNameLen);
    EXPECT_EQ(hex(ascii("INLU", 8)), hex(c.LocalLUName, 8)) << "up to its first blank, then blanks";
    EXPECT_EQ(0, c.usInitialized);
    const auto &names = node.tables[library_gcb.LocTPNameTable].entries;
    ASSERT_EQ(2u, names.size());
    EXPECT_EQ(names.rbegin()->first, c.ulLocTPNameHandle);
}

TEST_F(Accept, cmaccp_fields_without_any_blank)
{
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, partner()
                                             .put(90, ebcdic("ABCDEFGHIJ"))
                                             .put(100, scripted::bytes("ABCDEFGH"))
                                             .put(116, ebcdic("ABCDEFGH"))
                                             .put(132, ebcdic("ABCDEFGH.ABCDEFGH")));
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    const CCCB &c = id.cccb();
    EXPECT_EQ(8, c.SideInfo.usModeNameLen);
    EXPECT_EQ(10, c.SideInfo.usSecurityUserIdLen);
    EXPECT_EQ(17, c.SideInfo.usPartnerLUNameLen);
    EXPECT_EQ(8, c.SideInfo.usPartnerNetIdLen);
    EXPECT_EQ(hex(ascii("ABCDEFGH")), hex(c.LocalLUName, 8));
    EXPECT_EQ(0u, c.ulLocTPNameHandle) << "no local name equals the partner's";
}

TEST_F(Accept, cmaccp_audits_the_accepted_conversation)
{
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    const Log log = node.audit(0x20030001);
    EXPECT_EQ(1u, log.detail);
    EXPECT_EQ("ba", log.format);
    EXPECT_EQ(hex(id.content()), hex(log.items.at(0).second));
    node.suppress_audits(true);
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_EQ(0u, node.count_audits(0x20030001));
}

TEST_F(Accept, cmaccp_with_a_user_id_makes_the_context_current)
{
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, partner());
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_EQ(hex(tp_id), hex(library_gcb.CurrentTpId, 8));
    EXPECT_EQ("49 4E 4C 55 20", hex(library_gcb.ContextLUAlias, 5));
}

TEST_F(Accept, cmaccp_without_a_user_id_leaves_the_current_context)
{
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, partner().put(90, ebcdic("", 10)));
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_EQ(hex(nothing), hex(library_gcb.CurrentTpId, 8));
    EXPECT_EQ(hex(nothing), hex(library_gcb.ContextLUAlias, 8));
    EXPECT_EQ(0, id.cccb().SideInfo.usSecurityUserIdLen);
}

TEST_F(Accept, cmaccp_the_first_byte_of_the_user_id_decides)
{
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, partner().put(90, ebcdic(" USER", 10)));
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_EQ(hex(nothing), hex(library_gcb.CurrentTpId, 8));
    EXPECT_EQ(0, id.cccb().SideInfo.usSecurityUserIdLen);
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, partner().put(90, ebcdic("U", 10)));
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_EQ(hex(tp_id), hex(library_gcb.CurrentTpId, 8));
    EXPECT_EQ(1, id.cccb().SideInfo.usSecurityUserIdLen);
}

TEST_F(Accept, cmaccp_first_ends_a_current_context_that_nobody_uses)
{
    initialised();
    memcpy(library_gcb.CurrentTpId, "OLDTPID1", 8);
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    Verb &ended = node.only(NAP_TP_ENDED);
    EXPECT_VERB(ended, Image(NAP_TP_ENDED).put(12, scripted::bytes("OLDTPID1")).put8(20, 1));
    EXPECT_EQ(scripted::Entry::asynchronous, ended.entry);
    EXPECT_EQ(hex(nothing), hex(node.only(NAP_RECEIVE_ALLOCATE_CPIC).gcb.CurrentTpId, 8))
        << "cleared before the accept waits";
}

TEST_F(Accept, cmaccp_leaves_a_current_context_that_is_in_use)
{
    Id other = allocated();
    memcpy(library_gcb.CurrentTpId, other.cccb().TpId, 8);
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_TRUE(node.issued(NAP_TP_ENDED).empty());
    EXPECT_EQ(hex(other.cccb().TpId, 8), hex(library_gcb.CurrentTpId, 8));
}

TEST_F(Accept, cmaccp_replaces_the_current_context)
{
    Id other = allocated();
    memcpy(library_gcb.CurrentTpId, other.cccb().TpId, 8);
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, partner());
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_EQ(hex(tp_id), hex(library_gcb.CurrentTpId, 8));
    EXPECT_TRUE(node.issued(NAP_TP_ENDED).empty()) << "it is still used";
}

TEST_F(Accept, cmaccp_failure_leaves_no_record)
{
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, fails(0x0200));
    Id id;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmaccp, id));
    const Log log = node.problem(0x2003000C, 3);
    EXPECT_EQ("l", log.format);
    EXPECT_EQ(25u, log.items.at(0).first);
    EXPECT_FALSE(id.exists());
    EXPECT_FALSE(id.untouched());
    EXPECT_EQ(0u, node.count_audits(0x20030001));
    EXPECT_TRUE(node.tables[library_gcb.ConvTable].entries.empty());
}

TEST_F(Accept, cmaccp_without_memory_for_the_record)
{
    node.allocation.fail();
    Id id;
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmaccp, id));
    node.problem(0x2003000B, 1);
    EXPECT_TRUE(id.untouched());
    expect_no_verb();
}

/* ---- the process's own TP name --------------------------------------------------------------------------- */

TEST_F(Accept, cmaccp_registers_the_default_name_once)
{
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    Verb &added = node.only(NAP_DEFINE_LOCAL_TP_NAME);
    EXPECT_VERB(added, register_image(default_name()));
    EXPECT_EQ("01 F1", hex(added.bytes_at(0, 2)));
    EXPECT_EQ(scripted::Entry::synchronous, added.entry);
    EXPECT_EQ(1u, library_gcb.NumLocTPNames);
    EXPECT_EQ(1, library_gcb.usLocTPNameFlag);
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_EQ(1u, node.issued(NAP_DEFINE_LOCAL_TP_NAME).size());
    EXPECT_EQ(1u, library_gcb.NumLocTPNames);
    const auto &names = node.tables[library_gcb.LocTPNameTable].entries;
    ASSERT_EQ(1u, names.size());
    const LOC_TP_NAME *record = static_cast<const LOC_TP_NAME *>(names.begin()->second);
    EXPECT_EQ(19, record->usLength);
    EXPECT_EQ(hex(default_name()), hex(record->Name, 64));
}

TEST_F(Accept, cmaccp_registers_the_name_from_the_environment)
{
    setenv("APPCTPN", "MYSERVER", 1);
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_VERB(node.only(NAP_DEFINE_LOCAL_TP_NAME), register_image(ebcdic("MYSERVER", 64)));
    EXPECT_EQ(hex(ebcdic("MYSERVER", 64)), hex(node.only(NAP_RECEIVE_ALLOCATE_CPIC).pointed_at));
}

TEST_F(Accept, cmaccp_adds_the_name_from_the_environment_to_defined_ones)
{
    setenv("APPCTPN", "MYSERVER", 1);
    EXPECT_EQ(CM_OK, call(cmsltp, "OTHER", 5));
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    Verb &verb = node.only(NAP_RECEIVE_ALLOCATE_CPIC);
    EXPECT_EQ(2, verb.u16_at(192));
    Bytes both = ebcdic("OTHER", 64);
    const Bytes mine = ebcdic("MYSERVER", 64);
    both.insert(both.end(), mine.begin(), mine.end());
    EXPECT_EQ(hex(both), hex(verb.pointed_at)) << "in table order";
}

TEST_F(Accept, cmaccp_does_not_add_the_default_name_to_defined_ones)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "OTHER", 5));
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_EQ(1u, node.issued(NAP_DEFINE_LOCAL_TP_NAME).size());
    EXPECT_EQ(1, node.only(NAP_RECEIVE_ALLOCATE_CPIC).u16_at(192));
    EXPECT_EQ(0, library_gcb.usLocTPNameFlag);
}

TEST_F(Accept, cmaccp_takes_an_equal_name_for_its_own)
{
    setenv("APPCTPN", "MYSERVER", 1);
    EXPECT_EQ(CM_OK, call(cmsltp, "MYSERVER", 8));
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_EQ(1u, node.issued(NAP_DEFINE_LOCAL_TP_NAME).size());
    EXPECT_EQ(1u, library_gcb.NumLocTPNames);
    EXPECT_EQ(1, library_gcb.usLocTPNameFlag);
}

TEST_F(Accept, cmaccp_own_name_refused_and_no_other_is_a_state_check)
{
    node.next(NAP_DEFINE_LOCAL_TP_NAME, fails(0x0100));
    Id id;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmaccp, id)) << "there is no name at all";
    const Log log = node.problem(0x2003000E, 1);
    EXPECT_EQ("es", log.format);
    EXPECT_EQ(hex(default_name()), hex(log.items.at(0).second));
    EXPECT_TRUE(node.memory.empty());
    EXPECT_EQ(0u, library_gcb.NumLocTPNames);
    EXPECT_EQ(0, library_gcb.usLocTPNameFlag);
    EXPECT_TRUE(node.issued(NAP_RECEIVE_ALLOCATE_CPIC).empty());
}

TEST_F(Accept, cmaccp_own_name_refused_beside_another_says_20)
{
    setenv("APPCTPN", "MYSERVER", 1);
    EXPECT_EQ(CM_OK, call(cmsltp, "OTHER", 5));
    node.next(NAP_DEFINE_LOCAL_TP_NAME, fails(0x0100));
    Id id;
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmaccp, id));
    node.problem(0x2003000E, 1);
    EXPECT_TRUE(node.issued(NAP_RECEIVE_ALLOCATE_CPIC).empty());
    EXPECT_FALSE(id.exists());
    EXPECT_EQ(1u, node.memory.size()) << "the other name; the list is freed";
    EXPECT_EQ(1u, library_gcb.NumLocTPNames);
}

TEST_F(Accept, cmaccp_own_name_without_memory_or_table_entry)
{
    setenv("APPCTPN", "MYSERVER", 1);
    EXPECT_EQ(CM_OK, call(cmsltp, "OTHER", 5));
    node.allocation.fail(2); /* the conversation comes first */
    Id id;
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmaccp, id));
    EXPECT_EQ("", node.problem(0x2003000B, 0).format);
    EXPECT_EQ(1u, node.memory.size());
    node.table_entry.fail(2);
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmaccp, id));
    EXPECT_EQ("", node.problem(0x2003000B, 15).format);
    EXPECT_EQ(1u, node.memory.size());
    EXPECT_EQ(1u, node.issued(NAP_DEFINE_LOCAL_TP_NAME).size()) << "only that of CMSLTP";
}

TEST_F(Accept, cmaccp_without_memory_for_the_list_says_20)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "OTHER", 5));
    node.allocation.fail(2);
    Id id;
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmaccp, id));
    EXPECT_EQ("", node.problem(0x2003000B, 10).format);
    EXPECT_FALSE(id.exists());
    EXPECT_EQ(1u, node.memory.size());
}

TEST_F(Accept, cmacci_without_memory_for_the_list_keeps_the_record)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "OTHER", 5));
    Id id = incoming();
    node.allocation.fail(1);
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmacci, id));
    node.problem(0x2003000B, 10);
    EXPECT_TRUE(id.exists());
    EXPECT_EQ(0, id.cccb().usVerbsPending);
}

TEST_F(Accept, cmaccp_checks_the_number_of_names)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "ONE", 3));
    library_gcb.NumLocTPNames = 2;
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    Bytes list = ebcdic("ONE", 64);
    list.resize(128, EBCDIC_BLANK);
    EXPECT_EQ(hex(list), hex(node.only(NAP_RECEIVE_ALLOCATE_CPIC).pointed_at)) << "no fresh memory goes to the node";
    node.assertion("handle_count == pGCB->NumLocTPNames");
    library_gcb.NumLocTPNames = 1;
}

/* ---- CMACCI ---------------------------------------------------------------------------------------------- */

TEST_F(Accept, cmacci_blocking)
{
    Id id = incoming();
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, partner());
    EXPECT_EQ(CM_OK, call(cmacci, id));
    Verb &verb = node.only(NAP_RECEIVE_ALLOCATE_CPIC);
    EXPECT_EQ(nullptr, verb.routine);
    expect_pending_call(verb, 42, id);
    EXPECT_EQ(0x0BADCAFEu, id.cccb().ulAppcConvId);
    EXPECT_EQ(hex(tp_id), hex(library_gcb.CurrentTpId, 8));
}

TEST_F(Accept, cmacci_clears_what_an_earlier_verb_left)
{
    Id id = incoming();
    memset(id.cccb().vcb.bytes, 0xFF, CPIC_VERB_SIZE);
    EXPECT_EQ(CM_OK, call(cmacci, id));
    Verb &verb = node.only(NAP_RECEIVE_ALLOCATE_CPIC);
    EXPECT_VERB(verb, Image(NAP_RECEIVE_ALLOCATE_CPIC)
                          .put8(3, 1)
                          .put32(84, id.handle())
                          .put16(192, 1)
                          .put32(196, verb.u32_at(196)));
}

TEST_F(Accept, cmacci_non_blocking_completing_later_leaves_the_current_context)
{
    Id id = incoming();
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, later(partner()));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmacci, id));
    Verb &verb = node.only(NAP_RECEIVE_ALLOCATE_CPIC);
    EXPECT_EQ(cmacci_cb, verb.routine);
    EXPECT_EQ(1u, verb.user_word);
    EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1, id.cccb().usVerbsPending);
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmacci, id));
    const Log log = node.problem(0x2003000C, 1);
    EXPECT_EQ("l", log.format);
    EXPECT_EQ(0u, log.items.at(0).first) << "the return code so far";
    node.deliver(verb);
    EXPECT_EQ(hex(nothing), hex(library_gcb.CurrentTpId, 8));
    EXPECT_EQ(0x0BADCAFEu, id.cccb().ulAppcConvId);
    EXPECT_EQ(hex(ebcdic("SERVER", 64)), hex(id.cccb().SideInfo.TPName, 64));
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(1u, node.wakes.size());
    EXPECT_EQ(1u, node.count_audits(0x20030001));
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_OK, conversation_rc.value());
    EXPECT_EQ(hex(id.content()), hex(found.content()));
}

TEST_F(Accept, cmacci_non_blocking_completing_at_once_makes_the_context_current)
{
    Id id = incoming();
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, partner());
    EXPECT_EQ(CM_OK, call(cmacci, id));
    EXPECT_EQ(hex(tp_id), hex(library_gcb.CurrentTpId, 8));
}

TEST_F(Accept, cmacci_failure_keeps_the_record_whatever_the_code)
{
    for (const EndingCode &code : ending_codes)
    {
        SCOPED_TRACE(code.primary);
        Id id = incoming();
        node.next(NAP_RECEIVE_ALLOCATE_CPIC, fails(code.primary, code.secondary));
        EXPECT_EQ(code.return_code, call(cmacci, id));
        if (code.return_code == CM_PRODUCT_SPECIFIC_ERROR)
        {
            node.problem(0x20030016, 1);
        }
        EXPECT_EQ(code.return_code, static_cast<long>(node.problem(0x2003000C, 3).items.at(0).first));
        EXPECT_TRUE(id.exists());
        EXPECT_EQ(0u, id.cccb().ulAppcConvId);
        EXPECT_EQ(0, id.cccb().usInitialized);
        EXPECT_EQ(CM_OK, call(cmacci, id)) << "it may be tried again";
        EXPECT_EQ(CM_OK, call(cmcanc, id));
    }
}

TEST_F(Accept, cmacci_non_blocking_failure_keeps_the_record)
{
    Id id = incoming();
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, later(fails(0x0F00)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmacci, id));
    node.deliver_all();
    node.problem(0x2003000C, 3);
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_RESOURCE_FAILURE_RETRY, conversation_rc.value());
    EXPECT_TRUE(id.exists());
}

TEST_F(Accept, cmacci_of_an_initialised_or_accepted_conversation_is_a_state_check)
{
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmacci, id));
    EXPECT_EQ("", node.problem(0x2003000C, 2).format);
    EXPECT_TRUE(id.exists());
    Id accepted = incoming();
    EXPECT_EQ(CM_OK, call(cmacci, accepted));
    node.forget();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmacci, accepted));
    node.problem(0x2003000C, 2);
    expect_no_verb();
}

TEST_F(Accept, cmacci_drops_a_posted_completion)
{
    Id id = incoming();
    id.cccb().usCompletionPending = 1;
    library_gcb.NumVerbsWaiting = 1;
    EXPECT_EQ(CM_OK, call(cmacci, id));
    EXPECT_EQ(0, id.cccb().usCompletionPending);
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
    Id other = incoming();
    other.cccb().usCompletionPending = 1;
    Out rc;
    cmacci(other.address(), rc.address());
    node.assertion("(pGCB)->NumVerbsWaiting > 0");
    library_gcb.NumVerbsWaiting = 0;
}

TEST_F(Accept, cmaccp_ends_a_context_that_lost_its_last_user_while_it_waited)
{
    Id other = allocated();
    memcpy(library_gcb.CurrentTpId, other.cccb().TpId, 8);
    const Bytes old(library_gcb.CurrentTpId, library_gcb.CurrentTpId + 8);
    /* Another thread meanwhile ends the last conversation of the current context. */
    node.at_issue = [&](Verb &verb) {
        if (verb.opcode == NAP_RECEIVE_ALLOCATE_CPIC)
        {
            memset(other.cccb().TpId, 0, 8);
        }
    };
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, partner().put(90, ebcdic("", 10)));
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_VERB(node.only(NAP_TP_ENDED), Image(NAP_TP_ENDED).put(12, old).put8(20, 1));
}
