// commands.hpp - what the control program's commands do. Each returns the exit code of the program.
#pragma once

#include <string>
#include <vector>

namespace tool {

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
int status(const setting &where);
int check(const setting &where, const std::string &config_file);

// Puts one command to the running broker and shows what it answers.
int ask_node(const setting &where, const std::string &command);

// Shows conversations as they come, change and end, until it is interrupted or `seconds` are over (0: no limit).
int monitor(const setting &where, double seconds);

// The last `lines` lines (0: all) of a file in the node's directory, the file put aside by rotation first; with
// `follow` what is added later too.
int show_file(const setting &where, const std::string &name, std::size_t lines, bool follow);

} // namespace tool
