/* records_test.cpp - conversation records: making, finding, counting, freeing, and when a finished one goes. */
#include "calls.hpp"

using Records = CallTest;

namespace
{

/* A started library without any conversation. */
void start()
{
    Locked held;
    SCC_init();
    ASSERT_EQ(1, library_started);
}

CCCB *make(u8 *id)
{
    CCCB *cccb = nullptr;
    Locked held;
    EXPECT_NE(0, SCC_cccb_init(id, &cccb));
    return cccb;
}

void release(CCCB *cccb)
{
    Locked held;
    SCC_free_cccb(cccb);
}

const u8 tp_one[8] = {1, 2, 3, 4, 5, 6, 7, 8};
const u8 tp_two[8] = {1, 2, 3, 4, 5, 6, 7, 9};

} // namespace

TEST_F(Records, pGCB_points_at_sGcb)
{
    EXPECT_EQ(&library_gcb, library_gcb_pointer);
}

TEST_F(Records, cccb_init_sets_every_default)
{
    start();
    Buffer id(8);
    CCCB *cccb = make(id.address());
    id.check();
    ASSERT_NE(nullptr, cccb);

    CCCB expected;
    memset(&expected, 0, sizeof(expected));
    memset(expected.SideInfo.SymDestName, 0x20, 8);
    memset(expected.SideInfo.PartnerLUName, 0x20, 17);
    memset(expected.SideInfo.TPName, 0x40, 64);
    memset(expected.SideInfo.ModeName, 0x40, 8);
    expected.SideInfo.ulSecurityType = 1;
    memset(expected.SideInfo.SecurityUserId, 0x40, 10);
    memset(expected.SideInfo.SecurityPassword, 0x40, 10);
    expected.SideInfo.usSecurityUserIdLen = 1;
    expected.ulConversationType = 1;
    expected.CCCBhandle = cccb->CCCBhandle;
    const u8 *e = reinterpret_cast<const u8 *>(&expected);
    const u8 *f = reinterpret_cast<const u8 *>(cccb);
    EXPECT_EQ("", scripted::difference(Bytes(e, e + sizeof(expected)), Bytes(f, f + sizeof(*cccb))));

    ASSERT_EQ(1u, node.tables[library_gcb.ConvTable].entries.size());
    EXPECT_EQ(cccb, node.tables[library_gcb.ConvTable].entries[cccb->CCCBhandle]);
    Bytes as_id(8, 0);
    memcpy(as_id.data(), &cccb->CCCBhandle, 4);
    EXPECT_EQ(hex(as_id), hex(id.content()));
    EXPECT_EQ(sizeof(CCCB), node.memory[cccb].size);
    EXPECT_EQ(MM_TYPE_RECORD, node.memory[cccb].type);
}

TEST_F(Records, cccb_init_without_memory_fails_with_problem_detail_1)
{
    start();
    node.allocation.fail();
    Buffer id(8);
    CCCB *cccb = nullptr;
    Locked held;
    EXPECT_EQ(0, SCC_cccb_init(id.address(), &cccb));
    const Log log = node.problem(0x2003000B, 1);
    EXPECT_EQ("", log.format);
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Records, cccb_init_without_table_entry_frees_the_record_with_problem_detail_2)
{
    start();
    node.table_entry.fail();
    Buffer id(8);
    CCCB *cccb = nullptr;
    Locked held;
    EXPECT_EQ(0, SCC_cccb_init(id.address(), &cccb));
    node.problem(0x2003000B, 2);
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Records, find_looks_at_the_first_four_bytes_only)
{
    start();
    Buffer id(8);
    CCCB *made = make(id.address());
    memcpy(id.address() + 4, "\x11\x22\x33\x44", 4);
    CCCB *found = nullptr;
    Locked held;
    EXPECT_NE(0, SCC_find_cccb(id.address(), &found, &library_gcb_pointer));
    EXPECT_EQ(made, found);
}

TEST_F(Records, find_of_an_unknown_handle_gives_null)
{
    start();
    Buffer id(8);
    CCCB *made = make(id.address());
    id.address()[0] ^= 0x40;
    CCCB *found = made;
    Locked held;
    EXPECT_EQ(0, SCC_find_cccb(id.address(), &found, &library_gcb_pointer));
    EXPECT_EQ(nullptr, found);
}

TEST_F(Records, find_before_the_start_and_after_a_path_failure_finds_nothing)
{
    start();
    Buffer id(8);
    CCCB *made = make(id.address());
    {
        Locked held;
        library_started = 0;
        CCCB *found = made;
        EXPECT_EQ(0, SCC_find_cccb(id.address(), &found, &library_gcb_pointer));
        EXPECT_EQ(nullptr, found);
        library_started = 1;
        GCB *none = nullptr;
        found = made;
        EXPECT_EQ(0, SCC_find_cccb(id.address(), &found, &none));
        EXPECT_EQ(nullptr, found);
        EXPECT_NE(0, SCC_find_cccb(id.address(), &found, &library_gcb_pointer));
    }
    node.path_event(PATH_EVENT_FAILURE);
    Locked held;
    CCCB *found = made;
    EXPECT_EQ(0, SCC_find_cccb(id.address(), &found, &library_gcb_pointer));
    EXPECT_EQ(nullptr, found);
}

TEST_F(Records, every_call_before_the_start_reports_the_id_as_unknown)
{
    Id id{Bytes{1, 0, 16, 0, 0, 0, 0, 0}};
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmflus, id));
    expect_unknown_id(12, id);
    EXPECT_EQ(0, library_started);
    expect_no_verb();
}

TEST_F(Records, free_of_the_last_user_of_another_context_ends_it_asynchronously)
{
    start();
    Buffer id(8);
    CCCB *cccb = make(id.address());
    memcpy(cccb->TpId, tp_one, 8);
    node.next(NAP_TP_ENDED, later());
    release(cccb);
    Verb &ended = node.only(NAP_TP_ENDED);
    EXPECT_VERB(ended, Image(NAP_TP_ENDED).put(12, Bytes(tp_one, tp_one + 8)).put8(20, 1));
    EXPECT_EQ(scripted::Entry::asynchronous, ended.entry);
    EXPECT_EQ(SCC_null_callback, ended.routine);
    EXPECT_EQ(1u, ended.user_word);
    EXPECT_EQ(1u, node.memory.size()) << "only the record of the verb is left";
    EXPECT_EQ(CPIC_VERB_SIZE, node.memory[ended.record].size);
    EXPECT_EQ(MM_TYPE_VERB, node.memory[ended.record].type);
    EXPECT_EQ(0u, library_gcb.ulAsyncVerbsOutstanding) << "nobody waits for it, so it is not counted";
    node.deliver(ended);
    EXPECT_TRUE(node.memory.empty());
    EXPECT_TRUE(node.tables[library_gcb.ConvTable].entries.empty());
}

TEST_F(Records, free_inside_a_deallocation_ends_the_context_synchronously)
{
    start();
    Buffer id(8);
    CCCB *cccb = make(id.address());
    memcpy(cccb->TpId, tp_one, 8);
    cccb->usTraceCallNo = 4;
    release(cccb);
    Verb &ended = node.only(NAP_TP_ENDED);
    EXPECT_EQ(scripted::Entry::synchronous, ended.entry);
    EXPECT_VERB(ended, Image(NAP_TP_ENDED).put(12, Bytes(tp_one, tp_one + 8)).put8(20, 1));
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Records, free_sets_the_verb_count_while_the_context_ends)
{
    start();
    Buffer id(8);
    CCCB *cccb = make(id.address());
    memcpy(cccb->TpId, tp_one, 8);
    u16 count = 99;
    node.at_issue = [&](Verb &) { count = cccb->usVerbsPending; };
    node.next(NAP_TP_ENDED, never_calls_back());
    release(cccb);
    EXPECT_EQ(1, count);
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Records, free_of_one_of_two_users_of_a_context_leaves_it)
{
    start();
    Buffer first(8);
    Buffer second(8);
    CCCB *one = make(first.address());
    CCCB *two = make(second.address());
    memcpy(one->TpId, tp_one, 8);
    memcpy(two->TpId, tp_one, 8);
    release(one);
    expect_no_verb();
    node.next(NAP_TP_ENDED, never_calls_back());
    release(two);
    EXPECT_EQ(1u, node.issued(NAP_TP_ENDED).size());
}

TEST_F(Records, free_without_a_context_or_in_the_current_one_ends_nothing)
{
    start();
    Buffer id(8);
    CCCB *cccb = make(id.address());
    release(cccb);
    cccb = make(id.address());
    memcpy(cccb->TpId, tp_one, 8);
    memcpy(library_gcb.CurrentTpId, tp_one, 8);
    release(cccb);
    expect_no_verb();
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Records, free_takes_a_posted_completion_out_of_the_count)
{
    start();
    Buffer id(8);
    CCCB *cccb = make(id.address());
    cccb->usCompletionPending = 1;
    library_gcb.NumVerbsWaiting = 1;
    release(cccb);
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
}

TEST_F(Records, free_with_a_completion_and_no_count_fails_the_check)
{
    start();
    Buffer id(8);
    CCCB *cccb = make(id.address());
    cccb->usCompletionPending = 1;
    release(cccb);
    node.assertion("pGCB->NumVerbsWaiting > 0");
    library_gcb.NumVerbsWaiting = 0;
}

TEST_F(Records, free_releases_both_log_data_records)
{
    start();
    Buffer id(8);
    CCCB *cccb = make(id.address());
    {
        Locked held;
        cccb->LogData = static_cast<u8 *>(nba_mm_alloc(20, MM_TYPE_RECORD, nba_blank_name));
        cccb->DeallcLogData = static_cast<u8 *>(nba_mm_alloc(20, MM_TYPE_RECORD, nba_blank_name));
    }
    release(cccb);
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Records, cccbs_using_tpid_counts_exact_matches)
{
    start();
    Buffer ids(24);
    CCCB *one = make(ids.address());
    CCCB *two = make(ids.address() + 8);
    CCCB *three = make(ids.address() + 16);
    memcpy(one->TpId, tp_one, 8);
    memcpy(two->TpId, tp_two, 8);
    memcpy(three->TpId, tp_one, 8);
    Locked held;
    EXPECT_EQ(2, SCC_cccbs_using_tpid(tp_one));
    EXPECT_EQ(1, SCC_cccbs_using_tpid(tp_two));
    EXPECT_EQ(0, SCC_cccbs_using_tpid(reinterpret_cast<const u8 *>("12345678")));
}

TEST_F(Records, free_handles_empties_the_conversation_table)
{
    start();
    Buffer ids(24);
    make(ids.address());
    make(ids.address() + 8);
    make(ids.address() + 16);
    Locked held;
    SCC_free_handles_from_table(library_gcb.ConvTable);
    EXPECT_TRUE(node.tables[library_gcb.ConvTable].entries.empty());
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Records, free_handles_of_any_other_table_takes_its_first_entry_only)
{
    start();
    Locked held;
    void *first = nba_mm_alloc(152, MM_TYPE_RECORD, nba_blank_name);
    void *second = nba_mm_alloc(152, MM_TYPE_RECORD, nba_blank_name);
    vtm_get_free_entry(library_gcb.SideInfoTable, first);
    vtm_get_free_entry(library_gcb.SideInfoTable, second);
    SCC_free_handles_from_table(library_gcb.SideInfoTable);
    EXPECT_EQ(1u, node.tables[library_gcb.SideInfoTable].entries.size());
    EXPECT_EQ(0u, node.memory.count(first));
    EXPECT_EQ(1u, node.memory.count(second));
}

TEST_F(Records, far_len_counts_up_to_its_limit)
{
    EXPECT_EQ(0, SCC_far_len("", 8));
    EXPECT_EQ(0, SCC_far_len("ABC", 0));
    EXPECT_EQ(3, SCC_far_len("ABC", 8));
    EXPECT_EQ(8, SCC_far_len("ABCDEFGHIJKL", 8));
    EXPECT_EQ(8, SCC_far_len("ABCDEFGH", 8));
}
