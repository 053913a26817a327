// local_tp_names.cpp - CMSLTP, CMRLTP, CMETPN and the table of local TP names behind them.
#include "setup/local_tp_names.hpp"

#include "core/frame.hpp"

u32 find_local_tp_name(const u8 *name, u16 length)
{
    const u16 compared = length < CPIC_TP_NAME_SIZE ? length : CPIC_TP_NAME_SIZE;
    const u32 table = pGCB->LocTPNameTable;
    for (u32 handle = vtm_get_next_used(table, NB_NULL_HANDLE); handle != NB_NULL_HANDLE;
         handle = vtm_get_next_used(table, handle))
    {
        const LOC_TP_NAME *record = static_cast<const LOC_TP_NAME *>(vtm_get_pointer(table, handle));
        if (record != nullptr && record->usLength == length && memcmp(record->Name, name, compared) == 0)
        {
            return handle;
        }
    }
    return NB_NULL_HANDLE;
}

// Issues a local TP name verb; returns its primary return code.
static u16 name_verb(u16 opcode, const u8 *name)
{
    VERB_LOCAL_TP_NAME verb = {};
    verb.opcode = opcode;
    memcpy(verb.tp_name, name, CPIC_TP_NAME_SIZE);
    appc_c_version(NAP_VERSION, &verb);
    return verb.primary_rc;
}

u32 add_local_tp_name(const u8 *name, u16 length, const name_problems &details)
{
    LOC_TP_NAME *record = static_cast<LOC_TP_NAME *>(nba_mm_alloc(sizeof(LOC_TP_NAME), MM_TYPE_RECORD, nba_blank_name));
    if (record == nullptr)
    {
        nba_pd_print_problem(0x2003000b, details.no_memory, "");
        return CM_PRODUCT_SPECIFIC_ERROR;
    }
    const u32 handle = vtm_get_free_entry(pGCB->LocTPNameTable, record);
    if (handle == NB_NULL_HANDLE)
    {
        nba_pd_print_problem(0x2003000b, details.table_full, "");
        nba_mm_free(record);
        return CM_PRODUCT_SPECIFIC_ERROR;
    }
    record->usLength = length;
    memcpy(record->Name, name, CPIC_TP_NAME_SIZE);
    ++pGCB->NumLocTPNames; // before the verb: another thread may look at the table while the node gives the lock up
    if (name_verb(NAP_DEFINE_LOCAL_TP_NAME, name) != 0)
    {
        --pGCB->NumLocTPNames;
        nba_pd_print_problem(0x2003000e, details.refused, "es", name, CPIC_TP_NAME_SIZE);
        vtm_release_entry(pGCB->LocTPNameTable, handle);
        nba_mm_free(record);
        return CM_PRODUCT_SPECIFIC_ERROR;
    }
    return CM_OK;
}

// Removes a name at the node and from the table. False: the node refused, a problem record says so, the name stays.
static bool remove_local_tp_name(u32 handle, u32 refused_detail)
{
    LOC_TP_NAME *record = static_cast<LOC_TP_NAME *>(vtm_get_pointer(pGCB->LocTPNameTable, handle));
    u8 name[CPIC_TP_NAME_SIZE];
    memcpy(name, record->Name, sizeof name);
    const u16 primary = name_verb(NAP_DELETE_LOCAL_TP_NAME, name);
    if (vtm_get_pointer(pGCB->LocTPNameTable, handle) != record)
    {
        return true; // another thread has removed it while the node gave the lock up
    }
    if (primary != 0)
    {
        nba_pd_print_problem(0x2003000f, refused_detail, "es", name, CPIC_TP_NAME_SIZE);
        return false;
    }
    --pGCB->NumLocTPNames;
    vtm_release_entry(pGCB->LocTPNameTable, handle);
    nba_mm_free(record);
    return true;
}

// Converts a caller's name into a 64-byte EBCDIC field. length: 1 to 64.
static void convert_name(u8 *field, const u8 *name, CM_INT32 length)
{
    memset(field, EBCDIC_BLANK, CPIC_TP_NAME_SIZE);
    SCC_convert_string(ASCII_TO_EBCDIC, SET_AE640, static_cast<short>(length), field, name);
}

static bool good_name_length(CM_INT32 length)
{
    return length >= 1 && length <= CPIC_TP_NAME_SIZE;
}

// Every character from the double quote to Z is allowed, most punctuation included: wider than the standard's set,
// because service programs have names outside it.
static bool good_characters(const u8 *name, CM_INT32 length)
{
    for (CM_INT32 i = 0; i < length; ++i)
    {
        const u8 c = name[i];
        if (!((c >= 0x22 && c <= 0x5A) || (c >= 'a' && c <= 'z') || c == '_'))
        {
            return false;
        }
    }
    return true;
}

// The default name that an accept added goes when the program has given its first name of its own.
static void drop_default_name()
{
    if (pGCB->usTPNameFromEnv == 0 && pGCB->usLocTPNameFlag == 1 && pGCB->NumLocTPNames == 2)
    {
        const u32 handle = find_local_tp_name(pGCB->TPName, pGCB->usTPNameLen);
        if (handle != NB_NULL_HANDLE && remove_local_tp_name(handle, 1))
        {
            pGCB->usLocTPNameFlag = 0;
        }
    }
}

static CM_INT32 set_local_tp_name(const u8 *name, CM_INT32 length)
{
    if (!good_name_length(length) || !good_characters(name, length))
    {
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    if (!ensure_started())
    {
        return CM_PRODUCT_SPECIFIC_ERROR;
    }
    u8 field[CPIC_TP_NAME_SIZE];
    convert_name(field, name, length);
    if (find_local_tp_name(field, static_cast<u16>(length)) != NB_NULL_HANDLE)
    {
        return CM_OK;
    }
    const u32 rc = add_local_tp_name(field, static_cast<u16>(length), {.no_memory = 7, .table_full = 8, .refused = 2});
    if (rc == CM_OK)
    {
        drop_default_name(); // how this ends is nothing to the caller
    }
    return static_cast<CM_INT32>(rc);
}

void cmsltp(unsigned char *TP_name, CM_INT32 *TP_name_length, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSLTP>(call, return_code, nullptr, TP_name, TP_name_length))
    {
        *return_code = set_local_tp_name(TP_name, *TP_name_length);
    }
    call_leave(call);
}

static CM_INT32 release_local_tp_name(const u8 *name, CM_INT32 length)
{
    if (!good_name_length(length))
    {
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    u8 field[CPIC_TP_NAME_SIZE];
    convert_name(field, name, length);
    const u32 handle = find_local_tp_name(field, static_cast<u16>(length));
    if (handle == NB_NULL_HANDLE)
    {
        return CM_PROGRAM_PARAMETER_CHECK; // a library that is not started has no names either
    }
    return remove_local_tp_name(handle, 0) ? CM_OK : CM_PRODUCT_SPECIFIC_ERROR;
}

void cmrltp(unsigned char *TP_name, CM_INT32 *TP_name_length, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMRLTP>(call, return_code, nullptr, TP_name, TP_name_length))
    {
        *return_code = release_local_tp_name(TP_name, *TP_name_length);
    }
    call_leave(call);
}

void cmetpn(unsigned char *conversation_ID, unsigned char *TP_name, CM_INT32 *TP_name_length,
            CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMETPN>(call, return_code, conversation_ID))
    {
        const u8 *name = call.cccb->SideInfo.TPName;
        const u16 length = length_before(name, EBCDIC_BLANK, CPIC_TP_NAME_SIZE);
        *TP_name_length = length;
        SCC_convert_string(EBCDIC_TO_ASCII, SET_AE640, static_cast<short>(length), TP_name, name);
    }
    call_leave(call, TP_name, TP_name_length);
}
