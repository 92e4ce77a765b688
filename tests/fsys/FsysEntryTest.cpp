// The entry functions: initialising, opening, closing, ending.

#include "EngineFixture.h"
#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "os/BusyWait.h"
#include "os/LastError.h"
#include "os/testing/ForwardingOS.h"

#include <gmock/gmock.h>

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::vector<std::pair<Shutdown::Callback, int>> registrations;

void noteRegistration(Shutdown::Callback callback, int priority)
{
    registrations.emplace_back(callback, priority);
}

// The engine is not running, the platform is the fake.
class NoEngineTest : public testing::Test
{
protected:
    FakeOS os;
    ScopedOS installed{os};
};

class FsysOpenTest : public EngineTest
{
};
class FsysCloseTest : public EngineTest
{
protected:
    // A write file with one request that the device has and does not finish.
    FsysFile* withHeldWrite(Calls& calls)
    {
        FsysFile* const file = openForWriting();
        Qz::Ptr<iMemHolder> data(new TestData(pattern(512)));
        EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
        writePass();
        EXPECT_EQ(1U, os.transfers().heldCount());
        return file;
    }
    FsysFile* withHeldRead(Calls& calls)
    {
        FsysFile* const file = openForReading(pattern(8192));
        EXPECT_EQ(1U, file->DirectRead(0, 512, false, &Calls::record, calls.context()));
        readPass();
        EXPECT_EQ(1U, os.transfers().heldCount());
        return file;
    }
    std::vector<std::string> closed() { return os.log().lines({fake::Op::close}); }
};
class FsysEndTest : public EngineTest
{
protected:
    // Paths of handles released since the log was cleared, without repetition.
    std::vector<std::string> released()
    {
        std::vector<std::string> paths;
        for (const fake::Call& call : os.log().calls(fake::Op::close))
            if (paths.empty() || paths.back() != toUTF8(call.path).str())
                paths.push_back(toUTF8(call.path).str());
        return paths;
    }
    std::vector<FsysFile*> openSeveral(const wchar_t* stem, unsigned count, unsigned flags)
    {
        std::vector<FsysFile*> files;
        for (unsigned i = 1; i <= count; ++i) {
            const LightweightString<wchar_t> path =
                LightweightString<wchar_t>(stem) + std::to_wstring(i).c_str();
            os.files().addFile(path, pattern(2048, i));
            files.push_back(open(path.c_str(), flags));
        }
        return files;
    }
};

}  // namespace

TEST_F(NoEngineTest, EntryPointsReturnZeroAndTouchNothingBeforeInitialise)
{
    auto* const marker = reinterpret_cast<FsysFile*>(&os);
    FsysFile* file = marker;
    unsigned bytes = 77;
    EXPECT_EQ(0U, FsysOpen(&file, L"/m/a.mov", 65536, fsysOpenRead, nullptr));
    EXPECT_EQ(0U, FsysClose(marker, nullptr));
    EXPECT_EQ(0U, FsysSetCoalesceLength(marker, 1));
    EXPECT_EQ(0U, FsysGetWriteBytesOutstanding(&bytes));
    EXPECT_EQ(marker, file);
    EXPECT_EQ(77U, bytes);
}

TEST_F(NoEngineTest, EntryPointsReturnZeroAfterUninitialise)
{
    FsysInitialize();
    FsysUninitialize(Shutdown::eNormalExit);
    FsysFile* file = nullptr;
    unsigned bytes = 77;
    EXPECT_EQ(0U, FsysOpen(&file, L"/m/a.mov", 65536, fsysOpenRead, nullptr));
    EXPECT_EQ(0U, FsysGetWriteBytesOutstanding(&bytes));
    EXPECT_EQ(77U, bytes);
    EXPECT_EQ(nullptr, theFsys.load());
}

TEST_F(NoEngineTest, InitialisingTwiceRegistersOneShutdownCallback)
{
    registrations.clear();
    Shutdown::setObserver(&noteRegistration);
    EXPECT_EQ(1U, FsysInitialize());
    Fsys* const first = theFsys;
    EXPECT_EQ(1U, FsysInitialize());
    Shutdown::setObserver(nullptr);
    EXPECT_EQ(first, theFsys.load());
    EXPECT_THAT(registrations, ElementsAre(std::pair<Shutdown::Callback, int>(&FsysUninitialize, 499)));
    FsysUninitialize(Shutdown::eNormalExit);
}

TEST_F(NoEngineTest, UninitialisingWithoutAnEngineDoesNothing)
{
    FsysUninitialize(Shutdown::eNormalExit);
    FsysUninitialize(Shutdown::eAbnormalExit);
    EXPECT_EQ(nullptr, theFsys.load());
}

TEST_F(NoEngineTest, SettersWorkWithoutAnEngine)
{
    EXPECT_EQ(33177600U, MaxReadCoalesceSize);
    EXPECT_EQ(4194304U, MaxWriteCoalesceSize);
    EXPECT_TRUE(GlobalWriteSpeedWarningFlag);
    EXPECT_FALSE(DeferRequestStart);
    EXPECT_FALSE(NetworkWriteCaching);
    FsysSetReadMaxCoalesceSize(1);
    FsysSetWriteMaxCoalesceSize(2);
    FsysSetWriteSpeedWarning(false);
    FsysSetBusyWait(70);
    FsysSetImmediateRequestHandling(false);
    FsysSetNetworkWriteCaching(true);
    EXPECT_EQ(1U, MaxReadCoalesceSize);
    EXPECT_EQ(2U, MaxWriteCoalesceSize);
    EXPECT_FALSE(GlobalWriteSpeedWarningFlag);
    EXPECT_EQ(70U, os::busyWait());
    FsysSetBusyWait(0);
    EXPECT_TRUE(DeferRequestStart);
    EXPECT_TRUE(NetworkWriteCaching);
    FsysSetImmediateRequestHandling(true);
    EXPECT_FALSE(DeferRequestStart);
    FsysSetReadMaxCoalesceSize(33177600);
    FsysSetWriteMaxCoalesceSize(4194304);
    FsysSetWriteSpeedWarning(true);
    FsysSetNetworkWriteCaching(false);
}

TEST_F(NoEngineTest, TheBufferSpaceStandsBeforeThePollThreadsAndGoesWithTheEngine)
{
    EXPECT_EQ(nullptr, Fsys::BufferSpace_.load());
    FsysInitialize();
    EXPECT_NE(nullptr, Fsys::BufferSpace_.load());
    const auto threads = os.threads().threads();
    ASSERT_THAT(threads, SizeIs(2));
    EXPECT_EQ(&FsysTestAccess::readPoll(), threads[0].argument);
    EXPECT_EQ(&FsysTestAccess::writePoll(), threads[1].argument);
    EXPECT_EQ(50U, FsysTestAccess::readPoll().pollDelay());
    EXPECT_EQ(50U, FsysTestAccess::readPoll().spareDelay());
    EXPECT_EQ(50U, FsysTestAccess::writePoll().pollDelay());
    EXPECT_EQ(50U, FsysTestAccess::writePoll().spareDelay());
    FsysUninitialize(Shutdown::eNormalExit);
    EXPECT_EQ(nullptr, Fsys::BufferSpace_.load());
    EXPECT_EQ(1U, Fsys::CreateBufferSpace());
    EXPECT_NE(nullptr, Fsys::BufferSpace_.load());
    EXPECT_EQ(1U, Fsys::ReleaseBufferSpace());
    EXPECT_EQ(1U, Fsys::ReleaseBufferSpace());
    EXPECT_EQ(nullptr, Fsys::BufferSpace_.load());
}

TEST_F(NoEngineTest, ThePollThreadsFindTheBufferSpaceThere)
{
    class Threads : public ForwardingThreadServices
    {
    public:
        using ForwardingThreadServices::ForwardingThreadServices;
        unsigned createThread(Body body, const char* name, unsigned stackSize, void* argument, int priority,
                              unsigned flags) override
        {
            spaceThere.push_back(Fsys::BufferSpace_.load() != nullptr);
            return ForwardingThreadServices::createThread(body, name, stackSize, argument, priority, flags);
        }
        std::vector<bool> spaceThere;
    };
    Threads threads(*os.getThreadServices());
    ForwardingOS forwarding(os);
    forwarding.use(threads);
    const ScopedOS installedForwarding(forwarding);
    FsysInitialize();
    FsysUninitialize(Shutdown::eNormalExit);
    EXPECT_THAT(threads.spaceThere, ElementsAre(true, true));
}

TEST_F(FsysOpenTest, AnEmptyPathChangesNothing)
{
    auto* const marker = reinterpret_cast<FsysFile*>(&os);
    FsysFile* file = marker;
    FsysError = 4711;
    EXPECT_EQ(0U, FsysOpen(&file, LightweightString<wchar_t>(), 65536, fsysOpenRead, nullptr));
    EXPECT_EQ(0U, FsysOpen(&file, L"", 65536, fsysOpenRead, nullptr));
    EXPECT_EQ(marker, file);
    EXPECT_EQ(4711U, FsysGetLastError());
}

TEST_F(FsysOpenTest, AFailedOpenGivesNullTheCodeAndALine)
{
    auto* file = reinterpret_cast<FsysFile*>(&os);
    testing::internal::CaptureStdout();
    EXPECT_EQ(0U, FsysOpen(&file, L"/m/Missing/a.mov", 65536, fsysOpenRead, nullptr));
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(nullptr, file);
    EXPECT_EQ(errorFromErrno(ENOENT), FsysGetLastError());
    EXPECT_EQ("LowLevelOpen error 0x10002\n", printed);
    EXPECT_EQ(0U, os.live().files);
}

TEST_F(FsysOpenTest, ARefusedPermissionIsAFailureAlthoughItsErrnoIsOne)
{
    os.files().addFile(L"/m/a.mov", pattern(1024));
    os.faults().failNext(fake::Op::open, errorFromErrno(EPERM));
    FsysFile* file = nullptr;
    testing::internal::CaptureStdout();
    EXPECT_EQ(0U, FsysOpen(&file, L"/m/a.mov", 65536, fsysOpenRead, nullptr));
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(errorFromErrno(EPERM), FsysGetLastError());
    EXPECT_TRUE(FsysTestAccess::readFiles().empty());
}

TEST_F(FsysOpenTest, AFailedAsynchronousHandleReleasesTheSynchronousOne)
{
    os.files().addFile(L"/m/a.mov", pattern(1024));
    os.faults().failNth(fake::Op::open, 2, errorFromErrno(EMFILE));
    auto* file = reinterpret_cast<FsysFile*>(&os);
    testing::internal::CaptureStdout();
    EXPECT_EQ(0U, FsysOpen(&file, L"/m/a.mov", 65536, fsysOpenRead, nullptr));
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("LowLevelOpen error 0x10018\n"));
    EXPECT_EQ(nullptr, file);
    EXPECT_EQ(errorFromErrno(EMFILE), FsysGetLastError());
    EXPECT_EQ(0U, os.live().files);
    EXPECT_TRUE(FsysTestAccess::readFiles().empty());
}

TEST_F(FsysOpenTest, AFileOpenedForWritingStartsAtItsEnd)
{
    FsysFile* const file = openForWriting(pattern(1000));
    EXPECT_EQ(1U, file->Write("0123456789", 10));
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_EQ(pattern(1000) + "0123456789", written());
}

TEST_F(FsysOpenTest, APathWithoutADriveCountsAsANetworkDriveWith512ByteSectors)
{
    os.files().addFile(L"/elsewhere/a.mov", "");
    FsysFile* const file = open(L"/elsewhere/a.mov", fsysOpenWrite);
    EXPECT_EQ(512U, file->GetSectorSize());
    EXPECT_EQ(iDiskDrive::eNetwork, FsysFileTestAccess::type(*file));
    EXPECT_EQ("open /elsewhere/a.mov 2 2 4 7", os.log().lines({fake::Op::open}).back());
}

TEST_F(FsysOpenTest, ADirectFileIsOpenedOnceAndNeverAttached)
{
    openForReading(pattern(1024));  // from here on there is a receiver to attach to
    ASSERT_EQ(1U, os.log().count(fake::Op::attach));
    os.log().clear();
    os.files().addDirect(L"/m/pipe", "abc");
    FsysFile* const file = open(L"/m/pipe");
    EXPECT_THAT(os.log().lines({fake::Op::open}), ElementsAre("open /m/pipe 1 0 0 0"));
    EXPECT_EQ(iDiskDrive::eNetwork, FsysFileTestAccess::type(*file));
    EXPECT_TRUE(FsysFileTestAccess::syncHandle(*file));
    EXPECT_FALSE(FsysFileTestAccess::asyncHandle(*file));
    EXPECT_EQ(0U, os.log().count(fake::Op::attach));
    EXPECT_EQ(file, FsysTestAccess::readFiles()[1]);
    EXPECT_FALSE(file->isASyncIOSupported());
}

TEST_F(FsysOpenTest, ADirectFileHasItsPathAndTheSectorsOfItsDrive)
{
    fake::DriveProperties large;
    large.sectorSize = 4096;
    large.root = L"/large/";
    os.files().addDrive(large);
    os.files().addDirect(L"/large/pipe", "abc");
    const FsysFile* const file = open(L"/large/pipe");
    EXPECT_EQ(4096U, file->GetSectorSize());
    EXPECT_EQ(L"/large/pipe", file->path());
}

TEST_F(FsysOpenTest, ADirectFileThatCannotBeOpenedChangesNothing)
{
    os.files().addDirect(L"/m/pipe", "abc");
    os.faults().failNext(fake::Op::open, errorFromErrno(EBUSY));
    auto* const marker = reinterpret_cast<FsysFile*>(&os);
    FsysFile* file = marker;
    FsysError = 4711;
    testing::internal::CaptureStdout();
    EXPECT_EQ(0U, FsysOpen(&file, L"/m/pipe", 65536, fsysOpenRead, nullptr));
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ(marker, file);
    EXPECT_EQ(4711U, FsysGetLastError());
}

TEST_F(FsysOpenTest, TheReceiverIsMadeByTheFirstFileThatSupportsIt)
{
    os.files().addDirect(L"/m/pipe", "abc");
    open(L"/m/pipe");
    EXPECT_EQ(nullptr, FsysTestAccess::receiver());
    os.files().addFile(L"/m/plain.mov", pattern(1024));
    os.files().setAsyncCapability(L"/m/plain.mov", 0);
    open(L"/m/plain.mov");
    EXPECT_EQ(nullptr, FsysTestAccess::receiver());
    openForReading(pattern(1024));
    EXPECT_NE(nullptr, FsysTestAccess::receiver());
    EXPECT_EQ(1U, os.log().count(fake::Op::attach));
    // From now on every path-opened file is attached, whatever it supports.
    open(L"/m/plain.mov");
    EXPECT_EQ(2U, os.log().count(fake::Op::attach));
}

TEST_F(FsysOpenTest, FlagsReachThePlatformUnchanged)
{
    os.files().addFile(L"/m/a.mov", pattern(1024));
    FsysFile* const file = open(L"/m/a.mov", 0x12);
    EXPECT_THAT(os.log().lines({fake::Op::open}),
                ElementsAre("open /m/a.mov 18 2 4 0", "open /m/a.mov 18 2 4 3"));
    EXPECT_EQ(file, FsysTestAccess::writeFiles()[0]);
    EXPECT_TRUE(FsysTestAccess::readFiles().empty());
}

TEST_F(FsysOpenTest, CompletionFunctionsOfOpenAndCloseAreNeverCalled)
{
    os.files().addFile(L"/m/a.mov", pattern(1024));
    FsysFile* file = nullptr;
    const auto never = [](Qz::Ptr<iObject>&, Qz::Ptr<iMemHolder>&, RequestStatus) { ADD_FAILURE(); };
    EXPECT_EQ(1U, FsysOpen(&file, L"/m/a.mov", 65536, fsysOpenRead, never));
    EXPECT_EQ(1U, FsysClose(file, never));
}

TEST_F(FsysOpenTest, TheCoalesceLengthCanBeChanged)
{
    FsysFile* const file = openForReading(pattern(1024), 1000);
    EXPECT_EQ(1000U, file->coalesceLength());
    EXPECT_EQ(1U, FsysSetCoalesceLength(file, 2000));
    EXPECT_EQ(2000U, file->coalesceLength());
}

TEST_F(FsysCloseTest, OutstandingWriteBytesAreCountedUntilTheyAreWritten)
{
    FsysFile* const file = openForWriting();
    Calls calls;
    Qz::Ptr<iMemHolder> data(new TestData(pattern(4096)));
    EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
    unsigned bytes = 0;
    EXPECT_EQ(1U, FsysGetWriteBytesOutstanding(&bytes));
    EXPECT_EQ(4096U, bytes);
    writePass();
    os.transfers().completeAll();
    EXPECT_EQ(1U, FsysGetWriteBytesOutstanding(&bytes));
    EXPECT_EQ(0U, bytes);
}

TEST_F(FsysCloseTest, AHeldWriteIsWaitedForReportedAndGivenUp)
{
    Calls calls;
    FsysFile* const file = withHeldWrite(calls);
    const double before = os.clock().msecsPrecise();
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_DOUBLE_EQ(2900, os.clock().sleptMs());
    EXPECT_DOUBLE_EQ(4000 + 2900 + 4000, os.clock().msecsPrecise() - before);
    EXPECT_THAT(logged.splats(),
                ElementsAre(std::pair<std::string, int>("Timed out waiting for write completion\n", 0),
                            std::pair<std::string, int>("Timed out waiting for write completion\n", 0),
                            std::pair<std::string, int>("Outstanding writes not completed", 8)));
    // Its callers went with the close; the transfer itself ends safely afterwards.
    EXPECT_EQ(1U, os.transfers().completeAll());
    EXPECT_EQ(0U, calls.count());
    EXPECT_EQ(0U, calls.references());
    EXPECT_EQ(0U, os.live().contexts);
    unsigned bytes = 1;
    FsysGetWriteBytesOutstanding(&bytes);
    EXPECT_EQ(0U, bytes);
}

TEST_F(FsysCloseTest, EveryPendingWriteIsReported)
{
    Calls calls;
    FsysFile* const file = withHeldWrite(calls);
    for (int i = 0; i < 2; ++i) {
        Qz::Ptr<iMemHolder> data(new TestData(pattern(512)));
        EXPECT_EQ(1U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
    }
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    const auto splats = logged.splats();
    EXPECT_EQ(3, std::count(splats.begin(), splats.end(),
                            std::pair<std::string, int>("Outstanding writes not completed", 8)));
}

TEST_F(FsysCloseTest, AHeldReadCosts29LooksAndNoReport)
{
    Calls calls;
    FsysFile* const file = withHeldRead(calls);
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_DOUBLE_EQ(2900, os.clock().sleptMs());
    EXPECT_THAT(os.clock().sleeps(), SizeIs(29));
    EXPECT_THAT(logged.splats(), IsEmpty());
    os.transfers().completeAll();
    EXPECT_EQ(0U, calls.count());
    EXPECT_EQ(0U, os.live().pages);
}

TEST_F(FsysCloseTest, AReadThatEndsDuringTheWaitEndsTheWait)
{
    Calls calls;
    FsysFile* const file = withHeldRead(calls);
    os.clock().after(250, [this] { os.transfers().completeNext(); });
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_DOUBLE_EQ(300, os.clock().sleptMs());
    EXPECT_EQ(1U, calls.count());
}

TEST_F(FsysCloseTest, LooksAtFinishedRequestsUseUpTheBudget)
{
    // Twenty-nine finished reads stand before a pending one: the budget is spent on them without a sleep.
    FsysFile* const file = openForReading(pattern(1 << 18));
    Calls calls;
    for (int i = 0; i < 30; ++i)
        EXPECT_EQ(1U, file->DirectRead(i * 8192L, 100, false, &Calls::record, calls.context()));
    FsysSetImmediateRequestHandling(true);
    readPass();
    while (os.transfers().heldCount() > 1)
        os.transfers().completeNext();
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_THAT(os.clock().sleeps(), IsEmpty());
    os.transfers().completeAll();
    EXPECT_EQ(29U, calls.count());
}

TEST_F(FsysCloseTest, AFileWithNothingOutstandingClosesAtOnce)
{
    FsysFile* const file = openForReading(pattern(1024));
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_THAT(os.clock().sleeps(), IsEmpty());
    EXPECT_THAT(closed(), SizeIs(2));
    EXPECT_TRUE(FsysTestAccess::readFiles().empty());
}

TEST_F(FsysCloseTest, AClosingFileRefusesReadsAndWrites)
{
    FsysFile* const file = openForWriting(pattern(1024));
    FsysFileTestAccess::setClosing(*file, true);
    Calls calls;
    Qz::Ptr<iMemHolder> data(new TestData(pattern(512)));
    EXPECT_EQ(0U, file->DirectRead(0, 512, false, &Calls::record, calls.context()));
    EXPECT_EQ(0U, file->DirectWrite(data, false, &Calls::record, calls.context(), false));
    EXPECT_EQ(0U, calls.count());
    EXPECT_EQ(0U, calls.references());
    FsysFileTestAccess::setClosing(*file, false);
}

TEST_F(FsysCloseTest, AReadAskedForByACompletionDuringACloseIsRefused)
{
    struct Again : public iObject
    {
        FsysFile* file = nullptr;
        unsigned answer = 99;
    };
    const Qz::Ptr<Again> again(new Again);
    again->file = openForReading(pattern(8192));
    Qz::Ptr<iObject> context = again;
    again->file->DirectRead(
        0, 512, false,
        [](Qz::Ptr<iObject>& self, Qz::Ptr<iMemHolder>&, RequestStatus) {
            auto& me = static_cast<Again&>(*self);
            Qz::Ptr<iObject> none;
            me.answer = me.file->DirectRead(4096, 512, false, nullptr, none);
        },
        context);
    readPass();
    os.clock().after(50, [this] { os.transfers().completeNext(); });
    EXPECT_EQ(1U, FsysClose(again->file, nullptr));
    EXPECT_EQ(0U, again->answer);
}

TEST_F(FsysEndTest, EveryOtherFileIsClosedReadsBeforeWrites)
{
    openSeveral(L"/m/r", 5, fsysOpenRead);
    openSeveral(L"/m/w", 3, fsysOpenWrite);
    const auto reads = FsysTestAccess::readFiles();
    const auto writes = FsysTestAccess::writeFiles();
    os.log().clear();
    FsysUninitialize(Shutdown::eNormalExit);
    EXPECT_THAT(released(), ElementsAre("/m/r1", "/m/r3", "/m/r5", "/m/w1", "/m/w3"));
    EXPECT_EQ(nullptr, theFsys.load());
    EXPECT_EQ(6U, os.live().files);
    for (FsysFile* const left : {reads[1], reads[3], writes[1]})
        FsysFile::release(left);
    EXPECT_EQ(fake::Live{}, os.live());
}

TEST_F(FsysEndTest, OfFourReadFilesTheFirstAndTheThirdAreClosed)
{
    const auto files = openSeveral(L"/m/r", 4, fsysOpenRead);
    EXPECT_EQ(8U, os.live().files);
    os.log().clear();
    FsysUninitialize(Shutdown::eNormalExit);
    EXPECT_THAT(released(), ElementsAre("/m/r1", "/m/r3"));
    EXPECT_EQ(4U, os.live().files);
    FsysFile::release(files[1]);
    FsysFile::release(files[3]);
}

TEST_F(FsysEndTest, AFileLeftOpenReadsSynchronouslyAndTakesNoRequests)
{
    const auto files = openSeveral(L"/m/r", 2, fsysOpenRead);
    FsysUninitialize(Shutdown::eNormalExit);
    FsysFile* const left = files[1];
    Calls calls;
    EXPECT_EQ(0U, left->DirectRead(0, 512, false, &Calls::record, calls.context()));
    std::string bytes(100, ' ');
    EXPECT_EQ(1U, left->Read(bytes.data(), 100));
    EXPECT_EQ(pattern(2048, 2).substr(0, 100), bytes);
    EXPECT_EQ(0U, FsysClose(left, nullptr));
    FsysFile::release(left);
}

TEST_F(FsysEndTest, TransfersOfAFileLeftOpenAreReportedBeforeTheEngineIsGone)
{
    const auto files = openSeveral(L"/m/r", 2, fsysOpenRead);
    Calls calls;
    EXPECT_EQ(1U, files[1]->DirectRead(0, 512, false, &Calls::record, calls.context()));
    readPass();
    FsysUninitialize(Shutdown::eNormalExit);  // the ending port has its transfers completed
    ASSERT_EQ(1U, calls.count());
    EXPECT_EQ(eRequestSuccess, calls.last().status);
    EXPECT_EQ(pattern(2048, 2).substr(0, 512), calls.last().bytes);
    FsysFile::release(files[1]);
    EXPECT_EQ(0U, os.live().files);
}

TEST_F(FsysEndTest, PollThreadsEndReadFirstAndPortsReadFirst)
{
    openForReading(pattern(1024));
    os.log().clear();
    FsysUninitialize(Shutdown::eNormalExit);
    const auto threads = os.threads().threads();
    ASSERT_THAT(threads, SizeIs(2));
    std::vector<unsigned> ended;
    for (const fake::Call& call : os.log().calls(fake::Op::endThread))
        ended.push_back(call.handle & 0xFFFF);
    EXPECT_THAT(ended, ElementsAre(threads[0].id & 0xFFFF, threads[1].id & 0xFFFF));
    std::vector<std::string> ports;
    for (const fake::Call& call : os.log().calls(fake::Op::shutDownPort))
        ports.push_back(toUTF8(call.path).str());
    EXPECT_THAT(ports, ElementsAre("FsysReads", "FsysWrites"));
    EXPECT_EQ(fake::Live{}, os.live());
}

TEST_F(FsysEndTest, PollThreadsEndBeforePorts)
{
    openForReading(pattern(1024));
    os.log().clear();
    FsysUninitialize(Shutdown::eNormalExit);
    std::vector<std::string> ends;
    for (const std::string& line : os.log().lines({fake::Op::endThread, fake::Op::shutDownPort}))
        ends.push_back(line.substr(0, line.find(' ')));
    EXPECT_THAT(ends, ElementsAre("endThread", "endThread", "shutDownPort", "shutDownPort"));
}

TEST_F(FsysEndTest, AForbiddenCloseByAFunctionThatTheEndingPortStillCallsIsSurvived)
{
    struct Closer : public iObject
    {
        FsysFile* file = nullptr;
        unsigned result = 0;
    };
    const auto files = openSeveral(L"/m/r", 4, fsysOpenRead);  // the second and the fourth stay open
    const Qz::Ptr<Closer> closer(new Closer);
    closer->file = files[3];
    Qz::Ptr<iObject> context = closer;
    files[1]->DirectRead(
        0, 512, false,
        [](Qz::Ptr<iObject>& self, Qz::Ptr<iMemHolder>&, RequestStatus) {
            auto& me = static_cast<Closer&>(*self);
            me.result = FsysClose(me.file, nullptr);
        },
        context);
    readPass();
    FsysUninitialize(Shutdown::eNormalExit);
    EXPECT_EQ(1U, closer->result);
    FsysFile::release(files[1]);
    EXPECT_EQ(fake::Live{}, os.live());
}

TEST_F(FsysEndTest, TheEngineCanBeStartedAgain)
{
    FsysUninitialize(Shutdown::eNormalExit);
    EXPECT_EQ(1U, FsysInitialize());
    FsysFile* const file = openForReading(pattern(4096));
    Calls calls;
    EXPECT_EQ(1U, file->DirectRead(512, 512, false, &Calls::record, calls.context()));
    readPass();
    os.transfers().completeAll();
    EXPECT_EQ(pattern(4096).substr(512, 512), calls.last().bytes);
}
