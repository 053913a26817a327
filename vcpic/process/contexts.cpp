// contexts.cpp - CMECTX gives a conversation's context, CMSCTX makes one current, CMTERM ends the current one.
#include "core/frame.hpp"

void cmectx(unsigned char *conversation_ID, unsigned char *context_ID, CM_CONTEXT_ID_LENGTH *context_ID_length,
            CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMECTX>(call, return_code, conversation_ID))
    {
        memcpy(context_ID, call.cccb->TpId, CPIC_TP_ID_SIZE);
        *context_ID_length = CPIC_TP_ID_SIZE;
    }
    call_leave(call, context_ID, context_ID_length);
}

static CM_INT32 set_context(const u8 *context, CM_INT32 length)
{
    if (length != CPIC_TP_ID_SIZE)
    {
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    if (memcmp(context, pGCB->CurrentTpId, CPIC_TP_ID_SIZE) == 0)
    {
        return CM_OK;
    }
    CCCB *cccb;
    if (!SCC_context_valid(context, &cccb) || cccb == nullptr)
    {
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    end_unused_context();
    memcpy(pGCB->CurrentTpId, context, CPIC_TP_ID_SIZE);
    memcpy(pGCB->ContextLUAlias, cccb->LocalLUName, CPIC_LU_ALIAS_SIZE);
    return CM_OK;
}

void cmsctx(unsigned char *context_ID, CM_CONTEXT_ID_LENGTH *context_ID_length, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSCTX>(call, return_code, nullptr, context_ID, context_ID_length))
    {
        *return_code = set_context(context_ID, *context_ID_length);
    }
    call_leave(call);
}

// Frees every conversation of a context, without a verb: the node has ended them with the context. One that another
// thread is inside of is freed by that thread, on its way out.
static void free_conversations_of_context(const u8 *context)
{
    const u32 table = pGCB->ConvTable;
    u32 tm_handle = vtm_get_next_used(table, NB_NULL_HANDLE);
    while (tm_handle != NB_NULL_HANDLE)
    {
        const u32 next = vtm_get_next_used(table, tm_handle);
        CCCB *cccb_ptr = static_cast<CCCB *>(vtm_get_pointer(table, tm_handle));
        if (cccb_ptr != nullptr)
        {
            CPIC_CHECK(cccb_ptr->CCCBhandle == tm_handle, "cccb_ptr->CCCBhandle == tm_handle");
            if (memcmp(cccb_ptr->TpId, context, CPIC_TP_ID_SIZE) == 0)
            {
                forget_completion(cccb_ptr, "pGCB->NumVerbsWaiting > 0");
                if (cccb_ptr->usCallsInside == 0)
                {
                    release_cccb(cccb_ptr);
                }
                else
                {
                    cccb_ptr->usConversationEnded = 1;
                    memset(cccb_ptr->TpId, 0, CPIC_TP_ID_SIZE); // its context needs no end any more
                }
            }
        }
        tm_handle = next;
    }
}

static CM_INT32 terminate(CM_INT32 type)
{
    if (static_cast<u32>(type) > CM_SOFT)
    {
        return CM_PARAMETER_ERROR;
    }
    if (all_zero(pGCB->CurrentTpId))
    {
        return CM_OK;
    }
    u8 context[CPIC_TP_ID_SIZE]; // another thread may change the current one while the node gives the lock up
    memcpy(context, pGCB->CurrentTpId, sizeof context);
    u16 primary;
    u32 secondary;
    SCC_context_ended(context, type == CM_HARD, &primary, &secondary);
    if (primary != 0)
    {
        u32 rc;
        SCC_map_return_codes(&rc, primary, secondary, NAP_TP_ENDED);
        return static_cast<CM_INT32>(rc);
    }
    free_conversations_of_context(context);
    if (memcmp(pGCB->CurrentTpId, context, sizeof context) == 0)
    {
        memset(pGCB->CurrentTpId, 0, CPIC_TP_ID_SIZE);
        memset(pGCB->ContextLUAlias, 0, CPIC_LU_ALIAS_SIZE);
    }
    return CM_OK;
}

void cmterm(CM_END_TYPE *end_type, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMTERM>(call, return_code, nullptr, end_type))
    {
        *return_code = terminate(*end_type);
    }
    call_leave(call);
}
