// measure.hpp - clock, medians, and the rows of the table that bench/run prints.
#pragma once

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

namespace bench {

// Seconds on the monotonic clock.
inline double now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t count = values.size();
    return count % 2 == 1 ? values[count / 2] : (values[count / 2 - 1] + values[count / 2]) / 2;
}

enum class aim
{
    at_most,
    at_least,
    none
};

inline void heading(const char *ours, const char *other)
{
    std::printf("%-52s %14s %14s %8s  %s\n", "", ours, other, "ratio", "aim");
}

// One row: two values in a unit, ours first, and their ratio against the aim. Returns whether the aim is met.
inline bool row(const std::string &what, double ours, double other, const char *unit, aim kind, double limit)
{
    const double ratio = ours / other;
    const bool met = kind == aim::none || (kind == aim::at_most ? ratio <= limit : ratio >= limit);
    std::printf("%-52s %10.4g %s %10.4g %s %8.2f  ", what.c_str(), ours, unit, other, unit, ratio);
    if (kind == aim::none)
        std::printf("-\n");
    else
        std::printf("%s %g: %s\n", kind == aim::at_most ? "at most" : "at least", limit, met ? "met" : "NOT MET");
    std::fflush(stdout);
    return met;
}

} // namespace bench
