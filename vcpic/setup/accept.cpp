// accept.cpp - CMACCP and CMACCI: waiting for the next conversation that a partner allocates to one of the process's
// local TP names.
#include "core/frame.hpp"
#include "setup/local_tp_names.hpp"

// Registers the process's own TP name as a local one, once: a name from APPCTPN always, the default name only while
// the program has given none. CM_OK, or CM_PRODUCT_SPECIFIC_ERROR.
static u32 register_own_name()
{
    if (pGCB->usLocTPNameFlag != 0 || (pGCB->usTPNameFromEnv == 0 && pGCB->NumLocTPNames != 0))
    {
        return CM_OK;
    }
    if (find_local_tp_name(pGCB->TPName, pGCB->usTPNameLen) != NB_NULL_HANDLE)
    {
        pGCB->usLocTPNameFlag = 1;
        return CM_OK;
    }
    const u32 rc =
        add_local_tp_name(pGCB->TPName, pGCB->usTPNameLen, {.no_memory = 0, .table_full = 15, .refused = 1});
    pGCB->usLocTPNameFlag = rc == CM_OK; // refused: another thread may have found the name meanwhile and set it
    return rc;
}

// The list of every local TP name, NumLocTPNames of 64 bytes; the caller frees it. Null: no memory, logged.
static u8 *make_name_list()
{
    const u32 wanted = pGCB->NumLocTPNames;
    u8 *list = nullptr;
    if (wanted <= 0xFFFFFFFFu / CPIC_TP_NAME_SIZE) // an overlong service TP name can have made the count anything
    {
        list = static_cast<u8 *>(nba_mm_alloc(wanted * CPIC_TP_NAME_SIZE, MM_TYPE_RECORD, nba_blank_name));
    }
    if (list == nullptr)
    {
        nba_pd_print_problem(0x2003000b, 10, "");
        return nullptr;
    }
    u32 handle_count = 0;
    const u32 table = pGCB->LocTPNameTable;
    for (u32 handle = vtm_get_next_used(table, NB_NULL_HANDLE); handle != NB_NULL_HANDLE;
         handle = vtm_get_next_used(table, handle))
    {
        const LOC_TP_NAME *record = static_cast<const LOC_TP_NAME *>(vtm_get_pointer(table, handle));
        if (handle_count < wanted && record != nullptr)
        {
            memcpy(list + handle_count * CPIC_TP_NAME_SIZE, record->Name, CPIC_TP_NAME_SIZE);
        }
        ++handle_count;
    }
    CPIC_CHECK(handle_count == wanted, "handle_count == pGCB->NumLocTPNames");
    for (u32 i = handle_count; i < wanted; ++i)
    {
        memset(list + i * CPIC_TP_NAME_SIZE, EBCDIC_BLANK, CPIC_TP_NAME_SIZE); // names that the count promised
    }
    return list;
}

// Steps of an accept up to the verb: the names, and the verb filled in. CM_OK, or the return code of the call.
static u32 prepare_accept(CCCB *cccb, const u8 *conv_id)
{
    const u32 own_name = register_own_name();
    memset(&cccb->vcb, 0, CPIC_VERB_SIZE);
    if (pGCB->NumLocTPNames == 0)
    {
        return CM_PROGRAM_STATE_CHECK;
    }
    u8 *list = make_name_list();
    if (list == nullptr)
    {
        return CM_PRODUCT_SPECIFIC_ERROR;
    }
    VERB_RECEIVE_ALLOCATE &verb = cccb->vcb.rcvallcp.rcv_alloc;
    verb.opcode = NAP_RECEIVE_ALLOCATE_CPIC;
    verb.allocating = 1;
    verb.tp_name_count = static_cast<u16>(pGCB->NumLocTPNames);
    verb.tp_name_list = list;
    memcpy(&verb.conv_id, conv_id, sizeof verb.conv_id);
    if (own_name != CM_OK)
    {
        verb.tp_name_list = nullptr;
        nba_mm_free(list);
    }
    return own_name;
}

u32 SCC_inbound_issue_verb(CCCB *cccb, u16 call_number, appc_completion *routine, u16 processing_mode,
                           u16 free_on_error, const u8 *conv_id, CM_INT32 *rc)
{
    u32 result;
    if (cccb->usVerbsPending != 0)
    {
        nba_pd_print_problem(0x2003000c, 1, "l", static_cast<u32>(*rc));
        result = CM_OPERATION_NOT_ACCEPTED;
    }
    else if (cccb->ulAppcConvId != 0 || cccb->usInitialized != 0)
    {
        nba_pd_print_problem(0x2003000c, 2, "");
        result = CM_PROGRAM_STATE_CHECK;
    }
    else
    {
        result = prepare_accept(cccb, conv_id);
    }
    if (result != CM_OK)
    {
        if (free_on_error != 0)
        {
            SCC_free_cccb(cccb);
        }
        return result;
    }
    call_frame call = {};
    call.cccb = cccb;
    call.conv_id = conv_id;
    call.rc = rc;
    call.number = call_number;
    save_call(call);
    return static_cast<u32>(post_verb(cccb, routine, processing_mode));
}

// The received LU alias up to its first blank, padded with blanks.
static void copy_alias(u8 *to, const u8 *from)
{
    const u16 length = length_before(from, ASCII_BLANK, CPIC_LU_ALIAS_SIZE);
    memset(to, ASCII_BLANK, CPIC_LU_ALIAS_SIZE);
    memcpy(to, from, length);
}

// The handle of the first local TP name with these 64 bytes, 0 if none.
static u32 matching_local_tp_name(const u8 *name)
{
    const u32 table = pGCB->LocTPNameTable;
    u32 handle = vtm_get_next_used(table, NB_NULL_HANDLE);
    while (handle != NB_NULL_HANDLE)
    {
        const LOC_TP_NAME *record = static_cast<const LOC_TP_NAME *>(vtm_get_pointer(table, handle));
        if (record != nullptr && memcmp(record->Name, name, CPIC_TP_NAME_SIZE) == 0)
        {
            break;
        }
        handle = vtm_get_next_used(table, handle);
    }
    return handle;
}

// The conversation that the node accepted becomes the record's.
static void take_accepted(CCCB *cccb, const VERB_RECEIVE_ALLOCATE &verb)
{
    SIDE_INFO_ENTRY &from = cccb->SideInfo;
    memcpy(cccb->TpId, verb.tp_id, CPIC_TP_ID_SIZE);
    memcpy(from.TPName, verb.tp_name, CPIC_TP_NAME_SIZE);
    cccb->ulLocTPNameHandle = matching_local_tp_name(verb.tp_name);
    cccb->ulAppcConvId = verb.conv_id;
    cccb->ulSyncLevel = verb.sync_level;
    cccb->ulConversationType = verb.conv_type;
    memcpy(from.ModeName, verb.mode_name, CPIC_MODE_NAME_SIZE);
    from.usModeNameLen = length_before(verb.mode_name, EBCDIC_BLANK, CPIC_MODE_NAME_SIZE);
    memcpy(from.SecurityUserId, verb.user_id, CPIC_USER_ID_SIZE);
    from.usSecurityUserIdLen = length_before(verb.user_id, EBCDIC_BLANK, CPIC_USER_ID_SIZE);
    memcpy(from.PartnerLUName, verb.fqplu_name, CPIC_PLU_NAME_SIZE);
    from.usPartnerLUQualified = 1;
    const u16 period = length_before(verb.fqplu_name, EBCDIC_PERIOD, CPIC_PLU_NAME_SIZE);
    from.usPartnerNetIdLen = period < CPIC_PLU_NAME_SIZE ? period : 0;
    from.usPartnerLUNameLen = length_before(verb.fqplu_name, EBCDIC_BLANK, CPIC_PLU_NAME_SIZE);
    copy_alias(cccb->LocalLUName, verb.lu_alias);
}

void SCC_inbound_process_verb(CCCB *cccb, u32 asynchronous, u16 free_on_error)
{
    VERB_RECEIVE_ALLOCATE &verb = cccb->vcb.rcvallcp.rcv_alloc;
    if (verb.primary_rc != 0)
    {
        SCC_map_return_codes(&cccb->ulPendingRc, verb.primary_rc, verb.secondary_rc, verb.opcode);
        nba_pd_print_problem(0x2003000c, 3, "l", cccb->ulPendingRc);
        if (free_on_error != 0)
        {
            cccb->usConversationEnded = 1; // freed by whoever issued the verb, once it is uncounted
        }
    }
    else
    {
        if (audit_on())
        {
            nba_pd_print_audit(0x20030001, 1, "ba", cccb->SavedConvId, CPIC_CONV_ID_SIZE);
        }
        // A CMACCI that completes later leaves the current context alone: it would change under a program that is in
        // the middle of something else.
        if (asynchronous == 0 || free_on_error != 0)
        {
            end_unused_context();
            if (verb.user_id[0] != EBCDIC_BLANK)
            {
                memcpy(pGCB->CurrentTpId, verb.tp_id, CPIC_TP_ID_SIZE);
                memcpy(pGCB->ContextLUAlias, verb.lu_alias, CPIC_LU_ALIAS_SIZE);
            }
        }
        take_accepted(cccb, verb);
        cccb->ulPendingRc = CM_OK;
    }
    if (verb.tp_name_list != nullptr)
    {
        nba_mm_free(verb.tp_name_list);
        verb.tp_name_list = nullptr;
    }
    complete(cccb, asynchronous);
}

void cmaccp_cb(void *record, u32, u32, u32 asynchronous)
{
    SCC_inbound_process_verb(static_cast<CCCB *>(record), asynchronous, 1);
}

void cmacci_cb(void *record, u32, u32, u32 asynchronous)
{
    SCC_inbound_process_verb(static_cast<CCCB *>(record), asynchronous, 0);
}

void cmaccp(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMACCP>(call, return_code, conversation_ID))
    {
        *return_code = static_cast<CM_INT32>(SCC_inbound_get_cccb(&call.cccb, conversation_ID));
        if (*return_code == CM_OK)
        {
            if (end_unused_context())
            {
                memset(pGCB->CurrentTpId, 0, CPIC_TP_ID_SIZE);
            }
            *return_code = static_cast<CM_INT32>(SCC_inbound_issue_verb(call.cccb, CALL_CMACCP, cmaccp_cb, 0, 1,
                                                                        conversation_ID, return_code));
        }
    }
    call_leave(call, conversation_ID);
}

void cmacci(unsigned char *conversation_ID, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMACCI>(call, return_code, conversation_ID))
    {
        *return_code = static_cast<CM_INT32>(SCC_inbound_issue_verb(call.cccb, CALL_CMACCI, cmacci_cb,
                                                                    call.cccb->usProcessingMode, 0, conversation_ID,
                                                                    return_code));
    }
    call_leave(call);
}
