#include "os/linux/Transfer.h"

#include "Qz/Ptr.h"
#include "TestServer.h"
#include "common/TemporaryFolder.h"
#include "os/linux/SharedDescriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>

namespace {

// A transfer of a scratch file, to which the test gives the kernel's answers.
class TransferSteps : public testing::Test
{
protected:
    Transfer make(TransferKind kind, std::uint64_t position, std::size_t count)
    {
        memory_.assign(count, 'z');
        return {descriptor_.get(), kind, position, memory_.data(), count};
    }

    std::string memory_;
    TemporaryFolder folder_;
    const Qz::Ptr<SharedDescriptor> descriptor_{
        new SharedDescriptor(::open(folder_.file("f").c_str(), O_RDWR | O_CLOEXEC), nullptr)};
};

}  // namespace

TEST_F(TransferSteps, TheRestOfAShortTransferIsAskedForAgain)
{
    Transfer transfer = make(TransferKind::read, 1000, 100);
    Transfer::Step step = transfer.nextStep();
    EXPECT_EQ(step.position, 1000U);
    EXPECT_EQ(step.count, 100U);
    EXPECT_FALSE(transfer.advance(30));
    step = transfer.nextStep();
    EXPECT_EQ(step.position, 1030U);
    EXPECT_EQ(step.count, 70U);
    EXPECT_EQ(step.memory, memory_.data() + 30);
    EXPECT_TRUE(transfer.advance(70));
    EXPECT_TRUE(transfer.succeeded());
    EXPECT_EQ(transfer.done(), 100U);
}

TEST_F(TransferSteps, TheEndOfTheFileEndsAReadWell)
{
    Transfer transfer = make(TransferKind::read, 0, 100);
    static_cast<void>(transfer.nextStep());
    EXPECT_FALSE(transfer.advance(30));
    static_cast<void>(transfer.nextStep());
    EXPECT_TRUE(transfer.advance(0));
    EXPECT_TRUE(transfer.succeeded());
    EXPECT_EQ(transfer.done(), 30U);
}

TEST_F(TransferSteps, AnErrorAfterAPartFailsTheWhole)
{
    Transfer transfer = make(TransferKind::write, 0, 100);
    static_cast<void>(transfer.nextStep());
    EXPECT_FALSE(transfer.advance(30));
    static_cast<void>(transfer.nextStep());
    EXPECT_TRUE(transfer.advance(-ENOSPC));
    EXPECT_FALSE(transfer.succeeded());
    EXPECT_EQ(transfer.error(), ENOSPC);
}

TEST_F(TransferSteps, AWriteThatMovesNothingFails)
{
    Transfer transfer = make(TransferKind::write, 0, 100);
    static_cast<void>(transfer.nextStep());
    EXPECT_TRUE(transfer.advance(0));
    EXPECT_FALSE(transfer.succeeded());
}

TEST_F(TransferSteps, ATransferOfNothingSucceeds)
{
    for (const TransferKind kind : {TransferKind::read, TransferKind::write}) {
        Transfer transfer = make(kind, 0, 0);
        static_cast<void>(transfer.nextStep());
        EXPECT_TRUE(transfer.advance(0));
        EXPECT_TRUE(transfer.succeeded());
    }
}

TEST_F(TransferSteps, InterruptionsAreNoOutcome)
{
    Transfer transfer = make(TransferKind::read, 0, 10);
    for (int i = 0; i < 1000; ++i) {
        static_cast<void>(transfer.nextStep());
        ASSERT_FALSE(transfer.advance(-EINTR));
    }
    static_cast<void>(transfer.nextStep());
    EXPECT_TRUE(transfer.advance(10));
    EXPECT_TRUE(transfer.succeeded());
}

TEST_F(TransferSteps, ARequestThatIsPutOffGoesToAWorkerAndFailsInTheEnd)
{
    for (const int error : {EAGAIN, ECANCELED}) {
        Transfer transfer = make(TransferKind::read, 0, 10);
        EXPECT_FALSE(transfer.nextStep().onWorker);
        EXPECT_FALSE(transfer.advance(-error));
        int tries = 1;
        do {
            ASSERT_TRUE(transfer.nextStep().onWorker);
            ASSERT_LE(++tries, 1000);
        } while (!transfer.advance(-error));
        EXPECT_EQ(transfer.error(), error);
    }
}

TEST_F(TransferSteps, AnInterruptionInTheMiddleGoesOnWhereItWas)
{
    for (const TransferKind kind : {TransferKind::read, TransferKind::write}) {
        Transfer transfer = make(kind, 1000, 100);
        static_cast<void>(transfer.nextStep());
        EXPECT_FALSE(transfer.advance(30));
        static_cast<void>(transfer.nextStep());
        EXPECT_FALSE(transfer.advance(-EINTR));
        const Transfer::Step step = transfer.nextStep();
        EXPECT_EQ(step.position, 1030U);
        EXPECT_EQ(step.count, 70U);
        EXPECT_EQ(step.memory, memory_.data() + 30);
        EXPECT_TRUE(transfer.advance(70));
        EXPECT_EQ(transfer.done(), 100U);
    }
}

TEST_F(TransferSteps, ARequestThatIsPutOffInTheMiddleGoesOnAndItsTriesBeginAnewWithEachByte)
{
    Transfer transfer = make(TransferKind::write, 0, 20);
    for (std::uint64_t byte = 0; byte < 20; ++byte) {
        for (int refusal = 0; refusal < 99; ++refusal) {
            static_cast<void>(transfer.nextStep());
            ASSERT_FALSE(transfer.advance(-EAGAIN));
        }
        const Transfer::Step step = transfer.nextStep();
        EXPECT_TRUE(step.onWorker);
        EXPECT_EQ(step.position, byte);
        EXPECT_EQ(transfer.advance(1), byte == 19);
        EXPECT_TRUE(byte == 19 || !transfer.nextStep().onWorker);
    }
    EXPECT_TRUE(transfer.succeeded());
}

TEST_F(TransferSteps, HugeTransfersAreCutAtAMultipleOfEveryAlignment)
{
    constexpr std::size_t count = (std::size_t{3} << 30) + 5;
    char byte = 0;
    Transfer transfer(descriptor_.get(), TransferKind::read, 0, &byte, count);
    const Transfer::Step step = transfer.nextStep();
    EXPECT_EQ(step.count, 1U << 30);
    EXPECT_FALSE(transfer.advance(1 << 30));
    EXPECT_EQ(transfer.nextStep().position, std::uint64_t{1} << 30);
}

TEST_F(TransferSteps, PositionAndCountStayInTheSignedRange)
{
    constexpr auto max = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    EXPECT_TRUE(make(TransferKind::read, max, 0).isValid());
    EXPECT_TRUE(make(TransferKind::read, max - 10, 10).isValid());
    EXPECT_FALSE(make(TransferKind::read, max - 10, 11).isValid());
    EXPECT_FALSE(make(TransferKind::read, max + 1, 0).isValid());
    EXPECT_FALSE(make(TransferKind::read, std::numeric_limits<std::uint64_t>::max(), 1).isValid());
}

TEST_F(TransferSteps, WhatAReadDidNotFillIsZeroed)
{
    Transfer transfer = make(TransferKind::read, 0, 10);
    static_cast<void>(transfer.nextStep());
    static_cast<void>(transfer.advance(4));
    static_cast<void>(transfer.nextStep());
    static_cast<void>(transfer.advance(0));
    transfer.clearRest();
    EXPECT_EQ(memory_, std::string("zzzz\0\0\0\0\0\0", 10));
}

TEST_F(TransferSteps, MemoryThatIsWrittenFromIsLeftAlone)
{
    Transfer transfer = make(TransferKind::write, 0, 10);
    static_cast<void>(transfer.nextStep());
    static_cast<void>(transfer.advance(-EIO));
    transfer.clearRest();
    EXPECT_EQ(memory_, "zzzzzzzzzz");
}

// --- unbuffered

namespace {

class UnbufferedTransfer : public TransferSteps
{
protected:
    void SetUp() override
    {
        descriptor_->enableDirect();
        if (descriptor_->directFd() < 0)
            GTEST_SKIP() << "the file system of the temporary folder offers no unbuffered transfers";
    }
    alignas(65536) static inline char block_[65536];
};

}  // namespace

TEST_F(UnbufferedTransfer, OnlyAlignedStepsAreUnbuffered)
{
    const auto fdOf = [this](std::uint64_t position, void* memory, std::size_t count) {
        return Transfer(descriptor_.get(), TransferKind::read, position, memory, count).nextStep().fd;
    };
    EXPECT_EQ(fdOf(65536, block_, 65536), descriptor_->directFd());
    EXPECT_EQ(fdOf(65537, block_, 65536), descriptor_->fd());
    EXPECT_EQ(fdOf(65536, block_ + 1, 4096), descriptor_->fd());
    EXPECT_EQ(fdOf(65536, block_, 4097), descriptor_->fd());
}

TEST_F(UnbufferedTransfer, TheRestOfAReadThatMetTheEndIsBuffered)
{
    Transfer transfer(descriptor_.get(), TransferKind::read, 0, block_, 65536);
    static_cast<void>(transfer.nextStep());
    EXPECT_FALSE(transfer.advance(1001));
    EXPECT_EQ(transfer.nextStep().fd, descriptor_->fd());
    EXPECT_TRUE(transfer.advance(0));
    EXPECT_TRUE(transfer.succeeded());
}

TEST_F(UnbufferedTransfer, ARefusalOfTheFileSystemIsAnsweredByABufferedTry)
{
    Transfer transfer(descriptor_.get(), TransferKind::read, 0, block_, 65536);
    EXPECT_EQ(transfer.nextStep().fd, descriptor_->directFd());
    EXPECT_FALSE(transfer.advance(-EINVAL));
    EXPECT_EQ(transfer.nextStep().fd, descriptor_->fd());
    // A second one is an error like any other.
    EXPECT_TRUE(transfer.advance(-EINVAL));
    EXPECT_EQ(transfer.error(), EINVAL);
}

TEST_F(UnbufferedTransfer, FilesOfServersThatMayStopAnsweringStayBuffered)
{
    const Qz::Ptr<SharedDescriptor> slow(
        new SharedDescriptor(::open(folder_.file("slow").c_str(), O_RDWR | O_CLOEXEC), testServer()));
    slow->enableDirect();
    EXPECT_LT(slow->directFd(), 0);
    Transfer transfer(slow.get(), TransferKind::read, 0, block_, 65536);
    EXPECT_TRUE(transfer.nextStep().onWorker);
}

TEST(SharedDescriptor, BothDescriptorsCloseOnExecAndWithTheLastReference)
{
    const TemporaryFolder folder;
    Qz::Ptr<SharedDescriptor> file(
        new SharedDescriptor(::open(folder.file("f").c_str(), O_RDWR | O_CLOEXEC), nullptr));
    file->enableDirect();
    const int fd = file->fd();
    const int direct = file->directFd();
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_TRUE(direct < 0 || (fcntl(direct, F_GETFD) & FD_CLOEXEC) != 0);
    Qz::Ptr<SharedDescriptor> other = file;
    file.reset();
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    other.reset();
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_TRUE(direct < 0 || fcntl(direct, F_GETFD) == -1);
}
