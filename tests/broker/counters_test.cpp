// counters_test.cpp - the counters that programs share with the broker: what is shown of them, and what a program
// that lies with them can do.
#include "processes.hpp"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sys/mman.h>
#include <unistd.h>

namespace test {
namespace {

using nlohmann::json;

// A table as a program makes it, of any size and with any seals.
struct table_of_program
{
    explicit table_of_program(off_t size = sizeof(wire::counter_table),
                              int seals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL)
        : fd(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING))
    {
        EXPECT_EQ(ftruncate(fd, size), 0);
        EXPECT_EQ(fcntl(fd, F_ADD_SEALS, seals), 0);
        void *memory = mmap(nullptr, sizeof *content, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        EXPECT_NE(memory, MAP_FAILED);
        content = static_cast<wire::counter_table *>(memory);
    }
    ~table_of_program()
    {
        munmap(content, sizeof *content);
        close(fd);
    }

    int fd;
    wire::counter_table *content;
};

bool say_hello(client &program, std::span<const int> descriptors)
{
    wire::hello hello{};
    hello.version = wire::protocol_version;
    std::strcpy(hello.program, "counting");
    return program.say(hello, wire::message_kind::hello, 1, descriptors);
}

// The greeting with a table; the control page is not needed.
void greet_with(client &program, const table_of_program &table)
{
    ASSERT_TRUE(say_hello(program, {&table.fd, 1}));
    received answer = program.next();
    answer.as<wire::welcome>(wire::message_kind::welcome);
    for (int fd : answer.descriptors)
    {
        close(fd);
    }
}

struct counters : node
{
    // A conversation between two programs, by its number; the sockets are closed at the end of the test.
    std::uint32_t converse(client &from, client &to)
    {
        to.add_name("SERVER");
        received granted = from.allocate("SERVER");
        send_attach(granted.descriptors.at(0));
        EXPECT_TRUE(to.accept("SERVER"));
        received taken = to.next();
        auto reply = taken.as<wire::accepted>(wire::message_kind::accepted);
        sockets.insert(sockets.end(), granted.descriptors.begin(), granted.descriptors.end());
        sockets.insert(sockets.end(), taken.descriptors.begin(), taken.descriptors.end());
        return reply.session;
    }

    json row()
    {
        json rows = json::parse(tool({"show", "conversations", "--json"}).out, nullptr, false);
        return rows.is_array() && rows.size() == 1 ? rows[0] : json();
    }

    std::size_t broker_descriptors() const
    {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto &entry :
             std::filesystem::directory_iterator("/proc/" + std::to_string(broker_pid()) + "/fd"))
        {
            ++count;
        }
        return count;
    }

    std::size_t broker_mappings() const
    {
        std::ifstream maps("/proc/" + std::to_string(broker_pid()) + "/maps");
        std::size_t count = 0;
        for (std::string line; std::getline(maps, line);)
        {
            count += line.find("memfd:test") != std::string::npos;
        }
        return count;
    }

    void TearDown() override
    {
        for (int fd : sockets)
        {
            close(fd);
        }
        node::TearDown();
    }

    std::vector<int> sockets;
};

TEST_F(counters, MonitorShowsWhatMovesAndNotThatSomebodyNoLongerCounts)
{
    start();
    table_of_program mine;
    table_of_program theirs;
    client from(directory);
    client to(directory);
    greet_with(from, mine);
    greet_with(to, theirs);
    std::uint32_t number = converse(from, to);
    mine.content->used = 1;
    mine.content->slots[0] = {number, 1, 1, {}, 100, 20, {}};
    theirs.content->used = 1;
    theirs.content->slots[0] = {number, 2, 0, {}, 30, 90, {}};
    watched monitor({CPICNODE, "--dir", directory, "monitor", "--json"});
    auto next = [&] { return json::parse(monitor.line(), nullptr, false); };
    EXPECT_EQ(next()["event"], "new");
    mine.content->slots[0].sent = 110;
    json event = next();
    EXPECT_EQ(event["event"], "moved");
    EXPECT_EQ(event["from_bytes"], 110);
    from.close();
    ASSERT_TRUE(wait_until([&] { return row()["from_state"].is_null(); }));
    EXPECT_EQ(row()["from_bytes"], 90);
    // The monitor looks meanwhile, and has nothing to say until something moves; two looks are sure to be between.
    client late(directory);
    late.greet();
    for (int i = 0; i < 2; ++i)
    {
        received granted = late.allocate("OTHER");
        sockets.insert(sockets.end(), granted.descriptors.begin(), granted.descriptors.end());
        event = next();
        EXPECT_EQ(event["event"], "new");
        EXPECT_EQ(event["tp_name"], "OTHER");
    }
    theirs.content->slots[0].sent = 31;
    event = next();
    EXPECT_EQ(event["event"], "moved");
    EXPECT_EQ(event["to_bytes"], 31);
    theirs.content->slots[0].state = 5;
    event = next();
    EXPECT_EQ(event["event"], "moved");
    EXPECT_EQ(event["to_state"], "confirm deallocate");
}

TEST_F(counters, BothEndsAreShown)
{
    start();
    table_of_program mine;
    table_of_program theirs;
    client from(directory);
    client to(directory);
    greet_with(from, mine);
    greet_with(to, theirs);
    std::uint32_t number = converse(from, to);
    mine.content->used = 3;
    mine.content->slots[2] = {number, 1, 1, {}, 5'000'000'000, 20, {}};
    theirs.content->used = 1;
    theirs.content->slots[0] = {number, 5, 0, {}, 30, 4'999'999'000, {}};
    json shown = row();
    EXPECT_EQ(shown["number"], number);
    EXPECT_EQ(shown["from_state"], "send");
    EXPECT_EQ(shown["to_state"], "confirm deallocate");
    EXPECT_EQ(shown["from_bytes"], 5'000'000'000);
    EXPECT_EQ(shown["to_bytes"], 30);
    EXPECT_GE(shown["state_seconds"], 0.0);
    EXPECT_GE(shown["age_seconds"].get<double>(), shown["state_seconds"].get<double>());
    std::string text = tool({"show", "conversations"}).out;
    EXPECT_NE(text.find("confirm deallocate"), std::string::npos) << text;
    EXPECT_NE(text.find("5000000000"), std::string::npos) << text;
    std::string seen = tool({"monitor", "--for", "0.1"}).out;
    EXPECT_NE(seen.find("send 5000000000 bytes"), std::string::npos) << seen;
    mine.content->slots[2].session = 0;
    shown = row();
    EXPECT_TRUE(shown["from_state"].is_null());
    EXPECT_EQ(shown["from_bytes"], 4'999'999'000) << "what the partner has received says the most then";
}

TEST_F(counters, AProgramWithoutThemIsServed)
{
    start();
    client from(directory);
    client to(directory);
    from.greet();
    to.greet();
    std::uint32_t number = converse(from, to);
    json shown = row();
    EXPECT_EQ(shown["number"], number);
    EXPECT_TRUE(shown["from_state"].is_null());
    EXPECT_TRUE(shown["to_bytes"].is_null());
}

TEST_F(counters, OthersConversationsCannotBeSpokenOf)
{
    start();
    table_of_program lies;
    client from(directory);
    client to(directory);
    client liar(directory);
    from.greet();
    to.greet();
    greet_with(liar, lies);
    std::uint32_t number = converse(from, to);
    lies.content->used = 0xFFFFFFFF; // more than the table has
    for (std::uint32_t i = 0; i < wire::counter_slots; ++i)
    {
        lies.content->slots[i] = {i % 2 == 0 ? number : i, 200, static_cast<std::uint8_t>(i / 2 % 2), {}, 1, 1, {}};
    }
    json shown = row();
    EXPECT_EQ(shown["number"], number);
    EXPECT_TRUE(shown["from_state"].is_null());
    EXPECT_TRUE(shown["to_state"].is_null());
    EXPECT_TRUE(shown["from_bytes"].is_null());
}

TEST_F(counters, AStateThatIsNoneIsShownAsUnknown)
{
    start();
    table_of_program mine;
    client from(directory);
    client to(directory);
    greet_with(from, mine);
    to.greet();
    std::uint32_t number = converse(from, to);
    mine.content->used = 1;
    mine.content->slots[0] = {number, 77, 1, {}, ~std::uint64_t{0}, 0, {}};
    json shown = row();
    EXPECT_EQ(shown["from_state"], "unknown");
    EXPECT_EQ(shown["from_bytes"], ~std::uint64_t{0});
}

// What could be made shorter later would kill the broker when it looks.
TEST_F(counters, ATableThatIsNoneEndsItsConnection)
{
    start();
    std::size_t before = broker_descriptors();
    std::string path = directory + "/file";
    std::ofstream(path) << std::string(sizeof(wire::counter_table), '\0');
    int plain = open(path.c_str(), O_RDWR | O_CLOEXEC);
    table_of_program unsealed(sizeof(wire::counter_table), F_SEAL_GROW);
    table_of_program too_short(4096);
    table_of_program too_long(2 * sizeof(wire::counter_table));
    for (int fd : {plain, unsealed.fd, too_short.fd, too_long.fd, STDERR_FILENO})
    {
        client bad(directory);
        ASSERT_TRUE(say_hello(bad, {&fd, 1}));
        EXPECT_TRUE(bad.closed_by_broker());
    }
    table_of_program good;
    client two(directory);
    const int twice[] = {good.fd, good.fd};
    ASSERT_TRUE(say_hello(two, twice));
    EXPECT_TRUE(two.closed_by_broker());
    client late(directory);
    late.greet();
    ASSERT_TRUE(late.say(wire::find_lu{}, wire::message_kind::find_lu, 5, {&good.fd, 1}));
    EXPECT_TRUE(late.closed_by_broker());
    close(plain);
    EXPECT_TRUE(wait_until([&] { return broker_descriptors() <= before; }));
    EXPECT_EQ(tool({"status"}).code, 0);
}

TEST_F(counters, TheTableGoesWithItsProgram)
{
    start();
    table_of_program mine;
    {
        client without(directory);
        without.greet(); // the broker has taken the connection
        std::size_t before = broker_descriptors();
        client program(directory);
        greet_with(program, mine);
        EXPECT_TRUE(wait_until([&] { return broker_descriptors() == before + 1; }))
            << "the connection, and no descriptor of the table: " << before << " before, now " << broker_descriptors();
        EXPECT_EQ(broker_mappings(), 1u);
    }
    EXPECT_TRUE(wait_until([&] { return broker_mappings() == 0; }));
}

} // namespace
} // namespace test
