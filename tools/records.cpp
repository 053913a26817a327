// records.cpp - reading the records of logs and trace.
#include "records.hpp"

#include <cctype>
#include <charconv>

namespace tool {

namespace {

constexpr std::string_view time_form = "0000-00-00 00:00:00.000000+0000"; // 0: a digit, +: a sign
constexpr std::string_view separator_begin = "---- ";
constexpr std::string_view separator_end = " ----";
constexpr std::size_t bytes_per_dump_line = 16;

// Takes `word` off the beginning of `text`. False: it does not stand there.
bool take(std::string_view &text, std::string_view word)
{
    bool there = text.starts_with(word);
    text.remove_prefix(there ? word.size() : 0);
    return there;
}

template <class Number>
bool take_number(std::string_view &text, Number &number, int base = 10)
{
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc())
    {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool is_time(std::string_view text)
{
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        bool good = time_form[i] == '0'   ? std::isdigit(static_cast<unsigned char>(text[i])) != 0
                    : time_form[i] == '+' ? text[i] == '+' || text[i] == '-'
                                          : text[i] == time_form[i];
        if (!good)
        {
            return false;
        }
    }
    return text.size() == time_form.size();
}

// "TIME PROGRAM[PID/THREAD]", with which records of both kinds begin.
bool take_origin(std::string_view &text, json &record)
{
    if (!is_time(text.substr(0, time_form.size())))
    {
        return false;
    }
    std::string time(text.substr(0, time_form.size()));
    time[10] = 'T';
    time.insert(29, ":"); // of the offset
    text.remove_prefix(time_form.size());
    std::size_t bracket = text.find('[');
    if (!take(text, " ") || bracket == text.npos)
    {
        return false;
    }
    std::string program(text.substr(0, bracket - 1));
    text.remove_prefix(bracket);
    int pid = 0;
    int thread = 0;
    if (program.empty() || program.find(' ') != program.npos || !take_number(text, pid) || !take(text, "/") ||
        !take_number(text, thread) || !take(text, "]"))
    {
        return false;
    }
    record = {{"time", time}, {"program", program}, {"pid", pid}, {"thread", thread}};
    return true;
}

// "TIME PROGRAM[PID/THREAD] KIND 0xCODE detail N: text"; without data the text and its colon are not there.
bool parse_log_line(std::string_view text, json &record)
{
    if (!take_origin(text, record) || !take(text, " "))
    {
        return false;
    }
    std::size_t blank = text.find(' ');
    std::string kind(text.substr(0, blank));
    text.remove_prefix(kind.size());
    std::uint32_t code = 0;
    std::uint32_t detail = 0;
    std::string_view whole = text;
    if (kind.empty() || !take(text, " 0x") || !take_number(text, code, 16))
    {
        return false;
    }
    std::string shown(whole.substr(1, whole.size() - text.size() - 1));
    if (!take(text, " detail ") || !take_number(text, detail) || !(text.empty() || take(text, ": ") || text == ":"))
    {
        return false;
    }
    record["kind"] = kind;
    record["code"] = shown;
    record["detail"] = detail;
    record["text"] = text;
    return true;
}

// "---- TAG TIME PROGRAM[PID/THREAD] ----"; the blank belongs to the tag.
bool parse_separator(std::string_view text, json &record, std::string &tag)
{
    if (!take(text, separator_begin))
    {
        return false;
    }
    tag = text.substr(0, text.find(' ') + 1);
    return take(text, tag) && take_origin(text, record) && text == separator_end;
}

// "  00000010: 01 02 ...", without the tag: the offset, and the bytes as hexadecimal digits.
bool parse_dump_line(std::string_view text, std::size_t &offset, std::string &digits)
{
    std::string_view before = text;
    if (!take(text, "  ") || !take_number(text, offset, 16) || before.size() - text.size() != 10 || !take(text, ":"))
    {
        return false;
    }
    digits.clear();
    for (std::size_t i = 0; i < bytes_per_dump_line; ++i)
    {
        take(text, i == bytes_per_dump_line / 2 ? "  " : " ");
        if (text.size() < 2 || !std::isxdigit(static_cast<unsigned char>(text[0])) ||
            !std::isxdigit(static_cast<unsigned char>(text[1])))
        {
            break;
        }
        digits += text.substr(0, 2);
        text.remove_prefix(2);
    }
    return !digits.empty() && text.find('|') != text.npos;
}

std::string_view trimmed(std::string_view text)
{
    std::size_t first = text.find_first_not_of(' ');
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

// Adds a line of a trace record. The bytes of a dump stand beside the line that heads it.
void add_line(json &lines, std::string_view text)
{
    std::size_t offset = 0;
    std::string digits;
    if (parse_dump_line(text, offset, digits))
    {
        bool headed = !lines.empty();
        bool dumped = headed && lines.back().contains("data");
        if (offset == 0 && !dumped)
        {
            if (!headed)
            {
                lines.push_back({{"text", ""}});
            }
            lines.back()["data"] = digits;
            return;
        }
        if (dumped)
        {
            std::string &data = lines.back()["data"].get_ref<std::string &>();
            if (data.size() == 2 * offset)
            {
                data += digits;
                return;
            }
        }
    }
    lines.push_back({{"text", trimmed(text)}});
}

} // namespace

bool begins_record(file_kind kind, std::string_view line)
{
    json record;
    std::string tag;
    return kind == file_kind::log || parse_separator(line, record, tag);
}

void record_maker::add(std::string_view line)
{
    json record;
    std::string tag;
    if (kind_ == file_kind::trace && parse_separator(line, record, tag))
    {
        finish();
        record["lines"] = json::array();
        record_ = std::move(record);
        tag_ = tag;
    }
    else if (!record_.is_null())
    {
        take(line, tag_); // a line without it, after a name that holds a line end, belongs here all the same
        add_line(record_["lines"], line);
    }
    else
    {
        done_(kind_ == file_kind::log && parse_log_line(line, record) ? record : json{{"text", line}});
    }
}

void record_maker::finish()
{
    if (!record_.is_null())
    {
        done_(record_);
        record_ = nullptr;
    }
}

} // namespace tool
