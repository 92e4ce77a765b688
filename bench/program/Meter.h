#pragma once

#include <nlohmann/json.hpp>

#include <sys/resource.h>

#include <chrono>
#include <cstdint>

using Json = nlohmann::ordered_json;
using SteadyClock = std::chrono::steady_clock;

// Meter: wall clock and CPU time of the whole process, callers and kernel threads of a ring included,
// between start and stop.
//
// Threads: one.
class Meter
{
public:
    void start();
    void stop();
    [[nodiscard]] double seconds() const;
    // What was measured, for requests that moved bytes.
    [[nodiscard]] Json report(std::uint64_t requests, std::uint64_t bytes) const;

private:
    struct Reading
    {
        SteadyClock::time_point time;
        rusage usage;
    };
    [[nodiscard]] static Reading read();

    Reading start_{};
    Reading stop_{};
};

// Median, tails and extremes of a list of durations in microseconds; null for none.
[[nodiscard]] Json percentiles(std::vector<double> values);

[[nodiscard]] inline double microseconds(SteadyClock::duration duration)
{
    return std::chrono::duration<double, std::micro>(duration).count();
}
