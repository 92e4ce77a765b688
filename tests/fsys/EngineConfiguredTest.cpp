// What the engine's configuration integers do. Each test is a process that starts with its own values (see
// CMakeLists.txt).

#include "EngineFixture.h"
#include "fsys/DiskManager.h"
#include "fsys/EngineConfig.h"
#include "fsys/MediaDrive.h"
#include "os/BackendChoice.h"
#include "os/BusyWait.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

#include <cstdlib>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class EngineConfigured : public EngineTest
{
protected:
    EngineConfigured()
    {
        fake::DriveProperties network;
        network.type = iDiskDrive::eNetwork;
        network.root = L"/net/";
        os.files().addDrive(network);
        os.files().addFile(L"/net/a.mov", pattern(65536));
    }
    static unsigned put(FsysFile* file, const std::string& bytes, Calls& calls)
    {
        Qz::Ptr<iMemHolder> data(new TestData(bytes));
        return file->DirectWrite(data, false, &Calls::record, calls.context(), false);
    }
    std::vector<std::string> opens(unsigned flags)
    {
        os.log().clear();
        open(L"/net/a.mov", flags);
        return os.log().lines({fake::Op::open});
    }
};

}  // namespace

namespace {

// The file is a volume of its own: the local share of a registered network drive.
class SpeedConfigured : public EngineTest
{
protected:
    SpeedConfigured()
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
    }
    ~SpeedConfigured() override { DiskManager::deInit(); }

    // Whether the volume is slow after one transfer of bytes that took ms, with so much queued.
    bool slowAfter(unsigned flags, unsigned bytes, double ms, std::uint32_t queued)
    {
        const bool writes = flags == fsysOpenWrite;
        FsysFile* const file = open(L"/m/Material/speed.mov", flags);
        Calls calls;
        Qz::Ptr<iMemHolder> data(new TestData(pattern(bytes)));
        if (writes)
            file->DirectWrite(data, false, &Calls::record, calls.context(), false);
        else
            file->DirectRead(0, bytes, false, &Calls::record, calls.context());
        FsysFileTestAccess::setDeferred(*file, 1);  // so that the pass leaves the volume's flag alone
        static_cast<void>(writes ? writePass() : readPass());
        os.clock().advance(ms);
        const auto setOutstanding =
            writes ? &FsysFileTestAccess::setWriteOutstanding : &FsysFileTestAccess::setReadOutstanding;
        setOutstanding(*file, queued);
        testing::internal::CaptureStdout();  // a slow write's callers get no data, which is reported
        os.transfers().completeNext();
        testing::internal::GetCapturedStdout();
        setOutstanding(*file, 0);
        const bool slow =
            DiskManager::getVolume(LightweightString<wchar_t>(L"/m/Material/speed.mov"))->isSlow();
        FsysClose(file, nullptr);
        return slow;
    }
};

}  // namespace

TEST_F(SpeedConfigured, ARateBelowTheConfiguredOneIsSlow)
{
    for (const unsigned flags : {fsysOpenRead, fsysOpenWrite}) {
        EXPECT_FALSE(slowAfter(flags, 20480, 100, 0)) << flags;  // 204.8 bytes per millisecond, at least 200
        EXPECT_TRUE(slowAfter(flags, 20480, 103, 0)) << flags;
    }
}

TEST_F(SpeedConfigured, AReadQueueAboveTheConfiguredOneIsSlow)
{
    EXPECT_FALSE(slowAfter(fsysOpenRead, 512, 1, 20999));
    EXPECT_TRUE(slowAfter(fsysOpenRead, 512, 1, 21000));
    EXPECT_FALSE(slowAfter(fsysOpenWrite, 512, 1, 21000));
}

TEST_F(SpeedConfigured, AWriteQueueAboveTheConfiguredOneIsSlow)
{
    EXPECT_FALSE(slowAfter(fsysOpenWrite, 512, 1, 30999));
    EXPECT_TRUE(slowAfter(fsysOpenWrite, 512, 1, 31000));
    EXPECT_FALSE(slowAfter(fsysOpenRead, 512, 1, 31000));
}

TEST_F(EngineConfigured, PollDelaysAreThoseOfTheConfiguration)
{
    EXPECT_EQ(70U, FsysTestAccess::readPoll().pollDelay());
    EXPECT_EQ(90U, FsysTestAccess::writePoll().pollDelay());
    FsysFile* const file = openForReading(pattern(4096));
    Calls calls;
    file->DirectRead(0, 512, false, &Calls::record, calls.context());
    readPass();
    FsysClose(file, nullptr);
    EXPECT_DOUBLE_EQ(29 * 180, os.clock().sleptMs());
    os.transfers().completeAll();
}

TEST_F(EngineConfigured, AShorterRequestListIsFullEarlier)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(1U, put(file, pattern(512), calls));
    EXPECT_EQ(0U, put(file, pattern(512), calls));
    EXPECT_THAT(os.clock().sleeps(), SizeIs(7));
}

TEST_F(EngineConfigured, AForcedPollComesAfterItsLimit)
{
    FsysFile* const file = openForReading(pattern(1 << 18));
    Calls calls;
    FsysSetImmediateRequestHandling(false);
    os.log().clear();
    for (long i = 0; i < 2; ++i)
        file->DirectRead(i * 8192, 512, true, &Calls::record, calls.context());
    EXPECT_EQ(0U, os.log().count(fake::Op::setEvent));
    file->DirectRead(3 * 8192, 512, true, &Calls::record, calls.context());
    EXPECT_EQ(1U, os.log().count(fake::Op::setEvent));
    FsysFileTestAccess::setDeferred(*file, 5);
    EXPECT_EQ(8U, file->CheckRequestListSize(&FsysFileTestAccess::reads(*file)));
}

TEST_F(EngineConfigured, NetworkReadsCanBeUnbuffered)
{
    EXPECT_THAT(opens(fsysOpenRead), ElementsAre("open /net/a.mov 1 0 4 0", "open /net/a.mov 1 0 4 3"));
}

TEST_F(EngineConfigured, TheOwnerOfNetworkFilesCanBeLeftAlone)
{
    EXPECT_THAT(opens(fsysOpenWrite), ElementsAre("open /net/a.mov 2 2 4 0", "open /net/a.mov 2 2 4 3"));
}

TEST_F(EngineConfigured, WithTheKeyAt1NetworkCachingGathersLocalWritesToo)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    put(file, pattern(512), calls);
    EXPECT_EQ(0U, FsysFileTestAccess::gathered(*file));
    FsysSetNetworkWriteCaching(true);
    put(file, pattern(512), calls);
    EXPECT_EQ(512U, FsysFileTestAccess::gathered(*file));
}

TEST_F(EngineConfigured, AnyOtherValueOfTheKeyDoesNot)
{
    FsysSetNetworkWriteCaching(true);
    FsysFile* const file = openForWriting();
    Calls calls;
    put(file, pattern(512), calls);
    EXPECT_EQ(0U, FsysFileTestAccess::gathered(*file));
}

TEST_F(EngineConfigured, ReadBytesOutstandingAreShownBeforeTheyAreSubtracted)
{
    FsysFile* const file = openForReading(pattern(8192));
    Calls calls;
    file->DirectRead(0, 4096, false, &Calls::record, calls.context());
    readPass();
    os.transfers().completeAll();
    ASSERT_THAT(logged.debug(), SizeIs(1));
    EXPECT_EQ(32, logged.debug()[0].column);
    EXPECT_EQ(8, logged.debug()[0].row);
    EXPECT_EQ("Rbytes in Fsys: 4.1Kbytes ", logged.debug()[0].text);
}

TEST_F(EngineConfigured, WriteBytesOutstandingAreShownInWholeKilobytes)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    put(file, pattern(3584), calls);
    writePass();
    FsysFileTestAccess::setWriteOutstanding(*file, 1999);
    os.transfers().completeAll();
    ASSERT_THAT(logged.debug(), SizeIs(1));
    EXPECT_EQ(32, logged.debug()[0].column);
    EXPECT_EQ(6, logged.debug()[0].row);
    EXPECT_EQ("Wbytes in Fsys: 1.0Kbytes ", logged.debug()[0].text);
    FsysFileTestAccess::setWriteOutstanding(*file, 0);
}

TEST_F(EngineConfigured, APassThatStartedARequestIsTracedWithItsPath)
{
    FsysFile* const file = openForReading(pattern(8192));
    readPass();
    EXPECT_THAT(logged.logs(), IsEmpty());
    Calls calls;
    file->DirectRead(0, 4096, false, &Calls::record, calls.context());
    readPass();
    EXPECT_THAT(logged.logs(), ElementsAre(HasSubstr("/m/Material/read.mov")));
    readPass();
    EXPECT_THAT(logged.logs(), SizeIs(1));
    os.transfers().completeAll();
}

TEST(EngineConfiguredLog, TellsOnceWhatCarriesTheTransfers)
{
    const LogCapture logged;
    for (int i = 0; i < 2; ++i) {
        FsysInitialize();
        FsysUninitialize(Shutdown::eNormalExit);
    }
    EXPECT_THAT(logged.logs(), ElementsAre(os::backendChoiceText() + std::string("\n")));
}

TEST_F(EngineConfigured, TheLastErrorIsOneBeforeAnyFailure) { EXPECT_EQ(1U, FsysGetLastError()); }

TEST_F(EngineConfigured, EveryKeyIsReadAndKept)
{
    EXPECT_EQ(1, engineConfig.readPollDelayMs);
    EXPECT_EQ(2, engineConfig.writePollDelayMs);
    EXPECT_EQ(3, engineConfig.maxRequestListSize);
    EXPECT_EQ(4, engineConfig.forcePollLimit);
    EXPECT_EQ(5, engineConfig.maxWriteRetries);
    EXPECT_EQ(6, engineConfig.dontBufferNetReads);
    EXPECT_EQ(7, engineConfig.disableSetOwner);
    EXPECT_EQ(8, engineConfig.alwaysUseWriteCache);
    EXPECT_EQ(9, engineConfig.minNetDiskRate);
    EXPECT_EQ(10, engineConfig.maxNetReadQueue);
    EXPECT_EQ(11, engineConfig.maxNetWriteQueue);
    EXPECT_EQ(12, engineConfig.showReadBufferDebug);
    EXPECT_EQ(13, engineConfig.showWriteBufferDebug);
    EXPECT_EQ(14, engineConfig.showRequestDebug);
    EXPECT_EQ(15, engineConfig.maxAllocRetries);
    EXPECT_EQ(16U, os::busyWait());
}

TEST_F(EngineConfigured, WithoutAConfigurationEveryKeyHasItsDefault)
{
    EXPECT_EQ(50, engineConfig.readPollDelayMs);
    EXPECT_EQ(50, engineConfig.writePollDelayMs);
    EXPECT_EQ(40, engineConfig.maxRequestListSize);
    EXPECT_EQ(30, engineConfig.forcePollLimit);
    EXPECT_EQ(200, engineConfig.maxWriteRetries);
    EXPECT_EQ(0, engineConfig.dontBufferNetReads);
    EXPECT_EQ(0, engineConfig.disableSetOwner);
    EXPECT_EQ(0, engineConfig.alwaysUseWriteCache);
    EXPECT_EQ(300, engineConfig.minNetDiskRate);
    EXPECT_EQ(1000, engineConfig.maxNetReadQueue);
    EXPECT_EQ(1500, engineConfig.maxNetWriteQueue);
    EXPECT_EQ(0, engineConfig.showReadBufferDebug);
    EXPECT_EQ(0, engineConfig.showWriteBufferDebug);
    EXPECT_EQ(0, engineConfig.showRequestDebug);
    EXPECT_EQ(20, engineConfig.maxAllocRetries);
    EXPECT_EQ(0U, os::busyWait());
}

TEST_F(EngineConfigured, AChangeAfterTheLoadMeansNothing)
{
    ASSERT_EQ(0, setenv("FSYS_CFG_ReadPollDelay", "7", 1));
    FsysUninitialize(Shutdown::eNormalExit);
    FsysInitialize();
    EXPECT_EQ(70U, FsysTestAccess::readPoll().pollDelay());
}
