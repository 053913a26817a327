// server.hpp - the broker's sockets, descriptors, processes and clock around the decisions of the exchange. One
// thread, one epoll set; the passwords alone are checked in a thread beside it.
#pragma once

#include "broker/control.hpp"
#include "broker/counters.hpp"
#include "broker/exchange.hpp"
#include "broker/log.hpp"
#include "broker/page.hpp"
#include "broker/passwords.hpp"
#include "broker/records.hpp"
#include "wire/frames.hpp"

#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace broker {

struct server_options
{
    std::string directory;    // absolute, checked
    std::string config_file;  // "": built-in default
    std::int64_t idle_ms = -1; // -1: as the configuration says
    int listener = -1;        // handed over by a service manager; -1: make the socket
};

// Sets the limits of the broker itself: as many descriptors as there may be, and no core file, which would hold
// passwords. The programs that it starts get the limits back that it was started with.
void set_own_limits();

class server : private outside, private desk
{
public:
    server(server_options options, config settings);
    ~server() override;
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    // Opens everything; false: `trouble` says what is wrong and what to do.
    bool open(std::string &trouble);

    // Serves until it is told to stop or has been idle long enough.
    void run();

private:
    enum class watched : std::uint32_t
    {
        listener,
        signals,
        passwords,
        connection,
        session,
        program, // whether it could be started
        clock,   // nothing; an event that belongs to nobody
    };

    struct outgoing
    {
        std::vector<std::byte> bytes;
        int descriptor;  // -1: none
        bool ours;       // the descriptor is closed once it has gone out
    };

    // An operator's answer; it goes out piece by piece as its reader takes them.
    struct pending_answer
    {
        control_answer whole;
        std::uint32_t correlation;
        milliseconds begun;
        milliseconds read_on = begun; // when the reader had taken all pieces so far
        std::size_t done = 0;         // bytes of the text that are in pieces
        bool all_taken = false;       // there is no further piece; the last one may still wait for its reader
    };

    // What became of sending a message.
    enum class sent
    {
        whole,
        full,   // its reader has to read first
        later,  // the system is short of something; nothing tells when that is over
        failed, // the connection is of no use any more
    };

    struct link
    {
        int fd;
        std::deque<outgoing> queue;
        std::size_t queued_bytes = 0;
        bool watching_output = false;
        bool closing = false;
        bool may_change = false;
        counter_view counters; // what its program counts
        std::string record;    // the beginning of one that comes in parts
        std::optional<pending_answer> answer;
    };

    struct held_session
    {
        int allocating_end; // until it has been sent, -1 afterwards
        int held_end;
        std::size_t read = 0;
        unsigned char header[sizeof(wire::frame_header)]{};
    };

    struct child
    {
        std::string tp_name;
        std::string command;
        int report; // says whether it could be started; -1: it runs
    };

    struct known_user
    {
        std::string name;
        milliseconds since; // when it was looked up
    };

    // outside
    void send(connection_id to, std::span<const std::byte> message, handover what, session_id session) override;
    bool open_session(session_id session) override;
    attach_seen look(session_id session) override;
    void refuse(session_id session, std::uint32_t sense) override;
    void drop_session(session_id session) override;
    void close_connection(connection_id connection, const char *reason) override;
    void verify(session_id session, const peer &who, const std::string &hash, secret password) override;
    void start_program(const program_entry &program, const std::string &local_alias) override;
    void record(connection_id from, wire::node_file_kind file, bool begins, bool more, std::string_view text) override;
    void control(connection_id from, std::uint32_t correlation, bool json, const std::string &command) override;

    // desk
    const exchange &books() const override { return exchange_; }
    wire::control_page &page() override { return *page_.content(); }
    void page_switched() override { page_.mark_trace(); }
    counted_ends counted() const override;
    const std::string &directory() const override { return options_.directory; }
    const std::string &config_file() const override { return options_.config_file; }
    milliseconds uptime() const override { return now() - started_; }
    milliseconds now() const override;
    void stop() override { stopping_ = true; }
    bool reload(config_findings &findings, reload_report &report) override;

    bool open_listener(std::string &trouble);
    void open_to_users() const;
    static std::uint64_t event_word(watched what, std::uint32_t number)
    {
        return static_cast<std::uint64_t>(what) << 32 | number;
    }
    bool watch(int fd, watched what, std::uint32_t number, std::uint32_t events);
    void serve(watched what, std::uint32_t number, std::uint32_t events);
    void end_of(watched what, std::uint32_t number, const char *trouble);
    // The last resort: what cannot be done, for want of memory above all, costs the one it was to be done for.
    template <class Work>
    void guarded(watched what, std::uint32_t number, Work work)
    {
        try
        {
            work();
        }
        catch (const std::exception &trouble)
        {
            end_of(what, number, trouble.what());
        }
    }
    void accept_connections();
    bool accept_one(int fd);
    const std::string &name_of_user(std::uint32_t uid);
    void read_connection(connection_id id);
    void write_connection(connection_id id);
    void read_signals();
    void read_passwords();
    void reap_children();
    void read_report(int process);
    void reap_connections();
    void send_or_throw(connection_id to, std::span<const std::byte> message, handover what, session_id session);
    void enqueue(connection_id to, link &connection, outgoing message);
    static sent write_one(const link &connection, const outgoing &message);
    static void drop(const outgoing &message);
    void want_room(connection_id id, link &connection, bool wanted);
    void retry_later(connection_id id);
    bool next_piece(connection_id id, link &connection);
    void forget_answer(connection_id id, link &connection);
    bool room_for_answer(connection_id to);
    void end_answers(milliseconds pause);
    std::optional<milliseconds> links_deadline() const;
    void tick_links();
    bool idle_for(milliseconds &left);
    bool leave();
    void settings_into_page();

    server_options options_;
    milliseconds started_;
    exchange exchange_;
    control_page_file page_;
    record_files records_;
    password_checker passwords_;
    int epoll_ = -1;
    int listener_ = -1;
    int signals_ = -1;
    int spare_ = -1; // given up for a moment when no descriptor is left to accept, and so refuse, a connection
    bool own_socket_ = false;
    bool stopping_ = false;
    milliseconds idle_since_;
    connection_id last_connection_ = 0;
    std::unordered_map<connection_id, link> links_;
    std::unordered_map<session_id, held_session> held_;
    std::unordered_map<int, child> children_; // by process
    std::unordered_map<std::uint32_t, known_user> users_;
    std::vector<std::pair<std::string, program_end>> not_started_; // TP names of programs that could not be started
    std::vector<connection_id> closing_;
    std::set<connection_id> answering_;  // those with an answer on its way
    std::size_t answer_bytes_ = 0;       // of these answers
    std::set<connection_id> retries_;    // those whose message is to be tried again
    milliseconds retry_at_ = 0;
    std::vector<std::byte> buffer_;
};

} // namespace broker
