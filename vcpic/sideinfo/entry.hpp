// entry.hpp - what the node's records and the program's entries share on their way into a stored side-information
// entry.
#ifndef VCPIC_SIDEINFO_ENTRY_HPP
#define VCPIC_SIDEINFO_ENTRY_HPP

#include "core/core.hpp"

// Stores a partner LU name given as 17 ASCII characters padded with blanks: with a period before the first blank it is
// network-qualified and goes into EBCDIC, to the end of the field; else it is an alias and stays as it is. Sets the
// qualified flag and the two lengths.
void store_partner_lu_name(SIDE_INFO_ENTRY *entry, const u8 *name);

// Stores a mode name given as 8 ASCII characters, and its length.
void store_mode_name(SIDE_INFO_ENTRY *entry, const u8 *name);

// Operation codes of SCD_main().
enum side_info_operation : u16
{
    SIDE_INFO_LOOKUP = 1,
    SIDE_INFO_DELETE = 2,
    SIDE_INFO_SET = 3,
};

#endif
