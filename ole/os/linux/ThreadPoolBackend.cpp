#include "os/linux/ThreadPoolBackend.h"

#include "os/linux/ThreadName.h"

#include <cerrno>
#include <system_error>

ThreadPoolBackend::ThreadPoolBackend(const char* portName, TransferSink& sink)
    : name_(std::string(portName).substr(0, 12) + "-io"), sink_(sink)
{}

ThreadPoolBackend::~ThreadPoolBackend()
{
    {
        const std::lock_guard guard(mutex_);
        ending_ = true;
    }
    arrived_.notify_all();
    for (std::thread& worker : workers_)
        worker.join();
}

bool ThreadPoolBackend::startWorker()
{
    try {
        workers_.emplace_back([this] {
            nameThisThread(name_.c_str());
            work();
        });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void ThreadPoolBackend::submit(LinuxAsyncContext* transfer, bool)
{
    TransferList failed;
    {
        const std::lock_guard guard(mutex_);
        if (queued_ >= idle_ && workers_.size() < workersMax)
            startWorker();
        if (workers_.empty()) {
            transfer->transfer().fail(EAGAIN);
            failed.push(transfer);
        } else {
            ++queued_;
            waiting_.push(transfer);
        }
    }
    arrived_.notify_one();
    if (!failed.empty())
        sink_.takeFinished(failed);
}

void ThreadPoolBackend::work()
{
    std::unique_lock lock(mutex_);
    while (!ending_) {
        LinuxAsyncContext* transfer = waiting_.pop();
        if (!transfer) {
            ++idle_;
            arrived_.wait(lock);
            --idle_;
            continue;
        }
        --queued_;
        lock.unlock();
        runTransfer(transfer->transfer());
        lock.lock();
        finished_.push(transfer);
        finishedOrInterrupted_.notify_one();
    }
}

void ThreadPoolBackend::collect(TransferList& finished)
{
    std::unique_lock lock(mutex_);
    finishedOrInterrupted_.wait(lock, [this] { return interrupted_ || !finished_.empty(); });
    interrupted_ = false;
    finished.append(finished_);
}

void ThreadPoolBackend::interrupt()
{
    const std::lock_guard guard(mutex_);
    interrupted_ = true;
    finishedOrInterrupted_.notify_one();
}

bool ThreadPoolBackend::hasFinished()
{
    const std::lock_guard guard(mutex_);
    return !finished_.empty();
}
