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

    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }
    bool try_lock() { return mutex_.try_lock(); }

private:
    std::recursive_mutex mutex_;
};
