// print.cpp - makes the lines of a trace record and hands them to the node's trace file. Called by the record writer,
// under the locks of the process and of the trace file. Lines are built in buffers of fixed size on the stack.
#include "trace/print.hpp"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

// One line; a text that does not fit is cut.
[[gnu::format(printf, 2, 3)]] static void print_line(int handle, const char *format, ...)
{
    char line[LINE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    com_trc_line(handle, TRACE_TAG, line);
}

// A length as a call gave or returned it is signed: a negative one shows nothing.
static u32 at_least_zero(u32 length)
{
    return static_cast<int>(length) < 0 ? 0 : length;
}

void print_separator(int handle)
{
    com_trc_sep(handle, TRACE_TAG);
}

void print_text(int handle, const char *text)
{
    com_trc_line(handle, TRACE_TAG, text);
}

void print_request_header(int handle, u16 call)
{
    print_line(handle, "%s request", name_call(call));
}

// A return code beyond the table shows its low half, unsigned.
void print_response_header(int handle, u16 call, bool asynchronous, const void *rc)
{
    u32 code = cpicrc.count;
    if (rc != nullptr)
    {
        memcpy(&code, rc, sizeof code);
    }
    char result[NAME_SIZE];
    if (code < cpicrc.count || rc == nullptr)
    {
        name_value(result, cpicrc, code);
    }
    else
    {
        snprintf(result, sizeof result, "%s (rc=%d)", cpicrc.fallback, static_cast<int>(code & 0xFFFF));
    }
    print_line(handle, "%s %sresponse, result = %s", name_call(call), asynchronous ? "async " : "", result);
}

void print_conversation_id(int handle, const char *label, const u8 *conv_id)
{
    print_line(handle, " %s = %02X%02X%02X%02X", label, conv_id[0], conv_id[1], conv_id[2], conv_id[3]);
}

void print_value(int handle, const char *label, const name_table &names, u32 value)
{
    char name[NAME_SIZE];
    name_value(name, names, value);
    print_line(handle, " %s = %s", label, name);
}

void print_number(int handle, const char *label, u32 number)
{
    print_line(handle, " %s = %lu", label, static_cast<unsigned long>(number));
}

void print_pointer(int handle, const char *label, const void *pointer)
{
    print_line(handle, " %s = %p", label, pointer);
}

void print_sym_dest_name(int handle, const char *label, const u8 *name)
{
    print_line(handle, " %s = %.8s", label, reinterpret_cast<const char *>(name));
}

void print_dump(int handle, const char *heading, const u8 *bytes, u32 length, u32 most)
{
    const u32 shown = at_least_zero(length);
    print_text(handle, heading);
    com_trc_dump(handle, TRACE_TAG, bytes, shown < most ? shown : most);
}

void print_buffer(int handle, const u8 *buffer, u32 length)
{
    if (length == 0)
    {
        print_text(handle, " Buffer empty");
        return;
    }
    const u32 shown = at_least_zero(length);
    print_line(handle, "---- Buffer at address %p ----", static_cast<const void *>(buffer));
    com_trc_dump(handle, TRACE_TAG, buffer, shown <= CPIC_MAX_DATA ? shown : MAX_NAME_DUMP);
}
