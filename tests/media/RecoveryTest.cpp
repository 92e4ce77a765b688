// Recordings that nobody finished: found, finished and removed.

#include "media/Recovery.h"

#include "RecordingHelpers.h"
#include "common/TemporaryFolder.h"
#include "fsys/CacheTest.h"
#include "fsys/DiskManager.h"
#include "fsys/MediaDrive.h"
#include "fsys/SystemCache.h"
#include "os/Codes.h"
#include "os/testing/ForwardingOS.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::IsEmpty;
namespace fs = std::filesystem;

namespace {

// --- on the fake platform

class Recovery : public FakeRecordingTest
{
protected:
    Recovery()
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
        os.files().addFolder(L"/m/Sound");
        EXPECT_TRUE(DiskManager::addMaterialVolume(L"/m", location, false));
    }
    ~Recovery() override
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
    }
    // The only one there is.
    [[nodiscard]] UnfinishedRecording only() const
    {
        const std::vector<UnfinishedRecording> found = findUnfinished(location);
        EXPECT_EQ(1U, found.size());
        return found.empty() ? UnfinishedRecording() : found.front();
    }
    // An unfinished file of a clip: bytes on the disk, then a gap, then more bytes.
    void leave(const Path& file, std::size_t good, std::size_t gap = 0, std::size_t behind = 0)
    {
        os.files().addSparseFile(file, good + gap + behind);
        const Qz::Ptr<iFile> handle = os.files().open(file, os::accessReadWrite, 0, os::shareAll, 0);
        EXPECT_TRUE(good == 0 || handle->write(0, all.data(), good, nullptr));
        EXPECT_TRUE(behind == 0 || handle->write(good + gap, all.data(), behind, nullptr));
    }

    const std::string all = noise(4 * mebibyte);
    const Cookie clip{CookieTypeVision, 0xC11B, 0};
    const Path final = L"/m/Material/" + clip.asWString() + L".mov";
    const Path left = final + partialEnding;
    DriveId location;
};

}  // namespace

TEST_F(Recovery, TellsAllOfAnUnfinishedRecording)
{
    leave(left, 2 * mebibyte, mebibyte, mebibyte);
    const UnfinishedRecording found = only();
    EXPECT_EQ(location, found.location);
    EXPECT_EQ(left, found.path);
    EXPECT_EQ(final, found.finalPath);
    EXPECT_EQ(clip, found.cookie);
    EXPECT_EQ(4 * mebibyte, found.bytes);
    EXPECT_EQ(2 * mebibyte, found.goodBytes);
    EXPECT_GT(found.modifiedNs, 0);
    EXPECT_FALSE(found.inUse);
}

TEST_F(Recovery, LooksIntoBothMediaFoldersAndAtNothingElse)
{
    os.files().addFile(L"/m/Material/a.mov.partial", "x");
    os.files().addFile(L"/m/Sound/b.wav.partial", "x");
    os.files().addFile(L"/m/c.mov.partial", "x");
    os.files().addFile(L"/m/Material/d.mov", "x");
    os.files().addFile(L"/m/Material/e.mov.partial.txt", "x");
    os.files().addFile(L"/m/Material/.partial", "x");
    const std::vector<UnfinishedRecording> found = findUnfinished(location);
    ASSERT_EQ(2U, found.size());
    EXPECT_EQ(Path(L"/m/Material/a.mov.partial"), found[0].path);
    EXPECT_EQ(Path(L"/m/Sound/b.wav.partial"), found[1].path);
    EXPECT_FALSE(found[0].cookie.valid());
}

TEST_F(Recovery, FindsNothingWhereThereIsNoLocation)
{
    leave(left, 100);
    EXPECT_THAT(findUnfinished(DriveId('0')), IsEmpty());
    EXPECT_THAT(findUnfinished(DriveId('Z')), IsEmpty());
    os.files().setListable(L"/m/Material", false);
    EXPECT_THAT(findUnfinished(location), IsEmpty());
}

TEST_F(Recovery, AFileThatCannotBeLookedIntoIsNeitherIdleNorEmpty)
{
    leave(left, 2 * mebibyte, mebibyte);
    for (const int code : {EACCES, EMFILE, EROFS}) {
        SCOPED_TRACE(code);
        os.faults().clear();
        os.faults().failOn(left, fake::Op::open, errorFromErrno(code));
        const UnfinishedRecording found = only();
        EXPECT_EQ(left, found.path);
        EXPECT_EQ(clip, found.cookie);
        EXPECT_TRUE(found.inUse);
        EXPECT_EQ(3 * mebibyte, found.bytes);
        EXPECT_EQ(0U, found.goodBytes);
    }
}

TEST_F(Recovery, OneWhoseGoodBytesNobodyCanTellIsNotOfferedForRemoval)
{
    leave(partial, 5000);
    os.faults().failNext(fake::Op::getWrittenSize, errorFromErrno(ETIMEDOUT));
    const UnfinishedRecording found = only();
    EXPECT_TRUE(found.inUse);
    EXPECT_EQ(0U, found.goodBytes);
    EXPECT_EQ(5000U, found.bytes);
    EXPECT_EQ(5000U, only().goodBytes);
}

TEST_F(Recovery, AFileThatGoesWhileItIsLookedAtIsNotListed)
{
    leave(left, 100);
    os.faults().failOn(left, fake::Op::open, errorFromErrno(ENOENT));
    EXPECT_THAT(findUnfinished(location), IsEmpty());
}

TEST_F(Recovery, WhereNobodyCanClaimEveryRecordingCountsAsInUse)
{
    leave(left, 100);
    os.faults().failAlways(fake::Op::claim, errorFromErrno(EOPNOTSUPP));
    const UnfinishedRecording found = only();
    EXPECT_TRUE(found.inUse);
    EXPECT_EQ(100U, found.goodBytes);
    EXPECT_EQ(MediaErrorCode::unfinished, finishUnfinished(found).code);
    EXPECT_EQ(MediaErrorCode::unfinished, removeUnfinished(found).code);
    EXPECT_TRUE(os.files().has(left));
}

TEST_F(Recovery, FinishingCutsHolesNamesTheFileAndTellsTheCache)
{
    leave(left, 2 * mebibyte, mebibyte, mebibyte);
    bool namedWhenHeard = false;
    const cachetest::CacheListener listener([&] { namedWhenHeard = os.files().has(final); });
    EXPECT_FALSE(finishUnfinished(only()));
    EXPECT_TRUE(contents(final) == all.substr(0, 2 * mebibyte));
    EXPECT_FALSE(os.files().has(left));
    ASSERT_EQ(1U, listener.heard.size());
    EXPECT_EQ("SysCacheAdd", listener.heard[0].type);
    EXPECT_TRUE(namedWhenHeard);
    EXPECT_THAT(findUnfinished(location), IsEmpty());
    // It is filed as a scan would have filed it.
    const Path filed = SystemCache::find(clip).getPath();
    SystemCache::invalidate();
    SystemCache::addMediaLocation(location);
    EXPECT_EQ(filed, SystemCache::find(clip).getPath());
    EXPECT_EQ(2 * mebibyte, SystemCache::fileSize(clip));
}

TEST_F(Recovery, AProxyOrASoundInTheOtherFolderIsFiledWhereItIs)
{
    const cachetest::CacheListener listener;
    const Cookie sound(CookieTypeSound, 0xC11B, 1);
    const Path odd = L"/m/Material/" + sound.asWString() + L".A2.proxy.540.mp4";
    leave(odd + partialEnding, 100);
    EXPECT_FALSE(finishUnfinished(only()));
    ASSERT_EQ(1U, listener.heard.size());
    EXPECT_EQ("SysCacheAddProxy", listener.heard[0].type);
    EXPECT_EQ(odd, SystemCache::find(sound).getOsPath());
}

TEST_F(Recovery, AFileOfNoClipIsNamedAndNobodyIsTold)
{
    const cachetest::CacheListener listener;
    leave(L"/m/Material/shot.mov.partial", 100);
    EXPECT_FALSE(finishUnfinished(only()));
    EXPECT_TRUE(os.files().has(path));
    EXPECT_THAT(listener.heard, IsEmpty());
}

TEST_F(Recovery, TheDeviceHasTheFileBeforeItHasItsName)
{
    leave(left, 70'000, 200'000);
    const UnfinishedRecording found = only();
    os.log().clear();
    EXPECT_FALSE(finishUnfinished(found));
    std::vector<std::string> order;
    for (const fake::Call& call : os.log().calls())
        if (call.op == fake::Op::setSize || call.op == fake::Op::flush || call.op == fake::Op::renameFile)
            order.emplace_back(fake::nameOf(call.op));
    EXPECT_THAT(order, testing::ElementsAre("setSize", "flush", "renameFile"));
}

TEST_F(Recovery, ARecorderAtWorkKeepsItsFile)
{
    MediaWriter writer(final, options());
    EXPECT_TRUE(writer.write(bytesOf(all)));
    EXPECT_TRUE(writer.flush());
    const UnfinishedRecording found = only();
    EXPECT_TRUE(found.inUse);
    EXPECT_EQ(MediaErrorCode::unfinished, finishUnfinished(found).code);
    EXPECT_EQ(MediaErrorCode::unfinished, removeUnfinished(found).code);
    EXPECT_TRUE(writer.write(bytesOf("more")));
    EXPECT_TRUE(writer.finish().complete);
    EXPECT_TRUE(contents(final) == all + "more");
}

TEST_F(Recovery, AForgottenRecordingIsNotInUseAnyMore)
{
    {
        MediaWriter writer(final, options());
        EXPECT_TRUE(writer.write(bytesOf(all)));
    }
    const UnfinishedRecording found = only();
    EXPECT_FALSE(found.inUse);
    EXPECT_EQ(all.size(), found.goodBytes);
    EXPECT_FALSE(finishUnfinished(found));
    EXPECT_TRUE(contents(final) == all);
}

TEST_F(Recovery, ALookThatIsOutOfDateDoesNoHarm)
{
    UnfinishedRecording found;
    {
        MediaWriter writer(final, options());
        EXPECT_TRUE(writer.write(bytesOf(all).first(1000)));
        EXPECT_TRUE(writer.flush());
        found = only();
        EXPECT_EQ(1000U, found.goodBytes);
        EXPECT_TRUE(writer.write(bytesOf(all).subspan(1000)));
    }
    // What came after the look is good as well.
    EXPECT_FALSE(finishUnfinished(found));
    EXPECT_TRUE(contents(final) == all);
    EXPECT_EQ(MediaErrorCode::notFound, finishUnfinished(found).code);
    EXPECT_EQ(MediaErrorCode::notFound, removeUnfinished(found).code);
    EXPECT_TRUE(contents(final) == all);
}

TEST_F(Recovery, AFileThatGotItsNameWhileItWasOpenedIsNotCut)
{
    leave(left, 100, 200'000);
    const UnfinishedRecording found = only();
    // Its recorder ends it between the opening and the claim.
    struct Renaming : ForwardingFileManager
    {
        using ForwardingFileManager::ForwardingFileManager;
        Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                            unsigned mode) override
        {
            const Qz::Ptr<iFile> file = target().open(path, access, creation, share, mode);
            target().renameFile(path, path.substr(0, path.size() - 8));
            return file;
        }
    };
    ForwardingOS forwarding(os);
    Renaming files(*os.getFileManager());
    forwarding.use(files);
    const ScopedOS racing(forwarding);
    EXPECT_EQ(MediaErrorCode::notFound, finishUnfinished(found).code);
    EXPECT_EQ(200'100U, os.files().size(final));
    EXPECT_EQ(MediaErrorCode::notFound, removeUnfinished(found).code);
    EXPECT_TRUE(os.files().has(final));
}

TEST_F(Recovery, ARenameThatWasDoneButIsNotSafeYetIsToldAsSuchAndToTheCache)
{
    leave(left, 100);
    const UnfinishedRecording found = only();
    const cachetest::CacheListener listener;
    ForwardingOS forwarding(os);
    UnsafeRenames files(*os.getFileManager());
    forwarding.use(files);
    const ScopedOS unsafeRename(forwarding);
    EXPECT_EQ(MediaErrorCode::renameFailed, finishUnfinished(found).code);
    EXPECT_TRUE(os.files().has(final));
    ASSERT_EQ(1U, listener.heard.size());
    EXPECT_EQ("SysCacheAdd", listener.heard[0].type);
    EXPECT_EQ(100U, SystemCache::fileSize(clip));
}

TEST_F(Recovery, AFileOfTheFinalNameIsNeverReplaced)
{
    leave(left, 100, 200'000);
    os.files().addFile(final, "media");
    EXPECT_EQ(MediaErrorCode::alreadyExists, finishUnfinished(only()).code);
    EXPECT_EQ("media", contents(final));
    EXPECT_EQ(200'100U, os.files().size(left));
}

TEST_F(Recovery, AFileOfNoGoodByteCanOnlyBeRemoved)
{
    leave(left, 0, 200'000);
    const UnfinishedRecording found = only();
    EXPECT_EQ(0U, found.goodBytes);
    EXPECT_EQ(MediaErrorCode::invalidArgument, finishUnfinished(found).code);
    EXPECT_TRUE(os.files().has(left));
    EXPECT_FALSE(removeUnfinished(found));
    EXPECT_FALSE(os.files().has(left));
}

TEST_F(Recovery, OnlyUnfinishedRecordingsAreTouched)
{
    os.files().addFile(final, "media");
    UnfinishedRecording wrong;
    for (const Path& name : {final, Path(), Path(L".partial"), Path(L"/m/Material/.partial")}) {
        wrong.path = name;
        EXPECT_EQ(MediaErrorCode::invalidArgument, finishUnfinished(wrong).code);
        EXPECT_EQ(MediaErrorCode::invalidArgument, removeUnfinished(wrong).code);
    }
    EXPECT_EQ("media", contents(final));
}

TEST_F(Recovery, WhateverFailsTheFileStaysUnfinishedAndWhole)
{
    using fake::Op;
    for (const Op op :
         {Op::open, Op::claim, Op::getInfo, Op::getWrittenSize, Op::setSize, Op::flush, Op::renameFile}) {
        SCOPED_TRACE(fake::nameOf(op));
        leave(left, 100'000, 200'000);
        const UnfinishedRecording found = only();
        os.faults().failNext(op, errorFromErrno(EIO));
        EXPECT_TRUE(finishUnfinished(found));
        EXPECT_EQ(1U, os.faults().fired(op));
        EXPECT_FALSE(os.files().has(final));
        EXPECT_TRUE(contents(left).substr(0, 100'000) == all.substr(0, 100'000));
        os.files().remove(left);
    }
    leave(left, 100);
    os.faults().failNext(Op::deleteFile, errorFromErrno(EACCES));
    EXPECT_EQ(errorFromErrno(EACCES), removeUnfinished(only()).platformCode);
    EXPECT_TRUE(os.files().has(left));
    EXPECT_EQ(0U, os.live().files);
}

// --- on the real platform, after a crash

namespace {

class RecoveryOnLinux : public testing::Test
{
protected:
    RecoveryOnLinux()
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
        folder.folder("Material");
        folder.folder("Sound");
        EXPECT_TRUE(DiskManager::addMaterialVolume(wide(folder.path()), location, false));
    }
    ~RecoveryOnLinux() override
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
    }

    // Another program that records until it is killed, without a chance to clean up. It says where it is: 'w'
    // when everything is written, 'f' when that is flushed as well.
    void recordAndCrash(bool flushes)
    {
        int told[2];
        ASSERT_EQ(0, ::pipe(told));
        const pid_t child = ::fork();
        if (child == 0) {
            FsysInitialize();
            MediaWriter writer(wide(final));
            const bool written = writer.write(bytesOf(all)) && (!flushes || writer.flush());
            static_cast<void>(::write(told[1], written ? "w" : "-", 1) == 1);
            for (;;)
                ::pause();
        }
        char word = 0;
        EXPECT_EQ(1, ::read(told[0], &word, 1));
        EXPECT_EQ('w', word);
        whileItLives();
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        ::close(told[0]);
        ::close(told[1]);
    }
    void whileItLives() const
    {
        const std::vector<UnfinishedRecording> found = findUnfinished(location);
        ASSERT_EQ(1U, found.size());
        EXPECT_TRUE(found[0].inUse);
        EXPECT_EQ(MediaErrorCode::unfinished, finishUnfinished(found[0]).code);
        EXPECT_EQ(MediaErrorCode::unfinished, removeUnfinished(found[0]).code);
    }

    TemporaryFolder folder;
    const std::string all = noise(5 * mebibyte + 4321);
    const Cookie clip{CookieTypeVision, 0xC11B, 0};
    const std::string final = folder / "Material/" + toUTF8(clip.asWString()).str() + ".mov";
    DriveId location;
};

}  // namespace

TEST_F(RecoveryOnLinux, ACrashAfterAFlushLosesNothing)
{
    recordAndCrash(true);
    const std::vector<UnfinishedRecording> found = findUnfinished(location);
    ASSERT_EQ(1U, found.size());
    EXPECT_FALSE(found[0].inUse);
    EXPECT_EQ(clip, found[0].cookie);
    EXPECT_EQ(all.size(), found[0].goodBytes);
    EXPECT_FALSE(finishUnfinished(found[0]));
    EXPECT_TRUE(contentsOf(final) == all);
    EXPECT_FALSE(fs::exists(final + ".partial"));
    EXPECT_EQ(all.size(), SystemCache::fileSize(clip));
}

TEST_F(RecoveryOnLinux, ACrashWithoutAFlushLeavesTheBeginningOfWhatWasWritten)
{
    recordAndCrash(false);
    const std::vector<UnfinishedRecording> found = findUnfinished(location);
    ASSERT_EQ(1U, found.size());
    const UnfinishedRecording& left = found[0];
    EXPECT_FALSE(left.inUse);
    EXPECT_LE(left.goodBytes, left.bytes);
    if (left.goodBytes == 0) {
        EXPECT_FALSE(removeUnfinished(left));
        EXPECT_FALSE(fs::exists(final));
    } else {
        EXPECT_FALSE(finishUnfinished(left));
        EXPECT_EQ(left.goodBytes, fs::file_size(final));
        EXPECT_TRUE(all.starts_with(contentsOf(final)));
    }
    EXPECT_FALSE(fs::exists(final + ".partial"));
}

TEST_F(RecoveryOnLinux, WhatACrashLeftCanBeRemoved)
{
    recordAndCrash(true);
    const std::vector<UnfinishedRecording> found = findUnfinished(location);
    ASSERT_EQ(1U, found.size());
    EXPECT_FALSE(removeUnfinished(found[0]));
    EXPECT_TRUE(fs::is_empty(folder / "Material"));
}

TEST_F(RecoveryOnLinux, HolesAreCutOff)
{
    // Blocks 0, 1 and 3 reached the disk, block 2 did not.
    {
        std::ofstream file(final + ".partial", std::ios::binary);
        file << all.substr(0, 2 * mebibyte);
        file.seekp(static_cast<std::streamoff>(3 * mebibyte));
        file << all.substr(3 * mebibyte, mebibyte);
    }
    const std::vector<UnfinishedRecording> found = findUnfinished(location);
    ASSERT_EQ(1U, found.size());
    EXPECT_EQ(4 * mebibyte, found[0].bytes);
    EXPECT_EQ(2 * mebibyte, found[0].goodBytes);
    EXPECT_FALSE(finishUnfinished(found[0]));
    EXPECT_TRUE(contentsOf(final) == all.substr(0, 2 * mebibyte));
}
