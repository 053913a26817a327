// operator_test.cpp - the control program where something is in its way: no node, a wrong directory, an answer that
// cannot be written; and its live view.
#include "processes.hpp"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

using nlohmann::json;

const std::vector<std::vector<std::string>> need_a_node = {
    {"stop"},          {"reload"},           {"trace", "on"},      {"trace", "off"},          {"audit", "on"},
    {"audit", "off"},  {"monitor"},          {"show", "lus"},      {"show", "modes"},         {"show", "side-info"},
    {"show", "names"}, {"show", "programs"}, {"show", "startable"}, {"show", "conversations"}, {"show", "attaches"},
};

std::vector<std::string> with_json(std::vector<std::string> command)
{
    command.push_back("--json");
    return command;
}

TEST_F(node, NoNodeIsSaidByEveryCommandThatNeedsOne)
{
    for (const auto &command : need_a_node)
    {
        SCOPED_TRACE(command.back());
        finished result = tool(command);
        EXPECT_EQ(result.code, 3);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.error, "cpicnode: no node is running in " + directory +
                                    "; look at --dir and CPIC_NODE_DIR, or start one with `cpicnode start`\n");
        result = tool(with_json(command));
        EXPECT_EQ(result.code, 3);
        EXPECT_EQ(json::parse(result.out), json({{"state", "stopped"}, {"directory", directory}}));
        EXPECT_EQ(result.error, "");
    }
    finished result = run({CPICNODE, "--dir", directory + "/none", "reload"});
    EXPECT_EQ(result.code, 3);
    EXPECT_NE(result.error.find("/none, which does not exist;"), std::string::npos) << result.error;
}

TEST_F(node, EveryCommandAnswersMachinesInJson)
{
    start();
    for (const auto &command : need_a_node)
    {
        if (command[0] != "stop" && command[0] != "monitor")
        {
            finished result = tool(with_json(command));
            EXPECT_EQ(result.code, 0) << command.back();
            EXPECT_FALSE(json::parse(result.out, nullptr, false).is_discarded()) << result.out;
            EXPECT_EQ(result.error, "");
        }
    }
    EXPECT_EQ(json::parse(tool({"start", "--json"}).out)["result"], "already running");
    EXPECT_EQ(json::parse(tool({"stop", "--json"}).out)["result"], "stopped");
}

TEST_F(node, WrongDirectoryIsNoMissingNode)
{
    std::string file = directory + "/file";
    std::ofstream(file) << "";
    for (const std::vector<std::string> &command :
         {std::vector<std::string>{"status"}, {"stop"}, {"start"}, {"monitor"}, {"show", "lus"}})
    {
        SCOPED_TRACE(command.back());
        std::vector<std::string> whole{CPICNODE, "--dir", file};
        whole.insert(whole.end(), command.begin(), command.end());
        finished result = run(whole);
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.error.find(file), std::string::npos) << result.error;
        result = run(with_json(whole));
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(json::parse(result.out)["error"].get<std::string>().find(file), std::string::npos) << result.out;
        EXPECT_EQ(result.error, "");
    }
    finished result = run({CPICNODE, "--dir", "/tmp/" + std::string(100, 'x'), "status"});
    EXPECT_EQ(result.code, 2);
    EXPECT_NE(result.error.find("longer than the 95 characters"), std::string::npos);
}

TEST_F(node, EmptyArgumentIsNotTheDefault)
{
    EXPECT_EQ(run({CPICNODE, "--dir", "", "status"}).code, 2);
    EXPECT_EQ(tool({"start", "--config", ""}).code, 2);
    EXPECT_EQ(tool({"check", ""}).code, 2);
    EXPECT_FALSE(running());
}

TEST_F(node, WrongArgumentsAreNamedAndWhatIsExpected)
{
    struct
    {
        std::vector<std::string> command;
        const char *text;
        const char *help;
    } const cases[] = {
        {{}, "a command is missing; expected one of start, stop, status, ", "cpicnode"},
        {{"frobnicate"}, "frobnicate is no command here; expected one of start, stop, status, ", "cpicnode"},
        {{"--frobnicate"}, "--frobnicate is no option here; ", "cpicnode"},
        {{"show"}, "a command is missing; expected one of lus, modes, side-info, ", "cpicnode show"},
        {{"show", "frob"}, "frob is no command here; expected one of lus, modes, side-info, ", "cpicnode show"},
        {{"trace", "frob"}, "frob is no command here; expected one of on, off, show", "cpicnode trace"},
        {{"audit", "show"}, "show", "cpicnode audit"},
        {{"status", "extra"}, "extra", "cpicnode status"},
        {{"check"}, "config is required", "cpicnode check"},
        {{"problems", "-n", "-1"}, "it is -1, and must be a whole number", "cpicnode problems"},
        {{"trace", "show", "-n", "x"}, "it is x, and must be a whole number", "cpicnode trace show"},
        {{"start", "--idle", "nan"}, "it is nan, and must be a number of seconds", "cpicnode start"},
        {{"monitor", "--for", "-1"}, "it is -1, and must be a number of seconds", "cpicnode monitor"},
    };
    for (const auto &one : cases)
    {
        SCOPED_TRACE(one.text);
        finished result = tool(one.command);
        EXPECT_EQ(result.code, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.error.find("cpicnode: "), 0u);
        EXPECT_NE(result.error.find(one.text), std::string::npos) << result.error;
        EXPECT_TRUE(result.error.ends_with(std::string("\nrun `") + one.help + " --help` for more\n")) << result.error;
    }
}

TEST_F(node, FailedStartIsOneDocument)
{
    std::string file = write_config("[node]\ntrace = 1\n");
    finished result = tool({"start", "--json", "--config", file});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(json::parse(result.out)["error"], file + ":2:9: trace is a number, expected true or false\n"
                                                       "the node does not start with mistakes in its configuration");
    EXPECT_EQ(result.error, "");
    result = run({CPICNODE, "--dir", directory, "--json", "start"}, {"CPIC_NODED=/does/not/exist"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(json::parse(result.out)["error"].get<std::string>().find("/does/not/exist"), std::string::npos);
}

TEST_F(node, CheckTakesAFileOfAnyName)
{
    std::filesystem::current_path(directory);
    std::ofstream("--start") << "";
    finished result = tool({"check", "--", "--start"});
    EXPECT_EQ(result.code, 0) << result.error;
    EXPECT_EQ(result.out, "--start: a node can use it\n");
    std::filesystem::current_path("/");
    result = tool({"check", directory + "/none.toml", "--json"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(json::parse(result.out)["errors"].size(), 1u);
    EXPECT_FALSE(running());
}

TEST_F(node, AnswerThatCannotBeWrittenIsNoSuccess)
{
    start();
    std::ofstream(directory + "/problem.log") << "one\n";
    for (const std::string command : {"status", "status --json", "show modes", "problems", "problems --json",
                                      "problems -f", "trace show", "audit", "trace on", "--help", "stop", "start"})
    {
        SCOPED_TRACE(command);
        for (const char *place : {"> /dev/full", ">&-"})
        {
            if (command == "stop")
            {
                start();
            }
            finished result = run({"/bin/sh", "-c", CPICNODE " --dir " + directory + " " + command + " " + place});
            EXPECT_EQ(result.code, 1) << place;
            EXPECT_NE(result.error.find("the answer cannot be written"), std::string::npos) << place << result.error;
        }
    }
    EXPECT_EQ(run({"/bin/sh", "-c", CPICNODE " check " + write_config("") + " > /dev/full"}).code, 1);
}

TEST_F(node, MonitorShowsConversationsThatCome)
{
    start();
    client caller(directory);
    caller.greet();
    received granted = caller.allocate("SERVER");
    finished result = tool({"monitor", "--for", "0.1", "--json"});
    EXPECT_EQ(result.code, 0);
    json line = json::parse(result.out.substr(0, result.out.find('\n')));
    EXPECT_EQ(line["event"], "new");
    EXPECT_EQ(line["tp_name"], "SERVER");
    EXPECT_EQ(line["state"], "allocated");
    EXPECT_EQ(line["time"].get<std::string>().size(), std::string("2026-01-31T23:59:59.123456+00:00").size());
    result = run({"/bin/sh", "-c", CPICNODE " --dir " + directory + " monitor > /dev/full"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.error.find("the answer cannot be written"), std::string::npos) << result.error;
    close(granted.descriptors.at(0));
    EXPECT_EQ(tool({"stop"}).code, 0);
    EXPECT_EQ(tool({"monitor"}).code, 3);
}

TEST_F(node, MonitorEndsWithItsReader)
{
    start();
    watched monitor({CPICNODE, "--dir", directory, "monitor"});
    EXPECT_EQ(monitor.stop_reading(), 1) << "nothing has happened that it would have written";
}

// A conversation from its allocation to the end of both sides.
void converse(client &caller, client &server)
{
    ASSERT_TRUE(server.accept("SERVER"));
    received granted = caller.allocate("SERVER");
    send_attach(granted.descriptors.at(0));
    received taken = server.next();
    wire::ended over{};
    over.session = granted.as<wire::allocated>(wire::message_kind::allocated).session;
    ASSERT_TRUE(caller.say(over, wire::message_kind::ended, 0));
    ASSERT_TRUE(server.say(over, wire::message_kind::ended, 0));
    close(granted.descriptors[0]);
    close(taken.descriptors.at(0));
}

TEST_F(node, MonitorCountsConversationsThatNoLookHasMet)
{
    constexpr int count = 20;
    start();
    client caller(directory);
    client server(directory);
    caller.greet();
    server.greet();
    server.add_name("SERVER");
    converse(caller, server); // over before the first look: no matter
    ASSERT_TRUE(wait_until([&] { return tool({"show", "conversations"}).out == "none\n"; }));

    received stays = caller.allocate("SERVER");
    watched monitor({CPICNODE, "--dir", directory, "monitor", "--json"});
    EXPECT_EQ(json::parse(monitor.line())["event"], "new");
    send_attach(stays.descriptors.at(0)); // queued: the monitor looks and counts
    EXPECT_EQ(json::parse(monitor.line())["state"], "queued");

    // While the monitor looks the other way.
    kill(monitor.pid(), SIGSTOP);
    int status = 0;
    ASSERT_EQ(waitpid(monitor.pid(), &status, WUNTRACED), monitor.pid());
    ASSERT_TRUE(WIFSTOPPED(status));
    ASSERT_TRUE(server.accept("SERVER", 30));
    received taken = server.next(); // the one that was queued: changed, not unseen
    for (int i = 0; i < count; ++i)
    {
        converse(caller, server);
    }
    ASSERT_TRUE(wait_until([&] {
        return json::parse(tool({"show", "conversations", "--json"}).out).size() == 1;
    }));
    kill(monitor.pid(), SIGCONT);
    int unseen = 0;
    bool changed = false;
    while (unseen < count || !changed)
    {
        json event = json::parse(monitor.line(), nullptr, false);
        ASSERT_TRUE(event.is_object());
        changed = changed || event["event"] == "changed";
        unseen += event["event"] == "unseen" ? event["conversations"].get<int>() : 0;
    }
    EXPECT_EQ(unseen, count);
    close(stays.descriptors[0]);
    close(taken.descriptors.at(0));
}

} // namespace
} // namespace test
