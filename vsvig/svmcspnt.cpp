// svmcspnt.cpp - the formatted-print engine: a fixed subset of the usual conversions, with ways of its own that old
// output relies on. Called by programs, never by the library; no state, no lock, no allocation.
#include "svmcspnt.hpp"

#include <stdarg.h>
#include <string.h>

// Bytes kept free before the end of a limited buffer: the margin after which a conversion ends the text.
static constexpr u32 SIZE_MARGIN = 19;

static constexpr const char *SOURCE_NAME = "svmcspnt";

// Longest digit string of a 32-bit number: octal.
static constexpr u32 MAX_DIGITS = 11;

// Where the text goes.
struct print_output
{
    char *text;
    u32 count; // characters written
};

// One conversion, from its "%" to its letter.
struct conversion
{
    int width;
    int precision;   // less than 0: none
    bool left;       // "-"
    bool zeros;      // "0" before the width
    bool extra;      // "#": refused, not honoured
    bool long_flag;  // "L": refused, not honoured
    bool any_long;   // "l" or "L"
    char letter;     // zero: the format ended
};

static void put(print_output &out, char character)
{
    out.text[out.count++] = character;
}

static void put_many(print_output &out, char character, int times)
{
    for (; times > 0; --times)
    {
        put(out, character);
    }
}

static void put_text(print_output &out, const char *text, u32 length)
{
    memcpy(out.text + out.count, text, length);
    out.count += length;
}

// The number writer. Padding with zeros goes where blanks would have gone: in front of the sign on the left, behind the
// digits on the right.
static void put_number(print_output &out, const conversion &how, const char *prefix, const char *digits)
{
    const int digit_count = static_cast<int>(strlen(digits));
    const int prefix_length = static_cast<int>(strlen(prefix));
    const int leading_zeros = how.precision > digit_count ? how.precision - digit_count : 0;
    const u32 length = static_cast<u32>(prefix_length) + static_cast<u32>(leading_zeros) + static_cast<u32>(digit_count);
    const int padding = how.width > 0 && static_cast<u32>(how.width) > length
                            ? static_cast<int>(static_cast<u32>(how.width) - length)
                            : 0;
    const char pad = how.zeros ? '0' : ' ';

    if (!how.left)
    {
        put_many(out, pad, padding);
    }
    put_text(out, prefix, static_cast<u32>(prefix_length));
    put_many(out, '0', leading_zeros);
    put_text(out, digits, static_cast<u32>(digit_count));
    if (how.left)
    {
        put_many(out, pad, padding);
    }
}

static void put_unsigned(print_output &out, const conversion &how, const char *prefix, u32 value, u32 base)
{
    char digits[MAX_DIGITS + 1];
    char *first = digits + MAX_DIGITS;
    *first = '\0';
    do
    {
        *--first = "0123456789ABCDEF"[value % base];
        value /= base;
    } while (value != 0);
    put_number(out, how, prefix, first);
}

static void put_signed(print_output &out, const conversion &how, u32 value)
{
    const bool negative = static_cast<int>(value) < 0;
    put_unsigned(out, how, negative ? "-" : "", negative ? 0 - value : value, 10);
}

// A null string is an empty one. No more than `precision` bytes of a string are looked at.
static void put_string(print_output &out, const conversion &how, const char *string)
{
    if (string == nullptr)
    {
        string = "";
    }
    const size_t length = how.precision >= 0 ? strnlen(string, static_cast<size_t>(how.precision)) : strlen(string);
    const int padding = how.width > static_cast<int>(length) ? how.width - static_cast<int>(length) : 0;
    if (!how.left)
    {
        put_many(out, ' ', padding);
    }
    put_text(out, string, static_cast<u32>(length));
    if (how.left)
    {
        put_many(out, ' ', padding);
    }
}

// Appends a digit to a width or precision; a number too long for 32 bits wraps.
static int append_digit(int number, char digit)
{
    return static_cast<int>(static_cast<u32>(number) * 10 + static_cast<u32>(digit - '0'));
}

// Reads the modifiers behind a "%", in any order, and the conversion letter. Returns what follows the letter; the
// format's end is not passed.
static const char *read_conversion(const char *format, const u32 *&arguments, conversion &how)
{
    bool in_precision = false;
    how = {};
    how.precision = -1;
    for (;; ++format)
    {
        const char character = *format;
        if (character >= '0' && character <= '9')
        {
            if (in_precision)
            {
                how.precision = append_digit(how.precision, character);
            }
            else if (character == '0' && how.width == 0)
            {
                how.zeros = true;
            }
            else
            {
                how.width = append_digit(how.width, character);
            }
            continue;
        }
        switch (character)
        {
            case '#':
                how.extra = true;
                break;
            case '-':
                how.left = true;
                break;
            case '.':
                in_precision = true;
                how.precision = 0;
                break;
            case '*':
                (in_precision ? how.precision : how.width) = static_cast<int>(*arguments++);
                break;
            case 'l':
                how.any_long = true;
                break;
            case 'L':
                how.any_long = true;
                how.long_flag = true;
                break;
            default:
                how.letter = character;
                return character == '\0' ? format : format + 1;
        }
    }
}

// Writes one conversion. False: the format has ended inside it, and so does the text.
static bool convert(print_output &out, const conversion &how, const u32 *&arguments)
{
    switch (how.letter)
    {
        case 'd':
        case 'i':
        case 'w':
            put_signed(out, how, *arguments++);
            return true;
        case 'u':
            put_unsigned(out, how, "", *arguments++, 10);
            return true;
        case 'o':
            put_unsigned(out, how, "", *arguments++, 8);
            return true;
        case 'x':
        case 'X':
        case 'p':
            put_unsigned(out, how, "", *arguments++, 16);
            return true;
        case 'c':
            put(out, static_cast<char>(*arguments++));
            return true;
        case 's':
            put_string(out, how, reinterpret_cast<const char *>(*arguments++));
            return true;
        default:
            break;
    }
    // No letter that means anything: "l" and "L" stand for a number by themselves.
    if (how.any_long)
    {
        put_signed(out, how, *arguments++);
        return true;
    }
    v0_assert(SOURCE_NAME, __LINE__, "0");
    if (how.letter == '\0')
    {
        return false;
    }
    put(out, how.letter);
    return true;
}

int t_print_args(char *text, u32 size, const char *format, const u32 *arguments)
{
    print_output out = {text, 0};
    while (*format != '\0')
    {
        if (*format != '%')
        {
            put(out, *format++);
            continue;
        }
        ++format;
        if (*format == '%')
        {
            put(out, *format++);
            continue;
        }
        conversion how;
        format = read_conversion(format, arguments, how);
        if (!convert(out, how, arguments))
        {
            break;
        }
        if (size != 0 && out.count + SIZE_MARGIN >= size)
        {
            put(out, '\n');
            break;
        }
        if (how.long_flag || how.extra)
        {
            v0_assert(SOURCE_NAME, __LINE__, "(uselong == 0) && (extra == 0)");
        }
    }
    out.text[out.count] = '\0';
    return static_cast<int>(out.count);
}

int t_sprintf(char *out, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    // With this calling convention the list is the address of the first argument's slot.
    static_assert(sizeof arguments == sizeof(const u32 *));
    const int count = t_print_args(out, 0, format, reinterpret_cast<const u32 *>(arguments));
    va_end(arguments);
    return count;
}

int nb_sprintf(char *out, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int count = vsprintf(out, format, arguments);
    va_end(arguments);
    return count;
}

int nb_printf(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int count = vfprintf(stdout, format, arguments);
    va_end(arguments);
    return count;
}

int nb_fprintf(FILE *stream, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int count = vfprintf(stream, format, arguments);
    va_end(arguments);
    return count;
}
