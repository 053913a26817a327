/* return_codes_test.cpp - the node's return codes as CPI-C return codes. */
#include "calls.hpp"

using ReturnCodes = CallTest;

namespace
{

constexpr u16 opcode = 0x000B;

u32 mapped(u16 primary, u32 secondary)
{
    u32 words[3] = {0x6B6B6B6B, 0x55555555, 0x6B6B6B6B};
    Locked held;
    SCC_map_return_codes(&words[1], primary, secondary, opcode);
    EXPECT_TRUE(words[0] == 0x6B6B6B6B && words[2] == 0x6B6B6B6B);
    return words[1];
}

/* Unknown codes become 20, with all three numbers in the problem log. */
void expect_unknown(u16 primary, u32 secondary)
{
    EXPECT_EQ(20u, mapped(primary, secondary)) << std::hex << primary << " " << secondary;
    const Log log = node.problem(0x20030016, 1);
    EXPECT_EQ("x x lx", log.format);
    ASSERT_EQ(3u, log.items.size());
    EXPECT_EQ(opcode, log.items[0].first);
    EXPECT_EQ(primary, log.items[1].first);
    EXPECT_EQ(secondary, log.items[2].first);
}

} // namespace

TEST_F(ReturnCodes, primary_codes_that_stand_alone)
{
    const struct
    {
        u16 primary;
        u32 expected;
    } rows[] = {{0x0200, 25}, {0x0500, 17}, {0x0600, 17}, {0x0700, 30}, {0x0800, 31}, {0x0900, 18},
                {0x0C00, 21}, {0x0D00, 23}, {0x0E00, 22}, {0x0F00, 27}, {0x1000, 26}, {0x1100, 32},
                {0x1200, 34}, {0x1300, 33}, {0x1400, 28}};
    for (const auto &row : rows)
    {
        EXPECT_EQ(row.expected, mapped(row.primary, 0)) << std::hex << row.primary;
        EXPECT_EQ(row.expected, mapped(row.primary, 0x34600810)) << "the secondary code does not matter";
        EXPECT_EQ(row.expected, mapped(row.primary, 0xFFFFFFFF));
    }
}

TEST_F(ReturnCodes, parameter_checks)
{
    EXPECT_EQ(24u, mapped(0x0100, 0x31000000));
    EXPECT_EQ(24u, mapped(0x0100, 0xF1000000));
    EXPECT_EQ(24u, mapped(0x0100, 0x5B010000));
    EXPECT_EQ(19u, mapped(0x0100, 0x18000000));
    EXPECT_EQ(19u, mapped(0x0100, 0x17000000));
    expect_unknown(0x0100, 0);
    expect_unknown(0x0100, 0x00000018);
    expect_unknown(0x0100, 0x5B000000);
    expect_unknown(0x0100, 0x34600810);
}

TEST_F(ReturnCodes, allocation_errors)
{
    const struct
    {
        u32 secondary;
        u32 expected;
    } rows[] = {{0x04000000, 1}, {0x05000000, 2}, {0x34600810, 3}, {0x16900000, 6},  {0x51600F08, 6},
                {0x58600F08, 6}, {0x41600810, 8}, {0x21600810, 9}, {0x00004C08, 10}, {0x31604B08, 11}};
    for (const auto &row : rows)
    {
        EXPECT_EQ(row.expected, mapped(0x0300, row.secondary)) << std::hex << row.secondary;
    }
}

TEST_F(ReturnCodes, allocation_errors_of_security)
{
    for (u32 reason = 0; reason <= 0x0D; reason++)
    {
        EXPECT_EQ(6u, mapped(0x0300, reason << 24 | 0x00FF0F08)) << reason;
    }
    for (u32 reason = 0x0E; reason <= 0xFF; reason++)
    {
        expect_unknown(0x0300, reason << 24 | 0x00FF0F08);
    }
}

TEST_F(ReturnCodes, allocation_error_pip_is_not_mapped)
{
    expect_unknown(0x0300, 0x31600810);
}

TEST_F(ReturnCodes, allocation_errors_unknown)
{
    expect_unknown(0x0300, 0);
    expect_unknown(0x0300, 0x00000004);
    expect_unknown(0x0300, 0x34600811);
    expect_unknown(0x0300, 0xFFFFFFFF);
}

TEST_F(ReturnCodes, every_other_primary_code_is_unknown)
{
    const u16 known[] = {0x0100, 0x0200, 0x0300, 0x0500, 0x0600, 0x0700, 0x0800, 0x0900, 0x0C00,
                         0x0D00, 0x0E00, 0x0F00, 0x1000, 0x1100, 0x1200, 0x1300, 0x1400};
    for (u32 primary = 1; primary <= 0xFFFF; primary++)
    {
        bool is_known = false;
        for (u16 k : known)
        {
            is_known = is_known || k == primary;
        }
        if (!is_known)
        {
            expect_unknown(static_cast<u16>(primary), 0x04000000);
        }
    }
}

TEST_F(ReturnCodes, byte_order_of_the_record_is_taken_as_it_is)
{
    expect_unknown(0x0003, 0x00000004);
    expect_unknown(0x02F0, 0);
    expect_unknown(0x03F0, 0);
    expect_unknown(0x04F0, 0);
}
