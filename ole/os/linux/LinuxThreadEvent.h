#pragma once

#include "os/iThreadEvent.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
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
        std::condition_variable wake;
        bool released = false;
        Waiter* next = nullptr;
    };

    bool takeSignal();
    bool waitUntil(const Clock::time_point* end);
    // With mutex_ held:
    bool enqueueOrTakeSignal(Waiter& waiter);
    void remove(Waiter& waiter);
    void releaseWaiters();

    const bool manualReset_;
    std::atomic<unsigned> word_;  // bit 0: signalled; the rest counts the waiters
    std::mutex mutex_;
    Waiter* first_ = nullptr;
};
