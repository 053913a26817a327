// config_section.hpp - one table of a configuration file: takes its values, each checked, and collects what is wrong
// with its place. Part of config.cpp, which includes it after the TOML library; nobody else does.
#pragma once

#include "broker/config.hpp"
#include "broker/config_rules.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace broker {

inline constexpr std::size_t max_findings = 50;      // nobody reads more at once
inline constexpr double max_seconds = 365.0 * 86400; // of any waiting time

// Collects what is wrong, each with its place in the file.
struct collector
{
    const std::string &file;
    config_findings &findings;

    std::string at(const toml::source_region &where) const
    {
        return file + ":" + std::to_string(where.begin.line) + ":" + std::to_string(where.begin.column) + ": ";
    }

    void error(const toml::source_region &where, const std::string &text)
    {
        if (findings.errors.size() < max_findings)
        {
            findings.errors.push_back(at(where) + text);
        }
    }

    void warning(const toml::source_region &where, const std::string &text)
    {
        if (findings.warnings.size() < max_findings)
        {
            findings.warnings.push_back(at(where) + text);
        }
    }
};

inline const char *type_name(toml::node_type type)
{
    switch (type)
    {
    case toml::node_type::table:
        return "a table";
    case toml::node_type::array:
        return "an array";
    case toml::node_type::string:
        return "a text";
    case toml::node_type::integer:
    case toml::node_type::floating_point:
        return "a number";
    case toml::node_type::boolean:
        return "true or false";
    default:
        return "a date or time";
    }
}

inline std::string quoted(const std::string &text)
{
    return "\"" + text + "\"";
}

// Reads one table: remembers which keys were asked for, so that the rest can be called unknown.
class section
{
public:
    section(const toml::table &table, std::string title, collector &findings)
        : table_(table), title_(std::move(title)), findings_(findings)
    {
    }

    // False: the key is missing, or its value is wrong and that has been reported.
    bool text(const char *key, const text_rule &rule, std::string &value, bool secret = false)
    {
        const toml::node *node = find(key);
        if (node == nullptr)
        {
            return false;
        }
        const auto *string = node->as_string();
        if (string == nullptr)
        {
            return wrong_type(key, *node, rule.what);
        }
        if (!rule.holds(string->get()))
        {
            findings_.error(node->source(), std::string(key) + " = " + (secret ? "(not shown)" : quoted(string->get())) +
                                                ", expected " + rule.what);
            return false;
        }
        value = string->get();
        return true;
    }

    // The text is one of the choices; value is its position.
    bool choice(const char *key, std::initializer_list<const char *> choices, std::size_t &value)
    {
        std::string list;
        for (const char *one : choices)
        {
            list += (list.empty() ? "one of " : ", ") + quoted(one);
        }
        std::string given;
        text_rule rule = {list.c_str(), [&](const std::string &t) {
                              return std::find(choices.begin(), choices.end(), t) != choices.end();
                          }};
        if (!text(key, rule, given))
        {
            return false;
        }
        value = static_cast<std::size_t>(std::find(choices.begin(), choices.end(), given) - choices.begin());
        return true;
    }

    bool number(const char *key, std::uint32_t low, std::uint32_t high, std::uint32_t &value)
    {
        const toml::node *node = find(key);
        if (node == nullptr)
        {
            return false;
        }
        std::string what = "a whole number from " + std::to_string(low) + " to " + std::to_string(high);
        const auto *integer = node->as_integer();
        if (integer == nullptr)
        {
            return wrong_type(key, *node, what);
        }
        if (integer->get() < low || integer->get() > high)
        {
            findings_.error(node->source(),
                            std::string(key) + " = " + std::to_string(integer->get()) + ", expected " + what);
            return false;
        }
        value = static_cast<std::uint32_t>(integer->get());
        return true;
    }

    // Seconds, whole or with a fraction, into milliseconds.
    bool seconds(const char *key, std::int64_t &value)
    {
        const toml::node *node = find(key);
        if (node == nullptr)
        {
            return false;
        }
        const char *what = "a number of seconds, 0 or more, at most a year";
        auto given = node->value<double>();
        if (!given || (!node->is_integer() && !node->is_floating_point()))
        {
            return wrong_type(key, *node, what);
        }
        if (!(*given >= 0) || *given > max_seconds)
        {
            std::ostringstream shown;
            shown << *given;
            findings_.error(node->source(), std::string(key) + " = " + shown.str() + ", expected " + what);
            return false;
        }
        value = static_cast<std::int64_t>(std::ceil(*given * 1000));
        return true;
    }

    bool flag(const char *key, bool &value)
    {
        const toml::node *node = find(key);
        if (node == nullptr)
        {
            return false;
        }
        const auto *boolean = node->as_boolean();
        if (boolean == nullptr)
        {
            return wrong_type(key, *node, "true or false");
        }
        value = boolean->get();
        return true;
    }

    bool texts(const char *key, const text_rule &rule, std::vector<std::string> &values)
    {
        const toml::node *node = find(key);
        if (node == nullptr)
        {
            return false;
        }
        const toml::array *array = node->as_array();
        if (array == nullptr)
        {
            return wrong_type(key, *node, std::string("an array, of each ") + rule.what);
        }
        bool good = true;
        for (const toml::node &element : *array)
        {
            const auto *string = element.as_string();
            if (string == nullptr || !rule.holds(string->get()))
            {
                findings_.error(element.source(),
                                std::string("in ") + key + ": " +
                                    (string != nullptr ? quoted(string->get()) : type_name(element.type())) +
                                    ", expected " + rule.what);
                good = false;
                continue;
            }
            values.push_back(string->get());
        }
        return good;
    }

    // NAME = "value" pairs for an environment.
    void pairs(const char *key, std::vector<std::pair<std::string, std::string>> &values)
    {
        const toml::node *node = find(key);
        if (node == nullptr)
        {
            return;
        }
        const toml::table *table = node->as_table();
        if (table == nullptr)
        {
            wrong_type(key, *node, "a table of NAME = \"value\"");
            return;
        }
        for (const auto &[name, value] : *table)
        {
            const auto *string = value.as_string();
            bool good_name = !name.str().empty() && name.str().find('=') == std::string_view::npos;
            if (string == nullptr || !good_name || string->get().find('\0') != std::string::npos)
            {
                findings_.error(name.source(), std::string("in ") + key + ": " + quoted(std::string(name.str())) +
                                                   ", expected NAME = \"value\"");
                continue;
            }
            values.emplace_back(std::string(name.str()), string->get());
        }
    }

    bool has(const char *key) const
    {
        return table_.contains(key);
    }

    void missing(const char *key, const char *what)
    {
        if (!has(key))
        {
            findings_.error(table_.source(), "no " + std::string(key) + " in " + title_ + ", expected " + what);
        }
    }

    // The place of a key's value, or of the table when it has none.
    const toml::source_region &where(const char *key) const
    {
        const toml::node *node = table_.get(key);
        return node != nullptr ? node->source() : table_.source();
    }

    void unknown_keys()
    {
        for (const auto &[key, value] : table_)
        {
            if (std::find(asked_.begin(), asked_.end(), key.str()) == asked_.end())
            {
                std::string known;
                for (const std::string &one : asked_)
                {
                    known += (known.empty() ? "" : ", ") + one;
                }
                findings_.error(key.source(), "unknown key " + quoted(std::string(key.str())) + " in " + title_ +
                                                  ", expected one of " + known);
            }
        }
    }

private:
    const toml::node *find(const char *key)
    {
        asked_.emplace_back(key);
        return table_.get(key);
    }

    bool wrong_type(const char *key, const toml::node &node, const std::string &what)
    {
        findings_.error(node.source(), std::string(key) + " is " + type_name(node.type()) + ", expected " + what);
        return false;
    }

    const toml::table &table_;
    std::string title_;
    collector &findings_;
    std::vector<std::string> asked_;
};

} // namespace broker
