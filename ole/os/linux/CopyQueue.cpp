#include "os/linux/CopyQueue.h"

void CopyQueue::hold(LinuxAsyncContext* transfer)
{
    held_.push(transfer);
    heldBytes_ += transfer->transfer().count();
    holdsSome_.store(true, std::memory_order_relaxed);
}

bool CopyQueue::release(TransferList& others)
{
    holdsSome_.store(false, std::memory_order_relaxed);
    const std::size_t bytes = heldBytes_;
    heldBytes_ = 0;
    if (bytes_ + bytes < sharedBytesMin) {
        others.append(held_);
        return false;
    }
    bytes_ += bytes;
    while (LinuxAsyncContext* transfer = held_.pop()) {
        list_.push(transfer);
        shared_.fetch_add(1, std::memory_order_relaxed);
    }
    return true;
}

void CopyQueue::takeFirst(TransferList& others)
{
    LinuxAsyncContext* const transfer = list_.pop();
    bytes_ -= transfer->transfer().count();
    shared_.fetch_sub(1, std::memory_order_relaxed);
    others.push(transfer);
}

// Several small ones together: their completions then ask for the next ones together.
unsigned CopyQueue::take(TransferList& group)
{
    const std::size_t before = bytes_;
    unsigned taken = 0;
    while (!list_.empty() &&
           (taken == 0 || before - bytes_ + list_.first()->transfer().count() <= groupBytesMax)) {
        takeFirst(group);
        ++taken;
    }
    return taken;
}
