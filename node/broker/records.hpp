// records.hpp - the logs and the trace file of the node, as far as the broker writes them: for programs of other users,
// which may not write in its directory. One thread.
#pragma once

#include "wire/node_file.hpp"

#include <string>
#include <string_view>

namespace broker {

class record_files
{
public:
    explicit record_files(std::string directory);
    ~record_files();
    record_files(const record_files &) = delete;
    record_files &operator=(const record_files &) = delete;

    // Appends a whole record; limit: bytes of the file, 0: none. What a program sends is not believed: characters that
    // are not printable become periods, and the record ends with a new line. What cannot be written is lost, as it is
    // in the programs that write themselves; the first time it is said in the broker's log.
    void append(wire::node_file_kind kind, std::string_view text, std::uint32_t limit);

private:
    struct road;
    std::string directory_;
    wire::node_file files_[wire::node_file_kinds];
    bool warned_ = false;
};

} // namespace broker
