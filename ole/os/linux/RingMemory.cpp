#include "os/linux/RingMemory.h"

RingMemory::RingMemory(PageCache& pages, UringRing& ring, std::mutex& ringLock)
    : pages_(pages), ring_(ring), ringLock_(ringLock)
{
    pages_.addUser(this);
}

RingMemory::~RingMemory() { pages_.removeUser(this); }

void RingMemory::start() { refused_ = ring_.makeSlots(PageArena::chunksMax) != 0; }

unsigned RingMemory::slotOf(const void* memory, std::size_t bytes)
{
    const unsigned chunk = pages_.chunkOf(memory, bytes);
    if (chunk == PageArena::noChunk)
        return UringRing::noSlot;
    return uses_[chunk] == mapped || map(chunk) ? chunk : UringRing::noSlot;
}

bool RingMemory::map(unsigned chunk)
{
    if (refused_)
        return false;
    if (uses_[chunk] + 1U < mapped) {
        ++uses_[chunk];
        return false;
    }
    refused_ = ring_.setSlot(chunk, pages_.chunkStart(chunk), PageArena::chunkBytes) != 0;
    if (!refused_)
        uses_[chunk] = mapped;
    return !refused_;
}

void RingMemory::forgetChunk(unsigned chunk)
{
    const std::lock_guard guard(ringLock_);
    if (uses_[chunk] == mapped)
        static_cast<void>(ring_.setSlot(chunk, nullptr, 0));
    uses_[chunk] = 0;
}
