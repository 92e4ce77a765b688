#pragma once

#include "os/linux/BoundedCalls.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace os {

// CallLane: the calls of one mount and the threads that run them (see BoundedCalls).
//
// Threads:    run on any thread. Helper threads are started as needed, up to a few, and end after a
//             while without work.
// Ownership:  the threads share the lane, so it lives until the last of them is done.
class CallLane : public std::enable_shared_from_this<CallLane>
{
public:
    // Runs work on a thread of the lane; false, with ETIMEDOUT, when it did not end in time or an
    // earlier call is stuck.
    bool run(std::function<void(Progress&)> work, std::chrono::milliseconds limit);

private:
    enum class State { waiting, running, done };

    struct Call
    {
        std::function<void(Progress&)> work;
        Progress progress;
        unsigned error = 0;  // last error of the caller, then of the work
        State state = State::waiting;
        bool givenUp = false;
    };
    using CallPtr = std::shared_ptr<Call>;

    bool startThreadIfNeeded();
    bool waitFor(std::unique_lock<std::mutex>& held, const CallPtr& call, std::chrono::milliseconds limit);
    void giveUp(const CallPtr& call);
    void serve();
    void execute(std::unique_lock<std::mutex>& held, Call& call);

    std::mutex lock_;
    std::condition_variable workWaits_;
    std::condition_variable callEnded_;
    std::deque<CallPtr> waiting_;
    unsigned threads_ = 0;
    unsigned idle_ = 0;
    unsigned stuck_ = 0;  // calls that were given up and still run
};

}  // namespace os
