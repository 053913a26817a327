// return_codes.cpp - the CPI-C return code of a failed verb, from the primary and secondary return codes that the node
// stored in the verb record. The codes stand here as the machine words that are compared; read byte by byte they are
// the node's codes and SNA sense data: 0x34600810 is 10086034.
#include "core/core.hpp"

namespace {

constexpr u32 any_secondary = 0;  // mask 0: every secondary code matches
constexpr u32 this_secondary = 0xFFFFFFFF;

struct mapping
{
    u16 primary;
    u32 mask;      // bits of the secondary code that are compared
    u32 secondary;
    u32 rc;
};

// The first match wins. 10086031, PIP not specified correctly, is not here on purpose: CPI-C programs cannot give PIP
// data, so an operator must see the code in the problem log.
constexpr mapping mappings[] = {
    {0x0100, this_secondary, 0x31000000, CM_PROGRAM_PARAMETER_CHECK},
    {0x0100, this_secondary, 0xF1000000, CM_PROGRAM_PARAMETER_CHECK},
    {0x0100, this_secondary, 0x5B010000, CM_PROGRAM_PARAMETER_CHECK},
    {0x0100, this_secondary, 0x18000000, CM_PARAMETER_ERROR},
    {0x0100, this_secondary, 0x17000000, CM_PARAMETER_ERROR},
    {0x0200, any_secondary, 0, CM_PROGRAM_STATE_CHECK},
    {0x0300, this_secondary, 0x04000000, CM_ALLOCATE_FAILURE_NO_RETRY},
    {0x0300, this_secondary, 0x05000000, CM_ALLOCATE_FAILURE_RETRY},
    {0x0300, this_secondary, 0x34600810, CM_CONVERSATION_TYPE_MISMATCH},
    {0x0300, this_secondary, 0x16900000, CM_SECURITY_NOT_VALID},
    {0x0300, this_secondary, 0x51600F08, CM_SECURITY_NOT_VALID},
    // 080FFF00 to 080FFF0D: the top byte counts from 00 to 0D
    {0x0300, 0xF8FFFFFF, 0x00FF0F08, CM_SECURITY_NOT_VALID}, // 00 to 07
    {0x0300, 0xFCFFFFFF, 0x08FF0F08, CM_SECURITY_NOT_VALID}, // 08 to 0B
    {0x0300, 0xFEFFFFFF, 0x0CFF0F08, CM_SECURITY_NOT_VALID}, // 0C and 0D
    {0x0300, this_secondary, 0x58600F08, CM_SECURITY_NOT_VALID},
    {0x0300, this_secondary, 0x41600810, CM_SYNC_LVL_NOT_SUPPORTED_PGM},
    {0x0300, this_secondary, 0x21600810, CM_TPN_NOT_RECOGNIZED},
    {0x0300, this_secondary, 0x00004C08, CM_TP_NOT_AVAILABLE_NO_RETRY},
    {0x0300, this_secondary, 0x31604B08, CM_TP_NOT_AVAILABLE_RETRY},
    {0x0500, any_secondary, 0, CM_DEALLOCATED_ABEND},
    {0x0600, any_secondary, 0, CM_DEALLOCATED_ABEND},
    {0x0700, any_secondary, 0, CM_DEALLOCATED_ABEND_SVC},
    {0x0800, any_secondary, 0, CM_DEALLOCATED_ABEND_TIMER},
    {0x0900, any_secondary, 0, CM_DEALLOCATED_NORMAL},
    {0x0C00, any_secondary, 0, CM_PROGRAM_ERROR_NO_TRUNC},
    {0x0D00, any_secondary, 0, CM_PROGRAM_ERROR_TRUNC},
    {0x0E00, any_secondary, 0, CM_PROGRAM_ERROR_PURGING},
    {0x0F00, any_secondary, 0, CM_RESOURCE_FAILURE_RETRY},
    {0x1000, any_secondary, 0, CM_RESOURCE_FAILURE_NO_RETRY},
    {0x1100, any_secondary, 0, CM_SVC_ERROR_NO_TRUNC},
    {0x1200, any_secondary, 0, CM_SVC_ERROR_TRUNC},
    {0x1300, any_secondary, 0, CM_SVC_ERROR_PURGING},
    {0x1400, any_secondary, 0, CM_UNSUCCESSFUL},
};

} // namespace

void SCC_map_return_codes(u32 *rc, u16 primary, u32 secondary, u16 opcode)
{
    for (const mapping &row : mappings)
    {
        if (row.primary == primary && (secondary & row.mask) == row.secondary)
        {
            *rc = row.rc;
            return;
        }
    }
    *rc = CM_PRODUCT_SPECIFIC_ERROR;
    nba_pd_print_problem(0x20030016, 1, "x x lx", static_cast<u32>(opcode), static_cast<u32>(primary), secondary);
}
