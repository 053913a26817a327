// harness.hpp - what the conversation tests stand on: a node of their own in a directory of its own, and transaction
// programs as processes (tp.cpp) that a test drives call by call.
//
// Nothing here waits for a fixed time. Every wait has a limit, after which the test fails; CPIC_TEST_SCALE multiplies
// all limits, for machines that are slow or run under a checker.
#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace conversations {

// A limit in milliseconds, scaled.
int limit_ms(int milliseconds);

// Runs a program to its end. Its exit code (128 + signal when it was killed, -1 when it did not end in time and was
// killed), and all it wrote to standard output and standard error.
struct finished
{
    int code;
    std::string output;
};
finished run(const std::vector<std::string> &command, const std::map<std::string, std::string> &environment = {},
             int milliseconds = 30000);

// One line of a TP: the return code and the values by name.
struct reply
{
    long rc = -1000;
    std::map<std::string, std::string> values;
    std::string line;

    long number(const std::string &name) const; // -1000 when it is not there
    std::string text(const std::string &name) const;
};

// LU LOCALLU; the destinations ECHO and OTHER lead to the TP names ECHOSRV and OTHERSRV, NOTPN to one that nobody
// serves. An attach waits for its program for the time given.
std::string standard_configuration(int attach_wait_seconds = 30);

// A local node in a new directory with a configuration; nothing runs yet: the first TP starts the broker, or start().
// The end of its life stops the broker and removes the directory.
class node
{
public:
    explicit node(const std::string &configuration = standard_configuration());
    ~node();
    node(const node &) = delete;
    node &operator=(const node &) = delete;

    const std::string &directory() const { return directory_; }
    std::map<std::string, std::string> environment() const;
    finished control(const std::vector<std::string> &arguments) const; // runs cpicnode
    void start();
    long broker() const;         // process id of the broker, 0 when none runs
    void kill_broker();          // SIGKILL, and waits until it has gone
    std::string log(const std::string &name) const; // contents of a file in the directory; empty when it is not there

private:
    std::string directory_;
};

// A transaction program. Its end: told to quit, then killed.
class tp
{
public:
    // through: a command that runs it, say as another user; its own command is appended.
    explicit tp(const node &home, std::map<std::string, std::string> environment = {},
                std::vector<std::string> through = {});
    ~tp();
    tp(const tp &) = delete;
    tp &operator=(const tp &) = delete;

    // Makes a call and waits for its answer.
    reply operator()(const std::string &command, int milliseconds = 20000);

    // The two halves of it, for calls that wait for something another TP does.
    void send(const std::string &command);
    reply receive(int milliseconds = 20000);

    // The answer of an earlier "bg" command.
    reply background(int milliseconds = 20000);

    // True when a line is there, or comes within the time.
    bool answers(int milliseconds);

    void kill(int signal);
    pid_t process() const { return process_; }

private:
    reply next(std::vector<std::string> &kept, const char *which, int milliseconds);
    bool read_more(int milliseconds);

    pid_t process_ = -1;
    int in_ = -1, out_ = -1;
    std::string partial_;
    std::vector<std::string> replies_, background_;
};

enum class type
{
    mapped,
    basic,
};

// A conversation from slot 0 of `client` to slot 0 of `server`, accepted, with the turn at the client. The server
// serves TP name ECHOSRV. The first data must cross before an accept returns: one record is sent and received.
void converse(tp &client, tp &server, type of = type::mapped);

} // namespace conversations
