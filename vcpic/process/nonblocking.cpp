// nonblocking.cpp - CMSPM switches a conversation to non-blocking processing, CMWAIT and CMCHCK look for completions,
// CMCANC cancels. Only CMWAIT and CMCANC sleep; vpm_sleep() gives the lock up meanwhile, so that completion routines
// can run.
#include "core/frame.hpp"

void cmspm(unsigned char *conversation_ID, CM_PROCESSING_MODE *processing_mode, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSPM>(call, return_code, conversation_ID, processing_mode))
    {
        if (*processing_mode == CM_BLOCKING || *processing_mode == CM_NON_BLOCKING)
        {
            call.cccb->usProcessingMode = static_cast<u16>(*processing_mode);
        }
        else
        {
            *return_code = CM_PROGRAM_PARAMETER_CHECK;
        }
    }
    call_leave(call);
}

// The first conversation in table order with a completion to be collected; null: there is none.
static CCCB *first_completed()
{
    const u32 table = pGCB->ConvTable;
    for (u32 tm_handle = vtm_get_next_used(table, NB_NULL_HANDLE); tm_handle != NB_NULL_HANDLE;
         tm_handle = vtm_get_next_used(table, tm_handle))
    {
        CCCB *cccb_ptr = static_cast<CCCB *>(vtm_get_pointer(table, tm_handle));
        CPIC_CHECK(cccb_ptr != nullptr, "cccb_ptr != NULL");
        if (cccb_ptr != nullptr && cccb_ptr->usCompletionPending == 1)
        {
            return cccb_ptr;
        }
    }
    return nullptr;
}

static CM_INT32 collect(u8 *conv_id, CM_INT32 *conversation_return_code)
{
    int failed_sleeps = 0;
    while (pGCB->NumVerbsWaiting == 0)
    {
        // Nothing is done, and nothing is under way. Nor can anything be waited for when a sleep without limit fails
        // twice running: the path to the node is lost.
        if (pGCB->ulAsyncVerbsOutstanding == 0 || failed_sleeps == 2)
        {
            return CM_PROGRAM_STATE_CHECK;
        }
        failed_sleeps = vpm_sleep(pGCB->WaitObject, -1) == 0 ? 0 : failed_sleeps + 1;
    }
    CCCB *cccb = first_completed();
    CPIC_CHECK(cccb != nullptr, "tm_handle != NB_NULL_HANDLE");
    if (cccb == nullptr)
    {
        return CM_PROGRAM_STATE_CHECK; // the path to the node failed before its completions were collected
    }
    memcpy(conv_id, cccb->pSavedConvId, CPIC_CONV_ID_SIZE);
    *conversation_return_code = static_cast<CM_INT32>(cccb->ulPendingRc);
    --pGCB->NumVerbsWaiting;
    cccb->usCompletionPending = 0;
    free_when_over(cccb);
    return CM_OK;
}

void cmwait(unsigned char *conversation_ID, CM_CONVERSATION_RETURN_CODE *conversation_return_code,
            CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMWAIT>(call, return_code, conversation_ID))
    {
        *return_code = collect(conversation_ID, conversation_return_code);
    }
    call_leave(call, conversation_ID, conversation_return_code);
}

static CM_INT32 check(u8 *conv_id)
{
    if (pGCB->NumVerbsWaiting == 0)
    {
        return pGCB->ulAsyncVerbsOutstanding != 0 ? CM_UNSUCCESSFUL : CM_PROGRAM_STATE_CHECK;
    }
    const CCCB *cccb = first_completed();
    if (cccb == nullptr)
    {
        CPIC_CHECK(false, "FALSE");
        return CM_UNSUCCESSFUL;
    }
    memcpy(conv_id, cccb->pSavedConvId, CPIC_CONV_ID_SIZE); // not collected: CMWAIT gives the same one
    return CM_OK;
}

void cmchck(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    vpm_asm_event_fd(); // before the lock: completion routines that are due run first
    call_frame call;
    if (call_enter<CALL_CMCHCK>(call, return_code, conversation_ID))
    {
        *return_code = check(conversation_ID);
    }
    call_leave(call, conversation_ID);
}

// ---- cancel -------------------------------------------------------------------------------------------------

// True when there is nothing at the node that a cancel could name.
static bool unknown_to_node(const CCCB *cccb)
{
    const u16 opcode = cccb->vcb.opcode;
    return cccb->ulAppcConvId == 0 && (cccb->usInitialized == 1 || cccb->usVerbsPending == 0) &&
           opcode != NAP_TP_STARTED && opcode != NAP_M_ALLOCATE;
}

// Names the conversation in the CANCEL_CONVERSATION record, by what the node knows of it so far. verb_pending: one was
// pending when the cancel came.
static void name_conversation(VERB_HEADER *verb, const CCCB *cccb_ptr, const u8 *conv_id, bool verb_pending)
{
    if (cccb_ptr->ulAppcConvId != 0)
    {
        memcpy(verb->tp_id, cccb_ptr->TpId, CPIC_TP_ID_SIZE);
        verb->conv_id = cccb_ptr->ulAppcConvId;
    }
    else if (cccb_ptr->usInitialized == 0 && verb_pending)
    {
        CPIC_CHECK(cccb_ptr->vcb.opcode == NAP_RECEIVE_ALLOCATE_CPIC,
                   "cccb_ptr->vcb.rcvallcp.rcv_alloc.opcode == NAP_RECEIVE_ALLOCATE_CPIC");
        memcpy(&verb->conv_id, conv_id, sizeof verb->conv_id);
    }
    else if (cccb_ptr->vcb.opcode != NAP_TP_STARTED)
    {
        CPIC_CHECK(cccb_ptr->vcb.opcode == NAP_M_ALLOCATE, "cccb_ptr->vcb.mcalloc.opcode == NAP_M_ALLOCATE");
        memcpy(verb->tp_id, cccb_ptr->TpId, CPIC_TP_ID_SIZE);
    }
}

void cmcanc_cb(void *, u32, u32, u32 wait_object)
{
    vpm_wakeup(wait_object);
}

static CM_INT32 cancel(CCCB *cccb_ptr, const u8 *conv_id)
{
    if (unknown_to_node(cccb_ptr))
    {
        if (cccb_ptr->usVerbsPending != 0)
        {
            CPIC_CHECK(cccb_ptr->vcb.alloc.header.opcode == NAP_B_ALLOCATE,
                       "cccb_ptr->vcb.alloc.opcode == NAP_B_ALLOCATE");
            cccb_ptr->usCancelPending = 1;
        }
        else
        {
            SCC_free_cccb(cccb_ptr);
        }
        return CM_OK;
    }

    VERB_RECORD verb = {};
    verb.opcode = NAP_CANCEL_CONVERSATION;
    verb.header.opext = static_cast<u8>(cccb_ptr->ulConversationType);
    name_conversation(&verb.header, cccb_ptr, conv_id, cccb_ptr->usVerbsPending != 0);
    ++cccb_ptr->usVerbsPending;
    cccb_ptr->usConversationEnded = 1;
    const u32 wait_object = vpm_allocate_wait_object();
    if (wait_object == 0)
    {
        nba_pd_print_problem(0x2003000b, 18, "");
        return CM_PRODUCT_SPECIFIC_ERROR; // the count deliberately stays: nobody may use the conversation any more
    }
    // Waits for its own verb in every processing mode. A sleep without limit fails only when the path is lost; the
    // object is then left to the node, which may still wake it.
    enter_record(cccb_ptr);
    if (appc_c_async_version(NAP_VERSION, &verb, cmcanc_cb, wait_object) != NAP_IN_PROGRESS ||
        vpm_sleep(wait_object, -1) == 0)
    {
        vpm_release_wait_object(wait_object);
    }
    leave_record(cccb_ptr);
    u32 rc = CM_OK;
    if (verb.header.primary_rc != 0)
    {
        SCC_map_return_codes(&rc, verb.header.primary_rc, verb.header.secondary_rc, verb.opcode);
    }
    --cccb_ptr->usVerbsPending;
    cccb_ptr->usConversationEnded = 1;
    free_when_over(cccb_ptr);
    return static_cast<CM_INT32>(rc);
}

void cmcanc(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMCANC>(call, return_code, conversation_ID))
    {
        *return_code = cancel(call.cccb, conversation_ID);
    }
    call_leave(call);
}
