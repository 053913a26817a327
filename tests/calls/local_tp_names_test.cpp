/* local_tp_names_test.cpp - CMSLTP, CMRLTP, CMETPN. */
#include "calls.hpp"

using LocalTpNames = CallTest;

namespace
{

Image name_verb(u16 opcode, const char *name)
{
    return Image(opcode, sizeof(VERB_LOCAL_TP_NAME)).put(12, ebcdic(name, 64));
}

/* The names of the table in its order, as their EBCDIC fields. */
std::vector<std::string> names()
{
    std::vector<std::string> result;
    for (const auto &entry : node.tables[library_gcb.LocTPNameTable].entries)
    {
        result.push_back(hex(static_cast<const LOC_TP_NAME *>(entry.second)->Name, 64));
    }
    return result;
}

/* The default name, added by an accept. */
void accept_once()
{
    Id id;
    EXPECT_EQ(CM_OK, call(cmaccp, id));
    EXPECT_EQ(1, library_gcb.usLocTPNameFlag);
    node.forget();
}

} // namespace

TEST_F(LocalTpNames, cmsltp_adds_a_name)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "Server_1", 8));
    Verb &verb = node.only(NAP_DEFINE_LOCAL_TP_NAME);
    EXPECT_VERB(verb, name_verb(NAP_DEFINE_LOCAL_TP_NAME, "Server_1"));
    EXPECT_EQ("01 F1", hex(verb.bytes_at(0, 2)));
    EXPECT_EQ(scripted::Entry::synchronous, verb.entry);
    EXPECT_EQ(1u, library_gcb.NumLocTPNames);
    EXPECT_EQ(names(), std::vector<std::string>{hex(ebcdic("Server_1", 64))});
    ASSERT_EQ(1u, node.memory.size());
    EXPECT_EQ(MM_TYPE_RECORD, node.memory.begin()->second.type);
    EXPECT_EQ(8, static_cast<const LOC_TP_NAME *>(node.memory.begin()->first)->usLength);
    EXPECT_EQ(1, library_started);
}

TEST_F(LocalTpNames, cmsltp_length_outside_1_to_64)
{
    const std::string text(70, 'A');
    for (int length : {0, 65, -1, 0x10001})
    {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsltp, text, length));
    }
    expect_no_verb();
    EXPECT_EQ(0, library_started) << "a bad argument starts nothing";
    EXPECT_EQ(CM_OK, call(cmsltp, text, 64));
    EXPECT_EQ(CM_OK, call(cmsltp, text, 1));
}

TEST_F(LocalTpNames, cmsltp_accepts_exactly_its_characters)
{
    for (int c = 0; c < 256; c++)
    {
        const std::string name = std::string("A") + static_cast<char>(c);
        const bool good = (c >= 0x22 && c <= 0x5A) || (c >= 'a' && c <= 'z') || c == '_';
        EXPECT_EQ(good ? CM_OK : CM_PROGRAM_PARAMETER_CHECK, call(cmsltp, name, 2)) << "character " << c;
        const std::string turned = std::string(1, static_cast<char>(c)) + "A";
        EXPECT_EQ(good ? CM_OK : CM_PROGRAM_PARAMETER_CHECK, call(cmsltp, turned, 2)) << "first character " << c;
    }
}

TEST_F(LocalTpNames, cmsltp_looks_at_the_given_length_only)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "AB CD", 2));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmsltp, "AB CD", 5)) << "a blank inside";
}

TEST_F(LocalTpNames, cmsltp_twice_issues_one_verb)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "SERVER", 6));
    EXPECT_EQ(CM_OK, call(cmsltp, "SERVER", 6));
    EXPECT_EQ(1u, node.verbs.size());
    EXPECT_EQ(1u, library_gcb.NumLocTPNames);
    EXPECT_EQ(CM_OK, call(cmsltp, "server", 6)) << "another name";
    EXPECT_EQ(2u, library_gcb.NumLocTPNames);
}

TEST_F(LocalTpNames, cmsltp_without_memory)
{
    node.allocation.fail();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmsltp, "SERVER", 6));
    EXPECT_EQ("", node.problem(0x2003000B, 7).format);
    expect_no_verb();
    EXPECT_EQ(0u, library_gcb.NumLocTPNames);
}

TEST_F(LocalTpNames, cmsltp_with_a_full_table)
{
    node.table_entry.fail();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmsltp, "SERVER", 6));
    EXPECT_EQ("", node.problem(0x2003000B, 8).format);
    EXPECT_TRUE(node.memory.empty());
    expect_no_verb();
}

TEST_F(LocalTpNames, cmsltp_refused_by_the_node)
{
    node.next(NAP_DEFINE_LOCAL_TP_NAME, fails(0x0100));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmsltp, "SERVER", 6));
    const Log log = node.problem(0x2003000E, 2);
    EXPECT_EQ("es", log.format);
    EXPECT_EQ(hex(ebcdic("SERVER", 64)), hex(log.items.at(0).second));
    EXPECT_TRUE(node.memory.empty());
    EXPECT_EQ(0u, library_gcb.NumLocTPNames);
    EXPECT_TRUE(names().empty());
}

TEST_F(LocalTpNames, cmsltp_removes_the_default_name_that_an_accept_added)
{
    accept_once();
    EXPECT_EQ(CM_OK, call(cmsltp, "SERVER", 6));
    EXPECT_VERB(node.only(NAP_DELETE_LOCAL_TP_NAME),
                name_verb(NAP_DELETE_LOCAL_TP_NAME, "CPIC_DEFAULT_TPNAME"));
    EXPECT_EQ(1u, library_gcb.NumLocTPNames);
    EXPECT_EQ(0, library_gcb.usLocTPNameFlag);
    EXPECT_EQ(names(), std::vector<std::string>{hex(ebcdic("SERVER", 64))});
    node.forget();
    EXPECT_EQ(CM_OK, call(cmsltp, "SECOND", 6));
    EXPECT_TRUE(node.issued(NAP_DELETE_LOCAL_TP_NAME).empty());
    EXPECT_EQ(2u, library_gcb.NumLocTPNames);
}

TEST_F(LocalTpNames, cmsltp_keeps_a_name_from_the_environment)
{
    setenv("APPCTPN", "MYSERVER", 1);
    accept_once();
    EXPECT_EQ(CM_OK, call(cmsltp, "OTHER", 5));
    EXPECT_TRUE(node.issued(NAP_DELETE_LOCAL_TP_NAME).empty());
    EXPECT_EQ(2u, library_gcb.NumLocTPNames);
}

TEST_F(LocalTpNames, cmsltp_keeps_the_default_name_when_its_removal_is_refused)
{
    accept_once();
    node.next(NAP_DELETE_LOCAL_TP_NAME, fails(0x0200));
    EXPECT_EQ(CM_OK, call(cmsltp, "SERVER", 6)) << "the clean-up never changes the result";
    const Log log = node.problem(0x2003000F, 1);
    EXPECT_EQ("es", log.format);
    EXPECT_EQ(64u, log.items.at(0).second.size());
    EXPECT_EQ(2u, library_gcb.NumLocTPNames);
    EXPECT_EQ(1, library_gcb.usLocTPNameFlag);
    EXPECT_EQ(2u, names().size());
}

TEST_F(LocalTpNames, cmsltp_finds_no_default_name_to_remove)
{
    /* The mark and the count say that there is one, but the program has released it itself. */
    accept_once();
    EXPECT_EQ(CM_OK, call(cmrltp, "CPIC_DEFAULT_TPNAME", 19));
    EXPECT_EQ(1, library_gcb.usLocTPNameFlag) << "left as it is";
    EXPECT_EQ(CM_OK, call(cmsltp, "ONE", 3));
    node.forget();
    EXPECT_EQ(CM_OK, call(cmsltp, "TWO", 3));
    EXPECT_TRUE(node.issued(NAP_DELETE_LOCAL_TP_NAME).empty());
    EXPECT_EQ(2u, library_gcb.NumLocTPNames);
    EXPECT_EQ(1, library_gcb.usLocTPNameFlag);
}

TEST_F(LocalTpNames, cmrltp_removes_a_name)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "ONE", 3));
    EXPECT_EQ(CM_OK, call(cmsltp, "TWO", 3));
    EXPECT_EQ(CM_OK, call(cmrltp, "ONE", 3));
    Verb &verb = node.only(NAP_DELETE_LOCAL_TP_NAME);
    EXPECT_VERB(verb, name_verb(NAP_DELETE_LOCAL_TP_NAME, "ONE"));
    EXPECT_EQ("02 F1", hex(verb.bytes_at(0, 2)));
    EXPECT_EQ(scripted::Entry::synchronous, verb.entry);
    EXPECT_EQ(1u, library_gcb.NumLocTPNames);
    EXPECT_EQ(names(), std::vector<std::string>{hex(ebcdic("TWO", 64))});
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmrltp, "ONE", 3));
}

TEST_F(LocalTpNames, cmrltp_before_the_start_knows_no_name_and_starts_nothing)
{
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmrltp, "SERVER", 6));
    EXPECT_EQ(0, library_started);
    expect_no_verb();
}

TEST_F(LocalTpNames, cmrltp_length_outside_1_to_64)
{
    const std::string text(70, 'A');
    EXPECT_EQ(CM_OK, call(cmsltp, text, 64));
    for (int length : {0, 65, -1, 0x10040})
    {
        EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmrltp, text, length));
    }
    EXPECT_EQ(1u, library_gcb.NumLocTPNames);
}

TEST_F(LocalTpNames, cmrltp_does_not_check_characters)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "ABCD", 4));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmrltp, "AB D", 4));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmrltp, "ABC", 3)) << "lengths must be equal";
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmrltp, "ABCD ", 5));
    EXPECT_EQ(1u, node.verbs.size());
}

TEST_F(LocalTpNames, cmrltp_refused_by_the_node_keeps_the_name)
{
    EXPECT_EQ(CM_OK, call(cmsltp, "SERVER", 6));
    node.next(NAP_DELETE_LOCAL_TP_NAME, fails(0x0200));
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cmrltp, "SERVER", 6));
    const Log log = node.problem(0x2003000F, 0);
    EXPECT_EQ("es", log.format);
    EXPECT_EQ(hex(ebcdic("SERVER", 64)), hex(log.items.at(0).second));
    EXPECT_EQ(1u, library_gcb.NumLocTPNames);
    EXPECT_EQ(1u, names().size());
}

TEST_F(LocalTpNames, cmetpn_returns_the_name_without_its_padding)
{
    Id id = initialised();
    memcpy(id.cccb().SideInfo.TPName, ebcdic("Partner_Tp", 64).data(), 64);
    Buffer name(64);
    Out length;
    EXPECT_EQ(CM_OK, call(cmetpn, id, name, length));
    EXPECT_EQ(10, length.value());
    EXPECT_EQ(hex(scripted::bytes("Partner_Tp")), hex(name.content(10)));
    EXPECT_TRUE(name.untouched(10));
}

TEST_F(LocalTpNames, cmetpn_of_64_characters)
{
    Id id = allocated();
    memset(id.cccb().SideInfo.TPName, 0xC1, 64);
    Buffer name(64);
    Out length;
    EXPECT_EQ(CM_OK, call(cmetpn, id, name, length));
    EXPECT_EQ(64, length.value());
    EXPECT_EQ(hex(Bytes(64, 'A')), hex(name.content()));
}

TEST_F(LocalTpNames, cmetpn_of_an_empty_name)
{
    Id id = initialised();
    Buffer name(64);
    Out length;
    EXPECT_EQ(CM_OK, call(cmetpn, id, name, length));
    EXPECT_EQ(0, length.value());
    EXPECT_TRUE(name.untouched());
}

TEST_F(LocalTpNames, cmetpn_on_an_incoming_conversation)
{
    Id id = incoming();
    Buffer name(64);
    Out length;
    EXPECT_EQ(CM_PROGRAM_STATE_CHECK, call(cmetpn, id, name, length));
    EXPECT_TRUE(name.untouched());
    EXPECT_TRUE(length.untouched());
    EXPECT_EQ(CM_OK, call(cmacci, id));
    EXPECT_EQ(CM_OK, call(cmetpn, id, name, length));
    EXPECT_EQ(hex(scripted::bytes("CPIC_DEFAULT_TPNAME")), hex(name.content(19)));
}

TEST_F(LocalTpNames, cmetpn_with_a_verb_pending)
{
    Id id = busy();
    Buffer name(64);
    Out length;
    EXPECT_EQ(CM_OPERATION_NOT_ACCEPTED, call(cmetpn, id, name, length));
    EXPECT_TRUE(name.untouched());
    node.deliver_all();
}
