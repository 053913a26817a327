/* calls.hpp - how the call tests speak: a fresh library per test, guarded outputs, calls that read as sentences.
 *
 *     Id c = allocated();
 *     Out rts;
 *     EXPECT_EQ(CM_OK, call(cmsend, c, "hello", 5, rts));
 *     EXPECT_VERB(node.only(NAP_SEND_DATA), Image(NAP_SEND_DATA).of(before).put16(26, 5)...);
 *
 * call() takes the arguments of the CPI-C call but the return code, which is its result: integers are passed by
 * address, text as its characters. After each call it checks that the return code was written, nothing was written
 * beside an output, and the lock was released.
 */
#ifndef TESTS_CALLS_CALLS_HPP
#define TESTS_CALLS_CALLS_HPP

#include "cpic.h"
#include "private.hpp"
#include "scripted_node.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

using scripted::Answer;
using scripted::ascii;
using scripted::Bytes;
using scripted::ebcdic;
using scripted::fails;
using scripted::hex;
using scripted::Image;
using scripted::later;
using scripted::Locked;
using scripted::Log;
using scripted::never_calls_back;
using scripted::node;
using scripted::succeeds;
using scripted::Verb;

/* A 32-bit output between two guard words. */
class Out
{
    long words[3] = {guard, untouched_value, guard};

public:
    static constexpr long guard = 0x6B6B6B6B;
    static constexpr long untouched_value = 0x55AA55AA;

    Out() = default;
    explicit Out(long value)
    {
        words[1] = value;
    }
    long *address()
    {
        return &words[1];
    }
    long value() const
    {
        return words[1];
    }
    bool untouched() const
    {
        return words[1] == untouched_value;
    }
    void check() const
    {
        EXPECT_TRUE(words[0] == guard && words[2] == guard) << "something was written beside an output";
    }
};

/* A byte buffer between two guard zones. */
class Buffer
{
    Bytes store;
    size_t length;
    static constexpr size_t margin = 64;

public:
    static constexpr u8 fill = 0xE7;

    explicit Buffer(size_t size) : store(size + 2 * margin, fill), length(size)
    {
    }
    explicit Buffer(const Bytes &content) : Buffer(content.size())
    {
        memcpy(address(), content.data(), content.size());
    }
    u8 *address()
    {
        return store.data() + margin;
    }
    size_t size() const
    {
        return length;
    }
    Bytes content(size_t count) const
    {
        return Bytes(store.begin() + margin, store.begin() + static_cast<int>(margin + count));
    }
    Bytes content() const
    {
        return content(length);
    }
    /* Every byte from `from` on is as it was before the call. */
    bool untouched(size_t from = 0) const
    {
        for (size_t i = from; i < length; i++)
        {
            if (store[margin + i] != fill)
            {
                return false;
            }
        }
        return true;
    }
    void check() const
    {
        for (size_t i = 0; i < margin; i++)
        {
            if (store[i] != fill || store[margin + length + i] != fill)
            {
                ADD_FAILURE() << "something was written beside a buffer of " << length << " bytes";
                return;
            }
        }
    }
};

/* A conversation ID. */
struct Id : Buffer
{
    Id() : Buffer(8)
    {
    }
    explicit Id(const Bytes &content) : Buffer(content)
    {
    }
    u32 handle() const
    {
        u32 h;
        memcpy(&h, content().data(), 4);
        return h;
    }
    /* The conversation's control block, null when there is none. */
    CCCB *find() const
    {
        const auto table = node.tables.find(library_gcb.ConvTable);
        if (table == node.tables.end() || table->second.entries.count(handle()) == 0)
        {
            return nullptr;
        }
        return static_cast<CCCB *>(table->second.entries[handle()]);
    }
    CCCB &cccb() const
    {
        static CCCB nothing;
        CCCB *found = find();
        EXPECT_NE(nullptr, found) << "the conversation is gone";
        return found == nullptr ? nothing : *found;
    }
    bool exists() const
    {
        return find() != nullptr;
    }
};

namespace detail
{
inline void *address(Out &out)
{
    return out.address();
}
inline void *address(Buffer &buffer)
{
    return buffer.address();
}
inline void *address(const char *text)
{
    return const_cast<char *>(text);
}
inline void *address(const std::string &text)
{
    return const_cast<char *>(text.data());
}
inline void *address(const Bytes &b)
{
    return const_cast<u8 *>(b.data());
}
inline void *address(std::nullptr_t)
{
    return nullptr;
}
inline void *address(const int &value)
{
    return const_cast<int *>(&value);
}
inline void *address(const long &value)
{
    return const_cast<long *>(&value);
}
inline void *address(void *pointer)
{
    return pointer;
}

inline void check(const Out &out)
{
    out.check();
}
inline void check(const Buffer &buffer)
{
    buffer.check();
}
template <class T> void check(const T &)
{
}

template <class> using pointer_for = void *;
} // namespace detail

/* Any function of the library as one that takes pointers only. */
using AnyCall = void (*)(void);

template <class... Arguments> long call_any(AnyCall function, Arguments &&...arguments)
{
    Out return_code;
    reinterpret_cast<void (*)(detail::pointer_for<Arguments>..., void *)>(function)(detail::address(arguments)...,
                                                                                   return_code.address());
    return_code.check();
    EXPECT_FALSE(return_code.untouched()) << "no return code was stored";
    (detail::check(arguments), ...);
    EXPECT_FALSE(node.held) << "the call returned with the lock held";
    node.check_counters();
    return return_code.value();
}

template <class Function, class... Arguments> long call(Function *function, Arguments &&...arguments)
{
    return call_any(reinterpret_cast<AnyCall>(function), std::forward<Arguments>(arguments)...);
}

/* A test of calls: the library not yet started, an empty environment. */
class CallTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        unsetenv("APPCLLU");
        unsetenv("APPCTPN");
        node.reset();
    }

    void TearDown() override
    {
        node.verify();
        node.reset();
    }

    /* After cminit with no symbolic destination. */
    static Id initialised(const char *name = "        ")
    {
        Id id;
        EXPECT_EQ(CM_OK, call(cminit, id, name));
        return id;
    }

    /* After cminic. */
    static Id incoming()
    {
        Id id;
        EXPECT_EQ(CM_OK, call(cminic, id));
        return id;
    }

    /* Allocated, blocking, on a TP of its own; the verbs of the set-up are forgotten. conversation_type: 0 basic. */
    static Id allocated(int conversation_type = 1)
    {
        Id id = initialised();
        id.cccb().ulConversationType = static_cast<u32>(conversation_type);
        EXPECT_EQ(CM_OK, call(cmallc, id));
        node.forget();
        return id;
    }

    /* Allocated, then switched to non-blocking processing. */
    static Id non_blocking(int conversation_type = 1)
    {
        Id id = allocated(conversation_type);
        EXPECT_EQ(CM_OK, call(cmspm, id, 1));
        return id;
    }

    /* With a flush in progress at the node. */
    static Id busy(int conversation_type = 1)
    {
        Id id = non_blocking(conversation_type);
        node.next(NAP_FLUSH, later());
        EXPECT_EQ(CM_OPERATION_INCOMPLETE, call(cmflus, id));
        return id;
    }

    /* With a completion posted and not collected. */
    static Id completed(int conversation_type = 1)
    {
        Id id = busy(conversation_type);
        node.deliver_all();
        EXPECT_EQ(1, id.cccb().usCompletionPending);
        return id;
    }

    /* Puts log data on a conversation as cmsld would: `text` behind an 8-byte header. */
    static void give_log_data(const Id &id, const std::string &text)
    {
        Locked held;
        CCCB &c = id.cccb();
        c.LogData = static_cast<u8 *>(nba_mm_alloc(static_cast<u32>(text.size()) + 8, MM_TYPE_RECORD, nba_blank_name));
        memcpy(c.LogData, "\0\0\x12\xE1\0\2\0\0", 8);
        memcpy(c.LogData + 8, text.data(), text.size());
        c.usLogDataLen = static_cast<u16>(text.size() + 8);
    }

    static void expect_no_verb()
    {
        EXPECT_EQ(0u, node.verbs.size()) << "nothing must be issued";
    }

    /* The problem that every call logs for a conversation ID that it cannot find. */
    static void expect_unknown_id(unsigned detail, const Id &id)
    {
        const Log log = node.problem(0x20030005, detail);
        EXPECT_EQ("ba", log.format);
        ASSERT_EQ(1u, log.items.size());
        EXPECT_EQ(hex(id.content()), hex(log.items[0].second));
    }
};

/* The verb was issued with exactly these bytes. */
#define EXPECT_VERB(verb, image) EXPECT_EQ("", scripted::difference((image).bytes, (verb).issued))

/* The pending-call record of a conversation at the moment when a verb was issued. */
inline void expect_pending_call(const Verb &verb, unsigned call_number, const Id &id, const void *out1 = nullptr,
                                const void *out2 = nullptr, const void *out3 = nullptr, const void *out4 = nullptr,
                                const void *out5 = nullptr)
{
    ASSERT_TRUE(verb.cccb.has_value()) << "the verb's record is no conversation";
    const CCCB &c = *verb.cccb;
    const CCCB *where = static_cast<const CCCB *>(verb.record);
    EXPECT_EQ(call_number, c.usTraceCallNo);
    EXPECT_EQ(static_cast<const void *>(where->SavedConvId), c.pSavedConvId);
    EXPECT_EQ(hex(id.content()), hex(c.SavedConvId, 8));
    EXPECT_EQ(0u, c.ulPendingRc);
    EXPECT_EQ(out1, c.pOut1);
    EXPECT_EQ(out2, c.pOut2);
    EXPECT_EQ(out3, c.pOut3);
    EXPECT_EQ(out4, c.pOut4);
    EXPECT_EQ(out5, c.pOut5);
    EXPECT_EQ(1, c.usVerbsPending) << "verbs pending while the verb is at the node";
}

/* Primary return codes after which a conversation is over, and the CPI-C code of each. */
struct EndingCode
{
    u16 primary;
    u32 secondary;
    long return_code;
};
inline constexpr EndingCode ending_codes[] = {{0x0300, 0x04000000, 1}, {0x0500, 0, 17}, {0x0600, 0, 17},
                                              {0x0700, 0, 30},         {0x0800, 0, 31}, {0x0900, 0, 18},
                                              {0x0F00, 0, 27},         {0x1000, 0, 26}, {0x2100, 0, 20}};
/* Failures that leave the conversation as it is. */
inline constexpr EndingCode lasting_codes[] = {{0x0100, 0x31000000, 24}, {0x0200, 0, 25}, {0x0C00, 0, 21},
                                               {0x0D00, 0, 23},          {0x0E00, 0, 22}, {0x1100, 0, 32},
                                               {0x1200, 0, 34},          {0x1300, 0, 33}, {0x1400, 0, 28}};

#endif
