// The poll threads, and what a finished transfer does.

#include "EngineFixture.h"
#include "fsys/DiskManager.h"
#include "fsys/MediaDrive.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

#include <atomic>
#include <new>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class PollTest : public EngineTest
{
};

class CompletionTest : public EngineTest
{
protected:
    static unsigned ask(FsysFile* file, long position, unsigned bytes, Calls& calls)
    {
        return file->DirectRead(position, bytes, false, &Calls::record, calls.context());
    }
    static unsigned put(FsysFile* file, unsigned bytes, Calls& calls)
    {
        Qz::Ptr<iMemHolder> data(new TestData(pattern(bytes)));
        return file->DirectWrite(data, false, &Calls::record, calls.context(), false);
    }
};

// A file that is known to the registry as a volume of its own: the share that a network drive stands for is
// the file itself, which is how a look-up by a file's path finds a volume.
class SpeedTest : public CompletionTest
{
protected:
    SpeedTest()
    {
        os.files().addShare(L"\\\\fakehost\\MEDIA", L"/m/Material/speed.mov");
        os.files().addFile(L"/m/Material/speed.mov", pattern(1 << 16));
        os.files().addFolder(L"\\\\fakehost\\MEDIA");
        os.files().setWritable(L"\\\\fakehost\\MEDIA", true);
        fake::DriveProperties network;
        network.type = iDiskDrive::eNetwork;
        network.root = L"\\\\fakehost\\MEDIA/";
        os.files().addDrive(network);
        DriveId id;
        EXPECT_TRUE(DiskManager::addMaterialVolume(L"\\\\fakehost\\MEDIA", id, false));
        volume = DiskManager::getVolume(LightweightString<wchar_t>(L"/m/Material/speed.mov"));
    }
    ~SpeedTest() override
    {
        volume.reset();
        DiskManager::deInit();
        FsysSetWriteSpeedWarning(true);
    }
    // One read or write that takes ms; whether the volume is slow afterwards.
    bool slowAfterRead(unsigned bytes, double ms, std::uint32_t queued = 0)
    {
        FsysFile* const file = open(L"/m/Material/speed.mov");
        Calls calls;
        ask(file, 0, bytes, calls);
        FsysFileTestAccess::setDeferred(*file, 1);  // so that the pass leaves the volume's flag alone
        readPass();
        os.clock().advance(ms);
        if (queued != 0)
            FsysFileTestAccess::setReadOutstanding(*file, queued);
        os.transfers().completeNext();
        FsysFileTestAccess::setReadOutstanding(*file, 0);
        const bool slow = volume->isSlow();
        FsysClose(file, nullptr);
        return slow;
    }

    Qz::Ptr<MediaDrive> volume;
};

}  // namespace

TEST_F(PollTest, ThreadsAndPortsAreMadeWithTheirNamesAndNumbers)
{
    const auto threads = os.threads().threads();
    ASSERT_THAT(threads, SizeIs(2));
    for (const fake::ThreadRecord& thread : threads) {
        EXPECT_EQ("fsys poll", thread.name);
        EXPECT_EQ(&FsysPoll::StartPolling, thread.body);
        EXPECT_EQ(0U, thread.stackSize);
        EXPECT_EQ(1, thread.priority);
        EXPECT_EQ(0U, thread.flags);
    }
    openForReading(pattern(1024));
    const auto ports = os.ports().records();
    ASSERT_THAT(ports, SizeIs(2));
    EXPECT_EQ("FsysReads", ports[0].name);
    EXPECT_EQ("FsysWrites", ports[1].name);
    for (const fake::PortRecord& port : ports)
        EXPECT_THAT((std::vector<int>{port.minThreads, port.maxThreads, port.concurrency, port.priority}),
                    ElementsAre(3, 3, 3, 3));
}

TEST_F(PollTest, TheKickEventResetsItselfAndKicksAreRemembered)
{
    const auto events = os.threads().events();
    ASSERT_GE(events.size(), 2U);
    for (unsigned i = 0; i < 2; ++i) {
        EXPECT_EQ(0U, events[i].manualReset);
        EXPECT_EQ(0U, events[i].initiallySignalled);
        EXPECT_FALSE(events[i].hasName);
    }
    FsysTestAccess::readPoll().Kick();
    FsysTestAccess::readPoll().Kick();
    EXPECT_TRUE(os.threads().events()[0].signalled);
}

TEST_F(PollTest, APassVisitsFilesInListOrderUnderTheListsLock)
{
    os.files().addFile(L"/m/a.mov", pattern(1024));
    os.files().addFile(L"/m/b.mov", pattern(1024));
    Calls calls;
    FsysFile* const b = open(L"/m/b.mov");
    FsysFile* const a = open(L"/m/a.mov");
    a->DirectRead(0, 512, false, &Calls::record, calls.context());
    b->DirectRead(0, 512, false, &Calls::record, calls.context());
    EXPECT_EQ(1U, readPass());
    const auto held = os.transfers().held();
    ASSERT_THAT(held, SizeIs(2));
    EXPECT_EQ(L"/m/b.mov", held[0].path);
    EXPECT_EQ(L"/m/a.mov", held[1].path);
    os.transfers().completeAll();
}

TEST_F(PollTest, APassHoldsTheListsLock)
{
    struct Checker : public iObject
    {
        bool lockWasFree = true;
    };
    const Qz::Ptr<Checker> checker(new Checker);
    FsysFile* const file = openForReading(pattern(4096));
    os.faults().failNext(fake::Op::asyncRead, errorFromErrno(EIO));
    Qz::Ptr<iObject> context = checker;
    // A start that fails calls in the middle of the pass.
    file->DirectRead(
        0, 512, false,
        [](Qz::Ptr<iObject>& self, Qz::Ptr<iMemHolder>&, RequestStatus) {
            auto& me = static_cast<Checker&>(*self);
            std::thread([&me] {
                CriticalSection& lock = FsysTestAccess::readFilesLock();
                me.lockWasFree = lock.try_lock();
                if (me.lockWasFree)
                    lock.unlock();
            }).join();
        },
        context);
    readPass();
    EXPECT_FALSE(checker->lockWasFree);
}

TEST_F(CompletionTest, CallersAreCalledOnThePortsThreads)
{
    FsysFile* const reader = openForReading(pattern(4096));
    FsysFile* const writer = openForWriting();
    Calls reads;
    Calls writes;
    ask(reader, 0, 512, reads);
    put(writer, 512, writes);
    readPass();
    writePass();
    os.transfers().completeAll();
    EXPECT_EQ("FsysReads", reads.last().threadName);
    EXPECT_EQ("FsysWrites", writes.last().threadName);
}

TEST_F(CompletionTest, CallersAreCalledWithoutAnyEngineLock)
{
    struct Checker : public iObject
    {
        FsysFile* file = nullptr;
        unsigned answer = 0;
    };
    const Qz::Ptr<Checker> checker(new Checker);
    checker->file = openForReading(pattern(65536));
    Qz::Ptr<iObject> context = checker;
    checker->file->DirectRead(
        0, 512, false,
        [](Qz::Ptr<iObject>& self, Qz::Ptr<iMemHolder>&, RequestStatus) {
            auto& me = static_cast<Checker&>(*self);
            // Another thread queues on the same file meanwhile and passes over the list.
            std::thread([&me] {
                Qz::Ptr<iObject> none;
                me.answer = me.file->DirectRead(20000, 512, false, nullptr, none);
                FsysTestAccess::readPoll().Polltasks();
            }).join();
        },
        context);
    readPass();
    os.transfers().completeNext();
    EXPECT_EQ(1U, checker->answer);
    EXPECT_EQ(1U, os.transfers().heldCount());
}

TEST_F(CompletionTest, AStartThatFailsCallsUnderTheFilesLock)
{
    struct Checker : public iObject
    {
        FsysFile* file = nullptr;
        bool lockWasFree = true;
        std::thread::id thread;
    };
    const Qz::Ptr<Checker> checker(new Checker);
    checker->file = openForReading(pattern(4096));
    os.faults().failNext(fake::Op::asyncRead, errorFromErrno(EIO));
    Qz::Ptr<iObject> context = checker;
    checker->file->DirectRead(
        0, 512, false,
        [](Qz::Ptr<iObject>& self, Qz::Ptr<iMemHolder>&, RequestStatus) {
            auto& me = static_cast<Checker&>(*self);
            me.thread = std::this_thread::get_id();
            std::thread([&me] {
                CriticalSection& lock = FsysFileTestAccess::lock(*me.file);
                me.lockWasFree = lock.try_lock();
                if (me.lockWasFree)
                    lock.unlock();
            }).join();
        },
        context);
    readPass();
    EXPECT_EQ(std::this_thread::get_id(), checker->thread);
    EXPECT_FALSE(checker->lockWasFree);
}

TEST_F(CompletionTest, ASuccessfulWriteLetsGoOfItsDataAndLowersTheCounters)
{
    FsysFile* const file = openForWriting();
    bool destroyed = false;
    {
        Qz::Ptr<iMemHolder> data(new TestData(pattern(512), &destroyed));
        Qz::Ptr<iObject> none;
        file->DirectWrite(data, false, nullptr, none, false);
    }
    writePass();
    EXPECT_FALSE(destroyed);
    testing::internal::CaptureStdout();
    os.transfers().completeAll();
    EXPECT_EQ("assertion failed false at ole/fsys/FileRequest line 521\n",
              testing::internal::GetCapturedStdout());
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(0U, file->writeBytesOutstanding());
    EXPECT_EQ(FileRequest::COMPLETE, FsysFileTestAccess::writes(*file)[0]->status());
}

TEST_F(CompletionTest, AFunctionThatThrowsHurtsNobodyElse)
{
    FsysFile* const file = openForReading(pattern(8192));
    FsysSetImmediateRequestHandling(false);
    Calls first;
    Calls last;
    Calls none;
    const auto throws = [](Qz::Ptr<iObject>&, Qz::Ptr<iMemHolder>&, RequestStatus) {
        throw std::bad_alloc();
    };
    const auto askAll = [&] {
        file->DirectRead(0, 512, true, &Calls::record, first.context());
        file->DirectRead(512, 512, true, throws, none.context());
        file->DirectRead(1024, 512, true, &Calls::record, last.context());
        readPass();
    };
    askAll();
    os.transfers().completeNext();
    EXPECT_EQ(pattern(8192).substr(0, 512), first.last().bytes);
    EXPECT_EQ(pattern(8192).substr(1024, 512), last.last().bytes);
    EXPECT_THAT(logged.logs(), ElementsAre("fsys: a completion function has thrown an exception\n"));

    FsysFile* const failing = openForReading(pattern(8192));
    failing->DirectRead(0, 512, false, throws, none.context());
    readPass();
    os.transfers().failNext(errorFromErrno(EIO));
    EXPECT_THAT(logged.logs(), SizeIs(2));
    FsysSetImmediateRequestHandling(true);
}

TEST_F(CompletionTest, AFailedTransferTellsItsCallersAndLeavesItsBytesCounted)
{
    FsysFile* const file = openForReading(pattern(4096));
    Calls calls;
    ask(file, 0, 512, calls);
    readPass();
    os.transfers().failNext(errorFromErrno(EIO));
    ASSERT_EQ(1U, calls.count());
    EXPECT_EQ(eRequestError, calls.last().status);
    EXPECT_FALSE(calls.last().hasData);
    EXPECT_EQ(errorFromErrno(EIO), calls.last().error);
    EXPECT_EQ(512U, file->readBytesOutstanding());
    EXPECT_EQ(512U, theFsys.load()->readBytesOutstanding);
    EXPECT_EQ(FileRequest::FAILED, FsysFileTestAccess::reads(*file)[0]->status());
}

TEST_F(CompletionTest, AFinishedReadLetsGoOfItsCallersAndAFailedOneNotBeforeTheClose)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls served;
    Calls failed;
    ask(file, 0, 512, served);
    ask(file, 20000, 512, failed);
    readPass();
    os.transfers().completeNext();
    os.transfers().failNext(errorFromErrno(EIO));
    ASSERT_THAT(FsysFileTestAccess::reads(*file), SizeIs(2));
    EXPECT_EQ(0U, served.references());
    EXPECT_EQ(1U, failed.references());
    FsysClose(file, nullptr);
    EXPECT_EQ(0U, failed.references());
}

TEST_F(CompletionTest, CallersAreCalledBeforeTheCountersAreLowered)
{
    struct Looker : public iObject
    {
        FsysFile* file = nullptr;
        std::vector<std::uint32_t> outstanding;
        static void function(Qz::Ptr<iObject>& self, Qz::Ptr<iMemHolder>&, RequestStatus)
        {
            auto& me = static_cast<Looker&>(*self);
            me.outstanding = {me.file->readBytesOutstanding(), me.file->writeBytesOutstanding()};
        }
    };
    const Qz::Ptr<Looker> looker(new Looker);
    Qz::Ptr<iObject> context = looker;
    looker->file = openForReading(pattern(4096));
    looker->file->DirectRead(0, 512, false, &Looker::function, context);
    readPass();
    os.transfers().completeNext();
    EXPECT_THAT(looker->outstanding, ElementsAre(512U, 0U));
    EXPECT_EQ(0U, looker->file->readBytesOutstanding());

    looker->file = openForWriting();
    Qz::Ptr<iMemHolder> data(new TestData(pattern(1024)));
    looker->file->DirectWrite(data, false, &Looker::function, context, false);
    writePass();
    os.transfers().completeNext();
    EXPECT_THAT(looker->outstanding, ElementsAre(0U, 1024U));
    EXPECT_EQ(0U, looker->file->writeBytesOutstanding());
}

TEST_F(CompletionTest, AFailureWithoutARequestIsReported)
{
    openForReading(pattern(1024));
    IOCompletionCommand command(FsysTestAccess::receiver());
    CompletionPortHandlerCallbackContext failed(false, 0, nullptr);
    testing::internal::CaptureStdout();
    EXPECT_EQ(1, command.execute(failed));
    EXPECT_EQ("assertion failed false at ole/fsys/IoCompletion line 163\n",
              testing::internal::GetCapturedStdout());
}

TEST_F(CompletionTest, FortyOneFailedReadsFillTheListForGood)
{
    FsysFile* const file = openForReading(pattern(1 << 20));
    Calls calls;
    for (long i = 0; i < 41; ++i)
        EXPECT_EQ(1U, ask(file, i * 8192, 512, calls));
    readPass();
    os.transfers().failAll(errorFromErrno(EIO));
    readPass();
    EXPECT_EQ(0U, ask(file, 0, 512, calls));
    EXPECT_EQ(8U, FsysGetLastError());
}

TEST_F(CompletionTest, ARequestDestroyedBeforeItsEndSettlesTheEnginesCounters)
{
    FsysFile* const file = openForReading(pattern(4096));
    Calls calls;
    ask(file, 0, 512, calls);
    readPass();
    file->ClearMemoryRefs();
    EXPECT_EQ(0U, calls.references());
    os.transfers().completeAll();
    EXPECT_EQ(0U, calls.count());
    EXPECT_EQ(0U, theFsys.load()->readBytesOutstanding);
    EXPECT_EQ(0U, os.live().pages);
}

TEST_F(SpeedTest, TheVolumeOfAFileIsFoundThroughItsLocalShare)
{
    ASSERT_TRUE(volume);
    EXPECT_EQ(L"/m/Material/speed.mov", volume->getLocalShare());
}

TEST_F(SpeedTest, ALargeReadBelowTheRateMarksTheVolumeSlow)
{
    EXPECT_TRUE(slowAfterRead(20480, 100));
    EXPECT_FALSE(slowAfterRead(9728, 50));
    // Bytes that were transferred count, not those asked for.
    os.files().addFile(L"/m/Material/speed.mov", pattern(10000));
    EXPECT_FALSE(slowAfterRead(20480, 1000));
    os.files().addFile(L"/m/Material/speed.mov", pattern(10001));
    EXPECT_TRUE(slowAfterRead(20480, 1000));
}

TEST_F(SpeedTest, TheRateLimitItselfIsNotSlow)
{
    EXPECT_FALSE(slowAfterRead(38400, 128));
    EXPECT_TRUE(slowAfterRead(38400, 128.5));
}

TEST_F(SpeedTest, ATransferThatTookNoTimeIsNotSlow) { EXPECT_FALSE(slowAfterRead(20480, 0)); }

TEST_F(SpeedTest, ALongQueueOfReadsMarksTheVolumeSlow)
{
    EXPECT_FALSE(slowAfterRead(512, 1, 1000999));
    EXPECT_TRUE(slowAfterRead(512, 1, 1001000));
}

TEST_F(SpeedTest, AFastTransferClearsTheFlag)
{
    volume->setSlow(true);
    EXPECT_FALSE(slowAfterRead(512, 1));
}

TEST_F(SpeedTest, APassOfAFileWithoutDeferredRequestsClearsTheFlag)
{
    FsysFile* const file = open(L"/m/Material/speed.mov");
    volume->setSlow(true);
    FsysFileTestAccess::setDeferred(*file, 1);
    readPass();
    EXPECT_TRUE(volume->isSlow());
    readPass();
    EXPECT_FALSE(volume->isSlow());
}

TEST_F(SpeedTest, ASlowWriteIsReportedAsSuccessWithoutDataAndCode9)
{
    FsysFile* const file = open(L"/m/Material/speed.mov", fsysOpenWrite);
    Calls calls;
    put(file, 20480, calls);
    writePass();
    os.clock().advance(100);
    testing::internal::CaptureStdout();
    os.transfers().completeNext();
    EXPECT_EQ("assertion failed false at ole/fsys/FileRequest line 537\n",
              testing::internal::GetCapturedStdout());
    EXPECT_TRUE(volume->isSlow());
    EXPECT_EQ(9U, FsysGetLastError());
    EXPECT_EQ(eRequestSuccess, calls.last().status);
    EXPECT_FALSE(calls.last().hasData);
    EXPECT_EQ(FileRequest::COMPLETE, FsysFileTestAccess::writes(*file)[0]->status());
    EXPECT_EQ(0U, file->writeBytesOutstanding());
}

TEST_F(SpeedTest, ALongQueueOfWritesCountsAsSlow)
{
    FsysFile* const file = open(L"/m/Material/speed.mov", fsysOpenWrite);
    for (const auto& [queued, slow] :
         {std::pair(1500999U, false), std::pair(1501000U, true), std::pair(1500999U, false)}) {
        Calls calls;
        put(file, 512, calls);
        FsysFileTestAccess::setDeferred(*file, 1);
        writePass();
        os.clock().advance(1);
        FsysFileTestAccess::setWriteOutstanding(*file, queued);
        testing::internal::CaptureStdout();
        os.transfers().completeNext();
        testing::internal::GetCapturedStdout();
        FsysFileTestAccess::setWriteOutstanding(*file, 0);
        EXPECT_EQ(slow, volume->isSlow()) << queued;
        EXPECT_EQ(!slow, calls.last().hasData) << queued;
    }
}

TEST_F(SpeedTest, WithoutTheWarningSlowWritesAreNotMarked)
{
    FsysSetWriteSpeedWarning(false);
    FsysFile* const file = open(L"/m/Material/speed.mov", fsysOpenWrite);
    volume->setSlow(true);
    FsysError = 4711;
    Calls calls;
    put(file, 20480, calls);
    FsysFileTestAccess::setDeferred(*file, 1);
    writePass();
    os.clock().advance(100);
    os.transfers().completeNext();
    EXPECT_FALSE(volume->isSlow());
    EXPECT_EQ(4711U, FsysGetLastError());
    EXPECT_TRUE(calls.last().hasData);
}
