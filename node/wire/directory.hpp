// directory.hpp - where a node lives: the one rule by which programs, broker and control program find each other. libc
// only, because the client library carries it too. No state, no lock.
//
// The directory belongs to one user, whose node it is. Programs of another user take part only where they trust that
// user: root, and whoever CPIC_NODE_USER names; they make nothing in the directory and start no broker there.
//
// Files in a node's directory: broker.sock (the broker's socket), broker.lock (held by the broker for life),
// start.lock (held while somebody starts a broker), broker.log, node.toml (configuration, when there is one),
// problem.log, audit.log, cpic.trc; trace.on (there while a broker runs with API trace on: a program that has not
// connected yet knows by it that its first call is to be traced).
#pragma once

#include <cstddef>
#include <cstdint>

namespace wire {

// A path of this many characters, terminating zero not counted, still leaves room for "/broker.sock" in a socket
// address.
inline constexpr std::size_t max_directory = 95;

inline constexpr char trace_mark[] = "trace.on";

// CPIC_NODE_DIR, else $XDG_RUNTIME_DIR/cpicnode, else /tmp/cpicnode-<uid>; an empty variable counts as not set. Zero
// terminated; false: it is longer than max_directory, or not absolute.
bool node_directory(char (&path)[max_directory + 1]);

enum class directory_state
{
    good,            // ours alone
    of_another,      // of a user whom we trust: its node may be used
    missing,
    not_a_directory, // something else stands there, a symbolic link included
    not_ours,        // another user owns it
    open_to_others,  // users beside the owner may write to it
    failed,          // errno says why
};

// True for ourselves, root, and the user that CPIC_NODE_USER names, by name or number.
bool user_trusted(std::uint32_t uid);

// Looks at the directory that a path names; `make` makes it, mode 0700, when it is missing.
directory_state directory_check(const char *path, bool make);

// What is wrong and what to do, for a person; "" for good. Of of_another it says why nothing can be made or started.
const char *directory_advice(directory_state state);

} // namespace wire
