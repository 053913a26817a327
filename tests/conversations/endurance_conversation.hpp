// endurance_conversation.hpp - a conversation of the commands in endurance_*.cpp: its buffers, its calls without their
// many arguments, and what those commands share. Used by one thread at a time, but for the call that cancels.
#pragma once

#include "conversations/endurance_records.hpp"

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

// What a call returns here when the data it brought is not what may come.
inline constexpr CM_INT32 wrong_data = -7;

// A conversation with the outputs of its last calls. On a basic one the bytes to send are wrapped into logical records,
// which go in pieces of any size and are received by LL or by buffer, with room of any size; what is received has the
// same bytes again. Large: never on a stack.
struct conversation
{
    std::array<unsigned char, CM_CID_SIZE> id{};
    std::array<unsigned char, largest> sent{};
    std::array<unsigned char, largest> got{};
    CM_INT32 received = 0, data = 0, status = 0, request_to_send = 0;

    CM_INT32 initialize(const std::string &destination, bool with_records = false)
    {
        unsigned char name[CM_SDN_SIZE];
        std::memset(name, ' ', sizeof name);
        std::memcpy(name, destination.data(), std::min(destination.size(), sizeof name));
        CM_INT32 rc;
        cminit(id.data(), name, &rc);
        return rc == CM_OK && with_records ? set(cmsct, CM_BASIC_CONVERSATION) : rc;
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
    CM_INT32 begin(const std::string &destination, bool with_records = false)
    {
        const CM_INT32 rc = initialize(destination, with_records);
        return rc == CM_OK ? allocate() : rc;
    }
    CM_INT32 allocate()
    {
        const CM_INT32 rc = plain(cmallc);
        return rc == CM_OK ? learn_type() : rc;
    }
    CM_INT32 accept()
    {
        const CM_INT32 rc = plain(cmaccp);
        return rc == CM_OK ? learn_type() : rc;
    }
    CM_INT32 send(CM_INT32 length)
    {
        if (!basic_)
            return send_bytes(sent.data(), length);
        stream_.clear();
        wrap(stream_, sent.data(), static_cast<std::size_t>(length), random_);
        CM_INT32 rc = CM_OK;
        for (std::size_t at = 0; at < stream_.size() && rc == CM_OK;)
        {
            const std::size_t most = random_() % 4 == 0 ? 32767 : 1 + stream_.size() / 2;
            const std::size_t step = std::min({random_() % (most + 1), stream_.size() - at, std::size_t{32767}});
            rc = send_bytes(stream_.data() + at, static_cast<CM_INT32>(step));
            at += step;
        }
        return rc;
    }
    // On a basic conversation: a piece, added to those that came before.
    CM_INT32 receive()
    {
        if (!basic_)
            return receive_bytes(got.data(), largest);
        const CM_INT32 room = random_() % 3 == 0 ? 1 + static_cast<CM_INT32>(random_() % 200) : largest;
        const CM_INT32 rc = receive_bytes(piece_.data(), room);
        return rc == CM_OK && !piece_is_right(room) ? wrong_data : rc;
    }
    // Everything up to a status; the length of the last record, or of all the contents of a basic conversation, in
    // `length`.
    CM_INT32 receive_turn(CM_INT32 &length)
    {
        records_.restart();
        do
        {
            const CM_INT32 rc = receive();
            if (rc != CM_OK)
                return rc;
            if (data != CM_NO_DATA_RECEIVED)
                length = basic_ ? static_cast<CM_INT32>(records_.length()) : received;
        } while (status == CM_NO_STATUS_RECEIVED);
        return CM_OK;
    }
    // What was received and is of no interest any more.
    void forget() { records_.restart(); }

private:
    CM_INT32 learn_type()
    {
        CM_INT32 type, rc;
        cmect(id.data(), &type, &rc);
        basic_ = type == CM_BASIC_CONVERSATION;
        records_ = {};
        // Every conversation has sizes of its own, the same for the same ID.
        unsigned seed = 1;
        for (const unsigned char byte : id)
            seed = seed * 31 + byte;
        random_.seed(seed);
        by_buffer_ = random_() % 2 == 0;
        return rc == CM_OK && basic_ ? set(cmsf, by_buffer_ ? CM_FILL_BUFFER : CM_FILL_LL) : rc;
    }
    CM_INT32 send_bytes(unsigned char *bytes, CM_INT32 length)
    {
        CM_INT32 rc;
        cmsend(id.data(), bytes, &length, &request_to_send, &rc);
        return rc;
    }
    CM_INT32 receive_bytes(unsigned char *bytes, CM_INT32 room)
    {
        CM_INT32 rc;
        received = 0;
        data = CM_NO_DATA_RECEIVED;
        status = CM_NO_STATUS_RECEIVED;
        cmrcv(id.data(), bytes, &room, &data, &received, &status, &request_to_send, &rc);
        return rc;
    }
    bool piece_is_right(CM_INT32 room)
    {
        if (received < 0 || received > room ||
            (received != 0 && !records_.take(got, piece_.data(), static_cast<std::size_t>(received))))
            return false;
        if (status != CM_NO_STATUS_RECEIVED && !records_.at_boundary())
            return false;
        switch (data)
        {
        case CM_NO_DATA_RECEIVED:
            return received == 0;
        case CM_DATA_RECEIVED:
            return by_buffer_ && received != 0;
        case CM_COMPLETE_DATA_RECEIVED:
            return !by_buffer_ && records_.at_boundary();
        default: // the partner is gone in the middle of the record, or there was no more room
            return !by_buffer_ && !records_.at_boundary();
        }
    }

    bool basic_ = false, by_buffer_ = false;
    random_source random_;
    unwrapping records_;
    std::vector<unsigned char> stream_;
    std::array<unsigned char, largest> piece_{};
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
