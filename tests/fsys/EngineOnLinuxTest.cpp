// The engine on the real platform: real files, real threads, whichever backend the environment chooses.

#include "EngineFixture.h"
#include "Qz/Utf8.h"
#include "common/TemporaryFolder.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"
#include "os/Threads.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>

using testing::SizeIs;
namespace fs = std::filesystem;

namespace {

void writeFile(const fs::path& path, const std::string& bytes)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

// Counts the ends of requests, and lets a thread wait for them.
class Counter : public iObject
{
public:
    static void function(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
    {
        auto& self = dynamic_cast<Counter&>(*context);
        const std::lock_guard<std::mutex> hold(self.guard_);
        ++self.ended_;
        if (status == eRequestSuccess && data) {
            self.good_ += self.check_ == nullptr || self.check_(*data) ? 1U : 0U;
            self.last_ = data;
        }
        self.changed_.notify_all();
    }
    void await(unsigned count)
    {
        std::unique_lock<std::mutex> hold(guard_);
        changed_.wait(hold, [&] { return ended_ >= count; });
    }
    [[nodiscard]] unsigned ended() const
    {
        const std::lock_guard<std::mutex> hold(guard_);
        return ended_;
    }
    [[nodiscard]] unsigned good() const
    {
        const std::lock_guard<std::mutex> hold(guard_);
        return good_;
    }
    [[nodiscard]] Qz::Ptr<iMemHolder> last() const
    {
        const std::lock_guard<std::mutex> hold(guard_);
        return last_;
    }
    void setCheck(std::function<bool(const iMemHolder&)> check) { check_ = std::move(check); }

private:
    mutable std::mutex guard_;
    std::condition_variable changed_;
    unsigned ended_ = 0;
    unsigned good_ = 0;
    Qz::Ptr<iMemHolder> last_;
    std::function<bool(const iMemHolder&)> check_;
};

// Numbers from 0 to below limit, the same in every run.
class Dice
{
public:
    explicit Dice(unsigned seed) : engine_(seed) {}
    unsigned below(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }

private:
    std::minstd_rand engine_;
};

class EngineOnLinux : public testing::Test
{
protected:
    EngineOnLinux() { FsysInitialize(); }
    ~EngineOnLinux() override { FsysUninitialize(Shutdown::eNormalExit); }

    static FsysFile* open(const fs::path& path, unsigned flags = fsysOpenRead)
    {
        FsysFile* file = nullptr;
        EXPECT_EQ(1U, FsysOpen(&file, wide(path), 1U << 20, flags, nullptr));
        return file;
    }
    // Reads a range and waits for it.
    static std::string read(FsysFile* file, long position, unsigned bytes)
    {
        const Qz::Ptr<Counter> counter(new Counter);
        Qz::Ptr<iObject> context = counter;
        EXPECT_EQ(1U, file->DirectRead(position, bytes, false, &Counter::function, context));
        counter->await(1);
        const Qz::Ptr<iMemHolder> data = counter->last();
        return data ? std::string(reinterpret_cast<char*>(data->getBuffer()), data->getSize()) : "failed";
    }

    TemporaryFolder folder;
    LogCapture logged;
};

}  // namespace

TEST_F(EngineOnLinux, ReadsAnyRangeOfAFile)
{
    const std::string all = pattern(300000);
    writeFile(folder / "a.mov", all);
    FsysFile* const file = open(folder / "a.mov");
    for (const auto& [position, bytes] :
         {std::pair(0L, 1U), std::pair(0L, 300000U), std::pair(511L, 2U), std::pair(100000L, 65536U),
          std::pair(299999L, 1U), std::pair(4096L, 4096U), std::pair(131072L, 131072U)})
        EXPECT_EQ(all.substr(static_cast<std::size_t>(position), bytes), read(file, position, bytes))
            << position;
    EXPECT_EQ(1U, FsysClose(file, nullptr));
}

TEST_F(EngineOnLinux, AReadAcrossTheEndFailsForThoseItDoesNotReach)
{
    writeFile(folder / "a.mov", pattern(1000));
    FsysFile* const file = open(folder / "a.mov");
    EXPECT_EQ("failed", read(file, 5000, 100));
    EXPECT_EQ(0U, FsysGetLastError());
    EXPECT_EQ(1U, FsysClose(file, nullptr));
}

TEST_F(EngineOnLinux, AReadThatStraddlesTheEndIsFilledUpWithZeros)
{
    writeFile(folder / "a.mov", pattern(1000));
    FsysFile* const file = open(folder / "a.mov");
    EXPECT_EQ(pattern(1000).substr(900) + std::string(400, '\0'), read(file, 900, 500));
    EXPECT_EQ(1U, FsysClose(file, nullptr));
}

TEST_F(EngineOnLinux, AHoleInAFileIsReadAsZeros)
{
    const std::string ends = pattern(70'000);
    const fs::path path = folder / "holes.mov";
    writeFile(path, ends);
    fs::resize_file(path, 1'000'000);
    std::ofstream(path, std::ios::binary | std::ios::app) << ends;
    const std::string all = ends + std::string(930'000, '\0') + ends;
    ASSERT_EQ(all, contentsOf(path));
    FsysFile* const file = open(path);
    for (const auto& [position, bytes] :
         {std::pair(0L, 131'072U), std::pair(65'536L, 65'536U), std::pair(131'072L, 524'288U),
          std::pair(983'040L, 65'536U), std::pair(999'999L, 2U)})
        EXPECT_EQ(all.substr(static_cast<std::size_t>(position), bytes), read(file, position, bytes))
            << position;
    EXPECT_EQ(1U, FsysClose(file, nullptr));
}

TEST_F(EngineOnLinux, WritesDirectlyAndThroughTheCache)
{
    FsysFile* const file = open(folder / "new.mov", fsysOpenWrite);
    const std::string direct = pattern(8192);
    const Qz::Ptr<Counter> counter(new Counter);
    Qz::Ptr<iObject> context = counter;
    Qz::Ptr<iMemHolder> data(new TestData(direct));
    EXPECT_EQ(1U, file->DirectWrite(data, false, &Counter::function, context, true));
    EXPECT_EQ(1U, counter->ended());
    Qz::Ptr<iMemHolder> rest(new TestData(pattern(100, 5)));
    EXPECT_EQ(1U, file->DirectWrite(rest, false, &Counter::function, context, false));
    EXPECT_EQ(2U, counter->ended());
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_EQ(direct + pattern(100, 5) + pattern(100, 5), contentsOf(folder / "new.mov"));
}

TEST_F(EngineOnLinux, GatheredWritesOverflowAndDrain)
{
    FsysFile* const file = open(folder / "new.mov", fsysOpenWrite);
    const std::string all = pattern(132000);
    const Qz::Ptr<Counter> counter(new Counter);
    Qz::Ptr<iObject> context = counter;
    for (unsigned i = 0; i < 132; ++i) {
        Qz::Ptr<iMemHolder> data(new TestData(all.substr(i * 1000, 1000)));
        EXPECT_EQ(1U, file->DirectWrite(data, false, &Counter::function, context, false));
    }
    EXPECT_EQ(132U, counter->ended());
    const std::size_t flushed = 132000 - 132000 % file->GetSectorSize();
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_EQ(all + all.substr(flushed), contentsOf(folder / "new.mov"));
}

TEST_F(EngineOnLinux, ALinksTargetIsReadThroughTheLink)
{
    writeFile(folder / "target.mov", pattern(8192));
    std::string link = folder / "target.mov";
    link.resize(512, '\0');
    writeFile(folder / "link.mov", link);
    FsysFile* const file = open(folder / "link.mov");
    EXPECT_EQ(pattern(8192).substr(1000, 3000), read(file, 1000, 3000));
    std::string own(512, ' ');
    file->Seek(0, eSeekAbsolute);
    EXPECT_EQ(1U, file->Read(own.data(), 512));
    EXPECT_EQ(link, own);
    EXPECT_EQ(1U, FsysClose(file, nullptr));
}

TEST_F(EngineOnLinux, AMissingFolderGivesThePlatformsCode)
{
    FsysFile* file = nullptr;
    testing::internal::CaptureStdout();
    EXPECT_EQ(0U, FsysOpen(&file, wide(folder / "missing/a.mov"), 0, fsysOpenRead, nullptr));
    EXPECT_EQ("LowLevelOpen error 0x10002\n", testing::internal::GetCapturedStdout());
    EXPECT_EQ(0x10002U, FsysGetLastError());
}

TEST_F(EngineOnLinux, ADeferredReadIsStartedWithoutAKick)
{
    FsysSetImmediateRequestHandling(false);
    writeFile(folder / "a.mov", pattern(4096));
    FsysFile* const file = open(folder / "a.mov");
    const Qz::Ptr<Counter> counter(new Counter);
    Qz::Ptr<iObject> context = counter;
    EXPECT_EQ(1U, file->DirectRead(0, 512, true, &Counter::function, context));
    counter->await(1);
    FsysSetImmediateRequestHandling(true);
    EXPECT_EQ(1U, FsysClose(file, nullptr));
}

TEST_F(EngineOnLinux, APollThreadThatWaitsForADayWakesForAKickAndEndsAtOnce)
{
    writeFile(folder / "a.mov", pattern(4096));
    FsysFile* const other = open(folder / "a.mov");  // makes the ports
    Vector<FsysFile*> files;
    CriticalSection lock;
    auto poll = std::make_unique<FsysPoll>(&files, &lock, true, 86400000U, 50U);
    const LightweightString<wchar_t> path = wide(folder / "a.mov");
    auto* const file = new FsysFile(path, poll.get(), 512, iDiskDrive::eLocal, fsysOpenRead, 0);
    ASSERT_EQ(1U, file->LowLevelOpen(path, fsysOpenRead, false));
    ASSERT_TRUE(file->SetUpIoCompletionNotify(FsysTestAccess::receiver()->readPort()));
    {
        const std::lock_guard<CriticalSection> hold(lock);
        files.add(file);
    }
    EXPECT_EQ(pattern(4096).substr(1000, 100), read(file, 1000, 100));  // queueing it kicks
    poll.reset();
    // Whoever queues now is not served any more: the thread has ended and not only gone on waiting.
    Qz::Ptr<iObject> none;
    EXPECT_EQ(1U, file->DirectRead(2048, 100, false, nullptr, none));
    EXPECT_EQ(FileRequest::QUEUED, FsysFileTestAccess::reads(*file)[1]->status());
    FsysFile::release(file);
    EXPECT_EQ(1U, FsysClose(other, nullptr));
}

TEST_F(EngineOnLinux, ReadsInsideStartedReadsAllComeBackOnce)
{
    // What comes back names its place: the pattern repeats only after the whole file.
    std::string places(1 << 20, '\0');
    for (std::uint32_t i = 0; i < places.size() / 4; ++i)
        std::memcpy(places.data() + i * 4UL, &i, 4);
    writeFile(folder / "b.mov", places);
    FsysFile* const placed = open(folder / "b.mov");
    const Qz::Ptr<Counter> counter(new Counter);
    counter->setCheck([](const iMemHolder& data) {
        std::uint32_t first = 0;
        std::uint32_t last = 0;
        std::memcpy(&first, data.getBuffer(), 4);
        std::memcpy(&last, data.getBuffer() + data.getSize() - 4, 4);
        return last - first == data.getSize() / 4 - 1;
    });
    Qz::Ptr<iObject> context = counter;
    unsigned asked = 0;
    Dice dice(7);
    while (asked < 10000) {
        const long block = dice.below(15) * 65536L;
        const unsigned parts = 8;
        for (unsigned i = 0; i <= parts; ++i) {
            const long position = i == 0 ? block : block + dice.below(15000) * 4L;
            if (placed->DirectRead(position, i == 0 ? 65536 : 1000, false, &Counter::function, context) == 1)
                ++asked;
            else
                std::this_thread::yield();
        }
    }
    counter->await(asked);
    EXPECT_EQ(1U, FsysClose(placed, nullptr));
    EXPECT_EQ(asked, counter->ended());
    EXPECT_EQ(asked, counter->good());
}

TEST_F(EngineOnLinux, SynchronousReadersOfManyThreadsAllWake)
{
    const std::string all = pattern(1 << 18);
    writeFile(folder / "a.mov", all);
    FsysFile* const file = open(folder / "a.mov");
    std::vector<std::thread> threads;
    std::atomic<unsigned> done{0};
    for (unsigned t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (unsigned i = 0; i < 50; ++i) {
                const unsigned long position = ((t * 50 + i) * 977UL) % 200000;
                file->QueueReadRequest(new FileRequest(true, 4096, position, true, true, nullptr, file,
                                                       nullptr, Qz::Ptr<iObject>()));
                ++done;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(200U, done);
    EXPECT_EQ(1U, FsysClose(file, nullptr));
}

TEST_F(EngineOnLinux, FilesClosedAtAnyMomentLeaveNothingBehind)
{
    const std::string all = pattern(1 << 20);
    for (unsigned i = 0; i < 5; ++i)
        writeFile(folder / ("a" + std::to_string(i) + ".mov"), all);
    std::atomic<unsigned> calledTwice{0};
    const auto play = [&](unsigned seed) {
        Dice dice(seed);
        for (unsigned round = 0; round < 10; ++round) {
            FsysFile* const file = open(folder / ("a" + std::to_string(dice.below(5)) + ".mov"));
            const Qz::Ptr<Counter> counter(new Counter);
            Qz::Ptr<iObject> context = counter;
            const unsigned reads = 1 + dice.below(40);
            unsigned asked = 0;
            for (unsigned i = 0; i < reads; ++i)
                asked += file->DirectRead(dice.below(1000000), 1 + dice.below(60000), dice.below(2) == 0,
                                          &Counter::function, context) == 1;
            if (dice.below(2) == 0)
                counter->await(1);
            FsysClose(file, nullptr);
            calledTwice += counter->ended() > asked;
        }
    };
    std::vector<std::thread> players;
    for (unsigned seed = 0; seed < 5; ++seed)
        players.emplace_back(play, seed);
    for (std::thread& player : players)
        player.join();
    EXPECT_EQ(0U, calledTwice);
    EXPECT_TRUE(FsysTestAccess::readFiles().empty());
    // Whatever a close gave up is settled when its transfer ends.
    for (int i = 0; i < 10000 && theFsys.load()->readBytesOutstanding != 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(0U, theFsys.load()->readBytesOutstanding);
}

TEST_F(EngineOnLinux, TheRoadFromAClipToItsBytes)
{
    const std::string all = pattern(100000);
    const Cookie clip = Cookie::makeNew();
    const Cookie linked = Cookie::makeNew();
    const fs::path first = folder / "first";
    const fs::path second = folder / "second";
    fs::create_directories(second / "Sound");
    writeFile(first / "Material" / (clip.asString(true).str() + ".mov"), all);
    std::string link = (first / "Material" / (clip.asString(true).str() + ".mov")).string();
    link.resize(512, '\0');
    writeFile(second / "Material" / (linked.asString(true).str() + ".mov"), link);
    fs::create_directories(folder / "space");
    DiskManager::init(wide(folder / "space"), true);
    for (const fs::path& place : {first, second})
        EXPECT_TRUE(DiskManager::addMediaLocation(wide(place)));

    for (const Cookie& cookie : {clip, linked}) {
        LightweightString<wchar_t> path;
        ASSERT_TRUE(SystemCache::findFileForCookie(cookie, path, DecodeFormat(eHighRes)));
        FsysFile* const file = open(fs::path(toUTF8(path).str()));
        EXPECT_EQ(all, read(file, 0, 100000));
        EXPECT_EQ(1U, FsysClose(file, nullptr));
    }
    EXPECT_EQ(clip, Cookie(clip.asWString(), true));
    DiskManager::deInit();
    SystemCache::invalidate();
}

TEST_F(EngineOnLinux, ARecordingIsKnownToTheCacheWhenItIsAnnounced)
{
    struct Listener : public iCallbackBase<int, NotifyMsg>
    {
        int call(NotifyMsg message) override
        {
            texts.push_back(message.getText().str());
            return 0;
        }
        std::vector<std::string> texts;
    };
    fs::create_directories(folder / "space");
    fs::create_directories(folder / "media");
    DiskManager::init(wide(folder / "space"), true);
    ASSERT_TRUE(DiskManager::addMediaLocation(wide(folder / "media")));
    DriveId drive;
    ASSERT_TRUE(DiskManager::getFirstMaterialVolume(drive));
    ASSERT_TRUE(DiskManager::prepareVolumeForMedia(drive));
    const Cookie cookie = Cookie::makeNew();
    const MaterialFilename name = DiskManager::getDriveWithUniqueId(drive).getFsysLocation(cookie, L"mov");

    FsysFile* const file = open(fs::path(toUTF8(name.getOsPath()).str()), fsysOpenWrite);
    const std::string header = pattern(file->GetSectorSize());  // so that what follows goes out directly
    EXPECT_EQ(1U, file->Write(header.data(), file->GetSectorSize()));
    const Qz::Ptr<Counter> counter(new Counter);
    Qz::Ptr<iObject> context = counter;
    for (unsigned i = 0; i < 4; ++i) {
        Qz::Ptr<iMemHolder> data(new TestData(pattern(4096, i + 2)));
        EXPECT_EQ(1U, file->DirectWrite(data, false, &Counter::function, context, false));
    }
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_EQ(4U, counter->good());
    EXPECT_EQ(header + pattern(4096, 2) + pattern(4096, 3) + pattern(4096, 4) + pattern(4096, 5),
              contentsOf(toUTF8(name.getOsPath()).str()));

    const Qz::Ptr<Listener> listener(new Listener);
    const Qz::Ptr<iObject> registration =
        SystemCache::instance().addListener(listener, static_cast<int>(SystemCache::fileAddedMsgType_));
    EXPECT_TRUE(SystemCache::addFile(cookie, name, true));
    EXPECT_THAT(listener->texts, testing::ElementsAre(cookie.asString(true).str()));
    DiskManager::deInit();
    SystemCache::invalidate();
}
