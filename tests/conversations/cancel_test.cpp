// cancel_test.cpp - calls that are cancelled by another thread at random moments: before they wait, while they do, as
// they complete, when they are over. CPIC_TEST_SEED gives another series of moments than the usual one.
#include "conversations/harness.hpp"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>
#include <unistd.h>

using namespace conversations;

namespace {

constexpr int rounds = 400;

std::string seed()
{
    const char *text = std::getenv("CPIC_TEST_SEED");
    return text != nullptr ? text : "20011";
}

std::string configuration()
{
    return standard_configuration() + "\n[[mode]]\nname = \"NARROW\"\nsession_limit = 1\n\n[[side_info]]\n"
                                      "destination = \"NARROW\"\npartner_lu = \"LOCALLU\"\ntp_name = \"ECHOSRV\"\n"
                                      "mode = \"NARROW\"\n";
}

std::string cancelling(const std::string &kind)
{
    return "cancel " + kind + " " + std::to_string(rounds) + " " + seed();
}

// Only these codes came, each thing happened `rounds` times.
void expect_codes(const reply &done, const std::set<int> &calls, const std::set<int> &cancels)
{
    ASSERT_EQ(done.rc, 0) << done.line;
    long call_count = 0, cancel_count = 0;
    for (const int code : calls)
        call_count += std::max(0L, done.number("rc" + std::to_string(code)));
    for (const int code : cancels)
        cancel_count += std::max(0L, done.number("cancel" + std::to_string(code)));
    EXPECT_EQ(call_count, rounds) << done.line;
    EXPECT_EQ(cancel_count, rounds) << done.line;
    std::printf("%s\n", done.line.c_str());
}

// Nothing of the program's is left at the node, and its descriptors are as few as before.
void expect_nothing_left(const node &home, tp &program, long descriptors)
{
    const auto conversations_of = [&home] {
        const finished shown = home.control({"show", "conversations", "--json"});
        const auto all = nlohmann::json::parse(shown.output, nullptr, false);
        return all.is_object() || all.is_array() ? all.dump() : "?" + shown.output;
    };
    std::string left;
    for (int i = 0; i < limit_ms(300); ++i)
    {
        left = conversations_of();
        if (left.find("ECHOSRV") == std::string::npos)
            break;
        usleep(10000);
    }
    EXPECT_EQ(left.find("ECHOSRV"), std::string::npos) << left;
    EXPECT_LE(program("open").number("count"), descriptors + 3); // threads that wait at once keep a descriptor each
}

} // namespace

TEST(Cancel, a_receive_that_waits_in_another_thread)
{
    node home(configuration());
    tp client(home), server(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(server("bg answer 4").rc, 0);
    ASSERT_EQ(client("cancel receive 5 1").rc, 0);
    const long descriptors = client("open").number("count");
    // Complete before the cancel, cancelled, or too late to begin.
    expect_codes(client(cancelling("receive"), 120000), {0, 20, 24}, {0});
    EXPECT_EQ(client("clients 1 0 100 ECHO").rc, 0);
    expect_nothing_left(home, client, descriptors);
    server.kill(SIGKILL);
}

TEST(Cancel, a_receive_by_the_end_of_its_context)
{
    node home(configuration());
    tp client(home), server(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(server("bg answer 4").rc, 0);
    ASSERT_EQ(client("cancel term 5 1").rc, 0);
    const long descriptors = client("open").number("count");
    expect_codes(client(cancelling("term"), 120000), {0, 17, 20, 24}, {0});
    expect_nothing_left(home, client, descriptors);
    server.kill(SIGKILL);
}

TEST(Cancel, a_receive_that_is_pending)
{
    node home(configuration());
    tp client(home), server(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(server("bg answer 4").rc, 0);
    ASSERT_EQ(client("cancel pending 5 1").rc, 0);
    const long descriptors = client("open").number("count");
    // 25: the cancelled call was collected by nobody, CMWAIT finds nothing to wait for.
    expect_codes(client(cancelling("pending"), 120000), {0, 20, 24, 25}, {0});
    expect_nothing_left(home, client, descriptors);
    server.kill(SIGKILL);
}

TEST(Cancel, an_accept_while_clients_come)
{
    node home(configuration());
    tp server(home), first(home), second(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    first.send("knock " + std::to_string(limit_ms(1000) / 1000 * 4) + " 1");
    second.send("knock " + std::to_string(limit_ms(1000) / 1000 * 4) + " 2");
    expect_codes(server(cancelling("accept"), 120000), {0, 20, 24}, {0});
    // The name is still served: no attach has been lost to an accept that is gone.
    ASSERT_EQ(server("bg answer 2").rc, 0);
    first.receive(60000);
    second.receive(60000);
    EXPECT_EQ(first("knock 0 1").rc, 0);
    first.send("clients 1 1 10 ECHO");
    first.receive(60000);
    server.kill(SIGKILL);
}

TEST(Cancel, an_allocation_that_waits_for_a_session)
{
    node home(configuration());
    tp client(home), server(home);
    ASSERT_EQ(client("cancel allocation 5 1").rc, 0);
    const long descriptors = client("open").number("count");
    expect_codes(client(cancelling("allocation"), 120000), {0, 20, 24}, {0});
    // Every session has been given back: the one there is can be had, long before an allocation gives up.
    ASSERT_EQ(client("cminit 0 NARROW").rc, 0);
    EXPECT_EQ(client("cmallc 0", 5000).rc, 0);
    EXPECT_EQ(client("cmcanc 0").rc, 0);
    expect_nothing_left(home, client, descriptors);
}
