// endurance_records.hpp - logical records for the commands in endurance_*.cpp: bytes are wrapped into records of random
// sizes and taken out of them again. The sizes mean nothing, so what comes out must be what went in, byte for byte.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <random>
#include <vector>

namespace endurance {

// Appends `count` bytes to a stream of logical records: at least one, some of them empty, some said to be continued.
inline void wrap(std::vector<unsigned char> &stream, const unsigned char *bytes, std::size_t count,
                 std::mt19937 &random)
{
    do
    {
        const std::size_t most = random() % 3 == 0 ? count : std::min<std::size_t>(count, 300);
        const std::size_t step = std::min<std::size_t>(random() % (most + 1), 32765), length = step + 2;
        const unsigned continued = random() % 4 == 0 ? 0x80u : 0u;
        stream.push_back(static_cast<unsigned char>(length >> 8 | continued));
        stream.push_back(static_cast<unsigned char>(length));
        stream.insert(stream.end(), bytes, bytes + step);
        bytes += step;
        count -= step;
    } while (count != 0);
}

// Takes the bytes out of a stream of logical records that comes in pieces.
class unwrapping
{
public:
    bool at_boundary() const { return left_ == 0 && !half_ll_; }
    // Bytes of the records' contents so far.
    std::size_t length() const { return length_; }
    // The contents begin anew.
    void restart() { length_ = 0; }

    // False: a wrong LL, or more contents than there is room for.
    template <std::size_t room>
    bool take(std::array<unsigned char, room> &contents, const unsigned char *bytes, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            if (left_ != 0)
            {
                if (length_ == room)
                    return false;
                contents[length_++] = bytes[i];
                --left_;
            }
            else if (!half_ll_)
            {
                half_ll_ = true;
                high_ = bytes[i] & 0x7Fu;
            }
            else
            {
                const std::size_t length = high_ << 8 | bytes[i];
                if (length < 2)
                    return false;
                half_ll_ = false;
                left_ = length - 2;
            }
        }
        return true;
    }

private:
    std::size_t left_ = 0, length_ = 0, high_ = 0;
    bool half_ll_ = false;
};

} // namespace endurance
