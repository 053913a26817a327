// path_test.cpp - brokers that lie and brokers that die; the path event; the child of a fork.
#include "fake_broker.hpp"

#include <chrono>
#include <dirent.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace wire;

namespace {

class path : public connected_test
{
protected:
    static int open_descriptors()
    {
        int count = 0;
        DIR *opened = opendir("/proc/self/fd");
        while (readdir(opened) != nullptr)
        {
            count++;
        }
        closedir(opened);
        return count;
    }

    // Answers the find_lu of a TP_STARTED in some wrong way; the verb must fail and the path be lost, once.
    void wrong_answer(std::function<void(int socket, std::uint32_t correlation)> wrong)
    {
        broker->special = [wrong](int socket, const std::vector<unsigned char> &message) {
            message_head head;
            std::memcpy(&head, message.data(), sizeof head);
            if (head.kind != static_cast<std::uint16_t>(message_kind::find_lu))
            {
                return false;
            }
            wrong(socket, head.correlation);
            return true;
        };
        connect();
        VERB_RECORD record = {};
        record.opcode = NAP_TP_STARTED;
        issue(&record);
        EXPECT_EQ(record.header.primary_rc, primary_word(rc_comm_subsystem_abended));
        vpm_unlock(vpm_lock());
        EXPECT_EQ(events, 1);
    }
};

lu_found an_answer(std::uint32_t correlation)
{
    lu_found answer = {};
    answer.head = {static_cast<std::uint16_t>(message_kind::lu_found), 0, sizeof answer, correlation};
    return answer;
}

TEST_F(path, without_a_broker_program_there_is_no_path_user)
{
    broker.reset();
    setenv("CPIC_NODED", "/nonexistent/cpicnoded", 1);
    u16 token = vpm_lock();
    vpm_init_path_user(0, 0, path_called, reinterpret_cast<u32>(this), &path_user_handle);
    vpm_unlock(token);
    EXPECT_EQ(path_user_handle, 0u);
    unsetenv("CPIC_NODED");
    EXPECT_NE(contents("problem.log").find("problem 0x20040002"), std::string::npos);
    broker = std::make_unique<fake_broker>(directory); // for the clearing up
}

TEST_F(path, verbs_without_a_path_say_so)
{
    VERB_RECORD record = {};
    record.opcode = NAP_TP_STARTED;
    issue(&record);
    EXPECT_EQ(record.header.primary_rc, primary_word(rc_comm_subsystem_not_loaded));
    NOF_OPEN_VERB open = {};
    open.opcode = NOF_OPEN;
    u16 token = vpm_lock();
    nof_version(NAP_VERSION, 0, &open, nullptr);
    vpm_unlock(token);
    EXPECT_EQ(open.primary_rc, primary_word(rc_comm_subsystem_not_loaded));
}

TEST_F(path, a_welcome_without_a_control_page_is_none)
{
    broker->special = [](int socket, const std::vector<unsigned char> &message) {
        message_head head;
        std::memcpy(&head, message.data(), sizeof head);
        welcome reply = {};
        reply.head = {static_cast<std::uint16_t>(message_kind::welcome), 0, sizeof reply, head.correlation};
        reply.version = protocol_version;
        fake_broker::send(socket, &reply, sizeof reply);
        return true;
    };
    int before = open_descriptors();
    u16 token = vpm_lock();
    vpm_init_path_user(0, 0, path_called, reinterpret_cast<u32>(this), &path_user_handle);
    vpm_unlock(token);
    EXPECT_EQ(path_user_handle, 0u);
    for (int i = 0; i < 1000 && open_descriptors() > before + 1; i++)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the broker's ends, and the problem log
    }
    EXPECT_LE(open_descriptors(), before + 1);
}

TEST_F(path, a_broker_that_closes_before_the_welcome_is_tried_again)
{
    std::atomic<int> greetings{0};
    broker->special = [&](int socket, const std::vector<unsigned char> &message) {
        if (message[0] == static_cast<unsigned char>(message_kind::hello) && greetings++ == 0)
        {
            shutdown(socket, SHUT_RDWR);
            return true;
        }
        return false;
    };
    connect();
    EXPECT_EQ(greetings, 2);
}

TEST_F(path, garbage_loses_the_path)
{
    wrong_answer([](int socket, std::uint32_t) { fake_broker::send(socket, "garbage, and a good deal of it", 30); });
}

TEST_F(path, a_message_longer_than_any_loses_the_path)
{
    wrong_answer([](int socket, std::uint32_t) {
        std::vector<char> much(20000, 1);
        fake_broker::send(socket, much.data(), much.size());
    });
}

TEST_F(path, a_length_that_does_not_fit_loses_the_path)
{
    wrong_answer([](int socket, std::uint32_t correlation) {
        lu_found answer = an_answer(correlation);
        fake_broker::send(socket, &answer, sizeof answer - 1);
    });
}

TEST_F(path, an_answer_to_nothing_loses_the_path)
{
    wrong_answer([](int socket, std::uint32_t correlation) {
        lu_found answer = an_answer(correlation + 1);
        fake_broker::send(socket, &answer, sizeof answer);
    });
}

TEST_F(path, an_answer_of_another_kind_loses_the_path)
{
    wrong_answer([](int socket, std::uint32_t correlation) {
        done answer = {{static_cast<std::uint16_t>(message_kind::done), 0, sizeof answer, correlation}, {}};
        fake_broker::send(socket, &answer, sizeof answer);
    });
}

TEST_F(path, a_broker_that_dies_under_a_request_loses_the_path)
{
    wrong_answer([](int socket, std::uint32_t) { shutdown(socket, SHUT_RDWR); });
}

TEST_F(path, surplus_descriptors_are_closed)
{
    broker->special = [](int socket, const std::vector<unsigned char> &message) {
        message_head head;
        std::memcpy(&head, message.data(), sizeof head);
        if (head.kind != static_cast<std::uint16_t>(message_kind::find_lu))
        {
            return false;
        }
        lu_found answer = an_answer(head.correlation);
        std::memcpy(answer.alias, "LOCALLU ", 8);
        fake_broker::send(socket, &answer, sizeof answer, std::vector<int>(20, STDERR_FILENO));
        return true;
    };
    connect();
    VERB_RECORD warm = {};
    warm.opcode = NAP_GET_STATE;
    issue(&warm);
    int before = open_descriptors();
    started();
    EXPECT_LE(open_descriptors(), before + 1); // at most the one by which a waiting thread is woken
}

TEST_F(path, the_loss_ends_every_verb_in_progress_and_is_told_once)
{
    connect();
    VERB_RECORD tp = started();
    VERB_RECORD conversation = allocate(tp.tp_started.tp_id);
    issue(&conversation);
    ASSERT_EQ(conversation.header.primary_rc, 0);

    std::atomic<int> inside{0};
    std::atomic<bool> told_inside{false};
    static std::atomic<int> *inside_now;
    static std::atomic<bool> *told;
    inside_now = &inside;
    told = &told_inside;
    u16 token = vpm_lock();
    u32 second;
    vpm_init_path_user(0, 0, [](u32 word, path_event *) -> u32 {
        *told = *told || *inside_now != 0;
        vpm_terminate_path_user(word);
        return 0;
    }, 2, &second); // the second user of this process
    EXPECT_EQ(second, 2u);
    u32 object = vpm_allocate_wait_object();
    vpm_unlock(token);

    VERB_RECORD accepting = accept(1);
    VERB_RECORD receive = {};
    u8 buffer[8];
    receive.opcode = NAP_RECEIVE_AND_WAIT;
    receive.header.opext = 1;
    std::memcpy(receive.header.tp_id, conversation.header.tp_id, 8);
    receive.header.conv_id = conversation.header.conv_id;
    receive.receive.max_length = 8;
    receive.receive.buffer = buffer;
    int slept = 0;
    std::vector<std::thread> threads;
    auto call = [&](auto body) {
        threads.emplace_back([&, body] {
            u16 mine = vpm_lock();
            inside++;
            body();
            inside--;
            vpm_unlock(mine);
        });
    };
    call([&] { appc_c_version(NAP_VERSION, &accepting); });
    call([&] { appc_c_version(NAP_VERSION, &receive); });
    call([&] { slept = vpm_sleep(object, -1); });
    ASSERT_TRUE(broker->wait_for(message_kind::accept, 1));
    while (inside != 3)
    {
        std::this_thread::yield();
    }
    broker->die();
    for (std::thread &thread : threads)
    {
        thread.join();
    }
    vpm_unlock(vpm_lock());
    vpm_asm_event_fd();
    vpm_unlock(vpm_lock());
    EXPECT_EQ(accepting.header.primary_rc, primary_word(rc_comm_subsystem_abended));
    EXPECT_EQ(receive.header.primary_rc, 0x0F00);
    EXPECT_NE(slept, 0);
    EXPECT_EQ(events, 1);
    EXPECT_FALSE(told_inside);
    token = vpm_lock();
    vpm_release_wait_object(object);
    vpm_unlock(token);
}

TEST_F(path, a_call_waits_for_those_that_still_leave)
{
    // A thread keeps the library busy for a while after the loss; the event comes only after it, but before the next
    // call goes on.
    connect();
    VERB_RECORD accepting = accept(1);
    std::atomic<bool> left{false};
    std::thread busy([&] {
        u16 mine = vpm_lock();
        appc_c_version(NAP_VERSION, &accepting);
        u32 object = vpm_allocate_wait_object();
        vpm_sleep(object, 50); // fails at once; the lock may change hands
        vpm_release_wait_object(object);
        EXPECT_EQ(events, 0);
        left = true;
        vpm_unlock(mine);
    });
    ASSERT_TRUE(broker->wait_for(message_kind::accept, 1));
    broker->die();
    while (events == 0)
    {
        vpm_unlock(vpm_lock());
    }
    EXPECT_TRUE(left);
    busy.join();
}

TEST_F(path, an_allocation_in_progress_fails_to_be_retried)
{
    broker->special = [](int socket, const std::vector<unsigned char> &message) {
        if (message[0] == static_cast<unsigned char>(message_kind::allocate))
        {
            shutdown(socket, SHUT_RDWR);
            return true;
        }
        return false;
    };
    connect();
    VERB_RECORD tp = started();
    VERB_RECORD record = allocate(tp.tp_started.tp_id);
    issue(&record);
    EXPECT_EQ(record.header.primary_rc, 0x0300);
    EXPECT_EQ(record.header.secondary_rc, 0x05000000u);
}

TEST_F(path, after_the_loss_everything_begins_anew)
{
    connect();
    VERB_RECORD old = started();
    VERB_RECORD conversation = allocate(old.tp_started.tp_id);
    issue(&conversation);
    lose_path();
    EXPECT_EQ(events, 1);
    broker = std::make_unique<fake_broker>(directory);
    connect();
    VERB_RECORD state = {};
    state.opcode = NAP_GET_STATE;
    std::memcpy(state.header.tp_id, conversation.header.tp_id, 8);
    state.header.conv_id = conversation.header.conv_id;
    issue(&state);
    EXPECT_EQ(state.header.secondary_rc, secondary_word(rc_bad_conv_id));
    VERB_RECORD tp = started();
    VERB_RECORD record = allocate(tp.tp_started.tp_id);
    issue(&record);
    EXPECT_EQ(record.header.primary_rc, 0);
}

TEST_F(path, a_send_that_fails_shows_the_loss)
{
    connect();
    VERB_RECORD tp = started();
    broker->die();
    VERB_RECORD record = allocate(tp.tp_started.tp_id);
    issue(&record);
    EXPECT_EQ(record.header.primary_rc, 0x0300);
    EXPECT_EQ(events, 0);
    vpm_unlock(vpm_lock());
    EXPECT_EQ(events, 1);
}

// ---- fork ---------------------------------------------------------------------------------------------------------

TEST_F(path, the_child_of_a_fork_begins_anew_and_leaves_the_parents_conversation_alone)
{
    connect();
    VERB_RECORD tp = started();
    VERB_RECORD conversation = allocate(tp.tp_started.tp_id);
    issue(&conversation);
    int partner = broker->partner();
    pid_t child = fork();
    if (child == 0)
    {
        int wrong = 0;
        wrong |= events != 0 ? 1 : 0;
        vpm_unlock(vpm_lock());
        wrong |= events != 1 ? 2 : 0;
        wrong |= path_user_handle != 0 ? 4 : 0;
        vpm_unlock(vpm_lock());
        wrong |= events != 1 ? 8 : 0;
        VERB_RECORD state = {};
        state.opcode = NAP_GET_STATE;
        std::memcpy(state.header.tp_id, conversation.header.tp_id, 8);
        state.header.conv_id = conversation.header.conv_id;
        issue(&state);
        wrong |= state.header.secondary_rc != secondary_word(rc_bad_conv_id) ? 16 : 0;
        // A connection of its own, to the parent's broker.
        u16 token = vpm_lock();
        vpm_init_path_user(0, 0, path_called, reinterpret_cast<u32>(this), &path_user_handle);
        vpm_unlock(token);
        wrong |= path_user_handle == 0 ? 32 : 0;
        VERB_RECORD mine = started();
        wrong |= std::memcmp(mine.tp_started.tp_id, tp.tp_started.tp_id, 8) == 0 ? 64 : 0;
        leave_child(wrong);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    vpm_unlock(vpm_lock());
    EXPECT_EQ(events, 0);
    EXPECT_EQ(broker->count(message_kind::ended), 0);
    VERB_RECORD send_data = {};
    send_data.opcode = NAP_SEND_DATA;
    send_data.header.opext = 1;
    std::memcpy(send_data.header.tp_id, conversation.header.tp_id, 8);
    send_data.header.conv_id = conversation.header.conv_id;
    send_data.send.buffer = reinterpret_cast<const u8 *>("parent");
    send_data.send.length = 6;
    send_data.send.type = 1;
    issue(&send_data);
    EXPECT_EQ(send_data.header.primary_rc, 0);
    char bytes[64];
    EXPECT_EQ(recv(partner, bytes, sizeof bytes, 0), 8 + 8 + 6);
}

TEST_F(path, a_child_keeps_no_descriptor_of_its_parent)
{
    connect();
    VERB_RECORD tp = started();
    VERB_RECORD conversation = allocate(tp.tp_started.tp_id);
    issue(&conversation);
    int partner = broker->partner();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    pid_t child = fork();
    if (child == 0)
    {
        char byte;
        close(ends[1]);
        ssize_t got = read(ends[0], &byte, 1); // lives until the parent says
        leave_child(got == 0 ? 0 : 1);
    }
    close(ends[0]);
    // The parent's end goes away; the partner must see it although the child lives.
    VERB_RECORD cancel = {};
    cancel.opcode = NAP_CANCEL_CONVERSATION;
    std::memcpy(cancel.header.tp_id, conversation.header.tp_id, 8);
    cancel.header.conv_id = conversation.header.conv_id;
    issue(&cancel);
    bool seen = false;
    for (int i = 0; i < 1000 && !seen; i++)
    {
        char byte;
        seen = recv(partner, &byte, 1, MSG_DONTWAIT) == 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_TRUE(seen);
    close(ends[1]);
    int status;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(path, a_fork_while_other_threads_wait)
{
    connect();
    VERB_RECORD accepting = accept(1);
    std::thread blocked([&] { issue(&accepting); });
    ASSERT_TRUE(broker->wait_for(message_kind::accept, 1));
    pid_t child = fork();
    if (child == 0)
    {
        vpm_unlock(vpm_lock()); // must not wait for the thread that does not exist here
        leave_child(events == 1 ? 0 : 1);
    }
    int status;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    accepted answer = {};
    std::memset(answer.tp_name, 0xC1, sizeof answer.tp_name);
    EXPECT_GE(broker->attach(answer), 0);
    blocked.join();
    EXPECT_EQ(accepting.header.primary_rc, 0);
}

} // namespace
