// endurance_commands.cpp - see endurance_commands.hpp. Each command runs in whichever thread of the test program was
// told.
//
//   stress clients|servers THREADS ROUNDS SEED   a conversation for each thread, every other one basic, with data of
//                                                all lengths and confirmation
//   flow client|server COUNT                     COUNT conversations that move data until each of them fails
//   flowing                                      how many of them have moved data for a while
//   answer, knock, cancel                        see endurance_cancel.cpp
//   interrupted COMMAND...                       the command, with a signal every millisecond
//   files COUNT | fill | free COUNT              limit of open files; uses all up; gives some back
//   open | inherited                             descriptors this process has; those that a program it runs finds
//   errors FILE | broken-errors                  standard error goes to a file, or to a pipe without a reader
//   bare DESTINATION FIRST                       a whole conversation of a child without the standard descriptors from
//                                                FIRST on
//   settext|gettext CALL SLOT [TEXT]             calls with a text and its length, on a slot of tp.cpp
#include "conversations/endurance_commands.hpp"
#include "conversations/endurance_conversation.hpp"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace endurance {

std::string in_threads(CM_INT32 count, const std::function<CM_INT32(CM_INT32)> &work)
{
    std::vector<std::thread> threads;
    std::vector<CM_INT32> codes(static_cast<std::size_t>(count), CM_OK);
    for (CM_INT32 i = 0; i < count; ++i)
        threads.emplace_back([&, i] { codes[static_cast<std::size_t>(i)] = work(i); });
    for (std::thread &thread : threads)
        thread.join();
    CM_INT32 first = CM_OK, failed = 0;
    for (const CM_INT32 code : codes)
    {
        failed += code != CM_OK ? 1 : 0;
        first = first == CM_OK ? code : first;
    }
    return std::to_string(first) + " failed=" + std::to_string(failed);
}

namespace {

// ---- thirty-two threads ---------------------------------------------------------------------------------------

CM_INT32 stress_client(conversation &c, bool basic, CM_INT32 rounds, random_source random)
{
    CM_INT32 rc = c.initialize("ECHO", basic);
    if (rc == CM_OK)
        rc = c.set(cmssl, CM_CONFIRM);
    if (rc == CM_OK)
        rc = c.allocate();
    for (CM_INT32 i = 0; i < rounds && rc == CM_OK; ++i)
    {
        const CM_INT32 length = static_cast<CM_INT32>(random() % (random() % 4 == 0 ? 32768 : 600));
        for (CM_INT32 at = 0; at < length; ++at)
            c.sent[static_cast<std::size_t>(at)] = static_cast<unsigned char>(random());
        rc = c.send(length);
        if (rc == CM_OK && random() % 4 == 0)
        {
            CM_INT32 request_to_send;
            cmcfm(c.id.data(), &request_to_send, &rc);
        }
        CM_INT32 back = -1;
        if (rc == CM_OK)
            rc = c.receive_turn(back);
        if (rc == CM_OK &&
            (back != length || std::memcmp(c.sent.data(), c.got.data(), static_cast<std::size_t>(length)) != 0))
            return -1;
    }
    return rc == CM_OK ? c.plain(cmdeal) : rc; // confirmed: the sync level is
}

CM_INT32 stress_server(conversation &c)
{
    CM_INT32 rc = c.accept();
    CM_INT32 length = 0;
    while (rc == CM_OK)
    {
        rc = c.receive_turn(length);
        if (rc != CM_OK)
            break;
        if (c.status == CM_CONFIRM_RECEIVED || c.status == CM_CONFIRM_DEALLOC_RECEIVED)
        {
            const bool over = c.status == CM_CONFIRM_DEALLOC_RECEIVED;
            rc = c.plain(cmcfmd);
            if (over)
                return rc;
            continue;
        }
        if (c.status == CM_CONFIRM_SEND_RECEIVED)
            rc = c.plain(cmcfmd);
        std::memcpy(c.sent.data(), c.got.data(), static_cast<std::size_t>(length));
        if (rc == CM_OK)
            rc = c.send(length);
    }
    return rc;
}

std::string stress_command(const arguments &words)
{
    const bool client = words.at(1) == "clients";
    const CM_INT32 rounds = integer(words.at(3));
    const unsigned seed = seed_of(words.at(4));
    return in_threads(integer(words.at(2)), [&](CM_INT32 index) {
        const auto c = std::make_unique<conversation>();
        return client ? stress_client(*c, index % 2 != 0, rounds, random_source(seed + static_cast<unsigned>(index)))
                      : stress_server(*c);
    });
}

// ---- data that flows until something breaks ---------------------------------------------------------------------

std::atomic<int> flowing;

// Even ones there and back, odd ones in one direction only, as fast as it goes; of both kinds half are basic.
CM_INT32 flow_one(conversation &c, bool client, CM_INT32 index)
{
    constexpr int a_while = 20; // records
    CM_INT32 rc = client ? c.begin("ECHO", index / 2 % 2 != 0) : c.accept();
    CM_INT32 length = 0;
    for (int round = 1; rc == CM_OK; ++round)
    {
        if (client)
        {
            rc = c.send(index % 2 == 0 ? 700 : 20000);
            if (rc == CM_OK && index % 2 == 0)
                rc = c.receive_turn(length);
        }
        else
        {
            rc = c.receive();
            c.forget();
            if (rc == CM_OK && c.status == CM_SEND_RECEIVED)
                rc = c.send(700);
        }
        if (round == a_while)
            ++flowing;
    }
    return rc;
}

std::string flow_command(const arguments &words)
{
    const bool client = words.at(1) == "client";
    std::mutex guard;
    std::map<CM_INT32, int> codes;
    std::int64_t last = 0;
    in_threads(integer(words.at(2)), [&](CM_INT32 index) {
        const auto c = std::make_unique<conversation>();
        const CM_INT32 rc = flow_one(*c, client, index);
        const std::int64_t now = monotonic_us();
        const std::lock_guard<std::mutex> held(guard);
        ++codes[rc];
        last = std::max(last, now);
        return CM_OK;
    });
    return "0 last=" + std::to_string(last) + counts("rc", codes);
}

// ---- signals, descriptors -----------------------------------------------------------------------------------------

std::atomic<int> signals_taken;

std::string interrupted_command(const arguments &words)
{
    signals_taken = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { ++signals_taken; };
    sigaction(SIGALRM, &action, nullptr); // no SA_RESTART
    const itimerval every = {{0, 1000}, {0, 1000}}, never = {};
    setitimer(ITIMER_REAL, &every, nullptr);
    std::string text = run_command({words.begin() + 1, words.end()});
    setitimer(ITIMER_REAL, &never, nullptr);
    return text + " signals=" + std::to_string(signals_taken);
}

std::vector<int> fillers;

std::string files_command(const arguments &words)
{
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = static_cast<rlim_t>(integer(words.at(1)));
    return std::to_string(setrlimit(RLIMIT_NOFILE, &limit));
}

std::string fill_command(const arguments &)
{
    for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
        fillers.push_back(fd);
    return (errno == EMFILE ? "0 count=" : "-1 count=") + std::to_string(fillers.size());
}

std::string free_command(const arguments &words)
{
    for (CM_INT32 i = integer(words.at(1)); i > 0 && !fillers.empty(); --i)
    {
        close(fillers.back());
        fillers.pop_back();
    }
    return "0";
}

std::string open_command(const arguments &)
{
    int count = 0;
    DIR *directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr)
        ++count;
    closedir(directory);
    return "0 count=" + std::to_string(count - 3); // itself and the two names of directories
}

std::string inherited_command(const arguments &)
{
    std::FILE *list = popen("ls /proc/self/fd | wc -l", "re");
    int count = -1;
    if (list == nullptr || std::fscanf(list, "%d", &count) != 1)
        return "-1";
    pclose(list);
    return "0 count=" + std::to_string(count);
}

std::string errors_command(const arguments &words)
{
    const int file = open(words.at(1).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    return file >= 0 && dup2(file, 2) == 2 && close(file) == 0 ? "0" : "-1";
}

// Standard error is a pipe that nobody reads any more.
std::string broken_errors_command(const arguments &)
{
    int ends[2];
    return pipe2(ends, O_CLOEXEC) == 0 && dup2(ends[1], 2) == 2 && close(ends[0]) == 0 && close(ends[1]) == 0 ? "0"
                                                                                                             : "-1";
}

// The child's printing must not end up in the sockets of the library, which would otherwise get the numbers 0 to 2.
CM_INT32 whole_conversation(const std::string &destination, int first)
{
    const auto c = std::make_unique<conversation>();
    CM_INT32 rc = c->begin(destination);
    for (int i = 0; i < 20 && rc == CM_OK; ++i)
    {
        constexpr char text[] = "printed by the program\n";
        for (int fd = std::max(first, 1); fd <= 2; ++fd)
            if (write(fd, text, sizeof text - 1) >= 0)
                return -5; // there must be nothing to write to
        rc = c->send(1000);
        CM_INT32 length = 0;
        if (rc == CM_OK)
            rc = c->receive_turn(length);
        if (rc == CM_OK && length != 1000)
            return -6;
    }
    return rc == CM_OK ? c->plain(cmdeal) : rc;
}

std::string bare_command(const arguments &words)
{
    const pid_t child = fork();
    if (child == 0)
    {
        const int first = integer(words.at(2));
        for (int fd = first; fd <= 2; ++fd)
            close(fd);
        const CM_INT32 rc = whole_conversation(words.at(1), first);
        _exit(rc < 0 ? 100 - rc : rc);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return "-4 the-child-died";
    return std::to_string(WEXITSTATUS(status));
}

std::string settext_command(const arguments &words)
{
    using call = void(unsigned char *, unsigned char *, CM_INT32 *, CM_INT32 *);
    auto wanted = reinterpret_cast<call *>(dlsym(RTLD_DEFAULT, words.at(1).c_str()));
    if (wanted == nullptr)
        return "-2 missing=" + words[1];
    unsigned char text[100] = {};
    CM_INT32 length = static_cast<CM_INT32>(words.at(3).size()), rc;
    std::memcpy(text, words[3].data(), std::min(words[3].size(), sizeof text));
    wanted(conversation_of_slot(words.at(2)), text, &length, &rc);
    return std::to_string(rc);
}

std::string gettext_command(const arguments &words)
{
    using call = void(unsigned char *, unsigned char *, CM_INT32 *, CM_INT32 *);
    auto wanted = reinterpret_cast<call *>(dlsym(RTLD_DEFAULT, words.at(1).c_str()));
    if (wanted == nullptr)
        return "-2 missing=" + words[1];
    unsigned char text[100] = {};
    CM_INT32 length = 0, rc;
    wanted(conversation_of_slot(words.at(2)), text, &length, &rc);
    if (rc != CM_OK || length < 0 || length > 100)
        return std::to_string(rc);
    return std::to_string(rc) + " length=" + std::to_string(length) +
           " text=" + std::string(reinterpret_cast<const char *>(text), static_cast<std::size_t>(length));
}

} // namespace

} // namespace endurance

using namespace endurance;

bool endurance_command(const std::vector<std::string> &words, std::string &answer)
{
    static const std::map<std::string, std::function<std::string(const arguments &)>> commands = {
        {"stress", stress_command},
        {"flow", flow_command},
        {"flowing", [](const arguments &) { return "0 count=" + std::to_string(flowing.load()); }},
        {"answer", answer_command},
        {"knock", knock_command},
        {"cancel", cancel_command},
        {"interrupted", interrupted_command},
        {"files", files_command},
        {"fill", fill_command},
        {"free", free_command},
        {"open", open_command},
        {"inherited", inherited_command},
        {"errors", errors_command},
        {"broken-errors", broken_errors_command},
        {"bare", bare_command},
        {"settext", settext_command},
        {"gettext", gettext_command},
    };
    const auto found = commands.find(words.at(0));
    if (found == commands.end())
        return false;
    answer = found->second(words);
    return true;
}
