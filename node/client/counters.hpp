// counters.hpp - the table of counters that this process shares with the broker, one slot for each conversation: the
// only thing by which an operator sees a conversation's state and bytes, since the broker is not in the data path.
//
// The table lives as long as its path to the broker and the conversations made over it. A process that cannot have one,
// and a conversation for which it has no room, go on uncounted. lock: held throughout.
#pragma once

#include "node_client.h"
#include "wire/broker.hpp"

namespace client {

// Makes the table. The descriptor to be sent to the broker, the caller's to close; -1: none is to be had.
int counters_open();

// Gives the table back; no conversation that has a slot may be left. Without a table nothing happens.
void counters_close();

// The slot for a conversation identifier of the table of conversations; null: there is none.
wire::conversation_counters *counters_slot(u32 conv_id);

} // namespace client
