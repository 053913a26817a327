// page.hpp - the control page: shared by the broker, which alone can write it, with every program. Sealed against
// growing, shrinking and new writers. The broker's one thread writes; programs read single bytes and words.
#pragma once

#include "wire/broker.hpp"

namespace broker {

class control_page_file
{
public:
    control_page_file() = default;
    ~control_page_file();
    control_page_file(const control_page_file &) = delete;
    control_page_file &operator=(const control_page_file &) = delete;

    // Makes the page, all zero; false: errno says why.
    bool open();
    wire::control_page *content() { return content_; }
    int reader() const { return reader_; } // the descriptor that programs get

private:
    wire::control_page *content_ = nullptr;
    int reader_ = -1;
};

} // namespace broker
