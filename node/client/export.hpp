// export.hpp - the mark of every definition that a program may see; libcpicnode.map repeats the names. Everything else
// in the library is hidden.
#pragma once

#pragma GCC visibility push(default) // for the data, which are declared there
#include "node_client.h"
#pragma GCC visibility pop

#define CPICNODE_EXPORT extern "C" __attribute__((visibility("default")))
#define CPICNODE_EXPORT_DATA __attribute__((visibility("default")))
