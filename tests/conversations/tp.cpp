// tp.cpp - a transaction program that does as it is told: it reads one command from each line of its standard input,
// makes that CPI-C call, and writes one line with the return code and the outputs. The conversation tests start it as
// often as they need and hold the whole conversation in their own hands, step by step, with no timing to rely on.
//
//   COMMAND [ARGUMENT...]     answered by   RC [NAME=VALUE...]
//   bg COMMAND [ARGUMENT...]  the same in a thread of its own; answered at once by 0, and later by "bg RC ..."
//   fork COMMAND [ARGUMENT...] the same in a forked child; answered by the child's own line
//
// Conversations are named by slots 0 to 15, each with its own buffers, so that several threads can be busy at once.
// Data to send is made from a seed; what went out and what came in is told as a number of bytes and a hash. Commands
// for rough surroundings are in endurance_commands.cpp, those for the test of all states in state_commands.cpp.
#include "conversations/endurance_commands.hpp"

#include <cpic.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int slots = 16;
constexpr std::size_t largest = 32767;

struct conversation
{
    std::array<unsigned char, CM_CID_SIZE> id;
    std::array<unsigned char, largest + 1> sent;
    std::array<unsigned char, largest + 1> buffer;
    CM_INT32 length, room, data, received, status, request_to_send, rc;
};
std::array<conversation, slots> table;

using arguments = std::vector<std::string>;

// FNV-1a, 64 bits; `hash` is what the bytes before gave.
constexpr std::uint64_t hash_begin = 14695981039346656037ull;
std::uint64_t hash_of(std::uint64_t hash, const unsigned char *data, std::size_t length)
{
    for (std::size_t i = 0; i < length; ++i)
        hash = (hash ^ data[i]) * 1099511628211ull;
    return hash;
}

// Bytes of every value in an order that depends on the seed.
void fill(unsigned char *data, std::size_t length, std::uint32_t seed)
{
    std::uint32_t word = seed * 2654435761u + 12345;
    for (std::size_t i = 0; i < length; ++i)
    {
        word = word * 1664525u + 1013904223u;
        data[i] = static_cast<unsigned char>(word >> 24);
    }
}

// The same as one record: on a basic conversation its first two bytes are its length.
void fill_record(conversation &c, CM_INT32 length, std::uint32_t seed)
{
    fill(c.sent.data(), static_cast<std::size_t>(length), seed);
    CM_INT32 type = CM_MAPPED_CONVERSATION, rc;
    cmect(c.id.data(), &type, &rc);
    if (type == CM_BASIC_CONVERSATION && length >= 2)
    {
        c.sent[0] = static_cast<unsigned char>(length >> 8);
        c.sent[1] = static_cast<unsigned char>(length);
    }
}

std::string hex(const unsigned char *data, std::size_t length)
{
    std::string text;
    char digits[3];
    for (std::size_t i = 0; i < length; ++i)
    {
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(data[i]));
        text += digits;
    }
    return text;
}

std::string number(std::uint64_t value)
{
    return std::to_string(value);
}

CM_INT32 integer(const std::string &text)
{
    return static_cast<CM_INT32>(std::strtol(text.c_str(), nullptr, 0));
}

conversation &slot(const arguments &words)
{
    const CM_INT32 index = integer(words.at(1));
    if (index < 0 || index >= slots)
        throw std::string("no such slot");
    return table[static_cast<std::size_t>(index)];
}

// The slot of a conversation ID, -1 for none.
int slot_of(const unsigned char *id)
{
    for (int i = 0; i < slots; ++i)
        if (std::memcmp(table[static_cast<std::size_t>(i)].id.data(), id, CM_CID_SIZE) == 0)
            return i;
    return -1;
}

std::string rc_only(CM_INT32 rc)
{
    return std::to_string(rc);
}

// What the last receive of a slot has brought. The data itself is told when it is short printable text.
std::string shown(const conversation &c)
{
    std::string text = std::to_string(c.rc) + " data=" + std::to_string(c.data) + " length=" +
                       std::to_string(c.received) + " status=" + std::to_string(c.status) +
                       " rts=" + std::to_string(c.request_to_send);
    if (c.received >= 0 && static_cast<std::size_t>(c.received) <= largest)
    {
        const std::size_t length = static_cast<std::size_t>(c.received);
        text += " hash=" + number(hash_of(hash_begin, c.buffer.data(), length)) + " hex=" +
                hex(c.buffer.data(), length < 16 ? length : 16);
        bool printable = length > 0 && length <= 100;
        for (std::size_t i = 0; i < length; ++i)
            printable = printable && c.buffer[i] > 0x20 && c.buffer[i] < 0x7F;
        if (printable)
            text += " text=" + std::string(reinterpret_cast<const char *>(c.buffer.data()), length);
    }
    return text;
}

std::string cminit_command(const arguments &words)
{
    conversation &c = slot(words);
    unsigned char name[CM_SDN_SIZE];
    std::memset(name, ' ', sizeof name);
    if (words.at(2) != "-")
        std::memcpy(name, words[2].data(), std::min(words[2].size(), sizeof name));
    cminit(c.id.data(), name, &c.rc);
    return rc_only(c.rc);
}

std::string cmsend_command(const arguments &words)
{
    conversation &c = slot(words);
    c.length = integer(words.at(2));
    if (c.length >= 0 && c.length <= static_cast<CM_INT32>(largest))
        fill(c.sent.data(), static_cast<std::size_t>(c.length), static_cast<std::uint32_t>(integer(words.at(3))));
    cmsend(c.id.data(), c.sent.data(), &c.length, &c.request_to_send, &c.rc);
    std::string text = rc_only(c.rc);
    if (c.length >= 0 && c.length <= static_cast<CM_INT32>(largest))
        text += " hash=" + number(hash_of(hash_begin, c.sent.data(), static_cast<std::size_t>(c.length)));
    return text;
}

std::string cmtext_command(const arguments &words)
{
    conversation &c = slot(words);
    c.length = static_cast<CM_INT32>(words.at(2).size());
    std::memcpy(c.sent.data(), words[2].data(), words[2].size());
    cmsend(c.id.data(), c.sent.data(), &c.length, &c.request_to_send, &c.rc);
    return rc_only(c.rc);
}

// cmhex SLOT HEX: the bytes as they are; for logical records of basic conversations.
std::string cmhex_command(const arguments &words)
{
    conversation &c = slot(words);
    const std::string &digits = words.at(2);
    c.length = static_cast<CM_INT32>(digits.size() / 2);
    for (std::size_t i = 0; i < digits.size() / 2; ++i)
        c.sent[i] = static_cast<unsigned char>(std::stoi(digits.substr(2 * i, 2), nullptr, 16));
    cmsend(c.id.data(), c.sent.data(), &c.length, &c.request_to_send, &c.rc);
    return rc_only(c.rc);
}

void receive(conversation &c, CM_INT32 room)
{
    c.room = room;
    c.data = c.status = c.request_to_send = -1;
    cmrcv(c.id.data(), c.buffer.data(), &c.room, &c.data, &c.received, &c.status, &c.request_to_send, &c.rc);
}

std::string cmrcv_command(const arguments &words)
{
    conversation &c = slot(words);
    receive(c, integer(words.at(2)));
    return shown(c);
}

// sendmany SLOT COUNT LENGTH SEED
std::string sendmany_command(const arguments &words)
{
    conversation &c = slot(words);
    const CM_INT32 count = integer(words.at(2));
    const std::uint32_t seed = static_cast<std::uint32_t>(integer(words.at(4)));
    std::uint64_t hash = hash_begin, bytes = 0;
    CM_INT32 sent = 0;
    c.rc = CM_OK;
    for (; sent < count && c.rc == CM_OK; ++sent)
    {
        c.length = integer(words.at(3));
        fill_record(c, c.length, seed + static_cast<std::uint32_t>(sent));
        cmsend(c.id.data(), c.sent.data(), &c.length, &c.request_to_send, &c.rc);
        hash = hash_of(hash, c.sent.data(), static_cast<std::size_t>(c.length));
        bytes += static_cast<std::uint64_t>(c.length);
    }
    return rc_only(c.rc) + " records=" + std::to_string(sent) + " bytes=" + number(bytes) + " hash=" + number(hash);
}

// rcvall SLOT [ROOM]: until there is a status, or a return code that is not CM_OK
std::string rcvall_command(const arguments &words)
{
    conversation &c = slot(words);
    const CM_INT32 room = words.size() > 2 ? integer(words[2]) : static_cast<CM_INT32>(largest);
    std::uint64_t hash = hash_begin, bytes = 0, records = 0, pieces = 0;
    do
    {
        receive(c, room);
        if (c.rc == CM_OK && c.data != CM_NO_DATA_RECEIVED)
        {
            hash = hash_of(hash, c.buffer.data(), static_cast<std::size_t>(c.received));
            bytes += static_cast<std::uint64_t>(c.received);
            ++pieces;
            records += c.data == CM_COMPLETE_DATA_RECEIVED ? 1u : 0u;
        }
    } while (c.rc == CM_OK && c.status == CM_NO_STATUS_RECEIVED);
    return rc_only(c.rc) + " status=" + std::to_string(c.status) + " records=" + number(records) + " pieces=" +
           number(pieces) + " bytes=" + number(bytes) + " hash=" + number(hash);
}

// The server's half of pingpong: sends every record back until the partner deallocates. The code of the last receive.
CM_INT32 echo(conversation &c, std::uint64_t &rounds)
{
    rounds = 0;
    for (;;)
    {
        CM_INT32 length = 0;
        do
        {
            receive(c, largest);
            if (c.rc != CM_OK)
                return c.rc;
            if (c.data != CM_NO_DATA_RECEIVED)
            {
                length = c.received;
                c.sent = c.buffer;
            }
        } while (c.status != CM_SEND_RECEIVED);
        cmsend(c.id.data(), c.sent.data(), &length, &c.request_to_send, &c.rc);
        if (c.rc != CM_OK)
            return c.rc;
        ++rounds;
    }
}

std::string echo_command(const arguments &words)
{
    conversation &c = slot(words);
    std::uint64_t rounds;
    const CM_INT32 rc = echo(c, rounds);
    return rc_only(rc) + " rounds=" + number(rounds);
}

// The client's half: `count` times a record there and back, compared. A wrong record is told as code -1.
CM_INT32 pingpong(conversation &c, CM_INT32 count, CM_INT32 length, std::uint32_t seed)
{
    for (CM_INT32 i = 0; i < count; ++i)
    {
        c.length = length;
        fill_record(c, length, seed + static_cast<std::uint32_t>(i));
        cmsend(c.id.data(), c.sent.data(), &c.length, &c.request_to_send, &c.rc);
        if (c.rc != CM_OK)
            return c.rc;
        CM_INT32 got = 0;
        do
        {
            receive(c, largest);
            if (c.rc != CM_OK)
                return c.rc;
            if (c.data != CM_NO_DATA_RECEIVED)
                got = c.received;
        } while (c.status != CM_SEND_RECEIVED);
        if (got != length || std::memcmp(c.sent.data(), c.buffer.data(), static_cast<std::size_t>(length)) != 0)
            return -1;
    }
    return CM_OK;
}

std::string pingpong_command(const arguments &words)
{
    return rc_only(pingpong(slot(words), integer(words.at(2)), integer(words.at(3)), 1));
}

// Runs `work` for slots 0 to count-1, each in its own thread; the first code that is not CM_OK, and how many there
// were.
std::string in_threads(CM_INT32 count, const std::function<CM_INT32(conversation &, CM_INT32)> &work)
{
    std::vector<std::thread> threads;
    std::vector<CM_INT32> codes(static_cast<std::size_t>(count), CM_OK);
    for (CM_INT32 i = 0; i < count; ++i)
        threads.emplace_back([&, i] { codes[static_cast<std::size_t>(i)] = work(table[static_cast<std::size_t>(i)], i); });
    for (std::thread &thread : threads)
        thread.join();
    CM_INT32 first = CM_OK, failed = 0;
    for (const CM_INT32 code : codes)
    {
        failed += code != CM_OK ? 1 : 0;
        first = first == CM_OK ? code : first;
    }
    return rc_only(first) + " failed=" + std::to_string(failed);
}

// clients COUNT ROUNDS LENGTH DESTINATION: that many whole conversations at once, one thread each
std::string clients_command(const arguments &words)
{
    const CM_INT32 rounds = integer(words.at(2)), length = integer(words.at(3));
    unsigned char name[CM_SDN_SIZE];
    std::memset(name, ' ', sizeof name);
    std::memcpy(name, words.at(4).data(), std::min(words[4].size(), sizeof name));
    return in_threads(integer(words.at(1)), [&](conversation &c, CM_INT32 index) {
        cminit(c.id.data(), name, &c.rc);
        if (c.rc == CM_OK)
            cmallc(c.id.data(), &c.rc);
        if (c.rc == CM_OK)
            c.rc = pingpong(c, rounds, length, static_cast<std::uint32_t>(index) * 1000);
        if (c.rc == CM_OK)
            cmdeal(c.id.data(), &c.rc);
        return c.rc;
    });
}

// servers COUNT: that many accepted conversations at once, one thread each, echoed until the partner deallocates
std::string servers_command(const arguments &words)
{
    return in_threads(integer(words.at(1)), [](conversation &c, CM_INT32) {
        std::uint64_t rounds;
        cmaccp(c.id.data(), &c.rc);
        const CM_INT32 rc = c.rc == CM_OK ? echo(c, rounds) : c.rc;
        return rc == CM_DEALLOCATED_NORMAL ? static_cast<CM_INT32>(CM_OK) : rc;
    });
}

std::string cmwait_command(const arguments &)
{
    unsigned char id[CM_CID_SIZE] = {};
    CM_INT32 conversation_rc = -1, rc;
    cmwait(id, &conversation_rc, &rc);
    return rc_only(rc) + " slot=" + std::to_string(slot_of(id)) + " code=" + std::to_string(conversation_rc);
}

std::string cmchck_command(const arguments &)
{
    unsigned char id[CM_CID_SIZE] = {};
    CM_INT32 rc;
    cmchck(id, &rc);
    return rc_only(rc) + " slot=" + std::to_string(slot_of(id));
}

// The calls from here on have a return code of their own: another thread may be inside a call on the same slot.

// set CALL SLOT VALUE: one of the Set calls with a conversation ID, a number and a return code
std::string set_command(const arguments &words)
{
    using set_call = void(unsigned char *, CM_INT32 *, CM_INT32 *);
    auto call = reinterpret_cast<set_call *>(dlsym(RTLD_DEFAULT, words.at(1).c_str()));
    if (call == nullptr)
        return "-2 missing=" + words[1];
    conversation &c = slot({words[1], words.at(2)});
    CM_INT32 value = integer(words.at(3)), rc;
    call(c.id.data(), &value, &rc);
    return rc_only(rc);
}

// only CALL SLOT: a call with nothing but a conversation ID and a return code
std::string only_command(const arguments &words)
{
    using plain_call = void(unsigned char *, CM_INT32 *);
    auto call = reinterpret_cast<plain_call *>(dlsym(RTLD_DEFAULT, words.at(0).c_str()));
    if (call == nullptr)
        return "-2 missing=" + words[0];
    CM_INT32 rc;
    call(slot(words).id.data(), &rc);
    return rc_only(rc);
}

// ask CALL SLOT: a call with a conversation ID, a number that it returns, and a return code
std::string ask_command(const arguments &words)
{
    using ask_call = void(unsigned char *, CM_INT32 *, CM_INT32 *);
    auto call = reinterpret_cast<ask_call *>(dlsym(RTLD_DEFAULT, words.at(1).c_str()));
    if (call == nullptr)
        return "-2 missing=" + words[1];
    conversation &c = slot({words[1], words.at(2)});
    CM_INT32 value = -1, rc;
    call(c.id.data(), &value, &rc);
    return rc_only(rc) + " value=" + std::to_string(value);
}

std::string tp_name_command(const arguments &words)
{
    unsigned char name[CM_TPN_SIZE + 1];
    CM_INT32 length = static_cast<CM_INT32>(words.at(1).size()), rc;
    std::memcpy(name, words[1].data(), std::min(words[1].size(), sizeof name));
    (words[0] == "cmsltp" ? cmsltp : cmrltp)(name, &length, &rc);
    return rc_only(rc);
}

std::string cmetpn_command(const arguments &words)
{
    conversation &c = slot(words);
    unsigned char name[CM_TPN_SIZE + 1] = {};
    CM_INT32 length = 0;
    cmetpn(c.id.data(), name, &length, &c.rc);
    std::string text = rc_only(c.rc);
    if (c.rc == CM_OK)
        text += " name=" + std::string(reinterpret_cast<char *>(name), static_cast<std::size_t>(length));
    return text;
}

std::string cmectx_command(const arguments &words)
{
    conversation &c = slot(words);
    unsigned char context[CM_CTX_SIZE] = {};
    CM_INT32 length = 0;
    cmectx(c.id.data(), context, &length, &c.rc);
    return rc_only(c.rc) + " context=" + hex(context, sizeof context);
}

std::string cmterm_command(const arguments &words)
{
    CM_INT32 type = integer(words.at(1)), rc;
    cmterm(&type, &rc);
    return rc_only(rc);
}

std::string run(const arguments &words)
{
    static const std::map<std::string, std::function<std::string(const arguments &)>> commands = {
        {"cminit", cminit_command},
        {"cmsend", cmsend_command},
        {"cmtext", cmtext_command},
        {"cmhex", cmhex_command},
        {"cmrcv", cmrcv_command},
        {"show", [](const arguments &w) { return shown(slot(w)); }},
        {"sendmany", sendmany_command},
        {"rcvall", rcvall_command},
        {"echo", echo_command},
        {"pingpong", pingpong_command},
        {"clients", clients_command},
        {"servers", servers_command},
        {"cmwait", cmwait_command},
        {"cmchck", cmchck_command},
        {"set", set_command},
        {"ask", ask_command},
        {"cmsltp", tp_name_command},
        {"cmrltp", tp_name_command},
        {"cmetpn", cmetpn_command},
        {"cmectx", cmectx_command},
        {"cmterm", cmterm_command},
    };
    const auto found = commands.find(words.at(0));
    if (found != commands.end())
        return found->second(words);
    std::string text;
    return endurance_command(words, text) || state_command(words, text) ? text : only_command(words);
}

void answer(std::string line)
{
    line += '\n';
    if (write(1, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        _exit(3);
}

std::string guarded(const arguments &words)
{
    try
    {
        return run(words);
    }
    catch (const std::exception &)
    {
        return "-3 wrong-command=" + words.front();
    }
    catch (const std::string &what)
    {
        return "-3 " + what;
    }
}

// In a child that was forked in the middle of everything; the parent waits for exactly that child.
std::string in_child(const arguments &words)
{
    const pid_t child = fork();
    if (child == 0)
    {
        answer(guarded(words));
        _exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return "-4 the-child-died";
    return {};
}

} // namespace

unsigned char *conversation_of_slot(const std::string &index)
{
    return slot({"", index}).id.data();
}

std::string run_command(const std::vector<std::string> &words)
{
    return guarded(words);
}

int main()
{
    std::string line;
    char chunk[4096];
    ssize_t got;
    while ((got = read(0, chunk, sizeof chunk)) > 0)
    {
        line.append(chunk, static_cast<std::size_t>(got));
        for (std::size_t end = line.find('\n'); end != std::string::npos; end = line.find('\n'))
        {
            std::istringstream stream(line.substr(0, end));
            line.erase(0, end + 1);
            arguments words;
            for (std::string word; stream >> word;)
                words.push_back(word);
            if (words.empty())
                continue;
            if (words[0] == "quit")
                return 0;
            const arguments rest(words.begin() + 1, words.end());
            if (words[0] == "bg")
            {
                std::thread([rest] { answer("bg " + guarded(rest)); }).detach();
                answer("0");
            }
            else if (words[0] == "fork")
            {
                const std::string trouble = in_child(rest);
                if (!trouble.empty())
                    answer(trouble);
            }
            else
                answer(guarded(words));
        }
    }
    return 0;
}
