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

// A number that is none, or NaN, is refused too.
const CLI::Validator seconds(
    [](std::string &value) {
        double number = 0;
        bool good = CLI::detail::lexical_cast(value, number) && number >= 0 && number <= 365.0 * 86400;
        return good ? std::string() : "it is " + value + ", and must be a number of seconds, up to 31536000 (a year)";
    },
    "");

const CLI::Validator count(
    [](std::string &value) {
        bool good = !value.empty() && value.size() < 10 && value.find_first_not_of("0123456789") == value.npos;
        return good ? std::string() : "it is " + value + ", and must be a whole number from 0 to 999999999";
    },
    "");

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

// What the command line has given.
struct given
{
    tool::setting where;
    std::string config_file;
    double idle = -1;
    double monitor_seconds = 0;
    std::size_t lines = 50;
    bool follow = false;
    std::function<int()> chosen;
};

constexpr char tail[] = "\n\n--dir and --json may stand here too; cpicnode --help explains them, and the exit codes.";

// `more`: what a person may need to know of the command beside its options.
CLI::App *add_group(CLI::App &of, const char *name, const char *help, const std::string &more)
{
    CLI::App *added = of.add_subcommand(name, help);
    added->footer(more + tail);
    return added;
}

CLI::App *add_command(CLI::App &of, given &line, const char *name, const char *help, std::function<int()> action,
                      const std::string &more)
{
    CLI::App *added = add_group(of, name, help, more);
    added->callback([&line, action = std::move(action)] { line.chosen = action; });
    return added;
}

// A command that the running broker answers by itself.
void add_question(CLI::App &of, given &line, const std::string &question, const char *help, const std::string &more)
{
    const std::string name = question.substr(question.find(' ') + 1);
    add_command(of, line, name.c_str(), help, [&line, question] { return tool::ask_node(line.where, question); }, more);
}

void add_life(CLI::App &app, given &line)
{
    CLI::App *start = add_command(
        app, line, "start", "Start a node; succeeds too when one is running already",
        [&line] { return tool::start(line.where, absolute(line.config_file), line.idle); },
        "It ends when programs can connect to the node, which goes on in the background.\n"
        "Without a configuration the node has one LU, LOCALLU, and the standard modes.\n\n"
        "Example:\n"
        "  cpicnode check node.toml && cpicnode start --config node.toml --idle 3600");
    start->add_option("--config", line.config_file,
                      "Configuration file; default: CPIC_NODE_CONFIG, else node.toml in the node's directory")
        ->type_name("FILE")
        ->check(not_empty);
    start->add_option("--idle", line.idle, "The node leaves when no program has used it for so long; 0: never")
        ->type_name("SECONDS")
        ->check(seconds);
    add_command(app, line, "stop", "End the node and wait until it has ended; conversations under way fail",
                [&line] { return tool::stop(line.where); },
                "Programs see their conversations fail with CM_RESOURCE_FAILURE_RETRY; the next one that\n"
                "needs a node starts another.");
    add_question(app, line, "status", "Is a node running, and what is it doing",
                 "Example, in a script:\n"
                 "  cpicnode status >/dev/null || cpicnode start");
    CLI::App *check = add_command(
        app, line, "check", "Say what is right and wrong with a configuration; needs no node",
        [&line] { return tool::check(line.where, line.config_file); },
        "A mistake reads FILE:LINE:COLUMN: what was found, what was expected. A warning is something\n"
        "that works, but hardly as it was meant. With mistakes the exit code is 1.\n"
        "cpicnode.toml(5) explains the file, and an example comes with the documentation.");
    check->add_option("config", line.config_file, "Configuration file")
        ->required()
        ->type_name("CONFIG")
        ->check(not_empty);
    add_question(app, line, "reload", "Let the node read its configuration again; it says what it could not change",
                 "With a mistake in the file the node keeps what it had, and the exit code is 1. What is in use\n"
                 "stays as it is, and is named.");
}

void add_show(CLI::App &app, given &line)
{
    CLI::App *show = add_group(app, "show", "Show one kind of thing the node knows",
                               "People get a table, with --json one array of objects with the same columns.\n\n"
                               "Examples:\n"
                               "  cpicnode show conversations\n"
                               "  cpicnode show names --json | jq -e 'any(.tp_name == \"HELLOSRV\")'");
    show->require_subcommand(1);
    add_question(*show, line, "show lus", "Local LUs and partner aliases",
                 "The first LU is the one of programs that name none.");
    add_question(*show, line, "show modes", "Modes with their session limits and sessions in use",
                 "An allocation that finds all sessions of its mode in use waits for one.");
    add_question(*show, line, "show side-info", "Symbolic destinations; passwords are never shown",
                 "What CMINIT looks up. A partner LU stands by its alias or its NETID.LUNAME.");
    add_question(*show, line, "show names", "TP names that running programs accept, and how many accepts wait",
                 "A name without a waiting accept is registered, but its program does something else just now.");
    add_question(*show, line, "show programs", "Running programs",
                 "Those that are connected: they have made a call that needs the node.");
    add_question(*show, line, "show startable", "Programs that the node starts when an attach comes for them",
                 "They are the [[program]] sections of the configuration. One without a command (-) is only\n"
                 "described there, and never started.");
    add_question(*show, line, "show conversations", "Conversations, from the allocation to the end of both sides",
                 "state: allocated (the client has sent nothing yet), checking user, queued (no program has\n"
                 "accepted it yet), connected or refused. from is the end that has allocated, to the one that\n"
                 "accepts; for each its LU 6.2 state and the bytes that it has sent, - where nobody counts.");
    add_question(*show, line, "show attaches", "Attaches that wait for a program to accept them",
                 "The columns are those of cpicnode show conversations.");
}

constexpr char view_text[] = "People get lines, beginning with a whole record, so there may be more of them. With\n"
                             "--json there are N records, as one array; with --follow one object on each line.";

void add_view_options(CLI::App &of, given &line)
{
    of.add_option("-n,--lines", line.lines, "The last N lines, with --json records; 0: all")
        ->capture_default_str()
        ->type_name("N")
        ->check(count);
    of.add_flag("-f,--follow", line.follow, "Go on with what is added later");
}

void add_logs(CLI::App &app, given &line)
{
    auto view = [&line](const char *file, tool::file_kind kind) {
        return [&line, file, kind] { return tool::show_file(line.where, file, kind, line.lines, line.follow); };
    };
    CLI::App *trace = add_group(app, "trace", "The API trace of all programs of the node",
                                "A record for each call when it begins and when it returns, with the data that\n"
                                "programs send and receive.\n\n"
                                "Examples:\n"
                                "  cpicnode trace on\n"
                                "  cpicnode trace show --follow");
    trace->require_subcommand(1);
    add_question(*trace, line, "trace on", "Running programs begin to trace at once",
                 "Programs that start later trace too.");
    add_question(*trace, line, "trace off", "Running programs stop tracing at once",
                 "What they have written stays, and cpicnode trace show shows it.");
    CLI::App *shown = add_command(*trace, line, "show", "Show the trace file", view("cpic.trc", tool::file_kind::trace),
                                  std::string(view_text) + "\n\ncpic-trace(5) explains the records.");
    add_view_options(*shown, line);

    CLI::App *audit = add_group(app, "audit", "Show the audit log of all programs of the node, or switch it",
                                std::string("Conversations allocated, accepted and deallocated.\n") + view_text);
    audit->require_subcommand(0, 1);
    audit->callback([&line, show = view("audit.log", tool::file_kind::log)] {
        if (!line.chosen) // no on or off
        {
            line.chosen = show;
        }
    });
    add_view_options(*audit, line);
    add_question(*audit, line, "audit on", "Programs write audit records",
                 "Those that run already begin at once. A node starts with what its configuration says.");
    add_question(*audit, line, "audit off", "Programs write no audit records",
                 "Those that run already stop at once. What they have written stays.");

    CLI::App *problems = add_command(
        app, line, "problems", "Show the problem log of all programs of the node",
        view("problem.log", tool::file_kind::log),
        std::string("What has gone wrong in programs and between them, log data of partners included.\n") + view_text);
    add_view_options(*problems, line);
}

void add_monitor(CLI::App &app, given &line)
{
    CLI::App *monitor = add_command(
        app, line, "monitor", "Show conversations as they come, move data, change and end",
        [&line] { return tool::monitor(line.where, line.monitor_seconds); },
        "It looks four times a second: new, changed (its state), moved (data, or an LU 6.2 state), ended.\n"
        "unseen says how many conversations have begun and ended between two looks. With --json each\n"
        "line is one object.");
    monitor->add_option("--for", line.monitor_seconds, "End after so long; 0: when interrupted")
        ->type_name("SECONDS")
        ->check(seconds);
}

// What is wrong with the command line, and where help is.
std::string usage_text(const CLI::App *app, const CLI::Error &error)
{
    // A word that is nothing at its place is left over, and found from the top.
    const std::vector<std::string> left = app->remaining(true);
    std::string path = app->get_name();
    while (!app->get_subcommands().empty())
    {
        app = app->get_subcommands().front();
        path += " " + app->get_name();
    }
    std::string text = error.what();
    if (dynamic_cast<const CLI::RequiredError *>(&error) != nullptr && app->get_require_subcommand_min() > 0)
    {
        text = left.empty()                     ? "a command is missing"
               : left.front().starts_with('-') ? left.front() + " is no option here"
                                               : left.front() + " is no command here";
        const char *before = "; expected one of ";
        for (const CLI::App *one : app->get_subcommands([](const CLI::App *) { return true; }))
        {
            text += before + one->get_name();
            before = ", ";
        }
    }
    return "cpicnode: " + text + "\nrun `" + path + " --help` for more\n";
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
               "  cpicnode trace on                     every running program begins to trace its calls\n"
               "  cpicnode show --help                  every command has more to say\n\n"
               "The node's directory is --dir, else CPIC_NODE_DIR, else $XDG_RUNTIME_DIR/cpicnode, else\n"
               "/tmp/cpicnode-<uid>. Exit codes: 0 good, 1 failed, 2 wrong arguments, 3 no node is running.\n"
               "What has failed is said on standard error, with --json in an object with the key \"error\".");
    app.require_subcommand(1);
    app.fallthrough();
    app.failure_message(usage_text);
    given line;
    app.add_option("--dir", line.where.directory, "Directory of the node")->type_name("DIR")->check(not_empty);
    app.add_flag("--json", line.where.json, "Answer in JSON");
    app.set_version_flag("--version", CPIC_VERSION);
    add_life(app, line);
    add_show(app, line);
    add_logs(app, line);
    add_monitor(app, line);
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError &error)
    {
        return tool::finish_output(app.exit(error) == 0 ? tool::exit_good : tool::exit_usage);
    }
    std::string &directory = line.where.directory;
    char rule[wire::max_directory + 1];
    if (directory.empty() && !wire::node_directory(rule))
    {
        tool::fail(line.where, "the node's directory must be an absolute path of at most " +
                                   std::to_string(wire::max_directory) +
                                   " characters; look at CPIC_NODE_DIR and XDG_RUNTIME_DIR");
        return tool::finish_output(tool::exit_failed);
    }
    directory = directory.empty() ? rule : absolute(directory);
    if (directory.size() > wire::max_directory)
    {
        std::cerr << "cpicnode: " << directory << " is longer than the " << wire::max_directory
                  << " characters that leave room for a socket; name a shorter directory\n";
        return tool::finish_output(tool::exit_usage);
    }
    return tool::finish_output(run(line.chosen));
}
