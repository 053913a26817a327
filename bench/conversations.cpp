// conversations.cpp - two processes over the whole stack (library, node client library, local node) against the same
// two processes over a raw connected Unix stream socket.
//
// Each measurement starts a server and a client as processes of their own (this program again, told its role by its
// arguments); the client prints the time it took. Raw and stack take turns, several repetitions, and medians are
// compared, so that what else the machine does hits both. All of it is 32 bits on both roads.
#include "measure.hpp"

#include <cpic.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int largest = 32767;
constexpr int repetitions = 9;

void fail(const char *what)
{
    std::fprintf(stderr, "bench: %s: %s\n", what, std::strerror(errno));
    std::exit(1);
}

// ---- the raw road ---------------------------------------------------------------------------------------------

sockaddr_un address_of(const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    return address;
}

int raw_connect(const char *path)
{
    const sockaddr_un address = address_of(path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // The server may still be on its way to listen().
    for (int tries = 0; connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0; ++tries)
    {
        if (tries == 5000)
            fail("connect");
        usleep(1000);
    }
    return fd;
}

int raw_listen(const char *path)
{
    const sockaddr_un address = address_of(path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 || listen(fd, 64) != 0)
        fail("listen");
    return fd;
}

void put(int fd, const unsigned char *data, int length)
{
    while (length > 0)
    {
        const ssize_t done = write(fd, data, static_cast<std::size_t>(length));
        if (done <= 0)
            fail("write");
        data += done;
        length -= static_cast<int>(done);
    }
}

void get(int fd, unsigned char *data, int length)
{
    while (length > 0)
    {
        const ssize_t done = read(fd, data, static_cast<std::size_t>(length));
        if (done <= 0)
            fail("read");
        data += done;
        length -= static_cast<int>(done);
    }
}

unsigned char buffer[largest + 1];

void raw_server(const char *path, const std::string &what, int length, int count)
{
    const int listening = raw_listen(path);
    if (what == "short")
    {
        for (int i = 0; i <= count; ++i)
        {
            const int fd = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
            get(fd, buffer, length);
            put(fd, buffer, length);
            close(fd);
        }
        return;
    }
    const int fd = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (what == "roundtrip")
    {
        for (int i = 0; i <= count; ++i)
        {
            get(fd, buffer, length);
            put(fd, buffer, length);
        }
    }
    else
    {
        get(fd, buffer, 1);
        put(fd, buffer, 1);
        long long left = static_cast<long long>(length) * count;
        while (left > 0)
        {
            const ssize_t done = read(fd, buffer, sizeof buffer);
            if (done <= 0)
                fail("read");
            left -= done;
        }
        put(fd, buffer, 1);
    }
    get(fd, buffer, 1); // until the client has its time
}

double raw_client(const char *path, const std::string &what, int length, int count)
{
    if (what == "short")
    {
        double begin = 0;
        for (int i = 0; i <= count; ++i)
        {
            if (i == 1) // the first one warms both sides up
                begin = bench::now();
            const int fd = raw_connect(path);
            put(fd, buffer, length);
            get(fd, buffer, length);
            close(fd);
        }
        return bench::now() - begin;
    }
    const int fd = raw_connect(path);
    double time;
    if (what == "roundtrip")
    {
        double begin = 0;
        for (int i = 0; i <= count; ++i)
        {
            if (i == 1)
                begin = bench::now();
            put(fd, buffer, length);
            get(fd, buffer, length);
        }
        time = bench::now() - begin;
    }
    else
    {
        put(fd, buffer, 1);
        get(fd, buffer, 1);
        const double begin = bench::now();
        for (int i = 0; i < count; ++i)
            put(fd, buffer, length);
        get(fd, buffer, 1); // all of it has arrived
        time = bench::now() - begin;
    }
    put(fd, buffer, 1);
    return time;
}

// ---- the stack ------------------------------------------------------------------------------------------------

unsigned char conversation[CM_CID_SIZE];

void ok(const char *call, CM_RETURN_CODE rc)
{
    if (rc != CM_OK)
    {
        std::fprintf(stderr, "bench: %s gives return code %ld\n", call, static_cast<long>(rc));
        std::exit(1);
    }
}

void stack_send(CM_INT32 length)
{
    CM_INT32 request_to_send, rc;
    cmsend(conversation, buffer, &length, &request_to_send, &rc);
    ok("CMSEND", rc);
}

// Receives until the turn is here, or the partner has deallocated; how many records that were.
int stack_receive(bool &ended)
{
    CM_INT32 room = largest, data, length, status, request_to_send, rc;
    int records = 0;
    ended = false;
    do
    {
        cmrcv(conversation, buffer, &room, &data, &length, &status, &request_to_send, &rc);
        if (rc == CM_DEALLOCATED_NORMAL)
        {
            ended = true;
            return records;
        }
        ok("CMRCV", rc);
        records += data != CM_NO_DATA_RECEIVED ? 1 : 0;
    } while (status != CM_SEND_RECEIVED);
    return records;
}

void stack_server(const std::string &what, int length, int count)
{
    unsigned char name[] = "BENCHSRV";
    CM_INT32 name_length = sizeof name - 1, rc;
    bool ended = false;
    cmsltp(name, &name_length, &rc);
    ok("CMSLTP", rc);
    for (int i = 0; i <= (what == "short" ? count : 0); ++i)
    {
        cmaccp(conversation, &rc);
        ok("CMACCP", rc);
        for (;;)
        {
            const int records = stack_receive(ended);
            if (ended)
                break;
            if (records > 1 && records != count)
                ok("records lost: CMRCV", -1);
            stack_send(what == "sends" ? 1 : length);
            if (what == "short")
            {
                cmdeal(conversation, &rc);
                ok("CMDEAL", rc);
                break;
            }
        }
    }
}

void stack_begin()
{
    unsigned char destination[] = "BENCH   ";
    CM_INT32 rc;
    cminit(conversation, destination, &rc);
    ok("CMINIT", rc);
    cmallc(conversation, &rc);
    ok("CMALLC", rc);
}

double stack_client(const std::string &what, int length, int count)
{
    bool ended;
    double begin = 0;
    if (what == "short")
    {
        for (int i = 0; i <= count; ++i)
        {
            if (i == 1)
                begin = bench::now();
            stack_begin();
            stack_send(length);
            stack_receive(ended);
            if (!ended)
                ok("the server goes on: CMRCV", -1);
        }
        return bench::now() - begin;
    }
    stack_begin();
    if (what == "roundtrip")
    {
        for (int i = 0; i <= count; ++i)
        {
            if (i == 1)
                begin = bench::now();
            stack_send(length);
            stack_receive(ended);
        }
    }
    else
    {
        stack_send(1);
        stack_receive(ended);
        begin = bench::now();
        for (int i = 0; i < count; ++i)
            stack_send(length);
        stack_receive(ended); // all of it has arrived
    }
    const double time = bench::now() - begin;
    CM_INT32 rc;
    cmdeal(conversation, &rc);
    ok("CMDEAL", rc);
    return time;
}

// ---- the conductor --------------------------------------------------------------------------------------------

const char *self;

pid_t start(const std::vector<std::string> &arguments, int out)
{
    std::vector<char *> words{const_cast<char *>(self)};
    for (const std::string &argument : arguments)
        words.push_back(const_cast<char *>(argument.c_str()));
    words.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
        dup2(out, 1);
        execv(self, words.data());
        _exit(127);
    }
    return child;
}

// Seconds that the client took; both processes are gone afterwards.
double one_run(const std::string &road, const std::string &directory, const std::string &what, int length, int count)
{
    static int number = 0;
    const std::string path = directory + "/raw." + std::to_string(++number);
    const std::vector<std::string> tail{path, what, std::to_string(length), std::to_string(count)};
    std::vector<std::string> server{road + "-server"}, client{road + "-client"};
    server.insert(server.end(), tail.begin(), tail.end());
    client.insert(client.end(), tail.begin(), tail.end());
    int result[2];
    if (pipe(result) != 0)
        fail("pipe");
    const pid_t serving = start(server, 2);
    const pid_t asking = start(client, result[1]);
    close(result[1]);
    char text[64] = {};
    ssize_t got = 0, more;
    while ((more = read(result[0], text + got, sizeof text - 1 - static_cast<std::size_t>(got))) > 0)
        got += more;
    close(result[0]);
    int status;
    waitpid(asking, &status, 0);
    if (status != 0)
        kill(serving, SIGKILL);
    waitpid(serving, nullptr, 0);
    if (status != 0 || got == 0)
    {
        std::fprintf(stderr, "bench: %s %s of %d bytes did not finish\n", road.c_str(), what.c_str(), length);
        std::exit(1);
    }
    return std::atof(text);
}

struct pair_of_times
{
    double stack, raw;
};

pair_of_times compare(const std::string &directory, const std::string &what, int length, int count)
{
    std::vector<double> stack, raw;
    for (int i = 0; i < repetitions; ++i)
    {
        raw.push_back(one_run("raw", directory, what, length, count));
        stack.push_back(one_run("stack", directory, what, length, count));
    }
    return {bench::median(stack), bench::median(raw)};
}

int conduct(const std::string &directory)
{
    bool met = true;
    bench::heading("ours", "raw socket");
    for (const auto &[length, count] : {std::pair{1, 50000}, std::pair{1024, 50000}, std::pair{largest, 15000}})
    {
        const auto [stack, raw] = compare(directory, "roundtrip", length, count);
        met &= bench::row("round trip of " + std::to_string(length) + " bytes", stack / count * 1e6, raw / count * 1e6,
                          "us", bench::aim::at_most, 1.3);
    }
    {
        constexpr int count = 500000;
        const auto [stack, raw] = compare(directory, "sends", 100, count);
        met &= bench::row("buffered sends of 100 bytes, in thousands", count / stack / 1e3, count / raw / 1e3, "/s",
                          bench::aim::at_least, 10);
    }
    {
        constexpr int count = 30000;
        const auto [stack, raw] = compare(directory, "sends", largest, count);
        met &= bench::row("sends of 32767 bytes, in megabytes", largest / 1e6 * count / stack,
                          largest / 1e6 * count / raw, "/s", bench::aim::at_least, 0.8);
    }
    {
        constexpr int count = 4000;
        const auto [stack, raw] = compare(directory, "short", 100, count);
        bench::row("short conversation, 100 bytes each way", stack / count * 1e6, raw / count * 1e6, "us",
                   bench::aim::none, 0);
    }
    return met ? 0 : 3;
}

} // namespace

// bench_conversations DIRECTORY: prints the table; DIRECTORY for its sockets. Exit code 3: an aim is not met.
// With a role and its arguments (from itself): one half of one measurement.
int main(int argc, char **argv)
{
    self = "/proc/self/exe";
    std::memset(buffer, 'x', sizeof buffer);
    if (argc == 2)
        return conduct(argv[1]);
    if (argc != 6)
    {
        std::fprintf(stderr, "usage: bench_conversations DIRECTORY\n");
        return 2;
    }
    alarm(120); // whatever goes wrong, no process stays behind
    const std::string role = argv[1], what = argv[3];
    const int length = std::atoi(argv[4]), count = std::atoi(argv[5]);
    if (role == "raw-server")
        raw_server(argv[2], what, length, count);
    else if (role == "raw-client")
        std::printf("%.9f\n", raw_client(argv[2], what, length, count));
    else if (role == "stack-server")
        stack_server(what, length, count);
    else
        std::printf("%.9f\n", stack_client(what, length, count));
    return 0;
}
