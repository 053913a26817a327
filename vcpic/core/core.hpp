// core.hpp - what every call stands on: the control blocks and their tables, start-up, return codes, contexts,
// character conversion. Every routine here runs with the process-wide lock held and takes none itself.
//
// The SCC_ and SCD_ routines and the completion routines are exported (CPIC_PRIVATE) so that they can be tested one by
// one; inside the library every call of them binds inside it.
#ifndef VCPIC_CORE_CORE_HPP
#define VCPIC_CORE_CORE_HPP

#include <string.h>

#pragma GCC visibility push(default)
#include "cpic.h"
#include "cpicpriv.h"

extern "C" {

// ---- control blocks (control_blocks.cpp) --------------------------------------------------------------------

extern GCB *pGCB;
extern const char *pEnv; // the environment variable read last at start-up; null when it was unset or empty
extern u16 fInitCPIC;    // 1: started

// Makes a CCCB with the default characteristics and writes its ID (8 bytes). 1: made; 0: no memory or no table entry,
// logged.
int SCC_cccb_init(u8 *conv_id, CCCB **cccb);

// Finds the CCCB of an ID; only the ID's first four bytes count. *cccb is null when it is not found. gcb: &pGCB.
int SCC_find_cccb(const u8 *conv_id, CCCB **cccb, GCB **gcb);

// Frees a CCCB with its log data, and ends its context when no other conversation uses it.
void SCC_free_cccb(CCCB *cccb);

// Number of CCCBs with this TP identifier.
u32 SCC_cccbs_using_tpid(const u8 *tp_id);

// Empties a handle table at path failure.
void SCC_free_handles_from_table(u32 table);

// Length of a zero-terminated string, counting at most limit characters.
u16 SCC_far_len(const char *string, u16 limit);

// ---- start-up and path events (startup.cpp) -----------------------------------------------------------------

// Starts the library; success is fInitCPIC 1. A failure is logged and leaves nothing allocated.
void SCC_init(void);

// The default local LU alias from APPCLLU: 8 bytes of ASCII, or zeros.
void SCC_get_lu_alias(u8 *alias);

// The local TP name from APPCTPN into a 64-byte field; sets usTPNameLen and usTPNameFromEnv.
void SCC_set_tp_name(u8 *name);

// Path callback: on a path failure everything is thrown away and the library is as before its start. Returns 0.
u32 SCC_path_callback(u32 user_word, struct path_event *event);

// ---- return codes (return_codes.cpp) ------------------------------------------------------------------------

// Maps the return codes of a failed verb, machine words as they stand in the record, to the CPI-C return code.
void SCC_map_return_codes(u32 *rc, u16 primary, u32 secondary, u16 opcode);

// ---- contexts (contexts.cpp) --------------------------------------------------------------------------------

// Ends a context at the node. With outputs: at once, and they take the verb's return codes. With null outputs: the
// verb is handed over and nobody waits for its result.
void SCC_context_ended(const u8 *tp_id, u8 type, u16 *primary, u32 *secondary);

// 1 when some CCCB has the context (the first in table order goes to *cccb), or when it is the current one.
int SCC_context_valid(const u8 *context, CCCB **cccb);

// Completion routine of a verb whose record belongs to nobody: frees the record.
void SCC_null_callback(void *record, u32 unused1, u32 unused2, u32 asynchronous);

// ---- character conversion (conversion.cpp) ------------------------------------------------------------------

// The tables: 256 bytes ASCII to EBCDIC, then 256 bytes EBCDIC to ASCII; 0 where a character is outside the set.
// direction: 0 ASCII to EBCDIC, 1 back. set: 0 cpic_ae, 1 cpic_a, 2 cpic_ae640, 3 cpic_ae640_ex. A length of 0 or less
// converts nothing. Source and destination may be the same.
void SCC_convert_string(u16 direction, u16 set, short length, u8 *destination, const u8 *source);

// ---- side information (../sideinfo/cache.cpp) ---------------------------------------------------------------

// op: 1 look-up, 2 delete, 3 set. Starts the library when need be. Returns a CPI-C return code: 0, 20, 24.
u32 SCD_main(u16 op, SIDE_INFO_ENTRY *entry);
u32 SCD_lookup(SIDE_INFO_ENTRY *entry);
u32 SCD_set(const SIDE_INFO_ENTRY *entry);
u32 SCD_delete(const u8 *name);

// Finds a name in the cache, deletion markers included. 1: found.
int SCD_match_sym_dest_name(const u8 *name, SIDE_INFO_RECORD **record);

// Makes an entry of a side-information record of the node (212 bytes), and caches it.
void SCD_read_nof_response(const u8 *nof_record, SIDE_INFO_ENTRY *entry);

// ---- accept processing (../setup/accept.cpp, ../setup/initialize.cpp) ---------------------------------------

// Starts the library when need be and makes a CCCB for an incoming conversation. CM_OK or CM_PRODUCT_SPECIFIC_ERROR.
u32 SCC_inbound_get_cccb(CCCB **cccb, u8 *conv_id);

// Issues the receive-allocate verb. processing_mode: nonzero lets it complete later; free_on_error: the CCCB goes when
// the accept fails. Returns the CPI-C return code.
u32 SCC_inbound_issue_verb(CCCB *cccb, u16 call_number, appc_completion *routine, u16 processing_mode,
                           u16 free_on_error, const u8 *conv_id, CM_INT32 *rc);

// Completes an accept: the verb's result becomes the conversation's characteristics.
void SCC_inbound_process_verb(CCCB *cccb, u32 asynchronous, u16 free_on_error);

// ---- completion routines ------------------------------------------------------------------------------------

appc_completion cmaccp_cb, cmacci_cb, cmallc_cb, cmcanc_cb, cmcfm_cb, cmcfmd_cb, cmdeal_cb, cmecs_cb, cmflus_cb;
appc_completion cmptr_cb, cmrcv_cb, cmrts_cb, cmsend_cb, cmserr_cb, cmtrts_cb;

} // extern "C"
#pragma GCC visibility pop

// ---- helpers inside the library -----------------------------------------------------------------------------

// Bytes behind the GCB that a service TP name in APPCTPN may run into; see control_blocks.cpp.
#define GCB_ROOM 65536u
const u8 *gcb_begin();
const u8 *gcb_room_end();

// Takes a completion that nobody will collect out of NumVerbsWaiting. check: the text of the failed check when the
// number is 0 already.
void forget_completion(CCCB *cccb, const char *check);

// Ends the current context at the node when there is one and no conversation uses it; nobody waits for the result. True
// when it did so. CurrentTpId stays as it is.
bool end_unused_context();

// Frees a CCCB and what it owns: no verb, no counting.
void release_cccb(CCCB *cccb);

// The library's consistency check: a failed one is reported to the node, with the text of the expression, and the call
// goes on.
#define CPIC_CHECK(condition, text)                                                                                    \
    do                                                                                                                 \
    {                                                                                                                  \
        if (!(condition)) [[unlikely]]                                                                                 \
        {                                                                                                              \
            v0_assert(__FILE_NAME__, __LINE__, text);                                                                  \
        }                                                                                                              \
    } while (0)

enum conversion_direction : u16
{
    ASCII_TO_EBCDIC = 0,
    EBCDIC_TO_ASCII = 1,
};

enum character_set : u16
{
    SET_AE = 0,       // user IDs, passwords, log data
    SET_A = 1,        // LU and mode names
    SET_AE640 = 2,    // TP names
    SET_AE640_EX = 3, // CMCNVI, CMCNVO
};

inline bool all_zero(const u8 *field8)
{
    u32 words[2];
    memcpy(words, field8, 8);
    return (words[0] | words[1]) == 0;
}

// Number of bytes before the first `blank`, at most `limit`.
inline u16 length_before(const u8 *text, u8 blank, u16 limit)
{
    const void *end = memchr(text, blank, limit);
    return end == nullptr ? limit : static_cast<u16>(static_cast<const u8 *>(end) - text);
}

// True when the audit log wants records.
inline bool audit_on()
{
    return (ptrc[PTRC_AUDIT_BYTE] & PTRC_AUDIT_BIT) == 0;
}

// Starts the library when it is not started; false when that fails.
inline bool ensure_started()
{
    if (fInitCPIC == 0)
    {
        SCC_init();
    }
    return fInitCPIC != 0;
}

#endif
