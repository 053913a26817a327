// exchange_limits_test.cpp - session limits, queues, quotas, and a configuration that changes under way.
#include "exchange_world.hpp"

#include "wire/frames.hpp"

namespace test {
namespace {

config with_limit(std::uint32_t limit)
{
    config settings = default_config();
    settings.modes.push_back({"SMALL", limit});
    return settings;
}

void allocate_small(world &w, connection_id id, std::uint32_t correlation, std::uint8_t return_control = 0)
{
    wire::allocate message = world::allocation("SERVER");
    to_ebcdic(message.mode, "SMALL");
    message.return_control = return_control;
    w.say(id, message, wire::message_kind::allocate, correlation);
}

TEST(SessionLimit, ImmediateFailsAtOnceWhileOthersWaitInOrder)
{
    world w(with_limit(1));
    connection_id first = w.program();
    connection_id second = w.program();
    allocate_small(w, first, 10);
    session_id session = w.allocation_reply(first).session;
    allocate_small(w, second, 11, 1);
    EXPECT_EQ(w.allocation_reply(second).status.primary, wire::rc_unsuccessful);
    allocate_small(w, second, 12);
    allocate_small(w, first, 13);
    EXPECT_TRUE(w.silent(first));
    EXPECT_TRUE(w.silent(second));
    // A limit holds for its mode alone.
    w.allocated(first, "SERVER");

    w.ended(first, session);
    auto reply = w.allocation_reply(second);
    EXPECT_EQ(reply.head.correlation, 12u);
    EXPECT_EQ(reply.status.primary, wire::rc_ok);
    EXPECT_TRUE(w.silent(first));
    w.leave(second);
    reply = w.allocation_reply(first);
    EXPECT_EQ(reply.head.correlation, 13u);
    EXPECT_EQ(reply.status.primary, wire::rc_ok);
}

TEST(SessionLimit, IsOneForBothDirections)
{
    config settings = with_limit(1);
    settings.lus.push_back({"OTHERLU", "LOCALNET.OTHERLU"});
    world w(settings);
    connection_id id = w.program();
    auto allocate_between = [&](const char *from, const char *to, std::uint32_t correlation) {
        wire::allocate message = world::allocation("SERVER");
        to_ascii(message.local_alias, from);
        to_ascii(message.partner_alias, to);
        to_ebcdic(message.mode, "SMALL");
        w.say(id, message, wire::message_kind::allocate, correlation);
    };
    allocate_between("LOCALLU", "OTHERLU", 10);
    session_id there = w.allocation_reply(id).session;
    allocate_between("OTHERLU", "LOCALLU", 11);
    EXPECT_TRUE(w.silent(id));
    // Other pairs of LUs have sessions of their own.
    allocate_between("LOCALLU", "LOCALLU", 12);
    EXPECT_EQ(w.allocation_reply(id).head.correlation, 12u);
    w.ended(id, there);
    auto back = w.allocation_reply(id);
    EXPECT_EQ(back.head.correlation, 11u);
    EXPECT_EQ(w.node.sessions().at(back.session).way.local, "OTHERLU");
    EXPECT_EQ(w.node.sessions().at(back.session).way.partner, "LOCALLU");
}

TEST(SessionLimit, ImmediateDoesNotOvertakeThoseWhoWait)
{
    world w(with_limit(2));
    connection_id id = w.program();
    allocate_small(w, id, 10);
    allocate_small(w, id, 11);
    session_id session = w.allocation_reply(id).session;
    w.allocation_reply(id);
    allocate_small(w, id, 12);
    w.ended(id, session); // 12 is served by this
    EXPECT_EQ(w.allocation_reply(id).head.correlation, 12u);
    allocate_small(w, id, 13, 1);
    EXPECT_EQ(w.allocation_reply(id).status.primary, wire::rc_unsuccessful);
}

TEST(SessionLimit, WaitingEndsAfterItsTime)
{
    world w(with_limit(1));
    connection_id id = w.program();
    allocate_small(w, id, 10);
    session_id session = w.allocation_reply(id).session;
    allocate_small(w, id, 11);
    w.node.tick(w.clock + 59'999);
    EXPECT_TRUE(w.silent(id));
    w.node.tick(w.clock + 60'000);
    auto reply = w.allocation_reply(id);
    EXPECT_EQ(reply.head.correlation, 11u);
    EXPECT_EQ(reply.status.primary, wire::rc_allocation_error);
    EXPECT_EQ(reply.status.secondary, wire::rc_allocation_failure_retry);
    w.ended(id, session);
    EXPECT_TRUE(w.silent(id));
}

TEST(SessionLimit, CancelledAndForgottenWaitersAreNotServed)
{
    world w(with_limit(1));
    connection_id id = w.program();
    connection_id gone = w.program();
    connection_id last = w.program();
    allocate_small(w, id, 10);
    session_id session = w.allocation_reply(id).session;
    allocate_small(w, id, 11);
    allocate_small(w, gone, 12);
    allocate_small(w, last, 13);
    w.cancel(id, 11);
    EXPECT_EQ(w.allocation_reply(id).status.primary, wire::rc_cancelled);
    w.leave(gone);
    w.ended(id, session);
    EXPECT_EQ(w.allocation_reply(last).status.primary, wire::rc_ok);
    EXPECT_FALSE(w.node.next_deadline());
}

TEST(Queue, DepthIsLimitedForEachName)
{
    config settings = default_config();
    settings.attach_queue_depth = 2;
    world w(settings);
    connection_id client = w.program();
    session_id sessions[4];
    for (int i = 0; i < 3; ++i)
    {
        sessions[i] = w.allocated(client, "SERVER");
        w.attach(sessions[i]);
    }
    EXPECT_EQ(w.refused.size(), 1u);
    EXPECT_EQ(w.refused.at(sessions[2]), wire::sense_tp_not_available_retry);
    sessions[3] = w.allocated(client, "OTHER");
    w.attach(sessions[3]);
    EXPECT_EQ(w.refused.size(), 1u);
}

TEST(Queue, AFloodLeavesRoomForOthers)
{
    config settings = default_config();
    settings.attach_queue_depth = 10;
    world w(settings);
    auto attach_of = [&](connection_id id) {
        session_id session = w.allocated(id, "SERVER");
        w.attach(session);
        return session;
    };
    connection_id flood = w.program(50);
    session_id first = attach_of(flood);
    session_id last = first;
    for (int i = 1; i < 10; ++i)
    {
        last = attach_of(flood);
    }
    EXPECT_EQ(w.refused.count(attach_of(flood)), 1u);
    // Another process of the same user, then one of another user, each take the flood's last place.
    session_id honest = attach_of(w.program(51));
    EXPECT_EQ(w.refused.count(honest), 0u);
    EXPECT_EQ(w.refused.at(last), wire::sense_tp_not_available_retry);
    session_id other = attach_of(w.program(60, 1001));
    EXPECT_EQ(w.refused.count(other), 0u);
    // What came first stays first, and nobody has lost his place to the flood.
    connection_id server = w.program(70);
    w.add_name(server, "SERVER");
    w.accept(server, {"SERVER"});
    EXPECT_EQ(w.accepted(server).session, first);
    EXPECT_EQ(w.node.sessions().at(honest).state, session_state::queued);
    EXPECT_EQ(w.node.sessions().at(other).state, session_state::queued);
}

TEST(Queue, ManyProcessesOfOneUserTakeNoPlaceOfAnothers)
{
    config settings = default_config();
    settings.attach_queue_depth = 10;
    world w(settings);
    connection_id one = w.program(50, 1001);
    for (int i = 0; i < 5; ++i)
    {
        w.attach(w.allocated(one, "SERVER"));
    }
    for (std::int32_t pid = 100; pid < 120; ++pid)
    {
        w.attach(w.allocated(w.program(pid), "SERVER"));
    }
    std::size_t left = 0;
    for (const auto &[id, s] : w.node.sessions())
    {
        left += s.state == session_state::queued && s.allocated_by.uid == 1001;
    }
    EXPECT_EQ(left, 5u);
}

TEST(Queue, OfDepthNoneRefusesAtOnce)
{
    config settings = default_config();
    settings.attach_queue_depth = 0;
    world w(settings);
    connection_id client = w.program();
    session_id unknown = w.allocated(client, "SERVER");
    w.attach(unknown);
    EXPECT_EQ(w.refused.at(unknown), wire::sense_tp_name_not_recognised);
    connection_id server = w.program();
    w.add_name(server, "SERVER");
    session_id known = w.allocated(client, "SERVER");
    w.attach(known);
    EXPECT_EQ(w.refused.at(known), wire::sense_tp_not_available_retry);
}

TEST(Quota, ConnectionsOfAProcessAndOfAUser)
{
    config settings = default_config();
    settings.connections_per_process = 2;
    settings.connections_per_user = 3;
    world w(settings);
    EXPECT_TRUE(w.node.connected(1, {1000, 5, "alice"}, w.clock));
    EXPECT_TRUE(w.node.connected(2, {1000, 5, "alice"}, w.clock));
    EXPECT_FALSE(w.node.connected(3, {1000, 5, "alice"}, w.clock));
    EXPECT_TRUE(w.node.connected(4, {1000, 6, "alice"}, w.clock));
    EXPECT_FALSE(w.node.connected(5, {1000, 7, "alice"}, w.clock));
    EXPECT_TRUE(w.node.connected(6, {1001, 7, "bob"}, w.clock));
    w.node.disconnected(1, w.clock);
    EXPECT_TRUE(w.node.connected(7, {1000, 5, "alice"}, w.clock));
}

TEST(Quota, AttachesThatNobodyHasAcceptedOutliveNoQuota)
{
    config settings = default_config();
    settings.attaches_per_process = 2;
    settings.attaches_per_user = 3;
    world w(settings);
    connection_id client = w.program(50);
    session_id first = w.allocated(client, "SERVER");
    w.attach(first);
    w.allocated(client, "SERVER");
    w.allocate(client, "SERVER");
    auto reply = w.allocation_reply(client);
    EXPECT_EQ(reply.status.primary, wire::rc_allocation_error);
    EXPECT_EQ(reply.status.secondary, wire::rc_allocation_failure_retry);
    // The attach stays queued when its program goes, and so does its place in the quota of the user.
    w.leave(client);
    connection_id next = w.program(51);
    w.allocated(next, "SERVER");
    w.allocated(next, "SERVER");
    connection_id third = w.program(52);
    w.allocate(third, "SERVER");
    EXPECT_EQ(w.allocation_reply(third).status.primary, wire::rc_allocation_error);
    // An accept makes room.
    w.add_name(third, "SERVER");
    w.accept(third, {"SERVER"});
    EXPECT_EQ(w.accepted(third).session, first);
    w.allocated(third, "SERVER");
}

TEST(Quota, ConversationsOfAProcessAndOfAUser)
{
    config settings = default_config();
    settings.conversations_per_process = 1;
    settings.conversations_per_user = 2;
    world w(settings);
    connection_id client = w.program(50);
    session_id session = w.allocated(client, "SERVER");
    for (connection_id id : {client, w.program(50)}) // a second connection of the process changes nothing
    {
        w.allocate(id, "SERVER");
        EXPECT_EQ(w.allocation_reply(id).status.primary, wire::rc_allocation_error);
        w.add_name(id, "SERVER");
        w.accept(id, {"SERVER"});
        EXPECT_EQ(w.accepted(id).status.primary, wire::rc_unexpected_system_error);
    }
    connection_id second = w.program(51);
    w.allocated(second, "SERVER");
    connection_id third = w.program(52);
    w.allocate(third, "SERVER");
    EXPECT_EQ(w.allocation_reply(third).status.primary, wire::rc_allocation_error);
    w.allocated(w.program(53, 1001), "SERVER"); // another user
    w.ended(client, session);
    w.allocated(client, "SERVER");
}

TEST(Quota, NamesThatAcceptsListCountOnceEachAndNotWithoutEnd)
{
    config settings = default_config();
    settings.conversations_per_process = 1'000'000;
    world w(settings);
    connection_id server = w.program();
    w.add_name(server, "SERVER");
    std::vector<const char *> same(1000, "SERVER");
    std::uint32_t correlation = 100;
    for (int i = 0; i < 2000; ++i)
    {
        w.accept(server, same, correlation++); // each is one name
    }
    EXPECT_TRUE(w.silent(server));
    std::vector<std::string> many;
    std::vector<const char *> texts;
    for (int i = 0; i < 1000; ++i)
    {
        many.push_back("NAME" + std::to_string(i));
    }
    for (const std::string &name : many)
    {
        w.add_name(server, name.c_str());
        texts.push_back(name.c_str());
    }
    for (int i = 0; i < 98; ++i)
    {
        w.accept(server, texts, correlation++);
    }
    EXPECT_TRUE(w.silent(server));
    w.accept(server, texts, correlation); // more than 100,000 in all
    auto reply = w.accepted(server);
    EXPECT_EQ(reply.head.correlation, correlation);
    EXPECT_EQ(reply.status.primary, wire::rc_unexpected_system_error);
    w.leave(server);
    EXPECT_TRUE(w.node.usage_by_process().empty());
}

TEST(Reload, WhatIsInUseStaysAndIsNamed)
{
    config settings = with_limit(1);
    settings.lus.push_back({"SECOND", "NETA.SECOND"});
    world w(settings);
    connection_id id = w.program();
    wire::allocate message = world::allocation("SERVER");
    to_ebcdic(message.mode, "SMALL");
    to_ascii(message.local_alias, "SECOND");
    w.say(id, message, wire::message_kind::allocate, 10);
    session_id session = w.allocation_reply(id).session;

    config fresh = default_config();
    fresh.lus[0].name = "LOCALNET.RENAMED";
    fresh.side_infos.push_back({});
    reload_report report = w.node.reconfigure(fresh, w.clock);
    EXPECT_EQ(report.kept, (std::vector<std::string>{
                               "LU LOCALLU has conversations and keeps the name LOCALNET.LOCALLU",
                               "LU SECOND has conversations and stays",
                               "mode SMALL has conversations and stays",
                           }));
    EXPECT_NE(w.node.settings().find_lu("SECOND"), nullptr);
    EXPECT_EQ(w.node.settings().side_infos.size(), 1u);

    w.ended(id, session);
    report = w.node.reconfigure(fresh, w.clock);
    EXPECT_TRUE(report.kept.empty());
    EXPECT_EQ(w.node.settings().find_lu("SECOND"), nullptr);
    EXPECT_EQ(w.node.settings().find_mode("SMALL"), nullptr);
    EXPECT_EQ(w.node.settings().lus[0].name, "LOCALNET.RENAMED");
}

TEST(Reload, SaysWhatIsAMatterOfTheStart)
{
    world w;
    config settings = default_config();
    settings.trace = true;
    settings.audit = false;
    EXPECT_EQ(w.node.reconfigure(settings, w.clock).kept,
              (std::vector<std::string>{
                  "trace = true holds from the next start on; cpicnode trace on switches it now",
                  "audit = false holds from the next start on; cpicnode audit off switches it now"}));
    EXPECT_TRUE(w.node.reconfigure(settings, w.clock).kept.empty());
}

TEST(Reload, ARaisedLimitServesThoseWhoWait)
{
    world w(with_limit(1));
    connection_id id = w.program();
    for (std::uint32_t correlation : {10u, 11u, 12u})
    {
        allocate_small(w, id, correlation);
    }
    w.allocation_reply(id);
    EXPECT_TRUE(w.silent(id));
    w.node.reconfigure(with_limit(2), w.clock);
    EXPECT_EQ(w.allocation_reply(id).head.correlation, 11u);
    EXPECT_TRUE(w.silent(id));
}

// Counts again, from connections and sessions, what each process and each user has.
void expect_usage(const exchange &books)
{
    std::map<std::int32_t, usage> by_process;
    std::map<std::uint32_t, usage> by_user;
    auto add = [&](const peer &who, std::uint32_t usage::*what, std::size_t count) {
        if (count != 0)
        {
            by_process[who.pid].*what += static_cast<std::uint32_t>(count);
            by_user[who.uid].*what += static_cast<std::uint32_t>(count);
        }
    };
    for (const auto &[id, c] : books.connections())
    {
        add(c.who, &usage::connections, 1);
        add(c.who, &usage::names, c.names.size());
        add(c.who, &usage::conversations, c.sessions.size() + c.requests.size());
        for (const auto &[correlation, r] : c.requests)
        {
            add(c.who, &usage::awaited, r.tp_names.size());
        }
    }
    for (const auto &[id, s] : books.sessions())
    {
        add(s.allocated_by, &usage::held, s.state != session_state::connected && s.state != session_state::refused);
    }
    EXPECT_EQ(by_process, books.usage_by_process());
    EXPECT_EQ(by_user, books.usage_by_user());
}

TEST(Reload, AMixOfProgramsLeavesNothingBehind)
{
    // Random steps of four programs; whatever they do, the books are empty once all have gone.
    std::uint32_t random = 12345;
    auto next = [&random](std::uint32_t below) {
        random = random * 1664525 + 1013904223;
        return (random >> 8) % below;
    };
    for (int round = 0; round < 200; ++round)
    {
        config settings = with_limit(2);
        settings.attach_queue_depth = 2;
        world w(settings);
        std::vector<connection_id> programs;
        for (int i = 0; i < 4; ++i)
        {
            programs.push_back(w.program(i + 1, 1000 + static_cast<std::uint32_t>(i) % 2));
            w.add_name(programs.back(), "SERVER");
        }
        for (std::uint32_t step = 0; step < 200; ++step)
        {
            connection_id id = programs[next(4)];
            std::uint32_t correlation = 100 + step;
            switch (next(9))
            {
            case 0:
            case 1:
                allocate_small(w, id, correlation, static_cast<std::uint8_t>(next(2)));
                break;
            case 2:
                w.accept(id, {"SERVER"}, correlation);
                break;
            case 3:
                w.cancel(id, 100 + next(step + 1));
                break;
            case 4:
                w.ended(id, next(step + 2));
                break;
            case 5:
                w.node.attach(next(step + 2), next(3) == 0 ? attach_seen::broken : attach_seen::attach, w.clock);
                break;
            case 6:
                w.clock += next(20'000);
                w.node.tick(w.clock);
                break;
            case 8:
                w.inbox[id].clear();
                if (next(2) == 0)
                {
                    w.add_name(id, "SERVER");
                }
                else
                {
                    w.remove_name(id, "SERVER");
                }
                break;
            case 7:
                if (next(4) == 0)
                {
                    w.leave(id);
                    *std::find(programs.begin(), programs.end(), id) = w.program(static_cast<std::int32_t>(step));
                    w.add_name(w.connections, "SERVER");
                }
                break;
            }
            std::uint32_t counted = 0;
            for (const auto &[way, count] : w.node.routes())
            {
                ASSERT_LE(count, 2u);
                counted += count;
            }
            ASSERT_EQ(counted, w.node.sessions().size());
            expect_usage(w.node);
            ASSERT_FALSE(testing::Test::HasFailure()) << "round " << round << ", step " << step;
        }
        for (connection_id id : programs)
        {
            w.leave(id);
        }
        w.node.tick(w.clock + 1'000'000);
        EXPECT_TRUE(w.closed.empty());
        EXPECT_TRUE(w.node.sessions().empty());
        EXPECT_TRUE(w.node.routes().empty());
        EXPECT_TRUE(w.node.names().empty());
        EXPECT_TRUE(w.open.empty());
        EXPECT_TRUE(w.node.usage_by_process().empty());
        EXPECT_FALSE(w.node.next_deadline());
    }
}

} // namespace
} // namespace test
