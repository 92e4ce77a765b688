#include "FakeReceiver.h"
#include "os/Codes.h"
#include "os/testing/FakeOS.h"

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

namespace {

using fake::Op;
using Lines = std::vector<std::string>;

// A file of 4096 bytes 'x' on a port, and a buffer for its transfers.
class FakeTransfersTest : public testing::Test
{
protected:
    FakeTransfersTest()
    {
        os.files().addFile(L"/m/a", std::string(4096, 'x'));
        file = open();
        EXPECT_TRUE(port->attach(file));
    }

    Qz::Ptr<iFile> open(unsigned access = 3, unsigned mode = os::modeAsync)
    {
        return OS()->getFileManager()->open(L"/m/a", access, 0, 4, mode);
    }
    Qz::Ptr<iAsyncContext> context(void* owner = nullptr)
    {
        return OS()->getFileManager()->createAsyncContext(owner);
    }
    bool read(std::uint64_t position, std::size_t count)
    {
        return file->asyncRead(position, buffer.data(), count, context(this));
    }
    FakeTransfers& transfers() { return os.transfers(); }

    FakeOS os;
    ScopedOS installed{os};
    FakeReceiver receiver;
    std::unique_ptr<CompletionPortHandler> port =
        std::make_unique<CompletionPortHandler>("FsysReads", receiver.command(), 3, 3, 3, 3);
    Qz::Ptr<iFile> file;
    std::string buffer = std::string(8192, '-');
};

TEST_F(FakeTransfersTest, AreHeldUntilTheTestCompletesThem)
{
    EXPECT_TRUE(read(512, 1024));
    ASSERT_EQ(transfers().heldCount(), 1U);
    const fake::HeldTransfer held = transfers().held()[0];
    EXPECT_EQ(held.path, LightweightString<wchar_t>(L"/m/a"));
    EXPECT_EQ(held.position, 512U);
    EXPECT_EQ(held.length, 1024U);
    EXPECT_TRUE(held.isRead);
    EXPECT_EQ(held.buffer, buffer.data());
    EXPECT_EQ(held.owner, this);
    EXPECT_EQ(held.port, "FsysReads");
    EXPECT_EQ(held.number, 1U);
    EXPECT_TRUE(receiver.seen().empty());

    EXPECT_TRUE(transfers().completeNext());
    ASSERT_EQ(receiver.seen().size(), 1U);
    EXPECT_TRUE(receiver.seen()[0].succeeded);
    EXPECT_EQ(receiver.seen()[0].bytes, 1024U);
    EXPECT_EQ(receiver.seen()[0].owner, this);
    EXPECT_EQ(buffer.substr(0, 1026), std::string(1024, 'x') + "--");
    EXPECT_FALSE(transfers().completeNext());
    EXPECT_EQ(transfers().accepted(), 1U);
    EXPECT_EQ(transfers().delivered(), 1U);
}

TEST_F(FakeTransfersTest, AreReportedOnAThreadOfThePort)
{
    EXPECT_TRUE(read(0, 1));
    transfers().completeNext();
    EXPECT_EQ(receiver.seen()[0].threadName, "FsysReads");
    EXPECT_NE(receiver.seen()[0].thread, std::this_thread::get_id());
    EXPECT_EQ(fake::currentThreadName(), "");
}

TEST_F(FakeTransfersTest, EndInAnyOrder)
{
    int owners[3] = {};
    for (int& owner : owners)
        EXPECT_TRUE(file->asyncRead(0, buffer.data(), 1, context(&owner)));
    EXPECT_FALSE(transfers().completeAt(3));
    EXPECT_TRUE(transfers().completeAt(2));
    EXPECT_TRUE(transfers().completeAt(0));
    EXPECT_EQ(transfers().held()[0].owner, &owners[1]);
    EXPECT_EQ(transfers().completeAll(), 1U);
    ASSERT_EQ(receiver.seen().size(), 3U);
    EXPECT_EQ(receiver.seen()[0].owner, &owners[2]);
    EXPECT_EQ(receiver.seen()[1].owner, &owners[0]);
    EXPECT_EQ(receiver.seen()[2].owner, &owners[1]);
}

TEST_F(FakeTransfersTest, AFailureIsTheLastErrorOfThePortThread)
{
    EXPECT_TRUE(read(0, 10));
    EXPECT_TRUE(read(0, 10));
    setLastError(5);
    EXPECT_TRUE(transfers().failAt(1, errorFromErrno(ETIMEDOUT)));
    EXPECT_FALSE(receiver.seen()[0].succeeded);
    EXPECT_EQ(receiver.seen()[0].bytes, 0U);
    EXPECT_EQ(receiver.seen()[0].lastError, errorFromErrno(ETIMEDOUT));
    EXPECT_EQ(lastError(), 5U);
    EXPECT_TRUE(transfers().failNext(77));
    EXPECT_EQ(receiver.seen()[1].lastError, 77U);
}

TEST_F(FakeTransfersTest, AShortReadClearsTheRestOfTheBuffer)
{
    EXPECT_TRUE(read(0, 100));
    EXPECT_TRUE(transfers().completeShort(0, 40));
    EXPECT_TRUE(receiver.seen()[0].succeeded);
    EXPECT_EQ(receiver.seen()[0].bytes, 40U);
    EXPECT_EQ(buffer.substr(0, 101), std::string(40, 'x') + std::string(60, '\0') + "-");
}

TEST_F(FakeTransfersTest, AReadAtTheEndOfTheFileSucceedsWithWhatIsThere)
{
    EXPECT_TRUE(read(4000, 512));
    EXPECT_TRUE(read(4096, 512));
    transfers().completeAll();
    EXPECT_EQ(receiver.seen()[0].bytes, 96U);
    EXPECT_TRUE(receiver.seen()[1].succeeded);
    EXPECT_EQ(receiver.seen()[1].bytes, 0U);
}

TEST_F(FakeTransfersTest, AReadSeesTheContentsAtItsEnd)
{
    EXPECT_TRUE(read(0, 3));
    EXPECT_TRUE(file->write(0, "new", 3, nullptr));
    transfers().completeNext();
    EXPECT_EQ(buffer.substr(0, 3), "new");
}

TEST_F(FakeTransfersTest, AWriteStoresAtItsEnd)
{
    const std::string data = "0123456789";
    EXPECT_TRUE(file->asyncWrite(4090, data.data(), data.size(), context()));
    EXPECT_FALSE(transfers().held()[0].isRead);
    EXPECT_EQ(os.files().size(L"/m/a"), 4096U);
    transfers().completeNext();
    EXPECT_EQ(os.files().contents(L"/m/a").substr(4089), "x0123456789");
    EXPECT_TRUE(file->asyncWrite(0, data.data(), data.size(), context()));
    EXPECT_TRUE(file->asyncWrite(100, data.data(), data.size(), context()));
    transfers().completeShort(0, 4);
    transfers().failNext(9);
    EXPECT_EQ(os.files().contents(L"/m/a").substr(0, 6), "0123xx");
    EXPECT_EQ(os.files().contents(L"/m/a").substr(100, 2), "xx");
}

TEST_F(FakeTransfersTest, AreRefusedWithoutAPortAndInOtherModes)
{
    char byte = 0;
    EXPECT_FALSE(open()->asyncRead(0, &byte, 1, context()));
    EXPECT_EQ(lastError(), errorFromErrno(ENOTCONN));
    const auto plain = open(3, os::modePlain);
    EXPECT_FALSE(port->attach(plain));
    EXPECT_FALSE(plain->asyncWrite(0, &byte, 1, context()));
    EXPECT_FALSE(read(std::numeric_limits<std::uint64_t>::max(), 1));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
    file->close();
    EXPECT_FALSE(read(0, 1));
    EXPECT_EQ(lastError(), errorFromErrno(EBADF));
    EXPECT_EQ(transfers().accepted(), 0U);
}

TEST_F(FakeTransfersTest, AreRefusedAsPlannedWithoutACompletion)
{
    os.faults().failNext(Op::asyncRead, errorFromErrno(EAGAIN));
    EXPECT_FALSE(read(0, 1));
    EXPECT_EQ(lastError(), errorFromErrno(EAGAIN));
    EXPECT_TRUE(read(0, 1));
    EXPECT_EQ(transfers().completeAll(), 1U);
    os.faults().failNext(Op::completion, errorFromErrno(EIO));
    EXPECT_TRUE(read(0, 1));
    transfers().completeNext();
    EXPECT_FALSE(receiver.seen()[1].succeeded);
    EXPECT_EQ(receiver.seen()[1].lastError, errorFromErrno(EIO));
}

TEST_F(FakeTransfersTest, AWriteThroughAHandleForReadingFailsAtItsEnd)
{
    const auto readOnly = open(1);
    EXPECT_TRUE(port->attach(readOnly));
    EXPECT_TRUE(readOnly->asyncWrite(0, "abc", 3, context()));
    transfers().completeNext();
    EXPECT_FALSE(receiver.seen()[0].succeeded);
    EXPECT_EQ(receiver.seen()[0].lastError, errorFromErrno(EBADF));
    EXPECT_EQ(os.files().contents(L"/m/a")[0], 'x');
}

TEST_F(FakeTransfersTest, FinishAfterTheirHandleIsGone)
{
    EXPECT_TRUE(read(0, 10));
    file.reset();
    EXPECT_EQ(os.live().files, 0U);
    EXPECT_TRUE(transfers().completeNext());
    EXPECT_EQ(receiver.seen()[0].bytes, 10U);
    EXPECT_EQ(buffer.substr(0, 10), std::string(10, 'x'));
}

TEST_F(FakeTransfersTest, KeepTheirContextUntilTheCompletionHasRun)
{
    EXPECT_TRUE(read(0, 10));
    EXPECT_EQ(os.live().contexts, 1U);
    unsigned inside = 0;
    receiver.inside = [&] { inside = os.live().contexts; };
    transfers().completeNext();
    EXPECT_EQ(inside, 1U);
    EXPECT_EQ(os.live().contexts, 0U);
}

TEST_F(FakeTransfersTest, AContextServesOneTransferAfterTheOther)
{
    const auto one = context(this);
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(file->asyncRead(0, buffer.data(), 1, one));
        EXPECT_TRUE(transfers().completeNext());
    }
    EXPECT_EQ(receiver.seen().size(), 3U);
}

TEST_F(FakeTransfersTest, ACompletionMayStartTheNextTransfer)
{
    int left = 3;
    receiver.inside = [&] {
        if (--left > 0) {
            EXPECT_TRUE(read(0, 1));
        }
    };
    EXPECT_TRUE(read(0, 1));
    EXPECT_EQ(transfers().completeAll(), 1U);
    EXPECT_EQ(transfers().heldCount(), 1U);
    while (transfers().completeNext()) {
    }
    EXPECT_EQ(transfers().delivered(), 3U);
}

TEST_F(FakeTransfersTest, ABlockingCompletionIsStartedAndJoined)
{
    const Qz::Ptr<iThreadEvent> gate = OS()->getThreadServices()->createEvent(1, 0, nullptr);
    receiver.inside = [&] { gate->wait(); };
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(read(0, 1));
    EXPECT_TRUE(transfers().startNext());
    EXPECT_EQ(transfers().startAll(), 4U);
    // More of them than the port had threads: it adds some, for one may wait for the other.
    ASSERT_TRUE(os.clock().awaitOthersWaiting(5));
    EXPECT_EQ(transfers().inDelivery(), 5U);
    EXPECT_EQ(os.ports().records()[0].threads, 5U);
    gate->set();
    transfers().join();
    EXPECT_EQ(transfers().delivered(), 5U);
    EXPECT_EQ(transfers().inDelivery(), 0U);
}

TEST_F(FakeTransfersTest, WhileACompletionBlocksTheDrivingThreadMovesTheTime)
{
    receiver.inside = [&] { OS()->getClock()->sleep(100); };
    EXPECT_TRUE(read(0, 1));
    EXPECT_TRUE(transfers().startNext());
    ASSERT_TRUE(os.clock().awaitOthersWaiting(1));
    OS()->getClock()->sleep(100);
    transfers().join();
    EXPECT_EQ(transfers().delivered(), 1U);
}

TEST_F(FakeTransfersTest, AutomaticOnesEndByThemselvesBeforeTimePasses)
{
    transfers().setAutomatic(true);
    const Qz::Ptr<iThreadEvent> done = OS()->getThreadServices()->createEvent(0, 0, nullptr);
    receiver.inside = [&] { done->set(); };
    EXPECT_TRUE(read(0, 1));
    EXPECT_TRUE(done->wait(4000));
    EXPECT_EQ(os.clock().waits()[0].tookMs, 0);
    EXPECT_NE(receiver.seen()[0].thread, std::this_thread::get_id());
    EXPECT_EQ(transfers().heldCount(), 0U);
}

TEST_F(FakeTransfersTest, AnAutomaticOneIsNotWaitedForWhenItWaitsItself)
{
    transfers().setAutomatic(true);
    const Qz::Ptr<iThreadEvent> gate = OS()->getThreadServices()->createEvent(0, 0, nullptr);
    receiver.inside = [&] { gate->wait(); };
    EXPECT_TRUE(read(0, 1));
    os.clock().after(1000, [&] { gate->set(); });
    const Qz::Ptr<iThreadEvent> never = OS()->getThreadServices()->createEvent(0, 0, nullptr);
    EXPECT_FALSE(never->wait(4000));
    transfers().join();
    EXPECT_EQ(transfers().delivered(), 1U);
}

TEST_F(FakeTransfersTest, ASynchronousCallerIsServedThroughTheIdleHandler)
{
    const Qz::Ptr<iThreadEvent> done = OS()->getThreadServices()->createEvent(1, 0, nullptr);
    receiver.inside = [&] { done->set(); };
    bool started = false;
    os.clock().setIdleHandler([&] {
        if (!started)
            return started = read(0, 16);
        return transfers().completeAll() != 0;
    });
    done->wait();
    EXPECT_EQ(buffer.substr(0, 16), std::string(16, 'x'));
}

TEST_F(FakeTransfersTest, APlannedActionEndsOneDuringASleep)
{
    EXPECT_TRUE(read(0, 16));
    os.clock().after(250, [&] { transfers().completeNext(); });
    int sleeps = 0;
    while (transfers().delivered() == 0 && ++sleeps < 29)
        OS()->getClock()->sleep(100);
    EXPECT_EQ(sleeps, 3);
}

TEST_F(FakeTransfersTest, TheLogTellsStartBeforeEnd)
{
    transfers().setAutomatic(true);
    EXPECT_TRUE(read(0, 16));
    transfers().join();
    EXPECT_EQ(os.log().lines({Op::asyncRead, Op::completion}),
              (Lines{"asyncRead /m/a 0+16", "completion /m/a 0+16"}));
}

TEST_F(FakeTransfersTest, TheEndOfThePortEndsWhatIsHeld)
{
    EXPECT_TRUE(read(0, 16));
    EXPECT_TRUE(read(16, 16));
    port.reset();
    EXPECT_EQ(receiver.seen().size(), 2U);
    EXPECT_TRUE(receiver.seen()[1].succeeded);
    EXPECT_FALSE(read(0, 1));
    EXPECT_EQ(lastError(), errorFromErrno(ESHUTDOWN));
    char byte = 0;
    EXPECT_TRUE(file->read(0, &byte, 1, nullptr));
    EXPECT_EQ(os.live().ports, 0U);
}

TEST_F(FakeTransfersTest, TheEndOfThePortMayFailWhatIsHeld)
{
    transfers().setDrainOutcome({errorFromErrno(ECANCELED), 0});
    EXPECT_TRUE(read(0, 16));
    port.reset();
    ASSERT_EQ(receiver.seen().size(), 1U);
    EXPECT_EQ(receiver.seen()[0].lastError, errorFromErrno(ECANCELED));
}

TEST_F(FakeTransfersTest, TheEndOfAPortLeavesTheTransfersOfOtherPorts)
{
    CompletionPortHandler other("FsysWrites", receiver.command(), 3, 3, 3, 3);
    const auto second = open();
    EXPECT_TRUE(other.attach(second));
    EXPECT_TRUE(second->asyncRead(0, buffer.data(), 1, context()));
    port.reset();
    EXPECT_EQ(transfers().heldCount(), 1U);
    EXPECT_TRUE(transfers().completeNext());
    EXPECT_EQ(receiver.seen()[0].threadName, "FsysWrites");
}

TEST_F(FakeTransfersTest, APortMayEndOnItsOwnThread)
{
    receiver.inside = [&] { port.reset(); };
    EXPECT_TRUE(read(0, 16));
    EXPECT_TRUE(transfers().completeNext());
    EXPECT_EQ(transfers().delivered(), 1U);
    EXPECT_FALSE(read(0, 1));
}

TEST_F(FakeTransfersTest, AHandleIsAttachedOnce)
{
    EXPECT_FALSE(port->attach(file));
    EXPECT_FALSE(port->attach(Qz::Ptr<iFile>()));
    const auto closed = open();
    closed->close();
    EXPECT_FALSE(port->attach(closed));
    os.faults().failNext(Op::attach, 3);
    const auto another = open();
    EXPECT_FALSE(port->attach(another));
    EXPECT_TRUE(port->attach(another));
}

TEST_F(FakeTransfersTest, PortsAreRecordedWithNamesNumbersAndEnds)
{
    auto other = std::make_unique<CompletionPortHandler>("FsysWrites", receiver.command(), 3, 4, 5, 6);
    const std::vector<fake::PortRecord> records = os.ports().records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].name, "FsysReads");
    EXPECT_EQ(records[0].threads, 3U);
    EXPECT_EQ(records[1].minThreads, 3);
    EXPECT_EQ(records[1].maxThreads, 4);
    EXPECT_EQ(records[1].concurrency, 5);
    EXPECT_EQ(records[1].priority, 6);
    EXPECT_EQ(os.live().ports, 2U);
    port.reset();
    EXPECT_FALSE(os.ports().records()[0].alive);
    EXPECT_TRUE(os.ports().records()[1].alive);
    other.reset();
    EXPECT_EQ(os.log().lines({Op::createPort, Op::shutDownPort}),
              (Lines{"createPort FsysReads", "createPort FsysWrites", "shutDownPort FsysReads",
                     "shutDownPort FsysWrites"}));
}

TEST(FakeTransfers, WhatIsHeldAtTheEndOfThePlatformIsDroppedUnreported)
{
    FakeReceiver receiver;
    std::unique_ptr<CompletionPortHandler> port;
    Qz::Ptr<iFile> file;
    char byte = 0;
    {
        FakeOS os;
        ScopedOS installed(os);
        os.files().addFile(L"/a", "x");
        port = std::make_unique<CompletionPortHandler>("left", receiver.command(), 3, 3, 3, 3);
        file = os.getFileManager()->open(L"/a", 1, 0, 4, 2);
        EXPECT_TRUE(port->attach(file));
        EXPECT_TRUE(file->asyncRead(0, &byte, 1, os.getFileManager()->createAsyncContext(nullptr)));
    }
    EXPECT_FALSE(file->asyncRead(0, &byte, 1, nullptr));
    port.reset();
    EXPECT_TRUE(receiver.seen().empty());
}

TEST(FakeTransfers, ManyThreadsSeeEachTransferEndOnce)
{
    FakeOS os(FakeOS::Mode::realThreads);
    ScopedOS installed(os);
    os.files().addFile(L"/a", std::string(512, 'x'));
    FakeReceiver receiver;
    {
        CompletionPortHandler port("many", receiver.command(), 3, 3, 3, 3);
        const auto file = os.getFileManager()->open(L"/a", 1, 0, 4, 2);
        ASSERT_TRUE(port.attach(file));
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&os, file] {
                std::vector<std::string> buffers(250, std::string(512, '-'));
                for (std::string& buffer : buffers)
                    EXPECT_TRUE(file->asyncRead(0, buffer.data(), 512,
                                                os.getFileManager()->createAsyncContext(&buffer)));
                os.transfers().join();
                for (const std::string& buffer : buffers)
                    EXPECT_EQ(buffer, std::string(512, 'x'));
            });
        for (std::thread& thread : threads)
            thread.join();
    }
    EXPECT_EQ(receiver.seen().size(), 1000U);
    EXPECT_TRUE(os.transfers().awaitDelivered(1000));
    EXPECT_EQ(os.live(), fake::Live{});
}

TEST(FakeTransfersDeathTest, AContextUsedTwiceAtATimeStopsTheTest)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    FakeOS os;
    ScopedOS installed(os);
    os.files().addFile(L"/a", "x");
    FakeReceiver receiver;
    char byte = 0;  // outlives the port, whose end completes what is held
    CompletionPortHandler port("twice", receiver.command(), 3, 3, 3, 3);
    const auto file = os.getFileManager()->open(L"/a", 1, 0, 4, 2);
    ASSERT_TRUE(port.attach(file));
    const auto context = os.getFileManager()->createAsyncContext(nullptr);
    EXPECT_TRUE(file->asyncRead(0, &byte, 1, context));
    EXPECT_DEATH(static_cast<void>(file->asyncRead(0, &byte, 1, context)), "two transfers at a time");
}

}  // namespace
