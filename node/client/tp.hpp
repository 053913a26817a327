// tp.hpp - the TPs of this process: TP_STARTED, TP_ENDED, local TP names. A TP is what conversations run under; its
// identifier is made here, from the broker's number for this program and a handle, so that it is unique on the node.
//
// lock: held throughout.
#pragma once

#include "client/state.hpp"

namespace client {

struct tp
{
    u8 id[8];
    u8 alias[8];       // its local LU
    u32 conversations; // open under it
};

// A new TP on a local LU that is known to exist; null: no memory.
tp *tp_make(const u8 *alias);
tp *tp_find(const u8 *id);
void tp_remove(tp *one);
void tps_forget(); // all of them, without a word to anyone

// The verbs; the record's return codes are set at the return.
void tp_started(VERB_TP_STARTED *record);
void tp_ended(VERB_TP_ENDED *record);
void tp_name_change(VERB_LOCAL_TP_NAME *record, wire::message_kind kind); // add_name or remove_name

// Return codes of a verb that needs the broker when there is none.
void set_rc_no_path(void *record);

} // namespace client
