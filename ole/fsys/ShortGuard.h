#pragma once

#include <atomic>
#include <chrono>
#include <thread>

// ShortGuard: a lock of one byte for records that exist by the million.
//
// For short sections that copy or replace fields, up to the copy of a clip's list of records: never held
// across a call to the platform, a callback or another subsystem. Not recursive. Use it through
// std::lock_guard.
class ShortGuard
{
public:
    ShortGuard() = default;
    ShortGuard(const ShortGuard&) = delete;
    ShortGuard& operator=(const ShortGuard&) = delete;

    // Waits for the guard, first by yielding, then asleep.
    void lock() noexcept
    {
        for (unsigned turn = 0; held_.test_and_set(std::memory_order_acquire); ++turn)
            if (turn < turnsBeforeSleep)
                std::this_thread::yield();
            else  // a waiter of real-time priority must let the holder run
                std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    // REQUIRES: this thread holds it.
    void unlock() noexcept { held_.clear(std::memory_order_release); }

private:
    static constexpr unsigned turnsBeforeSleep = 64;

    std::atomic_flag held_ = ATOMIC_FLAG_INIT;
};
