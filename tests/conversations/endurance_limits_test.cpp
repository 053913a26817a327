// endurance_limits_test.cpp - programs whose surroundings fail them: no room on the disk, no descriptor left, signals
// that never cease, closed standard descriptors, forks and execs in the middle of conversations.
#include "conversations/harness.hpp"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace conversations;

namespace {

std::string contents(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The directory of a node on a file system of its own, `size` as mount takes it. Seen by this process and its children
// alone. The node is stopped before it goes.
class small_disk
{
public:
    small_disk(node &home, const char *size) : home_(home)
    {
        const std::string configuration = home.log("node.toml");
        mounted_ = unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                   mount("tmpfs", home.directory().c_str(), "tmpfs", 0, size) == 0;
        if (mounted_)
        {
            chmod(home.directory().c_str(), 0700);
            std::ofstream(home.directory() + "/node.toml") << configuration;
        }
    }
    ~small_disk()
    {
        home_.control({"stop"});
        if (mounted_)
            umount2(home_.directory().c_str(), MNT_DETACH);
    }
    small_disk(const small_disk &) = delete;
    small_disk &operator=(const small_disk &) = delete;
    bool mounted() const { return mounted_; }

private:
    node &home_;
    bool mounted_;
};

// A file outside of the node's directory, gone at the end.
struct outside_file
{
    std::string path = testing::TempDir() + "cpic-errors-" + std::to_string(getpid());
    ~outside_file() { unlink(path.c_str()); }
};

int descriptors_of(long process)
{
    int count = 0;
    DIR *directory = opendir(("/proc/" + std::to_string(process) + "/fd").c_str());
    while (directory != nullptr && readdir(directory) != nullptr)
        ++count;
    if (directory != nullptr)
        closedir(directory);
    return count - 2;
}

} // namespace

TEST(Limits, a_full_disk_stops_trace_and_logs_with_one_warning)
{
    node home;
    small_disk disk(home, "size=256k");
    if (!disk.mounted())
        GTEST_SKIP() << "only root can mount a small disk: " << std::strerror(errno);
    outside_file errors;
    tp server(home), client(home);
    ASSERT_EQ(client("errors " + errors.path).rc, 0);
    converse(client, server);
    ASSERT_EQ(home.control({"trace", "on"}).code, 0);
    server.send("echo 0");
    EXPECT_EQ(client("pingpong 0 100 5000").rc, 0); // five hundred thousand bytes, and a dump of each
    struct statvfs room;
    ASSERT_EQ(statvfs(home.directory().c_str(), &room), 0);
    ASSERT_LT(room.f_bavail * room.f_bsize, 8192u) << "the disk was not filled";
    EXPECT_EQ(client("cmrcv 7 10").rc, 24); // a problem record that cannot be written either
    EXPECT_EQ(client("pingpong 0 20 5000").rc, 0);
    EXPECT_EQ(client("cmdeal 0").rc, 0);
    EXPECT_EQ(server.receive().rc, 18);
    // New conversations work as well.
    server.send("servers 1");
    EXPECT_EQ(client("clients 1 5 100 ECHO").rc, 0);
    EXPECT_EQ(server.receive().rc, 0);

    const std::string said = contents(errors.path);
    EXPECT_NE(said.find("records are lost; conversations go on"), std::string::npos) << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
}

TEST(Limits, a_program_without_descriptors_left)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("files 64").rc, 0);
    ASSERT_EQ(client("fill").rc, 0);
    ASSERT_EQ(client("cminit 1 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 1").rc, 2); // may be tried again
    server.send("echo 0");
    EXPECT_EQ(client("pingpong 0 20 5000").rc, 0); // what is open goes on
    ASSERT_EQ(client("free 8").rc, 0);
    ASSERT_EQ(client("cminit 1 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 1").rc, 0);
    EXPECT_EQ(client("cmtext 1 again").rc, 0);
    EXPECT_EQ(client("cmdeal 1").rc, 0);
    EXPECT_EQ(client("cmdeal 0").rc, 0);
    EXPECT_EQ(server.receive().rc, 18);
    ASSERT_EQ(server("cmaccp 1").rc, 0);
    EXPECT_EQ(server("cmrcv 1 100").text("text"), "again");
}

TEST(Limits, threads_wait_without_a_descriptor_left)
{
    if (CPIC_TEST_BUILD_SCALE > 1)
        GTEST_SKIP() << "the sanitizers need descriptors themselves when a thread starts";
    node home;
    tp server(home), client(home);
    converse(client, server);
    ASSERT_EQ(client("cminit 1 ECHO").rc, 0);
    ASSERT_EQ(client("cmallc 1").rc, 0);
    ASSERT_EQ(client("cmflus 1").rc, 0);
    ASSERT_EQ(server("cmaccp 1").rc, 0);
    ASSERT_EQ(server("files 64").rc, 0);
    ASSERT_EQ(server("fill").rc, 0);
    ASSERT_EQ(server("bg cmrcv 0 100").rc, 0);
    server.send("cmrcv 1 100");
    ASSERT_FALSE(server.answers(50));
    ASSERT_EQ(client("cmtext 1 one").rc, 0);
    ASSERT_EQ(client("cmflus 1").rc, 0);
    EXPECT_EQ(server.receive().text("text"), "one");
    ASSERT_EQ(client("cmtext 0 zero").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server.background().text("text"), "zero");
    ASSERT_EQ(server("bg cmrcv 0 100").rc, 0);
    EXPECT_EQ(server("cmcanc 0").rc, 0); // nobody can wake the thread: it must find out by itself
    EXPECT_NE(server.background().rc, 0);
}

TEST(Limits, an_accept_without_a_descriptor_left)
{
    node home;
    tp server(home), client(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(server("files 64").rc, 0);
    ASSERT_EQ(server("fill").rc, 0);
    ASSERT_EQ(client("cminit 0 ECHO").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client("cmtext 0 patience").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    EXPECT_EQ(server("cmaccp 0").rc, 20); // the conversation stays with the broker
    ASSERT_EQ(server("free 8").rc, 0);
    EXPECT_EQ(server("cmaccp 0").rc, 0);
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "patience");
}

TEST(Limits, accepts_that_wait_find_a_descriptor_when_others_have_taken_the_rest)
{
    if (CPIC_TEST_BUILD_SCALE > 1)
        GTEST_SKIP() << "the sanitizers need descriptors themselves when a thread starts";
    node home;
    tp server(home), client(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    ASSERT_EQ(server("files 64").rc, 0);
    ASSERT_EQ(server("bg cmaccp 0").rc, 0);
    ASSERT_EQ(server("bg cmaccp 1").rc, 0);
    ASSERT_FALSE(server.answers(50));
    ASSERT_EQ(server("fill").rc, 0);
    for (const std::string slot : {"0", "1"})
    {
        ASSERT_EQ(client("cminit " + slot + " ECHO").rc, 0);
        ASSERT_EQ(client("cmallc " + slot).rc, 0);
        ASSERT_EQ(client("cmtext " + slot + " through").rc, 0);
        ASSERT_EQ(client("cmflus " + slot).rc, 0);
        EXPECT_EQ(server.background().rc, 0);
    }
    EXPECT_EQ(server("cmrcv 0 100").text("text"), "through");
    EXPECT_EQ(server("cmrcv 1 100").text("text"), "through");
}

TEST(Limits, a_first_call_without_a_descriptor_left)
{
    node home;
    home.start();
    tp client(home);
    ASSERT_EQ(client("files 64").rc, 0);
    ASSERT_EQ(client("fill").rc, 0);
    EXPECT_EQ(client("cminit 0 ECHO").rc, 20);
    ASSERT_EQ(client("free 8").rc, 0);
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0);
    EXPECT_EQ(client("cmallc 0").rc, 0);
}

TEST(Limits, a_broker_without_descriptors_left)
{
    node home;
    tp server(home), client(home);
    converse(client, server);
    const pid_t broker = static_cast<pid_t>(home.broker());
    rlimit before;
    rlimit few = {static_cast<rlim_t>(descriptors_of(broker) + 6), 20000};
    ASSERT_EQ(prlimit(broker, RLIMIT_NOFILE, nullptr, &before), 0);
    few.rlim_max = before.rlim_max;
    ASSERT_EQ(prlimit(broker, RLIMIT_NOFILE, &few, nullptr), 0);
    // Sessions that are granted and not used yet cost the broker a descriptor each.
    int slot = 1;
    long rc = 0;
    for (; slot < 16 && rc == 0; ++slot)
    {
        ASSERT_EQ(client("cminit " + std::to_string(slot) + " ECHO").rc, 0);
        rc = client("cmallc " + std::to_string(slot)).rc;
    }
    EXPECT_EQ(rc, 2);
    EXPECT_GT(slot, 3);
    server.send("echo 0");
    EXPECT_EQ(client("pingpong 0 20 5000").rc, 0);
    ASSERT_EQ(prlimit(broker, RLIMIT_NOFILE, &before, nullptr), 0);
    ASSERT_EQ(client("cminit " + std::to_string(slot - 1) + " ECHO").rc, 0);
    EXPECT_EQ(client("cmallc " + std::to_string(slot - 1)).rc, 0);
    EXPECT_EQ(client("cmdeal 0").rc, 0);
    EXPECT_EQ(server.receive().rc, 18);
}

TEST(Limits, a_signal_every_millisecond_is_not_noticed)
{
    node home(standard_configuration() + "\n[[mode]]\nname = \"NARROW\"\nsession_limit = 1\n\n[[side_info]]\n"
                                         "destination = \"NARROW\"\npartner_lu = \"LOCALLU\"\n"
                                         "tp_name = \"ECHOSRV\"\nmode = \"NARROW\"\n");
    tp server(home), client(home);
    // The very first call, which starts the broker.
    reply r = server("interrupted cmsltp ECHOSRV");
    EXPECT_EQ(r.rc, 0) << r.line;
    server.send("interrupted cmaccp 0");
    ASSERT_FALSE(server.answers(50));
    r = client("interrupted cminit 0 NARROW");
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(client("interrupted cmallc 0").rc, 0);
    EXPECT_EQ(client("cmflus 0").rc, 0);
    r = server.receive();
    EXPECT_EQ(r.rc, 0);
    EXPECT_GT(r.number("signals"), 10);

    server.send("interrupted echo 0");
    r = client("interrupted pingpong 0 400 20000", 60000);
    EXPECT_EQ(r.rc, 0) << r.line;
    EXPECT_GT(r.number("signals"), 10);
    tp second(home);
    ASSERT_EQ(second("cminit 0 NARROW").rc, 0);
    second.send("interrupted cmallc 0"); // waits for the one session
    ASSERT_FALSE(second.answers(50));
    EXPECT_EQ(client("cmdeal 0").rc, 0);
    EXPECT_EQ(server.receive().rc, 18);
    r = second.receive();
    EXPECT_EQ(r.rc, 0);
    EXPECT_GT(r.number("signals"), 10);

    // A sender that waits for its receiver, and CMWAIT.
    ASSERT_EQ(second("cmflus 0").rc, 0);
    ASSERT_EQ(server("cmaccp 1").rc, 0);
    second.send("interrupted sendmany 0 300 32767 5");
    ASSERT_FALSE(second.answers(50));
    server.send("interrupted rcvall 1");
    const reply sent = second.receive(60000);
    EXPECT_EQ(sent.rc, 0) << sent.line;
    ASSERT_EQ(second("set cmspm 0 1").rc, 0);
    ASSERT_EQ(second("cmrcv 0 10").rc, 35); // gives the turn
    const reply got = server.receive(60000);
    EXPECT_EQ(got.number("records"), 300);
    EXPECT_EQ(got.text("hash"), sent.text("hash"));
    second.send("interrupted cmwait");
    ASSERT_FALSE(second.answers(50));
    ASSERT_EQ(server("cmdeal 1").rc, 0);
    r = second.receive();
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.number("code"), 18);
    EXPECT_GT(r.number("signals"), 10);
}

TEST(Limits, no_signal_for_a_pipe_that_nobody_reads)
{
    node home;
    ASSERT_EQ(mkdir((home.directory() + "/problem.log").c_str(), 0700), 0); // no log can be written
    tp client(home);
    ASSERT_EQ(client("broken-errors").rc, 0); // and nobody reads the complaint about it
    {
        tp server(home);
        converse(client, server);
        server.kill(SIGKILL);
    }
    EXPECT_EQ(client("cmrcv 9 10").rc, 24);
    EXPECT_EQ(client("sendmany 0 50 30000 1").rc, 27); // into a socket without another end
    home.kill_broker();
    client("cmsltp ECHOSRV"); // to a broker that is gone, or the first call on a new one
    EXPECT_EQ(client("cminit 0 ECHO").rc, 0); // alive, with a new broker
}

TEST(Limits, programs_that_a_transaction_program_runs_inherit_nothing)
{
    node home;
    tp server(home), client(home);
    const reply before = client("inherited");
    ASSERT_EQ(before.rc, 0);
    ASSERT_GT(before.number("count"), 2);
    converse(client, server);
    ASSERT_EQ(home.control({"trace", "on"}).code, 0);
    EXPECT_EQ(client("cmrcv 9 10").rc, 24); // the problem log is open
    ASSERT_EQ(client("bg cmwait").rc, 0);
    client.background();
    ASSERT_GT(client("open").number("count"), before.number("count"));
    EXPECT_EQ(client("inherited").number("count"), before.number("count"));
}

TEST(Limits, a_program_without_standard_descriptors_prints_into_no_conversation)
{
    node home;
    tp server(home), client(home);
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("servers 3");
    for (const char *first : {"0", "1", "2"})
        EXPECT_EQ(client("bare ECHO " + std::string(first)).rc, 0) << first;
    EXPECT_EQ(server.receive().rc, 0);
}

TEST(Limits, children_of_a_fork_talk_while_a_thread_of_their_parent_waits)
{
    node home;
    tp server(home), client(home), other(home);
    converse(client, server);
    ASSERT_EQ(client("cmptr 0").rc, 0);
    ASSERT_EQ(client("bg cmrcv 0 100").rc, 0);
    ASSERT_EQ(server("cmrcv 0 10").number("status"), 1); // the turn
    ASSERT_EQ(other("cmsltp OTHERSRV").rc, 0);
    other.send("servers 3");
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(client("fork cmcanc 0").rc, 24); // none of its own
        EXPECT_EQ(client("fork clients 1 20 500 OTHER").rc, 0);
    }
    EXPECT_EQ(other.receive().rc, 0);
    ASSERT_EQ(server("cmtext 0 unharmed").rc, 0);
    ASSERT_EQ(server("cmdeal 0").rc, 0);
    EXPECT_EQ(client.background().text("text"), "unharmed");
}
