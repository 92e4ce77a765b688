#pragma once

#include "os/linux/TransferList.h"

#include <atomic>
#include <cstddef>

// CopyQueue: reads that the page cache may have, for the threads of a port to copy.
//
// What is held belongs to a batch that is not at its end. At the end it is shared where much is waiting:
// a thread that has to be woken for a few pages, or leaves the submitting thread so little to do that what is
// asked for next comes in small pieces, costs more than the copy.
// Threads:    under one lock of the caller's; holdsSome and hasSome from any.
class CopyQueue
{
public:
    void hold(LinuxAsyncContext* transfer);
    // Shares what is held. False where that does not pay: then it goes into others.
    bool release(TransferList& others);
    [[nodiscard]] bool holdsSome() const { return holdsSome_.load(std::memory_order_relaxed); }

    // Appends what one thread copies before it looks up. Returns how many.
    unsigned take(TransferList& group);
    // Shared and not taken.
    [[nodiscard]] bool hasSome() const { return shared_.load(std::memory_order_relaxed) > 0; }
    [[nodiscard]] unsigned count() const { return shared_.load(std::memory_order_relaxed); }
    [[nodiscard]] std::size_t bytes() const { return bytes_; }

    static constexpr std::size_t sharedBytesMin = std::size_t{512} * 1024;
    static constexpr std::size_t groupBytesMax = std::size_t{256} * 1024;

private:
    void takeFirst(TransferList& others);

    TransferList held_;
    TransferList list_;
    std::size_t heldBytes_ = 0;
    std::size_t bytes_ = 0;  // of list_
    std::atomic<unsigned> shared_{0};
    std::atomic<bool> holdsSome_{false};
};
