// One open file: its handles, and synchronous reading and writing.

#include "EngineFixture.h"
#include "fsys/MaterialLink.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::SizeIs;

namespace {

class OpenModeTest : public EngineTest
{
protected:
    OpenModeTest()
    {
        fake::DriveProperties network;
        network.type = iDiskDrive::eNetwork;
        network.root = L"/net/";
        os.files().addDrive(network);
        os.files().addFile(L"/net/a.mov", pattern(1024));
        os.files().addFile(L"/m/a.mov", pattern(1024));
    }
    std::vector<std::string> opens(const wchar_t* path, unsigned flags)
    {
        os.log().clear();
        open(path, flags);
        return os.log().lines({fake::Op::open});
    }
};

class FsysFileTest : public EngineTest
{
protected:
    static std::string readNext(FsysFile* file, unsigned bytes)
    {
        std::string buffer(bytes, '\0');
        EXPECT_EQ(1U, file->Read(buffer.data(), bytes));
        return buffer;
    }
    // Gathers bytes in the write cache.
    void gather(FsysFile* file, const std::string& bytes)
    {
        Calls calls;
        Qz::Ptr<iMemHolder> data(new TestData(bytes));
        EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
        EXPECT_EQ(1U, calls.count());
    }
};

// A variant file kind that notes what reaches its low-level operations.
class SpyFile : public FsysFile
{
public:
    using FsysFile::FsysFile;
    unsigned LowLevelRead(void*, unsigned bytes) override
    {
        calls.push_back("read " + std::to_string(bytes));
        return 1;
    }
    unsigned LowLevelWrite(const void*, unsigned bytes) override
    {
        calls.push_back("write " + std::to_string(FsysFileTestAccess::position(*this).load()) + "+" +
                        std::to_string(bytes));
        return writeResult;
    }
    std::vector<std::string> calls;
    unsigned writeResult = 1;
};

}  // namespace

TEST_F(OpenModeTest, ANetworkReadLeavesBufferingToTheSystem)
{
    EXPECT_THAT(opens(L"/net/a.mov", fsysOpenRead),
                ElementsAre("open /net/a.mov 1 0 4 0", "open /net/a.mov 1 0 4 2"));
}

TEST_F(OpenModeTest, ANetworkWriteAsksForTheOwnerToBeSet)
{
    EXPECT_THAT(opens(L"/net/a.mov", fsysOpenWrite),
                ElementsAre("open /net/a.mov 2 2 4 0", "open /net/a.mov 2 2 4 7"));
}

TEST_F(OpenModeTest, LocalReadsAndWritesAreUnbuffered)
{
    EXPECT_THAT(opens(L"/m/a.mov", fsysOpenWrite),
                ElementsAre("open /m/a.mov 2 2 4 0", "open /m/a.mov 2 2 4 3"));
    EXPECT_THAT(opens(L"/m/a.mov", fsysOpenRead),
                ElementsAre("open /m/a.mov 1 0 4 0", "open /m/a.mov 1 0 4 3"));
}

TEST_F(OpenModeTest, TheReadBitDecidesBeforeTheWriteBit)
{
    EXPECT_THAT(opens(L"/net/a.mov", fsysOpenRead | fsysOpenWrite),
                ElementsAre("open /net/a.mov 3 2 4 0", "open /net/a.mov 3 2 4 2"));
}

TEST_F(OpenModeTest, AFailedSynchronousHandleIsTheOnlyAttempt)
{
    os.faults().failNext(fake::Op::open, errorFromErrno(EACCES));
    FsysFile file(L"/m/a.mov", nullptr, 512, iDiskDrive::eLocal, fsysOpenRead, 0);
    os.log().clear();
    EXPECT_EQ(errorFromErrno(EACCES), file.LowLevelOpen(L"/m/a.mov", fsysOpenRead, false));
    EXPECT_THAT(os.log().lines({fake::Op::open}), SizeIs(1));
}

TEST_F(OpenModeTest, AHandleThatIsNotOpenIsAFailure)
{
    fake::Fault fault;
    fault.op = fake::Op::open;
    fault.code = errorFromErrno(EIO);
    fault.closedHandle = true;
    os.faults().add(fault);
    FsysFile file(L"/m/a.mov", nullptr, 512, iDiskDrive::eLocal, fsysOpenRead, 0);
    EXPECT_EQ(errorFromErrno(EIO), file.LowLevelOpen(L"/m/a.mov", fsysOpenRead, false));
}

TEST_F(OpenModeTest, TheTypeDecidesForReadsAndTheArgumentForWrites)
{
    const auto mode = [this](iDiskDrive::eType type, unsigned flags, bool onNetworkDrive) {
        FsysFile file(L"/m/a.mov", nullptr, 512, type, flags, 0);
        EXPECT_EQ(1U, file.LowLevelOpen(L"/m/a.mov", flags, onNetworkDrive));
        return os.log().calls(fake::Op::open).back().mode;
    };
    EXPECT_EQ(3U, mode(iDiskDrive::eLocal, fsysOpenRead, true));
    EXPECT_EQ(2U, mode(iDiskDrive::eNetwork, fsysOpenRead, false));
    EXPECT_EQ(7U, mode(iDiskDrive::eLocal, fsysOpenWrite, true));
    EXPECT_EQ(3U, mode(iDiskDrive::eNetwork, fsysOpenWrite, false));
}

TEST_F(OpenModeTest, AttachingAnswersWhetherThePortReportsTheFile)
{
    open(L"/m/a.mov", fsysOpenRead);  // makes the ports
    CompletionPortHandler* const port = FsysTestAccess::receiver()->readPort();
    FsysFile file(L"/m/a.mov", nullptr, 512, iDiskDrive::eLocal, fsysOpenRead, 0);
    EXPECT_FALSE(file.SetUpIoCompletionNotify(port));  // no handle yet
    EXPECT_EQ(1U, file.LowLevelOpen(L"/m/a.mov", fsysOpenRead, false));
    EXPECT_TRUE(file.SetUpIoCompletionNotify(port));
    EXPECT_FALSE(file.SetUpIoCompletionNotify(port));  // attached already
}

TEST_F(FsysFileTest, SeekIsAbsoluteForOneAndRelativeForAllElse)
{
    FsysFile* const file = openForReading(pattern(1000));
    EXPECT_EQ(1U, file->Seek(500, eSeekAbsolute));
    EXPECT_EQ(pattern(1000).substr(500, 20), readNext(file, 20));
    EXPECT_EQ(1U, file->Seek(-10, eSeekRelative));
    EXPECT_EQ(pattern(1000).substr(510, 10), readNext(file, 10));
    file->Seek(20, eSeekAbsolute);
    file->Seek(5, static_cast<SEEK_TYPE>(7));
    EXPECT_EQ(25U, FsysFileTestAccess::position(*file));
}

TEST_F(FsysFileTest, WriteFirstWritesWhatIsGatheredAndGoesOnBehindIt)
{
    FsysFile* const file = openForWriting();
    gather(file, std::string(100, 'A'));
    EXPECT_EQ(1U, file->Write(std::string(50, 'B').data(), 50));
    EXPECT_EQ(std::string(512, '\0') + std::string(100, 'A') + std::string(50, 'B'), written());
    EXPECT_EQ(662U, FsysFileTestAccess::position(*file));
    EXPECT_EQ(0U, FsysFileTestAccess::gathered(*file));
}

TEST_F(FsysFileTest, SeekWritesWhatIsGatheredAndKeepsThePosition)
{
    FsysFile* const file = openForWriting(pattern(700));
    gather(file, std::string(100, 'A'));
    EXPECT_EQ(1U, file->Seek(0, eSeekRelative));
    EXPECT_EQ(700U, FsysFileTestAccess::position(*file));
    EXPECT_EQ(std::string(100, 'A'), written().substr(512, 100));
    EXPECT_EQ(0U, FsysFileTestAccess::gathered(*file));
}

TEST_F(FsysFileTest, AFailedReadLeavesThePosition)
{
    FsysFile* const file = openForReading(pattern(1000));
    file->Seek(100, eSeekAbsolute);
    os.faults().failNext(fake::Op::read, errorFromErrno(EIO));
    char bytes[10];
    EXPECT_EQ(0U, file->Read(bytes, 10));
    EXPECT_EQ(100U, FsysFileTestAccess::position(*file));
}

TEST_F(FsysFileTest, AReadBehindTheEndFailsAndLeavesThePosition)
{
    FsysFile* const file = openForReading(pattern(1000));
    file->Seek(1000, eSeekAbsolute);
    char bytes[10];
    EXPECT_EQ(0U, file->Read(bytes, 10));
    EXPECT_EQ(1000U, FsysFileTestAccess::position(*file));
}

TEST_F(FsysFileTest, AFailedWriteGivesThePlatformsCodeAndLeavesThePosition)
{
    FsysFile* const file = openForWriting(pattern(1000));
    os.faults().failNext(fake::Op::write, errorFromErrno(ENOSPC));
    EXPECT_EQ(errorFromErrno(ENOSPC), file->Write("abc", 3));
    EXPECT_EQ(1000U, FsysFileTestAccess::position(*file));
}

TEST_F(FsysFileTest, AFailedFlushIsNotReportedAndItsBytesCount)
{
    FsysFile* const file = openForWriting();
    gather(file, std::string(100, 'A'));
    os.faults().failNext(fake::Op::write, errorFromErrno(EIO));
    EXPECT_EQ(1U, file->Write("abc", 3));
    EXPECT_EQ(615U, FsysFileTestAccess::position(*file));
    EXPECT_EQ("abc", written().substr(612, 3));
}

TEST_F(FsysFileTest, AReadDoesNotSeeWhatIsGathered)
{
    FsysFile* const file = openForWriting(pattern(1024));
    gather(file, std::string(100, 'A'));
    file->Seek(0, eSeekRelative);
    gather(file, std::string(100, 'B'));
    FsysFileTestAccess::position(*file) = 512;
    EXPECT_EQ(std::string(100, 'A'), readNext(file, 100));
}

TEST_F(FsysFileTest, WriteOnAFileOpenedForReadingDoesNotNeedAWriteCache)
{
    FsysFile* const file = openForReading(pattern(100));
    EXPECT_NE(1U, file->Write("abc", 3));
    EXPECT_EQ(pattern(100), os.files().contents(L"/m/Material/read.mov"));
}

TEST_F(FsysFileTest, FileInformationBeginsWithTheSize)
{
    FsysFile* const file = openForReading(pattern(12345));
    FILE_INFO info;
    EXPECT_EQ(1U, file->LowLevelGetInfo(&info));
    EXPECT_EQ(12345U, info.size);
}

TEST_F(FsysFileTest, ALinkIsFollowedByTheAsynchronousHandleOnly)
{
    os.files().addFile(L"/m/Material/target.mov", pattern(4096));
    std::string link("/m/Material/target.mov");
    link.resize(512, '\0');
    os.files().addFile(L"/m/Material/link.mov", link);
    FsysFile* const file = open(L"/m/Material/link.mov");
    EXPECT_EQ(link.substr(0, 30), readNext(file, 30));
    Calls calls;
    EXPECT_EQ(1U, file->DirectRead(1024, 512, false, &Calls::record, calls.context()));
    readPass();
    os.transfers().completeAll();
    EXPECT_EQ(pattern(4096).substr(1024, 512), calls.last().bytes);
}

TEST_F(FsysFileTest, AsynchronousSupportIsBitZeroOfTheSynchronousHandle)
{
    const FsysFile unopened(L"/m/a.mov", nullptr, 512, iDiskDrive::eLocal, fsysOpenRead, 0);
    EXPECT_FALSE(unopened.isASyncIOSupported());
    FsysFile* const file = openForReading(pattern(1024));
    for (const auto& [bits, answer] :
         {std::pair(0U, false), std::pair(1U, true), std::pair(2U, false), std::pair(3U, true)}) {
        os.files().setAsyncCapability(L"/m/Material/read.mov", bits);
        EXPECT_EQ(answer, file->isASyncIOSupported()) << bits;
    }
}

TEST_F(FsysFileTest, LowLevelCloseReleasesTheSynchronousHandleFirst)
{
    FsysFile* const file = openForReading(pattern(1024));
    os.log().clear();
    EXPECT_EQ(1U, file->LowLevelClose());
    const auto closes = os.log().calls(fake::Op::close);
    ASSERT_THAT(closes, SizeIs(2));
    EXPECT_LT(closes[0].handle, closes[1].handle);
}

TEST_F(FsysFileTest, AnObjectWithoutAPathHasNoListsAndCanBeDestroyed)
{
    const unsigned events = os.live().events;
    const FsysFile file(LightweightString<wchar_t>(), nullptr, 512, iDiskDrive::eLocal, fsysOpenRead, 0);
    EXPECT_FALSE(FsysFileTestAccess::hasLists(file));
    EXPECT_EQ(events, os.live().events);
}

TEST_F(FsysFileTest, ANewObjectStartsEmptyWithItsCacheAt512)
{
    os.log().clear();
    FsysFile file(L"/m/a.mov", nullptr, 4096, iDiskDrive::eRemovable, fsysOpenWrite, 77);
    EXPECT_EQ(4096U, file.GetSectorSize());
    EXPECT_EQ(77U, file.coalesceLength());
    EXPECT_EQ(512U, FsysFileTestAccess::cacheStart(file));
    EXPECT_EQ(0U, FsysFileTestAccess::position(file));
    EXPECT_EQ(0U, file.readBytesOutstanding());
    EXPECT_EQ(0U, file.writeBytesOutstanding());
    EXPECT_EQ(40U, FsysFileTestAccess::reads(file).capacity());
    EXPECT_EQ(40U, FsysFileTestAccess::writes(file).capacity());
    const fake::EventRecord event = os.threads().events().back();
    EXPECT_EQ(0U, event.manualReset);
    EXPECT_EQ(0U, event.initiallySignalled);
    EXPECT_FALSE(event.hasName);
    EXPECT_EQ(1U, file.DisableCache());
}

TEST_F(FsysFileTest, AVariantFileKindIsReachedThroughItsOperations)
{
    SpyFile file(L"/m/a.mov", nullptr, 512, iDiskDrive::eLocal, fsysOpenWrite, 0);
    file.AllocWriteCache();
    char bytes[20] = {};
    EXPECT_EQ(1U, file.Read(bytes, 20));
    EXPECT_EQ(1U, file.Write(bytes, 5));
    gather(&file, std::string(100, 'A'));
    file.WaitForDrain();
    EXPECT_THAT(file.calls, ElementsAre("read 20", "write 20+5", "write 512+100", "write 612+100"));
}
