// answers_test.cpp - long answers to the operator: whole for those who read, bounded for those who do not.
#include "abused_node.hpp"

#include <nlohmann/json.hpp>
#include <unistd.h>

namespace test {
namespace {

using nlohmann::json;

struct answers : abused_node
{
    static constexpr unsigned conversations = 2500;

    void SetUp() override
    {
        node::SetUp();
        start("[node]\nconnections_per_process = 1000\n");
        server.emplace(directory);
        caller.emplace(directory);
        server->greet();
        caller->greet();
        server->add_name("SERVER");
        for (std::uint32_t i = 0; i < conversations; ++i)
        {
            ASSERT_TRUE(server->accept("SERVER", 20 + i));
            received granted = caller->allocate("SERVER", 10 + i);
            send_attach(granted.descriptors.at(0));
            received taken = server->next();
            close(granted.descriptors[0]);
            close(taken.descriptors.at(0));
        }
    }

    std::optional<client> server;
    std::optional<client> caller;
};

TEST_F(answers, AreWholeForThoseWhoRead)
{
    EXPECT_EQ(json::parse(tool({"show", "conversations", "--json"}).out).size(), conversations);
    std::string text = tool({"show", "conversations"}).out;
    EXPECT_EQ(static_cast<unsigned>(std::count(text.begin(), text.end(), '\n')), conversations + 1);
}

TEST_F(answers, ThatNobodyReadsTakeABoundedAmountOfMemory)
{
    std::size_t size = tool({"show", "conversations", "--json"}).out.size();
    long before = broker_memory("VmRSS");
    std::vector<std::unique_ptr<client>> lazy;
    for (int i = 0; i < 60; ++i)
    {
        lazy.push_back(std::make_unique<client>(directory));
        lazy.back()->greet();
        EXPECT_TRUE(lazy.back()->ask("show conversations"));
    }
    expect_service(); // served behind them
    ASSERT_GT(60 * size, 48u << 20) << "the answers are too short to show anything";
#ifndef __SANITIZE_ADDRESS__ // which keeps what has been freed
    EXPECT_LT(broker_memory("VmRSS") - before, 24 << 10) << "kilobytes";
#else
    EXPECT_GT(before, 0);
#endif
    // Those who do not read make room for one who does.
    EXPECT_TRUE(wait_until([&] {
        finished result = tool({"show", "conversations", "--json"});
        json document = json::parse(result.out); // a refusal is one, too
        EXPECT_EQ(result.code != 0, document.is_object() && document.contains("error"));
        return result.code == 0 && document.size() == conversations;
    }));
}

TEST_F(answers, ThatNobodyReadsEndTheirConnections)
{
    client lazy(directory);
    lazy.greet();
    EXPECT_TRUE(lazy.ask("show conversations"));
    EXPECT_TRUE(wait_until([&] {
        return log().find("it does not read the answer that it has asked for") != std::string::npos;
    }));
    EXPECT_TRUE(lazy.closed_by_broker());
    expect_service();
}

} // namespace
} // namespace test
