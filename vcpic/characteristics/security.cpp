// security.cpp - conversation security: type, user ID, password. The CPI-C calls and the X/Open calls are the same but
// for their call numbers; each pair shares one body.
#include "core/frame.hpp"

// ---- type ---------------------------------------------------------------------------------------------------

static CM_INT32 set_security_type(CCCB *cccb, CM_INT32 value)
{
    switch (value)
    {
        case CM_SECURITY_NONE:
        case CM_SECURITY_SAME:
        case CM_SECURITY_PROGRAM:
        case CM_SECURITY_PROGRAM_STRONG:
            cccb->SideInfo.ulSecurityType = static_cast<u32>(value); // user ID and password stay as they are
            return CM_OK;
        default: // distributed and mutual have names and numbers, but no support
            return CM_PROGRAM_PARAMETER_CHECK;
    }
}

template <call_number number>
static void genscst(u8 *conversation_ID, CM_INT32 *security_type, CM_INT32 *return_code)
{
    call_frame call;
    if (call_enter<number>(call, return_code, conversation_ID, security_type))
    {
        *return_code = set_security_type(call.cccb, *security_type);
    }
    call_leave(call);
}

template <call_number number>
static void genecst(u8 *conversation_ID, CM_INT32 *security_type, CM_INT32 *return_code)
{
    call_frame call;
    if (call_enter<number>(call, return_code, conversation_ID))
    {
        store_output(security_type, call.cccb->SideInfo.ulSecurityType); // in every state
    }
    call_leave(call, security_type);
}

// ---- user ID and password -----------------------------------------------------------------------------------

// Stores a user ID or password into a 10-byte field. False: the length is not within min to max, nothing is stored.
static bool store_secret(u8 *field, const u8 *text, CM_INT32 length, u16 min, u16 max)
{
    if (length < min || length > max)
    {
        return false;
    }
    SCC_convert_string(ASCII_TO_EBCDIC, SET_AE, static_cast<short>(length), field, text);
    memset(field + length, EBCDIC_BLANK, static_cast<size_t>(CPIC_USER_ID_SIZE - length));
    return true;
}

// True when the security type admits a password.
static bool program_security(const CCCB *cccb)
{
    const u32 type = cccb->SideInfo.ulSecurityType;
    return type == CM_SECURITY_PROGRAM || type == CM_SECURITY_PROGRAM_STRONG;
}

// A type that does not admit a user ID is the wrong state, not a wrong parameter: programs set the type first. Same
// security admits a user ID, but no password.
static CM_INT32 set_user_id(CCCB *cccb, const u8 *user_id, CM_INT32 length, u16 min, u16 max)
{
    if (!program_security(cccb) && cccb->SideInfo.ulSecurityType != CM_SECURITY_SAME)
    {
        return CM_PROGRAM_STATE_CHECK;
    }
    if (!store_secret(cccb->SideInfo.SecurityUserId, user_id, length, min, max))
    {
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    cccb->SideInfo.usSecurityUserIdLen = static_cast<u16>(length);
    return CM_OK;
}

static CM_INT32 set_password(CCCB *cccb, const u8 *password, CM_INT32 length, u16 min, u16 max)
{
    if (!program_security(cccb))
    {
        return CM_PROGRAM_STATE_CHECK;
    }
    return store_secret(cccb->SideInfo.SecurityPassword, password, length, min, max) ? CM_OK
                                                                                     : CM_PROGRAM_PARAMETER_CHECK;
}

template <call_number number>
static void genscsu(u8 *conversation_ID, u8 *user_id, CM_INT32 *length, CM_INT32 *return_code)
{
    call_frame call;
    if (call_enter<number>(call, return_code, conversation_ID, user_id, length))
    {
        *return_code = set_user_id(call.cccb, user_id, *length, 1, CPIC_USER_ID_SIZE);
    }
    call_leave(call);
}

// The password never goes to the trace, and neither does its length.
template <call_number number>
static void genscsp(u8 *conversation_ID, u8 *password, CM_INT32 *length, CM_INT32 *return_code)
{
    call_frame call;
    if (call_enter<number>(call, return_code, conversation_ID))
    {
        *return_code = set_password(call.cccb, password, *length, 1, CPIC_USER_ID_SIZE);
    }
    call_leave(call);
}

// The length given is the stored one even when fewer characters are copied: with the limit of 8, a user ID of 10
// characters comes as its first 8 with length 10. Callers with an 8-byte field see by that that they have not all of
// it.
template <call_number number>
static void genecsu(u8 *conversation_ID, u8 *user_id, CM_INT32 *length, CM_INT32 *return_code, u16 max)
{
    call_frame call;
    if (call_enter<number>(call, return_code, conversation_ID))
    {
        const SIDE_INFO_ENTRY &from = call.cccb->SideInfo;
        const u16 stored = from.usSecurityUserIdLen;
        store_output(length, stored);
        SCC_convert_string(EBCDIC_TO_ASCII, SET_AE, static_cast<short>(stored < max ? stored : max), user_id,
                           from.SecurityUserId);
    }
    call_leave(call, user_id, length);
}

// ---- the calls ----------------------------------------------------------------------------------------------

void xcscst(unsigned char *conversation_ID, CM_CONVERSATION_SECURITY_TYPE *type, CM_RETURN_CODE *return_code)
{
    genscst<CALL_XCSCST>(conversation_ID, type, return_code);
}

void cmscst(unsigned char *conversation_ID, CM_CONVERSATION_SECURITY_TYPE *type, CM_RETURN_CODE *return_code)
{
    genscst<CALL_CMSCST>(conversation_ID, type, return_code);
}

void xcscsu(unsigned char *conversation_ID, unsigned char *user_ID, CM_SECURITY_USER_ID_LENGTH *length,
            CM_RETURN_CODE *return_code)
{
    genscsu<CALL_XCSCSU>(conversation_ID, user_ID, length, return_code);
}

void cmscsu(unsigned char *conversation_ID, unsigned char *user_ID, CM_SECURITY_USER_ID_LENGTH *length,
            CM_RETURN_CODE *return_code)
{
    genscsu<CALL_CMSCSU>(conversation_ID, user_ID, length, return_code);
}

void xcscsp(unsigned char *conversation_ID, unsigned char *password, CM_SECURITY_PASSWORD_LENGTH *length,
            CM_RETURN_CODE *return_code)
{
    genscsp<CALL_XCSCSP>(conversation_ID, password, length, return_code);
}

void cmscsp(unsigned char *conversation_ID, unsigned char *password, CM_SECURITY_PASSWORD_LENGTH *length,
            CM_RETURN_CODE *return_code)
{
    genscsp<CALL_CMSCSP>(conversation_ID, password, length, return_code);
}

void xcecst(unsigned char *conversation_ID, CM_CONVERSATION_SECURITY_TYPE *type, CM_RETURN_CODE *return_code)
{
    genecst<CALL_XCECST>(conversation_ID, type, return_code);
}

void cmecst(unsigned char *conversation_ID, CM_CONVERSATION_SECURITY_TYPE *type, CM_RETURN_CODE *return_code)
{
    genecst<CALL_CMECST>(conversation_ID, type, return_code);
}

void xcecsu(unsigned char *conversation_ID, unsigned char *user_ID, CM_SECURITY_USER_ID_LENGTH *length,
            CM_RETURN_CODE *return_code)
{
    genecsu<CALL_XCECSU>(conversation_ID, user_ID, length, return_code, 8);
}

void cmecsu(unsigned char *conversation_ID, unsigned char *user_ID, CM_SECURITY_USER_ID_LENGTH *length,
            CM_RETURN_CODE *return_code)
{
    genecsu<CALL_CMECSU>(conversation_ID, user_ID, length, return_code, 8);
}

void cmesui(unsigned char *conversation_ID, unsigned char *user_ID, CM_SECURITY_USER_ID_LENGTH *length,
            CM_RETURN_CODE *return_code)
{
    genecsu<CALL_CMESUI>(conversation_ID, user_ID, length, return_code, CPIC_USER_ID_SIZE);
}
