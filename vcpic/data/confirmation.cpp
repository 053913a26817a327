// confirmation.cpp - CMCFM asks the partner for confirmation and waits for the answer; CMCFMD answers.
#include "core/frame.hpp"

void cmcfm(unsigned char *conversation_ID, CM_REQUEST_TO_SEND_RECEIVED *request_to_send_received,
           CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMCFM>(call, return_code, conversation_ID))
    {
        start_verb(call.cccb, NAP_CONFIRM);
        issue_verb(call, cmcfm_cb, request_to_send_received);
    }
    call_leave(call, request_to_send_received);
}

void cmcfm_cb(void *record, u32, u32, u32 asynchronous)
{
    CCCB *cccb = static_cast<CCCB *>(record);
    complete_return_code(cccb);
    store_output(cccb->pOut1, cccb->vcb.confirm.rts_received); // also after a refusal
    complete(cccb, asynchronous);
}

void cmcfmd(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMCFMD>(call, return_code, conversation_ID))
    {
        start_verb(call.cccb, NAP_CONFIRMED);
        issue_verb(call, cmcfmd_cb);
    }
    call_leave(call);
}

void cmcfmd_cb(void *record, u32, u32, u32 asynchronous)
{
    CCCB *cccb = static_cast<CCCB *>(record);
    if (complete_return_code(cccb))
    {
        cccb->usConfirmPending = 0;
        if (cccb->usDeallocPending != 0)
        {
            cccb->usConversationEnded = 1; // what was confirmed is the partner's deallocation
        }
    }
    complete(cccb, asynchronous);
}
