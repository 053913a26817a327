// items.cpp - what the trace records of each call show, line by line. Two tables: the items (what a line is called, how
// it is printed, where the value stands in a record) and the calls (which items, from which of their arguments).
// The password is no item, so it cannot be traced.
#include "trace/items.hpp"

#include "trace/print.hpp"

#include <string.h>

// ---- items --------------------------------------------------------------------------------------------------

enum item_kind : u8
{
    KIND_HEADING,         // a line of its own
    KIND_CONVERSATION_ID,
    KIND_VALUE,           // a value by name
    KIND_NUMBER,
    KIND_POINTER,
    KIND_SYM_DEST_NAME,
    KIND_NAME,            // heading and dump
    KIND_BUFFER,          // address and dump, or empty
};

// Where an item stands in a record; size 0: not there.
struct record_field
{
    u16 at;
    u8 size;
};

struct item_row
{
    item_kind kind;
    const char *label;
    const name_table *names; // of KIND_VALUE
    record_field stored;     // in the CCCB
    record_field entry;      // in the caller's side-information entry (124 bytes)
    u8 most = 0;             // of KIND_NAME: the longest that a call returns
};

#define STORED(field) {offsetof(CCCB, field), sizeof(CCCB::field)}
#define STORED_NAME(field) {offsetof(CCCB, SideInfo.field), sizeof(SIDE_INFO_ENTRY::field)}
#define NOT_STORED {0, 0}

enum item : u8
{
    NO_ITEM, // ends a list
    CHARACTERISTICS,
    CONVERSATION_ID,
    CONVERSATION_TYPE,
    DEALLOCATE_TYPE,
    ERROR_DIRECTION,
    SYNC_LEVEL,
    FILL_TYPE,
    PREPARE_TO_RECEIVE_TYPE,
    RECEIVE_TYPE,
    SEND_TYPE,
    RETURN_CONTROL,
    SECURITY_TYPE,
    CONVERSATION_STATE,
    DATA_RECEIVED,
    STATUS_RECEIVED,
    REQUEST_TO_SEND,
    PROCESSING_MODE,
    END_TYPE,
    TP_NAME_TYPE,
    ASYNC_RESULT,
    LOG_DATA_POINTER,
    LOG_DATA_LENGTH,
    REQUESTED_LENGTH,
    RECEIVED_LENGTH,
    SEND_LENGTH,
    MODE_NAME_LENGTH,
    PARTNER_LU_NAME_LENGTH,
    TP_NAME_LENGTH,
    LOCAL_LU_NAME_LENGTH,
    USER_ID_LENGTH,
    CONTEXT_ID_LENGTH,
    MAXIMUM_BUFFER_SIZE,
    WINDOW_HANDLE,
    SYM_DEST_NAME,
    MODE_NAME,
    PARTNER_LU_NAME,
    PARTNER_TP_NAME,
    LOCAL_LU_NAME,
    LOCAL_TP_NAME,
    USER_ID,
    CONTEXT_ID,
    BUFFER,
    ITEM_COUNT,
};

static constexpr item_row rows[ITEM_COUNT] = {
    /* NO_ITEM */ {},
    /* CHARACTERISTICS */ {KIND_HEADING, "Conversation characteristics", nullptr, NOT_STORED, {}},
    /* CONVERSATION_ID */ {KIND_CONVERSATION_ID, "Conversation ID", nullptr, NOT_STORED, {}},
    /* CONVERSATION_TYPE */ {KIND_VALUE, "Conversation type", &cpicct, STORED(ulConversationType), {}},
    /* DEALLOCATE_TYPE */ {KIND_VALUE, "Deallocate type", &cpicdt, STORED(ulDeallocateType), {}},
    /* ERROR_DIRECTION */ {KIND_VALUE, "Error direction", &cpiced, STORED(ulErrorDirection), {}},
    /* SYNC_LEVEL */ {KIND_VALUE, "Sync level", &cpicsl, STORED(ulSyncLevel), {}},
    /* FILL_TYPE */ {KIND_VALUE, "Fill type", &cpicft, STORED(ulFill), {}},
    /* PREPARE_TO_RECEIVE_TYPE */
    {KIND_VALUE, "Prepare to receive type", &cpicptr, STORED(ulPrepareToReceiveType), {}},
    /* RECEIVE_TYPE */ {KIND_VALUE, "Receive type", &cpicrt, STORED(ulReceiveType), {}},
    /* SEND_TYPE */ {KIND_VALUE, "Send type", &cpicst, STORED(ulSendType), {}},
    /* RETURN_CONTROL */ {KIND_VALUE, "Return control", &cpicrcon, STORED(ulReturnControl), {}},
    /* SECURITY_TYPE */
    {KIND_VALUE, "Conversation security type", &cpiccst, STORED_NAME(ulSecurityType), {104, 4}},
    /* CONVERSATION_STATE */ {KIND_VALUE, "Conversation state", &cpiccs, NOT_STORED, {}},
    /* DATA_RECEIVED */ {KIND_VALUE, "Data received type", &cpicdr, NOT_STORED, {}},
    /* STATUS_RECEIVED */ {KIND_VALUE, "Status received", &cpicsr, NOT_STORED, {}},
    /* REQUEST_TO_SEND */ {KIND_VALUE, "Request to send received", &cpicrtsr, NOT_STORED, {}},
    /* PROCESSING_MODE */ {KIND_VALUE, "Processing mode", &cpicpm, STORED(usProcessingMode), {}},
    /* END_TYPE */ {KIND_VALUE, "End type", &cpicet, NOT_STORED, {}},
    /* TP_NAME_TYPE */ {KIND_VALUE, "TP name type", &cpictp, NOT_STORED, {28, 4}},
    /* ASYNC_RESULT */ {KIND_VALUE, "Async result", &cpicrc_wait, NOT_STORED, {}},
    /* LOG_DATA_POINTER */ {KIND_POINTER, "Log data pointer", nullptr, STORED(LogData), {}},
    /* LOG_DATA_LENGTH */ {KIND_NUMBER, "Log data length", nullptr, STORED(usLogDataLen), {}},
    /* REQUESTED_LENGTH */ {KIND_NUMBER, "Requested length", nullptr, NOT_STORED, {}},
    /* RECEIVED_LENGTH */ {KIND_NUMBER, "Received length", nullptr, NOT_STORED, {}},
    /* SEND_LENGTH */ {KIND_NUMBER, "Send length", nullptr, NOT_STORED, {}},
    /* MODE_NAME_LENGTH */ {KIND_NUMBER, "Mode name length", nullptr, NOT_STORED, {}},
    /* PARTNER_LU_NAME_LENGTH */ {KIND_NUMBER, "Partner LU name length", nullptr, NOT_STORED, {}},
    /* TP_NAME_LENGTH */ {KIND_NUMBER, "TP name length", nullptr, NOT_STORED, {}},
    /* LOCAL_LU_NAME_LENGTH */ {KIND_NUMBER, "Local LU name length", nullptr, NOT_STORED, {}},
    /* USER_ID_LENGTH */ {KIND_NUMBER, "Security user ID length", nullptr, NOT_STORED, {}},
    /* CONTEXT_ID_LENGTH */ {KIND_NUMBER, "Context ID length", nullptr, NOT_STORED, {}},
    /* MAXIMUM_BUFFER_SIZE */ {KIND_NUMBER, "Maximum buffer size", nullptr, NOT_STORED, {}},
    /* WINDOW_HANDLE */ {KIND_NUMBER, "Window Handle", nullptr, NOT_STORED, {}},
    /* SYM_DEST_NAME */ {KIND_SYM_DEST_NAME, "Sym dest name", nullptr, STORED_NAME(SymDestName), {0, 8}},
    /* MODE_NAME */ {KIND_NAME, " Mode name =", nullptr, STORED_NAME(ModeName), {96, 8}, 8},
    /* PARTNER_LU_NAME */ {KIND_NAME, " Partner LU name =", nullptr, STORED_NAME(PartnerLUName), {8, 17}, 17},
    /* PARTNER_TP_NAME */ {KIND_NAME, " Partner TP name =", nullptr, STORED_NAME(TPName), {32, 64}, 64},
    /* LOCAL_LU_NAME */ {KIND_NAME, " Local LU name =", nullptr, STORED(LocalLUName), {}, 8},
    /* LOCAL_TP_NAME */ {KIND_NAME, " Local TP name =", nullptr, NOT_STORED, {}, 64},
    // The first 8 of the stored 10 bytes: the trace shows as much of a user ID as an entry holds.
    /* USER_ID */
    {KIND_NAME, " Security user ID =", nullptr, {offsetof(CCCB, SideInfo.SecurityUserId), 8}, {108, 8}, 10},
    /* CONTEXT_ID */ {KIND_NAME, " Context ID ", nullptr, NOT_STORED, {}, 8},
    /* BUFFER */ {KIND_BUFFER, nullptr, nullptr, NOT_STORED, {}},
};

// ---- calls --------------------------------------------------------------------------------------------------

// Where an item's value comes from.
enum item_from : u8
{
    IN_CCCB,            // the stored value
    A1, A2, A3, A4, A5, A6, // what the argument points to
    ENTRY_A1, ENTRY_A2, // a field of the side-information entry that the argument points to
    ALWAYS_8,           // the length that CMELLN has no output for
};

struct shown_item
{
    item what = NO_ITEM;
    item_from from = IN_CCCB;
    item_from length = IN_CCCB; // of what is dumped; IN_CCCB: as long as the field
};

struct call_items
{
    shown_item request[16];
    shown_item response[16];
};

#define THE_CONVERSATION {CONVERSATION_ID, A1}

// A side-information entry of the caller's: all of it but the password.
#define ENTRY_ITEMS(entry)                                                                                             \
    {SYM_DEST_NAME, entry}, {PARTNER_LU_NAME, entry}, {TP_NAME_TYPE, entry}, {PARTNER_TP_NAME, entry},                 \
        {MODE_NAME, entry}, {SECURITY_TYPE, entry}, {USER_ID, entry}

// What a new conversation is like.
#define NEW_CONVERSATION                                                                                               \
    {CONVERSATION_ID, A2}, {CHARACTERISTICS}, {CONVERSATION_TYPE}, {DEALLOCATE_TYPE}, {ERROR_DIRECTION},               \
        {SYNC_LEVEL}, {FILL_TYPE}, {PREPARE_TO_RECEIVE_TYPE}, {RECEIVE_TYPE}, {SEND_TYPE}, {SECURITY_TYPE},            \
        {LOG_DATA_POINTER}, {LOG_DATA_LENGTH}, {PARTNER_LU_NAME}, {MODE_NAME}

// A Set call: the new value, and the stored value before and after.
#define SET_VALUE(value) {{THE_CONVERSATION, {value, A2}, {CHARACTERISTICS}, {value}}, {{CHARACTERISTICS}, {value}}}
#define SET_NAME(name, length)                                                                                         \
    {{THE_CONVERSATION, {name, A2, A3}, {length, A3}, {CHARACTERISTICS}, {name}}, {{CHARACTERISTICS}, {name}}}

// An Extract call.
#define EXTRACT_VALUE(value) {{THE_CONVERSATION}, {{value, A2}}}
#define EXTRACT_NAME(name, length) {{THE_CONVERSATION}, {{name, A2, A3}, {length, A3}}}

#define CONVERSATION_ONLY {{THE_CONVERSATION}, {}}

// By call number. What a caller of seputrcp() passes, request (R) and response (S); everything by address, lengths and
// values as 32-bit integers. The first argument of every response is the return code.
//
//    0 CMACCP   R nothing                               S rc, conversation ID
//    1 CMALLC   R conversation ID                       S rc
//    2 CMCFM    R conversation ID                       S rc, request to send received
//    3 CMCFMD, 10 CMFLUS, 14 CMRTS, 35 XCSCSP, 42 CMACCI, 44 CMCANC, 48 CMSCSP
//               R conversation ID                       S rc
//    4 CMDEAL   R conversation ID                       S rc
//    5 CMECS    R conversation ID                       S rc, conversation state
//    6 CMECT    R conversation ID                       S rc, conversation type
//    7 CMEMN    R conversation ID                       S rc, name, length
//    8 CMEPLN   R conversation ID                       S rc, name, length
//    9 CMESL    R conversation ID                       S rc, sync level
//   11 CMINIT   R symbolic destination name             S rc, conversation ID
//   12 CMPTR    R conversation ID                       S rc
//   13 CMRCV    R conversation ID, requested length     S rc, buffer, data received, received length, status received,
//                                                         request to send received
//   15 CMSEND   R conversation ID, buffer, length       S rc, request to send received
//   16 CMSERR   R conversation ID                       S rc, request to send received
//   17-20, 24-28 CMSCT, CMSDT, CMSED, CMSF, CMSPTR, CMSRT, CMSRC, CMSST, CMSSL
//               R conversation ID, value                S rc
//   21 CMSLD    R conversation ID, log data, length     S rc
//   22 CMSMN, 23 CMSPLN, 29 CMSTPN, 62 CMSLLN
//               R conversation ID, name, length         S rc
//   30 CMTRTS   R conversation ID                       S rc, request to send received
//   31 XCMDSI   R symbolic destination name             S rc
//   32 XCECST, 59 CMECST
//               R conversation ID                       S rc, security type
//   33 XCECSU, 49 CMESUI, 58 CMECSU
//               R conversation ID                       S rc, user ID, length
//   34 XCMESI   R symbolic destination name             S rc, entry (124 bytes)
//   36 XCSCST, 46 CMSCST
//               R conversation ID, security type        S rc
//   37 XCSCSU, 47 CMSCSU
//               R conversation ID, user ID, length      S rc
//   38 XCMSSI   R entry (124 bytes)                     S rc
//   39 CMTERM   R end type                              S rc
//   40 CMSPM    R conversation ID, processing mode      S rc
//   41 CMINIC, 45 CMCHCK
//               R nothing                               S rc, conversation ID
//   43 CMWAIT   R nothing                               S rc, conversation ID, return code of the completed call
//   50 CMSLTP, 51 CMRLTP
//               R name, length                          S rc
//   52 CMETPN   R conversation ID                       S rc, name, length
//   53 CMCNVI, 54 CMCNVO
//               R buffer, length                        S rc, buffer, length
//   55 CMEMBS   R nothing                               S rc, size
//   56 CMECTX   R conversation ID                       S rc, context ID, length
//   57 CMSCTX   R context ID, length                    S rc
//   60 CMELLN   R conversation ID                       S rc, name (8 bytes)
//   61 XCHWND   R window handle                         S rc
static constexpr call_items calls[] = {
    /*  0 CMACCP */ {{}, {NEW_CONVERSATION}},
    /*  1 CMALLC */
    {{THE_CONVERSATION, {CHARACTERISTICS}, {CONVERSATION_TYPE}, {RETURN_CONTROL}, {SYNC_LEVEL}, {SECURITY_TYPE},
      {PARTNER_LU_NAME}, {MODE_NAME}, {PARTNER_TP_NAME}},
     {}},
    /*  2 CMCFM */ {{THE_CONVERSATION}, {{REQUEST_TO_SEND, A2}}},
    /*  3 CMCFMD */ CONVERSATION_ONLY,
    /*  4 CMDEAL */
    {{THE_CONVERSATION, {CHARACTERISTICS}, {DEALLOCATE_TYPE}, {LOG_DATA_POINTER}, {LOG_DATA_LENGTH}}, {}},
    /*  5 CMECS */ EXTRACT_VALUE(CONVERSATION_STATE),
    /*  6 CMECT */ EXTRACT_VALUE(CONVERSATION_TYPE),
    /*  7 CMEMN */ EXTRACT_NAME(MODE_NAME, MODE_NAME_LENGTH),
    /*  8 CMEPLN */ EXTRACT_NAME(PARTNER_LU_NAME, PARTNER_LU_NAME_LENGTH),
    /*  9 CMESL */ EXTRACT_VALUE(SYNC_LEVEL),
    /* 10 CMFLUS */ CONVERSATION_ONLY,
    /* 11 CMINIT */ {{{SYM_DEST_NAME, A1}}, {NEW_CONVERSATION, {SYM_DEST_NAME}}},
    /* 12 CMPTR */ {{THE_CONVERSATION, {CHARACTERISTICS}, {PREPARE_TO_RECEIVE_TYPE}}, {}},
    /* 13 CMRCV */
    {{THE_CONVERSATION, {REQUESTED_LENGTH, A2}, {CHARACTERISTICS}, {CONVERSATION_TYPE}, {FILL_TYPE}, {RECEIVE_TYPE}},
     {{BUFFER, A2, A4}, {DATA_RECEIVED, A3}, {RECEIVED_LENGTH, A4}, {STATUS_RECEIVED, A5}, {REQUEST_TO_SEND, A6}}},
    /* 14 CMRTS */ CONVERSATION_ONLY,
    /* 15 CMSEND */
    {{THE_CONVERSATION, {BUFFER, A2, A3}, {SEND_LENGTH, A3}, {CHARACTERISTICS}, {SEND_TYPE},
      {PREPARE_TO_RECEIVE_TYPE}, {DEALLOCATE_TYPE}},
     {{REQUEST_TO_SEND, A2}}},
    /* 16 CMSERR */ {{THE_CONVERSATION, {CHARACTERISTICS}, {ERROR_DIRECTION}}, {{REQUEST_TO_SEND, A2}}},
    /* 17 CMSCT */ SET_VALUE(CONVERSATION_TYPE),
    /* 18 CMSDT */ SET_VALUE(DEALLOCATE_TYPE),
    /* 19 CMSED */ SET_VALUE(ERROR_DIRECTION),
    /* 20 CMSF */ SET_VALUE(FILL_TYPE),
    /* 21 CMSLD */
    {{THE_CONVERSATION, {BUFFER, A2, A3}, {LOG_DATA_LENGTH, A3}, {CHARACTERISTICS}, {LOG_DATA_POINTER},
      {LOG_DATA_LENGTH}},
     {{CHARACTERISTICS}, {LOG_DATA_POINTER}, {LOG_DATA_LENGTH}}},
    /* 22 CMSMN */ SET_NAME(MODE_NAME, MODE_NAME_LENGTH),
    /* 23 CMSPLN */ SET_NAME(PARTNER_LU_NAME, PARTNER_LU_NAME_LENGTH),
    /* 24 CMSPTR */ SET_VALUE(PREPARE_TO_RECEIVE_TYPE),
    /* 25 CMSRT */ SET_VALUE(RECEIVE_TYPE),
    /* 26 CMSRC */ SET_VALUE(RETURN_CONTROL),
    /* 27 CMSST */ SET_VALUE(SEND_TYPE),
    /* 28 CMSSL */ SET_VALUE(SYNC_LEVEL),
    /* 29 CMSTPN */ SET_NAME(PARTNER_TP_NAME, TP_NAME_LENGTH),
    /* 30 CMTRTS */ {{THE_CONVERSATION}, {{REQUEST_TO_SEND, A2}}},
    /* 31 XCMDSI */ {{{SYM_DEST_NAME, A1}}, {}},
    /* 32 XCECST */ EXTRACT_VALUE(SECURITY_TYPE),
    /* 33 XCECSU */ EXTRACT_NAME(USER_ID, USER_ID_LENGTH),
    /* 34 XCMESI */ {{{SYM_DEST_NAME, A1}}, {ENTRY_ITEMS(ENTRY_A2)}},
    /* 35 XCSCSP */ CONVERSATION_ONLY,
    /* 36 XCSCST */ SET_VALUE(SECURITY_TYPE),
    /* 37 XCSCSU */ SET_NAME(USER_ID, USER_ID_LENGTH),
    /* 38 XCMSSI */ {{ENTRY_ITEMS(ENTRY_A1)}, {}},
    /* 39 CMTERM */ {{{END_TYPE, A1}}, {}},
    /* 40 CMSPM */ SET_VALUE(PROCESSING_MODE),
    /* 41 CMINIC */ {{}, {{CONVERSATION_ID, A2}}},
    /* 42 CMACCI */ CONVERSATION_ONLY,
    /* 43 CMWAIT */ {{}, {{CONVERSATION_ID, A2}, {ASYNC_RESULT, A3}}},
    /* 44 CMCANC */ CONVERSATION_ONLY,
    /* 45 CMCHCK */ {{}, {{CONVERSATION_ID, A2}}},
    /* 46 CMSCST */ SET_VALUE(SECURITY_TYPE),
    /* 47 CMSCSU */ SET_NAME(USER_ID, USER_ID_LENGTH),
    /* 48 CMSCSP */ CONVERSATION_ONLY,
    /* 49 CMESUI */ EXTRACT_NAME(USER_ID, USER_ID_LENGTH),
    /* 50 CMSLTP */ {{{LOCAL_TP_NAME, A1, A2}, {TP_NAME_LENGTH, A2}}, {}},
    /* 51 CMRLTP */ {{{LOCAL_TP_NAME, A1, A2}, {TP_NAME_LENGTH, A2}}, {}},
    /* 52 CMETPN */ EXTRACT_NAME(LOCAL_TP_NAME, TP_NAME_LENGTH),
    /* 53 CMCNVI */ {{{BUFFER, A1, A2}}, {{BUFFER, A2, A3}}},
    /* 54 CMCNVO */ {{{BUFFER, A1, A2}}, {{BUFFER, A2, A3}}},
    /* 55 CMEMBS */ {{}, {{MAXIMUM_BUFFER_SIZE, A2}}},
    /* 56 CMECTX */ EXTRACT_NAME(CONTEXT_ID, CONTEXT_ID_LENGTH),
    /* 57 CMSCTX */ {{{CONTEXT_ID, A1, A2}, {CONTEXT_ID_LENGTH, A2}}, {}},
    /* 58 CMECSU */ EXTRACT_NAME(USER_ID, USER_ID_LENGTH),
    /* 59 CMECST */ EXTRACT_VALUE(SECURITY_TYPE),
    /* 60 CMELLN */ {{THE_CONVERSATION}, {{LOCAL_LU_NAME, A2, ALWAYS_8}, {LOCAL_LU_NAME_LENGTH, ALWAYS_8}}},
    /* 61 XCHWND */ {{{WINDOW_HANDLE, A1}}, {}},
    // No stored value in the request, as the trace has always had it.
    /* 62 CMSLLN */
    {{THE_CONVERSATION, {LOCAL_LU_NAME, A2, A3}, {LOCAL_LU_NAME_LENGTH, A3}}, {{CHARACTERISTICS}, {LOCAL_LU_NAME}}},
};

static_assert(sizeof calls / sizeof calls[0] == 63, "one row for each call number");

// ---- writing ------------------------------------------------------------------------------------------------

// The bytes of an item, wherever they come from.
struct item_bytes
{
    const u8 *at; // null: not given
    u32 size;
};

// An integer of 2 or 4 bytes, wherever it stands.
static u32 integer(item_bytes bytes)
{
    if (bytes.size == sizeof(u16))
    {
        u16 value;
        memcpy(&value, bytes.at, sizeof value);
        return value;
    }
    u32 value;
    memcpy(&value, bytes.at, sizeof value);
    return value;
}

static item_bytes find(const trace_source &source, const item_row &row, const shown_item &shown)
{
    static constexpr u32 eight = 8;
    switch (shown.from)
    {
        case IN_CCCB:
            return {reinterpret_cast<const u8 *>(source.cccb) + row.stored.at, row.stored.size};
        case ENTRY_A1:
        case ENTRY_A2:
        {
            const u8 *entry = static_cast<const u8 *>(source.arguments[shown.from - ENTRY_A1]);
            return {entry != nullptr ? entry + row.entry.at : nullptr, row.entry.size};
        }
        case ALWAYS_8:
            return {reinterpret_cast<const u8 *>(&eight), sizeof eight};
        default:
            return {static_cast<const u8 *>(source.arguments[shown.from - A1]), sizeof(u32)};
    }
}

// The length of what is dumped; false: it was not given.
static bool find_length(const trace_source &source, const item_row &row, const shown_item &shown, u32 &length)
{
    if (shown.length == IN_CCCB) // a field of a record
    {
        length = find(source, row, shown).size;
        return true;
    }
    const item_bytes given = find(source, row, {shown.what, shown.length, IN_CCCB});
    if (given.at == nullptr)
    {
        return false;
    }
    length = integer(given);
    return true;
}

// A length that a call returned is never above the item's own; one that is was there before a call that failed.
static void print_item(int handle, const trace_source &source, const shown_item &shown, bool request)
{
    const item_row &row = rows[shown.what];
    const item_bytes bytes = find(source, row, shown);
    u32 length = 0;
    if (!find_length(source, row, shown, length))
    {
        return;
    }
    // A buffer of no length needs no address.
    if (bytes.at == nullptr && !(row.kind == KIND_BUFFER && length == 0))
    {
        return;
    }
    switch (row.kind)
    {
        case KIND_HEADING:
            print_text(handle, row.label);
            break;
        case KIND_CONVERSATION_ID:
            print_conversation_id(handle, row.label, bytes.at);
            break;
        case KIND_VALUE:
            print_value(handle, row.label, *row.names, integer(bytes));
            break;
        case KIND_NUMBER:
            print_number(handle, row.label, integer(bytes));
            break;
        case KIND_POINTER:
            print_pointer(handle, row.label, reinterpret_cast<const void *>(integer(bytes)));
            break;
        case KIND_SYM_DEST_NAME:
            print_sym_dest_name(handle, row.label, bytes.at);
            break;
        case KIND_NAME:
            print_dump(handle, row.label, bytes.at, length, request ? MAX_NAME_DUMP : row.most);
            break;
        case KIND_BUFFER:
            print_buffer(handle, bytes.at, length);
            break;
    }
}

void print_items(int handle, u16 call, bool request, const trace_source &source)
{
    if (call >= sizeof calls / sizeof calls[0])
    {
        return;
    }
    const shown_item(&list)[16] = request ? calls[call].request : calls[call].response;
    for (const shown_item &shown : list)
    {
        if (shown.what == NO_ITEM)
        {
            break;
        }
        print_item(handle, source, shown, request);
    }
}
