#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

// PageCache: page-aligned blocks, recycled by size.
//
// Mapping fresh pages for every transfer costs ten times the transfer itself, nearly all of it in page
// faults. Blocks that come back are therefore kept for the next request of their size, up to a bound; what
// nobody asks for again goes back to the system after some seconds.
// Threads:    any; a thread of its own runs while blocks are kept, to give back those that rest.
// Units:      bytes.
// Lifetime:   the object must outlive that thread: make it once and leave it.
class PageCache
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t keptBytesMax = std::size_t{64} << 20;
    static constexpr std::chrono::seconds restMax{4};

    // A block of at least size bytes, zeroed or with bytes of this process; what exceeds size is zero.
    // Null when there is no memory or size is 0.
    void* take(void* wish, std::size_t size);
    // False when take did not hand block out.
    bool give(void* block);
    // Returns to the system what was kept at the given time or longer ago.
    void trim(Clock::time_point keptBefore);

    // Blocks handed out and not given back.
    [[nodiscard]] std::size_t liveBlocks();
    [[nodiscard]] std::size_t keptBytes();

private:
    struct Block
    {
        std::size_t size;  // whole pages
        bool live;
    };
    struct Kept
    {
        void* block;
        Clock::time_point since;
    };
    // Mappings that are no longer ours, to be given back without the lock: it takes the kernel a while.
    struct Mapping
    {
        void* block;
        std::size_t size;
    };
    using Mappings = std::vector<Mapping>;

    // With mutex_ held:
    void* takeKept(std::size_t size);
    void* mapNew(void* wish, std::size_t size);
    void forget(void* block, Mappings& gone);
    void keep(void* block, std::size_t size, Mappings& gone);
    void dropOldest(Mappings& gone);
    void startTrimming();

    static void unmap(const Mappings& gone);
    void trimLoop();

    std::mutex mutex_;
    std::unordered_map<void*, Block> blocks_;                  // live and kept ones
    std::unordered_map<std::size_t, std::vector<Kept>> kept_;  // by size; newest last
    std::size_t keptBytes_ = 0;
    std::size_t live_ = 0;
    bool trimming_ = false;
};
