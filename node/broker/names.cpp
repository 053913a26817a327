// names.cpp - conversions between fixed fields and text.
#include "broker/names.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

namespace broker {

namespace {

// Code page 037 of the characters 0x20 to 0x7E.
constexpr std::uint8_t ebcdic_of_ascii[95] = {
    0x40, 0x5A, 0x7F, 0x7B, 0x5B, 0x6C, 0x50, 0x7D, 0x4D, 0x5D, 0x5C, 0x4E, 0x6B, 0x60, 0x4B, 0x61,
    0xF0, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0x7A, 0x5E, 0x4C, 0x7E, 0x6E, 0x6F,
    0x7C, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6,
    0xD7, 0xD8, 0xD9, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8, 0xE9, 0xBA, 0xE0, 0xBB, 0xB0, 0x6D,
    0x79, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x91, 0x92, 0x93, 0x94, 0x95, 0x96,
    0x97, 0x98, 0x99, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9, 0xC0, 0x4F, 0xD0, 0xA1,
};

constexpr char no_text = 0x1A;

constexpr std::array<char, 256> make_ascii_of_ebcdic()
{
    std::array<char, 256> table{};
    table.fill(no_text);
    for (std::size_t i = 0; i < std::size(ebcdic_of_ascii); ++i)
    {
        table[ebcdic_of_ascii[i]] = static_cast<char>(0x20 + i);
    }
    return table;
}
constexpr std::array<char, 256> ascii_of_ebcdic = make_ascii_of_ebcdic();
static_assert(ascii_of_ebcdic[0x40] == ' ' && ascii_of_ebcdic[0x4B] == '.' && ascii_of_ebcdic[0xC1] == 'A');

bool printable(char c)
{
    return c >= 0x20 && c <= 0x7E;
}

// The part of a field before its padding.
std::span<const std::uint8_t> without_padding(std::span<const std::uint8_t> field, std::uint8_t pad)
{
    std::size_t size = static_cast<std::size_t>(std::find(field.begin(), field.end(), 0) - field.begin());
    while (size > 0 && field[size - 1] == pad)
    {
        --size;
    }
    return field.first(size);
}

int hex_value(char c)
{
    if (c >= '0' && c <= '9')
    {
        return c - '0';
    }
    return (c | 0x20) - 'a' + 10;
}

} // namespace

void to_ebcdic(std::span<std::uint8_t> field, std::string_view text)
{
    for (std::size_t i = 0; i < field.size(); ++i)
    {
        char c = i < text.size() ? text[i] : ' ';
        field[i] = printable(c) ? ebcdic_of_ascii[c - 0x20] : std::uint8_t{0x3F};
    }
}

void to_ascii(std::span<std::uint8_t> field, std::string_view text)
{
    for (std::size_t i = 0; i < field.size(); ++i)
    {
        char c = i < text.size() ? text[i] : ' ';
        field[i] = printable(c) ? static_cast<std::uint8_t>(c) : std::uint8_t{0x3F};
    }
}

std::string from_ebcdic(std::span<const std::uint8_t> field)
{
    std::string text;
    for (std::uint8_t byte : without_padding(field, 0x40))
    {
        text += ascii_of_ebcdic[byte];
    }
    return text;
}

std::string from_ascii(std::span<const std::uint8_t> field)
{
    std::string text;
    for (std::uint8_t byte : without_padding(field, 0x20))
    {
        char c = static_cast<char>(byte);
        text += printable(c) ? c : no_text;
    }
    return text;
}

secret secret_from_ebcdic(std::span<const std::uint8_t> field)
{
    char text[secret::most];
    std::size_t size = 0;
    for (std::uint8_t byte : without_padding(field, 0x40))
    {
        if (size < sizeof text)
        {
            text[size++] = ascii_of_ebcdic[byte];
        }
    }
    secret made(std::string_view(text, size));
    explicit_bzero(text, sizeof text);
    return made;
}

std::string tp_name_bytes(std::string_view text)
{
    std::uint8_t field[wire::tp_name_size];
    to_ebcdic(field, text);
    return tp_name_bytes(field);
}

std::string service_tp_name_bytes(std::string_view hex_digits)
{
    std::string bytes(wire::tp_name_size, '\x40');
    for (std::size_t i = 0; i + 1 < hex_digits.size() && i < 8; i += 2)
    {
        bytes[i / 2] = static_cast<char>(hex_value(hex_digits[i]) * 16 + hex_value(hex_digits[i + 1]));
    }
    return bytes;
}

std::string tp_name_bytes(std::span<const std::uint8_t> field)
{
    return std::string(reinterpret_cast<const char *>(field.data()), field.size());
}

bool tp_name_blank(std::string_view bytes)
{
    return bytes.find_first_not_of('\x40') == bytes.npos || bytes.find_first_not_of('\0') == bytes.npos;
}

std::string tp_name_text(std::string_view bytes)
{
    std::span<const std::uint8_t> field(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
    std::string text = from_ebcdic(field);
    bool whole = field.size() == wire::tp_name_size && without_padding(field, 0x40).size() == text.size() &&
                 std::find(field.begin(), field.end(), 0) == field.end();
    if (whole && text.find(no_text) == text.npos)
    {
        return text;
    }
    std::size_t size = bytes.find_last_not_of('\x40') + 1;
    text = "X'";
    for (std::uint8_t byte : field.first(size))
    {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    return text + "'";
}

} // namespace broker
