// endurance_commands.hpp - further commands of the test program: many conversations at once, calls cancelled at every
// moment, descriptors that run out, signals that never cease. tp.cpp hands every command it does not know itself to
// endurance_command() and state_command(). The commands have conversations of their own, beside the slots of tp.cpp,
// but where they say so.
#pragma once

#include <string>
#include <vector>

// Runs a command of endurance_commands.cpp; its answer is one line. False: there is no such command.
bool endurance_command(const std::vector<std::string> &words, std::string &answer);

// The same for the commands of state_commands.cpp.
bool state_command(const std::vector<std::string> &words, std::string &answer);

// tp.cpp: the conversation ID of a slot, CM_CID_SIZE bytes; and any command, with its answer.
unsigned char *conversation_of_slot(const std::string &slot);
std::string run_command(const std::vector<std::string> &words);
