// set_names.cpp - the Set calls of characteristics that are strings: mode, local and partner LU, TP name, log data.
#include "core/frame.hpp"

void cmsmn(unsigned char *conversation_ID, unsigned char *mode_name, CM_MODE_NAME_LENGTH *mode_name_length,
           CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSMN>(call, return_code, conversation_ID, mode_name, mode_name_length))
    {
        const u32 length = static_cast<u32>(*mode_name_length);
        if (length > CPIC_MODE_NAME_SIZE)
        {
            *return_code = CM_PROGRAM_PARAMETER_CHECK;
        }
        else
        {
            SIDE_INFO_ENTRY &side_info = call.cccb->SideInfo;
            memset(side_info.ModeName, EBCDIC_BLANK, CPIC_MODE_NAME_SIZE);
            side_info.usModeNameLen = static_cast<u16>(length);
            SCC_convert_string(ASCII_TO_EBCDIC, SET_A, static_cast<short>(length), side_info.ModeName, mode_name);
        }
    }
    call_leave(call);
}

// Copies without knowing the size of the field: see set_local_lu_name().
static void copy_bytes(u8 *to, const u8 *from, u32 count)
{
    for (u32 i = 0; i < count; ++i)
    {
        *static_cast<volatile u8 *>(to + i) = from[i];
    }
}

// The check looks at the low half of the length only, the test for zero and the copy take all of it: a length of 65544
// passes for 8 and copies 65544 bytes over the conversation's record and what lies behind it. Deliberate: 16-bit
// callers that leave rubbish in the high half have always been let through this check. The call's man page warns.
static CM_INT32 set_local_lu_name(CCCB *cccb, const u8 *name, u32 length)
{
    if (static_cast<u16>(length) > CPIC_LU_ALIAS_SIZE)
    {
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    if (length == 0)
    {
        memset(cccb->LocalLUName, 0, CPIC_LU_ALIAS_SIZE);
    }
    else
    {
        memset(cccb->LocalLUName, ASCII_BLANK, CPIC_LU_ALIAS_SIZE);
        copy_bytes(cccb->LocalLUName, name, length);
    }
    return CM_OK;
}

void cmslln(unsigned char *conversation_ID, unsigned char *local_LU_name, CM_LU_NAME_LENGTH *local_LU_name_length,
            CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSLLN>(call, return_code, conversation_ID, local_LU_name, local_LU_name_length))
    {
        *return_code = set_local_lu_name(call.cccb, local_LU_name, static_cast<u32>(*local_LU_name_length));
    }
    call_leave(call);
}

void cmstpn(unsigned char *conversation_ID, unsigned char *TP_name, CM_TP_NAME_LENGTH *TP_name_length,
            CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSTPN>(call, return_code, conversation_ID, TP_name, TP_name_length))
    {
        const u32 length = static_cast<u32>(*TP_name_length);
        if (length - 1 > CPIC_TP_NAME_SIZE - 1)
        {
            *return_code = CM_PROGRAM_PARAMETER_CHECK;
        }
        else
        {
            SIDE_INFO_ENTRY &side_info = call.cccb->SideInfo;
            side_info.ulTPNameFlag = CM_APPLICATION_TP;
            memset(side_info.TPName, EBCDIC_BLANK, CPIC_TP_NAME_SIZE);
            SCC_convert_string(ASCII_TO_EBCDIC, SET_AE640, static_cast<short>(length), side_info.TPName, TP_name);
        }
    }
    call_leave(call);
}

// An alias keeps its bytes: the whole length is copied, only the first 8 bytes of the field are blanked before. An
// alias of more than 8 characters therefore goes on into the rest of the field, and CMEPLN gives it back whole.
static void set_partner_alias(SIDE_INFO_ENTRY *side_info, const u8 *name, u16 length)
{
    side_info->usPartnerLUQualified = 0;
    memset(side_info->PartnerLUName, ASCII_BLANK, CPIC_LU_ALIAS_SIZE);
    memcpy(side_info->PartnerLUName, name, length);
}

// A network-qualified name goes into EBCDIC around its first period.
static void set_partner_fq_name(SIDE_INFO_ENTRY *side_info, const u8 *name, u16 length, u16 period)
{
    side_info->usPartnerLUQualified = 1;
    side_info->usPartnerNetIdLen = period;
    u8 *field = side_info->PartnerLUName;
    memset(field, EBCDIC_BLANK, CPIC_PLU_NAME_SIZE);
    side_info->Reserved1[0] = EBCDIC_BLANK; // the byte behind the name has always been blanked with it
    SCC_convert_string(ASCII_TO_EBCDIC, SET_A, static_cast<short>(period), field, name);
    field[period] = EBCDIC_PERIOD;
    SCC_convert_string(ASCII_TO_EBCDIC, SET_A, static_cast<short>(length - period - 1), field + period + 1,
                       name + period + 1);
}

void cmspln(unsigned char *conversation_ID, unsigned char *partner_LU_name,
            CM_PARTNER_LU_NAME_LENGTH *partner_LU_name_length, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSPLN>(call, return_code, conversation_ID, partner_LU_name, partner_LU_name_length))
    {
        const u16 length = static_cast<u16>(*partner_LU_name_length); // only the low half counts
        if (length == 0 || length > CPIC_PLU_NAME_SIZE)
        {
            *return_code = CM_PROGRAM_PARAMETER_CHECK;
        }
        else
        {
            SIDE_INFO_ENTRY *side_info = &call.cccb->SideInfo;
            const u16 period = length_before(partner_LU_name, '.', length);
            side_info->usPartnerLUNameLen = length;
            if (period == length)
            {
                set_partner_alias(side_info, partner_LU_name, length);
            }
            else
            {
                set_partner_fq_name(side_info, partner_LU_name, length, period);
            }
        }
    }
    call_leave(call);
}

// The log data becomes a complete error-log record, ready to be sent:
//   0-1 length of the record, big-endian   2-3 0x12E1, the error-log GDS variable
//   4-5 0x0002                             6-7 length of the data + 2, big-endian
//   8.. the data in EBCDIC
static u8 *make_log_record(const u8 *data, u16 length)
{
    static const u16 head_size = 8;
    const u16 record_length = static_cast<u16>(length + head_size);
    u8 *record = static_cast<u8 *>(nba_mm_alloc(record_length, MM_TYPE_RECORD, nba_blank_name));
    if (record != nullptr)
    {
        const u8 head[head_size] = {static_cast<u8>(record_length >> 8),
                                    static_cast<u8>(record_length),
                                    0x12,
                                    0xE1,
                                    0x00,
                                    0x02,
                                    static_cast<u8>((length + 2) >> 8),
                                    static_cast<u8>(length + 2)};
        memcpy(record, head, head_size);
        SCC_convert_string(ASCII_TO_EBCDIC, SET_AE, static_cast<short>(length), record + head_size, data);
    }
    return record;
}

// True when the node is working on a verb that points to the conversation's log data.
static bool log_data_at_node(const CCCB *cccb)
{
    if (cccb->usVerbsPending == 0 || cccb->LogData == nullptr)
    {
        return false;
    }
    return (cccb->vcb.opcode == NAP_DEALLOCATE && cccb->vcb.dealloc.log_data == cccb->LogData) ||
           (cccb->vcb.opcode == NAP_SEND_ERROR && cccb->vcb.send_error.log_data == cccb->LogData);
}

static void replace_log_data(CCCB *cccb, u8 *record, u16 length)
{
    if (log_data_at_node(cccb))
    {
        cccb->DeallcLogData = cccb->LogData; // parked, with DeallcLogDataLength 0, until the verb is complete
    }
    else if (cccb->LogData != nullptr)
    {
        nba_mm_free(cccb->LogData);
    }
    cccb->LogData = record;
    cccb->usLogDataLen = length;
}

static CM_INT32 set_log_data(CCCB *cccb, const u8 *data, u32 length)
{
    static const u32 longest = 512;
    if (cccb->ulConversationType != CM_BASIC_CONVERSATION)
    {
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    if (length - 1 < longest)
    {
        u8 *record = make_log_record(data, static_cast<u16>(length));
        if (record == nullptr)
        {
            nba_pd_print_problem(0x2003000b, 11, "");
            return CM_PRODUCT_SPECIFIC_ERROR; // what was set before stays
        }
        replace_log_data(cccb, record, static_cast<u16>(length + 8));
        return CM_OK;
    }
    if (static_cast<u16>(length) == 0)
    {
        // Not only 0 clears, every multiple of 65536 does: 16-bit callers leave rubbish in the high half.
        replace_log_data(cccb, nullptr, 0);
        return CM_OK;
    }
    return CM_PROGRAM_PARAMETER_CHECK;
}

void cmsld(unsigned char *conversation_ID, unsigned char *log_data, CM_LOG_DATA_LENGTH *log_data_length,
           CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSLD>(call, return_code, conversation_ID, log_data, log_data_length))
    {
        *return_code = set_log_data(call.cccb, log_data, static_cast<u32>(*log_data_length));
    }
    call_leave(call);
}
