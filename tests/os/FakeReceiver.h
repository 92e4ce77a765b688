#pragma once

#include "os/CompletionPortHandler.h"
#include "os/LastError.h"
#include "os/testing/ThreadName.h"

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// FakeReceiver: notes what completions tell and where they run.
class FakeReceiver : public QzDC::Receiver<IOCompletionCommand>
{
public:
    struct Seen
    {
        bool succeeded = false;
        unsigned bytes = 0;
        void* owner = nullptr;
        unsigned lastError = 0;
        std::string threadName;
        std::thread::id thread;
    };

    int executeCommand(IOCompletionCommand&, CompletionPortHandlerCallbackContext& told) override
    {
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            seen_.push_back({told.succeeded(), told.bytesProcessed(), told.context(), lastError(),
                             fake::currentThreadName(), std::this_thread::get_id()});
        }
        if (inside)
            inside();
        return 1;
    }

    [[nodiscard]] IOCompletionCommand command() { return IOCompletionCommand(this); }
    [[nodiscard]] std::vector<Seen> seen() const
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        return seen_;
    }

    // Runs in each completion; set before the first transfer.
    std::function<void()> inside;

private:
    mutable std::mutex mutex_;
    std::vector<Seen> seen_;
};
