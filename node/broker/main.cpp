// main.cpp - the broker program: its arguments, going into the background, one broker for each directory.
#include "broker/config.hpp"
#include "broker/log.hpp"
#include "broker/server.hpp"
#include "wire/directory.hpp"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <linux/close_range.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace {

enum exit_code
{
    exit_good = 0,
    exit_failed = 1,
    exit_usage = 2,
    exit_already_running = 3,
};

constexpr off_t max_broker_log = 1 << 20; // bytes; a longer one is put aside
constexpr int lock_tries = 500;           // of 20 ms: how long a broker that is leaving is waited for

// What became of a start, as the background process tells the one that was called.
struct outcome
{
    exit_code code;
    std::string text; // for people
};

std::string absolute(const std::string &path)
{
    char here[PATH_MAX];
    if (path.empty() || path[0] == '/' || getcwd(here, sizeof here) == nullptr)
    {
        return path;
    }
    return std::string(here) + "/" + path;
}

bool somebody_answers(const std::string &directory)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = directory + "/" + wire::socket_name;
    std::memcpy(address.sun_path, path.c_str(), path.size()); // the directory's length has been checked
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    bool good = fd >= 0 && connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    if (fd >= 0)
    {
        close(fd);
    }
    return good;
}

outcome already_running(const std::string &directory)
{
    return {exit_already_running, "a node is already running in " + directory};
}

// The lock that makes this the only broker of its directory, held until the process ends. -1: text says why not.
// own_socket: the broker makes its socket itself. Then one that answers already means a node, and it is looked at
// before the lock is taken: it may belong to a service manager, which begins to start its broker at that moment. A
// broker whose socket was handed over learns nothing by it, since its own socket answers.
int take_lock(const std::string &directory, bool own_socket, outcome &result)
{
    std::string path = directory + "/broker.lock";
    if (own_socket && somebody_answers(directory))
    {
        result = already_running(directory);
        return -1;
    }
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
    {
        result = {exit_failed, path + ": cannot be opened (" + std::strerror(errno) + "); look at the directory's mode"};
        return -1;
    }
    for (int i = 0; flock(fd, LOCK_EX | LOCK_NB) != 0; ++i)
    {
        bool answers = own_socket && somebody_answers(directory);
        if (answers || i == lock_tries)
        {
            char pid[16]{};
            ssize_t size = pread(fd, pid, sizeof pid - 1, 0);
            std::string process = size > 0 ? std::string(" (process ") + pid + ")" : "";
            result = answers ? already_running(directory)
                             : outcome{exit_failed, "another broker" + process + " holds " + path +
                                                        (own_socket ? " but does not answer; end it first"
                                                                    : "; end it first")};
            close(fd);
            return -1;
        }
        usleep(20'000);
    }
    std::string pid = std::to_string(getpid());
    if (ftruncate(fd, 0) != 0 || pwrite(fd, pid.data(), pid.size(), 0) < 0)
    {
        broker::log_line("cannot note the process number in " + path); // only messages would have shown it
    }
    return fd;
}

// Everything from the directory to the end of the node. report() is called once, when the socket is ready or when it
// is clear that it will not be.
template <class Report>
void serve(broker::server_options options, Report report)
{
    wire::directory_state state = wire::directory_check(options.directory.c_str(), true);
    if (state != wire::directory_state::good)
    {
        return report({exit_failed, options.directory + ": " + wire::directory_advice(state)});
    }
    outcome result{exit_good, ""};
    int lock = take_lock(options.directory, options.listener < 0, result);
    if (lock < 0)
    {
        return report(result);
    }
    auto fail = [&](const std::string &text) {
        close(lock); // whoever tries again at once finds it free
        report({exit_failed, text});
    };
    std::string in_directory = options.directory + "/node.toml";
    if (options.config_file.empty() && access(in_directory.c_str(), F_OK) == 0)
    {
        options.config_file = in_directory;
    }
    broker::config settings = broker::default_config();
    if (!options.config_file.empty())
    {
        broker::config_findings findings;
        std::optional<broker::config> read = broker::read_config_file(options.config_file, findings);
        for (const std::string &warning : findings.warnings)
        {
            broker::log_line("warning: " + warning);
        }
        if (!read)
        {
            for (const std::string &error : findings.errors)
            {
                result.text += error + "\n";
            }
            return fail(result.text + "the node does not start with mistakes in its configuration");
        }
        settings = *read;
    }
    broker::set_own_limits();
    std::string where = options.directory;
    std::string configuration = options.config_file.empty() ? "the built-in configuration" : options.config_file;
    broker::server server(std::move(options), std::move(settings));
    if (!server.open(result.text))
    {
        return fail(result.text);
    }
    broker::log_line("node in " + where + " with " + configuration);
    report({exit_good, ""});
    sd_notify(0, "READY=1");
    server.run();
    sd_notify(0, "STOPPING=1");
}

int serve_here(broker::server_options options)
{
    int handed_over = sd_listen_fds(1);
    if (handed_over > 1 || (handed_over == 1 &&
                            sd_is_socket_unix(SD_LISTEN_FDS_START, SOCK_SEQPACKET, 1, nullptr, 0) <= 0))
    {
        std::cerr << "cpicnoded: the service manager must hand over one listening Unix socket of type seqpacket\n";
        return exit_failed;
    }
    if (handed_over == 1)
    {
        options.listener = SD_LISTEN_FDS_START;
    }
    exit_code code = exit_good;
    serve(std::move(options), [&](const outcome &result) {
        code = result.code;
        if (!result.text.empty())
        {
            std::cerr << "cpicnoded: " << result.text << "\n";
        }
    });
    return code;
}

// Leaves everything of the caller behind: descriptors, session, terminal, directory. False: no log could be opened.
bool detach(const std::string &directory, int report)
{
    setsid();
    if (chdir("/") != 0)
    {
        return false;
    }
    int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (null < 0 || !broker::log_into(directory + "/broker.log", max_broker_log))
    {
        return false;
    }
    dup2(null, STDIN_FILENO);
    dup2(report, STDERR_FILENO + 1);
    close_range(STDERR_FILENO + 2, ~0u, 0);
    return true;
}

// The process that goes into the background; what becomes of it goes into the pipe: a digit, then the text.
[[noreturn]] void serve_detached(const broker::server_options &options, int report)
{
    auto tell = [](int fd, const outcome &result) {
        std::string text = std::to_string(result.code) + result.text;
        [[maybe_unused]] ssize_t written = write(fd, text.data(), text.size());
        close(fd);
    };
    wire::directory_state state = wire::directory_check(options.directory.c_str(), true);
    if (state != wire::directory_state::good)
    {
        tell(report, {exit_failed, options.directory + ": " + wire::directory_advice(state)});
        _exit(exit_failed);
    }
    if (!detach(options.directory, report))
    {
        tell(report, {exit_failed, options.directory + "/broker.log: cannot be written (" + std::strerror(errno) +
                                       "); look at the directory's mode and free space"});
        _exit(exit_failed);
    }
    fcntl(STDERR_FILENO + 1, F_SETFD, FD_CLOEXEC);
    exit_code code = exit_good;
    serve(options, [&](const outcome &result) {
        code = result.code;
        if (code == exit_failed)
        {
            broker::log_line(result.text);
        }
        tell(STDERR_FILENO + 1, result);
    });
    _exit(code);
}

// Says what is right and wrong with a configuration; nothing is started.
int check_config(const std::string &file, bool json)
{
    broker::config_findings findings;
    bool good = broker::read_config_file(file, findings).has_value();
    if (json)
    {
        std::cout << broker::findings_json(file, findings);
        return good ? exit_good : exit_failed;
    }
    for (const std::string &error : findings.errors)
    {
        std::cout << error << "\n";
    }
    for (const std::string &warning : findings.warnings)
    {
        std::cout << "warning: " << warning << "\n";
    }
    std::cout << file << (good ? ": a node can use it\n" : ": a node would refuse it\n");
    return good ? exit_good : exit_failed;
}

int start_in_background(const broker::server_options &options)
{
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0)
    {
        std::cerr << "cpicnoded: no pipe to be had (" << std::strerror(errno) << ")\n";
        return exit_failed;
    }
    pid_t pid = fork();
    if (pid == 0)
    {
        serve_detached(options, report[1]);
    }
    close(report[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t size; pid > 0 && (size = read(report[0], buffer, sizeof buffer)) != 0;)
    {
        if (size > 0)
        {
            text.append(buffer, static_cast<std::size_t>(size));
        }
        else if (errno != EINTR)
        {
            break;
        }
    }
    if (text.empty())
    {
        std::cerr << "cpicnoded: the node has ended while it started; see " << options.directory << "/broker.log\n";
        return exit_failed;
    }
    int code = text[0] - '0';
    if (code == exit_already_running)
    {
        std::cout << text.substr(1) << "\n";
        return exit_good; // somebody serves the directory: that is what was asked for
    }
    if (code != exit_good)
    {
        std::cerr << "cpicnoded: " << text.substr(1) << "\n";
    }
    return code;
}

const CLI::Validator not_nan([](std::string &value) {
    return value.find_first_of("nN") == value.npos ? "" : "it is " + value + ", and must be a number of seconds";
}, "");

// An argument that a script has left empty is a mistake: the default that stands for nothing is not what was meant.
const CLI::Validator not_empty([](std::string &value) { return value.empty() ? "it is empty" : ""; }, "");

} // namespace

int main(int argc, char **argv)
{
    // A caller may have closed the standard descriptors; nothing else must take their numbers.
    for (int fd = 0; fd >= 0 && fd <= STDERR_FILENO;)
    {
        fd = open("/dev/null", O_RDWR);
        if (fd > STDERR_FILENO)
        {
            close(fd);
        }
    }
    CLI::App app{"The broker of a local node: keeps the names of transaction programs, finds the partner of each\n"
                 "conversation and hands both of them a socket. Programs start it when they need it; a service\n"
                 "manager may run it in the foreground, with or without a socket of its own."};
    app.footer("The directory is CPIC_NODE_DIR, else $XDG_RUNTIME_DIR/cpicnode, else /tmp/cpicnode-<uid>. It holds the\n"
               "socket and the logs. The configuration is --config, else CPIC_NODE_CONFIG, else node.toml in the\n"
               "directory, else one LU, LOCALLU, with the standard modes.\n\n"
               "Signals: SIGTERM and SIGINT end it, SIGHUP reads the configuration again.\n"
               "Exit codes: 0 good, 1 it could not start, 2 wrong arguments, 3 a node runs there already.");
    std::string directory;
    std::string config_file;
    double idle = -1;
    std::string check;
    bool start = false;
    bool json = false;
    app.add_option("--dir", directory, "Directory of the node")->type_name("DIR")->check(not_empty);
    app.add_option("--config", config_file, "Configuration file")->type_name("FILE")->check(not_empty);
    app.add_option("--idle", idle, "Leave after so long without a program; 0: never")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 365.0 * 86400) & not_nan);
    app.add_flag("--start", start, "Go into the background; ends as soon as programs can connect");
    app.add_option("--check", check, "Only say what is right and wrong with a configuration file")
        ->type_name("FILE")
        ->check(not_empty);
    app.add_flag("--json", json, "With --check: the answer in JSON")->needs("--check");
    app.set_version_flag("--version", CPIC_VERSION);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError &error)
    {
        return app.exit(error) == 0 ? exit_good : exit_usage;
    }
    if (!check.empty())
    {
        return check_config(check, json);
    }
    broker::server_options options;
    char rule[wire::max_directory + 1];
    if (directory.empty() && !wire::node_directory(rule))
    {
        std::cerr << "cpicnoded: the node's directory must be an absolute path of at most " << wire::max_directory
                  << " characters; look at CPIC_NODE_DIR and XDG_RUNTIME_DIR\n";
        return exit_failed;
    }
    options.directory = directory.empty() ? rule : absolute(directory);
    if (options.directory.size() > wire::max_directory)
    {
        std::cerr << "cpicnoded: " << options.directory << " is longer than the " << wire::max_directory
                  << " characters that leave room for a socket; name a shorter directory\n";
        return exit_failed;
    }
    const char *named = secure_getenv("CPIC_NODE_CONFIG");
    options.config_file = absolute(!config_file.empty() ? config_file : named != nullptr ? named : "");
    options.idle_ms = idle < 0 ? -1 : static_cast<std::int64_t>(idle * 1000 + 0.999);
    umask(077);
    return start ? start_in_background(options) : serve_here(options);
}
