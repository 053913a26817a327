// calls.cpp - what the library itself costs: calls over a node that answers at once (double_node.cpp), against the
// same steps written out by hand; and how the cost of a call grows with the number of open conversations.
#include "double_node.hpp"
#include "measure.hpp"
#include "node_verbs.h"

#include <cpic.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr int repetitions = 9;

using conversation_id = unsigned char[CM_CID_SIZE];

void ok(const char *call, CM_RETURN_CODE rc)
{
    if (rc != CM_OK)
    {
        std::fprintf(stderr, "bench: %s gives return code %ld\n", call, static_cast<long>(rc));
        std::exit(1);
    }
}

void begin(unsigned char *id)
{
    unsigned char blank[] = "        ";
    CM_INT32 rc;
    cminit(id, blank, &rc);
    ok("CMINIT", rc);
    cmallc(id, &rc);
    ok("CMALLC", rc);
}

void send(unsigned char *id)
{
    static unsigned char data[100];
    CM_INT32 length = sizeof data, request_to_send, rc;
    cmsend(id, data, &length, &request_to_send, &rc);
    ok("CMSEND", rc);
}

void end(unsigned char *id)
{
    CM_INT32 rc;
    cmdeal(id, &rc);
    ok("CMDEAL", rc);
}

// A conversation record as small as one by hand can be.
struct by_hand
{
    VERB_RECORD verb;
    u8 tp_id[8];
    u32 conversation;
    u32 pending;
};

u32 hand_table;

// The steps of a send, nothing else: lock, look-up, clear, fill, issue, unlock.
void send_by_hand(u32 handle)
{
    static const unsigned char data[100] = {};
    const u16 token = vpm_lock();
    auto record = static_cast<by_hand *>(vtm_get_pointer(hand_table, handle));
    if (record != nullptr && record->pending == 0)
    {
        VERB_SEND_DATA &verb = record->verb.send;
        std::memset(record->verb.bytes, 0, sizeof record->verb.bytes);
        verb.header.opcode = NAP_SEND_DATA;
        verb.header.opext = 1;
        std::memcpy(verb.header.tp_id, record->tp_id, sizeof record->tp_id);
        verb.header.conv_id = record->conversation;
        verb.length = sizeof data;
        verb.buffer = data;
        ++record->pending;
        appc_c_async_version(NAP_VERSION, &record->verb, nullptr, 1);
        --record->pending;
        if (verb.header.primary_rc != 0)
            std::abort();
    }
    vpm_unlock(token);
}

template <class Work> double seconds_per(int count, Work work)
{
    const unsigned long before = bench::verbs;
    const double started = bench::now();
    for (int i = 0; i < count; ++i)
        work(i);
    const double time = bench::now() - started;
    if (bench::verbs - before < static_cast<unsigned long>(count))
    {
        std::fprintf(stderr, "bench: calls were made that issued no verb\n");
        std::exit(1);
    }
    return time / count;
}

} // namespace

// Prints the table. Exit code 3: an aim is not met.
int main()
{
    bool met = true;
    bench::heading("ours", "by hand");

    // One conversation, library against hand, taking turns.
    static conversation_id only;
    begin(only);
    static by_hand record{};
    record.conversation = 1;
    vtm_table_init(&hand_table, 0);
    const u32 handle = vtm_get_free_entry(hand_table, &record);
    std::vector<double> ours, hand;
    for (int i = 0; i < repetitions; ++i)
    {
        constexpr int count = 500000;
        hand.push_back(seconds_per(count, [&](int) { send_by_hand(handle); }));
        ours.push_back(seconds_per(count, [&](int) { send(only); }));
    }
    met &= bench::row("CMSEND over a node that answers at once", bench::median(ours) * 1e9, bench::median(hand) * 1e9,
                      "ns", bench::aim::at_most, 2);

    // The same call, and a whole short life beside, with ever more conversations open. The first size is the base.
    std::printf("\n");
    bench::heading("then", "with 10 open");
    static conversation_id many[10000];
    int open = 0;
    double base_one = 0, base_all = 0, base_life = 0;
    for (const int size : {10, 1000, 10000})
    {
        for (; open < size; ++open)
            begin(many[open]);
        std::vector<double> one, all, life;
        for (int i = 0; i < repetitions; ++i)
        {
            one.push_back(seconds_per(200000, [&](int) { send(only); }));
            all.push_back(seconds_per(200000, [&](int n) { send(many[n % open]); }));
            life.push_back(seconds_per(300, [&](int) {
                static conversation_id passing;
                begin(passing);
                end(passing);
            }));
        }
        const double now_one = bench::median(one), now_all = bench::median(all), now_life = bench::median(life);
        if (size == 10)
            base_one = now_one, base_all = now_all, base_life = now_life;
        const std::string with = ", " + std::to_string(size) + " open";
        bench::row("CMSEND on one conversation" + with, now_one * 1e9, base_one * 1e9, "ns", bench::aim::none, 0);
        bench::row("CMSEND on each in turn" + with, now_all * 1e9, base_all * 1e9, "ns", bench::aim::none, 0);
        bench::row("CMINIT, CMALLC, CMDEAL" + with, now_life * 1e9, base_life * 1e9, "ns", bench::aim::none, 0);
    }
    return met ? 0 : 3;
}
