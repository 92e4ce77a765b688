#pragma once

#include "os/iThreadServices.h"
#include "os/testing/FakeEvent.h"
#include "os/testing/ThreadName.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct FakeCore;

namespace fake {

struct ThreadRecord
{
    unsigned id = 0;  // generation in the high 16 bits, slot in the low 16
    iThreadServices::Body body = nullptr;
    std::string name;
    unsigned stackSize = 0;
    void* argument = nullptr;
    int priority = 0;
    unsigned flags = 0;
    bool started = false;   // a real thread ran it, or the test did
    bool returned = false;  // the body has returned
    int result = 0;         // what it returned
    bool ended = false;     // endThread was called for it
};

}  // namespace fake

// FakeThreads: threads and events of the fake platform.
//
// Manual threads (the default): createThread notes the body and starts nothing; the test runs what the body
// would have run, or the body itself with run(). endThread notes the end.
// Real threads: bodies run on threads of their own, events really wait, endThread joins (on the own thread
// it lets it go). They go with real time (see FakeClock), or with virtual time when the test moves it.
// When the FakeOS ends, bodies still running stop the test: they would use what is gone.
//
// Threads: any.
class FakeThreads : public iThreadServices
{
public:
    explicit FakeThreads(std::shared_ptr<FakeCore> core);
    ~FakeThreads() override;

    Qz::Ptr<iThreadEvent> createEvent(unsigned manualReset, unsigned signalled, const char* name) override;
    unsigned createThread(Body body, const char* name, unsigned stackSize, void* argument, int priority,
                          unsigned flags) override;
    void endThread(unsigned id16) override;

    // --- for tests

    // For threads created from now on.
    void useRealThreads();
    // Every thread ever created, in order.
    [[nodiscard]] std::vector<fake::ThreadRecord> threads() const;
    // Runs the body of the thread with this index on the calling thread.
    int run(std::size_t index);
    // Every event ever created, in order.
    [[nodiscard]] std::vector<fake::EventRecord> events() const;

private:
    struct Thread;
    [[nodiscard]] std::shared_ptr<Thread> find(unsigned id16) const;

    std::shared_ptr<FakeCore> core_;
    mutable std::mutex mutex_;
    bool real_ = false;
    std::vector<std::shared_ptr<Thread>> threads_;
    std::vector<std::shared_ptr<fake::EventState>> events_;
};
