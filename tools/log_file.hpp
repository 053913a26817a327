// log_file.hpp - a log or trace file of a node, open for reading while programs write to it: its last records, found
// from its end so that a long file costs no more than what is shown of it, and its lines one by one.
#pragma once

#include "records.hpp"

#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace tool {

// Where the last records of a file begin.
struct last_part
{
    off_t offset = 0;
    std::size_t skip = 0;  // lines behind the offset that do not belong to it
    std::size_t count = 0; // how many there are, at most as many as were wanted
};

class log_file
{
public:
    log_file() = default;
    ~log_file();
    log_file(const log_file &) = delete;
    log_file &operator=(const log_file &) = delete;

    // False: it cannot be read, and trouble says why. A file that is missing is no trouble: is_open() tells.
    bool open(const std::string &path, std::string &trouble);
    void close();
    bool is_open() const { return fd_ >= 0; }
    off_t size() const; // 0: not open
    bool same_as(const log_file &other) const;
    bool is_at(const std::string &path) const; // the name still leads to this file, or to none

    // The last `wanted` records (by_records) or lines; what is found never begins in the middle of a record, so there
    // may be more lines. Lines before the first record of the file count as records.
    last_part find_last(file_kind kind, std::size_t wanted, bool by_records) const;

    // Gives the whole lines from where the last call ended up to an offset; from the beginning when the file has been
    // made shorter. True: there was something new.
    bool read_lines(off_t until, const std::function<void(std::string_view)> &line);
    // What stands behind the last line end: a line that its writer could not finish.
    void read_rest(const std::function<void(std::string_view)> &line);
    void go_to(off_t offset);

private:
    int fd_ = -1;
    off_t at_ = 0;
    std::string rest_; // read already, without its line end
};

} // namespace tool
