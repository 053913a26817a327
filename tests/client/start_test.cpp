// start_test.cpp - the client library with the real broker: starting it, talking through it, losing it.
#include "fake_broker.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class start : public node_directory_test
{
protected:
    void TearDown() override
    {
        for (pid_t broker : brokers())
        {
            kill(broker, SIGKILL);
        }
        // A process that ends loses its arguments before its sockets: the path event tells that it is gone.
        for (int i = 0; i < 500 && (user != 0 || !brokers().empty()); i++)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(i < 50 ? 1 : 10));
            vpm_asm_event_fd();
        }
        EXPECT_EQ(user, 0u);
        node_directory_test::TearDown();
    }

    // The processes whose arguments name this test's directory.
    std::vector<pid_t> brokers() const
    {
        std::vector<pid_t> found;
        DIR *opened = opendir("/proc");
        while (dirent *entry = readdir(opened))
        {
            std::ifstream stream(std::string("/proc/") + entry->d_name + "/cmdline");
            std::stringstream all;
            all << stream.rdbuf();
            std::string arguments = all.str();
            if (arguments.find("cpicnoded") != std::string::npos && arguments.find(directory) != std::string::npos)
            {
                found.push_back(std::atoi(entry->d_name));
            }
        }
        closedir(opened);
        return found;
    }

    static u32 user;
    static int events;

    static bool connect()
    {
        u16 token = vpm_lock();
        vpm_init_path_user(0, 0, [](u32, path_event *) -> u32 {
            events++;
            vpm_terminate_path_user(user);
            user = 0;
            return 0;
        }, 0, &user);
        vpm_unlock(token);
        return user != 0;
    }

    static void issue(void *record)
    {
        u16 token = vpm_lock();
        appc_c_version(NAP_VERSION, record);
        vpm_unlock(token);
    }
};

u32 start::user;
int start::events;

TEST_F(start, the_first_program_starts_a_broker_unnoticed)
{
    static std::atomic<int> signals;
    struct sigaction action = {};
    action.sa_handler = [](int) { signals++; };
    sigaction(SIGCHLD, &action, nullptr);
    ASSERT_TRUE(connect()) << contents("problem.log") << contents("broker.log");
    EXPECT_EQ(signals, 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1); // there is no child
    EXPECT_EQ(brokers().size(), 1u);
    signal(SIGCHLD, SIG_DFL);
}

TEST_F(start, a_program_that_ignores_its_children_starts_one_too)
{
    signal(SIGCHLD, SIG_IGN);
    EXPECT_TRUE(connect()) << contents("problem.log") << contents("broker.log");
    signal(SIGCHLD, SIG_DFL);
}

TEST_F(start, ten_programs_at_once_start_one_broker)
{
    int go[2];
    int ready[2];
    int leave[2];
    ASSERT_EQ(pipe(go), 0);
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(pipe(leave), 0);
    std::vector<pid_t> children;
    for (int i = 0; i < 10; i++)
    {
        pid_t child = fork();
        if (child == 0)
        {
            close(go[1]);
            close(leave[1]);
            char byte;
            bool good = read(go[0], &byte, 1) == 0;
            good = connect() && good;
            byte = good ? 'y' : 'n';
            good = write(ready[1], &byte, 1) == 1 && good;
            good = read(leave[0], &byte, 1) == 0 && good;
            leave_child(good ? 0 : 1);
        }
        children.push_back(child);
    }
    close(go[1]); // all of them go
    std::string answers;
    while (answers.size() < 10)
    {
        char byte;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        answers += byte;
    }
    EXPECT_EQ(answers, std::string(10, 'y')) << contents("problem.log") << contents("broker.log");
    EXPECT_EQ(brokers().size(), 1u);
    close(leave[1]);
    for (pid_t child : children)
    {
        int status;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    for (int fd : {go[0], ready[0], ready[1], leave[0]})
    {
        close(fd);
    }
}

// Somebody has the lock for starting and does nothing: stopped, or not one of ours.
TEST_F(start, a_lock_that_nobody_gives_back_is_not_waited_for_for_ever)
{
    int lock = open((directory + "/start.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(connect());
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(30));
    EXPECT_NE(contents("problem.log").find("has held the lock for starting a broker"), std::string::npos)
        << contents("problem.log");
    EXPECT_TRUE(brokers().empty());
    close(lock);
    EXPECT_TRUE(connect());
}

TEST_F(start, a_program_that_waits_for_the_lock_takes_a_broker_that_comes_meanwhile)
{
    int lock = open((directory + "/start.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    int answer[2];
    ASSERT_EQ(pipe2(answer, O_CLOEXEC), 0);
    pid_t child = fork();
    if (child == 0)
    {
        char byte = connect() ? 'y' : 'n';
        leave_child(write(answer[1], &byte, 1) == 1 ? 0 : 1);
    }
    pollfd watched = {answer[0], POLLIN, 0};
    EXPECT_EQ(poll(&watched, 1, 100), 0); // it waits
    const std::string broker = std::string(CPIC_TEST_BROKER) + " --start --dir " + directory;
    EXPECT_EQ(system(broker.c_str()), 0);
    char byte = 0;
    EXPECT_EQ(read(answer[0], &byte, 1), 1);
    EXPECT_EQ(byte, 'y');
    int status;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    for (int fd : {lock, answer[0], answer[1]})
    {
        close(fd);
    }
}

TEST_F(start, a_broker_that_is_killed_ends_what_waits_and_the_next_call_starts_another)
{
    ASSERT_TRUE(connect());
    u8 name[64];
    std::memset(name, 0xC1, sizeof name);
    VERB_LOCAL_TP_NAME define = {};
    define.opcode = NAP_DEFINE_LOCAL_TP_NAME;
    std::memcpy(define.tp_name, name, sizeof name);
    issue(&define);
    EXPECT_EQ(define.primary_rc, 0);
    VERB_RECORD accept = {};
    accept.opcode = NAP_RECEIVE_ALLOCATE_CPIC;
    accept.rcvallcp.rcv_alloc.tp_name_count = 1;
    accept.rcvallcp.rcv_alloc.tp_name_list = name;
    std::chrono::steady_clock::time_point killed;
    std::thread killer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // either way of it must work: waiting or not yet
        killed = std::chrono::steady_clock::now();
        kill(brokers().at(0), SIGKILL);
    });
    int before = events;
    issue(&accept);
    EXPECT_LT(std::chrono::steady_clock::now() - killed, std::chrono::seconds(2));
    killer.join();
    EXPECT_EQ(accept.header.primary_rc, primary_word(wire::rc_comm_subsystem_abended));
    vpm_unlock(vpm_lock());
    EXPECT_EQ(events, before + 1);
    ASSERT_TRUE(connect()) << contents("problem.log") << contents("broker.log");
    VERB_RECORD tp = {};
    tp.opcode = NAP_TP_STARTED;
    issue(&tp);
    EXPECT_EQ(tp.header.primary_rc, 0);
}

// One end of a conversation of a thread: blocking verbs on it.
struct talker
{
    u8 tp_id[8] = {};
    u32 conv_id = 0;

    u16 verb(VERB_RECORD &record, u16 opcode)
    {
        record.opcode = opcode;
        record.header.opext = 1;
        std::memcpy(record.header.tp_id, tp_id, 8);
        record.header.conv_id = conv_id;
        u16 token = vpm_lock();
        appc_c_version(NAP_VERSION, &record);
        vpm_unlock(token);
        return record.header.primary_rc;
    }

    // Sends a number and gives the turn.
    u16 say(u32 number, u8 type)
    {
        VERB_RECORD record = {};
        record.send.buffer = reinterpret_cast<const u8 *>(&number);
        record.send.length = sizeof number;
        record.send.type = type;
        return verb(record, NAP_SEND_DATA);
    }

    u16 hear(u32 &number)
    {
        VERB_RECORD record = {};
        record.receive.buffer = reinterpret_cast<u8 *>(&number);
        record.receive.max_length = sizeof number;
        record.receive.status_with_data = 1;
        return verb(record, NAP_RECEIVE_AND_WAIT);
    }
};

TEST_F(start, thirty_two_threads_converse_in_pairs)
{
    constexpr int pairs = 16;
    constexpr u32 rounds = 300;
    ASSERT_TRUE(connect());
    u8 name[64];
    std::memset(name, 0x40, sizeof name);
    std::memset(name, 0xC1, 8);
    VERB_LOCAL_TP_NAME define = {};
    define.opcode = NAP_DEFINE_LOCAL_TP_NAME;
    std::memcpy(define.tp_name, name, sizeof name);
    issue(&define);
    std::atomic<u32> right{0};
    auto ask = [&](u32 seed) {
        talker me;
        VERB_RECORD tp = {};
        tp.opcode = NAP_TP_STARTED;
        issue(&tp);
        VERB_RECORD record = {};
        record.opcode = NAP_M_ALLOCATE;
        record.header.opext = 1;
        std::memcpy(record.alloc.header.tp_id, tp.tp_started.tp_id, 8);
        std::memcpy(record.alloc.plu_alias, tp.tp_started.lu_alias, 8);
        std::memset(record.alloc.mode_name, 0x40, 8);
        std::memcpy(record.alloc.tp_name, name, 64);
        issue(&record);
        ASSERT_EQ(record.header.primary_rc, 0);
        std::memcpy(me.tp_id, tp.tp_started.tp_id, 8);
        me.conv_id = record.header.conv_id;
        for (u32 i = 0; i < rounds; i++)
        {
            u32 answer = 0;
            ASSERT_EQ(me.say(seed + i, 3), 0); // prepare to receive
            ASSERT_EQ(me.hear(answer), 0);
            right += answer == (seed + i) * 2 ? 1 : 0;
        }
        ASSERT_EQ(me.say(0, 5), 0); // deallocate
    };
    auto answer = [&] {
        VERB_RECORD accept = {};
        accept.opcode = NAP_RECEIVE_ALLOCATE_CPIC;
        accept.rcvallcp.rcv_alloc.tp_name_count = 1;
        accept.rcvallcp.rcv_alloc.tp_name_list = name;
        issue(&accept);
        ASSERT_EQ(accept.header.primary_rc, 0);
        talker me;
        std::memcpy(me.tp_id, accept.rcvallcp.rcv_alloc.tp_id, 8);
        me.conv_id = accept.rcvallcp.rcv_alloc.conv_id;
        for (u32 i = 0; i < rounds; i++)
        {
            u32 number = 0;
            ASSERT_EQ(me.hear(number), 0);
            ASSERT_EQ(me.say(number * 2, 3), 0);
        }
        u32 last;
        ASSERT_EQ(me.hear(last), 0);
        ASSERT_EQ(me.hear(last), 0x0900);
    };
    std::vector<std::thread> threads;
    for (u32 i = 0; i < pairs; i++)
    {
        threads.emplace_back(answer);
        threads.emplace_back(ask, i * 1000);
    }
    for (std::thread &thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(right, pairs * rounds);
}

TEST_F(start, two_programs_converse)
{
    ASSERT_TRUE(connect());
    u8 name[64];
    std::memset(name, 0x40, sizeof name);
    std::memset(name, 0xC1, 8);
    VERB_LOCAL_TP_NAME define = {};
    define.opcode = NAP_DEFINE_LOCAL_TP_NAME;
    std::memcpy(define.tp_name, name, sizeof name);
    issue(&define);
    ASSERT_EQ(define.primary_rc, 0);
    pid_t child = fork();
    if (child == 0)
    {
        vpm_unlock(vpm_lock());
        VERB_RECORD tp = {};
        tp.opcode = NAP_TP_STARTED;
        VERB_RECORD record = {};
        record.opcode = NAP_M_ALLOCATE;
        if (!connect())
        {
            leave_child(1);
        }
        issue(&tp);
        record.header.opext = 1;
        std::memcpy(record.alloc.header.tp_id, tp.tp_started.tp_id, 8);
        std::memcpy(record.alloc.plu_alias, tp.tp_started.lu_alias, 8);
        std::memset(record.alloc.mode_name, 0x40, 8);
        std::memcpy(record.alloc.tp_name, name, 64);
        issue(&record);
        if (record.header.primary_rc != 0)
        {
            leave_child(2);
        }
        VERB_RECORD send = {};
        send.opcode = NAP_SEND_DATA;
        send.header = record.header;
        send.header.opcode = NAP_SEND_DATA;
        send.send.buffer = reinterpret_cast<const u8 *>("a word");
        send.send.length = 6;
        send.send.type = 5; // and deallocate
        issue(&send);
        leave_child(send.header.primary_rc == 0 ? 0 : 3);
    }
    VERB_RECORD accept = {};
    accept.opcode = NAP_RECEIVE_ALLOCATE_CPIC;
    accept.rcvallcp.rcv_alloc.tp_name_count = 1;
    accept.rcvallcp.rcv_alloc.tp_name_list = name;
    issue(&accept);
    ASSERT_EQ(accept.header.primary_rc, 0);
    EXPECT_EQ(std::memcmp(accept.rcvallcp.rcv_alloc.tp_name, name, 64), 0);
    u8 buffer[20];
    VERB_RECORD receive = {};
    receive.opcode = NAP_RECEIVE_AND_WAIT;
    receive.header.opext = 1;
    std::memcpy(receive.header.tp_id, accept.rcvallcp.rcv_alloc.tp_id, 8);
    receive.header.conv_id = accept.rcvallcp.rcv_alloc.conv_id;
    receive.receive.buffer = buffer;
    receive.receive.max_length = sizeof buffer;
    issue(&receive);
    EXPECT_EQ(receive.header.primary_rc, 0);
    EXPECT_EQ(receive.receive.length, 6);
    EXPECT_EQ(std::memcmp(buffer, "a word", 6), 0);
    receive.receive.what_received = 0;
    issue(&receive);
    EXPECT_EQ(receive.header.primary_rc, 0x0900);
    int status;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

} // namespace
