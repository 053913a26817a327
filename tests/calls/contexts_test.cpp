/* contexts_test.cpp - CMECTX, CMSCTX, and how a context is ended at the node. */
#include "calls.hpp"

using Contexts = CallTest;

namespace
{
const u8 context_one[8] = {0xC1, 2, 3, 4, 5, 6, 7, 8};

void start()
{
    Locked held;
    SCC_init();
}
} // namespace

TEST_F(Contexts, cmectx_returns_the_tp_identifier)
{
    Id id = allocated();
    Buffer context(8);
    Out length;
    EXPECT_EQ(CM_OK, call(cmectx, id, context, length));
    EXPECT_EQ(hex(id.cccb().TpId, 8), hex(context.content()));
    EXPECT_EQ(8, length.value());
    expect_no_verb();
}

TEST_F(Contexts, cmectx_before_allocation_is_a_state_check)
{
    Id id = initialised();
    memcpy(id.cccb().TpId, context_one, 8);
    Buffer context(8);
    Out length;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmectx, id, context, length));
    EXPECT_TRUE(context.untouched());
    EXPECT_TRUE(length.untouched());
}

TEST_F(Contexts, cmsctx_of_a_wrong_length)
{
    Id id = allocated();
    const Bytes context(id.cccb().TpId, id.cccb().TpId + 8);
    for (int length : {7, 9, 0, -8, 0x10008})
    {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsctx, context, length));
    }
    EXPECT_EQ("00 00 00 00 00 00 00 00", hex(library_gcb.CurrentTpId, 8));
    memcpy(library_gcb.CurrentTpId, context.data(), 8);
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsctx, context, 7)) << "also for the current one";
}

TEST_F(Contexts, cmsctx_of_the_current_context_changes_nothing)
{
    start();
    memcpy(library_gcb.CurrentTpId, context_one, 8);
    memcpy(library_gcb.ContextLUAlias, "SOMELU  ", 8);
    EXPECT_EQ(CM_OK, call(cmsctx, Bytes(context_one, context_one + 8), 8));
    EXPECT_EQ(hex(ascii("SOMELU  ")), hex(library_gcb.ContextLUAlias, 8));
    expect_no_verb();
}

TEST_F(Contexts, cmsctx_of_an_unknown_context)
{
    Id id = allocated();
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsctx, Bytes(context_one, context_one + 8), 8));
    EXPECT_EQ("00 00 00 00 00 00 00 00", hex(library_gcb.CurrentTpId, 8));
}

TEST_F(Contexts, cmsctx_makes_a_conversations_context_current)
{
    Id id = allocated();
    const Bytes context(id.cccb().TpId, id.cccb().TpId + 8);
    EXPECT_EQ(CM_OK, call(cmsctx, context, 8));
    EXPECT_EQ(hex(context), hex(library_gcb.CurrentTpId, 8));
    EXPECT_EQ(hex(id.cccb().LocalLUName, 8), hex(library_gcb.ContextLUAlias, 8));
    expect_no_verb();
}

TEST_F(Contexts, cmsctx_ends_the_context_it_replaces_when_nobody_uses_it)
{
    Id id = allocated();
    memcpy(library_gcb.CurrentTpId, context_one, 8);
    EXPECT_EQ(CM_OK, call(cmsctx, Bytes(id.cccb().TpId, id.cccb().TpId + 8), 8));
    Verb &ended = node.only(NAP_TP_ENDED);
    EXPECT_EQ(scripted::Entry::asynchronous, ended.entry);
    EXPECT_VERB(ended, Image(NAP_TP_ENDED).put(12, Bytes(context_one, context_one + 8)).put8(20, 1));
    EXPECT_EQ(hex(id.cccb().TpId, 8), hex(library_gcb.CurrentTpId, 8));
}

TEST_F(Contexts, cmsctx_leaves_a_replaced_context_that_is_in_use)
{
    Id first = allocated();
    Id second = allocated();
    EXPECT_EQ(CM_OK, call(cmsctx, Bytes(first.cccb().TpId, first.cccb().TpId + 8), 8));
    EXPECT_EQ(CM_OK, call(cmsctx, Bytes(second.cccb().TpId, second.cccb().TpId + 8), 8));
    expect_no_verb();
}

TEST_F(Contexts, cmsctx_takes_the_alias_of_the_first_user_in_the_table)
{
    Id first = allocated();
    Id second = allocated();
    memcpy(second.cccb().TpId, first.cccb().TpId, 8);
    memcpy(second.cccb().LocalLUName, "OTHERLU ", 8);
    EXPECT_EQ(CM_OK, call(cmsctx, Bytes(first.cccb().TpId, first.cccb().TpId + 8), 8));
    EXPECT_EQ(hex(first.cccb().LocalLUName, 8), hex(library_gcb.ContextLUAlias, 8));
}

TEST_F(Contexts, context_valid)
{
    Id id = allocated();
    Locked held;
    CCCB *found = nullptr;
    EXPECT_EQ(1, SCC_context_valid(id.cccb().TpId, &found));
    EXPECT_EQ(id.find(), found);
    EXPECT_EQ(0, SCC_context_valid(context_one, &found));
    memcpy(library_gcb.CurrentTpId, context_one, 8);
    EXPECT_EQ(1, SCC_context_valid(context_one, &found)) << "current, though no conversation uses it";
}

TEST_F(Contexts, context_ended_synchronously_reports_both_codes)
{
    start();
    node.next(NAP_TP_ENDED, fails(0x0100, 0x12345678));
    u16 primary = 0;
    u32 secondary = 0;
    Locked held;
    SCC_context_ended(context_one, 0, &primary, &secondary);
    EXPECT_EQ(0x0100, primary);
    EXPECT_EQ(0x12345678u, secondary);
    Verb &ended = node.only(NAP_TP_ENDED);
    EXPECT_EQ(scripted::Entry::synchronous, ended.entry);
    EXPECT_VERB(ended, Image(NAP_TP_ENDED).put(12, Bytes(context_one, context_one + 8)).put8(20, 0));
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Contexts, context_ended_asynchronously_frees_its_record_in_the_routine)
{
    start();
    {
        Locked held;
        node.next(NAP_TP_ENDED, later());
        SCC_context_ended(context_one, 1, nullptr, nullptr);
    }
    Verb &ended = node.only(NAP_TP_ENDED);
    EXPECT_EQ(SCC_null_callback, ended.routine);
    EXPECT_EQ(1u, ended.user_word);
    EXPECT_EQ(1u, node.memory.size());
    node.deliver(ended);
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Contexts, context_ended_asynchronously_frees_its_record_itself_without_a_callback)
{
    start();
    Locked held;
    node.next(NAP_TP_ENDED, never_calls_back());
    SCC_context_ended(context_one, 1, nullptr, nullptr);
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Contexts, context_ended_without_memory)
{
    start();
    Locked held;
    u16 primary = 0;
    u32 secondary = 0;
    node.allocation.fail();
    SCC_context_ended(context_one, 1, &primary, &secondary);
    EXPECT_EQ("", node.problem(0x2003000B, 17).format);
    EXPECT_EQ(0x11F0, primary);
    EXPECT_EQ(12u, secondary);
    node.allocation.fail();
    SCC_context_ended(context_one, 1, nullptr, nullptr);
    node.problem(0x2003000B, 17);
    expect_no_verb();
}
