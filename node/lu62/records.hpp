// records.hpp - logical records of a basic conversation: where in the stream of records a side stands. Each side of a
// conversation has one such position for what it sends and one for what it receives.
#pragma once

#include <cstdint>

namespace lu62 {

// A logical record begins with LL, two bytes, high byte first: the low 15 bits are the length of the record with LL
// itself, the top bit says that the next record continues this one, which is the programs' affair alone.
inline constexpr std::uint32_t ll_size = 2;

struct record_position
{
    std::uint32_t left;    // bytes of the record still to come, once its LL is known
    std::uint8_t ll_have;  // bytes of an LL seen, 0 or 1
    std::uint8_t ll_first; // the first of them
};

inline bool at_boundary(const record_position &position)
{
    return position.left == 0 && position.ll_have == 0;
}

// Moves over `count` bytes of the stream. False: an LL in them is wrong (length below 2), and the position is of no
// further use.
bool walk(record_position &position, const std::uint8_t *bytes, std::uint32_t count);

// The number of bytes, at most `count`, up to and including the end of the record that the position is in (or, at a
// boundary, of the record that begins here). LL bytes that are not in `bytes` are not counted, so the result may stop
// before the end because the end is not known yet. The position itself stays.
std::uint32_t record_rest(const record_position &position, const std::uint8_t *bytes, std::uint32_t count);

} // namespace lu62
