#pragma once

#include "os/CompletionPortHandler.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct FakeCore;

namespace fake {

class PortState;

struct PortRecord
{
    std::string name;
    int minThreads = 0;  // arguments of its creation, like the next three
    int maxThreads = 0;
    int concurrency = 0;
    int priority = 0;
    bool alive = true;     // not shut down yet
    unsigned threads = 0;  // started so far
};

// A record that changes while tests look at it.
struct SharedPortRecord
{
    std::mutex mutex;
    PortRecord record;
};

}  // namespace fake

// FakePorts: the completion ports of the fake platform. Their threads are real ones in every mode.
//
// Threads: any.
class FakePorts
{
public:
    Qz::Ptr<iCompletionPort> create(const std::shared_ptr<FakeCore>& core, const char* name,
                                    const IOCompletionCommand& command, int minThreads, int maxThreads,
                                    int concurrency, int priority);
    // Every port ever created, in order.
    [[nodiscard]] std::vector<fake::PortRecord> records() const;
    // Ends the threads of ports that are still there, without reporting what is held.
    void abandon();

private:
    mutable std::mutex mutex_;
    std::vector<std::weak_ptr<fake::PortState>> ports_;
    std::vector<std::shared_ptr<fake::SharedPortRecord>> records_;
};
