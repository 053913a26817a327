// records.cpp - the walk over logical records. It hops from LL to LL and touches no other byte.
#include "lu62/records.hpp"

namespace lu62 {

static std::uint32_t ll_length(std::uint8_t first, std::uint8_t second)
{
    return (static_cast<std::uint32_t>(first) << 8 | second) & 0x7FFFu;
}

bool walk(record_position &position, const std::uint8_t *bytes, std::uint32_t count)
{
    while (count != 0)
    {
        if (position.left != 0)
        {
            const std::uint32_t step = position.left < count ? position.left : count;
            position.left -= step;
            bytes += step;
            count -= step;
        }
        else if (position.ll_have == 0)
        {
            position.ll_first = *bytes++;
            position.ll_have = 1;
            count--;
        }
        else
        {
            const std::uint32_t length = ll_length(position.ll_first, *bytes++);
            if (length < ll_size)
            {
                return false;
            }
            position.ll_have = 0;
            position.left = length - ll_size;
            count--;
        }
    }
    return true;
}

std::uint32_t record_rest(const record_position &position, const std::uint8_t *bytes, std::uint32_t count)
{
    std::uint32_t rest = position.left;

    if (rest == 0)
    {
        const std::uint32_t missing = ll_size - position.ll_have;
        if (count < missing)
        {
            return count;
        }
        const std::uint32_t length = ll_length(position.ll_have != 0 ? position.ll_first : bytes[0], bytes[missing - 1]);
        rest = missing + (length > ll_size ? length - ll_size : 0);
    }
    return rest < count ? rest : count;
}

} // namespace lu62
