// config.hpp - what a node's configuration says, as plain records, and the reader of the configuration file. Nothing
// here is shared or locked: the broker reads a file into a new record and then swaps.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace broker {

struct lu_entry
{
    std::string alias; // 1 to 8 characters
    std::string name;  // NETID.LUNAME
};

struct mode_entry
{
    std::string name;                // up to 8 characters; "" is the default mode, all blanks
    std::uint32_t session_limit = 0; // sessions at once between two LUs; 0: no limit
};

struct side_info_entry
{
    std::string destination; // symbolic destination name, up to 8 characters
    std::string partner_lu;  // alias, or network-qualified name
    std::string tp_name;     // up to 64 characters; of a service TP 8 hexadecimal digits
    bool service_tp = false;
    std::string mode;
    std::uint8_t security = 1; // 0 none, 1 same, 2 program, 5 program strong
    std::string user;          // up to 10 characters
    std::string password;      // up to 10 characters; never shown
    std::string local_lu;      // alias; "": the node's choice
};

struct user_entry
{
    std::string name;
    std::string password_hash; // crypt(3)
};

// Whether a program takes both of something, or one only.
enum class accepts
{
    any,
    first,  // basic conversations; sync level none
    second, // mapped conversations; sync level confirm
};

struct program_entry
{
    std::string tp_name; // 64 bytes, EBCDIC
    std::string command; // absolute path; "": the node does not start it
    std::vector<std::string> arguments;
    std::string user; // "": the broker's own
    std::vector<std::pair<std::string, std::string>> environment;
    bool one_for_all = true; // else one process for each attach
    std::uint32_t most_instances = 50; // of one for each
    accepts conversation_types = accepts::any;
    accepts sync_levels = accepts::any;
};

struct config
{
    std::string name = "NODE";
    std::int64_t idle_ms = 60'000;            // without a connection before the broker leaves; 0: never
    std::int64_t attach_wait_ms = 10'000;     // of a queued attach for a program that accepts it
    std::int64_t allocation_wait_ms = 60'000; // of an allocation for a free session
    std::uint32_t attach_queue_depth = 100;   // attaches queued for one TP name
    std::uint32_t problem_log_limit = 4u << 20; // bytes; 0: no limit
    std::uint32_t audit_log_limit = 4u << 20;
    std::uint32_t trace_file_limit = 64u << 20;
    bool trace = false;
    bool audit = true;
    bool already_verified = true; // security same carries the allocating user's name to the accepting program
    std::uint32_t connections_per_process = 16;
    std::uint32_t connections_per_user = 4096;
    std::uint32_t attaches_per_process = 2000; // sessions without an accepting program yet
    std::uint32_t attaches_per_user = 8000;
    std::uint32_t conversations_per_process = 20'000; // ends of conversations and requests that wait
    std::uint32_t conversations_per_user = 100'000;
    std::vector<std::string> allowed_users; // beside the broker's own and root

    std::vector<lu_entry> lus; // the first is the default LU
    std::vector<lu_entry> partner_lus;
    std::vector<mode_entry> modes;
    std::vector<side_info_entry> side_infos;
    std::vector<user_entry> users;
    std::vector<program_entry> programs;

    const lu_entry *find_lu(const std::string &alias) const;
    const mode_entry *find_mode(const std::string &mode) const;
    const side_info_entry *find_side_info(const std::string &destination) const;
    const user_entry *find_user(const std::string &user) const;
    const program_entry *find_program(const std::string &tp_name_bytes) const;

    // True for a system user beside the broker's own and root who may connect: allowed, or one that a program runs as.
    bool lets_in(const std::string &user) const;
    bool lets_others_in() const; // is there any such user

    // The local LU that an alias or a network-qualified name of a partner stands for; null: none.
    const lu_entry *find_partner(const std::string &alias_or_name) const;
};

// What holds with no file: LOCALLU, LOCALNET.LOCALLU, and the standard modes.
config default_config();

// Everything that is wrong with a file; every text reads FILE:LINE:COLUMN: what was found, what was expected.
struct config_findings
{
    std::vector<std::string> errors;   // any of them: the file is not taken
    std::vector<std::string> warnings; // it is taken all the same
};

// Reads a file (or a text that is shown as `file`). Without a value the findings have at least one error.
std::optional<config> read_config_file(const std::string &file, config_findings &findings);
std::optional<config> read_config_text(const std::string &text, const std::string &file, config_findings &findings);

} // namespace broker
