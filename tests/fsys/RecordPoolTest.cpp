#include "fsys/RecordPool.h"

#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "os/Codes.h"
#include "os/testing/FakeOS.h"
#include "os/testing/ScopedOS.h"

namespace {

constexpr std::size_t recordBytes = 88;
constexpr std::size_t spacing = 96;                               // a multiple of the alignment
constexpr std::size_t plainBytes = std::size_t{2} << 20;          // then slabs are pages
constexpr std::size_t manyRecords = plainBytes / spacing + 1000;  // reaches into the first of these

std::vector<void*> takeMany(RecordPool& pool, std::size_t count)
{
    std::vector<void*> records(count);
    for (void*& record : records)
        record = pool.take();
    return records;
}

void giveAll(RecordPool& pool, const std::vector<void*>& records)
{
    for (void* record : records)
        pool.give(record);
}

}  // namespace

TEST(RecordPool, GivesEachRecordMemoryOfItsOwn)
{
    RecordPool pool(recordBytes);
    const std::vector<void*> records = takeMany(pool, 1000);
    for (std::size_t i = 0; i < records.size(); ++i)
        std::memset(records[i], static_cast<int>(i % 251), recordBytes);
    for (std::size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(records[i]) % RecordPool::alignment, 0u);
        const std::vector<unsigned char> expected(recordBytes, static_cast<unsigned char>(i % 251));
        EXPECT_EQ(std::memcmp(records[i], expected.data(), recordBytes), 0) << i;
    }
    giveAll(pool, records);
}

TEST(RecordPool, UsesTheRoomOfRecordsThatCameBack)
{
    if (!RecordPool::cutsSlabs)
        GTEST_SKIP() << "each record is an allocation of its own";
    RecordPool pool(recordBytes);
    std::vector<void*> records = takeMany(pool, 500);
    const std::size_t slabBytes = pool.slabBytes();
    const std::set<void*> given(records.begin() + 100, records.end());
    for (void* record : given)
        pool.give(record);
    records.resize(100);
    for (std::size_t i = 0; i < given.size(); ++i) {
        records.push_back(pool.take());
        EXPECT_EQ(given.count(records.back()), 1u);
    }
    EXPECT_EQ(pool.slabBytes(), slabBytes);
    giveAll(pool, records);
}

TEST(RecordPool, KeepsRecordsThatAreTakenInOrderSideBySide)
{
    if (!RecordPool::cutsSlabs)
        GTEST_SKIP() << "each record is an allocation of its own";
    RecordPool pool(recordBytes);
    const std::vector<void*> records = takeMany(pool, 100);
    for (std::size_t i = 1; i < records.size(); ++i)
        EXPECT_EQ(static_cast<char*>(records[i]) - static_cast<char*>(records[i - 1]), spacing);
    giveAll(pool, records);
}

TEST(RecordPool, GivesAllMemoryBackWithTheLastRecord)
{
    if (!RecordPool::cutsSlabs)
        GTEST_SKIP() << "each record is an allocation of its own";
    FakeOS os;
    const ScopedOS scope(os);
    RecordPool pool(recordBytes);
    std::vector<void*> records = takeMany(pool, manyRecords);
    void* const last = records.back();
    records.pop_back();
    giveAll(pool, records);
    EXPECT_GT(pool.slabBytes(), plainBytes);
    pool.give(last);
    EXPECT_EQ(pool.slabBytes(), 0u);
    EXPECT_EQ(os.live().pages, 0u);
}

TEST(RecordPool, LeavesThePlatformAloneWhileThereAreFew)
{
    if (!RecordPool::cutsSlabs)
        GTEST_SKIP() << "each record is an allocation of its own";
    FakeOS os;
    const ScopedOS scope(os);
    RecordPool pool(recordBytes);
    giveAll(pool, takeMany(pool, 10'000));
    EXPECT_TRUE(os.pages().records().empty());
    giveAll(pool, takeMany(pool, manyRecords));
    EXPECT_EQ(os.pages().records().size(), 1u);
}

TEST(RecordPool, MakesDoWithPlainMemoryWhereThereAreNoPages)
{
    if (!RecordPool::cutsSlabs)
        GTEST_SKIP() << "each record is an allocation of its own";
    FakeOS os;
    const ScopedOS scope(os);
    os.faults().failAlways(fake::Op::allocatePages, 0);
    RecordPool pool(recordBytes);
    giveAll(pool, takeMany(pool, manyRecords));
    EXPECT_EQ(pool.slabBytes(), 0u);
}

TEST(RecordPool, ServesThreadsAtOnce)
{
    RecordPool pool(recordBytes);
    std::vector<std::vector<void*>> kept(4);
    {
        std::vector<std::jthread> threads;
        for (std::vector<void*>& mine : kept)
            threads.emplace_back([&] {
                for (int turn = 0; turn < 2000; ++turn) {
                    mine.push_back(pool.take());
                    void* const brief = pool.take();
                    std::memset(brief, 1, recordBytes);
                    pool.give(brief);
                }
            });
    }
    std::set<void*> all;
    for (const auto& mine : kept)
        all.insert(mine.begin(), mine.end());
    EXPECT_EQ(all.size(), 8000u);
    for (const auto& mine : kept)
        giveAll(pool, mine);
    EXPECT_EQ(pool.slabBytes(), 0u);
}
