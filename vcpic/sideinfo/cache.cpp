// cache.cpp - the side-information cache: symbolic destinations that the program set or deleted, and those read from
// the node. Held in SideInfoTable; runs with the lock held.
//
// A name is asked for at the node once in the life of the cache: later changes of the node's configuration are not
// seen, so that a program works with one definition from its start to its end. Records are never evicted one by one; a
// deletion marker keeps hiding what the node still defines.
//
// A query may give the lock up while it waits for the node: other threads may have put the same name into the cache
// meanwhile, by a look-up of their own or because their program set or deleted it. Theirs stands.
#include "sideinfo/entry.hpp"

#include <stdlib.h>

// What the node answered to a query.
struct nof_answer
{
    u16 primary;
    u32 secondary;
};

static bool name_unknown(const nof_answer &answer)
{
    return answer.primary == 0x0200 && answer.secondary == 0x58100000;
}

// Opens the node; *node is its target handle. False: refused, and logged with the place's detail number.
static bool open_node(u32 detail, u32 *node)
{
    NOF_OPEN_VERB verb = {};
    verb.opcode = NOF_OPEN;
    verb.mode = 2;
    nof_version(NAP_VERSION, 0, &verb, nullptr);
    if (verb.primary_rc != 0)
    {
        nba_pd_print_problem(0x2003000d, detail, "");
        return false;
    }
    *node = verb.target_handle;
    return true;
}

static void close_node(u32 node)
{
    NOF_CLOSE_VERB verb = {};
    verb.opcode = NOF_CLOSE;
    nof_version(NAP_VERSION, node, &verb, nullptr); // nothing depends on its result
}

static nof_answer query_node(u32 node, const u8 *name, u8 *nof_record)
{
    NOF_QUERY_SIDE_INFO_VERB verb = {};
    verb.opcode = NOF_QUERY_SIDE_INFO;
    verb.format = 1;
    verb.buffer = nof_record;
    verb.buffer_length = NOF_RECORD_SIZE;
    verb.record_count = 1;
    verb.list_option = 4;
    memcpy(verb.sym_dest_name, name, CPIC_SYM_DEST_SIZE);
    nof_version(NAP_VERSION, node, &verb, nof_record);
    return {verb.primary_rc, verb.secondary_rc};
}

// A zeroed cache record in the table, for `name`. Null when there is no memory (logged with no_memory_detail, unless
// that is 0) or the table is full (logged with table_full_detail).
static SIDE_INFO_RECORD *add_record(const u8 *name, u32 no_memory_detail, u32 table_full_detail)
{
    SIDE_INFO_RECORD *record =
        static_cast<SIDE_INFO_RECORD *>(nba_mm_alloc(sizeof(SIDE_INFO_RECORD), MM_TYPE_RECORD, nba_blank_name));
    if (record == nullptr)
    {
        if (no_memory_detail != 0)
        {
            nba_pd_print_problem(0x2003000b, no_memory_detail, "");
        }
        return nullptr;
    }
    memset(record, 0, sizeof *record);
    memcpy(record->Entry.SymDestName, name, CPIC_SYM_DEST_SIZE);
    if (vtm_get_free_entry(pGCB->SideInfoTable, record) == NB_NULL_HANDLE)
    {
        nba_pd_print_problem(0x2003000b, table_full_detail, "");
        nba_mm_free(record);
        return nullptr;
    }
    return record;
}

int SCD_match_sym_dest_name(const u8 *name, SIDE_INFO_RECORD **out)
{
    const u32 table = pGCB->SideInfoTable;
    for (u32 handle = vtm_get_next_used(table, NB_NULL_HANDLE); handle != NB_NULL_HANDLE;
         handle = vtm_get_next_used(table, handle))
    {
        SIDE_INFO_RECORD *record = static_cast<SIDE_INFO_RECORD *>(vtm_get_pointer(table, handle));
        if (record != nullptr && memcmp(record->Entry.SymDestName, name, CPIC_SYM_DEST_SIZE) == 0)
        {
            *out = record;
            return 1;
        }
    }
    *out = nullptr;
    return 0;
}

void store_partner_lu_name(SIDE_INFO_ENTRY *entry, const u8 *name)
{
    entry->usPartnerLUNameLen = length_before(name, ASCII_BLANK, CPIC_PLU_NAME_SIZE);
    for (u16 i = 0; i < entry->usPartnerLUNameLen; ++i)
    {
        if (name[i] == '.')
        {
            entry->usPartnerLUQualified = 1; // the last period counts
            entry->usPartnerNetIdLen = i;
        }
    }
    if (entry->usPartnerLUQualified == 0)
    {
        memcpy(entry->PartnerLUName, name, CPIC_PLU_NAME_SIZE);
        return;
    }
    const u16 period = entry->usPartnerNetIdLen;
    SCC_convert_string(ASCII_TO_EBCDIC, SET_A, static_cast<short>(period), entry->PartnerLUName, name);
    entry->PartnerLUName[period] = EBCDIC_PERIOD;
    SCC_convert_string(ASCII_TO_EBCDIC, SET_A, static_cast<short>(CPIC_PLU_NAME_SIZE - 1 - period),
                       entry->PartnerLUName + period + 1, name + period + 1);
}

void store_mode_name(SIDE_INFO_ENTRY *entry, const u8 *name)
{
    entry->usModeNameLen = length_before(name, ASCII_BLANK, CPIC_MODE_NAME_SIZE);
    SCC_convert_string(ASCII_TO_EBCDIC, SET_A, CPIC_MODE_NAME_SIZE, entry->ModeName, name);
}

// A service TP name of the node: four pairs of hexadecimal digits, each pair a number of its own.
static void store_service_tp_name(SIDE_INFO_ENTRY *entry, const u8 *digits)
{
    memset(entry->TPName, EBCDIC_BLANK, CPIC_TP_NAME_SIZE);
    for (int i = 0; i < 4; ++i)
    {
        const char pair[3] = {static_cast<char>(digits[2 * i]), static_cast<char>(digits[2 * i + 1]), 0};
        entry->TPName[i] = static_cast<u8>(strtoul(pair, nullptr, 16));
    }
}

void SCD_read_nof_response(const u8 *nof_record, SIDE_INFO_ENTRY *entry)
{
    NOF_SIDE_INFO from;
    memcpy(&from, nof_record, sizeof from);

    memset(entry, 0, sizeof *entry);
    memcpy(entry->SymDestName, from.sym_dest_name, CPIC_SYM_DEST_SIZE);
    store_partner_lu_name(entry, from.partner_lu_name);
    entry->ulTPNameFlag = from.tp_name_type;
    if (from.tp_name_type == CM_SNA_SERVICE_TP)
    {
        store_service_tp_name(entry, from.tp_name);
    }
    else
    {
        SCC_convert_string(ASCII_TO_EBCDIC, SET_AE640, CPIC_TP_NAME_SIZE, entry->TPName, from.tp_name);
    }
    memcpy(entry->SideInfoLUAlias, from.local_lu_alias, CPIC_LU_ALIAS_SIZE);
    store_mode_name(entry, from.mode_name);

    const u32 security = from.security_type;
    const bool with_password = security == CM_SECURITY_PROGRAM || security == CM_SECURITY_PROGRAM_STRONG;
    entry->ulSecurityType = security;
    if (with_password || security == CM_SECURITY_SAME)
    {
        entry->usSecurityUserIdLen = length_before(from.user_id, ASCII_BLANK, CPIC_USER_ID_SIZE);
        SCC_convert_string(ASCII_TO_EBCDIC, SET_AE, CPIC_USER_ID_SIZE, entry->SecurityUserId, from.user_id);
    }
    if (with_password)
    {
        SCC_convert_string(ASCII_TO_EBCDIC, SET_AE, CPIC_USER_ID_SIZE, entry->SecurityPassword, from.password);
    }

    SIDE_INFO_RECORD *record;
    if (!SCD_match_sym_dest_name(entry->SymDestName, &record) &&
        (record = add_record(entry->SymDestName, 0, 87)) != nullptr) // without a record the look-up succeeds all the same
    {
        record->usDefined = 1;
        record->Entry = *entry;
    }
    explicit_bzero(&from, sizeof from); // a password stays only where it is needed
}

u32 SCD_lookup(SIDE_INFO_ENTRY *entry)
{
    SIDE_INFO_RECORD *record;
    if (SCD_match_sym_dest_name(entry->SymDestName, &record))
    {
        if (record->usDefined == 0)
        {
            return CM_PROGRAM_PARAMETER_CHECK;
        }
        *entry = record->Entry;
        return CM_OK;
    }
    u32 node;
    if (!open_node(0, &node))
    {
        return CM_PRODUCT_SPECIFIC_ERROR;
    }
    u8 nof_record[NOF_RECORD_SIZE] = {};
    u32 rc = CM_PRODUCT_SPECIFIC_ERROR;
    const nof_answer answer = query_node(node, entry->SymDestName, nof_record);
    if (answer.primary == 0)
    {
        SCD_read_nof_response(nof_record, entry);
        rc = CM_OK;
    }
    else if (name_unknown(answer))
    {
        rc = CM_PROGRAM_PARAMETER_CHECK;
    }
    close_node(node);
    explicit_bzero(nof_record, sizeof nof_record);
    return rc;
}

u32 SCD_set(const SIDE_INFO_ENTRY *entry)
{
    SIDE_INFO_RECORD *record;
    if (!SCD_match_sym_dest_name(entry->SymDestName, &record))
    {
        record = add_record(entry->SymDestName, 5, 6);
        if (record == nullptr)
        {
            return CM_PRODUCT_SPECIFIC_ERROR;
        }
    }
    record->usDefined = 1;
    record->Entry = *entry;
    return CM_OK;
}

// Makes a record a deletion marker; one that is a marker already has nothing to be deleted.
static u32 delete_record(SIDE_INFO_RECORD *record)
{
    const u32 rc = record->usDefined != 0 ? CM_OK : CM_PROGRAM_PARAMETER_CHECK;
    record->usDefined = 0;
    return rc;
}

u32 SCD_delete(const u8 *name)
{
    SIDE_INFO_RECORD *record;
    if (SCD_match_sym_dest_name(name, &record))
    {
        return delete_record(record);
    }
    u32 node;
    if (!open_node(1, &node))
    {
        return CM_PRODUCT_SPECIFIC_ERROR;
    }
    u8 nof_record[NOF_RECORD_SIZE] = {};
    u32 rc = CM_PRODUCT_SPECIFIC_ERROR;
    const nof_answer answer = query_node(node, name, nof_record);
    explicit_bzero(nof_record, sizeof nof_record);
    if (answer.primary == 0 && SCD_match_sym_dest_name(name, &record))
    {
        rc = delete_record(record);
    }
    else if (answer.primary == 0)
    {
        if (add_record(name, 3, 4) != nullptr) // zeroed: a deletion marker with nothing but the name
        {
            rc = CM_OK;
        }
    }
    else if (name_unknown(answer))
    {
        rc = CM_PROGRAM_PARAMETER_CHECK;
    }
    else
    {
        nba_pd_print_problem(0x20030014, 1, "x lx", static_cast<u32>(answer.primary), answer.secondary);
    }
    close_node(node);
    return rc;
}

u32 SCD_main(u16 op, SIDE_INFO_ENTRY *entry)
{
    if (!ensure_started())
    {
        return CM_PRODUCT_SPECIFIC_ERROR;
    }
    switch (op)
    {
        case SIDE_INFO_LOOKUP:
            return SCD_lookup(entry);
        case SIDE_INFO_DELETE:
            return SCD_delete(entry->SymDestName);
        case SIDE_INFO_SET:
            return SCD_set(entry);
        default:
            return CM_OK;
    }
}
