/* print_test.cpp - the formatted-print engine, conversion by conversion, and what it reports as misuse. */
#include "svmcspnt.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

static std::vector<std::string> assertions;
static std::vector<std::string> assertion_sources;

extern "C" void v0_assert(const char *source, int, const char *expression)
{
    assertion_sources.emplace_back(source);
    assertions.emplace_back(expression);
}

static const std::string REFUSED = "(uselong == 0) && (extra == 0)";
static const std::string UNKNOWN = "0";
using Assertions = std::vector<std::string>;

class Print : public testing::Test
{
protected:
    char out[256];

    void SetUp() override
    {
        assertions.clear();
        assertion_sources.clear();
        memset(out, '?', sizeof out);
    }

    /* The text by t_sprintf(); the result and the byte behind the text are checked on the way. */
    template <typename... Arguments> std::string text(const char *format, Arguments... arguments)
    {
        memset(out, '?', sizeof out);
        const int count = t_sprintf(out, format, arguments...);
        EXPECT_EQ(strlen(out), static_cast<size_t>(count));
        EXPECT_EQ('?', out[count + 1]) << "written behind the terminating zero";
        return out;
    }

    /* The text by t_print_args() with a size limit. */
    template <typename... Arguments> std::string limited(u32 size, const char *format, Arguments... arguments)
    {
        const u32 slots[] = {arguments..., 0};
        memset(out, '?', sizeof out);
        const int count = t_print_args(out, size, format, slots);
        EXPECT_EQ(strlen(out), static_cast<size_t>(count));
        EXPECT_EQ('?', out[count + 1]) << "written behind the terminating zero";
        return out;
    }
};

TEST_F(Print, copies_ordinary_characters_and_ends_with_a_zero)
{
    EXPECT_EQ("", text(""));
    EXPECT_EQ("plain text\n", text("plain text\n"));
    EXPECT_TRUE(assertions.empty());
}

TEST_F(Print, two_percent_signs_are_one)
{
    EXPECT_EQ("100%", text("100%%"));
    EXPECT_EQ("%d7", text("%%d%d", 7));
    EXPECT_TRUE(assertions.empty());
}

TEST_F(Print, the_usual_line)
{
    EXPECT_EQ("-12|   ab|ab   |", text("%d|%5s|%-5s|", -12, "ab", "ab"));
    EXPECT_EQ(16, t_sprintf(out, "%d|%5s|%-5s|", -12, "ab", "ab"));
}

TEST_F(Print, signed_decimal_has_three_letters)
{
    EXPECT_EQ("-12 34 -2147483648", text("%d %i %w", -12, 34, static_cast<int>(0x80000000u)));
    EXPECT_EQ("2147483647 0", text("%w %d", 0x7FFFFFFF, 0));
}

TEST_F(Print, unsigned_and_octal)
{
    EXPECT_EQ("4294967295", text("%u", 0xFFFFFFFFu));
    EXPECT_EQ("37777777777 10 0", text("%o %o %o", 0xFFFFFFFFu, 8, 0));
}

TEST_F(Print, hexadecimal_is_upper_case_in_all_three_letters)
{
    EXPECT_EQ("FF FF FF", text("%x %X %p", 255, 255, 255));
    EXPECT_EQ("DEADBEEF", text("%p", reinterpret_cast<void *>(0xDEADBEEFu)));
    EXPECT_EQ("00FF", text("%04x", 255));
}

TEST_F(Print, a_character_ignores_width_and_precision)
{
    EXPECT_EQ("<A>", text("<%c>", 'A'));
    EXPECT_EQ("<A>", text("<%5.3c>", 'A'));
    EXPECT_EQ("<A>", text("<%-5c>", 'A'));
}

TEST_F(Print, a_string_is_cut_by_its_precision)
{
    EXPECT_EQ("ab", text("%.2s", "abcdef"));
    EXPECT_EQ("", text("%.0s", "abcdef"));
    EXPECT_EQ("", text("%.s", "abcdef"));
    EXPECT_EQ("abcdef", text("%.9s", "abcdef"));
}

TEST_F(Print, a_string_with_a_precision_needs_no_terminating_zero)
{
    const char unterminated[3] = {'a', 'b', 'c'};
    EXPECT_EQ("abc", text("%.3s", unterminated));
}

TEST_F(Print, a_string_is_padded_with_blanks_even_after_a_zero)
{
    EXPECT_EQ("   ab", text("%5s", "ab"));
    EXPECT_EQ("ab   ", text("%-5s", "ab"));
    EXPECT_EQ("   ab", text("%05s", "ab"));
    EXPECT_EQ("    a", text("%5.1s", "ab"));
    EXPECT_EQ("abcdef", text("%3s", "abcdef"));
}

TEST_F(Print, a_null_string_is_empty)
{
    EXPECT_EQ("<>", text("<%s>", static_cast<const char *>(nullptr)));
    EXPECT_EQ("<  >", text("<%2s>", static_cast<const char *>(nullptr)));
}

TEST_F(Print, a_number_is_padded_to_its_width)
{
    EXPECT_EQ("   12|12   |  -12|-12  ", text("%5d|%-5d|%5d|%-5d", 12, 12, -12, -12));
    EXPECT_EQ("12345", text("%3d", 12345));
    EXPECT_EQ("12345", text("%5d", 12345));
}

TEST_F(Print, zeros_go_in_front_of_the_sign)
{
    EXPECT_EQ("00-12", text("%05d", -12));
    EXPECT_EQ("00012", text("%05d", 12));
}

TEST_F(Print, zeros_go_behind_the_digits_of_a_left_justified_number)
{
    EXPECT_EQ("-1200", text("%-05d", -12));
    EXPECT_EQ("-1200", text("%0-5d", -12));
}

TEST_F(Print, a_zero_inside_the_width_is_a_digit)
{
    EXPECT_EQ("        12", text("%10d", 12));
    EXPECT_EQ("0000000012", text("%010d", 12));
}

TEST_F(Print, the_precision_of_a_number_is_its_least_number_of_digits)
{
    EXPECT_EQ("-0012", text("%.4d", -12));
    EXPECT_EQ("12", text("%.1d", 12));
    EXPECT_EQ("0", text("%.0d", 0));
    EXPECT_EQ("   -0012", text("%8.4d", -12));
    EXPECT_EQ("000-0012", text("%08.4d", -12));
    EXPECT_EQ("-0012000", text("%-08.4d", -12));
    EXPECT_EQ("0FF", text("%.3x", 255));
    EXPECT_EQ("0012", text("%.4u", 12));
    EXPECT_EQ("0014", text("%.4o", 12));
}

TEST_F(Print, zeros_behind_the_point_are_digits_of_the_precision)
{
    EXPECT_EQ("   012", text("%6.03d", 12));
}

TEST_F(Print, a_star_takes_width_or_precision_from_the_next_slot)
{
    EXPECT_EQ("   12", text("%*d", 5, 12));
    EXPECT_EQ("ab", text("%.*s", 2, "abcdef"));
    EXPECT_EQ("   ab", text("%*.*s", 5, 2, "abcdef"));
    EXPECT_EQ("00-12", text("%0*d", 5, -12));
}

TEST_F(Print, a_negative_width_pads_nothing_and_a_negative_precision_is_none)
{
    EXPECT_EQ("12", text("%*d", -5, 12));
    EXPECT_EQ("abc", text("%.*s", -1, "abc"));
}

TEST_F(Print, modifiers_come_in_any_order)
{
    EXPECT_EQ("ab   |", text("%5-s|", "ab"));
    EXPECT_EQ("ab   |", text("%5.2-s|", "abc"));
    EXPECT_EQ("   12", text("%l5d", 12));
}

TEST_F(Print, l_is_accepted_and_without_effect)
{
    EXPECT_EQ("-12 FF 7 ab", text("%ld %lx %lu %ls", -12, 255, 7, "ab"));
    EXPECT_TRUE(assertions.empty());
}

TEST_F(Print, L_and_the_number_sign_are_refused_after_the_conversion)
{
    EXPECT_EQ("12 more", text("%Ld more", 12));
    EXPECT_EQ(Assertions({REFUSED}), assertions);
    assertions.clear();
    EXPECT_EQ("FF more 3", text("%#x more %d", 255, 3));
    EXPECT_EQ(Assertions({REFUSED}), assertions);
    assertions.clear();
    EXPECT_EQ("ab", text("%#Ls", "ab"));
    EXPECT_EQ(Assertions({REFUSED}), assertions);
    EXPECT_EQ(std::vector<std::string>(3, "svmcspnt"), assertion_sources);
}

TEST_F(Print, an_unknown_letter_is_reported_and_written)
{
    EXPECT_EQ("y12", text("%y%d", 12));
    EXPECT_EQ(Assertions({UNKNOWN}), assertions);
    EXPECT_EQ(std::vector<std::string>({"svmcspnt"}), assertion_sources);
    assertions.clear();
    EXPECT_EQ("+d", text("%+d"));
    EXPECT_EQ("%", text("%5%"));
    EXPECT_EQ(Assertions({UNKNOWN, UNKNOWN}), assertions);
}

TEST_F(Print, an_unknown_letter_after_a_number_sign_is_reported_twice)
{
    EXPECT_EQ("y", text("%#y"));
    EXPECT_EQ(Assertions({UNKNOWN, REFUSED}), assertions);
}

TEST_F(Print, an_unknown_letter_after_l_is_a_signed_decimal)
{
    EXPECT_EQ("-12|ab", text("%ly|%s", -12, "ab"));
    EXPECT_TRUE(assertions.empty());
    EXPECT_EQ("  -12|ab", text("%5Ly|%s", -12, "ab"));
    EXPECT_EQ(Assertions({REFUSED}), assertions);
}

TEST_F(Print, a_format_that_ends_inside_a_conversion_is_reported_and_ends_the_text)
{
    EXPECT_EQ("abc", text("abc%"));
    EXPECT_EQ("abc", text("abc%-5"));
    EXPECT_EQ(Assertions({UNKNOWN, UNKNOWN}), assertions);
}

TEST_F(Print, a_format_that_ends_after_l_writes_one_more_number)
{
    EXPECT_EQ("abc-12", text("abc%l", -12));
    EXPECT_TRUE(assertions.empty());
    EXPECT_EQ("abc-12", text("abc%L", -12));
    EXPECT_EQ(Assertions({REFUSED}), assertions);
}

TEST_F(Print, without_a_size_nothing_is_cut)
{
    EXPECT_EQ(std::string(100, ' ') + "1|" + std::string(100, ' ') + "2|", limited(0, "%101d|%101d|", 1u, 2u));
}

TEST_F(Print, a_size_ends_the_text_after_the_conversion_that_reaches_the_margin)
{
    EXPECT_EQ("12345678901234567890x", limited(40, "1234567890123456789%dx", 0u)); /* 20 after the conversion */
    EXPECT_EQ("123456789012345678900\n", limited(40, "12345678901234567890%dx", 0u)); /* 21 */
    EXPECT_EQ(std::string(30, ' ') + "7\n", limited(40, "%31d and %d", 7u, 8u)); /* more than 21 */
}

TEST_F(Print, a_size_is_not_kept_by_ordinary_characters_and_percent_signs)
{
    const std::string digits = "123456789012345678901234567890";
    EXPECT_EQ(digits, limited(40, digits.c_str()));
    EXPECT_EQ(digits + "% more", limited(40, (digits + "%% more").c_str()));
}

TEST_F(Print, a_size_below_the_margin_ends_the_text_after_the_first_conversion)
{
    EXPECT_EQ("ab1\n", limited(10, "ab%d%d", 1u, 2u));
    EXPECT_EQ("ab", limited(10, "ab"));
}

TEST_F(Print, a_conversion_that_is_cut_short_reports_nothing_more)
{
    EXPECT_EQ("1\n", limited(20, "%Ld", 1u));
    EXPECT_TRUE(assertions.empty());
}

TEST_F(Print, the_size_counts_after_an_unknown_letter_too)
{
    EXPECT_EQ("y\n", limited(20, "%y and more"));
    EXPECT_EQ(Assertions({UNKNOWN}), assertions);
}

TEST(PrintingEntryPoints, nb_sprintf_is_the_standard_one)
{
    char out[40];
    EXPECT_EQ(10, nb_sprintf(out, "%#x %05d", 255, -12));
    EXPECT_STREQ("0xff -0012", out);
}

TEST(PrintingEntryPoints, nb_fprintf_writes_to_its_stream)
{
    FILE *stream = tmpfile();
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(8, nb_fprintf(stream, "%s=%4.1f", "pi ", 3.14));
    rewind(stream);
    char line[40] = {};
    EXPECT_NE(nullptr, fgets(line, sizeof line, stream));
    EXPECT_STREQ("pi = 3.1", line);
    fclose(stream);
}

TEST(PrintingEntryPoints, nb_printf_writes_to_standard_output)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(4, nb_printf("<%x>", 255));
    EXPECT_EQ("<ff>", testing::internal::GetCapturedStdout());
}
