#include "os/BusyWait.h"

#include <atomic>

namespace os {

namespace {

std::atomic<unsigned>& setting()
{
    static std::atomic<unsigned> microseconds{0};
    return microseconds;
}

}  // namespace

void setBusyWait(unsigned microseconds) { setting().store(microseconds, std::memory_order_relaxed); }

unsigned busyWait() { return setting().load(std::memory_order_relaxed); }

}  // namespace os
