#include "os/linux/PageArena.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t page = 4096;
constexpr std::size_t chunk = PageArena::chunkBytes;

// What an owner does when a chunk is empty.
void giveBack(PageArena& arena, void* block, std::size_t size)
{
    if (const unsigned empty = arena.give(block, size); empty != PageArena::noChunk) {
        arena.decommit(empty);
        arena.reuse(empty);
    }
}

}  // namespace

TEST(PageArena, ChunksBeginAtHugePages)
{
    PageArena arena;
    void* block = arena.take(page);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(arena.chunkStart(0)) % PageArena::hugePageBytes, 0U);
    EXPECT_EQ(arena.chunkOf(block, page), 0U);
    giveBack(arena, block, page);
}

TEST(PageArena, BlocksOfOneChunkLieSideBySide)
{
    PageArena arena;
    auto* first = static_cast<std::byte*>(arena.take(3 * page));
    auto* second = static_cast<std::byte*>(arena.take(2 * page));
    EXPECT_EQ(second, first + 3 * page);
    EXPECT_EQ(arena.chunksInUse(), 1U);
    giveBack(arena, first, 3 * page);
    EXPECT_EQ(arena.take(page), first);
    EXPECT_EQ(arena.take(2 * page), first + page);
    EXPECT_EQ(arena.take(page), second + 2 * page);
}

TEST(PageArena, AnEmptyChunkIsCutNoMoreUntilItMayBeUsedAgain)
{
    PageArena arena;
    void* block = arena.take(page);
    std::memset(block, 'x', page);
    ASSERT_EQ(arena.give(block, page), 0U);
    void* next = arena.take(page);
    EXPECT_EQ(arena.chunkOf(next, page), 1U);
    arena.decommit(0);
    arena.reuse(0);
    EXPECT_EQ(arena.chunksInUse(), 1U);
    giveBack(arena, next, page);
    // The memory went back to the system, so it is zero when it comes again.
    auto* again = static_cast<char*>(arena.take(page));
    EXPECT_EQ(again, block);
    EXPECT_EQ(again[0], 0);
}

TEST(PageArena, NeighboursBecomeOneInWhateverOrderTheyComeBack)
{
    PageArena arena;
    std::vector<void*> blocks;
    for (unsigned i = 0; i < 8; ++i)
        blocks.push_back(arena.take(chunk / 8));
    EXPECT_EQ(arena.chunksInUse(), 1U);
    for (const unsigned i : {3U, 1U, 2U, 6U, 0U, 7U, 5U})
        EXPECT_EQ(arena.give(blocks[i], chunk / 8), PageArena::noChunk);
    EXPECT_EQ(arena.take(chunk / 2), blocks[0]);
    EXPECT_EQ(arena.give(blocks[0], chunk / 2), PageArena::noChunk);
    EXPECT_EQ(arena.give(blocks[4], chunk / 8), 0U);
}

TEST(PageArena, LargeBlocksAreNotItsBusiness)
{
    PageArena arena;
    EXPECT_EQ(arena.take(PageArena::blockBytesMax + page), nullptr);
    EXPECT_EQ(arena.chunksInUse(), 0U);
    EXPECT_NE(arena.take(PageArena::blockBytesMax), nullptr);
}

TEST(PageArena, ItsMemoryIsBounded)
{
    PageArena arena;
    std::vector<void*> blocks;
    while (void* block = arena.take(PageArena::blockBytesMax))
        blocks.push_back(block);
    EXPECT_EQ(blocks.size(), PageArena::chunksMax);
    giveBack(arena, blocks[5], PageArena::blockBytesMax);
    EXPECT_EQ(arena.take(PageArena::blockBytesMax), blocks[5]);
}

TEST(PageArena, OnlyWhatLiesWhollyInOneChunkIsOfThatChunk)
{
    PageArena arena;
    auto* start = static_cast<std::byte*>(arena.chunkStart(0));
    EXPECT_EQ(arena.chunkOf(start, chunk), 0U);
    EXPECT_EQ(arena.chunkOf(start + page, chunk), PageArena::noChunk);
    EXPECT_EQ(arena.chunkOf(start + chunk - 1, 1), 0U);
    EXPECT_EQ(arena.chunkOf(start + chunk, 1), 1U);
    EXPECT_EQ(arena.chunkOf(start - 1, 1), PageArena::noChunk);
    EXPECT_EQ(arena.chunkOf(start + chunk * PageArena::chunksMax, 1), PageArena::noChunk);
    const int elsewhere = 0;
    EXPECT_EQ(arena.chunkOf(&elsewhere, sizeof elsewhere), PageArena::noChunk);
}

TEST(PageArena, BlocksNeverOverlap)
{
    PageArena arena;
    std::mt19937 random(7);
    std::vector<std::pair<unsigned char*, std::size_t>> blocks;
    for (unsigned step = 0; step < 4000; ++step) {
        if (blocks.size() < 40 && random() % 2 == 0) {
            const std::size_t size = page * (1 + random() % 200);
            auto* block = static_cast<unsigned char*>(arena.take(size));
            ASSERT_NE(block, nullptr);
            // The mark of a block stands at both of its ends.
            block[0] = block[size - 1] =
                static_cast<unsigned char>(reinterpret_cast<std::uintptr_t>(block) / page);
            blocks.emplace_back(block, size);
        } else if (!blocks.empty()) {
            const std::size_t index = random() % blocks.size();
            const auto [block, size] = blocks[index];
            const auto mark = static_cast<unsigned char>(reinterpret_cast<std::uintptr_t>(block) / page);
            ASSERT_EQ(block[0], mark);
            ASSERT_EQ(block[size - 1], mark);
            std::memset(block, 0, size);
            giveBack(arena, block, size);
            blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(index));
        }
    }
    for (const auto& [block, size] : blocks)
        giveBack(arena, block, size);
    EXPECT_EQ(arena.chunksInUse(), 0U);
}
