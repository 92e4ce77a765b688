#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Ptr.h"
#include "os/CompletionPortHandler.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

struct FakeCore;

namespace fake {

struct OpenFile;
class PortState;

// How a transfer ends.
struct Outcome
{
    static constexpr std::size_t allBytes = std::numeric_limits<std::size_t>::max();

    unsigned error = 0;            // not 0: it fails with this last error and tells of 0 bytes
    std::size_t bytes = allBytes;  // at most so many are moved; a read that fails brings none
};

// An accepted transfer as a test sees it.
struct HeldTransfer
{
    unsigned number = 0;  // from 1, in order of acceptance
    LightweightString<wchar_t> path;
    unsigned handle = 0;  // number of the file handle
    bool isRead = false;
    std::uint64_t position = 0;
    std::size_t length = 0;
    const void* buffer = nullptr;
    void* owner = nullptr;  // of the iAsyncContext
    std::string port;       // name of the port that will report it
};

// A transfer on its way.
struct Transfer
{
    HeldTransfer view;
    std::shared_ptr<OpenFile> file;
    std::shared_ptr<PortState> port;
    Qz::Ptr<iAsyncContext> context;
    void* readBuffer = nullptr;
    const void* writeBuffer = nullptr;
    Outcome outcome;
    bool automatic = false;  // its end needs nothing from the driving thread
    unsigned delayMs = 0;    // by which an automatic one ends late
};

}  // namespace fake

// FakeTransfers: the asynchronous transfers of the fake platform. The test plays the device.
//
// Held (the default): an accepted transfer waits in a list, in order of acceptance, until the test ends it.
// Automatic: it ends at once, well, on a port thread. The FaultPlan may delay its end, or drop it: it is held
// then.
//
// The end of a transfer happens on a thread of its port: the bytes are moved between buffer and file (the
// contents at that moment), the thread's last error is set for a failure, and the port's command is executed.
// The whole buffer is touched, whatever the outcome: reads clear what lies behind the bytes that they got, so
// sanitizers see buffers that were freed too early. Exactly one end per transfer; a context that is
// used for a second transfer at the same time stops the test.
//
// complete*() and fail*() return when the command has returned; a command that does not within 60 s stops
// the test. start*() do not wait: use them for commands that block, and join() afterwards.
// Indices are places in held(). All of them answer false when there is no such transfer.
//
// End of a port: the transfers held for it end with the drain outcome (complete, unless set).
// Threads:       any.
class FakeTransfers
{
public:
    explicit FakeTransfers(FakeCore& core) : core_(core) {}

    // For transfers accepted from now on.
    void setAutomatic(bool automatic);
    void setDrainOutcome(fake::Outcome outcome);

    [[nodiscard]] std::vector<fake::HeldTransfer> held() const;
    [[nodiscard]] std::size_t heldCount() const;
    // Since the start: transfers accepted, and commands that have returned.
    [[nodiscard]] unsigned accepted() const;
    [[nodiscard]] unsigned delivered() const;
    // Transfers whose command runs now or is about to.
    [[nodiscard]] unsigned inDelivery() const;

    bool completeNext() { return end(0, {}); }
    bool completeAt(std::size_t index) { return end(index, {}); }
    bool completeShort(std::size_t index, std::size_t bytes) { return end(index, {0, bytes}); }
    bool failNext(unsigned code) { return end(0, {code, 0}); }
    bool failAt(std::size_t index, unsigned code) { return end(index, {code, 0}); }
    // Those held now, in order, one by one; the number of them.
    std::size_t completeAll() { return endAll({}); }
    std::size_t failAll(unsigned code) { return endAll({code, 0}); }

    bool startNext(fake::Outcome outcome = {}) { return start(0, outcome) != 0; }
    bool startAt(std::size_t index, fake::Outcome outcome = {}) { return start(index, outcome) != 0; }
    // Starts all that are held now, side by side; the number of them.
    std::size_t startAll(fake::Outcome outcome = {});
    // Waits until no command runs or is about to.
    void join();

    // With real threads: wait, for real, until so many are held now / delivered altogether; false after 30 s.
    bool awaitHeld(std::size_t count);
    bool awaitDelivered(unsigned count);

    // --- for the parts of the fake platform

    // False when the port takes nothing any more.
    bool accept(const std::shared_ptr<fake::Transfer>& transfer);
    // On a port thread.
    void deliver(const std::shared_ptr<fake::Transfer>& transfer);
    [[nodiscard]] bool refuses(const fake::PortState& port) const;
    // Accepts no more for the port and ends what is held for it.
    void drain(fake::PortState* port);
    // Waits until at most own transfers of the port are left.
    void awaitDrained(const fake::PortState* port, unsigned own);
    // Drops what is held without reporting it.
    void abandon();

private:
    unsigned start(std::size_t index, fake::Outcome outcome);
    bool end(std::size_t index, fake::Outcome outcome);
    std::size_t endAll(fake::Outcome outcome);
    void awaitEnd(unsigned number);
    void dispatch(const std::shared_ptr<fake::Transfer>& transfer, fake::Outcome outcome);

    FakeCore& core_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool automatic_ = false;
    fake::Outcome drainOutcome_;
    std::vector<std::shared_ptr<fake::Transfer>> held_;
    std::vector<std::shared_ptr<fake::Transfer>> running_;  // being reported
    std::set<const iAsyncContext*> contexts_;               // of all that are on their way
    unsigned accepted_ = 0;
    unsigned delivered_ = 0;
};
