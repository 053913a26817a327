// exchange_sessions_test.cpp - from allocation and accept to the end of a conversation.
#include "exchange_world.hpp"

#include "wire/frames.hpp"

namespace test {
namespace {

TEST(Allocate, EveryWrongArgumentHasItsCode)
{
    struct row
    {
        std::uint32_t secondary;
        void (*spoil)(wire::allocate &);
    };
    const row rows[] = {
        {wire::rc_bad_conv_type, [](wire::allocate &m) { m.conv_type = 2; }},
        {wire::rc_bad_sync_level, [](wire::allocate &m) { m.sync_level = 2; }},
        {wire::rc_bad_return_control, [](wire::allocate &m) { m.return_control = 2; }},
        {wire::rc_bad_security, [](wire::allocate &m) { m.security = 3; }},
        {wire::rc_bad_security, [](wire::allocate &m) { m.security = 6; }},
        {wire::rc_bad_tp_name, [](wire::allocate &m) { to_ebcdic(m.tp_name, ""); }},
        {wire::rc_bad_tp_name, [](wire::allocate &m) { std::memset(m.tp_name, 0, sizeof m.tp_name); }},
        {wire::rc_bad_lu_alias, [](wire::allocate &m) { to_ascii(m.local_alias, "NOBODY"); }},
        {wire::rc_bad_partner_lu, [](wire::allocate &m) { to_ascii(m.partner_alias, "NOBODY"); }},
        {wire::rc_bad_partner_lu, [](wire::allocate &m) { to_ascii(m.partner_alias, ""); }},
        {wire::rc_bad_partner_lu,
         [](wire::allocate &m) {
             m.partner_alias[0] = 0;
             to_ebcdic(m.partner_fq_name, "LOCALNET.OTHER");
         }},
        {wire::rc_bad_mode, [](wire::allocate &m) { to_ebcdic(m.mode, "#NONE"); }},
    };
    world w;
    connection_id id = w.program();
    for (const row &one : rows)
    {
        wire::allocate message = world::allocation("SERVER");
        one.spoil(message);
        w.say(id, message, wire::message_kind::allocate, 11);
        auto reply = w.allocation_reply(id);
        EXPECT_EQ(reply.status.primary, wire::rc_parameter_check);
        EXPECT_EQ(reply.status.secondary, one.secondary);
        EXPECT_EQ(w.last.what, handover::nothing);
    }
    EXPECT_TRUE(w.open.empty());
    EXPECT_TRUE(w.closed.empty());
}

TEST(Allocate, PartnerByAliasByNameAndByPartnerAlias)
{
    config settings = default_config();
    settings.lus.push_back({"SECOND", "NETA.SECOND"});
    settings.partner_lus.push_back({"FRIEND", "NETA.SECOND"});
    world w(settings);
    connection_id id = w.program();
    wire::allocate message = world::allocation("SERVER");
    to_ascii(message.partner_alias, "SECOND");
    w.say(id, message, wire::message_kind::allocate, 1);
    EXPECT_EQ(from_ebcdic(w.allocation_reply(id).partner_fq_name), "NETA.SECOND");
    EXPECT_EQ(w.last.what, handover::allocating_end);
    to_ascii(message.partner_alias, "FRIEND");
    w.say(id, message, wire::message_kind::allocate, 2);
    EXPECT_EQ(from_ebcdic(w.allocation_reply(id).partner_fq_name), "NETA.SECOND");
    message.partner_alias[0] = 0;
    to_ebcdic(message.partner_fq_name, "NETA.SECOND");
    to_ebcdic(message.mode, ""); // the default mode
    w.say(id, message, wire::message_kind::allocate, 3);
    auto reply = w.allocation_reply(id);
    EXPECT_EQ(reply.status.primary, wire::rc_ok);
    EXPECT_EQ(reply.head.correlation, 3u);
}

TEST(Allocate, WithoutDescriptorsItMayBeTriedAgain)
{
    world w;
    connection_id id = w.program();
    w.descriptors_left = false;
    w.allocate(id, "SERVER");
    auto reply = w.allocation_reply(id);
    EXPECT_EQ(reply.status.primary, wire::rc_allocation_error);
    EXPECT_EQ(reply.status.secondary, wire::rc_allocation_failure_retry);
    EXPECT_TRUE(w.node.sessions().empty());
    EXPECT_TRUE(w.node.routes().empty());
}

TEST(Accept, GetsThePartnersViewOfTheConversation)
{
    config settings = default_config();
    settings.lus.push_back({"SERVERLU", "NETA.SERVER"});
    world w(settings);
    connection_id server = w.program(200);
    connection_id client = w.program(300);
    w.add_name(server, "SERVER");
    w.accept(server, {"SERVER"}, 20);
    EXPECT_TRUE(w.silent(server));
    wire::allocate message = world::allocation("SERVER");
    to_ascii(message.partner_alias, "SERVERLU");
    message.sync_level = 1;
    w.say(client, message, wire::message_kind::allocate, 10);
    session_id session = w.allocation_reply(client).session;
    EXPECT_TRUE(w.silent(server)) << "nothing before the ATTACH";
    w.attach(session);
    auto reply = w.accepted(server);
    EXPECT_EQ(reply.head.correlation, 20u);
    EXPECT_EQ(reply.status.primary, wire::rc_ok);
    EXPECT_EQ(reply.session, session);
    EXPECT_EQ(tp_name_text(tp_name_bytes(reply.tp_name)), "SERVER");
    EXPECT_EQ(reply.conv_type, 1);
    EXPECT_EQ(reply.sync_level, 1);
    EXPECT_EQ(from_ebcdic(reply.mode), "#INTER");
    EXPECT_EQ(from_ascii(reply.local_alias), "SERVERLU");
    EXPECT_EQ(from_ebcdic(reply.partner_fq_name), "LOCALNET.LOCALLU");
    EXPECT_EQ(reply.partner_fq_name[16], 0x40);
    EXPECT_EQ(reply.user_id[0], 0x40);
    EXPECT_EQ(w.last.what, handover::accepting_end);
    EXPECT_EQ(w.node.accepted_total(), 1u);
}

TEST(Accept, ServesTheOldestAttachOfAllItsNames)
{
    world w;
    connection_id server = w.program();
    connection_id client = w.program();
    w.add_name(server, "A");
    w.add_name(server, "B");
    w.add_name(server, "C");
    session_id first = w.allocated(client, "B");
    session_id second = w.allocated(client, "A");
    session_id other = w.allocated(client, "C");
    w.attach(other);
    w.attach(first);
    w.attach(second);
    w.accept(server, {"A", "B"}, 21);
    EXPECT_EQ(w.accepted(server).session, first);
    w.accept(server, {"A", "B"}, 22);
    EXPECT_EQ(w.accepted(server).session, second);
    w.accept(server, {"A", "B"}, 23);
    EXPECT_TRUE(w.silent(server));
}

TEST(Accept, TheLongestWaitingProgramIsServedFirst)
{
    world w;
    connection_id first = w.program(1);
    connection_id second = w.program(2);
    connection_id client = w.program(3);
    w.add_name(first, "SERVER");
    w.add_name(second, "SERVER");
    w.accept(second, {"SERVER"}); // the younger program has asked first
    w.accept(first, {"SERVER"});
    session_id a = w.allocated(client, "SERVER");
    session_id b = w.allocated(client, "SERVER");
    w.attach(a);
    w.attach(b);
    EXPECT_EQ(w.accepted(second).session, a);
    EXPECT_EQ(w.accepted(first).session, b);
}

TEST(Accept, OnlyOwnNamesMayBeListed)
{
    world w;
    connection_id owner = w.program();
    connection_id thief = w.program();
    w.add_name(owner, "SERVER");
    w.accept(thief, {"SERVER"});
    auto reply = w.accepted(thief);
    EXPECT_EQ(reply.status.primary, wire::rc_parameter_check);
    EXPECT_EQ(reply.status.secondary, wire::rc_bad_tp_name);
    w.attach(w.allocated(thief, "SERVER"));
    EXPECT_TRUE(w.silent(thief));
}

TEST(Accept, WaitsForTheNamesThatItsProgramStillHas)
{
    world w;
    connection_id server = w.program();
    w.add_name(server, "STAYS");
    w.accept(server, {"GONE", "STAYS"}); // GONE was released by another thread while the accept was being made
    EXPECT_TRUE(w.silent(server));
    session_id lost = w.allocated(server, "GONE");
    session_id met = w.allocated(server, "STAYS");
    w.attach(lost);
    EXPECT_TRUE(w.silent(server));
    w.attach(met);
    EXPECT_EQ(w.accepted(server).session, met);
}

TEST(Accept, OfAProgramThatHasGoneIsForgotten)
{
    world w;
    connection_id gone = w.program();
    connection_id server = w.program();
    connection_id client = w.program();
    for (connection_id id : {gone, server})
    {
        w.add_name(id, "SERVER");
        w.accept(id, {"SERVER"});
    }
    w.leave(gone);
    session_id session = w.allocated(client, "SERVER");
    w.attach(session);
    EXPECT_EQ(w.accepted(server).session, session);
}

TEST(Attach, QueuedUntilItsTimeIsOverThenRefused)
{
    world w;
    connection_id client = w.program();
    session_id unknown = w.allocated(client, "NOBODY");
    w.attach(unknown);
    connection_id server = w.program();
    w.add_name(server, "SERVER");
    w.leave(server);
    session_id known = w.allocated(client, "SERVER");
    w.attach(known);
    w.node.tick(w.clock + 9'999);
    EXPECT_TRUE(w.refused.empty());
    w.node.tick(w.clock + 10'000);
    EXPECT_EQ(w.refused.at(unknown), wire::sense_tp_name_not_recognised);
    EXPECT_EQ(w.refused.at(known), wire::sense_tp_not_available_retry);
    EXPECT_EQ(w.node.refused_total(), 2u);
    // The sessions are over once the allocating program has seen it.
    EXPECT_EQ(w.node.sessions().size(), 2u);
    w.ended(client, unknown);
    w.ended(client, known);
    EXPECT_TRUE(w.node.sessions().empty());
    EXPECT_FALSE(w.node.next_deadline());
}

TEST(Attach, IsKeptForItsPartnerWhenTheAllocatingProgramHasGone)
{
    world w;
    connection_id client = w.program();
    connection_id server = w.program();
    w.add_name(server, "SERVER");
    session_id session = w.allocated(client, "SERVER");
    w.attach(session);
    w.ended(client, session);
    w.leave(client);
    w.accept(server, {"SERVER"});
    EXPECT_EQ(w.accepted(server).session, session);
    w.ended(server, session);
    EXPECT_TRUE(w.node.sessions().empty());
}

TEST(Attach, ThatIsStillUnreadWhenItsProgramGoesCountsAllTheSame)
{
    world w;
    connection_id client = w.program();
    connection_id server = w.program();
    w.add_name(server, "SERVER");
    w.accept(server, {"SERVER"});
    session_id session = w.allocated(client, "SERVER");
    w.unread[session] = attach_seen::attach;
    w.leave(client);
    EXPECT_EQ(w.accepted(server).session, session);
}

TEST(Attach, ThatNeverCameFreesTheSession)
{
    world w;
    connection_id client = w.program();
    session_id by_notice = w.allocated(client, "SERVER");
    w.ended(client, by_notice);
    EXPECT_FALSE(w.open.contains(by_notice));
    session_id by_socket = w.allocated(client, "SERVER");
    w.node.attach(by_socket, attach_seen::broken, w.clock);
    EXPECT_FALSE(w.open.contains(by_socket));
    session_id by_death = w.allocated(client, "SERVER");
    w.leave(client);
    EXPECT_FALSE(w.open.contains(by_death));
    EXPECT_TRUE(w.node.sessions().empty());
    EXPECT_TRUE(w.node.routes().empty());
}

TEST(Attach, RestrictionsOfAConfiguredProgramHaveTheirSenseData)
{
    config settings = default_config();
    program_entry program;
    program.tp_name = tp_name_bytes("BASIC");
    program.conversation_types = accepts::first;
    settings.programs.push_back(program);
    program = {};
    program.tp_name = tp_name_bytes("CONFIRM");
    program.sync_levels = accepts::second;
    settings.programs.push_back(program);
    world w(settings);
    connection_id client = w.program();
    session_id mapped = w.allocated(client, "BASIC");
    w.attach(mapped);
    EXPECT_EQ(w.refused.at(mapped), wire::sense_type_mismatch);
    session_id no_confirm = w.allocated(client, "CONFIRM");
    w.attach(no_confirm);
    EXPECT_EQ(w.refused.at(no_confirm), wire::sense_sync_level_not_supported);
    wire::allocate message = world::allocation("CONFIRM");
    message.sync_level = 1;
    w.say(client, message, wire::message_kind::allocate, 10);
    session_id confirm = w.allocation_reply(client).session;
    w.attach(confirm);
    EXPECT_FALSE(w.refused.contains(confirm));
}

TEST(Session, LastsUntilBothEndsAreDoneWhateverTheOrder)
{
    for (bool client_first : {true, false})
    {
        world w;
        connection_id client = w.program();
        connection_id server = w.program();
        w.add_name(server, "SERVER");
        w.accept(server, {"SERVER"});
        session_id session = w.allocated(client, "SERVER");
        w.attach(session);
        w.ended(client_first ? client : server, session);
        w.ended(client_first ? client : server, session); // said twice: no matter
        EXPECT_EQ(w.node.sessions().size(), 1u);
        w.leave(client_first ? server : client);
        EXPECT_TRUE(w.node.sessions().empty());
        EXPECT_TRUE(w.node.routes().empty());
    }
}

TEST(Session, OfAProgramWithItselfEndsWhenBothEndsHaveSaidSo)
{
    world w;
    connection_id id = w.program();
    w.add_name(id, "SELF");
    w.accept(id, {"SELF"});
    session_id session = w.allocated(id, "SELF");
    w.attach(session);
    w.ended(id, session);
    EXPECT_EQ(w.node.sessions().size(), 1u);
    w.ended(id, session);
    EXPECT_TRUE(w.node.sessions().empty());
    w.accepted(id);
    w.accept(id, {"SELF"});
    w.attach(w.allocated(id, "SELF"));
    w.leave(id);
    EXPECT_TRUE(w.node.sessions().empty());
}

TEST(Session, OfOthersCannotBeEnded)
{
    world w;
    connection_id client = w.program();
    connection_id stranger = w.program();
    session_id session = w.allocated(client, "SERVER");
    w.ended(stranger, session);
    w.ended(stranger, 999);
    EXPECT_TRUE(w.open.contains(session));
    EXPECT_TRUE(w.closed.empty());
}

TEST(Cancel, AnswersTheRequestThenTheCancel)
{
    world w;
    connection_id server = w.program();
    w.add_name(server, "SERVER");
    w.accept(server, {"SERVER"}, 20);
    w.cancel(server, 20);
    auto reply = w.accepted(server);
    EXPECT_EQ(reply.head.correlation, 20u);
    EXPECT_EQ(reply.status.primary, wire::rc_cancelled);
    auto done = w.take<wire::done>(server, wire::message_kind::done);
    EXPECT_EQ(done.head.correlation, 30u);
    EXPECT_EQ(done.status.primary, wire::rc_ok);
    // Nothing waits any more.
    connection_id client = w.program();
    w.attach(w.allocated(client, "SERVER"));
    EXPECT_TRUE(w.silent(server));
}

TEST(Cancel, OfWhatHasBeenAnsweredIsAnsweredAlone)
{
    world w;
    connection_id client = w.program();
    w.allocated(client, "SERVER");
    w.cancel(client, 10);
    EXPECT_EQ(w.take<wire::done>(client, wire::message_kind::done).status.primary, wire::rc_ok);
    EXPECT_TRUE(w.silent(client));
}

TEST(Security, UserAndPasswordAreCheckedBeforeTheAttachIsPlaced)
{
    config settings = default_config();
    settings.users.push_back({"ALICE", "$6$hash"});
    world w(settings);
    connection_id server = w.program();
    connection_id client = w.program();
    w.add_name(server, "SERVER");
    w.accept(server, {"SERVER"});
    auto attach_as = [&](const char *user, std::uint8_t security) {
        wire::allocate message = world::allocation("SERVER");
        message.security = security;
        to_ebcdic(message.user_id, user);
        to_ebcdic(message.password, "sesame");
        w.say(client, message, wire::message_kind::allocate, 10);
        session_id session = w.allocation_reply(client).session;
        w.attach(session);
        return session;
    };
    session_id good = attach_as("ALICE", 2);
    ASSERT_EQ(w.checks.size(), 1u);
    EXPECT_EQ(w.checks[0].hash, "$6$hash");
    EXPECT_EQ(w.checks[0].password, "sesame");
    EXPECT_TRUE(w.silent(server));
    EXPECT_EQ(w.checks[0].process, 100);
    EXPECT_STREQ(w.node.sessions().at(good).password.text(), "") << "kept no longer than needed";
    w.node.verified(good, true, w.clock);
    EXPECT_EQ(from_ebcdic(w.accepted(server).user_id), "ALICE");

    session_id bad = attach_as("ALICE", 5);
    w.node.verified(bad, false, w.clock);
    EXPECT_EQ(w.refused.at(bad), wire::sense_security_not_valid);
    // A user whom nobody knows takes as long, and fails whatever comes of the check.
    session_id unknown = attach_as("MALLORY", 2);
    ASSERT_EQ(w.checks.size(), 3u);
    EXPECT_EQ(w.refused.count(unknown), 0u);
    w.node.verified(unknown, true, w.clock);
    EXPECT_EQ(w.refused.at(unknown), wire::sense_security_not_valid);
}

TEST(Security, AVerdictForASessionThatIsOverIsIgnored)
{
    config settings = default_config();
    settings.users.push_back({"ALICE", "$6$hash"});
    world w(settings);
    connection_id client = w.program();
    w.node.verified(12345, true, w.clock);
    session_id session = w.allocated(client, "SERVER");
    w.node.verified(session, true, w.clock);
    EXPECT_EQ(w.node.sessions().at(session).state, session_state::granted);
}

TEST(Security, SameShowsTheUserThatTheKernelKnows)
{
    struct
    {
        bool verified;
        const char *user;
        const char *shown;
    } const cases[] = {
        {true, "alice", "alice"},
        {false, "alice", ""},
        {true, "tencharact", "tencharact"},
        {true, "elevenchars", ""}, // cut off it could be somebody else
    };
    for (const auto &one : cases)
    {
        config settings = default_config();
        settings.already_verified = one.verified;
        world w(settings);
        connection_id server = w.program();
        w.add_name(server, "SERVER");
        w.accept(server, {"SERVER"});
        connection_id client = ++w.connections;
        EXPECT_TRUE(w.node.connected(client, {1000, 7, one.user, true}, w.clock));
        wire::hello hello{};
        hello.version = wire::protocol_version;
        w.say(client, hello, wire::message_kind::hello, 1);
        w.take<wire::welcome>(client, wire::message_kind::welcome);
        wire::allocate message = world::allocation("SERVER");
        message.security = 1;
        to_ebcdic(message.user_id, "MALLORY"); // what the program claims does not count
        w.say(client, message, wire::message_kind::allocate, 10);
        w.attach(w.allocation_reply(client).session);
        EXPECT_EQ(from_ebcdic(w.accepted(server).user_id), one.shown);
    }
}

TEST(Programs, AreStartedForAnAttachOneForAllOrOneForEach)
{
    config settings = default_config();
    program_entry program;
    program.tp_name = tp_name_bytes("ONE");
    program.command = "/bin/one";
    settings.programs.push_back(program);
    program.tp_name = tp_name_bytes("EACH");
    program.command = "/bin/each";
    program.one_for_all = false;
    settings.programs.push_back(program);
    world w(settings);
    connection_id client = w.program();
    for (const char *name : {"ONE", "ONE", "EACH", "EACH"})
    {
        w.attach(w.allocated(client, name));
    }
    EXPECT_EQ(w.started,
              (std::vector<std::string>{"/bin/one LOCALLU", "/bin/each LOCALLU", "/bin/each LOCALLU"}));
    EXPECT_EQ(w.node.running(tp_name_bytes("EACH")), 2u);

    // It ends without having accepted anything: starting it again would be in vain.
    w.node.program_ended(tp_name_bytes("ONE"), program_end::done, w.clock);
    EXPECT_EQ(w.started.size(), 3u);
    EXPECT_EQ(w.node.running(tp_name_bytes("ONE")), 0u);
    // The next attach tries again; it accepts one and ends: the rest of the queue deserves another.
    w.attach(w.allocated(client, "ONE"));
    EXPECT_EQ(w.started.size(), 4u);
    connection_id server = w.program();
    w.add_name(server, "ONE");
    w.accept(server, {"ONE"});
    w.node.program_ended(tp_name_bytes("ONE"), program_end::failed, w.clock);
    EXPECT_EQ(w.started.size(), 5u);
}

// What becomes of two attaches that wait for a configured program when it ends like this; 0: they wait on.
std::uint32_t sense_after(program_end how, bool served_by_another = false)
{
    config settings = default_config();
    program_entry program;
    program.tp_name = tp_name_bytes("SERVER");
    program.command = "/bin/server";
    settings.programs.push_back(program);
    world w(settings);
    connection_id client = w.program();
    if (served_by_another)
    {
        w.add_name(w.program(), "SERVER");
    }
    session_id first = w.allocated(client, "SERVER");
    session_id second = w.allocated(client, "SERVER");
    w.attach(first);
    w.attach(second);
    w.node.program_ended(program.tp_name, how, w.clock);
    EXPECT_EQ(w.refused[first], w.refused[second]);
    std::uint32_t sense = w.refused[first];
    // The next attach gives the program another chance.
    w.attach(w.allocated(client, "SERVER"));
    EXPECT_EQ(w.started.size(), 2u);
    return sense;
}

TEST(Programs, ThatFailAreNotWaitedFor)
{
    EXPECT_EQ(sense_after(program_end::cannot_start), wire::sense_tp_not_available_no_retry);
    EXPECT_EQ(sense_after(program_end::not_now), wire::sense_tp_not_available_retry);
    EXPECT_EQ(sense_after(program_end::failed), wire::sense_tp_not_available_retry);
    EXPECT_EQ(sense_after(program_end::done), 0u) << "the accepting may be on its way in another process";
    for (program_end how : {program_end::cannot_start, program_end::failed})
    {
        EXPECT_EQ(sense_after(how, true), 0u) << "somebody else serves the name";
    }
}

TEST(Programs, OneForEachAsFarAsThereMayBe)
{
    config settings = default_config();
    program_entry program;
    program.tp_name = tp_name_bytes("EACH");
    program.command = "/bin/each";
    program.one_for_all = false;
    program.most_instances = 2;
    settings.programs.push_back(program);
    world w(settings);
    connection_id client = w.program();
    for (int i = 0; i < 4; ++i)
    {
        w.attach(w.allocated(client, "EACH"));
    }
    EXPECT_EQ(w.started.size(), 2u);
    connection_id server = w.program();
    w.add_name(server, "EACH");
    w.accept(server, {"EACH"});
    EXPECT_EQ(w.started.size(), 2u) << "a process that has accepted still runs";
    w.node.program_ended(program.tp_name, program_end::done, w.clock);
    EXPECT_EQ(w.started.size(), 3u);
    w.node.program_ended(program.tp_name, program_end::done, w.clock);
    EXPECT_EQ(w.started.size(), 4u);
    w.node.program_ended(program.tp_name, program_end::done, w.clock);
    w.node.program_ended(program.tp_name, program_end::done, w.clock);
    EXPECT_EQ(w.started.size(), 4u) << "one for each, and no more";
}

TEST(Programs, OneOfSeveralThatFailsLeavesTheRestTheirChance)
{
    config settings = default_config();
    program_entry program;
    program.tp_name = tp_name_bytes("EACH");
    program.command = "/bin/each";
    program.one_for_all = false;
    settings.programs.push_back(program);
    world w(settings);
    connection_id client = w.program();
    session_id first = w.allocated(client, "EACH");
    session_id second = w.allocated(client, "EACH");
    w.attach(first);
    w.attach(second);
    w.node.program_ended(program.tp_name, program_end::failed, w.clock);
    EXPECT_EQ(w.refused.size(), 0u);
    w.node.program_ended(program.tp_name, program_end::failed, w.clock);
    EXPECT_EQ(w.refused[first], wire::sense_tp_not_available_retry);
    EXPECT_EQ(w.refused[second], wire::sense_tp_not_available_retry);
}

} // namespace
} // namespace test
