#include <algorithm>
#include <cerrno>
#include <numeric>
#include <random>
#include <utility>

#include "fsys/SystemCache.h"
#include "os/testing/ForwardingFileManager.h"
#include "os/testing/ForwardingOS.h"

#include "CacheTest.h"
#include "os/LastError.h"

using namespace cachetest;

namespace {

using Path = LightweightString<wchar_t>;

class SystemCacheScan : public CacheTest
{
protected:
    void addFile(const Path& path, std::size_t size = 100) { os.files().addSparseFile(path, size); }
    void scan() { SystemCache::addDirectory(MaterialFilename(driveM, L"/Material/")); }

    static std::vector<Cookie> indexed()
    {
        std::vector<Cookie> cookies;
        SystemCache::enumerate([&](const Cookie& cookie, const FsysDirectoryEntry&) {
            cookies.push_back(cookie);
            return true;
        });
        return cookies;
    }

    const Cookie clip = vision(0xABC);
    const Path stem = clip.asWString();
    const Path material = L"/m/Material/";
};

Path lowered(const Path& text)
{
    std::wstring result = text.str();
    for (wchar_t& c : result)
        c = c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
    return result;
}

}  // namespace

TEST_F(SystemCacheScan, CompanionsAreNotEligible)
{
    for (const wchar_t* ending : {L".partial", L".lvix", L".laix", L".lvix2", L".laix2", L".vix", L".aix",
                                  L".vix2", L".aix2", L".reapeaks"}) {
        EXPECT_FALSE(SystemCache::isEligible(Path(L"ABC.mov") + ending)) << toUTF8(Path(ending)).c_str();
        EXPECT_FALSE(SystemCache::isEligible(ending)) << toUTF8(Path(ending)).c_str();
        EXPECT_TRUE(SystemCache::isEligible(Path(ending).substr(1))) << toUTF8(Path(ending)).c_str();
        EXPECT_TRUE(SystemCache::isEligible(Path(L"ABC") + ending + L"x")) << toUTF8(Path(ending)).c_str();
    }
}

TEST_F(SystemCacheScan, OtherNamesAreEligible)
{
    for (const wchar_t* name : {L"", L".", L"ABC", L"ABC.mov", L"ABC.MOV.PARTIAL", L"ABC.Vix", L"ABC.vix3",
                                L"ABC.lvix.mov", L"ABC.reapeak"})
        EXPECT_TRUE(SystemCache::isEligible(name)) << toUTF8(Path(name)).c_str();
}

TEST_F(SystemCacheScan, FilesAMediaFileUnderItsCookie)
{
    addFile(material + stem + L".mov", 4096);
    scan();
    const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(clip);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->fileSize(), 4096u);
    EXPECT_EQ(entry->getHighResFile().getMaterialFilename().getDrive(), driveM);
    EXPECT_EQ(entry->getHighResFile().getMaterialFilename().getPath(), L"/Material/" + stem + L".mov");
    EXPECT_EQ(indexed().size(), 1u);
}

TEST_F(SystemCacheScan, TheCaseOfACompanionEndingCountsSoTheNameGoesOnToTheCookie)
{
    addFile(material + stem + L".mov.partial");
    scan();
    EXPECT_TRUE(indexed().empty());
    addFile(material + stem + L".MOV.PARTIAL");
    scan();
    EXPECT_EQ(indexed(), std::vector<Cookie>{clip});
}

TEST_F(SystemCacheScan, TheStemInAnotherCaseIsTheSameCookie)
{
    addFile(material + lowered(stem) + L".mov");
    scan();
    EXPECT_EQ(indexed(), std::vector<Cookie>{clip});
}

TEST_F(SystemCacheScan, ANameWithoutADotIsAllStem)
{
    addFile(material + stem);
    scan();
    EXPECT_EQ(indexed(), std::vector<Cookie>{clip});
}

TEST_F(SystemCacheScan, NamesThatAreNoCookieEmptyFilesAndFoldersAreSkipped)
{
    addFile(material + L" " + stem + L".mov");  // parses, but prints differently
    addFile(material + stem + L" .mov");
    addFile(material + stem.substr(1) + L".mov");
    addFile(material + stem + L"0.mov");
    addFile(material + L"." + stem + L".mov");
    addFile(material + L"readme.txt");
    addFile(material + stem + L".mov", 0);
    os.files().addFolder(material + stem + L".dir");
    scan();
    EXPECT_TRUE(indexed().empty());
}

TEST_F(SystemCacheScan, FilesOfOneCookieLandInOneEntry)
{
    addFile(L"/m/Material/" + stem + L".mov", 1000);
    addFile(L"/m/Material/" + stem + L".proxy.540.mov");
    addFile(L"/m/Sound/" + stem + L".proxy.270.mov");
    addFile(L"/n/Material/" + stem + L".proxy.100.mov");
    SystemCache::addMediaLocation(driveM);
    SystemCache::addMediaLocation(driveN);
    EXPECT_EQ(indexed(), std::vector<Cookie>{clip});
    const Qz::Ptr<FsysDirectoryEntry> entry = SystemCache::findEntryForCookie(clip);
    EXPECT_EQ(entry->fileSize(), 1000u);
    std::vector<unsigned> heights;
    for (const MediaFileInfo& proxy : entry->getProxyFiles())
        heights.push_back(proxy.getProxyHeight());
    EXPECT_EQ(heights, (std::vector<unsigned>{540, 270, 100}));
}

TEST_F(SystemCacheScan, AProxyWithSoundIsFiledUnderTheSoundCookiesToo)
{
    addFile(material + stem + L".A2.proxy.540.mov");
    scan();
    EXPECT_EQ(indexed(), (std::vector<Cookie>{sound(0xABC, 1), sound(0xABC, 2), clip}));
}

TEST_F(SystemCacheScan, ASoundClipsOwnProxyIsFiledOnce)
{
    const Cookie own = sound(0xABC, 1);
    addFile(material + own.asWString() + L".A1.proxy.0.wav");
    scan();
    EXPECT_EQ(indexed(), std::vector<Cookie>{own});
    EXPECT_EQ(SystemCache::findEntryForCookie(own)->getProxyFiles().size(), 1u);
}

TEST_F(SystemCacheScan, ManyFilesInAnyOrderAreAllFiled)
{
    // Names of lower case come after those of upper case, so the cookies do not come in their order.
    std::vector<Cookie> expected;
    for (unsigned i = 0; i < 300; ++i) {
        const Cookie cookies[] = {vision(i * 7 % 300), sound(i * 7 % 300, static_cast<unsigned char>(i % 5))};
        for (const Cookie& cookie : cookies) {
            expected.push_back(cookie);
            addFile(material + (i % 3 == 0 ? lowered(cookie.asWString()) : cookie.asWString()) + L".mov");
        }
    }
    std::sort(expected.begin(), expected.end());
    scan();
    EXPECT_EQ(indexed(), expected);
    scan();
    EXPECT_EQ(indexed(), expected);
}

TEST_F(SystemCacheScan, AddMediaLocationLogsItsTwoFoldersWhateverTheDebugFlag)
{
    SystemCache::addMediaLocation(driveM);
    EXPECT_EQ(captured.loggedBoth(), (std::vector<std::string>{"Added media location : /m/Material/\n",
                                                               "Added media location : /m/Sound/\n"}));
    EXPECT_TRUE(captured.logged().empty());
    EXPECT_EQ(os.log().lines({fake::Op::listDirectory}).size(), 2u);
}

TEST_F(SystemCacheScan, AFolderOfOtherLettersIsLoggedInUtf8)
{
    const DriveId drive = addLocation(L"/m\u00e9dia");
    SystemCache::addMediaLocation(drive);
    ASSERT_FALSE(captured.loggedBoth().empty());
    EXPECT_EQ(captured.loggedBoth()[0], "Added media location : /m\xc3\xa9"
                                        "dia/Material/\n");
}

TEST_F(SystemCacheScan, TheIdOfNoDriveIsIgnored)
{
    SystemCache::addMediaLocation(DriveId());
    EXPECT_TRUE(captured.loggedBoth().empty());
    EXPECT_EQ(os.log().fileSystemCalls(), 0u);
}

TEST_F(SystemCacheScan, AFolderThatCannotBeListedChangesNothing)
{
    SystemCache::addFile(clip, info(clip, L".mov"), false);
    os.files().setListable(L"/m/Material", false);
    scan();
    SystemCache::addDirectory(MaterialFilename(driveM, L"/Missing/"));
    EXPECT_EQ(indexed(), std::vector<Cookie>{clip});
    EXPECT_TRUE(SystemCache::findEntryForCookie(clip)->getProxyFiles().empty());
}

TEST_F(SystemCacheScan, AddsAndNeverRemoves)
{
    addFile(material + stem + L".mov");
    scan();
    os.files().remove(material + stem + L".mov");
    scan();
    EXPECT_EQ(indexed(), std::vector<Cookie>{clip});
}

TEST_F(SystemCacheScan, ASecondScanListsAFileWithoutProxiesOnceAsItsOwnProxy)
{
    addFile(material + stem + L".mov");
    scan();
    EXPECT_TRUE(SystemCache::findEntryForCookie(clip)->getProxyFiles().empty());
    scan();
    scan();
    std::list<MediaFileInfo> proxies;
    EXPECT_TRUE(SystemCache::getProxyFiles(clip, proxies));
    ASSERT_EQ(proxies.size(), 1u);
    EXPECT_EQ(proxies.front().getMaterialFilename().getPath(), L"/Material/" + stem + L".mov");
}

TEST_F(SystemCacheScan, ASecondScanAddsNoProxyTwice)
{
    addFile(material + stem + L".mov");
    addFile(material + stem + L".proxy.540.mov");
    scan();
    scan();
    EXPECT_EQ(SystemCache::findEntryForCookie(clip)->getProxyFiles().size(), 1u);
}

TEST_F(SystemCacheScan, NotifiesNobody)
{
    const CacheListener listener;
    addFile(material + stem + L".mov");
    addFile(material + stem + L".A2.proxy.540.mov");
    scan();
    SystemCache::addMediaLocation(driveM);
    SystemCache::invalidate();
    EXPECT_TRUE(listener.heard.empty());
}

TEST_F(SystemCacheScan, ListsAFolderOnceAndAsksTheDiskForNoFile)
{
    for (unsigned i = 0; i < 10'000; ++i)
        addFile(material + vision(i).asWString() + (i % 10 == 0 ? L".proxy.540.mov" : L".mov"),
                i % 2 == 0 ? 512 : 4096);
    scan();
    EXPECT_EQ(indexed().size(), 10'000u);
    EXPECT_EQ(os.log().count(fake::Op::listDirectory), 1u);
    EXPECT_EQ(os.log().fileSystemCalls(), 1u);
    EXPECT_EQ(SystemCache::findEntryForCookie(vision(2))->getHighResFile().status, eStatusUnknown);
}

TEST_F(SystemCacheScan, ReadsTheDiskWithoutTheLock)
{
    // The listing waits for a query of another thread, which needs the lock.
    class AskingBack : public ForwardingFileManager
    {
    public:
        using ForwardingFileManager::ForwardingFileManager;
        bool listFiles(const Path& pattern, FolderListing& files) override
        {
            std::thread([&] { (void)SystemCache::fileExists(vision(1)); }).join();
            answered = true;
            return ForwardingFileManager::listFiles(pattern, files);
        }
        bool answered = false;
    };
    AskingBack asking(os.files());
    ForwardingOS forwarding(os);
    forwarding.use(asking);
    const ScopedOS installedForwarding(forwarding);
    addFile(material + stem + L".mov");
    scan();
    EXPECT_TRUE(asking.answered);
    EXPECT_EQ(indexed(), std::vector<Cookie>{clip});
}

TEST_F(SystemCacheScan, FilesWhatItListedInOnePieceForQueries)
{
    // The record of a file that may be a proxy asks the platform about its path; a query of another thread
    // waits meanwhile.
    class Asked : public ForwardingFileManager
    {
    public:
        using ForwardingFileManager::ForwardingFileManager;
        bool hasDirectoryPart(const Path& path) const override
        {
            if (!std::exchange(asked, true)) {
                EXPECT_FALSE(other.getsThrough());
            }
            return ForwardingFileManager::hasDirectoryPart(path);
        }
        mutable bool asked = false;
        mutable OtherThread other;
    };
    Asked asked(os.files());
    ForwardingOS forwarding(os);
    forwarding.use(asked);
    const ScopedOS installedForwarding(forwarding);
    addFile(material + stem + L".proxy.mov");
    scan();
    EXPECT_TRUE(asked.asked);
}

TEST_F(SystemCacheScan, FilesOfOneClipKeepTheOrderOfTheListing)
{
    // Upper case is listed first. Filed by cookie, the sound channel's own proxy would come first.
    const Cookie sound = convertCookie(clip, CookieTypeSound, 1);
    LightweightString<wchar_t> lowerCase(L"s");
    lowerCase += sound.asWString().substr(1);
    addFile(material + lowerCase + L".proxy.270.wav");
    addFile(material + stem + L".A1.proxy.540.mov");
    scan();
    std::vector<unsigned> heights;
    for (const MediaFileInfo& proxy : SystemCache::findEntryForCookie(sound)->copyProxyFiles())
        heights.push_back(proxy.getProxyHeight());
    EXPECT_EQ(heights, (std::vector<unsigned>{540, 270}));
}

TEST_F(SystemCacheScan, FindsEveryClipWhateverTheOrderOfTheListing)
{
    class Shuffled : public ForwardingFileManager
    {
    public:
        using ForwardingFileManager::ForwardingFileManager;
        bool listFiles(const Path&, FolderListing& files) override
        {
            std::vector<unsigned> numbers(3000);
            std::iota(numbers.begin(), numbers.end(), 0u);
            std::shuffle(numbers.begin(), numbers.end(), std::mt19937(7));
            for (const unsigned number : numbers)
                files.add(vision(number).asWString() + L".mov", 1000 + number);
            return true;
        }
    };
    Shuffled shuffled(os.files());
    ForwardingOS forwarding(os);
    forwarding.use(shuffled);
    const ScopedOS installedForwarding(forwarding);
    scan();
    EXPECT_EQ(SystemCache::getScanCounts().clips, 3000u);
    for (unsigned number = 0; number < 3000; ++number) {
        ASSERT_EQ(SystemCache::fileSize(vision(number)), 1000 + number);
        ASSERT_EQ(SystemCache::find(vision(number)).getPath(),
                  L"/Material/" + vision(number).asWString() + L".mov");
    }
}

TEST_F(SystemCacheScan, CountsWhatItFound)
{
    addFile(material + L"empty.vix", 0);
    addFile(material + stem + L".mov");
    addFile(material + stem + L".proxy.540.mov");
    addFile(material + stem + L".mov.vix");
    addFile(material + vision(2).asWString() + L".mov", 0);
    addFile(material + L"a.txt");
    addFile(material + L"b.txt");
    scan();
    const ScanCounts counts = SystemCache::getScanCounts();
    EXPECT_EQ(counts.files, 7u);
    EXPECT_EQ(counts.clips, 1u);
    EXPECT_EQ(counts.augmented, 1u);
    EXPECT_EQ(counts.proxies, 1u);
    EXPECT_EQ(counts.skippedEmpty, 2u);
    EXPECT_EQ(counts.skippedIneligible, 1u);
    EXPECT_EQ(counts.skippedNotCookie, 2u);
    scan();
    EXPECT_EQ(SystemCache::getScanCounts().files, 14u);
    EXPECT_EQ(SystemCache::getScanCounts().augmented, 3u);
    SystemCache::invalidate();
    EXPECT_EQ(SystemCache::getScanCounts().files, 0u);
}

// --- start-up

TEST_F(SystemCacheScan, InitialiseScansOnceUnlessForced)
{
    addFile(material + stem + L".mov");
    addFile(L"/n/Sound/" + sound(0xDEF).asWString() + L".wav");
    SystemCache::initialise(true);  // whatever ran before in this process
    EXPECT_EQ(indexed(), (std::vector<Cookie>{clip, sound(0xDEF)}));

    os.files().remove(material + stem + L".mov");
    addFile(material + vision(0xFFF).asWString() + L".mov");
    os.log().clear();
    SystemCache::initialise(false);
    EXPECT_EQ(indexed(), (std::vector<Cookie>{clip, sound(0xDEF)}));
    EXPECT_EQ(os.log().fileSystemCalls(), 0u);

    SystemCache::initialise(true);
    EXPECT_EQ(indexed(), (std::vector<Cookie>{sound(0xDEF), vision(0xFFF)}));
}

TEST_F(SystemCacheScan, InvalidateEmptiesTheIndexAndDoesNotMakeInitialiseScanAgain)
{
    addFile(material + stem + L".mov");
    SystemCache::initialise(true);
    SystemCache::invalidate();
    EXPECT_TRUE(indexed().empty());
    SystemCache::initialise(false);
    EXPECT_TRUE(indexed().empty());
}

TEST_F(SystemCacheScan, TheFourNotificationTypesAreNumberedInTheirOrder)
{
    NotifyMsgTypeDictionary& names = NotifyMsgTypeDictionary::instance();
    EXPECT_EQ(names.nameOf(SystemCache::fileAddedMsgType_), "SysCacheAdd");
    EXPECT_EQ(names.nameOf(SystemCache::fileRemovedMsgType_), "SysCacheDel");
    EXPECT_EQ(names.nameOf(SystemCache::proxyAddedMsgType_), "SysCacheAddProxy");
    EXPECT_EQ(names.nameOf(SystemCache::proxyRemovedMsgType_), "SysCacheDelProxy");
    EXPECT_EQ(SystemCache::fileRemovedMsgType_, SystemCache::fileAddedMsgType_ + 1);
    EXPECT_EQ(SystemCache::proxyAddedMsgType_, SystemCache::fileAddedMsgType_ + 2);
    EXPECT_EQ(SystemCache::proxyRemovedMsgType_, SystemCache::fileAddedMsgType_ + 3);
}

TEST_F(SystemCacheScan, TheInstanceIsDestroyedOnceAndMadeAgainWhenAskedFor)
{
    using Holder = Qz::SingletonHolder<SystemCache>;
    EXPECT_EQ(&SystemCache::instance(), &SystemCache::instance());
    EXPECT_EQ(printedBy([] { Holder::destroy(); }), "");
    EXPECT_EQ(printedBy([] { Holder::destroy(); }),
              "assertion failed !destroyed_ at ole/Qz/QzLokiSingleton line 242\n");
    const CacheListener listener;  // of the new instance
    SystemCache::addFile(clip, info(clip, L".mov"), true);
    EXPECT_EQ(listener.heard.size(), 1u);
}

TEST_F(SystemCacheScan, AFolderThatCannotBeListedIsLoggedAndOneThatIsNotThereIsNot)
{
    os.faults().failNext(fake::Op::listDirectory, errorFromErrno(ETIMEDOUT));
    SystemCache::addMediaLocation(driveM);
    ASSERT_EQ(captured.logged().size(), 1u);
    EXPECT_NE(captured.logged()[0].find("/m/Material/*.* could not be listed: Connection timed out"),
              std::string::npos);
    captured.clear();
    os.files().remove(L"/m/Sound");
    SystemCache::addMediaLocation(driveM);
    EXPECT_TRUE(captured.logged().empty());
}
