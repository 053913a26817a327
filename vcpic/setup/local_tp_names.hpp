// local_tp_names.hpp - the table of TP names for which the process accepts conversations, as the calls on names and the
// accept calls share it. Lock held throughout.
#ifndef VCPIC_SETUP_LOCAL_TP_NAMES_HPP
#define VCPIC_SETUP_LOCAL_TP_NAMES_HPP

#include "core/core.hpp"

// Finds an equal name: same length, same bytes. name: EBCDIC, 64 bytes. 0: not there.
u32 find_local_tp_name(const u8 *name, u16 length);

// The places in the problem log of a name that could not be added.
struct name_problems
{
    u32 no_memory;  // details of problem 0x2003000b
    u32 table_full;
    u32 refused;    // detail of problem 0x2003000e
};

// Adds a name to the table and makes it known to the node. CM_OK, or CM_PRODUCT_SPECIFIC_ERROR with everything as it
// was and a problem record.
u32 add_local_tp_name(const u8 *name, u16 length, const name_problems &details);

#endif
