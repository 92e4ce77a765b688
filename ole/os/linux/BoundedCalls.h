#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace os {

class CallLane;
class FileServer;

// Progress: how a long call shows that it still moves.
//
// A call that two threads share has two parts with a count each: stepping costs neither the other's cache
// line.
class Progress
{
public:
    enum class Part { caller, helper };

    void step(Part part = Part::caller) noexcept
    {
        counts_[part == Part::helper].steps.fetch_add(1, std::memory_order_relaxed);
    }
    [[nodiscard]] unsigned long steps() const noexcept
    {
        return counts_[0].steps.load(std::memory_order_relaxed) +
               counts_[1].steps.load(std::memory_order_relaxed);
    }

private:
    static constexpr std::size_t cacheLineBytes = 64;

    struct alignas(cacheLineBytes) Count
    {
        std::atomic<unsigned long> steps{0};
    };

    std::array<Count, 2> counts_;
};

// BoundedCalls: system calls with a deadline, for file systems whose server may hang.
//
// A process in such a call can be neither interrupted nor killed. So the call runs on a helper thread,
// and the caller gives it up when the time is over. Every mount has a lane of its own: one that is
// stuck does not hold up the others, and starts no further calls until its stuck call has returned.
//
// Threads:    any. A few calls of one lane may run at the same time.
// Ownership:  work is copied and may outlive the caller: it must own all that it uses.
// Units:      milliseconds without a step of progress; a call that goes on stepping may take longer. A
//             thread may have another limit (Patience.h).
// Errors:     the last error of the work becomes the caller's; ETIMEDOUT when it was given up.
// Lifetime:   threads are never joined; one that is stuck ends with the process.
class BoundedCalls
{
public:
    explicit BoundedCalls(unsigned limitMs);
    ~BoundedCalls();
    BoundedCalls(const BoundedCalls&) = delete;
    BoundedCalls& operator=(const BoundedCalls&) = delete;

    // The result of work, or nothing when it was given up or could not be started.
    template <class Result>
    std::optional<Result> call(const std::string& lane, std::function<Result(Progress&)> work)
    {
        auto result = std::make_shared<std::optional<Result>>();
        if (!run(lane, [result, work = std::move(work)](Progress& progress) { *result = work(progress); }))
            return std::nullopt;
        return std::move(*result);
    }

    // What an open file asks the server of a lane with; cutsAnswers as in FileSystemKinds.h.
    [[nodiscard]] std::shared_ptr<const FileServer> serverOf(const std::string& lane, bool cutsAnswers);

    void setLimit(unsigned limitMs) { limitMs_ = limitMs; }

private:
    bool run(const std::string& lane, std::function<void(Progress&)> work);
    std::shared_ptr<CallLane> laneOf(const std::string& name);
    std::shared_ptr<CallLane> laneIn(std::map<std::string, std::shared_ptr<CallLane>>& lanes,
                                     const std::string& name, unsigned threadsMax);

    std::atomic<unsigned> limitMs_;
    std::mutex lock_;
    std::map<std::string, std::shared_ptr<CallLane>> lanes_;
    std::map<std::string, std::shared_ptr<CallLane>> transferLanes_;
};

}  // namespace os
