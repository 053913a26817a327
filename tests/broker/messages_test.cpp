// messages_test.cpp - the check that stands before every message.
#include "wire/broker.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using namespace wire;

struct kind_row
{
    message_kind kind;
    sender from;
    bool notice;
    std::size_t size; // of the shortest that is good
};

const kind_row rows[] = {
    {message_kind::hello, sender::program, false, sizeof(hello)},
    {message_kind::welcome, sender::broker, false, sizeof(welcome)},
    {message_kind::find_lu, sender::program, false, sizeof(find_lu)},
    {message_kind::lu_found, sender::broker, false, sizeof(lu_found)},
    {message_kind::add_name, sender::program, false, sizeof(name_change)},
    {message_kind::remove_name, sender::program, false, sizeof(name_change)},
    {message_kind::done, sender::broker, false, sizeof(done)},
    {message_kind::allocate, sender::program, false, sizeof(allocate)},
    {message_kind::allocated, sender::broker, false, sizeof(allocated)},
    {message_kind::accept, sender::program, false, sizeof(accept) + 64},
    {message_kind::accepted, sender::broker, false, sizeof(accepted)},
    {message_kind::cancel, sender::program, false, sizeof(cancel)},
    {message_kind::ended, sender::program, true, sizeof(ended)},
    {message_kind::query_side_info, sender::program, false, sizeof(query_side_info)},
    {message_kind::side_info, sender::broker, false, sizeof(side_info)},
    {message_kind::control, sender::program, false, sizeof(control)},
    {message_kind::control_reply, sender::broker, false, sizeof(control_reply)},
    {message_kind::record, sender::program, true, sizeof(record)},
};

std::vector<unsigned char> make(const kind_row &row)
{
    std::vector<unsigned char> bytes(row.size);
    message_head head{static_cast<std::uint16_t>(row.kind), 0, static_cast<std::uint32_t>(row.size),
                      row.notice ? 0u : 1u};
    std::memcpy(bytes.data(), &head, sizeof head);
    if (row.kind == message_kind::accept)
    {
        bytes[offsetof(accept, count)] = 1;
    }
    return bytes;
}

TEST(MessageCheck, EveryKindIsGoodFromItsOwnSideAlone)
{
    for (const kind_row &row : rows)
    {
        auto bytes = make(row);
        EXPECT_TRUE(message_check(bytes.data(), bytes.size(), row.from)) << int(row.kind);
        sender other = row.from == sender::program ? sender::broker : sender::program;
        EXPECT_FALSE(message_check(bytes.data(), bytes.size(), other)) << int(row.kind);
    }
}

TEST(MessageCheck, LengthsMustAgree)
{
    for (const kind_row &row : rows)
    {
        auto bytes = make(row);
        for (std::size_t size = 0; size < bytes.size(); ++size)
        {
            EXPECT_FALSE(message_check(bytes.data(), size, row.from));
        }
        // A byte more, first in the packet alone, then in the head too.
        bytes.push_back(0);
        EXPECT_FALSE(message_check(bytes.data(), bytes.size(), row.from));
        bytes[offsetof(message_head, length)]++;
        EXPECT_FALSE(message_check(bytes.data(), bytes.size(), row.from)) << int(row.kind);
    }
}

TEST(MessageCheck, CorrelationsBelongToRequestsAndRepliesOnly)
{
    for (const kind_row &row : rows)
    {
        auto bytes = make(row);
        bytes[offsetof(message_head, correlation)] ^= 1;
        EXPECT_FALSE(message_check(bytes.data(), bytes.size(), row.from)) << int(row.kind);
    }
}

TEST(MessageCheck, UnknownKindsAndReservedBytes)
{
    auto bytes = make(rows[0]);
    bytes[2] = 1;
    EXPECT_FALSE(message_check(bytes.data(), bytes.size(), sender::program));
    for (int kind : {0, 18, 255, 65535})
    {
        bytes = make(rows[0]);
        bytes[0] = static_cast<unsigned char>(kind);
        bytes[1] = static_cast<unsigned char>(kind >> 8);
        EXPECT_FALSE(message_check(bytes.data(), bytes.size(), sender::program));
    }
}

TEST(MessageCheck, CountsMustFit)
{
    for (std::uint32_t count : {0u, 2u, 1001u, 0x04000001u, 0xFFFFFFFFu})
    {
        auto bytes = make(rows[9]);
        std::memcpy(bytes.data() + offsetof(accept, count), &count, sizeof count);
        EXPECT_FALSE(message_check(bytes.data(), bytes.size(), sender::program)) << count;
    }
    for (std::uint32_t length : {1u, 0xFFFFFFFFu})
    {
        auto bytes = make(rows[15]);
        std::memcpy(bytes.data() + offsetof(control, text_length), &length, sizeof length);
        EXPECT_FALSE(message_check(bytes.data(), bytes.size(), sender::program)) << length;
    }
    kind_row most = rows[9];
    most.size = sizeof(accept) + 1000 * 64;
    auto bytes = make(most);
    std::uint32_t count = 1000;
    std::memcpy(bytes.data() + offsetof(accept, count), &count, sizeof count);
    EXPECT_TRUE(message_check(bytes.data(), bytes.size(), sender::program));
    EXPECT_LE(most.size, max_message);
}

} // namespace
