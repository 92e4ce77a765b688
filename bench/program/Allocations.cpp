#include "Allocations.h"

#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

namespace {

std::atomic<bool> isCounting{false};
std::atomic<std::uint64_t> counted{0};
std::atomic<std::int64_t> pageBytes{0};

}  // namespace

void Allocations::countOne()
{
    if (isCounting.load(std::memory_order_relaxed))
        counted.fetch_add(1, std::memory_order_relaxed);
}

void Allocations::startCounting()
{
    counted = 0;
    isCounting = true;
}

std::uint64_t Allocations::stopCounting()
{
    isCounting = false;
    return counted;
}

void Allocations::countPages(std::int64_t bytes) { pageBytes += bytes; }

std::uint64_t Allocations::bytesInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd + static_cast<std::uint64_t>(pageBytes.load());
}

std::uint64_t Allocations::bytesResident()
{
    malloc_trim(0);
    std::ifstream file("/proc/self/statm");
    std::uint64_t pages = 0;
    std::uint64_t resident = 0;
    file >> pages >> resident;
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}
