// deallocate.cpp - CMDEAL, and the completion of every DEALLOCATE, the one that CMSEND chains included.
#include "data/data.hpp"

// The deallocation type byte. Confirm and sync level share byte 0: the node looks at the conversation's sync level
// itself. An abnormal end has a byte of its own for each conversation type; only the basic one carries log data.
static u8 deallocation_type_byte(const CCCB *cccb)
{
    if (cccb->ulDeallocateType == CM_DEALLOCATE_ABEND)
    {
        return cccb->ulConversationType == CM_BASIC_CONVERSATION ? 2 : 5;
    }
    return static_cast<u8>(cccb->ulDeallocateType & 1);
}

// A conversation that was never allocated can be discarded, but only by an abnormal deallocation: no verb is needed.
static CM_INT32 discard(CCCB *cccb)
{
    if (cccb->usInitialized == 0 || cccb->ulDeallocateType != CM_DEALLOCATE_ABEND)
    {
        return CM_PROGRAM_STATE_CHECK;
    }
    cccb->usConversationEnded = 1;
    if (cccb->usCompletionPending == 0)
    {
        SCC_free_cccb(cccb);
    }
    return CM_OK;
}

static void deallocate(call_frame &call)
{
    CCCB *cccb = call.cccb;
    start_verb(cccb, NAP_DEALLOCATE);
    VERB_DEALLOCATE &verb = cccb->vcb.dealloc;
    verb.dealloc_type = deallocation_type_byte(cccb);
    if (cccb->ulConversationType == CM_BASIC_CONVERSATION && cccb->ulDeallocateType == CM_DEALLOCATE_ABEND &&
        cccb->usLogDataLen != 0)
    {
        if (cccb->LogData == nullptr)
        {
            nba_pd_print_problem(0x20030012, 1, "");
            *call.rc = CM_PRODUCT_SPECIFIC_ERROR;
            return;
        }
        verb.log_length = cccb->usLogDataLen;
        verb.log_data = cccb->LogData;
    }
    issue_verb(call, cmdeal_cb);
}

void cmdeal(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMDEAL>(call, return_code, conversation_ID))
    {
        if (call.cccb->ulAppcConvId == 0)
        {
            *return_code = discard(call.cccb);
        }
        else
        {
            deallocate(call);
        }
    }
    call_leave(call);
}

void cmdeal_cb(void *record, u32, u32, u32 asynchronous)
{
    CCCB *cccb = static_cast<CCCB *>(record);
    const VERB_HEADER &verb = cccb->vcb.header;
    drop_parked_log(cccb);
    if (verb.primary_rc != 0)
    {
        complete_return_code(cccb);
        drop_deallocation_log(cccb);
    }
    else
    {
        if (audit_on())
        {
            nba_pd_print_audit(0x20030003, 0, "ba ca", cccb->SavedConvId, CPIC_CONV_ID_SIZE,
                               cccb->SideInfo.SideInfoLUAlias, CPIC_LU_ALIAS_SIZE);
        }
        if (asynchronous == 0 && cccb->DeallcLogDataLength != 0)
        {
            return; // chained by CMSEND, which marks the end itself and keeps its own return code
        }
        cccb->usConversationEnded = 1;
        cccb->ulPendingRc = CM_OK;
    }
    complete(cccb, asynchronous);
}
