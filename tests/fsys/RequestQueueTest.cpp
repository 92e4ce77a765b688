// The request lists: merging, order, limits, eviction, and finished reads as a cache.

#include "EngineFixture.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

#include <array>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Access = FileRequestTestAccess;

namespace {

class RequestQueueTest : public EngineTest
{
protected:
    // What the platform was asked for, "position+length" each.
    std::vector<std::string> issued()
    {
        std::vector<std::string> transfers;
        for (const auto& transfer : os.transfers().held())
            transfers.push_back(std::to_string(transfer.position) + "+" + std::to_string(transfer.length));
        return transfers;
    }
    static unsigned ask(FsysFile* file, long position, unsigned bytes, Calls& calls, bool coalescable = true)
    {
        return file->DirectRead(position, bytes, coalescable, &Calls::record, calls.context());
    }
    // A write request at position, as the direct way makes it, queued.
    static unsigned queueWrite(FsysFile* file, unsigned long position, const Qz::Ptr<iMemHolder>& data,
                               Calls& calls, bool coalescable = false)
    {
        auto* const request = new FileRequest(false, data->getSize(), position, coalescable, false, data,
                                              file, &Calls::record, calls.context());
        const unsigned result = file->QueueWriteRequest(request);
        if (result != 1)
            FileRequest::destroy(request);
        return result;
    }
    static Qz::Ptr<iMemHolder> sector(unsigned seed = 1)
    {
        return Qz::Ptr<iMemHolder>(new TestData(pattern(512, seed)));
    }
    [[nodiscard]] std::size_t kicks() { return os.log().count(fake::Op::setEvent); }
    void forgetCalls() { os.log().clear(); }
    static void defer() { FsysSetImmediateRequestHandling(false); }
    ~RequestQueueTest() override { FsysSetImmediateRequestHandling(true); }
};

std::string bytesOf(const std::string& all, std::size_t from, std::size_t count)
{
    return all.substr(from, count);
}

}  // namespace

TEST_F(RequestQueueTest, NeighbouringReadsBridgeAHoleOf4096Bytes)
{
    defer();
    const std::string all = pattern(65536);
    FsysFile* const file = openForReading(all);
    Calls first;
    Calls second;
    ask(file, 0, 4096, first);
    ask(file, 8192, 4096, second);
    readPass();
    EXPECT_THAT(issued(), ElementsAre("0+12288"));
    os.transfers().completeAll();
    EXPECT_EQ(bytesOf(all, 0, 4096), first.last().bytes);
    EXPECT_EQ(bytesOf(all, 8192, 4096), second.last().bytes);
}

TEST_F(RequestQueueTest, AHoleOf4097BytesIsNotBridged)
{
    defer();
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    ask(file, 0, 4096, calls);
    ask(file, 8193, 4096, calls);
    readPass();
    EXPECT_THAT(issued(), SizeIs(2));
}

TEST_F(RequestQueueTest, TheCoalesceLengthCountsTheBytesAskedForNotTheHole)
{
    defer();
    FsysFile* const file = openForReading(pattern(65536), 8192);
    Calls calls;
    ask(file, 0, 4096, calls);
    ask(file, 8192, 4096, calls);
    readPass();
    EXPECT_THAT(issued(), ElementsAre("0+12288"));
    os.transfers().completeAll();
    FsysSetCoalesceLength(file, 8191);
    ask(file, 20480, 4096, calls);
    ask(file, 28672, 4096, calls);
    readPass();
    EXPECT_THAT(issued(), ElementsAre("20480+4096", "28672+4096"));
}

TEST_F(RequestQueueTest, ARequestGrowsToTheFrontAndItsEarlierCallersMoveUp)
{
    defer();
    const std::string all = pattern(65536);
    FsysFile* const file = openForReading(all);
    Calls later;
    Calls earlier;
    ask(file, 8192, 4096, later);
    ask(file, 0, 4096, earlier);
    EXPECT_EQ(8192U, Access::completions(*FsysFileTestAccess::reads(*file)[0])[0].bufferOffset);
    readPass();
    EXPECT_THAT(issued(), ElementsAre("0+12288"));
    os.transfers().completeAll();
    EXPECT_EQ(bytesOf(all, 8192, 4096), later.last().bytes);
    EXPECT_EQ(bytesOf(all, 0, 4096), earlier.last().bytes);
}

TEST_F(RequestQueueTest, UnalignedMergedReadersGetTheirOwnBytes)
{
    defer();
    const std::string all = pattern(65536);
    FsysFile* const file = openForReading(all);
    Calls first;
    Calls second;
    Calls third;
    ask(file, 1003, 100, first);
    ask(file, 700, 50, second);
    ask(file, 1500, 333, third);
    readPass();
    EXPECT_THAT(issued(), ElementsAre("512+1536"));
    os.transfers().completeAll();
    EXPECT_EQ(bytesOf(all, 1003, 100), first.last().bytes);
    EXPECT_EQ(bytesOf(all, 700, 50), second.last().bytes);
    EXPECT_EQ(bytesOf(all, 1500, 333), third.last().bytes);
}

TEST_F(RequestQueueTest, WritesMergeOnlyWhenTheirMemoryAdjoins)
{
    defer();
    FsysFile* const file = openForWriting();
    std::string memory = pattern(8192);
    auto* const start = reinterpret_cast<unsigned char*>(memory.data());
    Calls calls;
    queueWrite(file, 0, new TestWindow(start, 4096), calls, true);
    queueWrite(file, 4096, new TestWindow(start + 4096, 4096), calls, true);
    writePass();
    EXPECT_THAT(issued(), ElementsAre("0+8192"));
    os.transfers().completeAll();
    EXPECT_EQ(memory, written());
    EXPECT_EQ(2U, calls.count());

    queueWrite(file, 8192, new TestData(pattern(4096)), calls, true);
    queueWrite(file, 12288, new TestData(pattern(4096)), calls, true);
    writePass();
    EXPECT_THAT(issued(), SizeIs(2));
}

TEST_F(RequestQueueTest, WritesWithAHoleInTheFileStayTwoAlsoWhereTheirMemoryAdjoins)
{
    for (const bool inFront : {false, true}) {
        defer();
        FsysFile* const file = openForWriting();
        std::string memory = pattern(8192);
        auto* const start = reinterpret_cast<unsigned char*>(memory.data());
        Calls calls;
        const Qz::Ptr<iMemHolder> low(new TestWindow(start, 4096));
        const Qz::Ptr<iMemHolder> high(new TestWindow(start + 4096, 4096));
        queueWrite(file, inFront ? 4097 : 0, inFront ? high : low, calls, true);
        queueWrite(file, inFront ? 0 : 4097, inFront ? low : high, calls, true);
        EXPECT_THAT(FsysFileTestAccess::writes(*file), SizeIs(2));
        testing::internal::CaptureStdout();  // 4097 is no sector's first byte
        writePass();
        testing::internal::GetCapturedStdout();
        EXPECT_THAT(issued(), testing::UnorderedElementsAre("0+4096", "4097+4096"));
        os.transfers().completeAll();
        EXPECT_EQ(memory.substr(0, 4096) + '\0' + memory.substr(4096), written());
        FsysClose(file, nullptr);
    }
}

TEST_F(RequestQueueTest, AWriteMergedInFrontSendsTheRightMemory)
{
    defer();
    FsysFile* const file = openForWriting();
    std::string memory = pattern(8192);
    auto* const start = reinterpret_cast<unsigned char*>(memory.data());
    Calls calls;
    queueWrite(file, 4096, new TestWindow(start + 4096, 4096), calls, true);
    queueWrite(file, 0, new TestWindow(start, 4096), calls, true);
    writePass();
    EXPECT_THAT(issued(), ElementsAre("0+8192"));
    os.transfers().completeAll();
    EXPECT_EQ(memory, written());
}

TEST_F(RequestQueueTest, TheDataOfMergedWritesLivesUntilAllIsWritten)
{
    for (const bool inFront : {false, true}) {
        defer();
        FsysFile* const file = openForWriting();
        std::string memory = pattern(1024);
        auto* const start = reinterpret_cast<unsigned char*>(memory.data());
        std::array<bool, 2> destroyed{false, false};
        Calls calls;
        const std::array<unsigned, 2> order{inFront ? 1U : 0U, inFront ? 0U : 1U};
        for (const unsigned i : order)
            queueWrite(file, i * 512UL, new TestWindow(start + i * 512, 512, &destroyed[i]), calls, true);
        writePass();
        EXPECT_THAT(issued(), ElementsAre("0+1024"));
        EXPECT_FALSE(destroyed[0] || destroyed[1]);
        os.transfers().completeAll();
        EXPECT_EQ(2U, calls.count());
        calls.forget();  // it keeps what it was given
        EXPECT_TRUE(destroyed[0] && destroyed[1]);
        FsysClose(file, nullptr);
    }
}

TEST_F(RequestQueueTest, AQueuedRequestGrowsBeyondTheCoalesceLengthOnlyByWhatLiesInside)
{
    defer();
    FsysFile* const file = openForReading(pattern(65536), 4096);
    Calls calls;
    ask(file, 0, 4096, calls);
    ask(file, 4096, 4096, calls);
    ask(file, 50, 100, calls);
    EXPECT_THAT(FsysFileTestAccess::reads(*file), SizeIs(2));
    EXPECT_EQ(2U, Access::completions(*FsysFileTestAccess::reads(*file)[0]).size());
}

TEST_F(RequestQueueTest, AStartedReadTakesInWhatLiesInsideIt)
{
    const std::string all = pattern(65536);
    FsysFile* const file = openForReading(all);
    Calls whole;
    Calls inside;
    Calls across;
    ask(file, 0, 8192, whole);
    readPass();
    ask(file, 4000, 100, inside);
    ask(file, 8150, 100, across);
    readPass();
    EXPECT_THAT(issued(), ElementsAre("0+8192", "7680+1024"));
    os.transfers().completeAll();
    EXPECT_EQ(bytesOf(all, 4000, 100), inside.last().bytes);
    EXPECT_EQ(bytesOf(all, 8150, 100), across.last().bytes);
}

TEST_F(RequestQueueTest, AFinishedReadAnswersTheSameReadOnTheCallingThread)
{
    const std::string all = pattern(65536);
    FsysFile* const file = openForReading(all);
    Calls calls;
    ask(file, 0, 4096, calls);
    readPass();
    os.transfers().completeAll();
    EXPECT_NE(std::this_thread::get_id(), calls.last().thread);
    EXPECT_EQ(1U, ask(file, 0, 4096, calls));
    ASSERT_EQ(2U, calls.count());
    EXPECT_EQ(std::this_thread::get_id(), calls.last().thread);
    EXPECT_EQ(eRequestSuccess, calls.last().status);
    EXPECT_EQ(bytesOf(all, 0, 4096), calls.last().bytes);
    EXPECT_EQ(1U, os.transfers().accepted());
}

TEST_F(RequestQueueTest, AFinishedReadAnswersPartsOfItsRange)
{
    const std::string all = pattern(65536);
    FsysFile* const file = openForReading(all);
    Calls calls;
    ask(file, 1000, 4096, calls);
    readPass();
    os.transfers().completeAll();
    ask(file, 2000, 100, calls);
    EXPECT_EQ(bytesOf(all, 2000, 100), calls.last().bytes);
    ask(file, 1000, 1, calls);
    EXPECT_EQ(bytesOf(all, 1000, 1), calls.last().bytes);
    EXPECT_EQ(3U, calls.count());
    EXPECT_EQ(1U, os.transfers().accepted());
    ask(file, 999, 100, calls);
    EXPECT_EQ(3U, calls.count());
}

TEST_F(RequestQueueTest, ACachedAnswerStampsTheReadThatGaveIt)
{
    FsysFile* const file = openForReading(pattern(8192));
    Calls calls;
    ask(file, 0, 4096, calls);
    readPass();
    os.transfers().completeAll();
    const std::uint64_t clock = FileRequest::usageClock_;
    ask(file, 0, 100, calls);
    EXPECT_EQ(clock, Access::usageStamp(*FsysFileTestAccess::reads(*file)[0]));
}

TEST_F(RequestQueueTest, AReadAtTheEndFailsOnceAndIsThenAnsweredFromItsEmptiness)
{
    FsysFile* const file = openForReading(pattern(4096));
    Calls calls;
    FsysError = 4711;
    ask(file, 4096, 512, calls);
    readPass();
    os.transfers().completeAll();
    EXPECT_EQ(eRequestError, calls.last().status);
    EXPECT_EQ(0U, calls.last().error);
    ask(file, 4096, 512, calls);
    EXPECT_EQ(eRequestSuccess, calls.last().status);
    EXPECT_EQ(std::string(512, '\0'), calls.last().bytes);
}

TEST_F(RequestQueueTest, AShortTransferServesThoseItReachedAndFailsTheOthers)
{
    defer();
    FsysFile* const file = openForReading(pattern(4096));
    Calls first;
    Calls second;
    Calls third;
    ask(file, 0, 4096, first);
    ask(file, 4096, 4096, second);
    ask(file, 8192, 4096, third);
    readPass();
    EXPECT_THAT(issued(), ElementsAre("0+12288"));
    os.transfers().completeAll();
    EXPECT_EQ(eRequestSuccess, first.last().status);
    EXPECT_EQ(4096U, first.last().size);
    for (const Calls* late : {&second, &third}) {
        EXPECT_EQ(eRequestError, late->last().status);
        EXPECT_FALSE(late->last().hasData);
        EXPECT_EQ(0U, late->last().error);
    }
}

TEST_F(RequestQueueTest, AFullListOfUnfinishedWritesRefuses)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    for (unsigned long i = 0; i < 41; ++i)
        EXPECT_EQ(1U, queueWrite(file, i * 512, sector(), calls));
    forgetCalls();
    EXPECT_EQ(0U, queueWrite(file, 41 * 512, sector(), calls));
    EXPECT_EQ(8U, FsysGetLastError());
    EXPECT_EQ(1U, kicks());
    EXPECT_THAT(FsysFileTestAccess::writes(*file), SizeIs(41));
}

TEST_F(RequestQueueTest, AFullListMakesRoomByItsLastCompleteRequest)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    for (unsigned long i = 0; i < 41; ++i)
        queueWrite(file, i * 512, sector(), calls);
    FileRequest* const last = FsysFileTestAccess::writes(*file)[40];
    last->setStatus(FileRequest::COMPLETE);
    EXPECT_EQ(1U, queueWrite(file, 41 * 512, sector(), calls));
    EXPECT_EQ(8U, FsysGetLastError());
    EXPECT_THAT(FsysFileTestAccess::writes(*file), SizeIs(41));
    EXPECT_EQ(41U * 512, Access::position(*FsysFileTestAccess::writes(*file)[40]));
}

TEST_F(RequestQueueTest, TheHeadOfAFullListIsNeverDropped)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    for (unsigned long i = 0; i < 41; ++i)
        queueWrite(file, i * 512, sector(), calls);
    FsysFileTestAccess::writes(*file)[0]->setStatus(FileRequest::COMPLETE);
    EXPECT_EQ(0U, queueWrite(file, 41 * 512, sector(), calls));
}

TEST_F(RequestQueueTest, ListsHoldOneMoreThanTheLimit)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    for (unsigned long i = 0; i < 40; ++i)
        queueWrite(file, i * 512, sector(), calls);
    FsysError = 4711;
    EXPECT_EQ(1U, file->CheckRequestListSize(&FsysFileTestAccess::writes(*file)));
    EXPECT_EQ(4711U, FsysGetLastError());
    queueWrite(file, 40 * 512, sector(), calls);
    EXPECT_EQ(0U, file->CheckRequestListSize(&FsysFileTestAccess::writes(*file)));
    EXPECT_EQ(8U, FsysGetLastError());
}

TEST_F(RequestQueueTest, TheLastCompleteRequestIsEvictedNotTheOldest)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    for (long i = 0; i < 5; ++i)
        ask(file, i * 8192, 512, calls, false);
    readPass();
    os.transfers().completeAll();
    Vector<FileRequest*>& list = FsysFileTestAccess::reads(*file);
    ask(file, 4 * 8192, 512, calls);  // the last one has served most recently
    ASSERT_THAT(list, SizeIs(5));
    file->removeOldestRequest(&list);
    ASSERT_THAT(list, SizeIs(4));
    EXPECT_EQ(3U * 8192, Access::position(*list[3]));
}

TEST_F(RequestQueueTest, ACompleteRequestAtTheHeadIsNotEvicted)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    ask(file, 0, 512, calls, false);
    readPass();
    os.transfers().completeAll();
    file->removeOldestRequest(&FsysFileTestAccess::reads(*file));
    EXPECT_THAT(FsysFileTestAccess::reads(*file), SizeIs(1));
}

TEST_F(RequestQueueTest, AStampAtTheBoundProtectsARequest)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    ask(file, 0, 512, calls, false);
    ask(file, 8192, 512, calls, false);
    readPass();
    os.transfers().completeAll();
    Vector<FileRequest*>& list = FsysFileTestAccess::reads(*file);
    Access::usageStamp(*list[1]) = 4294967295U;
    file->removeOldestRequest(&list);
    EXPECT_THAT(list, SizeIs(2));
    Access::usageStamp(*list[1]) = 4294967294U;
    file->removeOldestRequest(&list);
    EXPECT_THAT(list, SizeIs(1));
}

TEST_F(RequestQueueTest, AFailedRequestStaysAndCounts)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    queueWrite(file, 0, sector(), calls);
    queueWrite(file, 512, sector(), calls);
    writePass();
    os.transfers().failAll(errorFromErrno(EIO));
    for (int pass = 0; pass < 10; ++pass)
        writePass();
    Vector<FileRequest*>& list = FsysFileTestAccess::writes(*file);
    ASSERT_THAT(list, SizeIs(2));
    EXPECT_EQ(FileRequest::FAILED, list[1]->status());
    EXPECT_EQ(1024U, file->writeBytesOutstanding());
}

TEST_F(RequestQueueTest, AReadThatMayNotWaitKicksAndOneThatMayDoesNot)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    defer();
    forgetCalls();
    ask(file, 0, 512, calls);
    EXPECT_EQ(0U, kicks());
    EXPECT_EQ(1U, FsysFileTestAccess::deferred(*file));
    ask(file, 20000, 512, calls, false);
    EXPECT_EQ(1U, kicks());
    FsysSetImmediateRequestHandling(true);
    ask(file, 40000, 512, calls);
    EXPECT_EQ(2U, kicks());
}

TEST_F(RequestQueueTest, TheThirtyFirstDeferredRequestKicks)
{
    FsysFile* const file = openForReading(pattern(1 << 20));
    Calls calls;
    defer();
    forgetCalls();
    for (long i = 0; i < 30; ++i)
        ask(file, i * 8192, 512, calls);
    EXPECT_EQ(0U, kicks());
    ask(file, 30 * 8192, 512, calls);
    EXPECT_EQ(1U, kicks());
    ask(file, 31 * 8192, 512, calls);
    EXPECT_EQ(2U, kicks());
    readPass();
    EXPECT_EQ(0U, FsysFileTestAccess::deferred(*file));
}

TEST_F(RequestQueueTest, MergedDeferredReadsCountToo)
{
    FsysFile* const file = openForReading(pattern(1 << 20), 1 << 20);
    Calls calls;
    defer();
    forgetCalls();
    for (long i = 0; i < 31; ++i)
        ask(file, i * 512, 512, calls);
    EXPECT_THAT(FsysFileTestAccess::reads(*file), SizeIs(1));
    EXPECT_EQ(1U, kicks());
}

TEST_F(RequestQueueTest, ASynchronousWriteIsKickedOnlyAfterItsCompletion)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    std::size_t kicksBefore = 99;
    forgetCalls();
    os.clock().setIdleHandler([&] {
        kicksBefore = kicks();
        writePass();  // as the poll thread's timer would
        return os.transfers().completeAll() != 0;
    });
    Qz::Ptr<iMemHolder> data(new TestData(pattern(512)));
    EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), true));
    EXPECT_EQ(0U, kicksBefore);
    EXPECT_EQ(1U, calls.count());
    EXPECT_EQ(pattern(512), written());
    const auto sets = os.log().calls(fake::Op::setEvent);
    ASSERT_FALSE(sets.empty());
    EXPECT_EQ(1U, sets.back().handle);  // the write poll's kick is the second event that the engine made
}

TEST_F(RequestQueueTest, ACoalescableWriteCountsAsDeferredAndANonCoalescableKicks)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    forgetCalls();
    queueWrite(file, 0, sector(), calls, true);
    EXPECT_EQ(0U, kicks());
    EXPECT_EQ(1U, FsysFileTestAccess::deferred(*file));
    queueWrite(file, 8192, sector(), calls, false);
    EXPECT_EQ(1U, kicks());
    EXPECT_EQ(1U, FsysFileTestAccess::deferred(*file));
}

TEST_F(RequestQueueTest, WritesAreOfferedForMergingOnlyWhileDeferring)
{
    FsysFile* const file = openForWriting();
    std::string memory = pattern(1024);
    auto* const start = reinterpret_cast<unsigned char*>(memory.data());
    Calls calls;
    queueWrite(file, 0, new TestWindow(start, 512), calls, true);
    queueWrite(file, 512, new TestWindow(start + 512, 512), calls, true);
    writePass();
    EXPECT_THAT(issued(), SizeIs(2));
    os.transfers().completeAll();
}

TEST_F(RequestQueueTest, AClosingFileTakesNoRequestAndTheCallerKeepsIt)
{
    FsysFile* const file = openForWriting(pattern(4096));
    FsysFileTestAccess::setClosing(*file, true);
    Calls calls;
    FileRequest read(true, 512, 0, true, false, nullptr, file, &Calls::record, calls.context());
    EXPECT_EQ(0U, file->QueueReadRequest(&read));
    EXPECT_EQ(0U, file->SatisfyFromCache(&read));
    FileRequest write(false, 512, 0, true, false, sector(), file, &Calls::record, calls.context());
    EXPECT_EQ(0U, file->QueueWriteRequest(&write));
    EXPECT_EQ(FileRequest::NEW, read.status());
    EXPECT_EQ(FileRequest::NEW, write.status());
    FsysFileTestAccess::setClosing(*file, false);
}

TEST_F(RequestQueueTest, ThirtyNineStartsWithoutMemoryAreTriedAgain)
{
    FsysFile* const file = openForReading(pattern(4096));
    Calls calls;
    os.faults().failNext(fake::Op::allocatePages, 0, 39);
    ask(file, 0, 512, calls);
    for (int pass = 0; pass < 39; ++pass)
        EXPECT_EQ(1U, file->StartRequests(&FsysFileTestAccess::reads(*file)));
    EXPECT_EQ(39U, os.faults().fired());
    EXPECT_EQ(0U, os.transfers().heldCount());
    readPass();
    os.transfers().completeAll();
    EXPECT_EQ(eRequestSuccess, calls.last().status);
}

TEST_F(RequestQueueTest, TheFortiethStartWithoutMemoryFails)
{
    FsysFile* const file = openForReading(pattern(4096));
    Calls calls;
    os.faults().failNext(fake::Op::allocatePages, 0, 40);
    ask(file, 0, 512, calls);
    for (int pass = 0; pass < 40; ++pass)
        readPass();
    ASSERT_EQ(1U, calls.count());
    EXPECT_EQ(eRequestError, calls.last().status);
    EXPECT_EQ(10U, calls.last().error);
    EXPECT_THAT(logged.logs(), Contains("Failed starting request ECODE        a\n"));
    EXPECT_TRUE(FsysFileTestAccess::reads(*file).empty());
    EXPECT_EQ(0U, file->readBytesOutstanding());
    EXPECT_EQ(0U, theFsys.load()->readBytesOutstanding);
}

TEST_F(RequestQueueTest, AStartWithoutMemoryLetsTheRequestsBehindItStart)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    ask(file, 0, 512, calls);
    ask(file, 20480, 512, calls);
    os.faults().failNext(fake::Op::allocatePages, 0);
    EXPECT_EQ(1U, file->StartRequests(&FsysFileTestAccess::reads(*file)));
    EXPECT_THAT(issued(), ElementsAre("20480+512"));
    EXPECT_EQ(FileRequest::QUEUED, FsysFileTestAccess::reads(*file)[0]->status());
    readPass();
    EXPECT_THAT(issued(), ElementsAre("20480+512", "0+512"));
}

TEST_F(RequestQueueTest, AFailedStartLeavesTheRequestsBehindItForTheNextPass)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls first;
    Calls second;
    ask(file, 0, 512, first);
    ask(file, 20000, 512, second);
    os.faults().failNext(fake::Op::asyncRead, errorFromErrno(EIO));
    EXPECT_EQ(0U, file->StartRequests(&FsysFileTestAccess::reads(*file)));
    EXPECT_EQ(eRequestError, first.last().status);
    EXPECT_THAT(logged.logs(), Contains("Failed starting request ECODE        0\n"));
    EXPECT_EQ(0U, os.transfers().heldCount());
    EXPECT_EQ(1U, file->StartRequests(&FsysFileTestAccess::reads(*file)));
    EXPECT_EQ(1U, os.transfers().heldCount());
}

TEST_F(RequestQueueTest, AFileWithoutAnAsynchronousHandleFailsItsStarts)
{
    os.files().addDirect(L"/m/pipe", "abc");
    FsysFile* const file = open(L"/m/pipe");
    Calls calls;
    EXPECT_EQ(1U, ask(file, 0, 3, calls));
    readPass();
    ASSERT_EQ(1U, calls.count());
    EXPECT_EQ(eRequestError, calls.last().status);
}

TEST_F(RequestQueueTest, MoreThanSixtyDeferredRequestsSkipTheListCheck)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    for (unsigned long i = 0; i < 41; ++i)
        queueWrite(file, i * 512, sector(), calls);
    FsysFileTestAccess::setDeferred(*file, 60);
    EXPECT_EQ(0U, file->CheckRequestListSize(&FsysFileTestAccess::writes(*file)));
    FsysFileTestAccess::setDeferred(*file, 61);
    EXPECT_EQ(8U, file->CheckRequestListSize(&FsysFileTestAccess::writes(*file)));
    EXPECT_EQ(1U, queueWrite(file, 41 * 512, sector(), calls));
    EXPECT_EQ(8U, ask(file, 0, 512, calls));
}

TEST_F(RequestQueueTest, RequestsOfDifferentDirectionOrWaitingAreNotMerged)
{
    FsysFile* const file = openForWriting(pattern(8192));
    Calls calls;
    FileRequest read(true, 512, 0, true, false, nullptr, file, &Calls::record, calls.context());
    FileRequest write(false, 512, 0, true, false, sector(), file, &Calls::record, calls.context());
    FileRequest waited(true, 512, 0, true, true, nullptr, file, &Calls::record, calls.context());
    read.setStatus(FileRequest::QUEUED);
    EXPECT_EQ(0U, read.Coalesce(&write));
    EXPECT_EQ(0U, read.Coalesce(&waited));
    FileRequest other(true, 512, 0, true, false, nullptr, file, &Calls::record, calls.context());
    EXPECT_EQ(1U, read.Coalesce(&other));
    read.setStatus(FileRequest::COMPLETE);
    EXPECT_EQ(0U, read.Coalesce(&other));
    read.setStatus(FileRequest::NEW);
    EXPECT_EQ(0U, read.Coalesce(&other));
}

TEST_F(RequestQueueTest, AMergeRaisesTheCountersByTheGrowthOnly)
{
    defer();
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    ask(file, 0, 4096, calls);
    EXPECT_EQ(4096U, file->readBytesOutstanding());
    ask(file, 2048, 4096, calls);
    EXPECT_EQ(6144U, file->readBytesOutstanding());
    EXPECT_EQ(6144U, theFsys.load()->readBytesOutstanding);
    EXPECT_EQ(6144U, Fsys::BufferSpace_.load()->reservedBytes);
    const std::uint64_t merges = engineStatistics.merges;
    ask(file, 100, 100, calls);
    EXPECT_EQ(6144U, file->readBytesOutstanding());
    EXPECT_EQ(merges + 1, engineStatistics.merges);
    readPass();
    os.transfers().completeAll();
    EXPECT_EQ(0U, file->readBytesOutstanding());
    EXPECT_EQ(0U, theFsys.load()->readBytesOutstanding);
}

TEST_F(RequestQueueTest, RequestsStartInTheOrderInWhichTheyWereAppended)
{
    FsysFile* const file = openForReading(pattern(1 << 20));
    Calls calls;
    for (const long position : {500 * 512L, 100 * 512L, 300 * 512L})
        ask(file, position, 512, calls, false);
    readPass();
    EXPECT_THAT(issued(), ElementsAre("256000+512", "51200+512", "153600+512"));
}

TEST_F(RequestQueueTest, ANonCoalescableReadIsOfferedForMergingAllTheSame)
{
    FsysFile* const file = openForReading(pattern(65536));
    Calls calls;
    ask(file, 0, 8192, calls, false);
    ask(file, 100, 100, calls, false);
    EXPECT_THAT(FsysFileTestAccess::reads(*file), SizeIs(1));
}

TEST_F(RequestQueueTest, TheFurthestLengthReachesToTheLaterEnd)
{
    FsysFile* const file = openForReading(pattern(1024));
    Calls calls;
    const auto request = [&](unsigned long position, unsigned bytes) {
        return std::make_unique<FileRequest>(true, bytes, position, true, false, nullptr, file,
                                             &Calls::record, calls.context());
    };
    const auto a = request(0, 100);
    EXPECT_EQ(100U, FileRequest::FurthestLength(a.get(), request(50, 20).get()));
    EXPECT_EQ(130U, FileRequest::FurthestLength(a.get(), request(80, 50).get()));
    EXPECT_TRUE(a->encompasses(request(0, 100).get()));
    EXPECT_FALSE(a->encompasses(request(0, 101).get()));
    EXPECT_TRUE(FileRequest::runs_into(a.get(), request(4196, 1).get()));
    EXPECT_FALSE(FileRequest::runs_into(a.get(), request(4197, 1).get()));
    EXPECT_FALSE(FileRequest::runs_into(request(1, 1).get(), a.get()));
}

TEST_F(RequestQueueTest, TwoSynchronousReadersOfOneRequestBothWake)
{
    FsysFile* const file = openForReading(pattern(8192));
    Calls calls;
    FileRequest first(true, 4096, 0, true, true, nullptr, file, nullptr, Qz::Ptr<iObject>());
    auto* const second =
        new FileRequest(true, 4096, 4096, true, true, nullptr, file, nullptr, Qz::Ptr<iObject>());
    const Qz::Ptr<iThreadEvent> waited = first.syncEvent();
    first.setStatus(FileRequest::QUEUED);
    ASSERT_EQ(1U, first.Coalesce(second));
    FileRequest::destroy(second);
    ASSERT_EQ(2U, Access::completions(first).size());
    first.NotifyError(7, 1);  // the merged one's waiter signals the surviving request
    EXPECT_TRUE(waited->wait(0));
    EXPECT_TRUE(waited->wait(0));
}

TEST_F(RequestQueueTest, ASynchronousReadIsServedThroughTheQueue)
{
    FsysFile* const file = openForReading(pattern(8192));
    serveWaiters();
    Calls calls;
    auto* const request =
        new FileRequest(true, 4096, 0, true, true, nullptr, file, &Calls::record, calls.context());
    EXPECT_EQ(1U, file->QueueReadRequest(request));
    ASSERT_EQ(1U, calls.count());
    EXPECT_EQ(pattern(8192).substr(0, 4096), calls.last().bytes);
}
