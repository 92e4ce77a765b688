#include "Qz/ObjectPool.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using Qz::ObjectPool;

namespace {

// Fills each block with the taker's mark and looks whether it is still there when the block goes back:
// a block that two takers held at once would show the other one's.
bool takeMarkAndGive(ObjectPool& pool, unsigned char mark, int rounds)
{
    constexpr std::size_t held = 5;
    bool untouched = true;
    for (int round = 0; round < rounds; ++round) {
        void* blocks[held];
        for (void*& block : blocks) {
            block = pool.take();
            std::memset(block, mark, pool.blockSize());
        }
        for (void* block : blocks) {
            for (std::size_t i = 0; i < pool.blockSize(); ++i)
                untouched = untouched && static_cast<unsigned char*>(block)[i] == mark;
            pool.give(block);
        }
    }
    return untouched;
}

// The first word of each block tells whether somebody holds it.
using Holding = std::atomic<bool>;

Holding& takeHeld(ObjectPool& pool, std::atomic<int>& conflicts)
{
    auto& holding = *static_cast<Holding*>(pool.take());
    conflicts += holding.exchange(true) ? 1 : 0;
    return holding;
}

void giveHeld(ObjectPool& pool, Holding& holding)
{
    holding = false;
    pool.give(&holding);
}

// All blocks that the pool can hand out before it grows, each marked as held by nobody.
std::set<void*> preparedBlocks(ObjectPool& pool)
{
    std::set<void*> blocks;
    for (int i = 0; i < 64; ++i)
        blocks.insert(new (pool.take()) Holding(false));
    for (void* block : blocks)
        pool.give(block);
    return blocks;
}

}  // namespace

TEST(ObjectPool, OneNameAndSizeIsOnePool)
{
    ObjectPool& pool = ObjectPool::named("ObjectPoolTest one", 24);
    EXPECT_EQ(&ObjectPool::named("ObjectPoolTest one", 24), &pool);
    EXPECT_NE(&ObjectPool::named("ObjectPoolTest two", 24), &pool);
    EXPECT_EQ(pool.blockSize(), 24u);
}

TEST(ObjectPool, AnotherSizeUnderTheSameNameIsAnotherPool)
{
    ObjectPool& small = ObjectPool::named("ObjectPoolTest sizes", 8);
    ObjectPool& large = ObjectPool::named("ObjectPoolTest sizes", 800);
    EXPECT_NE(&small, &large);
    EXPECT_EQ(large.blockSize(), 800u);
}

TEST(ObjectPool, AGivenBlockIsTakenAgain)
{
    ObjectPool& pool = ObjectPool::named("ObjectPoolTest again", 40);
    void* const block = pool.take();
    pool.give(block);
    EXPECT_EQ(pool.take(), block);
    pool.give(block);
}

TEST(ObjectPool, BlocksAreAlignedForAnyTypeAndDoNotOverlap)
{
    ObjectPool& pool = ObjectPool::named("ObjectPoolTest apart", 33);
    std::set<std::uintptr_t> taken;
    for (int i = 0; i < 1000; ++i) {  // several growths
        void* const block = pool.take();
        ASSERT_NE(block, nullptr);
        std::memset(block, 0xFF, 33);
        taken.insert(reinterpret_cast<std::uintptr_t>(block));
    }
    ASSERT_EQ(taken.size(), 1000u);
    std::uintptr_t previousEnd = 0;
    for (const std::uintptr_t block : taken) {
        EXPECT_EQ(block % alignof(std::max_align_t), 0u);
        EXPECT_GE(block, previousEnd);
        previousEnd = block + 33;
    }
    EXPECT_EQ(pool.blocksInUse(), 1000u);
    for (const std::uintptr_t block : taken)
        pool.give(reinterpret_cast<void*>(block));
    EXPECT_EQ(pool.blocksInUse(), 0u);
}

TEST(ObjectPool, BlocksThatWentBackAreTakenBeforeThePoolGrows)
{
    ObjectPool& pool = ObjectPool::named("ObjectPoolTest reuse", 16);
    std::set<void*> seen;
    for (int round = 0; round < 100; ++round) {
        std::vector<void*> held;
        for (int i = 0; i < 10; ++i)
            held.push_back(pool.take());
        seen.insert(held.begin(), held.end());
        for (void* block : held)
            pool.give(block);
    }
    EXPECT_EQ(seen.size(), 10u);
}

TEST(ObjectPool, GivingNullIsIgnored)
{
    ObjectPool& pool = ObjectPool::named("ObjectPoolTest null", 16);
    pool.give(nullptr);
    EXPECT_EQ(pool.blocksInUse(), 0u);
}

TEST(ObjectPool, BlocksTooLargeForTheMemoryAreRefused)
{
    ObjectPool& pool = ObjectPool::named("ObjectPoolTest huge", PTRDIFF_MAX / 32);
    EXPECT_EQ(pool.take(), nullptr);
    EXPECT_EQ(pool.blocksInUse(), 0u);
}

TEST(ObjectPool, ABlockIsNeverInTwoHands)
{
    ObjectPool& pool = ObjectPool::named("ObjectPoolTest stress", 48);
    bool untouched[4] = {};
    std::vector<std::thread> threads;
    for (unsigned char i = 0; i < 4; ++i)
        threads.emplace_back([&pool, &mine = untouched[i], i] {
            mine = takeMarkAndGive(pool, static_cast<unsigned char>(i + 1), 20000);
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const bool mine : untouched)
        EXPECT_TRUE(mine);
    EXPECT_EQ(pool.blocksInUse(), 0u);
}

TEST(ObjectPool, ABlockThatWentAndCameBackIsNotMistakenForOneThatNeverLeft)
{
    ObjectPool& pool = ObjectPool::named("ObjectPoolTest came back", sizeof(Holding));
    const std::set<void*> before = preparedBlocks(pool);
    std::atomic<int> conflicts{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 300000; ++round) {
                Holding& first = takeHeld(pool, conflicts);
                Holding& second = takeHeld(pool, conflicts);
                giveHeld(pool, first);  // back at the head, with another successor
                giveHeld(pool, second);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(conflicts, 0);
    EXPECT_EQ(preparedBlocks(pool), before);  // none was lost either
}

TEST(ObjectPool, BlocksMayBeGivenBackByAnotherThread)
{
    ObjectPool& pool = ObjectPool::named("ObjectPoolTest hand over", 16);
    for (int round = 0; round < 50; ++round) {
        std::vector<void*> blocks;
        std::thread taker([&] {
            for (int i = 0; i < 100; ++i)
                blocks.push_back(pool.take());
        });
        taker.join();
        std::thread giver([&] {
            for (void* block : blocks)
                pool.give(block);
        });
        giver.join();
    }
    EXPECT_EQ(pool.blocksInUse(), 0u);
}
