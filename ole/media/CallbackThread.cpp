#include "media/CallbackThread.h"

#include <system_error>
#include <utility>

namespace {

void call(MediaReader::Callback callback, MediaReadResult result)
{
    try {
        if (callback)
            callback(std::move(result));
    } catch (...) {
        // A promise of the reader: a callback's exceptions concern nobody else.
    }
}

}  // namespace

bool CallbackThread::post(MediaReader::Callback callback, MediaReadResult result)
{
    const std::lock_guard<std::mutex> hold(work_->guard);
    work_->items.push_back({std::move(callback), std::move(result)});
    work_->changed.notify_one();
    return startIfNeeded();
}

bool CallbackThread::start()
{
    const std::lock_guard<std::mutex> hold(work_->guard);
    return startIfNeeded();
}

bool CallbackThread::startIfNeeded()
{
    if (work_->items.empty() || work_->finishing || thread_.joinable())
        return true;
    try {
        thread_ = std::thread([work = work_] { work->run(); });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void CallbackThread::finish()
{
    std::thread thread;
    {
        const std::lock_guard<std::mutex> hold(work_->guard);
        work_->finishing = true;
        thread.swap(thread_);
        work_->changed.notify_one();
    }
    if (!thread.joinable())
        work_->run();
    else if (thread.get_id() == std::this_thread::get_id())
        thread.detach();
    else
        thread.join();
}

void CallbackThread::Work::run()
{
    std::unique_lock<std::mutex> lock(guard);
    for (;;) {
        changed.wait(lock, [this] { return finishing || !items.empty(); });
        if (items.empty())
            return;
        Item item = std::move(items.front());
        items.pop_front();
        lock.unlock();
        call(std::move(item.callback), std::move(item.result));
        item = {};
        lock.lock();
    }
}
