// What a recording becomes when nothing goes wrong, and what stands in the way of one.

#include "RecordingHelpers.h"
#include "fsys/CacheTest.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialLink.h"
#include "fsys/MediaDrive.h"
#include "fsys/SystemCache.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>

#define XXH_INLINE_ALL
#include <xxhash.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::string hashOf(const std::string& bytes)
{
    const XXH128_hash_t hash = XXH3_128bits(bytes.data(), bytes.size());
    char text[33];
    std::snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(hash.high64),
                  static_cast<unsigned long long>(hash.low64));
    return text;
}

class MediaWriterTest : public FakeRecordingTest
{
protected:
    // Records all in one write, in writes of step bytes when that is given.
    MediaRecording record(const Path& to, const std::string& all, std::size_t step = 0)
    {
        MediaWriter writer(to, options());
        EXPECT_TRUE(writer.isOpen()) << writer.error().text;
        for (std::span<const std::byte> rest = bytesOf(all); !rest.empty();) {
            const std::size_t part = step == 0 ? rest.size() : std::min(step, rest.size());
            EXPECT_TRUE(writer.write(rest.first(part)));
            rest = rest.subspan(part);
        }
        return writer.finish();
    }
    void expectExact(std::size_t size, std::size_t step = 0)
    {
        const std::string all = noise(size, static_cast<unsigned>(size));
        const MediaRecording recorded = record(path, all, step);
        EXPECT_TRUE(recorded.complete) << size << ' ' << recorded.error.text;
        EXPECT_TRUE(recorded.hasFinalName);
        EXPECT_EQ(size, recorded.bytes);
        EXPECT_EQ(path, recorded.path);
        EXPECT_EQ(size == MaterialLink::linkFileSize, recorded.mistakenForLink);
        EXPECT_TRUE(contents(path) == all) << size;
        EXPECT_FALSE(os.files().has(partial));
        os.files().remove(path);
    }
};

class MediaWriterOfAClip : public MediaWriterTest
{
protected:
    MediaWriterOfAClip()
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
        os.files().addFolder(L"/m/Sound");
        EXPECT_TRUE(DiskManager::addMaterialVolume(L"/m", location, false));
    }
    ~MediaWriterOfAClip() override
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
    }
    [[nodiscard]] MaterialFilename name(const wchar_t* extension) const
    {
        return DiskManager::getVolume(location)->getFsysLocation(clip, extension);
    }

    const Cookie clip{CookieTypeVision, 0xC11B, 0};
    DriveId location;
};

}  // namespace

// --- bytes

TEST_F(MediaWriterTest, EverySizeUpToThreeSectorsIsExact)
{
    for (std::size_t size = 0; size <= std::size_t{3} * 512; ++size)
        expectExact(size);
}

TEST_F(MediaWriterTest, SizesAroundTheLimitsOfEngineAndBlocksAreExact)
{
    for (const std::size_t limit : {std::size_t{131072}, std::size_t{524288}, mebibyte, 8 * mebibyte})
        for (const std::size_t size :
             {limit - 513, limit - 512, limit - 1, limit, limit + 1, limit + 512, limit + 513, 2 * limit})
            expectExact(size);
}

TEST_F(MediaWriterTest, ManySmallWritesMakeTheSameFileAsOneLargeOne)
{
    expectExact(3 * mebibyte + 77, 4093);
    expectExact(mebibyte + 5, 1);
    expectExact(20 * mebibyte, mebibyte);
}

TEST_F(MediaWriterTest, AThousandWritesOfRandomSizesAreExact)
{
    const RandomWrites writes(7, 1000, 100'000);
    MediaWriter writer(path, options());
    for (std::size_t i = 0; i < writes.count(); ++i)
        ASSERT_TRUE(writer.write(writes[i]));
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_TRUE(contents(path) == writes.all());
}

TEST_F(MediaWriterTest, WholeBlocksGoAsynchronouslyAndTheRestWithoutTheWriteCache)
{
    record(path, noise(2 * mebibyte + 100));
    EXPECT_THAT(os.log().lines({fake::Op::asyncWrite}),
                ElementsAre("asyncWrite /m/Material/shot.mov.partial 0+1048576",
                            "asyncWrite /m/Material/shot.mov.partial 1048576+1048576"));
    EXPECT_THAT(os.log().lines({fake::Op::write}),
                ElementsAre("write /m/Material/shot.mov.partial 2097152+100"));
}

TEST_F(MediaWriterTest, AFlushPutsAllOnTheDeviceAndTheRecordingGoesOn)
{
    const RandomWrites writes(11, 60, 400'000);
    MediaWriter writer(path, options());
    for (std::size_t i = 0; i < writes.count(); ++i) {
        ASSERT_TRUE(writer.write(writes[i]));
        if (i % 7 == 3) {
            const std::size_t flushes = os.log().count(fake::Op::flush, partial);
            ASSERT_TRUE(writer.flush());
            EXPECT_EQ(flushes + 1, os.log().count(fake::Op::flush, partial));
            EXPECT_TRUE(contents(partial) == writes.all().substr(0, writes.endOf(i)));
            EXPECT_EQ(writes.endOf(i), writer.counters().bytesOnDisk);
        }
    }
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_TRUE(contents(path) == writes.all());
}

TEST_F(MediaWriterTest, SeveralWritersAtOnceDoNotMeddleWithEachOther)
{
    const Path second = L"/m/Material/second.mov";
    const RandomWrites a(21, 200, 200'000);
    const RandomWrites b(22, 200, 200'000);
    MediaWriter first(path, options());
    MediaWriter other(second, options());
    for (std::size_t i = 0; i < a.count(); ++i) {
        ASSERT_TRUE(first.write(a[i]));
        ASSERT_TRUE(other.write(b[i]));
    }
    EXPECT_TRUE(first.finish().complete);
    EXPECT_TRUE(other.finish().complete);
    EXPECT_TRUE(contents(path) == a.all());
    EXPECT_TRUE(contents(second) == b.all());
}

TEST_F(MediaWriterTest, OnANetworkDriveItIsExactWithAndWithoutWriteCaching)
{
    os.files().addDrive({.type = iDiskDrive::eNetwork, .root = L"/net/"});
    const std::string all = noise(5 * mebibyte + 12345);
    for (const bool caching : {false, true}) {
        FsysSetNetworkWriteCaching(caching);
        os.log().clear();
        EXPECT_TRUE(record(L"/net/shot.mov", all, 300'000).complete);
        EXPECT_TRUE(contents(L"/net/shot.mov") == all);
        // A block that is gathered would land elsewhere, so with caching on every one is written at its
        // place.
        EXPECT_EQ(caching ? 0U : 5U, os.log().count(fake::Op::asyncWrite));
        EXPECT_EQ(caching ? 6U : 1U, os.log().count(fake::Op::write));
        os.files().remove(L"/net/shot.mov");
    }
}

TEST_F(MediaWriterTest, WriteCachingThatIsSwitchedOnWhileItRecordsDoesNotHurt)
{
    os.files().addDrive({.type = iDiskDrive::eNetwork, .root = L"/net/"});
    const std::string all = noise(6 * mebibyte + 99);
    MediaWriter writer(L"/net/shot.mov", options());
    EXPECT_TRUE(writer.write(bytesOf(all).first(2 * mebibyte + 10)));
    FsysSetNetworkWriteCaching(true);
    EXPECT_TRUE(writer.write(bytesOf(all).subspan(2 * mebibyte + 10, 2 * mebibyte)));
    FsysSetNetworkWriteCaching(false);
    EXPECT_TRUE(writer.write(bytesOf(all).subspan(4 * mebibyte + 10)));
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_TRUE(contents(L"/net/shot.mov") == all);
}

TEST_F(MediaWriterTest, DrivesOfLargeAndOfUnknownSectorsAreRecordedOnToo)
{
    unsigned number = 0;
    for (const std::uint32_t sectorSize : {0U, 4096U, 3000U, 2U << 20}) {
        const Path root = Path(L"/sectors") + static_cast<wchar_t>(L'a' + number++) + L"/";
        os.files().addDrive({.sectorSize = sectorSize, .root = root});
        const std::string all = noise(3 * mebibyte + 4097);
        EXPECT_TRUE(record(root + L"shot.mov", all, 70'000).complete) << sectorSize;
        EXPECT_TRUE(contents(root + L"shot.mov") == all) << sectorSize;
    }
}

// --- hash

TEST_F(MediaWriterTest, TheHashIsThatOfTheWholeFile)
{
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, 3 * mebibyte + 1}) {
        const std::string all = noise(size);
        MediaWriterOptions hashing = options();
        hashing.hash = true;
        MediaWriter writer(path, hashing);
        for (std::size_t at = 0; at < size; at += 1000)
            ASSERT_TRUE(writer.write(bytesOf(all).subspan(at, std::min<std::size_t>(1000, size - at))));
        EXPECT_EQ(hashOf(all), writer.finish().hash);
        os.files().remove(path);
    }
}

TEST_F(MediaWriterTest, NobodyWhoDidNotAskForAHashGetsOne) { EXPECT_EQ("", record(path, noise(1000)).hash); }

// --- links

TEST_F(MediaWriterTest, AFileThatReadersTakeForALinkIsTold)
{
    EXPECT_TRUE(record(path, noise(512)).mistakenForLink);
    os.files().remove(path);
    EXPECT_FALSE(record(path, "RIFF" + noise(508)).mistakenForLink);
    os.files().remove(path);
    EXPECT_FALSE(record(path, noise(513)).mistakenForLink);
}

// --- names

TEST_F(MediaWriterTest, TheFileGrowsUnderANameThatScansPassOver)
{
    const MediaWriter writer(path, options());
    EXPECT_EQ(partial, writer.partialPath());
    EXPECT_EQ(path, writer.path());
    EXPECT_TRUE(os.files().has(partial));
    EXPECT_FALSE(os.files().has(path));
    EXPECT_FALSE(SystemCache::isEligible(L"shot.mov.partial"));
}

TEST_F(MediaWriterTest, AFinishedFileIsNeverReplaced)
{
    os.files().addFile(path, "media");
    MediaWriter writer(path, options());
    EXPECT_FALSE(writer.isOpen());
    EXPECT_EQ(MediaErrorCode::alreadyExists, writer.error().code);
    EXPECT_THAT(writer.error().text, HasSubstr("/m/Material/shot.mov"));
    EXPECT_FALSE(writer.write(bytesOf("x")));
    EXPECT_FALSE(writer.flush());
    const MediaRecording recorded = writer.finish();
    EXPECT_FALSE(recorded.complete);
    EXPECT_EQ(MediaErrorCode::alreadyExists, recorded.error.code);
    EXPECT_TRUE(recorded.path.empty());
    EXPECT_EQ("media", contents(path));
    EXPECT_FALSE(os.files().has(partial));
}

TEST_F(MediaWriterTest, AnUnfinishedFileIsNeverReplaced)
{
    os.files().addFile(partial, "what a crash left");
    {
        MediaWriter writer(path, options());
        EXPECT_EQ(MediaErrorCode::unfinished, writer.error().code);
        writer.abandon();
    }
    EXPECT_EQ("what a crash left", contents(partial));
    EXPECT_FALSE(os.files().has(path));
}

TEST_F(MediaWriterTest, TwoRecordersDoNotShareAFile)
{
    MediaWriter first(path, options());
    MediaWriter second(path, options());
    EXPECT_EQ(MediaErrorCode::unfinished, second.error().code);
    EXPECT_TRUE(first.write(bytesOf("first")));
    EXPECT_FALSE(second.write(bytesOf("second")));
    EXPECT_TRUE(first.finish().complete);
    EXPECT_EQ("first", contents(path));
}

TEST_F(MediaWriterTest, AFileThatTakesTheNameMeanwhileIsKeptAndTheRecordingStaysUnfinished)
{
    MediaWriter writer(path, options());
    EXPECT_TRUE(writer.write(bytesOf("recorded")));
    os.files().addFile(path, "another's");
    const MediaRecording recorded = writer.finish();
    EXPECT_FALSE(recorded.complete);
    EXPECT_FALSE(recorded.hasFinalName);
    EXPECT_EQ(MediaErrorCode::alreadyExists, recorded.error.code);
    EXPECT_EQ(partial, recorded.path);
    EXPECT_EQ(8U, recorded.bytes);
    EXPECT_EQ("another's", contents(path));
    EXPECT_EQ("recorded", contents(partial));
}

TEST_F(MediaWriterTest, TheFolderMustExist)
{
    EXPECT_EQ(MediaErrorCode::notFound, MediaWriter(L"/m/nowhere/shot.mov", options()).error().code);
}

TEST_F(MediaWriterTest, AFolderIsNoFileToRecord)
{
    os.files().addFolder(path);
    EXPECT_EQ(MediaErrorCode::notAFile, MediaWriter(path, options()).error().code);
}

TEST_F(MediaWriterTest, AnEmptyPathIsAnInvalidArgument)
{
    EXPECT_EQ(MediaErrorCode::invalidArgument, MediaWriter(L"", options()).error().code);
}

TEST_F(MediaWriterTest, WithoutTheEngineNothingIsMade)
{
    stopEngine();
    EXPECT_EQ(MediaErrorCode::engineNotRunning, MediaWriter(path, options()).error().code);
    EXPECT_FALSE(os.files().has(partial));
}

TEST_F(MediaWriterTest, OneWhoLooksAtUnfinishedRecordingsForAMomentDoesNotStopANewOne)
{
    // The look happens between the making of the file and its claim.
    os.faults().failNext(fake::Op::claim, errorFromErrno(EWOULDBLOCK), 2);
    MediaWriter writer(path, options());
    EXPECT_TRUE(writer.isOpen()) << writer.error().text;
    EXPECT_EQ(2U, os.faults().fired());
}

TEST_F(MediaWriterTest, AFileThatSomebodyElseHasClaimedIsLeftToHim)
{
    os.faults().failAlways(fake::Op::claim, errorFromErrno(EWOULDBLOCK));
    const MediaWriter writer(path, options());
    EXPECT_EQ(MediaErrorCode::unfinished, writer.error().code);
    EXPECT_TRUE(os.files().has(partial));
}

TEST_F(MediaWriterTest, AFileSystemWithoutClaimsIsRecordedOnAllTheSame)
{
    os.faults().failAlways(fake::Op::claim, errorFromErrno(EOPNOTSUPP));
    EXPECT_TRUE(record(path, "recorded").complete);
}

// --- the end

TEST_F(MediaWriterTest, ASecondFinishAnswersTheSame)
{
    MediaWriter writer(path, options());
    EXPECT_TRUE(writer.write(bytesOf("recorded")));
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_FALSE(writer.write(bytesOf("more")));
    EXPECT_FALSE(writer.flush());
    EXPECT_EQ(MediaErrorCode::notOpen, writer.error().code);
    writer.abandon();
    const MediaRecording again = writer.finish();
    EXPECT_TRUE(again.complete);
    EXPECT_EQ(8U, again.bytes);
    EXPECT_FALSE(again.error);
    EXPECT_EQ("recorded", contents(path));
}

TEST_F(MediaWriterTest, TheDeviceHasTheFileBeforeItHasItsName)
{
    record(path, noise(mebibyte + 1));
    const std::vector<std::string> order = os.log().lines({fake::Op::flush, fake::Op::renameFile});
    EXPECT_THAT(order,
                ElementsAre("flush /m/Material/shot.mov.partial", "renameFile /m/Material/shot.mov.partial"));
}

TEST_F(MediaWriterTest, AnAbandonedRecordingLeavesNothing)
{
    MediaWriter writer(path, options());
    EXPECT_TRUE(writer.write(bytesOf(noise(3 * mebibyte))));
    writer.abandon();
    EXPECT_FALSE(os.files().has(partial));
    EXPECT_FALSE(os.files().has(path));
    EXPECT_FALSE(writer.write(bytesOf("more")));
    const MediaRecording recorded = writer.finish();
    EXPECT_FALSE(recorded.complete);
    EXPECT_TRUE(recorded.path.empty());
    EXPECT_EQ(MediaErrorCode::notOpen, recorded.error.code);
    EXPECT_FALSE(os.files().has(path));
}

TEST_F(MediaWriterTest, AForgottenRecordingStaysUnfinishedAndWhole)
{
    const std::string all = noise(2 * mebibyte + 333);
    {
        MediaWriter writer(path, options());
        EXPECT_TRUE(writer.write(bytesOf(all)));
    }
    EXPECT_TRUE(contents(partial) == all);
    EXPECT_FALSE(os.files().has(path));
}

TEST_F(MediaWriterTest, AForgottenRecordingOfNothingLeavesNothing)
{
    {
        const MediaWriter writer(path, options());
    }
    EXPECT_FALSE(os.files().has(partial));
}

TEST_F(MediaWriterTest, NothingIsLeftOpenAtTheEnd)
{
    record(path, noise(9 * mebibyte + 1), 65536);
    {
        MediaWriter(L"/m/Material/other.mov", options()).abandon();
    }
    stopEngine();
    EXPECT_EQ(fake::Live{}, os.live());
}

TEST_F(MediaWriterTest, FinishGivesTheMemoryBack)
{
    MediaWriter writer(path, options());
    EXPECT_TRUE(writer.write(bytesOf(noise(5 * mebibyte + 1))));
    EXPECT_TRUE(writer.finish().complete);
    stopEngine();
    EXPECT_EQ(0U, os.live().pages);
    EXPECT_EQ(0U, os.live().files);
}

// --- back-pressure

TEST_F(MediaWriterTest, AWriteWaitsWhileAsMuchAsAllowedIsUnderWay)
{
    os.transfers().setAutomatic(false);
    MediaWriterOptions narrow = options();
    narrow.bytesInFlight = 4 * mebibyte;
    const std::string all = noise(20 * mebibyte);
    MediaWriter writer(path, narrow);
    const unsigned before = os.live().pages;
    std::size_t heldMost = 0;
    unsigned pagesMost = 0;
    os.clock().setIdleHandler([&] {
        heldMost = std::max(heldMost, os.transfers().heldCount());
        pagesMost = std::max(pagesMost, os.live().pages - before);
        return os.transfers().completeNext();
    });
    // What fits is taken without waiting for anybody.
    EXPECT_TRUE(writer.write(bytesOf(all).first(4 * mebibyte)));
    EXPECT_EQ(0U, writer.counters().waits);
    EXPECT_TRUE(os.transfers().awaitHeld(4));
    EXPECT_TRUE(writer.write(bytesOf(all).subspan(4 * mebibyte, 1)));
    EXPECT_EQ(1U, writer.counters().waits);
    EXPECT_TRUE(writer.write(bytesOf(all).subspan(4 * mebibyte + 1)));
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_EQ(4U, heldMost);
    // A block whose write has been told may be held by the engine a moment longer.
    EXPECT_LE(pagesMost, 4U + 3U);
    EXPECT_TRUE(contents(path) == all);
}

TEST_F(MediaWriterTest, TransfersMayEndInAnyOrder)
{
    os.transfers().setAutomatic(false);
    std::mt19937 numbers(5);
    os.clock().setIdleHandler([&] {
        const std::size_t held = os.transfers().heldCount();
        return held != 0 && os.transfers().completeAt(numbers() % held);
    });
    const std::string all = noise(30 * mebibyte + 5);
    EXPECT_TRUE(record(path, all, 700'001).complete);
    EXPECT_TRUE(contents(path) == all);
}

TEST_F(MediaWriterTest, LessThanTwoAndMoreThanThirtyTwoBlocksAreNotKept)
{
    os.transfers().setAutomatic(false);
    for (const auto& [asked, given] : {std::pair<std::uint64_t, std::size_t>{0, 2}, {1 << 30, 32}}) {
        MediaWriterOptions odd = options();
        odd.bytesInFlight = asked;
        MediaWriter writer(path, odd);
        std::size_t heldMost = 0;
        os.clock().setIdleHandler([&, count = given] {
            if (heldMost == 0 && !os.transfers().awaitHeld(count))
                return false;
            heldMost = std::max(heldMost, os.transfers().heldCount());
            return os.transfers().completeAll() != 0;
        });
        EXPECT_TRUE(writer.write(bytesOf(noise(40 * mebibyte))));
        EXPECT_EQ(given, heldMost);
        writer.abandon();
        os.clock().setIdleHandler({});
    }
}

// --- counters

TEST_F(MediaWriterTest, CountersTellWhatWasAcceptedAndWhatIsOnTheDisk)
{
    os.transfers().setAutomatic(false);
    os.clock().setIdleHandler([&] { return os.transfers().completeNext(); });
    MediaWriter writer(path, options());
    EXPECT_TRUE(writer.write(bytesOf(noise(mebibyte))));
    EXPECT_TRUE(writer.write({}));
    EXPECT_TRUE(writer.write(bytesOf("rest")));
    EXPECT_EQ(3U, writer.counters().writes);
    EXPECT_EQ(mebibyte + 4, writer.counters().bytes);
    EXPECT_EQ(0U, writer.counters().bytesOnDisk);
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_EQ(mebibyte + 4, writer.counters().bytesOnDisk);
}

TEST_F(MediaWriterTest, TheWorstWaitIsInMilliseconds)
{
    os.transfers().setAutomatic(false);
    MediaWriterOptions narrow;
    narrow.bytesInFlight = 2 * mebibyte;
    narrow.stallLimitMs = 60'000;
    MediaWriter writer(path, narrow);
    EXPECT_TRUE(writer.write(bytesOf(noise(2 * mebibyte))));
    EXPECT_TRUE(os.transfers().awaitHeld(2));
    EXPECT_EQ(0.0, writer.counters().worstWaitMs);
    os.clock().after(250, [&] { os.transfers().completeAll(); });
    EXPECT_TRUE(writer.write(bytesOf("x")));
    EXPECT_GE(writer.counters().worstWaitMs, 250.0);
    EXPECT_LT(writer.counters().worstWaitMs, 60'000.0);
}

// --- space

TEST_F(MediaWriterTest, LowSpaceIsToldOnceEachTimeItFallsBelow)
{
    const Qz::Ptr<FakeDrive> drive = os.files().addDrive({.freeBytes = 50 * mebibyte, .root = L"/s/"});
    const auto setFree = [&](std::uint64_t bytes) { drive->set({.freeBytes = bytes, .root = L"/s/"}); };
    std::vector<std::uint64_t> told;
    MediaWriterOptions watching = options();
    watching.lowSpaceBytes = 20 * mebibyte;
    watching.onSpaceLow = [&](std::uint64_t freeBytes) { told.push_back(freeBytes); };
    MediaWriter writer(L"/s/shot.mov", watching);
    const std::string piece = noise(16 * mebibyte);
    const auto writePiece = [&] { EXPECT_TRUE(writer.write(bytesOf(piece)) && writer.flush()); };
    writePiece();
    EXPECT_THAT(told, IsEmpty());
    setFree(35 * mebibyte);
    writePiece();
    EXPECT_THAT(told, ElementsAre(19 * mebibyte));
    setFree(19 * mebibyte);
    writePiece();
    EXPECT_THAT(told, ElementsAre(19 * mebibyte));
    setFree(60 * mebibyte);
    writePiece();
    setFree(26 * mebibyte);
    writePiece();
    EXPECT_THAT(told, ElementsAre(19 * mebibyte, 10 * mebibyte));
    writer.abandon();
}

TEST_F(MediaWriterTest, TheDiskIsAskedInTimeBeforeTheLimitCanBeReached)
{
    const Qz::Ptr<FakeDrive> drive = os.files().addDrive({.freeBytes = 21 * mebibyte, .root = L"/s/"});
    unsigned told = 0;
    MediaWriterOptions watching = options();
    watching.lowSpaceBytes = 20 * mebibyte;
    watching.onSpaceLow = [&](std::uint64_t) { ++told; };
    MediaWriter writer(L"/s/shot.mov", watching);
    drive->set({.freeBytes = 20 * mebibyte - 1, .root = L"/s/"});
    EXPECT_TRUE(writer.write(bytesOf(noise(mebibyte - 1))));
    EXPECT_EQ(0U, told);
    EXPECT_TRUE(writer.write(bytesOf("x")));
    EXPECT_EQ(1U, told);
}

TEST_F(MediaWriterTest, ADiskThatIsLowAlreadyIsToldByTheConstructor)
{
    os.files().addDrive({.freeBytes = 5, .root = L"/s/"});
    std::uint64_t told = 0;
    MediaWriterOptions watching = options();
    watching.onSpaceLow = [&](std::uint64_t freeBytes) { told = freeBytes; };
    const MediaWriter writer(L"/s/shot.mov", watching);
    EXPECT_EQ(5U, told);
}

TEST_F(MediaWriterTest, ADiskThatDoesNotKnowItsSpaceIsNotLow)
{
    os.files().addDrive({.freeBytes = 0, .totalBytes = 0, .root = L"/s/"});
    MediaWriterOptions watching = options();
    watching.onSpaceLow = [](std::uint64_t) { ADD_FAILURE(); };
    MediaWriter writer(L"/s/shot.mov", watching);
    EXPECT_TRUE(writer.write(bytesOf(noise(40 * mebibyte))));
}

TEST_F(MediaWriterTest, WhatTheListenerOfLowSpaceThrowsDoesNotReachTheRecording)
{
    os.files().addDrive({.freeBytes = 5, .root = L"/s/"});
    MediaWriterOptions watching = options();
    watching.onSpaceLow = [](std::uint64_t) { throw std::runtime_error("oh"); };
    MediaWriter writer(L"/s/shot.mov", watching);
    EXPECT_TRUE(writer.write(bytesOf("recorded")));
    EXPECT_TRUE(writer.finish().complete);
}

TEST_F(MediaWriterTest, ALargeWriteIsAnnouncedBeforeTheDiskTakesAnyOfIt)
{
    os.files().addDrive({.freeBytes = 30 * mebibyte, .root = L"/s/"});
    std::vector<std::uint64_t> told;
    MediaWriterOptions watching = options();
    watching.lowSpaceBytes = 20 * mebibyte;
    watching.onSpaceLow = [&](std::uint64_t freeBytes) {
        told.push_back(freeBytes);
        EXPECT_EQ(0U, os.transfers().accepted());
    };
    MediaWriter writer(L"/s/shot.mov", watching);
    EXPECT_TRUE(writer.write(bytesOf(noise(12 * mebibyte))));
    EXPECT_THAT(told, ElementsAre(18 * mebibyte));
}

TEST_F(MediaWriterTest, AWriteThatDoesNotFitIsAnnouncedWithNothingLeft)
{
    os.files().addDrive({.freeBytes = 22 * mebibyte, .root = L"/s/"});
    std::vector<std::uint64_t> told;
    MediaWriterOptions watching = options();
    watching.lowSpaceBytes = 20 * mebibyte;
    watching.onSpaceLow = [&](std::uint64_t freeBytes) { told.push_back(freeBytes); };
    MediaWriter writer(L"/s/shot.mov", watching);
    EXPECT_TRUE(writer.write(bytesOf(noise(23 * mebibyte))));
    EXPECT_THAT(told, ElementsAre(0U));
}

TEST_F(MediaWriterTest, WhatTheDiskHasYetToTakeIsNotFreeAnyMore)
{
    os.transfers().setAutomatic(false);
    os.files().addDrive({.freeBytes = 25 * mebibyte, .root = L"/s/"});
    std::vector<std::uint64_t> told;
    MediaWriterOptions watching = options();
    watching.lowSpaceBytes = 20 * mebibyte;
    watching.onSpaceLow = [&](std::uint64_t freeBytes) { told.push_back(freeBytes); };
    MediaWriter writer(L"/s/shot.mov", watching);
    const std::string piece = noise(2 * mebibyte);
    EXPECT_TRUE(writer.write(bytesOf(piece)));
    EXPECT_TRUE(writer.write(bytesOf(piece)));
    EXPECT_THAT(told, IsEmpty());
    // The disk still says 25, for it has taken nothing.
    EXPECT_TRUE(writer.write(bytesOf(piece)));
    EXPECT_THAT(told, ElementsAre(19 * mebibyte));
    os.transfers().setAutomatic(true);
    os.transfers().completeAll();
}

TEST_F(MediaWriterTest, TheListenerOfLowSpaceMayEndTheRecordingWhichThenRefusesTheWrite)
{
    const Qz::Ptr<FakeDrive> drive = os.files().addDrive({.root = L"/s/"});
    MediaWriter* running = nullptr;
    MediaWriterOptions watching = options();
    watching.onSpaceLow = [&](std::uint64_t) { EXPECT_TRUE(running->finish().complete); };
    MediaWriter writer(L"/s/shot.mov", watching);
    running = &writer;
    const std::string all = noise(mebibyte + 3);
    EXPECT_TRUE(writer.write(bytesOf(all)));
    drive->set({.freeBytes = 5, .root = L"/s/"});
    EXPECT_FALSE(writer.write(bytesOf(noise(17 * mebibyte))));
    EXPECT_EQ(MediaErrorCode::notOpen, writer.error().code);
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_TRUE(contents(L"/s/shot.mov") == all);
}

// --- clips

TEST_F(MediaWriterOfAClip, TheCacheAndItsListenersHearOfItOnceItHasItsName)
{
    const Path file = name(L"mov").getOsPath();
    bool namedWhenHeard = false;
    const cachetest::CacheListener listener(
        [&] { namedWhenHeard = os.files().has(file) && !os.files().has(file + partialEnding); });
    MediaWriter writer(clip, name(L"mov"), options());
    EXPECT_TRUE(writer.write(bytesOf(noise(mebibyte + 17))));
    EXPECT_TRUE(writer.flush());
    EXPECT_THAT(listener.heard, IsEmpty());
    EXPECT_FALSE(SystemCache::fileExists(clip));
    EXPECT_TRUE(writer.finish().complete);
    ASSERT_EQ(1U, listener.heard.size());
    EXPECT_EQ("SysCacheAdd", listener.heard[0].type);
    EXPECT_EQ(clip.asString(true).str(), listener.heard[0].text);
    EXPECT_TRUE(namedWhenHeard);
    EXPECT_EQ(mebibyte + 17, SystemCache::fileSize(clip));
    EXPECT_EQ(name(L"mov").getPath(), SystemCache::find(clip).getPath());
}

TEST_F(MediaWriterOfAClip, AProxyIsAnnouncedAsOne)
{
    const cachetest::CacheListener listener;
    const MaterialFilename proxy(location,
                                 MediaFileInfo::makeProxyName(name(L"mov").getPath(), L"mp4", 540, 2));
    MediaWriter writer(clip, proxy, options());
    EXPECT_TRUE(writer.write(bytesOf("proxy")));
    EXPECT_TRUE(writer.finish().complete);
    ASSERT_EQ(1U, listener.heard.size());
    EXPECT_EQ("SysCacheAddProxy", listener.heard[0].type);
    std::list<MediaFileInfo> proxies;
    EXPECT_TRUE(SystemCache::getProxyFiles(clip, proxies));
    ASSERT_EQ(1U, proxies.size());
    EXPECT_EQ(540U, proxies.front().getProxyHeight());
}

TEST_F(MediaWriterOfAClip, AnEmptyRecordingIsNotAnnouncedForScansPassItOver)
{
    const cachetest::CacheListener listener;
    MediaWriter writer(clip, name(L"mov"), options());
    const MediaRecording recorded = writer.finish();
    EXPECT_TRUE(recorded.complete);
    EXPECT_EQ(0U, recorded.bytes);
    EXPECT_TRUE(os.files().has(name(L"mov").getOsPath()));
    EXPECT_THAT(listener.heard, IsEmpty());
    EXPECT_FALSE(SystemCache::fileExists(clip));
}

TEST_F(MediaWriterOfAClip, ScansPassOverWhatIsStillRecorded)
{
    MediaWriter writer(clip, name(L"mov"), options());
    EXPECT_TRUE(writer.write(bytesOf(noise(2 * mebibyte))));
    EXPECT_TRUE(writer.flush());
    SystemCache::addMediaLocation(location);
    EXPECT_FALSE(SystemCache::fileExists(clip));
}

TEST_F(MediaWriterOfAClip, NobodyHearsOfAnAbandonedOrForgottenRecording)
{
    const cachetest::CacheListener listener;
    {
        MediaWriter forgotten(clip, name(L"mov"), options());
        EXPECT_TRUE(forgotten.write(bytesOf("x")));
        MediaWriter abandoned(clip, name(L"mxf"), options());
        EXPECT_TRUE(abandoned.write(bytesOf("x")));
        abandoned.abandon();
    }
    EXPECT_THAT(listener.heard, IsEmpty());
    EXPECT_FALSE(SystemCache::fileExists(clip));
}

TEST_F(MediaWriterOfAClip, AnInvalidCookieOrAnEmptyNameIsAnInvalidArgument)
{
    EXPECT_EQ(MediaErrorCode::invalidArgument, MediaWriter(Cookie(), name(L"mov"), options()).error().code);
    EXPECT_EQ(MediaErrorCode::invalidArgument,
              MediaWriter(clip, MaterialFilename(location, L""), options()).error().code);
}

TEST_F(MediaWriterOfAClip, AListenerMayAskTheWriterAgain)
{
    MediaWriter writer(clip, name(L"mov"), options());
    bool same = false;
    const cachetest::CacheListener listener([&] { same = writer.finish().complete; });
    EXPECT_TRUE(writer.write(bytesOf("recorded")));
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_TRUE(same);
    EXPECT_EQ(1U, listener.heard.size());
}
