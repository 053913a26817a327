// path.hpp - path users, the loss of the path to the node, the child of a fork.
#pragma once

namespace client {

// Tells every path user of the loss and forgets all that belonged to the path; does nothing when no loss is due.
// lock: held, and no call of the library is in flight.
void path_deliver();

} // namespace client
