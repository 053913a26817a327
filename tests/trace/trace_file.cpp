/* trace_file.cpp - the node's side of the trace, as trace_file.hpp has it. */
#include "trace/trace_file.hpp"

TraceFile trace_file;

static unsigned char control[PTRC_SIZE];

extern "C" {

unsigned char *ptrc = control;
struct trc_api_state trc_api;

void sepuapi_init(unsigned char *trace_control)
{
    EXPECT_EQ(ptrc, trace_control);
    trace_file.calls.emplace_back("init");
}

void trc_lock_file(struct trc_api_state *state)
{
    EXPECT_EQ(&trc_api, state);
    EXPECT_FALSE(trace_file.locked);
    trace_file.locked = true;
    trace_file.calls.emplace_back("lock");
}

void trc_unlock_file(struct trc_api_state *state)
{
    EXPECT_EQ(&trc_api, state);
    EXPECT_TRUE(trace_file.locked);
    trace_file.locked = false;
    trace_file.calls.emplace_back("unlock");
}

void com_trc_sep(int handle, const char *tag)
{
    trace_file.write(handle, tag, "--");
}

void com_trc_line(int handle, const char *tag, const char *text)
{
    trace_file.write(handle, tag, text);
}

void com_trc_dump(int handle, const char *tag, const void *address, u32 length)
{
    trace_file.dumps.push_back({static_cast<const unsigned char *>(address), length});
    trace_file.write(handle, tag, dump_text(address, length));
}

} // extern "C"

void TraceFile::write(int handle, const char *tag, std::string line)
{
    EXPECT_EQ(TRACE_FILE, handle);
    EXPECT_STREQ("CPIC ", tag);
    lines.push_back(std::move(line));
    if (calls.empty() || calls.back() != "write")
    {
        calls.emplace_back("write");
    }
}

std::string dump_text(const void *address, u32 length)
{
    static const char digits[] = "0123456789ABCDEF";
    const unsigned char *bytes = static_cast<const unsigned char *>(address);
    std::string text = "[";
    for (u32 i = 0; i < length; ++i)
    {
        text += i == 0 ? "" : " ";
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text + "]";
}

void TraceTest::SetUp()
{
    trace_file = {};
    trc_api.initialised = 1;
    trc_api.handle = TRACE_FILE;
    trace(true);
}

void TraceTest::trace(bool on)
{
    control[0] = on ? 0x20 : 0xDF;
}

Lines TraceTest::record(u16 kind, u16 call, const CCCB *cccb, const void *a1, const void *a2, const void *a3,
                        const void *a4, const void *a5, const void *a6)
{
    trace_file.lines.clear();
    trace_file.dumps.clear();
    seputrcp_d(kind, call, cccb, a1, a2, a3, a4, a5, a6, TRACE_FILE);
    Lines lines = trace_file.lines;
    EXPECT_FALSE(lines.empty());
    if (!lines.empty())
    {
        EXPECT_EQ("--", lines.front());
        lines.erase(lines.begin());
    }
    return lines;
}
