// text.hpp - building the lines of logs and trace: characters into a buffer of fixed size, what does not fit is left
// out. No state, no lock.
#pragma once

#include "client/system.hpp"
#include "node_verbs.h"

namespace client {

struct text_line
{
    char *bytes;
    u32 room;
    u32 length; // at most room
    bool cut;   // something did not fit
};

void put_char(text_line &line, char c);
void put_text(text_line &line, const char *text);                          // zero-terminated
void put_hex(text_line &line, u32 value, int digits);                      // at least so many, upper case
void put_decimal(text_line &line, std::int64_t value, int digits);         // at least so many
void put_bytes(text_line &line, const u8 *bytes, u32 length);              // "01 F1 06"
void put_ascii(text_line &line, const u8 *bytes, u32 length);              // in quotes; what is not printable as \xNN
void put_ebcdic(text_line &line, const u8 *bytes, u32 length);             // the same of EBCDIC characters
void put_time(text_line &line, const wall_time &time);                     // 2026-01-31 23:59:59.123456+0100
void put_program(text_line &line);                                         // name[process/thread]

// The character to show for a byte: itself (or its code page 037 meaning) when it is printable ASCII, else a period.
char shown_ascii(u8 byte);
char shown_ebcdic(u8 byte);

} // namespace client
