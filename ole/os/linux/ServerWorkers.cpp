#include "os/linux/ServerWorkers.h"

#include "os/linux/ThreadName.h"

#include <cerrno>
#include <system_error>

ServerWorkers::ServerWorkers(const std::string& portName, TransferSink& sink)
    : name_(portName.substr(0, 12) + "-net"), sink_(sink)
{}

ServerWorkers::~ServerWorkers()
{
    {
        const std::lock_guard guard(mutex_);
        ending_ = true;
    }
    arrived_.notify_all();
    for (std::thread& worker : workers_)
        worker.join();
}

void ServerWorkers::submit(LinuxAsyncContext* transfer)
{
    const void* const server = transfer->transfer().serverIdentity();
    {
        const std::lock_guard guard(mutex_);
        if (!servers_.admit(transfer) || offer(transfer))
            return;
        // Nobody waits behind it: without a thread nothing is under way.
        static_cast<void>(servers_.leave(server));
    }
    transfer->transfer().fail(EAGAIN);
    TransferList failed;
    failed.push(transfer);
    sink_.takeFinished(failed);
}

// As many threads as there were ever transfers at the same time; places on the servers bound these.
bool ServerWorkers::offer(LinuxAsyncContext* transfer)
{
    if (queued_ >= idle_ && !startWorker() && workers_.empty())
        return false;
    ++queued_;
    waiting_.push(transfer);
    arrived_.notify_one();
    return true;
}

bool ServerWorkers::startWorker()
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

void ServerWorkers::work()
{
    std::unique_lock lock(mutex_);
    while (!ending_) {
        LinuxAsyncContext* const transfer = waiting_.pop();
        if (!transfer) {
            ++idle_;
            arrived_.wait(lock);
            --idle_;
            continue;
        }
        --queued_;
        const void* const server = transfer->transfer().serverIdentity();
        lock.unlock();
        runTransfer(transfer->transfer());
        lock.lock();
        if (LinuxAsyncContext* const next = servers_.leave(server)) {
            ++queued_;
            waiting_.push(next);  // taken by this thread, if no other is faster
        }
        lock.unlock();
        TransferList finished;
        finished.push(transfer);
        sink_.takeFinished(finished);
        lock.lock();
    }
}
