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
// Threads:    run and end on any thread. Helper threads are started as needed, up to a few, and end after a
//             while without work.
// Ownership:  the threads share the lane, so it lives until the last of them is done.
class CallLane : public std::enable_shared_from_this<CallLane>
{
public:
    // How long a caller waits.
    struct Terms
    {
        std::chrono::milliseconds limit;  // without a step of progress
        bool isPatient = false;  // waits as long for a lane that is stuck; others are refused at once
    };

    explicit CallLane(unsigned threadsMax) : threadsMax_(threadsMax) {}

    // Runs work on a thread of the lane; false, with ETIMEDOUT, when it did not end in time or the lane is
    // stuck: an earlier call was given up and still runs, or all threads are in calls that do not end.
    bool run(std::function<void(Progress&)> work, const Terms& terms);
    // Runs work in any case, be it when the server answers again: for what gives something back. Waits for
    // it as run does, but not while the lane is stuck.
    void end(const std::function<void()>& work, std::chrono::milliseconds limit);

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
    using Held = std::unique_lock<std::mutex>;

    [[nodiscard]] bool isStuck() const { return stuck_ > 0 || jammed_; }
    // More threads wait for calls than calls for threads.
    [[nodiscard]] bool hasFreeThread() const { return idle_ > waiting_.size(); }
    bool waitUntilFree(Held& held, std::chrono::milliseconds limit);
    // Empty when there is no thread for it and none can be started.
    CallPtr add(std::function<void(Progress&)> work);
    bool startThreadIfNeeded();
    // False when the time was over.
    bool waitFor(Held& held, const CallPtr& call, std::chrono::milliseconds limit);
    void giveUp(const CallPtr& call);
    void serve();
    void execute(Held& held, Call& call);

    const unsigned threadsMax_;
    std::mutex lock_;
    std::condition_variable workWaits_;
    std::condition_variable callEnded_;
    std::deque<CallPtr> waiting_;
    unsigned threads_ = 0;
    unsigned idle_ = 0;
    unsigned stuck_ = 0;   // calls that were given up and still run
    bool jammed_ = false;  // a call got no thread in its time, and no thread has become free since
};

}  // namespace os
