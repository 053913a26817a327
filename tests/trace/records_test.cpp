/* records_test.cpp - the request and response record of every call, line by line. */
#include "trace/trace_file.hpp"

#include <cstdio>
#include <cstring>

static const std::string CHARACTERISTICS = "Conversation characteristics";
static const std::string ID_LINE = " Conversation ID = 0A2BFC01";

static Lines operator+(Lines first, const Lines &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/* A conversation whose every characteristic differs from zero, and the arguments of a call on it. */
class Records : public TraceTest
{
protected:
    CCCB cccb = {};
    u8 log_data[12] = {};
    u8 id[8] = {0x0A, 0x2B, 0xFC, 0x01, 0xEE, 0xEE, 0xEE, 0xEE};
    u32 rc = 0;
    u32 one = 1;
    u32 two = 2;
    u32 length = 3;
    u8 name[80] = {0xD1, 0xD2, 0xD3, 0xD4};
    u8 sym_dest[8] = {'P', 'A', 'R', 'T', 'N', 'E', 'R', ' '};
    u8 entry[124] = {};

    void SetUp() override
    {
        TraceTest::SetUp();
        cccb.ulConversationType = 1;
        cccb.ulDeallocateType = 3;
        cccb.ulErrorDirection = 1;
        cccb.ulSyncLevel = 1;
        cccb.ulFill = 1;
        cccb.ulPrepareToReceiveType = 2;
        cccb.ulReceiveType = 1;
        cccb.ulSendType = 4;
        cccb.ulReturnControl = 1;
        cccb.usProcessingMode = 1;
        cccb.usInitialized = 1; /* the two bytes behind it */
        cccb.usLogDataLen = 12;
        cccb.LogData = log_data;
        cccb.SideInfo.ulSecurityType = 2;
        cccb.SideInfo.ulTPNameFlag = 1;
        memcpy(cccb.SideInfo.SymDestName, "STORED1 ", 8);
        memset(cccb.SideInfo.PartnerLUName, 0xA1, 17);
        memset(cccb.SideInfo.ModeName, 0xA2, 8);
        memset(cccb.SideInfo.TPName, 0xA3, 64);
        memset(cccb.SideInfo.SecurityUserId, 0xA4, 10);
        memset(cccb.SideInfo.SecurityPassword, 0x55, 10);
        memset(cccb.LocalLUName, 0xA5, 8);
        memcpy(entry, "ENTRY1  ", 8);
        memset(entry + 8, 0xB1, 17);
        entry[28] = 1;
        memset(entry + 32, 0xB2, 64);
        memset(entry + 96, 0xB3, 8);
        entry[104] = 5;
        memset(entry + 108, 0xB4, 8);
        memset(entry + 116, 0x55, 8);
    }

    static std::string bytes(unsigned char byte, u32 count)
    {
        return dump_text(std::string(count, static_cast<char>(byte)).data(), count);
    }

    static std::string at(const char *format, const void *address)
    {
        char line[80];
        snprintf(line, sizeof line, format, address);
        return line;
    }

    /* The lines below the header, which has its own tests. */
    Lines request(u16 call, const void *a1 = nullptr, const void *a2 = nullptr, const void *a3 = nullptr)
    {
        return below_header(record(1, call, &cccb, a1, a2, a3));
    }

    Lines response(u16 call, const void *a2 = nullptr, const void *a3 = nullptr, const void *a4 = nullptr,
                   const void *a5 = nullptr, const void *a6 = nullptr)
    {
        return below_header(record(2, call, &cccb, &rc, a2, a3, a4, a5, a6));
    }

    static Lines below_header(Lines lines)
    {
        EXPECT_FALSE(lines.empty());
        lines.erase(lines.begin());
        return lines;
    }

    Lines log_data_lines() const
    {
        return {at(" Log data pointer = %p", log_data), " Log data length = 12"};
    }

    Lines new_conversation() const
    {
        return Lines({
                   ID_LINE,
                   CHARACTERISTICS,
                   " Conversation type = CM_MAPPED_CONVERSATION",
                   " Deallocate type = CM_DEALLOCATE_ABEND",
                   " Error direction = CM_SEND_ERROR",
                   " Sync level = CM_CONFIRM",
                   " Fill type = CM_FILL_BUFFER",
                   " Prepare to receive type = CM_PREP_TO_RECEIVE_CONFIRM",
                   " Receive type = CM_RECEIVE_IMMEDIATE",
                   " Send type = CM_SEND_AND_DEALLOCATE",
                   " Conversation security type = CM_SECURITY_PROGRAM",
               }) +
               log_data_lines() +
               Lines({" Partner LU name =", bytes(0xA1, 17), " Mode name =", bytes(0xA2, 8)});
    }

    static Lines entry_lines()
    {
        return {" Sym dest name = ENTRY1  ",
                " Partner LU name =",
                bytes(0xB1, 17),
                " TP name type = CM_SNA_SERVICE_TP",
                " Partner TP name =",
                bytes(0xB2, 64),
                " Mode name =",
                bytes(0xB3, 8),
                " Conversation security type = CM_SECURITY_PROGRAM_STRONG",
                " Security user ID =",
                bytes(0xB4, 8)};
    }
};

TEST_F(Records, of_calls_that_show_the_conversation_only)
{
    for (u16 call : std::initializer_list<u16>{3, 10, 14, 35, 42, 44, 48})
    {
        EXPECT_EQ(Lines({ID_LINE}), request(call, id, name, &length)) << call;
        EXPECT_EQ(Lines(), response(call, name, &length)) << call;
    }
}

TEST_F(Records, of_cmaccp)
{
    EXPECT_EQ(Lines(), request(0));
    EXPECT_EQ(new_conversation(), response(0, id));
}

TEST_F(Records, of_cminit)
{
    EXPECT_EQ(Lines({" Sym dest name = PARTNER "}), request(11, sym_dest));
    EXPECT_EQ(new_conversation() + Lines({" Sym dest name = STORED1 "}), response(11, id));
}

TEST_F(Records, of_a_cminit_that_failed_have_an_empty_name)
{
    rc = 24;
    const Lines lines = record(2, 11, nullptr, &rc, id);
    EXPECT_EQ("CMINIT response, result = CM_PROGRAM_PARAMETER_CHECK", lines.front());
    EXPECT_EQ(" Sym dest name = ", lines.back());
}

TEST_F(Records, of_cmallc)
{
    EXPECT_EQ(Lines({ID_LINE, CHARACTERISTICS, " Conversation type = CM_MAPPED_CONVERSATION",
                     " Return control = CM_IMMEDIATE", " Sync level = CM_CONFIRM",
                     " Conversation security type = CM_SECURITY_PROGRAM", " Partner LU name =", bytes(0xA1, 17),
                     " Mode name =", bytes(0xA2, 8), " Partner TP name =", bytes(0xA3, 64)}),
              request(1, id));
    EXPECT_EQ(Lines(), response(1));
}

TEST_F(Records, of_calls_that_report_a_request_to_send)
{
    for (u16 call : std::initializer_list<u16>{2, 30})
    {
        EXPECT_EQ(Lines({ID_LINE}), request(call, id)) << call;
        EXPECT_EQ(Lines({" Request to send received = CM_REQ_TO_SEND_RECEIVED"}), response(call, &one)) << call;
    }
}

TEST_F(Records, of_cmdeal)
{
    EXPECT_EQ(Lines({ID_LINE, CHARACTERISTICS, " Deallocate type = CM_DEALLOCATE_ABEND"}) + log_data_lines(),
              request(4, id));
    EXPECT_EQ(Lines(), response(4));
}

TEST_F(Records, of_calls_that_extract_a_value)
{
    const struct
    {
        u16 call;
        const char *line;
    } cases[] = {
        {5, " Conversation state = CM_INITIALIZE_STATE"},
        {6, " Conversation type = ***UNKNOWN CONVERSATION TYPE***"},
        {9, " Sync level = CM_SYNC_POINT"},
        {32, " Conversation security type = CM_SECURITY_PROGRAM"},
        {59, " Conversation security type = CM_SECURITY_PROGRAM"},
    };
    for (const auto &c : cases)
    {
        EXPECT_EQ(Lines({ID_LINE}), request(c.call, id)) << c.call;
        EXPECT_EQ(Lines({c.line}), response(c.call, &two)) << c.call;
    }
}

TEST_F(Records, of_calls_that_extract_a_name)
{
    const struct
    {
        u16 call;
        const char *heading;
        const char *length_line;
    } cases[] = {
        {7, " Mode name =", " Mode name length = 3"},
        {8, " Partner LU name =", " Partner LU name length = 3"},
        {33, " Security user ID =", " Security user ID length = 3"},
        {49, " Security user ID =", " Security user ID length = 3"},
        {58, " Security user ID =", " Security user ID length = 3"},
        {52, " Local TP name =", " TP name length = 3"},
        {56, " Context ID ", " Context ID length = 3"},
    };
    for (const auto &c : cases)
    {
        EXPECT_EQ(Lines({ID_LINE}), request(c.call, id)) << c.call;
        EXPECT_EQ(Lines({c.heading, "[D1 D2 D3]", c.length_line}), response(c.call, name, &length)) << c.call;
    }
}

TEST_F(Records, of_cmptr)
{
    EXPECT_EQ(Lines({ID_LINE, CHARACTERISTICS, " Prepare to receive type = CM_PREP_TO_RECEIVE_CONFIRM"}),
              request(12, id));
    EXPECT_EQ(Lines(), response(12));
}

TEST_F(Records, of_cmrcv)
{
    u32 requested = 32767;
    EXPECT_EQ(Lines({ID_LINE, " Requested length = 32767", CHARACTERISTICS,
                     " Conversation type = CM_MAPPED_CONVERSATION", " Fill type = CM_FILL_BUFFER",
                     " Receive type = CM_RECEIVE_IMMEDIATE"}),
              request(13, id, &requested));

    const Lines indications = {" Data received type = CM_COMPLETE_DATA_RECEIVED", " Received length = 3",
                               " Status received = CM_SEND_RECEIVED",
                               " Request to send received = CM_REQ_TO_SEND_RECEIVED"};
    EXPECT_EQ(Lines({at("---- Buffer at address %p ----", name), "[D1 D2 D3]"}) + indications,
              response(13, name, &two, &length, &one, &one));

    length = 0;
    EXPECT_EQ(Lines({" Buffer empty", " Data received type = CM_COMPLETE_DATA_RECEIVED", " Received length = 0",
                     " Status received = CM_SEND_RECEIVED", " Request to send received = CM_REQ_TO_SEND_RECEIVED"}),
              response(13, name, &two, &length, &one, &one));
}

TEST_F(Records, of_cmsend)
{
    const Lines stored = {CHARACTERISTICS, " Send type = CM_SEND_AND_DEALLOCATE",
                          " Prepare to receive type = CM_PREP_TO_RECEIVE_CONFIRM",
                          " Deallocate type = CM_DEALLOCATE_ABEND"};
    EXPECT_EQ(Lines({ID_LINE, at("---- Buffer at address %p ----", name), "[D1 D2 D3]", " Send length = 3"}) + stored,
              request(15, id, name, &length));
    length = 0;
    EXPECT_EQ(Lines({ID_LINE, " Buffer empty", " Send length = 0"}) + stored, request(15, id, name, &length));
    EXPECT_EQ(Lines({" Request to send received = CM_REQ_TO_SEND_RECEIVED"}), response(15, &one));
}

TEST_F(Records, of_cmserr)
{
    EXPECT_EQ(Lines({ID_LINE, CHARACTERISTICS, " Error direction = CM_SEND_ERROR"}), request(16, id));
    EXPECT_EQ(Lines({" Request to send received = CM_REQ_TO_SEND_RECEIVED"}), response(16, &one));
}

TEST_F(Records, of_calls_that_set_a_value)
{
    const u32 zero = 0;
    const struct
    {
        u16 call;
        std::string given;
        std::string stored;
    } cases[] = {
        {17, " Conversation type = CM_BASIC_CONVERSATION", " Conversation type = CM_MAPPED_CONVERSATION"},
        {18, " Deallocate type = CM_DEALLOCATE_SYNC_LEVEL", " Deallocate type = CM_DEALLOCATE_ABEND"},
        {19, " Error direction = CM_RECEIVE_ERROR", " Error direction = CM_SEND_ERROR"},
        {20, " Fill type = CM_FILL_LL", " Fill type = CM_FILL_BUFFER"},
        {24, " Prepare to receive type = CM_PREP_TO_RECEIVE_SYNC_LEVEL",
         " Prepare to receive type = CM_PREP_TO_RECEIVE_CONFIRM"},
        {25, " Receive type = CM_RECEIVE_AND_WAIT", " Receive type = CM_RECEIVE_IMMEDIATE"},
        {26, " Return control = CM_WHEN_SESSION_ALLOCATED", " Return control = CM_IMMEDIATE"},
        {27, " Send type = CM_BUFFER_DATA", " Send type = CM_SEND_AND_DEALLOCATE"},
        {28, " Sync level = CM_NONE", " Sync level = CM_CONFIRM"},
        {36, " Conversation security type = CM_SECURITY_NONE", " Conversation security type = CM_SECURITY_PROGRAM"},
        {46, " Conversation security type = CM_SECURITY_NONE", " Conversation security type = CM_SECURITY_PROGRAM"},
        {40, " Processing mode = CM_BLOCKING", " Processing mode = CM_NON_BLOCKING"},
    };
    for (const auto &c : cases)
    {
        EXPECT_EQ(Lines({ID_LINE, c.given, CHARACTERISTICS, c.stored}), request(c.call, id, &zero)) << c.call;
        EXPECT_EQ(Lines({CHARACTERISTICS, c.stored}), response(c.call)) << c.call;
    }
}

TEST_F(Records, of_calls_that_set_a_name)
{
    const struct
    {
        u16 call;
        const char *heading;
        const char *length_line;
        std::string stored;
    } cases[] = {
        {22, " Mode name =", " Mode name length = 3", bytes(0xA2, 8)},
        {23, " Partner LU name =", " Partner LU name length = 3", bytes(0xA1, 17)},
        {29, " Partner TP name =", " TP name length = 3", bytes(0xA3, 64)},
        {37, " Security user ID =", " Security user ID length = 3", bytes(0xA4, 8)},
        {47, " Security user ID =", " Security user ID length = 3", bytes(0xA4, 8)},
    };
    for (const auto &c : cases)
    {
        EXPECT_EQ(Lines({ID_LINE, c.heading, "[D1 D2 D3]", c.length_line, CHARACTERISTICS, c.heading, c.stored}),
                  request(c.call, id, name, &length))
            << c.call;
        EXPECT_EQ(Lines({CHARACTERISTICS, c.heading, c.stored}), response(c.call)) << c.call;
    }
}

TEST_F(Records, of_cmslln_show_the_stored_name_in_the_response_only)
{
    EXPECT_EQ(Lines({ID_LINE, " Local LU name =", "[D1 D2 D3]", " Local LU name length = 3"}),
              request(62, id, name, &length));
    EXPECT_EQ(Lines({CHARACTERISTICS, " Local LU name =", bytes(0xA5, 8)}), response(62));
}

TEST_F(Records, of_cmelln_have_a_length_of_their_own)
{
    EXPECT_EQ(Lines({ID_LINE}), request(60, id));
    EXPECT_EQ(Lines({" Local LU name =", "[D1 D2 D3 D4 00 00 00 00]", " Local LU name length = 8"}),
              response(60, name));
}

TEST_F(Records, of_cmsld)
{
    const Lines stored = Lines({CHARACTERISTICS}) + log_data_lines();
    EXPECT_EQ(Lines({ID_LINE, at("---- Buffer at address %p ----", name), "[D1 D2 D3]", " Log data length = 3"}) +
                  stored,
              request(21, id, name, &length));
    length = 0;
    EXPECT_EQ(Lines({ID_LINE, " Buffer empty", " Log data length = 0"}) + stored, request(21, id, nullptr, &length));
    EXPECT_EQ(stored, response(21));
}

TEST_F(Records, of_the_side_information_calls)
{
    EXPECT_EQ(Lines({" Sym dest name = PARTNER "}), request(31, sym_dest));
    EXPECT_EQ(Lines(), response(31));
    EXPECT_EQ(Lines({" Sym dest name = PARTNER "}), request(34, sym_dest));
    EXPECT_EQ(entry_lines(), response(34, entry));
    EXPECT_EQ(entry_lines(), request(38, entry));
    EXPECT_EQ(Lines(), response(38));
}

TEST_F(Records, end_a_symbolic_destination_name_at_a_zero)
{
    sym_dest[3] = 0;
    EXPECT_EQ(Lines({" Sym dest name = PAR"}), request(31, sym_dest));
}

TEST_F(Records, of_cmterm)
{
    EXPECT_EQ(Lines({" End type = CM_SOFT"}), request(39, &one));
    EXPECT_EQ(Lines(), response(39));
}

TEST_F(Records, of_calls_that_return_a_conversation)
{
    for (u16 call : std::initializer_list<u16>{41, 45})
    {
        EXPECT_EQ(Lines(), request(call, id)) << call;
        EXPECT_EQ(Lines({ID_LINE}), response(call, id)) << call;
    }
    EXPECT_EQ(Lines(), request(43, id));
    u32 collected = 18;
    EXPECT_EQ(Lines({ID_LINE, " Async result = CM_DEALLOCATED_NORMAL"}), response(43, id, &collected));
}

TEST_F(Records, of_the_local_tp_name_calls)
{
    for (u16 call : std::initializer_list<u16>{50, 51})
    {
        EXPECT_EQ(Lines({" Local TP name =", "[D1 D2 D3]", " TP name length = 3"}), request(call, name, &length));
        EXPECT_EQ(Lines(), response(call));
    }
}

TEST_F(Records, of_the_conversion_calls)
{
    for (u16 call : std::initializer_list<u16>{53, 54})
    {
        length = 3;
        const Lines lines = {at("---- Buffer at address %p ----", name), "[D1 D2 D3]"};
        EXPECT_EQ(lines, request(call, name, &length));
        EXPECT_EQ(lines, response(call, name, &length));
        length = 0;
        EXPECT_EQ(Lines({" Buffer empty"}), request(call, name, &length));
        EXPECT_EQ(Lines({" Buffer empty"}), response(call, name, &length));
    }
}

TEST_F(Records, of_cmembs)
{
    u32 size = 32767;
    EXPECT_EQ(Lines(), request(55));
    EXPECT_EQ(Lines({" Maximum buffer size = 32767"}), response(55, &size));
}

TEST_F(Records, of_cmsctx)
{
    EXPECT_EQ(Lines({" Context ID ", "[D1 D2 D3]", " Context ID length = 3"}), request(57, name, &length));
    EXPECT_EQ(Lines(), response(57));
}

TEST_F(Records, of_the_window_handle_number)
{
    u32 window = 0xFFFFFFFE;
    EXPECT_EQ(Lines({" Window Handle = 4294967294"}), request(61, &window));
    EXPECT_EQ(Lines(), response(61));
}

TEST_F(Records, without_a_conversation_show_the_names_of_zero)
{
    EXPECT_EQ(Lines({"CMALLC request", ID_LINE, CHARACTERISTICS, " Conversation type = CM_BASIC_CONVERSATION",
                     " Return control = CM_WHEN_SESSION_ALLOCATED", " Sync level = CM_NONE",
                     " Conversation security type = CM_SECURITY_NONE", " Partner LU name =", bytes(0, 17),
                     " Mode name =", bytes(0, 8), " Partner TP name =", bytes(0, 64)}),
              record(1, 1, nullptr, id));
    EXPECT_EQ(Lines({"CMSLD response, result = CM_OK", CHARACTERISTICS, " Log data pointer = (nil)",
                     " Log data length = 0"}),
              record(2, 21, nullptr, &rc));
}

TEST_F(Records, of_any_other_kind_are_asynchronous_responses)
{
    for (u16 kind : std::initializer_list<u16>{0, 3, 65535})
    {
        EXPECT_EQ(Lines({"CMCFM async response, result = CM_OK",
                         " Request to send received = CM_REQ_TO_SEND_RECEIVED"}),
                  record(kind, 2, &cccb, &rc, &one));
    }
}

TEST_F(Records, show_outputs_whatever_the_return_code)
{
    rc = 24;
    EXPECT_EQ(Lines({" Mode name =", "[D1 D2 D3]", " Mode name length = 3"}), response(7, name, &length));
}

TEST_F(Records, leave_out_arguments_that_are_null)
{
    for (u16 call = 0; call < 63; ++call)
    {
        for (const std::string &line : request(call))
        {
            EXPECT_EQ(std::string::npos, line.find("Conversation ID")) << call;
        }
        const std::string header = record(2, call, &cccb).front();
        EXPECT_EQ(" response, result = ***UNKNOWN RC***", header.substr(header.find(' '))) << call;
    }
    EXPECT_EQ(Lines({ID_LINE}), request(62, id));
    EXPECT_EQ(Lines({ID_LINE}), request(62, id, name));
    EXPECT_EQ(Lines({ID_LINE, " Local LU name length = 3"}), request(62, id, nullptr, &length));
    EXPECT_EQ(Lines(), response(53, nullptr, &length));
    EXPECT_EQ(Lines(), response(53, name, nullptr));
    EXPECT_EQ(Lines(), request(38, nullptr));
}

TEST_F(Records, show_no_more_of_a_name_than_the_caller_can_have_meant)
{
    length = 64;
    EXPECT_EQ(dump_text(name, 64), request(22, id, name, &length).at(2));
    length = 65;
    const Lines lines = request(22, id, name, &length);
    EXPECT_EQ(dump_text(name, 64), lines.at(2));
    EXPECT_EQ(" Mode name length = 65", lines.at(3));
    length = 0xFFFFFFFF;
    EXPECT_EQ(Lines({" Local TP name =", "[]", " TP name length = 4294967295"}), request(50, name, &length));
}

TEST_F(Records, show_no_more_of_a_returned_name_than_its_field)
{
    const struct
    {
        u16 call;
        u32 most;
    } cases[] = {{7, 8}, {8, 17}, {52, 64}, {33, 10}, {49, 10}, {58, 10}, {56, 8}};
    for (const auto &c : cases)
    {
        for (u32 stale : {c.most + 1, 0x7FFFFFFFu})
        {
            length = stale;
            EXPECT_EQ(dump_text(name, c.most), response(c.call, name, &length).at(1)) << c.call;
        }
        length = 0x80000000;
        EXPECT_EQ("[]", response(c.call, name, &length).at(1)) << c.call;
    }
}

TEST_F(Records, show_little_of_a_buffer_whose_length_no_call_accepts)
{
    static u8 data[32767];
    length = 32767;
    request(15, id, data, &length);
    ASSERT_EQ(1u, trace_file.dumps.size());
    EXPECT_EQ(32767u, trace_file.dumps[0].length);
    for (u32 refused : {32768u, 65536u, 0x7FFFFFFFu})
    {
        length = refused;
        const Lines lines = request(15, id, data, &length);
        EXPECT_EQ(64u, trace_file.dumps[0].length) << refused;
        EXPECT_EQ(" Send length = " + std::to_string(refused), lines.at(3));
    }
    length = 0xFFFFFFFF;
    EXPECT_EQ(Lines({at("---- Buffer at address %p ----", data), "[]"}), request(53, data, &length));
}

/* Every call, with every argument pointing to something: no dump touches a password, and no line contains one. */
TEST_F(Records, never_show_a_password)
{
    memset(entry, 'P', sizeof entry);
    memset(cccb.SideInfo.SecurityPassword, 'P', 10);
    const u8 *const stored = cccb.SideInfo.SecurityPassword;
    const u8 *const given = entry + 116;
    unsigned dumps = 0;
    for (u16 call = 0; call < 63; ++call)
    {
        for (u16 kind : std::initializer_list<u16>{1, 2, 3})
        {
            const bool entry_call = call == 34 || call == 38;
            u8 password[10];
            memset(password, 'P', sizeof password);
            const bool password_call = call == 35 || call == 48;
            const void *second = entry_call ? entry : password_call ? password : name;
            length = 10;
            const Lines lines = record(kind, call, &cccb, entry_call ? static_cast<const void *>(entry) : id, second,
                                       &length, &length, &length, &length);
            for (const Dump &dump : trace_file.dumps)
            {
                ++dumps;
                const u8 *const end = dump.address + dump.length;
                EXPECT_FALSE(dump.address < stored + 10 && end > stored) << call;
                EXPECT_FALSE(dump.address < given + 8 && end > given) << call;
                EXPECT_FALSE(dump.address < password + 10 && end > password) << call;
            }
            for (const std::string &line : lines)
            {
                EXPECT_TRUE(entry_call || line.find("50 50") == std::string::npos) << call << ' ' << line;
            }
        }
    }
    EXPECT_LT(50u, dumps);
}
