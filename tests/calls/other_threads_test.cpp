/* other_threads_test.cpp - what other threads may do while a verb waits with the lock given up. The tests have one
 * thread: the other one's calls are made from inside the node, between the issue of a verb and its completion. */
#include "calls.hpp"

namespace
{

class OtherThreads : public CallTest
{
protected:
    /* Runs `calls` as another thread while the next verb with this opcode waits. */
    static void meanwhile(u16 opcode, const std::function<void()> &calls)
    {
        node.at_issue = [opcode, calls](Verb &verb) {
            if (verb.opcode != opcode)
            {
                return;
            }
            const auto once = calls; /* this function is gone with the next line */
            node.at_issue = nullptr;
            const u16 token = node.token;
            node.held = false;
            once();
            node.held = true;
            node.token = token;
        };
    }

    /* The node knows this destination. */
    static void define(const char *name)
    {
        NOF_SIDE_INFO info;
        memset(&info, 0, sizeof info);
        memcpy(info.sym_dest_name, name, sizeof info.sym_dest_name);
        memcpy(info.partner_lu_name, ascii("PARTNER", 17).data(), 17);
        memcpy(info.tp_name, ascii("SERVER", 64).data(), 64);
        memcpy(info.mode_name, ascii("#INTER", 8).data(), 8);
        node.side_info[name] = info;
    }

    /* An accepted conversation whose context is the current one. */
    static Id accepted()
    {
        node.next(NAP_RECEIVE_ALLOCATE_CPIC, succeeds().put(90, ebcdic("USER", 10)));
        Id id;
        EXPECT_EQ(CM_OK, call(cmaccp, id));
        node.forget();
        return id;
    }

    static long receive(Id &id)
    {
        Buffer buffer(20);
        Out data, length, status, rts;
        return call(cmrcv, id, buffer, 20, data, length, status, rts);
    }
};

} // namespace

TEST_F(OtherThreads, a_second_call_on_a_waiting_conversation_is_not_accepted)
{
    Id id = allocated();
    meanwhile(NAP_RECEIVE_AND_WAIT, [&] {
        EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmflus, id));
        EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmdeal, id));
        EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, receive(id));
    });
    EXPECT_EQ(CM_OK, receive(id));
    EXPECT_EQ(1u, node.verbs.size());
    EXPECT_EQ(CM_OK, call(cmflus, id));
}

TEST_F(OtherThreads, cmcanc_of_a_waiting_conversation)
{
    Id id = allocated();
    node.next(NAP_RECEIVE_AND_WAIT, fails(0x2100));
    meanwhile(NAP_RECEIVE_AND_WAIT, [&] {
        EXPECT_EQ(CM_OK, call(cmcanc, id));
        EXPECT_TRUE(id.exists()) << "the other thread still uses it";
    });
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, receive(id));
    node.problem(0x20030016, 1);
    EXPECT_FALSE(id.exists());
}

TEST_F(OtherThreads, cmterm_leaves_a_waiting_conversation_to_its_thread)
{
    Id waiting = accepted();
    Id other;
    EXPECT_EQ(CM_OK, call(cminit, other, "        "));
    EXPECT_EQ(CM_OK, call(cmallc, other));
    node.next(NAP_RECEIVE_AND_WAIT, fails(0x2100));
    meanwhile(NAP_RECEIVE_AND_WAIT, [&] {
        EXPECT_EQ(CM_OK, call(cmterm, 0));
        EXPECT_FALSE(other.exists());
    });
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, receive(waiting));
    node.problem(0x20030016, 1);
    EXPECT_FALSE(waiting.exists());
    EXPECT_EQ(1u, node.issued(NAP_TP_ENDED).size()) << "the context is ended once";
}

TEST_F(OtherThreads, cmterm_ends_a_waiting_conversation_whose_verb_succeeds_all_the_same)
{
    Id waiting = accepted();
    meanwhile(NAP_RECEIVE_AND_WAIT, [&] { EXPECT_EQ(CM_OK, call(cmterm, 0)); });
    EXPECT_EQ(CM_OK, receive(waiting));
    EXPECT_FALSE(waiting.exists());
}

TEST_F(OtherThreads, cmterm_frees_what_no_thread_is_inside_of_any_more)
{
    Id id = completed();
    EXPECT_EQ(CM_OK, call(cmcanc, id));
    ASSERT_TRUE(id.exists()) << "its completion is not collected";
    Id second = initialised();
    EXPECT_EQ(CM_OK, call(cmallc, second));
    for (Id *conversation : {&id, &second})
    {
        const Bytes context(conversation->cccb().TpId, conversation->cccb().TpId + 8);
        EXPECT_EQ(CM_OK, call(cmsctx, context, 8));
        EXPECT_EQ(CM_OK, call(cmterm, 0));
        EXPECT_FALSE(conversation->exists());
    }
}

TEST_F(OtherThreads, cmsctx_of_a_context_that_is_being_ended)
{
    Id id = allocated();
    const Bytes context(id.cccb().TpId, id.cccb().TpId + 8);
    meanwhile(NAP_TP_ENDED, [&] {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsctx, context, 8)) << "nobody uses it any more";
        EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmflus, id));
    });
    EXPECT_EQ(CM_OK, call(cmdeal, id));
    EXPECT_FALSE(id.exists());
    EXPECT_EQ(1u, node.issued(NAP_TP_ENDED).size());
}

TEST_F(OtherThreads, cmterm_leaves_a_conversation_whose_cancel_waits_to_its_thread)
{
    Id waiting = accepted();
    node.next(NAP_CANCEL_CONVERSATION, later());
    node.sleeps_do.push_back([&](u32 object) {
        EXPECT_EQ(CM_OK, call(cmterm, 0));
        node.deliver_all();
        EXPECT_EQ(1u, node.wakes.size());
        EXPECT_EQ(object, node.wakes.back());
        return 0;
    });
    EXPECT_EQ(CM_OK, call(cmcanc, waiting));
    EXPECT_FALSE(waiting.exists());
    EXPECT_EQ(1u, node.issued(NAP_TP_ENDED).size());
}

TEST_F(OtherThreads, cmterm_while_a_new_context_becomes_current_leaves_that_one)
{
    Id second = allocated();
    Id first = accepted();
    const Bytes new_context(second.cccb().TpId, second.cccb().TpId + 8);
    meanwhile(NAP_TP_ENDED, [&] { EXPECT_EQ(CM_OK, call(cmsctx, new_context, 8)); });
    EXPECT_EQ(CM_OK, call(cmterm, 0));
    EXPECT_FALSE(first.exists());
    EXPECT_TRUE(second.exists());
    EXPECT_EQ(hex(new_context), hex(library_gcb.CurrentTpId, 8));
    EXPECT_EQ(hex(second.cccb().LocalLUName, 8), hex(library_gcb.ContextLUAlias, 8));
}

TEST_F(OtherThreads, cmcanc_while_the_tp_of_an_allocation_is_started)
{
    Id id = initialised();
    meanwhile(NAP_TP_STARTED, [&] { EXPECT_EQ(CM_OK, call(cmcanc, id)); });
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmallc, id));
    EXPECT_FALSE(id.exists());
    EXPECT_TRUE(node.issued(NAP_M_ALLOCATE).empty());
    EXPECT_EQ(1u, node.issued(NAP_TP_ENDED).size()) << "the TP that was started for it is ended";
}

TEST_F(OtherThreads, cmcanc_while_an_allocation_waits)
{
    Id id = initialised();
    node.next(NAP_M_ALLOCATE, fails(0x2100));
    Bytes tp;
    meanwhile(NAP_M_ALLOCATE, [&] {
        tp = Bytes(id.cccb().TpId, id.cccb().TpId + 8);
        EXPECT_EQ(CM_OK, call(cmcanc, id));
    });
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmallc, id));
    node.problem(0x20030016, 1);
    EXPECT_FALSE(id.exists());
    EXPECT_VERB(node.only(NAP_CANCEL_CONVERSATION), Image(NAP_CANCEL_CONVERSATION).put8(2, 1).put(12, tp));
}

TEST_F(OtherThreads, cmcanc_while_an_accept_waits)
{
    Id id = incoming();
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, fails(0x2100));
    meanwhile(NAP_RECEIVE_ALLOCATE_CPIC, [&] { EXPECT_EQ(CM_OK, call(cmcanc, id)); });
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmacci, id));
    node.problem(0x20030016, 1);
    node.problem(0x2003000C, 3);
    EXPECT_FALSE(id.exists());
    EXPECT_VERB(node.only(NAP_CANCEL_CONVERSATION),
                Image(NAP_CANCEL_CONVERSATION).put8(2, 1).put32(20, id.handle()));
}

TEST_F(OtherThreads, cmrltp_of_a_name_that_is_being_removed)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "SERVER", 6));
    EXPECT_EQ(CM_OK, call(cmsltp, "OTHER", 5));
    meanwhile(NAP_DELETE_LOCAL_TP_NAME, [&] { EXPECT_EQ(CM_OK, call(cmrltp, "SERVER", 6)); });
    call(cmrltp, "SERVER", 6);
    EXPECT_EQ(1u, library_gcb.NumLocTPNames) << "counted out once";
    EXPECT_EQ(1u, node.tables[library_gcb.LocTPNameTable].entries.size());
    EXPECT_EQ(1u, node.memory.size());
}

TEST_F(OtherThreads, cmaccp_lists_what_the_table_holds_while_a_name_is_being_added)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "ONE", 3));
    meanwhile(NAP_DEFINE_LOCAL_TP_NAME, [&] {
        Id id;
        EXPECT_EQ(CM_OK, call(cmaccp, id)) << "count and table agree: no check fails";
    });
    EXPECT_EQ(CM_OK, call(cmsltp, "TWO", 3));
    EXPECT_EQ(2u, library_gcb.NumLocTPNames);
}

/* ---- log data while a verb that carries it is out --------------------------------------------------------- */

TEST_F(OtherThreads, cmsld_while_an_error_with_log_data_is_being_sent)
{
    Id id = non_blocking(0);
    EXPECT_EQ(CM_OK, call(cmsld, id, "first", 5));
    node.next(NAP_SEND_ERROR, later());
    Out rts;
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmserr, id, rts));
    Verb &verb = node.only(NAP_SEND_ERROR);
    const Bytes handed_over = verb.pointed_at;
    EXPECT_EQ(CM_OK, call(cmsld, id, "second one", 10));
    EXPECT_EQ(CM_OK, call(cmsld, id, "third", 5));
    const u8 *at_the_node = reinterpret_cast<const u8 *>(verb.u32_at(32));
    EXPECT_EQ(hex(handed_over), hex(at_the_node, handed_over.size())) << "the node still reads it";
    node.deliver(verb);
    EXPECT_EQ(nullptr, id.cccb().LogData);
    EXPECT_EQ(1u, node.memory.size()) << "only the conversation";
}

TEST_F(OtherThreads, cmsld_of_nothing_while_a_deallocation_with_log_data_is_out)
{
    Id id = non_blocking(0);
    EXPECT_EQ(CM_OK, call(cmsld, id, "first", 5));
    id.cccb().ulDeallocateType = CM_DEALLOCATE_ABEND;
    node.next(NAP_DEALLOCATE, later(fails(0x0200)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmdeal, id));
    Verb &verb = node.only(NAP_DEALLOCATE);
    const Bytes handed_over = verb.pointed_at;
    EXPECT_EQ(CM_OK, call(cmsld, id, "", 0));
    EXPECT_EQ(nullptr, id.cccb().LogData);
    const u8 *at_the_node = reinterpret_cast<const u8 *>(verb.u32_at(28));
    EXPECT_EQ(hex(handed_over), hex(at_the_node, handed_over.size())) << "the node still reads it";
    node.deliver(verb);
    EXPECT_EQ(1u, node.memory.size());
    EXPECT_EQ(0, id.cccb().DeallcLogDataLength);
}

TEST_F(OtherThreads, cmsld_while_another_verb_is_out_replaces_at_once)
{
    Id id = busy(0);
    EXPECT_EQ(CM_OK, call(cmsld, id, "first", 5));
    EXPECT_EQ(CM_OK, call(cmsld, id, "second", 6));
    EXPECT_EQ(2u, node.memory.size());
    node.deliver_all();
}

TEST_F(OtherThreads, cmsst_while_a_send_with_a_chained_deallocation_is_out)
{
    Id id = non_blocking(0);
    EXPECT_EQ(CM_OK, call(cmsld, id, "why", 3));
    EXPECT_EQ(CM_OK, call(cmsst, id, CM_SEND_AND_DEALLOCATE));
    EXPECT_EQ(CM_OK, call(cmsdt, id, CM_DEALLOCATE_ABEND));
    node.next(NAP_SEND_DATA, later());
    Out rts;
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmsend, id, "x", 1, rts));
    EXPECT_EQ(CM_OK, call(cmsst, id, CM_BUFFER_DATA));
    node.deliver_all();
    EXPECT_TRUE(node.issued(NAP_DEALLOCATE).empty()) << "the send type at completion decides";
    EXPECT_EQ(0, id.cccb().DeallcLogDataLength) << "and the copy is dropped";
    EXPECT_EQ(nullptr, id.cccb().DeallcLogData);
    EXPECT_EQ(0, id.cccb().usConversationEnded);
}

TEST_F(OtherThreads, cminit_of_a_name_that_another_thread_looks_up_as_well)
{
    define("ECHO    ");
    Id mine, theirs;
    meanwhile(NOF_QUERY_SIDE_INFO, [&] { EXPECT_EQ(CM_OK, call(cminit, theirs, "ECHO    ")); });
    EXPECT_EQ(CM_OK, call(cminit, mine, "ECHO    "));
    EXPECT_EQ(1u, node.tables[library_gcb.SideInfoTable].entries.size()) << "one record for one name";
    EXPECT_EQ(0, memcmp(&mine.cccb().SideInfo, &theirs.cccb().SideInfo, sizeof(SIDE_INFO_ENTRY)));
}

TEST_F(OtherThreads, cminit_of_a_name_that_another_thread_deletes_meanwhile)
{
    define("ECHO    ");
    Id id, later;
    meanwhile(NOF_QUERY_SIDE_INFO, [&] { EXPECT_EQ(CM_OK, call(xcmdsi, nullptr, "ECHO    ")); });
    EXPECT_EQ(CM_OK, call(cminit, id, "ECHO    ")) << "it began before the name was deleted";
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cminit, later, "ECHO    ")) << "the deletion stands";
}

TEST_F(OtherThreads, xcmdsi_of_a_name_that_another_thread_looks_up_meanwhile)
{
    define("ECHO    ");
    Id before, after;
    meanwhile(NOF_QUERY_SIDE_INFO, [&] { EXPECT_EQ(CM_OK, call(cminit, before, "ECHO    ")); });
    EXPECT_EQ(CM_OK, call(xcmdsi, nullptr, "ECHO    "));
    EXPECT_EQ(1u, node.tables[library_gcb.SideInfoTable].entries.size());
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cminit, after, "ECHO    "));
}

TEST_F(OtherThreads, a_conversation_that_is_ended_while_its_destination_is_looked_up)
{
    define("ECHO    ");
    Id id;
    meanwhile(NOF_QUERY_SIDE_INFO, [&] {
        EXPECT_TRUE(id.exists()) << "the ID is out already";
        EXPECT_EQ(CM_OK, call(cmcanc, id));
    });
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cminit, id, "ECHO    "));
    EXPECT_FALSE(id.exists());
}
