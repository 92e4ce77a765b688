#include "os/testing/FakeTransfers.h"

#include "os/Codes.h"
#include "os/LastError.h"
#include "os/testing/FakeCore.h"
#include "os/testing/FakeFile.h"
#include "os/testing/PortState.h"
#include "os/testing/StopTest.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

namespace {

using Lock = std::unique_lock<std::mutex>;
using fake::Op;

constexpr std::chrono::seconds commandPatience{60};
constexpr std::chrono::seconds testPatience{30};

fake::Call callOf(const fake::Transfer& transfer, Op op)
{
    fake::Call call;
    call.op = op;
    call.path = transfer.view.path;
    call.handle = transfer.view.handle;
    call.position = transfer.view.position;
    call.count = transfer.view.length;
    return call;
}

std::size_t readInto(const fake::Transfer& transfer)
{
    std::size_t moved = 0;
    if (transfer.outcome.error == 0) {
        fake::Node& node = *transfer.file->node;
        const Lock lock(node.mutex);
        moved = node.bytes.read(transfer.view.position, transfer.readBuffer,
                                std::min(transfer.view.length, transfer.outcome.bytes));
    }
    if (moved < transfer.view.length)
        std::memset(static_cast<char*>(transfer.readBuffer) + moved, 0, transfer.view.length - moved);
    return moved;
}

std::size_t writeFrom(const fake::Transfer& transfer, double nowMs)
{
    // Copied as a whole, also when nothing of it will be kept: a sanitizer shall see the whole buffer.
    const std::string data(static_cast<const char*>(transfer.writeBuffer), transfer.view.length);
    const std::size_t moved = std::min(data.size(), transfer.outcome.bytes);
    if (transfer.outcome.error != 0 && moved == 0)
        return 0;
    fake::Node& node = *transfer.file->node;
    const Lock lock(node.mutex);
    node.bytes.write(transfer.view.position, data.data(), moved);
    node.modifiedNs = static_cast<std::int64_t>(nowMs * 1e6);
    return transfer.outcome.error == 0 ? moved : 0;
}

std::size_t countOf(const std::vector<std::shared_ptr<fake::Transfer>>& transfers,
                    const fake::PortState* port)
{
    return static_cast<std::size_t>(std::count_if(transfers.begin(), transfers.end(),
                                                  [&](const auto& one) { return one->port.get() == port; }));
}

}  // namespace

void FakeTransfers::setAutomatic(bool automatic)
{
    const Lock lock(mutex_);
    automatic_ = automatic;
}

void FakeTransfers::setDrainOutcome(fake::Outcome outcome)
{
    const Lock lock(mutex_);
    drainOutcome_ = outcome;
}

// --- views

std::vector<fake::HeldTransfer> FakeTransfers::held() const
{
    const Lock lock(mutex_);
    std::vector<fake::HeldTransfer> result;
    for (const auto& transfer : held_)
        result.push_back(transfer->view);
    return result;
}

std::size_t FakeTransfers::heldCount() const
{
    const Lock lock(mutex_);
    return held_.size();
}

unsigned FakeTransfers::accepted() const
{
    const Lock lock(mutex_);
    return accepted_;
}

unsigned FakeTransfers::delivered() const
{
    const Lock lock(mutex_);
    return delivered_;
}

unsigned FakeTransfers::inDelivery() const
{
    const Lock lock(mutex_);
    return static_cast<unsigned>(running_.size());
}

bool FakeTransfers::awaitHeld(std::size_t count)
{
    Lock lock(mutex_);
    return changed_.wait_for(lock, testPatience, [&] { return held_.size() >= count; });
}

bool FakeTransfers::awaitDelivered(unsigned count)
{
    Lock lock(mutex_);
    return changed_.wait_for(lock, testPatience, [&] { return delivered_ >= count; });
}

// --- ends

unsigned FakeTransfers::start(std::size_t index, fake::Outcome outcome)
{
    std::shared_ptr<fake::Transfer> transfer;
    {
        const Lock lock(mutex_);
        if (index >= held_.size())
            return 0;
        transfer = held_[index];
        held_.erase(held_.begin() + static_cast<std::ptrdiff_t>(index));
        running_.push_back(transfer);
    }
    dispatch(transfer, outcome);
    return transfer->view.number;
}

void FakeTransfers::dispatch(const std::shared_ptr<fake::Transfer>& transfer, fake::Outcome outcome)
{
    transfer->outcome = outcome;
    if (transfer->automatic)
        core_.clock.beginWork();
    transfer->port->post(transfer);
}

bool FakeTransfers::end(std::size_t index, fake::Outcome outcome)
{
    const unsigned number = start(index, outcome);
    if (number == 0)
        return false;
    awaitEnd(number);
    return true;
}

std::size_t FakeTransfers::endAll(fake::Outcome outcome)
{
    const std::size_t count = heldCount();
    std::size_t ended = 0;
    while (ended < count && end(0, outcome))
        ++ended;
    return ended;
}

std::size_t FakeTransfers::startAll(fake::Outcome outcome)
{
    const std::size_t count = heldCount();
    std::size_t started = 0;
    while (started < count && start(0, outcome) != 0)
        ++started;
    return started;
}

void FakeTransfers::awaitEnd(unsigned number)
{
    Lock lock(mutex_);
    const auto ended = [&] {
        return std::none_of(running_.begin(), running_.end(),
                            [&](const auto& one) { return one->view.number == number; });
    };
    if (!changed_.wait_for(lock, commandPatience, ended))
        fake::stopTest("a completion does not return; end transfers whose commands block with start*()");
}

void FakeTransfers::join()
{
    Lock lock(mutex_);
    if (!changed_.wait_for(lock, commandPatience, [&] { return running_.empty(); }))
        fake::stopTest("a completion that was started does not return");
}

// --- the way of a transfer

bool FakeTransfers::accept(const std::shared_ptr<fake::Transfer>& transfer)
{
    const iAsyncContext* context = transfer->context.get();
    {
        const Lock lock(mutex_);
        if (transfer->port->refuses)
            return false;
        if (context && !contexts_.insert(context).second)
            fake::stopTest("an async context is used for two transfers at a time");
        transfer->view.number = ++accepted_;
        transfer->view.port = transfer->port->name();
        transfer->automatic = automatic_;
        if (automatic_)
            if (const auto fault = core_.faults.checkAccepted(transfer->view.path)) {
                transfer->automatic = fault->effect != fake::Effect::drop;
                transfer->delayMs = fault->delayMs;
            }
        // Before it can be ended, so that the log tells start and end in this order.
        core_.log.add(callOf(*transfer, transfer->view.isRead ? Op::asyncRead : Op::asyncWrite));
        (transfer->automatic ? running_ : held_).push_back(transfer);
        changed_.notify_all();
    }
    if (transfer->automatic)
        dispatch(transfer, {});
    return true;
}

void FakeTransfers::deliver(const std::shared_ptr<fake::Transfer>& transfer)
{
    FakeClock::markWorker(transfer->automatic);
    if (transfer->delayMs != 0)
        core_.clock.sleep(transfer->delayMs);
    const auto fault = core_.faults.check(Op::completion, transfer->view.path);
    if (transfer->outcome.error == 0 && fault) {
        transfer->outcome.bytes = std::min(transfer->outcome.bytes, fault->bytes);
        // No platform tells of a write that moved less as a success.
        if (fault->effect == fake::Effect::fail || !transfer->view.isRead)
            transfer->outcome.error = fault->code;
    }
    if (transfer->outcome.error == 0 && !transfer->view.isRead &&
        (transfer->file->access & os::accessWrite) == 0)
        transfer->outcome = {errorFromErrno(EBADF), 0};
    const std::size_t moved =
        transfer->view.isRead ? readInto(*transfer) : writeFrom(*transfer, core_.clock.msecsPrecise());

    fake::Call call = callOf(*transfer, Op::completion);
    call.code = transfer->outcome.error;
    core_.log.add(call);
    if (call.code != 0)
        setLastError(call.code);
    CompletionPortHandlerCallbackContext told(call.code == 0, static_cast<unsigned>(moved),
                                              transfer->view.owner);
    transfer->port->command().execute(told);

    const iAsyncContext* context = transfer->context.get();
    FakeClock::markWorker(false);
    const bool automatic = transfer->automatic;
    {
        const Lock lock(mutex_);
        contexts_.erase(context);
    }
    transfer->context.reset();
    {
        const Lock lock(mutex_);
        running_.erase(std::find(running_.begin(), running_.end(), transfer));
        ++delivered_;
        changed_.notify_all();
    }
    if (automatic)
        core_.clock.endWork();
}

// --- the end of a port

bool FakeTransfers::refuses(const fake::PortState& port) const
{
    const Lock lock(mutex_);
    return port.refuses;
}

void FakeTransfers::drain(fake::PortState* port)
{
    std::vector<std::shared_ptr<fake::Transfer>> ending;
    fake::Outcome outcome;
    {
        const Lock lock(mutex_);
        port->refuses = true;
        outcome = drainOutcome_;
        for (const auto& transfer : held_)
            if (transfer->port.get() == port)
                ending.push_back(transfer);
        std::erase_if(held_, [&](const auto& transfer) { return transfer->port.get() == port; });
        running_.insert(running_.end(), ending.begin(), ending.end());
    }
    for (const auto& transfer : ending)
        dispatch(transfer, outcome);
}

void FakeTransfers::awaitDrained(const fake::PortState* port, unsigned own)
{
    Lock lock(mutex_);
    if (!changed_.wait_for(lock, commandPatience, [&] { return countOf(running_, port) <= own; }))
        fake::stopTest("a port ends while one of its completions does not return");
}

void FakeTransfers::abandon()
{
    std::vector<std::shared_ptr<fake::Transfer>> dropped;
    {
        const Lock lock(mutex_);
        dropped.swap(held_);
        for (const auto& transfer : dropped) {
            transfer->port->refuses = true;
            contexts_.erase(transfer->context.get());
        }
    }
}
