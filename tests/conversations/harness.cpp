// harness.cpp - see harness.hpp. Used from one thread.
#include "conversations/harness.hpp"

#include <cerrno>
#include <csignal>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

extern char **environ;

namespace conversations {

namespace {

using steady = std::chrono::steady_clock;

steady::time_point in(int milliseconds)
{
    return steady::now() + std::chrono::milliseconds(milliseconds);
}

int left(steady::time_point end)
{
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(end - steady::now()).count();
    return rest > 0 ? static_cast<int>(rest) : 0;
}

// The environment of a child: ours, without what would lead it to another node, with the additions.
std::vector<std::string> child_environment(const std::map<std::string, std::string> &additions)
{
    std::vector<std::string> result;
    for (char **entry = environ; *entry != nullptr; ++entry)
    {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        const bool ours = name.rfind("CPIC_NODE", 0) == 0 || name.rfind("APPC", 0) == 0;
        if (!ours && additions.count(name) == 0)
            result.push_back(text);
    }
    for (const auto &[name, value] : additions)
        result.push_back(name + "=" + value);
    return result;
}

// Starts a program; in and out (and with both, err) are its standard descriptors. Signals have their default actions.
pid_t start(const std::vector<std::string> &command, const std::map<std::string, std::string> &environment, int in_fd,
            int out_fd, bool both)
{
    std::vector<char *> words, variables;
    const std::vector<std::string> texts = child_environment(environment);
    for (const std::string &word : command)
        words.push_back(const_cast<char *>(word.c_str()));
    for (const std::string &text : texts)
        variables.push_back(const_cast<char *>(text.c_str()));
    words.push_back(nullptr);
    variables.push_back(nullptr);
    const pid_t child = fork();
    if (child != 0)
        return child;
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGCHLD})
        std::signal(number, SIG_DFL);
    dup2(in_fd, 0);
    dup2(out_fd, 1);
    if (both)
        dup2(out_fd, 2);
    execvpe(words[0], words.data(), variables.data());
    const std::string message = "cannot start " + command[0] + ": " + std::strerror(errno) + "\n";
    if (write(2, message.data(), message.size()) < 0)
        _exit(126);
    _exit(127);
}

void make_pipe(int (&ends)[2])
{
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
}

} // namespace

int limit_ms(int milliseconds)
{
    static const double scale = [] {
        const char *text = std::getenv("CPIC_TEST_SCALE");
        const double value = text != nullptr ? std::atof(text) : 1;
        return value > 0 ? value : 1;
    }();
    return static_cast<int>(milliseconds * scale * CPIC_TEST_BUILD_SCALE);
}

finished run(const std::vector<std::string> &command, const std::map<std::string, std::string> &environment,
             int milliseconds)
{
    int output[2];
    make_pipe(output);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const pid_t child = start(command, environment, nothing, output[1], true);
    close(output[1]);
    close(nothing);
    finished result{-1, {}};
    const auto end = in(limit_ms(milliseconds));
    char chunk[4096];
    bool open_end = true, gone = false;
    int status = 0;
    // A program that stays behind may keep the pipe open: the end of the program is what counts.
    while (!gone && left(end) > 0)
    {
        pollfd ready{open_end ? output[0] : -1, POLLIN, 0};
        if (poll(&ready, 1, open_end ? std::min(left(end), 50) : 5) > 0)
        {
            const ssize_t got = read(output[0], chunk, sizeof chunk);
            if (got > 0)
                result.output.append(chunk, static_cast<std::size_t>(got));
            else
                open_end = false;
        }
        gone = waitpid(child, &status, WNOHANG) == child;
    }
    if (!gone)
    {
        ::kill(child, SIGKILL);
        waitpid(child, &status, 0);
        result.output += "\n(killed: it took too long)\n";
    }
    else
        result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    fcntl(output[0], F_SETFL, O_NONBLOCK);
    for (ssize_t got; (got = read(output[0], chunk, sizeof chunk)) > 0;)
        result.output.append(chunk, static_cast<std::size_t>(got));
    close(output[0]);
    return result;
}

long reply::number(const std::string &name) const
{
    const auto found = values.find(name);
    return found == values.end() ? -1000 : std::strtol(found->second.c_str(), nullptr, 0);
}

std::string reply::text(const std::string &name) const
{
    const auto found = values.find(name);
    return found == values.end() ? std::string() : found->second;
}

node::node(const std::string &configuration)
{
    std::string name = testing::TempDir() + "cpic-conversation-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no directory for a node");
    directory_ = name;
    std::ofstream(directory_ + "/node.toml") << configuration;
}

node::~node()
{
    control({"stop"});
    if (const long process = broker(); process > 0)
    {
        ADD_FAILURE() << "the broker did not stop when it was told to";
        ::kill(static_cast<pid_t>(process), SIGKILL);
    }
    if (testing::Test::HasFailure())
        for (const char *name : {"broker.log", "problem.log"})
            std::fprintf(stderr, "---- %s ----\n%s", name, log(name).c_str());
    std::filesystem::remove_all(directory_);
}

std::string standard_configuration(int attach_wait_seconds)
{
    return "[node]\nattach_wait_seconds = " + std::to_string(attach_wait_seconds) + R"(
idle_seconds = 30

[[lu]]
alias = "LOCALLU"
name = "LOCALNET.LOCALLU"

[[side_info]]
destination = "ECHO"
partner_lu = "LOCALLU"
tp_name = "ECHOSRV"
mode = "#INTER"

[[side_info]]
destination = "OTHER"
partner_lu = "LOCALNET.LOCALLU"
tp_name = "OTHERSRV"
mode = "#INTER"

[[side_info]]
destination = "NOTPN"
partner_lu = "LOCALLU"
tp_name = "NOBODY"
mode = "#INTER"
)";
}

std::map<std::string, std::string> node::environment() const
{
    return {{"CPIC_NODE_DIR", directory_}, {"CPIC_NODED", CPIC_TEST_BIN "/cpicnoded"}};
}

finished node::control(const std::vector<std::string> &arguments) const
{
    std::vector<std::string> command{CPIC_TEST_BIN "/cpicnode"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run(command, environment());
}

void node::start()
{
    const finished result = control({"start"});
    if (result.code != 0)
        throw std::runtime_error("the node does not start: " + result.output);
}

long node::broker() const
{
    const finished result = control({"status", "--json"});
    if (result.code != 0)
        return 0;
    const auto status = nlohmann::json::parse(result.output, nullptr, false);
    if (!status.is_object())
        throw std::runtime_error("cpicnode status --json wrote: " + result.output);
    return status.value("pid", 0L);
}

void node::kill_broker()
{
    const long process = broker();
    if (process <= 0)
        throw std::runtime_error("no broker runs");
    ::kill(static_cast<pid_t>(process), SIGKILL);
    const auto end = in(limit_ms(5000));
    // It is not our child: gone is when the process table has it no more, or only as a zombie of init's.
    while (::kill(static_cast<pid_t>(process), 0) == 0 && left(end) > 0)
    {
        std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
        std::string line;
        std::getline(stat, line);
        if (line.find(") Z ") != std::string::npos)
            break;
        usleep(1000);
    }
}

std::string node::log(const std::string &name) const
{
    std::ifstream file(directory_ + "/" + name);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

tp::tp(const node &home, std::map<std::string, std::string> environment, std::vector<std::string> through)
{
    through.push_back(CPIC_TEST_TP);
    environment.merge(home.environment());
    int commands[2], answers[2];
    make_pipe(commands);
    make_pipe(answers);
    process_ = start(through, environment, commands[0], answers[1], false);
    close(commands[0]);
    close(answers[1]);
    in_ = commands[1];
    out_ = answers[0];
    std::signal(SIGPIPE, SIG_IGN); // a TP that has died is noticed by its missing answer
}

tp::~tp()
{
    close(in_); // the end of its input ends it
    const auto end = in(limit_ms(3000));
    int status;
    while (process_ > 0 && left(end) > 0)
    {
        if (waitpid(process_, &status, WNOHANG) == process_)
        {
            if (WIFEXITED(status) && WEXITSTATUS(status) != 0)
                ADD_FAILURE() << "a TP ended with exit code " << WEXITSTATUS(status);
            if (WIFSIGNALED(status))
                ADD_FAILURE() << "a TP was ended by signal " << WTERMSIG(status);
            process_ = -1;
        }
        else
            usleep(1000);
    }
    if (process_ > 0)
        kill(SIGKILL);
    close(out_);
}

void tp::kill(int signal)
{
    ::kill(process_, signal);
    if (signal == SIGKILL)
    {
        waitpid(process_, nullptr, 0);
        process_ = -1;
    }
}

void tp::send(const std::string &command)
{
    const std::string line = command + "\n";
    if (write(in_, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        ADD_FAILURE() << "a TP is gone, it cannot be told: " << command;
}

bool tp::read_more(int milliseconds)
{
    pollfd ready{out_, POLLIN, 0};
    if (poll(&ready, 1, milliseconds) <= 0)
        return false;
    char chunk[4096];
    const ssize_t got = read(out_, chunk, sizeof chunk);
    if (got <= 0)
        return false;
    partial_.append(chunk, static_cast<std::size_t>(got));
    for (std::size_t end = partial_.find('\n'); end != std::string::npos; end = partial_.find('\n'))
    {
        const std::string line = partial_.substr(0, end);
        partial_.erase(0, end + 1);
        if (line.rfind("bg ", 0) == 0)
            background_.push_back(line.substr(3));
        else
            replies_.push_back(line);
    }
    return true;
}

reply tp::next(std::vector<std::string> &kept, const char *which, int milliseconds)
{
    const auto end = in(limit_ms(milliseconds));
    while (kept.empty() && left(end) > 0)
        if (!read_more(left(end)))
            break;
    reply result;
    if (kept.empty())
    {
        ADD_FAILURE() << "a TP gave no " << which;
        return result;
    }
    result.line = kept.front();
    kept.erase(kept.begin());
    std::istringstream words(result.line);
    words >> result.rc;
    for (std::string word; words >> word;)
    {
        const std::size_t equals = word.find('=');
        if (equals != std::string::npos)
            result.values[word.substr(0, equals)] = word.substr(equals + 1);
    }
    return result;
}

reply tp::receive(int milliseconds)
{
    return next(replies_, "answer", milliseconds);
}

reply tp::background(int milliseconds)
{
    return next(background_, "answer in the background", milliseconds);
}

bool tp::answers(int milliseconds)
{
    const auto end = steady::now() + std::chrono::milliseconds(milliseconds);
    while (replies_.empty() && left(end) > 0)
        if (!read_more(left(end)))
            break;
    return !replies_.empty();
}

reply tp::operator()(const std::string &command, int milliseconds)
{
    send(command);
    return receive(milliseconds);
}

void converse(tp &client, tp &server, type of)
{
    const bool basic = of == type::basic;
    ASSERT_EQ(server("cmsltp ECHOSRV").rc, 0);
    server.send("cmaccp 0");
    ASSERT_EQ(client("cminit 0 ECHO").rc, 0);
    ASSERT_EQ(client(basic ? "set cmsct 0 0" : "set cmsct 0 1").rc, 0);
    ASSERT_EQ(client("cmallc 0").rc, 0);
    ASSERT_EQ(client(basic ? "cmhex 0 00076669727374" : "cmtext 0 first").rc, 0);
    ASSERT_EQ(client("cmflus 0").rc, 0);
    ASSERT_EQ(server.receive().rc, 0);
    const reply got = server("cmrcv 0 32767");
    ASSERT_EQ(got.rc, 0) << got.line;
    ASSERT_EQ(got.text("hex"), basic ? "00076669727374" : "6669727374");
}

} // namespace conversations
