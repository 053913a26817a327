/* set_calls_test.cpp - the calls that set one characteristic. */
#include "calls.hpp"

namespace
{

/* Each value-setting call: its field, the values that it takes, whether it needs a conversation not yet allocated. */
struct ValueCall
{
    const char *name;
    AnyCall function;
    u32 CCCB::*field;
    u32 values; /* 0 to values - 1 are accepted */
    bool initialize_only;
    int conversation_type; /* of the conversation that it is tried on */
    u32 sync_level;
};

#define VALUE_CALL(call) #call, reinterpret_cast<AnyCall>(call)
const ValueCall value_calls[] = {
    {VALUE_CALL(cmsct), &CCCB::ulConversationType, 2, true, 1, 0},
    {VALUE_CALL(cmsdt), &CCCB::ulDeallocateType, 4, false, 1, 1},
    {VALUE_CALL(cmsed), &CCCB::ulErrorDirection, 2, false, 1, 0},
    {VALUE_CALL(cmsf), &CCCB::ulFill, 2, false, 0, 0},
    {VALUE_CALL(cmsptr), &CCCB::ulPrepareToReceiveType, 3, false, 1, 1},
    {VALUE_CALL(cmsrt), &CCCB::ulReceiveType, 2, false, 1, 0},
    {VALUE_CALL(cmsrc), &CCCB::ulReturnControl, 2, true, 1, 0},
    {VALUE_CALL(cmsst), &CCCB::ulSendType, 5, false, 1, 1},
    {VALUE_CALL(cmssl), &CCCB::ulSyncLevel, 2, true, 1, 0},
};

class SetCalls : public CallTest
{
protected:
    static Id prepared(const ValueCall &c)
    {
        Id id = initialised();
        id.cccb().ulConversationType = static_cast<u32>(c.conversation_type);
        id.cccb().ulSyncLevel = c.sync_level;
        return id;
    }

    static Id basic()
    {
        Id id = initialised();
        EXPECT_EQ(CM_OK, call(cmsct, id, CM_BASIC_CONVERSATION));
        return id;
    }

    /* What of a record changed, as offsets; everything but the listed ranges must be as before. */
    static std::string changed(const CCCB &before, const Id &id)
    {
        const u8 *b = reinterpret_cast<const u8 *>(&before);
        const u8 *a = reinterpret_cast<const u8 *>(id.find());
        return scripted::difference(Bytes(b, b + sizeof(CCCB)), Bytes(a, a + sizeof(CCCB)));
    }
};

} // namespace

TEST_F(SetCalls, every_value_call_stores_each_accepted_value_in_its_field)
{
    for (const ValueCall &c : value_calls)
    {
        SCOPED_TRACE(c.name);
        for (u32 value = 0; value < c.values; value++)
        {
            Id id = prepared(c);
            CCCB expected = id.cccb();
            expected.*c.field = value;
            EXPECT_EQ(CM_OK, call_any(c.function, id, static_cast<long>(value)));
            EXPECT_EQ("", changed(expected, id)) << "value " << value;
        }
    }
    expect_no_verb();
}

TEST_F(SetCalls, every_value_call_refuses_every_other_value)
{
    for (const ValueCall &c : value_calls)
    {
        SCOPED_TRACE(c.name);
        Id id = prepared(c);
        const CCCB before = id.cccb();
        for (long value : {static_cast<long>(c.values), static_cast<long>(c.values) + 1, -1L, 0x10000L, 0x7FFFFFFFL,
                           -0x7FFFFFFFL - 1})
        {
            EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call_any(c.function, id, value)) << value;
            EXPECT_EQ("", changed(before, id));
        }
    }
}

TEST_F(SetCalls, value_calls_after_allocation)
{
    for (const ValueCall &c : value_calls)
    {
        SCOPED_TRACE(c.name);
        Id id = allocated(c.conversation_type);
        id.cccb().ulSyncLevel = c.sync_level;
        const CCCB before = id.cccb();
        EXPECT_EQ(c.initialize_only ? CM_PROGRAM_STATE_CHECK : CM_OK, call_any(c.function, id, 1));
        if (c.initialize_only)
        {
            EXPECT_EQ("", changed(before, id));
            EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(c.function, id, 99)) << "state comes before value";
        }
        else
        {
            EXPECT_EQ(1u, id.cccb().*c.field);
        }
    }
}

TEST_F(SetCalls, value_calls_on_an_incoming_conversation)
{
    for (const ValueCall &c : value_calls)
    {
        SCOPED_TRACE(c.name);
        Id id = incoming();
        id.cccb().ulConversationType = static_cast<u32>(c.conversation_type);
        id.cccb().ulSyncLevel = c.sync_level;
        EXPECT_EQ(c.initialize_only ? CM_PROGRAM_STATE_CHECK : CM_OK, call_any(c.function, id, 1));
    }
}

TEST_F(SetCalls, value_calls_with_a_verb_pending_are_accepted)
{
    for (const ValueCall &c : value_calls)
    {
        if (c.initialize_only)
        {
            continue;
        }
        SCOPED_TRACE(c.name);
        Id id = busy(c.conversation_type);
        id.cccb().ulSyncLevel = c.sync_level;
        EXPECT_EQ(CM_OK, call_any(c.function, id, 1));
        EXPECT_EQ(1u, id.cccb().*c.field);
        node.deliver_all();
    }
}

/* ---- combinations ---------------------------------------------------------------------------------------- */

TEST_F(SetCalls, cmsct_mapped_while_fill_is_buffer)
{
    Id id = basic();
    EXPECT_EQ(CM_OK, call(cmsf, id, CM_FILL_BUFFER));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsct, id, CM_MAPPED_CONVERSATION));
    EXPECT_EQ(0u, id.cccb().ulConversationType);
    EXPECT_EQ(CM_OK, call(cmsct, id, CM_BASIC_CONVERSATION));
    EXPECT_EQ(CM_OK, call(cmsf, id, CM_FILL_LL));
    EXPECT_EQ(CM_OK, call(cmsct, id, CM_MAPPED_CONVERSATION));
}

TEST_F(SetCalls, cmsct_mapped_while_log_data_is_set)
{
    Id id = basic();
    EXPECT_EQ(CM_OK, call(cmsld, id, "why", 3));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsct, id, CM_MAPPED_CONVERSATION));
    EXPECT_EQ(CM_OK, call(cmsld, id, "", 0));
    EXPECT_EQ(CM_OK, call(cmsct, id, CM_MAPPED_CONVERSATION));
}

TEST_F(SetCalls, cmsf_and_cmsld_on_a_mapped_conversation)
{
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsf, id, CM_FILL_LL));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsf, id, CM_FILL_BUFFER));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsld, id, "x", 1));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsld, id, "x", 0));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsld, id, "x", 65536));
}

TEST_F(SetCalls, confirm_variants_need_sync_level_confirm)
{
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsdt, id, CM_DEALLOCATE_CONFIRM));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsptr, id, CM_PREP_TO_RECEIVE_CONFIRM));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsst, id, CM_SEND_AND_CONFIRM));
    EXPECT_EQ(CM_OK, call(cmssl, id, CM_CONFIRM));
    EXPECT_EQ(CM_OK, call(cmsdt, id, CM_DEALLOCATE_CONFIRM));
    EXPECT_EQ(CM_OK, call(cmsptr, id, CM_PREP_TO_RECEIVE_CONFIRM));
    EXPECT_EQ(CM_OK, call(cmsst, id, CM_SEND_AND_CONFIRM));
}

TEST_F(SetCalls, cmssl_none_while_a_confirm_variant_is_set)
{
    u32 CCCB::*const fields[] = {&CCCB::ulSendType, &CCCB::ulPrepareToReceiveType, &CCCB::ulDeallocateType};
    for (const auto field : fields)
    {
        Id id = initialised();
        id.cccb().ulSyncLevel = 1;
        id.cccb().*field = 2;
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmssl, id, CM_NONE));
        EXPECT_EQ(1u, id.cccb().ulSyncLevel);
        EXPECT_EQ(CM_OK, call(cmssl, id, CM_CONFIRM));
        id.cccb().*field = 1;
        EXPECT_EQ(CM_OK, call(cmssl, id, CM_NONE));
    }
}

TEST_F(SetCalls, cmssl_sync_point_is_refused)
{
    Id id = initialised();
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmssl, id, 2));
    EXPECT_EQ(CM_OK, call(cmssl, id, 1));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmssl, id, 2));
}

/* ---- mode name ------------------------------------------------------------------------------------------- */

TEST_F(SetCalls, cmsmn)
{
    Id id = initialised();
    CCCB expected = id.cccb();
    memcpy(expected.SideInfo.ModeName, ebcdic("#BATCH", 8).data(), 8);
    expected.SideInfo.usModeNameLen = 6;
    EXPECT_EQ(CM_OK, call(cmsmn, id, "#batchXX", 6));
    EXPECT_EQ("", changed(expected, id)) << "folded to upper case, padded";
    EXPECT_EQ(CM_OK, call(cmsmn, id, "ABCDEFGH", 8));
    EXPECT_EQ(hex(ebcdic("ABCDEFGH")), hex(id.cccb().SideInfo.ModeName, 8));
    EXPECT_EQ(8, id.cccb().SideInfo.usModeNameLen);
    EXPECT_EQ(CM_OK, call(cmsmn, id, "ABCDEFGH", 0));
    EXPECT_EQ(hex(ebcdic("", 8)), hex(id.cccb().SideInfo.ModeName, 8));
    EXPECT_EQ(0, id.cccb().SideInfo.usModeNameLen);
    EXPECT_EQ(CM_OK, call(cmsmn, id, "A.B", 3)) << "no character is refused";
    EXPECT_EQ("C1 00 C2 40", hex(id.cccb().SideInfo.ModeName, 4));
}

TEST_F(SetCalls, cmsmn_lengths)
{
    Id id = initialised();
    const CCCB before = id.cccb();
    for (int length : {9, -1, 65536, 65540})
    {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsmn, id, "ABCDEFGHI", length)) << length;
    }
    EXPECT_EQ("", changed(before, id));
}

/* ---- partner LU name ------------------------------------------------------------------------------------- */

TEST_F(SetCalls, cmspln_alias)
{
    Id id = initialised();
    memset(id.cccb().SideInfo.PartnerLUName, 'z', 17);
    id.cccb().SideInfo.usPartnerLUQualified = 1;
    CCCB expected = id.cccb();
    memcpy(expected.SideInfo.PartnerLUName, "LUALIAS zzzzzzzzz", 17);
    expected.SideInfo.usPartnerLUQualified = 0;
    expected.SideInfo.usPartnerLUNameLen = 7;
    EXPECT_EQ(CM_OK, call(cmspln, id, "LUALIAS", 7));
    EXPECT_EQ("", changed(expected, id)) << "only eight characters are blanked";
}

TEST_F(SetCalls, cmspln_alias_keeps_its_case_and_its_whole_length)
{
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmspln, id, "abcdefghijklmnopq", 17));
    EXPECT_EQ(hex(ascii("abcdefghijklmnopq")), hex(id.cccb().SideInfo.PartnerLUName, 17));
    EXPECT_EQ(17, id.cccb().SideInfo.usPartnerLUNameLen);
    EXPECT_EQ("00 00 00", hex(id.cccb().SideInfo.Reserved1, 3));
}

TEST_F(SetCalls, cmspln_qualified)
{
    Id id = initialised();
    CCCB expected = id.cccb();
    memcpy(expected.SideInfo.PartnerLUName, ebcdic("NETA.LUB", 17).data(), 17);
    expected.SideInfo.Reserved1[0] = EBCDIC_BLANK; /* the pad byte behind the name */
    expected.SideInfo.usPartnerLUQualified = 1;
    expected.SideInfo.usPartnerNetIdLen = 4;
    expected.SideInfo.usPartnerLUNameLen = 8;
    EXPECT_EQ(CM_OK, call(cmspln, id, "netA.lub", 8));
    EXPECT_EQ("", changed(expected, id));
    EXPECT_EQ(0x4B, id.cccb().SideInfo.PartnerLUName[4]);
}

TEST_F(SetCalls, cmspln_dots_at_the_ends_and_twice)
{
    const struct
    {
        const char *name;
        int length;
        unsigned net_id;
        Bytes stored;
    } rows[] = {{".LU", 3, 0, {0x4B, 0xD3, 0xE4}},
                {"NET.", 4, 3, {0xD5, 0xC5, 0xE3, 0x4B}},
                {".", 1, 0, {0x4B}},
                {"A.B.C", 5, 1, {0xC1, 0x4B, 0xC2, 0x00, 0xC3}},
                {"..", 2, 0, {0x4B, 0x00}},
                {"ABCDEFGHIJKLMNOP.", 17, 16, ebcdic("ABCDEFGHIJKLMNOP.")}};
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.name);
        Id id = initialised();
        EXPECT_EQ(CM_OK, call(cmspln, id, row.name, row.length));
        Bytes stored = row.stored;
        stored.resize(17, EBCDIC_BLANK);
        EXPECT_EQ(hex(stored), hex(id.cccb().SideInfo.PartnerLUName, 17));
        EXPECT_EQ(row.net_id, id.cccb().SideInfo.usPartnerNetIdLen);
        EXPECT_EQ(row.length, id.cccb().SideInfo.usPartnerLUNameLen);
        EXPECT_EQ(1, id.cccb().SideInfo.usPartnerLUQualified);
    }
}

TEST_F(SetCalls, cmspln_a_dot_behind_the_length_does_not_count)
{
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmspln, id, "NET.LU", 3));
    EXPECT_EQ(0, id.cccb().SideInfo.usPartnerLUQualified);
    EXPECT_EQ(hex(ascii("NET", 8)), hex(id.cccb().SideInfo.PartnerLUName, 8));
}

TEST_F(SetCalls, cmspln_lengths)
{
    Id id = initialised();
    const CCCB before = id.cccb();
    const std::string name(20, 'A');
    for (int length : {0, 18, -1, 65536, 65554})
    {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmspln, id, name, length)) << length;
    }
    EXPECT_EQ("", changed(before, id));
}

/* ---- local LU name --------------------------------------------------------------------------------------- */

TEST_F(SetCalls, cmslln)
{
    Id id = initialised();
    CCCB expected = id.cccb();
    memcpy(expected.LocalLUName, "lu_1    ", 8);
    EXPECT_EQ(CM_OK, call(cmslln, id, "lu_1", 4));
    EXPECT_EQ("", changed(expected, id)) << "not translated, padded with blanks";
    EXPECT_EQ(CM_OK, call(cmslln, id, "ABCDEFGH", 8));
    EXPECT_EQ(hex(ascii("ABCDEFGH")), hex(id.cccb().LocalLUName, 8));
    EXPECT_EQ(CM_OK, call(cmslln, id, "ABCDEFGH", 0));
    EXPECT_EQ("00 00 00 00 00 00 00 00", hex(id.cccb().LocalLUName, 8));
}

TEST_F(SetCalls, cmslln_lengths)
{
    Id id = initialised();
    const CCCB before = id.cccb();
    for (int length : {9, 100, -1, 65535})
    {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmslln, id, "ABCDEFGHI", length)) << length;
    }
    EXPECT_EQ("", changed(before, id));
}

namespace
{

/* A conversation record with much room behind it stands in for a conversation while a call copies too much. */
class RoomyRecord
{
    Id &id;
    CCCB *const original;

public:
    Bytes bytes;
    explicit RoomyRecord(Id &conversation)
        : id(conversation), original(conversation.find()), bytes(sizeof(CCCB) + 70000, 0x77)
    {
        memcpy(bytes.data(), original, sizeof(CCCB));
        node.tables[library_gcb.ConvTable].entries[id.handle()] = bytes.data();
    }
    ~RoomyRecord()
    {
        node.tables[library_gcb.ConvTable].entries[id.handle()] = original;
    }
};

/* 65,544 characters: 8 in the low half of the length. */
Bytes long_name()
{
    Bytes name;
    for (int i = 0; i < 65544; i++)
    {
        name.push_back(static_cast<u8>('A' + i % 26));
    }
    return name;
}

} // namespace

TEST_F(SetCalls, cmslln_checks_the_low_half_of_the_length_and_copies_the_whole)
{
    Id id = initialised();
    RoomyRecord record(id);
    Bytes name = long_name();
    Out length(65544);
    Out rc;
    cmslln(id.address(), name.data(), length.address(), rc.address());
    EXPECT_EQ(CM_OK, rc.value());
    const size_t offset = offsetof(CCCB, LocalLUName);
    EXPECT_EQ(0, memcmp(record.bytes.data() + offset, name.data(), 65544));
    EXPECT_EQ(0x77, record.bytes[offset + 65544]);
}

TEST_F(SetCalls, cmspln_checks_the_low_half_of_the_length)
{
    Id id = initialised();
    RoomyRecord record(id);
    Bytes name = long_name();
    Out length(65544);
    Out rc;
    cmspln(id.address(), name.data(), length.address(), rc.address());
    EXPECT_EQ(CM_OK, rc.value());
    EXPECT_EQ(0, memcmp(record.bytes.data() + offsetof(CCCB, SideInfo.PartnerLUName), name.data(), 8));
}

/* ---- TP name --------------------------------------------------------------------------------------------- */

TEST_F(SetCalls, cmstpn)
{
    Id id = initialised();
    id.cccb().SideInfo.ulTPNameFlag = 1;
    CCCB expected = id.cccb();
    expected.SideInfo.ulTPNameFlag = 0;
    memcpy(expected.SideInfo.TPName, ebcdic("My_Server.1", 64).data(), 64);
    EXPECT_EQ(CM_OK, call(cmstpn, id, "My_Server.1 and more", 11));
    EXPECT_EQ("", changed(expected, id));
    const std::string longest(64, 'a');
    EXPECT_EQ(CM_OK, call(cmstpn, id, longest, 64));
    EXPECT_EQ(hex(Bytes(64, 0x81)), hex(id.cccb().SideInfo.TPName, 64));
    EXPECT_EQ(CM_OK, call(cmstpn, id, "x[y", 3)) << "no character is refused";
    EXPECT_EQ("A7 00 A8 40", hex(id.cccb().SideInfo.TPName, 4));
}

TEST_F(SetCalls, cmstpn_lengths)
{
    Id id = initialised();
    const CCCB before = id.cccb();
    const std::string name(70, 'A');
    for (int length : {0, 65, -1, 65537})
    {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmstpn, id, name, length)) << length;
    }
    EXPECT_EQ("", changed(before, id));
}

TEST_F(SetCalls, name_calls_only_before_allocation)
{
    const AnyCall calls[] = {reinterpret_cast<AnyCall>(cmsmn), reinterpret_cast<AnyCall>(cmspln),
                             reinterpret_cast<AnyCall>(cmslln), reinterpret_cast<AnyCall>(cmstpn)};
    Id done = allocated();
    Id other = incoming();
    const CCCB before = done.cccb();
    for (AnyCall function : calls)
    {
        EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(function, done, "ABCD", 4));
        EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(function, done, "ABCD", 4000)) << "state comes before length";
        EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call_any(function, other, "ABCD", 4));
    }
    EXPECT_EQ("", changed(before, done));
}

/* ---- log data -------------------------------------------------------------------------------------------- */

TEST_F(SetCalls, cmsld_makes_a_complete_record)
{
    Id id = basic();
    EXPECT_EQ(CM_OK, call(cmsld, id, "Why.not", 7));
    EXPECT_EQ(15, id.cccb().usLogDataLen);
    u8 *record = id.cccb().LogData;
    ASSERT_NE(nullptr, record);
    EXPECT_EQ(15u, node.memory[record].size);
    EXPECT_EQ(MM_TYPE_RECORD, node.memory[record].type);
    EXPECT_EQ("00 0F 12 E1 00 02 00 09 " + hex(ebcdic("Why.not")), hex(record, 15));
}

TEST_F(SetCalls, cmsld_longest_and_too_long)
{
    Id id = basic();
    const std::string text(513, 'A');
    EXPECT_EQ(CM_OK, call(cmsld, id, text, 512));
    EXPECT_EQ(520, id.cccb().usLogDataLen);
    EXPECT_EQ(520u, node.memory[id.cccb().LogData].size);
    EXPECT_EQ("02 08 12 E1 00 02 02 02 C1", hex(id.cccb().LogData, 9));
    u8 *record = id.cccb().LogData;
    for (int length : {513, -1, 65537})
    {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsld, id, text, length)) << length;
        EXPECT_EQ(record, id.cccb().LogData);
        EXPECT_EQ(520, id.cccb().usLogDataLen);
    }
}

TEST_F(SetCalls, cmsld_lengths_in_the_record_are_big_endian)
{
    Id id = basic();
    const std::string text(300, 'A');
    for (unsigned length : {1u, 247u, 248u, 253u, 254u, 255u, 256u, 300u})
    {
        EXPECT_EQ(CM_OK, call(cmsld, id, text, static_cast<int>(length)));
        const u8 *record = id.cccb().LogData;
        EXPECT_EQ(length + 8, record[0] * 256u + record[1]);
        EXPECT_EQ(length + 2, record[6] * 256u + record[7]);
        EXPECT_EQ(length + 8, id.cccb().usLogDataLen);
    }
}

TEST_F(SetCalls, cmsld_replaces_and_frees_the_record_before)
{
    Id id = basic();
    EXPECT_EQ(CM_OK, call(cmsld, id, "one", 3));
    u8 *first = id.cccb().LogData;
    EXPECT_EQ(CM_OK, call(cmsld, id, "three", 5));
    EXPECT_EQ(0u, node.memory.count(first));
    EXPECT_EQ(13, id.cccb().usLogDataLen);
}

TEST_F(SetCalls, cmsld_length_0_and_65536_clear)
{
    Id id = basic();
    for (int length : {0, 65536, static_cast<int>(0xFFFF0000)})
    {
        EXPECT_EQ(CM_OK, call(cmsld, id, "one", 3));
        EXPECT_EQ(CM_OK, call(cmsld, id, "one", length)) << length;
        EXPECT_EQ(0, id.cccb().usLogDataLen);
        EXPECT_EQ(nullptr, id.cccb().LogData);
        EXPECT_EQ(1u, node.memory.size());
    }
    EXPECT_EQ(CM_OK, call(cmsld, id, "one", 0)) << "also when there is none";
}

TEST_F(SetCalls, cmsld_without_memory_keeps_the_record_before)
{
    Id id = basic();
    EXPECT_EQ(CM_OK, call(cmsld, id, "one", 3));
    u8 *first = id.cccb().LogData;
    node.allocation.fail();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmsld, id, "three", 5));
    EXPECT_EQ("", node.problem(0x2003000B, 11).format);
    EXPECT_EQ(first, id.cccb().LogData);
    EXPECT_EQ(11, id.cccb().usLogDataLen);
}

TEST_F(SetCalls, cmsld_after_allocation)
{
    Id id = allocated(0);
    EXPECT_EQ(CM_OK, call(cmsld, id, "one", 3));
    EXPECT_EQ(11, id.cccb().usLogDataLen);
}
