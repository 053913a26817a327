// shared_file.hpp - a text file in the node's directory that all programs of the node append to: the problem log, the
// audit log, the trace file. A record is one write at the end of the file, so records of different programs never
// mix. A file that would pass its limit is renamed to NAME.1, and a new one begun.
//
// lock: the process-wide lock, or whatever keeps two threads of one process from using the same record at once.
#pragma once

#include "client/system.hpp"
#include "node_client.h"

namespace client {

struct shared_file
{
    const char *name; // in the node's directory
    int fd;           // -1: not open
};

// Opens the file if it is not open, and makes room for a record of `size` bytes under `limit` (bytes; 0: none). False: it
// cannot be opened; errno says why, or, when that is 0, the node's directory cannot be used.
bool shared_file_prepare(shared_file &file, u32 size, u32 limit);

// Prepares, and writes a record. What goes wrong is told once per process on standard error; the program goes on.
bool shared_file_append(shared_file &file, const char *record, u32 size, u32 limit);

} // namespace client
