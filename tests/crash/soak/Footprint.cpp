#include "Footprint.h"

#include "Studio.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <malloc.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t spareKb = 16 << 10;

unsigned descriptors()
{
    const fs::directory_iterator end;
    return static_cast<unsigned>(std::distance(fs::directory_iterator("/proc/self/fd"), end));
}

// Without those that the kernel keeps for a ring and ends as it likes.
unsigned threads()
{
    unsigned count = 0;
    std::error_code gone;
    for (const auto& task : fs::directory_iterator("/proc/self/task", gone)) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        count += name.empty() || name.starts_with("iou-") ? 0U : 1U;
    }
    return count;
}

std::uint64_t residentKb()
{
    std::ifstream status("/proc/self/statm");
    std::uint64_t all = 0;
    std::uint64_t resident = 0;
    status >> all >> resident;
    return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

}  // namespace

void Footprint::take()
{
    ::malloc_trim(0);
    samples_.push_back({residentKb(), descriptors(), threads()});
}

void Footprint::judge(Report& report, bool withMemory) const
{
    if (samples_.size() < 4) {
        report.wrong("too short a run to judge growth");
        return;
    }
    const auto first = samples_.begin() + 1;
    const auto half = first + (samples_.end() - first) / 2;
    const auto largest = [](auto from, auto to, auto Sample::*field) {
        auto value = (*from).*field;
        for (; from != to; ++from)
            value = std::max(value, (*from).*field);
        return value;
    };
    const std::uint64_t before = largest(first, half, &Sample::residentKb);
    const std::uint64_t after = largest(half, samples_.end(), &Sample::residentKb);
    if (withMemory && after > before + before / 10 + spareKb)
        report.wrong("memory grew from " + std::to_string(before) + " kB to " + std::to_string(after));
    if (largest(half, samples_.end(), &Sample::descriptors) > largest(first, half, &Sample::descriptors))
        report.wrong("the number of descriptors grew");
    if (largest(half, samples_.end(), &Sample::threads) > largest(first, half, &Sample::threads))
        report.wrong("the number of threads grew");
}
