#include "os/linux/UringBackend.h"

#include <cerrno>
#include <chrono>
#include <sched.h>
#include <thread>

namespace {

constexpr unsigned submissionEntries = 256;
constexpr unsigned completionEntries = 4096;
constexpr unsigned resultsPerCollect = 32;
// A kernel short of memory refuses requests for a moment.
constexpr int refusalsMax = 100;

std::uint64_t markOf(LinuxAsyncContext* transfer) { return reinterpret_cast<std::uintptr_t>(transfer); }

LinuxAsyncContext* transferOf(std::uint64_t mark) { return reinterpret_cast<LinuxAsyncContext*>(mark); }

bool passes(int error) { return error == EAGAIN || error == EBUSY || error == ENOMEM; }

}  // namespace

std::unique_ptr<UringBackend> UringBackend::create(TransferSink& sink, int* error)
{
    std::unique_ptr<UringBackend> backend(new UringBackend(sink));
    *error = backend->ring_.build(submissionEntries, completionEntries);
    if (*error != 0)
        backend.reset();
    return backend;
}

void UringBackend::submit(LinuxAsyncContext* transfer, bool more)
{
    TransferList failed;
    {
        const std::lock_guard guard(mutex_);
        start(transfer, failed);
        if (!more)
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

void UringBackend::start(LinuxAsyncContext* transfer, TransferList& failed)
{
    // One result stays free for a wake-up.
    if (underWay_ + 1 >= ring_.completionEntries()) {
        waiting_.push(transfer);
        return;
    }
    Transfer& work = transfer->transfer();
    const Transfer::Step step = work.nextStep();
    transfer->handOver();
    if (!ring_.prepare(work.kind(), step, markOf(transfer))) {
        handToKernel(failed);
        if (!ring_.prepare(work.kind(), step, markOf(transfer))) {
            work.fail(EAGAIN);
            failed.push(transfer);
            return;
        }
    }
    ++underWay_;
}

void UringBackend::startWaiting(TransferList& failed)
{
    while (underWay_ + 1 < ring_.completionEntries()) {
        LinuxAsyncContext* transfer = waiting_.pop();
        if (!transfer)
            return;
        start(transfer, failed);
    }
}

void UringBackend::handToKernel(TransferList& failed)
{
    int error = ring_.submit();
    for (int i = 0; passes(error) && i < refusalsMax; ++i) {
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
    ring_.wait(results_, resultsPerCollect);
    unsigned taken = 0;
    for (const UringRing::Result& result : results_)
        taken += takeResult(result, finished) ? 1U : 0U;

    TransferList failed;
    const std::lock_guard guard(mutex_);
    underWay_ -= taken;
    const bool idle = again_.empty() && waiting_.empty();
    while (LinuxAsyncContext* transfer = again_.pop())
        start(transfer, failed);
    startWaiting(failed);
    if (!idle)
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
