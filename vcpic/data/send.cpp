// send.cpp - CMSEND and CMFLUS: data towards the partner.
#include "data/data.hpp"

// The send type byte of SEND_DATA. Prepare-to-receive with sync level and with confirm share byte 4, and so do the
// deallocations with byte 6: the node looks at the conversation's sync level itself.
static u8 send_type_byte(const CCCB *cccb)
{
    switch (cccb->ulSendType)
    {
        case CM_SEND_AND_PREP_TO_RECEIVE:
            return cccb->ulPrepareToReceiveType == CM_PREP_TO_RECEIVE_FLUSH ? 3 : 4;
        case CM_SEND_AND_DEALLOCATE:
        {
            const u32 type = cccb->ulDeallocateType;
            return static_cast<u8>(4 + (type == CM_DEALLOCATE_SYNC_LEVEL ? u32{CM_DEALLOCATE_CONFIRM} : type));
        }
        default:
            return static_cast<u8>(cccb->ulSendType);
    }
}

// An abnormal deallocation with log data cannot travel on SEND_DATA: the data goes first, buffered, and the completion
// routine chains a DEALLOCATE with the log data. That may be long after the call has returned, so the log data is
// copied now. False: no log data or no memory, logged, nothing is changed.
static bool copy_log_data(CCCB *cccb)
{
    const u16 length = cccb->usLogDataLen;
    u8 *copy = static_cast<u8 *>(nba_mm_alloc(length, MM_TYPE_RECORD, nba_blank_name));
    if (cccb->LogData == nullptr || copy == nullptr)
    {
        nba_pd_print_problem(0x2003000b, 16, "");
        if (copy != nullptr)
        {
            nba_mm_free(copy);
        }
        return false;
    }
    CPIC_CHECK(cccb->DeallcLogData == nullptr, "cccb_ptr->DeallcLogData == NULL");
    memcpy(copy, cccb->LogData, length);
    cccb->DeallcLogData = copy;
    cccb->DeallcLogDataLength = length;
    return true;
}

static void send_data(call_frame &call, u8 *buffer, CM_INT32 length, CM_INT32 *request_to_send_received)
{
    CCCB *cccb = call.cccb;
    if (!good_data_length(length))
    {
        nba_pd_print_problem(0x20030007, 1, "l", static_cast<u32>(length));
        *call.rc = CM_PROGRAM_PARAMETER_CHECK;
        return;
    }
    u8 type = send_type_byte(cccb);
    if (cccb->ulSendType == CM_SEND_AND_DEALLOCATE && cccb->ulDeallocateType == CM_DEALLOCATE_ABEND &&
        cccb->usLogDataLen != 0)
    {
        if (!copy_log_data(cccb))
        {
            *call.rc = CM_PRODUCT_SPECIFIC_ERROR;
            return;
        }
        type = 0; // the data is buffered only
    }
    start_verb(cccb, NAP_SEND_DATA);
    VERB_SEND_DATA &verb = cccb->vcb.send;
    verb.length = static_cast<u16>(length);
    verb.buffer = buffer;
    verb.type = type;
    issue_verb(call, cmsend_cb, request_to_send_received);
}

void cmsend(unsigned char *conversation_ID, unsigned char *buffer, CM_SEND_LENGTH *send_length,
            CM_REQUEST_TO_SEND_RECEIVED *request_to_send_received, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSEND>(call, return_code, conversation_ID, buffer, send_length))
    {
        send_data(call, buffer, *send_length, request_to_send_received);
    }
    call_leave(call, request_to_send_received);
}

void drop_parked_log(CCCB *cccb)
{
    if (cccb->DeallcLogDataLength == 0 && cccb->DeallcLogData != nullptr)
    {
        nba_mm_free(cccb->DeallcLogData);
        cccb->DeallcLogData = nullptr;
    }
}

void drop_deallocation_log(CCCB *cccb)
{
    if (cccb->DeallcLogDataLength != 0)
    {
        CPIC_CHECK(cccb->ulSendType == CM_SEND_AND_DEALLOCATE, "cccb_ptr->ulSendType == CM_SEND_AND_DEALLOCATE");
        CPIC_CHECK(cccb->ulDeallocateType == CM_DEALLOCATE_ABEND, "cccb_ptr->ulDeallocateType == CM_DEALLOCATE_ABEND");
        CPIC_CHECK(cccb->DeallcLogData != nullptr, "cccb_ptr->DeallcLogData != NULL");
        nba_mm_free(cccb->DeallcLogData);
        cccb->DeallcLogData = nullptr;
        cccb->DeallcLogDataLength = 0;
    }
}

// Chains the DEALLOCATE that carries the log data. False: the node completes it later, and its own completion finishes
// the call. The completion of the SEND_DATA is then not booked: its counts in usVerbsPending and
// ulAsyncVerbsOutstanding stay, so that the record outlives the completion of the deallocation. Deliberate: programs
// collect that completion with CMWAIT and find the conversation still known.
static bool chain_deallocate(CCCB *cccb)
{
    CPIC_CHECK(cccb->DeallcLogData != nullptr, "cccb_ptr->DeallcLogData != NULL");
    CPIC_CHECK(cccb->ulConversationType == CM_BASIC_CONVERSATION,
               "cccb_ptr->ulConversationType == CM_BASIC_CONVERSATION");
    store_output(cccb->pOut1, cccb->vcb.send.rts_received); // before the record is cleared
    start_verb(cccb, NAP_DEALLOCATE);
    VERB_DEALLOCATE &verb = cccb->vcb.dealloc;
    verb.header.opext = 0; // log data goes with basic conversations only
    verb.dealloc_type = 2;
    verb.log_length = cccb->DeallcLogDataLength;
    verb.log_data = cccb->DeallcLogData;
    if (post_verb(cccb, cmdeal_cb, cccb->usProcessingMode) == CM_OPERATION_INCOMPLETE)
    {
        cccb->ulPendingRc = CM_OPERATION_INCOMPLETE;
        return false;
    }
    return true;
}

void cmsend_cb(void *record, u32, u32, u32 asynchronous)
{
    CCCB *cccb = static_cast<CCCB *>(record);
    if (!complete_return_code(cccb))
    {
        drop_deallocation_log(cccb);
    }
    else if (cccb->ulSendType == CM_SEND_AND_DEALLOCATE)
    {
        if (cccb->DeallcLogDataLength != 0 && !chain_deallocate(cccb))
        {
            return;
        }
        cccb->usConversationEnded = 1;
    }
    else if (cccb->DeallcLogDataLength != 0)
    {
        cccb->DeallcLogDataLength = 0; // the program has changed the send type meanwhile: no chain
        drop_parked_log(cccb);
    }
    // After a chained DEALLOCATE this is that record's byte 24, written over what was stored before the chain.
    store_output(cccb->pOut1, cccb->vcb.send.rts_received);
    complete(cccb, asynchronous);
}

void cmflus(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMFLUS>(call, return_code, conversation_ID))
    {
        start_verb(call.cccb, NAP_FLUSH);
        issue_verb(call, cmflus_cb);
    }
    call_leave(call);
}

void cmflus_cb(void *record, u32, u32, u32 asynchronous)
{
    complete_plain(static_cast<CCCB *>(record), asynchronous);
}
