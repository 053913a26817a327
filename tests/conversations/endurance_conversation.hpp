// endurance_conversation.hpp - a conversation of the commands in endurance_*.cpp: its buffers, its calls without their
// many arguments, and what those commands share. Used by one thread at a time, but for the call that cancels.
#pragma once

#include <cpic.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace endurance {

using arguments = std::vector<std::string>;
using random_source = std::mt19937;
inline constexpr CM_INT32 largest = 32767;

inline CM_INT32 integer(const std::string &text)
{
    return static_cast<CM_INT32>(std::strtol(text.c_str(), nullptr, 0));
}

inline unsigned seed_of(const std::string &text)
{
    return static_cast<unsigned>(std::strtoul(text.c_str(), nullptr, 0));
}

// A conversation with the outputs of its last calls. Large: never on a stack.
struct conversation
{
    std::array<unsigned char, CM_CID_SIZE> id{};
    std::array<unsigned char, largest> sent{};
    std::array<unsigned char, largest> got{};
    CM_INT32 received = 0, data = 0, status = 0, request_to_send = 0;

    CM_INT32 initialize(const std::string &destination)
    {
        unsigned char name[CM_SDN_SIZE];
        std::memset(name, ' ', sizeof name);
        std::memcpy(name, destination.data(), std::min(destination.size(), sizeof name));
        CM_INT32 rc;
        cminit(id.data(), name, &rc);
        return rc;
    }
    CM_INT32 plain(void (*call)(unsigned char *, CM_INT32 *))
    {
        CM_INT32 rc;
        call(id.data(), &rc);
        return rc;
    }
    CM_INT32 set(void (*call)(unsigned char *, CM_INT32 *, CM_INT32 *), CM_INT32 value)
    {
        CM_INT32 rc;
        call(id.data(), &value, &rc);
        return rc;
    }
    CM_INT32 begin(const std::string &destination)
    {
        const CM_INT32 rc = initialize(destination);
        return rc == CM_OK ? plain(cmallc) : rc;
    }
    CM_INT32 send(CM_INT32 length)
    {
        CM_INT32 rc;
        cmsend(id.data(), sent.data(), &length, &request_to_send, &rc);
        return rc;
    }
    CM_INT32 receive()
    {
        CM_INT32 room = largest, rc;
        received = 0;
        data = CM_NO_DATA_RECEIVED;
        status = CM_NO_STATUS_RECEIVED;
        cmrcv(id.data(), got.data(), &room, &data, &received, &status, &request_to_send, &rc);
        return rc;
    }
    // One record, and everything up to a status; the record's length in `length`.
    CM_INT32 receive_turn(CM_INT32 &length)
    {
        do
        {
            const CM_INT32 rc = receive();
            if (rc != CM_OK)
                return rc;
            if (data != CM_NO_DATA_RECEIVED)
                length = received;
        } while (status == CM_NO_STATUS_RECEIVED);
        return CM_OK;
    }
};

inline std::int64_t monotonic_us()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::int64_t>(time.tv_sec) * 1000000 + time.tv_nsec / 1000;
}

// Nothing, or up to `most` microseconds; often very little.
inline void random_while(random_source &random, unsigned most)
{
    const unsigned kind = random() % 4;
    const unsigned time = kind == 0 ? 0 : kind == 1 ? random() % 30 : random() % most;
    if (time != 0)
        usleep(time);
}

// How often each code came, as " NAME=COUNT" with NAME a prefix and the code.
inline std::string counts(const std::string &prefix, const std::map<CM_INT32, int> &codes)
{
    std::string text;
    for (const auto &[code, count] : codes)
        text += " " + prefix + std::to_string(code) + "=" + std::to_string(count);
    return text;
}

// Runs `work` in COUNT threads: the first code that is not CM_OK, and how many there were.
std::string in_threads(CM_INT32 count, const std::function<CM_INT32(CM_INT32)> &work);

// endurance_cancel.cpp
std::string answer_command(const arguments &words);
std::string knock_command(const arguments &words);
std::string cancel_command(const arguments &words);

} // namespace endurance
