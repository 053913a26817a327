// control_blocks.cpp - the global control block, and the making, finding, counting and freeing of conversation control
// blocks. Runs with the lock held.
#include "core/frame.hpp"

// A service TP name in APPCTPN that is longer than TPName runs past its field: the fields of the GCB behind it and then
// the bytes behind the GCB take its digits, and old set-ups that look there find them. `room` is those bytes. 65536 of
// them hold the longest string that the kernel passes to a program (131072 bytes, two digits to a byte), and
// SCC_set_tp_name() stops at their end. The exported symbol covers the room too, so that it goes along when a program
// that refers to sGcb gets a copy of it.
struct gcb_with_room
{
    GCB gcb;
    u8 room[GCB_ROOM];
};

extern "C" {
#pragma GCC visibility push(default)
extern gcb_with_room gcb_storage asm("sGcb");
gcb_with_room gcb_storage;
#pragma GCC visibility pop

GCB *pGCB = &gcb_storage.gcb;
const char *pEnv;
u16 fInitCPIC;
}

const u8 *gcb_room_end()
{
    return gcb_storage.room + GCB_ROOM;
}

const u8 *gcb_begin()
{
    return reinterpret_cast<const u8 *>(&gcb_storage.gcb);
}

int SCC_cccb_init(u8 *conv_id, CCCB **out)
{
    *out = nullptr;
    CCCB *cccb = static_cast<CCCB *>(nba_mm_alloc(sizeof(CCCB), MM_TYPE_RECORD, nba_blank_name));
    if (cccb == nullptr)
    {
        nba_pd_print_problem(0x2003000b, 1, "");
        return 0;
    }
    memset(cccb, 0, sizeof(CCCB));
    const u32 handle = vtm_get_free_entry(pGCB->ConvTable, cccb);
    if (handle == NB_NULL_HANDLE)
    {
        nba_pd_print_problem(0x2003000b, 2, "");
        nba_mm_free(cccb);
        return 0;
    }
    cccb->CCCBhandle = handle;
    SIDE_INFO_ENTRY &side_info = cccb->SideInfo;
    memset(side_info.SymDestName, ASCII_BLANK, sizeof side_info.SymDestName);
    memset(side_info.PartnerLUName, ASCII_BLANK, sizeof side_info.PartnerLUName);
    memset(side_info.TPName, EBCDIC_BLANK, sizeof side_info.TPName);
    memset(side_info.ModeName, EBCDIC_BLANK, sizeof side_info.ModeName);
    memset(side_info.SecurityUserId, EBCDIC_BLANK, sizeof side_info.SecurityUserId);
    memset(side_info.SecurityPassword, EBCDIC_BLANK, sizeof side_info.SecurityPassword);
    side_info.ulSecurityType = CM_SECURITY_SAME;
    side_info.usSecurityUserIdLen = 1; // 1 and not 0: programs see this length from an extract before any was set
    cccb->ulConversationType = CM_MAPPED_CONVERSATION;

    memcpy(conv_id, &handle, sizeof handle);
    memset(conv_id + sizeof handle, 0, CPIC_CONV_ID_SIZE - sizeof handle);
    *out = cccb;
    return 1;
}

int SCC_find_cccb(const u8 *conv_id, CCCB **out, GCB **gcb)
{
    *out = *gcb == pGCB ? find_cccb(conv_id) : nullptr;
    return *out != nullptr;
}

u32 SCC_cccbs_using_tpid(const u8 *tp_id)
{
    u32 count = 0;
    const u32 table = pGCB->ConvTable;
    for (u32 handle = vtm_get_next_used(table, NB_NULL_HANDLE); handle != NB_NULL_HANDLE;
         handle = vtm_get_next_used(table, handle))
    {
        const CCCB *cccb = static_cast<const CCCB *>(vtm_get_pointer(table, handle));
        if (cccb != nullptr && memcmp(cccb->TpId, tp_id, CPIC_TP_ID_SIZE) == 0)
        {
            ++count;
        }
    }
    return count;
}

// Frees what a CCCB owns, the CCCB excepted, and wipes its password.
static void free_owned(CCCB *cccb)
{
    VERB_RECEIVE_ALLOCATE &accept = cccb->vcb.rcvallcp.rcv_alloc;
    if (accept.opcode == NAP_RECEIVE_ALLOCATE_CPIC && accept.tp_name_list != nullptr)
    {
        nba_mm_free(accept.tp_name_list); // an accept that will never complete
    }
    if (cccb->LogData != nullptr)
    {
        nba_mm_free(cccb->LogData);
    }
    if (cccb->DeallcLogData != nullptr)
    {
        nba_mm_free(cccb->DeallcLogData);
    }
    explicit_bzero(&cccb->vcb, CPIC_VERB_SIZE);
    explicit_bzero(cccb->SideInfo.SecurityPassword, CPIC_USER_ID_SIZE);
}

void forget_completion(CCCB *cccb, const char *check)
{
    if (cccb->usCompletionPending == 1)
    {
        cccb->usCompletionPending = 0;
        CPIC_CHECK(pGCB->NumVerbsWaiting > 0, check);
        --pGCB->NumVerbsWaiting;
    }
}

void release_cccb(CCCB *cccb)
{
    free_owned(cccb);
    vtm_release_entry(pGCB->ConvTable, cccb->CCCBhandle);
    nba_mm_free(cccb);
}

void SCC_free_cccb(CCCB *cccb)
{
    if (!all_zero(cccb->TpId) && memcmp(cccb->TpId, pGCB->CurrentTpId, CPIC_TP_ID_SIZE) != 0 &&
        SCC_cccbs_using_tpid(cccb->TpId) < 2)
    {
        // Keep other calls off the record, should the node give the lock up: verbs find it busy, contexts find it gone.
        u8 tp_id[CPIC_TP_ID_SIZE];
        memcpy(tp_id, cccb->TpId, sizeof tp_id);
        memset(cccb->TpId, 0, sizeof cccb->TpId);
        cccb->usVerbsPending = 1;
        if (cccb->usTraceCallNo == CALL_CMDEAL)
        {
            // Inside a deallocation the context is over before the call returns.
            u16 primary;
            u32 secondary;
            SCC_context_ended(tp_id, 1, &primary, &secondary);
        }
        else
        {
            SCC_context_ended(tp_id, 1, nullptr, nullptr);
        }
    }
    forget_completion(cccb, "pGCB->NumVerbsWaiting > 0");
    release_cccb(cccb);
}

// The next entry is taken from ConvTable whatever table was given. For any other table only the first entry is
// therefore released and freed: a path failure leaves the other records of the cache and of the TP names behind.
// Deliberate, and kept as it has always been.
void SCC_free_handles_from_table(u32 table)
{
    u32 handle = vtm_get_next_used(table, NB_NULL_HANDLE);
    while (handle != NB_NULL_HANDLE)
    {
        void *record = vtm_get_pointer(table, handle);
        if (record != nullptr)
        {
            if (table == pGCB->ConvTable)
            {
                free_owned(static_cast<CCCB *>(record));
            }
            else if (table == pGCB->SideInfoTable)
            {
                explicit_bzero(record, sizeof(SIDE_INFO_RECORD)); // a password may be in it
            }
            vtm_release_entry(table, handle);
            nba_mm_free(record);
        }
        handle = vtm_get_next_used(pGCB->ConvTable, handle);
    }
}

u16 SCC_far_len(const char *string, u16 limit)
{
    return static_cast<u16>(strnlen(string, limit));
}
