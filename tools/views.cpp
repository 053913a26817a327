// views.cpp - what the control program shows over time: the live view of conversations, the logs and the trace file.
#include "commands.hpp"

#include "broker_link.hpp"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <deque>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace tool {

namespace {

using json = nlohmann::ordered_json;
using clock = std::chrono::steady_clock;

constexpr auto look_again = std::chrono::milliseconds(250);

std::string time_of_day()
{
    std::time_t now = std::time(nullptr);
    tm parts;
    localtime_r(&now, &parts);
    char text[16];
    std::strftime(text, sizeof text, "%H:%M:%S", &parts);
    return text;
}

// One line about a conversation: what has happened to it, then who talks to whom.
void show_event(const char *event, const json &row, bool as_json)
{
    if (as_json)
    {
        json line = {{"time", time_of_day()}, {"event", event}};
        line.update(row);
        std::cout << line.dump() << std::endl;
        return;
    }
    auto number = [](const json &value) { return value.is_null() ? std::string("-") : value.dump(); };
    auto text = [](const json &value) { return value.is_string() ? value.get<std::string>() : std::string("-"); };
    std::cout << time_of_day() << "  " << std::left << std::setw(7) << event << "  conversation " << row["number"].dump() << "  "
              << row["from_lu"].get<std::string>() << " (process " << number(row["from_pid"]) << ") -> "
              << row["to_lu"].get<std::string>() << " " << row["tp_name"].get<std::string>() << " (process "
              << number(row["to_pid"]) << ")  " << row["state"].get<std::string>() << " for "
              << row["age_seconds"].dump() << " s  " << text(row["from_state"]) << " " << number(row["from_bytes"])
              << " bytes -> " << text(row["to_state"]) << " " << number(row["to_bytes"]) << " bytes" << std::endl;
}

// True when a conversation has moved data or changed its LU 6.2 state.
bool moved(const json &before, const json &now)
{
    for (const char *what : {"from_state", "to_state", "from_bytes", "to_bytes"})
    {
        if (before[what] != now[what])
        {
            return true;
        }
    }
    return false;
}

// Reads whole lines from where a stream stands.
void copy_lines(std::ifstream &in, std::deque<std::string> *last, std::size_t lines)
{
    std::string line;
    while (std::getline(in, line))
    {
        if (last == nullptr)
        {
            std::cout << line << "\n";
            continue;
        }
        last->push_back(line);
        if (lines != 0 && last->size() > lines)
        {
            last->pop_front();
        }
    }
    in.clear();
}

} // namespace

int monitor(const setting &where, double seconds)
{
    broker_link link;
    std::string trouble;
    auto outcome = link.connect(where.directory, trouble);
    if (outcome != broker_link::outcome::connected)
    {
        std::cerr << "cpicnode: "
                  << (outcome == broker_link::outcome::no_node ? "no node is running in " + where.directory : trouble)
                  << "\n";
        return outcome == broker_link::outcome::no_node ? exit_no_node : exit_failed;
    }
    clock::time_point until = clock::now() + std::chrono::duration_cast<clock::duration>(
                                                 std::chrono::duration<double>(seconds));
    std::map<std::uint64_t, json> known;
    for (;;)
    {
        std::optional<answer> reply = link.ask("show conversations", true, trouble);
        json rows = reply ? json::parse(reply->text, nullptr, false) : json();
        if (!rows.is_array())
        {
            std::cerr << "cpicnode: " << (reply ? "the node's answer cannot be read" : trouble) << "\n";
            return exit_failed;
        }
        std::map<std::uint64_t, json> now;
        for (json &row : rows)
        {
            std::uint64_t number = row["number"].get<std::uint64_t>();
            auto before = known.find(number);
            if (before == known.end())
            {
                show_event("new", row, where.json);
            }
            else if (before->second["state"] != row["state"])
            {
                show_event("changed", row, where.json);
            }
            else if (moved(before->second, row))
            {
                show_event("moved", row, where.json);
            }
            now[number] = std::move(row);
        }
        for (const auto &[number, row] : known)
        {
            if (!now.contains(number))
            {
                show_event("ended", row, where.json);
            }
        }
        known.swap(now);
        if (seconds > 0 && clock::now() >= until)
        {
            return exit_good;
        }
        std::this_thread::sleep_for(look_again);
    }
}

int show_file(const setting &where, const std::string &name, std::size_t lines, bool follow)
{
    std::string path = where.directory + "/" + name;
    std::deque<std::string> last;
    std::ifstream aside(path + ".1");
    if (aside)
    {
        copy_lines(aside, &last, lines);
    }
    std::ifstream in(path);
    if (!in && last.empty() && !follow)
    {
        std::cout << "nothing has been written to " << path << " yet\n";
        return exit_good;
    }
    copy_lines(in, &last, lines);
    for (const std::string &line : last)
    {
        std::cout << line << "\n";
    }
    std::cout.flush();
    ino_t shown = 0;
    struct stat status;
    if (stat(path.c_str(), &status) == 0)
    {
        shown = status.st_ino;
    }
    while (follow)
    {
        std::this_thread::sleep_for(look_again);
        copy_lines(in, nullptr, 0);
        // Another file has taken the name: the old one was put aside.
        if (stat(path.c_str(), &status) == 0 && status.st_ino != shown)
        {
            shown = status.st_ino;
            in.close();
            in.clear();
            in.open(path);
            copy_lines(in, nullptr, 0);
        }
        std::cout.flush();
        if (!std::cout)
        {
            return exit_failed;
        }
    }
    return exit_good;
}

} // namespace tool
