// logs.cpp - the problem log, the audit log and the trace file, as people or machines read them.
#include "commands.hpp"

#include "log_file.hpp"

#include <iostream>

namespace tool {

namespace {

constexpr auto look_again = std::chrono::milliseconds(250);

// Shows lines as they are, or as records: one array, or, when more may come at any time, one record on each line.
class printer
{
public:
    printer(const setting &where, file_kind kind, bool follow)
        : as_json_(where.json), follow_(follow), maker_(kind, [this](const json &record) { show(record); })
    {
    }

    void line(std::string_view text)
    {
        if (as_json_)
        {
            maker_.add(text);
        }
        else
        {
            std::cout << text << "\n";
        }
    }

    void end_of_file() { maker_.finish(); } // no record goes on in another file

    void end_of_list()
    {
        if (as_json_ && !follow_)
        {
            std::cout << (some_ ? "\n]\n" : "[]\n");
        }
    }

private:
    void show(const json &record)
    {
        std::string text = text_of(record, -1);
        if (!follow_)
        {
            text.pop_back(); // the line end: a comma may follow
            std::cout << (some_ ? ",\n  " : "[\n  ");
        }
        std::cout << text;
        some_ = true;
    }

    bool as_json_;
    bool follow_;
    bool some_ = false;
    record_maker maker_;
};

void copy_to_the_end(log_file &file, off_t until, printer &out)
{
    file.read_lines(until, [&](std::string_view line) { out.line(line); });
    file.read_rest([&](std::string_view line) { out.line(line); });
    out.end_of_file();
}

// From where the last part of a file begins.
void copy_last(log_file &file, const last_part &last, off_t until, printer &out, bool to_the_end)
{
    file.go_to(last.offset);
    std::size_t skip = last.skip;
    auto line = [&](std::string_view text) { skip > 0 ? void(--skip) : out.line(text); };
    file.read_lines(until, line);
    if (to_the_end)
    {
        file.read_rest(line);
        out.end_of_file();
    }
}

// Shows what is added, until nobody reads it any more or the file cannot be read.
int follow_file(const setting &where, const std::string &path, log_file &file, printer &out)
{
    while (std::cout.flush() && wait_while_read(look_again))
    {
        if (!file.is_at(path))
        {
            // Another file has taken the name, and this one gets nothing more: it was put aside, or removed.
            copy_to_the_end(file, file.size(), out);
            std::string trouble;
            if (!file.open(path, trouble))
            {
                return fail(where, trouble);
            }
        }
        bool some = file.read_lines(file.size(), [&](std::string_view line) { out.line(line); });
        if (!some)
        {
            out.end_of_file(); // a record is one write: nothing new means that the last one is whole
        }
    }
    return exit_failed;
}

} // namespace

int show_file(const setting &where, const std::string &name, file_kind kind, std::size_t wanted, bool follow)
{
    std::string path = where.directory + "/" + name;
    std::string trouble;
    log_file file;
    log_file aside;
    // In this order: a file that is put aside in between is met again, and left out.
    if (!file.open(path, trouble) || !aside.open(path + ".1", trouble))
    {
        return fail(where, trouble);
    }
    if (aside.same_as(file))
    {
        aside.close();
    }
    const off_t until = file.size();
    const off_t aside_until = aside.size();
    if (until == 0 && aside_until == 0 && !follow && !where.json)
    {
        std::cout << "nothing has been written to " << path << " yet\n";
        return exit_good;
    }
    last_part last;
    last_part last_aside;
    if (wanted != 0)
    {
        last = file.find_last(kind, wanted, where.json);
        last_aside = aside.find_last(kind, wanted - last.count, where.json);
    }
    printer out(where, kind, follow);
    copy_last(aside, last_aside, aside_until, out, true);
    copy_last(file, last, until, out, !follow);
    out.end_of_list();
    return follow ? follow_file(where, path, file, out) : exit_good;
}

} // namespace tool
