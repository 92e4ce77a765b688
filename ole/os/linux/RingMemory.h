#pragma once

#include "os/linux/PageCache.h"
#include "os/linux/UringRing.h"

#include <array>
#include <mutex>

// RingMemory: the chunks of the page cache's arena that one ring has mapped for good, so that a transfer
// neither looks up nor pins its pages.
//
// Pinning a chunk costs as much as some dozens of transfers without it, so that a chunk must have been used
// a few times before. Once the kernel refuses (its limit of locked memory, for most users) no further
// chunk is asked for.
// Locks:      ringLock, the one that guards the ring's submission side; slotOf is called with it held,
//             forgetChunk takes it.
class RingMemory final : public ChunkUser
{
public:
    RingMemory(PageCache& pages, UringRing& ring, std::mutex& ringLock);
    ~RingMemory() override;
    RingMemory(const RingMemory&) = delete;
    RingMemory& operator=(const RingMemory&) = delete;

    // REQUIRES: the ring is built.
    void start();
    // The ring's slot for a piece of memory that is about to be used, or UringRing::noSlot.
    [[nodiscard]] unsigned slotOf(const void* memory, std::size_t bytes);

    void forgetChunk(unsigned chunk) override;

    static constexpr unsigned usesBefore = 8;

private:
    static constexpr unsigned mapped = usesBefore;  // as a count of uses
    bool map(unsigned chunk);

    PageCache& pages_;
    UringRing& ring_;
    std::mutex& ringLock_;
    bool refused_ = true;  // until start has made the slots
    std::array<std::uint8_t, PageArena::chunksMax> uses_{};
};
