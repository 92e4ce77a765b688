#pragma once

#include "os/CriticalSection.h"

// CacheHold: holds the media cache's lock while something runs that the cache does not know: listeners,
// visitors, deletions.
//
// Everybody who asks for a clip waits meanwhile, so a hold of more than a second is told in the log, when the
// lock is free again. Of holds inside each other the outermost tells.
// Threads:    as the lock, which is recursive.
class CacheHold
{
public:
    static constexpr double longMs = 1000;

    // operation names the holder in the log, and must be a literal.
    CacheHold(CriticalSection& lock, const char* operation);
    ~CacheHold();
    CacheHold(const CacheHold&) = delete;
    CacheHold& operator=(const CacheHold&) = delete;

private:
    CriticalSection& lock_;
    const char* const operation_;
    const double sinceMs_;
};
