// config_file.cpp - reads a configuration file from disk; what is in it is config.cpp's.
#include "broker/config.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace broker {

namespace {

constexpr std::size_t max_file = 16u << 20; // bytes of a configuration file

} // namespace

std::optional<config> read_config_file(const std::string &file, config_findings &findings)
{
    auto fail = [&](const std::string &text) {
        findings.errors.push_back(file + ": " + text);
        return std::nullopt;
    };
    int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
    {
        return fail(std::string("cannot be opened (") + std::strerror(errno) + "), expected a configuration file");
    }
    struct stat status;
    std::string text;
    std::string trouble;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
    {
        trouble = "is no regular file, expected a configuration file";
    }
    while (trouble.empty())
    {
        char buffer[16384];
        ssize_t size = read(fd, buffer, sizeof buffer);
        if (size < 0 && errno == EINTR)
        {
            continue;
        }
        if (size <= 0)
        {
            if (size < 0)
            {
                trouble = std::string("cannot be read (") + std::strerror(errno) + "), expected a configuration file";
            }
            break;
        }
        text.append(buffer, static_cast<std::size_t>(size));
        if (text.size() > max_file)
        {
            trouble = "is longer than 16 MiB, expected a configuration file";
        }
    }
    close(fd);
    if (!trouble.empty())
    {
        return fail(trouble);
    }
    std::optional<config> result = read_config_text(text, file, findings);
    bool secrets = result && std::any_of(result->side_infos.begin(), result->side_infos.end(),
                                         [](const side_info_entry &e) { return !e.password.empty(); });
    if (secrets && (status.st_mode & (S_IRGRP | S_IROTH)) != 0)
    {
        findings.warnings.push_back(file + ": other users may read the passwords in it; run chmod 600 on it");
    }
    return result;
}

} // namespace broker
