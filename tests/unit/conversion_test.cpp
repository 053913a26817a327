/* conversion_test.cpp - the four conversion tables, SCC_convert_string, CMCNVI and CMCNVO.
 *
 * The expected tables are built here from code page 037, its printable half written out, and each set's characters.
 */
#include "calls.hpp"

using Conversion = CallTest;

namespace
{

/* Code page 037, printable ASCII characters 0x20 to 0x7E in order. */
constexpr u8 code_page_037[95] = {
    0x40, 0x5A, 0x7F, 0x7B, 0x5B, 0x6C, 0x50, 0x7D, 0x4D, 0x5D, 0x5C, 0x4E, 0x6B, 0x60, 0x4B, 0x61, /* blank to / */
    0xF0, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0x7A, 0x5E, 0x4C, 0x7E, 0x6E, 0x6F, /* 0 to ? */
    0x7C, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, /* @ to O */
    0xD7, 0xD8, 0xD9, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8, 0xE9, 0xBA, 0xE0, 0xBB, 0xB0, 0x6D, /* P to _ */
    0x79, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x91, 0x92, 0x93, 0x94, 0x95, 0x96, /* ` to o */
    0x97, 0x98, 0x99, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xC0, 0x4F, 0xD0, 0xA1        /* p to ~ */
};

/* The table of a set of printable characters, each converting to itself and back. */
Bytes table_of(const std::string &characters)
{
    Bytes table(512, 0);
    for (char c : characters)
    {
        const u8 e = code_page_037[static_cast<u8>(c) - 0x20];
        table[static_cast<u8>(c)] = e;
        table[256 + e] = static_cast<u8>(c);
    }
    return table;
}

std::string printable_without(const char *excluded)
{
    std::string characters;
    for (char c = 0x20; c < 0x7F; c++)
    {
        if (strchr(excluded, c) == nullptr)
        {
            characters += c;
        }
    }
    return characters;
}

const std::string upper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
const std::string lower = "abcdefghijklmnopqrstuvwxyz";
const std::string digits = "0123456789";

void expect_table(const Bytes &expected, const u8 *found)
{
    EXPECT_EQ("", scripted::difference(expected, Bytes(found, found + 512)));
}

Bytes converted(u16 direction, u16 set, const Bytes &source)
{
    Buffer destination(source.size());
    SCC_convert_string(direction, set, static_cast<short>(source.size()), destination.address(), source.data());
    destination.check();
    return destination.content();
}

} // namespace

TEST_F(Conversion, table_ae)
{
    const std::string characters = " #$.@" + digits + upper + lower;
    ASSERT_EQ(67u, characters.size());
    expect_table(table_of(characters), table_ae);
}

TEST_F(Conversion, table_a_folds_to_upper_case_both_ways)
{
    const std::string characters = " #$@" + digits + upper + lower;
    ASSERT_EQ(66u, characters.size());
    Bytes expected = table_of(characters);
    for (size_t i = 0; i < 26; i++)
    {
        expected[static_cast<u8>(lower[i])] = code_page_037[upper[i] - 0x20];
        expected[256u + code_page_037[lower[i] - 0x20]] = static_cast<u8>(upper[i]);
    }
    expect_table(expected, table_a);
}

TEST_F(Conversion, table_ae640)
{
    const std::string characters = printable_without("![\\]^`{|}~");
    ASSERT_EQ(85u, characters.size());
    expect_table(table_of(characters), table_ae640);
}

TEST_F(Conversion, table_ae640_ex)
{
    const std::string characters = printable_without("[]^");
    ASSERT_EQ(92u, characters.size());
    Bytes expected = table_of(characters);
    const u8 latin[3][2] = {{0xA2, 0x4A}, {0xA6, 0x6A}, {0xAC, 0x5F}};
    for (const auto &pair : latin)
    {
        expected[pair[0]] = pair[1];
        expected[256u + pair[1]] = pair[0];
    }
    expect_table(expected, table_ae640_ex);
}

TEST_F(Conversion, convert_string_uses_the_table_of_its_set)
{
    const u8 *tables[] = {table_ae, table_a, table_ae640, table_ae640_ex};
    Bytes every(256);
    for (unsigned i = 0; i < 256; i++)
    {
        every[i] = static_cast<u8>(i);
    }
    for (u16 set = 0; set < 4; set++)
    {
        EXPECT_EQ(hex(tables[set], 256), hex(converted(0, set, every)));
        EXPECT_EQ(hex(tables[set] + 256, 256), hex(converted(1, set, every)));
    }
}

TEST_F(Conversion, convert_string_set_1_examples)
{
    EXPECT_EQ("C1 C2 C4", hex(converted(0, 1, scripted::bytes("Abd"))));
    EXPECT_EQ(hex(scripted::bytes("ABD")), hex(converted(1, 1, Bytes{0x81, 0x82, 0x84})));
}

TEST_F(Conversion, convert_string_the_period_is_in_set_0_only)
{
    EXPECT_EQ("4B", hex(converted(0, 0, scripted::bytes("."))));
    EXPECT_EQ("00", hex(converted(0, 1, scripted::bytes("."))));
}

TEST_F(Conversion, convert_string_in_place)
{
    Buffer buffer(scripted::bytes("Hello"));
    SCC_convert_string(0, 2, 5, buffer.address(), buffer.address());
    EXPECT_EQ(hex(ebcdic("Hello")), hex(buffer.content()));
    buffer.check();
}

TEST_F(Conversion, convert_string_of_no_length_converts_nothing)
{
    Buffer buffer(8);
    const u8 source[8] = {'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H'};
    for (short length : {short(0), short(-1), short(-32768)})
    {
        SCC_convert_string(0, 2, length, buffer.address(), source);
    }
    EXPECT_TRUE(buffer.untouched());
    buffer.check();
}

TEST_F(Conversion, convert_string_longest)
{
    const Bytes source(32767, 'A');
    EXPECT_EQ(Bytes(32767, 0xC1), converted(0, 0, source));
}

TEST_F(Conversion, convert_string_of_another_direction_fails_the_check_and_counts_as_0)
{
    Locked held;
    EXPECT_EQ("C1", hex(converted(2, 0, scripted::bytes("A"))));
    node.assertion("FALSE");
}

TEST_F(Conversion, convert_string_of_another_set_fails_the_check)
{
    Locked held;
    converted(0, 4, scripted::bytes("A"));
    node.assertion("FALSE");
}

TEST_F(Conversion, cmcnvo_and_cmcnvi_round_trip)
{
    Buffer buffer(scripted::bytes("pq[r"));
    EXPECT_EQ(CM_OK, call(cmcnvo, buffer, 4));
    EXPECT_EQ("97 98 00 99", hex(buffer.content()));
    EXPECT_EQ(CM_OK, call(cmcnvi, buffer, 4));
    EXPECT_EQ("70 71 00 72", hex(buffer.content()));
    EXPECT_EQ(0, library_started) << "no start-up is needed";
    expect_no_verb();
}

TEST_F(Conversion, cmcnvo_lengths)
{
    Buffer buffer(Bytes(32768, 'A'));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmcnvo, buffer, 32768));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmcnvo, buffer, 65537));
    EXPECT_EQ(CM_OK, call(cmcnvo, buffer, 0));
    EXPECT_EQ(CM_OK, call(cmcnvo, buffer, -5));
    EXPECT_EQ(CM_OK, call(cmcnvo, buffer, INT32_MIN));
    EXPECT_EQ(CM_OK, call(cmcnvo, buffer, -65535)) << "its low half alone would be 1";
    EXPECT_EQ(Bytes(32768, 'A'), buffer.content());
    EXPECT_EQ(CM_OK, call(cmcnvo, buffer, 32767));
    Bytes expected(32768, 0xC1);
    expected[32767] = 'A';
    EXPECT_EQ(expected, buffer.content());
}

TEST_F(Conversion, cmcnvi_lengths)
{
    Buffer buffer(Bytes(32768, 0xC1));
    EXPECT_EQ(CM_PROGRAM_PARAMETER_CHECK, call(cmcnvi, buffer, 32768));
    EXPECT_EQ(CM_OK, call(cmcnvi, buffer, 0));
    EXPECT_EQ(CM_OK, call(cmcnvi, buffer, -5));
    EXPECT_EQ(CM_OK, call(cmcnvi, buffer, -65535));
    EXPECT_EQ(Bytes(32768, 0xC1), buffer.content());
    EXPECT_EQ(CM_OK, call(cmcnvi, buffer, 32767));
    Bytes expected(32768, 'A');
    expected[32767] = 0xC1;
    EXPECT_EQ(expected, buffer.content());
}
