#include "os/linux/CallLane.h"

#include "os/LastError.h"
#include "os/linux/ThreadName.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>

namespace os {

namespace {

constexpr std::chrono::seconds idleMax{10};

}  // namespace

bool CallLane::run(std::function<void(Progress&)> work, const Terms& terms)
{
    Held held(lock_);
    if (isStuck() && !(terms.isPatient && waitUntilFree(held, terms.limit))) {
        setLastErrno(ETIMEDOUT);
        return false;
    }
    const CallPtr call = add(std::move(work));
    if (!call) {
        setLastErrno(EAGAIN);
        return false;
    }
    if (waitFor(held, call, terms.limit))
        return true;
    giveUp(call);
    setLastErrno(ETIMEDOUT);
    return false;
}

void CallLane::end(const std::function<void()>& work, std::chrono::milliseconds limit)
{
    Held held(lock_);
    const bool wasStuck = isStuck();
    const CallPtr call = add([work](Progress&) { work(); });
    if (!call) {  // no threads at all: late is better than never
        held.unlock();
        work();
        return;
    }
    if (wasStuck || waitFor(held, call, limit))
        return;
    // Given up, and not taken back.
    if (call->state == State::running)
        giveUp(call);
    else
        jammed_ = true;
}

bool CallLane::waitUntilFree(Held& held, std::chrono::milliseconds limit)
{
    return callEnded_.wait_for(held, limit, [this] { return !isStuck(); });
}

CallLane::CallPtr CallLane::add(std::function<void(Progress&)> work)
{
    const auto call = std::make_shared<Call>();
    call->work = std::move(work);
    call->error = lastError();
    waiting_.push_back(call);
    if (!startThreadIfNeeded()) {
        waiting_.pop_back();
        return {};
    }
    workWaits_.notify_one();
    return call;
}

bool CallLane::startThreadIfNeeded()
{
    if (idle_ >= waiting_.size() || threads_ >= threadsMax_)
        return true;
    try {
        std::thread([lane = shared_from_this()] { lane->serve(); }).detach();
        ++threads_;
        return true;
    } catch (const std::system_error&) {
        return threads_ > 0;  // then one of those takes the call
    }
}

bool CallLane::waitFor(Held& held, const CallPtr& call, std::chrono::milliseconds limit)
{
    for (;;) {
        const unsigned long steps = call->progress.steps();
        if (callEnded_.wait_for(held, limit, [&] { return call->state == State::done; })) {
            setLastError(call->error);
            return true;
        }
        if (call->progress.steps() == steps)
            return false;
    }
}

void CallLane::giveUp(const CallPtr& call)
{
    if (call->state == State::waiting) {
        waiting_.erase(std::find(waiting_.begin(), waiting_.end(), call));
        jammed_ = !hasFreeThread();  // a free one was only slow to wake
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
        // It may have been too slow to start for the call that it was started for, and then no call is left
        // whose end would tell that the lane is free.
        if (jammed_ && hasFreeThread()) {
            jammed_ = false;
            callEnded_.notify_all();
        }
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
    jammed_ = false;
    if (call.givenUp)
        --stuck_;
    callEnded_.notify_all();
}

}  // namespace os
