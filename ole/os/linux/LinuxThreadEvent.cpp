#include "os/linux/LinuxThreadEvent.h"

#include "os/linux/SubmissionHold.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr unsigned signalled = 1;
constexpr unsigned oneWaiter = 2;

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

// False when the time was over first. May come back for no reason.
bool futexWait(const std::atomic<std::uint32_t>& word, const std::chrono::steady_clock::time_point* end)
{
    timespec until = {};
    if (end) {
        const auto since = end->time_since_epoch();
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
        until.tv_sec = seconds.count();
        until.tv_nsec = std::chrono::nanoseconds(since - seconds).count();
    }
    return syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, 0U, end ? &until : nullptr, nullptr,
                   FUTEX_BITSET_MATCH_ANY) == 0 ||
           errno != ETIMEDOUT;
}

// Looks at the address alone, so the word may be gone.
void futexWake(const std::atomic<std::uint32_t>* word)
{
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

}  // namespace

LinuxThreadEvent::LinuxThreadEvent(bool manualReset, bool initiallySignalled)
    : manualReset_(manualReset), word_(initiallySignalled ? signalled : 0)
{}

void LinuxThreadEvent::set()
{
    do {
        unsigned word = word_.load(std::memory_order_relaxed);
        // Setting what is set already is still a write: it publishes what this thread did before.
        while (word < oneWaiter) {
            if (word_.compare_exchange_weak(word, signalled, std::memory_order_acq_rel))
                return;
        }
        // Waiters whose time was over may have left meanwhile. Then the exchange above has to be the last
        // touch: whoever sees the flag may take the event away.
    } while (!release());
}

// False when nobody waits.
bool LinuxThreadEvent::release()
{
    const std::atomic<std::uint32_t>* released = nullptr;
    {
        const std::lock_guard guard(mutex_);
        if (!first_)
            return false;
        if (manualReset_) {
            releaseAll();
            return true;
        }
        released = &takeFirst().released;
    }
    // Without the lock, which the waiter takes before it goes on: woken under it, it would sleep once more.
    // Then it, and perhaps the event, are gone.
    futexWake(released);
    return true;
}

LinuxThreadEvent::Waiter& LinuxThreadEvent::takeFirst()
{
    Waiter& waiter = *first_;
    first_ = waiter.next;
    word_.fetch_sub(oneWaiter, std::memory_order_acq_rel);
    waiter.released.store(1, std::memory_order_release);
    return waiter;
}

void LinuxThreadEvent::releaseAll()
{
    while (first_)
        futexWake(&takeFirst().released);
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
    Waiter waiter;
    {
        const std::lock_guard guard(mutex_);
        if (enqueueOrTakeSignal(waiter))
            return true;
    }
    return sleep(waiter, end);
}

bool LinuxThreadEvent::sleep(Waiter& waiter, const Clock::time_point* end)
{
    bool inTime = true;
    while (inTime && waiter.released.load(std::memory_order_acquire) == 0)
        inTime = futexWait(waiter.released, end);
    // Whoever released this thread is inside the event until the lock is free.
    const std::lock_guard guard(mutex_);
    if (waiter.released.load(std::memory_order_relaxed) != 0)
        return true;
    remove(waiter);
    return false;
}

void LinuxThreadEvent::wait() { waitUntil(nullptr); }

bool LinuxThreadEvent::wait(unsigned timeoutMs)
{
    if (timeoutMs == 0) {
        SubmissionHold::releaseOnThisThread();
        return takeSignal();
    }
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    return waitUntil(&end);
}
