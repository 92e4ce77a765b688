#pragma once

#include <mutex>

// CriticalSection: a recursive lock: the thread that holds it may take it again. Use it through
// std::lock_guard or std::unique_lock. Usable as a static object and from static initialisers.
class CriticalSection
{
public:
    CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    // Waits for the lock; the thread that holds it gets it at once.
    void lock() { mutex_.lock(); }
    // Gives it back, once for each lock. REQUIRES: this thread holds it.
    void unlock() { mutex_.unlock(); }
    // False when another thread holds it.
    bool try_lock() { return mutex_.try_lock(); }

private:
    std::recursive_mutex mutex_;
};
