// prototypes_test.cpp - cpic.h against the table of calls: each call is declared under both names, with the same
// arguments, as many as the table says, and nothing else is declared. Most of it holds when this file compiles.
#include "cpic.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>
#include <type_traits>

namespace {

template <class Function> struct arity;
template <class... Arguments>
struct arity<void (*)(Arguments...)> : std::integral_constant<unsigned, sizeof...(Arguments)>
{
};

#define CPIC_CALL(number, lower, UPPER, arguments, needs, detail)                                                      \
    static_assert(std::is_same_v<decltype(&lower), decltype(&UPPER)>, #lower " and " #UPPER " differ");                \
    static_assert(arity<decltype(&lower)>::value == arguments, #lower " has other arguments");

#include "core/calls.def"
#undef CPIC_CALL

std::set<std::string> calls_of_the_table()
{
    std::set<std::string> names;
#define CPIC_CALL(number, lower, UPPER, arguments, needs, detail)                                                      \
    names.insert(#lower);                                                                                              \
    names.insert(#UPPER);
#include "core/calls.def"
#undef CPIC_CALL
    return names;
}

TEST(Prototypes, AreThoseOfTheTableOfCalls)
{
    std::ifstream header(CPIC_HEADER);
    ASSERT_TRUE(header) << CPIC_HEADER;

    std::set<std::string> declared;
    const std::string entry = "CM_ENTRY ";
    for (std::string line; std::getline(header, line);)
    {
        if (line.starts_with(entry))
        {
            const std::string name = line.substr(entry.size(), line.find('(') - entry.size());
            EXPECT_TRUE(declared.insert(name).second) << name << " is declared twice";
        }
    }
    EXPECT_EQ(declared, calls_of_the_table());
    EXPECT_EQ(declared.size(), 2u * 62u);
}

} // namespace
