// programs_test.cpp - broker and control program as people and transaction programs meet them.
#include "processes.hpp"

#include <crypt.h>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace test {
namespace {

using nlohmann::json;

TEST_F(node, StartStatusStop)
{
    finished result = tool({"status"});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.out, "no node is running in " + directory + "\n");
    result = tool({"stop"});
    EXPECT_EQ(result.code, 3);

    result = tool({"start"});
    ASSERT_EQ(result.code, 0) << result.error;
    pid_t pid = broker_pid();
    EXPECT_EQ(result.out, "a node runs in " + directory + " (process " + std::to_string(pid) + ")\n");
    result = tool({"start"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "a node is already running in " + directory + " (process " + std::to_string(pid) + ")\n");
    result = tool({"status", "--json"});
    EXPECT_EQ(result.code, 0);
    json document = json::parse(result.out);
    EXPECT_EQ(document["state"], "running");
    EXPECT_EQ(document["pid"], pid);
    EXPECT_EQ(document["directory"], directory);
    EXPECT_EQ(document["configuration"], "built in");
    EXPECT_EQ(document["programs"], 0);

    result = tool({"stop"});
    EXPECT_EQ(result.code, 0);
    EXPECT_FALSE(running());
    EXPECT_FALSE(std::filesystem::exists(directory + "/broker.sock"));
    result = tool({"status", "--json"});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(json::parse(result.out)["state"], "stopped");
}

TEST_F(node, WrongArgumentsHaveTheirOwnExitCode)
{
    EXPECT_EQ(tool({}).code, 2);
    EXPECT_EQ(tool({"frobnicate"}).code, 2);
    EXPECT_EQ(tool({"show"}).code, 2);
    EXPECT_EQ(tool({"start", "--idle", "-1"}).code, 2);
    EXPECT_EQ(tool({"check"}).code, 2);
    EXPECT_EQ(tool({"--help"}).code, 0);
    EXPECT_EQ(broker({"--frobnicate"}).code, 2);
    EXPECT_EQ(broker({"--help"}).code, 0);
}

TEST_F(node, StartLeavesTheCallersSurroundings)
{
    int extra[2];
    ASSERT_EQ(pipe(extra), 0); // not close-on-exec: the broker inherits both ends, and must let go
    start();
    close(extra[1]);
    char byte;
    EXPECT_EQ(read(extra[0], &byte, 1), 0) << "the broker holds a descriptor of its caller";
    close(extra[0]);
    std::string process = "/proc/" + std::to_string(broker_pid());
    EXPECT_EQ(std::filesystem::read_symlink(process + "/cwd"), "/");
    EXPECT_EQ(getsid(broker_pid()), broker_pid());
    EXPECT_EQ(std::filesystem::read_symlink(process + "/fd/0"), "/dev/null");
    EXPECT_EQ(std::filesystem::read_symlink(process + "/fd/2"), directory + "/broker.log");
}

TEST_F(node, WorksWithoutAnyStandardDescriptor)
{
    pid_t pid = fork();
    if (pid == 0)
    {
        close(0);
        close(1);
        close(2);
        execl(CPICNODED, CPICNODED, "--dir", directory.c_str(), "--start", nullptr);
        _exit(127);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
    client one(directory);
    EXPECT_EQ(one.greet().status.primary, wire::rc_ok);
}

TEST_F(node, OneBrokerForADirectoryHoweverManyAreStarted)
{
    std::vector<std::thread> starters;
    std::vector<finished> results(10);
    for (finished &result : results)
    {
        starters.emplace_back([&] { result = broker({"--start"}); });
    }
    for (std::thread &starter : starters)
    {
        starter.join();
    }
    int already = 0;
    for (const finished &result : results)
    {
        EXPECT_EQ(result.code, 0) << result.error;
        already += !result.out.empty();
    }
    EXPECT_EQ(already, 9);
    finished result = broker({});
    EXPECT_EQ(result.code, 3);
    EXPECT_NE(result.error.find("already running"), std::string::npos);
}

TEST_F(node, KilledBrokersSocketIsReplaced)
{
    start();
    pid_t killed = broker_pid();
    kill(killed, SIGKILL);
    ASSERT_TRUE(wait_until([&] { return !running(); }));
    ASSERT_TRUE(std::filesystem::exists(directory + "/broker.sock"));
    EXPECT_EQ(tool({"status"}).code, 3);
    start();
    EXPECT_NE(broker_pid(), killed);
    EXPECT_EQ(tool({"status"}).code, 0);
}

TEST_F(node, BrokenConfigurationStartsNothingAndSaysWhy)
{
    std::string file = write_config("[node]\ntrace = 1\n");
    std::string message = file + ":2:9: trace is a number, expected true or false";
    for (bool by_tool : {false, true})
    {
        finished result = by_tool ? tool({"start", "--config", file}) : broker({"--start", "--config", file});
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.error.find(message), std::string::npos) << result.error;
        EXPECT_FALSE(running());
    }
    EXPECT_NE(log().find(message), std::string::npos);
    finished result = broker({"--config", file});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.error.find(message), std::string::npos);
    result = broker({"--start", "--config", directory + "/none.toml"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.error.find("none.toml: cannot be opened"), std::string::npos);
}

TEST_F(node, ConfigurationIsFoundInItsDirectoryOrByTheEnvironment)
{
    std::ofstream(directory + "/node.toml") << "[node]\nname = \"HERE\"\n";
    start();
    EXPECT_EQ(json::parse(tool({"status", "--json"}).out)["node"], "HERE");
    EXPECT_EQ(tool({"stop"}).code, 0);
    std::string other = write_config("[node]\nname = \"THERE\"\n");
    finished result = run({CPICNODED, "--start"}, {"CPIC_NODE_DIR=" + directory, "CPIC_NODE_CONFIG=" + other});
    EXPECT_EQ(result.code, 0) << result.error;
    result = run({CPICNODE, "status", "--json"}, {"CPIC_NODE_DIR=" + directory});
    EXPECT_EQ(json::parse(result.out)["node"], "THERE");
    EXPECT_EQ(json::parse(result.out)["configuration"], other);
}

TEST_F(node, DirectoryRule)
{
    finished result = run({CPICNODE, "status"}, {"XDG_RUNTIME_DIR=" + directory});
    EXPECT_EQ(result.out, "no node is running in " + directory + "/cpicnode\n");
    result = run({CPICNODE, "status"});
    EXPECT_EQ(result.out.find("no node is running in /tmp/cpicnode-" + std::to_string(geteuid())) == 0 ||
                  result.code == 0,
              true);
    result = run({CPICNODE, "status"}, {"CPIC_NODE_DIR=relative"});
    EXPECT_EQ(result.code, 1);
    result = run({CPICNODED, "--start"}, {"CPIC_NODE_DIR=/tmp/" + std::string(100, 'x')});
    EXPECT_EQ(result.code, 1);
}

TEST_F(node, DirectoryMustBePrivate)
{
    chmod(directory.c_str(), 0777);
    finished result = broker({"--start"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.error.find("users beside its owner may write to it"), std::string::npos);
    chmod(directory.c_str(), 0700);
    ASSERT_EQ(symlink(directory.c_str(), (directory + "/link").c_str()), 0);
    result = run({CPICNODED, "--start", "--dir", directory + "/link"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.error.find("not a directory"), std::string::npos);
    result = run({CPICNODED, "--start", "--dir", directory + "/none/at/all"});
    EXPECT_EQ(result.code, 1);
    // One that is missing is made.
    std::string made = directory + "/made";
    result = run({CPICNODED, "--start", "--dir", made, "--idle", "0.01"});
    EXPECT_EQ(result.code, 0) << result.error;
    struct stat status;
    ASSERT_EQ(stat(made.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    EXPECT_TRUE(wait_until([&] { return !std::filesystem::exists(made + "/broker.sock"); }));
}

TEST_F(node, LeavesWhenItHasBeenIdleAndNotBefore)
{
    finished result = broker({"--start", "--idle", "0.2"});
    ASSERT_EQ(result.code, 0);
    client one(directory);
    one.greet();
    sleep_ms(500);
    EXPECT_TRUE(running()) << "a program is connected";
    one.close();
    EXPECT_TRUE(wait_until([&] { return !running(); }));
    EXPECT_FALSE(std::filesystem::exists(directory + "/broker.sock"));
}

TEST_F(node, LeavingNeverDropsSomebodyWhoHasConnected)
{
    // Programs come all the time, each just about when the broker wants to leave. Whoever connects gets an answer.
    int answered = 0;
    int gone_before = 0;
    int idle = 2000; // microseconds
    for (int starts = 0; starts < 80 && (answered < 200 || gone_before < 20); ++starts)
    {
        ASSERT_EQ(broker({"--start", "--idle", std::to_string(idle / 1e6)}).code, 0);
        int served = 0;
        for (int step = 0; step < 20; ++step)
        {
            client one(directory);
            if (!one.connected())
            {
                ++gone_before;
                break;
            }
            EXPECT_EQ(one.greet().status.primary, wire::rc_ok);
            ++served;
            one.close();
            usleep(static_cast<useconds_t>(idle - 500 + 50 * step));
        }
        answered += served;
        idle = served == 0 ? idle * 2 : std::max(2000, idle - 500); // a slow machine needs longer to come back
    }
    EXPECT_GT(answered, 0);
    EXPECT_TRUE(wait_until([&] { return !running(); }));
}

TEST_F(node, EndsOnSignalsAndReadsItsConfigurationOnHangup)
{
    start("[node]\nname = \"A\"\n");
    write_config("[node]\nname = \"B\"\n");
    kill(broker_pid(), SIGHUP);
    EXPECT_TRUE(wait_until([&] { return json::parse(tool({"status", "--json"}).out)["node"] == "B"; }));
    kill(broker_pid(), SIGTERM);
    EXPECT_TRUE(wait_until([&] { return !running(); }));
    EXPECT_FALSE(std::filesystem::exists(directory + "/broker.sock"));
}

TEST_F(node, ReloadTakesAGoodFileAndKeepsWhatItHadOtherwise)
{
    start("[node]\nname = \"A\"\n");
    int page = -1;
    client one(directory);
    one.greet(&page);
    const auto *shared = static_cast<const wire::control_page *>(
        mmap(nullptr, wire::control_page_size, PROT_READ, MAP_SHARED, page, 0));
    ASSERT_NE(shared, MAP_FAILED);
    EXPECT_EQ(shared->config_generation, 1u);

    std::string file = write_config("[node]\nname = 5\n");
    finished result = tool({"reload"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.error.find(file + ":2:8: name is a number"), std::string::npos) << result.error;
    EXPECT_EQ(json::parse(tool({"status", "--json"}).out)["node"], "A");
    EXPECT_EQ(shared->config_generation, 1u);

    write_config("[node]\nname = \"B\"\ntrace_file_limit = 12345\n[[lu]]\nalias = \"NEW\"\nname = \"N.NEW\"\n");
    received session = one.allocate("SERVER"); // LOCALLU is in use now
    ASSERT_EQ(session.descriptors.size(), 1u);
    result = tool({"reload", "--json"});
    EXPECT_EQ(result.code, 0) << result.error;
    json document = json::parse(result.out);
    EXPECT_EQ(document["not_changed"], json::array({"LU LOCALLU has conversations and stays"}));
    EXPECT_EQ(json::parse(tool({"status", "--json"}).out)["node"], "B");
    EXPECT_EQ(shared->config_generation, 2u);
    EXPECT_EQ(shared->trace_file_limit, 12345u);
    close(session.descriptors[0]);
    munmap(const_cast<wire::control_page *>(shared), wire::control_page_size);
    close(page);
}

TEST_F(node, TraceAndAuditSwitchesReachProgramsAtOnceAndOnlyTheBrokerCanThrowThem)
{
    start();
    int page = -1;
    client one(directory);
    one.greet(&page);
    auto *shared = static_cast<volatile unsigned char *>(
        mmap(nullptr, wire::control_page_size, PROT_READ, MAP_SHARED, page, 0));
    ASSERT_NE(const_cast<unsigned char *>(shared), MAP_FAILED);
    EXPECT_EQ(shared[0] & 0x20, 0);
    EXPECT_EQ(shared[8] & 0x02, 0);
    EXPECT_EQ(tool({"trace", "on"}).code, 0);
    EXPECT_EQ(shared[0], 0x20);
    EXPECT_EQ(tool({"audit", "off"}).code, 0);
    EXPECT_EQ(shared[8], 0x02);
    EXPECT_EQ(tool({"trace", "off"}).code, 0);
    EXPECT_EQ(tool({"audit", "on"}).code, 0);
    EXPECT_EQ(shared[0] | shared[8], 0);

    EXPECT_EQ(mmap(nullptr, wire::control_page_size, PROT_READ | PROT_WRITE, MAP_SHARED, page, 0), MAP_FAILED);
    std::string again = "/proc/self/fd/" + std::to_string(page);
    int writer = open(again.c_str(), O_RDWR);
    if (writer >= 0) // root may open it; the seals hold all the same
    {
        EXPECT_EQ(mmap(nullptr, wire::control_page_size, PROT_READ | PROT_WRITE, MAP_SHARED, writer, 0), MAP_FAILED);
        EXPECT_LT(write(writer, "x", 1), 0);
        EXPECT_NE(ftruncate(writer, 0), 0);
        close(writer);
    }
    close(page);
}

TEST_F(node, ConversationFromAllocateToTheEndOfBothSides)
{
    start();
    client server(directory);
    client caller(directory);
    server.greet();
    caller.greet();
    server.add_name("SERVER");
    ASSERT_TRUE(server.accept("SERVER"));
    received granted = caller.allocate("SERVER");
    auto allocated = granted.as<wire::allocated>(wire::message_kind::allocated);
    ASSERT_EQ(granted.descriptors.size(), 1u);
    EXPECT_EQ(fcntl(granted.descriptors[0], F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    send_attach(granted.descriptors[0], "and what follows");
    received taken = server.next();
    auto accepted = taken.as<wire::accepted>(wire::message_kind::accepted);
    EXPECT_EQ(accepted.session, allocated.session);
    ASSERT_EQ(taken.descriptors.size(), 1u);
    EXPECT_EQ(read_bytes(taken.descriptors[0], 16), "and what follows");
    ASSERT_EQ(send(taken.descriptors[0], "answer", 6, 0), 6);
    EXPECT_EQ(read_bytes(granted.descriptors[0], 6), "answer");

    finished result = tool({"show", "conversations", "--json"});
    json rows = json::parse(result.out);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0]["state"], "connected");
    EXPECT_EQ(rows[0]["tp_name"], "SERVER");
    EXPECT_EQ(rows[0]["from_pid"], getpid());
    rows = json::parse(tool({"show", "names", "--json"}).out);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0]["tp_name"], "SERVER");
    rows = json::parse(tool({"show", "lus", "--json"}).out);
    EXPECT_EQ(rows[0]["sessions"], 1);

    wire::ended over{};
    over.session = allocated.session;
    ASSERT_TRUE(caller.say(over, wire::message_kind::ended, 0));
    ASSERT_TRUE(server.say(over, wire::message_kind::ended, 0));
    EXPECT_TRUE(wait_until([&] { return tool({"show", "conversations"}).out == "none\n"; }));
    close(granted.descriptors[0]);
    close(taken.descriptors[0]);
}

TEST_F(node, AttachForNobodyIsRefusedOverTheConversation)
{
    start("[node]\nattach_wait_seconds = 0.05\n");
    client caller(directory);
    caller.greet();
    received granted = caller.allocate("NOBODY");
    send_attach(granted.descriptors.at(0), "data for nobody");
    std::string bytes = read_bytes(granted.descriptors[0], 1000);
    struct
    {
        wire::frame_header header;
        wire::error_head error;
    } frame;
    ASSERT_EQ(bytes.size(), sizeof frame);
    std::memcpy(&frame, bytes.data(), sizeof frame);
    EXPECT_EQ(frame.header.kind, static_cast<std::uint8_t>(wire::frame_kind::error));
    EXPECT_EQ(frame.header.flags, wire::flag_end);
    EXPECT_EQ(frame.header.length, sizeof frame.error);
    EXPECT_EQ(frame.error.sense, wire::sense_tp_name_not_recognised);
    close(granted.descriptors[0]);
}

TEST_F(node, ProgramMayDieRightAfterItsAttach)
{
    start();
    client server(directory);
    server.greet();
    server.add_name("SERVER");
    for (int i = 0; i < 50; ++i)
    {
        ASSERT_TRUE(server.accept("SERVER"));
        client caller(directory);
        caller.greet();
        received granted = caller.allocate("SERVER");
        send_attach(granted.descriptors.at(0), "last words");
        caller.close();
        close(granted.descriptors[0]);
        received taken = server.next();
        ASSERT_EQ(taken.descriptors.size(), 1u);
        EXPECT_EQ(read_bytes(taken.descriptors[0], 100), "last words");
        close(taken.descriptors[0]);
    }
}

TEST_F(node, PasswordsAreCheckedAgainstTheirHash)
{
    crypt_data scratch{};
    std::string hash = crypt_r("sesame", "$6$rounds=1000$abcdefgh$", &scratch);
    start("[[user]]\nname = \"ALICE\"\npassword_hash = \"" + hash + "\"\n");
    client server(directory);
    client caller(directory);
    server.greet();
    caller.greet();
    server.add_name("SERVER");
    ASSERT_TRUE(server.accept("SERVER"));
    auto attach = [&](const char *password) {
        wire::allocate message{};
        broker::to_ascii(message.partner_alias, "LOCALLU");
        broker::to_ebcdic(message.mode, "");
        broker::to_ebcdic(message.tp_name, "SERVER");
        broker::to_ebcdic(message.user_id, "ALICE");
        broker::to_ebcdic(message.password, password);
        message.security = 2;
        EXPECT_TRUE(caller.say(message, wire::message_kind::allocate, 10));
        int fd = caller.next().descriptors.at(0);
        send_attach(fd);
        return fd;
    };
    int wrong = attach("sesamo");
    std::string bytes = read_bytes(wrong, 16);
    ASSERT_EQ(bytes.size(), 16u);
    std::uint32_t sense;
    std::memcpy(&sense, bytes.data() + 8, sizeof sense);
    EXPECT_EQ(sense, wire::sense_security_not_valid);
    close(wrong);
    EXPECT_TRUE(server.quiet());
    int right = attach("sesame");
    received taken = server.next();
    EXPECT_EQ(broker::from_ebcdic(taken.as<wire::accepted>(wire::message_kind::accepted).user_id), "ALICE");
    close(right);
    close(taken.descriptors.at(0));
    EXPECT_EQ(log().find("sesam"), std::string::npos);
}

TEST_F(node, ProgramsAreStartedForAnAttachInTheRightSurroundings)
{
    std::string output = directory + "/started";
    start("[[lu]]\nalias = \"LOCALLU\"\nname = \"N.A\"\n[[program]]\ntp_name = \"SERVER\"\ncommand = \"/bin/sh\"\n"
          "arguments = [\"-c\", \"echo $APPCTPN $APPCLLU $CPIC_NODE_DIR $OWN > " + output + ".new; mv " + output +
          ".new " + output + "\"]\nenvironment = { OWN = \"thing\" }\n");
    client caller(directory);
    caller.greet();
    received granted = caller.allocate("SERVER");
    send_attach(granted.descriptors.at(0));
    ASSERT_TRUE(wait_until([&] { return std::filesystem::exists(output); }));
    std::string line;
    std::ifstream in(output);
    std::getline(in, line);
    EXPECT_EQ(line, "SERVER LOCALLU " + directory + " thing");
    close(granted.descriptors[0]);
    EXPECT_TRUE(wait_until([&] {
        return json::parse(tool({"show", "startable", "--json"}).out)[0]["running"] == 0;
    }));
}

TEST_F(node, ProgramThatCannotBeStartedIsSaidInTheLog)
{
    start("[[program]]\ntp_name = \"SERVER\"\ncommand = \"/does/not/exist\"\n");
    client caller(directory);
    caller.greet();
    received granted = caller.allocate("SERVER");
    send_attach(granted.descriptors.at(0));
    EXPECT_TRUE(wait_until([&] {
        return log().find("cannot start /does/not/exist for TP SERVER: No such file or directory") !=
               std::string::npos;
    }));
    close(granted.descriptors[0]);
}

TEST_F(node, NamesThatAreNoUtf8AreShownAllTheSame)
{
    std::string odd = directory + "/odd\xFF";
    std::filesystem::create_directory(odd);
    finished result = run({CPICNODED, "--start", "--dir", odd, "--idle", "0.5"});
    EXPECT_EQ(result.code, 0) << result.error;
    result = run({CPICNODE, "--dir", odd, "status", "--json"});
    EXPECT_EQ(result.code, 0) << result.error;
    EXPECT_EQ(json::parse(result.out)["directory"], directory + "/odd\uFFFD");
    result = run({CPICNODE, "--dir", odd, "stop", "--json"});
    EXPECT_EQ(result.code, 0) << result.error;
}

TEST_F(node, CheckSaysWhatIsWrongAndNeedsNoNode)
{
    std::string file = write_config("[[mode]]\nname = \"m\"\n");
    finished result = tool({"check", file});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.out.find(file + ":2:8: name = \"m\", expected a mode name"), std::string::npos);
    result = tool({"check", file, "--json"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(json::parse(result.out)["errors"].size(), 1u);
    file = write_config("");
    result = tool({"check", file});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, file + ": a node can use it\n");
    EXPECT_FALSE(running());
}

TEST_F(node, TheBrokerRefusesArgumentsThatSayNothing)
{
    for (const auto &arguments : std::vector<std::vector<std::string>>{
             {"--check", ""}, {"--config", ""}, {"--idle", "nan"}, {"--idle", "-1"}, {"--idle", "soon"}})
    {
        finished result = broker(arguments);
        EXPECT_EQ(result.code, 2) << arguments[0] << " " << arguments[1];
        EXPECT_NE(result.error, "");
    }
    EXPECT_FALSE(running());
}

TEST_F(node, WhoeverLooksIsNoProgram)
{
    start();
    client caller(directory);
    caller.greet();
    json rows = json::parse(tool({"show", "programs", "--json"}).out);
    ASSERT_EQ(rows.size(), 1u) << rows;
    EXPECT_EQ(rows[0]["pid"], getpid());
    EXPECT_EQ(json::parse(tool({"status", "--json"}).out)["programs"], 1);
}

} // namespace
} // namespace test
