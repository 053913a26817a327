// data.hpp - what the calls of this folder share.
#ifndef VCPIC_DATA_DATA_HPP
#define VCPIC_DATA_DATA_HPP

#include "core/frame.hpp"

// True when a send or receive can take the length: none of bits 15 to 31 is set, 0 to 32767.
inline bool good_data_length(CM_INT32 length)
{
    return (static_cast<u32>(length) & ~u32{CPIC_MAX_DATA}) == 0;
}

// Drops log data that CMSLD replaced while the node was still sending it: parked in DeallcLogData with length 0 until
// the verb is complete (send.cpp).
void drop_parked_log(CCCB *cccb);

// Drops the log data of a chained deallocation that is not to be, if there is any (send.cpp).
void drop_deallocation_log(CCCB *cccb);

#endif
