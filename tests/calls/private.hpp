/* private.hpp - the library's data and routines that have no place in cpic.h but are exported for tests and dumps.
 *
 * Declared here once more, on purpose apart from the library's own headers: what the library exports must be callable
 * exactly like this. Every routine is called with the lock held.
 */
#ifndef TESTS_CALLS_PRIVATE_HPP
#define TESTS_CALLS_PRIVATE_HPP

#include "cpicpriv.h"

/* Exported data, under names of the tests' own: cpic.h declares some of them without their types. */
extern "C" GCB library_gcb __asm__("sGcb");
extern "C" GCB *library_gcb_pointer __asm__("pGCB");
extern "C" char *library_environment __asm__("pEnv");
extern "C" u16 library_started __asm__("fInitCPIC");
extern "C" const u8 table_ae[512] __asm__("cpic_ae");
extern "C" const u8 table_a[512] __asm__("cpic_a");
extern "C" const u8 table_ae640[512] __asm__("cpic_ae640");
extern "C" const u8 table_ae640_ex[512] __asm__("cpic_ae640_ex");

extern "C"
{
    /* records */
    u16 SCC_cccb_init(u8 *conversation_id, CCCB **cccb);
    u16 SCC_find_cccb(const u8 *conversation_id, CCCB **cccb, GCB **gcb);
    void SCC_free_cccb(CCCB *cccb);
    u16 SCC_cccbs_using_tpid(const u8 *tp_id);
    void SCC_free_handles_from_table(u32 table);
    u16 SCC_far_len(const char *text, u16 limit);

    /* start-up, path */
    void SCC_init(void);
    void SCC_get_lu_alias(u8 *alias);
    void SCC_set_tp_name(u8 *tp_name);
    u32 SCC_path_callback(u32 word, path_event *event);

    /* return codes, conversion */
    void SCC_map_return_codes(u32 *return_code, u16 primary, u32 secondary, u16 opcode);
    void SCC_convert_string(u16 direction, u16 set, short length, u8 *destination, const u8 *source);

    /* contexts */
    void SCC_context_ended(const u8 *tp_id, u8 type, u16 *primary, u32 *secondary);
    u16 SCC_context_valid(const u8 *context, CCCB **cccb);
    void SCC_null_callback(void *record, u32, u32, u32);

    /* accept */
    u32 SCC_inbound_get_cccb(CCCB **cccb, u8 *conversation_id);
    void SCC_inbound_process_verb(CCCB *cccb, u16 called_by_node, u16 free_on_error);

    /* side information */
    u32 SCD_main(u16 operation, void *entry);
    u32 SCD_lookup(void *entry);
    u32 SCD_set(void *entry);
    u32 SCD_delete(void *name);
    u16 SCD_match_sym_dest_name(const u8 *name, SIDE_INFO_RECORD **record);
    void SCD_read_nof_response(const void *record, void *entry);

    /* completion routines */
    appc_completion cmaccp_cb, cmacci_cb, cmallc_cb, cmcanc_cb, cmcfm_cb, cmcfmd_cb, cmdeal_cb, cmecs_cb, cmflus_cb,
        cmptr_cb, cmrcv_cb, cmrts_cb, cmsend_cb, cmserr_cb, cmtrts_cb;
}

#endif
