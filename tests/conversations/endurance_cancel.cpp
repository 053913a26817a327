// endurance_cancel.cpp - commands of the test program that cancel calls at every moment of their life:
//
//   answer THREADS           accepts, and answers each first record after a random while; until an accept fails
//   knock SECONDS SEED       conversations for a server that may do anything with them
//   cancel KIND COUNT SEED   COUNT times a call and, in another thread, its cancel at a random moment
//
// The answers tell how often each return code came: rcN of the calls, cancelN of the cancels.
#include "conversations/endurance_conversation.hpp"

#include <chrono>
#include <future>
#include <memory>
#include <thread>

namespace endurance {

// Accepts for ever in each thread; ends with the first accept that fails.
std::string answer_command(const arguments &words)
{
    return in_threads(integer(words.at(1)), [](CM_INT32 index) {
        const auto c = std::make_unique<conversation>();
        random_source random(static_cast<unsigned>(index));
        CM_INT32 rc;
        while ((rc = c->accept()) == CM_OK)
        {
            CM_INT32 length = 0;
            if (c->receive_turn(length) == CM_OK && c->status == CM_SEND_RECEIVED)
            {
                random_while(random, 300);
                c->send(length);
                c->plain(cmdeal);
            }
        }
        return rc;
    });
}

std::string knock_command(const arguments &words)
{
    const std::int64_t end = monotonic_us() + std::int64_t{integer(words.at(1))} * 1000000;
    random_source random(seed_of(words.at(2)));
    const auto c = std::make_unique<conversation>();
    std::map<CM_INT32, int> codes;
    while (monotonic_us() < end)
    {
        CM_INT32 rc = c->begin("ECHO", random() % 2 == 0);
        if (rc == CM_OK)
            rc = c->send(static_cast<CM_INT32>(random() % 2000));
        CM_INT32 length = 0;
        if (rc == CM_OK)
            rc = c->receive_turn(length);
        ++codes[rc];
        if (rc == CM_OK)
            c->plain(cmcanc);
    }
    return "0" + counts("rc", codes);
}

namespace {

// The call under test runs in a thread of its own; a cancelled call that does not come back is told, and the program is
// of no further use then.
class other_thread
{
public:
    explicit other_thread(std::function<CM_INT32()> call)
        : code_(code_promise_.get_future()), thread_([this, call] { code_promise_.set_value(call()); })
    {
    }
    CM_INT32 code()
    {
        if (code_.wait_for(std::chrono::seconds(20)) != std::future_status::ready)
        {
            constexpr char text[] = "-9 a-call-hangs\n";
            _exit(write(1, text, sizeof text - 1) > 0 ? 0 : 3);
        }
        thread_.join();
        return code_.get();
    }

private:
    std::promise<CM_INT32> code_promise_;
    std::future<CM_INT32> code_;
    std::thread thread_;
};

struct cancelled
{
    CM_INT32 call;   // code of the call
    CM_INT32 cancel; // of the cancel
};

// A receive that waits for the answer of a partner.
cancelled cancel_receive(conversation &c, random_source &random)
{
    CM_INT32 rc = c.begin("ECHO", random() % 2 == 0);
    if (rc == CM_OK)
        rc = c.send(100);
    if (rc != CM_OK)
        return {rc, -1};
    other_thread call([&c] { return c.receive(); });
    random_while(random, 600);
    const CM_INT32 cancel = c.plain(cmcanc);
    return {call.code(), cancel};
}

// The same, cancelled by the end of its context.
cancelled terminate_receive(conversation &c, random_source &random)
{
    CM_INT32 rc = c.begin("ECHO", random() % 2 == 0);
    if (rc == CM_OK)
        rc = c.send(100);
    unsigned char context[CM_CTX_SIZE];
    CM_INT32 length = 0;
    if (rc == CM_OK)
        cmectx(c.id.data(), context, &length, &rc);
    if (rc == CM_OK)
        cmsctx(context, &length, &rc);
    if (rc != CM_OK)
        return {rc, -1};
    other_thread call([&c] { return c.receive(); });
    random_while(random, 600);
    CM_INT32 type = static_cast<CM_INT32>(random() % 2), cancel;
    cmterm(&type, &cancel);
    return {call.code(), cancel};
}

// An accept that waits for one of many clients.
cancelled cancel_accept(conversation &c, random_source &random)
{
    const CM_INT32 rc = c.plain(cminic);
    if (rc != CM_OK)
        return {rc, -1};
    other_thread call([&c] { return c.plain(cmacci); });
    random_while(random, 1500);
    const CM_INT32 cancel = c.plain(cmcanc);
    return {call.code(), cancel};
}

// An allocation that waits for the one session of its mode, which another conversation gives back meanwhile.
cancelled cancel_allocation(conversation &c, random_source &random)
{
    const auto holder = std::make_unique<conversation>();
    CM_INT32 rc = holder->begin("NARROW");
    if (rc == CM_OK)
        rc = c.initialize("NARROW");
    if (rc != CM_OK)
        return {rc, -1};
    other_thread call([&c] { return c.plain(cmallc); });
    const unsigned seed = static_cast<unsigned>(random());
    other_thread giver([&holder, seed] {
        random_source own(seed);
        random_while(own, 600);
        return holder->plain(cmcanc);
    });
    random_while(random, 600);
    const CM_INT32 cancel = c.plain(cmcanc);
    const CM_INT32 given = giver.code();
    return {call.code(), given == CM_OK ? cancel : given};
}

// A non-blocking receive: cancelled while this thread waits for its completion.
cancelled cancel_pending(conversation &c, random_source &random)
{
    CM_INT32 rc = c.begin("ECHO", random() % 2 == 0);
    if (rc == CM_OK)
        rc = c.send(100);
    if (rc == CM_OK)
        rc = c.set(cmspm, CM_NON_BLOCKING);
    if (rc != CM_OK)
        return {rc, -1};
    rc = c.receive();
    const unsigned seed = static_cast<unsigned>(random());
    other_thread canceller([&c, seed] {
        random_source own(seed);
        random_while(own, 600);
        return c.plain(cmcanc);
    });
    if (rc == CM_OPERATION_INCOMPLETE)
    {
        unsigned char id[CM_CID_SIZE];
        CM_INT32 of_call = CM_OK;
        other_thread waiter([&] {
            CM_INT32 waited;
            cmwait(id, &of_call, &waited);
            return waited;
        });
        rc = waiter.code();
        rc = rc == CM_OK ? of_call : rc;
    }
    return {rc, canceller.code()};
}

} // namespace

std::string cancel_command(const arguments &words)
{
    static const std::map<std::string, cancelled (*)(conversation &, random_source &)> kinds = {
        {"receive", cancel_receive}, {"term", terminate_receive}, {"accept", cancel_accept},
        {"allocation", cancel_allocation}, {"pending", cancel_pending}};
    const auto kind = kinds.at(words.at(1));
    random_source random(seed_of(words.at(3)));
    const auto c = std::make_unique<conversation>();
    std::map<CM_INT32, int> calls, cancels;
    for (CM_INT32 i = 0; i < integer(words.at(2)); ++i)
    {
        const cancelled result = kind(*c, random);
        ++calls[result.call];
        ++cancels[result.cancel];
        // What completed before the cancel came may still be there.
        c->plain(cmcanc);
    }
    return "0" + counts("rc", calls) + counts("cancel", cancels);
}

} // namespace endurance
