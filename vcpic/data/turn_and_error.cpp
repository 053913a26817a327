// turn_and_error.cpp - CMPTR gives the turn, CMRTS asks for it, CMTRTS looks whether the partner did, CMSERR reports an
// error.
#include "data/data.hpp"

void cmptr(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMPTR>(call, return_code, conversation_ID))
    {
        start_verb(call.cccb, NAP_PREPARE_TO_RECEIVE);
        // Confirm and sync level share byte 0: the node looks at the conversation's sync level itself.
        call.cccb->vcb.prepare.ptr_type = static_cast<u8>(call.cccb->ulPrepareToReceiveType & 1);
        issue_verb(call, cmptr_cb);
    }
    call_leave(call);
}

void cmptr_cb(void *record, u32, u32, u32 asynchronous)
{
    complete_plain(static_cast<CCCB *>(record), asynchronous);
}

void cmrts(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMRTS>(call, return_code, conversation_ID))
    {
        start_verb(call.cccb, NAP_REQUEST_TO_SEND);
        issue_verb(call, cmrts_cb);
    }
    call_leave(call);
}

void cmrts_cb(void *record, u32, u32, u32 asynchronous)
{
    complete_plain(static_cast<CCCB *>(record), asynchronous);
}

static void send_error(call_frame &call, CM_INT32 *request_to_send_received)
{
    CCCB *cccb = call.cccb;
    start_verb(cccb, NAP_SEND_ERROR);
    VERB_SEND_ERROR &verb = cccb->vcb.send_error;
    verb.err_dir = cccb->ulErrorDirection == CM_SEND_ERROR;
    if (cccb->ulConversationType == CM_BASIC_CONVERSATION && cccb->usLogDataLen != 0)
    {
        if (cccb->LogData == nullptr)
        {
            nba_pd_print_problem(0x20030012, 2, "");
            *call.rc = CM_PRODUCT_SPECIFIC_ERROR;
            return;
        }
        verb.log_length = cccb->usLogDataLen;
        verb.log_data = cccb->LogData; // not copied: it stays with the conversation until the verb succeeds
    }
    issue_verb(call, cmserr_cb, request_to_send_received);
}

void cmserr(unsigned char *conversation_ID, CM_REQUEST_TO_SEND_RECEIVED *request_to_send_received,
            CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSERR>(call, return_code, conversation_ID))
    {
        send_error(call, request_to_send_received);
    }
    call_leave(call, request_to_send_received);
}

void cmserr_cb(void *record, u32, u32, u32 asynchronous)
{
    CCCB *cccb = static_cast<CCCB *>(record);
    drop_parked_log(cccb);
    if (complete_return_code(cccb))
    {
        cccb->usConfirmPending = 0; // an error is also the negative answer
        cccb->usDeallocPending = 0;
        cccb->usLogDataLen = 0; // log data is sent at most once
        if (cccb->LogData != nullptr)
        {
            nba_mm_free(cccb->LogData);
            cccb->LogData = nullptr;
        }
    }
    store_output(cccb->pOut1, cccb->vcb.send_error.rts_received);
    complete(cccb, asynchronous);
}

void cmtrts(unsigned char *conversation_ID, CM_REQUEST_TO_SEND_RECEIVED *request_to_send_received,
            CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMTRTS>(call, return_code, conversation_ID))
    {
        CCCB *cccb = call.cccb;
        if (cccb->usConfirmPending != 0)
        {
            *return_code = CM_PROGRAM_STATE_CHECK; // a confirmation is owed first
        }
        else
        {
            // Always done at once, and the return code stays CM_OK even if the node refuses. Deliberate: programs that
            // poll with this call are not stopped by it.
            start_verb(cccb, NAP_TEST_RTS);
            save_call(call, request_to_send_received);
            appc_c_async_version(NAP_VERSION, &cccb->vcb, nullptr, 0);
            cmtrts_cb(cccb, 0, 0, 0);
        }
    }
    call_leave(call, request_to_send_received);
}

void cmtrts_cb(void *record, u32, u32, u32)
{
    static const u16 no_request = 0x1400; // unsuccessful: there is no request to send
    CCCB *cccb = static_cast<CCCB *>(record);
    const u16 primary = cccb->vcb.header.primary_rc;
    if (primary == no_request)
    {
        store_output(cccb->pOut1, CM_REQ_TO_SEND_NOT_RECEIVED);
        cccb->ulPendingRc = CM_OK;
    }
    else if (complete_return_code(cccb))
    {
        store_output(cccb->pOut1, CM_REQ_TO_SEND_RECEIVED);
    }
}
