#include "os/linux/LinuxClock.h"

#include <cerrno>
#include <ctime>

namespace {

constexpr std::int64_t nsPerMs = 1'000'000;
constexpr std::int64_t nsPerSecond = 1'000'000'000;

std::int64_t nanoseconds()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * nsPerSecond + time.tv_nsec;
}

class LinuxClock final : public iClock
{
public:
    [[nodiscard]] std::uint32_t msecs() override
    {
        return static_cast<std::uint32_t>(nanoseconds() / nsPerMs);
    }

    [[nodiscard]] double msecsPrecise() override
    {
        return static_cast<double>(nanoseconds()) / static_cast<double>(nsPerMs);
    }

    void sleep(unsigned milliseconds) override
    {
        const std::int64_t end = nanoseconds() + std::int64_t{milliseconds} * nsPerMs;
        // Up to a moment, not for a time: a signal in between does not lengthen the sleep.
        const timespec until{.tv_sec = end / nsPerSecond, .tv_nsec = end % nsPerSecond};
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
        }
    }
};

}  // namespace

iClock* linuxClock()
{
    static LinuxClock* const clock = new LinuxClock;
    return clock;
}
