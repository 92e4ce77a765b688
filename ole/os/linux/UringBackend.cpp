#include "os/linux/UringBackend.h"

#include "os/linux/LinuxPageMemory.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <sched.h>
#include <thread>

namespace {

constexpr unsigned submissionEntries = 256;
constexpr unsigned completionEntries = 4096;
constexpr unsigned resultsPerCollect = 32;
// A kernel short of memory refuses requests for a moment.
constexpr int submissionsMax = 100;

std::uint64_t markOf(LinuxAsyncContext* transfer) { return reinterpret_cast<std::uintptr_t>(transfer); }

LinuxAsyncContext* transferOf(std::uint64_t mark) { return reinterpret_cast<LinuxAsyncContext*>(mark); }

bool passes(int error) { return error == EAGAIN || error == EBUSY || error == ENOMEM; }

}  // namespace

UringBackend::UringBackend(TransferSink& sink) : sink_(sink), memory_(linuxPageCache(), ring_, mutex_) {}

std::unique_ptr<UringBackend> UringBackend::create(TransferSink& sink, int* error)
{
    std::unique_ptr<UringBackend> backend(new UringBackend(sink));
    *error = backend->ring_.build(submissionEntries, completionEntries);
    if (*error != 0)
        backend.reset();
    else
        backend->memory_.start();
    return backend;
}

void UringBackend::submit(LinuxAsyncContext* transfer, bool more)
{
    TransferList failed;
    {
        const std::lock_guard guard(mutex_);
        const bool hadToWait = startOrWait(transfer, failed);
        if (!more || hadToWait)
            handToKernel(failed);
    }
    reportFailed(failed);
}

void UringBackend::flush()
{
    TransferList failed;
    {
        const std::lock_guard guard(mutex_);
        handToKernel(failed);
    }
    reportFailed(failed);
}

// One result stays free for a wake-up.
bool UringBackend::hasRoom() const { return underWay_ + 1 < ring_.completionEntries(); }

bool UringBackend::startOrWait(LinuxAsyncContext* transfer, TransferList& failed)
{
    if (!someWait_ && hasRoom()) {
        start(transfer, failed);
        return false;
    }
    waiting_.push(transfer);
    someWait_ = true;
    startWaiting(failed);
    return true;
}

void UringBackend::start(LinuxAsyncContext* transfer, TransferList& failed)
{
    const Transfer::Step step = transfer->transfer().nextStep();
    transfer->handOver();
    if (!prepare(transfer, step)) {
        handToKernel(failed);
        if (!prepare(transfer, step)) {
            transfer->transfer().fail(EAGAIN);
            failed.push(transfer);
            return;
        }
    }
    ++underWay_;
}

bool UringBackend::prepare(LinuxAsyncContext* transfer, const Transfer::Step& step)
{
    // What goes to the ring's workers was refused before: there the pages cost nothing beside the rest.
    const unsigned slot = step.onWorker ? UringRing::noSlot : memory_.slotOf(step.memory, step.count);
    return ring_.prepare(transfer->transfer().kind(), step, slot, markOf(transfer));
}

void UringBackend::startWaiting(TransferList& failed)
{
    while (someWait_ && hasRoom()) {
        if (LinuxAsyncContext* transfer = waiting_.pop())
            start(transfer, failed);
        else
            someWait_ = false;
    }
}

void UringBackend::handToKernel(TransferList& failed)
{
    int error = ring_.submit();
    for (int i = 0; passes(error) && i < submissionsMax; ++i) {
        sched_yield();
        error = ring_.submit();
    }
    if (error == 0)
        return;
    // The kernel will not have them. Nobody may wait for ever, so they end with its error.
    marks_.clear();
    ring_.takeBack(marks_);
    for (const std::uint64_t mark : marks_) {
        if (LinuxAsyncContext* transfer = transferOf(mark)) {
            --underWay_;
            transfer->transfer().fail(error);
            failed.push(transfer);
        }
    }
}

void UringBackend::reportFailed(TransferList& failed)
{
    if (!failed.empty())
        sink_.takeFinished(failed);
}

bool UringBackend::takeResult(const UringRing::Result& result, TransferList& finished)
{
    LinuxAsyncContext* transfer = transferOf(result.mark);
    if (!transfer)
        return false;
    transfer->receive();
    if (transfer->transfer().advance(result.result))
        finished.push(transfer);
    else
        again_.push(transfer);
    return true;
}

void UringBackend::collect(TransferList& finished)
{
    results_.clear();
    static_cast<void>(brief_.look([this] { return ring_.hasResults(); }));
    ring_.wait(results_, resultsPerCollect);
    brief_.came();
    brief_.worked(std::max(static_cast<unsigned>(results_.size()), underWay_.load()));
    unsigned taken = 0;
    for (const UringRing::Result& result : results_)
        taken += takeResult(result, finished) ? 1U : 0U;

    underWay_ -= taken;
    if (again_.empty() && !someWait_)
        return;
    TransferList failed;
    const std::lock_guard guard(mutex_);
    while (LinuxAsyncContext* transfer = again_.pop())
        startOrWait(transfer, failed);
    startWaiting(failed);
    handToKernel(failed);
    finished.append(failed);
}

void UringBackend::interrupt()
{
    for (;;) {
        {
            const std::lock_guard guard(mutex_);
            if (ring_.prepareWakeUp() && ring_.submit() == 0)
                return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

bool UringBackend::hasFinished() { return ring_.hasResults(); }
