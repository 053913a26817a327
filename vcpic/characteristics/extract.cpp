// extract.cpp - the Extract calls: the characteristics of a conversation, and its state, which the node knows.
#include "core/frame.hpp"

void cmect(unsigned char *conversation_ID, CM_CONVERSATION_TYPE *conversation_type, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMECT>(call, return_code, conversation_ID))
    {
        store_output(conversation_type, call.cccb->ulConversationType);
    }
    call_leave(call, conversation_type);
}

void cmesl(unsigned char *conversation_ID, CM_SYNC_LEVEL *sync_level, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMESL>(call, return_code, conversation_ID))
    {
        store_output(sync_level, call.cccb->ulSyncLevel);
    }
    call_leave(call, sync_level);
}

void cmemn(unsigned char *conversation_ID, unsigned char *mode_name, CM_MODE_NAME_LENGTH *mode_name_length,
           CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMEMN>(call, return_code, conversation_ID))
    {
        const SIDE_INFO_ENTRY &side_info = call.cccb->SideInfo;
        SCC_convert_string(EBCDIC_TO_ASCII, SET_A, static_cast<short>(side_info.usModeNameLen), mode_name,
                           side_info.ModeName);
        store_output(mode_name_length, side_info.usModeNameLen);
    }
    call_leave(call, mode_name, mode_name_length);
}

static void extract_partner_lu_name(const SIDE_INFO_ENTRY &from, u8 *name)
{
    const u16 length = from.usPartnerLUNameLen;
    if (from.usPartnerLUQualified == 0)
    {
        memcpy(name, from.PartnerLUName, length);
        return;
    }
    const u16 period = from.usPartnerNetIdLen;
    if (from.PartnerLUName[period] != EBCDIC_PERIOD)
    {
        SCC_convert_string(EBCDIC_TO_ASCII, SET_A, static_cast<short>(length), name, from.PartnerLUName);
        return; // a node may name a partner without its network
    }
    SCC_convert_string(EBCDIC_TO_ASCII, SET_A, static_cast<short>(period), name, from.PartnerLUName);
    name[period] = '.';
    SCC_convert_string(EBCDIC_TO_ASCII, SET_A, static_cast<short>(length - period - 1), name + period + 1,
                       from.PartnerLUName + period + 1);
}

void cmepln(unsigned char *conversation_ID, unsigned char *partner_LU_name,
            CM_PARTNER_LU_NAME_LENGTH *partner_LU_name_length, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMEPLN>(call, return_code, conversation_ID))
    {
        extract_partner_lu_name(call.cccb->SideInfo, partner_LU_name);
        store_output(partner_LU_name_length, call.cccb->SideInfo.usPartnerLUNameLen);
    }
    call_leave(call, partner_LU_name, partner_LU_name_length);
}

void cmelln(unsigned char *conversation_ID, unsigned char *local_LU_name, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMELLN>(call, return_code, conversation_ID))
    {
        // The bytes are given also when none is set: callers that ignore the return code find an empty string.
        memcpy(local_LU_name, call.cccb->LocalLUName, CPIC_LU_ALIAS_SIZE);
        local_LU_name[CPIC_LU_ALIAS_SIZE] = 0;
        if (local_LU_name[0] == 0)
        {
            *return_code = CM_PROGRAM_STATE_CHECK;
        }
    }
    call_leave(call, local_LU_name);
}

void cmembs(CM_MAXIMUM_BUFFER_SIZE *maximum_buffer_size, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMEMBS>(call, return_code, nullptr))
    {
        *maximum_buffer_size = CPIC_MAX_DATA;
    }
    call_leave(call, maximum_buffer_size);
}

void cmecs(unsigned char *conversation_ID, CM_CONVERSATION_STATE *conversation_state, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMECS>(call, return_code, conversation_ID))
    {
        if (call.cccb->ulAppcConvId == 0)
        {
            *conversation_state = in_initialize_state(call.cccb) ? CM_INITIALIZE_STATE : CM_INITIALIZE_INCOMING_STATE;
        }
        else
        {
            start_verb(call.cccb, NAP_GET_STATE);
            issue_verb(call, cmecs_cb, conversation_state, return_code);
        }
    }
    call_leave(call, conversation_state);
}

// The CPI-C state for the node's state byte; 0: no such state.
static u32 state_of(u8 node_state)
{
    static const u8 states[] = {CM_INITIALIZE_STATE,
                                CM_SEND_STATE,
                                CM_RECEIVE_STATE,
                                CM_CONFIRM_STATE,
                                CM_CONFIRM_SEND_STATE,
                                CM_CONFIRM_DEALLOCATE_STATE,
                                0,
                                0,
                                0,
                                CM_SEND_PENDING_STATE};
    return node_state < sizeof states ? states[node_state] : 0;
}

void cmecs_cb(void *record, u32, u32, u32 asynchronous)
{
    CCCB *cccb = static_cast<CCCB *>(record);
    const VERB_GET_STATE &verb = cccb->vcb.get_state;
    cccb->ulPendingRc = CM_OK;
    if (verb.header.primary_rc != 0)
    {
        // Not mapped: whatever the node has against the question says nothing about the conversation.
        nba_pd_print_problem(0x20030009, 0, "x", static_cast<u32>(verb.header.primary_rc));
        cccb->ulPendingRc = CM_PRODUCT_SPECIFIC_ERROR;
    }
    const u32 state = state_of(verb.conv_state);
    if (state != 0)
    {
        store_output(cccb->pOut1, state);
    }
    else
    {
        nba_pd_print_problem(0x20030004, 0, "x", static_cast<u32>(verb.conv_state));
        cccb->ulPendingRc = CM_PRODUCT_SPECIFIC_ERROR;
    }
    complete(cccb, asynchronous);
}
