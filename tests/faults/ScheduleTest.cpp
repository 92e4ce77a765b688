// Thousands of schedules, each from a seed of its own.
//
// FSYS_SEED=N    only this one
// FSYS_SEEDS=N   so many, from FSYS_FIRST_SEED (1) on

#include "Schedule.h"
#include "Watchdog.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr unsigned seedSecondsMax = 120;
constexpr unsigned failedSeedsMax = 3;
constexpr unsigned long seedsUnasked = sanitized ? 300 : 1500;

unsigned long numberFrom(const char* variable, unsigned long otherwise)
{
    const char* const text = std::getenv(variable);
    return text ? std::strtoul(text, nullptr, 10) : otherwise;
}

}  // namespace

TEST(Schedule, EverySeedIsAsTheModelSays)
{
    const unsigned long only = numberFrom("FSYS_SEED", 0);
    const unsigned long first = only != 0 ? only : numberFrom("FSYS_FIRST_SEED", 1);
    const unsigned long count = only != 0 ? 1 : numberFrom("FSYS_SEEDS", seedsUnasked);
    Watchdog watchdog(seedSecondsMax);
    Schedule::Counts counts;
    unsigned failed = 0;
    const auto started = std::chrono::steady_clock::now();
    for (unsigned long seed = first; seed < first + count && failed < failedSeedsMax; ++seed) {
        watchdog.at("a schedule; repeat it with FSYS_SEED=" + std::to_string(seed));
        Schedule schedule(seed);
        if (const std::string wrong = schedule.run(); !wrong.empty()) {
            ++failed;
            ADD_FAILURE() << "FSYS_SEED=" << seed << ": " << wrong;
        }
        counts += schedule.counts();
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::printf("schedules: %lu seeds, %lu requests, %lu transfers (%lu of several writes), %lu faults, %lu "
                "bytes checked, %u failures, %.1f s\n",
                count, counts.requests, counts.transfers, counts.merged, counts.faults, counts.bytesChecked,
                failed, seconds);
    EXPECT_GT(counts.bytesChecked, 0U);
}
