// passwords_test.cpp - passwords in the broker: checked in turn, also where no thread can be had, and left nowhere.
#include "broker/names.hpp"
#include "broker/passwords.hpp"
#include "processes.hpp"

#include <crypt.h>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

using broker::password_checker;
using broker::secret;

std::string hash_of(const char *password, const char *setting)
{
    crypt_data scratch{};
    return crypt_r(password, setting, &scratch);
}

// The verdicts of so many checks, in the order in which they came.
std::vector<password_checker::verdict> verdicts(password_checker &checker, std::size_t count)
{
    std::vector<password_checker::verdict> all;
    while (all.size() < count)
    {
        pollfd ready{checker.descriptor(), POLLIN, 0};
        if (poll(&ready, 1, 20'000) != 1)
        {
            ADD_FAILURE() << "no verdict";
            return all;
        }
        auto some = checker.take();
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

TEST(Passwords, ASecretIsInOnePlaceOnly)
{
    secret first("sesame");
    secret second(std::move(first));
    EXPECT_STREQ(first.text(), "");
    EXPECT_STREQ(second.text(), "sesame");
    first = std::move(second);
    EXPECT_STREQ(second.text(), "");
    EXPECT_STREQ(first.text(), "sesame");
    EXPECT_STREQ(secret("much longer than ten").text(), "much longe");
}

TEST(Passwords, AProcessThatTriesManyWaitsForItselfAlone)
{
    const std::string hash = hash_of("sesame", "$6$rounds=50000$salt$");
    password_checker checker;
    ASSERT_TRUE(checker.open());
    for (std::uint32_t session = 1; session <= 5; ++session)
    {
        checker.check(session, 1000, 100, hash, secret("wrong"));
    }
    checker.check(6, 1000, 200, hash, secret("sesame"));
    auto all = verdicts(checker, 6);
    ASSERT_EQ(all.size(), 6u);
    std::size_t place = 0;
    while (place < all.size() && all[place].session != 6)
    {
        EXPECT_FALSE(all[place].good);
        ++place;
    }
    ASSERT_LT(place, all.size());
    EXPECT_LE(place, 2u) << "behind the one at work, and one whose turn it was";
    EXPECT_TRUE(all[place].good);
}

TEST(Passwords, AUserOfManyProcessesWaitsForItselfAlone)
{
    const std::string hash = hash_of("sesame", "$6$rounds=50000$salt$");
    password_checker checker;
    ASSERT_TRUE(checker.open());
    for (std::uint32_t session = 1; session <= 5; ++session)
    {
        checker.check(session, 1000, static_cast<std::int32_t>(100 + session), hash, secret("wrong"));
    }
    checker.check(6, 1001, 200, hash, secret("sesame"));
    auto all = verdicts(checker, 6);
    ASSERT_EQ(all.size(), 6u);
    EXPECT_TRUE(all[0].session == 6 || all[1].session == 6 || all[2].session == 6);
}

TEST(Passwords, AreCheckedWhereNoThreadCanBeHad)
{
    pid_t child = fork();
    if (child == 0)
    {
        rlimit none{0, 0};
        if (setrlimit(RLIMIT_NPROC, &none) != 0 || (geteuid() == 0 && setuid(65534) != 0))
        {
            _exit(2);
        }
        password_checker checker;
        if (!checker.open())
        {
            _exit(3);
        }
        checker.check(1, 1000, 100, hash_of("sesame", "$6$salt$"), secret("sesame"));
        checker.check(2, 1000, 100, hash_of("sesame", "$6$salt$"), secret("sesamo"));
        auto all = checker.take(); // there at once
        _exit(all.size() == 2 && all[0].good && !all[1].good ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// All that a process may write to of its memory.
std::string memory_of(pid_t process)
{
    std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
    int memory = open(("/proc/" + std::to_string(process) + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    std::string all;
    for (std::string line; memory >= 0 && std::getline(maps, line);)
    {
        unsigned long from = 0, to = 0;
        char rights[5] = "";
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &from, &to, rights) == 3 && rights[1] == 'w' &&
            to - from < 64u << 20)
        {
            std::string part(to - from, 0);
            ssize_t size = pread(memory, part.data(), part.size(), static_cast<off_t>(from));
            all.append(part, 0, size > 0 ? static_cast<std::size_t>(size) : 0);
        }
    }
    close(memory);
    return all;
}

TEST_F(node, APasswordIsNowhereInTheBrokerOnceItHasBeenChecked)
{
    constexpr char password[] = "q7Zk9xW2pL";
    start("[[lu]]\nalias = \"LOCALLU\"\nname = \"N.A\"\n[[user]]\nname = \"ALICE\"\npassword_hash = \"" +
          hash_of(password, "$6$salt$") + "\"\n");
    client server(directory), caller(directory);
    server.greet();
    server.add_name("SERVER");
    server.accept("SERVER");
    caller.greet();
    wire::allocate message{};
    broker::to_ascii(message.partner_alias, "LOCALLU");
    broker::to_ebcdic(message.mode, "#INTER");
    broker::to_ebcdic(message.tp_name, "SERVER");
    broker::to_ebcdic(message.user_id, "ALICE");
    broker::to_ebcdic(message.password, password);
    message.conv_type = 1;
    message.security = 2;
    ASSERT_TRUE(caller.say(message, wire::message_kind::allocate, 10));
    received granted = caller.next();
    ASSERT_EQ(granted.descriptors.size(), 1u);
    // Granted and not attached yet it is still there, which shows that the search finds one.
    const std::string ebcdic(reinterpret_cast<const char *>(message.password), sizeof message.password);
    const std::string before = memory_of(broker_pid());
    if (before.empty())
    {
        GTEST_SKIP() << "the memory of another process cannot be read here";
    }
    EXPECT_NE(before.find(password), before.npos);
    send_attach(granted.descriptors.at(0));
    received taken = server.next();
    EXPECT_EQ(taken.as<wire::accepted>(wire::message_kind::accepted).status.primary, wire::rc_ok);
    const std::string after = memory_of(broker_pid());
    EXPECT_EQ(after.find(password), after.npos);
    EXPECT_EQ(after.find(ebcdic), after.npos);
    close(granted.descriptors[0]);
    close(taken.descriptors.at(0));
}

} // namespace
} // namespace test
