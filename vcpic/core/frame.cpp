// frame.cpp - the frame of every call, away from its fast path, and the handing over and completion of verbs. Runs
// with the lock held.
#include "core/frame.hpp"

CM_INT32 conversation_not_found(const u8 *conv_id, int detail)
{
    static const u8 no_id[CPIC_CONV_ID_SIZE] = {};
    if (detail != NO_DETAIL)
    {
        nba_pd_print_problem(0x20030005, static_cast<u32>(detail), "ba", conv_id != nullptr ? conv_id : no_id,
                             CPIC_CONV_ID_SIZE);
    }
    return CM_PROGRAM_PARAMETER_CHECK;
}

// What a call number needs, for the trace: rows by number.
struct needs_by_number
{
    u8 needs[call_count];
};

static consteval needs_by_number collect_needs()
{
    needs_by_number all = {};
#define CPIC_CALL(number, lower, UPPER, arguments, needs_, detail) all.needs[number] = needs_;
#include "core/calls.def"
#undef CPIC_CALL
    return all;
}

static constexpr needs_by_number calls = collect_needs();

// The CCCB that a trace record carries: looked up, since it may not be found yet, or be gone by now.
static const CCCB *traced_cccb(const call_frame &call)
{
    return (calls.needs[call.number] & TRACE_NO_CCCB) != 0 ? nullptr : find_cccb(call.conv_id);
}

void trace_request(const call_frame &call, const void *const (&in)[5])
{
    if (trc_api.initialised == 0)
    {
        trace_prepare();
    }
    if (trace_on())
    {
        // Where the ID is an output there is no conversation yet, and nothing to read in it.
        const CCCB *cccb = (calls.needs[call.number] & NEED_RECORD) != 0 ? traced_cccb(call) : nullptr;
        seputrcp(TRACE_REQUEST, call.number, cccb, in[0], in[1], in[2], in[3], in[4], nullptr);
    }
}

void trace_response(const call_frame &call, const void *const (&out)[5])
{
    if (trace_on())
    {
        seputrcp(TRACE_RESPONSE, call.number, traced_cccb(call), call.rc, out[0], out[1], out[2], out[3], out[4]);
    }
}

CM_INT32 post_verb(CCCB *cccb, appc_completion *routine, u16 processing_mode)
{
    ++cccb->usVerbsPending;
    forget_completion(cccb, "(pGCB)->NumVerbsWaiting > 0"); // one that was not collected

    appc_completion *later = processing_mode != 0 ? routine : nullptr;
    enter_record(cccb);
    const u16 result = appc_c_async_version(NAP_VERSION, &cccb->vcb, later, 1);
    leave_record(cccb);
    if (result == NAP_IN_PROGRESS)
    {
        ++pGCB->ulAsyncVerbsOutstanding;
        return CM_OPERATION_INCOMPLETE;
    }
    routine(cccb, 0, 0, 0);
    CM_INT32 rc = static_cast<CM_INT32>(cccb->ulPendingRc);
    --cccb->usVerbsPending;
    free_when_over(cccb);
    return rc;
}

bool ends_conversation(u16 primary_rc)
{
    switch (primary_rc)
    {
        case 0x0300: // allocation error
        case 0x0500: // deallocated abnormally
        case 0x0600: // deallocated abnormally by the program
        case 0x0700: // deallocated abnormally by a service TP
        case 0x0800: // deallocated abnormally by a timer
        case 0x0900: // deallocated normally
        case 0x0F00: // conversation failure, retry
        case 0x1000: // conversation failure, no retry
        case 0x2100: // cancelled
            return true;
        default:
            return false;
    }
}

void complete_later(CCCB *cccb)
{
    --pGCB->ulAsyncVerbsOutstanding;
    if (cccb->usCompletionPending == 0)
    {
        cccb->usCompletionPending = 1;
        ++pGCB->NumVerbsWaiting;
    }
    --cccb->usVerbsPending;
    vpm_wakeup(pGCB->WaitObject);
    if (trace_on())
    {
        CM_INT32 rc = static_cast<CM_INT32>(cccb->ulPendingRc);
        const call_frame call = {
            .cccb = cccb,
            .conv_id = cccb->pSavedConvId,
            .rc = &rc,
            .number = cccb->usTraceCallNo,
            .lock_token = 0,
        };
        trace_response(call, {cccb->pOut1, cccb->pOut2, cccb->pOut3, cccb->pOut4, cccb->pOut5});
    }
    free_when_over(cccb);
}
