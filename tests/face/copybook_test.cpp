// copybook_test.cpp - the copybook against cpic.h: every constant of the header is a condition name with the same
// value, and the copybook has no name of its own. Both are read as text.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>

namespace {

using values = std::map<std::string, long>;

// Constants by their C names. A constant that is defined by another one has that one's value.
values of_header()
{
    values found;
    std::ifstream header(CPIC_HEADER);
    const std::regex define("#define ((?:CM|XC)_[A-Z_0-9]+) +([A-Z_0-9]+).*");
    std::smatch match;
    for (std::string line; std::getline(header, line);)
    {
        if (std::regex_match(line, match, define))
        {
            const std::string value = match[2];
            found[match[1]] = value[0] <= '9' ? std::stol(value) : found.at(value);
        }
    }
    return found;
}

values of_copybook()
{
    values found;
    std::ifstream copybook(CPIC_COPYBOOK);
    const std::regex condition(" +88 ([A-Z0-9-]+) +VALUE ([0-9]+)\\.");
    std::smatch match;
    for (std::string line; std::getline(copybook, line);)
    {
        if (std::regex_match(line, match, condition))
        {
            std::string name = match[1];
            std::replace(name.begin(), name.end(), '-', '_');
            EXPECT_TRUE(found.emplace(name, std::stol(match[2])).second) << name << " stands twice";
        }
    }
    return found;
}

TEST(Copybook, HasEveryConstantOfTheHeader)
{
    values header = of_header();
    ASSERT_GT(header.size(), 100u);
    // Sizes of fields that have no length beside them: the copybook's pictures have them.
    for (const char *size : {"CM_CID_SIZE", "CM_SDN_SIZE", "CM_LLN_FIELD_SIZE"})
    {
        EXPECT_EQ(header.erase(size), 1u) << size;
    }
    EXPECT_EQ(of_copybook(), header);
}

TEST(Copybook, FitsTheColumnsOfFixedFormat)
{
    std::ifstream copybook(CPIC_COPYBOOK);
    for (std::string line; std::getline(copybook, line);)
    {
        EXPECT_LE(line.size(), 72u) << line;
        EXPECT_EQ(line.substr(0, 7), std::string(7, ' ')) << line;
    }
}

} // namespace
