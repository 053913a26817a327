// setup.hpp - the verbs that make a conversation: ALLOCATE and RECEIVE_ALLOCATE; and CANCEL_CONVERSATION, which ends a
// conversation or one of those two while it is in progress.
//
// lock: held throughout; given up while a verb without a routine waits.
#pragma once

#include "client/state.hpp"

namespace client {

// Both return 0 when the verb is complete, NAP_IN_PROGRESS when the routine will be called.
u16 allocate_issue(VERB_RECORD *record, appc_completion *routine, u32 user_word);
u16 accept_issue(VERB_RECORD *record, appc_completion *routine, u32 user_word);

// Always complete at the return; the verb that it cancels completes (or its thread is woken) before that.
void cancel_conversation(VERB_HEADER *record);

// Cancels the allocations in progress under a TP.
void operations_cancel_of(const u8 *tp_id);

// In the child of a fork: forgets what is in progress, without a word to anyone.
void operations_forget();

} // namespace client
