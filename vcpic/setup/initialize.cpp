// initialize.cpp - CMINIT and CMINIC: making a conversation, for a symbolic destination or for an incoming allocation.
#include "core/frame.hpp"
#include "sideinfo/entry.hpp"

// Chooses the local LU alias. The context's alias fills only an empty field, the environment's replaces any, one from
// side information too: operators move a program to another LU with APPCLLU without touching the node.
static void choose_local_lu(CCCB *cccb)
{
    memcpy(cccb->LocalLUName, cccb->SideInfo.SideInfoLUAlias, CPIC_LU_ALIAS_SIZE);
    if (!all_zero(pGCB->CurrentTpId) && all_zero(cccb->LocalLUName))
    {
        memcpy(cccb->LocalLUName, pGCB->ContextLUAlias, CPIC_LU_ALIAS_SIZE);
    }
    else if (!all_zero(pGCB->LUAlias))
    {
        memcpy(cccb->LocalLUName, pGCB->LUAlias, CPIC_LU_ALIAS_SIZE);
    }
}

// Fills a new conversation from the side information of its symbolic destination. The node may give the lock up while
// it is asked, and another thread that knows the new ID may end the conversation meanwhile: nothing of the record is
// touched until it has been found again. *cccb is null when it is gone. False: no such destination, or no
// conversation any more.
static bool fill_from_side_info(CCCB **cccb, const u8 *sym_dest_name)
{
    const u32 handle = (*cccb)->CCCBhandle;
    SIDE_INFO_ENTRY entry;
    memcpy(entry.SymDestName, sym_dest_name, CPIC_SYM_DEST_SIZE);
    bool found = SCD_main(SIDE_INFO_LOOKUP, &entry) == CM_OK;

    *cccb = static_cast<CCCB *>(vtm_get_pointer(pGCB->ConvTable, handle));
    found = found && *cccb != nullptr;
    if (found)
    {
        (*cccb)->SideInfo = entry;
    }
    explicit_bzero(&entry, sizeof entry); // it may hold a password
    return found;
}

// The rules of CMINIT, once the library is started.
static CM_INT32 initialize(u8 *conv_id, const u8 *sym_dest_name)
{
    CCCB *cccb;
    if (!SCC_cccb_init(conv_id, &cccb))
    {
        return CM_PRODUCT_SPECIFIC_ERROR;
    }
    cccb->usInitialized = 1;
    memcpy(cccb->SideInfo.SymDestName, sym_dest_name, CPIC_SYM_DEST_SIZE);

    // Only the first byte tells whether there is a symbolic destination. Every failure of the look-up, the node's own
    // included, is a wrong name to the program.
    if (sym_dest_name[0] != ASCII_BLANK && !fill_from_side_info(&cccb, sym_dest_name))
    {
        if (audit_on())
        {
            nba_pd_print_audit(0x20030006, 0, "ca", sym_dest_name, CPIC_SYM_DEST_SIZE);
        }
        if (cccb != nullptr)
        {
            SCC_free_cccb(cccb); // the ID stays with the caller; it finds nothing
        }
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    choose_local_lu(cccb);
    return CM_OK;
}

void cminit(unsigned char *conversation_ID, unsigned char *sym_dest_name, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMINIT>(call, return_code, conversation_ID, sym_dest_name))
    {
        *return_code = ensure_started() ? initialize(conversation_ID, sym_dest_name) : CM_PRODUCT_SPECIFIC_ERROR;
    }
    call_leave(call, conversation_ID);
}

u32 SCC_inbound_get_cccb(CCCB **cccb, u8 *conv_id)
{
    *cccb = nullptr;
    if (!ensure_started() || !SCC_cccb_init(conv_id, cccb))
    {
        return CM_PRODUCT_SPECIFIC_ERROR;
    }
    return CM_OK;
}

void cminic(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMINIC>(call, return_code, conversation_ID))
    {
        CCCB *cccb;
        *return_code = static_cast<CM_INT32>(SCC_inbound_get_cccb(&cccb, conversation_ID));
    }
    call_leave(call, conversation_ID);
}
