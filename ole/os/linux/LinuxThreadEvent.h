#pragma once

#include "os/iThreadEvent.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

// LinuxThreadEvent: see iThreadEvent.
//
// Threads:    set without a waiter is one atomic operation; a signal is handed to waiters one by one, in
//             the order of their arrival, so that no later reset, set or waiter takes it from them.
// Invariant:  the flag and waiting threads exist together in no state of word_.
class LinuxThreadEvent final : public iThreadEvent
{
public:
    LinuxThreadEvent(bool manualReset, bool signalled);

    void set() override;
    void reset() override;
    void wait() override;
    bool wait(unsigned timeoutMs) override;

    // Threads that wait and have not been released; for tests.
    [[nodiscard]] unsigned waiterCount() const { return word_.load(std::memory_order_acquire) / 2; }

private:
    using Clock = std::chrono::steady_clock;

    // A waiting thread, on its own stack.
    struct Waiter
    {
        std::atomic<std::uint32_t> released{0};  // a futex
        Waiter* next = nullptr;
    };

    bool takeSignal();
    bool release();
    bool waitUntil(const Clock::time_point* end);
    // With mutex_ held:
    bool enqueueOrTakeSignal(Waiter& waiter);
    void remove(Waiter& waiter);
    Waiter& takeFirst();
    void releaseAll();
    // Without it: until waiter is released or the time is over.
    bool sleep(Waiter& waiter, const Clock::time_point* end);

    const bool manualReset_;
    std::atomic<unsigned> word_;  // bit 0: signalled; the rest counts the waiters
    std::mutex mutex_;
    Waiter* first_ = nullptr;
};
