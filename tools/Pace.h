#pragma once

#include <algorithm>
#include <chrono>

// Pace: how often something is done that may take long: not before its interval is over, and never for more
// than a twentieth of the time.
class Pace
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Pace(Clock::duration interval) : interval_(interval) {}

    [[nodiscard]] bool isDue(Clock::time_point now) const { return now >= next_; }
    void took(Clock::time_point begin, Clock::time_point end)
    {
        next_ = std::max(begin + interval_, end + share * (end - begin));
    }

private:
    static constexpr int share = 20;

    Clock::duration interval_;
    Clock::time_point next_{};
};
