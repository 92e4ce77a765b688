#include "os/linux/LinuxPageMemory.h"

#include "os/Codes.h"
#include "os/OS.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t onePage = 4096;

// Every test has its cache for good: its thread may outlive the test.
PageCache& makeCache()
{
    static auto* const caches = new std::deque<PageCache>;
    return caches->emplace_back();
}

bool isZero(const void* memory, std::size_t size)
{
    const auto* bytes = static_cast<const char*>(memory);
    return std::all_of(bytes, bytes + size, [](char byte) { return byte == 0; });
}

PageCache::Clock::time_point longAgo() { return PageCache::Clock::now() - std::chrono::hours(1); }

}  // namespace

TEST(PageMemory, TheOperatingSystemCountsWhatIsOut)
{
    const std::size_t before = linuxPageCache().liveBlocks();
    iPageMemory* pages = OS()->getPageMemory();
    void* memory = pages->allocate(nullptr, 10'000, os::pagesReserveCommit, os::pagesReadWrite);
    EXPECT_EQ(linuxPageCache().liveBlocks(), before + 1);
    EXPECT_TRUE(pages->release(memory, os::pagesRelease));
    EXPECT_EQ(linuxPageCache().liveBlocks(), before);
}

TEST(PageMemory, FreshBlocksAreZero)
{
    PageCache& cache = makeCache();
    void* block = cache.take(nullptr, 3 * onePage);
    EXPECT_TRUE(isZero(block, 3 * onePage));
    EXPECT_TRUE(cache.give(block));
}

TEST(PageMemory, BlocksComeBackForTheirSize)
{
    PageCache& cache = makeCache();
    void* first = cache.take(nullptr, 3 * onePage);
    void* second = cache.take(nullptr, 3 * onePage);
    EXPECT_NE(first, second);
    EXPECT_TRUE(cache.give(first));
    EXPECT_TRUE(cache.give(second));
    EXPECT_EQ(cache.keptBytes(), 6 * onePage);
    void* other = cache.take(nullptr, 2 * onePage);
    EXPECT_NE(other, first);
    EXPECT_NE(other, second);
    // The last one that came back is the first to go: it is still in the processor's cache.
    EXPECT_EQ(cache.take(nullptr, 3 * onePage - 5), second);
    EXPECT_EQ(cache.take(nullptr, 2 * onePage + 1), first);
    EXPECT_EQ(cache.keptBytes(), 0U);
    EXPECT_EQ(cache.liveBlocks(), 3U);
    for (void* block : {first, second, other})
        EXPECT_TRUE(cache.give(block));
}

TEST(PageMemory, LengthsThatAreNearEachOtherShareABlock)
{
    PageCache& cache = makeCache();
    void* const block = cache.take(nullptr, 64 * onePage);
    // The next smaller size is an eighth of 32 pages less.
    EXPECT_TRUE(cache.give(block));
    for (const std::size_t pages : {61U, 62U, 63U, 64U}) {
        EXPECT_EQ(cache.take(nullptr, pages * onePage), block) << pages;
        EXPECT_TRUE(cache.give(block));
    }
    void* const shorter = cache.take(nullptr, 60 * onePage);
    EXPECT_NE(shorter, block);
    EXPECT_TRUE(cache.give(shorter));
}

TEST(PageMemory, WhatARecycledBlockHoldsBeyondItsSizeIsZero)
{
    PageCache& cache = makeCache();
    auto* block = static_cast<char*>(cache.take(nullptr, 2 * onePage));
    std::fill(block, block + 2 * onePage, 'x');
    EXPECT_TRUE(cache.give(block));
    ASSERT_EQ(cache.take(nullptr, onePage + 10), block);
    EXPECT_TRUE(isZero(block + onePage + 10, onePage - 10));
    EXPECT_TRUE(cache.give(block));
}

TEST(PageMemory, WhatIsKeptIsBounded)
{
    PageCache& cache = makeCache();
    constexpr std::size_t size = PageCache::keptBytesMax / 4;
    std::vector<void*> blocks;
    for (int i = 0; i < 6; ++i)
        blocks.push_back(cache.take(nullptr, size));
    for (void* block : blocks) {
        EXPECT_TRUE(cache.give(block));
        EXPECT_LE(cache.keptBytes(), PageCache::keptBytesMax);
    }
    EXPECT_EQ(cache.keptBytes(), PageCache::keptBytesMax);
    // The oldest ones went; a small one pushes out one more.
    void* small = cache.take(nullptr, onePage);
    EXPECT_TRUE(cache.give(small));
    EXPECT_EQ(cache.keptBytes(), PageCache::keptBytesMax - size + onePage);
    EXPECT_EQ(cache.take(nullptr, size), blocks[5]);
    EXPECT_TRUE(cache.give(blocks[5]));
}

TEST(PageMemory, BlocksAboveTheBoundAreNotKept)
{
    PageCache& cache = makeCache();
    void* small = cache.take(nullptr, onePage);
    EXPECT_TRUE(cache.give(small));
    void* huge = cache.take(nullptr, PageCache::keptBytesMax + onePage);
    ASSERT_NE(huge, nullptr);
    EXPECT_TRUE(cache.give(huge));
    EXPECT_EQ(cache.keptBytes(), onePage);
    EXPECT_FALSE(cache.give(huge));
}

TEST(PageMemory, TrimmingGivesBackWhatRestedAndNothingElse)
{
    PageCache& cache = makeCache();
    void* live = cache.take(nullptr, onePage);
    void* kept = cache.take(nullptr, onePage);
    EXPECT_TRUE(cache.give(kept));
    cache.trim(longAgo());
    EXPECT_EQ(cache.keptBytes(), onePage);
    cache.trim(PageCache::Clock::now());
    EXPECT_EQ(cache.keptBytes(), 0U);
    EXPECT_EQ(cache.liveBlocks(), 1U);
    EXPECT_FALSE(cache.give(kept));
    static_cast<char*>(live)[0] = 1;
    EXPECT_TRUE(cache.give(live));
}

TEST(PageMemory, IdleMemoryGoesBackByItself)
{
    PageCache& cache = makeCache();
    EXPECT_TRUE(cache.give(cache.take(nullptr, onePage)));
    EXPECT_EQ(cache.keptBytes(), onePage);
    const auto end = PageCache::Clock::now() + std::chrono::seconds(60);
    while (cache.keptBytes() != 0 && PageCache::Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(cache.keptBytes(), 0U);
}

TEST(PageMemory, ASizeThatCannotBeHadGivesNull)
{
    PageCache& cache = makeCache();
    EXPECT_EQ(cache.take(nullptr, 0), nullptr);
    EXPECT_EQ(cache.take(nullptr, ~std::size_t{0}), nullptr);
    EXPECT_EQ(cache.take(nullptr, std::size_t{1} << 50), nullptr);
    EXPECT_EQ(cache.liveBlocks(), 0U);
}

TEST(PageMemory, ThreadsShareTheCache)
{
    PageCache& cache = makeCache();
    std::atomic<unsigned> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (unsigned i = 0; i < 500; ++i) {
                const std::size_t size = onePage * (1 + (i * 7 + t) % 5);
                auto* block = static_cast<char*>(cache.take(nullptr, size));
                const char mark = static_cast<char>(t + 1);
                std::fill(block, block + size, mark);
                std::this_thread::yield();
                wrong += std::all_of(block, block + size, [=](char byte) { return byte == mark; }) ? 0U : 1U;
                wrong += cache.give(block) ? 0U : 1U;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(cache.liveBlocks(), 0U);
}

TEST(PageMemory, ChunksThatAreEmptyGoBackToTheSystem)
{
    PageCache& cache = makeCache();
    void* block = cache.take(nullptr, onePage);
    EXPECT_EQ(cache.chunksInUse(), 1U);
    EXPECT_EQ(cache.chunkOf(block, onePage), 0U);
    EXPECT_TRUE(cache.give(block));
    cache.trim(PageCache::Clock::now());
    EXPECT_EQ(cache.chunksInUse(), 0U);
}

TEST(PageMemory, WhoUsesChunksHearsThatOneGoesBeforeItMayBeCutAgain)
{
    struct User : public ChunkUser
    {
        explicit User(PageCache& cache) : pages(cache) {}
        void forgetChunk(unsigned chunk) override
        {
            forgotten.push_back(chunk);
            block = pages.take(nullptr, onePage);
        }
        PageCache& pages;
        std::vector<unsigned> forgotten;
        void* block = nullptr;  // that was cut meanwhile
    };
    PageCache& cache = makeCache();
    User user(cache);
    cache.addUser(&user);
    EXPECT_TRUE(cache.give(cache.take(nullptr, onePage)));
    EXPECT_TRUE(user.forgotten.empty());
    cache.trim(PageCache::Clock::now());
    EXPECT_EQ(user.forgotten, std::vector<unsigned>{0});
    EXPECT_EQ(cache.chunkOf(user.block, onePage), 1U);

    cache.removeUser(&user);
    EXPECT_TRUE(cache.give(user.block));
    cache.trim(PageCache::Clock::now());
    EXPECT_EQ(user.forgotten, std::vector<unsigned>{0});
    EXPECT_EQ(cache.chunksInUse(), 0U);
}

TEST(PageMemory, BlocksThatTheArenaHasNotAreMappingsOfTheirOwn)
{
    PageCache& cache = makeCache();
    constexpr std::size_t large = PageArena::blockBytesMax + onePage;
    void* block = cache.take(nullptr, large);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(cache.chunksInUse(), 0U);
    EXPECT_EQ(cache.chunkOf(block, large), PageArena::noChunk);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % PageArena::hugePageBytes, 0U);
    EXPECT_TRUE(cache.give(block));
    EXPECT_EQ(cache.take(nullptr, large), block);
    EXPECT_TRUE(cache.give(block));
}
