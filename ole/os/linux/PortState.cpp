#include "os/linux/PortState.h"

#include "os/LastError.h"
#include "os/Patience.h"
#include "os/linux/SubmissionHold.h"
#include "os/linux/ThreadName.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <system_error>

namespace {

constexpr unsigned closedBit = 1;
constexpr unsigned oneEntry = 2;
// The submitting thread and the transfer each hold the port: a transfer may be delivered before the call
// that submits it has come back.
constexpr unsigned entriesPerTransfer = 2;

// A wake-up costs some microseconds here and on the other processor, more where a processor sleeps deeply:
// help pays where commands usually take longer.
constexpr auto longCommand = std::chrono::microseconds(50);
constexpr unsigned roundsInMean = 8;

// A thread copies as much in the time in which another one wakes up and begins.
constexpr std::size_t bytesForHelp = std::size_t{1024} * 1024;

constexpr unsigned stuckLimitMs = 2000;

constexpr auto betweenLooks = std::chrono::milliseconds(2);
constexpr unsigned looksUntilGrowth = 50;
constexpr unsigned looksUntilRest = 50;

// The port whose thread this is; null on all other threads.
thread_local const PortState* portOfThisThread = nullptr;

}  // namespace

PortState::PortState(IoBackend backend, const char* name, const IOCompletionCommand& command,
                     unsigned minThreads)
    : name_(name ? name : ""),
      command_(command),
      minThreads_(std::clamp(minThreads, 1U, threadsMax)),
      backend_(makeBackend(backend, name_.c_str(), *this)),
      servers_(new ServerWorkers(name_, *this))
{}

// Of a port that was left to itself, workers may be on their way out.
PortState::~PortState() { servers_.reset(); }

void PortState::start()
{
    const Lock lock(mutex_);
    while (threads_.size() < minThreads_ && addThread()) {
    }
    if (threads_.empty()) {
        word_.fetch_or(closedBit);
        return;
    }
    try {
        watcher_ = std::thread([self = Qz::Ptr<PortState>(this)] {
            nameThisThread(self->name_.c_str());
            Lock watcherLock(self->mutex_);
            self->watchLoop(watcherLock);
        });
        // One thread waits in the backend, and the watcher sees when the others are all in commands.
        sharesCopies_ = threads_.size() > 1 && backend_->copiesInSubmit();
    } catch (const std::system_error&) {
        // The port works without growth, and with a thread that always stands by.
    }
}

bool PortState::addThread()
{
    try {
        threads_.emplace_back([self = Qz::Ptr<PortState>(this)] {
            portOfThisThread = self.get();
            nameThisThread(self->name_.c_str());
            Lock threadLock(self->mutex_);
            self->deliverLoop(threadLock);
        });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

unsigned PortState::threadCount()
{
    const Lock lock(mutex_);
    return static_cast<unsigned>(threads_.size());
}

// --- what keeps the port from ending

bool PortState::isOpen() const { return (word_.load(std::memory_order_acquire) & closedBit) == 0; }

unsigned PortState::entered() const { return word_.load(std::memory_order_acquire) / oneEntry; }

bool PortState::enter(unsigned entries)
{
    if ((word_.fetch_add(entries * oneEntry, std::memory_order_acq_rel) & closedBit) == 0)
        return true;
    leave(entries);
    return false;
}

void PortState::leave(unsigned entries)
{
    if ((word_.fetch_sub(entries * oneEntry, std::memory_order_acq_rel) & closedBit) == 0)
        return;
    Lock lock(mutex_);
    drained_.notify_all();
    if (abandoned_ && entered() == 0)
        endThreads(lock);
}

bool PortState::hold() { return enter(1); }

void PortState::releaseHeld()
{
    flush();
    leave(1);
}

void PortState::flush()
{
    if (copies_.holdsSome())
        releaseCopies();
    backend_->flush();
}

bool PortState::submit(LinuxAsyncContext* transfer)
{
    const bool more = SubmissionHold::holdsFor(this);
    if (!enter(entriesPerTransfer))
        return false;
    if (transfer->transfer().isSlow()) {
        ++slowUnderWay_;
        servers_->submit(transfer);
    } else if (sharesCopies_ && transfer->transfer().mayBeCached()) {
        {
            const Lock lock(mutex_);
            copies_.hold(transfer);
        }
        if (!more)
            flush();
    } else {
        backend_->submit(transfer, more);
    }
    leave(1);
    return true;
}

// --- delivery

void PortState::takeFinished(TransferList& finished)
{
    Lock lock(mutex_);
    ready_.append(finished);
    // A thread that is the port's only one sleeps in the backend and sees nothing of these.
    if (!watching_)
        startWatching();
    // Where no watcher could be started nobody else tells the thread in the backend of these.
    const bool callsCollector = !watcher_.joinable() && asleep_ == 0 && collecting_;
    unlockAndWake(lock, true);
    if (callsCollector)
        backend_->interrupt();
}

bool PortState::somethingWaits() const { return !ready_.empty() || copies_.hasSome() || !collecting_; }

// Wakes without the lock: under it the other thread would sleep once more, until it is free.
void PortState::unlockAndWake(Lock& lock, bool helpWanted)
{
    const bool wakes = helpWanted && asleep_ > 0 && somethingWaits();
    lock.unlock();
    if (wakes)
        work_.notify_one();
}

void PortState::deliverLoop(Lock& lock)
{
    Round round{Clock::now()};
    Looks looks;
    while (!ending_) {
        if (LinuxAsyncContext* transfer = ready_.pop()) {
            runCommand(lock, transfer);
            ++round.commands;
            continue;
        }
        endRound(round);
        TransferList group;
        if (const unsigned taken = copies_.take(group)) {
            looks.brief.worked(taken + copies_.count());
            looks.hasCopied = true;
            copy(lock, group);
        } else if (!collecting_) {
            waitForFinished(lock);
        } else if (threads_.size() > minThreads_) {
            leaveThreads();
            return;
        } else {
            sleep(lock, looks);
        }
        round = {Clock::now()};
    }
}

void PortState::sleep(Lock& lock, Looks& looks)
{
    const bool looked = looks.hasCopied;
    if (looked) {
        ++looking_;
        lock.unlock();
        static_cast<void>(looks.brief.look([this] { return copies_.hasSome(); }));
        lock.lock();
        --looking_;
    }
    if (!ending_ && !somethingWaits()) {
        looks.hasCopied = false;
        ++asleep_;
        work_.wait(lock);
        --asleep_;
    }
    if (looked)
        looks.brief.came();
}

void PortState::endRound(Round& round)
{
    if (round.commands == 0)
        return;
    ++rounds_;
    const Clock::duration each = (Clock::now() - round.start) / round.commands;
    usualCommand_ += (each - usualCommand_) / roundsInMean;
}

void PortState::waitForFinished(Lock& lock)
{
    collecting_ = true;
    lock.unlock();
    TransferList finished;
    backend_->collect(finished);
    lock.lock();
    collecting_ = false;
    ready_.append(finished);
}

void PortState::runCommand(Lock& lock, LinuxAsyncContext* transfer)
{
    ++busy_;
    if (transfer->transfer().isSlow())
        --slowUnderWay_;
    const bool isDelivered = !abandoned_;
    if (!watching_)
        startWatching();
    unlockAndWake(lock, !watcher_.joinable() || usualCommand_ > longCommand);
    {
        Transfer outcome;
        transfer->transfer().clearRest();
        const Qz::Ptr<LinuxAsyncContext> context = transfer->finish(outcome);
        const unsigned bytes = outcome.succeeded() ? static_cast<unsigned>(outcome.done()) : 0;
        CompletionPortHandlerCallbackContext parameter(outcome.succeeded(), bytes, context->getOwner());
        if (!outcome.succeeded())
            setLastErrno(outcome.error());
        // The owner may be gone when this returns, and who takes the command when the port was left.
        if (isDelivered)
            command_.execute(parameter);
    }
    leave(1);
    lock.lock();
    --busy_;
    ++returned_;
}

// --- copies

void PortState::releaseCopies()
{
    TransferList others;
    Lock lock(mutex_);
    if (copies_.release(others)) {
        if (!watching_)
            startWatching();
        unlockAndWakeForCopies(lock);
        return;
    }
    lock.unlock();
    while (LinuxAsyncContext* transfer = others.pop())
        backend_->submit(transfer, true);
}

// Each thread that takes some wakes the next one, as long as there is enough.
void PortState::unlockAndWakeForCopies(Lock& lock)
{
    const bool nobody = copying_ + looking_ == 0;
    const bool wakes = asleep_ > 0 && copies_.hasSome() && (nobody || copies_.bytes() >= bytesForHelp);
    lock.unlock();
    if (wakes)
        work_.notify_one();
}

void PortState::copy(Lock& lock, TransferList& group)
{
    ++copying_;
    unlockAndWakeForCopies(lock);
    TransferList copied;
    while (LinuxAsyncContext* transfer = group.pop()) {
        if (transfer->transfer().copyCached())
            copied.push(transfer);
        else
            backend_->submit(transfer, false);
    }
    lock.lock();
    --copying_;
    ready_.append(copied);
}

// The thread in the backend sees nothing of what came another way.
void PortState::callCollector(Lock& lock)
{
    lock.unlock();
    backend_->interrupt();
    lock.lock();
}

void PortState::leaveThreads()
{
    const auto self = std::find_if(threads_.begin(), threads_.end(), [](const std::thread& thread) {
        return thread.get_id() == std::this_thread::get_id();
    });
    if (self == threads_.end())
        return;
    left_.push_back(std::move(*self));
    threads_.erase(self);
}

// --- growth

void PortState::startWatching()
{
    watching_ = true;
    returnedAtLook_ = returned_;
    roundsAtLook_ = rounds_;
    stuckLooks_ = idleLooks_ = 0;
    watch_.notify_one();
}

void PortState::watchLoop(Lock& lock)
{
    while (!ending_) {
        if (watching_) {
            watch_.wait_for(lock, betweenLooks);
            if (!ending_)
                look(lock);
        } else {
            watch_.wait(lock);
        }
    }
}

void PortState::look(Lock& lock)
{
    const bool moved = returned_ != returnedAtLook_;
    // A thread that copies comes back for the next ones.
    const bool copiesWait = copies_.hasSome() && copying_ == 0;
    const bool waits = !ready_.empty() || copiesWait || (busy_ > 0 && !collecting_);
    bool callsCollector = false;
    // Short commands end their round long before the next look.
    if (waits && rounds_ == roundsAtLook_) {
        usualCommand_ = std::max<Clock::duration>(usualCommand_, betweenLooks);
        if (asleep_ > 0)
            work_.notify_one();
        callsCollector = asleep_ == 0 && collecting_;
    }
    stuckLooks_ = waits && !moved ? stuckLooks_ + 1 : 0;
    if (stuckLooks_ > looksUntilGrowth)
        addThreadIfAllBusy();
    // Looking on over short pauses spares those who deliver a wake-up each time.
    idleLooks_ = moved || waits || busy_ > 0 ? 0 : idleLooks_ + 1;
    watching_ = idleLooks_ < looksUntilRest;
    returnedAtLook_ = returned_;
    roundsAtLook_ = rounds_;
    // At the end: what was seen does not hold any longer when the lock has been free.
    if (callsCollector)
        callCollector(lock);
}

void PortState::addThreadIfAllBusy()
{
    if (abandoned_)
        return;
    // The thread in the backend does not see what came from elsewhere.
    const unsigned away = collecting_ && !ready_.empty() ? 1 : 0;
    const bool waiting = !ready_.empty() || (!collecting_ && backend_->hasFinished());
    if (busy_ + away < threads_.size() || !waiting || threads_.size() >= threadsMax)
        return;
    // Those that left are past their last use of the lock.
    for (std::thread& thread : left_)
        thread.join();
    left_.clear();
    addThread();
    stuckLooks_ = 0;
}

// --- end

void PortState::shutDown()
{
    SubmissionHold::releaseOnThisThread();
    if ((word_.fetch_or(closedBit, std::memory_order_acq_rel) & closedBit) != 0)
        return;
    const unsigned own = portOfThisThread == this ? 1 : 0;
    flush();
    {
        Lock lock(mutex_);
        if (!waitUntilDrained(lock, own)) {
            leaveToThemselves();
            return;
        }
        endThreads(lock);
    }
    joinThreads();
    servers_.reset();
    backend_.reset();
}

bool PortState::waitUntilDrained(Lock& lock, unsigned own)
{
    const std::chrono::milliseconds limit(os::Patience::limitMs(stuckLimitMs));
    const auto drained = [this, own] { return entered() <= own; };
    for (unsigned before = entered(); !drained_.wait_for(lock, limit, drained); before = entered())
        if (entered() == before && entered() - own <= slowUnderWay_)
            return false;
    return true;
}

void PortState::leaveToThemselves()
{
    abandoned_ = true;
    threads_.push_back(std::move(watcher_));
    for (std::vector<std::thread>* const threads : {&threads_, &left_}) {
        for (std::thread& thread : *threads)
            if (thread.joinable())
                thread.detach();
        threads->clear();
    }
}

void PortState::endThreads(Lock& lock)
{
    ending_ = true;
    work_.notify_all();
    watch_.notify_all();
    lock.unlock();
    backend_->interrupt();
}

void PortState::joinThreads()
{
    std::vector<std::thread> ended;
    {
        const Lock lock(mutex_);
        ended.swap(threads_);
        std::move(left_.begin(), left_.end(), std::back_inserter(ended));
        left_.clear();
        ended.push_back(std::move(watcher_));
    }
    for (std::thread& thread : ended) {
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();
        else if (thread.joinable())
            thread.join();
    }
}
