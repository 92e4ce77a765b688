#include "os/linux/RingMemory.h"

#include "RefusedCall.h"
#include "common/TemporaryFolder.h"

#include <algorithm>
#include <deque>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::size_t pageBytes = 4096;

class RingMemoryTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (const int error = ring_.build(8, 32))
            GTEST_SKIP() << "no io_uring here: error " << error;
        memory_.start();
        fd_ = open(folder_.file("f", std::string(pageBytes, 'a') + std::string(pageBytes, 'b')).c_str(),
                   O_RDONLY | O_CLOEXEC);
        ASSERT_GE(fd_, 0);
    }
    void TearDown() override
    {
        if (fd_ >= 0)
            close(fd_);
    }

    // Its trimming thread may outlive the test.
    static PageCache& makeCache()
    {
        static auto* const caches = new std::deque<PageCache>;
        return caches->emplace_back();
    }
    unsigned slotAfterManyUses(const void* memory, std::size_t bytes)
    {
        const std::lock_guard guard(lock_);
        for (unsigned i = 1; i < RingMemory::usesBefore; ++i)
            EXPECT_EQ(memory_.slotOf(memory, bytes), UringRing::noSlot);
        return memory_.slotOf(memory, bytes);
    }
    std::int64_t read(char* memory, std::uint64_t position, unsigned slot)
    {
        const Transfer::Step step{fd_, memory, static_cast<unsigned>(pageBytes), position, false, false};
        EXPECT_TRUE(ring_.prepare(TransferKind::read, step, slot, 1));
        EXPECT_EQ(ring_.submit(), 0);
        std::vector<UringRing::Result> results;
        ring_.wait(results, 1);
        return results.at(0).result;
    }

    TemporaryFolder folder_;
    PageCache& pages_ = makeCache();
    UringRing ring_;
    std::mutex lock_;
    RingMemory memory_{pages_, ring_, lock_};
    int fd_ = -1;
};

bool isAll(const char* memory, char byte)
{
    return std::all_of(memory, memory + pageBytes, [byte](char one) { return one == byte; });
}

}  // namespace

TEST_F(RingMemoryTest, AChunkThatIsUsedOftenIsMappedForGood)
{
    auto* block = static_cast<char*>(pages_.take(nullptr, 2 * pageBytes));
    const unsigned slot = slotAfterManyUses(block, 2 * pageBytes);
    ASSERT_NE(slot, UringRing::noSlot);
    EXPECT_EQ(read(block, 0, slot), static_cast<std::int64_t>(pageBytes));
    EXPECT_EQ(read(block + pageBytes, pageBytes, slot), static_cast<std::int64_t>(pageBytes));
    EXPECT_TRUE(isAll(block, 'a'));
    EXPECT_TRUE(isAll(block + pageBytes, 'b'));
    EXPECT_TRUE(pages_.give(block));
}

TEST_F(RingMemoryTest, MemoryOfOthersHasNoSlot)
{
    std::string memory(pageBytes, 'x');
    for (unsigned i = 0; i < 2 * RingMemory::usesBefore; ++i)
        EXPECT_EQ(memory_.slotOf(memory.data(), pageBytes), UringRing::noSlot);
}

// Otherwise the kernel would fill the pages that the chunk had before, and the reader see none of it.
TEST_F(RingMemoryTest, AChunkThatGoesAndComesBackIsMappedAnew)
{
    auto* block = static_cast<char*>(pages_.take(nullptr, pageBytes));
    const unsigned slot = slotAfterManyUses(block, pageBytes);
    ASSERT_NE(slot, UringRing::noSlot);
    EXPECT_TRUE(pages_.give(block));
    pages_.trim(PageCache::Clock::now());
    ASSERT_EQ(pages_.chunksInUse(), 0U);

    auto* again = static_cast<char*>(pages_.take(nullptr, pageBytes));
    ASSERT_EQ(again, block);
    // The slot is empty: whoever used it now would hear of it.
    EXPECT_EQ(read(again, pageBytes, slot), -EFAULT);
    EXPECT_EQ(slotAfterManyUses(again, pageBytes), slot);
    EXPECT_EQ(read(again, pageBytes, slot), static_cast<std::int64_t>(pageBytes));
    EXPECT_TRUE(isAll(again, 'b'));
    EXPECT_TRUE(pages_.give(again));
}

TEST_F(RingMemoryTest, WhereTheKernelRefusesItGoesOnWithoutSlots)
{
    char* block = static_cast<char*>(pages_.take(nullptr, pageBytes));
    ASSERT_TRUE(runRefused(SYS_io_uring_register, [&] {
        for (unsigned i = 0; i < 2 * RingMemory::usesBefore; ++i)
            EXPECT_EQ(memory_.slotOf(block, pageBytes), UringRing::noSlot);
    }));
    // One refusal is enough to know.
    EXPECT_EQ(memory_.slotOf(block, pageBytes), UringRing::noSlot);
    EXPECT_EQ(read(block, 0, UringRing::noSlot), static_cast<std::int64_t>(pageBytes));
    EXPECT_TRUE(isAll(block, 'a'));
    EXPECT_TRUE(pages_.give(block));
}

TEST_F(RingMemoryTest, ARingWithoutSlotsHasNone)
{
    UringRing plain;
    ASSERT_EQ(plain.build(8, 32), 0);
    RingMemory memory(pages_, plain, lock_);
    ASSERT_TRUE(runRefused(SYS_io_uring_register, [&] { memory.start(); }));
    void* block = pages_.take(nullptr, pageBytes);
    for (unsigned i = 0; i < 2 * RingMemory::usesBefore; ++i)
        EXPECT_EQ(memory.slotOf(block, pageBytes), UringRing::noSlot);
    EXPECT_TRUE(pages_.give(block));
    pages_.trim(PageCache::Clock::now());  // nothing to forget
    EXPECT_EQ(pages_.chunksInUse(), 0U);
}
