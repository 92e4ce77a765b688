#pragma once

#include "Qz/Ptr.h"
#include "os/iAsyncContext.h"
#include "os/linux/SharedDescriptor.h"
#include "os/linux/Transfer.h"

#include <atomic>

// LinuxAsyncContext: one asynchronous transfer between its acceptance and its completion.
//
// Threads:    belongs to whoever holds the transfer: the starter, then the backend, then the delivering
//             thread. The kernel carries it from one to the other unseen by the memory model, so handOver
//             and receive bracket that way.
// Ownership:  refers to itself while it is under way.
class LinuxAsyncContext final : public iAsyncContext
{
public:
    using iAsyncContext::iAsyncContext;

    // Prepares a transfer. False when one is under way already.
    bool begin(const Qz::Ptr<SharedDescriptor>& descriptor, const Transfer& transfer);
    // Gives up a transfer that was begun but not accepted.
    void abandon();
    // Ends the transfer: the context is free for the next one when this returns. The reference keeps it
    // alive meanwhile.
    [[nodiscard]] Qz::Ptr<LinuxAsyncContext> finish(Transfer& outcome);

    Transfer& transfer() { return transfer_; }

    void handOver() { underWay_.store(true, std::memory_order_release); }
    void receive() { static_cast<void>(underWay_.load(std::memory_order_acquire)); }

    // Link of the list that the transfer waits in; for TransferList.
    LinuxAsyncContext* next = nullptr;

private:
    Transfer transfer_;
    Qz::Ptr<SharedDescriptor> descriptor_;
    Qz::Ptr<LinuxAsyncContext> self_;
    std::atomic<bool> underWay_{false};
};

[[nodiscard]] Qz::Ptr<iAsyncContext> createLinuxAsyncContext(void* owner);
