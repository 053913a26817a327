// target.hpp - the functions that are tried with any bytes: by a fuzzer (fuzzer.cpp, started by `run`) and, over a
// fixed number of inputs, by fuzz_test.cpp. A target ends the process when something does not hold that must.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

// One end of a conversation: any verbs, and any bytes from its partner.
void engine(const std::uint8_t *bytes, std::size_t size);
// The same bytes from a partner at once, and in portions, some of them read straight into the program's buffer.
void portions(const std::uint8_t *bytes, std::size_t size);
// Two ends back to back, any verbs at both.
void pair(const std::uint8_t *bytes, std::size_t size);
// A message between a program and the broker, and a frame header.
void message(const std::uint8_t *bytes, std::size_t size);

struct named_target
{
    const char *name;
    void (*run)(const std::uint8_t *bytes, std::size_t size);
};
inline constexpr named_target targets[] = {
    {"engine", engine}, {"portions", portions}, {"pair", pair}, {"message", message}};

[[noreturn]] inline void violated(const char *what, const char *file, int line)
{
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
    std::abort();
}

// The input, read as a sequence of small numbers. After its end it is all zeros; empty() ends every program made of it.
class numbers
{
public:
    numbers(const std::uint8_t *bytes, std::size_t size) : at_(bytes), end_(bytes + size) {}
    bool empty() const { return at_ == end_; }
    std::uint8_t byte() { return at_ == end_ ? std::uint8_t{0} : *at_++; }
    // Mostly small, at most what a send may have.
    std::uint32_t length()
    {
        const std::uint32_t low = byte();
        return low < 0xE0 ? low : ((low & 0x1Fu) << 10 | static_cast<std::uint32_t>(byte()) << 2);
    }
    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
    const std::uint8_t *take(std::size_t count)
    {
        const std::uint8_t *taken = at_;
        at_ += count;
        return taken;
    }

private:
    const std::uint8_t *at_, *end_;
};

} // namespace fuzz

#define MUST(condition) ((condition) ? void() : fuzz::violated(#condition, __FILE__, __LINE__))
