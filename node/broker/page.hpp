// page.hpp - the control page: shared by the broker, which alone can write it, with every program. Sealed against
// growing, shrinking and new writers. The broker's one thread writes; programs read single bytes and words.
#pragma once

#include "wire/broker.hpp"

#include <string>

namespace broker {

class control_page_file
{
public:
    control_page_file() = default;
    ~control_page_file();
    control_page_file(const control_page_file &) = delete;
    control_page_file &operator=(const control_page_file &) = delete;

    // Makes the page, all zero; false: errno says why. directory: the node's, where mark_trace() leaves its mark.
    bool open(const std::string &directory);
    // Puts the mark of the API trace where programs that are not connected yet see it, or takes it away, as the page
    // says. A mark that cannot be made costs them the record of their first call.
    void mark_trace() const;
    wire::control_page *content() { return content_; }
    int reader() const { return reader_; } // the descriptor that programs get

private:
    void show_life();

    wire::control_page *content_ = nullptr;
    int reader_ = -1;
    std::string mark_; // path of the mark
};

} // namespace broker
