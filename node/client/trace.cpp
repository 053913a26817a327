// trace.cpp - the API trace file, cpic.trc in the node's directory. A record:
//
//   ---- CPIC 2026-01-31 23:59:59.123456+0100 hello_client[4711/4711] ----
//   CPIC text of a line
//   CPIC   00000000: 01 02 03 04 05 06 07 08  09 0A 0B 0C 0D 0E 0F 10  |ascii.ascii.ascii| |ebcdic.ebcdic.eb|
//
// All lines of a record are gathered between trc_lock_file() and trc_unlock_file() and go out in one write, so records
// of different programs never mix, and a program that is stopped in the middle holds up nobody. The threads of one
// program take turns by a lock of the trace's own, held between the two.
#include "client/export.hpp"
#include "client/link.hpp"
#include "client/problems.hpp"
#include "client/shared_file.hpp"
#include "client/text.hpp"

#include <cerrno>
#include <cstring>
#include <pthread.h>

namespace client {

namespace {

pthread_mutex_t trace_mutex = PTHREAD_MUTEX_INITIALIZER;
wire::node_file trace_file = {wire::node_file_kind::trace, -1};
bool reported; // that the file cannot be used

// The longest data of a call, 32,767 bytes, make a dump of 2,048 lines of at most 120 characters.
constexpr u32 record_room = 300000;
constexpr char cut_mark[] = "(record cut: too long)\n";
char record_bytes[record_room + sizeof cut_mark];
text_line record = {record_bytes, record_room, 0, false};

constexpr u32 bytes_per_line = 16;

// The handle while the broker writes the file: any that does not say there is none.
constexpr int by_the_broker = 0;

u32 trace_limit()
{
    return broker.page == nullptr ? 0 : __atomic_load_n(&broker.page->trace_file_limit, __ATOMIC_RELAXED);
}

} // namespace

} // namespace client

using namespace client;

CPICNODE_EXPORT_DATA struct trc_api_state trc_api = {0, -1};

CPICNODE_EXPORT void sepuapi_init(unsigned char *)
{
    trc_api.handle = -1;
    link_trace_before_open(); // else the first call, which connects, would have no request record
}

CPICNODE_EXPORT void trc_lock_file(struct trc_api_state *state)
{
    pthread_mutex_lock(&trace_mutex);
    // The length of the record is not known yet: it may pass the limit by itself, not by more.
    if (!shared_file_prepare(trace_file, 1, trace_limit()))
    {
        if (!reported)
        {
            reported = true;
            report_problem(problem_no_trace, static_cast<u32>(errno), "the trace file cannot be opened: ",
                           errno != 0 ? std::strerror(errno) : "the node's directory cannot be used");
        }
        state->handle = -1;
        pthread_mutex_unlock(&trace_mutex); // with no file the caller gives no lock back
        return;
    }
    state->handle = trace_file.fd >= 0 ? trace_file.fd : by_the_broker;
    record.length = 0;
    record.cut = false;
}

CPICNODE_EXPORT void trc_unlock_file(struct trc_api_state *)
{
    if (record.cut)
    {
        std::memcpy(record.bytes + record.length, cut_mark, sizeof cut_mark - 1);
        record.length += static_cast<u32>(sizeof cut_mark - 1);
    }
    if (record.length != 0)
    {
        shared_file_append(trace_file, record.bytes, record.length, 0);
    }
    record.length = 0;
    pthread_mutex_unlock(&trace_mutex);
}

CPICNODE_EXPORT void com_trc_sep(int handle, const char *tag)
{
    if (handle < 0)
    {
        return;
    }
    put_text(record, "---- ");
    put_text(record, tag);
    put_time(record, sys_wall_clock());
    put_char(record, ' ');
    put_program(record);
    put_text(record, " ----\n");
}

CPICNODE_EXPORT void com_trc_line(int handle, const char *tag, const char *text)
{
    if (handle < 0)
    {
        return;
    }
    put_text(record, tag);
    put_text(record, text);
    put_char(record, '\n');
}

CPICNODE_EXPORT void com_trc_dump(int handle, const char *tag, const void *address, u32 length)
{
    if (handle < 0)
    {
        return;
    }
    const auto *bytes = static_cast<const u8 *>(address);
    for (u32 offset = 0; offset < length && !record.cut; offset += bytes_per_line)
    {
        u32 count = length - offset < bytes_per_line ? length - offset : bytes_per_line;
        put_text(record, tag);
        put_text(record, "  ");
        put_hex(record, offset, 8);
        put_char(record, ':');
        for (u32 i = 0; i < bytes_per_line; i++)
        {
            put_text(record, i == bytes_per_line / 2 ? "  " : " ");
            if (i < count)
            {
                put_hex(record, bytes[offset + i], 2);
            }
            else
            {
                put_text(record, "  ");
            }
        }
        put_text(record, "  |");
        for (u32 i = 0; i < count; i++)
        {
            put_char(record, shown_ascii(bytes[offset + i]));
        }
        put_text(record, "| |");
        for (u32 i = 0; i < count; i++)
        {
            put_char(record, shown_ebcdic(bytes[offset + i]));
        }
        put_text(record, "|\n");
    }
}
