// print.hpp - the lines of a trace record: one printer for each kind of item. items.cpp knows which item a call shows
// and where its value is; here only its text is made. Called with the trace file's lock held; nothing is allocated.
#ifndef VCPIC_TRACE_PRINT_HPP
#define VCPIC_TRACE_PRINT_HPP

#include "trace/names.hpp"

// Component tag on every line of this library's records; the blank belongs to it.
inline constexpr const char TRACE_TAG[] = "CPIC ";

// Size of the buffer in which a line is built.
inline constexpr u32 LINE_SIZE = 140;

// Most bytes shown of a name that a call was given, and of anything whose length no call accepts: such a length may be
// anything, and what lies behind the caller's buffer is not read.
inline constexpr u32 MAX_NAME_DUMP = 64;

void print_separator(int handle);

// A line as it is.
void print_text(int handle, const char *text);

// "CMSEND request"
void print_request_header(int handle, u16 call);

// "CMSEND response, result = CM_OK". rc: the CPI-C return code; null: shown as unknown.
void print_response_header(int handle, u16 call, bool asynchronous, const void *rc);

// The first four bytes of a conversation ID; the others are always zero.
void print_conversation_id(int handle, const char *label, const u8 *conv_id);

// A value by its name.
void print_value(int handle, const char *label, const name_table &names, u32 value);

// A number, unsigned whatever its sign.
void print_number(int handle, const char *label, u32 number);

void print_pointer(int handle, const char *label, const void *pointer);

// A symbolic destination name: ASCII, ended by its eighth character or a zero.
void print_sym_dest_name(int handle, const char *label, const u8 *name);

// A heading, then a dump. length: as a call gave or returned it; most: bytes shown at most.
void print_dump(int handle, const char *heading, const u8 *bytes, u32 length, u32 most);

// A data buffer: its address and a dump, or that it is empty.
void print_buffer(int handle, const u8 *buffer, u32 length);

#endif
