// exchange_world.hpp - an exchange without sockets: a test plays every program, holds the clock, and sees every message
// and every act of the exchange.
#pragma once

#include "broker/exchange.hpp"
#include "broker/names.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace test {

using namespace broker;

struct sent_message
{
    std::vector<std::byte> bytes;
    handover what;
    session_id session;
};

struct world : outside
{
    explicit world(config settings = default_config()) : node(*this, std::move(settings), 4711)
    {
    }

    // What the exchange does.
    void send(connection_id to, std::span<const std::byte> message, handover what, session_id session) override
    {
        inbox[to].push_back({{message.begin(), message.end()}, what, session});
        ASSERT_TRUE(wire::message_check(message.data(), message.size(), wire::sender::broker));
    }
    bool open_session(session_id session) override
    {
        if (!descriptors_left)
        {
            return false;
        }
        open.insert(session);
        return true;
    }
    attach_seen look(session_id session) override
    {
        auto found = unread.find(session);
        return found == unread.end() ? attach_seen::nothing : found->second;
    }
    void refuse(session_id session, std::uint32_t sense) override
    {
        refused[session] = sense;
        open.erase(session);
    }
    void drop_session(session_id session) override { open.erase(session); }
    void close_connection(connection_id connection, const char *) override { closed.insert(connection); }
    void verify(session_id session, const peer &who, const std::string &hash, secret password) override
    {
        checks.push_back({session, who.pid, hash, password.text()});
    }
    void start_program(const program_entry &program, const std::string &local_alias) override
    {
        started.push_back(program.command + " " + local_alias);
    }
    void record(connection_id, wire::node_file_kind file, bool, bool more, std::string_view text) override
    {
        records.push_back(std::string(wire::node_file_name(file)) + (more ? "... " : " ") + std::string(text));
    }
    void control(connection_id, std::uint32_t, bool, const std::string &command) override
    {
        commands.push_back(command);
    }

    // What programs do.
    template <class Message>
    void say(connection_id from, Message &message, wire::message_kind kind, std::uint32_t correlation)
    {
        message.head = {static_cast<std::uint16_t>(kind), 0, sizeof message, correlation};
        node.message(from, std::as_bytes(std::span(&message, 1)), clock);
    }
    connection_id program(std::int32_t pid = 100, std::uint32_t uid = 1000)
    {
        connection_id id = ++connections;
        EXPECT_TRUE(node.connected(id, {uid, pid, uid == 1000 ? "alice" : "bob", uid == 1000}, clock));
        wire::hello hello{};
        hello.version = wire::protocol_version;
        std::strcpy(hello.program, "tp");
        say(id, hello, wire::message_kind::hello, 1);
        EXPECT_EQ(take<wire::welcome>(id, wire::message_kind::welcome).status.primary, wire::rc_ok);
        return id;
    }
    void leave(connection_id id) { node.disconnected(id, clock); }

    std::uint32_t add_name(connection_id id, const char *name)
    {
        wire::name_change message{};
        to_ebcdic(message.tp_name, name);
        say(id, message, wire::message_kind::add_name, 2);
        return take<wire::done>(id, wire::message_kind::done).status.primary;
    }
    void remove_name(connection_id id, const char *name)
    {
        wire::name_change message{};
        to_ebcdic(message.tp_name, name);
        say(id, message, wire::message_kind::remove_name, 3);
    }

    static wire::allocate allocation(const char *tp_name)
    {
        wire::allocate message{};
        to_ascii(message.partner_alias, "LOCALLU");
        to_ebcdic(message.mode, "#INTER");
        to_ebcdic(message.tp_name, tp_name);
        to_ebcdic(message.user_id, "");
        to_ebcdic(message.password, "");
        message.conv_type = 1;
        return message;
    }
    void allocate(connection_id id, const char *tp_name, std::uint32_t correlation = 10)
    {
        wire::allocate message = allocation(tp_name);
        say(id, message, wire::message_kind::allocate, correlation);
    }
    // An allocation that is granted at once.
    session_id allocated(connection_id id, const char *tp_name)
    {
        allocate(id, tp_name);
        auto reply = take<wire::allocated>(id, wire::message_kind::allocated);
        EXPECT_EQ(reply.status.primary, wire::rc_ok);
        return reply.session;
    }
    void attach(session_id session) { node.attach(session, attach_seen::attach, clock); }

    void accept(connection_id id, std::vector<const char *> names, std::uint32_t correlation = 20)
    {
        std::vector<std::byte> bytes(sizeof(wire::accept) + names.size() * wire::tp_name_size);
        wire::accept head{};
        head.head = {static_cast<std::uint16_t>(wire::message_kind::accept), 0,
                     static_cast<std::uint32_t>(bytes.size()), correlation};
        head.count = static_cast<std::uint32_t>(names.size());
        std::memcpy(bytes.data(), &head, sizeof head);
        for (std::size_t i = 0; i < names.size(); ++i)
        {
            std::string name = tp_name_bytes(names[i]);
            std::memcpy(bytes.data() + sizeof head + i * wire::tp_name_size, name.data(), name.size());
        }
        node.message(id, bytes, clock);
    }
    void cancel(connection_id id, std::uint32_t target)
    {
        wire::cancel message{};
        message.target = target;
        say(id, message, wire::message_kind::cancel, 30);
    }
    void ended(connection_id id, session_id session)
    {
        wire::ended message{};
        message.session = session;
        say(id, message, wire::message_kind::ended, 0);
    }

    // The oldest message to a program that has not been taken; it must be of this kind.
    template <class Message>
    Message take(connection_id id, wire::message_kind kind)
    {
        Message message{};
        if (inbox[id].empty())
        {
            ADD_FAILURE() << "no message for program " << id;
            return message;
        }
        last = inbox[id].front();
        inbox[id].pop_front();
        EXPECT_EQ(last.bytes.size(), sizeof message);
        std::memcpy(&message, last.bytes.data(), std::min(sizeof message, last.bytes.size()));
        EXPECT_EQ(message.head.kind, static_cast<std::uint16_t>(kind));
        return message;
    }
    wire::accepted accepted(connection_id id)
    {
        return take<wire::accepted>(id, wire::message_kind::accepted);
    }
    wire::allocated allocation_reply(connection_id id)
    {
        return take<wire::allocated>(id, wire::message_kind::allocated);
    }
    bool silent(connection_id id) { return inbox[id].empty(); }

    struct check
    {
        session_id session;
        std::int32_t process;
        std::string hash;
        std::string password;
    };
    milliseconds clock = 1'000'000;
    bool descriptors_left = true;
    std::map<connection_id, std::deque<sent_message>> inbox;
    sent_message last{};
    std::set<session_id> open;
    std::map<session_id, attach_seen> unread;
    std::map<session_id, std::uint32_t> refused;
    std::set<connection_id> closed;
    std::vector<check> checks;
    std::vector<std::string> started;
    std::vector<std::string> records;
    std::vector<std::string> commands;
    connection_id connections = 0;
    exchange node;
};

} // namespace test
