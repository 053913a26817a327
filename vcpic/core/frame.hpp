// frame.hpp - the way into and out of every CPI-C call, and the completion of verbs.
//
// A call reads as its own rules only:
//
//     void cmflus(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
//     {
//         call_frame call;
//         if (call_enter<CALL_CMFLUS>(call, return_code, conversation_ID))
//         {
//             start_verb(call.cccb, NAP_FLUSH);
//             issue_verb(call, cmflus_cb);
//         }
//         call_leave(call);
//     }
//
//   call_enter   takes the lock, sets the return code to CM_OK, writes the request trace record, finds the conversation
//                and makes the checks of the call's row; false: the return code is set, nothing else may be done
//   issue_verb   fills the pending-call record, counts the verb, hands it to the node, and completes it when the node
//                has done it already
//   call_leave   writes the response trace record and releases the lock: the one exit
//
// A verb completes once, in its completion routine (`..._cb`), whoever calls it:
//
//                      issue_verb: usVerbsPending + 1, an uncollected completion is forgotten
//                                      |
//            node: done already        |        node: NAP_IN_PROGRESS
//          .---------------------------'---------------------------.
//          |                                                       | ulAsyncVerbsOutstanding + 1
//    routine, asynchronous = 0                                     | call returns CM_OPERATION_INCOMPLETE
//          |                                                 ... later ...
//    call returns ulPendingRc                                routine, asynchronous = 1
//    usVerbsPending - 1                                            | ulAsyncVerbsOutstanding - 1
//    freed when over                                               | usCompletionPending 0 -> 1, NumVerbsWaiting + 1
//                                                                  | usVerbsPending - 1, waiters woken
//                                                                  | freed when over (and nothing waits)
//                                                          CMWAIT collects, or the next verb forgets:
//                                                            usCompletionPending 1 -> 0, NumVerbsWaiting - 1
//
// What holds whenever the lock is free:
//   1. NumVerbsWaiting is the number of CCCBs whose usCompletionPending is 1 (while the library is started: a path
//      failure leaves the number behind).
//   2. A CCCB whose usConversationEnded is 1 is still there only while a verb or a completion of it is counted. Three
//      counts are never taken back, each said where it is made: the SEND_DATA before a chained DEALLOCATE that
//      completes later, a CMCANC that got no wait object; and CMTRTS marks the end but leaves the freeing to the next
//      call.
//   3. Between CM_OPERATION_INCOMPLETE and the completion only the completion routine touches vcb; usVerbsPending keeps
//      every other call that would out.
#ifndef VCPIC_CORE_FRAME_HPP
#define VCPIC_CORE_FRAME_HPP

#include "core/core.hpp"
#include "trace/trace.hpp"

// What a call needs (column `needs` of the table of calls). The checks are made in this order.
enum call_needs : unsigned
{
    NEED_NOTHING = 0,
    NEED_RECORD = 1,      // a CCCB for the conversation ID, else CM_PROGRAM_PARAMETER_CHECK
    NEED_IDLE = 2,        // no verb pending, else CM_OPERATION_NOT_ACCEPTED
    NEED_NODE = 4,        // a conversation with the node, else CM_PROGRAM_STATE_CHECK
    NEED_INITIALIZE = 8,  // Initialize state, else CM_PROGRAM_STATE_CHECK
    NEED_KNOWN = 16,      // allocated, accepted or initialized, else CM_PROGRAM_STATE_CHECK
    TRACE_NO_CCCB = 32,   // the trace records carry no CCCB, and none is looked up for them
};

inline constexpr int NO_DETAIL = -1;

struct call_row
{
    const char *name; // upper case
    unsigned needs;
    int detail;
};

enum call_number : u16
{
#define CPIC_CALL(number, lower, UPPER, arguments, needs, detail) CALL_##UPPER = number,
#include "core/calls.def"
#undef CPIC_CALL
};

inline constexpr unsigned call_count = 63; // call numbers 0 to 62

// The row of a call number; a number without a call has no name.
consteval call_row row_of(unsigned number)
{
    switch (number)
    {
#define CPIC_CALL(number, lower, UPPER, arguments, needs, detail)                                                      \
    case number:                                                                                                       \
        return {#UPPER, needs, detail};
#include "core/calls.def"
#undef CPIC_CALL
        default:
            return {nullptr, NEED_NOTHING, NO_DETAIL};
    }
}

// One call on its way through the library; lives on the stack of the call.
struct call_frame
{
    CCCB *cccb;                // the conversation; null before it is found, and for calls without one
    const u8 *conv_id;         // the caller's conversation ID (input or output); null for calls without one
    CM_INT32 *rc;              // the caller's return code
    u16 number;
    u16 lock_token;
};

// ---- the cold side of the frame (frame.cpp) -----------------------------------------------------------------

// Logs problem 0x20030005 with the conversation ID, unless the call logs none, and answers
// CM_PROGRAM_PARAMETER_CHECK.
CM_INT32 conversation_not_found(const u8 *conv_id, int detail);

// Write a trace record: with the call's further inputs, called when trace_due(); with its outputs, called when
// trace_on().
void trace_request(const call_frame &call, const void *const (&in)[5]);
void trace_response(const call_frame &call, const void *const (&out)[5]);

// True when the trace has something to do: a record to write, or the preparation that the first call of a process
// makes even when tracing is off.
inline bool trace_due()
{
    return trc_api.initialised == 0 || trace_on();
}

// Between the two the record stays even if another thread ends its context: a verb or a sleep may give the lock up in
// the middle of a call.
inline void enter_record(CCCB *cccb)
{
    ++cccb->usCallsInside;
}

inline void leave_record(CCCB *cccb)
{
    --cccb->usCallsInside;
}

// ---- the frame ----------------------------------------------------------------------------------------------

// The CCCB of a conversation ID, null when there is none. Only the first four bytes of the ID count.
inline CCCB *find_cccb(const u8 *conv_id)
{
    if (conv_id == nullptr || pGCB == nullptr || fInitCPIC == 0) [[unlikely]]
    {
        return nullptr;
    }
    u32 handle;
    memcpy(&handle, conv_id, sizeof handle);
    return static_cast<CCCB *>(vtm_get_pointer(pGCB->ConvTable, handle));
}

inline bool in_initialize_state(const CCCB *cccb)
{
    return cccb->ulAppcConvId == 0 && cccb->usInitialized != 0;
}

// Enters call `number`. conv_id: the caller's conversation ID; an output for calls that make a conversation, null for
// those without one. in: the call's further input arguments, for the request trace record (which begins with the
// conversation ID where that is an input).
template <call_number number, typename... Inputs>
[[gnu::always_inline]] inline bool call_enter(call_frame &call, CM_INT32 *rc, const u8 *conv_id, Inputs... in)
{
    constexpr call_row row = row_of(number);

    call.lock_token = vpm_lock();
    *rc = CM_OK;
    call.cccb = nullptr;
    call.conv_id = conv_id;
    call.rc = rc;
    call.number = number;
    if (trace_due()) [[unlikely]]
    {
        if constexpr ((row.needs & NEED_RECORD) != 0)
        {
            trace_request(call, {conv_id, in...});
        }
        else
        {
            trace_request(call, {in...});
        }
    }
    if constexpr ((row.needs & NEED_RECORD) != 0)
    {
        call.cccb = find_cccb(conv_id);
        if (call.cccb == nullptr) [[unlikely]]
        {
            *rc = conversation_not_found(conv_id, row.detail);
            return false;
        }
    }
    if constexpr ((row.needs & NEED_IDLE) != 0)
    {
        if (call.cccb->usVerbsPending != 0) [[unlikely]]
        {
            *rc = CM_OPERATION_NOT_ACCEPTED;
            return false;
        }
    }
    if constexpr ((row.needs & NEED_NODE) != 0)
    {
        if (call.cccb->ulAppcConvId == 0) [[unlikely]]
        {
            *rc = CM_PROGRAM_STATE_CHECK;
            return false;
        }
    }
    if constexpr ((row.needs & NEED_INITIALIZE) != 0)
    {
        if (!in_initialize_state(call.cccb))
        {
            *rc = CM_PROGRAM_STATE_CHECK;
            return false;
        }
    }
    if constexpr ((row.needs & NEED_KNOWN) != 0)
    {
        if (call.cccb->ulAppcConvId == 0 && call.cccb->usInitialized == 0)
        {
            *rc = CM_PROGRAM_STATE_CHECK;
            return false;
        }
    }
    return true;
}

// Leaves the call. outputs: the call's output arguments, for the response trace record.
template <typename... Outputs>
[[gnu::always_inline]] inline void call_leave(const call_frame &call, Outputs... outputs)
{
    if (trace_on()) [[unlikely]]
    {
        trace_response(call, {outputs...});
    }
    vpm_unlock(call.lock_token);
}

// ---- verbs --------------------------------------------------------------------------------------------------

// Clears the conversation's verb record and fills the header that every verb of a conversation has.
inline void start_verb(CCCB *cccb, u16 opcode)
{
    memset(&cccb->vcb, 0, CPIC_VERB_SIZE);
    VERB_HEADER &header = cccb->vcb.header;
    header.opcode = opcode;
    header.opext = static_cast<u8>(cccb->ulConversationType);
    memcpy(header.tp_id, cccb->TpId, CPIC_TP_ID_SIZE);
    header.conv_id = cccb->ulAppcConvId;
}

// Fills the pending-call record: what the completion routine needs to finish the call and to trace it. outputs: the
// caller's output arguments, pOut1 onward.
template <typename... Outputs>
[[gnu::always_inline]] inline void save_call(const call_frame &call, Outputs... outputs)
{
    void *const out[5] = {outputs...};
    CCCB *cccb = call.cccb;
    cccb->usTraceCallNo = call.number;
    cccb->pSavedConvId = cccb->SavedConvId;
    cccb->ulPendingRc = static_cast<u32>(*call.rc);
    cccb->pOut1 = out[0];
    cccb->pOut2 = out[1];
    cccb->pOut3 = out[2];
    cccb->pOut4 = out[3];
    cccb->pOut5 = out[4];
    memcpy(cccb->SavedConvId, call.conv_id, CPIC_CONV_ID_SIZE);
}

// Hands the verb in vcb to the node and completes it with `routine` when the node is done with it. processing_mode: 0
// waits for that, else the node may complete it later, by calling the routine. Returns the CPI-C return code. The CCCB
// may be gone afterwards.
CM_INT32 post_verb(CCCB *cccb, appc_completion *routine, u16 processing_mode);

// save_call() and post_verb(): how a call with a verb ends. The CCCB may be gone afterwards.
template <typename... Outputs>
[[gnu::always_inline]] inline void issue_verb(call_frame &call, appc_completion *routine, Outputs... outputs)
{
    save_call(call, outputs...);
    *call.rc = post_verb(call.cccb, routine, call.cccb->usProcessingMode);
}

// ---- completion routines ------------------------------------------------------------------------------------

// True for the primary return codes with which a conversation is over.
bool ends_conversation(u16 primary_rc);

// What every completion routine begins with: the return code of the verb becomes ulPendingRc, and a code that ends the
// conversation marks it. True when the verb succeeded.
inline bool complete_return_code(CCCB *cccb)
{
    const VERB_HEADER &header = cccb->vcb.header;
    if (header.primary_rc == 0) [[likely]]
    {
        cccb->ulPendingRc = CM_OK;
        return true;
    }
    SCC_map_return_codes(&cccb->ulPendingRc, header.primary_rc, header.secondary_rc, header.opcode);
    if (ends_conversation(header.primary_rc))
    {
        cccb->usConversationEnded = 1;
    }
    return false;
}

// What every completion routine ends with when the node called it: the counters, the waiters, the response trace
// record, and the freeing of a conversation that is over. The CCCB may be gone afterwards.
void complete_later(CCCB *cccb);

inline void complete(CCCB *cccb, u32 asynchronous)
{
    if (asynchronous != 0)
    {
        complete_later(cccb);
    }
}

// The completion routine of a verb that has no result but its return code.
inline void complete_plain(CCCB *cccb, u32 asynchronous)
{
    complete_return_code(cccb);
    complete(cccb, asynchronous);
}

// Frees the conversation when it is over and nothing of it is pending.
inline void free_when_over(CCCB *cccb)
{
    if (cccb->usConversationEnded == 1 && cccb->usVerbsPending == 0 && cccb->usCompletionPending == 0)
    {
        SCC_free_cccb(cccb);
    }
}

// Stores an integer result through one of the caller's outputs.
inline void store_output(void *output, u32 value)
{
    *static_cast<CM_INT32 *>(output) = static_cast<CM_INT32>(value);
}

#endif
