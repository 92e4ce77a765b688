#pragma once

#include "os/CompletionPortHandler.h"
#include "os/LastError.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

// CompletionRecorder: receives the completions of a port and lets a test wait for them.
//
// Threads:    any. The hook runs on the completing thread, without a lock.
class CompletionRecorder : public QzDC::Receiver<IOCompletionCommand>
{
public:
    struct Completion
    {
        bool succeeded;
        unsigned bytes;
        void* owner;
        unsigned lastError;  // of the completing thread
        std::thread::id thread;
    };
    using Hook = std::function<void(const Completion&)>;

    CompletionRecorder() = default;
    explicit CompletionRecorder(Hook hook) : hook_(std::move(hook)) {}

    [[nodiscard]] IOCompletionCommand command() { return IOCompletionCommand(this); }

    int executeCommand(IOCompletionCommand&, CompletionPortHandlerCallbackContext& context) override
    {
        const Completion completion{context.succeeded(), context.bytesProcessed(), context.context(),
                                    lastError(), std::this_thread::get_id()};
        if (hook_)
            hook_(completion);
        const std::lock_guard guard(mutex_);
        completions_.push_back(completion);
        arrived_.notify_all();
        return 1;
    }

    // Those that have come when there are count of them, or after 60 seconds.
    std::vector<Completion> await(std::size_t count)
    {
        std::unique_lock lock(mutex_);
        arrived_.wait_for(lock, std::chrono::seconds(60), [&] { return completions_.size() >= count; });
        return completions_;
    }
    [[nodiscard]] std::size_t count()
    {
        const std::lock_guard guard(mutex_);
        return completions_.size();
    }

private:
    const Hook hook_;
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<Completion> completions_;
};
