#include <thread>

#include "fsys/SystemCache.h"

#include "CacheTest.h"

using namespace cachetest;

namespace {

using Path = LightweightString<wchar_t>;

class SystemCacheQueries : public CacheTest
{
protected:
    // Files a high-res file of each cookie.
    void know(std::initializer_list<Cookie> cookies)
    {
        for (const Cookie& cookie : cookies)
            SystemCache::addFile(cookie, info(cookie, L".mov"), false);
    }
    void knowChannels(CookieType type, unsigned first, unsigned count)
    {
        for (unsigned channel = first; channel < first + count; ++channel)
            know({convertCookie(clip, type, static_cast<unsigned char>(channel))});
    }
    std::vector<Path> filesOfShot() const
    {
        Vector<Path> files;
        SystemCache::getFilesForShot(clip, files);
        return {files.begin(), files.end()};
    }

    const Cookie clip = vision(0x5407);
    const EditChanType audio = EditChanAudio;
};

constexpr const char* typeAssertion =
    "assertion failed c.getType() == CookieTypeVision || c.getType() == CookieTypeSound at "
    "ole/fsys/SystemCache line 242\n";

}  // namespace

// --- one cookie

TEST_F(SystemCacheQueries, AnUnknownCookieHasNothing)
{
    Path file = L"before";
    std::list<MediaFileInfo> proxies(2);
    EXPECT_FALSE(SystemCache::findEntryForCookie(clip));
    EXPECT_FALSE(SystemCache::find(clip).getDrive().valid());
    EXPECT_TRUE(SystemCache::find(clip).getPath().empty());
    EXPECT_FALSE(SystemCache::fileExists(clip));
    EXPECT_FALSE(SystemCache::isLinked(clip));
    EXPECT_EQ(SystemCache::fileSize(clip), 0u);
    EXPECT_FALSE(SystemCache::findFileForCookie(clip, file, DecodeFormat(eHighRes)));
    EXPECT_EQ(file, L"before");
    EXPECT_FALSE(SystemCache::getProxyFiles(clip, proxies));
    EXPECT_EQ(proxies.size(), 2u);
}

TEST_F(SystemCacheQueries, ACookieOfAnotherTypePrintsAnAssertionAndIsLookedUpAllTheSame)
{
    EXPECT_EQ(printedBy([] { EXPECT_FALSE(SystemCache::findEntryForCookie(Cookie())); }), typeAssertion);
    EXPECT_EQ(printedBy([&] { SystemCache::addFile(Cookie(), info(clip, L".mov"), false); }), typeAssertion);
    EXPECT_EQ(printedBy([] { EXPECT_TRUE(SystemCache::findEntryForCookie(Cookie())); }), typeAssertion);
    EXPECT_EQ(printedBy([&] {
                  (void)SystemCache::findEntryForCookie(clip);
                  (void)SystemCache::findEntryForCookie(sound(1));
              }),
              "");
}

TEST_F(SystemCacheQueries, FindPrefersTheHighResFileAndAsksNoDisk)
{
    SystemCache::addFile(clip, info(clip, L".proxy.540.mov"), false);
    SystemCache::addFile(clip, info(clip, L".proxy.270.mov"), false);
    EXPECT_EQ(SystemCache::find(clip).getPath(), relative(clip, L".proxy.540.mov"));
    EXPECT_TRUE(SystemCache::fileExists(clip));
    EXPECT_EQ(SystemCache::fileSize(clip), 0u);

    SystemCache::addFile(clip, info(clip, L".mov", 512), false);
    EXPECT_EQ(SystemCache::find(clip).getPath(), relative(clip, L".mov"));
    EXPECT_EQ(SystemCache::find(clip).getDrive(), driveM);
    EXPECT_EQ(SystemCache::fileSize(clip), 512u);
    EXPECT_TRUE(SystemCache::isLinked(clip));
    EXPECT_EQ(os.log().fileSystemCalls(), 0u);
}

TEST_F(SystemCacheQueries, AHighResFileWithoutADriveOrAPathIsNone)
{
    SystemCache::addFile(clip, MediaFileInfo(MaterialFilename(DriveId(), L"/Material/a.mov"), 1000), false);
    EXPECT_FALSE(SystemCache::fileExists(clip));
    SystemCache::addFile(clip, MediaFileInfo(MaterialFilename(driveM, L""), 1000), false);
    EXPECT_FALSE(SystemCache::fileExists(clip));
    EXPECT_FALSE(SystemCache::find(clip).getDrive().valid());
}

TEST_F(SystemCacheQueries, FindFileForCookieAnswersByTheFormat)
{
    SystemCache::addFile(clip, onDisk(clip, L".mov"), false);
    SystemCache::addFile(clip, onDisk(clip, L".proxy.540.mov"), false);
    Path file;
    EXPECT_TRUE(SystemCache::findFileForCookie(clip, file, DecodeFormat(eHighRes)));
    EXPECT_EQ(file, osPath(info(clip, L".mov")));
    EXPECT_TRUE(SystemCache::findFileForCookie(clip, file, DecodeFormat(eProxy)));
    EXPECT_EQ(file, osPath(info(clip, L".proxy.540.mov")));
}

TEST_F(SystemCacheQueries, AnOfflineClipIsNotFoundAndItsFileNameIsEmpty)
{
    SystemCache::addFile(clip, linkOnDisk(clip, L".mov", L"/gone.mov"), false);
    Path file = L"before";
    EXPECT_FALSE(SystemCache::findFileForCookie(clip, file, DecodeFormat(eHighRes)));
    EXPECT_TRUE(file.empty());
}

TEST_F(SystemCacheQueries, AnEntryWithoutFilesIsFoundWithNothingToOpen)
{
    know({clip});
    SystemCache::findEntryForCookie(clip)->removeFile(info(clip, L".mov"));
    Path file = L"before";
    EXPECT_TRUE(SystemCache::findFileForCookie(clip, file, DecodeFormat(eHighRes)));
    EXPECT_TRUE(file.empty());
}

TEST_F(SystemCacheQueries, GetProxyFilesReplacesWhatWasThere)
{
    std::list<MediaFileInfo> proxies(3);
    know({clip});
    EXPECT_FALSE(SystemCache::getProxyFiles(clip, proxies));
    EXPECT_TRUE(proxies.empty());

    SystemCache::addFile(clip, info(clip, L".proxy.540.mov"), false);
    SystemCache::addFile(clip, info(clip, L".proxy.270.mov"), false);
    proxies.resize(3);
    EXPECT_TRUE(SystemCache::getProxyFiles(clip, proxies));
    ASSERT_EQ(proxies.size(), 2u);
    EXPECT_EQ(proxies.front().getProxyHeight(), 540u);
    EXPECT_EQ(proxies.back().getProxyHeight(), 270u);
}

TEST_F(SystemCacheQueries, AnEntryLivesOnForItsHolders)
{
    know({clip});
    const Qz::Ptr<FsysDirectoryEntry> held = SystemCache::findEntryForCookie(clip);
    SystemCache::invalidate();
    EXPECT_FALSE(SystemCache::findEntryForCookie(clip));
    EXPECT_EQ(held->fileSize(), 10'000'000u);
    EXPECT_EQ(held->refCount(), 1u);
}

// --- shots

TEST_F(SystemCacheQueries, AShotEndsEachKindAtTheFirstGap)
{
    know({vision(0x5407, 0), vision(0x5407, 2), sound(0x5407, 1), sound(0x5407, 3)});
    EXPECT_EQ(filesOfShot(), (std::vector<Path>{osPath(info(vision(0x5407, 0), L".mov")),
                                                osPath(info(sound(0x5407, 1), L".mov"))}));
    EXPECT_EQ(SystemCache::getClipMediaFiles(clip).size(), 2u);
    Vector<MaterialFilename> names;
    SystemCache::getMediaFilesForShot(clip, names);
    EXPECT_EQ(names.size(), 2u);
}

TEST_F(SystemCacheQueries, AShotWithoutItsFirstChannelsIsEmpty)
{
    know({vision(0x5407, 1), sound(0x5407, 0), sound(0x5407, 2)});
    EXPECT_TRUE(filesOfShot().empty());
    EXPECT_TRUE(SystemCache::getClipMediaFiles(clip).empty());
}

TEST_F(SystemCacheQueries, AShotHasAtMost24VisionAnd32SoundChannels)
{
    knowChannels(CookieTypeVision, 0, 30);
    knowChannels(CookieTypeSound, 1, 40);
    const std::vector<Path> files = filesOfShot();
    ASSERT_EQ(files.size(), 24u + 32u);
    EXPECT_EQ(files[23], osPath(info(vision(0x5407, 23), L".mov")));
    EXPECT_EQ(files[24], osPath(info(sound(0x5407, 1), L".mov")));
    EXPECT_EQ(files[55], osPath(info(sound(0x5407, 32), L".mov")));
    EXPECT_EQ(SystemCache::getClipMediaFiles(clip).size(), 56u);
    Vector<MaterialFilename> names;
    SystemCache::getMediaFilesForShot(clip, names);
    EXPECT_EQ(names.size(), 56u);
}

TEST_F(SystemCacheQueries, AnyChannelNamesItsShot)
{
    know({vision(0x5407, 0), sound(0x5407, 1)});
    Vector<Path> files;
    SystemCache::getFilesForShot(sound(0x5407, 9), files);
    EXPECT_EQ(files.size(), 2u);
}

TEST_F(SystemCacheQueries, ShotWalksAppend)
{
    know({clip});
    Vector<Path> files;
    files.add(L"before");
    SystemCache::getFilesForShot(clip, files);
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0], L"before");
    Vector<MaterialFilename> names;
    names.add(MaterialFilename());
    SystemCache::getMediaFilesForShot(clip, names);
    EXPECT_EQ(names.size(), 2u);
}

TEST_F(SystemCacheQueries, AChannelWithProxiesAloneHasAnEmptyFileAndAProxyName)
{
    SystemCache::addFile(clip, info(clip, L".proxy.540.mov"), false);
    EXPECT_EQ(filesOfShot(), std::vector<Path>{Path()});
    Vector<MaterialFilename> names;
    SystemCache::getMediaFilesForShot(clip, names);
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(names[0].getPath(), relative(clip, L".proxy.540.mov"));
}

TEST_F(SystemCacheQueries, AChannelWithoutFilesEndsTheNamesButNotTheEntries)
{
    know({vision(0x5407, 0), vision(0x5407, 1)});
    SystemCache::findEntryForCookie(clip)->removeFile(info(clip, L".mov"));
    EXPECT_EQ(SystemCache::getClipMediaFiles(clip).size(), 2u);
    Vector<MaterialFilename> names;
    SystemCache::getMediaFilesForShot(clip, names);
    EXPECT_EQ(names.size(), 0u);
}

TEST_F(SystemCacheQueries, GetClipMediaFilesGivesTheEntriesInChannelOrder)
{
    know({sound(0x5407, 1), vision(0x5407, 1), vision(0x5407, 0)});
    const std::vector<Qz::Ptr<FsysDirectoryEntry>> entries = SystemCache::getClipMediaFiles(clip);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_TRUE(entries[0] == SystemCache::findEntryForCookie(vision(0x5407, 0)));
    EXPECT_TRUE(entries[1] == SystemCache::findEntryForCookie(vision(0x5407, 1)));
    EXPECT_TRUE(entries[2] == SystemCache::findEntryForCookie(sound(0x5407, 1)));
}

TEST_F(SystemCacheQueries, TheSizeOfAShotComesFromTheDisk)
{
    SystemCache::addFile(vision(0x5407, 0), info(vision(0x5407, 0), L".mov", 1), false);
    os.files().addSparseFile(osPath(info(vision(0x5407, 0), L".mov")), 6'000'000'000);
    know({vision(0x5407, 1)});  // missing on disk
    os.files().addSparseFile(L"/far/a.wav", 7);
    SystemCache::addFile(sound(0x5407, 1), linkOnDisk(sound(0x5407, 1), L".mov", L"/far/a.wav"), false);
    EXPECT_EQ(SystemCache::getShotFileSize(clip), 6'000'000'007u);
}

// --- drives

TEST_F(SystemCacheQueries, TheDriveOfVisionIsThatOfChannel0)
{
    know({sound(0x5407, 1)});
    SystemCache::addFile(clip, MediaFileInfo(MaterialFilename(driveN, relative(clip, L".mov")), 1), false);
    EXPECT_EQ(SystemCache::getDriveForCookie(sound(0x5407, 1), EditChanVision), driveN);
    EXPECT_EQ(SystemCache::getDriveForCookie(clip, EditChanAnyVision), driveN);
    EXPECT_EQ(SystemCache::getDriveForCookie(clip, audio), driveM);
    EXPECT_EQ(SystemCache::getDriveForCookie(clip, static_cast<EditChanType>(5)), DriveId());
    EXPECT_EQ(SystemCache::getDriveForCookie(clip, static_cast<EditChanType>(0)), DriveId());
    EXPECT_EQ(SystemCache::getDriveForCookie(vision(1), EditChanVision), DriveId());
}

TEST_F(SystemCacheQueries, TheDriveOfSoundIsThatOfTheFirstKnownChannel)
{
    EXPECT_EQ(SystemCache::getDriveForCookie(clip, audio), DriveId());
    know({sound(0x5407, 17)});  // beyond the 16 that are looked at by default
    EXPECT_EQ(SystemCache::getDriveForCookie(clip, audio), DriveId());
    know({sound(0x5407, 16)});
    EXPECT_EQ(SystemCache::getDriveForCookie(clip, audio), driveM);
    const Cookie third = sound(0x5407, 3);
    SystemCache::addFile(third, MediaFileInfo(MaterialFilename(driveN, relative(third, L".mov")), 1), false);
    EXPECT_EQ(SystemCache::getDriveForCookie(clip, audio), driveN);
}

// --- walking the index

TEST_F(SystemCacheQueries, EnumerateVisitsInTheOrderOfCookiesUntilToldToStop)
{
    know({vision(2), sound(1, 2), vision(1), sound(1, 1)});
    std::vector<Cookie> visited;
    SystemCache::enumerate([&](const Cookie& cookie, const FsysDirectoryEntry& entry) {
        EXPECT_EQ(entry.fileSize(), 10'000'000u);
        visited.push_back(cookie);
        return true;
    });
    EXPECT_EQ(visited, (std::vector<Cookie>{sound(1, 1), sound(1, 2), vision(1), vision(2)}));

    unsigned visits = 0;
    SystemCache::enumerate([&](const Cookie&, const FsysDirectoryEntry&) { return ++visits == 0; });
    EXPECT_EQ(visits, 1u);
}

TEST_F(SystemCacheQueries, AVisitorMayChangeTheIndex)
{
    know({vision(1), vision(2), vision(3), vision(4)});
    std::vector<Cookie> visited;
    SystemCache::enumerate([&](const Cookie& cookie, const FsysDirectoryEntry&) {
        visited.push_back(cookie);
        SystemCache::removeFile(cookie, false, eHighRes | eProxy);
        if (cookie == vision(1)) {
            SystemCache::removeFile(vision(2), false, eHighRes | eProxy);
            know({vision(9)});
        }
        return true;
    });
    EXPECT_EQ(visited, (std::vector<Cookie>{vision(1), vision(3), vision(4), vision(9)}));
    EXPECT_FALSE(SystemCache::fileExists(vision(9)));
}

TEST_F(SystemCacheQueries, EnumerateHoldsTheLock)
{
    know({clip});
    OtherThread other;
    SystemCache::enumerate([&](const Cookie&, const FsysDirectoryEntry&) {
        EXPECT_FALSE(other.getsThrough());
        return true;
    });
}

TEST_F(SystemCacheQueries, EnumerateWithAnEmptyFunctionThrowsOnTheFirstEntryAndFreesTheLock)
{
    EXPECT_NO_THROW(SystemCache::enumerate({}));
    know({clip});
    EXPECT_THROW(SystemCache::enumerate({}), std::bad_function_call);
    bool known = false;
    std::thread([&] { known = SystemCache::fileExists(clip); }).join();
    EXPECT_TRUE(known);
}
