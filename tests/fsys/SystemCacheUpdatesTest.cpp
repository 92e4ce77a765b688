#include <cerrno>
#include <list>
#include <thread>

#include "fsys/SystemCache.h"
#include "os/LastError.h"
#include "os/testing/ForwardingFileManager.h"
#include "os/testing/ForwardingOS.h"

#include "CacheTest.h"

using namespace cachetest;

namespace {

using Path = LightweightString<wchar_t>;

class SystemCacheUpdates : public CacheTest
{
protected:
    bool onDiskStill(const wchar_t* ending) { return os.files().has(osPath(info(clip, ending))); }
    static std::size_t proxyCount(const Cookie& cookie)
    {
        std::list<MediaFileInfo> proxies;
        SystemCache::getProxyFiles(cookie, proxies);
        return proxies.size();
    }

    const Cookie clip = vision(0x0DD);
};

}  // namespace

// --- adding

TEST_F(SystemCacheUpdates, AddFileNotifiesOnlyWhenAsked)
{
    const CacheListener listener;
    EXPECT_TRUE(SystemCache::addFile(clip, info(clip, L".mov"), false));
    EXPECT_TRUE(SystemCache::addFile(clip, info(clip, L".proxy.540.mov"), false));
    EXPECT_TRUE(listener.heard.empty());
}

TEST_F(SystemCacheUpdates, AddFileTellsTheCookieAndTheEntry)
{
    const CacheListener listener;
    EXPECT_TRUE(SystemCache::addFile(clip, info(clip, L".mov"), true));
    EXPECT_TRUE(SystemCache::addFile(clip, info(clip, L".proxy.540.mov"), true));
    ASSERT_EQ(listener.heard.size(), 2u);
    EXPECT_EQ(listener.heard[0].type, "SysCacheAdd");
    EXPECT_EQ(listener.heard[1].type, "SysCacheAddProxy");
    for (const CacheListener::Heard& heard : listener.heard) {
        EXPECT_EQ(heard.text, clip.asString(true).str());
        EXPECT_TRUE(heard.entry == SystemCache::findEntryForCookie(clip));
    }
}

TEST_F(SystemCacheUpdates, AddFileAlsoAnnouncesAnAdditionThatChangesNothing)
{
    const MediaFileInfo proxy = info(clip, L".proxy.540.mov");
    SystemCache::addFile(clip, info(clip, L".mov"), false);
    SystemCache::addFile(clip, proxy, false);
    const CacheListener listener;
    SystemCache::addFile(clip, proxy, true);  // listed already
    SystemCache::addFile(clip, MediaFileInfo(named(clip, L".mov"), L"/far.mov", 512), true);  // a link
    EXPECT_EQ(proxyCount(clip), 1u);
    EXPECT_FALSE(SystemCache::isLinked(clip));
    ASSERT_EQ(listener.heard.size(), 2u);
    EXPECT_EQ(listener.heard[0].type, "SysCacheAddProxy");
    EXPECT_EQ(listener.heard[1].type, "SysCacheAdd");
}

TEST_F(SystemCacheUpdates, AddFileByNameTakesTheSizeFromDisk)
{
    os.files().addSparseFile(osPath(info(clip, L".mov")), 4321);
    EXPECT_TRUE(SystemCache::addFile(clip, named(clip, L".mov"), false));
    EXPECT_EQ(SystemCache::fileSize(clip), 4321u);

    const Cookie missing = vision(0xBAD);
    const CacheListener listener;
    EXPECT_TRUE(SystemCache::addFile(missing, named(missing, L".mov"), true));
    EXPECT_EQ(SystemCache::fileSize(missing), 0u);
    EXPECT_TRUE(SystemCache::fileExists(missing));
    EXPECT_EQ(listener.heard.size(), 1u);
}

TEST_F(SystemCacheUpdates, AddFileByNameRecognisesAProxy)
{
    const CacheListener listener;
    SystemCache::addFile(clip, named(clip, L".A1.proxy.540.mov"), true);
    ASSERT_EQ(listener.heard.size(), 1u);
    EXPECT_EQ(listener.heard[0].type, "SysCacheAddProxy");
    EXPECT_EQ(proxyCount(clip), 1u);
    EXPECT_EQ(proxyCount(sound(0x0DD, 1)), 1u);
}

TEST_F(SystemCacheUpdates, AddFileOfASoundClipsOwnProxyMakesOneEntryWithOneProxy)
{
    const Cookie own = sound(0x0DD, 1);
    const CacheListener listener;
    SystemCache::addFile(own, info(own, L".A2.proxy.0.wav"), true);
    EXPECT_EQ(proxyCount(own), 1u);
    ASSERT_EQ(listener.heard.size(), 1u);
    EXPECT_TRUE(listener.heard[0].entry == SystemCache::findEntryForCookie(own));
    EXPECT_EQ(proxyCount(sound(0x0DD, 2)), 1u);
}

TEST_F(SystemCacheUpdates, AddProxyFileMakesAnEntryOrAppendsSilently)
{
    const CacheListener listener;
    SystemCache::addProxyFile(clip, info(clip, L".A2.proxy.540.mov"));
    EXPECT_EQ(proxyCount(clip), 1u);
    SystemCache::addProxyFile(clip, info(clip, L".proxy.270.mov"));
    SystemCache::addProxyFile(clip, info(clip, L".proxy.270.mov"));
    EXPECT_EQ(proxyCount(clip), 2u);
    EXPECT_FALSE(SystemCache::findEntryForCookie(sound(0x0DD, 1)));
    EXPECT_TRUE(listener.heard.empty());
}

// --- removing

TEST_F(SystemCacheUpdates, RemovingTheHighResFileLeavesTheCookieWithItsProxies)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    SystemCache::addFile(clip, onDisk(clip, L".proxy.540.mov"), false);
    const CacheListener listener;
    EXPECT_EQ(SystemCache::removeFile(clip, true, eHighRes), 1u);
    EXPECT_FALSE(onDiskStill(L".mov"));
    EXPECT_TRUE(onDiskStill(L".proxy.540.mov"));
    EXPECT_EQ(proxyCount(clip), 1u);
    EXPECT_EQ(SystemCache::fileSize(clip), 0u);
    ASSERT_EQ(listener.heard.size(), 1u);
    EXPECT_EQ(listener.heard[0].type, "SysCacheDel");
    EXPECT_EQ(listener.heard[0].text, clip.asString(true).str());
}

TEST_F(SystemCacheUpdates, RemovingTheProxiesLeavesTheCookieWithItsHighResFile)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    SystemCache::addFile(clip, onDisk(clip, L".proxy.540.mov"), false);
    EXPECT_EQ(SystemCache::removeFile(clip, false, eProxy), 1u);
    EXPECT_TRUE(onDiskStill(L".mov"));
    EXPECT_FALSE(onDiskStill(L".proxy.540.mov"));
    EXPECT_TRUE(SystemCache::fileExists(clip));
}

TEST_F(SystemCacheUpdates, RemovingTheProxiesIsAnnouncedOnceAsARemovalOfTheCookie)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    SystemCache::addFile(clip, onDisk(clip, L".proxy.540.mov"), false);
    SystemCache::addFile(clip, onDisk(clip, L".proxy.270.mov"), false);
    const CacheListener listener;
    EXPECT_EQ(SystemCache::removeFile(clip, true, eProxy), 1u);
    ASSERT_EQ(listener.heard.size(), 1u);
    EXPECT_EQ(listener.heard[0].type, "SysCacheDel");
    EXPECT_EQ(listener.heard[0].text, clip.asString(true).str());
}

TEST_F(SystemCacheUpdates, FilesAreDeletedUnderTheLock)
{
    class Deleting : public ForwardingFileManager
    {
    public:
        using ForwardingFileManager::ForwardingFileManager;
        bool deleteFile(const Path& path) override
        {
            EXPECT_FALSE(others.emplace_back().getsThrough()) << toUTF8(path).c_str();
            return ForwardingFileManager::deleteFile(path);
        }
        std::list<OtherThread> others;
    };
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    SystemCache::addFile(clip, onDisk(clip, L".proxy.540.mov"), false);
    Deleting deleting(os.files());
    ForwardingOS forwarding(os);
    forwarding.use(deleting);
    const ScopedOS installedForwarding(forwarding);
    EXPECT_EQ(SystemCache::removeFile(clip, false, eHighRes | eProxy), 1u);
    EXPECT_EQ(deleting.others.size(), 2u);
}

TEST_F(SystemCacheUpdates, TheLastKindThatIsRemovedTakesTheCookieAlong)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    EXPECT_EQ(SystemCache::removeFile(clip, false, eHighRes), 1u);
    EXPECT_FALSE(SystemCache::findEntryForCookie(clip));

    SystemCache::addFile(clip, onDisk(clip, L".proxy.540.mov"), false);
    EXPECT_EQ(SystemCache::removeFile(clip, false, eProxy), 1u);
    EXPECT_FALSE(SystemCache::findEntryForCookie(clip));
}

TEST_F(SystemCacheUpdates, RemovingBothTakesTheCookieAndASecondTimeReportsIt)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    SystemCache::addFile(clip, onDisk(clip, L".proxy.540.mov"), false);
    const CacheListener listener;
    EXPECT_EQ(SystemCache::removeFile(clip, false, eHighRes | eProxy), 1u);
    EXPECT_FALSE(onDiskStill(L".mov"));
    EXPECT_FALSE(onDiskStill(L".proxy.540.mov"));
    EXPECT_FALSE(SystemCache::findEntryForCookie(clip));
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(SystemCache::removeFile(clip, true, eHighRes | eProxy), 1u); }),
              "assertion failed false at ole/fsys/SystemCache line 385\n");
    EXPECT_TRUE(listener.heard.empty());
}

TEST_F(SystemCacheUpdates, RemovingNoKindIsAnnouncedAndReportedAndDeletesNothing)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    const CacheListener listener;
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(SystemCache::removeFile(clip, true, 0), 1u); }),
              "assertion failed mediaTypes != 0 at ole/fsys/FsysDirectoryEntry line 323\n");
    EXPECT_TRUE(SystemCache::fileExists(clip));
    EXPECT_TRUE(onDiskStill(L".mov"));
    ASSERT_EQ(listener.heard.size(), 1u);
    EXPECT_EQ(listener.heard[0].type, "SysCacheDel");
}

TEST_F(SystemCacheUpdates, AMaskWithAFurtherBitDeletesAndKeepsTheCookie)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    EXPECT_EQ(SystemCache::removeFile(clip, false, 7), 1u);
    EXPECT_FALSE(onDiskStill(L".mov"));
    EXPECT_TRUE(SystemCache::findEntryForCookie(clip));
}

TEST_F(SystemCacheUpdates, ADeletionThatFailsIsTheResultAndTheCookieIsGoneAllTheSame)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    os.faults().failOn(osPath(info(clip, L".mov")), fake::Op::deleteFile, errorFromErrno(EACCES));
    EXPECT_EQ(SystemCache::removeFile(clip, false, eHighRes), errorFromErrno(EACCES));
    EXPECT_EQ(os.faults().fired(), 1u);
    EXPECT_FALSE(SystemCache::findEntryForCookie(clip));
    EXPECT_TRUE(onDiskStill(L".mov"));
}

TEST_F(SystemCacheUpdates, ARemovalIsAnnouncedBeforeAnythingIsDeleted)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(clip);
    unsigned called = 0;
    const CacheListener listener([&] {
        ++called;
        EXPECT_TRUE(onDiskStill(L".mov"));
        EXPECT_EQ(entry->fileSize(), 10'000'000u);
        EXPECT_FALSE(SystemCache::findEntryForCookie(clip));
    });
    SystemCache::removeFile(clip, true, eHighRes | eProxy);
    EXPECT_EQ(called, 1u);
    EXPECT_TRUE(listener.heard[0].entry == entry);
}

TEST_F(SystemCacheUpdates, RemoveMediaLocationGoesByTheDriveOfTheHighResFile)
{
    const Cookie elsewhere = vision(2);
    const Cookie proxiesOnly = vision(3);
    const Path path = relative(elsewhere, L".mov");
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    SystemCache::addFile(elsewhere, MediaFileInfo(MaterialFilename(driveN, path), 1000), false);
    SystemCache::addFile(elsewhere, info(elsewhere, L".proxy.540.mov"), false);
    SystemCache::addFile(proxiesOnly, info(proxiesOnly, L".proxy.540.mov"), false);
    os.log().clear();

    SystemCache::removeMediaLocation(driveM);
    EXPECT_FALSE(SystemCache::findEntryForCookie(clip));
    EXPECT_EQ(proxyCount(elsewhere), 1u);
    EXPECT_EQ(proxyCount(proxiesOnly), 1u);
    EXPECT_TRUE(onDiskStill(L".mov"));
    EXPECT_EQ(os.log().fileSystemCalls(), 0u);
}

TEST_F(SystemCacheUpdates, RemoveMediaLocationOfNoDriveTakesWhatHasOnlyProxies)
{
    const Cookie proxiesOnly = vision(3);
    SystemCache::addFile(clip, info(clip, L".mov"), false);
    SystemCache::addFile(proxiesOnly, info(proxiesOnly, L".proxy.540.mov"), false);
    SystemCache::removeMediaLocation(DriveId());
    EXPECT_TRUE(SystemCache::findEntryForCookie(clip));
    EXPECT_FALSE(SystemCache::findEntryForCookie(proxiesOnly));
}

// --- proxies, links and statuses of one cookie

TEST_F(SystemCacheUpdates, RemoveProxyFileDropsItAndLeavesTheDiskAlone)
{
    SystemCache::addFile(clip, onDisk(clip, L".proxy.540.mov"), false);
    SystemCache::removeProxyFile(clip, info(clip, L".proxy.540.mov"));
    EXPECT_EQ(proxyCount(clip), 0u);
    EXPECT_TRUE(SystemCache::findEntryForCookie(clip));
    EXPECT_TRUE(onDiskStill(L".proxy.540.mov"));
}

TEST_F(SystemCacheUpdates, RemoveProxyFileFindsALinkByItsTarget)
{
    const MediaFileInfo link = linkOnDisk(clip, L".proxy.540.mov", L"/far/p.mov");
    SystemCache::addFile(clip, link, false);
    SystemCache::addFile(clip, onDisk(clip, L".proxy.270.mov"), false);
    SystemCache::removeProxyFile(clip, link);
    std::list<MediaFileInfo> proxies;
    ASSERT_TRUE(SystemCache::getProxyFiles(clip, proxies));
    ASSERT_EQ(proxies.size(), 1u);
    EXPECT_EQ(proxies.front().getProxyHeight(), 270u);
    EXPECT_TRUE(onDiskStill(L".proxy.540.mov"));
}

TEST_F(SystemCacheUpdates, RenameProxyFileReachesTheEntry)
{
    SystemCache::addFile(clip, info(clip, L".proxy.540.mov"), false);
    os.files().addSparseFile(L"/new/place.mov", 77);
    SystemCache::renameProxyFile(clip, osPath(info(clip, L".proxy.540.mov")), L"/new/place.mov");
    std::list<MediaFileInfo> proxies;
    ASSERT_TRUE(SystemCache::getProxyFiles(clip, proxies));
    EXPECT_EQ(proxies.front().size, 77u);
}

TEST_F(SystemCacheUpdates, AnUnknownCookieIsIgnored)
{
    EXPECT_EQ(printedBy([&] {
                  SystemCache::removeProxyFile(clip, info(clip, L".proxy.540.mov"));
                  SystemCache::renameProxyFile(clip, L"/a", L"/b");
                  SystemCache::updateLinks(clip, driveN);
                  SystemCache::realiseLinks(clip);
              }),
              "");
    EXPECT_EQ(SystemCache::updateStatus(clip, eHighRes), eStatusOffline);
    EXPECT_EQ(SystemCache::updateStatus(clip, eProxy), eStatusOffline);
    EXPECT_FALSE(SystemCache::findEntryForCookie(clip));
}

TEST_F(SystemCacheUpdates, UpdateStatusAsksTheEntry)
{
    SystemCache::addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"), false);
    EXPECT_EQ(SystemCache::updateStatus(clip, eHighRes), eStatusOffline);
    EXPECT_EQ(SystemCache::updateStatus(clip, eProxy), eStatusUnknown);
}

TEST_F(SystemCacheUpdates, UpdateLinksMovesTheHighResFile)
{
    SystemCache::addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"), false);
    SystemCache::updateLinks(clip, driveN);
    EXPECT_EQ(SystemCache::find(clip).getDrive(), driveN);
}

TEST_F(SystemCacheUpdates, RenameFileIsNotSupported)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    EXPECT_EQ(printedBy([&] { SystemCache::renameFile(osPath(info(clip, L".mov")), L"/m/Material/b.mov"); }),
              "assertion failed false at ole/fsys/SystemCache line 393\n");
    EXPECT_EQ(SystemCache::find(clip).getPath(), relative(clip, L".mov"));
    EXPECT_TRUE(onDiskStill(L".mov"));
}

TEST_F(SystemCacheUpdates, RealiseLinksWritesTheLinkAndTellsListeners)
{
    SystemCache::addFile(clip, MediaFileInfo(named(clip, L".mov"), L"/far/away.mov", 512), false);
    const CacheListener listener;
    SystemCache::realiseLinks(clip);
    EXPECT_EQ(MaterialLink::resolveLink(named(clip, L".mov")), L"/far/away.mov");
    ASSERT_EQ(listener.heard.size(), 1u);
    EXPECT_EQ(listener.heard[0].type, "SysCacheAdd");
    EXPECT_EQ(listener.heard[0].text, clip.asString(true).str());
    EXPECT_TRUE(listener.heard[0].entry == SystemCache::findEntryForCookie(clip));
}

TEST_F(SystemCacheUpdates, RealiseLinksWithoutAPhysicalNameTellsNobody)
{
    SystemCache::addFile(clip, info(clip, L".proxy.540.mov"), false);
    const CacheListener listener;
    SystemCache::realiseLinks(clip);
    EXPECT_TRUE(listener.heard.empty());
}

TEST_F(SystemCacheUpdates, RealiseLinksNotifiesWithoutTheLock)
{
    SystemCache::addFile(clip, info(clip, L".mov"), false);
    unsigned called = 0;
    const CacheListener listener([&] {
        std::thread([] { (void)SystemCache::fileExists(vision(1)); }).join();
        ++called;
    });
    SystemCache::realiseLinks(clip);
    EXPECT_EQ(called, 1u);
}

// --- listeners

TEST_F(SystemCacheUpdates, AListenerRunsOnTheIssuingThreadUnderTheLockAndMayUseTheCache)
{
    std::thread::id ranOn;
    OtherThread other;
    const CacheListener listener([&] {
        ranOn = std::this_thread::get_id();
        EXPECT_TRUE(SystemCache::fileExists(clip));
        SystemCache::addFile(vision(0x2), info(vision(0x2), L".mov"), false);
        EXPECT_FALSE(other.getsThrough());
    });
    SystemCache::addFile(clip, info(clip, L".mov"), true);
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_TRUE(SystemCache::fileExists(vision(0x2)));
}

TEST_F(SystemCacheUpdates, ARemovalIsAnnouncedUnderTheLock)
{
    SystemCache::addFile(clip, info(clip, L".mov"), false);
    OtherThread other;
    unsigned called = 0;
    const CacheListener listener([&] {
        ++called;
        EXPECT_FALSE(other.getsThrough());
    });
    SystemCache::removeFile(clip, true, eHighRes);
    EXPECT_EQ(called, 1u);
}

TEST_F(SystemCacheUpdates, AListenerThatKeepsTheLockForMoreThanASecondIsToldInTheLog)
{
    double ms = 1000;
    {
        const CacheListener listener([&] { os.clock().advance(ms); });
        SystemCache::addFile(clip, info(clip, L".mov"), true);
        EXPECT_TRUE(captured.logged().empty());
        ms = 1001;
        SystemCache::addFile(clip, info(clip, L".mov"), true);
    }
    const std::string line = "SystemCache: addFile kept others waiting for 1001 ms\n";
    EXPECT_EQ(captured.logged(), std::vector<std::string>{line});
}

TEST_F(SystemCacheUpdates, OfLongHoldsInsideEachOtherTheOutermostIsTold)
{
    SystemCache::addFile(clip, info(clip, L".mov"), false);
    {
        const CacheListener listener([&] {
            SystemCache::addFile(vision(0x2), info(vision(0x2), L".mov"), false);
            SystemCache::enumerate([&](const Cookie&, const FsysDirectoryEntry&) {
                os.clock().advance(2000);
                return false;
            });
        });
        SystemCache::removeFile(clip, true, eHighRes);
    }
    SystemCache::enumerate([&](const Cookie&, const FsysDirectoryEntry&) {
        os.clock().advance(3000);
        return false;
    });
    const std::vector<std::string> lines = {"SystemCache: removeFile kept others waiting for 2000 ms\n",
                                            "SystemCache: enumerate kept others waiting for 3000 ms\n"};
    EXPECT_EQ(captured.logged(), lines);
}

TEST_F(SystemCacheUpdates, AllElseIsSilent)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    SystemCache::addFile(clip, onDisk(clip, L".proxy.540.mov"), false);
    const CacheListener listener;
    printedBy([&] {
        SystemCache::addProxyFile(clip, info(clip, L".proxy.270.mov"));
        SystemCache::renameProxyFile(clip, osPath(info(clip, L".proxy.270.mov")), L"/b");
        SystemCache::removeProxyFile(clip, info(clip, L".proxy.270.mov"));
        SystemCache::updateLinks(clip, driveN);
        SystemCache::updateStatus(clip, eHighRes | eProxy);
        SystemCache::renameFile(L"/a", L"/b");
        SystemCache::removeFile(clip, false, eProxy);
        SystemCache::removeMediaLocation(driveN);
        SystemCache::invalidate();
    });
    EXPECT_TRUE(listener.heard.empty());
}
