#include "fsys/FsysDirectoryEntry.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>
#include <utility>

#include "os/testing/ForwardingFileManager.h"
#include "os/testing/ForwardingOS.h"

#include "CacheTest.h"

using namespace cachetest;

namespace {

using Path = LightweightString<wchar_t>;

class FsysDirectoryEntryQueries : public EntryTest
{
};

}  // namespace

// --- which file to open

TEST_F(FsysDirectoryEntryQueries, FindProxyTakesTheFirstThatIsTallEnough)
{
    const MediaFileInfo tall = info(clip, L".proxy.540.mov");
    entry.addFile(clip, tall);
    entry.addFile(clip, info(clip, L".proxy.270.mov"));
    EXPECT_EQ(entry.findProxy(300), osPath(tall));
    EXPECT_EQ(entry.findProxy(540), osPath(tall));
    EXPECT_EQ(entry.findProxy(0), osPath(tall));
    EXPECT_TRUE(entry.findProxy(1080).empty());
}

TEST_F(FsysDirectoryEntryQueries, FindProxyPassesOverProxiesThatAreTooSmall)
{
    entry.addFile(clip, info(clip, L".proxy.270.mov"));
    entry.addFile(clip, info(clip, L".proxy.540.mov"));
    EXPECT_EQ(entry.findProxy(271), osPath(info(clip, L".proxy.540.mov")));
}

TEST_F(FsysDirectoryEntryQueries, FindProxyTestsTheProxiesButReturnsAnOfflineOneToo)
{
    entry.addFile(clip, info(clip, L".proxy.540.mov"));
    EXPECT_FALSE(entry.findProxy(0).empty());
    EXPECT_EQ(entry.getProxyFiles().front().status, eStatusOffline);
}

TEST_F(FsysDirectoryEntryQueries, WithoutProxiesFindProxyAsksNothing)
{
    EXPECT_TRUE(entry.findProxy(0).empty());
    EXPECT_EQ(os.log().fileSystemCalls(), 0u);
}

TEST_F(FsysDirectoryEntryQueries, AutoWithoutAHeightPrefersTheOnlineHighResFile)
{
    entry.addFile(clip, onDisk(clip, L".mov"));
    entry.addFile(clip, onDisk(clip, L".proxy.540.mov"));
    EXPECT_EQ(entry.findFileForCookie(formatOf(eAuto, 0)), osPath(info(clip, L".mov")));
}

TEST_F(FsysDirectoryEntryQueries, AutoWithoutAHeightFallsBackToTheFirstProxy)
{
    const Path first = osPath(info(clip, L".proxy.540.mov"));
    entry.addFile(clip, info(clip, L".proxy.540.mov"));
    entry.addFile(clip, info(clip, L".proxy.270.mov"));
    EXPECT_EQ(entry.findFileForCookie(formatOf(eAuto, 0)), first);  // no high-res file

    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"));  // an offline one
    EXPECT_EQ(entry.findFileForCookie(formatOf(eAuto, 0)), first);
}

TEST_F(FsysDirectoryEntryQueries, AutoWithAHeightTakesAProxyThatIsTallEnoughBeforeTheHighResFile)
{
    entry.addFile(clip, onDisk(clip, L".mov"));
    entry.addFile(clip, onDisk(clip, L".proxy.540.mov"));
    EXPECT_EQ(entry.findFileForCookie(formatOf(eAuto, 540)), osPath(info(clip, L".proxy.540.mov")));
    EXPECT_EQ(entry.findFileForCookie(formatOf(eAuto, 541)), osPath(info(clip, L".mov")));
}

TEST_F(FsysDirectoryEntryQueries, ProxyLevelTakesTheFirstProxyWhateverTheHeight)
{
    entry.addFile(clip, onDisk(clip, L".mov"));
    EXPECT_EQ(entry.findFileForCookie(formatOf(eProxy, 1080)), osPath(info(clip, L".mov")));
    entry.addFile(clip, onDisk(clip, L".proxy.270.mov"));
    EXPECT_EQ(entry.findFileForCookie(formatOf(eProxy, 1080)), osPath(info(clip, L".proxy.270.mov")));
}

TEST_F(FsysDirectoryEntryQueries, HighResLevelFallsBackToTheFirstProxyWhenTheFileIsMissing)
{
    entry.addFile(clip, onDisk(clip, L".proxy.540.mov"));
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"));
    EXPECT_EQ(entry.findFileForCookie(DecodeFormat(eHighRes)), osPath(info(clip, L".proxy.540.mov")));
}

TEST_F(FsysDirectoryEntryQueries, HighResLevelIgnoresProxiesWhenTheFileIsThere)
{
    entry.addFile(clip, onDisk(clip, L".proxy.540.mov"));
    entry.addFile(clip, onDisk(clip, L".mov"));
    EXPECT_EQ(entry.findFileForCookie(formatOf(eHighRes, 100)), osPath(info(clip, L".mov")));
}

TEST_F(FsysDirectoryEntryQueries, NothingToOpenGivesAnEmptyName)
{
    EXPECT_TRUE(entry.findFileForCookie(DecodeFormat(eHighRes)).empty());
    EXPECT_TRUE(entry.findFileForCookie(DecodeFormat(eProxy)).empty());
    EXPECT_TRUE(entry.findFileForCookie(formatOf(eAuto, 0)).empty());
}

TEST_F(FsysDirectoryEntryQueries, AutoByLevelAloneAsksForMoreLinesThanAProxyHas)
{
    entry.addFile(clip, onDisk(clip, L".mov"));
    entry.addFile(clip, onDisk(clip, L".proxy.1080.mov"));
    EXPECT_EQ(entry.findFileForCookie(DecodeFormat(eAuto)), osPath(info(clip, L".mov")));

    const Qz::Ptr<FsysDirectoryEntry> offline(new FsysDirectoryEntry);
    offline->addFile(clip, onDisk(clip, L".proxy.1080.mov"));
    EXPECT_EQ(offline->findFileForCookie(DecodeFormat(eAuto)), osPath(info(clip, L".proxy.1080.mov")));
}

TEST_F(FsysDirectoryEntryQueries, AProxyWithoutAHeightIsTallerThanAnyRequest)
{
    const MediaFileInfo heightless(MaterialFilename(driveM, L"/proxy/proxy-1.mov"), 1000);
    ASSERT_EQ(heightless.getProxyHeight(), 0xFFFFFFFFu);
    entry.addFile(clip, onDisk(clip, L".mov"));
    entry.addFile(clip, heightless);
    EXPECT_EQ(entry.findFileForCookie(DecodeFormat(eAuto)), osPath(heightless));
}

TEST_F(FsysDirectoryEntryQueries, AnOnlineLinkIsAnsweredWithItsTargetAndReadOnce)
{
    os.files().addSparseFile(L"/far/away.mov", 1000);
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/far/away.mov"));
    os.log().clear();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(entry.findFileForCookie(DecodeFormat(eHighRes)), L"/far/away.mov");
    EXPECT_EQ(os.log().count(fake::Op::open), 1u);
    EXPECT_EQ(os.log().count(fake::Op::fileExists), 1u);
}

TEST_F(FsysDirectoryEntryQueries, OnceTestedAFindAsksTheDiskNothing)
{
    entry.addFile(clip, onDisk(clip, L".mov"));
    entry.addFile(clip, onDisk(clip, L".proxy.540.mov"));
    entry.updateStatus(eHighRes | eProxy);
    os.log().clear();
    EXPECT_FALSE(entry.findFileForCookie(DecodeFormat(eHighRes)).empty());
    EXPECT_FALSE(entry.findFileForCookie(DecodeFormat(eProxy)).empty());
    EXPECT_FALSE(entry.findFileForCookie(formatOf(eAuto, 100)).empty());
    EXPECT_EQ(os.log().fileSystemCalls(), 0u);
}

// --- statuses

TEST_F(FsysDirectoryEntryQueries, AnEmptyEntryIsOnlineAsAWholeAndOfflineAtHighRes)
{
    EXPECT_EQ(entry.updateStatus(eHighRes | eProxy), eStatusOnline);
    EXPECT_EQ(entry.updateStatus(eHighRes), eStatusOffline);
    EXPECT_EQ(entry.updateStatus(eProxy), eStatusUnknown);
}

TEST_F(FsysDirectoryEntryQueries, OneOfflineProxyMakesTheWholeOffline)
{
    entry.addFile(clip, onDisk(clip, L".mov"));
    entry.addFile(clip, info(clip, L".proxy.540.mov"));
    EXPECT_EQ(entry.updateStatus(eHighRes | eProxy), eStatusOffline);
    EXPECT_EQ(entry.updateStatus(eHighRes), eStatusOnline);
    EXPECT_EQ(entry.updateStatus(eProxy), eStatusUnknown);
}

TEST_F(FsysDirectoryEntryQueries, OneOnlineProxyOfTwoIsEnough)
{
    entry.addFile(clip, info(clip, L".proxy.540.mov"));
    entry.addFile(clip, onDisk(clip, L".proxy.270.mov"));
    EXPECT_EQ(entry.updateStatus(eProxy), eStatusOnline);
    EXPECT_EQ(entry.updateStatus(eProxy), eStatusOnline);             // from what was tested before
    EXPECT_EQ(entry.updateStatus(eHighRes | eProxy), eStatusOnline);  // there is no high-res file
}

TEST_F(FsysDirectoryEntryQueries, WithAnOnlineProxyTheHighResFileDecidesTheWhole)
{
    entry.addFile(clip, onDisk(clip, L".proxy.540.mov"));
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"));
    EXPECT_EQ(entry.updateStatus(eHighRes | eProxy), eStatusOffline);
}

TEST_F(FsysDirectoryEntryQueries, AnyOtherMaskPrintsAnAssertionAndUsesWhatIsKnown)
{
    constexpr const char* text =
        "assertion failed mediaTypes == ( eHighRes | eProxy ) at ole/fsys/FsysDirectoryEntry line 418\n";
    entry.addFile(clip, onDisk(clip, L".mov"));
    for (const unsigned mask : {0u, 4u, 5u, 7u})
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(entry.updateStatus(mask), eStatusOnline) << mask; }), text)
            << mask;

    entry.addFile(clip, onDisk(clip, L".proxy.540.mov"));
    // No bit asks for the proxies, so none of them counts as online.
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(entry.updateStatus(4), eStatusOffline); }), text);
    EXPECT_EQ(entry.getProxyFiles().front().status, eStatusUnknown);
}

TEST_F(FsysDirectoryEntryQueries, TheRightMasksPrintNothing)
{
    EXPECT_EQ(printedBy([&] {
                  for (const unsigned mask : {1u, 2u, 3u})
                      entry.updateStatus(mask);
              }),
              "");
}

TEST_F(FsysDirectoryEntryQueries, ATestedStatusIsKept)
{
    os.files().addSparseFile(L"/far/away.mov", 1000);
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/far/away.mov"));
    entry.addFile(clip, onDisk(clip, L".proxy.540.mov"));
    entry.addFile(clip, info(clip, L".proxy.270.mov"));
    EXPECT_EQ(entry.updateStatus(eHighRes | eProxy), eStatusOnline);
    os.files().remove(L"/far/away.mov");
    os.files().remove(osPath(info(clip, L".proxy.540.mov")));
    os.files().addSparseFile(osPath(info(clip, L".proxy.270.mov")), 10);
    EXPECT_EQ(entry.updateStatus(eHighRes), eStatusOnline);
    EXPECT_EQ(entry.updateStatus(eProxy), eStatusOnline);
    EXPECT_EQ(entry.getProxyFiles().back().status, eStatusOffline);
}

TEST_F(FsysDirectoryEntryQueries, ALinkWithAMissingTargetIsOffline)
{
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"));
    EXPECT_EQ(entry.updateStatus(eHighRes), eStatusOffline);
}

TEST_F(FsysDirectoryEntryQueries, AHighResFileThatWasNotTestedIsLookedUpByItsOwnPath)
{
    const auto becomeUntested = [&](FsysDirectoryEntry& changed, const wchar_t* target) {
        changed.addFile(clip, info(clip, L".mov", 512));
        changed.setLinkedFilename(target);
        EXPECT_EQ(printedBy([&] { changed.updateFileSize(); }),
                  "assertion failed highResFile_.size > 0 at ole/fsys/FsysDirectoryEntry line 436\n");
        EXPECT_EQ(changed.fileSize(), 0u);
        EXPECT_EQ(changed.getHighResFile().status, eStatusUnknown);
    };
    os.files().addSparseFile(L"/far/away.mov", 1000);
    becomeUntested(entry, L"/far/away.mov");
    EXPECT_EQ(entry.updateStatus(eHighRes), eStatusOffline);

    const Qz::Ptr<FsysDirectoryEntry> found(new FsysDirectoryEntry);
    becomeUntested(*found, L"/gone.mov");
    onDisk(clip, L".mov");
    EXPECT_EQ(found->updateStatus(eHighRes), eStatusOnline);
}

TEST_F(FsysDirectoryEntryQueries, UpdateFileSizeTakesTheSizeFromDiskAndSetsOnline)
{
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"));
    EXPECT_EQ(entry.updateStatus(eHighRes), eStatusOffline);
    os.files().addSparseFile(osPath(info(clip, L".mov")), 4096);
    EXPECT_EQ(printedBy([&] { entry.updateFileSize(); }), "");
    EXPECT_EQ(entry.fileSize(), 4096u);
    EXPECT_EQ(entry.updateStatus(eHighRes), eStatusOnline);
}

TEST_F(FsysDirectoryEntryQueries, UpdateFileSizeMeasuresALinkAndNotItsTarget)
{
    os.files().addSparseFile(L"/far/away.mov", 1000);
    entry.addFile(clip, linkOnDisk(clip, L".mov", L"/far/away.mov"));
    entry.updateFileSize();
    EXPECT_EQ(entry.fileSize(), 512u);
}

TEST_F(FsysDirectoryEntryQueries, UpdateFileSizeOfAMissingFilePrintsAnAssertionAndLeavesTheStatus)
{
    entry.addFile(clip, info(clip, L".mov"));
    EXPECT_EQ(printedBy([&] { entry.updateFileSize(); }),
              "assertion failed highResFile_.size > 0 at ole/fsys/FsysDirectoryEntry line 436\n");
    EXPECT_EQ(entry.fileSize(), 0u);
    EXPECT_EQ(entry.updateStatus(eHighRes), eStatusOnline);
}

TEST_F(FsysDirectoryEntryQueries, WhileAFileIsMeasuredItsRecordStaysAsItIsAndMayBeTested)
{
    class Measuring : public ForwardingFileManager
    {
    public:
        using ForwardingFileManager::ForwardingFileManager;
        std::uint64_t getFileSize(const Path& path) override
        {
            const std::uint64_t size = ForwardingFileManager::getFileSize(path);
            std::exchange(meanwhile, [] {})();
            return size;
        }
        std::function<void()> meanwhile;
    };
    os.files().addSparseFile(L"/far/away.mov", 1000);
    entry.addFile(clip, info(clip, L".mov", 512));
    entry.setLinkedFilename(L"/far/away.mov");
    unsigned called = 0;
    Measuring measuring(os.files());
    measuring.meanwhile = [&] {
        ++called;
        EXPECT_EQ(entry.fileSize(), 512u);
        EXPECT_EQ(entry.updateStatus(eHighRes), eStatusOnline);
    };
    ForwardingOS forwarding(os);
    forwarding.use(measuring);
    const ScopedOS installedForwarding(forwarding);
    printedBy([&] { entry.updateFileSize(); });  // the link itself is missing
    EXPECT_EQ(called, 1u);
    EXPECT_EQ(entry.fileSize(), 0u);
    EXPECT_EQ(entry.getHighResFile().status, eStatusOnline);
}

// --- threads

namespace {

class FsysDirectoryEntryThreads : public CacheTest
{
protected:
    FsysDirectoryEntryThreads() : CacheTest(FakeOS::Mode::realThreads) {}
};

}  // namespace

TEST_F(FsysDirectoryEntryThreads, QueriesRunBesideChangesOfTheSameEntry)
{
    const Cookie clip = vision(0xC11B);
    const MediaFileInfo high = onDisk(clip, L".mov");
    const MediaFileInfo proxy = onDisk(clip, L".A2.proxy.540.mov");
    os.files().addSparseFile(L"/far/p.mov", 1000);
    const MediaFileInfo link = linkOnDisk(clip, L".proxy.270.mov", L"/far/p.mov");
    const std::vector<Path> names = {
        osPath(high), MaterialFilename(driveN, high.getMaterialFilename().getPath()).getOsPath(),
        osPath(proxy), osPath(link), L"/far/p.mov"};
    SystemCache::addFile(clip, high, false);
    std::atomic<bool> stop{false};
    std::atomic<unsigned> found{0};

    const auto query = [&] {
        while (!stop) {
            Path file;
            for (const DecodeFormat& format :
                 {DecodeFormat(eHighRes), DecodeFormat(eProxy), formatOf(eAuto, 300)}) {
                file = {};
                if (SystemCache::findFileForCookie(clip, file, format) && !file.empty()) {
                    ++found;
                    EXPECT_TRUE(std::count(names.begin(), names.end(), file)) << toUTF8(file).c_str();
                }
            }
            SystemCache::updateStatus(clip, eHighRes | eProxy);
            std::list<MediaFileInfo> proxies;
            SystemCache::getProxyFiles(clip, proxies);
            EXPECT_LE(proxies.size(), 4u);
            (void)SystemCache::find(clip);
            (void)SystemCache::fileSize(clip);
        }
    };
    const auto change = [&] {
        for (int i = 0; i < 300; ++i) {
            SystemCache::addFile(clip, high, i % 2 == 0);
            SystemCache::addFile(clip, proxy, i % 2 == 1);
            SystemCache::addFile(clip, link, false);
            if (const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(clip)) {
                entry->setLinkedFilename(osPath(high));
                entry->renameProxyFile(osPath(link), L"/far/p.mov");
                entry->updateFileSize();
                entry->updateLinks(i % 2 == 0 ? driveN : driveM);
                entry->removeProxyFile(osPath(proxy));
                entry->deleteFiles(i % 3 == 0 ? eProxy : eHighRes);
            }
            SystemCache::addProxyFile(clip, link);
            if (i % 5 == 0)
                SystemCache::removeMediaLocation(driveM);
            if (i % 7 == 0)
                SystemCache::removeFile(clip, false, eHighRes | eProxy);
            if (i % 11 == 0)
                SystemCache::invalidate();
            onDisk(clip, L".mov");
            onDisk(clip, L".A2.proxy.540.mov");
            linkOnDisk(clip, L".proxy.270.mov", L"/far/p.mov");
        }
    };
    printedBy([&] {  // the assertion lines of what is done wrong on purpose
        std::thread first(query);
        std::thread second(query);
        change();
        while (found == 0) {
            SystemCache::addFile(clip, high, false);
            std::this_thread::yield();
        }
        stop = true;
        first.join();
        second.join();
    });

    SystemCache::invalidate();
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    Path file;
    EXPECT_TRUE(SystemCache::findFileForCookie(clip, file, DecodeFormat(eHighRes)));
    EXPECT_EQ(file, osPath(high));
}
