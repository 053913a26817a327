// output.cpp - answers on standard output and standard error.
#include "output.hpp"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <poll.h>
#include <unistd.h>

namespace tool {

std::string text_of(const json &document, int indent)
{
    return document.dump(indent, ' ', false, json::error_handler_t::replace) + "\n";
}

int fail(const setting &where, const std::string &text)
{
    std::string sentence = text.substr(0, text.find_last_not_of('\n') + 1);
    if (where.json)
    {
        std::cout << text_of({{"error", sentence}}, -1);
    }
    else
    {
        std::cerr << "cpicnode: " << sentence << "\n";
    }
    return exit_failed;
}

bool wait_while_read(std::chrono::milliseconds time)
{
    // No event is asked for, so only the end of the reader of a pipe or socket ends the wait early.
    pollfd reader{STDOUT_FILENO, 0, 0};
    return poll(&reader, 1, static_cast<int>(time.count())) <= 0;
}

int finish_output(int code)
{
    errno = 0;
    std::cout.flush();
    const int error = errno;
    if (std::cout)
    {
        return code;
    }
    if (wait_while_read(std::chrono::milliseconds(0))) // who has stopped reading wants no more
    {
        std::cerr << "cpicnode: the answer cannot be written"
                  << (error != 0 ? std::string(": ") + std::strerror(error) : std::string()) << "\n";
    }
    return exit_failed;
}

} // namespace tool
