// output.hpp - how the control program answers: documents for machines, sentences for people, and what happens when
// nobody can take them.
#pragma once

#include "commands.hpp"

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace tool {

using json = nlohmann::ordered_json;

// A document as JSON text. Bytes that are no UTF-8 (of a directory's name, say) come out as the replacement character.
// indent: columns; -1: all on one line.
std::string text_of(const json &document, int indent = 2);

// Says what has gone wrong: a sentence on standard error, or with --json a document with the one key "error" on
// standard output. Gives the exit code for it.
int fail(const setting &where, const std::string &text);

// Waits so long. False, at once: nobody reads standard output any more.
bool wait_while_read(std::chrono::milliseconds time);

// Writes out what is still in the buffer. `code`, or, with a word on standard error, exit_failed when it got lost.
int finish_output(int code);

} // namespace tool
