// config.cpp - the reader of the configuration file, strict: a key it does not know is an error. The only file that
// knows the TOML library. No state, no lock.
#define TOML_HEADER_ONLY 1
#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

#include "broker/config.hpp"
#include "broker/names.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <crypt.h>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr std::size_t max_file = 16u << 20;   // bytes of a configuration file
constexpr std::size_t max_findings = 50;      // nobody reads more at once
constexpr double max_seconds = 365.0 * 86400; // of any waiting time

// What a text value may be; `what` completes the sentence "expected ...".
struct text_rule
{
    const char *what;
    std::function<bool(const std::string &)> holds;
};

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

const char *type_name(toml::node_type type)
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

std::string quoted(const std::string &text)
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

// Calls read(section) for each [[name]] of the file.
template <class Read>
void each_table(const toml::table &root, const char *name, collector &findings, Read read)
{
    const toml::node *node = root.get(name);
    if (node == nullptr)
    {
        return;
    }
    std::string title = std::string("[[") + name + "]]";
    const toml::array *array = node->as_array();
    if (array == nullptr)
    {
        findings.error(node->source(), std::string(name) + " is " + type_name(node->type()) + ", expected " + title);
        return;
    }
    for (const toml::node &element : *array)
    {
        const toml::table *table = element.as_table();
        if (table == nullptr)
        {
            findings.error(element.source(),
                           std::string("in ") + name + ": " + type_name(element.type()) + ", expected " + title);
            continue;
        }
        section one(*table, title, findings);
        read(one);
        one.unknown_keys();
    }
}

// True, and reported, when the value of a key stands in an earlier entry already.
template <class Entry>
bool duplicate(const std::vector<Entry> &entries, std::string Entry::*field, const std::string &value, section &one,
               const char *key, const std::string &shown, collector &findings)
{
    bool found = std::any_of(entries.begin(), entries.end(), [&](const Entry &e) { return e.*field == value; });
    if (found)
    {
        findings.error(one.where(key), std::string(key) + " = " + quoted(shown) +
                                           " a second time, expected one of its own");
    }
    return found;
}

void read_node(const toml::table &root, config &result, collector &findings)
{
    const toml::node *node = root.get("node");
    if (node == nullptr)
    {
        return;
    }
    const toml::table *table = node->as_table();
    if (table == nullptr)
    {
        findings.error(node->source(), std::string("node is ") + type_name(node->type()) + ", expected [node]");
        return;
    }
    section one(*table, "[node]", findings);
    one.text("name", alias_rule, result.name);
    one.seconds("idle_seconds", result.idle_ms);
    one.seconds("attach_wait_seconds", result.attach_wait_ms);
    one.seconds("allocation_wait_seconds", result.allocation_wait_ms);
    one.number("attach_queue_depth", 0, 100'000, result.attach_queue_depth);
    one.number("problem_log_limit", 0, 0x7FFFFFFF, result.problem_log_limit);
    one.number("audit_log_limit", 0, 0x7FFFFFFF, result.audit_log_limit);
    one.number("trace_file_limit", 0, 0x7FFFFFFF, result.trace_file_limit);
    one.flag("trace", result.trace);
    one.flag("audit", result.audit);
    one.flag("already_verified", result.already_verified);
    one.number("connections_per_process", 1, 100'000, result.connections_per_process);
    one.number("connections_per_user", 1, 100'000, result.connections_per_user);
    one.number("attaches_per_process", 1, 1'000'000, result.attaches_per_process);
    one.number("attaches_per_user", 1, 1'000'000, result.attaches_per_user);
    one.number("conversations_per_process", 1, 1'000'000, result.conversations_per_process);
    one.texts("allowed_users", system_user_rule, result.allowed_users);
    one.unknown_keys();
}

void read_lus(const toml::table &root, const char *key, bool partner, config &result, collector &findings)
{
    std::vector<lu_entry> &entries = partner ? result.partner_lus : result.lus;
    each_table(root, key, findings, [&](section &one) {
        lu_entry entry;
        one.missing("alias", alias_rule.what);
        one.missing("name", lu_name_rule.what);
        bool good = one.text("alias", alias_rule, entry.alias);
        good = one.text("name", lu_name_rule, entry.name) && good;
        if (!good || duplicate(entries, &lu_entry::alias, entry.alias, one, "alias", entry.alias, findings) ||
            (!partner && duplicate(entries, &lu_entry::name, entry.name, one, "name", entry.name, findings)))
        {
            return;
        }
        if (partner && duplicate(result.lus, &lu_entry::alias, entry.alias, one, "alias", entry.alias, findings))
        {
            return;
        }
        if (partner && result.find_partner(entry.name) == nullptr)
        {
            findings.error(one.where("name"), "name = " + quoted(entry.name) +
                                                  ", expected the name of an [[lu]]: all LUs of this node are local");
            return;
        }
        entries.push_back(entry);
    });
}

void read_modes(const toml::table &root, config &result, collector &findings)
{
    std::vector<mode_entry> given;
    each_table(root, "mode", findings, [&](section &one) {
        mode_entry entry;
        one.missing("name", mode_rule.what);
        bool good = one.text("name", mode_rule, entry.name);
        one.number("session_limit", 0, 1'000'000, entry.session_limit);
        if (!good || duplicate(given, &mode_entry::name, entry.name, one, "name", entry.name, findings))
        {
            return;
        }
        given.push_back(entry);
        // A standard mode is there anyway; naming it changes its limit.
        auto standard = std::find_if(result.modes.begin(), result.modes.end(),
                                     [&](const mode_entry &m) { return m.name == entry.name; });
        if (standard != result.modes.end())
        {
            *standard = entry;
        }
        else
        {
            result.modes.push_back(entry);
        }
    });
}

void read_side_infos(const toml::table &root, config &result, collector &findings)
{
    each_table(root, "side_info", findings, [&](section &one) {
        side_info_entry entry;
        one.missing("destination", alias_rule.what);
        one.missing("partner_lu", partner_rule.what);
        one.missing("tp_name", "the name of the partner program");
        bool good = one.text("destination", alias_rule, entry.destination);
        one.text("partner_lu", partner_rule, entry.partner_lu);
        std::size_t type = 0;
        one.choice("tp_name_type", {"application", "service"}, type);
        entry.service_tp = type == 1;
        text_rule tp_rule = {"1 to 64 of the characters \" to Z, a to z and _", application_tp_name};
        if (entry.service_tp)
        {
            tp_rule = {"8 hexadecimal digits: the four bytes of a service TP name", service_tp_name};
        }
        one.text("tp_name", tp_rule, entry.tp_name);
        one.text("mode", mode_rule, entry.mode);
        std::size_t security = 1;
        one.choice("security", {"none", "same", "program", "program_strong"}, security);
        entry.security = static_cast<std::uint8_t>(security == 3 ? 5 : security);
        one.text("user", user_rule, entry.user);
        one.text("password", password_rule, entry.password, true);
        one.text("local_lu", alias_rule, entry.local_lu);
        if (security >= 2)
        {
            one.missing("user", "one, because security is program");
        }
        else if (one.has("password"))
        {
            findings.error(one.where("password"), "a password, expected none unless security is program");
        }
        // Programs may be meant to meet a partner, mode or LU that does not exist: worth a word, no mistake.
        if (!entry.partner_lu.empty() && result.find_partner(entry.partner_lu) == nullptr)
        {
            findings.warning(one.where("partner_lu"), "partner_lu = " + quoted(entry.partner_lu) +
                                                          " is no LU of this node: allocations to it will fail");
        }
        if (result.find_mode(entry.mode) == nullptr)
        {
            findings.warning(one.where("mode"),
                             "mode = " + quoted(entry.mode) + " is not defined: allocations with it will fail");
        }
        if (!entry.local_lu.empty() && result.find_lu(entry.local_lu) == nullptr)
        {
            findings.warning(one.where("local_lu"), "local_lu = " + quoted(entry.local_lu) +
                                                        " is no LU of this node: allocations from it will fail");
        }
        if (good && !duplicate(result.side_infos, &side_info_entry::destination, entry.destination, one, "destination",
                               entry.destination, findings))
        {
            result.side_infos.push_back(entry);
        }
    });
}

void read_users(const toml::table &root, config &result, collector &findings)
{
    each_table(root, "user", findings, [&](section &one) {
        user_entry entry;
        one.missing("name", user_rule.what);
        one.missing("password_hash", hash_rule.what);
        bool good = one.text("name", user_rule, entry.name);
        one.text("password_hash", hash_rule, entry.password_hash, true);
        if (good && !duplicate(result.users, &user_entry::name, entry.name, one, "name", entry.name, findings))
        {
            result.users.push_back(entry);
        }
    });
}

void read_programs(const toml::table &root, config &result, collector &findings)
{
    each_table(root, "program", findings, [&](section &one) {
        program_entry entry;
        one.missing("tp_name", "the TP name that the program accepts");
        std::size_t type = 0;
        one.choice("tp_name_type", {"application", "service"}, type);
        text_rule tp_rule = {"1 to 64 of the characters \" to Z, a to z and _", application_tp_name};
        if (type == 1)
        {
            tp_rule = {"8 hexadecimal digits: the four bytes of a service TP name", service_tp_name};
        }
        std::string name;
        bool good = one.text("tp_name", tp_rule, name);
        one.text("command", path_rule, entry.command);
        one.texts("arguments", any_text_rule, entry.arguments);
        one.text("user", system_user_rule, entry.user);
        one.pairs("environment", entry.environment);
        std::size_t instances = 0;
        one.choice("instances", {"one", "each"}, instances);
        entry.one_for_all = instances == 0;
        std::size_t position = 0;
        one.choice("conversation_type", {"any", "basic", "mapped"}, position);
        entry.conversation_types = static_cast<accepts>(position);
        position = 0;
        one.choice("sync_level", {"any", "none", "confirm"}, position);
        entry.sync_levels = static_cast<accepts>(position);
        for (const char *key : {"arguments", "user", "environment", "instances"})
        {
            if (entry.command.empty() && one.has(key))
            {
                findings.error(one.where(key), std::string(key) + " without a command, expected a command too");
                break;
            }
        }
        if (good)
        {
            entry.tp_name = type == 1 ? service_tp_name_bytes(name) : tp_name_bytes(name);
            if (!duplicate(result.programs, &program_entry::tp_name, entry.tp_name, one, "tp_name", name, findings))
            {
                result.programs.push_back(entry);
            }
        }
    });
}

} // namespace

std::optional<config> read_config_text(const std::string &text, const std::string &file, config_findings &findings)
{
    collector collected{file, findings};
    toml::parse_result parsed = toml::parse(text, std::string_view(file));
    if (!parsed)
    {
        collected.error(parsed.error().source(), std::string(parsed.error().description()));
        return std::nullopt;
    }
    const toml::table &root = parsed.table();
    config result = default_config();
    if (root.contains("lu"))
    {
        result.lus.clear();
    }
    read_node(root, result, collected);
    read_lus(root, "lu", false, result, collected);
    if (result.lus.empty() && findings.errors.empty())
    {
        collected.error(root.get("lu")->source(), "lu is empty, expected at least one [[lu]]");
    }
    read_lus(root, "partner_lu", true, result, collected);
    read_modes(root, result, collected);
    read_side_infos(root, result, collected);
    read_users(root, result, collected);
    read_programs(root, result, collected);
    static constexpr std::string_view known[] = {"node", "lu", "partner_lu", "mode", "side_info", "user", "program"};
    for (const auto &[key, value] : root)
    {
        if (std::find(std::begin(known), std::end(known), key.str()) == std::end(known))
        {
            collected.error(key.source(), "unknown section " + quoted(std::string(key.str())) +
                                              ", expected one of node, lu, partner_lu, mode, side_info, user, program");
        }
    }
    if (findings.errors.empty())
    {
        return result;
    }
    return std::nullopt;
}

std::optional<config> read_config_file(const std::string &file, config_findings &findings)
{
    auto fail = [&](const std::string &text) {
        findings.errors.push_back(file + ": " + text);
        return std::nullopt;
    };
    int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
    {
        return fail(std::string("cannot be opened (") + std::strerror(errno) + "), expected a configuration file");
    }
    struct stat status;
    std::string text;
    std::string trouble;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
    {
        trouble = "is no regular file, expected a configuration file";
    }
    while (trouble.empty())
    {
        char buffer[16384];
        ssize_t size = read(fd, buffer, sizeof buffer);
        if (size < 0 && errno == EINTR)
        {
            continue;
        }
        if (size <= 0)
        {
            if (size < 0)
            {
                trouble = std::string("cannot be read (") + std::strerror(errno) + "), expected a configuration file";
            }
            break;
        }
        text.append(buffer, static_cast<std::size_t>(size));
        if (text.size() > max_file)
        {
            trouble = "is longer than 16 MiB, expected a configuration file";
        }
    }
    close(fd);
    if (!trouble.empty())
    {
        return fail(trouble);
    }
    std::optional<config> result = read_config_text(text, file, findings);
    bool secrets = result && std::any_of(result->side_infos.begin(), result->side_infos.end(),
                                         [](const side_info_entry &e) { return !e.password.empty(); });
    if (secrets && (status.st_mode & (S_IRGRP | S_IROTH)) != 0)
    {
        findings.warnings.push_back(file + ": other users may read the passwords in it; run chmod 600 on it");
    }
    return result;
}

} // namespace broker
