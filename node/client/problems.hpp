// problems.hpp - the problem records of the client library itself, beside those of the library above it.
#pragma once

#include "node_client.h"

namespace client {

// Codes; the detail is an error number, or what the line says.
inline constexpr u32 problem_no_directory = 0x20040001;  // the node's directory cannot be used; detail: why
inline constexpr u32 problem_no_broker = 0x20040002;     // no broker runs and none could be started; detail: its exit code
inline constexpr u32 problem_no_connection = 0x20040003; // a broker runs, but there is no talking to it; detail: errno
inline constexpr u32 problem_wrong_broker = 0x20040004;  // another user's broker; detail: the user
inline constexpr u32 problem_bad_message = 0x20040005;   // the broker breaks the protocol; detail: bytes of its message
inline constexpr u32 problem_path_lost = 0x20040006;     // the connection to the broker is gone
inline constexpr u32 problem_assertion = 0x20040007;     // a failed check; detail: the source line
inline constexpr u32 problem_no_trace = 0x20040008;      // the trace file cannot be used; detail: errno
inline constexpr u32 problem_partner_log_data = 0x20040009; // log data that a partner's error or abend brought; detail 0

// Writes a problem record with two texts, one after the other.
void report_problem(u32 code, u32 detail, const char *text, const char *more);

} // namespace client
