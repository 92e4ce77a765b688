#pragma once

#include <atomic>

// CacheGuess: whether the reads of one open file are likely to be found in the kernel's page cache.
//
// The only way to know is to try, and a try that fails costs a way through another thread before the disk
// is asked. So a miss lets the next reads pass by untried, and a file that comes to be cached meanwhile is
// found out after them.
// Threads:    any. Readers that race make a few tries more or less.
class CacheGuess
{
public:
    // Whether to try one read; each one that is not to be tried counts.
    [[nodiscard]] bool isWorthTrying()
    {
        int left = untried_.load(std::memory_order_relaxed);
        if (left > 0)
            untried_.store(left - 1, std::memory_order_relaxed);
        return left == 0;
    }
    void missed() { untried_.store(untriedAfterMiss, std::memory_order_relaxed); }
    // The file system cannot tell without waiting.
    void giveUp() { untried_.store(-1, std::memory_order_relaxed); }

    static constexpr int untriedAfterMiss = 31;

private:
    std::atomic<int> untried_{0};
};
