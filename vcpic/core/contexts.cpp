// contexts.cpp - a context is the TP identifier under which conversations run. Whether one is valid, and telling the
// node that one is over (TP_ENDED). Runs with the lock held.
#include "core/core.hpp"

void SCC_null_callback(void *record, u32, u32, u32)
{
    nba_mm_free(record);
}

void SCC_context_ended(const u8 *tp_id, u8 type, u16 *primary, u32 *secondary)
{
    const bool wait = primary != nullptr && secondary != nullptr;
    VERB_RECORD *verb = static_cast<VERB_RECORD *>(nba_mm_alloc(CPIC_VERB_SIZE, MM_TYPE_VERB, nba_blank_name));
    if (verb == nullptr)
    {
        nba_pd_print_problem(0x2003000b, 17, "");
        if (wait)
        {
            *primary = 0x11F0; // unexpected system error, as the node would report it
            *secondary = 12;
        }
        return;
    }
    memset(verb, 0, CPIC_VERB_SIZE);
    verb->opcode = NAP_TP_ENDED;
    memcpy(verb->tp_ended.tp_id, tp_id, CPIC_TP_ID_SIZE);
    verb->tp_ended.type = type;
    if (wait)
    {
        appc_c_version(NAP_VERSION, verb);
        *primary = verb->tp_ended.primary_rc;
        *secondary = verb->tp_ended.secondary_rc;
        nba_mm_free(verb);
    }
    else if (appc_c_async_version(NAP_VERSION, verb, SCC_null_callback, 1) == NAP_NO_CALLBACK)
    {
        // Only this answer leaves the record to us: after every other one the node calls SCC_null_callback.
        nba_mm_free(verb);
    }
}

bool end_unused_context()
{
    if (all_zero(pGCB->CurrentTpId) || SCC_cccbs_using_tpid(pGCB->CurrentTpId) != 0)
    {
        return false;
    }
    SCC_context_ended(pGCB->CurrentTpId, 1, nullptr, nullptr);
    return true;
}

int SCC_context_valid(const u8 *context, CCCB **out)
{
    const u32 table = pGCB->ConvTable;
    *out = nullptr;
    for (u32 handle = vtm_get_next_used(table, NB_NULL_HANDLE); handle != NB_NULL_HANDLE;
         handle = vtm_get_next_used(table, handle))
    {
        CCCB *cccb = static_cast<CCCB *>(vtm_get_pointer(table, handle));
        if (cccb != nullptr && memcmp(cccb->TpId, context, CPIC_TP_ID_SIZE) == 0)
        {
            *out = cccb;
            return 1;
        }
    }
    return memcmp(context, pGCB->CurrentTpId, CPIC_TP_ID_SIZE) == 0;
}
