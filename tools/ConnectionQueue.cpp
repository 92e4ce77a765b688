#include "ConnectionQueue.h"

#include <system_error>
#include <utility>

namespace {

thread_local bool overload = false;

}  // namespace

ConnectionQueue::ConnectionQueue(std::function<void()> look) : look_(std::move(look))
{
    try {
        while (threads_.size() < threadsMax)
            threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        // Those that could be started serve; where there is none all connections are too many.
    }
}

void ConnectionQueue::enqueue(std::function<void()> connection)
{
    look_();
    if (std::unique_lock guard(lock_); !threads_.empty() && waiting_.size() < waitingMax) {
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
