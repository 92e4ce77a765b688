#pragma once

#include "os/testing/FakePorts.h"
#include "os/testing/FakeTransfers.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace fake {

// PortState: queue and threads of one port. Threads are added, up to threadsMax, whenever a transfer comes
// in and every thread is in a command.
//
// Threads: any.
class PortState : public std::enable_shared_from_this<PortState>
{
public:
    static constexpr std::size_t threadsMax = 16;

    PortState(std::shared_ptr<FakeCore> core, std::shared_ptr<SharedPortRecord> record,
              const IOCompletionCommand& command);

    // Starts the first threads.
    void begin();
    // The transfer ends on one of the port's threads.
    void post(const std::shared_ptr<Transfer>& transfer);
    // See CompletionPortHandler's destructor; a second call does nothing.
    void shutDown();
    // Ends the threads without a look at what is held.
    void stop();

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] IOCompletionCommand command() const { return command_; }
    // Guarded by the lock of FakeTransfers.
    bool refuses = false;

private:
    void addThread();
    void work();

    std::shared_ptr<FakeCore> core_;
    std::shared_ptr<SharedPortRecord> record_;
    const std::string name_;
    const IOCompletionCommand command_;
    std::mutex mutex_;  // guards what follows
    std::condition_variable changed_;
    std::deque<std::shared_ptr<Transfer>> queue_;
    std::vector<std::thread> threads_;
    std::size_t busy_ = 0;
    bool shutDown_ = false;
    bool stopping_ = false;
};

}  // namespace fake
