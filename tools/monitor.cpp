// monitor.cpp - the live view of conversations: the broker is asked again and again, and what has changed is shown.
#include "commands.hpp"

#include "broker_link.hpp"
#include "output.hpp"

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <map>

namespace tool {

namespace {

using clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds look_again(250);

// Of the local clock: HH:MM:SS for people, ISO 8601 with microseconds and offset for machines.
std::string time_text(bool as_json)
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts;
    localtime_r(&now.tv_sec, &parts);
    char text[64];
    if (!as_json)
    {
        std::strftime(text, sizeof text, "%H:%M:%S", &parts);
        return text;
    }
    char offset[8];
    std::strftime(offset, sizeof offset, "%z", &parts);
    std::size_t size = std::strftime(text, sizeof text, "%FT%T", &parts);
    std::snprintf(text + size, sizeof text - size, ".%06ld%.3s:%s", now.tv_nsec / 1000, offset, offset + 3);
    return text;
}

// One line about a conversation: what has happened to it, then who talks to whom.
void show_event(const char *event, const json &row, bool as_json)
{
    if (as_json)
    {
        json line = {{"time", time_text(true)}, {"event", event}};
        line.update(row);
        std::cout << text_of(line, -1);
        return;
    }
    auto number = [](const json &value) { return value.is_null() ? std::string("-") : value.dump(); };
    auto text = [](const json &value) { return value.is_string() ? value.get<std::string>() : std::string("-"); };
    std::cout << time_text(false) << "  " << std::left << std::setw(7) << event << "  conversation "
              << number(row["number"]) << "  " << text(row["from_lu"]) << " (process " << number(row["from_pid"])
              << ") -> " << text(row["to_lu"]) << " " << text(row["tp_name"]) << " (process " << number(row["to_pid"])
              << ")  " << text(row["state"]) << " for " << number(row["state_seconds"]) << " s  "
              << text(row["from_state"]) << " " << number(row["from_bytes"]) << " bytes -> " << text(row["to_state"])
              << " " << number(row["to_bytes"]) << " bytes\n";
}

// One line about conversations that no look has met.
void show_unseen(std::int64_t count, bool as_json)
{
    if (as_json)
    {
        std::cout << text_of({{"time", time_text(true)}, {"event", "unseen"}, {"conversations", count}}, -1);
        return;
    }
    std::cout << time_text(false) << "  " << std::left << std::setw(7) << "unseen" << "  " << count
              << (count == 1 ? " conversation has" : " conversations have") << " begun and ended between two looks\n";
}

// True when a conversation has moved data or changed its LU 6.2 state. An end whose program has gone counts no more:
// then a state is missing, or a number is the lower one of what the other end has received, and nothing has moved.
bool moved(const json &before, const json &now)
{
    for (const char *what : {"from_state", "to_state"})
    {
        if (before[what] != now[what] && !now[what].is_null())
        {
            return true;
        }
    }
    auto bytes = [](const json &value) { return value.is_number() ? value.get<std::uint64_t>() : 0; };
    return bytes(now["from_bytes"]) > bytes(before["from_bytes"]) || bytes(now["to_bytes"]) > bytes(before["to_bytes"]);
}

// Has it been decided what becomes of a conversation: has a program accepted it, or was it refused?
bool decided(const json &row)
{
    return row["state"] == "connected" || row["state"] == "refused";
}

// What the looks have met so far, and what has changed since the last one.
class watch
{
public:
    explicit watch(bool as_json) : as_json_(as_json) {}

    // How many conversations the broker says it has decided since it started. The first number is told behind the first
    // look, each later one before a look: so what is decided between the two makes the number of those that no look has
    // met too low for a while, never too high.
    void tell_decided(std::int64_t total)
    {
        if (!counting_)
        {
            counting_ = true;
            met_ = total; // in the look, or over before it
        }
        total_ = total;
    }

    void look(json rows)
    {
        std::map<std::uint64_t, json> now;
        for (json &row : rows)
        {
            std::uint64_t number = row["number"].get<std::uint64_t>();
            auto before = known_.find(number);
            bool is_new = before == known_.end();
            if (is_new || before->second["state"] != row["state"])
            {
                show_event(is_new ? "new" : "changed", row, as_json_);
            }
            else if (moved(before->second, row))
            {
                show_event("moved", row, as_json_);
            }
            met_ += decided(row) && (is_new || !decided(before->second));
            now[number] = std::move(row);
        }
        for (const auto &[number, row] : known_)
        {
            if (!now.contains(number))
            {
                show_event("ended", row, as_json_);
                met_ += !decided(row); // in the meantime it was, or its program has given up
            }
        }
        known_.swap(now);
        if (std::int64_t unseen = total_ - met_ - shown_unseen_; counting_ && unseen > 0)
        {
            show_unseen(unseen, as_json_);
            shown_unseen_ += unseen;
        }
    }

private:
    bool as_json_;
    bool counting_ = false;
    std::int64_t total_ = 0;
    std::int64_t met_ = 0; // decided ones that a look has met, or that were over before the first
    std::int64_t shown_unseen_ = 0;
    std::map<std::uint64_t, json> known_;
};

// The node has answered that it does not answer that now.
bool is_refusal(const json &document)
{
    return document.is_object() && document.contains("error");
}

} // namespace

int monitor(const setting &where, double seconds)
{
    broker_link link;
    if (int code = connect_to_node(where, link); code != exit_good)
    {
        return code;
    }
    std::string trouble;
    auto ask = [&](const char *command) {
        std::optional<answer> reply = link.ask(command, true, trouble);
        json document = reply ? json::parse(reply->text, nullptr, false) : json();
        if (reply && document.is_discarded())
        {
            trouble = "the node's answer cannot be read";
            document = json();
        }
        return document;
    };
    const clock::time_point until =
        clock::now() + std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(seconds));
    watch conversations(where.json);
    auto look = [&] {
        json rows = ask("show conversations");
        if (is_refusal(rows))
        {
            return true; // the next look may be answered
        }
        const bool good = rows.is_array();
        if (good)
        {
            conversations.look(std::move(rows));
        }
        return good;
    };
    auto count = [&] {
        json numbers = ask("status");
        if (numbers.is_object() && !is_refusal(numbers))
        {
            conversations.tell_decided(numbers.value("accepted_since_start", std::int64_t(0)) +
                                       numbers.value("refused_since_start", std::int64_t(0)));
        }
        return numbers.is_object();
    };
    for (bool good = look() && count(); good; good = count() && look())
    {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(until - clock::now());
        if (seconds > 0 && left.count() <= 0)
        {
            return exit_good;
        }
        if (!std::cout.flush() || !wait_while_read(seconds > 0 ? std::min(look_again, left) : look_again))
        {
            return exit_failed;
        }
    }
    return fail(where, trouble);
}

} // namespace tool
