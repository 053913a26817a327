// verbs_test.cpp - the verbs that the runtime carries out itself, over a broker inside the test.
#include "fake_broker.hpp"

#include <chrono>
#include <fcntl.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace wire;

namespace {

// A completion routine's view of a verb.
struct completed
{
    std::atomic<int> times{0};
    u16 primary = 0;
    void *record = nullptr;

    static void routine(void *record, u32, u32, u32 user_word)
    {
        auto *self = reinterpret_cast<completed *>(user_word);
        self->record = record;
        self->primary = static_cast<VERB_RECORD *>(record)->header.primary_rc;
        self->times++;
    }
    u32 word()
    {
        return reinterpret_cast<u32>(this);
    }
};

class verbs : public connected_test
{
protected:
    void SetUp() override
    {
        connected_test::SetUp();
        connect();
    }

    // Delivers what comes until the verb has completed.
    static void deliver(const completed &verb)
    {
        for (int i = 0; i < 2000 && verb.times == 0; i++)
        {
            vpm_asm_event_fd();
            std::this_thread::sleep_for(std::chrono::milliseconds(i < 100 ? 1 : 10));
        }
        EXPECT_EQ(verb.times, 1);
    }

    VERB_RECORD allocated()
    {
        VERB_RECORD tp = started();
        VERB_RECORD record = allocate(tp.tp_started.tp_id);
        EXPECT_EQ(issue(&record), 0);
        EXPECT_EQ(record.header.primary_rc, 0);
        return record;
    }

    static VERB_RECORD of_conversation(u16 opcode, const VERB_RECORD &conversation)
    {
        VERB_RECORD record = {};
        record.opcode = static_cast<u16>(opcode);
        record.header.opext = conversation.header.opext;
        std::memcpy(record.header.tp_id, conversation.header.tp_id, 8);
        record.header.conv_id = conversation.header.conv_id;
        return record;
    }

    accepted an_attach() const
    {
        accepted answer = {};
        std::memset(answer.tp_name, 0xC1, sizeof answer.tp_name);
        answer.conv_type = 1;
        answer.sync_level = 1;
        std::memset(answer.user_id, 0xC2, sizeof answer.user_id);
        std::memset(answer.mode, 0xC3, sizeof answer.mode);
        std::memcpy(answer.local_alias, "LOCALLU ", 8);
        std::memset(answer.partner_fq_name, 0xC4, sizeof answer.partner_fq_name);
        return answer;
    }
};

// True when the other end of a socket is closed.
bool closed(int fd)
{
    for (int i = 0; i < 1000; i++)
    {
        char byte;
        ssize_t size = recv(fd, &byte, 1, MSG_DONTWAIT);
        if (size == 0)
        {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(size > 0 ? 0 : 2));
    }
    return false;
}

TEST_F(verbs, a_started_tp_has_an_identifier_of_its_own_and_the_default_lu)
{
    std::set<std::string> seen;
    for (int i = 0; i < 100; i++)
    {
        VERB_RECORD tp = started();
        std::string id(reinterpret_cast<char *>(tp.tp_started.tp_id), 8);
        EXPECT_NE(id, std::string(8, '\0'));
        EXPECT_TRUE(seen.insert(id).second);
        EXPECT_EQ(std::memcmp(tp.tp_started.lu_alias, "LOCALLU ", 8), 0);
    }
    EXPECT_TRUE(broker->wait_for(message_kind::find_lu, 1));
    EXPECT_EQ(broker->count(message_kind::find_lu), 1) << "the broker is asked once for each alias";
}

TEST_F(verbs, a_reload_of_the_configuration_makes_the_answer_void)
{
    started();
    broker->set_page_byte(offsetof(control_page, config_generation), 1);
    started();
    EXPECT_TRUE(broker->wait_for(message_kind::find_lu, 2));
}

TEST_F(verbs, a_tp_on_an_unknown_lu_is_refused)
{
    VERB_RECORD record = {};
    record.opcode = NAP_TP_STARTED;
    std::memcpy(record.tp_started.lu_alias, "NOWHERE ", 8);
    issue(&record);
    EXPECT_EQ(record.header.primary_rc, primary_word(rc_parameter_check));
    EXPECT_EQ(record.header.secondary_rc, secondary_word(rc_bad_lu_alias));
}

TEST_F(verbs, return_codes_stand_in_network_order)
{
    VERB_RECORD record = {};
    record.opcode = NAP_TP_ENDED;
    issue(&record);
    EXPECT_EQ(std::memcmp(record.bytes + 4, "\x00\x01", 2), 0);
    EXPECT_EQ(std::memcmp(record.bytes + 8, "\x00\x00\x00\x01", 4), 0);
}

TEST_F(verbs, a_tp_ends_once)
{
    VERB_RECORD tp = started();
    VERB_RECORD record = {};
    record.opcode = NAP_TP_ENDED;
    std::memcpy(record.tp_ended.tp_id, tp.tp_started.tp_id, 8);
    EXPECT_EQ(issue(&record), 0);
    EXPECT_EQ(record.header.primary_rc, 0);
    issue(&record);
    EXPECT_EQ(record.header.primary_rc, primary_word(rc_parameter_check));
    EXPECT_EQ(record.header.secondary_rc, secondary_word(rc_bad_tp_id));
}

TEST_F(verbs, tp_ended_with_a_routine_never_calls_it)
{
    VERB_RECORD tp = started();
    VERB_RECORD record = {};
    record.opcode = NAP_TP_ENDED;
    std::memcpy(record.tp_ended.tp_id, tp.tp_started.tp_id, 8);
    completed verb;
    EXPECT_EQ(issue(&record, completed::routine, verb.word()), NAP_NO_CALLBACK);
    EXPECT_EQ(issue(&record, completed::routine, verb.word()), NAP_NO_CALLBACK); // unknown by now: the same answer
    vpm_asm_event_fd();
    EXPECT_EQ(verb.times, 0);
}

TEST_F(verbs, tp_ended_ends_its_conversations_and_no_others)
{
    VERB_RECORD one = allocated();
    int partner = broker->partner();
    VERB_RECORD other = allocated();
    VERB_RECORD record = {};
    record.opcode = NAP_TP_ENDED;
    std::memcpy(record.tp_ended.tp_id, one.header.tp_id, 8);
    record.tp_ended.type = 1;
    issue(&record);
    EXPECT_TRUE(broker->wait_for(message_kind::ended, 1));
    EXPECT_TRUE(closed(partner));
    VERB_RECORD state = of_conversation(NAP_GET_STATE, one);
    issue(&state);
    EXPECT_EQ(state.header.secondary_rc, secondary_word(rc_bad_conv_id));
    state = of_conversation(NAP_GET_STATE, other);
    issue(&state);
    EXPECT_EQ(state.header.primary_rc, 0);
}

TEST_F(verbs, an_allocation_gives_a_conversation_in_send_state)
{
    VERB_RECORD one = allocated();
    EXPECT_NE(one.header.conv_id, 0u);
    VERB_RECORD state = of_conversation(NAP_GET_STATE, one);
    state.get_state.conv_state = 77;
    issue(&state);
    EXPECT_EQ(state.header.primary_rc, 0);
    EXPECT_EQ(state.get_state.conv_state, 1);
}

TEST_F(verbs, data_reach_the_partner_behind_the_attach)
{
    VERB_RECORD one = allocated();
    int partner = broker->partner();
    VERB_RECORD send = of_conversation(NAP_SEND_DATA, one);
    send.send.length = 5;
    send.send.buffer = reinterpret_cast<const u8 *>("hello");
    send.send.type = 1;
    issue(&send);
    EXPECT_EQ(send.header.primary_rc, 0);
    unsigned char bytes[64];
    ssize_t size = recv(partner, bytes, sizeof bytes, 0);
    ASSERT_EQ(size, 8 + 8 + 5);
    EXPECT_EQ(bytes[4], static_cast<unsigned char>(frame_kind::attach));
    EXPECT_EQ(std::memcmp(bytes + 16, "hello", 5), 0);
}

TEST_F(verbs, an_allocation_is_checked_before_it_is_sent)
{
    VERB_RECORD tp = started();
    struct
    {
        void (*spoil)(VERB_RECORD &);
        u32 secondary;
    } cases[] = {
        {[](VERB_RECORD &r) { r.header.tp_id[0] ^= 1; }, rc_bad_tp_id},
        {[](VERB_RECORD &r) { r.header.opext = 2; }, rc_bad_conv_type},
        {[](VERB_RECORD &r) { r.alloc.sync_level = 2; }, rc_bad_sync_level},
        {[](VERB_RECORD &r) { r.alloc.security = 3; }, rc_bad_security},
        {[](VERB_RECORD &r) { r.alloc.security = 6; }, rc_bad_security},
        {[](VERB_RECORD &r) { r.alloc.return_control = 2; }, rc_bad_return_control},
    };
    for (const auto &one : cases)
    {
        VERB_RECORD record = allocate(tp.tp_started.tp_id);
        one.spoil(record);
        EXPECT_EQ(issue(&record), 0);
        EXPECT_EQ(record.header.primary_rc, primary_word(rc_parameter_check));
        EXPECT_EQ(record.header.secondary_rc, secondary_word(one.secondary));
    }
    EXPECT_EQ(broker->count(message_kind::allocate), 0);
}

TEST_F(verbs, an_allocation_with_a_routine_completes_later)
{
    VERB_RECORD tp = started();
    VERB_RECORD record = allocate(tp.tp_started.tp_id);
    completed verb;
    EXPECT_EQ(issue(&record, completed::routine, verb.word()), NAP_IN_PROGRESS);
    deliver(verb);
    EXPECT_EQ(verb.record, &record);
    EXPECT_EQ(verb.primary, 0);
    EXPECT_NE(record.header.conv_id, 0u);
}

TEST_F(verbs, every_field_of_an_accepted_conversation_arrives)
{
    VERB_RECORD record = accept(0x1234);
    std::thread partner([&] { EXPECT_GE(broker->attach(an_attach()), 0); });
    EXPECT_EQ(issue(&record), 0);
    partner.join();
    const VERB_RECEIVE_ALLOCATE &verb = record.rcvallcp.rcv_alloc;
    EXPECT_EQ(verb.primary_rc, 0);
    EXPECT_EQ(verb.tp_name[63], 0xC1);
    EXPECT_NE(verb.conv_id, 0x1234u);
    EXPECT_NE(verb.conv_id, 0u);
    EXPECT_EQ(verb.sync_level, 1);
    EXPECT_EQ(verb.conv_type, 1);
    EXPECT_EQ(verb.user_id[9], 0xC2);
    EXPECT_EQ(std::memcmp(verb.lu_alias, "LOCALLU ", 8), 0);
    EXPECT_EQ(verb.mode_name[7], 0xC3);
    EXPECT_EQ(verb.fqplu_name[16], 0xC4);
    VERB_RECORD state = {};
    state.opcode = NAP_GET_STATE;
    state.header.opext = 1;
    std::memcpy(state.header.tp_id, verb.tp_id, 8);
    state.header.conv_id = verb.conv_id;
    issue(&state);
    EXPECT_EQ(state.get_state.conv_state, 2); // receive
}

TEST_F(verbs, a_pending_accept_is_cancelled_by_the_librarys_handle)
{
    VERB_RECORD record = accept(0x55);
    completed verb;
    EXPECT_EQ(issue(&record, completed::routine, verb.word()), NAP_IN_PROGRESS);
    VERB_RECORD cancel = {};
    cancel.opcode = NAP_CANCEL_CONVERSATION;
    cancel.header.conv_id = 0x56; // another's
    issue(&cancel);
    EXPECT_EQ(verb.times, 0);
    cancel.header.conv_id = 0x55;
    completed of_cancel;
    EXPECT_NE(issue(&cancel, completed::routine, of_cancel.word()), NAP_IN_PROGRESS);
    EXPECT_EQ(cancel.header.primary_rc, 0);
    EXPECT_EQ(verb.times, 1);
    EXPECT_EQ(verb.primary, 0x2100);
    EXPECT_TRUE(broker->wait_for(message_kind::cancel, 1));
    vpm_asm_event_fd();
    EXPECT_EQ(verb.times, 1);
}

TEST_F(verbs, a_blocked_accept_is_cancelled_from_another_thread)
{
    VERB_RECORD record = accept(0x77);
    std::thread blocked([&] { issue(&record); });
    ASSERT_TRUE(broker->wait_for(message_kind::accept, 1));
    VERB_RECORD cancel = {};
    cancel.opcode = NAP_CANCEL_CONVERSATION;
    cancel.header.conv_id = 0x77;
    issue(&cancel);
    blocked.join();
    EXPECT_EQ(record.header.primary_rc, 0x2100);
}

TEST_F(verbs, an_attach_that_meets_a_cancelled_accept_is_given_back)
{
    // The broker has answered the accept before it hears of the cancel.
    broker->special = [&](int socket, const std::vector<unsigned char> &message) {
        message_head head;
        std::memcpy(&head, message.data(), sizeof head);
        if (head.kind == static_cast<std::uint16_t>(message_kind::cancel))
        {
            broker->attach(an_attach());
            done reply = {{static_cast<std::uint16_t>(message_kind::done), 0, sizeof reply, head.correlation}, {}};
            fake_broker::send(socket, &reply, sizeof reply);
            return true;
        }
        return false;
    };
    VERB_RECORD record = accept(0x55);
    completed verb;
    issue(&record, completed::routine, verb.word());
    ASSERT_TRUE(broker->wait_for(message_kind::accept, 1));
    VERB_RECORD cancel = {};
    cancel.opcode = NAP_CANCEL_CONVERSATION;
    cancel.header.conv_id = 0x55;
    issue(&cancel);
    EXPECT_EQ(verb.primary, 0x2100);
    ASSERT_TRUE(broker->wait_for(message_kind::cancel, 1));
    for (int i = 0; i < 1000 && broker->count(message_kind::ended) == 0; i++)
    {
        vpm_asm_event_fd();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(broker->count(message_kind::ended), 1);
    EXPECT_TRUE(closed(broker->partner()));
    EXPECT_EQ(verb.times, 1);
}

TEST_F(verbs, an_allocation_in_progress_is_cancelled_by_its_tp)
{
    broker->special = [](int, const std::vector<unsigned char> &message) {
        return message[0] == static_cast<unsigned char>(message_kind::allocate); // no session is free
    };
    VERB_RECORD tp = started();
    VERB_RECORD record = allocate(tp.tp_started.tp_id);
    std::thread blocked([&] { issue(&record); });
    ASSERT_TRUE(broker->wait_for(message_kind::allocate, 1));
    VERB_RECORD cancel = {};
    cancel.opcode = NAP_CANCEL_CONVERSATION;
    std::memcpy(cancel.header.tp_id, tp.tp_started.tp_id, 8);
    issue(&cancel);
    blocked.join();
    EXPECT_EQ(record.header.primary_rc, 0x2100);
    EXPECT_EQ(record.header.conv_id, 0u);
}

TEST_F(verbs, a_blocked_receive_is_cancelled_from_another_thread)
{
    VERB_RECORD one = allocated();
    u8 buffer[10];
    VERB_RECORD receive = of_conversation(NAP_RECEIVE_AND_WAIT, one);
    receive.receive.max_length = sizeof buffer;
    receive.receive.buffer = buffer;
    std::thread blocked([&] { issue(&receive); });
    char frames[16];
    for (int i = 0; i < 1000 && recv(broker->partner(), frames, sizeof frames, MSG_PEEK | MSG_DONTWAIT) < 16; i++)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(2)); // until the turn has been given: it waits now
    }
    VERB_RECORD cancel = of_conversation(NAP_CANCEL_CONVERSATION, one);
    issue(&cancel);
    EXPECT_EQ(cancel.header.primary_rc, 0);
    blocked.join();
    EXPECT_EQ(receive.header.primary_rc, 0x2100);
    EXPECT_TRUE(broker->wait_for(message_kind::ended, 1));
    EXPECT_TRUE(closed(broker->partner()));
}

TEST_F(verbs, nothing_to_cancel_is_no_error_but_an_unknown_conversation_is)
{
    VERB_RECORD cancel = {};
    cancel.opcode = NAP_CANCEL_CONVERSATION;
    issue(&cancel);
    EXPECT_EQ(cancel.header.primary_rc, 0);
    VERB_RECORD one = allocated();
    cancel = of_conversation(NAP_CANCEL_CONVERSATION, one);
    cancel.header.conv_id += 0x100000;
    issue(&cancel);
    EXPECT_EQ(cancel.header.secondary_rc, secondary_word(rc_bad_conv_id));
}

TEST_F(verbs, a_conversation_belongs_to_its_tp)
{
    VERB_RECORD one = allocated();
    VERB_RECORD other = started();
    VERB_RECORD state = of_conversation(NAP_GET_STATE, one);
    std::memcpy(state.header.tp_id, other.tp_started.tp_id, 8);
    issue(&state);
    EXPECT_EQ(state.header.primary_rc, primary_word(rc_parameter_check));
    EXPECT_EQ(state.header.secondary_rc, secondary_word(rc_bad_tp_id));
}

TEST_F(verbs, unknown_verbs_are_refused)
{
    for (int opcode : {0x0000, 0x0002, 0x0015, 0x0071, 0xF103, 0xFFFF})
    {
        VERB_RECORD record = {};
        record.opcode = static_cast<u16>(opcode);
        completed verb;
        EXPECT_NE(issue(&record, completed::routine, verb.word()), NAP_IN_PROGRESS);
        EXPECT_EQ(record.header.primary_rc, primary_word(rc_invalid_verb));
        EXPECT_EQ(verb.times, 0);
    }
}

TEST_F(verbs, local_tp_names_go_to_the_broker)
{
    struct
    {
        VERB_LOCAL_TP_NAME verb;
        u8 behind[8];
    } one = {};
    std::memset(one.behind, 0x77, sizeof one.behind);
    one.verb.opcode = NAP_DEFINE_LOCAL_TP_NAME;
    std::memset(one.verb.tp_name, 0xC1, 64);
    issue(&one.verb);
    EXPECT_EQ(one.verb.primary_rc, 0);
    one.verb.opcode = NAP_DELETE_LOCAL_TP_NAME;
    issue(&one.verb);
    EXPECT_TRUE(broker->wait_for(message_kind::add_name, 1));
    EXPECT_TRUE(broker->wait_for(message_kind::remove_name, 1));
    for (u8 byte : one.behind)
    {
        EXPECT_EQ(byte, 0x77); // the record has 76 bytes, not 200
    }
}

TEST_F(verbs, an_accept_without_names_is_refused)
{
    VERB_RECORD record = accept(1);
    record.rcvallcp.rcv_alloc.tp_name_count = 0;
    issue(&record);
    EXPECT_EQ(record.header.primary_rc, primary_word(rc_parameter_check));
}

TEST_F(verbs, a_session_without_a_descriptor_is_an_allocation_error_to_retry)
{
    // What a program sees that has run out of descriptors.
    broker->special = [](int socket, const std::vector<unsigned char> &message) {
        message_head head;
        std::memcpy(&head, message.data(), sizeof head);
        if (head.kind != static_cast<std::uint16_t>(message_kind::allocate))
        {
            return false;
        }
        wire::allocated reply = {};
        reply.head = {static_cast<std::uint16_t>(message_kind::allocated), 0, sizeof reply, head.correlation};
        reply.session = 7;
        fake_broker::send(socket, &reply, sizeof reply);
        return true;
    };
    VERB_RECORD tp = started();
    VERB_RECORD record = allocate(tp.tp_started.tp_id);
    issue(&record);
    EXPECT_EQ(record.header.primary_rc, 0x0300);
    EXPECT_EQ(record.header.secondary_rc, 0x05000000u);
    EXPECT_TRUE(broker->wait_for(message_kind::ended, 1));
}

TEST_F(verbs, node_operator_verbs_open_query_and_close)
{
    NOF_OPEN_VERB open = {};
    open.opcode = NOF_OPEN;
    open.mode = 2;
    u16 token = vpm_lock();
    nof_version(NAP_VERSION, 0, &open, nullptr);
    EXPECT_EQ(open.primary_rc, 0);
    EXPECT_NE(open.target_handle, 0u);
    struct
    {
        u8 record[NOF_RECORD_SIZE];
        u8 behind[8];
    } buffer;
    std::memset(&buffer, 0x77, sizeof buffer);
    NOF_QUERY_SIDE_INFO_VERB query = {};
    query.opcode = NOF_QUERY_SIDE_INFO;
    query.format = 1;
    query.buffer = buffer.record;
    query.buffer_length = NOF_RECORD_SIZE;
    query.record_count = 1;
    query.list_option = 4;
    std::memcpy(query.sym_dest_name, "KNOWN   ", 8);
    nof_version(NAP_VERSION, open.target_handle, &query, buffer.record);
    EXPECT_EQ(query.primary_rc, 0);
    EXPECT_EQ(std::memcmp(buffer.record + 2, "KNOWN   ", 8), 0);
    EXPECT_EQ(buffer.behind[0], 0x77);
    std::memcpy(query.sym_dest_name, "OTHER   ", 8);
    nof_version(NAP_VERSION, open.target_handle, &query, buffer.record);
    EXPECT_EQ(query.primary_rc, 0x0200);
    EXPECT_EQ(query.secondary_rc, 0x58100000u);
    query.buffer_length = NOF_RECORD_SIZE - 1;
    nof_version(NAP_VERSION, open.target_handle, &query, buffer.record);
    EXPECT_EQ(query.primary_rc, primary_word(rc_parameter_check));
    query.buffer_length = NOF_RECORD_SIZE;
    nof_version(NAP_VERSION, open.target_handle, &query, nullptr);
    EXPECT_EQ(query.primary_rc, primary_word(rc_parameter_check));
    nof_version(NAP_VERSION, 0, &query, buffer.record);
    EXPECT_EQ(query.primary_rc, primary_word(rc_parameter_check));
    NOF_CLOSE_VERB close = {};
    close.opcode = NOF_CLOSE;
    close.primary_rc = 99;
    nof_version(NAP_VERSION, open.target_handle, &close, nullptr);
    EXPECT_EQ(close.primary_rc, 0);
    vpm_unlock(token);
}

TEST_F(verbs, a_pending_receive_completes_in_a_sleeper)
{
    VERB_RECORD record = accept(1);
    std::thread partner_thread([&] { broker->attach(an_attach()); });
    issue(&record);
    partner_thread.join();
    int partner = broker->partner();
    u8 buffer[10] = {};
    VERB_RECORD receive = {};
    receive.opcode = NAP_RECEIVE_AND_WAIT;
    receive.header.opext = 1;
    std::memcpy(receive.header.tp_id, record.rcvallcp.rcv_alloc.tp_id, 8);
    receive.header.conv_id = record.rcvallcp.rcv_alloc.conv_id;
    receive.receive.max_length = sizeof buffer;
    receive.receive.buffer = buffer;
    static u32 object;
    static int times;
    times = 0;
    u16 token = vpm_lock();
    object = vpm_allocate_wait_object();
    auto routine = [](void *, u32, u32, u32) {
        times++;
        vpm_wakeup(object);
    };
    EXPECT_EQ(appc_c_async_version(NAP_VERSION, &receive, routine, 1), NAP_IN_PROGRESS);
    VERB_RECORD second = receive;
    EXPECT_EQ(appc_c_async_version(NAP_VERSION, &second, nullptr, 1), 0);
    EXPECT_EQ(second.header.primary_rc, primary_word(rc_tp_busy));
    EXPECT_NE(vpm_sleep(object, 10), 0);
    unsigned char frame[11] = {3, 0, 0, 0, static_cast<unsigned char>(frame_kind::data), flag_record_end, 0, 0,
                               'a', 'b', 'c'};
    EXPECT_EQ(send(partner, frame, sizeof frame, 0), 11);
    EXPECT_EQ(vpm_sleep(object, 10000), 0);
    EXPECT_EQ(times, 1);
    EXPECT_EQ(receive.header.primary_rc, 0);
    EXPECT_EQ(receive.receive.length, 3);
    EXPECT_EQ(std::memcmp(buffer, "abc", 3), 0);
    vpm_release_wait_object(object);
    vpm_unlock(token);
}

TEST_F(verbs, one_blocked_thread_does_not_hold_up_another)
{
    VERB_RECORD record = accept(1);
    std::thread blocked([&] { issue(&record); });
    ASSERT_TRUE(broker->wait_for(message_kind::accept, 1));
    for (int i = 0; i < 50; i++)
    {
        allocated();
    }
    EXPECT_GE(broker->attach(an_attach()), 0);
    blocked.join();
    EXPECT_EQ(record.header.primary_rc, 0);
}

} // namespace
