#include "os/Codes.h"
#include "os/LastError.h"
#include "os/testing/FakeOS.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include <gtest/gtest.h>

namespace {

TEST(FakePageMemory, GivesZeroedPagesAndRecordsAllArguments)
{
    FakeOS os;
    auto* memory = static_cast<char*>(os.getPageMemory()->allocate(nullptr, 1536, 12288, 4));
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % FakePageMemory::pageSize, 0U);
    EXPECT_TRUE(std::all_of(memory, memory + 1536, [](char byte) { return byte == 0; }));
    const fake::PageRecord record = os.pages().records().at(0);
    EXPECT_EQ(record.wish, nullptr);
    EXPECT_EQ(record.size, 1536U);
    EXPECT_EQ(record.type, 12288U);
    EXPECT_EQ(record.protection, 4U);
    EXPECT_EQ(record.memory, memory);
    EXPECT_FALSE(record.released);
    EXPECT_EQ(os.live().pages, 1U);
    EXPECT_TRUE(os.getPageMemory()->release(memory, 49152));
    EXPECT_TRUE(os.pages().records().at(0).released);
    EXPECT_EQ(os.pages().records().at(0).freeType, 49152U);
    EXPECT_EQ(os.live().pages, 0U);
}

TEST(FakePageMemory, RefusesOtherCodes)
{
    FakeOS os;
    EXPECT_EQ(os.getPageMemory()->allocate(nullptr, 512, 4096, 4), nullptr);
    EXPECT_EQ(os.getPageMemory()->allocate(nullptr, 512, 12288, 2), nullptr);
    void* memory = os.getPageMemory()->allocate(nullptr, 512, 12288, 4);
    EXPECT_FALSE(os.getPageMemory()->release(memory, 16384));
    EXPECT_EQ(os.live().pages, 1U);
    EXPECT_TRUE(os.getPageMemory()->release(memory, os::pagesRelease));
    EXPECT_EQ(os.pages().records().size(), 3U);
}

TEST(FakePageMemory, ReleasesOnlyWhatItGave)
{
    FakeOS os;
    int other = 0;
    EXPECT_FALSE(os.getPageMemory()->release(&other, os::pagesRelease));
    EXPECT_TRUE(os.getPageMemory()->release(nullptr, os::pagesRelease));
    void* memory = os.getPageMemory()->allocate(nullptr, 10, 12288, 4);
    EXPECT_TRUE(os.getPageMemory()->release(memory, os::pagesRelease));
    EXPECT_FALSE(os.getPageMemory()->release(memory, os::pagesRelease));
}

TEST(FakePageMemory, FailsAsOftenAsPlanned)
{
    FakeOS os;
    os.faults().failNext(fake::Op::allocatePages, 0, 2);
    EXPECT_EQ(os.getPageMemory()->allocate(nullptr, 512, 12288, 4), nullptr);
    EXPECT_EQ(lastError(), errorFromErrno(ENOMEM));
    EXPECT_EQ(os.getPageMemory()->allocate(nullptr, 512, 12288, 4), nullptr);
    void* memory = os.getPageMemory()->allocate(nullptr, 512, 12288, 4);
    EXPECT_NE(memory, nullptr);
    EXPECT_EQ(os.faults().fired(fake::Op::allocatePages), 2U);
    os.getPageMemory()->release(memory, os::pagesRelease);
}

}  // namespace
