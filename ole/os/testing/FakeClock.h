#pragma once

#include "os/iClock.h"
#include "os/testing/CallLog.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace fake {

struct SleepRecord
{
    unsigned ms = 0;
    double startedMs = 0;
};

struct WaitRecord
{
    unsigned event = 0;                 // number of the event, from 0 in order of creation
    std::optional<unsigned> timeoutMs;  // none: without limit
    bool signalled = false;
    double startedMs = 0;
    double tookMs = 0;  // time of this clock
};

}  // namespace fake

// FakeClock: the time of the fake platform, and the place where its threads wait.
//
// Virtual time (the default): stands still until the driving thread (the one that made the FakeOS) calls
//   advance(), sleeps, or waits for an event with a limit; those take no real time. Actions planned with at()
//   run on the driving thread at their time. Other threads wait for real, until they are signalled or the
//   driving thread has moved the time past their limit.
// Real time: the clock runs on from its present value, everybody waits for real, advance() skips time.
// A wait of the driving thread that would block calls the idle handler first, and again as long as it
//   answers true (progress was made, look again). Only then does time move on. A wait without limit that has
//   no planned action, no report on its way and no real thread left to rely on can never end: it stops the
//   test with a message. Sleeps do not call the idle handler.
//
// Threads: any; advance() on the driving thread only.
class FakeClock : public iClock
{
public:
    explicit FakeClock(fake::CallLog& log) : log_(log) {}

    std::uint32_t msecs() override;
    double msecsPrecise() override;
    void sleep(unsigned milliseconds) override;

    // --- for tests: time

    // Any value, e.g. shortly before the 32-bit count of milliseconds wraps. REQUIRES: nobody waits.
    void setNow(double ms);
    void advance(double ms);
    // Runs action when the time is reached; at once in the next advance when it has passed.
    void at(double timeMs, std::function<void()> action);
    void after(double delayMs, std::function<void()> action);
    // Planned actions that have not run.
    [[nodiscard]] std::size_t planned() const;
    // A clock that runs faster shortens all waits and sleeps by that factor.
    void useRealTime(double speed = 1);
    // Makes the calling thread the driving one.
    void driveFromThisThread();

    // --- for tests: waiting

    // Called on the driving thread without any lock of the fake.
    void setIdleHandler(std::function<bool()> handler);
    [[nodiscard]] std::vector<fake::SleepRecord> sleeps() const;
    // Sum of all sleeps.
    [[nodiscard]] double sleptMs() const;
    [[nodiscard]] std::vector<fake::WaitRecord> waits() const;
    void clearRecords();
    // Real time that a wait without end is given before it stops the test (10 s).
    void setPatience(unsigned realMs);
    // Threads other than the driving one that wait or sleep now.
    [[nodiscard]] unsigned othersWaiting() const;
    // Waits, for real, until at least count other threads wait or sleep; false after 30 s.
    bool awaitOthersWaiting(unsigned count);

    // --- for the parts of the fake platform

    // Guards what ready() of block() looks at; notify() after each change.
    [[nodiscard]] std::mutex& mutex() { return mutex_; }
    void notify() { changed_.notify_all(); }
    // Waits until ready() or the limit; the answer is ready()'s last. ready is called under the lock.
    bool block(std::unique_lock<std::mutex>& lock, const std::function<bool()>& ready,
               std::optional<unsigned> timeoutMs, bool askIdleHandler);
    // Under the lock.
    void recordLocked(const fake::WaitRecord& wait) { waits_.push_back(wait); }
    [[nodiscard]] double nowLocked() const;
    // Real threads may signal events on their own, so a wait without limit is no mistake.
    void expectRealThreads() { realThreads_ = true; }
    // A report that a port thread will deliver by itself; the driving thread gives it (real) time before it
    // moves the virtual time on.
    void beginWork();
    void endWork();
    // Marks the calling thread as the one that does such work, while it lasts.
    static void markWorker(bool working);

private:
    using Lock = std::unique_lock<std::mutex>;
    using Ready = std::function<bool()>;
    using Limit = std::optional<double>;  // a time of this clock
    bool blockDriver(Lock& lock, const Ready& ready, Limit deadlineMs, bool askIdleHandler);
    bool blockOther(Lock& lock, const Ready& ready, Limit deadlineMs);
    // True when something may have changed, so that it is worth looking again.
    bool askIdle(Lock& lock);
    bool letWorkEnd(Lock& lock, const Ready& ready);
    bool runNextAction(Lock& lock, double untilMs);
    void waitForOthers(Lock& lock, const Ready& ready);
    void waitReally(Lock& lock, Limit deadlineMs);
    [[nodiscard]] Limit nextActionMs() const;
    [[nodiscard]] bool isDriver() const { return std::this_thread::get_id() == driver_; }

    fake::CallLog& log_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::thread::id driver_ = std::this_thread::get_id();
    double nowMs_ = 1000000;            // virtual time, or the value at which real time began
    std::optional<double> realBaseMs_;  // steady clock at that moment; set: real time
    double speed_ = 1;                  // of real time
    std::multimap<double, std::function<void()>> actions_;
    std::function<bool()> idleHandler_;
    std::atomic<bool> realThreads_{false};
    unsigned patienceMs_ = 10000;
    bool inIdleHandler_ = false;
    unsigned idleRounds_ = 0;  // since a wait of the driving thread began
    unsigned othersWaiting_ = 0;
    unsigned work_ = 0;  // reports on their way whose threads are not blocked
    unsigned workChanges_ = 0;
    unsigned workGivenUp_ = 0;  // value of workChanges_ at which waiting for them was given up
    std::vector<fake::SleepRecord> sleeps_;
    std::vector<fake::WaitRecord> waits_;
};
