// cpicnode.cpp - the control program of a local node: its command line. What the commands do is in commands.cpp,
// monitor.cpp and logs.cpp.
#include "output.hpp"
#include "wire/directory.hpp"

#include <CLI/CLI.hpp>

#include <climits>
#include <fcntl.h>
#include <functional>
#include <iostream>
#include <unistd.h>

namespace {

std::string absolute(const std::string &path)
{
    char here[PATH_MAX];
    if (path.empty() || path[0] == '/' || getcwd(here, sizeof here) == nullptr)
    {
        return path;
    }
    return std::string(here) + "/" + path;
}

// An argument that a script has left empty is a mistake: the default that stands for nothing is not what was meant.
const CLI::Validator not_empty([](std::string &value) { return value.empty() ? "it is empty" : ""; }, "");

// A caller may have closed the standard descriptors; nothing else must take their numbers. What is written to a closed
// standard output fails, as it would without this.
void fill_standard_descriptors()
{
    for (int fd = 0; fd >= 0 && fd <= STDERR_FILENO;)
    {
        fd = open("/dev/null", O_RDONLY);
        if (fd > STDERR_FILENO)
        {
            close(fd);
        }
    }
}

// Runs what was chosen; whatever is thrown ends in a sentence.
int run(const std::function<int()> &chosen)
{
    try
    {
        return chosen();
    }
    catch (const std::exception &error)
    {
        std::cerr << "cpicnode: " << error.what() << "\n";
        return tool::exit_failed;
    }
}

} // namespace

int main(int argc, char **argv)
{
    fill_standard_descriptors();
    CLI::App app{"Starts, stops and shows the local node that lets CPI-C programs on this machine converse.\n"
                 "A program that needs a node starts one by itself; this is for looking at it and steering it.",
                 "cpicnode"};
    app.footer("Examples:\n"
               "  cpicnode start --config node.toml     a node with your LUs, modes and side information\n"
               "  cpicnode check node.toml              what is wrong with a configuration, by line and column\n"
               "  cpicnode status --json                for scripts\n"
               "  cpicnode show conversations           who talks to whom\n"
               "  cpicnode trace on                     every running program begins to trace its calls\n\n"
               "The node's directory is --dir, else CPIC_NODE_DIR, else $XDG_RUNTIME_DIR/cpicnode, else\n"
               "/tmp/cpicnode-<uid>. Exit codes: 0 good, 1 failed, 2 wrong arguments, 3 no node is running.");
    app.require_subcommand(1);
    app.fallthrough();
    tool::setting where;
    app.add_option("--dir", where.directory, "Directory of the node")->type_name("DIR")->check(not_empty);
    app.add_flag("--json", where.json, "Answer in JSON");
    app.set_version_flag("--version", CPIC_VERSION);

    std::function<int()> chosen;
    std::string config_file;
    double idle = -1;
    auto command = [&](CLI::App *of, const char *name, const char *help, std::function<int()> action) {
        CLI::App *added = of->add_subcommand(name, help);
        added->callback([&chosen, action = std::move(action)] { chosen = action; });
        return added;
    };

    CLI::App *start = command(&app, "start", "Start a node; succeeds too when one is running already",
                              [&] { return tool::start(where, absolute(config_file), idle); });
    start->add_option("--config", config_file,
                      "Configuration file; default: CPIC_NODE_CONFIG, else node.toml in the node's directory")
        ->type_name("FILE")
        ->check(not_empty);
    start->add_option("--idle", idle, "The node leaves when no program has used it for so long; 0: never")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 365.0 * 86400));
    command(&app, "stop", "End the node and wait until it has ended; conversations under way fail",
            [&] { return tool::stop(where); });
    command(&app, "status", "Is a node running, and what is it doing", [&] { return tool::ask_node(where, "status"); });
    CLI::App *check = command(&app, "check", "Say what is right and wrong with a configuration; needs no node",
                              [&] { return tool::check(where, config_file); });
    check->add_option("config", config_file, "Configuration file")->required()->type_name("CONFIG")->check(not_empty);
    command(&app, "reload", "Let the node read its configuration again; it says what it could not change",
            [&] { return tool::ask_node(where, "reload"); });

    CLI::App *show = app.add_subcommand("show", "Show one kind of thing the node knows");
    show->require_subcommand(1);
    const std::pair<const char *, const char *> things[] = {
        {"lus", "Local LUs and partner aliases"},
        {"modes", "Modes with their session limits and sessions in use"},
        {"side-info", "Symbolic destinations; passwords are never shown"},
        {"names", "TP names that running programs accept, and how many accepts wait"},
        {"programs", "Running programs"},
        {"startable", "Programs that the node starts when an attach comes for them"},
        {"conversations", "Conversations, from the allocation to the end of both sides"},
        {"attaches", "Attaches that wait for a program to accept them"},
    };
    for (const auto &[name, help] : things)
    {
        command(show, name, help, [&where, what = name] { return tool::ask_node(where, std::string("show ") + what); });
    }

    std::size_t lines = 50;
    bool follow = false;
    auto view_options = [&](CLI::App *added) {
        added->add_option("-n,--lines", lines, "How many lines; 0: all")->capture_default_str()->type_name("N");
        added->add_flag("-f,--follow", follow, "Go on with what is added later");
    };
    auto view = [&](CLI::App *of, const char *name, const char *help, const char *file, tool::file_kind kind) {
        view_options(command(of, name, help, [&, file, kind] {
            return tool::show_file(where, file, kind, lines, follow);
        }));
    };
    CLI::App *trace = app.add_subcommand("trace", "The API trace of all programs of the node");
    trace->require_subcommand(1);
    command(trace, "on", "Running programs begin to trace at once", [&] { return tool::ask_node(where, "trace on"); });
    command(trace, "off", "Running programs stop tracing at once", [&] { return tool::ask_node(where, "trace off"); });
    view(trace, "show", "Show the trace file", "cpic.trc", tool::file_kind::trace);
    CLI::App *audit = app.add_subcommand("audit", "Show the audit log of all programs of the node, or switch it");
    audit->require_subcommand(0, 1);
    audit->callback([&] {
        if (!chosen) // no on or off
        {
            chosen = [&] { return tool::show_file(where, "audit.log", tool::file_kind::log, lines, follow); };
        }
    });
    view_options(audit);
    command(audit, "on", "Programs write audit records", [&] { return tool::ask_node(where, "audit on"); });
    command(audit, "off", "Programs write no audit records", [&] { return tool::ask_node(where, "audit off"); });
    view(&app, "problems", "Show the problem log of all programs of the node", "problem.log",
         tool::file_kind::log);
    double seconds = 0;
    CLI::App *monitor = command(&app, "monitor", "Show conversations as they come, change and end",
                                [&] { return tool::monitor(where, seconds); });
    monitor->add_option("--for", seconds, "End after so long; 0: when interrupted")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 365.0 * 86400));

    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError &error)
    {
        return tool::finish_output(app.exit(error) == 0 ? tool::exit_good : tool::exit_usage);
    }
    char rule[wire::max_directory + 1];
    if (where.directory.empty() && !wire::node_directory(rule))
    {
        return tool::finish_output(tool::fail(where, "the node's directory must be an absolute path of at most " +
                                                         std::to_string(wire::max_directory) +
                                                         " characters; look at CPIC_NODE_DIR and XDG_RUNTIME_DIR"));
    }
    where.directory = where.directory.empty() ? rule : absolute(where.directory);
    if (where.directory.size() > wire::max_directory)
    {
        tool::fail(where, where.directory + " is longer than the " + std::to_string(wire::max_directory) +
                              " characters that leave room for a socket; name a shorter directory");
        return tool::finish_output(tool::exit_usage);
    }
    return tool::finish_output(run(chosen));
}
