/* extract_test.cpp - the calls that return one characteristic, and CMECS, which asks the node. */
#include "calls.hpp"

using Extract = CallTest;

/* ---- CMECT, CMESL ---------------------------------------------------------------------------------------- */

TEST_F(Extract, cmect_and_cmesl)
{
    Out type, level;
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmect, id, type));
    EXPECT_EQ(CM_MAPPED_CONVERSATION, type.value());
    EXPECT_EQ(CM_OK, call(cmesl, id, level));
    EXPECT_EQ(CM_NONE, level.value());
    id.cccb().ulConversationType = 0;
    id.cccb().ulSyncLevel = 1;
    EXPECT_EQ(CM_OK, call(cmect, id, type));
    EXPECT_EQ(CM_BASIC_CONVERSATION, type.value());
    EXPECT_EQ(CM_OK, call(cmesl, id, level));
    EXPECT_EQ(CM_CONFIRM, level.value());
    expect_no_verb();
}

TEST_F(Extract, simple_extracts_in_every_state)
{
    Out type, level, mode_length, partner_length;
    Buffer mode(8), partner(17), local(9);
    Id id = incoming();
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmect, id, type));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmesl, id, level));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmemn, id, mode, mode_length));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmepln, id, partner, partner_length));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmelln, id, local));
    EXPECT_TRUE(type.untouched() && level.untouched() && mode_length.untouched() && partner_length.untouched());
    EXPECT_TRUE(mode.untouched() && partner.untouched() && local.untouched());
    EXPECT_EQ(CM_OK, call(cmacci, id));
    EXPECT_EQ(CM_OK, call(cmect, id, type));
    EXPECT_EQ(CM_OK, call(cmesl, id, level));
    EXPECT_EQ(CM_OK, call(cmemn, id, mode, mode_length));
    EXPECT_EQ(CM_OK, call(cmepln, id, partner, partner_length));
    EXPECT_EQ(CM_OK, call(cmelln, id, local));
    EXPECT_EQ(hex(scripted::bytes("#INTER")), hex(mode.content(6)));
    EXPECT_EQ(hex(scripted::bytes("NETA.PARTNER")), hex(partner.content(12)));
    EXPECT_EQ(hex(scripted::bytes(std::string("INLU    \0", 9))), hex(local.content()));
}

TEST_F(Extract, simple_extracts_with_a_verb_pending)
{
    Id id = busy();
    Out type;
    EXPECT_EQ(CM_OK, call(cmect, id, type));
    EXPECT_EQ(1, type.value());
    node.deliver_all();
}

/* ---- CMEMN, CMEPLN, CMELLN, CMEMBS ----------------------------------------------------------------------- */

TEST_F(Extract, cmemn)
{
    Id id = initialised();
    Buffer mode(8);
    Out length;
    EXPECT_EQ(CM_OK, call(cmemn, id, mode, length));
    EXPECT_EQ(0, length.value());
    EXPECT_TRUE(mode.untouched());
    EXPECT_EQ(CM_OK, call(cmsmn, id, "#inter", 6));
    EXPECT_EQ(CM_OK, call(cmemn, id, mode, length));
    EXPECT_EQ(6, length.value());
    EXPECT_EQ(hex(scripted::bytes("#INTER")), hex(mode.content(6)));
    EXPECT_TRUE(mode.untouched(6));
}

TEST_F(Extract, cmepln_after_cmspln)
{
    Id id = initialised();
    Out length;
    Buffer none(17);
    EXPECT_EQ(CM_OK, call(cmepln, id, none, length));
    EXPECT_EQ(0, length.value());
    EXPECT_TRUE(none.untouched());

    const struct
    {
        const char *set;
        const char *extracted;
    } rows[] = {{"NETA.LUB", "NETA.LUB"}, {"neta.lub", "NETA.LUB"}, {"aliasLU", "aliasLU"}, {".LU", ".LU"},
                {"NET.", "NET."}, {"abcdefghijklmnopq", "abcdefghijklmnopq"},
                {"ABCDEFGH.ABCDEFGH", "ABCDEFGH.ABCDEFGH"}};
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.set);
        const size_t size = strlen(row.set);
        Buffer name(17);
        EXPECT_EQ(CM_OK, call(cmspln, id, row.set, static_cast<int>(size)));
        EXPECT_EQ(CM_OK, call(cmepln, id, name, length));
        EXPECT_EQ(static_cast<long>(size), length.value());
        EXPECT_EQ(hex(scripted::bytes(row.extracted)), hex(name.content(size)));
        EXPECT_TRUE(name.untouched(size));
    }
}

TEST_F(Extract, cmepln_of_a_partner_that_the_node_names_without_a_network)
{
    Id id = incoming();
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, succeeds().put(132, ebcdic("PARTNER", 17)));
    EXPECT_EQ(CM_OK, call(cmacci, id));
    Buffer name(17);
    Out length;
    EXPECT_EQ(CM_OK, call(cmepln, id, name, length));
    EXPECT_EQ(7, length.value());
    EXPECT_EQ(hex(scripted::bytes("PARTNER")), hex(name.content(7)));
    EXPECT_TRUE(name.untouched(7));
}

TEST_F(Extract, cmelln)
{
    Id id = initialised();
    Buffer name(9);
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmelln, id, name));
    EXPECT_EQ(hex(Bytes(9, 0)), hex(name.content())) << "copied all the same";
    EXPECT_EQ(CM_OK, call(cmslln, id, "OURLU", 5));
    Buffer again(9);
    EXPECT_EQ(CM_OK, call(cmelln, id, again));
    EXPECT_EQ(hex(scripted::bytes(std::string("OURLU   \0", 9))), hex(again.content()));
}

TEST_F(Extract, cmelln_the_first_byte_decides)
{
    Id id = initialised();
    memcpy(id.cccb().LocalLUName, "\0LU_ONE ", 8);
    Buffer name(9);
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmelln, id, name));
    memcpy(id.cccb().LocalLUName, "L\0\0\0\0\0\0\0", 8);
    EXPECT_EQ(CM_OK, call(cmelln, id, name));
    EXPECT_EQ("4C 00 00 00 00 00 00 00 00", hex(name.content()));
}

TEST_F(Extract, cmembs)
{
    Out size;
    EXPECT_EQ(CM_OK, call(cmembs, size));
    EXPECT_EQ(32767, size.value());
    EXPECT_EQ(0, library_started);
    initialised();
    EXPECT_EQ(CM_OK, call(cmembs, size));
    EXPECT_EQ(32767, size.value());
    node.path_event(PATH_EVENT_FAILURE);
    EXPECT_EQ(CM_OK, call(cmembs, size));
}

/* ---- CMECS ----------------------------------------------------------------------------------------------- */

TEST_F(Extract, cmecs_of_an_unknown_conversation_logs_nothing)
{
    initialised();
    Id id{Bytes(8, 0x22)};
    Out state;
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmecs, id, state));
    EXPECT_TRUE(state.untouched());
    EXPECT_TRUE(node.problems.empty());
}

TEST_F(Extract, cmecs_verb_field_by_field)
{
    for (int type : {0, 1})
    {
        Id id = allocated(type);
        memset(id.cccb().vcb.bytes, 0xFF, CPIC_VERB_SIZE);
        Out state;
        EXPECT_EQ(CM_OK, call(cmecs, id, state));
        Verb &verb = node.only(NAP_GET_STATE);
        EXPECT_VERB(verb, Image(NAP_GET_STATE).of(*verb.cccb).put8(2, static_cast<unsigned>(type)));
        EXPECT_EQ(nullptr, verb.routine);
        EXPECT_EQ(5, verb.cccb->usTraceCallNo);
        EXPECT_EQ(hex(id.content()), hex(verb.cccb->SavedConvId, 8));
        EXPECT_EQ(1, verb.cccb->usVerbsPending);
        EXPECT_EQ(CM_SEND_STATE, state.value());
        EXPECT_EQ(0, id.cccb().usVerbsPending);
        node.forget();
    }
}

TEST_F(Extract, cmecs_maps_each_state)
{
    const struct
    {
        unsigned verb_state;
        long state;
    } rows[] = {{0, 2}, {1, 3}, {2, 4}, {3, 6}, {4, 7}, {5, 8}, {9, 5}};
    Id id = allocated();
    for (const auto &row : rows)
    {
        Out state;
        node.next(NAP_GET_STATE, succeeds().put8(24, row.verb_state));
        EXPECT_EQ(CM_OK, call(cmecs, id, state));
        EXPECT_EQ(row.state, state.value());
    }
}

TEST_F(Extract, cmecs_of_an_unknown_state)
{
    Id id = allocated();
    for (unsigned verb_state : {6u, 7u, 8u, 10u, 255u})
    {
        Out state;
        node.next(NAP_GET_STATE, succeeds().put8(24, verb_state));
        EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmecs, id, state));
        EXPECT_TRUE(state.untouched());
        const Log log = node.problem(0x20030004, 0);
        EXPECT_EQ("x", log.format);
        EXPECT_EQ(verb_state, log.items.at(0).first);
    }
    EXPECT_TRUE(id.exists());
}

TEST_F(Extract, cmecs_refused_by_the_node_still_maps_the_state)
{
    Id id = allocated();
    Out state;
    node.next(NAP_GET_STATE, fails(0x0900, 7).put8(24, 2));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmecs, id, state));
    const Log log = node.problem(0x20030009, 0);
    EXPECT_EQ("x", log.format);
    EXPECT_EQ(0x0900u, log.items.at(0).first);
    EXPECT_EQ(CM_RECEIVE_STATE, state.value());
    EXPECT_TRUE(id.exists()) << "asking for the state ends nothing";
}

TEST_F(Extract, cmecs_refused_with_an_unknown_state_logs_both)
{
    Id id = allocated();
    Out state;
    node.next(NAP_GET_STATE, fails(0x0100).put8(24, 77));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmecs, id, state));
    node.problem(0x20030009, 0);
    node.problem(0x20030004, 0);
    EXPECT_TRUE(state.untouched());
}

TEST_F(Extract, cmecs_with_a_verb_pending)
{
    Id id = busy();
    Out state;
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmecs, id, state));
    EXPECT_TRUE(state.untouched());
    node.deliver_all();
}

TEST_F(Extract, cmecs_before_allocation_with_a_verb_pending)
{
    Id id = incoming();
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, later());
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmacci, id));
    Out state;
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmecs, id, state));
    node.deliver_all();
}

TEST_F(Extract, cmecs_drops_a_posted_completion)
{
    Id id = completed();
    Out state;
    EXPECT_EQ(CM_OK, call(cmecs, id, state));
    EXPECT_EQ(0, id.cccb().usCompletionPending);
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
}

TEST_F(Extract, cmecs_non_blocking)
{
    Id id = non_blocking();
    Out state;
    node.next(NAP_GET_STATE, later(succeeds().put8(24, 9)));
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmecs, id, state));
    EXPECT_TRUE(state.untouched());
    Verb &verb = node.only(NAP_GET_STATE);
    EXPECT_EQ(cmecs_cb, verb.routine);
    EXPECT_EQ(1u, verb.user_word);
    EXPECT_EQ(1u, library_gcb.ulAsyncVerbsOutstanding);
    node.deliver(verb);
    EXPECT_EQ(CM_SEND_PENDING_STATE, state.value());
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding);
    EXPECT_EQ(1u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(0, id.cccb().usVerbsPending);
    EXPECT_EQ(1u, node.wakes.size());
    Id found;
    Out conversation_rc;
    EXPECT_EQ(CM_OK, call(cmwait, found, conversation_rc));
    EXPECT_EQ(CM_OK, conversation_rc.value());
}

TEST_F(Extract, cmecs_frees_a_conversation_that_has_ended)
{
    Id id = allocated();
    id.cccb().usConversationEnded = 1;
    Out state;
    EXPECT_EQ(CM_OK, call(cmecs, id, state));
    EXPECT_FALSE(id.exists());
}
