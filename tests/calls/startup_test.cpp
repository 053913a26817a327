/* startup_test.cpp - start-up from the environment, its failures one by one, path events, the end of a context by
 * CMTERM, the version stamp. */
#include "calls.hpp"

using Startup = CallTest;

namespace
{

void start()
{
    Locked held;
    SCC_init();
}

/* Start-up fails at one place: nothing of it is left, the call says 20, and the next call starts anew. */
void expect_start_fails(u32 code, u32 detail, scripted::Fault &fault, int nth)
{
    fault.fail(nth);
    Id id;
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cminit, id, "        "));
    const Log log = node.problem(code, detail);
    EXPECT_EQ("", log.format);
    EXPECT_EQ(0, library_started);
    EXPECT_EQ(0u, library_gcb.ConvTable);
    EXPECT_EQ(0u, library_gcb.SideInfoTable);
    EXPECT_EQ(0u, library_gcb.LocTPNameTable);
    EXPECT_EQ(0u, library_gcb.ulPathUser);
    EXPECT_TRUE(node.path_users.empty());
    EXPECT_TRUE(node.wait_objects.empty());
    EXPECT_TRUE(node.memory.empty());
    EXPECT_TRUE(id.untouched());
    for (const auto &table : node.tables)
    {
        EXPECT_FALSE(table.second.open);
    }
    EXPECT_EQ(CM_OK, call(cminit, id, "        "));
    EXPECT_EQ(1, library_started);
}

Bytes tp_name()
{
    return Bytes(library_gcb.TPName, library_gcb.TPName + 64);
}

/* Two conversations on one accepted context, which is current. */
struct CurrentContext
{
    Id first, second;
    CurrentContext()
    {
        setenv("APPCTPN", "SERVER", 1);
        const Answer with_user = Answer().put(90, ebcdic("USER", 10));
        node.next(NAP_RECEIVE_ALLOCATE_CPIC, with_user);
        EXPECT_EQ(CM_OK, call(cmaccp, first));
        EXPECT_EQ(CM_OK, call(cminit, second, "        "));
        EXPECT_EQ(CM_OK, call(cmallc, second));
        EXPECT_EQ(hex(first.cccb().TpId, 8), hex(second.cccb().TpId, 8));
        node.forget();
    }
};

} // namespace

TEST_F(Startup, init_prepares_everything)
{
    memset(&library_gcb, 0xEE, sizeof(library_gcb));
    start();
    EXPECT_EQ(1, library_started);
    const GCB &g = library_gcb;
    EXPECT_EQ("00 00 00 00 00 00 00 00", hex(g.CurrentTpId, 8));
    EXPECT_EQ("00 00 00 00 00 00 00 00", hex(g.ContextLUAlias, 8));
    EXPECT_EQ("00 00 00 00 00 00 00 00", hex(g.LUAlias, 8));
    EXPECT_EQ(0u, g.NumVerbsWaiting);
    EXPECT_EQ(0u, g.ulAsyncVerbsOutstanding);
    EXPECT_EQ(0u, g.NumLocTPNames);
    EXPECT_EQ(0, g.usLocTPNameFlag);
    EXPECT_EQ(0, g.usTPNameFromEnv);
    EXPECT_NE(0u, g.ConvTable);
    EXPECT_NE(0u, g.SideInfoTable);
    EXPECT_NE(0u, g.LocTPNameTable);
    EXPECT_EQ(node.path_users, std::vector<u32>{g.ulPathUser});
    EXPECT_EQ(SCC_path_callback, node.path_routine);
    EXPECT_EQ(0u, node.path_word);
    EXPECT_EQ(1u, node.wait_objects.count(g.WaitObject));
    EXPECT_EQ(nullptr, library_environment);
}

TEST_F(Startup, lu_alias_of_three_characters_is_padded_with_blanks)
{
    setenv("APPCLLU", "lu1", 1);
    start();
    EXPECT_EQ(hex(ascii("lu1     ")), hex(library_gcb.LUAlias, 8));
}

TEST_F(Startup, lu_alias_of_twelve_characters_is_cut_to_eight)
{
    setenv("APPCLLU", "ABCDEFGHIJKL", 1);
    start();
    EXPECT_EQ(hex(ascii("ABCDEFGH")), hex(library_gcb.LUAlias, 8));
    EXPECT_EQ(0, library_gcb.TPName[0] ^ 0xC3) << "nothing runs into the field after it";
}

TEST_F(Startup, lu_alias_empty_counts_as_unset)
{
    setenv("APPCLLU", "", 1);
    start();
    EXPECT_EQ("00 00 00 00 00 00 00 00", hex(library_gcb.LUAlias, 8));
}

TEST_F(Startup, tp_name_default)
{
    start();
    EXPECT_EQ(hex(ebcdic("CPIC_DEFAULT_TPNAME", 64)), hex(tp_name()));
    EXPECT_EQ(19, library_gcb.usTPNameLen);
    EXPECT_EQ(0, library_gcb.usTPNameFromEnv);
    EXPECT_EQ(nullptr, library_environment);
}

TEST_F(Startup, tp_name_empty_is_the_default)
{
    setenv("APPCTPN", "", 1);
    start();
    EXPECT_EQ(hex(ebcdic("CPIC_DEFAULT_TPNAME", 64)), hex(tp_name()));
    EXPECT_EQ(19, library_gcb.usTPNameLen);
    EXPECT_EQ(nullptr, library_environment);
}

TEST_F(Startup, tp_name_plain)
{
    setenv("APPCTPN", "my_Server.1", 1);
    start();
    EXPECT_EQ(hex(ebcdic("my_Server.1", 64)), hex(tp_name()));
    EXPECT_EQ(11, library_gcb.usTPNameLen);
    EXPECT_EQ(1, library_gcb.usTPNameFromEnv);
    EXPECT_STREQ("my_Server.1", library_environment);
}

TEST_F(Startup, tp_name_longer_than_its_field_is_cut_to_64)
{
    setenv("APPCTPN", std::string(70, 'A').c_str(), 1);
    start();
    EXPECT_EQ(hex(Bytes(64, 0xC1)), hex(tp_name()));
    EXPECT_EQ(64, library_gcb.usTPNameLen);
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
}

TEST_F(Startup, tp_name_service_of_four_digits)
{
    setenv("APPCTPN", "SNA_SERVICE_TP_0x06F1", 1);
    start();
    Bytes expected(64, EBCDIC_BLANK);
    expected[0] = 0x06;
    expected[1] = 0xF1;
    EXPECT_EQ(hex(expected), hex(tp_name()));
    EXPECT_EQ(2, library_gcb.usTPNameLen);
    EXPECT_EQ(0, library_gcb.usTPNameFromEnv);
    EXPECT_STREQ("06F1", library_environment);
}

TEST_F(Startup, tp_name_service_of_odd_length_ends_with_digit_0)
{
    setenv("APPCTPN", "SNA_SERVICE_TP_0x123", 1);
    start();
    EXPECT_EQ("12 30 40", hex(library_gcb.TPName, 3));
    EXPECT_EQ(2, library_gcb.usTPNameLen);
}

TEST_F(Startup, tp_name_service_digits_in_lower_case)
{
    setenv("APPCTPN", "SNA_SERVICE_TP_0xabcdefAF09", 1);
    start();
    EXPECT_EQ("AB CD EF AF 09 40", hex(library_gcb.TPName, 6));
    EXPECT_EQ(5, library_gcb.usTPNameLen);
}

TEST_F(Startup, tp_name_service_characters_below_one_count_as_0)
{
    setenv("APPCTPN", "SNA_SERVICE_TP_0x !#1.5", 1);
    start();
    EXPECT_EQ("00 01 05 40", hex(library_gcb.TPName, 4));
    EXPECT_EQ(3, library_gcb.usTPNameLen);
}

TEST_F(Startup, tp_name_service_prefix_alone_is_an_empty_name)
{
    setenv("APPCTPN", "SNA_SERVICE_TP_0x", 1);
    start();
    EXPECT_EQ(hex(Bytes(64, EBCDIC_BLANK)), hex(tp_name()));
    EXPECT_EQ(0, library_gcb.usTPNameLen);
    EXPECT_EQ(0, library_gcb.usTPNameFromEnv);
}

TEST_F(Startup, tp_name_with_the_prefix_in_lower_case_is_a_plain_name)
{
    setenv("APPCTPN", "sna_service_tp_0x06F1", 1);
    start();
    EXPECT_EQ(hex(ebcdic("sna_service_tp_0x06F1", 64)), hex(tp_name()));
    EXPECT_EQ(21, library_gcb.usTPNameLen);
    EXPECT_EQ(1, library_gcb.usTPNameFromEnv);
}

TEST_F(Startup, tp_name_service_longer_than_its_field_runs_on)
{
    /* 66 bytes: the two behind the field land on the low half of NumVerbsWaiting. */
    std::string digits;
    for (int i = 0; i < 64; i++)
    {
        digits += "C1";
    }
    setenv("APPCTPN", ("SNA_SERVICE_TP_0x" + digits + "0203").c_str(), 1);
    start();
    EXPECT_EQ(hex(Bytes(64, 0xC1)), hex(tp_name()));
    EXPECT_EQ(66, library_gcb.usTPNameLen);
    EXPECT_EQ(0x0302u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ(1, library_started);
    library_gcb.NumVerbsWaiting = 0;
}

TEST_F(Startup, tp_name_service_of_a_very_long_string_stays_in_the_librarys_memory)
{
    /* One environment string holds 128 KiB at most. The program's own data must not change, whatever it says. */
    static u8 mine[4096];
    memset(mine, 0x77, sizeof(mine));
    std::string digits(130000, '0');
    setenv("APPCTPN", ("SNA_SERVICE_TP_0x" + digits).c_str(), 1);
    start();
    EXPECT_EQ(65000, library_gcb.usTPNameLen);
    for (u8 byte : mine)
    {
        ASSERT_EQ(0x77, byte);
    }
    EXPECT_EQ(1, library_started);
    EXPECT_EQ(&library_gcb, library_gcb_pointer);
    unsetenv("APPCTPN");
    Id id;
    EXPECT_EQ(CM_OK, call(cminit, id, "        "));
}

TEST_F(Startup, set_tp_name_elsewhere_keeps_to_its_64_bytes)
{
    start();
    setenv("APPCTPN", ("SNA_SERVICE_TP_0x" + std::string(200, 'C')).c_str(), 1);
    Buffer field(64);
    {
        Locked held;
        SCC_set_tp_name(field.address());
    }
    field.check();
    EXPECT_EQ(hex(Bytes(64, 0xCC)), hex(field.content()));
    EXPECT_EQ(100, library_gcb.usTPNameLen);
}

TEST_F(Startup, get_lu_alias_writes_eight_bytes)
{
    setenv("APPCLLU", "ABCDEFGHIJKL", 1);
    Buffer field(8);
    Locked held;
    SCC_get_lu_alias(field.address());
    field.check();
    EXPECT_EQ(hex(ascii("ABCDEFGH")), hex(field.content()));
}

TEST_F(Startup, init_fails_without_conversation_table)
{
    expect_start_fails(0x2003000A, 1, node.table_init, 1);
}

TEST_F(Startup, init_fails_without_side_information_table)
{
    expect_start_fails(0x2003000A, 2, node.table_init, 2);
}

TEST_F(Startup, init_fails_without_local_tp_name_table)
{
    expect_start_fails(0x2003000A, 3, node.table_init, 3);
}

TEST_F(Startup, init_fails_without_path_registration)
{
    expect_start_fails(0x2003000A, 0, node.path_user, 1);
}

TEST_F(Startup, init_fails_without_wait_object)
{
    expect_start_fails(0x2003000B, 12, node.wait_object, 1);
}

TEST_F(Startup, init_notices_a_failure_behind_an_overlong_service_name)
{
    /* The name has run over the table words; what it left there is no table. */
    for (int which = 1; which <= 3; which++)
    {
        setenv("APPCTPN", ("SNA_SERVICE_TP_0x" + std::string(240, 'C')).c_str(), 1);
        node.table_init.fail(which);
        start();
        node.problem(0x2003000A, static_cast<u32>(which));
        EXPECT_EQ(0, library_started);
    }
    node.path_user.fail();
    start();
    node.problem(0x2003000A, 0);
    EXPECT_EQ(0, library_started);
}

TEST_F(Startup, init_reads_the_environment_anew_after_a_path_failure)
{
    setenv("APPCLLU", "ONE", 1);
    setenv("APPCTPN", "SERVER1", 1);
    start();
    node.path_event(PATH_EVENT_FAILURE);
    setenv("APPCLLU", "TWO", 1);
    unsetenv("APPCTPN");
    start();
    EXPECT_EQ(hex(ascii("TWO", 8)), hex(library_gcb.LUAlias, 8));
    EXPECT_EQ(hex(ebcdic("CPIC_DEFAULT_TPNAME", 64)), hex(tp_name()));
    EXPECT_EQ(0, library_gcb.usTPNameFromEnv);
}

TEST_F(Startup, every_starting_call_says_20_when_the_start_fails)
{
    node.path_user.always = true;
    Id id;
    u8 entry[124] = {};
    memcpy(entry, "NAME    ", 8);
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cminic, id));
    node.problem(0x2003000A, 0);
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmaccp, id));
    node.problem(0x2003000A, 0);
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmsltp, "TP", 2));
    node.problem(0x2003000A, 0);
    {
        Locked held;
        EXPECT_EQ(20u, SCD_main(1, entry));
        node.problem(0x2003000A, 0);
        EXPECT_EQ(20u, SCD_main(2, entry));
        node.problem(0x2003000A, 0);
        EXPECT_EQ(20u, SCD_main(3, entry));
        node.problem(0x2003000A, 0);
    }
    expect_no_verb();
}

TEST_F(Startup, path_event_of_another_kind_changes_nothing)
{
    Id id = initialised();
    EXPECT_EQ(0, node.path_event(0x8000));
    EXPECT_EQ(0, node.path_event(0));
    EXPECT_EQ(1, library_started);
    EXPECT_TRUE(id.exists());
}

TEST_F(Startup, path_failure_discards_everything)
{
    Id id = initialised();
    give_log_data(id, "log");
    const u32 wait_object = library_gcb.WaitObject;
    EXPECT_EQ(0, node.path_event(PATH_EVENT_FAILURE));
    EXPECT_EQ(0, library_started);
    EXPECT_EQ(0u, library_gcb.ConvTable);
    EXPECT_EQ(0u, library_gcb.SideInfoTable);
    EXPECT_EQ(0u, library_gcb.LocTPNameTable);
    EXPECT_EQ(0u, library_gcb.ulPathUser);
    EXPECT_EQ(wait_object, library_gcb.WaitObject) << "the word is left as it was";
    EXPECT_TRUE(node.wait_objects.empty());
    EXPECT_TRUE(node.path_users.empty());

    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmflus, id));
    expect_unknown_id(12, id);
    Id again;
    EXPECT_EQ(CM_OK, call(cminit, again, "        "));
    EXPECT_EQ(1, library_started);
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmflus, id)) << "the old conversation stays gone";
    expect_unknown_id(12, id);
}

TEST_F(Startup, path_failure_frees_conversations_and_the_first_of_the_other_tables)
{
    initialised();
    initialised();
    EXPECT_EQ(CM_OK, call(cmsltp, "ONE", 3));
    EXPECT_EQ(CM_OK, call(cmsltp, "TWO", 3));
    node.may_leak = true; /* the second name: only the first entry of that table is freed */
    EXPECT_EQ(4u, node.memory.size());
    node.path_event(PATH_EVENT_FAILURE);
    EXPECT_EQ(1u, node.memory.size());
}

TEST_F(Startup, path_failure_frees_what_a_pending_accept_holds)
{
    Id id = incoming();
    EXPECT_EQ(CM_OK, call(cmspm, id, 1));
    node.next(NAP_RECEIVE_ALLOCATE_CPIC, later());
    EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmacci, id));
    EXPECT_EQ(3u, node.memory.size()) << "conversation, own TP name, list of names";
    node.path_event(PATH_EVENT_FAILURE);
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Startup, path_failure_twice_and_before_any_start_is_harmless)
{
    struct path_event event = {PATH_EVENT_FAILURE, 0xFFFF};
    Locked held;
    EXPECT_EQ(0u, SCC_path_callback(0, &event));
    EXPECT_EQ(0, event.result);
    EXPECT_EQ(0, library_started);
}

TEST_F(Startup, cmterm_of_an_unknown_type_is_a_parameter_error)
{
    CurrentContext context;
    EXPECT_EQ(CM_PARAMETER_ERROR, call(cmterm, 2));
    EXPECT_EQ(CM_PARAMETER_ERROR, call(cmterm, -1));
    expect_no_verb();
    EXPECT_TRUE(context.first.exists());
}

TEST_F(Startup, cmterm_without_a_context_frees_nothing)
{
    EXPECT_EQ(CM_OK, call(cmterm, 0)) << "also before the library has started";
    EXPECT_EQ(0, library_started);
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmterm, 0));
    EXPECT_EQ(CM_OK, call(cmterm, 1));
    expect_no_verb();
    EXPECT_TRUE(id.exists());
}

TEST_F(Startup, cmterm_ends_the_context_and_frees_its_conversations)
{
    CurrentContext context;
    Id other = initialised();
    const Bytes tp(library_gcb.CurrentTpId, library_gcb.CurrentTpId + 8);
    give_log_data(context.first, "log");
    context.second.cccb().usCompletionPending = 1;
    library_gcb.NumVerbsWaiting = 1;

    EXPECT_EQ(CM_OK, call(cmterm, 0));
    Verb &ended = node.only(NAP_TP_ENDED);
    EXPECT_EQ(1u, node.verbs.size()) << "no verb for the conversations";
    EXPECT_EQ(scripted::Entry::synchronous, ended.entry);
    EXPECT_VERB(ended, Image(NAP_TP_ENDED).put(12, tp).put8(20, 1));
    EXPECT_FALSE(context.first.exists());
    EXPECT_FALSE(context.second.exists());
    EXPECT_TRUE(other.exists()) << "it belongs to no context";
    EXPECT_EQ(0u, library_gcb.NumVerbsWaiting);
    EXPECT_EQ("00 00 00 00 00 00 00 00", hex(library_gcb.CurrentTpId, 8));
    EXPECT_EQ("00 00 00 00 00 00 00 00", hex(library_gcb.ContextLUAlias, 8));
    EXPECT_EQ(1, library_started);
}

TEST_F(Startup, cmterm_type_1_ends_the_context_softly)
{
    CurrentContext context;
    EXPECT_EQ(CM_OK, call(cmterm, 1));
    EXPECT_EQ(0, node.only(NAP_TP_ENDED).u8_at(20));
    EXPECT_FALSE(context.first.exists());
}

TEST_F(Startup, cmterm_refused_by_the_node_leaves_everything)
{
    CurrentContext context;
    const Bytes tp(library_gcb.CurrentTpId, library_gcb.CurrentTpId + 8);
    node.next(NAP_TP_ENDED, fails(0x0200));
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmterm, 0));
    EXPECT_TRUE(context.first.exists());
    EXPECT_TRUE(context.second.exists());
    EXPECT_EQ(hex(tp), hex(library_gcb.CurrentTpId, 8));
}

TEST_F(Startup, cmterm_maps_the_nodes_answer_with_the_opcode)
{
    CurrentContext context;
    node.next(NAP_TP_ENDED, fails(0x7700, 5));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmterm, 0));
    const Log log = node.problem(0x20030016, 1);
    ASSERT_EQ(3u, log.items.size());
    EXPECT_EQ(0x0013u, log.items[0].first);
    EXPECT_EQ(0x7700u, log.items[1].first);
    EXPECT_EQ(5u, log.items[2].first);
}

TEST_F(Startup, cmterm_without_memory_for_the_verb_says_20)
{
    CurrentContext context;
    node.allocation.fail();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmterm, 0));
    node.problem(0x2003000B, 17);
    const Log log = node.problem(0x20030016, 1);
    ASSERT_EQ(3u, log.items.size());
    EXPECT_EQ(0x0013u, log.items[0].first);
    EXPECT_EQ(0x11F0u, log.items[1].first);
    EXPECT_EQ(12u, log.items[2].first);
    EXPECT_TRUE(context.first.exists());
    expect_no_verb();
}

TEST_F(Startup, cmterm_checks_the_handle_and_the_count_of_each_record)
{
    CurrentContext context;
    Id other = initialised();
    const u32 handle = other.cccb().CCCBhandle;
    other.cccb().CCCBhandle ^= 0x100;
    context.first.cccb().usCompletionPending = 1;
    Out type(0);
    Out rc;
    cmterm(type.address(), rc.address());
    EXPECT_EQ(CM_OK, rc.value());
    node.assertion("pGCB->NumVerbsWaiting > 0");
    node.assertion("cccb_ptr->CCCBhandle == tm_handle");
    other.cccb().CCCBhandle = handle;
    library_gcb.NumVerbsWaiting = 0;
}

extern "C" char stamp_line[255] __asm__("ocpic_verstring1");
extern "C" char stamp_all[255] __asm__("ocpic_verstring");
extern "C" char stamp_product[255] __asm__("ocpic_verstring1_tvt");
extern "C" const char *stamp_of_library(void) __asm__("ocpic_verstamp");
extern "C" const char *stamp_of_product(void) __asm__("ocpic_verstamp_tvt");

TEST_F(Startup, version_stamps)
{
    const std::string line = "V7.1.1.1 Kelvra Linux CPI-C Library Routines (32 bit)\n";
    EXPECT_EQ(stamp_line, stamp_of_library());
    EXPECT_EQ(stamp_product, stamp_of_product());
    EXPECT_EQ(line, std::string(stamp_line));
    EXPECT_EQ("@(#)]" + line + "@(#)]" + std::string(12, ' ') + "(: 24/05/02 09:45:40 AM)\n@(#)]",
              std::string(stamp_all));
    const std::string product = stamp_product;
    ASSERT_GE(product.size(), 3u);
    EXPECT_EQ("%1\n", product.substr(product.size() - 3));
}
