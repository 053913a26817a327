// commands.cpp - start, stop, status, check, and every command that the broker answers by itself.
#include "commands.hpp"

#include "broker_link.hpp"

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace tool {

namespace {

using json = nlohmann::ordered_json;

constexpr int end_seconds = 10; // how long a broker may take to end

// Bytes that are no UTF-8 (of a directory's name, say) come out as the replacement character.
void show(const json &document)
{
    std::cout << document.dump(2, ' ', false, json::error_handler_t::replace) << "\n";
}

int fail(const std::string &text)
{
    std::cerr << "cpicnode: " << text << "\n";
    return exit_failed;
}

int no_node(const setting &where)
{
    if (where.json)
    {
        show({{"state", "stopped"}, {"directory", where.directory}});
    }
    else
    {
        std::cout << "no node is running in " << where.directory << "\n";
    }
    return exit_no_node;
}

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

// Runs the broker program and gives its exit code; its output goes to ours, or into `output`. -1: it cannot be run.
int run_broker(std::vector<std::string> arguments, std::string *output)
{
    arguments.insert(arguments.begin(), broker_program());
    std::vector<char *> argv;
    for (std::string &argument : arguments)
    {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    int ends[2] = {-1, -1};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (output != nullptr && pipe2(ends, O_CLOEXEC) == 0)
    {
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    }
    pid_t pid;
    int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (ends[1] >= 0)
    {
        close(ends[1]);
    }
    if (error != 0)
    {
        fail("cannot run " + arguments[0] + " (" + std::strerror(error) + "); name the broker in CPIC_NODED");
        return -1;
    }
    if (ends[0] >= 0)
    {
        char buffer[4096];
        for (ssize_t size; (size = read(ends[0], buffer, sizeof buffer)) != 0;)
        {
            if (size > 0)
            {
                output->append(buffer, static_cast<std::size_t>(size));
            }
            else if (errno != EINTR)
            {
                break;
            }
        }
        close(ends[0]);
    }
    int status;
    while (waitpid(pid, &status, 0) < 0)
    {
        if (errno != EINTR)
        {
            return -1;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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

} // namespace

int start(const setting &where, const std::string &config_file, double idle_seconds)
{
    std::vector<std::string> arguments{"--start", "--dir", where.directory};
    if (!config_file.empty())
    {
        arguments.insert(arguments.end(), {"--config", config_file});
    }
    if (idle_seconds >= 0)
    {
        arguments.insert(arguments.end(), {"--idle", std::to_string(idle_seconds)});
    }
    std::string said;
    int code = run_broker(arguments, &said);
    if (code != 0)
    {
        return exit_failed; // the broker has said why on standard error
    }
    bool already = !said.empty();
    broker_link link;
    std::string trouble;
    if (link.connect(where.directory, trouble) != broker_link::outcome::connected)
    {
        return fail((already ? "a node is already running in " + where.directory : "the node has started") +
                    " but does not answer: " + (trouble.empty() ? "it has gone" : trouble) + "; see " +
                    where.directory + "/broker.log");
    }
    if (where.json)
    {
        show({{"result", already ? "already running" : "started"},
              {"directory", where.directory},
              {"pid", link.broker_pid()}});
    }
    else if (already)
    {
        std::cout << "a node is already running in " << where.directory << " (process " << link.broker_pid() << ")\n";
        if (!config_file.empty())
        {
            std::cout << "it keeps its configuration; stop it first to give it another\n";
        }
    }
    else
    {
        std::cout << "a node runs in " << where.directory << " (process " << link.broker_pid() << ")\n";
    }
    return exit_good;
}

int stop(const setting &where)
{
    broker_link link;
    std::string trouble;
    switch (link.connect(where.directory, trouble))
    {
    case broker_link::outcome::no_node:
        return no_node(where);
    case broker_link::outcome::failed:
        return fail(trouble);
    case broker_link::outcome::connected:
        break;
    }
    std::optional<answer> reply = link.ask("stop", false, trouble);
    if (!reply)
    {
        return fail(trouble);
    }
    if (!reply->good)
    {
        return fail(reply->text);
    }
    bool ended = link.wait_for_end(end_seconds);
    for (int i = 0; ended && !lock_is_free(where.directory); ++i)
    {
        ended = i < end_seconds * 100;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (!ended)
    {
        return fail("process " + std::to_string(link.broker_pid()) + " has not ended within " +
                    std::to_string(end_seconds) + " seconds; see " + where.directory + "/broker.log, then kill it");
    }
    if (where.json)
    {
        show({{"result", "stopped"}, {"directory", where.directory}, {"pid", link.broker_pid()}});
    }
    else
    {
        std::cout << "the node in " << where.directory << " has ended (process " << link.broker_pid() << ")\n";
    }
    return exit_good;
}

int ask_node(const setting &where, const std::string &command)
{
    broker_link link;
    std::string trouble;
    switch (link.connect(where.directory, trouble))
    {
    case broker_link::outcome::no_node:
        return no_node(where);
    case broker_link::outcome::failed:
        return fail(trouble);
    case broker_link::outcome::connected:
        break;
    }
    std::optional<answer> reply = link.ask(command, where.json, trouble);
    if (!reply)
    {
        return fail(trouble);
    }
    if (!reply->good && !where.json)
    {
        std::cerr << "cpicnode: " << reply->text;
        return exit_failed;
    }
    std::cout << reply->text;
    return reply->good ? exit_good : exit_failed;
}

int status(const setting &where)
{
    return ask_node(where, "status");
}

int check(const setting &where, const std::string &config_file)
{
    std::vector<std::string> arguments{"--check", config_file};
    if (where.json)
    {
        arguments.push_back("--json");
    }
    std::cout.flush();
    return run_broker(arguments, nullptr) == 0 ? exit_good : exit_failed;
}

} // namespace tool
