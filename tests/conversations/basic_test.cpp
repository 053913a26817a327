// basic_test.cpp - basic conversations between real programs: logical records as the program wrote them, each begun by
// its two length bytes.
#include "conversations/harness.hpp"

#include <gtest/gtest.h>

using namespace conversations;

namespace {

// As converse(), with a basic conversation; no data has crossed yet.
void converse_basic(tp &client, tp &server)
{
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("cmaccp 0");
    ASSERT_EQ(client("cminit 0 ECHO").rc, 0);
    ASSERT_EQ(client("set cmsct 0 0").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    ASSERT_EQ(server.receive().rc, 0);
    EXPECT_EQ(server("ask cmect 0").number("value"), 0); // the server has learnt the type
}

} // namespace

TEST(Basic, records_are_received_one_by_one)
{
    node home;
    tp server(home), client(home);
    converse_basic(client, server);
    ASSERT_EQ(client("cmhex 0 000661626364000568656c").rc, 0); // two records in one send
    ASSERT_EQ(client("cmflus 0").rc, 0);
    const reply first = server("cmrcv 0 100");
    EXPECT_EQ(first.rc, 0);
    EXPECT_EQ(first.number("data"), 2);
    EXPECT_EQ(first.text("hex"), "000661626364");
    EXPECT_EQ(server("cmrcv 0 100").text("hex"), "000568656c");
}

TEST(Basic, a_record_may_be_sent_in_pieces)
{
    node home;
    tp server(home), client(home);
    converse_basic(client, server);
    for (const char *piece : {"00", "08", "6162", "63646566"})
        ASSERT_EQ(client(std::string("cmhex 0 ") + piece).rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    const reply got = server("cmrcv 0 100");
    EXPECT_EQ(got.number("data"), 2);
    EXPECT_EQ(got.text("hex"), "0008616263646566");
}

TEST(Basic, a_record_may_be_received_in_pieces)
{
    node home;
    tp server(home), client(home);
    converse_basic(client, server);
    ASSERT_EQ(client("cmhex 0 0008616263646566").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    const reply first = server("cmrcv 0 5");
    EXPECT_EQ(first.number("data"), 3); // incomplete
    EXPECT_EQ(first.text("hex"), "0008616263");
    const reply rest = server("cmrcv 0 5");
    EXPECT_EQ(rest.number("data"), 2);
    EXPECT_EQ(rest.text("hex"), "646566");
}

TEST(Basic, received_by_buffer_the_boundaries_do_not_matter)
{
    node home;
    tp server(home), client(home);
    converse_basic(client, server);
    ASSERT_EQ(server("set cmsf 0 1").rc, 0);
    ASSERT_EQ(client("cmhex 0 000461620004636400046566").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    const reply first = server("cmrcv 0 7");
    EXPECT_EQ(first.number("data"), 1); // data received
    EXPECT_EQ(first.text("hex"), "00046162000463");
    EXPECT_EQ(server("cmrcv 0 5").text("hex"), "6400046566");
}

TEST(Basic, a_length_that_no_record_has_is_refused_and_the_conversation_lives_on)
{
    node home;
    tp server(home), client(home);
    converse_basic(client, server);
    EXPECT_EQ(client("cmhex 0 000161").rc, 24);
    ASSERT_EQ(client("cmhex 0 00036f").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("hex"), "00036f");
}

TEST(Basic, the_turn_cannot_be_given_and_nothing_deallocated_inside_a_record)
{
    node home;
    tp server(home), client(home);
    converse_basic(client, server);
    ASSERT_EQ(client("cmhex 0 000861").rc, 0);
    EXPECT_EQ(client("cmdeal 0").rc, 25);
    EXPECT_EQ(client("cmrcv 0 100").rc, 25);
    ASSERT_EQ(client("cmhex 0 6263646566").rc, 0);
    EXPECT_EQ(client("cmdeal 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("hex"), "0008616263646566");
    EXPECT_EQ(server("cmrcv 0 100").rc, 18);
}

TEST(Basic, abend_inside_a_record_reaches_the_partner)
{
    node home;
    tp server(home), client(home);
    converse_basic(client, server);
    ASSERT_EQ(client("cmhex 0 000861").rc, 0);
    ASSERT_EQ(client("set cmsdt 0 3").rc, 0);
    EXPECT_EQ(client("cmdeal 0").rc, 0);
    const reply all = server("rcvall 0");
    EXPECT_EQ(all.rc, 17);
}
