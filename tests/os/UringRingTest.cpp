#include "os/linux/UringRing.h"

#include "RefusedCall.h"
#include "common/TemporaryFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

class UringRingTest : public testing::Test
{
protected:
    static constexpr unsigned entries = 8;

    void SetUp() override
    {
        if (const int error = ring_.build(entries, 4 * entries))
            GTEST_SKIP() << "no io_uring here: error " << error;
        fd_ = open(folder_.file("f", "0123456789").c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_GE(fd_, 0);
    }
    void TearDown() override
    {
        if (fd_ >= 0)
            close(fd_);
    }

    bool prepareRead(std::uint64_t position, char* byte, std::uint64_t mark)
    {
        const Transfer::Step step{fd_, byte, 1, position, false, false};
        return ring_.prepare(TransferKind::read, step, UringRing::noSlot, mark);
    }
    std::vector<UringRing::Result> wait(std::size_t count)
    {
        std::vector<UringRing::Result> results;
        while (results.size() < count)
            ring_.wait(results, entries);
        return results;
    }

    TemporaryFolder folder_;
    UringRing ring_;
    int fd_ = -1;
};

}  // namespace

TEST_F(UringRingTest, ATrialGoesRound)
{
    EXPECT_EQ(ring_.sendTrial(), 0);
    EXPECT_FALSE(ring_.hasResults());
}

TEST_F(UringRingTest, ARingThatMayNotBeUsedFailsItsTrial)
{
    ASSERT_TRUE(runRefused(SYS_io_uring_enter, [] {
        UringRing ring;
        ASSERT_EQ(ring.build(entries, entries), 0);
        EXPECT_EQ(ring.sendTrial(), EPERM);
    }));
    ASSERT_TRUE(runRefused(SYS_io_uring_setup, [] {
        UringRing ring;
        EXPECT_EQ(ring.build(entries, entries), EPERM);
    }));
}

TEST_F(UringRingTest, ResultsCarryTheMarkOfTheirRequest)
{
    char byte = 0;
    ASSERT_TRUE(prepareRead(3, &byte, 0xFFFF'FFFF'1234'5678));
    ASSERT_EQ(ring_.submit(), 0);
    const auto results = wait(1);
    EXPECT_EQ(results[0].mark, 0xFFFF'FFFF'1234'5678);
    EXPECT_EQ(results[0].result, 1);
    EXPECT_EQ(byte, '3');
}

TEST_F(UringRingTest, AFullRingTakesNoMoreUntilSubmitted)
{
    char bytes[entries + 1] = {};
    for (unsigned i = 0; i < entries; ++i)
        ASSERT_TRUE(prepareRead(i, &bytes[i], i + 1));
    EXPECT_FALSE(prepareRead(entries, &bytes[entries], 99));
    ASSERT_EQ(ring_.submit(), 0);
    EXPECT_TRUE(prepareRead(entries, &bytes[entries], 99));
    ASSERT_EQ(ring_.submit(), 0);
    wait(entries + 1);
    EXPECT_EQ(std::string(bytes, entries + 1), "012345678");
}

TEST_F(UringRingTest, WhatIsTakenBackIsNeverCarriedOut)
{
    char first = 'x';
    ASSERT_TRUE(prepareRead(0, &first, 1));
    ASSERT_EQ(ring_.submit(), 0);
    EXPECT_EQ(wait(1)[0].mark, 1U);

    char taken[3] = {'x', 'x', 'x'};
    for (unsigned i = 0; i < 3; ++i)
        ASSERT_TRUE(prepareRead(i, &taken[i], 10 + i));
    std::vector<std::uint64_t> marks;
    ring_.takeBack(marks);
    EXPECT_EQ(marks, (std::vector<std::uint64_t>{10, 11, 12}));
    EXPECT_EQ(ring_.submit(), 0);

    // The ring goes on, over more requests than it has entries.
    for (unsigned round = 0; round < 3 * entries; ++round) {
        char byte = 0;
        ASSERT_TRUE(prepareRead(round % 10, &byte, 100 + round));
        ASSERT_EQ(ring_.submit(), 0);
        ASSERT_EQ(wait(1)[0].mark, 100U + round);
        ASSERT_EQ(byte, static_cast<char>('0' + round % 10));
    }
    EXPECT_EQ(std::string(taken, 3), "xxx");
}

TEST_F(UringRingTest, AWakeUpEndsAWait)
{
    std::vector<UringRing::Result> results;
    std::thread waiter([&] { ring_.wait(results, entries); });
    ASSERT_TRUE(ring_.prepareWakeUp());
    ASSERT_EQ(ring_.submit(), 0);
    waiter.join();
    ASSERT_EQ(results.size(), 1U);
    EXPECT_EQ(results[0].mark, 0U);
}

TEST_F(UringRingTest, AnErrorOfOneRequestIsItsResultAlone)
{
    char byte = 0;
    const Transfer::Step bad{-1, &byte, 1, 0, false, false};
    ASSERT_TRUE(ring_.prepare(TransferKind::read, bad, UringRing::noSlot, 1));
    ASSERT_TRUE(prepareRead(5, &byte, 2));
    ASSERT_EQ(ring_.submit(), 0);
    for (const auto& result : wait(2))
        EXPECT_EQ(result.result, result.mark == 1 ? -EBADF : 1);
    EXPECT_EQ(byte, '5');
}
