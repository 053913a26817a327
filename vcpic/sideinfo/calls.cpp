// calls.cpp - XCMSSI, XCMESI, XCMDSI: a program's own definitions of symbolic destinations. The caller's entry is
// ASCII, 124 bytes; the stored one is what cache.cpp keeps. Keys and entry numbers are accepted and not looked at: an
// entry is known by its name alone.
#include "core/frame.hpp"
#include "sideinfo/entry.hpp"

static const CM_INT32 caller_entry_size = 124;
static const size_t caller_secret_size = 8; // user ID and password in the caller's entry

static_assert(sizeof(SIDE_INFO) == caller_entry_size);

// Stores a user ID or password of 8 characters into a 10-byte field.
static void store_padded(u8 *field, const unsigned char *text)
{
    SCC_convert_string(ASCII_TO_EBCDIC, SET_AE, caller_secret_size, field, text);
    memset(field + caller_secret_size, EBCDIC_BLANK, CPIC_USER_ID_SIZE - caller_secret_size);
}

static bool good_entry(const SIDE_INFO &from)
{
    const u32 tp_type = static_cast<u32>(from.TP_name_type);
    const u32 security = static_cast<u32>(from.conversation_security_type);
    return from.sym_dest_name[0] != ASCII_BLANK && tp_type <= CM_SNA_SERVICE_TP &&
           security <= CM_SECURITY_PROGRAM_STRONG && security != CM_SECURITY_DISTRIBUTED &&
           security != CM_SECURITY_MUTUAL;
}

static CM_INT32 set_side_information(const SIDE_INFO &from, CM_INT32 length)
{
    if (length != caller_entry_size)
    {
        nba_pd_print_problem(0x20030008, 1, "l", static_cast<u32>(length));
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    if (!good_entry(from))
    {
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    SIDE_INFO_ENTRY entry = {}; // the local LU alias stays zero: a program's entry names none
    memcpy(entry.SymDestName, from.sym_dest_name, CPIC_SYM_DEST_SIZE);
    store_partner_lu_name(&entry, from.partner_LU_name);
    entry.ulTPNameFlag = static_cast<u32>(from.TP_name_type);
    const short binary = entry.ulTPNameFlag == CM_SNA_SERVICE_TP ? 1 : 0; // the prefix of a service TP's name
    memcpy(entry.TPName, from.TP_name, static_cast<size_t>(binary));
    SCC_convert_string(ASCII_TO_EBCDIC, SET_AE640, static_cast<short>(CPIC_TP_NAME_SIZE - binary),
                       entry.TPName + binary, from.TP_name + binary);
    store_mode_name(&entry, from.mode_name);
    entry.ulSecurityType = static_cast<u32>(from.conversation_security_type);
    entry.usSecurityUserIdLen = length_before(from.security_user_ID, ASCII_BLANK, caller_secret_size);
    store_padded(entry.SecurityUserId, from.security_user_ID);
    store_padded(entry.SecurityPassword, from.security_password);
    const u32 rc = SCD_main(SIDE_INFO_SET, &entry);
    explicit_bzero(&entry, sizeof entry);
    return static_cast<CM_INT32>(rc);
}

void xcmssi(unsigned char *key, SIDE_INFO *side_info_entry, CM_ENTRY_LENGTH *side_info_length,
            CM_RETURN_CODE *return_code)
{
    static_cast<void>(key);
    call_frame call;
    if (call_enter<CALL_XCMSSI>(call, return_code, nullptr, side_info_entry))
    {
        *return_code = set_side_information(*side_info_entry, *side_info_length);
    }
    call_leave(call);
}

// The tables used here are not the ones that stored the names: a service TP name was stored with the TP name table and
// a qualified partner LU name with the LU name table, and both come back with the user ID table. Characters outside it
// come back as zeros; programs compare what they get with what they once got.
static void fill_caller_entry(SIDE_INFO *to, const SIDE_INFO_ENTRY &entry)
{
    memcpy(to->sym_dest_name, entry.SymDestName, CPIC_SYM_DEST_SIZE);
    if (entry.usPartnerLUQualified != 0)
    {
        SCC_convert_string(EBCDIC_TO_ASCII, SET_AE, CPIC_PLU_NAME_SIZE, to->partner_LU_name, entry.PartnerLUName);
    }
    else
    {
        memset(to->partner_LU_name, ASCII_BLANK, CPIC_PLU_NAME_SIZE);
        memcpy(to->partner_LU_name, entry.PartnerLUName, CPIC_LU_ALIAS_SIZE); // an alias comes back with 8 characters
    }
    to->TP_name_type = static_cast<CM_INT32>(entry.ulTPNameFlag);
    if (entry.ulTPNameFlag == CM_SNA_SERVICE_TP)
    {
        to->TP_name[0] = entry.TPName[0];
        SCC_convert_string(EBCDIC_TO_ASCII, SET_AE, CPIC_TP_NAME_SIZE - 1, to->TP_name + 1, entry.TPName + 1);
    }
    else
    {
        SCC_convert_string(EBCDIC_TO_ASCII, SET_AE640, CPIC_TP_NAME_SIZE, to->TP_name, entry.TPName);
    }
    SCC_convert_string(EBCDIC_TO_ASCII, SET_A, CPIC_MODE_NAME_SIZE, to->mode_name, entry.ModeName);
    to->conversation_security_type = static_cast<CM_INT32>(entry.ulSecurityType);
    if (entry.ulSecurityType == CM_SECURITY_PROGRAM || entry.ulSecurityType == CM_SECURITY_PROGRAM_STRONG)
    {
        SCC_convert_string(EBCDIC_TO_ASCII, SET_AE, caller_secret_size, to->security_user_ID, entry.SecurityUserId);
        memset(to->security_password, 0, caller_secret_size); // a password is never given back
    }
}

static CM_INT32 extract_side_information(const u8 *name, SIDE_INFO *to, CM_INT32 length)
{
    if (length != caller_entry_size)
    {
        nba_pd_print_problem(0x20030008, 0, "l", static_cast<u32>(length));
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    SIDE_INFO_ENTRY entry = {};
    memcpy(entry.SymDestName, name, CPIC_SYM_DEST_SIZE);
    const u32 rc = SCD_main(SIDE_INFO_LOOKUP, &entry);
    if (rc == CM_OK)
    {
        fill_caller_entry(to, entry);
    }
    explicit_bzero(&entry, sizeof entry);
    return static_cast<CM_INT32>(rc);
}

void xcmesi(CM_ENTRY_NUMBER *entry_number, unsigned char *sym_dest_name, SIDE_INFO *side_info_entry,
            CM_ENTRY_LENGTH *side_info_length, CM_RETURN_CODE *return_code)
{
    static_cast<void>(entry_number);
    call_frame call;
    if (call_enter<CALL_XCMESI>(call, return_code, nullptr, sym_dest_name))
    {
        *return_code = extract_side_information(sym_dest_name, side_info_entry, *side_info_length);
    }
    call_leave(call, side_info_entry);
}

void xcmdsi(unsigned char *key, unsigned char *sym_dest_name, CM_RETURN_CODE *return_code)
{
    static_cast<void>(key);
    call_frame call;
    if (call_enter<CALL_XCMDSI>(call, return_code, nullptr, sym_dest_name))
    {
        SIDE_INFO_ENTRY entry = {};
        memcpy(entry.SymDestName, sym_dest_name, CPIC_SYM_DEST_SIZE);
        *return_code = static_cast<CM_INT32>(SCD_main(SIDE_INFO_DELETE, &entry));
    }
    call_leave(call);
}
