// broker.hpp - the messages between a program (or the control program) and the broker.
//
// The road is a Unix SOCK_SEQPACKET socket, "broker.sock" in the node's directory: one packet is one message, whole or
// not at all. Every message begins with message_head; integers are little-endian, names are fixed fields in the form
// that the APPC verbs have them (LU aliases in ASCII padded with 0x20, all other names in EBCDIC padded with 0x40).
// A request carries a correlation of the sender's choosing (never 0) and its reply carries the same; a notice has
// correlation 0 and no reply. A message that does not pass message_check() ends its connection.
//
//   program                       broker
//   hello               ------->                 + descriptor of the table of counters, if the program has one
//                       <-------  welcome        + descriptor of the control page
//   find_lu             ------->                 lu_found
//   add_name            ------->                 done
//   remove_name         ------->                 done
//   allocate            ------->                 allocated      + this end's socket; when a session is free
//   accept              ------->                 accepted       + this end's socket; when an attach has come
//   cancel              ------->                 the cancelled request's own reply comes first (perhaps with
//                                                rc_cancelled), then done for the cancel
//   ended (notice)      ------->                 a conversation is over at this end
//   query_side_info     ------->                 side_info
//   record (notice)     ------->                 a record for a file that a program of another user may not write
//   control             ------->                 control_reply  (one or more: `more` is 1 in all but the last)
#pragma once

#include "wire/frames.hpp"

namespace wire {

inline constexpr std::uint32_t protocol_version = 1;
inline constexpr std::size_t max_message = 65536; // bytes, of any message
inline constexpr std::size_t max_accept_names = 1000;
inline constexpr std::size_t tp_name_size = 64;
inline constexpr char socket_name[] = "broker.sock"; // in the node's directory

enum class message_kind : std::uint16_t
{
    hello = 1,
    welcome = 2,
    find_lu = 3,
    lu_found = 4,
    add_name = 5,
    remove_name = 6,
    done = 7,
    allocate = 8,
    allocated = 9,
    accept = 10,
    accepted = 11,
    cancel = 12,
    ended = 13,
    query_side_info = 14,
    side_info = 15,
    control = 16,
    control_reply = 17,
    record = 18,
};

struct message_head
{
    std::uint16_t kind;        // message_kind
    std::uint16_t zero;
    std::uint32_t length;      // bytes of the whole message, this head included
    std::uint32_t correlation; // 0: a notice
};
static_assert(sizeof(message_head) == 12);

// The result that every reply carries: APPC return codes in architecture order, 3 and 0x10086021 as one reads them.
// The client turns them into the byte order of a verb record.
struct result
{
    std::uint32_t primary; // 0: success
    std::uint32_t secondary;
};

// Primary return codes.
inline constexpr std::uint32_t rc_ok = 0x0000;
inline constexpr std::uint32_t rc_parameter_check = 0x0001;
inline constexpr std::uint32_t rc_state_check = 0x0002;
inline constexpr std::uint32_t rc_allocation_error = 0x0003;
inline constexpr std::uint32_t rc_dealloc_abend = 0x0005;
inline constexpr std::uint32_t rc_dealloc_abend_program = 0x0006;
inline constexpr std::uint32_t rc_dealloc_abend_service = 0x0007;
inline constexpr std::uint32_t rc_dealloc_abend_timer = 0x0008;
inline constexpr std::uint32_t rc_dealloc_normal = 0x0009;
inline constexpr std::uint32_t rc_program_error_no_trunc = 0x000C;
inline constexpr std::uint32_t rc_program_error_trunc = 0x000D;
inline constexpr std::uint32_t rc_program_error_purging = 0x000E;
inline constexpr std::uint32_t rc_conv_failure_retry = 0x000F;
inline constexpr std::uint32_t rc_conv_failure_no_retry = 0x0010;
inline constexpr std::uint32_t rc_service_error_no_trunc = 0x0011;
inline constexpr std::uint32_t rc_service_error_trunc = 0x0012;
inline constexpr std::uint32_t rc_service_error_purging = 0x0013;
inline constexpr std::uint32_t rc_unsuccessful = 0x0014;
inline constexpr std::uint32_t rc_cancelled = 0x0021;
inline constexpr std::uint32_t rc_tp_busy = 0xF002;
inline constexpr std::uint32_t rc_comm_subsystem_abended = 0xF003;
inline constexpr std::uint32_t rc_comm_subsystem_not_loaded = 0xF004;
inline constexpr std::uint32_t rc_unexpected_system_error = 0xF011;
inline constexpr std::uint32_t rc_invalid_verb = 0xFFFF;

// Secondary return codes of a parameter check.
inline constexpr std::uint32_t rc_bad_tp_id = 0x00000001;
inline constexpr std::uint32_t rc_bad_conv_id = 0x00000002;
inline constexpr std::uint32_t rc_bad_lu_alias = 0x00000003;
inline constexpr std::uint32_t rc_allocation_failure_no_retry = 0x00000004; // of an allocation error
inline constexpr std::uint32_t rc_allocation_failure_retry = 0x00000005;    // of an allocation error
inline constexpr std::uint32_t rc_bad_conv_type = 0x00000011;
inline constexpr std::uint32_t rc_bad_sync_level = 0x00000012;
inline constexpr std::uint32_t rc_bad_security = 0x00000013;
inline constexpr std::uint32_t rc_bad_return_control = 0x00000014;
inline constexpr std::uint32_t rc_bad_mode = 0x00000017;            // the mode is not defined
inline constexpr std::uint32_t rc_bad_partner_lu = 0x00000018;      // the partner LU is not known
inline constexpr std::uint32_t rc_bad_tp_name = 0x00000019;         // name all blanks, or not defined by this program
inline constexpr std::uint32_t rc_confirm_on_sync_level_none = 0x00000031;
inline constexpr std::uint32_t rc_bad_deallocate_type = 0x00000051;
inline constexpr std::uint32_t rc_bad_length = 0x000000F2;
inline constexpr std::uint32_t rc_bad_ll = 0x000000F1;
inline constexpr std::uint32_t rc_unknown_symbolic_destination = 0x00001058; // of a state check, by NOF

struct hello
{
    message_head head;
    std::uint32_t version; // protocol_version
    std::uint32_t zero;
    char program[64]; // file name of the program, zero-terminated
    // a descriptor may follow: a counter_table. No other message of a program brings one.
};

// What a program counts of its conversations, for the operator: memory of its own (memfd, sealed against shrinking)
// that the broker maps read-only. The program writes a slot at the end of each verb, with plain stores and no word to
// the broker, which looks when somebody asks and believes nothing of it.
struct conversation_counters
{
    std::uint32_t session;   // 0: the slot is free
    std::uint8_t state;      // LU 6.2 state as GET_STATE returns it
    std::uint8_t allocating; // 1: the end that allocated; a program that talks to itself has two slots of one session
    std::uint8_t zero[2];
    std::uint64_t sent;      // bytes of data that verbs have sent, logical record lengths included
    std::uint64_t received;
    std::uint8_t zero2[8];
};

inline constexpr std::uint32_t counter_slots = 4095; // conversations beyond these are not counted
struct counter_table
{
    std::uint32_t used; // slots from the first to the last that has ever been used
    std::uint8_t zero[28];
    conversation_counters slots[counter_slots];
};

struct welcome
{
    message_head head;
    result status;
    std::uint32_t version;
    std::uint32_t connection;      // number of this connection, unique while the broker runs
    std::uint32_t broker_pid;
    std::uint8_t default_alias[8]; // the LU that serves a program which names none
    // a descriptor follows: the control page, control_page_size bytes, to be mapped read-only
};

// The control page: shared by the broker with every program. Bytes 0 to 15 are the trace-control block (bit 0x20 of
// byte 0: API trace on; bit 0x02 of byte 8: audit records suppressed).
inline constexpr std::size_t control_page_size = 4096;
inline constexpr std::size_t trace_byte = 0;
inline constexpr std::uint8_t trace_bit = 0x20;
inline constexpr std::size_t audit_byte = 8;
inline constexpr std::uint8_t audit_off_bit = 0x02;
struct control_page
{
    std::uint8_t trace_control[16];
    std::uint32_t config_generation;  // goes up by one with every reload
    std::uint32_t problem_log_limit;  // bytes; 0: no limit
    std::uint32_t audit_log_limit;    // bytes; 0: no limit
    std::uint32_t trace_file_limit;   // bytes; 0: no limit
    std::uint32_t zero[8];
    // The first word of a robust mutex that the broker holds for as long as it lives. When it ends, in whatever way,
    // the kernel takes its number out of the word: whoever reads it knows, for nothing, whether there still is a
    // broker.
    std::uint32_t life; // life_mask bits: 0: the broker has gone
    std::uint32_t rest_of_mutex[15];
};
inline constexpr std::uint32_t life_mask = 0x3FFFFFFF; // of a futex word, its owner

struct find_lu
{
    message_head head;
    std::uint8_t alias[8]; // all zero: the default LU
};

struct lu_found
{
    message_head head;
    result status; // rc_parameter_check, rc_bad_lu_alias: no such local LU
    std::uint8_t alias[8];
    std::uint8_t fq_name[17];
    std::uint8_t zero[3];
};

// add_name: a program will accept attaches for a TP name. Several programs may have the same name. Adding a name that
// the program has already succeeds; removing one it does not have is rc_parameter_check, rc_bad_tp_name.
struct name_change
{
    message_head head;
    std::uint8_t tp_name[64];
};

struct done
{
    message_head head;
    result status;
};

struct allocate
{
    message_head head;
    std::uint8_t tp_id[8];
    std::uint8_t local_alias[8];
    std::uint8_t partner_alias[8];   // first byte 0: partner_fq_name says who
    std::uint8_t partner_fq_name[17];
    std::uint8_t conv_type;          // 0 basic, 1 mapped
    std::uint8_t sync_level;         // 0 none, 1 confirm
    std::uint8_t return_control;     // 0 when a session is free, 1 immediate
    std::uint8_t mode[8];
    std::uint8_t tp_name[64];
    std::uint8_t security;           // 0 none, 1 same, 2 program, 5 program strong
    std::uint8_t zero[3];
    std::uint8_t user_id[10];
    std::uint8_t password[10];
};

// A session is there. The program owns the socket; the broker holds the other end and reads it for the ATTACH, which
// the program sends with the first data that it flushes. Whatever is wrong with the attach comes back as an ERROR.
struct allocated
{
    message_head head;
    result status;
    std::uint32_t session; // number of the session, for `ended`
    std::uint8_t partner_fq_name[17];
    std::uint8_t zero[3];
    // a descriptor follows when status.primary is 0
};

struct accept
{
    message_head head;
    std::uint32_t count; // names that follow, 64 bytes each; 1 to max_accept_names
    std::uint32_t zero;
};

struct accepted
{
    message_head head;
    result status;
    std::uint32_t session;
    std::uint8_t tp_name[64];
    std::uint8_t conv_type;
    std::uint8_t sync_level;
    std::uint8_t zero[2];
    std::uint8_t user_id[10];      // blank when the attach named no user
    std::uint8_t mode[8];
    std::uint8_t local_alias[8];
    std::uint8_t partner_fq_name[17];
    std::uint8_t zero2;
    // a descriptor follows when status.primary is 0
};

struct cancel
{
    message_head head;
    std::uint32_t target; // correlation of the request to be cancelled
};

struct ended
{
    message_head head; // correlation 0
    std::uint32_t session;
};

struct query_side_info
{
    message_head head;
    std::uint8_t sym_dest_name[8]; // ASCII
};

struct side_info
{
    message_head head;
    result status; // rc_state_check, rc_unknown_symbolic_destination: not defined
    std::uint8_t record[212]; // as the node operator verb returns it
};

// control: a command of the operator, as text ("status"); the reply is text or JSON.
struct control
{
    message_head head;
    std::uint32_t json; // 1: answer in JSON
    std::uint32_t text_length; // characters that follow, no terminating zero
};

struct control_reply
{
    message_head head;
    result status; // nonzero: the text says what is wrong
    std::uint32_t more;
    std::uint32_t text_length;
};

// record: part of a record, or all of it, for one of the node's files. The parts of one follow each other without
// another record between them.
struct record
{
    message_head head;         // correlation 0
    std::uint32_t file;        // node_file_kind
    std::uint32_t begins;      // 1: the first part; what has not been ended before it is void
    std::uint32_t more;        // 1: the next one goes on with it
    std::uint32_t text_length; // characters that follow, no terminating zero
};

// Which side sent a message.
enum class sender
{
    program,
    broker,
};

// True when the `size` bytes of a packet are one whole message of a kind that `from` sends: known kind, length that
// fits the packet and the kind, counts that fit the length, a correlation exactly when it is no notice. Values inside
// (a security type, a name) are not looked at.
bool message_check(const void *message, std::size_t size, sender from);

} // namespace wire
