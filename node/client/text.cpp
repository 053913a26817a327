// text.cpp - building the lines of logs and trace.
#include "client/text.hpp"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

namespace client {

namespace {

// Code page 037: the printable ASCII character of each EBCDIC code, 0 where there is none.
struct ebcdic_table
{
    char to_ascii[256];
};

constexpr ebcdic_table make_ebcdic()
{
    ebcdic_table table = {};
    constexpr struct
    {
        int from;
        const char *characters;
    } runs[] = {
        {0x40, " "},         {0x4B, ".<(+|&"},    {0x5A, "!$*);"},     {0x60, "-/"},         {0x6B, ",%_>?"},
        {0x79, "`:#@'=\""},  {0x81, "abcdefghi"}, {0x91, "jklmnopqr"}, {0xA1, "~stuvwxyz"},  {0xB0, "^"},
        {0xBA, "[]"},        {0xC0, "{ABCDEFGHI"}, {0xD0, "}JKLMNOPQR"}, {0xE0, "\\"},        {0xE2, "STUVWXYZ"},
        {0xF0, "0123456789"},
    };
    for (const auto &run : runs)
    {
        int code = run.from;
        for (const char *c = run.characters; *c != 0; c++)
        {
            table.to_ascii[code++] = *c;
        }
    }
    return table;
}

constexpr ebcdic_table ebcdic = make_ebcdic();

constexpr int count_printable()
{
    int count = 0;
    for (char c : ebcdic.to_ascii)
    {
        count += c != 0 ? 1 : 0;
    }
    return count;
}
// All 95 printable characters of ASCII have their code, and the last of each kind stands where it should.
static_assert(count_printable() == 95);
static_assert(ebcdic.to_ascii[0x50] == '&' && ebcdic.to_ascii[0x5E] == ';' && ebcdic.to_ascii[0x6F] == '?');
static_assert(ebcdic.to_ascii[0x7F] == '"' && ebcdic.to_ascii[0xA9] == 'z' && ebcdic.to_ascii[0xE9] == 'Z');

constexpr char hex_digits[] = "0123456789ABCDEF";

void put_escaped(text_line &line, u8 byte, char shown, bool printable)
{
    if (printable && shown != '"' && shown != '\\')
    {
        put_char(line, shown);
        return;
    }
    put_text(line, "\\x");
    put_char(line, hex_digits[byte >> 4]);
    put_char(line, hex_digits[byte & 15]);
}

} // namespace

char shown_ascii(u8 byte)
{
    return byte >= 0x20 && byte <= 0x7E ? static_cast<char>(byte) : '.';
}

char shown_ebcdic(u8 byte)
{
    return ebcdic.to_ascii[byte] != 0 ? ebcdic.to_ascii[byte] : '.';
}

void put_char(text_line &line, char c)
{
    if (line.length < line.room)
    {
        line.bytes[line.length++] = c;
    }
    else
    {
        line.cut = true;
    }
}

void put_text(text_line &line, const char *text)
{
    while (*text != 0)
    {
        put_char(line, *text++);
    }
}

void put_hex(text_line &line, u32 value, int digits)
{
    for (int shift = 28; shift >= 0; shift -= 4)
    {
        if (digits > shift / 4 || value >> shift != 0)
        {
            put_char(line, hex_digits[value >> shift & 15]);
        }
    }
}

void put_decimal(text_line &line, std::int64_t value, int digits)
{
    char reversed[20];
    int count = 0;
    std::uint64_t rest = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    while (rest != 0 || count < digits)
    {
        reversed[count++] = static_cast<char>('0' + rest % 10);
        rest /= 10;
    }
    if (value < 0)
    {
        put_char(line, '-');
    }
    while (count > 0)
    {
        put_char(line, reversed[--count]);
    }
}

void put_bytes(text_line &line, const u8 *bytes, u32 length)
{
    for (u32 i = 0; i < length; i++)
    {
        if (i != 0)
        {
            put_char(line, ' ');
        }
        put_hex(line, bytes[i], 2);
    }
}

void put_ascii(text_line &line, const u8 *bytes, u32 length)
{
    put_char(line, '"');
    for (u32 i = 0; i < length; i++)
    {
        put_escaped(line, bytes[i], static_cast<char>(bytes[i]), bytes[i] >= 0x20 && bytes[i] <= 0x7E);
    }
    put_char(line, '"');
}

void put_ebcdic(text_line &line, const u8 *bytes, u32 length)
{
    put_char(line, '"');
    for (u32 i = 0; i < length; i++)
    {
        put_escaped(line, bytes[i], ebcdic.to_ascii[bytes[i]], ebcdic.to_ascii[bytes[i]] != 0);
    }
    put_char(line, '"');
}

void put_time(text_line &line, const wall_time &time)
{
    time_t seconds = static_cast<time_t>(time.seconds);
    tm local = {};
    localtime_r(&seconds, &local);
    put_decimal(line, local.tm_year + 1900, 4);
    put_char(line, '-');
    put_decimal(line, local.tm_mon + 1, 2);
    put_char(line, '-');
    put_decimal(line, local.tm_mday, 2);
    put_char(line, ' ');
    put_decimal(line, local.tm_hour, 2);
    put_char(line, ':');
    put_decimal(line, local.tm_min, 2);
    put_char(line, ':');
    put_decimal(line, local.tm_sec, 2);
    put_char(line, '.');
    put_decimal(line, time.microseconds, 6);
    long minutes = local.tm_gmtoff / 60;
    put_char(line, minutes < 0 ? '-' : '+');
    minutes = minutes < 0 ? -minutes : minutes;
    put_decimal(line, minutes / 60, 2);
    put_decimal(line, minutes % 60, 2);
}

void put_program(text_line &line)
{
    // A blank or a line end in the name must not look like the end of the field.
    for (const char *c = program_invocation_short_name; *c != 0; c++)
    {
        put_char(line, *c > 0x20 && *c < 0x7F && *c != '[' ? *c : '?');
    }
    put_char(line, '[');
    put_decimal(line, getpid(), 1);
    put_char(line, '/');
    put_decimal(line, syscall(SYS_gettid), 1);
    put_char(line, ']');
}

} // namespace client
