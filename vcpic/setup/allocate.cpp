// allocate.cpp - CMALLC: from Initialize state to a conversation with the partner, under the current context or under a
// TP started for it.
#include "core/frame.hpp"

// The TP under which a conversation is to be allocated.
struct chosen_tp
{
    bool started;       // this call started it
    u8 old_tp_id[8];    // what the conversation had before
    u8 old_lu_alias[8];
};

// Starts a TP at the node for the conversation. CM_OK, or the return code with which the node refused it.
static u32 start_tp(CCCB *cccb)
{
    // While a verb is pending its record belongs to the node, and the start gets one of its own.
    VERB_RECORD spare;
    VERB_RECORD *record = cccb->usVerbsPending == 0 ? &cccb->vcb : &spare;
    memset(record, 0, CPIC_VERB_SIZE);
    VERB_TP_STARTED &verb = record->tp_started;
    verb.opcode = NAP_TP_STARTED;
    memcpy(verb.lu_alias, cccb->LocalLUName, CPIC_LU_ALIAS_SIZE);
    memcpy(verb.tp_name, pGCB->TPName, CPIC_TP_NAME_SIZE);

    ++cccb->usVerbsPending;
    enter_record(cccb);
    appc_c_async_version(NAP_VERSION, record, nullptr, 0);
    leave_record(cccb);
    --cccb->usVerbsPending;

    if (verb.primary_rc != 0)
    {
        u32 rc;
        SCC_map_return_codes(&rc, verb.primary_rc, verb.secondary_rc, verb.opcode);
        return rc;
    }
    if (audit_on())
    {
        nba_pd_print_audit(0x20030000, 0, "ba", verb.tp_id, CPIC_TP_ID_SIZE);
    }
    memcpy(cccb->TpId, verb.tp_id, CPIC_TP_ID_SIZE);
    memcpy(cccb->LocalLUName, verb.lu_alias, CPIC_LU_ALIAS_SIZE);
    return CM_OK;
}

// Gives the conversation its TP: the current context when that is on the same local LU, else a new one.
static u32 choose_tp(CCCB *cccb, chosen_tp *tp)
{
    tp->started = false;
    memcpy(tp->old_tp_id, cccb->TpId, sizeof tp->old_tp_id);
    memcpy(tp->old_lu_alias, cccb->LocalLUName, sizeof tp->old_lu_alias);
    if (!all_zero(pGCB->CurrentTpId) && memcmp(pGCB->ContextLUAlias, cccb->LocalLUName, CPIC_LU_ALIAS_SIZE) == 0)
    {
        memcpy(cccb->TpId, pGCB->CurrentTpId, CPIC_TP_ID_SIZE);
        return CM_OK;
    }
    const u32 rc = start_tp(cccb);
    tp->started = rc == CM_OK;
    return rc;
}

// A call that must not allocate after all: the TP it started is ended, and the conversation keeps what it had, so that
// one which is allocated already goes on under its own TP.
static void undo_tp(CCCB *cccb, const chosen_tp &tp)
{
    if (tp.started)
    {
        SCC_context_ended(cccb->TpId, 1, nullptr, nullptr);
    }
    memcpy(cccb->TpId, tp.old_tp_id, sizeof tp.old_tp_id);
    memcpy(cccb->LocalLUName, tp.old_lu_alias, sizeof tp.old_lu_alias);
}

static void fill_allocate(CCCB *cccb)
{
    start_verb(cccb, NAP_M_ALLOCATE); // basic or mapped: one opcode, the operation extension tells
    VERB_ALLOCATE &verb = cccb->vcb.alloc;
    const SIDE_INFO_ENTRY &to = cccb->SideInfo;
    verb.header.allocating = 1;
    verb.sync_level = static_cast<u8>(cccb->ulSyncLevel);
    verb.return_control = static_cast<u8>(cccb->ulReturnControl);
    if (to.usPartnerLUQualified != 0)
    {
        memcpy(verb.fqplu_name, to.PartnerLUName, CPIC_PLU_NAME_SIZE); // the alias stays zero
    }
    else
    {
        memcpy(verb.plu_alias, to.PartnerLUName, CPIC_LU_ALIAS_SIZE);
    }
    memcpy(verb.mode_name, to.ModeName, CPIC_MODE_NAME_SIZE);
    memcpy(verb.tp_name, to.TPName, CPIC_TP_NAME_SIZE);
    verb.security = static_cast<u8>(to.ulSecurityType);
    if (to.ulSecurityType != CM_SECURITY_SAME)
    {
        memcpy(verb.password, to.SecurityPassword, CPIC_USER_ID_SIZE);
    }
    memcpy(verb.user_id, to.SecurityUserId, CPIC_USER_ID_SIZE);
}

void cmallc(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMALLC>(call, return_code, conversation_ID))
    {
        CCCB *cccb = call.cccb;
        chosen_tp tp;
        *return_code = static_cast<CM_INT32>(choose_tp(cccb, &tp));
        if (*return_code != CM_OK)
        {
            if (cccb->usVerbsPending == 0) // a verb that is pending still needs the record
            {
                SCC_free_cccb(cccb);
            }
        }
        else if (cccb->usConversationEnded != 0 && cccb->usVerbsPending == 0)
        {
            *return_code = CM_PRODUCT_SPECIFIC_ERROR; // cancelled by another thread while the TP was started
            undo_tp(cccb, tp);
            free_when_over(cccb);
        }
        else if (cccb->usVerbsPending != 0)
        {
            *return_code = CM_OPERATION_NOT_ACCEPTED;
            undo_tp(cccb, tp);
        }
        else if (!in_initialize_state(cccb))
        {
            *return_code = CM_PROGRAM_STATE_CHECK;
            undo_tp(cccb, tp);
        }
        else
        {
            fill_allocate(cccb);
            cccb->usAllocContextFlag = tp.started;
            issue_verb(call, cmallc_cb);
        }
    }
    call_leave(call);
}

// Cancelled while the allocation was outstanding, and now it has come true: the new conversation is ended at the node.
static void cancel_allocated(CCCB *cccb, u32 conv_id)
{
    VERB_RECORD verb = {};
    verb.header.opcode = NAP_CANCEL_CONVERSATION;
    verb.header.opext = static_cast<u8>(cccb->ulConversationType);
    memcpy(verb.header.tp_id, cccb->TpId, CPIC_TP_ID_SIZE);
    verb.header.conv_id = conv_id;
    appc_c_version(NAP_VERSION, &verb);
}

void cmallc_cb(void *record, u32, u32, u32 asynchronous)
{
    CCCB *cccb = static_cast<CCCB *>(record);
    const VERB_HEADER &verb = cccb->vcb.header;
    if (!complete_return_code(cccb))
    {
        if (cccb->usCancelPending != 0)
        {
            cccb->usConversationEnded = 1;
        }
        const u32 rc = cccb->ulPendingRc;
        const bool may_be_tried_again = rc == CM_PARAMETER_ERROR || rc == CM_PROGRAM_PARAMETER_CHECK ||
                                        rc == CM_UNSUCCESSFUL || rc == CM_OPERATION_INCOMPLETE;
        if (cccb->usAllocContextFlag != 0 && may_be_tried_again)
        {
            SCC_context_ended(cccb->TpId, 1, nullptr, nullptr); // the next try starts its own
        }
    }
    else
    {
        if (audit_on())
        {
            nba_pd_print_audit(0x20030002, 0, "ba ca", cccb->SavedConvId, CPIC_CONV_ID_SIZE,
                               cccb->SideInfo.SideInfoLUAlias, CPIC_LU_ALIAS_SIZE);
        }
        if (cccb->usCancelPending != 0)
        {
            cancel_allocated(cccb, verb.conv_id);
            cccb->usConversationEnded = 1;
            cccb->ulPendingRc = CM_PRODUCT_SPECIFIC_ERROR;
            nba_pd_print_problem(0x20030011, 1, "");
        }
        else
        {
            cccb->ulAppcConvId = verb.conv_id;
        }
    }
    cccb->usCancelPending = 0;
    cccb->usAllocContextFlag = 0;
    complete(cccb, asynchronous);
}
