// One request: alignment, callers, errors, status.

#include "EngineFixture.h"
#include "fsys/MemRef.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

#include <memory>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using Access = FileRequestTestAccess;

namespace {

class FileRequestTest : public EngineTest
{
protected:
    struct Destroyer
    {
        void operator()(FileRequest* request) const { FileRequest::destroy(request); }
    };
    using Owned = std::unique_ptr<FileRequest, Destroyer>;

    Owned read(unsigned long position, unsigned bytes, bool synchronous = false)
    {
        return Owned(new FileRequest(true, bytes, position, true, synchronous, nullptr, file_(),
                                     &Calls::record, calls.context()));
    }
    Owned write(unsigned long position, const std::string& bytes, FsysFile* file = nullptr)
    {
        return Owned(new FileRequest(false, static_cast<unsigned>(bytes.size()), position, true, false,
                                     Qz::Ptr<iMemHolder>(new TestData(bytes)), file ? file : file_(),
                                     &Calls::record, calls.context()));
    }
    FsysFile* file_()
    {
        if (!opened_)
            opened_ = openForWriting(pattern(65536));
        return opened_;
    }
    template <class Body>
    static std::string printed(const Body& body)
    {
        testing::internal::CaptureStdout();
        body();
        return testing::internal::GetCapturedStdout();
    }

    Calls calls;

private:
    FsysFile* opened_ = nullptr;
};

// Takes writes and starts nothing.
class SinkFile : public FsysFile
{
public:
    using FsysFile::FsysFile;
    ~SinkFile() override
    {
        for (FileRequest* const request : issued)
            FileRequest::destroy(request);
    }
    unsigned LowLevelAsyncWrite(FileRequest* request) override
    {
        issued.push_back(request);
        return 1;
    }
    std::vector<FileRequest*> issued;
};

// A caller that asks for the same range again as soon as it is told of an error.
struct Retry : public iObject
{
    FsysFile* file = nullptr;
    std::vector<RequestStatus> statuses;
    static void function(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>&, RequestStatus status)
    {
        auto& self = static_cast<Retry&>(*context);
        self.statuses.push_back(status);
        if (status == eRequestError) {
            EXPECT_EQ(1U, self.file->DirectRead(0, 512, false, &function, context));
        }
    }
};

}  // namespace

TEST_F(FileRequestTest, AReadIsRoundedToWholeSectors)
{
    struct Case
    {
        unsigned long position;
        unsigned bytes;
        int offset;
        unsigned extra;
    };
    for (const Case& c : {Case{1000, 100, -488, 924}, Case{900, 100, -388, 412}, Case{512, 100, 0, 412},
                          Case{512, 512, 0, 0}, Case{0, 1000, 0, 24}, Case{511, 2, -511, 1022}}) {
        const Owned request = read(c.position, c.bytes);
        request->ReadSectorAdjust(512);
        EXPECT_EQ(c.offset, Access::sectorOffset(*request)) << c.position;
        EXPECT_EQ(c.extra, Access::sectorExtra(*request)) << c.position;
        EXPECT_EQ(0U, (c.bytes + Access::sectorExtra(*request)) % 512);
        EXPECT_EQ(0U, request->transferPosition() % 512);
    }
}

TEST_F(FileRequestTest, WithoutASectorSizeNothingIsRounded)
{
    const Owned request = read(1000, 100);
    request->ReadSectorAdjust(0);
    EXPECT_EQ(0, Access::sectorOffset(*request));
    EXPECT_EQ(0U, Access::sectorExtra(*request));
}

TEST_F(FileRequestTest, PositionsBeyond32BitsAreRoundedRight)
{
    const unsigned long far = (1UL << 40) + 1000;
    const Owned request = read(far, 100);
    request->ReadSectorAdjust(512);
    EXPECT_EQ(-static_cast<int>(far % 512), Access::sectorOffset(*request));
    EXPECT_EQ(far - far % 512, request->transferPosition());
}

TEST_F(FileRequestTest, AReadNearFourGigabytesFailsToStartInsteadOfWrapping)
{
    const Owned request = read(100, 0xFFFFFFFFU);
    request->setStatus(FileRequest::STARTED);
    EXPECT_EQ(0U, request->StartRequest(file_()));
    EXPECT_EQ(0U, os.transfers().heldCount());
}

TEST_F(FileRequestTest, AnUnalignedWriteWithoutASegmentIsReportedAndGoesOutAsItIs)
{
    const Owned request = write(10, pattern(100));
    unsigned fill = 99;
    EXPECT_EQ("assertion failed false at ole/fsys/FileRequest line 154\n",
              printed([&] { fill = request->WriteSectorAdjust(512, Qz::Ptr<iMemHolder>()); }));
    EXPECT_EQ(0U, fill);
    EXPECT_EQ(0, Access::sectorOffset(*request));
    EXPECT_EQ(0U, Access::sectorExtra(*request));
    EXPECT_EQ(10U, request->transferPosition());
}

TEST_F(FileRequestTest, AnAlignedStartOfAtLeastASectorIsNotStaged)
{
    const Owned request = write(0, pattern(1000));
    EXPECT_EQ("", printed([&] { EXPECT_EQ(0U, request->WriteSectorAdjust(512, Qz::Ptr<iMemHolder>())); }));
    EXPECT_EQ(0U, Access::sectorExtra(*request));
    const Owned noSize = write(10, pattern(10));
    EXPECT_EQ("", printed([&] { EXPECT_EQ(0U, noSize->WriteSectorAdjust(0, Qz::Ptr<iMemHolder>())); }));
}

TEST_F(FileRequestTest, AWriteInsideOneSectorIsStagedWhole)
{
    SinkFile sink(L"/m/a.mov", nullptr, 512, iDiskDrive::eLocal, fsysOpenWrite, 0);
    const Qz::Ptr<iMemHolder> segment(new TestData(std::string(512, '.')));
    const Owned request = write(10, pattern(100), &sink);
    unsigned fill = 0;
    EXPECT_EQ("assertion failed false at ole/fsys/FileRequest line 154\n",
              printed([&] { fill = request->WriteSectorAdjust(512, segment); }));
    EXPECT_EQ(110U, fill);
    EXPECT_EQ(0, std::memcmp(segment->getBuffer() + 10, pattern(100).data(), 100));
    EXPECT_EQ('.', segment->getBuffer()[9]);
    EXPECT_EQ('.', segment->getBuffer()[110]);
    EXPECT_EQ(100, Access::sectorOffset(*request));
    EXPECT_EQ(static_cast<std::uint32_t>(-100), Access::sectorExtra(*request));
    EXPECT_THAT(sink.issued, SizeIs(0));
}

TEST_F(FileRequestTest, AStagedWriteOfNothingElseStartsWithoutATransfer)
{
    SinkFile sink(L"/m/a.mov", nullptr, 512, iDiskDrive::eLocal, fsysOpenWrite, 0);
    FsysFileTestAccess::segment(sink) = Qz::Ptr<iMemHolder>(new TestData(std::string(512, '.')));
    const Owned request = write(10, pattern(100), &sink);
    request->setStatus(FileRequest::STARTED);
    printed([&] { EXPECT_EQ(1U, request->StartRequest(&sink)); });
    EXPECT_EQ(110U, FsysFileTestAccess::segmentFill(sink));
    EXPECT_THAT(sink.issued, SizeIs(0));
}

TEST_F(FileRequestTest, AWriteThatFillsASectorSendsItAndStagesItsTail)
{
    SinkFile sink(L"/m/a.mov", nullptr, 512, iDiskDrive::eLocal, fsysOpenWrite, 0);
    const Qz::Ptr<iMemHolder> segment(new TestData(std::string(512, '.')));
    const std::string bytes = pattern(600);
    const Owned request = write(10, bytes, &sink);
    unsigned fill = 0;
    printed([&] { fill = request->WriteSectorAdjust(512, segment); });
    ASSERT_THAT(sink.issued, SizeIs(1));
    EXPECT_EQ(0U, Access::position(*sink.issued[0]));
    EXPECT_EQ(512U, Access::byteCount(*sink.issued[0]));
    EXPECT_TRUE(sink.issued[0]->isCoalescable());
    EXPECT_FALSE(sink.issued[0]->isSynchronous());
    EXPECT_EQ(segment, Access::buffer(*sink.issued[0]));
    EXPECT_EQ(98U, fill);
    EXPECT_EQ(502, Access::sectorOffset(*request));
    EXPECT_EQ(static_cast<std::uint32_t>(-600), Access::sectorExtra(*request));
    EXPECT_EQ(bytes.substr(502), std::string(reinterpret_cast<char*>(segment->getBuffer()), 98));
    EXPECT_EQ(bytes.substr(98, 404), std::string(reinterpret_cast<char*>(segment->getBuffer()) + 108, 404));
}

TEST_F(FileRequestTest, AStagedSectorFreesItselfWhenItIsWritten)
{
    FsysFile* const file = file_();
    FsysFileTestAccess::segment(*file) = Qz::Ptr<iMemHolder>(new TestData(std::string(512, '.')));
    FsysFileTestAccess::segmentFill(*file) = 110;
    FsysFileTestAccess::position(*file) = 1000;
    EXPECT_EQ(1U, file->SendWriteSegBuffer());
    const auto held = os.transfers().held();
    ASSERT_THAT(held, SizeIs(1));
    EXPECT_EQ(890U, held[0].position);
    EXPECT_EQ(512U, held[0].length);
    EXPECT_EQ(
        std::string(402, '\0'),
        std::string(reinterpret_cast<char*>(FsysFileTestAccess::segment(*file)->getBuffer()) + 110, 402));
    FsysFileTestAccess::setWriteOutstanding(*file, 512);  // a staged sector was never counted
    os.transfers().completeAll();
    EXPECT_EQ(0U, file->writeBytesOutstanding());
    EXPECT_EQ(0U, os.live().contexts);
    EXPECT_EQ(std::string(110, '.') + std::string(402, '\0'), written().substr(890, 512));
    FsysFileTestAccess::segmentFill(*file) = 0;
}

TEST_F(FileRequestTest, ARequestForNothingIsReportedAndUsable)
{
    std::unique_ptr<FileRequest, Destroyer> request;
    EXPECT_EQ("assertion failed ByteCount_ != 0 at ole/fsys/FileRequest line 59\n",
              printed([&] { request = read(0, 0); }));
    EXPECT_EQ(FileRequest::NEW, request->status());
    EXPECT_THAT(Access::completions(*request), SizeIs(1));
}

TEST_F(FileRequestTest, StartingARequestThatIsNotStartedIsReportedAndGoesOn)
{
    FsysFile* const file = openForReading(pattern(4096));
    auto* const request =
        new FileRequest(true, 512, 0, true, false, nullptr, file, &Calls::record, calls.context());
    EXPECT_EQ("assertion failed Status_ == STARTED at ole/fsys/FileRequest line 231\n",
              printed([&] { EXPECT_EQ(1U, request->StartRequest(file)); }));
    EXPECT_EQ(1U, os.transfers().heldCount());
    request->markOrphan();  // nobody lists it
    os.transfers().completeAll();
}

TEST_F(FileRequestTest, StartingAReadTakesABlockAndAccountsForIt)
{
    FsysFile* const file = openForReading(pattern(4096));
    Calls reader;
    const auto pagesBefore = os.live().pages;
    EXPECT_EQ(1U, file->DirectRead(100, 300, false, &Calls::record, reader.context()));
    EXPECT_EQ(300U, Fsys::BufferSpace_.load()->reservedBytes);
    const std::uint64_t clock = FileRequest::usageClock_;
    const std::uint64_t reads = engineStatistics.readsStarted;
    const std::uint64_t bytes = engineStatistics.bytesRead;
    readPass();
    FileRequest& request = *FsysFileTestAccess::reads(*file)[0];
    EXPECT_EQ(0U, Fsys::BufferSpace_.load()->reservedBytes);
    EXPECT_EQ(pagesBefore + 1, os.live().pages);
    EXPECT_EQ(512U + 512U, Access::buffer(request)->getSize());
    EXPECT_EQ(clock, Access::usageStamp(request));
    EXPECT_EQ(clock + 1, FileRequest::usageClock_);
    EXPECT_EQ(reads + 1, engineStatistics.readsStarted);
    EXPECT_EQ(bytes + 512, engineStatistics.bytesRead);
    EXPECT_EQ(512U, Access::transferLength(request));
    EXPECT_EQ(os.clock().msecsPrecise(), Access::startTimeMs(request));
    EXPECT_EQ(1U, os.log().count(fake::Op::createAsyncContext));
}

TEST_F(FileRequestTest, TheContextOfARequestIsMadeOnce)
{
    FsysFile* const file = openForReading(pattern(4096));
    os.faults().failNext(fake::Op::allocatePages, 0, 2);
    EXPECT_EQ(1U, file->DirectRead(0, 512, false, &Calls::record, calls.context()));
    readPass();
    readPass();
    readPass();
    EXPECT_EQ(1U, os.transfers().heldCount());
    EXPECT_EQ(1U, os.log().count(fake::Op::createAsyncContext));
    os.transfers().completeAll();
}

TEST_F(FileRequestTest, SeekingServedCallersStopsAtTheFirstOneBeyondTheEnd)
{
    const Owned request = read(0, 12288);
    Vector<CompletionInfo>& callers = Access::completions(*request);
    callers.clear();
    EXPECT_EQ(-1, request->SeekCompletionFunction(100));
    for (unsigned long position : {0UL, 4096UL, 8192UL})
        callers.add(CompletionInfo(&Calls::record, calls.context(), position, 4096));
    EXPECT_EQ(-1, request->SeekCompletionFunction(0));
    EXPECT_EQ(0, request->SeekCompletionFunction(4096));
    EXPECT_EQ(1, request->SeekCompletionFunction(8192));
    EXPECT_EQ(2, request->SeekCompletionFunction(8193));
}

TEST_F(FileRequestTest, ALaterCallerListedFirstStopsTheSearch)
{
    const Owned request = read(0, 8192);
    Vector<CompletionInfo>& callers = Access::completions(*request);
    callers.clear();
    callers.add(CompletionInfo(&Calls::record, calls.context(), 4096, 4096));
    callers.add(CompletionInfo(&Calls::record, calls.context(), 0, 4096));
    EXPECT_EQ(-1, request->SeekCompletionFunction(4096));
}

TEST_F(FileRequestTest, CallbacksInAnotherStatusAreReportedAndNotMade)
{
    const Owned request = read(0, 512);
    request->setStatus(FileRequest::QUEUED);
    EXPECT_EQ("assertion failed false at ole/fsys/FileRequest line 515\n",
              printed([&] { EXPECT_EQ(0U, request->doCallbacks()); }));
    EXPECT_EQ(0U, calls.count());
}

TEST_F(FileRequestTest, CallbacksForNobodyAreReported)
{
    const Owned request(
        new FileRequest(true, 512, 0, true, false, nullptr, file_(), nullptr, Qz::Ptr<iObject>()));
    request->setStatus(FileRequest::COMPLETING);
    EXPECT_EQ("assertion failed false at ole/fsys/FileRequest line 521\n",
              printed([&] { EXPECT_EQ(1U, request->doCallbacks()); }));
}

TEST_F(FileRequestTest, ASlowWritesCallerGetsSuccessWithoutData)
{
    const Owned request = write(0, pattern(512));
    Access::bytesDone(*request) = 512;
    request->setStatus(FileRequest::SLOW);
    EXPECT_EQ("assertion failed false at ole/fsys/FileRequest line 537\n",
              printed([&] { EXPECT_EQ(1U, request->doCallbacks()); }));
    ASSERT_EQ(1U, calls.count());
    EXPECT_EQ(eRequestSuccess, calls.last().status);
    EXPECT_FALSE(calls.last().hasData);
}

TEST_F(FileRequestTest, AReadersViewShowsExactlyItsBytes)
{
    FsysFile* const file = openForReading(pattern(4096));
    EXPECT_EQ(1U, file->DirectRead(700, 300, false, &Calls::record, calls.context()));
    readPass();
    const void* const block = os.transfers().held()[0].buffer;
    os.transfers().completeAll();
    const Calls::Call call = calls.last();
    EXPECT_EQ(pattern(4096).substr(700, 300), call.bytes);
    EXPECT_EQ(static_cast<const unsigned char*>(block) + (700 - 512), call.data->getBuffer());
    EXPECT_EQ(300U, call.data->getSize());
    EXPECT_EQ(300U, call.data->getUsed());
    call.data->setUsed(5);
    EXPECT_EQ(300U, call.data->getUsed());
}

TEST_F(FileRequestTest, AViewOfMemoryThatIsNotThereIsNull)
{
    os.faults().failNext(fake::Op::allocatePages, 0);
    const Qz::Ptr<iMemHolder> nothing(new MemBlock(100));
    EXPECT_EQ(nullptr, MemRef(nothing, 10, 20).getBuffer());
    EXPECT_EQ(20U, MemRef(nothing, 10, 20).getSize());
    EXPECT_EQ(nullptr, MemRef(Qz::Ptr<iMemHolder>(), 10, 20).getBuffer());
}

TEST_F(FileRequestTest, AWritersCallGetsTheHolderThatWasGiven)
{
    FsysFile* const file = openForWriting();
    Qz::Ptr<iMemHolder> data(new TestData(pattern(512)));
    EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
    writePass();
    os.transfers().completeAll();
    EXPECT_EQ(data, calls.last().data);
}

TEST_F(FileRequestTest, ErrorsReachTheCallersFromTheGivenOneOn)
{
    const Owned request = read(0, 512);
    Calls second;
    Calls third;
    Access::completions(*request).add(CompletionInfo(&Calls::record, second.context(), 100, 10));
    Access::completions(*request).add(CompletionInfo(&Calls::record, third.context(), 200, 10));
    EXPECT_EQ(1U, request->NotifyError(7, 1));
    EXPECT_EQ(0U, calls.count());
    for (const Calls* caller : {&second, &third}) {
        ASSERT_EQ(1U, caller->count());
        EXPECT_EQ(eRequestError, caller->last().status);
        EXPECT_FALSE(caller->last().hasData);
        EXPECT_EQ(7U, caller->last().error);
    }
    EXPECT_EQ(7U, FsysGetLastError());
}

TEST_F(FileRequestTest, WithNobodyToTellTheLastErrorStays)
{
    const Owned request = read(0, 512);
    FsysError = 4711;
    EXPECT_EQ(1U, request->NotifyError(7, 1));
    EXPECT_EQ(4711U, FsysGetLastError());
}

TEST_F(FileRequestTest, TheCompletionListCheckFindsACallerAtTheBuffersStart)
{
    const Owned request = write(0, pattern(512));
    Vector<CompletionInfo>& callers = Access::completions(*request);
    const auto set = [&](std::vector<std::uint32_t> offsets) {
        callers.clear();
        for (const std::uint32_t offset : offsets) {
            callers.add(CompletionInfo(&Calls::record, calls.context(), 0, 1));
            callers[callers.size() - 1].bufferOffset = offset;
        }
        return request->CheckCompletionList();
    };
    EXPECT_EQ(1U, set({0}));
    EXPECT_EQ(0U, set({9999, 0}));
    EXPECT_EQ(1U, set({512, 0}));
    EXPECT_EQ(0U, set({4}));
    EXPECT_EQ(0U, set({}));
    Access::buffer(*request).reset();
    EXPECT_EQ(0U, set({1, 0}));
}

TEST_F(FileRequestTest, ASynchronousRequestWakesItsWaiterBehindTheCaller)
{
    const Owned with = read(0, 512, true);
    ASSERT_THAT(Access::completions(*with), SizeIs(2));
    EXPECT_EQ(&Calls::record, Access::completions(*with)[0].function);
    EXPECT_EQ(&SyncFileRequest::SynchWaiter, Access::completions(*with)[1].function);
    const Owned without(
        new FileRequest(true, 512, 0, true, true, nullptr, file_(), nullptr, Qz::Ptr<iObject>()));
    ASSERT_THAT(Access::completions(*without), SizeIs(1));
    EXPECT_EQ(&SyncFileRequest::SynchWaiter, Access::completions(*without)[0].function);
    EXPECT_EQ(1U, os.threads().events().back().manualReset);
}

TEST_F(FileRequestTest, AWaiterWakesAfterAnErrorAsAfterASuccess)
{
    const Owned failed = read(0, 512, true);
    failed->NotifyError(7, 0);
    failed->WaitForSynchCompletion();  // would stop the test if the event were not set
    EXPECT_EQ(eRequestError, calls.last().status);
}

TEST_F(FileRequestTest, DestroyingASynchronousRequestWakesItsWaiters)
{
    Owned request = read(0, 512, true);
    const Qz::Ptr<iThreadEvent> event = request->syncEvent();
    EXPECT_FALSE(event->wait(0));
    request.reset();
    EXPECT_TRUE(event->wait(0));
}

TEST_F(FileRequestTest, UseStampsAndAdvancesTheClock)
{
    const Owned request = read(0, 512);
    const std::uint64_t clock = FileRequest::usageClock_;
    request->Use();
    EXPECT_EQ(clock, Access::usageStamp(*request));
    request->Use();
    EXPECT_EQ(clock + 1, Access::usageStamp(*request));
    EXPECT_EQ(clock + 2, FileRequest::usageClock_);
}

TEST_F(FileRequestTest, DestructionReleasesTheContextsOfAllCallers)
{
    Owned request = read(0, 512);
    Access::completions(*request).add(CompletionInfo(&Calls::record, calls.context(), 100, 10));
    EXPECT_EQ(2U, calls.references());
    request.reset();
    EXPECT_EQ(0U, calls.references());
}

TEST_F(FileRequestTest, IsPendingUntilItHasEndedInAnyWay)
{
    const Owned request = read(0, 512);
    using Status = FileRequest::Status;
    for (const auto& [status, pending] :
         {std::pair<Status, bool>(FileRequest::NEW, true), std::pair<Status, bool>(FileRequest::QUEUED, true),
          std::pair<Status, bool>(FileRequest::STARTED, true),
          std::pair<Status, bool>(FileRequest::COMPLETE, false),
          std::pair<Status, bool>(FileRequest::COMPLETING, true),
          std::pair<Status, bool>(FileRequest::FAILED, false),
          std::pair<Status, bool>(FileRequest::SLOW, false)}) {
        request->setStatus(status);
        EXPECT_EQ(pending, request->isPending()) << status;
    }
}

TEST_F(FileRequestTest, ACallerThatAsksAgainFromItsErrorGetsANewRequest)
{
    const Qz::Ptr<Retry> retry(new Retry);
    retry->file = openForReading(pattern(4096));
    Qz::Ptr<iObject> context = retry;
    retry->file->DirectRead(0, 512, false, &Retry::function, context);
    readPass();
    os.transfers().failNext(errorFromErrno(EIO));
    EXPECT_THAT(retry->statuses, ElementsAre(eRequestError));
    readPass();
    os.transfers().completeAll();
    EXPECT_THAT(retry->statuses, ElementsAre(eRequestError, eRequestSuccess));
}

TEST_F(FileRequestTest, ACallerThatAsksAgainWhenItsStartFailedGetsANewRequest)
{
    const Qz::Ptr<Retry> retry(new Retry);
    retry->file = openForReading(pattern(4096));
    os.faults().failNext(fake::Op::asyncRead, errorFromErrno(EIO));
    Qz::Ptr<iObject> context = retry;
    retry->file->DirectRead(0, 512, false, &Retry::function, context);
    readPass();
    EXPECT_THAT(retry->statuses, ElementsAre(eRequestError));
    EXPECT_EQ(0U, FsysGetLastError());  // the answer of the platform was "no", which is 0
    readPass();
    os.transfers().completeAll();
    EXPECT_THAT(retry->statuses, ElementsAre(eRequestError, eRequestSuccess));
}
