// names.hpp - names as people write them and as messages carry them: fixed fields, EBCDIC (code page 037) padded with
// 0x40 or ASCII padded with 0x20. Inside the broker a name is text without its padding, but for TP names, which stay
// the 64 bytes they are (a service TP name is no text). Pure functions.
#pragma once

#include "broker/secret.hpp"
#include "wire/broker.hpp"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace broker {

// Fill a whole field; text that is too long is cut, a character that code page 037 or ASCII print does not have
// becomes the substitute character (0x3F).
void to_ebcdic(std::span<std::uint8_t> field, std::string_view text);
void to_ascii(std::span<std::uint8_t> field, std::string_view text);

// The text of a field without its padding (a zero byte ends it too); bytes that are no printable character come out
// as 0x1A, which no configured name has.
std::string from_ebcdic(std::span<const std::uint8_t> field);
std::string from_ascii(std::span<const std::uint8_t> field);
secret secret_from_ebcdic(std::span<const std::uint8_t> field); // the same, leaving no other copy

// A TP name as 64 bytes EBCDIC.
std::string tp_name_bytes(std::string_view text);                // application TP, text of at most 64 characters
std::string service_tp_name_bytes(std::string_view hex_digits);  // service TP, 8 hexadecimal digits
std::string tp_name_bytes(std::span<const std::uint8_t> field);
bool tp_name_blank(std::string_view bytes); // all 0x40, or all zero

// A TP name for people: its text, or X'06F1...' when it is none.
std::string tp_name_text(std::string_view bytes);

} // namespace broker
