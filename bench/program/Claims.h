#pragma once

#include "Meter.h"
#include "Work.h"

#include <atomic>
#include <cstdint>
#include <optional>

// Claims: hands out the positions that a run reads, until the run's limits are reached, and proves with
// Work::verify that each of them was answered with the bytes of its own place.
//
// Every sector of a test file begins with its own position (TestFile.h).
// Threads: any, but rehearse and begin, which must not meet a next.
class Claims
{
public:
    Claims(const Work& work, std::uint64_t fileBytes);

    // Hands out some positions before the clock starts: as many as bring all memory and threads into use that
    // the run will use. They lie at the end of the file, where the run comes last. None where the file's
    // first reading is what is measured.
    void rehearse();
    // The clock of the run starts here.
    void begin();
    // The next position; none when the run is over.
    [[nodiscard]] std::optional<std::uint64_t> next()
    {
        const std::uint64_t claimed = count_.fetch_add(1, std::memory_order_relaxed);
        if (claimed >= limit_ || isLate(claimed))
            return std::nullopt;
        const std::uint64_t number = first_ + claimed;
        const std::uint64_t place = work_.random ? mixed(number) : number;
        const std::uint64_t position = place % blocks_ * work_.block + shiftOf(number / blocks_);
        if (work_.verify)
            asked_.fetch_add(mixed(position), std::memory_order_relaxed);
        return position;
    }
    // data arrived for one of the positions.
    void arrived(const void* data)
    {
        if (work_.verify)
            came(data);
    }
    // False when something else came than was asked for.
    [[nodiscard]] bool allCame() const { return asked_ == came_; }

private:
    [[nodiscard]] static std::uint64_t mixed(std::uint64_t value)
    {
        value += 0x9E3779B97F4A7C15U;
        value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
        value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
        return value ^ (value >> 31);
    }
    // Each time round the file all positions move on a little: a range that the engine still holds from the
    // last time does not hold the new one, so that every read is one.
    [[nodiscard]] std::uint64_t shiftOf(std::uint64_t round) const
    {
        return work_.once ? 0 : round * 4096 % work_.block / 4096 * 4096;
    }
    // The clock costs as much as a small read's submission; it is looked at now and then.
    [[nodiscard]] bool isLate(std::uint64_t number)
    {
        if ((number & 15) == 0 && SteadyClock::now() >= deadline_)
            over_.store(true, std::memory_order_relaxed);
        return over_.load(std::memory_order_relaxed);
    }
    void came(const void* data);

    const Work& work_;
    const std::uint64_t blocks_;
    const std::uint64_t runLimit_;
    std::uint64_t first_ = 0;
    std::uint64_t limit_ = 0;
    SteadyClock::time_point deadline_ = SteadyClock::time_point::max();
    std::atomic<std::uint64_t> count_{0};
    std::atomic<bool> over_{false};
    std::atomic<std::uint64_t> asked_{0};  // sum over the positions, each mixed
    std::atomic<std::uint64_t> came_{0};   // the same over what the data says about itself
};
