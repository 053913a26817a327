// exchange.hpp - the broker's decisions: who is here, who waits, who may talk to whom. No socket, no clock, no thread:
// events come in as calls, what is to be done goes out through `outside`, and time is passed in. The server drives it;
// so do tests.
//
// A session is one conversation's place in the books, from the grant of a socket pair until both ends are done:
//
//   granted  --ATTACH read-->  checking  --user verified-->  queued  --an accept lists its name-->  connected
//                                 |                            |
//                                 +--------- refused <---------+   (also straight from the ATTACH)
//
// granted, checking, queued: the broker holds the accepting end of the socket pair.
#pragma once

#include "broker/config.hpp"
#include "broker/secret.hpp"
#include "wire/broker.hpp"
#include "wire/node_file.hpp"

#include <compare>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace broker {

using milliseconds = std::int64_t; // of a clock that never goes back; its zero does not matter
using connection_id = std::uint32_t;
using session_id = std::uint32_t;

inline constexpr milliseconds greeting_time = 10'000; // a connection that says no hello for so long ends

// Descriptor that goes with a message.
enum class handover
{
    nothing,
    control_page,
    allocating_end,
    accepting_end,
};

// What reading the held end of a session found.
enum class attach_seen
{
    nothing, // nothing yet, or part of a header
    attach,  // a whole, correct ATTACH
    broken,  // the end of the socket, or anything else
};

struct peer
{
    std::uint32_t uid;
    std::int32_t pid;
    std::string user;   // name of the uid
    bool owner = false; // the node's own user, or root
};

// What the exchange asks for. None of it calls back into the exchange before it returns.
struct outside
{
    virtual ~outside() = default;
    // Queues one message; a connection that cannot take it is the server's to close.
    virtual void send(connection_id to, std::span<const std::byte> message, handover what, session_id session) = 0;
    // Makes a socket pair and watches the accepting end for an ATTACH; false: no descriptors left.
    virtual bool open_session(session_id session) = 0;
    // Reads the held end now.
    virtual attach_seen look(session_id session) = 0;
    // Writes an ERROR that ends the conversation into the held end, then closes it.
    virtual void refuse(session_id session, std::uint32_t sense) = 0;
    // Closes what is still held of a session; of none, nothing happens.
    virtual void drop_session(session_id session) = 0;
    // Closes a connection that has broken the rules; disconnected() follows later.
    virtual void close_connection(connection_id connection, const char *reason) = 0;
    // Checks a password against a hash of crypt(3), of users and processes in turn; verified() follows later.
    virtual void verify(session_id session, const peer &who, const std::string &hash, secret password) = 0;
    // Starts a program for an attach; program_ended() follows, never at once, when it has ended or could not be
    // started.
    virtual void start_program(const program_entry &program, const std::string &local_alias) = 0;
    // Appends to a file of the node, for a program that may not write it. A record may come in parts.
    virtual void record(connection_id from, wire::node_file_kind file, bool begins, bool more,
                        std::string_view text) = 0;
    // A command of the operator; answered by the server.
    virtual void control(connection_id from, std::uint32_t correlation, bool json, const std::string &command) = 0;
};

// How a program that was to be started for an attach has come to its end.
enum class program_end
{
    done,         // it ended by itself and says that all is well
    failed,       // it ended with an exit code other than 0, or by a signal
    not_now,      // the system was too short of something to start it
    cannot_start, // what the configuration names cannot be run at all
};

// What one process, or one user, has of the node.
struct usage
{
    std::uint32_t connections = 0;
    std::uint32_t held = 0;          // sessions without an accepting program yet, by the allocating end
    std::uint32_t conversations = 0; // ends of sessions, and requests that wait
    std::uint32_t names = 0;         // TP names
    std::uint32_t awaited = 0;       // TP names of waiting accepts
    bool operator==(const usage &) const = default;
};

struct route
{
    std::string local;   // alias of the allocating LU
    std::string partner; // alias of the LU that is addressed
    std::string mode;
    auto operator<=>(const route &) const = default;
};

// A session is one of two LUs and a mode, whoever allocates: both directions count together.
inline route sessions_of(const route &way)
{
    return way.local <= way.partner ? way : route{way.partner, way.local, way.mode};
}

enum class session_state
{
    granted,
    checking,
    queued,
    connected,
    refused,
};

struct session
{
    session_id id;
    session_state state = session_state::granted;
    route way;
    std::string local_name; // network-qualified, of the allocating LU
    connection_id allocator = 0; // 0: that end is done
    connection_id acceptor = 0;
    peer allocated_by{};
    std::int32_t acceptor_pid = 0;
    std::string tp_name; // 64 bytes
    std::uint8_t conv_type = 0;
    std::uint8_t sync_level = 0;
    std::uint8_t security = 0;
    std::string user;          // what the accepting program will see; "": blank
    secret password;           // until it is handed to the check
    bool user_known = false;   // while checking: else the verdict is no, whatever the check says
    bool program_started = false; // one was, for this attach alone
    std::uint64_t order = 0;   // of the attach
    milliseconds deadline = 0; // while queued
    milliseconds begun = 0;
    milliseconds since = 0;    // of its state
};

// A request that waits: an allocation for a session, an accept for an attach.
struct request
{
    bool accepts = false;
    std::uint32_t correlation = 0;
    std::uint64_t order = 0;
    milliseconds deadline = 0;         // allocation
    route way;                         // allocation
    wire::allocate wanted{};           // allocation
    std::vector<const std::string *> tp_names; // accept; each one of the connection's own

    request() = default;
    request(request &&) = default;
    request &operator=(request &&) = default;
    ~request() { explicit_bzero(wanted.password, sizeof wanted.password); }
};

// The attaches that wait for one TP name.
struct attach_queue
{
    std::map<std::uint64_t, session_id> waiting; // oldest first
    std::map<std::uint32_t, std::uint32_t> of_user; // how many, by the allocating user
    std::map<std::pair<std::uint32_t, std::int32_t>, std::uint32_t> of_process; // by its user and itself
};

struct connection
{
    connection_id id;
    peer who;
    bool greeted = false;
    bool operates = false; // has given a command of the operator, and is no program
    std::string program;
    milliseconds since = 0;
    std::unordered_set<std::string> names; // TP names, 64 bytes each
    std::unordered_map<std::uint32_t, request> requests;
    std::unordered_set<session_id> sessions;
};

struct reload_report
{
    std::vector<std::string> kept; // what is in use and therefore stays, in sentences
};

class exchange
{
public:
    exchange(outside &world, config settings, std::uint32_t broker_pid);

    // Events. False from connected(): a quota is used up, close it without a word.
    bool connected(connection_id id, peer who, milliseconds now);
    void message(connection_id from, std::span<const std::byte> bytes, milliseconds now);
    void disconnected(connection_id id, milliseconds now);
    void attach(session_id id, attach_seen what, milliseconds now);
    void verified(session_id id, bool good, milliseconds now);
    void abandon(session_id id, milliseconds now); // something for it has failed; without an acceptor yet, it ends
    void program_ended(const std::string &tp_name, program_end how, milliseconds now);
    void tick(milliseconds now); // acts on every deadline that has come

    std::optional<milliseconds> next_deadline() const;
    reload_report reconfigure(config settings, milliseconds now);

    // For those who show things.
    const config &settings() const { return config_; }
    const std::map<connection_id, connection> &connections() const { return connections_; }
    const std::map<session_id, session> &sessions() const { return sessions_; }
    const std::unordered_map<std::string, std::set<connection_id>> &names() const { return names_; }
    const std::map<route, std::uint32_t> &routes() const { return in_use_; } // as sessions_of() has them
    std::uint32_t running(const std::string &tp_name) const; // processes started for a configured program
    const std::map<std::int32_t, usage> &usage_by_process() const { return usage_of_process_; }
    const std::map<std::uint32_t, usage> &usage_by_user() const { return usage_of_user_; }
    std::uint64_t accepted_total() const { return accepted_total_; }
    std::uint64_t refused_total() const { return refused_total_; }

private:
    enum class alarm
    {
        greeting,   // number: connection
        allocation, // number: connection, detail: correlation
        queued,     // number: session
    };
    struct timer
    {
        milliseconds when;
        alarm what;
        std::uint32_t number;
        std::uint32_t detail;
        auto operator<=>(const timer &) const = default;
    };
    struct waiting
    {
        connection_id connection;
        std::uint32_t correlation;
    };

    template <class Message>
    void reply(connection_id to, Message &message, wire::message_kind kind, std::uint32_t correlation,
               handover what = handover::nothing, session_id session = 0);
    void reply_done(connection_id to, std::uint32_t correlation, std::uint32_t primary, std::uint32_t secondary = 0);

    // messages.cpp
    void on_hello(connection &from, const wire::hello &message);
    void on_find_lu(connection &from, const wire::find_lu &message);
    void on_add_name(connection &from, const wire::name_change &message);
    void on_remove_name(connection &from, const wire::name_change &message);
    void on_allocate(connection &from, const wire::allocate &message, milliseconds now);
    void on_accept(connection &from, const wire::accept &message, std::span<const std::byte> names, milliseconds now);
    void on_cancel(connection &from, const wire::cancel &message);
    void on_ended(connection &from, const wire::ended &message, milliseconds now);
    void on_query_side_info(connection &from, const wire::query_side_info &message);
    const lu_entry *local_lu(std::span<const std::uint8_t> alias) const;
    void answer_allocation(connection_id to, std::uint32_t correlation, std::uint32_t primary,
                           std::uint32_t secondary = 0);
    void answer_accept(connection_id to, std::uint32_t correlation, std::uint32_t primary, std::uint32_t secondary = 0);

    // sessions.cpp
    bool session_free(const route &way) const;
    void grant(connection &to, const wire::allocate &wanted, const route &way, milliseconds now);
    void serve_waiting_allocations(const route &way, milliseconds now);
    void check_attach(session &s, milliseconds now);
    void place_attach(session &s, milliseconds now);
    void start_program_for(session &s);
    void connect(session &s, connection &acceptor, std::uint32_t correlation, milliseconds now);
    void enter_queue(session &s, milliseconds now);
    void leave_queue(const session &s);
    bool make_room(const session &s, milliseconds now);
    void refuse(session &s, std::uint32_t sense, milliseconds now);
    void end_is_done(session &s, bool allocating_end, milliseconds now);
    void no_longer_held(const session &s);
    std::uint32_t unavailable_sense(const std::string &tp_name) const;
    void release(session &s, milliseconds now);
    void forget_request(connection &of, std::uint32_t correlation);
    void forget_name(connection &of, std::string name);

    // usage.cpp
    usage usage_of_process(const peer &who) const;
    usage usage_of_user(const peer &who) const;
    void count(const peer &who, std::uint32_t usage::*what, std::int64_t change);
    bool conversation_quota_left(const peer &who) const;
    bool attach_quota_left(const peer &who) const;

    outside &world_;
    config config_;
    std::uint32_t broker_pid_;
    std::map<connection_id, connection> connections_;
    std::map<session_id, session> sessions_;
    session_id last_session_ = 0;
    std::uint64_t last_order_ = 0;
    std::set<timer> timers_;
    std::map<route, std::uint32_t> in_use_;                              // sessions of a route
    std::map<route, std::map<std::uint64_t, waiting>> allocations_;      // waiting, oldest first; as sessions_of()
    std::map<std::uint64_t, waiting> accepts_;                           // waiting, oldest first
    std::unordered_map<std::string, std::set<std::uint64_t>> accepts_by_name_;
    std::unordered_map<std::string, attach_queue> queues_; // by TP name; none is empty
    std::unordered_map<std::string, std::set<connection_id>> names_;     // who will accept what
    std::unordered_set<std::string> names_ever_;                         // since the broker started
    std::unordered_map<std::uint32_t, std::uint32_t> names_ever_of_user_; // who brought how many of them
    std::unordered_map<std::string, std::uint32_t> running_;             // started processes by TP name
    std::unordered_set<std::string> started_and_accepted_;               // TP names whose process has accepted
    std::map<std::int32_t, usage> usage_of_process_; // those that have anything
    std::map<std::uint32_t, usage> usage_of_user_;
    std::uint64_t accepted_total_ = 0;
    std::uint64_t refused_total_ = 0;
};

template <class Message>
void exchange::reply(connection_id to, Message &message, wire::message_kind kind, std::uint32_t correlation,
                     handover what, session_id session)
{
    message.head = {static_cast<std::uint16_t>(kind), 0, sizeof message, correlation};
    world_.send(to, std::as_bytes(std::span(&message, 1)), what, session);
}

} // namespace broker
