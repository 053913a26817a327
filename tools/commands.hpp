// commands.hpp - what the control program's commands do. Each returns the exit code of the program.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tool {

class broker_link;

enum exit_code
{
    exit_good = 0,
    exit_failed = 1,
    exit_usage = 2,
    exit_no_node = 3,
};

// Where, and how to answer; the same for every command.
struct setting
{
    std::string directory; // absolute
    bool json = false;
};

int start(const setting &where, const std::string &config_file, double idle_seconds);
int stop(const setting &where);
int check(const setting &where, const std::string &config_file);

// Puts one command to the running broker and shows what it answers.
int ask_node(const setting &where, const std::string &command);

// Connects to the running broker. Not exit_good: that is not possible, and why has been said; with `is_answer` it is no
// complaint that none is running.
int connect_to_node(const setting &where, broker_link &link, bool is_answer = false);

// Shows conversations as they come, change and end, until it is interrupted or `seconds` are over (0: no limit).
int monitor(const setting &where, double seconds);

enum class file_kind
{
    log,   // one line is one record
    trace, // a separator, then lines
};

// The last lines (0: all) of a file in the node's directory, of the one put aside by rotation too, and never the end of
// a record without its beginning; in JSON so many records. With `follow` also what is added later.
int show_file(const setting &where, const std::string &name, file_kind kind, std::size_t wanted, bool follow);

} // namespace tool
