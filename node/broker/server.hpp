// server.hpp - the broker's sockets, descriptors, processes and clock around the decisions of the exchange. One
// thread, one epoll set; the passwords alone are checked in a thread beside it.
#pragma once

#include "broker/control.hpp"
#include "broker/counters.hpp"
#include "broker/exchange.hpp"
#include "broker/page.hpp"
#include "broker/passwords.hpp"
#include "broker/records.hpp"
#include "wire/frames.hpp"

#include <cstdint>
#include <deque>
#include <functional>
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

// One line for the log, with time and process, on standard error.
void log_line(const std::string &text);

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
    };

    struct outgoing
    {
        std::vector<std::byte> bytes;
        int descriptor;  // -1: none
        bool ours;       // the descriptor is closed once it has gone out
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
    };

    // outside
    void send(connection_id to, std::span<const std::byte> message, handover what, session_id session) override;
    bool open_session(session_id session) override;
    attach_seen look(session_id session) override;
    void refuse(session_id session, std::uint32_t sense) override;
    void drop_session(session_id session) override;
    void close_connection(connection_id connection, const char *reason) override;
    void verify(session_id session, std::int32_t process, const std::string &hash, secret password) override;
    void start_program(const program_entry &program, const std::string &local_alias) override;
    void record(connection_id from, wire::node_file_kind file, bool more, std::string_view text) override;
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
    bool watch(int fd, watched what, std::uint32_t number, std::uint32_t events);
    void accept_connections();
    bool accept_one(int fd);
    void read_connection(connection_id id);
    void write_connection(connection_id id);
    void read_signals();
    void read_passwords();
    void reap_children();
    void reap_connections();
    void enqueue(connection_id to, link &connection, outgoing message);
    bool write_one(link &connection, const outgoing &message, bool &full);
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
    std::vector<std::pair<std::string, program_end>> not_started_; // TP names of programs that could not be started
    std::vector<connection_id> closing_;
    std::vector<std::byte> buffer_;
};

} // namespace broker
