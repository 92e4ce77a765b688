#include "os/testing/FakeClock.h"

#include "os/testing/StopTest.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <numeric>
#include <utility>

namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

// A report on its way is given this much real time to end before virtual time moves on without it.
constexpr Milliseconds workPatience{1000};
constexpr std::chrono::seconds testPatience{30};
constexpr unsigned idleRoundsMax = 1000000;

thread_local bool isWorker = false;

double steadyMs() { return Milliseconds(std::chrono::steady_clock::now().time_since_epoch()).count(); }

}  // namespace

// --- time

double FakeClock::nowLocked() const
{
    return realBaseMs_ ? nowMs_ + (steadyMs() - *realBaseMs_) * speed_ : nowMs_;
}

std::uint32_t FakeClock::msecs()
{
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(msecsPrecise()));
}

double FakeClock::msecsPrecise()
{
    const Lock lock(mutex_);
    return nowLocked();
}

void FakeClock::setNow(double ms)
{
    const Lock lock(mutex_);
    nowMs_ = ms;
    if (realBaseMs_)
        realBaseMs_ = steadyMs();
}

void FakeClock::useRealTime(double speed)
{
    const Lock lock(mutex_);
    nowMs_ = nowLocked();
    realBaseMs_ = steadyMs();
    speed_ = speed;
}

void FakeClock::driveFromThisThread()
{
    const Lock lock(mutex_);
    driver_ = std::this_thread::get_id();
}

void FakeClock::advance(double ms)
{
    Lock lock(mutex_);
    const double target = nowLocked() + ms;
    if (realBaseMs_)
        nowMs_ += ms;
    while (runNextAction(lock, target)) {
    }
    if (!realBaseMs_)
        nowMs_ = std::max(nowMs_, target);
    notify();
}

void FakeClock::at(double timeMs, std::function<void()> action)
{
    const Lock lock(mutex_);
    actions_.emplace(timeMs, std::move(action));
    notify();
}

void FakeClock::after(double delayMs, std::function<void()> action)
{
    const Lock lock(mutex_);
    actions_.emplace(nowLocked() + delayMs, std::move(action));
    notify();
}

std::size_t FakeClock::planned() const
{
    const Lock lock(mutex_);
    return actions_.size();
}

FakeClock::Limit FakeClock::nextActionMs() const
{
    return actions_.empty() ? Limit() : Limit(actions_.begin()->first);
}

bool FakeClock::runNextAction(Lock& lock, double untilMs)
{
    const Limit next = nextActionMs();
    if (!next || *next > untilMs)
        return false;
    const std::function<void()> action = std::move(actions_.begin()->second);
    actions_.erase(actions_.begin());
    if (!realBaseMs_)
        nowMs_ = std::max(nowMs_, *next);
    notify();
    lock.unlock();
    action();
    lock.lock();
    return true;
}

// --- sleeping and waiting

void FakeClock::sleep(unsigned milliseconds)
{
    {
        Lock lock(mutex_);
        sleeps_.push_back({milliseconds, nowLocked()});
        block(
            lock, [] { return false; }, milliseconds, false);
    }
    fake::Call call;
    call.op = fake::Op::sleep;
    call.count = milliseconds;
    log_.add(call);
}

bool FakeClock::block(Lock& lock, const Ready& ready, std::optional<unsigned> timeoutMs, bool askIdleHandler)
{
    const Limit deadline = timeoutMs ? Limit(nowLocked() + *timeoutMs) : Limit();
    if (!isDriver())
        return blockOther(lock, ready, deadline);
    idleRounds_ = 0;
    return blockDriver(lock, ready, deadline, askIdleHandler && timeoutMs != 0U);
}

bool FakeClock::blockDriver(Lock& lock, const Ready& ready, Limit deadlineMs, bool askIdleHandler)
{
    for (;;) {
        if (ready())
            return true;
        if (askIdleHandler && askIdle(lock))
            continue;
        if (ready())
            return true;
        if (realBaseMs_) {
            if (runNextAction(lock, nowLocked()))
                continue;
            if (deadlineMs && nowLocked() >= *deadlineMs)
                return ready();
            const Limit next = nextActionMs();
            waitReally(lock, !deadlineMs ? next : next ? std::min(*next, *deadlineMs) : deadlineMs);
            continue;
        }
        if (letWorkEnd(lock, ready))
            continue;
        if (runNextAction(lock, deadlineMs.value_or(std::numeric_limits<double>::infinity())))
            continue;
        if (deadlineMs) {
            nowMs_ = std::max(nowMs_, *deadlineMs);
            notify();
            return ready();
        }
        waitForOthers(lock, ready);
    }
}

bool FakeClock::blockOther(Lock& lock, const Ready& ready, Limit deadlineMs)
{
    ++othersWaiting_;
    if (isWorker) {
        --work_;
        ++workChanges_;
    }
    notify();
    while (!ready() && !(deadlineMs && nowLocked() >= *deadlineMs))
        waitReally(lock, realBaseMs_ ? deadlineMs : Limit());
    if (isWorker) {
        ++work_;
        ++workChanges_;
    }
    --othersWaiting_;
    return ready();
}

bool FakeClock::askIdle(Lock& lock)
{
    // A wait inside the handler itself must not start it again.
    if (!idleHandler_ || inIdleHandler_)
        return false;
    if (++idleRounds_ > idleRoundsMax)
        fake::stopTest("the idle handler tells progress for ever, and the wait does not end");
    const std::function<bool()> handler = idleHandler_;
    inIdleHandler_ = true;
    lock.unlock();
    const bool progress = handler();
    lock.lock();
    inIdleHandler_ = false;
    return progress;
}

bool FakeClock::letWorkEnd(Lock& lock, const Ready& ready)
{
    if (work_ == 0 || workGivenUp_ == workChanges_)
        return false;
    const unsigned before = workChanges_;
    if (changed_.wait_for(lock, workPatience, [&] { return workChanges_ != before || ready(); }))
        return true;
    // Its command waits for something that this thread will do later.
    workGivenUp_ = workChanges_;
    return false;
}

void FakeClock::waitForOthers(Lock& lock, const Ready& ready)
{
    if (realThreads_) {
        // The idle handler may have to look at what other threads did without a word to the clock.
        changed_.wait_for(lock, Milliseconds(1));
        return;
    }
    const auto changed = [&] { return ready() || !actions_.empty() || work_ != 0; };
    if (!changed_.wait_for(lock, Milliseconds(patienceMs_), changed))
        fake::stopTest("the driving thread waits without limit, and nothing is left that could end it");
}

void FakeClock::waitReally(Lock& lock, Limit deadlineMs)
{
    if (deadlineMs)
        changed_.wait_for(lock, Milliseconds(std::max(0.0, (*deadlineMs - nowLocked()) / speed_)));
    else
        changed_.wait(lock);
}

void FakeClock::setIdleHandler(std::function<bool()> handler)
{
    const Lock lock(mutex_);
    idleHandler_ = std::move(handler);
}

void FakeClock::setPatience(unsigned realMs)
{
    const Lock lock(mutex_);
    patienceMs_ = realMs;
}

unsigned FakeClock::othersWaiting() const
{
    const Lock lock(mutex_);
    return othersWaiting_;
}

bool FakeClock::awaitOthersWaiting(unsigned count)
{
    Lock lock(mutex_);
    return changed_.wait_for(lock, testPatience, [&] { return othersWaiting_ >= count; });
}

// --- work of port threads

void FakeClock::beginWork()
{
    const Lock lock(mutex_);
    ++work_;
    ++workChanges_;
    notify();
}

void FakeClock::endWork()
{
    const Lock lock(mutex_);
    --work_;
    ++workChanges_;
    notify();
}

void FakeClock::markWorker(bool working) { isWorker = working; }

// --- records

std::vector<fake::SleepRecord> FakeClock::sleeps() const
{
    const Lock lock(mutex_);
    return sleeps_;
}

double FakeClock::sleptMs() const
{
    const Lock lock(mutex_);
    return std::accumulate(sleeps_.begin(), sleeps_.end(), 0.0,
                           [](double sum, const fake::SleepRecord& sleep) { return sum + sleep.ms; });
}

std::vector<fake::WaitRecord> FakeClock::waits() const
{
    const Lock lock(mutex_);
    return waits_;
}

void FakeClock::clearRecords()
{
    const Lock lock(mutex_);
    sleeps_.clear();
    waits_.clear();
}
