/* trace_file.hpp - a trace file that remembers what was written to it, in place of the node's. The trace records of the
 * library are written to it by the trace's own objects; no other part of the library is in these programs. */
#ifndef TESTS_TRACE_TRACE_FILE_HPP
#define TESTS_TRACE_TRACE_FILE_HPP

#include "trace/trace.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Lines = std::vector<std::string>;

constexpr int TRACE_FILE = 7; /* its handle */

struct Dump
{
    const unsigned char *address;
    u32 length;
};

/* All that the node's side of the trace was asked for. */
struct TraceFile
{
    Lines lines;                    /* text lines; "[C1 40]" for a dump; "--" for a separator */
    std::vector<Dump> dumps;
    std::vector<std::string> calls; /* "init", "lock", "unlock"; "write" for anything written */
    bool locked = false;

    void write(int handle, const char *tag, std::string line);
};

extern TraceFile trace_file;

/* API trace is on, and its file is open, before each test. */
class TraceTest : public testing::Test
{
protected:
    void SetUp() override;

    static void trace(bool on);

    /* The lines of one record, after its separator, written straight to the file. */
    static Lines record(u16 kind, u16 call, const CCCB *cccb, const void *a1 = nullptr, const void *a2 = nullptr,
                        const void *a3 = nullptr, const void *a4 = nullptr, const void *a5 = nullptr,
                        const void *a6 = nullptr);
};

/* "[C1 40]" */
std::string dump_text(const void *address, u32 length);

#endif
