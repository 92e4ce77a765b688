#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

// TimedTransfer: one read or write of a run, as a picture of the run shows it.
struct TimedTransfer
{
    using Clock = std::chrono::steady_clock;

    double startS = 0;                     // since the run began
    double latencyMs = 0;                  // until its bytes were there
    std::optional<double> allowedMs = {};  // as long as it might have taken; none without a deadline
    std::uint64_t bytes = 0;

    [[nodiscard]] bool isLate() const { return allowedMs && latencyMs > *allowedMs; }
    [[nodiscard]] double endS() const { return startS + latencyMs / 1000; }

    [[nodiscard]] static TimedTransfer between(Clock::time_point begin, Clock::time_point asked,
                                               Clock::time_point ended, std::uint64_t bytes)
    {
        return {.startS = std::chrono::duration<double>(asked - begin).count(),
                .latencyMs = std::chrono::duration<double, std::milli>(ended - asked).count(),
                .bytes = bytes};
    }
    [[nodiscard]] TimedTransfer dueAt(Clock::time_point begin, Clock::time_point due) const
    {
        TimedTransfer timed = *this;
        timed.allowedMs = (std::chrono::duration<double>(due - begin).count() - startS) * 1000;
        return timed;
    }
};
