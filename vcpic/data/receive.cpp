// receive.cpp - CMRCV: data and status from the partner.
#include "data/data.hpp"

// What a RECEIVE verb reported, in CPI-C's terms.
struct received
{
    u32 data;   // data_received
    u32 status; // status_received
};

// Translates the what-received word: the high byte tells the data, the low byte the status. Incomplete data comes
// without a status.
static received translate(u16 what)
{
    const u32 data = what >> 8;
    const u32 status = what & 0xFF;
    if (data <= CM_COMPLETE_DATA_RECEIVED && status <= CM_CONFIRM_DEALLOC_RECEIVED)
    {
        return {data, status};
    }
    if (what == 0x0400)
    {
        return {CM_INCOMPLETE_DATA_RECEIVED, CM_NO_STATUS_RECEIVED};
    }
    CPIC_CHECK(false, "FALSE"); // no such data
    CPIC_CHECK(false, "FALSE"); // no such status
    return {CM_NO_DATA_RECEIVED, CM_NO_STATUS_RECEIVED};
}

static void receive(call_frame &call, u8 *buffer, CM_INT32 requested, CM_INT32 *data_received,
                    CM_INT32 *received_length, CM_INT32 *status_received, CM_INT32 *request_to_send_received)
{
    CCCB *cccb = call.cccb;
    if (!good_data_length(requested))
    {
        nba_pd_print_problem(0x20030007, 0, "l", static_cast<u32>(requested));
        *call.rc = CM_PROGRAM_PARAMETER_CHECK;
        return;
    }
    start_verb(cccb, cccb->ulReceiveType == CM_RECEIVE_AND_WAIT ? NAP_RECEIVE_AND_WAIT : NAP_RECEIVE_IMMEDIATE);
    VERB_RECEIVE &verb = cccb->vcb.receive;
    verb.status_with_data = 1;
    verb.fill = static_cast<u8>(cccb->ulFill ^ 1);
    verb.max_length = static_cast<u16>(requested);
    verb.buffer = buffer;
    issue_verb(call, cmrcv_cb, buffer, data_received, received_length, status_received, request_to_send_received);
}

void cmrcv(unsigned char *conversation_ID, unsigned char *buffer, CM_REQUESTED_LENGTH *requested_length,
           CM_DATA_RECEIVED_TYPE *data_received, CM_RECEIVED_LENGTH *received_length,
           CM_STATUS_RECEIVED *status_received, CM_REQUEST_TO_SEND_RECEIVED *request_to_send_received,
           CM_RETURN_CODE *return_code)
{
    call_frame call;
    const bool good = call_enter<CALL_CMRCV>(call, return_code, conversation_ID, requested_length);
    const CM_INT32 requested = *requested_length; // read first: a program may pass one variable for both lengths
    *received_length = 0;
    if (good)
    {
        receive(call, buffer, requested, data_received, received_length, status_received, request_to_send_received);
    }
    call_leave(call, buffer, data_received, received_length, status_received, request_to_send_received);
}

void cmrcv_cb(void *record, u32, u32, u32 asynchronous)
{
    CCCB *cccb = static_cast<CCCB *>(record);
    const VERB_RECEIVE &verb = cccb->vcb.receive;
    complete_return_code(cccb);

    const received what = translate(verb.what_received);
    if (what.status >= CM_CONFIRM_RECEIVED)
    {
        cccb->usConfirmPending = 1;
    }
    if (what.status == CM_CONFIRM_DEALLOC_RECEIVED)
    {
        cccb->usDeallocPending = 1;
    }
    store_output(cccb->pOut2, what.data);
    store_output(cccb->pOut3, verb.length);
    store_output(cccb->pOut4, what.status);
    store_output(cccb->pOut5, verb.rts_received);
    complete(cccb, asynchronous);
}
