// exchange_names_test.cpp - greeting, LUs, TP names, side information, and messages that break the rules.
#include "exchange_world.hpp"

namespace test {
namespace {

TEST(Greeting, WelcomeTellsTheDefaultLuAndHandsOverThePage)
{
    world w;
    connection_id id = 7;
    ASSERT_TRUE(w.node.connected(id, {1000, 5, "alice"}, w.clock));
    wire::hello hello{};
    hello.version = wire::protocol_version;
    w.say(id, hello, wire::message_kind::hello, 99);
    auto reply = w.take<wire::welcome>(id, wire::message_kind::welcome);
    EXPECT_EQ(reply.head.correlation, 99u);
    EXPECT_EQ(reply.connection, id);
    EXPECT_EQ(reply.broker_pid, 4711u);
    EXPECT_EQ(from_ascii(reply.default_alias), "LOCALLU");
    EXPECT_EQ(w.last.what, handover::control_page);
}

TEST(Greeting, AnotherVersionIsToldAndClosed)
{
    world w;
    ASSERT_TRUE(w.node.connected(1, {1000, 5, "alice"}, w.clock));
    wire::hello hello{};
    hello.version = wire::protocol_version + 1;
    w.say(1, hello, wire::message_kind::hello, 1);
    EXPECT_NE(w.take<wire::welcome>(1, wire::message_kind::welcome).status.primary, wire::rc_ok);
    EXPECT_TRUE(w.closed.contains(1));
}

TEST(Greeting, SilenceEndsTheConnectionAfterTenSeconds)
{
    world w;
    connection_id silent = 50;
    ASSERT_TRUE(w.node.connected(silent, {1000, 5, "alice"}, w.clock));
    connection_id polite = w.program();
    ASSERT_EQ(w.node.next_deadline(), w.clock + 10'000);
    w.node.tick(w.clock + 9'999);
    EXPECT_TRUE(w.closed.empty());
    w.node.tick(w.clock + 10'000);
    EXPECT_EQ(w.closed, std::set<connection_id>{silent});
    EXPECT_FALSE(w.closed.contains(polite));
}

TEST(Rules, EveryMessageBeforeHelloClosesItsConnection)
{
    for (auto kind : {wire::message_kind::find_lu, wire::message_kind::query_side_info})
    {
        world w;
        ASSERT_TRUE(w.node.connected(1, {1000, 5, "alice"}, w.clock));
        wire::find_lu message{};
        w.say(1, message, kind, 1);
        EXPECT_TRUE(w.closed.contains(1));
        EXPECT_TRUE(w.silent(1));
    }
}

TEST(Rules, SecondHelloClosesItsConnection)
{
    world w;
    connection_id id = w.program();
    wire::hello hello{};
    hello.version = wire::protocol_version;
    w.say(id, hello, wire::message_kind::hello, 2);
    EXPECT_TRUE(w.closed.contains(id));
}

TEST(Rules, GarbageClosesItsConnectionOnly)
{
    world w;
    connection_id bad = w.program();
    connection_id good = w.program();
    std::vector<std::byte> garbage(100, std::byte{0xA5});
    w.node.message(bad, garbage, w.clock);
    EXPECT_EQ(w.closed, std::set<connection_id>{bad});
    EXPECT_EQ(w.add_name(good, "SERVER"), wire::rc_ok);
}

TEST(Rules, ACorrelationThatIsStillWaitingClosesItsConnection)
{
    world w;
    connection_id id = w.program();
    w.add_name(id, "SERVER");
    w.accept(id, {"SERVER"}, 20);
    w.accept(id, {"SERVER"}, 20);
    EXPECT_TRUE(w.closed.contains(id));
}

TEST(Lus, ZeroAliasIsTheDefaultAndUnknownOnesAreRefused)
{
    config settings = default_config();
    settings.lus.push_back({"SECOND", "NETA.SECOND"});
    world w(settings);
    connection_id id = w.program();
    wire::find_lu message{};
    w.say(id, message, wire::message_kind::find_lu, 5);
    auto reply = w.take<wire::lu_found>(id, wire::message_kind::lu_found);
    EXPECT_EQ(from_ascii(reply.alias), "LOCALLU");
    EXPECT_EQ(from_ebcdic(reply.fq_name), "LOCALNET.LOCALLU");

    to_ascii(message.alias, "SECOND");
    w.say(id, message, wire::message_kind::find_lu, 6);
    reply = w.take<wire::lu_found>(id, wire::message_kind::lu_found);
    EXPECT_EQ(from_ebcdic(reply.fq_name), "NETA.SECOND");

    to_ascii(message.alias, "NOBODY");
    w.say(id, message, wire::message_kind::find_lu, 7);
    reply = w.take<wire::lu_found>(id, wire::message_kind::lu_found);
    EXPECT_EQ(reply.status.primary, wire::rc_parameter_check);
    EXPECT_EQ(reply.status.secondary, wire::rc_bad_lu_alias);
}

TEST(Names, AddingTwiceSucceedsAndRemovingWhatIsNotThereDoesNot)
{
    world w;
    connection_id id = w.program();
    EXPECT_EQ(w.add_name(id, "SERVER"), wire::rc_ok);
    EXPECT_EQ(w.add_name(id, "SERVER"), wire::rc_ok);
    EXPECT_EQ(w.node.names().size(), 1u);
    w.remove_name(id, "SERVER");
    EXPECT_EQ(w.take<wire::done>(id, wire::message_kind::done).status.primary, wire::rc_ok);
    EXPECT_TRUE(w.node.names().empty());
    w.remove_name(id, "SERVER");
    auto reply = w.take<wire::done>(id, wire::message_kind::done);
    EXPECT_EQ(reply.status.primary, wire::rc_parameter_check);
    EXPECT_EQ(reply.status.secondary, wire::rc_bad_tp_name);
    EXPECT_EQ(w.add_name(id, ""), wire::rc_parameter_check);
}

TEST(Names, OfAProgramGoWithIt)
{
    world w;
    connection_id first = w.program();
    connection_id second = w.program();
    w.add_name(first, "SERVER");
    w.add_name(second, "SERVER");
    w.leave(first);
    EXPECT_EQ(w.node.names().at(tp_name_bytes("SERVER")), std::set<connection_id>{second});
    w.leave(second);
    EXPECT_TRUE(w.node.names().empty());
}

TEST(Names, OneProgramMayHaveALimitedNumber)
{
    world w;
    connection_id id = w.program();
    for (int i = 0; i < 4096; ++i)
    {
        ASSERT_EQ(w.add_name(id, ("N" + std::to_string(i)).c_str()), wire::rc_ok);
    }
    EXPECT_EQ(w.add_name(id, "ONEMORE"), wire::rc_unexpected_system_error);
}

TEST(Names, ReleasedWhileAnAcceptWaitsLeaveItsOtherNames)
{
    world w;
    connection_id server = w.program();
    connection_id client = w.program();
    w.add_name(server, "A");
    w.add_name(server, "B");
    w.accept(server, {"A", "B"});
    w.remove_name(server, "A");
    w.take<wire::done>(server, wire::message_kind::done);
    w.attach(w.allocated(client, "A"));
    EXPECT_TRUE(w.silent(server));
    w.attach(w.allocated(client, "B"));
    EXPECT_EQ(w.accepted(server).status.primary, wire::rc_ok);
}

TEST(Names, TheLastOneReleasedEndsTheAcceptThatWaits)
{
    world w;
    connection_id server = w.program();
    w.add_name(server, "A");
    w.accept(server, {"A"}, 20);
    w.remove_name(server, "A");
    auto reply = w.accepted(server);
    EXPECT_EQ(reply.head.correlation, 20u);
    EXPECT_EQ(reply.status.primary, wire::rc_parameter_check);
    EXPECT_EQ(reply.status.secondary, wire::rc_bad_tp_name);
    EXPECT_EQ(w.take<wire::done>(server, wire::message_kind::done).status.primary, wire::rc_ok);
}

TEST(SideInfo, RecordHasEveryFieldAtItsPlace)
{
    config settings = default_config();
    side_info_entry entry;
    entry.destination = "PARTNER";
    entry.partner_lu = "NETA.LUB";
    entry.tp_name = "06f10203";
    entry.service_tp = true;
    entry.mode = "#BATCH";
    entry.security = 2;
    entry.user = "ALICE";
    entry.password = "SESAME";
    entry.local_lu = "LOCALLU";
    settings.side_infos.push_back(entry);
    entry = {};
    entry.destination = "PLAIN";
    settings.side_infos.push_back(entry);
    world w(settings);
    connection_id id = w.program();
    wire::query_side_info message{};
    to_ascii(message.sym_dest_name, "PARTNER");
    w.say(id, message, wire::message_kind::query_side_info, 5);
    auto reply = w.take<wire::side_info>(id, wire::message_kind::side_info);
    ASSERT_EQ(reply.status.primary, wire::rc_ok);
    auto text = [&](std::size_t at, std::size_t size) {
        return std::string(reinterpret_cast<const char *>(reply.record) + at, size);
    };
    auto number = [&](std::size_t at) { return reply.record[at] | reply.record[at + 1] << 8; };
    EXPECT_EQ(text(2, 8), "PARTNER ");
    EXPECT_EQ(text(60, 17), "NETA.LUB         ");
    EXPECT_EQ(number(80), 1);
    EXPECT_EQ(text(84, 64), "06f10203" + std::string(56, ' '));
    EXPECT_EQ(text(148, 8), "#BATCH  ");
    EXPECT_EQ(number(156), 2);
    EXPECT_EQ(text(160, 10), "ALICE     ");
    EXPECT_EQ(text(170, 10), "SESAME    ");
    EXPECT_EQ(text(180, 8), "LOCALLU ");

    // Its passwords are not for programs of other users.
    connection_id other = w.program(200, 1001);
    w.say(other, message, wire::message_kind::query_side_info, 5);
    reply = w.take<wire::side_info>(other, wire::message_kind::side_info);
    EXPECT_EQ(text(160, 10), "ALICE     ");
    EXPECT_EQ(text(170, 10), "          ");

    // A local LU that is not given is eight zero bytes.
    to_ascii(message.sym_dest_name, "PLAIN");
    w.say(id, message, wire::message_kind::query_side_info, 6);
    reply = w.take<wire::side_info>(id, wire::message_kind::side_info);
    EXPECT_EQ(text(180, 8), std::string(8, '\0'));

    to_ascii(message.sym_dest_name, "NOBODY");
    w.say(id, message, wire::message_kind::query_side_info, 7);
    reply = w.take<wire::side_info>(id, wire::message_kind::side_info);
    EXPECT_EQ(reply.status.primary, wire::rc_state_check);
    EXPECT_EQ(reply.status.secondary, wire::rc_unknown_symbolic_destination);
}

} // namespace
} // namespace test
