// DirectRead and DirectWrite: which way the data takes, and what the caller is told.

#include "EngineFixture.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

namespace {

class DirectIOTest : public EngineTest
{
protected:
    ~DirectIOTest() override { FsysSetNetworkWriteCaching(false); }
    static unsigned put(FsysFile* file, const std::string& bytes, Calls& calls, bool synchronous = false)
    {
        Qz::Ptr<iMemHolder> data(new TestData(bytes));
        return file->DirectWrite(data, false, &Calls::record, calls.context(), synchronous);
    }
    // Did the bytes go to the cache? They are taken out of it again.
    static bool wentThroughCache(FsysFile* file, const std::string& bytes)
    {
        const unsigned before = FsysFileTestAccess::gathered(*file);
        Calls calls;
        EXPECT_EQ(1U, put(file, bytes, calls));
        return FsysFileTestAccess::gathered(*file) != before;
    }
};

}  // namespace

TEST_F(DirectIOTest, AnAlignedWriteGoesToTheDiskAsARequest)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    Qz::Ptr<iMemHolder> data(new TestData(pattern(4096)));
    EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
    EXPECT_EQ(0U, calls.count());
    writePass();
    os.transfers().completeAll();
    ASSERT_EQ(1U, calls.count());
    EXPECT_EQ("FsysWrites", calls.last().threadName);
    EXPECT_EQ(eRequestSuccess, calls.last().status);
    EXPECT_EQ(data, calls.last().data);
    EXPECT_EQ(pattern(4096), written());
}

TEST_F(DirectIOTest, ADirectWriteMovesThePositionAndTheCacheWithIt)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    put(file, pattern(4096), calls);
    EXPECT_EQ(4096U, FsysFileTestAccess::position(*file));
    EXPECT_EQ(4096U, FsysFileTestAccess::cacheStart(*file));
}

TEST_F(DirectIOTest, ASmallWriteIsGatheredAndReportedAtOnce)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    Qz::Ptr<iMemHolder> data(new TestData(pattern(100)));
    EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
    ASSERT_EQ(1U, calls.count());
    EXPECT_EQ(std::this_thread::get_id(), calls.last().thread);
    EXPECT_EQ(eRequestSuccess, calls.last().status);
    EXPECT_EQ(data, calls.last().data);
    EXPECT_EQ("", written());
    EXPECT_EQ(0U, FsysFileTestAccess::position(*file));
}

TEST_F(DirectIOTest, GatheredWritesPass131072BytesInWholeSectors)
{
    FsysFile* const file = openForWriting();
    serveWaiters();
    const std::string all = pattern(132000);
    Calls calls;
    for (unsigned i = 0; i < 131; ++i)
        EXPECT_EQ(1U, put(file, all.substr(i * 1000, 1000), calls));
    EXPECT_EQ(131U, calls.count());
    EXPECT_EQ(0U, os.transfers().accepted());
    EXPECT_EQ(1U, put(file, all.substr(131000, 1000), calls));
    EXPECT_EQ(1U, os.transfers().accepted());
    EXPECT_EQ(all.substr(0, 131584), written());
    EXPECT_EQ(416U, FsysFileTestAccess::gathered(*file));
    EXPECT_EQ(131584U, FsysFileTestAccess::position(*file));
    EXPECT_EQ(131584U, FsysFileTestAccess::cacheStart(*file));
    // The overflowing write's function runs with the cache as its data, before DirectWrite returns.
    ASSERT_EQ(132U, calls.count());
    EXPECT_EQ("FsysWrites", calls.last().threadName);
    EXPECT_TRUE(calls.last().hasData);
    EXPECT_EQ(0U, calls.last().size);

    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_EQ(all + all.substr(131584), written());
}

TEST_F(DirectIOTest, WithoutAsynchronousSupportTheCacheIsFlushedSynchronouslyAndNobodyIsCalled)
{
    os.files().addFile(L"/m/Material/write.mov", "");
    os.files().setAsyncCapability(L"/m/Material/write.mov", 0);
    FsysFile* const file = open(L"/m/Material/write.mov", fsysOpenWrite);
    const std::string all = pattern(132000);
    Calls calls;
    EXPECT_EQ(1U, put(file, all.substr(0, 131072), calls));
    EXPECT_EQ(1U, calls.count());
    EXPECT_EQ(1U, put(file, all.substr(131072), calls));
    EXPECT_EQ(1U, calls.count());
    EXPECT_EQ(all.substr(0, 131584), written());
    EXPECT_EQ(0U, os.transfers().accepted());
}

TEST_F(DirectIOTest, AFailedSynchronousFlushGivesThePlatformsCode)
{
    os.files().addFile(L"/m/Material/write.mov", "");
    os.files().setAsyncCapability(L"/m/Material/write.mov", 0);
    FsysFile* const file = open(L"/m/Material/write.mov", fsysOpenWrite);
    Calls calls;
    put(file, pattern(131072), calls);
    os.faults().failNext(fake::Op::write, errorFromErrno(ENOSPC));
    EXPECT_EQ(errorFromErrno(ENOSPC), put(file, pattern(1000), calls));
}

TEST_F(DirectIOTest, UnalignedPositionOrSizeTakesTheCache)
{
    FsysFile* const file = openForWriting();
    EXPECT_TRUE(wentThroughCache(file, pattern(511)));
    file->Seek(0, eSeekAbsolute);
    EXPECT_FALSE(wentThroughCache(file, pattern(512)));
    FsysFileTestAccess::position(*file) = 100;
    EXPECT_TRUE(wentThroughCache(file, pattern(512)));
}

TEST_F(DirectIOTest, AlignedDataJoinsWhatIsGathered)
{
    FsysFile* const file = openForWriting();
    EXPECT_TRUE(wentThroughCache(file, pattern(100)));
    EXPECT_TRUE(wentThroughCache(file, pattern(512)));
}

TEST_F(DirectIOTest, NetworkWriteCachingGathersOnNetworkDrivesOnly)
{
    fake::DriveProperties network;
    network.type = iDiskDrive::eNetwork;
    network.root = L"/net/";
    os.files().addDrive(network);
    os.files().addFile(L"/net/a.mov", "");
    FsysFile* const remote = open(L"/net/a.mov", fsysOpenWrite);
    FsysFile* const local = openForWriting();
    EXPECT_FALSE(wentThroughCache(remote, pattern(512)));
    FsysSetNetworkWriteCaching(true);
    EXPECT_TRUE(wentThroughCache(remote, pattern(512)));
    EXPECT_FALSE(wentThroughCache(local, pattern(512)));
}

TEST_F(DirectIOTest, ASectorSizeOfZeroCountsAsAligned)
{
    fake::DriveProperties odd;
    odd.sectorSize = 0;
    odd.root = L"/odd/";
    os.files().addDrive(odd);
    os.files().addFile(L"/odd/a.mov", "");
    FsysFile* const file = open(L"/odd/a.mov", fsysOpenWrite);
    EXPECT_FALSE(wentThroughCache(file, pattern(100)));
}

TEST_F(DirectIOTest, AFullWriteListIsTried201Times)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    for (int i = 0; i < 41; ++i)
        EXPECT_EQ(1U, put(file, pattern(512), calls));
    os.clock().clearRecords();
    EXPECT_EQ(0U, put(file, pattern(512), calls));
    EXPECT_THAT(os.clock().sleeps(), SizeIs(200));
    EXPECT_DOUBLE_EQ(4000, os.clock().sleptMs());
    EXPECT_EQ(8U, FsysGetLastError());
    EXPECT_EQ(41U * 512, FsysFileTestAccess::position(*file));
}

TEST_F(DirectIOTest, AWriteIsAcceptedWhenRoomComesUp)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    for (int i = 0; i < 41; ++i)
        put(file, pattern(512), calls);
    os.clock().clearRecords();
    os.clock().after(90, [&] { FsysFileTestAccess::writes(*file)[40]->setStatus(FileRequest::COMPLETE); });
    EXPECT_EQ(1U, put(file, pattern(512), calls));
    EXPECT_THAT(os.clock().sleeps(), SizeIs(5));
}

TEST_F(DirectIOTest, AnOverflowOfTheCacheIsTried201TimesAndItsDataStayGathered)
{
    FsysFile* const file = openForWriting();
    Calls held;
    for (int i = 0; i < 41; ++i)
        EXPECT_EQ(1U, put(file, pattern(512), held));
    Calls calls;
    EXPECT_EQ(1U, put(file, pattern(100), calls));
    calls.forget();
    os.clock().clearRecords();
    EXPECT_EQ(0U, put(file, pattern(132000), calls));
    EXPECT_THAT(os.clock().sleeps(), SizeIs(200));
    EXPECT_DOUBLE_EQ(4000, os.clock().sleptMs());
    EXPECT_EQ(8U, FsysGetLastError());
    EXPECT_EQ(0U, calls.count());
    EXPECT_EQ(0U, calls.references());
    EXPECT_EQ(41U * 512, FsysFileTestAccess::position(*file));
    EXPECT_EQ(41U * 512, FsysFileTestAccess::cacheStart(*file));
    EXPECT_EQ(132100U, FsysFileTestAccess::gathered(*file));
    // Whoever repeats the call stores the bytes twice.
    EXPECT_EQ(0U, put(file, pattern(132000), calls));
    EXPECT_EQ(264100U, FsysFileTestAccess::gathered(*file));
}

TEST_F(DirectIOTest, AReadBehindTheEndSucceedsWithZerosInsideTheSectorInWhichTheFileEnds)
{
    FsysFile* const file = openForReading(pattern(700));
    Calls inside;
    Calls behind;
    EXPECT_EQ(1U, file->DirectRead(800, 100, false, &Calls::record, inside.context()));
    EXPECT_EQ(1U, file->DirectRead(20480, 100, false, &Calls::record, behind.context()));
    readPass();
    os.transfers().completeAll();
    EXPECT_EQ(eRequestSuccess, inside.last().status);
    EXPECT_EQ(std::string(100, '\0'), inside.last().bytes);
    EXPECT_EQ(eRequestError, behind.last().status);
    EXPECT_EQ(0U, behind.last().error);
}

TEST_F(DirectIOTest, AFinishedReadKeepsAnsweringWithWhatTheFileHeldThen)
{
    FsysFile* const file = openForReading(pattern(4096, 1));
    Calls calls;
    file->DirectRead(0, 512, false, &Calls::record, calls.context());
    readPass();
    os.transfers().completeAll();
    os.files().addFile(L"/m/Material/read.mov", pattern(4096, 2));
    file->DirectRead(0, 512, false, &Calls::record, calls.context());
    ASSERT_EQ(2U, calls.count());
    EXPECT_EQ(pattern(4096, 1).substr(0, 512), calls.last().bytes);
}

TEST_F(DirectIOTest, WriteAndSeekLeaveThePlaceOfWhatIsGatheredNext)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    put(file, std::string(100, 'A'), calls);
    EXPECT_EQ(1U, file->Write("abc", 3));
    EXPECT_EQ(512U, FsysFileTestAccess::cacheStart(*file));
    EXPECT_EQ(std::string(100, 'A') + "abc", written().substr(512));
    put(file, std::string(50, 'B'), calls);
    file->Seek(0, eSeekAbsolute);
    EXPECT_EQ(512U, FsysFileTestAccess::cacheStart(*file));
    EXPECT_EQ(std::string(50, 'B') + std::string(50, 'A') + "abc", written().substr(512));
}

TEST_F(DirectIOTest, AnOverflowGoesToTheFilesPosition)
{
    FsysFile* const file = openForWriting(pattern(2048));
    serveWaiters();
    Calls calls;
    put(file, pattern(100), calls);
    ASSERT_EQ(512U, FsysFileTestAccess::cacheStart(*file));
    EXPECT_EQ(1U, put(file, pattern(131072), calls));
    EXPECT_EQ(pattern(2048) + pattern(100) + pattern(131072).substr(0, 130972), written());
    EXPECT_EQ(2048U + 131072U, FsysFileTestAccess::cacheStart(*file));
}

TEST_F(DirectIOTest, ARefusalForAnotherReasonIsReturnedAtOnce)
{
    FsysFile* const file = openForWriting();
    FsysFileTestAccess::setClosing(*file, true);
    FsysError = 4711;
    Calls calls;
    EXPECT_EQ(0U, put(file, pattern(512), calls));
    EXPECT_THAT(os.clock().sleeps(), SizeIs(0));
    FsysFileTestAccess::setClosing(*file, false);
}

TEST_F(DirectIOTest, TooManyDeferredRequestsRefuseAReadWith8)
{
    FsysFile* const file = openForReading(pattern(4096));
    FsysFileTestAccess::setDeferred(*file, 61);
    Calls calls;
    EXPECT_EQ(8U, file->DirectRead(0, 512, false, &Calls::record, calls.context()));
    EXPECT_TRUE(FsysFileTestAccess::reads(*file).empty());
    EXPECT_EQ(0U, FsysFileTestAccess::position(*file));
    EXPECT_EQ(0U, calls.references());
}

TEST_F(DirectIOTest, AFullListOfUnfinishedReadsRefusesAReadWith0)
{
    FsysFile* const file = openForReading(pattern(1 << 20));
    Calls calls;
    for (long i = 0; i < 41; ++i)
        EXPECT_EQ(1U, file->DirectRead(i * 8192, 512, false, &Calls::record, calls.context()));
    EXPECT_EQ(0U, file->DirectRead(0, 512, false, &Calls::record, calls.context()));
    EXPECT_EQ(8U, FsysGetLastError());
}

TEST_F(DirectIOTest, AReadAdvancesThePositionAlthoughItNamesItsOwn)
{
    FsysFile* const file = openForReading(pattern(8192));
    file->Seek(7, eSeekAbsolute);
    Calls calls;
    EXPECT_EQ(1U, file->DirectRead(5000, 100, true, &Calls::record, calls.context()));
    EXPECT_EQ(107U, FsysFileTestAccess::position(*file));
}

TEST_F(DirectIOTest, AFileWithItsCacheDisabledAcceptsReadsAndNeverCompletesThem)
{
    FsysFile* const file = openForReading(pattern(4096));
    file->DisableCache();
    Calls calls;
    EXPECT_EQ(1U, file->DirectRead(0, 100, true, &Calls::record, calls.context()));
    readPass();
    EXPECT_EQ(0U, os.transfers().accepted());
    EXPECT_EQ(100U, FsysFileTestAccess::position(*file));
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_THAT(os.clock().sleeps(), SizeIs(0));
    EXPECT_EQ(0U, calls.count());
    EXPECT_EQ(0U, calls.references());
}

TEST_F(DirectIOTest, ASynchronousWriteReturnsAfterItsFunctionAndWithSuccessEvenIfItFailed)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    os.clock().setIdleHandler([this] {
        writePass();
        return os.transfers().failAll(errorFromErrno(EIO)) != 0;
    });
    EXPECT_EQ(1U, put(file, pattern(512), calls, true));
    ASSERT_EQ(1U, calls.count());
    EXPECT_EQ(eRequestError, calls.last().status);
    EXPECT_EQ(errorFromErrno(EIO), FsysGetLastError());
    EXPECT_EQ(512U, FsysFileTestAccess::position(*file));
}

TEST_F(DirectIOTest, AGatheredWriteWithoutAFunctionIsAccepted)
{
    FsysFile* const file = openForWriting();
    Qz::Ptr<iMemHolder> data(new TestData(pattern(100)));
    Qz::Ptr<iObject> none;
    EXPECT_EQ(1U, file->DirectWrite(data, false, nullptr, none, false));
}

TEST_F(DirectIOTest, AWriteThatDoesNotFitTheCacheIsRefusedAndNothingIsCopied)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    EXPECT_EQ(1U, put(file, pattern(100), calls));
    EXPECT_EQ(0U, put(file, pattern(524288 - 99), calls));
    EXPECT_EQ(100U, FsysFileTestAccess::gathered(*file));
    EXPECT_EQ(1U, calls.count());
    EXPECT_THAT(logged.logs(), testing::Contains(HasSubstr("does not fit the write cache")));
}

TEST_F(DirectIOTest, AWriteOnAFileOpenedForReadingIsRefused)
{
    FsysFile* const file = openForReading(pattern(4096));
    Calls calls;
    EXPECT_EQ(0U, put(file, pattern(512), calls));
    EXPECT_EQ(0U, put(file, pattern(10), calls));
    Qz::Ptr<iMemHolder> nothing;
    EXPECT_EQ(0U, openForWriting()->DirectWrite(nothing, false, &Calls::record, calls.context(), false));
    EXPECT_EQ(0U, calls.count());
}

TEST_F(DirectIOTest, AReadOfNothingIsReportedAcceptedAndNeverCompletes)
{
    FsysFile* const file = openForReading(pattern(4096));
    Calls calls;
    testing::internal::CaptureStdout();
    EXPECT_EQ(1U, file->DirectRead(512, 0, false, &Calls::record, calls.context()));
    readPass();
    EXPECT_EQ("assertion failed ByteCount_ != 0 at ole/fsys/FileRequest line 59\n",
              testing::internal::GetCapturedStdout());
    EXPECT_EQ(0U, os.transfers().accepted());
    EXPECT_EQ(0U, calls.count());
}
