// start.hpp - reaching the broker of the node's directory, starting one when none runs.
#pragma once

namespace client {

// A connected socket to the broker, or -1 when none is to be had; the problem log says why. Where the directory
// belongs to another user no broker is started. Waits; touches no state, so the lock does not matter.
int broker_reach(bool &of_another);

} // namespace client
