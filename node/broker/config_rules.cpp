// config_rules.cpp - the rules for texts.
#include "broker/config_rules.hpp"

#include "wire/broker.hpp"

#include <algorithm>
#include <cstring>
#include <crypt.h>
#include <string_view>

namespace broker {

namespace {

bool upper_name(std::string_view text) // an SNA name: a letter or @ # $, then these or digits, at most 8
{
    auto first = [](char c) { return (c >= 'A' && c <= 'Z') || c == '@' || c == '#' || c == '$'; };
    return !text.empty() && text.size() <= 8 && first(text[0]) &&
           std::all_of(text.begin(), text.end(), [&](char c) { return first(c) || (c >= '0' && c <= '9'); });
}

bool alias_name(std::string_view text)
{
    return !text.empty() && text.size() <= 8 && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || std::strchr("@#$_-", c);
    });
}

bool qualified_name(std::string_view text)
{
    std::size_t period = text.find('.');
    return period != text.npos && upper_name(text.substr(0, period)) && upper_name(text.substr(period + 1));
}

bool printable_text(std::string_view text, std::size_t limit)
{
    return text.size() <= limit &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > 0x20 && c <= 0x7E; });
}

// The characters that a program may give in a local TP name.
bool application_tp_name(std::string_view text)
{
    return !text.empty() && text.size() <= wire::tp_name_size && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 0x22 && c <= 0x5A) || (c >= 'a' && c <= 'z') || c == '_';
    });
}

bool service_tp_name(std::string_view text)
{
    return text.size() == 8 && text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
}

} // namespace

const text_rule alias_rule = {"an alias: 1 to 8 letters, digits or @ # $ _ -", alias_name};
const text_rule lu_name_rule = {"a name NETID.LUNAME, each part 1 to 8 of A-Z 0-9 @ # $ and no digit first",
                                qualified_name};
const text_rule partner_rule = {"an LU alias (1 to 8 letters, digits or @ # $ _ -) or a name NETID.LUNAME",
                                [](const std::string &t) { return alias_name(t) || qualified_name(t); }};
const text_rule mode_rule = {"a mode name: up to 8 of A-Z 0-9 @ # $ and no digit first, or \"\" for the default mode",
                             [](const std::string &t) { return t.empty() || upper_name(t); }};
const text_rule user_rule = {"a user name: 1 to 10 printable characters without blanks",
                             [](const std::string &t) { return !t.empty() && printable_text(t, 10); }};
const text_rule password_rule = {"a password: up to 10 printable characters without blanks",
                                 [](const std::string &t) { return printable_text(t, 10); }};
const text_rule hash_rule = {"a password hash of crypt(3), as `openssl passwd -6` prints it",
                             [](const std::string &t) {
                                 return t.size() < 384 && t[0] == '$' &&
                                        crypt_checksalt(t.c_str()) != CRYPT_SALT_INVALID &&
                                        crypt_checksalt(t.c_str()) != CRYPT_SALT_METHOD_DISABLED;
                             }};
const text_rule path_rule = {"the absolute path of a program",
                             [](const std::string &t) { return t[0] == '/' && t.find('\0') == t.npos; }};
const text_rule system_user_rule = {"the name of a user of this system",
                                    [](const std::string &t) { return !t.empty() && t.find('\0') == t.npos; }};
const text_rule any_text_rule = {"a text", [](const std::string &t) { return t.find('\0') == t.npos; }};
const text_rule application_tp_rule = {"1 to 64 of the characters \" to Z, a to z and _", application_tp_name};
const text_rule service_tp_rule = {"8 hexadecimal digits: the four bytes of a service TP name", service_tp_name};

} // namespace broker
