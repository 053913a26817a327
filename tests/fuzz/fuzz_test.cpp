// fuzz_test.cpp - the fuzz targets over a fixed number of inputs, so that every build tries them and they cannot rot:
// the inputs in corpus/, the same with bytes changed, and random bytes. Each input depends on its number alone.
#include "fuzz/target.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using input = std::vector<std::uint8_t>;

std::vector<input> corpus(const std::string &target)
{
    std::vector<std::filesystem::path> names;
    for (const auto &entry : std::filesystem::directory_iterator(std::string(CPIC_FUZZ_CORPUS) + "/" + target))
        names.push_back(entry.path());
    std::sort(names.begin(), names.end());
    std::vector<input> all;
    for (const auto &name : names)
    {
        std::ifstream file(name, std::ios::binary);
        all.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return all;
}

void run(const fuzz::named_target &target, const input &bytes)
{
    const auto exact = std::make_unique<std::uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), exact.get());
    target.run(exact.get(), bytes.size());
}

input changed(const std::vector<input> &from, std::mt19937 &random)
{
    input bytes = from[random() % from.size()];
    const input &other = from[random() % from.size()];
    if (random() % 3 == 0 && !other.empty())
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(random() % (bytes.size() + 1)), other.begin(),
                     other.begin() + static_cast<std::ptrdiff_t>(random() % other.size()));
    for (auto count = random() % 6; count != 0 && !bytes.empty(); --count)
        bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
    if (bytes.size() > 600)
        bytes.resize(600);
    return bytes;
}

class Targets : public testing::TestWithParam<fuzz::named_target>
{
};

} // namespace

TEST_P(Targets, the_corpus)
{
    const std::vector<input> all = corpus(GetParam().name);
    ASSERT_FALSE(all.empty());
    for (const input &bytes : all)
        run(GetParam(), bytes);
}

TEST_P(Targets, changed_and_random_inputs)
{
    const std::vector<input> all = corpus(GetParam().name);
    for (unsigned number = 0; number < 1000; ++number)
    {
        std::mt19937 random(number);
        input bytes = changed(all, random);
        if (number % 4 == 0)
        {
            bytes.resize(random() % 200);
            for (std::uint8_t &byte : bytes)
                byte = static_cast<std::uint8_t>(random());
        }
        run(GetParam(), bytes);
    }
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Targets, testing::ValuesIn(fuzz::targets),
                         [](const testing::TestParamInfo<fuzz::named_target> &of) { return of.param.name; });
