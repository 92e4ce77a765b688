#pragma once

#include "os/linux/PageArena.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

// ChunkUser: somebody who told the kernel about chunks of the arena, to be used without looking them up.
class ChunkUser
{
public:
    virtual ~ChunkUser() = default;
    // No block lies in the chunk and its memory is about to go: the kernel must hold nothing of it any more
    // when this returns, or transfers into a later block at this place would end in lost pages.
    virtual void forgetChunk(unsigned chunk) = 0;
};

// PageCache: page-aligned blocks, recycled by size and cut from an arena of huge pages.
//
// Mapping fresh pages for every transfer costs ten times the transfer itself, nearly all of it in page
// faults. Blocks that come back are therefore kept for the next request of about their size, up to a bound;
// what nobody asks for again goes back after some seconds, to the system as soon as its whole chunk is empty.
// Blocks that the arena does not have, large ones and those beyond its bound, are mappings of their own.
// Threads:    any; a thread of its own runs while blocks are kept, to give back those that rest.
// Units:      bytes.
// Lifetime:   the object must outlive that thread: make it once and leave it.
class PageCache
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t keptBytesMax = std::size_t{64} << 20;
    static constexpr std::chrono::seconds restMax{4};

    // A block of at least size bytes, zeroed or with bytes of this process; what exceeds size in its last
    // page is zero. What may lie behind that page is nobody's. Null when there is no memory or size is 0.
    void* take(void* wish, std::size_t size);
    // False when take did not hand block out.
    bool give(void* block);
    // Returns to the system what was kept at the given time or longer ago.
    void trim(Clock::time_point keptBefore);

    // Tells user about chunks that go, from now until removeUser returns.
    void addUser(ChunkUser* user);
    void removeUser(ChunkUser* user);
    // The chunk in which a piece of memory lies, or PageArena::noChunk, and where chunks begin.
    [[nodiscard]] unsigned chunkOf(const void* memory, std::size_t size) const
    {
        return arena_.chunkOf(memory, size);
    }
    [[nodiscard]] void* chunkStart(unsigned chunk) const { return arena_.chunkStart(chunk); }

    // Blocks handed out and not given back.
    [[nodiscard]] std::size_t liveBlocks();
    [[nodiscard]] std::size_t keptBytes();
    // Chunks of the arena that have memory.
    [[nodiscard]] unsigned chunksInUse();

private:
    struct Block
    {
        std::size_t size;  // as blocks are cut: whole pages, perhaps some more than were asked for
        bool live;
    };
    struct Kept
    {
        void* block;
        Clock::time_point since;
    };
    struct Mapping
    {
        void* block;
        std::size_t size;
    };
    // Memory that nobody has any more, to be given back without the lock: it takes the kernel a while.
    struct Gone
    {
        std::vector<Mapping> mappings;
        std::vector<unsigned> chunks;
    };

    // With mutex_ held:
    void* takeKept(std::size_t size);
    void* takeNew(void* wish, std::size_t size);
    void forget(void* block, Gone& gone);
    void keep(void* block, std::size_t size, Gone& gone);
    void dropOldest(Gone& gone);
    void startTrimming();

    void giveBack(const Gone& gone);
    void giveBackChunk(unsigned chunk);
    void trimLoop();

    std::mutex mutex_;
    PageArena arena_;
    std::unordered_map<void*, Block> blocks_;                  // live and kept ones
    std::unordered_map<std::size_t, std::vector<Kept>> kept_;  // by size; newest last
    std::size_t keptBytes_ = 0;
    std::size_t live_ = 0;
    bool trimming_ = false;

    std::mutex usersMutex_;  // held while users forget; never taken with mutex_ held
    std::vector<ChunkUser*> users_;
};
