// log.cpp - the problem log, the audit log, failed checks. One record is one line:
//
//   2026-01-31 23:59:59.123456+0100 hello_client[4711/4711] problem 0x20030005 detail 8: 01 00 00 00 00 00 00 00
//
// lock: held, or the process is in the middle of getting its first one.
#include "client/export.hpp"
#include "client/link.hpp"
#include "client/problems.hpp"
#include "client/shared_file.hpp"
#include "client/text.hpp"

#include <cstdarg>
#include <cstring>

namespace client {

namespace {

wire::node_file problem_log = {wire::node_file_kind::problem_log, -1};
wire::node_file audit_log = {wire::node_file_kind::audit_log, -1};

// A line has room for the longest log data of a conversation, shown as bytes.
constexpr u32 line_room = 100000;
char line_bytes[line_room + 8];

// Limits while no broker says otherwise, bytes.
constexpr u32 limit_alone = 16 * 1024 * 1024;

text_line line_begin(const char *kind, u32 code, u32 detail)
{
    text_line line = {line_bytes, line_room, 0, false};
    put_time(line, sys_wall_clock());
    put_char(line, ' ');
    put_program(line);
    put_char(line, ' ');
    put_text(line, kind);
    put_text(line, " 0x");
    put_hex(line, code, 8);
    put_text(line, " detail ");
    put_decimal(line, detail, 1);
    return line;
}

void line_end(text_line &line, wire::node_file &file, u32 limit)
{
    if (line.cut)
    {
        std::memcpy(line.bytes + line.length, " (cut)", 6);
        line.length += 6;
    }
    line.bytes[line.length++] = '\n';
    shared_file_append(file, line.bytes, line.length, limit);
}

u32 problem_limit()
{
    return broker.page == nullptr ? limit_alone : __atomic_load_n(&broker.page->problem_log_limit, __ATOMIC_RELAXED);
}

u32 audit_limit()
{
    return broker.page == nullptr ? limit_alone : __atomic_load_n(&broker.page->audit_log_limit, __ATOMIC_RELAXED);
}

// Data, one item per word of the format; node_client.h says what the words mean. Unknown words end the list: what
// follows them cannot be told.
void put_data(text_line &line, const char *format, va_list data)
{
    const char *before = ": ";
    while (*format != 0)
    {
        std::size_t size = std::strcspn(format, " ");
        auto is = [&](const char *word) { return size == std::strlen(word) && std::strncmp(format, word, size) == 0; };
        if (size != 0)
        {
            put_text(line, before);
            before = " ";
            if (is("x"))
            {
                put_text(line, "0x");
                put_hex(line, va_arg(data, u32), 4);
            }
            else if (is("lx"))
            {
                put_text(line, "0x");
                put_hex(line, va_arg(data, u32), 8);
            }
            else if (is("l"))
            {
                put_decimal(line, static_cast<int>(va_arg(data, u32)), 1);
            }
            else if (is("ba") || is("ca") || is("es"))
            {
                const auto *bytes = static_cast<const u8 *>(va_arg(data, const void *));
                u32 length = va_arg(data, u32);
                length = bytes == nullptr ? 0 : length;
                if (is("ba"))
                {
                    put_bytes(line, bytes, length);
                }
                else if (is("ca"))
                {
                    put_ascii(line, bytes, length);
                }
                else
                {
                    put_ebcdic(line, bytes, length);
                }
            }
            else
            {
                put_text(line, "(unknown format ");
                put_text(line, format);
                put_char(line, ')');
                return;
            }
        }
        format += size;
        format += *format == ' ' ? 1 : 0;
    }
}

} // namespace

void report_problem(u32 code, u32 detail, const char *text, const char *more)
{
    text_line line = line_begin("problem", code, detail);
    put_text(line, ": ");
    put_text(line, text);
    put_text(line, more);
    line_end(line, problem_log, problem_limit());
}

} // namespace client

using namespace client;

CPICNODE_EXPORT void nba_pd_print_problem(u32 code, u32 detail, const char *format, ...)
{
    text_line line = line_begin("problem", code, detail);
    va_list data;
    va_start(data, format);
    put_data(line, format, data);
    va_end(data);
    line_end(line, problem_log, problem_limit());
}

CPICNODE_EXPORT void nba_pd_print_audit(u32 code, u32 detail, const char *format, ...)
{
    text_line line = line_begin("audit", code, detail);
    va_list data;
    va_start(data, format);
    put_data(line, format, data);
    va_end(data);
    line_end(line, audit_log, audit_limit());
}

CPICNODE_EXPORT void v0_assert(const char *source, int line_number, const char *expression)
{
    text_line line = line_begin("problem", problem_assertion, static_cast<u32>(line_number));
    put_text(line, ": assertion failed: ");
    put_text(line, expression);
    put_text(line, " at ");
    put_text(line, source);
    put_char(line, ':');
    put_decimal(line, line_number, 1);
    line_end(line, problem_log, problem_limit());
}
