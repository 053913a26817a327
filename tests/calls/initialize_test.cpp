/* initialize_test.cpp - CMINIT and CMINIC. */
#include "calls.hpp"

using Initialize = CallTest;

namespace
{

/* A destination as the node defines it: alias partner, mode, TP name, local LU alias, program security. */
NOF_SIDE_INFO defined_by_node(const char *name)
{
    NOF_SIDE_INFO info;
    memset(&info, 0, sizeof(info));
    memcpy(info.sym_dest_name, name, 8);
    memcpy(info.partner_lu_name, "PARTNER          ", 17);
    memset(info.tp_name, ' ', 64);
    memcpy(info.tp_name, "SERVER", 6);
    memcpy(info.mode_name, "#INTER  ", 8);
    info.security_type = 1;
    memcpy(info.user_id, "USER      ", 10);
    memset(info.password, ' ', 10);
    memcpy(info.local_lu_alias, "SIDELU  ", 8);
    return info;
}

const char no_alias[] = "00 00 00 00 00 00 00 00";

} // namespace

TEST_F(Initialize, cminit_without_a_destination)
{
    Id id;
    EXPECT_EQ(CM_OK, call(cminit, id, "        "));
    const CCCB &c = id.cccb();
    EXPECT_EQ(1, c.usInitialized);
    EXPECT_EQ(0u, c.ulAppcConvId);
    EXPECT_EQ(hex(ascii("", 8)), hex(c.SideInfo.SymDestName, 8));
    EXPECT_EQ(hex(ascii("", 17)), hex(c.SideInfo.PartnerLUName, 17));
    EXPECT_EQ(hex(ebcdic("", 64)), hex(c.SideInfo.TPName, 64));
    EXPECT_EQ(hex(ebcdic("", 8)), hex(c.SideInfo.ModeName, 8));
    EXPECT_EQ(1u, c.SideInfo.ulSecurityType);
    EXPECT_EQ(1u, c.ulConversationType);
    EXPECT_EQ(0, c.usProcessingMode);
    EXPECT_EQ(no_alias, hex(c.LocalLUName, 8));
    EXPECT_EQ(no_alias, hex(c.TpId, 8));
    EXPECT_EQ("00 00 00 00", hex(id.address() + 4, 4));
    EXPECT_EQ(c.CCCBhandle, id.handle());
    expect_no_verb();
}

TEST_F(Initialize, cminit_first_blank_alone_decides)
{
    Id id;
    EXPECT_EQ(CM_OK, call(cminit, id, " SERVER "));
    EXPECT_EQ(hex(ascii(" SERVER ")), hex(id.cccb().SideInfo.SymDestName, 8));
    expect_no_verb();
}

TEST_F(Initialize, cminit_takes_the_whole_entry_from_the_node)
{
    node.side_info["SERVER  "] = defined_by_node("SERVER  ");
    Id id;
    EXPECT_EQ(CM_OK, call(cminit, id, "SERVER  "));
    const CCCB &c = id.cccb();
    EXPECT_EQ(hex(ascii("SERVER", 8)), hex(c.SideInfo.SymDestName, 8));
    EXPECT_EQ(hex(ascii("PARTNER", 17)), hex(c.SideInfo.PartnerLUName, 17));
    EXPECT_EQ(7, c.SideInfo.usPartnerLUNameLen);
    EXPECT_EQ(0, c.SideInfo.usPartnerLUQualified);
    EXPECT_EQ(hex(ebcdic("SERVER", 64)), hex(c.SideInfo.TPName, 64));
    EXPECT_EQ(hex(ebcdic("#INTER", 8)), hex(c.SideInfo.ModeName, 8));
    EXPECT_EQ(6, c.SideInfo.usModeNameLen);
    EXPECT_EQ(hex(ascii("SIDELU", 8)), hex(c.SideInfo.SideInfoLUAlias, 8));
    EXPECT_EQ(hex(ascii("SIDELU", 8)), hex(c.LocalLUName, 8));
    EXPECT_EQ(hex(ebcdic("USER", 10)), hex(c.SideInfo.SecurityUserId, 10));
    EXPECT_EQ(4, c.SideInfo.usSecurityUserIdLen);
    EXPECT_EQ(3u, node.verbs.size()) << "open, query, close";
}

TEST_F(Initialize, cminit_with_a_name_set_by_the_program_does_not_ask_the_node)
{
    u8 entry[124] = {};
    memcpy(entry, "OURS    PARTNER          ", 25);
    memset(entry + 32, ' ', 64);
    memset(entry + 96, ' ', 8);
    memset(entry + 108, ' ', 16);
    EXPECT_EQ(CM_OK, call(xcmssi, nullptr, static_cast<void *>(entry), 124));
    Id id;
    EXPECT_EQ(CM_OK, call(cminit, id, "OURS    "));
    EXPECT_EQ(hex(ascii("PARTNER", 17)), hex(id.cccb().SideInfo.PartnerLUName, 17));
    EXPECT_EQ(0u, id.cccb().SideInfo.ulSecurityType);
    expect_no_verb();
}

TEST_F(Initialize, cminit_with_a_name_deleted_by_the_program)
{
    node.side_info["SERVER  "] = defined_by_node("SERVER  ");
    EXPECT_EQ(CM_OK, call(xcmdsi, nullptr, "SERVER  "));
    node.forget();
    Id id;
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cminit, id, "SERVER  "));
    expect_no_verb();
    EXPECT_EQ(1u, node.count_audits(0x20030006));
}

TEST_F(Initialize, cminit_with_an_unknown_name)
{
    Id id;
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cminit, id, "NOBODY  "));
    const Log log = node.audit(0x20030006);
    EXPECT_EQ(0u, log.detail);
    EXPECT_EQ("ca", log.format);
    EXPECT_EQ(hex(ascii("NOBODY", 8)), hex(log.items.at(0).second));
    EXPECT_FALSE(id.untouched()) << "the ID of the freed record stays in the caller's field";
    EXPECT_FALSE(id.exists());
    EXPECT_TRUE(node.memory.empty());
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmflus, id));
    expect_unknown_id(12, id);
}

TEST_F(Initialize, cminit_with_an_unknown_name_and_audits_suppressed)
{
    node.suppress_audits(true);
    Id id;
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cminit, id, "NOBODY  "));
    EXPECT_TRUE(node.audits.empty());
}

TEST_F(Initialize, cminit_with_a_failing_node_is_a_parameter_check_too)
{
    node.next(NOF_OPEN, fails(0x0100));
    Id id;
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cminit, id, "SERVER  "));
    node.problem(0x2003000D, 0);
    EXPECT_EQ(1u, node.count_audits(0x20030006));
    EXPECT_TRUE(node.memory.empty());
}

TEST_F(Initialize, cminit_without_memory)
{
    initialised();
    node.allocation.fail();
    Id id;
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cminit, id, "        "));
    EXPECT_EQ("", node.problem(0x2003000B, 1).format);
    EXPECT_TRUE(id.untouched());
}

TEST_F(Initialize, cminit_with_a_full_table)
{
    initialised();
    const size_t before = node.memory.size();
    node.table_entry.fail();
    Id id;
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cminit, id, "        "));
    EXPECT_EQ("", node.problem(0x2003000B, 2).format);
    EXPECT_EQ(before, node.memory.size());
    EXPECT_TRUE(id.untouched());
}

TEST_F(Initialize, cminit_local_lu_from_the_environment)
{
    setenv("APPCLLU", "ENVLU", 1);
    Id id = initialised();
    EXPECT_EQ(hex(ascii("ENVLU", 8)), hex(id.cccb().LocalLUName, 8));
    EXPECT_EQ(no_alias, hex(id.cccb().SideInfo.SideInfoLUAlias, 8));
}

TEST_F(Initialize, cminit_local_lu_from_the_environment_replaces_side_information)
{
    setenv("APPCLLU", "ENVLU", 1);
    node.side_info["SERVER  "] = defined_by_node("SERVER  ");
    Id id = initialised("SERVER  ");
    EXPECT_EQ(hex(ascii("ENVLU", 8)), hex(id.cccb().LocalLUName, 8));
    EXPECT_EQ(hex(ascii("SIDELU", 8)), hex(id.cccb().SideInfo.SideInfoLUAlias, 8));
}

TEST_F(Initialize, cminit_local_lu_from_the_context_when_no_other)
{
    initialised();
    memcpy(library_gcb.CurrentTpId, "CONTEXT1", 8);
    memcpy(library_gcb.ContextLUAlias, "CTXLU   ", 8);
    Id id = initialised();
    EXPECT_EQ(hex(ascii("CTXLU", 8)), hex(id.cccb().LocalLUName, 8));
}

TEST_F(Initialize, cminit_local_lu_from_the_context_comes_before_the_environment)
{
    setenv("APPCLLU", "ENVLU", 1);
    initialised();
    memcpy(library_gcb.CurrentTpId, "CONTEXT1", 8);
    memcpy(library_gcb.ContextLUAlias, "CTXLU   ", 8);
    Id id = initialised();
    EXPECT_EQ(hex(ascii("CTXLU", 8)), hex(id.cccb().LocalLUName, 8));
}

TEST_F(Initialize, cminit_local_lu_of_the_context_does_not_replace_side_information)
{
    node.side_info["SERVER  "] = defined_by_node("SERVER  ");
    initialised();
    memcpy(library_gcb.CurrentTpId, "CONTEXT1", 8);
    memcpy(library_gcb.ContextLUAlias, "CTXLU   ", 8);
    Id id = initialised("SERVER  ");
    EXPECT_EQ(hex(ascii("SIDELU", 8)), hex(id.cccb().LocalLUName, 8));
}

TEST_F(Initialize, cminit_local_lu_with_context_environment_and_side_information)
{
    setenv("APPCLLU", "ENVLU", 1);
    node.side_info["SERVER  "] = defined_by_node("SERVER  ");
    initialised();
    memcpy(library_gcb.CurrentTpId, "CONTEXT1", 8);
    memcpy(library_gcb.ContextLUAlias, "CTXLU   ", 8);
    Id id = initialised("SERVER  ");
    EXPECT_EQ(hex(ascii("ENVLU", 8)), hex(id.cccb().LocalLUName, 8)) << "the field was not empty";
}

TEST_F(Initialize, cminic_makes_an_empty_record)
{
    setenv("APPCLLU", "ENVLU", 1);
    Id id;
    EXPECT_EQ(CM_OK, call(cminic, id));
    EXPECT_EQ(0, id.cccb().usInitialized);
    EXPECT_EQ(0u, id.cccb().ulAppcConvId);
    EXPECT_EQ(no_alias, hex(id.cccb().LocalLUName, 8));
    EXPECT_EQ("00 00 00 00", hex(id.address() + 4, 4));
    expect_no_verb();
}

TEST_F(Initialize, cminic_without_memory_or_table_entry)
{
    incoming();
    Id id;
    node.allocation.fail();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cminic, id));
    node.problem(0x2003000B, 1);
    node.table_entry.fail();
    EXPECT_EQ(CM_PRODUCT_SPECIFIC_ERROR, call(cminic, id));
    node.problem(0x2003000B, 2);
    EXPECT_EQ(1u, node.memory.size());
}

TEST_F(Initialize, cmecs_tells_the_two_states_without_the_node)
{
    Out state;
    Id id = initialised();
    EXPECT_EQ(CM_OK, call(cmecs, id, state));
    EXPECT_EQ(CM_INITIALIZE_STATE, state.value());
    Id other = incoming();
    EXPECT_EQ(CM_OK, call(cmecs, other, state));
    EXPECT_EQ(CM_INITIALIZE_INCOMING_STATE, state.value());
    expect_no_verb();
}
