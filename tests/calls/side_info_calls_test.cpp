/* side_info_calls_test.cpp - XCMSSI, XCMESI, XCMDSI: the caller's entry and the stored one. */
#include "calls.hpp"

namespace
{

/* The caller's entry, byte for byte. */
struct Entry : Buffer
{
    Entry() : Buffer(124)
    {
        put(0, ascii("OURS", 8));
        put(8, ascii("PARTNER", 17));
        put32(28, 0);
        put(32, ascii("Server_1", 64));
        put(96, ascii("#inter", 8));
        put32(104, 2);
        put(108, ascii("User", 8));
        put(116, ascii("Secret", 8));
    }
    void put(size_t offset, const Bytes &b)
    {
        memcpy(address() + offset, b.data(), b.size());
    }
    void put32(size_t offset, u32 value)
    {
        memcpy(address() + offset, &value, 4);
    }
    u32 get32(size_t offset)
    {
        u32 value;
        memcpy(&value, address() + offset, 4);
        return value;
    }
    Bytes get(size_t offset, size_t count)
    {
        return Bytes(address() + offset, address() + offset + count);
    }
};

class SideInfoCalls : public CallTest
{
protected:
    static SIDE_INFO_ENTRY stored()
    {
        const auto &entries = node.tables[library_gcb.SideInfoTable].entries;
        EXPECT_EQ(1u, entries.size());
        return entries.empty() ? SIDE_INFO_ENTRY()
                               : static_cast<SIDE_INFO_RECORD *>(entries.begin()->second)->Entry;
    }

    static void expect_stored(const SIDE_INFO_ENTRY &expected)
    {
        const SIDE_INFO_ENTRY found = stored();
        const u8 *e = reinterpret_cast<const u8 *>(&expected);
        const u8 *f = reinterpret_cast<const u8 *>(&found);
        EXPECT_EQ("", scripted::difference(Bytes(e, e + 148), Bytes(f, f + 148)));
    }

    static SIDE_INFO_ENTRY expected_entry()
    {
        SIDE_INFO_ENTRY e;
        memset(&e, 0, sizeof(e));
        memcpy(e.SymDestName, "OURS    ", 8);
        memcpy(e.PartnerLUName, "PARTNER          ", 17);
        memcpy(e.TPName, ebcdic("Server_1", 64).data(), 64);
        memcpy(e.ModeName, ebcdic("#INTER", 8).data(), 8);
        e.ulSecurityType = 2;
        memcpy(e.SecurityUserId, ebcdic("User", 10).data(), 10);
        memcpy(e.SecurityPassword, ebcdic("Secret", 10).data(), 10);
        e.usPartnerLUNameLen = 7;
        e.usModeNameLen = 6;
        e.usSecurityUserIdLen = 4;
        return e;
    }

    static long set(Entry &entry, int length = 124)
    {
        return call(xcmssi, nullptr, entry, length);
    }
    static long extract(const char *name, Entry &entry, int length = 124)
    {
        return call(xcmesi, 77, name, entry, length);
    }
};

} // namespace

TEST_F(SideInfoCalls, xcmssi_stores_every_field)
{
    Entry entry;
    EXPECT_EQ(CM_OK, set(entry));
    expect_stored(expected_entry());
    expect_no_verb();
    EXPECT_EQ(1, library_started);
}

TEST_F(SideInfoCalls, xcmssi_qualified_partner_name)
{
    Entry entry;
    entry.put(8, ascii("netA.LU1", 17));
    EXPECT_EQ(CM_OK, set(entry));
    SIDE_INFO_ENTRY expected = expected_entry();
    memcpy(expected.PartnerLUName, ebcdic("NETA.LU1", 17).data(), 17);
    expected.usPartnerLUQualified = 1;
    expected.usPartnerNetIdLen = 4;
    expected.usPartnerLUNameLen = 8;
    expect_stored(expected);
    Entry found;
    EXPECT_EQ(CM_OK, extract("OURS    ", found));
    EXPECT_EQ(hex(ascii("NETA.LU1", 17)), hex(found.get(8, 17)));
}

TEST_F(SideInfoCalls, xcmssi_partner_name_of_17_characters)
{
    Entry entry;
    entry.put(8, ascii("ABCDEFGH.IJKLMNOP"));
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(17, stored().usPartnerLUNameLen);
    EXPECT_EQ(8, stored().usPartnerNetIdLen);
    EXPECT_EQ(hex(ebcdic("ABCDEFGH.IJKLMNOP")), hex(stored().PartnerLUName, 17));
}

TEST_F(SideInfoCalls, xcmssi_the_last_period_before_the_first_blank_counts)
{
    Entry entry;
    entry.put(8, ascii("A.B.C X.Y", 17));
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(3, stored().usPartnerNetIdLen);
    EXPECT_EQ(5, stored().usPartnerLUNameLen);
    EXPECT_EQ("C1 00 C2 4B C3 40 E7 00 E8", hex(stored().PartnerLUName, 9));
}

TEST_F(SideInfoCalls, xcmssi_period_at_either_end)
{
    Entry entry;
    entry.put(8, ascii(".LU", 17));
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(1, stored().usPartnerLUQualified);
    EXPECT_EQ(0, stored().usPartnerNetIdLen);
    EXPECT_EQ(hex(ebcdic(".LU", 17)), hex(stored().PartnerLUName, 17));
    entry.put(8, ascii("ABCDEFGHIJKLMNOP."));
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(16, stored().usPartnerNetIdLen);
    EXPECT_EQ(17, stored().usPartnerLUNameLen);
    EXPECT_EQ(hex(ebcdic("ABCDEFGHIJKLMNOP.")), hex(stored().PartnerLUName, 17));
    EXPECT_EQ("00 00 00", hex(stored().Reserved1, 3));
}

TEST_F(SideInfoCalls, xcmssi_long_alias_is_stored_whole_and_extracted_cut)
{
    Entry entry;
    entry.put(8, ascii("aliasOf12chr", 17));
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(hex(ascii("aliasOf12chr", 17)), hex(stored().PartnerLUName, 17));
    EXPECT_EQ(12, stored().usPartnerLUNameLen);
    Entry found;
    EXPECT_EQ(CM_OK, extract("OURS    ", found));
    EXPECT_EQ(hex(ascii("aliasOf1", 17)), hex(found.get(8, 17)));
}

TEST_F(SideInfoCalls, xcmssi_alias_of_17_characters)
{
    Entry entry;
    entry.put(8, ascii("abcdefghijklmnopq"));
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(17, stored().usPartnerLUNameLen);
}

TEST_F(SideInfoCalls, xcmssi_service_tp_keeps_its_first_byte)
{
    Entry entry;
    entry.put32(28, 1);
    Bytes name = ascii("xCNOS", 64);
    name[0] = 0x06;
    entry.put(32, name);
    EXPECT_EQ(CM_OK, set(entry));
    SIDE_INFO_ENTRY expected = expected_entry();
    expected.ulTPNameFlag = 1;
    memcpy(expected.TPName, ebcdic("xCNOS", 64).data(), 64);
    expected.TPName[0] = 0x06;
    expect_stored(expected);
    Entry found;
    EXPECT_EQ(CM_OK, extract("OURS    ", found));
    EXPECT_EQ(hex(name), hex(found.get(32, 64)));
    EXPECT_EQ(1u, found.get32(28));
}

TEST_F(SideInfoCalls, xcmesi_reads_names_back_with_another_set)
{
    /* "_" is in the set that stores a TP name, and not in the one that reads a service TP's back. */
    Entry entry;
    entry.put32(28, 1);
    entry.put(32, ascii("AB_C", 64));
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(0x6D, stored().TPName[2]);
    Entry found;
    EXPECT_EQ(CM_OK, extract("OURS    ", found));
    EXPECT_EQ("41 42 00 43", hex(found.get(32, 4)));
    entry.put32(28, 0);
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(CM_OK, extract("OURS    ", found));
    EXPECT_EQ(hex(ascii("AB_C")), hex(found.get(32, 4)));
}

TEST_F(SideInfoCalls, xcmssi_security_is_stored_whatever_the_type)
{
    for (u32 type : {0u, 1u, 2u, 5u})
    {
        Entry entry;
        entry.put32(104, type);
        EXPECT_EQ(CM_OK, set(entry));
        SIDE_INFO_ENTRY expected = expected_entry();
        expected.ulSecurityType = type;
        expect_stored(expected);
    }
}

TEST_F(SideInfoCalls, xcmssi_user_id_of_eight_characters)
{
    Entry entry;
    entry.put(108, ascii("ABCDEFGH"));
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(8, stored().usSecurityUserIdLen);
    EXPECT_EQ(hex(ebcdic("ABCDEFGH", 10)), hex(stored().SecurityUserId, 10));
}

TEST_F(SideInfoCalls, xcmssi_bad_fields)
{
    const struct
    {
        size_t offset;
        u32 value;
    } rows[] = {{28, 2}, {28, 0xFFFFFFFF}, {104, 3}, {104, 4}, {104, 6}, {104, 0xFFFFFFFF}};
    for (const auto &row : rows)
    {
        Entry entry;
        entry.put32(row.offset, row.value);
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, set(entry)) << row.offset << " " << row.value;
    }
    Entry entry;
    entry.put(0, ascii(" OURS", 8));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, set(entry));
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(SideInfoCalls, xcmssi_and_xcmesi_entry_length)
{
    Entry entry;
    for (int length : {123, 125, 0, -124, 0x1007C})
    {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, set(entry, length));
        Log log = node.problem(0x20030008, 1);
        EXPECT_EQ("l", log.format);
        EXPECT_EQ(static_cast<u32>(length), log.items.at(0).first);
        const Bytes before = entry.content();
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, extract("OURS    ", entry, length));
        log = node.problem(0x20030008, 0);
        EXPECT_EQ("l", log.format);
        EXPECT_EQ(static_cast<u32>(length), log.items.at(0).first);
        EXPECT_EQ(before, entry.content());
    }
    expect_no_verb();
}

TEST_F(SideInfoCalls, xcmesi_returns_every_field)
{
    Entry entry;
    EXPECT_EQ(CM_OK, set(entry));
    Entry found;
    memset(found.address(), 0xE7, 124);
    EXPECT_EQ(CM_OK, extract("OURS    ", found));
    Bytes expected(124, 0xE7);
    auto put = [&](size_t offset, const Bytes &b) { memcpy(expected.data() + offset, b.data(), b.size()); };
    put(0, ascii("OURS", 8));
    put(8, ascii("PARTNER", 17)); /* the three bytes after it are left alone */
    put(28, Bytes{0, 0, 0, 0});
    put(32, ascii("Server_1", 64));
    put(96, ascii("#INTER", 8));
    put(104, Bytes{2, 0, 0, 0});
    put(108, ascii("User", 8));
    put(116, Bytes(8, 0));
    EXPECT_EQ("", scripted::difference(expected, found.content()));
}

TEST_F(SideInfoCalls, xcmesi_never_returns_a_password)
{
    for (u32 type : {0u, 1u, 2u, 5u})
    {
        SCOPED_TRACE(type);
        Entry entry;
        entry.put32(104, type);
        EXPECT_EQ(CM_OK, set(entry));
        Entry found;
        memset(found.address(), 0xE7, 124);
        EXPECT_EQ(CM_OK, extract("OURS    ", found));
        const bool has_password = type == 2 || type == 5;
        EXPECT_EQ(hex(has_password ? ascii("User", 8) : Bytes(8, 0xE7)), hex(found.get(108, 8)));
        EXPECT_EQ(hex(Bytes(8, has_password ? 0 : 0xE7)), hex(found.get(116, 8)));
        EXPECT_EQ(type, found.get32(104));
    }
}

TEST_F(SideInfoCalls, xcmesi_of_an_unknown_or_deleted_name)
{
    Entry found;
    const Bytes before = found.content();
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, extract("NOBODY  ", found));
    EXPECT_EQ(before, found.content());
    Entry entry;
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(CM_OK, call(xcmdsi, nullptr, "OURS    "));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, extract("OURS    ", found));
    EXPECT_EQ(before, found.content());
}

TEST_F(SideInfoCalls, xcmesi_asks_the_node)
{
    NOF_SIDE_INFO info;
    memset(&info, 0, sizeof(info));
    memcpy(info.sym_dest_name, "SERVER  ", 8);
    memcpy(info.partner_lu_name, ascii("NETA.PART", 17).data(), 17);
    memcpy(info.tp_name, ascii("Tp_1", 64).data(), 64);
    memcpy(info.mode_name, ascii("#BATCH", 8).data(), 8);
    info.security_type = 5;
    memcpy(info.user_id, ascii("me", 10).data(), 10);
    memcpy(info.password, ascii("secret", 10).data(), 10);
    node.side_info["SERVER  "] = info;
    Entry found;
    EXPECT_EQ(CM_OK, extract("SERVER  ", found));
    EXPECT_EQ(hex(ascii("NETA.PART", 17)), hex(found.get(8, 17)));
    EXPECT_EQ(hex(ascii("Tp_1", 64)), hex(found.get(32, 64)));
    EXPECT_EQ(hex(ascii("#BATCH", 8)), hex(found.get(96, 8)));
    EXPECT_EQ(5u, found.get32(104));
    EXPECT_EQ(hex(ascii("me", 8)), hex(found.get(108, 8)));
    EXPECT_EQ(hex(Bytes(8, 0)), hex(found.get(116, 8)));
}

TEST_F(SideInfoCalls, failures_of_the_cache_are_returned_as_they_are)
{
    Entry entry;
    node.allocation.fail();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, set(entry));
    node.problem(0x2003000B, 5);
    node.table_entry.fail();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, set(entry));
    node.problem(0x2003000B, 6);
    node.next(NOF_OPEN, fails(0x0100));
    const Bytes before = entry.content();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, extract("SERVER  ", entry));
    node.problem(0x2003000D, 0);
    EXPECT_EQ(before, entry.content());
    node.next(NOF_OPEN, fails(0x0100));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(xcmdsi, nullptr, "SERVER  "));
    node.problem(0x2003000D, 1);
}

TEST_F(SideInfoCalls, xcmdsi_deletes_and_xcmssi_defines_again)
{
    Entry entry;
    EXPECT_EQ(CM_OK, set(entry));
    EXPECT_EQ(CM_OK, call(xcmdsi, nullptr, "OURS    "));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(xcmdsi, nullptr, "OURS    "));
    EXPECT_EQ(CM_OK, set(entry));
    Entry found;
    EXPECT_EQ(CM_OK, extract("OURS    ", found));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(xcmdsi, nullptr, "NOBODY  "));
}

TEST_F(SideInfoCalls, the_key_is_not_looked_at)
{
    Entry entry;
    EXPECT_EQ(CM_OK, call(xcmssi, "any key!", entry, 124));
    EXPECT_EQ(CM_OK, call(xcmssi, nullptr, entry, 124));
    Entry found;
    EXPECT_EQ(CM_OK, call(xcmesi, -1, "OURS    ", found, 124));
    EXPECT_EQ(CM_OK, call(xcmesi, nullptr, "OURS    ", found, 124));
    EXPECT_EQ(CM_OK, call(xcmdsi, "any key!", "OURS    "));
}
