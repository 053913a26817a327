// documentation_test.cpp - the comments of cpic.h against the manual pages. A call is described in both: arguments,
// prototype and return codes must be the same there, and every page must have its sections. Both are read as text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct description
{
    std::string prototype;             // one line: name(type *argument, ...)
    std::vector<std::string> arguments; // without the return code
    std::set<std::string> codes;
};

std::string read(const std::string &path)
{
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

// One blank for each run of white space, none at the ends.
std::string squeezed(const std::string &text)
{
    std::string result = std::regex_replace(text, std::regex("\\s+"), " ");
    return std::regex_replace(result, std::regex("^ | $"), "");
}

std::string upper_case(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// The three groups of return codes that the header describes once, by the words with which a call refers to them.
std::map<std::string, std::set<std::string>> groups_of_header(const std::string &text)
{
    std::map<std::string, std::set<std::string>> groups;
    const std::regex heading(" \\*   ([a-z]+ [a-z]+); the conversation .*"), code(" \\*     (CM_[A-Z_]+) .*");
    std::set<std::string> *group = nullptr;
    std::smatch match;
    for (const std::string &line : lines_of(text))
    {
        if (std::regex_match(line, match, heading))
        {
            group = &groups[match[1]];
        }
        else if (group && std::regex_match(line, match, code))
        {
            group->insert(match[1]);
        }
    }
    return groups;
}

std::map<std::string, description> of_header()
{
    const std::string text = read(CPIC_HEADER);
    const auto groups = groups_of_header(text);
    EXPECT_EQ(groups.size(), 3u);

    std::map<std::string, description> calls;
    description call;
    std::string comment, prototype;
    const std::regex code("(CM_[A-Z_]+)  .*"), argument("([A-Za-z_]+) +(in|out|in and out), .*");
    std::smatch match;
    for (const std::string &line : lines_of(text))
    {
        if (line.starts_with("/* "))
        {
            call = description();
        }
        if (line.starts_with(" *   "))
        {
            const std::string item = line.substr(5);
            if (std::regex_match(item, match, code))
            {
                call.codes.insert(match[1]);
            }
            else if (std::regex_match(item, match, argument))
            {
                call.arguments.push_back(match[1]);
            }
            else if (item.starts_with("and the "))
            {
                for (const auto &[name, codes] : groups)
                {
                    if (item.find(name) != std::string::npos)
                    {
                        call.codes.insert(codes.begin(), codes.end());
                    }
                }
            }
        }
        if (line.starts_with("CM_ENTRY "))
        {
            prototype.clear();
        }
        prototype += line + ' ';
        if (prototype.starts_with("CM_ENTRY ") && line.ends_with(");"))
        {
            call.prototype = squeezed(std::regex_replace(prototype.substr(9), std::regex(" CM_PTR "), " *"));
            calls[call.prototype.substr(0, call.prototype.find('('))] = call;
            prototype.clear();
        }
    }
    return calls;
}

// The sections of a page: heading, text.
std::map<std::string, std::string> sections_of(const std::string &page)
{
    std::map<std::string, std::string> sections;
    std::string heading;
    for (const std::string &line : lines_of(page))
    {
        if (line.starts_with("# "))
        {
            heading = line.substr(2);
            sections[heading];
        }
        else
        {
            sections[heading] += line + '\n';
        }
    }
    return sections;
}

std::string page_path(const std::string &name, const std::string &section)
{
    return std::string(CPIC_MAN_SOURCES) + "/" + name + "." + section + ".scd";
}

std::vector<std::string> found_in(const std::string &text, const std::string &pattern)
{
    std::vector<std::string> found;
    const std::regex expression(pattern);
    for (std::sregex_iterator it(text.begin(), text.end(), expression), end; it != end; ++it)
    {
        found.push_back((*it)[1]);
    }
    return found;
}

TEST(ManualPages, SayWhatTheHeaderSays)
{
    unsigned pages = 0;
    for (const auto &[name, call] : of_header())
    {
        if (name == upper_case(name))
        {
            continue;
        }
        SCOPED_TRACE(name);
        pages++;
        auto page = sections_of(read(page_path(name, "3")));
        for (const char *section :
             {"NAME", "SYNOPSIS", "DESCRIPTION", "ARGUMENTS", "RETURN CODES", "STATES", "EXAMPLE", "SEE ALSO"})
        {
            EXPECT_FALSE(squeezed(page[section]).empty()) << section;
        }
        EXPECT_TRUE(squeezed(page["NAME"]).starts_with(name + ", " + upper_case(name) + " - "));

        EXPECT_NE(squeezed(page["SYNOPSIS"]).find("void " + call.prototype), std::string::npos) << call.prototype;
        const std::string cobol = page["SYNOPSIS"].substr(page["SYNOPSIS"].find("CALL"));
        EXPECT_TRUE(cobol.starts_with("CALL \"" + upper_case(name) + "\" USING ")) << cobol;
        EXPECT_EQ(found_in(cobol.substr(cobol.find("USING") + 5), "\\b([A-Z][A-Z-]+)\\b").size(), call.arguments.size() + 1)
            << cobol;

        std::vector<std::string> arguments = found_in(page["ARGUMENTS"], "(?:^|\n)_([A-Za-z_]+)_ \\(");
        ASSERT_FALSE(arguments.empty());
        EXPECT_EQ(arguments.back(), "return_code");
        arguments.pop_back();
        EXPECT_EQ(arguments, call.arguments);

        const std::vector<std::string> codes = found_in(page["RETURN CODES"], "(?:^|\n)\\*(CM_[A-Z_]+)\\*\n");
        EXPECT_EQ(std::set<std::string>(codes.begin(), codes.end()), call.codes);
        EXPECT_EQ(codes.size(), call.codes.size()) << "a return code stands twice";
    }
    EXPECT_EQ(pages, 62u);
}

// COBOL data names of the synopses come from the copybook; BUFFER is the program's own.
TEST(ManualPages, UseTheNamesOfTheCopybook)
{
    const std::string copybook = read(CPIC_COPYBOOK);
    for (const auto &[name, call] : of_header())
    {
        if (name == upper_case(name))
        {
            continue;
        }
        const std::string synopsis = sections_of(read(page_path(name, "3")))["SYNOPSIS"];
        const std::string cobol = synopsis.substr(synopsis.find("USING") + 5);
        for (const std::string &data_name : found_in(cobol, "\\b([A-Z][A-Z-]+)\\b"))
        {
            EXPECT_TRUE(data_name == "BUFFER" || std::regex_search(copybook, std::regex(" 0[15] " + data_name + "[ .]")))
                << name << " uses " << data_name;
        }
    }
}

TEST(ManualPages, ReferOnlyToPagesThatExist)
{
    unsigned references = 0;
    for (const auto &file : std::filesystem::directory_iterator(CPIC_MAN_SOURCES))
    {
        if (file.path().extension() != ".scd")
        {
            continue;
        }
        const std::string text = read(file.path());
        const std::regex reference("\\b([a-z][a-z-]+)\\*?\\(([1-8])\\)");
        for (std::sregex_iterator it(text.begin(), text.end(), reference), end; it != end; ++it)
        {
            const std::string name = (*it)[1], section = (*it)[2];
            if (name.starts_with("cm") || name.starts_with("xc") || name.starts_with("cpic"))
            {
                references++;
                EXPECT_TRUE(std::filesystem::exists(page_path(name, section)))
                    << file.path().filename() << " refers to " << name << '(' << section << ')';
            }
        }
    }
    EXPECT_GT(references, 200u);
}

} // namespace
