// samples_test.cpp - what README promises a newcomer: the compile lines of the hello pair word for word, the hello
// conversation, the file transfer, and the demo's conversations on files of every kind, interrupted at any moment.
#include "conversations/harness.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

using namespace conversations;
namespace fs = std::filesystem;

namespace {

// A directory of this test's own, gone at its end.
struct workplace
{
    workplace()
    {
        std::string name = testing::TempDir() + "cpic-samples-XXXXXX";
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no directory");
        path = name;
    }
    ~workplace() { fs::remove_all(path); }
    fs::path path;
};

std::string contents(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The command lines of the processes whose environment holds a text, one each line; the demo's programs carry the node
// directory there.
std::string processes_with(const std::string &text)
{
    std::string found;
    DIR *processes = opendir("/proc");
    while (const dirent *entry = readdir(processes))
    {
        const std::string process = std::string("/proc/") + entry->d_name;
        if (std::atoi(entry->d_name) > 0 && contents(process + "/environ").find(text) != std::string::npos)
        {
            std::string line = contents(process + "/cmdline");
            std::replace(line.begin(), line.end(), '\0', ' ');
            found += line + "\n";
        }
    }
    closedir(processes);
    return found;
}

fs::path made_file(const workplace &place, std::size_t size)
{
    const fs::path path = place.path / "input";
    std::ofstream file(path, std::ios::binary);
    unsigned word = 1;
    for (std::size_t i = 0; i < size; ++i)
    {
        word = word * 1664525u + 1013904223u;
        file.put(static_cast<char>(word >> 24));
    }
    return path;
}

finished converse_script(const workplace &place, const fs::path &file)
{
    return run({CPIC_TEST_SOURCE "/samples/converse", CPIC_TEST_BUILD, file}, {{"TMPDIR", place.path}}, 120000);
}

// Both conversations went well, and nothing is left: no process, no file.
void expect_demonstrated(const workplace &place, const finished &result)
{
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_NE(result.output.find("Proved:"), std::string::npos) << result.output;
    std::size_t same = 0;
    for (std::size_t at = 0; (at = result.output.find("exactly what was sent:", at)) != std::string::npos; ++at)
        ++same;
    EXPECT_EQ(same, 2u) << result.output;
    EXPECT_EQ(processes_with("CPIC_NODE_DIR=" + place.path.string()), "");
    for (const auto &entry : fs::directory_iterator(place.path))
        EXPECT_EQ(entry.path().filename().string().rfind("cpic-demo.", 0), std::string::npos) << entry.path();
}

} // namespace

#if CPIC_TEST_README // not under sanitizers: a user's compile line has none
TEST(Samples, the_readme_compiles_the_hello_pair_and_they_talk)
{
    // README's own lines, run where its reader runs them: in a checkout with a build in build/default.
    workplace place;
    fs::create_directory(place.path / "build");
    fs::create_directory_symlink(CPIC_TEST_BUILD, place.path / "build" / "default");
    fs::create_directory_symlink(CPIC_TEST_SOURCE "/include", place.path / "include");
    fs::copy(CPIC_TEST_SOURCE "/samples", place.path / "samples");
    std::istringstream readme(contents(CPIC_TEST_SOURCE "/README.md"));
    std::string script = "set -e\ncd " + place.path.string() + "\n";
    int compiled = 0;
    for (std::string line; std::getline(readme, line);)
        if (line.find("gcc -m32") != std::string::npos && line.find("samples/hello_") != std::string::npos)
        {
            script += line + "\n";
            ++compiled;
        }
    ASSERT_GT(compiled, 0) << "README has no line that compiles the hello pair";
    const finished built = run({"bash", "-c", script}, {}, 60000);
    ASSERT_EQ(built.code, 0) << built.output;
    ASSERT_TRUE(fs::exists(place.path / "samples/hello_client"));
    ASSERT_TRUE(fs::exists(place.path / "samples/hello_server"));

    node home(contents(CPIC_TEST_SOURCE "/samples/node.toml"));
    const finished talked = run(
        {"bash", "-c", "samples=" + (place.path / "samples").string() + "; $samples/hello_server >$samples/server.txt &\n"
                       "$samples/hello_client || exit 1; wait $!"},
        home.environment());
    EXPECT_EQ(talked.code, 0) << talked.output;
    EXPECT_NE(talked.output.find("received \"Hello, client."), std::string::npos) << talked.output;
    EXPECT_NE(contents(place.path / "samples/server.txt").find("received \"Hello, server."), std::string::npos);
}
#endif

TEST(Samples, hello_says_what_is_wrong_when_the_destination_is_unknown)
{
    node home;
    const finished result = run({CPIC_TEST_BUILD "/bin/hello_client"}, home.environment());
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.output.find("CM_PROGRAM_PARAMETER_CHECK"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("samples/node.toml"), std::string::npos) << result.output;
}

TEST(Samples, a_file_arrives_byte_for_byte)
{
    workplace place;
    const fs::path file = made_file(place, 3 * 32767 + 1), copy = place.path / "copy";
    node home(contents(CPIC_TEST_SOURCE "/samples/node.toml"));
    const finished result = run({"bash", "-c", CPIC_TEST_BUILD "/bin/file_server --tp-name FILESRV --save " + copy.string() +
                                                   " &\n" CPIC_TEST_BUILD "/bin/file_client " + file.string() +
                                                   " || exit 1; wait $!"},
                                home.environment());
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(contents(copy) == contents(file));
}

TEST(Samples, the_checksum_is_the_one_that_others_compute)
{
    // "123456789" has the CRC-32 CBF43926: the check value that every description of it gives.
    workplace place;
    std::ofstream(place.path / "input") << "123456789";
    const finished result = converse_script(place, place.path / "input");
    EXPECT_NE(result.output.find("BYTES=9 CRC32=CBF43926"), std::string::npos) << result.output;
}

TEST(Demo, files_of_every_size)
{
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{32767}, std::size_t{32768}, std::size_t{5000000}})
    {
        workplace place;
        expect_demonstrated(place, converse_script(place, made_file(place, size)));
    }
}

TEST(Demo, what_cannot_be_sent_is_said_at_once)
{
    workplace place;
    const finished directory = converse_script(place, place.path);
    EXPECT_EQ(directory.code, 2);
    EXPECT_NE(directory.output.find("is a directory"), std::string::npos) << directory.output;
    const finished missing = converse_script(place, place.path / "none");
    EXPECT_EQ(missing.code, 2);
    EXPECT_NE(missing.output.find("there is no file"), std::string::npos) << missing.output;
}

TEST(Demo, an_interrupt_at_any_moment_leaves_nothing)
{
    for (const int milliseconds : {1, 30, 60, 100, 150, 200, 300, 500})
    {
        workplace place;
        const fs::path file = made_file(place, 3000000);
        const std::string directory = place.path;
        // A terminal's Ctrl-C goes to the whole process group.
        const pid_t child = fork();
        if (child == 0)
        {
            setpgid(0, 0);
            std::signal(SIGINT, SIG_DFL);
            setenv("TMPDIR", directory.c_str(), 1);
            const int nothing = open("/dev/null", O_RDWR);
            dup2(nothing, 1);
            dup2(nothing, 2);
            execl(CPIC_TEST_SOURCE "/samples/converse", "converse", CPIC_TEST_BUILD, file.c_str(), nullptr);
            _exit(127);
        }
        setpgid(child, child);
        usleep(static_cast<useconds_t>(milliseconds) * 1000u);
        kill(-child, SIGINT);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) == 127);
        EXPECT_EQ(processes_with("CPIC_NODE_DIR=" + directory), "") << "after " << milliseconds << " ms";
        // Before its trap stands, bash dies at once, and has made nothing yet.
        for (const auto &entry : fs::directory_iterator(place.path))
            EXPECT_EQ(entry.path().filename().string().rfind("cpic-demo.", 0), std::string::npos) << entry.path();
    }
}
