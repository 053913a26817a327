// double_node.hpp - a node that does nothing, at once: it stands in front of the node client library in bench_calls, so
// that only the library's own work is measured. Handle tables and memory stay those of the node client library.
#pragma once

#include "node_client.h"

namespace bench {

extern unsigned long verbs; // how many verbs were issued, so that nothing is measured that did not happen

} // namespace bench
