// names_test.cpp - fixed fields and text.
#include "broker/names.hpp"

#include <gtest/gtest.h>

namespace {

using namespace broker;

TEST(Fields, ArePaddedAndCut)
{
    std::uint8_t field[4];
    to_ebcdic(field, "AB");
    EXPECT_EQ(std::vector<int>(field, field + 4), (std::vector<int>{0xC1, 0xC2, 0x40, 0x40}));
    to_ebcdic(field, "ABCDE");
    EXPECT_EQ(from_ebcdic(field), "ABCD");
    to_ascii(field, "x");
    EXPECT_EQ(std::vector<int>(field, field + 4), (std::vector<int>{'x', ' ', ' ', ' '}));
}

TEST(Fields, EveryPrintableCharacterSurvives)
{
    std::string all;
    for (char c = 0x21; c <= 0x7E; ++c)
    {
        all += c;
    }
    std::vector<std::uint8_t> field(100);
    to_ebcdic(field, all);
    EXPECT_EQ(from_ebcdic(field), all);
}

TEST(Fields, KnownCodePoints)
{
    std::uint8_t field[10];
    to_ebcdic(field, "#.aZ09@$_!");
    EXPECT_EQ(std::vector<int>(field, field + 10),
              (std::vector<int>{0x7B, 0x4B, 0x81, 0xE9, 0xF0, 0xF9, 0x7C, 0x5B, 0x6D, 0x5A}));
}

TEST(Fields, AZeroByteEndsTheText)
{
    const std::uint8_t field[6] = {'a', 'b', 0, 'c', ' ', ' '};
    EXPECT_EQ(from_ascii(field), "ab");
}

TEST(Fields, BytesThatAreNoTextMatchNoName)
{
    const std::uint8_t field[2] = {0xC1, 0x01};
    EXPECT_EQ(from_ebcdic(field), "A\x1A");
}

TEST(TpNames, AreShownAsTextOrAsBytes)
{
    EXPECT_EQ(tp_name_text(tp_name_bytes("SERVER")), "SERVER");
    EXPECT_EQ(tp_name_text(tp_name_bytes(std::string(64, 'X'))), std::string(64, 'X'));
    std::string service = service_tp_name_bytes("06f1C1C2");
    EXPECT_EQ(service.size(), 64u);
    EXPECT_EQ(service.substr(0, 5), "\x06\xF1\xC1\xC2\x40");
    EXPECT_EQ(tp_name_text(service), "X'06F1C1C2'");
    EXPECT_TRUE(tp_name_blank(std::string(64, '\x40')));
    EXPECT_TRUE(tp_name_blank(std::string(64, '\0')));
    EXPECT_FALSE(tp_name_blank(service));
}

} // namespace
