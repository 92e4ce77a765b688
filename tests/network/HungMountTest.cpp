// What the system does while the server of a location does not answer: every call comes back, other
// locations notice nothing, and all goes on when the server answers again. Needs root, for mounts.
//
// "Comes back" is judged by a limit that is far above what any call may take, and far below for ever.

#include "FaultFs.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "fsys/FsysFile.h"
#include "fsys/MediaDrive.h"
#include "fsys/SystemCache.h"
#include "media/MediaReader.h"
#include "media/MediaWriter.h"
#include "os/Codes.h"
#include "os/CompletionPortHandler.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "os/Patience.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <sched.h>
#include <vector>

namespace {

using std::chrono::seconds;
using Path = LightweightString<wchar_t>;

constexpr seconds longest{40};
constexpr unsigned briefMs = 300;

// A mount table of our own, from before anybody looks at it.
class OwnMounts : public testing::Environment
{
public:
    void SetUp() override
    {
        available = ::unshare(CLONE_NEWNS) == 0 &&
                    ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    ::access("/dev/fuse", R_OK | W_OK) == 0 && std::getenv("FAULT_FS");
    }
    static inline bool available = false;
};

const auto* const ownMounts = testing::AddGlobalTestEnvironment(new OwnMounts);

iFileManager& files() { return *OS()->getFileManager(); }

std::string noise(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 2654435761U) >> 13);
    return bytes;
}

std::span<const std::byte> bytesOf(const std::string& text) { return std::as_bytes(std::span(text)); }

class HungMount : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!OwnMounts::available)
            GTEST_SKIP() << "needs root, /dev/fuse and $FAULT_FS";
        ASSERT_TRUE(hung.mounted());
        ASSERT_TRUE(good.mounted());
    }
    void TearDown() override { hung.rule(""); }

    // The result of call. When it does not come back the server is let go, and the test fails.
    template <class Call>
    auto comesBack(const char* what, Call call)
    {
        auto result = std::async(std::launch::async, [call] {
            auto value = call();
            return std::pair(value, lastError());
        });
        if (result.wait_for(longest) != std::future_status::ready) {
            ADD_FAILURE() << what << " did not come back";
            hung.rule("");
        }
        const auto [value, error] = result.get();
        setLastError(error);
        return value;
    }
    static Path at(const FaultFs& place, const std::string& name) { return wide(place.point() + '/' + name); }
    static void put(const FaultFs& place, const std::string& name, const std::string& contents)
    {
        std::filesystem::create_directories(std::filesystem::path(place.below() + '/' + name).parent_path());
        std::ofstream(place.below() + '/' + name, std::ios::binary) << contents;
    }
    static std::string read(const FaultFs& place, const std::string& name)
    {
        return contentsOf(place.below() + '/' + name);
    }
    static Qz::Ptr<iFile> open(const Path& path, unsigned access = os::accessReadWrite,
                               unsigned creation = os::creationOpenOrNew, unsigned mode = os::modePlain)
    {
        return files().open(path, access, creation, os::shareAll, mode);
    }
    // Until the answers that were given up have come, the mount takes no questions.
    static bool answersAgain(const FaultFs& place)
    {
        const os::Patience patience(60'000);
        return files().directoryExists(wide(place.point()));
    }

    FaultFs hung;
    FaultFs good;
};

class Engine
{
public:
    Engine() { FsysInitialize(); }
    ~Engine() { FsysUninitialize(Shutdown::eNormalExit); }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
};

// Counts completions.
class Ends : public QzDC::Receiver<IOCompletionCommand>
{
public:
    int executeCommand(IOCompletionCommand&, CompletionPortHandlerCallbackContext& context) override
    {
        if (context.succeeded())
            ++succeeded;
        else
            ++failed;
        return 1;
    }
    std::atomic<int> succeeded{0};
    std::atomic<int> failed{0};
};

bool becomes(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + longest;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace

// --- questions

TEST_F(HungMount, IsANetworkDrive)
{
    const Qz::Ptr<iDiskDrive> drive = files().getDriveForPath(at(hung, "clip"));
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->getType(), iDiskDrive::eNetwork);
}

TEST_F(HungMount, EveryQuestionComesBackAndOneSaysThatTheServerDoesNotAnswer)
{
    put(hung, "clip", "123");
    hung.rule("* * hang");
    const Path clip = at(hung, "clip");
    const auto isRefused = [this](const char* what, const std::function<bool()>& call) {
        EXPECT_FALSE(comesBack(what, call)) << what;
        EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT)) << what;
    };
    isRefused("fileExists", [&] { return files().fileExists(clip); });
    isRefused("directoryExists", [&] { return files().directoryExists(clip); });
    isRefused("isWritable", [&] { return files().isWritable(wide(hung.point())); });
    isRefused("getFileSize", [&] { return files().getFileSize(clip) != 0; });
    isRefused("open", [&] { return static_cast<bool>(open(clip)); });
    isRefused("createDirectory", [&] { return files().createDirectory(at(hung, "new")); });
    isRefused("deleteFile", [&] { return files().deleteFile(clip); });
    isRefused("renameFile", [&] { return files().renameFile(clip, at(hung, "other")); });
    isRefused("replaceFile", [&] { return files().replaceFile(clip, "text"); });
    isRefused("deleteTree", [&] { return files().deleteTree(at(hung, "tree")); });
    isRefused("listDirectory", [&] {
        std::vector<iFileManager::DirectoryItem> items;
        return files().listDirectory(at(hung, "*"), items);
    });
    isRefused("readWholeFile", [&] {
        std::string contents;
        return files().readWholeFile(clip, 100, contents);
    });
    EXPECT_EQ(comesBack("resolvePath", [&] { return files().resolvePath(clip); }), clip);

    hung.rule("");
    EXPECT_TRUE(answersAgain(hung));
    EXPECT_EQ(files().getFileSize(clip), 3U);
}

TEST_F(HungMount, SpaceIsWhatWasLastKnown)
{
    const Qz::Ptr<iDiskDrive> drive = files().getDriveForPath(at(hung, "clip"));
    const std::uint64_t total = drive->getTotalBytes();
    ASSERT_GT(total, 0U);
    hung.rule("statfs * hang");
    EXPECT_EQ(comesBack("getTotalBytes", [&] { return drive->getTotalBytes(); }), total);
    EXPECT_FALSE(comesBack("isMounted", [&] { return drive->isMounted(); }));
    EXPECT_GE(hung.fired("statfs"), 1);
    hung.rule("");
    EXPECT_TRUE(becomes([&] { return drive->isMounted(); }));
}

TEST_F(HungMount, AVolumeWithoutAnAccountOfItsSpaceIsNotFull)
{
    const Qz::Ptr<iDiskDrive> drive = files().getDriveForPath(at(hung, "clip"));
    hung.rule("statfs * blocks 0");
    EXPECT_EQ(drive->getFreeBytes(), std::uint64_t{1} << 40);
    EXPECT_EQ(drive->getTotalBytes(), std::uint64_t{1} << 40);
    hung.rule("statfs * blocks 4503599627370491");  // of 4096 bytes: close below 2^64
    EXPECT_EQ(drive->getFreeBytes(), 4503599627370491U * 4096);
    hung.rule("statfs * blocks 9007199254740992");
    EXPECT_EQ(drive->getFreeBytes(), ~std::uint64_t{0});
}

TEST_F(HungMount, ALocationOnAVolumeWithoutAnAccountOfItsSpaceKeepsItsNewName)
{
    std::filesystem::create_directories(hung.below() + "/Material");
    std::filesystem::create_directories(hung.below() + "/Sound");
    hung.rule("statfs * blocks 0");
    const TemporaryFolder space;
    DiskManager::init(wide(space.path()), true);
    ASSERT_TRUE(DiskManager::addMediaLocation(wide(hung.point())));
    EXPECT_EQ(DiskManager::renameMediaLocation(DriveId('1'), L"no account"), 1);
    EXPECT_EQ(read(hung, "Material/MediaSpaceInfo.txt"), "name=no account\n");
    DiskManager::deInit();
}

TEST_F(HungMount, NoSecondQuestionIsAskedWhileOneIsUnanswered)
{
    hung.rule("* * hang");
    EXPECT_FALSE(comesBack("fileExists", [&] { return files().fileExists(at(hung, "a")); }));
    const int asked = hung.fired("getattr");
    for (int i = 0; i < 50; ++i)
        EXPECT_FALSE(files().fileExists(at(hung, "b")));
    EXPECT_EQ(hung.fired("getattr"), asked);
}

// --- open files

TEST_F(HungMount, AnOpenFileComesBackFromEveryCall)
{
    put(hung, "clip", noise(100'000));
    const Qz::Ptr<iFile> file = open(at(hung, "clip"));
    ASSERT_TRUE(file);
    const auto isGivenUp = [&](const char* what, const std::string& rule, const std::function<bool()>& call) {
        hung.rule(rule);
        EXPECT_FALSE(comesBack(what, [&call] {
            const os::Patience patience(briefMs);
            return call();
        })) << what;
        EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT)) << what;
        hung.rule("");
        EXPECT_TRUE(answersAgain(hung));
    };
    std::string memory(100'000, '\0');
    FILE_INFO info;
    isGivenUp("getInfo", "getattr clip hang", [&] { return file->getInfo(&info); });
    EXPECT_EQ(info.size, 0U) << "untouched";
    isGivenUp("setSize", "truncate clip hang", [&] { return file->setSize(5); });
    isGivenUp("read", "read clip hang", [&] { return file->read(0, memory.data(), 1000, nullptr); });
    EXPECT_EQ(memory, std::string(100'000, '\0')) << "what comes late does not come here";
    isGivenUp("write", "write clip hang", [&] { return file->write(0, "abc", 3, nullptr); });
    isGivenUp("flush", "fsync clip hang", [&] { return file->flush(); });

    // The transfers that were given up have ended as well by now, or these would be refused.
    EXPECT_TRUE(becomes([&] { return file->write(0, "abc", 3, nullptr); }));
    EXPECT_TRUE(file->read(0, memory.data(), 3, nullptr));
    EXPECT_EQ(memory.substr(0, 3), "abc");
}

TEST_F(HungMount, AFileWhoseServerDoesNotAnswerCanBeClosed)
{
    Qz::Ptr<iFile> file = open(at(hung, "clip"));
    ASSERT_TRUE(file->write(0, "abc", 3, nullptr));
    hung.rule("flush clip hang");
    EXPECT_TRUE(comesBack("close", [&] {
        file.reset();
        return true;
    }));
    EXPECT_EQ(hung.fired("flush"), 1) << "told to the server, and not waited for";
    hung.rule("");
    EXPECT_TRUE(answersAgain(hung));
    EXPECT_EQ(read(hung, "clip"), "abc");
}

TEST_F(HungMount, AnOpenThatCameTooLateLeavesNoDescriptor)
{
    put(hung, "clip", "123");
    const auto descriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    ASSERT_TRUE(answersAgain(hung));
    const auto before = descriptors();
    hung.rule("open clip hang");
    EXPECT_FALSE(
        comesBack("open", [&] { return static_cast<bool>(open(at(hung, "clip"), os::accessRead)); }));
    hung.rule("");
    EXPECT_TRUE(answersAgain(hung));
    EXPECT_TRUE(becomes([&] { return descriptors() == before; }));
}

TEST_F(HungMount, AShortReadGoesOnToTheEnd)
{
    const FaultFs direct(FaultFs::Memory::none);
    ASSERT_TRUE(direct.mounted());
    const std::string contents = noise(300'000);
    put(direct, "clip", contents);
    direct.rule("read clip short 1000");
    std::string memory(contents.size(), '\0');
    const Qz::Ptr<iFile> file = open(at(direct, "clip"), os::accessRead, os::creationOpen);
    std::size_t done = 0;
    EXPECT_TRUE(file->read(0, memory.data(), memory.size(), &done));
    EXPECT_EQ(done, contents.size());
    EXPECT_TRUE(memory == contents);
    EXPECT_GE(direct.fired("read"), 300);
}

TEST_F(HungMount, AnAnswerThatIsTooShortIsNotTheEndOfTheFile)
{
    const FaultFs cached(FaultFs::Memory::ofKernel, "davfs");
    ASSERT_TRUE(cached.mounted());
    const std::string contents = noise(300'000);
    put(cached, "clip", contents);
    const Qz::Ptr<iFile> file = open(at(cached, "clip"), os::accessRead, os::creationOpen);
    std::string memory(contents.size(), '\0');
    cached.rule("read clip short 1000");
    std::size_t done = 0;
    EXPECT_FALSE(file->read(0, memory.data(), memory.size(), &done));
    EXPECT_EQ(lastError(), errorFromErrno(EIO));
    EXPECT_LT(done, memory.size());
    cached.rule("");
    // To the end and not beyond: what the kernel made up is not kept.
    EXPECT_TRUE(file->read(0, memory.data(), memory.size(), &done));
    EXPECT_EQ(done, memory.size());
    EXPECT_TRUE(memory == contents);
    EXPECT_TRUE(file->read(299'000, memory.data(), 5000, &done));
    EXPECT_EQ(done, 1000U);
}

TEST_F(HungMount, AServerThatCutsItsAnswersIsAskedForTheRest)
{
    const std::string contents = noise(300'000);
    put(hung, "clip", contents);
    for (const unsigned access : {os::accessRead, os::accessReadWrite}) {
        const Qz::Ptr<iFile> file = open(at(hung, "clip"), access, os::creationOpen);
        std::string memory(contents.size(), '\0');
        hung.rule("read clip short 1000");
        std::size_t done = 0;
        EXPECT_TRUE(file->read(0, memory.data(), memory.size(), &done));
        EXPECT_EQ(done, memory.size());
        EXPECT_TRUE(memory == contents);
        EXPECT_TRUE(file->read(299'001, memory.data(), 5000, &done));
        EXPECT_EQ(done, 999U);
        hung.rule("");
    }
}

namespace {

// What read answers when all that is on its way is lost, and somebody looks at the file meanwhile. The kernel
// then no longer takes an answer without bytes for the end of the file: it serves zeros, and keeps them.
template <class Read>
auto withLostAnswers(const FaultFs& server, const Path& clip, Read read)
{
    const int before = server.fired("read");
    server.rule("read clip lost");
    auto reading = std::async(std::launch::async, read);
    EXPECT_TRUE(server.waitUntilFired("read", before + 1));
    EXPECT_GT(files().getFileSize(clip), 0U);
    server.rule("");
    return reading.get();
}

}  // namespace

TEST_F(HungMount, BytesThatWereLostOnTheWayAreNotReadAsZeros)
{
    const std::string contents = noise(1'000'000);
    put(hung, "clip", contents);
    for (const unsigned access : {os::accessRead, os::accessReadWrite}) {
        const Qz::Ptr<iFile> file = open(at(hung, "clip"), access, os::creationOpen);
        std::string memory(contents.size(), '\0');
        std::size_t done = 0;
        EXPECT_TRUE(withLostAnswers(hung, at(hung, "clip"),
                                    [&] { return file->read(0, memory.data(), memory.size(), &done); }));
        EXPECT_EQ(done, memory.size());
        EXPECT_TRUE(memory == contents);
    }
}

TEST_F(HungMount, APlayerIsShownNoZerosInPlaceOfBytesThatWereLost)
{
    const Engine engine;
    const std::string contents = noise(1'000'000);
    put(hung, "clip", contents);
    MediaReader reader(at(hung, "clip"));
    ASSERT_TRUE(reader.isOpen()) << reader.openError().text;
    std::string memory(contents.size(), '\0');
    MediaError error;
    EXPECT_EQ(
        withLostAnswers(hung, at(hung, "clip"),
                        [&] { return reader.read(0, std::as_writable_bytes(std::span(memory)), &error); }),
        memory.size())
        << error.text;
    EXPECT_TRUE(memory == contents);
}

TEST_F(HungMount, ASmallFileIsReadWithoutZerosInPlaceOfBytesThatWereLost)
{
    const std::string contents = noise(300'000);
    put(hung, "clip", contents);
    std::string read;
    EXPECT_TRUE(withLostAnswers(hung, at(hung, "clip"),
                                [&] { return files().readWholeFile(at(hung, "clip"), 1'000'000, read); }));
    EXPECT_TRUE(read == contents);
}

TEST_F(HungMount, ASmallFileIsReadWholeOrNotAtAll)
{
    const FaultFs cached(FaultFs::Memory::ofKernel, "davfs");
    ASSERT_TRUE(cached.mounted());
    const std::string contents = noise(300'000);
    for (const FaultFs* const place : std::array<const FaultFs*, 2>{&cached, &hung}) {
        put(*place, "clip", contents);
        place->rule("read clip short 0");
        std::string read = "old";
        EXPECT_FALSE(files().readWholeFile(at(*place, "clip"), 1'000'000, read));
        EXPECT_EQ(lastError(), errorFromErrno(EIO));
        EXPECT_EQ(read, "");
        place->rule("");
        EXPECT_TRUE(files().readWholeFile(at(*place, "clip"), 1'000'000, read));
        EXPECT_TRUE(read == contents);
    }
}

// --- beside a good location

TEST_F(HungMount, AnotherLocationIsAnsweredAtOnce)
{
    put(good, "clip", "1234");
    hung.rule("* * hang");
    std::vector<std::future<bool>> waiting;
    for (int i = 0; i < 6; ++i)
        waiting.push_back(std::async(std::launch::async, [this] {
            const os::Patience patience(5000);
            return files().fileExists(at(hung, "clip"));
        }));
    ASSERT_TRUE(hung.waitUntilFired("getattr"));
    // As many questions as anybody asks, while those wait; none of them has ended.
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(files().getFileSize(at(good, "clip")), 4U);
        EXPECT_GT(files().getDriveForPath(at(good, "clip"))->getTotalBytes(), 0U);
        EXPECT_TRUE(open(at(good, "clip")));
    }
    EXPECT_EQ(std::count_if(waiting.begin(), waiting.end(),
                            [](auto& one) { return one.wait_for(seconds(0)) == std::future_status::ready; }),
              0);
    hung.rule("");
    for (auto& one : waiting)
        EXPECT_FALSE(one.get());
}

TEST_F(HungMount, TransfersOfAnotherLocationAndOfADiskGoOn)
{
    // More than a ring has workers, and than a pool has threads.
    constexpr int transfers = 300;
    put(hung, "clip", noise(1000));
    put(good, "clip", noise(1000));
    const TemporaryFolder disk;
    Ends ends;
    std::array<char, 1000> memory{};
    {
        CompletionPortHandler port("reads", IOCompletionCommand(&ends), 3, 3, 3, 3);
        const auto openOn = [&port](const Path& path) {
            Qz::Ptr<iFile> file = open(path, os::accessRead, os::creationOpen, os::modeAsync);
            EXPECT_TRUE(port.attach(file));
            return file;
        };
        const Qz::Ptr<iFile> stuck = openOn(at(hung, "clip"));
        const Qz::Ptr<iFile> other = openOn(at(good, "clip"));
        const Qz::Ptr<iFile> local = openOn(wide(disk.file("clip", noise(1000))));
        hung.rule("read * hang");
        std::vector<std::array<char, 1000>> memories(transfers);
        for (auto& one : memories)
            ASSERT_TRUE(stuck->asyncRead(0, one.data(), one.size(), files().createAsyncContext(&one)));
        ASSERT_TRUE(hung.waitUntilFired("read"));
        ASSERT_TRUE(other->asyncRead(0, memory.data(), memory.size(), files().createAsyncContext(&ends)));
        EXPECT_TRUE(becomes([&] { return ends.succeeded == 1; })) << "another server";
        ASSERT_TRUE(local->asyncRead(0, memory.data(), memory.size(), files().createAsyncContext(&ends)));
        EXPECT_TRUE(becomes([&] { return ends.succeeded == 2; })) << "a disk";
        hung.rule("");
        EXPECT_TRUE(becomes([&] { return ends.succeeded == transfers + 2; })) << ends.succeeded;
    }
    EXPECT_EQ(ends.failed, 0);
}

TEST_F(HungMount, LocationsAreAddedRenamedAndRemovedBesideAHungOne)
{
    const TemporaryFolder space;
    DiskManager::init(wide(space.path()), true);
    ASSERT_TRUE(DiskManager::addMediaLocation(wide(hung.point())));
    hung.rule("* * hang");
    EXPECT_TRUE(comesBack("add", [&] { return DiskManager::addMediaLocation(wide(good.point())); }));
    const Qz::Ptr<MediaDrive> drive =
        DiskManager::getVolume(DiskManager::getDriveWithPath(wide(good.point())));
    ASSERT_TRUE(drive);
    EXPECT_TRUE(comesBack("rename", [&] {
        DiskManager::setMediaLocationUserName(drive->getId(), L"good one");
        return true;
    }));
    EXPECT_TRUE(comesBack("refresh", [&] {
        DiskManager::update_drives_and_groups();
        return true;
    }));
    EXPECT_GT(drive->getSpaceMB(), 0.0);
    EXPECT_TRUE(
        comesBack("remove", [&] { return DiskManager::removeMediaLocation(wide(hung.point() + "/")); }));
    EXPECT_TRUE(comesBack("init", [&] {
        DiskManager::init(wide(space.path()), true);
        return true;
    }));
    EXPECT_TRUE(DiskManager::getVolume(DiskManager::getDriveWithPath(wide(good.point()))));
    DiskManager::deInit();
}

TEST_F(HungMount, AScanOfAHungLocationEndsAndTheCacheAnswersMeanwhile)
{
    put(good, "Material/V0123456789ABCDEF00.mov", noise(5000));
    std::filesystem::create_directories(good.below() + "/Sound");
    put(hung, "Material/V0123456789ABCDEF10.mov", noise(5000));
    std::filesystem::create_directories(hung.below() + "/Sound");
    const TemporaryFolder space;
    DiskManager::init(wide(space.path()), true);
    ASSERT_TRUE(DiskManager::addMediaLocation(wide(good.point())));
    const Cookie here(LightweightString<char>("V0123456789ABCDEF00"), true);
    ASSERT_TRUE(SystemCache::fileExists(here));

    hung.rule("readdir * hang\nopendir * hang");
    auto adding =
        std::async(std::launch::async, [this] { DiskManager::addMediaLocation(wide(hung.point())); });
    ASSERT_TRUE(hung.waitUntilFired("opendir"));
    EXPECT_TRUE(SystemCache::fileExists(here));
    EXPECT_EQ(adding.wait_for(seconds(0)), std::future_status::timeout) << "the scan still waits";
    EXPECT_EQ(adding.wait_for(longest), std::future_status::ready);
    hung.rule("");
    adding.get();
    EXPECT_TRUE(answersAgain(hung));
    SystemCache::initialise(true);
    EXPECT_TRUE(SystemCache::fileExists(Cookie(LightweightString<char>("V0123456789ABCDEF10"), true)));
    DiskManager::deInit();
}

// --- players and recorders

TEST_F(HungMount, AReaderSaysThatTheServerDoesNotAnswerAndReadsOnLater)
{
    const Engine engine;
    const std::string contents = noise(3'000'000);
    put(hung, "clip", contents);
    MediaReader reader(at(hung, "clip"));
    ASSERT_TRUE(reader.isOpen()) << reader.openError().text;
    reader.setStallLimit(briefMs);
    hung.rule("read * hang");
    std::string memory(1'000'000, '\0');
    const auto into = std::as_writable_bytes(std::span(memory));
    MediaError error;
    EXPECT_EQ(comesBack("read", [&] { return reader.read(0, into, &error); }), 0U);
    EXPECT_EQ(error.code, MediaErrorCode::givenUp) << error.text;
    hung.rule("* * hang");
    EXPECT_EQ(comesBack("read", [&] { return reader.read(2'000'000, into, &error); }), 0U);
    EXPECT_EQ(error.code, MediaErrorCode::offline) << error.text;
    hung.rule("");
    reader.setStallLimit(30'000);
    EXPECT_EQ(reader.read(1'500'000, into, &error), memory.size()) << error.text;
    EXPECT_TRUE(memory == contents.substr(1'500'000, memory.size()));
}

TEST_F(HungMount, AnAsynchronousReadIsAskedForDuringAStallAndEndsWell)
{
    const Engine engine;
    const std::string contents = noise(2'000'000);
    put(hung, "clip", contents);
    MediaReader reader(at(hung, "clip"));
    ASSERT_TRUE(reader.isOpen()) << reader.openError().text;
    hung.rule("* * hang");
    std::vector<std::future<MediaReadResult>> results;
    EXPECT_TRUE(comesBack("readAsync", [&] {
        for (std::uint64_t i = 0; i < 4; ++i)
            results.push_back(reader.readAsync(i * 500'000, 500'000));
        return true;
    }));
    hung.rule("");
    for (std::size_t i = 0; i < results.size(); ++i) {
        const MediaReadResult result = results[i].get();
        EXPECT_FALSE(result.error) << result.error.text;
        ASSERT_EQ(result.data.size(), 500'000U);
        EXPECT_EQ(std::memcmp(result.data.bytes().data(), contents.data() + i * 500'000, 500'000), 0);
    }
}

TEST_F(HungMount, AReaderWhoseServerDoesNotAnswerCanGo)
{
    const Engine engine;
    put(hung, "clip", noise(2'000'000));
    auto reader = std::make_unique<MediaReader>(at(hung, "clip"));
    ASSERT_TRUE(reader->isOpen()) << reader->openError().text;
    auto result = reader->readAsync(0, 1'000'000);
    EXPECT_FALSE(result.get().error);
    hung.rule("* * hang");
    auto late = reader->readAsync(1'000'000, 1'000'000);
    EXPECT_TRUE(comesBack("the destructor", [&] {
        reader.reset();
        return true;
    }));
    EXPECT_TRUE(late.get().error);
}

TEST_F(HungMount, ARecorderWaitsOutAStall)
{
    const Engine engine;
    const std::string contents = noise(12'000'000);
    MediaWriter writer(at(hung, "shot"));
    ASSERT_TRUE(writer.isOpen()) << writer.error().text;
    ASSERT_TRUE(writer.write(bytesOf(contents.substr(0, 2'000'000))));
    hung.rule("* * hang");
    auto rest = std::async(std::launch::async, [&] {
        return writer.write(bytesOf(contents.substr(2'000'000))) ? writer.finish() : MediaRecording();
    });
    ASSERT_TRUE(hung.waitUntilFired("write"));
    EXPECT_EQ(rest.wait_for(seconds(4)), std::future_status::timeout) << "longer than any question may take";
    hung.rule("");
    const MediaRecording recorded = rest.get();
    EXPECT_TRUE(recorded.complete) << recorded.error.text;
    EXPECT_TRUE(read(hung, "shot") == contents);
}

TEST_F(HungMount, ARecorderGivesUpAfterItsOwnLimit)
{
    const Engine engine;
    MediaWriterOptions options;
    options.stallLimitMs = briefMs;
    int takes = 0;
    for (const char* const rule :
         {"write * hang", "fsync * hang", "rename * hang", "flush * hang", "* * hang"}) {
        // A call that was given up may still be made, later, so each recording has a name of its own.
        MediaWriter writer(at(hung, "shot" + std::to_string(++takes)), options);
        ASSERT_TRUE(writer.isOpen()) << writer.error().text;
        ASSERT_TRUE(writer.write(bytesOf(noise(1'500'000))));
        hung.rule(rule);
        const MediaRecording recorded = comesBack(rule, [&] { return writer.finish(); });
        if (rule != std::string("flush * hang")) {
            EXPECT_FALSE(recorded.complete) << rule;
            EXPECT_TRUE(recorded.error) << rule;
        }
        hung.rule("");
        ASSERT_TRUE(answersAgain(hung));
    }
}

TEST_F(HungMount, ARecordingWhoseServerHasGoneClaimsOnlyWhatWasFlushed)
{
    const Engine engine;
    MediaWriter writer(at(hung, "shot"));
    ASSERT_TRUE(writer.isOpen()) << writer.error().text;
    ASSERT_TRUE(writer.write(bytesOf(noise(1'500'000))));
    ASSERT_TRUE(writer.flush());
    ASSERT_TRUE(writer.write(bytesOf(noise(3'000'000))));
    ASSERT_TRUE(becomes([&] { return writer.counters().bytesOnDisk >= 4'000'000 || !writer.write({}); }));
    hung.rule("* * error 107");
    const MediaRecording recorded = writer.finish();
    EXPECT_FALSE(recorded.complete);
    EXPECT_TRUE(recorded.error);
    EXPECT_EQ(recorded.bytes, 1'500'000U);
}

// --- the end

TEST_F(HungMount, APortEndsAlthoughATransferDoesNot)
{
    put(hung, "clip", noise(1000));
    Ends ends;
    // Never freed, for nobody tells when the server has filled it.
    static std::array<std::array<char, 1000>, 4> memory;
    const auto startRead = [&](const Qz::Ptr<iFile>& from, std::size_t i) {
        return from->asyncRead(0, memory[i].data(), memory[i].size(), files().createAsyncContext(&ends));
    };
    Qz::Ptr<iFile> file = open(at(hung, "clip"), os::accessRead, os::creationOpen, os::modeAsync);
    {
        auto port = std::make_unique<CompletionPortHandler>("reads", IOCompletionCommand(&ends), 3, 3, 3, 3);
        ASSERT_TRUE(port->attach(file));
        hung.rule("read * hang");
        for (std::size_t i = 0; i < 3; ++i)
            ASSERT_TRUE(startRead(file, i));
        ASSERT_TRUE(hung.waitUntilFired("read"));
        EXPECT_TRUE(comesBack("the end of the port", [&] {
            port.reset();
            return true;
        }));
    }
    EXPECT_FALSE(startRead(file, 3));
    file.reset();
    hung.rule("");
    // The threads of the port go when the server has answered, and tell nobody.
    const auto threads = [] {
        int named = 0;
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
            named += contentsOf(task.path() / "comm") == "reads\n" ? 1 : 0;
        return named;
    };
    EXPECT_TRUE(becomes([&] { return threads() == 0; }));
    EXPECT_EQ(ends.succeeded + ends.failed, 0);
}

TEST_F(HungMount, TheEngineEndsWithFilesOpenOnAHungServer)
{
    put(good, "clip", noise(100'000));
    FsysInitialize();
    // Of different names: the kernel does not open a file while a page of it is being read.
    for (int i = 1; i <= 2; ++i) {
        const std::string name = "clip" + std::to_string(i);
        put(hung, name, noise(100'000));
        FsysFile* file = nullptr;
        ASSERT_EQ(FsysOpen(&file, at(hung, name), 0, 1, nullptr), 1U);
        hung.rule("read * hang");
        Qz::Ptr<iObject> nobody;
        EXPECT_EQ(file->DirectRead(0, 4096, true, nullptr, nobody), 1U);
        ASSERT_TRUE(hung.waitUntilFired("read", i));
    }
    hung.rule("* * hang");
    EXPECT_TRUE(comesBack("FsysUninitialize", [] {
        FsysUninitialize(Shutdown::eNormalExit);
        return true;
    }));
    FsysInitialize();
    {
        MediaReader reader(at(good, "clip"));
        std::string memory(100'000, '\0');
        EXPECT_EQ(reader.read(0, std::as_writable_bytes(std::span(memory))), memory.size());
    }
    FsysUninitialize(Shutdown::eNormalExit);
}

TEST_F(HungMount, WhatAWriteWithoutAnAnswerNeedsIsGivenBackByALaterEngine)
{
    class Data : public iMemHolder
    {
    public:
        explicit Data(std::atomic<bool>& gone) : gone_(gone) {}
        ~Data() override { gone_ = true; }
        [[nodiscard]] unsigned char* getBuffer() const override { return bytes_.data(); }
        [[nodiscard]] unsigned getSize() const override { return static_cast<unsigned>(bytes_.size()); }
        [[nodiscard]] unsigned getUsed() const override { return getSize(); }
        void setUsed(unsigned) override {}

    private:
        std::atomic<bool>& gone_;
        mutable std::vector<unsigned char> bytes_ =
            std::vector<unsigned char>(1'000'448);  // whole sectors, too many to gather
    };
    std::atomic<bool> gone{false};
    FsysInitialize();
    put(hung, "shot", "");
    FsysFile* file = nullptr;
    ASSERT_EQ(FsysOpen(&file, at(hung, "shot"), 0, fsysOpenWrite, nullptr), 1U);
    hung.rule("write * hang");
    {
        Qz::Ptr<iMemHolder> data(new Data(gone));
        Qz::Ptr<iObject> nobody;
        EXPECT_EQ(file->DirectWrite(data, false, nullptr, nobody, false), 1U);
    }
    ASSERT_TRUE(hung.waitUntilFired("write"));
    EXPECT_TRUE(comesBack("FsysUninitialize", [] {
        FsysUninitialize(Shutdown::eNormalExit);
        return true;
    }));
    {
        const Engine engine;
    }
    EXPECT_FALSE(gone) << "the server has not answered";
    hung.rule("");
    EXPECT_TRUE(becomes([&] {
        const Engine engine;
        return gone.load();
    }));
}
