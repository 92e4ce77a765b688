#pragma once

#include "media/MediaReader.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

// CallbackThread: runs the callbacks of a reader, one after another, in the order of their posting.
//
// Apart from the thread that looks after the reads, so that a callback can wait for data.
// Threads:    post from any; finish once.
// Locks:      none is held while a callback runs or is destroyed.
// Errors:     exceptions of callbacks are dropped. Without a thread (the system has none to give) callbacks
//             wait for the next post or start, or for finish, which then runs them itself.
class CallbackThread
{
public:
    CallbackThread() : work_(std::make_shared<Work>()) {}
    CallbackThread(const CallbackThread&) = delete;
    CallbackThread& operator=(const CallbackThread&) = delete;

    // False when the callback waits for a thread that cannot be had now.
    bool post(MediaReader::Callback callback, MediaReadResult result);
    // Tries to get such a thread. False: callbacks still wait for it.
    [[nodiscard]] bool start();
    // Everything that was posted has run on return; inside a callback: runs on after it has returned. Nothing
    // is posted afterwards but by callbacks.
    void finish();

private:
    struct Item
    {
        MediaReader::Callback callback;
        MediaReadResult result;
    };
    // Outlives this object when it goes inside a callback.
    struct Work
    {
        std::mutex guard;
        std::condition_variable changed;
        std::deque<Item> items;
        bool finishing = false;

        void run();
    };

    bool startIfNeeded();  // REQUIRES: work_->guard is held

    const std::shared_ptr<Work> work_;
    std::thread thread_;  // guarded by work_->guard
};
