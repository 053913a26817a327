// capacity.cpp - how much a node holds, printed as figures without aims: conversations open at once in one program and
// through one broker, the memory that an idle one costs, and how soon the end of a broker or a partner is noticed.
// bench/capacity starts it with a node of its own.
//
// The program starts itself again for every other program it needs: servers that accept, clients that allocate. They are
// told what to do by a line on standard input and answer with a line.
#include "measure.hpp"

#include <cpic.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using identifier = std::array<unsigned char, CM_CID_SIZE>;

[[noreturn]] void fail(const std::string &what)
{
    std::fprintf(stderr, "bench: %s\n", what.c_str());
    std::exit(1);
}

void expect(CM_INT32 rc, const char *call)
{
    if (rc != CM_OK)
        fail(std::string(call) + " gave return code " + std::to_string(rc));
}

// Kilobytes of a process that are its own, shared with nobody.
long own_memory(long process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
    long sum = 0;
    std::string name;
    while (file >> name)
    {
        long value = 0;
        if (name == "Private_Clean:" || name == "Private_Dirty:")
        {
            file >> value;
            sum += value;
        }
        file.ignore(1000, '\n');
    }
    return sum;
}

// ---- the other programs -----------------------------------------------------------------------------------------

identifier allocate()
{
    unsigned char name[CM_SDN_SIZE + 1] = "BENCH   ";
    identifier id{};
    CM_INT32 rc;
    cminit(id.data(), name, &rc);
    expect(rc, "CMINIT");
    cmallc(id.data(), &rc);
    expect(rc, "CMALLC");
    cmflus(id.data(), &rc);
    expect(rc, "CMFLUS");
    return id;
}

CM_INT32 receive(identifier &id)
{
    unsigned char buffer[100];
    CM_INT32 room = sizeof buffer, data, received, status, request_to_send, rc;
    cmrcv(id.data(), buffer, &room, &data, &received, &status, &request_to_send, &rc);
    return rc;
}

// "open N": so many more conversations. "wait": a receive on the last one, in a thread; its code and the time of its
// return when it has come back. The input's end ends the program.
void other_program(const std::string &role)
{
    std::vector<identifier> open;
    if (role == "server")
    {
        unsigned char name[] = "BENCHSRV";
        CM_INT32 length = 8, rc;
        cmsltp(name, &length, &rc);
        expect(rc, "CMSLTP");
    }
    std::printf("ready\n");
    std::fflush(stdout);
    char line[100];
    while (std::fgets(line, sizeof line, stdin) != nullptr)
    {
        int count;
        if (std::sscanf(line, "open %d", &count) == 1)
        {
            for (int i = 0; i < count; ++i)
            {
                identifier id{};
                CM_INT32 rc = CM_OK;
                if (role == "server")
                {
                    cmaccp(id.data(), &rc);
                    expect(rc, "CMACCP");
                }
                else
                    id = allocate();
                open.push_back(id);
            }
            std::printf("%zu open\n", open.size());
        }
        else if (std::strncmp(line, "wait", 4) == 0)
        {
            std::thread([&open] {
                const CM_INT32 rc = receive(open.back());
                std::printf("%d %.6f\n", static_cast<int>(rc), bench::now());
                std::fflush(stdout);
            }).detach();
            usleep(100000); // it waits, by now
            std::printf("waits\n");
        }
        std::fflush(stdout);
    }
}

// Another program, as this one sees it.
class program
{
public:
    explicit program(const std::string &role)
    {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
            fail("no pipe");
        process_ = fork();
        if (process_ == 0)
        {
            dup2(in[0], 0);
            dup2(out[1], 1);
            execl("/proc/self/exe", "bench_capacity", role.c_str(), nullptr);
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        to_ = fdopen(in[1], "w");
        from_ = fdopen(out[0], "r");
        answer();
    }
    ~program()
    {
        std::fclose(to_);
        std::fclose(from_);
        waitpid(process_, nullptr, 0);
    }
    program(const program &) = delete;
    program &operator=(const program &) = delete;

    void tell(const std::string &command)
    {
        std::fprintf(to_, "%s\n", command.c_str());
        std::fflush(to_);
    }
    std::string answer()
    {
        char line[100];
        if (std::fgets(line, sizeof line, from_) == nullptr)
            fail("a program has ended");
        return line;
    }
    pid_t process() const { return process_; }

private:
    pid_t process_;
    std::FILE *to_, *from_;
};

void open_more(program &client, program &server, int count)
{
    // In portions: what no server has accepted yet is limited.
    for (int left = count; left > 0; left -= 500)
    {
        const std::string portion = "open " + std::to_string(std::min(left, 500));
        server.tell(portion);
        client.tell(portion);
        client.answer();
        server.answer();
    }
}

// ---- the figures ------------------------------------------------------------------------------------------------

long broker_process(const std::string &control)
{
    std::FILE *status = popen((control + " status --json").c_str(), "r");
    std::string text;
    char line[1000];
    while (status != nullptr && std::fgets(line, sizeof line, status) != nullptr)
        text += line;
    pclose(status);
    const std::size_t at = text.find("\"pid\":");
    return at == std::string::npos ? 0 : std::atol(text.c_str() + at + 6);
}

void in_one_program(long broker, int count)
{
    program client("client"), server("server");
    open_more(client, server, 100); // everything that is made once has been made
    const long client_before = own_memory(client.process()), server_before = own_memory(server.process());
    const long broker_before = own_memory(broker);
    const double begun = bench::now();
    open_more(client, server, count - 100);
    const double seconds = bench::now() - begun;
    const double rest = count - 100;
    std::printf("conversations open at once in one program            %8d   (opened in %.1f s)\n", count, seconds);
    std::printf("memory of an idle conversation, allocating program   %8.0f bytes\n",
                static_cast<double>(own_memory(client.process()) - client_before) * 1024 / rest);
    std::printf("memory of an idle conversation, accepting program    %8.0f bytes\n",
                static_cast<double>(own_memory(server.process()) - server_before) * 1024 / rest);
    std::printf("memory of an idle conversation, broker               %8.0f bytes\n",
                static_cast<double>(own_memory(broker) - broker_before) * 1024 / rest);
}

void through_one_broker(long broker, int pairs, int each)
{
    std::vector<std::unique_ptr<program>> programs;
    const double begun = bench::now();
    for (int i = 0; i < pairs; ++i)
    {
        programs.push_back(std::make_unique<program>("client"));
        programs.push_back(std::make_unique<program>("server"));
        open_more(*programs[programs.size() - 2], *programs.back(), each);
    }
    std::printf("conversations open at once through one broker        %8d   (%d programs, opened in %.1f s)\n",
                pairs * each, 2 * pairs, bench::now() - begun);
    std::printf("memory of the broker then                            %8ld KiB\n", own_memory(broker));
}

// Milliseconds from a kill to the return of a receive that waits, in `of`.
double noticed(program &of, pid_t victim)
{
    of.tell("wait");
    of.answer();
    const double killed = bench::now();
    kill(victim, SIGKILL);
    int rc;
    double back;
    if (std::sscanf(of.answer().c_str(), "%d %lf", &rc, &back) != 2 || rc != CM_RESOURCE_FAILURE_RETRY)
        fail("a receive did not fail as it should");
    return (back - killed) * 1000;
}

void detection(const std::string &control)
{
    std::vector<double> of_partner, of_broker;
    for (int i = 0; i < 15; ++i)
    {
        program client("client"), server("server");
        open_more(client, server, 1);
        of_partner.push_back(noticed(server, client.process()));
    }
    for (int i = 0; i < 15; ++i)
    {
        program client("client"), server("server");
        open_more(client, server, 1);
        of_broker.push_back(noticed(server, static_cast<pid_t>(broker_process(control))));
    }
    std::printf("time until a killed partner is noticed               %8.2f ms, at most %.2f ms\n",
                bench::median(of_partner), *std::max_element(of_partner.begin(), of_partner.end()));
    std::printf("time until a killed broker is noticed                %8.2f ms, at most %.2f ms\n",
                bench::median(of_broker), *std::max_element(of_broker.begin(), of_broker.end()));
}

} // namespace

int main(int argc, char **argv)
{
    rlimit files;
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    if (argc == 2)
    {
        other_program(argv[1]);
        return 0;
    }
    if (argc != 5)
        fail("usage: bench_capacity CONTROL IN-ONE-PROGRAM PAIRS EACH (bench/capacity knows them)");
    const std::string control = argv[1];
    const long broker = broker_process(control);
    if (broker <= 0)
        fail("there is no node");
    in_one_program(broker, std::atoi(argv[2]));
    through_one_broker(broker, std::atoi(argv[3]), std::atoi(argv[4]));
    detection(control);
    return 0;
}
