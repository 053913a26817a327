// conversation.hpp - a conversation at this end: one connected socket, the LU 6.2 engine that says what may happen on
// it, the bytes that are on their way in and out, and at most one verb being worked on.
//
// The runtime makes a conversation when the broker has handed it a socket, keeps it in its table of conversation
// identifiers, and passes it every verb that names one. Everything here is called with the process-wide lock held; a
// blocking verb gives the lock up while it waits, through the runtime.
#pragma once

#include "node_verbs.h"
#include "wire/broker.hpp"

namespace client {

struct conversation;

// What a conversation is made from.
struct conversation_origin
{
    int fd;              // connected Unix stream socket, non-blocking, close-on-exec
    bool allocating;     // this end allocated it: it sends the ATTACH with its first flush and begins in send state
    u8 conv_type;        // 0 basic, 1 mapped
    u8 sync_level;       // 0 none, 1 confirm
    u32 session;         // the broker's number, for the `ended` notice
    u32 conv_id;         // the node's conversation identifier; 0: set later with conversation_set_id()
    u8 tp_id[8];
};

// Makes a conversation and takes over the descriptor. Null: no memory, and the descriptor is still the caller's.
conversation *conversation_make(const conversation_origin &origin);
void conversation_set_id(conversation *conv, u32 conv_id);

// From now on the conversation keeps this slot up to date, and frees it when it is over; conversation_drop() leaves it
// alone. The slot has to last as long as the conversation.
void conversation_count(conversation *conv, wire::conversation_counters *slot);

u32 conversation_id(const conversation *conv);
u32 conversation_session(const conversation *conv);
const u8 *conversation_tp_id(const conversation *conv);

// True while a verb is being worked on, by a blocked thread or for later completion.
bool conversation_busy(const conversation *conv);

// Works on one conversation verb; the record's return codes are set when it is complete. The opcode is one of
// conversation_verb(). A null routine: returns 0 once the verb is complete, having given the lock up while it waited.
// With a routine: 0 when the verb is complete at once, else NAP_IN_PROGRESS and the routine is called once, later. A
// second verb while one is being worked on: rc_tp_busy. When the verb has ended the conversation, the conversation
// has told the runtime with runtime_conversation_over() and must not be used any more.
u16 conversation_issue(conversation *conv, VERB_RECORD *record, appc_completion *routine, u32 user_word);
bool conversation_verb(u16 opcode);

// The descriptor of a pending verb is ready: go on with it. Completes the verb through the runtime when it can.
void conversation_ready(conversation *conv);

// CANCEL_CONVERSATION: the verb being worked on completes with rc_cancelled (a blocked thread is woken for it), and
// the conversation is over; the partner sees it fail. With no verb at work it is over before the return.
void conversation_cancel(conversation *conv);

// The path to the node is lost: the verb being worked on completes with rc_conv_failure_retry and the conversation is
// over. With no verb at work the next verb says so.
void conversation_fail(conversation *conv);

// TP_ENDED with the conversation still open: the partner is told of an abnormal end, as far as the socket takes it at
// once; a verb being worked on completes with rc_dealloc_abend_program.
void conversation_abend(conversation *conv);

// Forgets a conversation without a word to anyone and frees it: the descriptor is closed, nothing is written, no
// routine is called. For the child of a fork and for the clearing up after a path failure. No thread may be blocked
// in a verb of it.
void conversation_drop(conversation *conv);

// Forgets the buffers that conversations keep for the next of them (process end, child of a fork, tests).
void conversation_release_buffers();

} // namespace client
