// control.cpp - the operator's commands. Each finds facts, or rows of them; JSON and the text for people are both made
// from these, so that they always say the same.
#include "broker/control.hpp"
#include "broker/names.hpp"

#include <algorithm>
#include <compare>
#include <concepts>
#include <nlohmann/json.hpp>
#include <string_view>
#include <type_traits>
#include <unistd.h>
#include <variant>

namespace broker {

namespace {

using json = nlohmann::ordered_json;

// What is shown of one thing. Tables may have many thousand rows, and everybody waits while one is made: no document is
// built of them, text and JSON are written straight from the rows.
struct cell
{
    cell(std::nullptr_t) {}
    cell(bool yes) : value(yes) {}
    cell(double number) : value(number) {}
    cell(const char *text) : value(std::string(text)) {}
    cell(std::string text) : value(std::move(text)) {}
    cell(std::signed_integral auto number) : value(static_cast<std::int64_t>(number)) {}
    cell(std::unsigned_integral auto number) : value(static_cast<std::uint64_t>(number)) {}
    auto operator<=>(const cell &) const = default;

    std::variant<std::monostate, bool, double, std::int64_t, std::uint64_t, std::string> value; // first: none
};

using row = std::vector<std::pair<std::string_view, cell>>; // by name; names are literals
using table = std::vector<row>;                             // all with the same names

// Bytes that are no UTF-8 (of a file name, say) come out as the replacement character.
std::string dump(const json &document, int indent)
{
    return document.dump(indent, ' ', false, json::error_handler_t::replace);
}

std::string document_text(const json &document)
{
    return dump(document, 2) + "\n";
}

void append_json(std::string &out, const cell &one)
{
    auto plain = [](char c) { return c >= 0x20 && c <= 0x7E && c != '"' && c != '\\'; };
    std::visit(
        [&]<class Value>(const Value &value) {
            if constexpr (std::is_same_v<Value, std::monostate>)
            {
                out += "null";
            }
            else if constexpr (std::is_same_v<Value, std::int64_t> || std::is_same_v<Value, std::uint64_t>)
            {
                out += std::to_string(value);
            }
            else if constexpr (std::is_same_v<Value, std::string>)
            {
                bool as_it_is = std::all_of(value.begin(), value.end(), plain);
                out += as_it_is ? '"' + value + '"' : dump(json(value), -1);
            }
            else
            {
                out += dump(json(value), -1);
            }
        },
        one.value);
}

void append_json(std::string &out, const row &facts, std::string_view indent)
{
    out += "{";
    for (const auto &[name, value] : facts)
    {
        out += &facts.front().first == &name ? "\n" : ",\n";
        out.append(indent).append("  \"").append(name).append("\": ");
        append_json(out, value);
    }
    out.append("\n").append(indent).append("}");
}

std::string document_text(const row &facts)
{
    std::string text;
    append_json(text, facts, "");
    return text + "\n";
}

std::string document_text(const table &rows)
{
    std::string text = "[";
    for (const row &one : rows)
    {
        text += &one == &rows.front() ? "\n  " : ",\n  ";
        append_json(text, one, "  ");
    }
    return text + (rows.empty() ? "]\n" : "\n]\n");
}

void append_text(std::string &out, const cell &one)
{
    if (const auto *text = std::get_if<std::string>(&one.value))
    {
        out += text->empty() ? "-" : *text;
    }
    else if (const auto *yes = std::get_if<bool>(&one.value))
    {
        out += *yes ? "yes" : "no";
    }
    else if (std::holds_alternative<std::monostate>(one.value))
    {
        out += "-";
    }
    else
    {
        append_json(out, one);
    }
}

std::string heading(std::string_view name)
{
    std::string text(name);
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}

// A table: a line per row, columns as the first one has them.
std::string table_text(const table &rows)
{
    if (rows.empty())
    {
        return "none\n";
    }
    const std::size_t columns = rows.front().size();
    std::string all; // the texts of all fields, one behind the other
    std::vector<std::size_t> ends;
    std::vector<std::size_t> widths(columns);
    auto field_ends = [&] {
        std::size_t &width = widths[ends.size() % columns];
        width = std::max(width, all.size() - (ends.empty() ? 0 : ends.back()));
        ends.push_back(all.size());
    };
    for (const auto &[name, value] : rows.front())
    {
        all += heading(name);
        field_ends();
    }
    for (const row &one : rows)
    {
        for (const auto &[name, value] : one)
        {
            append_text(all, value);
            field_ends();
        }
    }
    std::string text;
    std::size_t begin = 0;
    for (std::size_t i = 0; i < ends.size(); ++i)
    {
        const std::size_t column = i % columns;
        text.append(all, begin, ends[i] - begin);
        if (column + 1 == columns)
        {
            text += '\n';
        }
        else
        {
            text.append(widths[column] - (ends[i] - begin) + 2, ' ');
        }
        begin = ends[i];
    }
    return text;
}

// A list of facts, one on a line.
std::string facts_text(const row &facts)
{
    std::size_t width = 0;
    for (const auto &[name, value] : facts)
    {
        width = std::max(width, name.size());
    }
    std::string text;
    for (const auto &[name, value] : facts)
    {
        text += heading(name) + ":" + std::string(width - name.size() + 1, ' ');
        append_text(text, value);
        text += '\n';
    }
    return text;
}

double seconds(milliseconds time)
{
    return static_cast<double>(time) / 1000;
}

const char *state_text(session_state state)
{
    switch (state)
    {
    case session_state::granted:
        return "allocated";
    case session_state::checking:
        return "checking user";
    case session_state::queued:
        return "queued";
    case session_state::connected:
        return "connected";
    case session_state::refused:
        return "refused";
    }
    return "";
}

const char *security_text(std::uint8_t security)
{
    return security == 0 ? "none" : security == 1 ? "same" : security == 2 ? "program" : "program_strong";
}

bool trace_on(const wire::control_page &page)
{
    return (page.trace_control[wire::trace_byte] & wire::trace_bit) != 0;
}

bool audit_on(const wire::control_page &page)
{
    return (page.trace_control[wire::audit_byte] & wire::audit_off_bit) == 0;
}

row status(desk &node)
{
    const exchange &books = node.books();
    std::size_t queued = 0;
    std::size_t open = 0;
    for (const auto &[id, s] : books.sessions())
    {
        queued += s.state == session_state::queued;
        open += s.state == session_state::connected;
    }
    std::size_t accepts = 0;
    std::size_t programs = 0;
    for (const auto &[id, c] : books.connections())
    {
        programs += c.greeted && !c.operates;
        for (const auto &[correlation, r] : c.requests)
        {
            accepts += r.accepts;
        }
    }
    return {
        {"node", books.settings().name},
        {"state", "running"},
        {"pid", getpid()},
        {"directory", node.directory()},
        {"configuration", node.config_file().empty() ? "built in" : node.config_file()},
        {"uptime_seconds", seconds(node.uptime())},
        {"programs", programs},
        {"tp_names", books.names().size()},
        {"conversations", open},
        {"queued_attaches", queued},
        {"waiting_accepts", accepts},
        {"accepted_since_start", books.accepted_total()},
        {"refused_since_start", books.refused_total()},
        {"api_trace", trace_on(node.page())},
        {"audit", audit_on(node.page())},
    };
}

table show_lus(desk &node)
{
    table rows;
    const config &settings = node.books().settings();
    for (std::size_t i = 0; i < settings.lus.size(); ++i)
    {
        const lu_entry &lu = settings.lus[i];
        std::uint32_t sessions = 0;
        for (const auto &[way, count] : node.books().routes())
        {
            sessions += way.local == lu.alias || way.partner == lu.alias ? count : 0;
        }
        rows.push_back({{"alias", lu.alias}, {"name", lu.name}, {"kind", i == 0 ? "default" : "local"},
                        {"sessions", sessions}});
    }
    for (const lu_entry &lu : settings.partner_lus)
    {
        rows.push_back({{"alias", lu.alias}, {"name", lu.name}, {"kind", "partner"}, {"sessions", nullptr}});
    }
    return rows;
}

table show_modes(desk &node)
{
    table rows;
    for (const mode_entry &mode : node.books().settings().modes)
    {
        std::uint32_t sessions = 0;
        for (const auto &[way, count] : node.books().routes())
        {
            sessions += way.mode == mode.name ? count : 0;
        }
        rows.push_back({{"mode", mode.name.empty() ? "(blank)" : mode.name},
                        {"session_limit", mode.session_limit == 0 ? cell("none") : cell(mode.session_limit)},
                        {"sessions", sessions}});
    }
    return rows;
}

table show_side_info(desk &node)
{
    table rows;
    for (const side_info_entry &entry : node.books().settings().side_infos)
    {
        rows.push_back({{"destination", entry.destination},
                        {"partner_lu", entry.partner_lu},
                        {"tp_name", entry.tp_name},
                        {"tp_name_type", entry.service_tp ? "service" : "application"},
                        {"mode", entry.mode},
                        {"security", security_text(entry.security)},
                        {"user", entry.user},
                        {"local_lu", entry.local_lu}});
    }
    return rows;
}

table show_names(desk &node)
{
    table rows;
    const exchange &books = node.books();
    for (const auto &[name, owners] : books.names())
    {
        for (connection_id id : owners)
        {
            const connection &owner = books.connections().at(id);
            std::size_t accepts = 0;
            for (const auto &[correlation, r] : owner.requests)
            {
                accepts += r.accepts && std::any_of(r.tp_names.begin(), r.tp_names.end(),
                                                    [&](const std::string *one) { return *one == name; });
            }
            rows.push_back({{"tp_name", tp_name_text(name)},
                            {"program", owner.program},
                            {"pid", owner.who.pid},
                            {"waiting_accepts", accepts}});
        }
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

table show_programs(desk &node)
{
    table rows;
    const exchange &books = node.books();
    for (const auto &[id, c] : books.connections())
    {
        if (c.greeted && !c.operates)
        {
            rows.push_back({{"program", c.program},
                            {"pid", c.who.pid},
                            {"user", c.who.user},
                            {"tp_names", c.names.size()},
                            {"conversations", c.sessions.size()},
                            {"waiting_requests", c.requests.size()},
                            {"age_seconds", seconds(node.now() - c.since)}});
        }
    }
    return rows;
}

table show_startable(desk &node)
{
    table rows;
    for (const program_entry &program : node.books().settings().programs)
    {
        rows.push_back({{"tp_name", tp_name_text(program.tp_name)},
                        {"command", program.command},
                        {"instances", program.one_for_all ? "one" : "each"},
                        {"user", program.user},
                        {"running", node.books().running(program.tp_name)}});
    }
    return rows;
}

// Bytes that one end has sent, as it counts them, else as the other end has received them.
cell bytes_sent(const wire::conversation_counters *end, const wire::conversation_counters *other)
{
    return end != nullptr ? cell(end->sent) : other != nullptr ? cell(other->received) : cell(nullptr);
}

row session_row(desk &node, const session &s, const counted_ends &counted)
{
    auto end_of = [&](bool allocating) {
        auto found = counted.find({s.id, allocating});
        return found == counted.end() ? nullptr : &found->second;
    };
    auto state_of = [](const wire::conversation_counters *end) {
        return end == nullptr ? cell(nullptr) : cell(conversation_state_text(end->state));
    };
    const wire::conversation_counters *from = end_of(true);
    const wire::conversation_counters *to = end_of(false);
    return {{"number", s.id},
            {"state", state_text(s.state)},
            {"tp_name", tp_name_text(s.tp_name)},
            {"from_lu", s.way.local},
            {"to_lu", s.way.partner},
            {"mode", s.way.mode},
            {"type", s.conv_type == 0 ? "basic" : "mapped"},
            {"sync_level", s.sync_level == 0 ? "none" : "confirm"},
            {"from_pid", s.allocated_by.pid},
            {"to_pid", s.acceptor_pid == 0 ? cell(nullptr) : cell(s.acceptor_pid)},
            {"from_state", state_of(from)},
            {"to_state", state_of(to)},
            {"from_bytes", bytes_sent(from, to)},
            {"to_bytes", bytes_sent(to, from)},
            {"state_seconds", seconds(node.now() - s.since)},
            {"age_seconds", seconds(node.now() - s.begun)}};
}

table show_conversations(desk &node, bool queued_only)
{
    table rows;
    const counted_ends counted = node.counted();
    for (const auto &[id, s] : node.books().sessions())
    {
        if (!queued_only || s.state == session_state::queued || s.state == session_state::checking)
        {
            rows.push_back(session_row(node, s, counted));
        }
    }
    return rows;
}

json reload(desk &node, bool &good)
{
    config_findings findings;
    reload_report report;
    good = node.reload(findings, report);
    return {{"result", good ? "the configuration has been read and holds now"
                            : "the configuration has mistakes; the node keeps what it had"},
            {"errors", findings.errors},
            {"warnings", findings.warnings},
            {"not_changed", report.kept}};
}

// The sentence, then each finding on a line of its own.
std::string reload_text(const json &answer)
{
    std::string text = answer["result"].get<std::string>() + "\n";
    for (const json &line : answer["errors"])
    {
        text += line.get<std::string>() + "\n";
    }
    for (const json &line : answer["warnings"])
    {
        text += "warning: " + line.get<std::string>() + "\n";
    }
    for (const json &line : answer["not_changed"])
    {
        text += "not changed: " + line.get<std::string>() + "\n";
    }
    return text;
}

// Sets or clears a bit of the trace-control block in one store, since programs read it at any time.
void switch_bit(wire::control_page &page, std::size_t byte, std::uint8_t bit, bool on)
{
    std::uint8_t old = page.trace_control[byte];
    __atomic_store_n(&page.trace_control[byte], static_cast<std::uint8_t>(on ? old | bit : old & ~bit),
                     __ATOMIC_RELEASE);
}

struct show_command
{
    const char *what;
    table (*make)(desk &);
};

const show_command show_commands[] = {
    {"lus", show_lus},
    {"modes", show_modes},
    {"side-info", show_side_info},
    {"names", show_names},
    {"programs", show_programs},
    {"startable", show_startable},
    {"conversations", [](desk &node) { return show_conversations(node, false); }},
    {"attaches", [](desk &node) { return show_conversations(node, true); }},
};

} // namespace

std::string findings_json(const std::string &file, const config_findings &findings)
{
    json document = {{"file", file},
                     {"good", findings.errors.empty()},
                     {"errors", findings.errors},
                     {"warnings", findings.warnings}};
    return document_text(document);
}

control_answer refused_command(const std::string &text, bool as_json)
{
    return {false, as_json ? document_text(row{{"error", text}}) : text + "\n"};
}

control_answer answer_command(desk &node, const std::string &command, bool as_json, bool may_change)
{
    auto facts = [&](const row &found) {
        return control_answer{true, as_json ? document_text(found) : facts_text(found)};
    };
    auto wrong = [&](const std::string &text) { return refused_command(text, as_json); };
    if (command == "status")
    {
        return facts(status(node));
    }
    for (const show_command &one : show_commands)
    {
        if (command == std::string("show ") + one.what)
        {
            table rows = one.make(node);
            return {true, as_json ? document_text(rows) : table_text(rows)};
        }
    }
    struct
    {
        const char *command;
        std::size_t byte;
        std::uint8_t bit;
        bool set;
    } const switches[] = {
        {"trace on", wire::trace_byte, wire::trace_bit, true},
        {"trace off", wire::trace_byte, wire::trace_bit, false},
        {"audit on", wire::audit_byte, wire::audit_off_bit, false},
        {"audit off", wire::audit_byte, wire::audit_off_bit, true},
    };
    auto known = std::find_if(std::begin(switches), std::end(switches),
                              [&](const auto &one) { return command == one.command; });
    if (known == std::end(switches) && command != "stop" && command != "reload")
    {
        std::string shown = command.substr(0, 40);
        std::replace_if(shown.begin(), shown.end(), [](char c) { return c < 0x20 || c > 0x7E; }, '?');
        return wrong("the node does not know the command \"" + shown +
                     "\"; control program and node may be of different versions");
    }
    if (!may_change)
    {
        return wrong("only the node's own user and root may do this");
    }
    if (command == "stop")
    {
        node.stop();
        return facts({{"result", "the node ends"}, {"pid", getpid()}});
    }
    if (command == "reload")
    {
        bool good = false;
        json answer = reload(node, good);
        return {good, as_json ? document_text(answer) : reload_text(answer)};
    }
    switch_bit(node.page(), known->byte, known->bit, known->set);
    node.page_switched();
    return facts({{"api_trace", trace_on(node.page())}, {"audit", audit_on(node.page())}});
}

} // namespace broker
