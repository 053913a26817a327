/* cache_test.cpp - the side-information cache and its questions to the node: look-up, set, delete, and how a record of
 * the node becomes a stored entry. */
#include "calls.hpp"

namespace
{

constexpr u16 operation_lookup = 1;
constexpr u16 operation_delete = 2;
constexpr u16 operation_set = 3;

NOF_SIDE_INFO record(const char *name, const char *partner = "PARTNER")
{
    NOF_SIDE_INFO info;
    memset(&info, 0, sizeof(info));
    memcpy(info.sym_dest_name, name, 8);
    memcpy(info.partner_lu_name, ascii(partner, 17).data(), 17);
    memcpy(info.tp_name, ascii("Server_1", 64).data(), 64);
    memcpy(info.mode_name, ascii("#INTER", 8).data(), 8);
    memcpy(info.user_id, ascii("USER", 10).data(), 10);
    memcpy(info.password, ascii("SECRET", 10).data(), 10);
    memcpy(info.local_lu_alias, "LOCALLU ", 8);
    return info;
}

class Cache : public CallTest
{
protected:
    void SetUp() override
    {
        CallTest::SetUp();
        Locked held;
        SCC_init();
    }

    static SIDE_INFO_ENTRY named(const char *name)
    {
        SIDE_INFO_ENTRY entry;
        memset(&entry, 0xE7, sizeof(entry));
        memcpy(entry.SymDestName, name, 8);
        return entry;
    }

    static u32 lookup(SIDE_INFO_ENTRY &entry)
    {
        Locked held;
        return SCD_main(operation_lookup, &entry);
    }

    static u32 set(SIDE_INFO_ENTRY entry)
    {
        Locked held;
        return SCD_main(operation_set, &entry);
    }

    /* Only the name is given: nothing behind its 8 bytes may be read. */
    static u32 remove(const char *name)
    {
        Buffer only_the_name(scripted::bytes(std::string(name, 8)));
        Locked held;
        return SCD_main(operation_delete, only_the_name.address());
    }

    static size_t cached()
    {
        return node.tables[library_gcb.SideInfoTable].entries.size();
    }

    static SIDE_INFO_RECORD *stored(size_t which)
    {
        auto entry = node.tables[library_gcb.SideInfoTable].entries.begin();
        std::advance(entry, which);
        return static_cast<SIDE_INFO_RECORD *>(entry->second);
    }

    /* One record of the node, read and stored; the entry. */
    static SIDE_INFO_ENTRY read(const NOF_SIDE_INFO &info)
    {
        SIDE_INFO_ENTRY entry = named("XXXXXXXX");
        Locked held;
        SCD_read_nof_response(&info, &entry);
        return entry;
    }
};

} // namespace

/* ---- the three verbs ------------------------------------------------------------------------------------- */

TEST_F(Cache, lookup_asks_the_node_with_three_verbs)
{
    node.side_info["SERVER  "] = record("SERVER  ");
    SIDE_INFO_ENTRY entry = named("SERVER  ");
    EXPECT_EQ(0u, lookup(entry));
    ASSERT_EQ(3u, node.verbs.size());
    Verb &open = node.verbs[0];
    Verb &query = node.verbs[1];
    Verb &close = node.verbs[2];
    EXPECT_VERB(open, Image(NOF_OPEN, 232).put8(12, 2));
    EXPECT_EQ(0u, open.target_handle);
    EXPECT_EQ(nullptr, open.buffer);
    EXPECT_VERB(query, Image(NOF_QUERY_SIDE_INFO, 40)
                           .put8(3, 1)
                           .point(12, query.buffer)
                           .put32(16, 212)
                           .put16(24, 1)
                           .put8(28, 4)
                           .put(30, scripted::bytes("SERVER  ")));
    EXPECT_NE(nullptr, query.buffer);
    EXPECT_EQ(0x77u, query.target_handle);
    EXPECT_VERB(close, Image(NOF_CLOSE, 12));
    EXPECT_EQ(0x77u, close.target_handle);
    EXPECT_EQ(nullptr, close.buffer);
}

TEST_F(Cache, lookup_asks_once_per_process)
{
    node.side_info["SERVER  "] = record("SERVER  ");
    SIDE_INFO_ENTRY first = named("SERVER  ");
    EXPECT_EQ(0u, lookup(first));
    node.side_info["SERVER  "] = record("SERVER  ", "CHANGED");
    node.forget();
    SIDE_INFO_ENTRY second = named("SERVER  ");
    EXPECT_EQ(0u, lookup(second));
    expect_no_verb();
    EXPECT_EQ(0, memcmp(&first, &second, sizeof(first)));
    EXPECT_EQ(1u, cached());
    ASSERT_EQ(1u, node.memory.size());
    EXPECT_EQ(sizeof(SIDE_INFO_RECORD), node.memory.begin()->second.size);
    EXPECT_EQ(MM_TYPE_RECORD, node.memory.begin()->second.type);
    EXPECT_EQ(1, stored(0)->usDefined);
}

TEST_F(Cache, lookup_of_an_unknown_name)
{
    SIDE_INFO_ENTRY entry = named("NOBODY  ");
    EXPECT_EQ(24u, lookup(entry));
    EXPECT_EQ(3u, node.verbs.size()) << "the node is closed again";
    EXPECT_EQ(0u, cached());
    EXPECT_EQ(24u, lookup(entry));
    EXPECT_EQ(6u, node.verbs.size()) << "asked anew: it may be defined meanwhile";
}

TEST_F(Cache, lookup_with_a_node_that_cannot_be_opened)
{
    node.next(NOF_OPEN, fails(0x0100, 0x31000000));
    SIDE_INFO_ENTRY entry = named("SERVER  ");
    EXPECT_EQ(20u, lookup(entry));
    EXPECT_EQ("", node.problem(0x2003000D, 0).format);
    EXPECT_EQ(1u, node.verbs.size());
}

TEST_F(Cache, lookup_with_a_failing_query_is_not_logged)
{
    const struct
    {
        u16 primary;
        u32 secondary;
    } rows[] = {{0x0200, 0}, {0x0100, 0x58100000}, {0x0200, 0x00001058}, {0xF000, 0}};
    for (const auto &row : rows)
    {
        node.next(NOF_QUERY_SIDE_INFO, fails(row.primary, row.secondary));
        SIDE_INFO_ENTRY entry = named("SERVER  ");
        EXPECT_EQ(20u, lookup(entry));
    }
    EXPECT_EQ(4u, node.issued(NOF_CLOSE).size());
    EXPECT_EQ(0u, cached());
}

TEST_F(Cache, lookup_ignores_the_result_of_the_close)
{
    node.side_info["SERVER  "] = record("SERVER  ");
    node.next(NOF_CLOSE, fails(0x0100));
    SIDE_INFO_ENTRY entry = named("SERVER  ");
    EXPECT_EQ(0u, lookup(entry));
}

TEST_F(Cache, lookup_takes_the_record_whatever_its_name)
{
    node.side_info["SERVER  "] = record("OTHER   ");
    SIDE_INFO_ENTRY entry = named("SERVER  ");
    EXPECT_EQ(0u, lookup(entry));
    EXPECT_EQ(hex(ascii("OTHER", 8)), hex(entry.SymDestName, 8));
    EXPECT_EQ(hex(ascii("OTHER", 8)), hex(stored(0)->Entry.SymDestName, 8));
}

TEST_F(Cache, lookup_compares_names_byte_for_byte)
{
    SIDE_INFO_ENTRY entry = named("Server  ");
    EXPECT_EQ(0u, set(entry));
    SIDE_INFO_ENTRY other = named("SERVER  ");
    EXPECT_EQ(24u, lookup(other));
    other = named("Server \0");
    EXPECT_EQ(24u, lookup(other));
    other = named("Server  ");
    EXPECT_EQ(0u, lookup(other));
}

TEST_F(Cache, lookup_without_memory_for_the_cache_still_succeeds)
{
    node.side_info["SERVER  "] = record("SERVER  ");
    node.allocation.fail();
    SIDE_INFO_ENTRY entry = named("SERVER  ");
    EXPECT_EQ(0u, lookup(entry));
    EXPECT_EQ(hex(ascii("PARTNER", 17)), hex(entry.PartnerLUName, 17));
    EXPECT_EQ(0u, cached());
}

TEST_F(Cache, lookup_with_a_full_table_still_succeeds)
{
    node.side_info["SERVER  "] = record("SERVER  ");
    node.table_entry.fail();
    SIDE_INFO_ENTRY entry = named("SERVER  ");
    EXPECT_EQ(0u, lookup(entry));
    EXPECT_EQ("", node.problem(0x2003000B, 87).format);
    EXPECT_TRUE(node.memory.empty());
    EXPECT_EQ(hex(ascii("PARTNER", 17)), hex(entry.PartnerLUName, 17));
}

/* ---- the program's own entries --------------------------------------------------------------------------- */

TEST_F(Cache, set_then_lookup_returns_it_without_the_node)
{
    const SIDE_INFO_ENTRY entry = named("OURS    ");
    EXPECT_EQ(0u, set(entry));
    SIDE_INFO_ENTRY found = named("OURS    ");
    memset(&found.PartnerLUName, 0, 17);
    EXPECT_EQ(0u, lookup(found));
    EXPECT_EQ(0, memcmp(&entry, &found, sizeof(entry)));
    expect_no_verb();
    EXPECT_EQ(1, stored(0)->usDefined);
}

TEST_F(Cache, set_replaces_an_entry_in_its_place)
{
    EXPECT_EQ(0u, set(named("OURS    ")));
    SIDE_INFO_ENTRY changed = named("OURS    ");
    changed.ulSecurityType = 2;
    EXPECT_EQ(0u, set(changed));
    EXPECT_EQ(1u, cached());
    SIDE_INFO_ENTRY found = named("OURS    ");
    EXPECT_EQ(0u, lookup(found));
    EXPECT_EQ(2u, found.ulSecurityType);
}

TEST_F(Cache, set_without_memory_or_table_entry)
{
    node.allocation.fail();
    EXPECT_EQ(20u, set(named("OURS    ")));
    EXPECT_EQ("", node.problem(0x2003000B, 5).format);
    node.table_entry.fail();
    EXPECT_EQ(20u, set(named("OURS    ")));
    EXPECT_EQ("", node.problem(0x2003000B, 6).format);
    EXPECT_TRUE(node.memory.empty());
    EXPECT_EQ(0u, cached());
}

TEST_F(Cache, delete_of_a_cached_entry_leaves_a_marker)
{
    EXPECT_EQ(0u, set(named("OURS    ")));
    EXPECT_EQ(0u, remove("OURS    "));
    expect_no_verb();
    EXPECT_EQ(1u, cached());
    EXPECT_EQ(0, stored(0)->usDefined);
    SIDE_INFO_ENTRY entry = named("OURS    ");
    EXPECT_EQ(24u, lookup(entry));
    expect_no_verb();
    EXPECT_EQ(24u, remove("OURS    ")) << "deleted already";
}

TEST_F(Cache, set_after_delete_defines_it_again)
{
    EXPECT_EQ(0u, set(named("OURS    ")));
    EXPECT_EQ(0u, remove("OURS    "));
    EXPECT_EQ(0u, set(named("OURS    ")));
    EXPECT_EQ(1u, cached());
    SIDE_INFO_ENTRY entry = named("OURS    ");
    EXPECT_EQ(0u, lookup(entry));
}

TEST_F(Cache, delete_of_a_name_that_only_the_node_defines)
{
    node.side_info["SERVER  "] = record("SERVER  ");
    EXPECT_EQ(0u, remove("SERVER  "));
    ASSERT_EQ(3u, node.verbs.size());
    EXPECT_VERB(node.verbs[1], Image(NOF_QUERY_SIDE_INFO, 40)
                                   .put8(3, 1)
                                   .point(12, node.verbs[1].buffer)
                                   .put32(16, 212)
                                   .put16(24, 1)
                                   .put8(28, 4)
                                   .put(30, scripted::bytes("SERVER  ")));
    EXPECT_EQ(NOF_CLOSE, node.verbs[2].opcode);
    EXPECT_EQ(1u, cached());
    EXPECT_EQ(0, stored(0)->usDefined);
    EXPECT_EQ(hex(ascii("SERVER", 8)), hex(stored(0)->Entry.SymDestName, 8));
    node.forget();
    SIDE_INFO_ENTRY entry = named("SERVER  ");
    EXPECT_EQ(24u, lookup(entry));
    expect_no_verb();
    EXPECT_EQ(24u, remove("SERVER  "));
    expect_no_verb();
}

TEST_F(Cache, delete_of_an_unknown_name)
{
    EXPECT_EQ(24u, remove("NOBODY  "));
    EXPECT_EQ(3u, node.verbs.size());
    EXPECT_EQ(0u, cached());
}

TEST_F(Cache, delete_with_a_node_that_cannot_be_opened)
{
    node.next(NOF_OPEN, fails(0x0100));
    EXPECT_EQ(20u, remove("SERVER  "));
    EXPECT_EQ("", node.problem(0x2003000D, 1).format);
    EXPECT_EQ(1u, node.verbs.size());
}

TEST_F(Cache, delete_with_a_failing_query_is_logged)
{
    node.next(NOF_QUERY_SIDE_INFO, fails(0x0100, 0x12345678));
    EXPECT_EQ(20u, remove("SERVER  "));
    const Log log = node.problem(0x20030014, 1);
    EXPECT_EQ("x lx", log.format);
    ASSERT_EQ(2u, log.items.size());
    EXPECT_EQ(0x0100u, log.items[0].first);
    EXPECT_EQ(0x12345678u, log.items[1].first);
    EXPECT_EQ(1u, node.issued(NOF_CLOSE).size());
}

TEST_F(Cache, delete_without_memory_or_table_entry)
{
    node.side_info["SERVER  "] = record("SERVER  ");
    node.allocation.fail();
    EXPECT_EQ(20u, remove("SERVER  "));
    EXPECT_EQ("", node.problem(0x2003000B, 3).format);
    node.table_entry.fail();
    EXPECT_EQ(20u, remove("SERVER  "));
    EXPECT_EQ("", node.problem(0x2003000B, 4).format);
    EXPECT_TRUE(node.memory.empty());
    EXPECT_EQ(2u, node.issued(NOF_CLOSE).size());
}

TEST_F(Cache, main_of_another_operation_does_nothing)
{
    SIDE_INFO_ENTRY entry = named("SERVER  ");
    const SIDE_INFO_ENTRY before = entry;
    Locked held;
    for (u16 operation : {u16(0), u16(4), u16(0xFFFF)})
    {
        EXPECT_EQ(0u, SCD_main(operation, &entry));
    }
    EXPECT_EQ(0, memcmp(&before, &entry, sizeof(entry)));
    expect_no_verb();
    EXPECT_EQ(0u, cached());
}

TEST_F(Cache, main_starts_the_library)
{
    node.reset();
    SIDE_INFO_ENTRY entry = named("OURS    ");
    EXPECT_EQ(0u, set(entry));
    EXPECT_EQ(1, library_started);
}

TEST_F(Cache, match_finds_the_first_with_the_name)
{
    EXPECT_EQ(0u, set(named("ONE     ")));
    EXPECT_EQ(0u, set(named("TWO     ")));
    SIDE_INFO_RECORD *found = nullptr;
    Locked held;
    EXPECT_EQ(1, SCD_match_sym_dest_name(reinterpret_cast<const u8 *>("TWO     "), &found));
    EXPECT_EQ(stored(1), found);
    EXPECT_EQ(0, SCD_match_sym_dest_name(reinterpret_cast<const u8 *>("THREE   "), &found));
}

TEST_F(Cache, a_path_failure_discards_the_cache)
{
    EXPECT_EQ(0u, set(named("OURS    ")));
    node.path_event(PATH_EVENT_FAILURE);
    SIDE_INFO_ENTRY entry = named("OURS    ");
    EXPECT_EQ(24u, lookup(entry)) << "the node is asked afresh";
    EXPECT_EQ(1u, node.issued(NOF_QUERY_SIDE_INFO).size());
}

/* ---- a record of the node becomes an entry --------------------------------------------------------------- */

TEST_F(Cache, read_alias)
{
    NOF_SIDE_INFO info = record("SERVER  ", "partnerlu");
    const SIDE_INFO_ENTRY entry = read(info);
    SIDE_INFO_ENTRY expected;
    memset(&expected, 0, sizeof(expected));
    memcpy(expected.SymDestName, "SERVER  ", 8);
    memcpy(expected.PartnerLUName, "partnerlu        ", 17);
    memcpy(expected.TPName, ebcdic("Server_1", 64).data(), 64);
    memcpy(expected.SideInfoLUAlias, "LOCALLU ", 8);
    memcpy(expected.ModeName, ebcdic("#INTER", 8).data(), 8);
    expected.usPartnerLUNameLen = 9;
    expected.usModeNameLen = 6;
    const u8 *e = reinterpret_cast<const u8 *>(&expected);
    const u8 *f = reinterpret_cast<const u8 *>(&entry);
    EXPECT_EQ("", scripted::difference(Bytes(e, e + 148), Bytes(f, f + 148)));
    EXPECT_EQ(0, memcmp(&stored(0)->Entry, &entry, sizeof(entry))) << "and it is cached";
}

TEST_F(Cache, read_qualified_name)
{
    const SIDE_INFO_ENTRY entry = read(record("SERVER  ", "netA.partner"));
    EXPECT_EQ(hex(ebcdic("NETA.PARTNER", 17)), hex(entry.PartnerLUName, 17));
    EXPECT_EQ(1, entry.usPartnerLUQualified);
    EXPECT_EQ(4, entry.usPartnerNetIdLen);
    EXPECT_EQ(12, entry.usPartnerLUNameLen);
    EXPECT_EQ("00 00 00", hex(entry.Reserved1, 3));
}

TEST_F(Cache, read_qualified_name_of_17_characters)
{
    const SIDE_INFO_ENTRY entry = read(record("SERVER  ", "ABCDEFGH.IJKLMNOP"));
    EXPECT_EQ(hex(ebcdic("ABCDEFGH.IJKLMNOP")), hex(entry.PartnerLUName, 17));
    EXPECT_EQ(8, entry.usPartnerNetIdLen);
    EXPECT_EQ(17, entry.usPartnerLUNameLen);
}

TEST_F(Cache, read_period_after_the_first_blank_does_not_count)
{
    const SIDE_INFO_ENTRY entry = read(record("SERVER  ", "LU1 NET.X"));
    EXPECT_EQ(0, entry.usPartnerLUQualified);
    EXPECT_EQ(0, entry.usPartnerNetIdLen);
    EXPECT_EQ(3, entry.usPartnerLUNameLen);
    EXPECT_EQ(hex(ascii("LU1 NET.X", 17)), hex(entry.PartnerLUName, 17));
}

TEST_F(Cache, read_period_at_either_end)
{
    SIDE_INFO_ENTRY entry = read(record("SERVER  ", ".LU"));
    EXPECT_EQ(1, entry.usPartnerLUQualified);
    EXPECT_EQ(0, entry.usPartnerNetIdLen);
    EXPECT_EQ(hex(ebcdic(".LU", 17)), hex(entry.PartnerLUName, 17));
    entry = read(record("SERVER2 ", "NET."));
    EXPECT_EQ(1, entry.usPartnerLUQualified);
    EXPECT_EQ(3, entry.usPartnerNetIdLen);
    EXPECT_EQ(hex(ebcdic("NET.", 17)), hex(entry.PartnerLUName, 17));
}

TEST_F(Cache, read_several_periods_the_last_counts)
{
    const SIDE_INFO_ENTRY entry = read(record("SERVER  ", "A.B.C"));
    EXPECT_EQ(1, entry.usPartnerLUQualified);
    EXPECT_EQ(3, entry.usPartnerNetIdLen);
    EXPECT_EQ(0x4B, entry.PartnerLUName[3]);
    EXPECT_EQ(0, entry.PartnerLUName[1]) << "the set of LU names has no period";
}

TEST_F(Cache, read_service_tp_name)
{
    NOF_SIDE_INFO info = record("SERVER  ");
    info.tp_name_type = 1;
    memcpy(info.tp_name, ascii("06F1a9B0", 64).data(), 64);
    const SIDE_INFO_ENTRY entry = read(info);
    EXPECT_EQ(1u, entry.ulTPNameFlag);
    Bytes expected(64, EBCDIC_BLANK);
    const u8 name[4] = {0x06, 0xF1, 0xA9, 0xB0};
    memcpy(expected.data(), name, 4);
    EXPECT_EQ(hex(expected), hex(entry.TPName, 64));
}

TEST_F(Cache, read_mode_name_of_eight_characters)
{
    NOF_SIDE_INFO info = record("SERVER  ");
    memcpy(info.mode_name, "snasvcmg", 8);
    const SIDE_INFO_ENTRY entry = read(info);
    EXPECT_EQ(8, entry.usModeNameLen);
    EXPECT_EQ(hex(ebcdic("SNASVCMG")), hex(entry.ModeName, 8));
}

TEST_F(Cache, read_security)
{
    for (u32 type = 0; type <= 6; type++)
    {
        SCOPED_TRACE(type);
        NOF_SIDE_INFO info = record("SERVER  ");
        info.security_type = type;
        const SIDE_INFO_ENTRY entry = read(info);
        EXPECT_EQ(type, entry.ulSecurityType);
        const bool has_user = type == 1 || type == 2 || type == 5;
        const bool has_password = type == 2 || type == 5;
        EXPECT_EQ(hex(has_user ? ebcdic("USER", 10) : Bytes(10, 0)), hex(entry.SecurityUserId, 10));
        EXPECT_EQ(has_user ? 4 : 0, entry.usSecurityUserIdLen);
        EXPECT_EQ(hex(has_password ? ebcdic("SECRET", 10) : Bytes(10, 0)), hex(entry.SecurityPassword, 10));
    }
}

TEST_F(Cache, read_user_id_of_ten_characters)
{
    NOF_SIDE_INFO info = record("SERVER  ");
    info.security_type = 2;
    memcpy(info.user_id, "abcdefghij", 10);
    const SIDE_INFO_ENTRY entry = read(info);
    EXPECT_EQ(10, entry.usSecurityUserIdLen);
    EXPECT_EQ(hex(ebcdic("abcdefghij")), hex(entry.SecurityUserId, 10));
}
