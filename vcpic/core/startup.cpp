// startup.cpp - the library starts itself with the first call that needs it, and is as before its start again once the
// path to the node has failed. Runs with the lock held.
//
//   not started (fInitCPIC 0) --SCC_init--> started (1) --path failure--> not started
//
// A start that fails leaves nothing behind but a problem record; the next call tries all of it again.
#include "core/core.hpp"

#include <stdlib.h>

// The three tables, in the order in which they are made, with the detail of problem 0x2003000a for one that cannot be.
struct table_of_gcb
{
    u32 GCB::*word;
    u32 detail;
};
static constexpr table_of_gcb tables[] = {{&GCB::ConvTable, 1}, {&GCB::SideInfoTable, 2}, {&GCB::LocTPNameTable, 3}};

// Ends the tables that stand.
static void terminate_tables()
{
    for (const table_of_gcb &table : tables)
    {
        u32 *word = &(pGCB->*table.word);
        if (*word != 0)
        {
            vtm_table_terminate(word);
            *word = 0;
        }
    }
}

void SCC_init(void)
{
    GCB *gcb = pGCB;
    memset(gcb->CurrentTpId, 0, sizeof gcb->CurrentTpId);
    memset(gcb->ContextLUAlias, 0, sizeof gcb->ContextLUAlias);
    gcb->NumVerbsWaiting = 0;
    gcb->ulAsyncVerbsOutstanding = 0;
    gcb->NumLocTPNames = 0;
    gcb->usTPNameLen = 0;
    gcb->usLocTPNameFlag = 0;
    gcb->usTPNameFromEnv = 0;
    SCC_get_lu_alias(gcb->LUAlias);
    SCC_set_tp_name(gcb->TPName);

    // A name that ran past its field has left its digits here; a table word must be 0 to tell whether it was filled.
    gcb->ConvTable = gcb->SideInfoTable = gcb->LocTPNameTable = gcb->ulPathUser = 0;

    for (const table_of_gcb &table : tables)
    {
        vtm_table_init(&(gcb->*table.word), 0);
        if (gcb->*table.word == 0)
        {
            nba_pd_print_problem(0x2003000a, table.detail, "");
            terminate_tables();
            return;
        }
    }
    vpm_init_path_user(0, 0, SCC_path_callback, 0, &gcb->ulPathUser);
    if (gcb->ulPathUser == 0)
    {
        nba_pd_print_problem(0x2003000a, 0, ""); // detail 0 after 1, 2 and 3 is deliberate, and kept
        terminate_tables();
        return;
    }
    gcb->WaitObject = vpm_allocate_wait_object();
    if (gcb->WaitObject == 0)
    {
        nba_pd_print_problem(0x2003000b, 12, "");
        terminate_tables();
        vpm_terminate_path_user(gcb->ulPathUser);
        gcb->ulPathUser = 0;
        return;
    }
    fInitCPIC = 1;
}

// Reads an environment variable into pEnv; null when it is unset or empty.
static const char *read_environment(const char *name)
{
    pEnv = getenv(name);
    if (pEnv != nullptr && *pEnv == 0)
    {
        pEnv = nullptr;
    }
    return pEnv;
}

void SCC_get_lu_alias(u8 *alias)
{
    const char *value = read_environment("APPCLLU");
    if (value == nullptr)
    {
        memset(alias, 0, CPIC_LU_ALIAS_SIZE);
        return;
    }
    memset(alias, ASCII_BLANK, CPIC_LU_ALIAS_SIZE);
    memcpy(alias, value, SCC_far_len(value, CPIC_LU_ALIAS_SIZE));
}

// The value of a hexadecimal digit, by a rule of its own that service TP names in old start-up scripts rely on:
// everything below "1" is 0, everything above "9" is the character less 0x37. That makes A to F the digits 10 to 15 and
// leaves 0x20 too much for a to f, which the callers drop.
static unsigned hex_digit(char character)
{
    const unsigned c = static_cast<unsigned char>(character);
    if (c < '1')
    {
        return 0;
    }
    return c <= '9' ? c - '0' : c - 0x37;
}

// Writes the service TP name: one byte for each pair of digits; of an odd number the last low digit is the terminating
// zero. The name is not held to the 64 bytes of its field: a longer one overwrites what follows in the GCB and the room
// behind it, and stops where the room ends.
static void set_service_tp_name(u8 *name, const char *digits)
{
    const size_t length = strlen(digits);
    const size_t count = (length + 1) / 2;
    size_t limit = CPIC_TP_NAME_SIZE;
    if (name >= gcb_begin() && name < gcb_room_end())
    {
        limit = static_cast<size_t>(gcb_room_end() - name);
    }
    for (size_t i = 0; i < count && i < limit; ++i)
    {
        const unsigned high = hex_digit(digits[2 * i]) << 4;
        const unsigned low = hex_digit(digits[2 * i + 1]) & ~0x20u;
        name[i] = static_cast<u8>(high | low);
    }
    pGCB->usTPNameLen = static_cast<u16>(count <= 0xFFFF ? count : 0xFFFF);
}

void SCC_set_tp_name(u8 *name)
{
    static const char service_prefix[] = "SNA_SERVICE_TP_0x";
    static const size_t prefix_length = sizeof service_prefix - 1;
    static const u8 default_name[] = {0xC3, 0xD7, 0xC9, 0xC3, 0x6D, 0xC4, 0xC5, 0xC6, 0xC1, 0xE4,
                                      0xD3, 0xE3, 0x6D, 0xE3, 0xD7, 0xD5, 0xC1, 0xD4, 0xC5}; // CPIC_DEFAULT_TPNAME

    memset(name, EBCDIC_BLANK, CPIC_TP_NAME_SIZE);
    const char *value = read_environment("APPCTPN");
    if (value == nullptr)
    {
        memcpy(name, default_name, sizeof default_name);
        pGCB->usTPNameLen = sizeof default_name;
    }
    else if (strncmp(value, service_prefix, prefix_length) != 0)
    {
        const u16 length = SCC_far_len(value, CPIC_TP_NAME_SIZE);
        SCC_convert_string(ASCII_TO_EBCDIC, SET_AE640, static_cast<short>(length), name,
                           reinterpret_cast<const u8 *>(value));
        pGCB->usTPNameLen = length;
        pGCB->usTPNameFromEnv = 1;
    }
    else
    {
        pEnv += prefix_length;
        set_service_tp_name(name, pEnv);
    }
}

u32 SCC_path_callback(u32, struct path_event *event)
{
    if (event->code == PATH_EVENT_FAILURE)
    {
        GCB *gcb = pGCB;
        fInitCPIC = 0;
        for (const table_of_gcb &table : tables)
        {
            u32 *word = &(gcb->*table.word);
            if (*word != 0)
            {
                SCC_free_handles_from_table(*word);
                vtm_table_terminate(word);
            }
        }
        if (gcb->WaitObject != 0)
        {
            vpm_release_wait_object(gcb->WaitObject); // the word stays: it tells a dump which object it was
        }
        if (gcb->ulPathUser != 0)
        {
            vpm_terminate_path_user(gcb->ulPathUser);
            gcb->ulPathUser = 0;
        }
    }
    event->result = 0;
    return 0;
}
