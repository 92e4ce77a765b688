#include "fsys/CacheHold.h"

#include "os/Clock.h"
#include "support/Log.h"

namespace {

thread_local unsigned depth = 0;

// The time from which on a hold counts: not that of the wait for the lock.
double lockAndLook(CriticalSection& lock)
{
    lock.lock();
    ++depth;
    return service_get_msecs_precise();
}

}  // namespace

CacheHold::CacheHold(CriticalSection& lock, const char* operation)
    : lock_(lock), operation_(operation), sinceMs_(lockAndLook(lock))
{}

CacheHold::~CacheHold()
{
    const double heldMs = service_get_msecs_precise() - sinceMs_;
    const bool isOutermost = --depth == 0;
    lock_.unlock();
    if (isOutermost && heldMs > longMs)
        Log("SystemCache: %s kept others waiting for %.0f ms\n", operation_, heldMs);
}
