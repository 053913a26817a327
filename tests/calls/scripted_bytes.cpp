/* scripted_bytes.cpp - bytes, text in both codes, answers and expected verb records; see scripted_node.hpp. */
#include "scripted_state.hpp"

namespace scripted
{

/* ---- bytes ---------------------------------------------------------------------------------------------- */

Bytes bytes(const std::string &text)
{
    return Bytes(text.begin(), text.end());
}

std::string hex(const void *address, size_t length)
{
    static const char digits[] = "0123456789ABCDEF";
    const u8 *p = static_cast<const u8 *>(address);
    std::string text;
    for (size_t i = 0; i < length; i++)
    {
        if (i != 0)
        {
            text += ' ';
        }
        text += digits[p[i] >> 4];
        text += digits[p[i] & 15];
    }
    return text;
}

static u8 ebcdic_of(char c)
{
    static const struct
    {
        char c;
        u8 e;
    } others[] = {{' ', 0x40}, {'.', 0x4B}, {'#', 0x7B}, {'$', 0x5B}, {'@', 0x7C}, {'_', 0x6D}, {'-', 0x60},
                  {'/', 0x61}, {'&', 0x50}, {'*', 0x5C}, {'"', 0x7F}, {'%', 0x6C}, {'?', 0x6F}, {':', 0x7A}};
    if (c >= 'A' && c <= 'Z')
    {
        const int i = c - 'A';
        return static_cast<u8>(i < 9 ? 0xC1 + i : i < 18 ? 0xD1 + i - 9 : 0xE2 + i - 18);
    }
    if (c >= 'a' && c <= 'z')
    {
        return static_cast<u8>(ebcdic_of(static_cast<char>(c - 'a' + 'A')) - 0x40);
    }
    if (c >= '0' && c <= '9')
    {
        return static_cast<u8>(0xF0 + c - '0');
    }
    for (const auto &other : others)
    {
        if (other.c == c)
        {
            return other.e;
        }
    }
    ADD_FAILURE() << "the tests do not know '" << c << "' in EBCDIC";
    return 0;
}

Bytes ebcdic(const std::string &text, size_t width)
{
    Bytes result;
    for (char c : text)
    {
        result.push_back(ebcdic_of(c));
    }
    if (result.size() < width)
    {
        result.resize(width, EBCDIC_BLANK);
    }
    return result;
}

Bytes ascii(const std::string &text, size_t width)
{
    Bytes result = bytes(text);
    if (result.size() < width)
    {
        result.resize(width, ASCII_BLANK);
    }
    return result;
}

Bytes little_endian(u32 value, unsigned size)
{
    Bytes result;
    for (unsigned i = 0; i < size; i++)
    {
        result.push_back(static_cast<u8>(value >> (8 * i)));
    }
    return result;
}

u32 number_at(const Bytes &b, unsigned offset, unsigned size)
{
    u32 value = 0;
    for (unsigned i = 0; i < size; i++)
    {
        value |= static_cast<u32>(b.at(offset + i)) << (8 * i);
    }
    return value;
}

/* ---- answers and images --------------------------------------------------------------------------------- */

Answer &Answer::put(unsigned offset, const Bytes &value)
{
    fields.emplace_back(offset, value);
    return *this;
}

Answer &Answer::put8(unsigned offset, unsigned value)
{
    return put(offset, little_endian(value, 1));
}

Answer &Answer::put16(unsigned offset, unsigned value)
{
    return put(offset, little_endian(value, 2));
}

Answer &Answer::put32(unsigned offset, u32 value)
{
    return put(offset, little_endian(value, 4));
}

Answer &Answer::received(const std::string &text, unsigned what_received)
{
    data = text;
    put16(32, static_cast<unsigned>(text.size()));
    return put16(24, what_received);
}

Answer &Answer::in_progress()
{
    when = later;
    return *this;
}

Answer fails(u16 primary, u32 secondary)
{
    Answer answer;
    answer.primary = primary;
    answer.secondary = secondary;
    return answer;
}

Answer later(const Answer &outcome)
{
    Answer answer = outcome;
    answer.when = Answer::later;
    return answer;
}

Answer never_calls_back(const Answer &outcome)
{
    Answer answer = outcome;
    answer.when = Answer::no_callback;
    return answer;
}

Image::Image(u16 opcode, size_t size) : bytes(size, 0)
{
    put16(0, opcode);
}

Image &Image::put(unsigned offset, const Bytes &value)
{
    for (size_t i = 0; i < value.size(); i++)
    {
        bytes.at(offset + i) = value[i];
    }
    return *this;
}

Image &Image::put8(unsigned offset, unsigned value)
{
    return put(offset, little_endian(value, 1));
}

Image &Image::put16(unsigned offset, unsigned value)
{
    return put(offset, little_endian(value, 2));
}

Image &Image::put32(unsigned offset, u32 value)
{
    return put(offset, little_endian(value, 4));
}

Image &Image::point(unsigned offset, const void *address)
{
    return put32(offset, reinterpret_cast<u32>(address));
}

Image &Image::of(const CCCB &cccb)
{
    put8(2, cccb.ulConversationType & 0xFF);
    put(12, Bytes(cccb.TpId, cccb.TpId + sizeof(cccb.TpId)));
    return put32(20, cccb.ulAppcConvId);
}

std::string difference(const Bytes &expected, const Bytes &found)
{
    std::string text;
    if (expected.size() != found.size())
    {
        return "sizes " + std::to_string(expected.size()) + " and " + std::to_string(found.size());
    }
    for (size_t i = 0; i < expected.size(); i++)
    {
        if (expected[i] != found[i])
        {
            text += "at " + std::to_string(i) + ": expected " + hex(&expected[i], 1) + " found " + hex(&found[i], 1) +
                    "\n";
        }
    }
    return text;
}

u8 Verb::u8_at(unsigned offset) const
{
    return static_cast<u8>(number_at(issued, offset, 1));
}

u16 Verb::u16_at(unsigned offset) const
{
    return static_cast<u16>(number_at(issued, offset, 2));
}

u32 Verb::u32_at(unsigned offset) const
{
    return number_at(issued, offset, 4);
}

Bytes Verb::bytes_at(unsigned offset, unsigned length) const
{
    return Bytes(issued.begin() + static_cast<int>(offset), issued.begin() + static_cast<int>(offset + length));
}

} // namespace scripted
