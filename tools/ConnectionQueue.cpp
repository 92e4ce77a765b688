#include "ConnectionQueue.h"

#include <utility>

namespace {

thread_local bool overload = false;

}  // namespace

ConnectionQueue::ConnectionQueue(std::function<void()> look) : look_(std::move(look))
{
    for (std::size_t i = 0; i < threadsMax; ++i)
        threads_.emplace_back([this] { work(); });
}

void ConnectionQueue::enqueue(std::function<void()> connection)
{
    look_();
    if (std::unique_lock guard(lock_); waiting_.size() < waitingMax) {
        waiting_.push_back(std::move(connection));
        guard.unlock();
        came_.notify_one();
        return;
    }
    overload = true;
    connection();
    overload = false;
}

bool ConnectionQueue::isOverload() { return overload; }

void ConnectionQueue::end()
{
    {
        const std::lock_guard guard(lock_);
        ending_ = true;
    }
    came_.notify_all();
    for (std::thread& thread : threads_)
        thread.join();
    threads_.clear();
}

void ConnectionQueue::work()
{
    while (true) {
        std::unique_lock guard(lock_);
        came_.wait(guard, [this] { return ending_ || !waiting_.empty(); });
        if (waiting_.empty())
            return;
        const std::function<void()> connection = std::move(waiting_.front());
        waiting_.pop_front();
        guard.unlock();
        connection();
    }
}
