#include "os/linux/LinuxThreadEvent.h"

#include "os/linux/SubmissionHold.h"

namespace {

constexpr unsigned signalled = 1;
constexpr unsigned oneWaiter = 2;

}  // namespace

LinuxThreadEvent::LinuxThreadEvent(bool manualReset, bool initiallySignalled)
    : manualReset_(manualReset), word_(initiallySignalled ? signalled : 0)
{}

void LinuxThreadEvent::set()
{
    unsigned word = word_.load(std::memory_order_relaxed);
    // Setting what is set already is still a write: it publishes what this thread did before.
    while (word < oneWaiter) {
        if (word_.compare_exchange_weak(word, signalled, std::memory_order_acq_rel))
            return;
    }
    const std::lock_guard guard(mutex_);
    releaseWaiters();
}

void LinuxThreadEvent::releaseWaiters()
{
    if (!first_) {
        word_.fetch_or(signalled, std::memory_order_acq_rel);
        return;
    }
    do {
        Waiter* waiter = first_;
        first_ = waiter->next;
        word_.fetch_sub(oneWaiter, std::memory_order_acq_rel);
        waiter->released = true;
        // Under the lock: the waiter, its condition and perhaps the event are gone once it can run.
        waiter->wake.notify_one();
    } while (manualReset_ && first_);
    if (manualReset_)
        word_.fetch_or(signalled, std::memory_order_acq_rel);
}

void LinuxThreadEvent::reset() { word_.fetch_and(~signalled, std::memory_order_acq_rel); }

bool LinuxThreadEvent::takeSignal()
{
    if (manualReset_)
        return (word_.load(std::memory_order_acquire) & signalled) != 0;
    return (word_.fetch_and(~signalled, std::memory_order_acq_rel) & signalled) != 0;
}

bool LinuxThreadEvent::enqueueOrTakeSignal(Waiter& waiter)
{
    unsigned word = word_.load(std::memory_order_acquire);
    for (;;) {
        const bool set = (word & signalled) != 0;
        const unsigned after = set ? (manualReset_ ? word : word & ~signalled) : word + oneWaiter;
        if (word_.compare_exchange_weak(word, after, std::memory_order_acq_rel)) {
            if (set)
                return true;
            break;
        }
    }
    Waiter** end = &first_;
    while (*end)
        end = &(*end)->next;
    *end = &waiter;
    return false;
}

void LinuxThreadEvent::remove(Waiter& waiter)
{
    Waiter** link = &first_;
    while (*link != &waiter)
        link = &(*link)->next;
    *link = waiter.next;
    word_.fetch_sub(oneWaiter, std::memory_order_acq_rel);
}

bool LinuxThreadEvent::waitUntil(const Clock::time_point* end)
{
    // Whoever waits may wait for a transfer of its own.
    SubmissionHold::releaseOnThisThread();
    if (takeSignal())
        return true;
    std::unique_lock lock(mutex_);
    Waiter waiter;
    if (enqueueOrTakeSignal(waiter))
        return true;
    while (!waiter.released) {
        if (!end) {
            waiter.wake.wait(lock);
        } else if (waiter.wake.wait_until(lock, *end) == std::cv_status::timeout && !waiter.released) {
            remove(waiter);
            return false;
        }
    }
    return true;
}

void LinuxThreadEvent::wait() { waitUntil(nullptr); }

bool LinuxThreadEvent::wait(unsigned timeoutMs)
{
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    return waitUntil(&end);
}
