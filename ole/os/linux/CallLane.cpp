#include "os/linux/CallLane.h"

#include "os/LastError.h"
#include "os/linux/ThreadName.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>

namespace os {

namespace {

constexpr unsigned threadsMax = 4;
constexpr std::chrono::seconds idleMax{10};

}  // namespace

bool CallLane::run(std::function<void(Progress&)> work, std::chrono::milliseconds limit)
{
    std::unique_lock held(lock_);
    if (stuck_ > 0) {
        setLastErrno(ETIMEDOUT);
        return false;
    }
    const auto call = std::make_shared<Call>();
    call->work = std::move(work);
    call->error = lastError();
    waiting_.push_back(call);
    if (!startThreadIfNeeded()) {
        waiting_.pop_back();
        setLastErrno(EAGAIN);
        return false;
    }
    workWaits_.notify_one();
    return waitFor(held, call, limit);
}

bool CallLane::startThreadIfNeeded()
{
    if (idle_ >= waiting_.size() || threads_ >= threadsMax)
        return true;
    try {
        std::thread([lane = shared_from_this()] { lane->serve(); }).detach();
        ++threads_;
        return true;
    } catch (const std::system_error&) {
        return threads_ > 0;  // then one of those takes the call
    }
}

bool CallLane::waitFor(std::unique_lock<std::mutex>& held, const CallPtr& call,
                       std::chrono::milliseconds limit)
{
    for (;;) {
        const unsigned long steps = call->progress.steps();
        if (callEnded_.wait_for(held, limit, [&] { return call->state == State::done; })) {
            setLastError(call->error);
            return true;
        }
        if (call->progress.steps() == steps) {
            giveUp(call);
            setLastErrno(ETIMEDOUT);
            return false;
        }
    }
}

void CallLane::giveUp(const CallPtr& call)
{
    if (call->state == State::waiting) {
        waiting_.erase(std::find(waiting_.begin(), waiting_.end(), call));
        return;
    }
    call->givenUp = true;
    ++stuck_;
}

void CallLane::serve()
{
    prepareHelperThread("fsys calls");
    std::unique_lock held(lock_);
    for (;;) {
        ++idle_;
        const bool hasWork = workWaits_.wait_for(held, idleMax, [this] { return !waiting_.empty(); });
        --idle_;
        if (!hasWork)
            break;
        const CallPtr call = waiting_.front();
        waiting_.pop_front();
        execute(held, *call);
    }
    --threads_;
}

void CallLane::execute(std::unique_lock<std::mutex>& held, Call& call)
{
    call.state = State::running;
    held.unlock();
    setLastError(call.error);
    try {
        call.work(call.progress);
    } catch (...) {  // out of memory: the caller finds no result
        setLastErrno(ENOMEM);
    }
    const unsigned error = lastError();
    call.work = nullptr;
    held.lock();
    call.error = error;
    call.state = State::done;
    if (call.givenUp)
        --stuck_;
    callEnded_.notify_all();
}

}  // namespace os
