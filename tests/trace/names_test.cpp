/* names_test.cpp - the names of calls, return codes and values, each table from its first entry to beyond its last. */
#include "trace/trace_file.hpp"

class Names : public TraceTest
{
};

static const u32 OK = 0;

TEST_F(Names, of_every_call)
{
    const char *const names[] = {
        "CMACCP", "CMALLC", "CMCFM",  "CMCFMD", "CMDEAL", "CMECS",  "CMECT",  "CMEMN",  "CMEPLN", "CMESL",  "CMFLUS",
        "CMINIT", "CMPTR",  "CMRCV",  "CMRTS",  "CMSEND", "CMSERR", "CMSCT",  "CMSDT",  "CMSED",  "CMSF",   "CMSLD",
        "CMSMN",  "CMSPLN", "CMSPTR", "CMSRT",  "CMSRC",  "CMSST",  "CMSSL",  "CMSTPN", "CMTRTS", "XCMDSI", "XCECST",
        "XCECSU", "XCMESI", "XCSCSP", "XCSCST", "XCSCSU", "XCMSSI", "CMTERM", "CMSPM",  "CMINIC", "CMACCI", "CMWAIT",
        "CMCANC", "CMCHCK", "CMSCST", "CMSCSU", "CMSCSP", "CMESUI", "CMSLTP", "CMRLTP", "CMETPN", "CMCNVI", "CMCNVO",
        "CMEMBS", "CMECTX", "CMSCTX", "CMECSU", "CMECST", "CMELLN", "XCHWND", "CMSLLN",
    };
    static_assert(sizeof names / sizeof names[0] == 63);
    for (u16 call = 0; call < 63; ++call)
    {
        EXPECT_EQ(std::string(names[call]) + " request", record(1, call, nullptr).front());
        EXPECT_EQ(std::string(names[call]) + " response, result = CM_OK", record(2, call, nullptr, &OK).front());
    }
}

TEST_F(Names, an_unknown_call_has_a_header_and_nothing_more)
{
    for (u16 call : std::initializer_list<u16>{63, 64, 255, 65535})
    {
        EXPECT_EQ(Lines({"***UNKNOWN VERB*** request"}), record(1, call, nullptr, &OK, &OK, &OK));
        EXPECT_EQ(Lines({"***UNKNOWN VERB*** response, result = CM_OK"}), record(2, call, nullptr, &OK, &OK));
    }
}

/* The names of the return codes that have one. */
static std::string return_code_name(u32 code)
{
    static const struct
    {
        u32 code;
        const char *name;
    } names[] = {
        {0, "OK"},
        {1, "ALLOCATE_FAILURE_NO_RETRY"},
        {2, "ALLOCATE_FAILURE_RETRY"},
        {3, "CONVERSATION_TYPE_MISMATCH"},
        {5, "PIP_NOT_SPECIFIED_CORRECTLY"},
        {6, "SECURITY_NOT_VALID"},
        {7, "SYNC_LEVEL_NOT_SUPPORTED_LU"},
        {8, "SYNC_LEVEL_NOT_SUPPORTED_PGM"},
        {9, "TPN_NOT_RECOGNISED"},
        {10, "TP_NOT_AVAILABLE_NO_RETRY"},
        {11, "TP_NOT_AVAILABLE_RETRY"},
        {17, "DEALLOCATED_ABEND"},
        {18, "DEALLOCATED_NORMAL"},
        {19, "PARAMETER_ERROR"},
        {20, "PRODUCT_SPECIFIC_ERROR"},
        {21, "PROGRAM_ERROR_NO_TRUNC"},
        {22, "PROGRAM_ERROR_PURGING"},
        {23, "PROGRAM_ERROR_TRUNC"},
        {24, "PROGRAM_PARAMETER_CHECK"},
        {25, "PROGRAM_STATE_CHECK"},
        {26, "RESOURCE_FAILURE_NO_RETRY"},
        {27, "RESOURCE_FAILURE_RETRY"},
        {28, "UNSUCCESSFUL"},
        {30, "DEALLOCATED_ABEND_SVC"},
        {31, "DEALLOCATED_ABEND_TIMER"},
        {32, "SVC_ERROR_NO_TRUNC"},
        {33, "SVC_ERROR_PURGING"},
        {34, "SVC_ERROR_TRUNC"},
        {35, "OPERATION_INCOMPLETE"},
        {36, "SYSTEM_EVENT"},
        {37, "OPERATION_NOT_ACCEPTED"},
        {38, "CONVERSATION_ENDING"},
        {39, "SEND_RCV_MODE_NOT_SUPPORTED"},
        {40, "BUFFER_TOO_SMALL"},
        {41, "EXP_DATA_NOT_SUPPORTED"},
        {42, "DEALLOC_CONFIRM_REJECT"},
        {43, "ALLOCATION_ERROR"},
        {44, "RETRY_LIMIT_EXCEEDED"},
        {45, "NO_SECONDARY_INFORMATION"},
        {46, "SECURITY_NOT_SUPPORTED"},
        {47, "SECURITY_MUTUAL_FAILED"},
        {48, "CALL_NOT_SUPPORTED"},
        {49, "PARM_VALUE_NOT_SUPPORTED"},
        {100, "TAKE_BACKOUT"},
        {130, "DEALLOCATED_ABEND_BO"},
        {131, "DEALLOCATED_ABEND_SVC_BO"},
        {132, "DEALLOCATED_ABEND_TIMER_BO"},
        {133, "RESOURCE_FAIL_NO_RETRY_BO"},
        {134, "RESOURCE_FAILURE_RETRY_BO"},
        {135, "DEALLOCATED_NORMAL_BO"},
        {136, "CONV_DEALLOC_AFTER_SYNCPT"},
        {137, "INCLUDE_PARTNER_REJECT_BO"},
    };
    for (const auto &named : names)
    {
        if (named.code == code)
        {
            return std::string("CM_") + named.name;
        }
    }
    return "CM_***UNKNOWN RC***";
}

TEST_F(Names, of_every_return_code)
{
    for (u32 code = 0; code < 138; ++code)
    {
        EXPECT_EQ("CMFLUS response, result = " + return_code_name(code), record(2, 10, nullptr, &code).front());
    }
}

TEST_F(Names, a_return_code_beyond_the_table_shows_its_low_half)
{
    const struct
    {
        u32 code;
        const char *result;
    } cases[] = {
        {138, "***UNKNOWN RC*** (rc=138)"},
        {200, "***UNKNOWN RC*** (rc=200)"},
        {0x00010005, "***UNKNOWN RC*** (rc=5)"},
        {0xFFFFFFFF, "***UNKNOWN RC*** (rc=65535)"},
    };
    for (const auto &c : cases)
    {
        EXPECT_EQ(std::string("CMSEND response, result = ") + c.result, record(2, 15, nullptr, &c.code).front());
    }
}

TEST_F(Names, a_collected_return_code_is_known_up_to_37_only)
{
    for (u32 code = 0; code < 200; ++code)
    {
        const std::string name = code <= 37 ? return_code_name(code) : "***UNKNOWN RC***";
        EXPECT_EQ(" Async result = " + name, record(2, 43, nullptr, &OK, nullptr, &code).back());
    }
    const u32 negative = 0xFFFFFFFF;
    EXPECT_EQ(" Async result = ***UNKNOWN RC***", record(2, 43, nullptr, &OK, nullptr, &negative).back());
}

/* A kind of value: how a call's record shows it as an argument. */
struct ValueKind
{
    u16 kind;
    u16 call;
    unsigned argument; /* 1 to 6 */
    const char *label;
    const char *fallback;
    std::vector<const char *> names; /* without the prefix */
};

static const ValueKind value_kinds[] = {
    {1, 17, 2, "Conversation type", "***UNKNOWN CONVERSATION TYPE***", {"BASIC_CONVERSATION", "MAPPED_CONVERSATION"}},
    {1, 18, 2, "Deallocate type", "***UNKNOWN DEALLOCATE TYPE***",
     {"DEALLOCATE_SYNC_LEVEL", "DEALLOCATE_FLUSH", "DEALLOCATE_CONFIRM", "DEALLOCATE_ABEND"}},
    {1, 19, 2, "Error direction", "***UNKNOWN ERROR DIRECTION***", {"RECEIVE_ERROR", "SEND_ERROR"}},
    {1, 28, 2, "Sync level", "***UNKNOWN SYNC_LEVEL***", {"NONE", "CONFIRM", "SYNC_POINT", "SYNC_POINT_NO_CONFIRM"}},
    {1, 20, 2, "Fill type", "***UNKNOWN FILL TYPE***", {"FILL_LL", "FILL_BUFFER"}},
    {1, 24, 2, "Prepare to receive type", "***UNKNOWN PREP_TO_RECEIVE TYPE***",
     {"PREP_TO_RECEIVE_SYNC_LEVEL", "PREP_TO_RECEIVE_FLUSH", "PREP_TO_RECEIVE_CONFIRM"}},
    {1, 25, 2, "Receive type", "***UNKNOWN RECEIVE TYPE***", {"RECEIVE_AND_WAIT", "RECEIVE_IMMEDIATE"}},
    {1, 27, 2, "Send type", "***UNKNOWN SEND TYPE***",
     {"BUFFER_DATA", "SEND_AND_FLUSH", "SEND_AND_CONFIRM", "SEND_AND_PREP_TO_RECEIVE", "SEND_AND_DEALLOCATE"}},
    {1, 26, 2, "Return control", "***UNKNOWN RETURN_CONTROL***", {"WHEN_SESSION_ALLOCATED", "IMMEDIATE"}},
    {1, 46, 2, "Conversation security type", "***UNKNOWN CONVERSATION_SECURITY_TYPE***",
     {"SECURITY_NONE", "SECURITY_SAME", "SECURITY_PROGRAM", "SECURITY_DISTRIBUTED", "SECURITY_MUTUAL",
      "SECURITY_PROGRAM_STRONG"}},
    {2, 30, 2, "Request to send received", "***UNKNOWN REQ_TO_SEND TYPE***",
     {"REQ_TO_SEND_NOT_RECEIVED", "REQ_TO_SEND_RECEIVED"}},
    {2, 13, 3, "Data received type", "***UNKNOWN DATA RECEIVED TYPE***",
     {"NO_DATA_RECEIVED", "DATA_RECEIVED", "COMPLETE_DATA_RECEIVED", "INCOMPLETE_DATA_RECEIVED"}},
    {2, 13, 5, "Status received", "***UNKNOWN STATUS_RECEIVED***",
     {"NO_STATUS_RECEIVED", "SEND_RECEIVED", "CONFIRM_RECEIVED", "CONFIRM_SEND_RECEIVED", "CONFIRM_DEALLOC_RECEIVED",
      "TAKE_COMMIT", "TAKE_COMMIT_SEND", "TAKE_COMMIT_DEALLOCATE", "TAKE_COMMIT_DATA_OK", "TAKE_COMMIT_SEND_DATA_OK",
      "TAKE_COMMIT_DEALLOC_DATA_OK", "PREPARE_OK", "JOINT_TRANSACTION"}},
    {2, 5, 2, "Conversation state", "***UNKNOWN CONVERSATION STATE***",
     {"***UNKNOWN CONVERSATION STATE***", "***UNKNOWN CONVERSATION STATE***", "INITIALIZE_STATE", "SEND_STATE",
      "RECEIVE_STATE", "SEND_PENDING_STATE", "CONFIRM_STATE", "CONFIRM_SEND_STATE", "CONFIRM_DEALLOCATE_STATE",
      "DEFER_RECEIVE_STATE", "DEFER_DEALLOCATE_STATE", "SYNC_POINT_STATE", "SYNC_POINT_SEND_STATE",
      "SYNC_POINT_DEALLOCATE_STATE", "INITIALIZE_INCOMING_STATE", "SEND_ONLY_STATE", "RECEIVE_ONLY_STATE",
      "SEND_RECEIVE_STATE", "PREPARED_STATE"}},
    {1, 40, 2, "Processing mode", "***UNKNOWN PROCESSING MODE***", {"BLOCKING", "NON_BLOCKING"}},
    {1, 39, 1, "End type", "***UNKNOWN END TYPE***", {"HARD", "SOFT"}},
};

TEST_F(Names, of_every_value_and_the_fallback_beyond_them)
{
    for (const ValueKind &kind : value_kinds)
    {
        const u32 count = static_cast<u32>(kind.names.size());
        for (u32 value : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 13u, 14u, 15u, 16u, 17u, 18u, 19u,
                          count, 0x10000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
        {
            const void *arguments[6] = {kind.kind == 2 ? &OK : nullptr};
            arguments[kind.argument - 1] = &value;
            const Lines lines = record(kind.kind, kind.call, nullptr, arguments[0], arguments[1], arguments[2],
                                       arguments[3], arguments[4], arguments[5]);
            const std::string name =
                value < count ? std::string("CM_") + kind.names[value] : std::string(kind.fallback);
            ASSERT_LE(2u, lines.size()) << kind.label << ' ' << value;
            EXPECT_EQ(std::string(" ") + kind.label + " = " + name, lines[1]);
        }
    }
}

TEST_F(Names, of_the_tp_name_types)
{
    u8 entry[124] = {};
    const struct
    {
        u8 value;
        const char *name;
    } cases[] = {{0, "CM_APPLICATION_TP"}, {1, "CM_SNA_SERVICE_TP"}, {2, "***UNKNOWN TP_NAME_TYPE***"}};
    for (const auto &c : cases)
    {
        entry[28] = c.value;
        EXPECT_EQ(std::string(" TP name type = ") + c.name, record(1, 38, nullptr, entry).at(4));
    }
}

TEST_F(Names, of_a_stored_value_beyond_its_table)
{
    CCCB cccb = {};
    cccb.ulConversationType = 7;
    EXPECT_EQ(" Conversation type = ***UNKNOWN CONVERSATION TYPE***", record(2, 17, &cccb, &OK).back());
}
