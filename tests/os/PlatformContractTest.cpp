// The platforms that the contract suite runs on, and what it says about files.

#include "PlatformContract.h"
#include "TestServer.h"
#include "common/TemporaryFolder.h"
#include "os/LastError.h"
#include "os/linux/BackendSelect.h"
#include "os/linux/LinuxAsyncContext.h"
#include "os/linux/LinuxClock.h"
#include "os/linux/LinuxCompletionPort.h"
#include "os/linux/LinuxFile.h"
#include "os/linux/LinuxPageMemory.h"
#include "os/linux/ThreadServices.h"
#include "os/linux/UringRing.h"
#include "os/testing/FakeOS.h"

#include <cerrno>
#include <cstdint>
#include <limits>
#include <sys/stat.h>

namespace {

class LinuxPlatform : public ContractPlatform
{
public:
    LinuxPlatform(IoBackend backend, bool onServer)
        : backend_(backend), server_(onServer ? testServer() : nullptr)
    {}

    std::string missing() override
    {
        if (backend_ == IoBackend::threads)
            return {};
        UringRing ring;
        const int error = ring.build(8, 8);
        return error == 0 ? "" : "no io_uring here: error " + std::to_string(error);
    }
    Qz::Ptr<iFile> open(const std::string& name, unsigned access, unsigned creation, unsigned mode) override
    {
        return openLinuxFile(folder_ / name, access, creation, mode, server_);
    }
    void makeFolder(const std::string& name) override { folder_.folder(name); }
    void makePipe(const std::string& name) override { ASSERT_EQ(mkfifo((folder_ / name).c_str(), 0600), 0); }
    Qz::Ptr<iAsyncContext> createAsyncContext(void* owner) override { return createLinuxAsyncContext(owner); }
    Qz::Ptr<iCompletionPort> createPort(const IOCompletionCommand& command) override
    {
        return createLinuxCompletionPortOn(backend_, "contract", command, 3);
    }
    iThreadServices& threads() override { return *linuxThreadServices(); }
    iClock& clock() override { return *linuxClock(); }
    iPageMemory& pages() override { return *linuxPageMemory(); }

private:
    const IoBackend backend_;
    const std::shared_ptr<const os::FileServer> server_;
    TemporaryFolder folder_;
};

class FakePlatform : public ContractPlatform
{
public:
    FakePlatform() { os_.files().addFolder(L"/m"); }

    Qz::Ptr<iFile> open(const std::string& name, unsigned access, unsigned creation, unsigned mode) override
    {
        return os_.files().open(at(name), access, creation, os::shareAll, mode);
    }
    void makeFolder(const std::string& name) override { os_.files().addFolder(at(name)); }
    void makePipe(const std::string& name) override { os_.files().addDirect(at(name)); }
    Qz::Ptr<iAsyncContext> createAsyncContext(void* owner) override
    {
        return os_.files().createAsyncContext(owner);
    }
    Qz::Ptr<iCompletionPort> createPort(const IOCompletionCommand& command) override
    {
        return os_.createCompletionPort("contract", command, 3, 3, 3, 3);
    }
    iThreadServices& threads() override { return *os_.getThreadServices(); }
    iClock& clock() override { return *os_.getClock(); }
    iPageMemory& pages() override { return *os_.getPageMemory(); }

private:
    static LightweightString<wchar_t> at(const std::string& name)
    {
        return (L"/m/" + std::wstring(name.begin(), name.end())).c_str();
    }

    FakeOS os_{FakeOS::Mode::realThreads};
};

template <IoBackend backend, bool onServer>
std::unique_ptr<ContractPlatform> makeLinux()
{
    return std::make_unique<LinuxPlatform>(backend, onServer);
}

std::unique_ptr<ContractPlatform> makeFake() { return std::make_unique<FakePlatform>(); }

constexpr std::uint64_t positionMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

}  // namespace

INSTANTIATE_TEST_SUITE_P(On, PlatformContract,
                         testing::Values(ContractParameter{"Ring", makeLinux<IoBackend::uring, false>},
                                         ContractParameter{"RingWorkers", makeLinux<IoBackend::uring, true>},
                                         ContractParameter{"Pool", makeLinux<IoBackend::threads, false>},
                                         ContractParameter{"PoolSlow", makeLinux<IoBackend::threads, true>},
                                         ContractParameter{"Fake", makeFake}),
                         [](const auto& given) { return std::string(given.param.name); });

// --- opening

TEST_P(PlatformContract, AMissingFileIsNotOpenedAndTheErrorSaysSo)
{
    EXPECT_FALSE(platform().open("none", os::accessRead, os::creationOpen, os::modePlain));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    EXPECT_FALSE(platform().open("none", os::accessWrite, os::creationOpen, os::modePlain));
}

TEST_P(PlatformContract, CreationNewFailsWhereThereIsAFileAndLeavesIt)
{
    ASSERT_TRUE(makeFile("f", "contents"));
    EXPECT_FALSE(platform().open("f", os::accessWrite, os::creationNew, os::modePlain));
    EXPECT_EQ(lastError(), errorFromErrno(EEXIST));
    EXPECT_EQ(contentsOf("f"), "contents");
}

TEST_P(PlatformContract, OpenOrNewMakesAFileAndNeverTruncatesOne)
{
    for (const unsigned creation : {os::creationOpenOrNew, os::creationOpenOrNewRW}) {
        const std::string name = "f" + std::to_string(creation);
        ASSERT_TRUE(platform().open(name, os::accessWrite, creation, os::modePlain));
        const Qz::Ptr<iFile> file = platform().open(name, os::accessReadWrite, creation, os::modePlain);
        ASSERT_TRUE(file);
        ASSERT_TRUE(file->write(0, "12345", 5, nullptr));
        ASSERT_TRUE(platform().open(name, os::accessWrite, creation, os::modePlain));
        EXPECT_EQ(contentsOf(name), "12345");
    }
}

TEST_P(PlatformContract, AFolderIsNotOpenedAsAFile)
{
    platform().makeFolder("folder");
    EXPECT_FALSE(platform().open("folder", os::accessRead, os::creationOpen, os::modePlain));
    EXPECT_NE(lastError(), 0U);
}

TEST_P(PlatformContract, AccessBitsThatMeanNothingAreIgnored)
{
    ASSERT_TRUE(makeFile("f", "abc"));
    const Qz::Ptr<iFile> file = platform().open("f", 0x10 | os::accessRead, os::creationOpen, os::modePlain);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->getSize(), 3U);
}

TEST_P(PlatformContract, OneFileIsOpenForReadingAndWritingAtTheSameTime)
{
    ASSERT_TRUE(makeFile("f", "abc"));
    const Qz::Ptr<iFile> reader = platform().open("f", os::accessRead, os::creationOpen, os::modePlain);
    const Qz::Ptr<iFile> writer = platform().open("f", os::accessWrite, os::creationOpenOrNew, os::modePlain);
    ASSERT_TRUE(reader && writer);
    ASSERT_TRUE(writer->write(1, "XY", 2, nullptr));
    char bytes[3] = {};
    ASSERT_TRUE(reader->read(0, bytes, 3, nullptr));
    EXPECT_EQ(std::string(bytes, 3), "aXY");
}

// --- synchronous use

TEST_P(PlatformContract, AReadIsShortOnlyAtTheEndOfTheFile)
{
    ASSERT_TRUE(makeFile("f", "0123456789"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessRead, os::creationOpen, os::modePlain);
    char bytes[511] = {};
    std::size_t done = 0;
    EXPECT_TRUE(file->read(0, bytes, 4, &done));
    EXPECT_EQ(done, 4U);
    EXPECT_TRUE(file->read(7, bytes, sizeof bytes, &done));
    EXPECT_EQ(std::string(bytes, done), "789");
}

TEST_P(PlatformContract, AReadAtTheEndFailsAndOneOfNoBytesSucceeds)
{
    ASSERT_TRUE(makeFile("f", "0123"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessRead, os::creationOpen, os::modePlain);
    char byte = 'x';
    std::size_t done = 99;
    EXPECT_FALSE(file->read(4, &byte, 1, &done));
    EXPECT_EQ(done, 0U);
    EXPECT_EQ(byte, 'x');
    EXPECT_FALSE(file->read(1000, &byte, 1, nullptr));
    EXPECT_TRUE(file->read(4, &byte, 0, &done));
}

TEST_P(PlatformContract, AWriteBehindTheEndExtendsTheFileWithZeros)
{
    ASSERT_TRUE(makeFile("f", "ab"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessWrite, os::creationOpen, os::modePlain);
    std::size_t done = 0;
    EXPECT_TRUE(file->write(4, "cd", 2, &done));
    EXPECT_EQ(done, 2U);
    EXPECT_EQ(contentsOf("f"), std::string("ab\0\0cd", 6));
}

TEST_P(PlatformContract, PositionsBeyondTheSignedRangeAreRefused)
{
    ASSERT_TRUE(makeFile("f", "abc"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessReadWrite, os::creationOpen, os::modePlain);
    char byte = 0;
    for (const std::uint64_t position : {positionMax + 1, std::numeric_limits<std::uint64_t>::max()}) {
        setLastError(0);
        EXPECT_FALSE(file->read(position, &byte, 1, nullptr));
        EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
        setLastError(0);
        EXPECT_FALSE(file->write(position, &byte, 1, nullptr));
        EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
    }
    EXPECT_EQ(file->getSize(), 3U);
}

TEST_P(PlatformContract, FileInformationTellsTheSizeAsItIs)
{
    ASSERT_TRUE(makeFile("f", "12345"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessWrite, os::creationOpen, os::modePlain);
    FILE_INFO info;
    ASSERT_TRUE(file->getInfo(&info));
    EXPECT_EQ(info.size, 5U);
    ASSERT_TRUE(file->write(5, "678", 3, nullptr));
    ASSERT_TRUE(file->getInfo(&info));
    EXPECT_EQ(info.size, 8U);
    EXPECT_EQ(file->getSize(), 8U);
}

TEST_P(PlatformContract, FileInformationTellsThatTheFileHasAName)
{
    ASSERT_TRUE(makeFile("f", "12345"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessRead, os::creationOpen, os::modePlain);
    FILE_INFO info;
    ASSERT_TRUE(file->getInfo(&info));
    EXPECT_EQ(info.links, 1U);
}

TEST_P(PlatformContract, AFileIsCutOffAndLengthened)
{
    ASSERT_TRUE(makeFile("f", "12345"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessWrite, os::creationOpen, os::modePlain);
    EXPECT_TRUE(file->setSize(2));
    EXPECT_EQ(contentsOf("f"), "12");
    EXPECT_TRUE(file->setSize(4));
    EXPECT_EQ(contentsOf("f"), std::string("12\0\0", 4));
    setLastError(0);
    EXPECT_FALSE(file->setSize(positionMax + 1));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
    EXPECT_EQ(file->getSize(), 4U);
}

TEST_P(PlatformContract, AHandleForReadingDoesNotChangeTheSize)
{
    ASSERT_TRUE(makeFile("f", "12345"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessRead, os::creationOpen, os::modePlain);
    EXPECT_FALSE(file->setSize(2));
    EXPECT_EQ(contentsOf("f"), "12345");
}

TEST_P(PlatformContract, WhatWasWrittenIsFlushed)
{
    ASSERT_TRUE(makeFile("f", "12345"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessWrite, os::creationOpen, os::modePlain);
    ASSERT_TRUE(file->write(5, "6", 1, nullptr));
    EXPECT_TRUE(file->flush());
}

TEST_P(PlatformContract, TheWrittenSizeEndsAtTheFirstHole)
{
    constexpr std::uint64_t hole = std::uint64_t{1} << 20;  // larger than any file system's block
    const std::string block(static_cast<std::size_t>(hole), 'x');
    const Qz::Ptr<iFile> file = platform().open("f", os::accessWrite, os::creationNew, os::modePlain);
    ASSERT_TRUE(file);
    std::uint64_t written = 77;
    EXPECT_TRUE(file->getWrittenSize(&written));
    EXPECT_EQ(written, 0U);
    ASSERT_TRUE(file->write(0, block.data(), block.size(), nullptr));
    ASSERT_TRUE(file->write(2 * hole, block.data(), block.size(), nullptr));
    EXPECT_TRUE(file->getWrittenSize(&written));
    EXPECT_EQ(written, hole);
    ASSERT_TRUE(file->write(hole, block.data(), block.size(), nullptr));
    EXPECT_TRUE(file->getWrittenSize(&written));
    EXPECT_EQ(written, 3 * hole);
}

TEST_P(PlatformContract, AnOddSizeWithoutHolesIsWrittenWhole)
{
    ASSERT_TRUE(makeFile("f", "12345"));
    std::uint64_t written = 0;
    EXPECT_TRUE(
        platform().open("f", os::accessRead, os::creationOpen, os::modePlain)->getWrittenSize(&written));
    EXPECT_EQ(written, 5U);
}

TEST_P(PlatformContract, AFileIsClaimedByOneHandleUntilThatIsClosed)
{
    ASSERT_TRUE(makeFile("f", "12345"));
    const Qz::Ptr<iFile> first = platform().open("f", os::accessWrite, os::creationOpen, os::modePlain);
    const Qz::Ptr<iFile> second = platform().open("f", os::accessWrite, os::creationOpen, os::modePlain);
    EXPECT_TRUE(first->claim());
    EXPECT_TRUE(first->claim());
    setLastError(0);
    EXPECT_FALSE(second->claim());
    EXPECT_EQ(lastError(), errorFromErrno(EWOULDBLOCK));
    EXPECT_TRUE(second->write(0, "x", 1, nullptr)) << "a claim forbids nothing but other claims";
    platform().open("f", os::accessWrite, os::creationOpen, os::modePlain)->close();
    EXPECT_FALSE(second->claim()) << "another handle's end gave the claim away";
    first->close();
    EXPECT_TRUE(second->claim());
}

TEST_P(PlatformContract, AHandleForReadingClaimsNothing)
{
    ASSERT_TRUE(makeFile("f", "12345"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessRead, os::creationOpen, os::modePlain);
    EXPECT_FALSE(file->claim());
}

TEST_P(PlatformContract, AClosedFileRefusesEverything)
{
    ASSERT_TRUE(makeFile("f", "abc"));
    const Qz::Ptr<iFile> file = platform().open("f", os::accessReadWrite, os::creationOpen, os::modePlain);
    EXPECT_TRUE(file->isOpen());
    file->close();
    file->close();
    EXPECT_FALSE(file->isOpen());
    char byte = 0;
    FILE_INFO info;
    info.size = 77;
    setLastError(0);
    EXPECT_FALSE(file->read(0, &byte, 1, nullptr));
    EXPECT_NE(lastError(), 0U);
    EXPECT_FALSE(file->write(0, &byte, 1, nullptr));
    EXPECT_FALSE(file->getInfo(&info));
    EXPECT_EQ(info.size, 77U);
    EXPECT_EQ(file->getSize(), 0U);
    std::uint64_t written = 77;
    EXPECT_FALSE(file->getWrittenSize(&written));
    EXPECT_EQ(written, 77U);
    EXPECT_FALSE(file->flush());
    EXPECT_FALSE(file->setSize(1));
    EXPECT_FALSE(file->claim());
    EXPECT_EQ(contentsOf("f"), "abc");
}

// --- what a file can do

TEST_P(PlatformContract, AsynchronousCapabilityDescribesTheFileAndNotTheHandle)
{
    ASSERT_TRUE(makeFile("f", "abc"));
    for (const unsigned mode :
         {os::modePlain, os::modeAsync, unbufferedAsyncMode, 7U, os::attributeLockFile}) {
        const Qz::Ptr<iFile> file = platform().open("f", os::accessReadWrite, os::creationOpen, mode);
        ASSERT_TRUE(file) << mode;
        EXPECT_EQ(file->getAsyncCapability() & os::capabilityAsync, os::capabilityAsync) << mode;
    }
}

TEST_P(PlatformContract, ADirectlyOpenedFileOpensAtOnceAndServesNoTransfers)
{
    platform().makePipe("pipe");
    const Qz::Ptr<iFile> pipe = platform().open("pipe", os::accessRead, os::creationOpen, asyncMode);
    ASSERT_TRUE(pipe);
    EXPECT_EQ(pipe->getAsyncCapability() & os::capabilityAsync, 0U);
    FILE_INFO info;
    ASSERT_TRUE(pipe->getInfo(&info));
    EXPECT_EQ(info.size, 0U);
    CompletionRecorder recorder;
    const Qz::Ptr<iCompletionPort> port = platform().createPort(recorder.command());
    EXPECT_FALSE(port->attach(pipe));
    std::string buffer(8, 'x');
    EXPECT_FALSE(startRead(pipe, 0, buffer));
    port->shutDown();
    EXPECT_EQ(recorder.count(), 0U);
}
