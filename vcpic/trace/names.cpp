// names.cpp - the tables of names that the trace writes for calls and values. Constant data; who writes a record reads
// them.
#include "trace/names.hpp"

#include <stdio.h>

template <u32 count>
static constexpr name_table table_of(const char *const (&names)[count], const char *fallback)
{
    return {names, count, fallback};
}

// Number 61 is the name of a call of other systems, which this library does not have.
static constexpr const char *verb_names[] = {
    "CMACCP", "CMALLC", "CMCFM",  "CMCFMD", "CMDEAL", "CMECS",  "CMECT",  "CMEMN",  //  0
    "CMEPLN", "CMESL",  "CMFLUS", "CMINIT", "CMPTR",  "CMRCV",  "CMRTS",  "CMSEND", //  8
    "CMSERR", "CMSCT",  "CMSDT",  "CMSED",  "CMSF",   "CMSLD",  "CMSMN",  "CMSPLN", // 16
    "CMSPTR", "CMSRT",  "CMSRC",  "CMSST",  "CMSSL",  "CMSTPN", "CMTRTS", "XCMDSI", // 24
    "XCECST", "XCECSU", "XCMESI", "XCSCSP", "XCSCST", "XCSCSU", "XCMSSI", "CMTERM", // 32
    "CMSPM",  "CMINIC", "CMACCI", "CMWAIT", "CMCANC", "CMCHCK", "CMSCST", "CMSCSU", // 40
    "CMSCSP", "CMESUI", "CMSLTP", "CMRLTP", "CMETPN", "CMCNVI", "CMCNVO", "CMEMBS", // 48
    "CMECTX", "CMSCTX", "CMECSU", "CMECST", "CMELLN", "XCHWND", "CMSLLN",           // 56
};
constexpr name_table cpicvb = table_of(verb_names, "***UNKNOWN VERB***");

static constexpr const char *conversation_types[] = {"BASIC_CONVERSATION", "MAPPED_CONVERSATION"};
constexpr name_table cpicct = table_of(conversation_types, "***UNKNOWN CONVERSATION TYPE***");

static constexpr const char *deallocate_types[] = {
    "DEALLOCATE_SYNC_LEVEL",
    "DEALLOCATE_FLUSH",
    "DEALLOCATE_CONFIRM",
    "DEALLOCATE_ABEND",
};
constexpr name_table cpicdt = table_of(deallocate_types, "***UNKNOWN DEALLOCATE TYPE***");

static constexpr const char *error_directions[] = {"RECEIVE_ERROR", "SEND_ERROR"};
constexpr name_table cpiced = table_of(error_directions, "***UNKNOWN ERROR DIRECTION***");

static constexpr const char *sync_levels[] = {"NONE", "CONFIRM", "SYNC_POINT", "SYNC_POINT_NO_CONFIRM"};
constexpr name_table cpicsl = table_of(sync_levels, "***UNKNOWN SYNC_LEVEL***");

static constexpr const char *fill_types[] = {"FILL_LL", "FILL_BUFFER"};
constexpr name_table cpicft = table_of(fill_types, "***UNKNOWN FILL TYPE***");

static constexpr const char *prepare_to_receive_types[] = {
    "PREP_TO_RECEIVE_SYNC_LEVEL",
    "PREP_TO_RECEIVE_FLUSH",
    "PREP_TO_RECEIVE_CONFIRM",
};
constexpr name_table cpicptr = table_of(prepare_to_receive_types, "***UNKNOWN PREP_TO_RECEIVE TYPE***");

static constexpr const char *receive_types[] = {"RECEIVE_AND_WAIT", "RECEIVE_IMMEDIATE"};
constexpr name_table cpicrt = table_of(receive_types, "***UNKNOWN RECEIVE TYPE***");

static constexpr const char *send_types[] = {
    "BUFFER_DATA",
    "SEND_AND_FLUSH",
    "SEND_AND_CONFIRM",
    "SEND_AND_PREP_TO_RECEIVE",
    "SEND_AND_DEALLOCATE",
};
constexpr name_table cpicst = table_of(send_types, "***UNKNOWN SEND TYPE***");

static constexpr const char *return_controls[] = {"WHEN_SESSION_ALLOCATED", "IMMEDIATE"};
constexpr name_table cpicrcon = table_of(return_controls, "***UNKNOWN RETURN_CONTROL***");

static constexpr const char *security_types[] = {
    "SECURITY_NONE",
    "SECURITY_SAME",
    "SECURITY_PROGRAM",
    "SECURITY_DISTRIBUTED",
    "SECURITY_MUTUAL",
    "SECURITY_PROGRAM_STRONG",
};
constexpr name_table cpiccst = table_of(security_types, "***UNKNOWN CONVERSATION_SECURITY_TYPE***");

static constexpr const char *tp_name_types[] = {"APPLICATION_TP", "SNA_SERVICE_TP"};
constexpr name_table cpictp = table_of(tp_name_types, "***UNKNOWN TP_NAME_TYPE***");

static constexpr const char *requests_to_send[] = {"REQ_TO_SEND_NOT_RECEIVED", "REQ_TO_SEND_RECEIVED"};
constexpr name_table cpicrtsr = table_of(requests_to_send, "***UNKNOWN REQ_TO_SEND TYPE***");

static constexpr const char *data_received_types[] = {
    "NO_DATA_RECEIVED",
    "DATA_RECEIVED",
    "COMPLETE_DATA_RECEIVED",
    "INCOMPLETE_DATA_RECEIVED",
};
constexpr name_table cpicdr = table_of(data_received_types, "***UNKNOWN DATA RECEIVED TYPE***");

static constexpr const char *statuses_received[] = {
    "NO_STATUS_RECEIVED",
    "SEND_RECEIVED",
    "CONFIRM_RECEIVED",
    "CONFIRM_SEND_RECEIVED",
    "CONFIRM_DEALLOC_RECEIVED",
    "TAKE_COMMIT",
    "TAKE_COMMIT_SEND",
    "TAKE_COMMIT_DEALLOCATE",
    "TAKE_COMMIT_DATA_OK",
    "TAKE_COMMIT_SEND_DATA_OK",
    "TAKE_COMMIT_DEALLOC_DATA_OK",
    "PREPARE_OK",
    "JOINT_TRANSACTION",
};
constexpr name_table cpicsr = table_of(statuses_received, "***UNKNOWN STATUS_RECEIVED***");

static constexpr const char UNKNOWN_STATE[] = "***UNKNOWN CONVERSATION STATE***";
static constexpr const char *conversation_states[] = {
    UNKNOWN_STATE,
    UNKNOWN_STATE,
    "INITIALIZE_STATE",
    "SEND_STATE",
    "RECEIVE_STATE",
    "SEND_PENDING_STATE",
    "CONFIRM_STATE",
    "CONFIRM_SEND_STATE",
    "CONFIRM_DEALLOCATE_STATE",
    "DEFER_RECEIVE_STATE",
    "DEFER_DEALLOCATE_STATE",
    "SYNC_POINT_STATE",
    "SYNC_POINT_SEND_STATE",
    "SYNC_POINT_DEALLOCATE_STATE",
    "INITIALIZE_INCOMING_STATE",
    "SEND_ONLY_STATE",
    "RECEIVE_ONLY_STATE",
    "SEND_RECEIVE_STATE",
    "PREPARED_STATE",
};
constexpr name_table cpiccs = table_of(conversation_states, UNKNOWN_STATE);

static constexpr const char *processing_modes[] = {"BLOCKING", "NON_BLOCKING"};
constexpr name_table cpicpm = table_of(processing_modes, "***UNKNOWN PROCESSING MODE***");

static constexpr const char *end_types[] = {"HARD", "SOFT"};
constexpr name_table cpicet = table_of(end_types, "***UNKNOWN END TYPE***");

// The return codes that have a name; the table of 138 entries is filled from them, so that a code is never a place
// miscounted.
struct return_code_name
{
    u32 code;
    const char *name;
};

static constexpr return_code_name named_return_codes[] = {
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

static constexpr u32 RETURN_CODES = 138;
static constexpr const char UNKNOWN_RC[] = "***UNKNOWN RC***";

struct return_code_names
{
    const char *names[RETURN_CODES];
};

static consteval return_code_names all_return_codes()
{
    return_code_names all = {};
    for (const char *&name : all.names)
    {
        name = UNKNOWN_RC;
    }
    for (const return_code_name &named : named_return_codes)
    {
        all.names[named.code] = named.name;
    }
    return all;
}

static constexpr return_code_names return_codes = all_return_codes();
constexpr name_table cpicrc = table_of(return_codes.names, UNKNOWN_RC);

// What CMWAIT collects is named up to CM_OPERATION_NOT_ACCEPTED; a collected code above that reads as unknown.
constexpr name_table cpicrc_wait = {return_codes.names, 38, UNKNOWN_RC};

void name_value(char (&name)[NAME_SIZE], const name_table &table, u32 value)
{
    const bool found = value < table.count;
    snprintf(name, sizeof name, "%s%s", found ? "CM_" : "", found ? table.names[value] : table.fallback);
}

const char *name_call(u16 call)
{
    return call < cpicvb.count ? cpicvb.names[call] : cpicvb.fallback;
}
