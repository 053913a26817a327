// text_test.cpp - the problem log, the audit log, failed checks, the trace file.
#include "fake_broker.hpp"

#include <fcntl.h>
#include <regex>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class texts : public node_directory_test
{
protected:
    // The lines of a file; each must begin as a record of this program.
    std::vector<std::string> records(const char *file) const
    {
        std::regex begin("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{6}[+-]\\d{4} client_tests\\[(\\d+)/(\\d+)\\] (.*)");
        std::vector<std::string> found;
        std::istringstream all(contents(file));
        for (std::string line; std::getline(all, line);)
        {
            std::smatch match;
            EXPECT_TRUE(std::regex_match(line, match, begin)) << line;
            EXPECT_EQ(match[1], std::to_string(getpid()));
            found.push_back(match[3]);
        }
        return found;
    }
};

TEST_F(texts, a_problem_record_shows_code_and_detail)
{
    nba_pd_print_problem(0x2003000a, 3, "");
    EXPECT_EQ(records("problem.log"), std::vector<std::string>{"problem 0x2003000A detail 3"});
    struct stat found;
    ASSERT_EQ(stat((directory + "/problem.log").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600u);
}

TEST_F(texts, data_are_shown_by_their_format)
{
    const u8 id[8] = {0x01, 0xF1, 0, 0, 0, 0, 0, 0xFF};
    const u8 ebcdic[4] = {0xC1, 0x81, 0xF0, 0x40};
    nba_pd_print_problem(0x20030005, 1, "ba", id, 8u);
    nba_pd_print_problem(0x20030016, 1, "x x lx", 0x0Fu, 0x100u, 0x31u);
    nba_pd_print_problem(0x20030007, 2, "l", static_cast<u32>(-5));
    nba_pd_print_audit(0x20030002, 0, "ba ca", id, 2u, "LOCAL\"\n\\", 8u);
    nba_pd_print_problem(0x2003000e, 2, "es", ebcdic, 4u);
    nba_pd_print_problem(0x2003000e, 2, "es", static_cast<const void *>(nullptr), 4u);
    std::vector<std::string> expected = {
        "problem 0x20030005 detail 1: 01 F1 00 00 00 00 00 FF",
        "problem 0x20030016 detail 1: 0x000F 0x0100 0x00000031",
        "problem 0x20030007 detail 2: -5",
        "problem 0x2003000E detail 2: \"Aa0 \"",
        "problem 0x2003000E detail 2: \"\"",
    };
    EXPECT_EQ(records("problem.log"), expected);
    EXPECT_EQ(records("audit.log"),
              std::vector<std::string>{"audit 0x20030002 detail 0: 01 F1 \"LOCAL\\x22\\x0A\\x5C\""});
}

TEST_F(texts, a_failed_check_is_written_and_returns)
{
    v0_assert("cpicutil.cpp", 42, "(pGCB)->NumVerbsWaiting > 0");
    EXPECT_EQ(records("problem.log"),
              std::vector<std::string>{
                  "problem 0x20040007 detail 42: assertion failed: (pGCB)->NumVerbsWaiting > 0 at cpicutil.cpp:42"});
}

TEST_F(texts, a_log_that_was_removed_is_begun_anew)
{
    nba_pd_print_problem(1, 1, "");
    unlink((directory + "/problem.log").c_str());
    nba_pd_print_problem(2, 2, "");
    EXPECT_EQ(records("problem.log"), std::vector<std::string>{"problem 0x00000002 detail 2"});
}

TEST_F(texts, records_of_many_processes_stay_whole)
{
    std::vector<pid_t> children;
    for (int i = 0; i < 6; i++)
    {
        pid_t child = fork();
        if (child == 0)
        {
            u8 bytes[200];
            memset(bytes, i, sizeof bytes);
            for (u32 n = 0; n < 300; n++)
            {
                nba_pd_print_problem(7, n, "ba", bytes, 200u);
            }
            leave_child(0);
        }
        children.push_back(child);
    }
    for (pid_t child : children)
    {
        waitpid(child, nullptr, 0);
    }
    std::istringstream all(contents("problem.log"));
    int lines = 0;
    std::regex whole(".* problem 0x00000007 detail \\d+: (0\\d)( \\1){199}");
    for (std::string line; std::getline(all, line); lines++)
    {
        ASSERT_TRUE(std::regex_match(line, whole)) << line;
    }
    EXPECT_EQ(lines, 1800);
}

TEST_F(texts, trouble_with_a_log_is_told_once_and_goes_on)
{
    ASSERT_EQ(mkdir((directory + "/problem.log").c_str(), 0700), 0); // nobody can write to this
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    pid_t child = fork(); // the warning comes once in the life of a process
    if (child == 0)
    {
        dup2(ends[1], STDERR_FILENO);
        nba_pd_print_problem(1, 1, "");
        nba_pd_print_problem(2, 2, "");
        leave_child(0);
    }
    close(ends[1]);
    std::string said;
    char buffer[512];
    for (ssize_t size; (size = read(ends[0], buffer, sizeof buffer)) > 0;)
    {
        said.append(buffer, static_cast<std::size_t>(size));
    }
    close(ends[0]);
    waitpid(child, nullptr, 0);
    rmdir((directory + "/problem.log").c_str());
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    EXPECT_NE(said.find("problem.log: Is a directory"), std::string::npos) << said;
}

TEST_F(texts, a_directory_that_others_may_write_to_is_refused)
{
    chmod(directory.c_str(), 0777);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    pid_t child = fork();
    if (child == 0)
    {
        dup2(ends[1], STDERR_FILENO);
        nba_pd_print_problem(1, 1, "");
        leave_child(0);
    }
    close(ends[1]);
    char buffer[512] = {};
    EXPECT_GT(read(ends[0], buffer, sizeof buffer - 1), 0);
    close(ends[0]);
    waitpid(child, nullptr, 0);
    chmod(directory.c_str(), 0700);
    EXPECT_NE(strstr(buffer, "chmod go-w"), nullptr) << buffer;
    EXPECT_EQ(contents("problem.log"), "");
}

// ---- trace --------------------------------------------------------------------------------------------------------

class traces : public texts
{
protected:
    void begin()
    {
        sepuapi_init(ptrc);
        trc_lock_file(&trc_api);
    }
};

TEST_F(traces, a_record_has_a_separator_lines_and_a_dump)
{
    begin();
    ASSERT_GE(trc_api.handle, 0);
    com_trc_sep(trc_api.handle, "CPIC ");
    com_trc_line(trc_api.handle, "CPIC ", "CMINIT request");
    u8 bytes[20];
    for (u8 i = 0; i < 20; i++)
    {
        bytes[i] = static_cast<u8>(0xBD + i);
    }
    bytes[17] = 'z';
    com_trc_dump(trc_api.handle, "CPIC ", bytes, 20);
    trc_unlock_file(&trc_api);
    std::istringstream all(contents("cpic.trc"));
    std::string line;
    std::getline(all, line);
    std::regex separator("---- CPIC \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{6}[+-]\\d{4} "
                         "client_tests\\[\\d+/\\d+\\] ----");
    EXPECT_TRUE(std::regex_match(line, separator)) << line;
    std::getline(all, line);
    EXPECT_EQ(line, "CPIC CMINIT request");
    std::getline(all, line);
    EXPECT_EQ(line, "CPIC   00000000: BD BE BF C0 C1 C2 C3 C4  C5 C6 C7 C8 C9 CA CB CC  |................| "
                    "|...{ABCDEFGHI...|");
    std::getline(all, line);
    EXPECT_EQ(line, "CPIC   00000010: CD 7A CF D0                                       |.z..| |.:.}|");
    EXPECT_FALSE(std::getline(all, line));
}

TEST_F(traces, the_longest_data_fit_a_record)
{
    begin();
    std::vector<u8> bytes(32767, 0x41);
    com_trc_dump(trc_api.handle, "CPIC ", bytes.data(), 32767);
    com_trc_line(trc_api.handle, "CPIC ", "end");
    trc_unlock_file(&trc_api);
    std::string all = contents("cpic.trc");
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2049);
    EXPECT_NE(all.find("CPIC end\n"), std::string::npos);
    EXPECT_EQ(all.find("cut"), std::string::npos);
}

TEST_F(traces, a_record_that_is_too_long_says_so)
{
    begin();
    std::vector<u8> bytes(100000, 0x41);
    com_trc_dump(trc_api.handle, "CPIC ", bytes.data(), 100000);
    trc_unlock_file(&trc_api);
    EXPECT_NE(contents("cpic.trc").find("(record cut: too long)\n"), std::string::npos);
}

TEST_F(traces, without_a_file_the_handle_is_minus_one_and_nothing_stays_locked)
{
    ASSERT_EQ(mkdir((directory + "/cpic.trc").c_str(), 0700), 0);
    begin();
    EXPECT_EQ(trc_api.handle, -1);
    rmdir((directory + "/cpic.trc").c_str());
    trc_lock_file(&trc_api); // would hang if the first had kept the lock
    EXPECT_GE(trc_api.handle, 0);
    com_trc_line(trc_api.handle, "CPIC ", "now");
    trc_unlock_file(&trc_api);
    EXPECT_EQ(contents("cpic.trc"), "CPIC now\n");
}

TEST_F(traces, records_of_many_processes_do_not_mix)
{
    std::vector<pid_t> children;
    for (int i = 0; i < 5; i++)
    {
        pid_t child = fork();
        if (child == 0)
        {
            std::string mine = "process " + std::to_string(i);
            for (int n = 0; n < 200; n++)
            {
                trc_lock_file(&trc_api);
                com_trc_sep(trc_api.handle, "CPIC ");
                for (int line = 0; line < 5; line++)
                {
                    com_trc_line(trc_api.handle, "CPIC ", mine.c_str());
                }
                trc_unlock_file(&trc_api);
            }
            leave_child(0);
        }
        children.push_back(child);
    }
    for (pid_t child : children)
    {
        waitpid(child, nullptr, 0);
    }
    std::istringstream all(contents("cpic.trc"));
    int count = 0;
    for (std::string line; std::getline(all, line); count++)
    {
        ASSERT_EQ(line.rfind("---- CPIC ", 0), 0u) << line;
        std::string first;
        std::getline(all, first);
        for (int i = 1; i < 5; i++)
        {
            std::getline(all, line);
            ASSERT_EQ(line, first);
        }
    }
    EXPECT_EQ(count, 1000);
}

// ---- limits -------------------------------------------------------------------------------------------------------

class limits : public connected_test
{
protected:
    void set_limit(std::size_t offset, std::uint32_t limit)
    {
        for (std::size_t i = 0; i < 4; i++)
        {
            broker->set_page_byte(offset + i, static_cast<unsigned char>(limit >> 8 * i));
        }
    }
};

TEST_F(limits, a_full_log_is_renamed_and_a_new_one_begun)
{
    connect();
    set_limit(offsetof(wire::control_page, problem_log_limit), 1000);
    for (u32 i = 0; i < 15; i++)
    {
        nba_pd_print_problem(9, i, "");
    }
    std::string now = contents("problem.log");
    std::string old = contents("problem.log.1");
    EXPECT_LE(now.size(), 1000u);
    EXPECT_LE(old.size(), 1000u);
    EXPECT_NE(now.find("detail 14\n"), std::string::npos);
    EXPECT_GT(old.size(), 800u);
    std::string last = old.substr(old.rfind("detail "));
    EXPECT_NE(now.find("detail " + std::to_string(std::stoi(last.substr(7)) + 1) + "\n"), std::string::npos);
}

TEST_F(limits, the_trace_file_has_one_too)
{
    connect();
    set_limit(offsetof(wire::control_page, trace_file_limit), 500);
    for (int i = 0; i < 100; i++)
    {
        trc_lock_file(&trc_api);
        com_trc_line(trc_api.handle, "CPIC ", "a line of some length, so that the file fills");
        trc_unlock_file(&trc_api);
    }
    EXPECT_LE(contents("cpic.trc").size(), 600u);
    EXPECT_LE(contents("cpic.trc.1").size(), 600u);
    EXPECT_GE(contents("cpic.trc.1").size(), 500u);
}

TEST_F(limits, the_trace_switch_is_the_brokers_page)
{
    EXPECT_EQ(ptrc[PTRC_API_BYTE] & PTRC_API_BIT, 0);
    connect();
    broker->set_page_byte(PTRC_API_BYTE, PTRC_API_BIT);
    EXPECT_NE(ptrc[PTRC_API_BYTE] & PTRC_API_BIT, 0);
    broker->set_page_byte(PTRC_API_BYTE, 0);
    EXPECT_EQ(ptrc[PTRC_API_BYTE] & PTRC_API_BIT, 0);
    broker->set_page_byte(PTRC_API_BYTE, PTRC_API_BIT);
    lose_path();
    EXPECT_EQ(ptrc[PTRC_API_BYTE] & PTRC_API_BIT, 0);
}

} // namespace
