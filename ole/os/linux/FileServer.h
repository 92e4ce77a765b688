#pragma once

#include "os/linux/CallLane.h"

#include <functional>
#include <memory>
#include <optional>

namespace os {

// FileServer: how an open file asks the server behind its file system, which may stop answering.
//
// Two lanes per mount: one for questions, and one for what moves bytes, which may take as long as a server
// needs to find out that a part of it has died.
//
// Threads:    any.
// Ownership:  shares the lanes; work is copied and may outlive the caller (see BoundedCalls).
// Errors:     as BoundedCalls: ETIMEDOUT when the server did not answer in time.
class FileServer
{
public:
    // Clusters take up to three quarters of a minute to give up a member, and go on without it.
    static constexpr unsigned transferLimitMs = 60'000;

    FileServer(std::shared_ptr<CallLane> questions, std::shared_ptr<CallLane> transfers,
               unsigned questionLimitMs, bool cutsAnswers = false)
        : questions_(std::move(questions)),
          transfers_(std::move(transfers)),
          questionLimitMs_(questionLimitMs),
          cutsAnswers_(cutsAnswers)
    {}

    // Answers may be too short, so that what the kernel remembers of a file is not to be trusted
    // (FileSystemKinds.h).
    [[nodiscard]] bool cutsAnswers() const { return cutsAnswers_; }

    // The result of a question, or nothing when there was no answer in time.
    template <class Result>
    [[nodiscard]] std::optional<Result> ask(std::function<Result()> question) const
    {
        return resultOf<Result>(*questions_, std::move(question), questionLimitMs_);
    }
    // The same for what moves or flushes bytes.
    template <class Result>
    [[nodiscard]] std::optional<Result> move(std::function<Result()> transfer) const
    {
        return resultOf<Result>(*transfers_, std::move(transfer), transferLimitMs);
    }
    // Runs what gives something back, now or when the server answers again.
    void end(const std::function<void()>& last) const;

    // The same for all files of a mount, another one for those of other mounts.
    [[nodiscard]] const void* identity() const { return transfers_.get(); }

private:
    template <class Result>
    static std::optional<Result> resultOf(CallLane& lane, std::function<Result()> work, unsigned limitMs)
    {
        auto result = std::make_shared<std::optional<Result>>();
        if (!run(
                lane, [result, work = std::move(work)](Progress&) { *result = work(); }, limitMs))
            return std::nullopt;
        return std::move(*result);
    }
    static bool run(CallLane& lane, std::function<void(Progress&)> work, unsigned limitMs);

    const std::shared_ptr<CallLane> questions_;
    const std::shared_ptr<CallLane> transfers_;
    const unsigned questionLimitMs_;
    const bool cutsAnswers_;
};

}  // namespace os
