// logs_test.cpp - the problem log, the audit log and the trace file as the control program shows them, to people and to
// machines.
#include "processes.hpp"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace test {
namespace {

using nlohmann::json;

const std::string separator = "---- CPIC 2026-03-02 09:41:07.060615+0100 client[19911/19912] ----\n";

std::string problem(int number)
{
    return "2026-01-31 23:59:59.123456-0330 hello_client[4711/4712] problem 0x20030005 detail " +
           std::to_string(number) + ": 01 02\n";
}

std::string dump_line(unsigned offset, unsigned first, unsigned count)
{
    char text[32];
    std::snprintf(text, sizeof text, "CPIC   %08X:", offset);
    std::string line = text;
    for (unsigned i = 0; i < 16; ++i)
    {
        std::snprintf(text, sizeof text, "%s%02X", i == 8 ? "  " : " ", (first + i) & 0xFF);
        line += i < count ? text : i == 8 ? "    " : "   ";
    }
    return line + "  |" + std::string(count, 'a') + "| |" + std::string(count, 'e') + "|\n";
}

struct logs : node
{
    void write(const std::string &name, const std::string &text)
    {
        std::ofstream(directory + "/" + name) << text;
    }
    void append(const std::string &name, const std::string &text)
    {
        std::ofstream(directory + "/" + name, std::ios::app) << text;
    }
    json records(std::vector<std::string> arguments)
    {
        arguments.push_back("--json");
        finished result = tool(arguments);
        EXPECT_EQ(result.code, 0) << result.error;
        json document = json::parse(result.out, nullptr, false);
        EXPECT_TRUE(document.is_array()) << result.out;
        return document;
    }
};

TEST_F(logs, AreShownFromTheirEnd)
{
    finished result = tool({"problems"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "nothing has been written to " + directory + "/problem.log yet\n");
    write("problem.log.1", "one\ntwo\n");
    write("problem.log", "three\nfour\n");
    EXPECT_EQ(tool({"problems", "-n", "3"}).out, "two\nthree\nfour\n");
    EXPECT_EQ(tool({"problems", "-n", "2"}).out, "three\nfour\n");
    EXPECT_EQ(tool({"problems", "-n", "0"}).out, "one\ntwo\nthree\nfour\n");
    write("cpic.trc", "trace\n");
    EXPECT_EQ(tool({"trace", "show"}).out, "trace\n");
    write("audit.log", "audit\n\nunfinished");
    EXPECT_EQ(tool({"audit", "-n", "5"}).out, "audit\n\nunfinished\n");
    EXPECT_EQ(tool({"audit", "-n", "2"}).out, "\nunfinished\n");
}

TEST_F(logs, NothingWrittenIsAnEmptyList)
{
    for (const std::vector<std::string> &command :
         {std::vector<std::string>{"problems"}, {"audit"}, {"trace", "show"}})
    {
        EXPECT_EQ(records(command), json::array());
    }
    write("problem.log", "");
    EXPECT_EQ(records({"problems"}), json::array());
    EXPECT_EQ(tool({"problems"}).out, "nothing has been written to " + directory + "/problem.log yet\n");
}

TEST_F(logs, RecordIsOneObject)
{
    write("problem.log", problem(8));
    EXPECT_EQ(records({"problems"}), json::parse(R"([{"time": "2026-01-31T23:59:59.123456-03:30",
        "program": "hello_client", "pid": 4711, "thread": 4712, "kind": "problem", "code": "0x20030005", "detail": 8,
        "text": "01 02"}])"));
    write("audit.log", "2026-01-31 23:59:59.000000+0000 a]b[1/2] audit 0x20030003 detail 4294967295\n");
    EXPECT_EQ(records({"audit"}), json::parse(R"([{"time": "2026-01-31T23:59:59.000000+00:00",
        "program": "a]b", "pid": 1, "thread": 2, "kind": "audit", "code": "0x20030003", "detail": 4294967295,
        "text": ""}])"));
}

TEST_F(logs, WhatIsNoRecordIsTextAndHarmsNoOther)
{
    const std::vector<std::string> foreign = {
        "", "foreign", "2026-01-31 23:59:59.123456+0100",
        "2026-01-31 23:59:59.123456+0100 p[4711/4712] problem 20030005 detail 8: x",
        "2026-01-31 23:59:59.123456+0100 p[4711/4712] problem 0x20030005 detail -8: x",
        "2026-01-31 23:59:59.123456+0100 p[4711] problem 0x20030005 detail 8: x",
        "2026-01-31 23:59:59.123456+0100 [4711/4712] problem 0x20030005 detail 8: x",
        "2026-01-31 23:59.59.123456+0100 p[4711/4712] problem 0x20030005 detail 8: x"};
    std::string text;
    json expected = json::array();
    for (const std::string &line : foreign)
    {
        text += line + "\n" + problem(1);
        expected.push_back({{"text", line}});
    }
    write("problem.log", text + "half a line \xFF\x01");
    expected.push_back({{"text", "half a line \uFFFD\u0001"}});
    json found = records({"problems", "-n", "0"});
    ASSERT_EQ(found.size(), 2 * foreign.size() + 1);
    for (std::size_t i = 0; i < found.size(); ++i)
    {
        if (i % 2 == 0)
        {
            EXPECT_EQ(found[i], expected[i / 2]);
        }
        else
        {
            EXPECT_EQ(found[i]["detail"], 1);
        }
    }
}

TEST_F(logs, TraceRecordHasItsLinesAndTheBytesOfItsDumps)
{
    std::string text = separator + "CPIC CMSEND request\nCPIC  Conversation ID = 01000000\n" +
                       "CPIC ---- Buffer at address 0x56632040 ----\n" + dump_line(0, 0xF0, 16) +
                       dump_line(16, 0, 5) + "CPIC  Send length = 21\nCPIC  Mode name =\n" + dump_line(0, 0x40, 8) +
                       "CPIC  Sym dest name = A\nB\nCPIC  Fill type = CM_FILL_LL\n";
    write("cpic.trc", text);
    EXPECT_EQ(records({"trace", "show"}), json::parse(R"([{"time": "2026-03-02T09:41:07.060615+01:00",
        "program": "client", "pid": 19911, "thread": 19912, "lines": [
            {"text": "CMSEND request"},
            {"text": "Conversation ID = 01000000"},
            {"text": "---- Buffer at address 0x56632040 ----",
             "data": "F0F1F2F3F4F5F6F7F8F9FAFBFCFDFEFF0001020304"},
            {"text": "Send length = 21"},
            {"text": "Mode name =", "data": "4041424344454647"},
            {"text": "Sym dest name = A"},
            {"text": "B"},
            {"text": "Fill type = CM_FILL_LL"}]}])"));
    EXPECT_EQ(tool({"trace", "show"}).out, text);
}

TEST_F(logs, DumpThatDoesNotFitIsText)
{
    std::string other = dump_line(32, 0, 4);
    write("cpic.trc", separator + "CPIC  Mode name =\n" + dump_line(0, 1, 16) + other);
    json lines = records({"trace", "show"})[0]["lines"];
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]["data"], "0102030405060708090A0B0C0D0E0F10");
    EXPECT_EQ(lines[1], json({{"text", other.substr(7, other.size() - 8)}}));
}

TEST_F(logs, LinesBeforeTheFirstTraceRecordAreTextOfTheirOwn)
{
    write("cpic.trc", "a\nCPIC b\nc\n" + separator + "CPIC CMFLUS request\n" + separator + "CPIC CMFLUS response\n");
    json all = records({"trace", "show"});
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[1], json({{"text", "CPIC b"}}));
    EXPECT_EQ(all[4]["lines"][0]["text"], "CMFLUS response");
    for (std::size_t wanted = 1; wanted <= 5; ++wanted)
    {
        json expected(all.end() - static_cast<json::difference_type>(wanted), all.end());
        EXPECT_EQ(records({"trace", "show", "-n", std::to_string(wanted)}), expected) << wanted;
    }
    // People get lines: at least so many, and whole records.
    EXPECT_EQ(tool({"trace", "show", "-n", "1"}).out, separator + "CPIC CMFLUS response\n");
    EXPECT_EQ(tool({"trace", "show", "-n", "3"}).out,
              separator + "CPIC CMFLUS request\n" + separator + "CPIC CMFLUS response\n");
    EXPECT_EQ(tool({"trace", "show", "-n", "6"}).out,
              "CPIC b\nc\n" + separator + "CPIC CMFLUS request\n" + separator + "CPIC CMFLUS response\n");
}

// Records of every length around the size of the pieces in which a file is read, in both of a file's parts.
TEST_F(logs, LastRecordsAreFoundHoweverLongTheyAre)
{
    std::string parts[2];
    std::vector<std::string> whole;
    for (int i = 0; i < 24; ++i)
    {
        std::string record = separator + "CPIC number " + std::to_string(i) + "\n";
        std::size_t size = 65536u - 12 + static_cast<std::size_t>(i);
        record += i % 3 == 0 ? "" : "CPIC " + std::string(size - record.size() - 6, 'x') + "\n";
        whole.push_back(record);
        parts[i / 12] += record;
    }
    write("cpic.trc.1", parts[0]);
    write("cpic.trc", parts[1]);
    std::string last;
    for (std::size_t wanted = 1; wanted <= whole.size(); ++wanted)
    {
        last.insert(0, whole[whole.size() - wanted]);
        json found = records({"trace", "show", "-n", std::to_string(wanted)});
        ASSERT_EQ(found.size(), wanted);
        EXPECT_EQ(found[0]["lines"][0]["text"], "number " + std::to_string(whole.size() - wanted));
        if (wanted % 3 == 0)
        {
            auto lines = std::count(last.begin(), last.end(), '\n');
            EXPECT_TRUE(tool({"trace", "show", "-n", std::to_string(lines)}).out == last) << wanted;
            EXPECT_TRUE(tool({"trace", "show", "-n", std::to_string(lines - 1)}).out == last) << wanted;
        }
    }
}

TEST_F(logs, LongFileCostsNoMoreThanWhatIsShown)
{
    write("problem.log", problem(1));
    std::filesystem::resize_file(directory + "/problem.log", std::uintmax_t(1) << 40); // a hole: reading takes hours
    append("problem.log", "\n" + problem(2) + problem(3));
    EXPECT_EQ(tool({"problems", "-n", "2"}).out, problem(2) + problem(3));
    EXPECT_EQ(records({"problems", "-n", "1"})[0]["detail"], 3);
}

TEST_F(logs, FollowingGoesOnThroughWhateverBecomesOfTheFile)
{
    write("problem.log", problem(1));
    watched records({CPICNODE, "--dir", directory, "--json", "problems", "--follow"});
    auto next = [&] { return json::parse(records.line())["detail"]; };
    EXPECT_EQ(next(), 1);
    append("problem.log", problem(2) + problem(3));
    EXPECT_EQ(next(), 2);
    EXPECT_EQ(next(), 3);
    append("problem.log", problem(4).substr(0, 40)); // not whole yet
    append("problem.log", problem(4).substr(40));
    EXPECT_EQ(next(), 4);
    append("problem.log", problem(5));
    std::filesystem::rename(directory + "/problem.log", directory + "/problem.log.1");
    write("problem.log", problem(6));
    EXPECT_EQ(next(), 5);
    EXPECT_EQ(next(), 6);
    std::filesystem::remove(directory + "/problem.log");
    write("problem.log", problem(7));
    EXPECT_EQ(next(), 7);
    write("problem.log", "\n"); // made shorter
    EXPECT_EQ(json::parse(records.line()), json({{"text", ""}}));
    append("problem.log", problem(8));
    EXPECT_EQ(next(), 8);
    EXPECT_EQ(records.stop_reading(), 1);
}

TEST_F(logs, FollowingAFileThatIsNotThereYet)
{
    watched shown({CPICNODE, "--dir", directory, "trace", "show", "-f"});
    watched records({CPICNODE, "--dir", directory, "trace", "show", "-f", "--json"});
    write("cpic.trc", separator + "CPIC CMFLUS request\n");
    EXPECT_EQ(shown.line() + "\n", separator);
    EXPECT_EQ(shown.line(), "CPIC CMFLUS request");
    // The last record of the file is shown too: it is whole when nothing is added to it.
    EXPECT_EQ(json::parse(records.line())["lines"], json::parse(R"([{"text": "CMFLUS request"}])"));
    EXPECT_EQ(shown.stop_reading(), 1);
    EXPECT_EQ(records.stop_reading(), 1);
}

TEST_F(logs, ReaderThatHasSeenEnoughIsNoFailureToSpeakOf)
{
    std::string text;
    for (int i = 0; i < 10'000; ++i)
    {
        text += problem(i);
    }
    write("problem.log", text);
    for (const char *signal : {"", "trap '' PIPE; "})
    {
        finished result = run({"/bin/sh", "-c", std::string(signal) + CPICNODE " --dir " + directory +
                                                    " problems -n 0 | head -n 1"});
        EXPECT_EQ(result.out, problem(0));
        EXPECT_EQ(result.error, "") << signal;
    }
}

TEST_F(logs, FileThatCannotBeReadIsNotAnEmptyOne)
{
    std::filesystem::create_directory(directory + "/problem.log");
    finished result = tool({"problems"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.error, "cpicnode: " + directory + "/problem.log is no file\n");
    result = tool({"problems", "--json"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(json::parse(result.out), json({{"error", directory + "/problem.log is no file"}}));
    EXPECT_EQ(result.error, "");
    write("file", "");
    result = run({CPICNODE, "--dir", directory + "/file", "audit"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.error, "cpicnode: " + directory + "/file/audit.log cannot be read: Not a directory\n");
}

} // namespace
} // namespace test
