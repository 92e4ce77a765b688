#include "os/testing/PortState.h"

#include "Qz/Utf8.h"
#include "os/testing/FakeCore.h"
#include "os/testing/ThreadName.h"

#include <utility>

namespace fake {
namespace {

using Lock = std::unique_lock<std::mutex>;

thread_local const PortState* portOfThread = nullptr;

}  // namespace

PortState::PortState(std::shared_ptr<FakeCore> core, std::shared_ptr<SharedPortRecord> record,
                     const IOCompletionCommand& command)
    : core_(std::move(core)), record_(std::move(record)), name_(record_->record.name), command_(command)
{}

void PortState::begin()
{
    const Lock lock(mutex_);
    // A port without a thread would never report anything.
    const int first = record_->record.minThreads < 1 ? 1 : record_->record.minThreads;
    for (int i = 0; i < first; ++i)
        addThread();
}

// Under the lock.
void PortState::addThread()
{
    threads_.emplace_back([self = shared_from_this()] { self->work(); });
    const Lock recordLock(record_->mutex);
    ++record_->record.threads;
}

void PortState::post(const std::shared_ptr<Transfer>& transfer)
{
    const Lock lock(mutex_);
    queue_.push_back(transfer);
    if (queue_.size() > threads_.size() - busy_ && threads_.size() < threadsMax)
        addThread();
    changed_.notify_one();
}

void PortState::work()
{
    setCurrentThreadName(name_);
    portOfThread = this;
    Lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
        if (queue_.empty())
            return;
        std::shared_ptr<Transfer> transfer = std::move(queue_.front());
        queue_.pop_front();
        ++busy_;
        lock.unlock();
        core_->transfers.deliver(transfer);
        transfer.reset();
        lock.lock();
        --busy_;
    }
}

void PortState::shutDown()
{
    {
        const Lock lock(mutex_);
        if (std::exchange(shutDown_, true))
            return;
    }
    core_->transfers.drain(this);
    core_->transfers.awaitDrained(this, portOfThread == this ? 1 : 0);
    stop();
    {
        const Lock recordLock(record_->mutex);
        record_->record.alive = false;
    }
    Call call;
    call.op = Op::shutDownPort;
    call.path = fromUTF8(name_);
    core_->log.add(call);
}

void PortState::stop()
{
    std::vector<std::thread> last;
    {
        const Lock lock(mutex_);
        stopping_ = true;
        last.swap(threads_);
        changed_.notify_all();
    }
    for (std::thread& thread : last) {
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();
        else
            thread.join();
    }
}

}  // namespace fake
