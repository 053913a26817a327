// commands.cpp - start, stop, status, check, and every command that the broker answers by itself.
#include "commands.hpp"

#include "broker_link.hpp"
#include "output.hpp"

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace tool {

namespace {

constexpr int end_seconds = 10; // how long a broker may take to end

// The broker program: CPIC_NODED, else beside this program, else as an installation has it, else by PATH.
std::string broker_program()
{
    const char *named = std::getenv("CPIC_NODED");
    if (named != nullptr && *named != 0)
    {
        return named;
    }
    char self[PATH_MAX];
    ssize_t size = readlink("/proc/self/exe", self, sizeof self);
    if (size > 0)
    {
        std::string place(self, static_cast<std::size_t>(size));
        place.resize(place.rfind('/') + 1);
        for (const char *beside : {"cpicnoded", "../sbin/cpicnoded", "../libexec/cpic/cpicnoded"})
        {
            if (access((place + beside).c_str(), X_OK) == 0)
            {
                return place + beside;
            }
        }
    }
    return "cpicnoded";
}

// Runs the broker program and gives its exit code, and what it says on standard output; with --json what it says on
// standard error too, which otherwise is ours. No value: it cannot be run, and that has been said.
std::optional<int> run_broker(const setting &where, std::vector<std::string> arguments, std::string &said)
{
    arguments.insert(arguments.begin(), broker_program());
    std::vector<char *> argv;
    for (std::string &argument : arguments)
    {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
    {
        fail(where, std::string("no pipe to be had: ") + std::strerror(errno));
        return std::nullopt;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    if (where.json)
    {
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    }
    pid_t pid;
    int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error != 0)
    {
        close(ends[0]);
        fail(where, "cannot run " + arguments[0] + " (" + std::strerror(error) + "); name the broker in CPIC_NODED");
        return std::nullopt;
    }
    char buffer[4096];
    for (ssize_t size; (size = read(ends[0], buffer, sizeof buffer)) != 0;)
    {
        if (size > 0)
        {
            said.append(buffer, static_cast<std::size_t>(size));
        }
        else if (errno != EINTR)
        {
            break;
        }
    }
    close(ends[0]);
    int status;
    while (waitpid(pid, &status, 0) < 0)
    {
        if (errno != EINTR)
        {
            return exit_failed;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : exit_failed;
}

// True once nobody holds the broker's lock any more.
bool lock_is_free(const std::string &directory)
{
    int fd = open((directory + "/broker.lock").c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
    {
        return true;
    }
    bool is_free = flock(fd, LOCK_EX | LOCK_NB) == 0;
    close(fd);
    return is_free;
}

void show(const json &document)
{
    std::cout << text_of(document);
}

// Answers with a sentence or a document, depending on who asks.
int answer_with(const setting &where, const std::string &sentence, const json &document)
{
    if (where.json)
    {
        show(document);
    }
    else
    {
        std::cout << sentence << "\n";
    }
    return exit_good;
}

} // namespace

int connect_to_node(const setting &where, broker_link &link, bool is_answer)
{
    std::string trouble;
    switch (link.connect(where.directory, trouble))
    {
    case broker_link::outcome::no_node:
        break;
    case broker_link::outcome::failed:
        return fail(where, trouble);
    case broker_link::outcome::connected:
        return exit_good;
    }
    if (where.json)
    {
        show({{"state", "stopped"}, {"directory", where.directory}});
    }
    else if (is_answer)
    {
        std::cout << "no node is running in " << where.directory << "\n";
    }
    else
    {
        const bool there = access(where.directory.c_str(), F_OK) == 0 || errno != ENOENT;
        std::cerr << "cpicnode: no node is running in " << where.directory << (there ? "" : ", which does not exist")
                  << "; look at --dir and CPIC_NODE_DIR, or start one with `cpicnode start`\n";
    }
    return exit_no_node;
}

int start(const setting &where, const std::string &config_file, double idle_seconds)
{
    std::vector<std::string> arguments{"--start", "--dir=" + where.directory};
    if (!config_file.empty())
    {
        arguments.push_back("--config=" + config_file);
    }
    if (idle_seconds >= 0)
    {
        arguments.push_back("--idle=" + std::to_string(idle_seconds));
    }
    std::string said;
    std::optional<int> code = run_broker(where, arguments, said);
    if (code != 0)
    {
        if (code && where.json)
        {
            fail(where, said.starts_with("cpicnoded: ") ? said.substr(11) : said);
        }
        return exit_failed; // the broker has said why on standard error
    }
    const bool already = !said.empty();
    broker_link link;
    std::string trouble;
    if (link.connect(where.directory, trouble) != broker_link::outcome::connected)
    {
        return fail(where, (already ? "a node is already running in " + where.directory : "the node has started") +
                               " but does not answer: " + (trouble.empty() ? "it has gone" : trouble) + "; see " +
                               where.directory + "/broker.log");
    }
    std::string text = (already ? "a node is already running in " : "a node runs in ") + where.directory +
                       " (process " + std::to_string(link.broker_pid()) + ")";
    if (already && (!config_file.empty() || idle_seconds >= 0))
    {
        text += "\nit keeps its configuration; stop it first to give it another";
    }
    return answer_with(where, text,
                       {{"result", already ? "already running" : "started"},
                        {"directory", where.directory},
                        {"pid", link.broker_pid()}});
}

int stop(const setting &where)
{
    broker_link link;
    if (int code = connect_to_node(where, link); code != exit_good)
    {
        return code;
    }
    std::string trouble;
    std::optional<answer> reply = link.ask("stop", false, trouble);
    if (!reply || !reply->good)
    {
        return fail(where, reply ? reply->text : trouble);
    }
    bool ended = link.wait_for_end(end_seconds);
    for (int i = 0; ended && !lock_is_free(where.directory); ++i)
    {
        ended = i < end_seconds * 100;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::string process = std::to_string(link.broker_pid());
    if (!ended)
    {
        return fail(where, "process " + process + " has not ended within " + std::to_string(end_seconds) +
                               " seconds; see " + where.directory + "/broker.log, then kill it");
    }
    return answer_with(where, "the node in " + where.directory + " has ended (process " + process + ")",
                       {{"result", "stopped"}, {"directory", where.directory}, {"pid", link.broker_pid()}});
}

int ask_node(const setting &where, const std::string &command)
{
    broker_link link;
    if (int code = connect_to_node(where, link, command == "status"); code != exit_good)
    {
        return code;
    }
    std::string trouble;
    std::optional<answer> reply = link.ask(command, where.json, trouble);
    if (!reply || (!reply->good && !where.json))
    {
        return fail(where, reply ? reply->text : trouble);
    }
    std::cout << reply->text;
    return reply->good ? exit_good : exit_failed;
}

int check(const setting &where, const std::string &config_file)
{
    std::vector<std::string> arguments{"--check=" + config_file};
    if (where.json)
    {
        arguments.push_back("--json");
    }
    std::string said;
    std::optional<int> code = run_broker(where, arguments, said);
    std::cout << said;
    return code == 0 ? exit_good : exit_failed;
}

} // namespace tool
