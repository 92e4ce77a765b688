#include "fsys/FsysDirectoryEntry.h"

#include "CacheTest.h"

using namespace cachetest;

namespace {

using Path = LightweightString<wchar_t>;

class FsysDirectoryEntryTest : public EntryTest
{
};

std::vector<Path> pathsOf(const std::list<MediaFileInfo>& files)
{
    std::vector<Path> paths;
    for (const MediaFileInfo& file : files)
        paths.push_back(file.getMaterialFilename().getPath());
    return paths;
}

}  // namespace

// --- adding

TEST_F(FsysDirectoryEntryTest, IsEmptyAtFirst)
{
    EXPECT_EQ(entry.fileSize(), 0u);
    EXPECT_FALSE(entry.isLinked());
    EXPECT_TRUE(entry.getProxyFiles().empty());
    EXPECT_FALSE(entry.getHighResFile().getMaterialFilename().getDrive().valid());
    EXPECT_TRUE(entry.getPhysicalFilename(false).empty());
}

TEST_F(FsysDirectoryEntryTest, ALinkNeverReplacesRealMedia)
{
    entry.addFile(clip, info(clip, L".mov", 10'000'000));
    entry.addFile(clip, info(clip, L".mxf", 512));
    EXPECT_EQ(entry.fileSize(), 10'000'000u);
    EXPECT_EQ(entry.getHighResFile().getMaterialFilename().getPath(), relative(clip, L".mov"));
    EXPECT_TRUE(entry.getProxyFiles().empty());
}

TEST_F(FsysDirectoryEntryTest, ALinkReplacesMediaThatIsNoLargerThanALink)
{
    entry.addFile(clip, info(clip, L".mov", 511));
    entry.addFile(clip, info(clip, L".mxf", 512));
    EXPECT_TRUE(entry.isLinked());
}

TEST_F(FsysDirectoryEntryTest, RealMediaReplacesALinkAndIsOnlineUntested)
{
    entry.addFile(clip, info(clip, L".mxf", 512));
    EXPECT_EQ(entry.getHighResFile().status, eStatusUnknown);
    entry.addFile(clip, info(clip, L".mov", 10'000'000));
    EXPECT_FALSE(entry.isLinked());
    EXPECT_EQ(entry.getHighResFile().status, eStatusOnline);
    EXPECT_EQ(os.log().fileSystemCalls(), 0u);
}

TEST_F(FsysDirectoryEntryTest, ALinkKeepsTheStatusAndTheLinkedNameThatItCameWith)
{
    const MediaFileInfo link(named(clip, L".mov"), L"/far/away.mov", 512);
    link.status = eStatusOffline;
    entry.addFile(clip, link);
    EXPECT_EQ(entry.getHighResFile().status, eStatusOffline);
    EXPECT_EQ(entry.getLinkedFilename(), L"/far/away.mov");
    EXPECT_EQ(os.log().fileSystemCalls(), 0u);
}

TEST_F(FsysDirectoryEntryTest, TheSecondHighResFileMovesTheFirstIntoTheEmptyProxyList)
{
    entry.addFile(clip, info(clip, L".mov", 1000));
    entry.addFile(clip, info(clip, L".mxf", 2000));
    EXPECT_EQ(entry.fileSize(), 2000u);
    EXPECT_EQ(pathsOf(entry.getProxyFiles()), std::vector<Path>{relative(clip, L".mov")});
}

TEST_F(FsysDirectoryEntryTest, AHighResFileIsNotMovedWhenThereAreProxies)
{
    entry.addFile(clip, info(clip, L".mov", 1000));
    entry.addFile(clip, info(clip, L".mxf", 2000));
    entry.addFile(clip, info(clip, L".avi", 3000));
    EXPECT_EQ(entry.fileSize(), 3000u);
    EXPECT_EQ(pathsOf(entry.getProxyFiles()), std::vector<Path>{relative(clip, L".mov")});
}

TEST_F(FsysDirectoryEntryTest, TheSameHighResFileAgainBecomesItsOwnProxy)
{
    entry.addFile(clip, info(clip, L".mov"));
    entry.addFile(clip, info(clip, L".mov"));
    entry.addFile(clip, info(clip, L".mov"));
    EXPECT_EQ(pathsOf(entry.getProxyFiles()), std::vector<Path>{relative(clip, L".mov")});
}

TEST_F(FsysDirectoryEntryTest, ProxiesStayInTheOrderInWhichTheyWereAdded)
{
    entry.addFile(clip, info(clip, L".proxy.540.mov"));
    entry.addFile(clip, info(clip, L".proxy.270.mov"));
    entry.addFile(clip, info(clip, L".proxy.1080.mov"));
    EXPECT_EQ(pathsOf(entry.getProxyFiles()),
              (std::vector<Path>{relative(clip, L".proxy.540.mov"), relative(clip, L".proxy.270.mov"),
                                 relative(clip, L".proxy.1080.mov")}));
    EXPECT_EQ(pathsOf(entry.copyProxyFiles()), pathsOf(entry.getProxyFiles()));
    EXPECT_EQ(entry.fileSize(), 0u);
}

TEST_F(FsysDirectoryEntryTest, AListedProxyIsAddedOnceButPathCaseAndDriveMakeAnother)
{
    const Path path = relative(clip, L".proxy.540.mov");
    entry.addProxyFile(MediaFileInfo(MaterialFilename(driveM, path), 1000));
    entry.addProxyFile(MediaFileInfo(MaterialFilename(driveM, path), 2000));
    EXPECT_EQ(entry.getProxyFiles().size(), 1u);
    entry.addProxyFile(MediaFileInfo(MaterialFilename(driveN, path), 1000));
    entry.addProxyFile(MediaFileInfo(MaterialFilename(driveM, path + L"X"), 1000));
    entry.addProxyFile(MediaFileInfo(MaterialFilename(driveM, path + L"x"), 1000));
    EXPECT_EQ(entry.getProxyFiles().size(), 4u);
}

TEST_F(FsysDirectoryEntryTest, AProxyWithSoundServesTheSoundChannelsOfTheClip)
{
    entry.addFile(clip, info(clip, L".A2.proxy.540.mov"));
    for (unsigned char channel = 1; channel <= 2; ++channel) {
        const Qz::Ptr<FsysDirectoryEntry> other = SystemCache::findEntryForCookie(sound(0xC11B, channel));
        ASSERT_TRUE(other) << int(channel);
        EXPECT_EQ(pathsOf(other->getProxyFiles()), std::vector<Path>{relative(clip, L".A2.proxy.540.mov")});
    }
    EXPECT_FALSE(SystemCache::findEntryForCookie(sound(0xC11B, 3)));
    EXPECT_FALSE(SystemCache::findEntryForCookie(sound(0xC11B, 0)));
}

TEST_F(FsysDirectoryEntryTest, AListedProxyIsNotToldToTheSoundChannelsAgain)
{
    entry.addFile(clip, info(clip, L".A2.proxy.540.mov"));
    SystemCache::invalidate();
    entry.addFile(clip, info(clip, L".A2.proxy.540.mov"));
    EXPECT_FALSE(SystemCache::findEntryForCookie(sound(0xC11B, 1)));
    EXPECT_EQ(entry.getProxyFiles().size(), 1u);
}

TEST_F(FsysDirectoryEntryTest, AddProxyFileTellsNoSoundChannel)
{
    entry.addProxyFile(info(clip, L".A2.proxy.540.mov"));
    EXPECT_FALSE(SystemCache::findEntryForCookie(sound(0xC11B, 1)));
}

TEST_F(FsysDirectoryEntryTest, AChannelCountBeyondAllReasonEndsAfterAllChannelNumbers)
{
    for (const wchar_t* ending : {L".A4000000000.proxy.1.mov", L".A-1.proxy.1.mov"}) {
        SystemCache::invalidate();
        entry.addFile(clip, info(clip, ending));
        unsigned entries = 0;
        SystemCache::enumerate([&](const Cookie&, const FsysDirectoryEntry& other) {
            EXPECT_EQ(other.getProxyFiles().size(), 1u);
            return ++entries != 0;
        });
        EXPECT_EQ(entries, 256u);
    }
    EXPECT_TRUE(SystemCache::findEntryForCookie(sound(0xC11B, 0)));  // channel 256
}

// --- links

TEST_F(FsysDirectoryEntryTest, NamesAreThoseOfTheMediaAndOfTheLink)
{
    os.files().addSparseFile(L"/store/real.mov", 1000);
    os.files().addLink(L"/far/away.mov", L"/store/real.mov");
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/far/away.mov"));
    EXPECT_EQ(entry.getPhysicalFilename(false), L"/far/away.mov");
    EXPECT_EQ(entry.getPhysicalFilename(true), L"/store/real.mov");
    EXPECT_EQ(entry.getLinkedFilename(), L"/far/away.mov");
    EXPECT_EQ(entry.getName(), L"real.mov");
    EXPECT_EQ(entry.getLinkFileName(), clip.asWString() + L".mov");
    EXPECT_TRUE(entry.isLinked());
}

TEST_F(FsysDirectoryEntryTest, ASetLinkedNameIsAnsweredWithoutTheDisk)
{
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/far/away.mov"));
    EXPECT_EQ(entry.getLinkedFilename(), L"/far/away.mov");
    os.log().clear();
    entry.setLinkedFilename(L"/new/place.mov");
    EXPECT_EQ(entry.getLinkedFilename(), L"/new/place.mov");
    EXPECT_EQ(entry.getPhysicalFilename(false), L"/new/place.mov");
    EXPECT_EQ(os.log().fileSystemCalls(), 0u);
}

TEST_F(FsysDirectoryEntryTest, RealiseLinksLeavesRealMediaAloneAndAnswersForTheLastFile)
{
    entry.addFile(clip, info(clip, L".mov"));
    os.files().addFile(osPath(info(clip, L".mov")), std::string(1000, 'x'));
    EXPECT_FALSE(entry.realiseLinks(false));
    EXPECT_EQ(os.files().contents(osPath(info(clip, L".mov"))), std::string(1000, 'x'));

    entry.addFile(clip, MediaFileInfo(named(clip, L".proxy.540.mov"), L"/far/p.mov", 512));
    EXPECT_TRUE(entry.realiseLinks(false));
    EXPECT_EQ(os.files().contents(osPath(info(clip, L".proxy.540.mov"))).substr(0, 11),
              std::string("/far/p.mov\0", 11));

    entry.addFile(clip, info(clip, L".proxy.270.mov"));
    os.files().addFile(osPath(info(clip, L".proxy.270.mov")), "media");
    EXPECT_FALSE(entry.realiseLinks(false));
}

TEST_F(FsysDirectoryEntryTest, RealiseLinksWithOverwriteRewritesALink)
{
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/far/away.mov"));
    entry.setLinkedFilename(L"/new/place.mov");
    EXPECT_TRUE(entry.realiseLinks(true));
    EXPECT_EQ(MaterialLink::resolveLink(named(clip, L".mov")), L"/new/place.mov");
}

TEST_F(FsysDirectoryEntryTest, UpdateLinksMovesTheFileToTheDriveAndKeepsPathStatusAndLinkedName)
{
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"));
    EXPECT_EQ(entry.updateStatus(eHighRes), eStatusOffline);
    EXPECT_EQ(printedBy([&] { entry.updateLinks(driveN); }), "");
    const MediaFileInfo moved = entry.getHighResFile();
    EXPECT_EQ(moved.getMaterialFilename().getDrive(), driveN);
    EXPECT_EQ(moved.getMaterialFilename().getPath(), relative(clip, L".mov"));
    EXPECT_EQ(moved.status, eStatusOffline);
    EXPECT_EQ(entry.getLinkedFilename(), L"/gone.mov");
}

TEST_F(FsysDirectoryEntryTest, UpdateLinksReportsEachBrokenConditionAndGoesOn)
{
    os.files().addSparseFile(L"/far/away.mov", 1000);
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/far/away.mov"));
    entry.addFile(clip, info(clip, L".proxy.540.mov"));
    EXPECT_EQ(printedBy([&] { entry.updateLinks(DriveId()); }),
              "assertion failed proxyFiles_.empty() at ole/fsys/FsysDirectoryEntry line 250\n"
              "assertion failed destDrive.valid() at ole/fsys/FsysDirectoryEntry line 251\n"
              "assertion failed !MaterialLink::linkedFileExists( highResFile_.getMaterialFilename() ) at "
              "ole/fsys/FsysDirectoryEntry line 252\n");
    EXPECT_EQ(entry.getHighResFile().getMaterialFilename().getDrive(), DriveId());
    EXPECT_EQ(entry.getHighResFile().getMaterialFilename().getPath(), relative(clip, L".mov"));
}

// --- removing from the entry

TEST_F(FsysDirectoryEntryTest, RemoveFileDropsTheHighResFileOfThatPathAndDriveOnly)
{
    entry.addFile(clip, onDisk(clip, L".mov"));
    entry.removeFile(MediaFileInfo(MaterialFilename(driveN, relative(clip, L".mov")), 1));
    entry.removeFile(info(clip, L".MOV"));
    EXPECT_EQ(entry.fileSize(), 10'000'000u);
    entry.removeFile(info(clip, L".mov", 1));
    EXPECT_EQ(entry.fileSize(), 0u);
    EXPECT_TRUE(entry.getPhysicalFilename(false).empty());
    EXPECT_TRUE(os.files().has(osPath(info(clip, L".mov"))));
}

TEST_F(FsysDirectoryEntryTest, RemoveFileOfAProxyDropsItByItsOsPath)
{
    entry.addFile(clip, info(clip, L".mov"));
    entry.addFile(clip, info(clip, L".proxy.540.mov"));
    entry.removeFile(info(clip, L".proxy.540.mov"));
    EXPECT_TRUE(entry.getProxyFiles().empty());
    EXPECT_EQ(entry.fileSize(), 10'000'000u);
}

// Deliberate: the path of the link itself is compared with what the listed proxies point at.
TEST_F(FsysDirectoryEntryTest, RemoveFileOfALinkProxyLeavesItListed)
{
    const MediaFileInfo link = linkOnDisk(clip, L".proxy.540.mov", L"/far/p.mov");
    entry.addFile(clip, link);
    entry.removeFile(link);
    EXPECT_EQ(pathsOf(entry.getProxyFiles()), std::vector<Path>{relative(clip, L".proxy.540.mov")});
}

TEST_F(FsysDirectoryEntryTest, RemoveProxyFileDropsAllOfThatPhysicalNameAndKeepsTheOrder)
{
    entry.addFile(clip, info(clip, L".proxy.1.mov"));
    entry.addFile(clip, linkOnDisk(clip, L".proxy.2.mov", L"/far/p.mov"));
    entry.addFile(clip, info(clip, L".proxy.3.mov"));
    entry.addFile(clip, linkOnDisk(clip, L".proxy.4.mov", L"/far/p.mov"));
    entry.addFile(clip, info(clip, L".proxy.5.mov"));
    entry.removeProxyFile(L"/far/P.mov");
    EXPECT_EQ(entry.getProxyFiles().size(), 5u);
    entry.removeProxyFile(L"/far/p.mov");
    EXPECT_EQ(pathsOf(entry.getProxyFiles()),
              (std::vector<Path>{relative(clip, L".proxy.1.mov"), relative(clip, L".proxy.3.mov"),
                                 relative(clip, L".proxy.5.mov")}));
}

TEST_F(FsysDirectoryEntryTest, RenameProxyFileRenamesOnlyTheFirstOfTwoAtThePath)
{
    const MediaFileInfo first = info(clip, L".proxy.540.mov", 1000);
    entry.addFile(clip, first);
    entry.addFile(clip, MediaFileInfo(MaterialFilename(DriveId(), osPath(first)), 2000));
    const std::list<MediaFileInfo>& proxies = entry.getProxyFiles();
    ASSERT_EQ(proxies.size(), 2u);
    ASSERT_EQ(osPath(proxies.back()), osPath(first));

    os.files().addSparseFile(L"/new/place.mov", 4000);
    entry.renameProxyFile(osPath(first), L"/new/place.mov");
    EXPECT_EQ(proxies.front().readLinkedFilename(), L"/new/place.mov");
    EXPECT_EQ(proxies.front().size, 4000u);
    EXPECT_EQ(proxies.back().readLinkedFilename(), osPath(first));
    EXPECT_EQ(proxies.back().size, 2000u);
}

TEST_F(FsysDirectoryEntryTest, RenameProxyFileGivesAProxyANewLinkedName)
{
    entry.addFile(clip, info(clip, L".proxy.540.mov", 1000));
    os.files().addSparseFile(L"/new/place.mov", 4000);
    EXPECT_EQ(
        printedBy([&] { entry.renameProxyFile(osPath(info(clip, L".proxy.540.mov")), L"/new/place.mov"); }),
        "");
    const MediaFileInfo& renamed = entry.getProxyFiles().front();
    EXPECT_EQ(renamed.readLinkedFilename(), L"/new/place.mov");
    EXPECT_EQ(renamed.size, 4000u);
    EXPECT_EQ(renamed.getMaterialFilename().getPath(), relative(clip, L".proxy.540.mov"));
}

TEST_F(FsysDirectoryEntryTest, ARenamedProxyIsTestedAtItsNewPlace)
{
    entry.addFile(clip, info(clip, L".proxy.540.mov", 1000));
    os.files().addSparseFile(L"/new/place.mov", 4000);
    entry.renameProxyFile(osPath(info(clip, L".proxy.540.mov")), L"/new/place.mov");
    EXPECT_EQ(entry.updateStatus(eProxy), eStatusOnline);
}

TEST_F(FsysDirectoryEntryTest, RenameProxyFileOfAnUnknownNamePrintsAnAssertionAndChangesNothing)
{
    entry.addFile(clip, info(clip, L".proxy.540.mov", 1000));
    EXPECT_EQ(printedBy([&] { entry.renameProxyFile(L"/m/other.mov", L"/new/place.mov"); }),
              "assertion failed false at ole/fsys/FsysDirectoryEntry line 210\n");
    EXPECT_EQ(entry.getProxyFiles().front().size, 1000u);
}
