// records.hpp - the records of the logs and of the trace file, made into JSON. How they are written is said in
// node/client/log.cpp and node/client/trace.cpp. Nothing in a file is believed: what is no record comes out as text.
#pragma once

#include "output.hpp"

#include <functional>
#include <string>
#include <string_view>

namespace tool {

// True when a line is the first of a record. In a log each line is.
bool begins_record(file_kind kind, std::string_view line);

// Bytes of a line that begins_record() needs to see: the longest separator has a program name of 255 characters.
inline constexpr std::size_t beginning_size = 512;

// Makes records of lines.
class record_maker
{
public:
    record_maker(file_kind kind, std::function<void(const json &)> done) : kind_(kind), done_(std::move(done)) {}

    void add(std::string_view line); // without its line end
    void finish();                   // no line of the record under way will come any more

private:
    file_kind kind_;
    std::function<void(const json &)> done_;
    json record_;     // of a trace, under way; null: none
    std::string tag_; // that its lines begin with
};

} // namespace tool
