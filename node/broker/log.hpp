// log.hpp - the broker's log: lines on standard error, which is broker.log when the broker runs in the background. One
// that is full, or that nobody reads, loses lines and says later how many; it never holds the broker up. Called by the
// broker's main thread alone.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace broker {

// One line, with time and process.
void log_line(const std::string &text);

// One line of a kind that others can bring about as often as they like: ten within a second are written, of the rest
// only how many they were. cause: which kind; one of a few, since each is remembered.
void log_limited(const std::string &cause, const std::string &text);

// From here on standard output and error are this file, which is put aside as FILE.1 whenever it is longer than `limit`
// bytes. False: it cannot be opened, errno says why.
bool log_into(const std::string &file, off_t limit);

// Milliseconds until log_tick() has something to say; -1: nothing. ending: also what could still wait.
std::int64_t log_due();
void log_tick(bool ending = false);

} // namespace broker
