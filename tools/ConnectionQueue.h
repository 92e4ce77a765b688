#pragma once

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// ConnectionQueue: the threads of a server, and the connections that wait for one.
//
// Both are bounded. A connection beyond that is worked at once on the thread that accepts, with isOverload
// set, and is to be turned away there. So are all of them where the system has no thread to give.
//
// Threads:  enqueue, on_idle and shutdown from the accepting thread.
class ConnectionQueue : public httplib::TaskQueue
{
public:
    static constexpr std::size_t threadsMax = 16;
    static constexpr std::size_t waitingMax = 32;

    // look runs on the accepting thread, before each connection and a few times a second.
    explicit ConnectionQueue(std::function<void()> look);
    ~ConnectionQueue() override { end(); }
    ConnectionQueue(const ConnectionQueue&) = delete;
    ConnectionQueue& operator=(const ConnectionQueue&) = delete;

    void enqueue(std::function<void()> connection) override;
    void on_idle() override { look_(); }
    // Works what still waits, then ends the threads.
    void shutdown() override { end(); }

    // Whether the connection that this thread works on is one too many.
    [[nodiscard]] static bool isOverload();

private:
    void end();
    void work();

    std::function<void()> look_;
    std::mutex lock_;
    std::condition_variable came_;
    std::deque<std::function<void()>> waiting_;
    bool ending_ = false;
    std::vector<std::thread> threads_;
};
