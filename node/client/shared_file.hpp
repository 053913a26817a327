// shared_file.hpp - this program's share in the files of the node that all its programs append to: the problem log, the
// audit log, the trace file (wire/node_file.hpp). Where the node belongs to another user the records go to the broker,
// which appends them.
//
// Records that such a program makes before it is connected, the request of its first call above all, wait until it is.
//
// lock: the process-wide lock, or, before there is a broker, whatever keeps two threads from using one file at once.
#pragma once

#include "node_client.h"
#include "wire/node_file.hpp"

namespace client {

// Makes room for a record of `size` bytes under `limit` (bytes; 0: none). False: records cannot be written; errno says
// why, or, when that is 0, the node's directory cannot be used.
bool shared_file_prepare(wire::node_file &file, u32 size, u32 limit);

// Prepares, and writes a record. What goes wrong is told once per process on standard error; the program goes on.
bool shared_file_append(wire::node_file &file, const char *record, u32 size, u32 limit);

// The broker of a node of another user has been reached, or will not be: what waits goes to it, or is lost.
void shared_files_reached(bool reached);

} // namespace client
