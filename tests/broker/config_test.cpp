// config_test.cpp - configuration files: what a good one says, and the exact place and words for every mistake.
#include "broker/config.hpp"
#include "broker/names.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace broker;

// $6$ with the password "sesame"; what matters here is its form.
#define GOOD_HASH "$6$saltsalt$6lYGBYVwbO3wZgpJGqwx7yHdQmVJ3C0f8BMEnF5HgRYhRDOtLDDYVJvYyGL8lO1XBQqDjXHcTjZ1hA8aU8Jd1."

TEST(Config, WithoutAnythingIsTheBuiltInDefault)
{
    config_findings findings;
    auto read = read_config_text("", "node.toml", findings);
    ASSERT_TRUE(read);
    ASSERT_EQ(read->lus.size(), 1u);
    EXPECT_EQ(read->lus[0].alias, "LOCALLU");
    EXPECT_EQ(read->lus[0].name, "LOCALNET.LOCALLU");
    for (const char *mode : {"", "#INTER", "#INTERSC", "#BATCH", "#BATCHSC", "SNASVCMG"})
    {
        EXPECT_NE(read->find_mode(mode), nullptr) << mode;
    }
    EXPECT_EQ(read->attach_wait_ms, 10'000);
    EXPECT_EQ(read->idle_ms, 60'000);
    EXPECT_TRUE(read->already_verified);
    EXPECT_TRUE(findings.warnings.empty());
}

TEST(Config, EverySettingIsTaken)
{
    config_findings findings;
    auto read = read_config_text(R"(
[node]
name = "N1"
idle_seconds = 0
attach_wait_seconds = 0.25
allocation_wait_seconds = 3
attach_queue_depth = 7
problem_log_limit = 1
audit_log_limit = 2
trace_file_limit = 3
trace = true
audit = false
already_verified = false
connections_per_process = 4
connections_per_user = 5
attaches_per_process = 6
attaches_per_user = 8
conversations_per_process = 9
conversations_per_user = 10
allowed_users = ["bob"]
[[lu]]
alias = "LU1"
name = "NETA.LU1"
[[lu]]
alias = "LU2"
name = "NETA.LU2"
[[partner_lu]]
alias = "FRIEND"
name = "NETA.LU2"
[[mode]]
name = "#INTER"
session_limit = 3
[[mode]]
name = "OWN"
[[side_info]]
destination = "DEST"
partner_lu = "FRIEND"
tp_name = "06F10203"
tp_name_type = "service"
mode = "OWN"
security = "program_strong"
user = "ALICE"
password = "sesame"
local_lu = "LU2"
[[user]]
name = "ALICE"
password_hash = ")" GOOD_HASH R"("
[[program]]
tp_name = "SERVER"
command = "/usr/bin/server"
arguments = ["-v", "two words"]
user = "daemon"
environment = { A = "1", B = "" }
instances = "each"
max_instances = 11
conversation_type = "mapped"
sync_level = "none"
)",
                                 "node.toml", findings);
    ASSERT_TRUE(read) << (findings.errors.empty() ? "" : findings.errors[0]);
    EXPECT_EQ(read->name, "N1");
    EXPECT_EQ(read->idle_ms, 0);
    EXPECT_EQ(read->attach_wait_ms, 250);
    EXPECT_EQ(read->allocation_wait_ms, 3000);
    EXPECT_EQ(read->attach_queue_depth, 7u);
    EXPECT_EQ(read->problem_log_limit, 1u);
    EXPECT_EQ(read->audit_log_limit, 2u);
    EXPECT_EQ(read->trace_file_limit, 3u);
    EXPECT_TRUE(read->trace);
    EXPECT_FALSE(read->audit);
    EXPECT_FALSE(read->already_verified);
    EXPECT_EQ(read->connections_per_process, 4u);
    EXPECT_EQ(read->connections_per_user, 5u);
    EXPECT_EQ(read->attaches_per_process, 6u);
    EXPECT_EQ(read->attaches_per_user, 8u);
    EXPECT_EQ(read->conversations_per_process, 9u);
    EXPECT_EQ(read->conversations_per_user, 10u);
    EXPECT_EQ(read->allowed_users, std::vector<std::string>{"bob"});
    EXPECT_EQ(read->lus.front().alias, "LU1") << "the first is the default LU";
    EXPECT_EQ(read->find_lu("LOCALLU"), nullptr) << "gone once an LU is given";
    EXPECT_EQ(read->find_partner("FRIEND")->alias, "LU2");
    EXPECT_EQ(read->find_partner("NETA.LU1")->alias, "LU1");
    EXPECT_EQ(read->find_mode("#INTER")->session_limit, 3u);
    EXPECT_EQ(read->find_mode("#BATCH")->session_limit, 0u);
    EXPECT_NE(read->find_mode("OWN"), nullptr);
    const side_info_entry *entry = read->find_side_info("DEST");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->partner_lu, "FRIEND");
    EXPECT_TRUE(entry->service_tp);
    EXPECT_EQ(entry->tp_name, "06F10203");
    EXPECT_EQ(entry->mode, "OWN");
    EXPECT_EQ(entry->security, 5);
    EXPECT_EQ(entry->user, "ALICE");
    EXPECT_EQ(entry->password, "sesame");
    EXPECT_EQ(entry->local_lu, "LU2");
    ASSERT_NE(read->find_user("ALICE"), nullptr);
    const program_entry *program = read->find_program(tp_name_bytes("SERVER"));
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(program->command, "/usr/bin/server");
    EXPECT_EQ(program->arguments, (std::vector<std::string>{"-v", "two words"}));
    EXPECT_EQ(program->user, "daemon");
    EXPECT_EQ(program->environment.size(), 2u);
    EXPECT_EQ(program->most_instances, 11u);
    EXPECT_FALSE(program->one_for_all);
    EXPECT_EQ(program->conversation_types, accepts::second);
    EXPECT_EQ(program->sync_levels, accepts::first);
    EXPECT_TRUE(findings.warnings.empty()) << findings.warnings[0];
}

TEST(Config, SideInformationHasDefaults)
{
    config_findings findings;
    auto read = read_config_text("[[side_info]]\ndestination = \"D\"\npartner_lu = \"LOCALLU\"\ntp_name = \"S\"\n",
                                 "f", findings);
    ASSERT_TRUE(read);
    const side_info_entry *entry = read->find_side_info("D");
    EXPECT_EQ(entry->security, 1);
    EXPECT_FALSE(entry->service_tp);
    EXPECT_EQ(entry->mode, "");
    EXPECT_EQ(entry->local_lu, "");
}

struct mistake
{
    const char *text;
    const char *message; // of the first error
};

const mistake mistakes[] = {
    {"[node]\nname = \n", "f:2:8: "}, // the library's own words follow
    {"[node]\ntrace = true\n[\x16node]\n[mode]\n",
     "f:3:1: characters that begin nothing, expected a section, a key or a value"},
    {"[node]\nd = 1979-05\u038A7\n", "f:2:12: "},
    {"[\x16", "f:1:1: characters that begin nothing, expected a section, a key or a value"},
    {"colour = 1\n",
     "f:1:1: unknown section \"colour\", expected one of node, lu, partner_lu, mode, side_info, user, program"},
    {"node = 1\n", "f:1:8: node is a number, expected [node]"},
    {"lu = 1\n", "f:1:6: lu is a number, expected [[lu]]"},
    {"lu = []\n", "f:1:6: lu is empty, expected at least one [[lu]]"},
    {"lu = [1]\n", "f:1:7: in lu: a number, expected [[lu]]"},
    {"[node]\nidle_seconds = true\n",
     "f:2:16: idle_seconds is true or false, expected a number of seconds, 0 or more, at most a year"},
    {"[node]\nidle_seconds = -1\n",
     "f:2:16: idle_seconds = -1, expected a number of seconds, 0 or more, at most a year"},
    {"[node]\nidle_seconds = nan\n",
     "f:2:16: idle_seconds = nan, expected a number of seconds, 0 or more, at most a year"},
    {"[node]\nattach_queue_depth = 1.5\n",
     "f:2:22: attach_queue_depth is a number, expected a whole number from 0 to 100000"},
    {"[node]\nattach_queue_depth = 100001\n",
     "f:2:22: attach_queue_depth = 100001, expected a whole number from 0 to 100000"},
    {"[node]\ntrace = \"yes\"\n", "f:2:9: trace is a text, expected true or false"},
    {"[node]\nallowed_users = \"bob\"\n",
     "f:2:17: allowed_users is a text, expected an array, of each the name of a user of this system"},
    {"[node]\nallowed_users = [\"bob\", 5]\n",
     "f:2:25: in allowed_users: a number, expected the name of a user of this system"},
    {"[[lu]]\nalias = \"A B\"\nname = \"NETA.LUA\"\n",
     "f:2:9: alias = \"A B\", expected an alias: 1 to 8 letters, digits or @ # $ _ -"},
    {"[[lu]]\nalias = \"TOOLONGAL\"\nname = \"NETA.LUA\"\n",
     "f:2:9: alias = \"TOOLONGAL\", expected an alias: 1 to 8 letters, digits or @ # $ _ -"},
    {"[[lu]]\nalias = \"A\"\nname = \"LUA\"\n",
     "f:3:8: name = \"LUA\", expected a name NETID.LUNAME, each part 1 to 8 of A-Z 0-9 @ # $ and no digit first"},
    {"[[lu]]\nalias = \"A\"\nname = \"NETA.9LU\"\n",
     "f:3:8: name = \"NETA.9LU\", expected a name NETID.LUNAME, each part 1 to 8 of A-Z 0-9 @ # $ and no digit first"},
    {"[[lu]]\nalias = \"A\"\n", "f:1:1: no name in [[lu]], expected a name NETID.LUNAME, each part 1 to 8 of A-Z 0-9 "
                                "@ # $ and no digit first"},
    {"[[lu]]\nalias = \"A\"\nname = \"N.A\"\n[[lu]]\nalias = \"A\"\nname = \"N.B\"\n",
     "f:5:9: alias = \"A\" a second time, expected one of its own"},
    {"[[lu]]\nalias = \"A\"\nname = \"N.A\"\n[[lu]]\nalias = \"B\"\nname = \"N.A\"\n",
     "f:6:8: name = \"N.A\" a second time, expected one of its own"},
    {"[[lu]]\nalias = \"A\"\nname = \"N.A\"\ncolour = 1\n",
     "f:4:1: unknown key \"colour\" in [[lu]], expected one of alias, name"},
    {"[[partner_lu]]\nalias = \"P\"\nname = \"N.FAR\"\n",
     "f:3:8: name = \"N.FAR\", expected the name of an [[lu]]: all LUs of this node are local"},
    {"[[partner_lu]]\nalias = \"LOCALLU\"\nname = \"LOCALNET.LOCALLU\"\n",
     "f:2:9: alias = \"LOCALLU\" a second time, expected one of its own"},
    {"[[mode]]\nname = \"#inter\"\n", "f:2:8: name = \"#inter\", expected a mode name: up to 8 of A-Z 0-9 @ # $ and no "
                                      "digit first, or \"\" for the default mode"},
    {"[[mode]]\nname = \"M\"\nsession_limit = -1\n",
     "f:3:17: session_limit = -1, expected a whole number from 0 to 1000000"},
    {"[[mode]]\nname = \"M\"\n[[mode]]\nname = \"M\"\n",
     "f:4:8: name = \"M\" a second time, expected one of its own"},
    {"[[side_info]]\ndestination = \"D\"\npartner_lu = \"LOCALLU\"\n",
     "f:1:1: no tp_name in [[side_info]], expected the name of the partner program"},
    {"[[side_info]]\ndestination = \"D\"\npartner_lu = \"LOCALLU\"\ntp_name = \"A B\"\n",
     "f:4:11: tp_name = \"A B\", expected 1 to 64 of the characters \" to Z, a to z and _"},
    {"[[side_info]]\ndestination = \"D\"\npartner_lu = \"LOCALLU\"\ntp_name = \"06F1\"\ntp_name_type = \"service\"\n",
     "f:4:11: tp_name = \"06F1\", expected 8 hexadecimal digits: the four bytes of a service TP name"},
    {"[[side_info]]\ndestination = \"D\"\npartner_lu = \"LOCALLU\"\ntp_name = \"S\"\nsecurity = \"strong\"\n",
     "f:5:12: security = \"strong\", expected one of \"none\", \"same\", \"program\", \"program_strong\""},
    {"[[side_info]]\ndestination = \"D\"\npartner_lu = \"LOCALLU\"\ntp_name = \"S\"\nsecurity = \"program\"\n",
     "f:1:1: no user in [[side_info]], expected one, because security is program"},
    {"[[side_info]]\ndestination = \"D\"\npartner_lu = \"LOCALLU\"\ntp_name = \"S\"\npassword = \"x\"\n",
     "f:5:12: a password, expected none unless security is program"},
    {"[[side_info]]\ndestination = \"D\"\npartner_lu = \"LOCALLU\"\ntp_name = \"S\"\nsecurity = \"program\"\n"
     "user = \"U\"\npassword = \"elevenchars\"\n",
     "f:7:12: password = (not shown), expected a password: up to 10 printable characters without blanks"},
    {"[[user]]\nname = \"U\"\npassword_hash = \"sesame\"\n",
     "f:3:17: password_hash = (not shown), expected a password hash of crypt(3), as `openssl passwd -6` prints it"},
    {"[[user]]\nname = \"ELEVENCHARS\"\npassword_hash = \"$6$abc$def\"\n",
     "f:2:8: name = \"ELEVENCHARS\", expected a user name: 1 to 10 printable characters without blanks"},
    {"[[program]]\ntp_name = \"S\"\ncommand = \"server\"\n",
     "f:3:11: command = \"server\", expected the absolute path of a program"},
    {"[[program]]\ntp_name = \"S\"\narguments = [\"x\"]\n",
     "f:3:13: arguments without a command, expected a command too"},
    {"[[program]]\ntp_name = \"S\"\ncommand = \"/x\"\nenvironment = { A = 1 }\n",
     "f:4:17: in environment: \"A\", expected NAME = \"value\""},
    {"[[program]]\ntp_name = \"S\"\n[[program]]\ntp_name = \"S\"\n",
     "f:4:11: tp_name = \"S\" a second time, expected one of its own"},
};

class ConfigMistake : public testing::TestWithParam<mistake>
{
};

TEST_P(ConfigMistake, IsReportedWithItsPlace)
{
    config_findings findings;
    EXPECT_FALSE(read_config_text(GetParam().text, "f", findings));
    ASSERT_FALSE(findings.errors.empty());
    std::string wanted = GetParam().message;
    if (wanted.ends_with(": "))
    {
        EXPECT_EQ(findings.errors[0].substr(0, wanted.size()), wanted);
        EXPECT_GT(findings.errors[0].size(), wanted.size());
    }
    else
    {
        EXPECT_EQ(findings.errors[0], wanted);
        EXPECT_EQ(findings.errors.size(), 1u) << findings.errors[1];
    }
}

INSTANTIATE_TEST_SUITE_P(All, ConfigMistake, testing::ValuesIn(mistakes));

TEST(Config, AllMistakesAreReportedAtOnce)
{
    config_findings findings;
    EXPECT_FALSE(read_config_text("[node]\ntrace = 1\nfoo = 2\n[[mode]]\nname = 5\n", "f", findings));
    EXPECT_EQ(findings.errors.size(), 3u);
}

TEST(Config, AnEndlessListOfMistakesIsCut)
{
    std::string text = "[node]\n";
    for (int i = 0; i < 1000; ++i)
    {
        text += "k" + std::to_string(i) + " = 1\n";
    }
    config_findings findings;
    EXPECT_FALSE(read_config_text(text, "f", findings));
    EXPECT_EQ(findings.errors.size(), 50u);
}

TEST(Config, SideInformationMayNameWhatDoesNotExistButIsWarnedOf)
{
    config_findings findings;
    auto read = read_config_text("[[side_info]]\ndestination = \"D\"\npartner_lu = \"FAR\"\ntp_name = \"S\"\n"
                                 "mode = \"NOMODE\"\nlocal_lu = \"NOLU\"\n",
                                 "f", findings);
    ASSERT_TRUE(read);
    EXPECT_EQ(findings.warnings, (std::vector<std::string>{
                                     "f:3:14: partner_lu = \"FAR\" is no LU of this node: allocations to it will fail",
                                     "f:5:8: mode = \"NOMODE\" is not defined: allocations with it will fail",
                                     "f:6:12: local_lu = \"NOLU\" is no LU of this node: allocations from it will fail",
                                 }));
}

struct ConfigFile : testing::Test
{
    void SetUp() override
    {
        char name[] = "/tmp/cpic-config-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        directory = name;
        file = directory + "/node.toml";
    }
    void TearDown() override
    {
        unlink(file.c_str());
        rmdir(directory.c_str());
    }
    std::string directory;
    std::string file;
};

TEST_F(ConfigFile, ThatIsMissingOrNoFileIsReported)
{
    config_findings findings;
    EXPECT_FALSE(read_config_file(file, findings));
    ASSERT_EQ(findings.errors.size(), 1u);
    EXPECT_EQ(findings.errors[0],
              file + ": cannot be opened (No such file or directory), expected a configuration file");
    findings = {};
    EXPECT_FALSE(read_config_file(directory, findings));
    EXPECT_EQ(findings.errors[0], directory + ": is no regular file, expected a configuration file");
    findings = {};
    EXPECT_FALSE(read_config_file("/dev/zero", findings));
    EXPECT_EQ(findings.errors.size(), 1u);
}

TEST_F(ConfigFile, WithPasswordsShouldBePrivate)
{
    std::ofstream(file) << "[[side_info]]\ndestination = \"D\"\npartner_lu = \"LOCALLU\"\ntp_name = \"S\"\n"
                           "security = \"program\"\nuser = \"U\"\npassword = \"P\"\n";
    chmod(file.c_str(), 0644);
    config_findings findings;
    EXPECT_TRUE(read_config_file(file, findings));
    EXPECT_EQ(findings.warnings,
              std::vector<std::string>{file + ": other users may read the passwords in it; run chmod 600 on it"});
    chmod(file.c_str(), 0600);
    findings = {};
    EXPECT_TRUE(read_config_file(file, findings));
    EXPECT_TRUE(findings.warnings.empty());
}

TEST(Config, HostileBytesAreNoMoreThanMistakes)
{
    std::uint32_t random = 99;
    const std::string seed = "[[lu]]\nalias = \"A\"\nname = \"N.A\"\n[[side_info]]\ndestination = \"D\"\n"
                             "partner_lu = \"A\"\ntp_name = \"S\"\nmode = \"#INTER\"\n[node]\nidle_seconds = 1.5\n";
    int refused = 0;
    for (int i = 0; i < 3000; ++i)
    {
        std::string text = seed;
        for (int change = 0; change < 3; ++change)
        {
            random = random * 1664525 + 1013904223;
            text[(random >> 8) % text.size()] = static_cast<char>(random >> 24);
        }
        config_findings findings;
        bool good = read_config_text(text, "f", findings).has_value();
        EXPECT_EQ(good, findings.errors.empty());
        refused += !good;
    }
    EXPECT_GT(refused, 1000);
}

} // namespace
