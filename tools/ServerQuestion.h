#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

// ServerQuestion: system calls about a folder whose server may never answer, asked on a thread of their own
// and given up after a while.
//
// Nothing interrupts a process inside such a call, so a question that was given up goes on alone. Until it
// has ended, others are not asked at all: a dead server costs its asker the limit once.
//
// Threads:    ask from one thread at a time.
// Ownership:  the question is copied and may outlive this object: it must own all that it uses.
class ServerQuestion
{
public:
    static constexpr auto limit = std::chrono::seconds(2);

    // None when the answer did not come in time or the question could not be asked.
    template <class Result>
    std::optional<Result> ask(std::function<Result()> question)
    {
        struct Answer
        {
            std::mutex lock;
            std::condition_variable came;
            std::optional<Result> result;
        };
        if (isAsking_->exchange(true))
            return std::nullopt;
        const auto answer = std::make_shared<Answer>();
        try {
            std::thread([answer, isAsking = isAsking_, question = std::move(question)] {
                Result result = question();
                *isAsking = false;
                const std::lock_guard guard(answer->lock);
                answer->result = std::move(result);
                answer->came.notify_one();
            }).detach();
        } catch (const std::system_error&) {
            *isAsking_ = false;
            return std::nullopt;
        }
        std::unique_lock guard(answer->lock);
        answer->came.wait_for(guard, limit, [&] { return answer->result.has_value(); });
        return std::move(answer->result);
    }

private:
    std::shared_ptr<std::atomic<bool>> isAsking_ = std::make_shared<std::atomic<bool>>(false);
};
