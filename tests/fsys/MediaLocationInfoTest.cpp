#include "fsys/MediaLocationInfo.h"

#include <initializer_list>

#include <gtest/gtest.h>

#include "fsys/DecodeFormat.h"
#include "fsys/DiskManager.h"
#include "fsys/MediaStatus.h"
#include "fsys/SystemCache.h"

#include "FileSpy.h"

namespace {

using Path = LightweightString<wchar_t>;

MediaLocationInfo withMedia(std::initializer_list<unsigned> statuses)
{
    MediaLocationInfo info;
    for (const unsigned status : statuses)
        info.mediaStatuses_.add(status);
    return info;
}
MediaLocationInfo withProxies(std::initializer_list<unsigned> statuses)
{
    MediaLocationInfo info;
    for (const unsigned status : statuses)
        info.proxyStatuses_.add(status);
    return info;
}
MediaLocationInfo at(std::initializer_list<MaterialFilename> locations)
{
    MediaLocationInfo info;
    for (const MaterialFilename& location : locations)
        info.primaryLocations_.add(location);
    return info;
}

class MediaLocationInfoOfDrives : public testing::Test
{
protected:
    MediaLocationInfoOfDrives() { DiskManager::reInit(true); }
    ~MediaLocationInfoOfDrives() override
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
    }

    DriveId registered()
    {
        DriveId id;
        EXPECT_TRUE(DiskManager::addMaterialVolume(folder.path(), id, false));
        return id;
    }

    TestFolder folder;
};

}  // namespace

TEST(MediaLocationInfo, IsEmptyAtFirst)
{
    const MediaLocationInfo info;
    EXPECT_TRUE(info.mediaStatuses_.empty());
    EXPECT_TRUE(info.proxyStatuses_.empty());
    EXPECT_TRUE(info.primaryLocations_.empty());
    EXPECT_TRUE(info.linkedLocations_.empty());
}

TEST(MediaLocationInfo, HasItsMembersInAFixedOrder)
{
    const MediaLocationInfo info;
    const auto place = [&](const auto& member) {
        return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&info);
    };
    EXPECT_EQ(place(info.mediaStatuses_), 0);
    EXPECT_LT(place(info.mediaStatuses_), place(info.proxyStatuses_));
    EXPECT_LT(place(info.proxyStatuses_), place(info.primaryLocations_));
    EXPECT_LT(place(info.primaryLocations_), place(info.linkedLocations_));
}

TEST(MediaLocationInfo, IsAllOfflineWhenNothingElseIsKnown)
{
    EXPECT_TRUE(withMedia({1, 1}).allMediaOffline());
    EXPECT_TRUE(withMedia({}).allMediaOffline());
    EXPECT_FALSE(withMedia({1, 2}).allMediaOffline());
    EXPECT_FALSE(withMedia({0}).allMediaOffline());
    EXPECT_TRUE(withProxies({2}).allMediaOffline()) << "proxies do not count";
}

TEST(MediaLocationInfo, IsPartlyOfflineWhenAnyFileIs)
{
    EXPECT_TRUE(withMedia({1, 1}).someMediaOffline());
    EXPECT_TRUE(withMedia({2, 1}).someMediaOffline());
    EXPECT_FALSE(withMedia({}).someMediaOffline());
    EXPECT_FALSE(withMedia({0, 2}).someMediaOffline());
    EXPECT_FALSE(withProxies({1}).someMediaOffline()) << "proxies do not count";
}

TEST(MediaLocationInfo, HasAProxyOnlineWhenAnyIs)
{
    EXPECT_TRUE(withProxies({0, 1, 2}).someProxyOnline());
    EXPECT_FALSE(withProxies({0, 1}).someProxyOnline());
    EXPECT_FALSE(withProxies({}).someProxyOnline());
    EXPECT_FALSE(withMedia({2}).someProxyOnline()) << "other files do not count";
}

TEST(MediaLocationInfo, ReportsACookieWithoutMediaAndCountsItAsOffline)
{
    testing::internal::CaptureStdout();
    EXPECT_TRUE(MediaLocationInfo::isClipOffline(Cookie(), eHighRes));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "assertion failed false at ole/fsys/MediaLocationInfo line 104\n");
}

TEST(MediaLocationInfo, CountsAnUnknownClipAsOffline)
{
    testing::internal::CaptureStdout();
    EXPECT_TRUE(MediaLocationInfo::isClipOffline(Cookie(CookieTypeVision, 4711, 0), eHighRes));
    EXPECT_TRUE(MediaLocationInfo::isClipOffline(Cookie(CookieTypeSound, 4711, 1), eHighRes | eProxy));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(MediaLocationInfoOfDrives, AsksTheCacheForAClip)
{
    for (const CookieType type : {CookieTypeVision, CookieTypeSound}) {
        const Cookie there = Cookie::makeNew(type);
        const Cookie gone = Cookie::makeNew(type);
        SystemCache::addFile(there, MediaFileInfo({DriveId('0'), folder.write("a.mov", "media")}, 5), false);
        SystemCache::addFile(gone, MediaFileInfo({DriveId('1'), folder.path("gone.mov")}, L"/none", 512),
                             false);
        EXPECT_FALSE(MediaLocationInfo::isClipOffline(there, eHighRes));
        EXPECT_TRUE(MediaLocationInfo::isClipOffline(gone, eHighRes));
    }
}

TEST_F(MediaLocationInfoOfDrives, DoesNotCountAClipAsOfflineForItsProxiesAlone)
{
    // The status of proxies alone is online or unknown, never offline.
    const Cookie clip = Cookie::makeNew();
    SystemCache::addFile(clip, MediaFileInfo({DriveId('1'), L"/none.A0.proxy.270.mov"}, L"/none", 512),
                         false);
    EXPECT_FALSE(MediaLocationInfo::isClipOffline(clip, eProxy));
    EXPECT_TRUE(MediaLocationInfo::isClipOffline(clip, eHighRes | eProxy));
}

TEST_F(MediaLocationInfoOfDrives, ReportsAMaskOfNoKnownKinds)
{
    const Cookie clip = Cookie::makeNew();
    SystemCache::addFile(clip, MediaFileInfo({DriveId('0'), folder.write("a.mov", "media")}, 5), false);
    for (const unsigned mask : {0u, 4u, 7u}) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(MediaLocationInfo::isClipOffline(clip, mask), SystemCache::updateStatus(clip, 3) == 1);
        EXPECT_NE(testing::internal::GetCapturedStdout().find("mediaTypes == ( eHighRes | eProxy )"),
                  std::string::npos);
    }
}

TEST_F(MediaLocationInfoOfDrives, ShowsTheNameOfThePrimaryDrive)
{
    const DriveId id = registered();
    EXPECT_EQ(at({{id, L"/Material/a.mov"}}).getPrimaryLocationDisplayString(),
              DiskManager::getMaterialVolumeName(id, false))
        << "the place of a drive that has no name";
    DiskManager::setMediaLocationUserName(id, L"Rushes");
    EXPECT_EQ(at({{id, L"/Material/a.mov"}}).getPrimaryLocationDisplayString(), L"Rushes");
    EXPECT_EQ(at({{id, L"/x"}, {DriveId('0'), L"/y"}}).getPrimaryLocationDisplayString(), L"Rushes");
}

TEST_F(MediaLocationInfoOfDrives, ShowsNothingWithoutAPrimaryLocation)
{
    const DriveId id = registered();
    DiskManager::setMediaLocationUserName(id, L"Rushes");
    EXPECT_TRUE(at({}).getPrimaryLocationDisplayString().empty());
    EXPECT_TRUE(at({{id, L""}}).getPrimaryLocationDisplayString().empty());
    EXPECT_TRUE(at({{DriveId('Z'), L"/x"}}).getPrimaryLocationDisplayString().empty());
}

TEST_F(MediaLocationInfoOfDrives, ShowsNothingWhenTheFirstPrimaryLocationHasNoDriveWhateverFollows)
{
    const DriveId id = registered();
    DiskManager::setMediaLocationUserName(id, L"Rushes");
    EXPECT_TRUE(at({{DriveId('0'), L"/x"}, {id, L"/y"}}).getPrimaryLocationDisplayString().empty());
}

TEST_F(MediaLocationInfoOfDrives, ShowsTheFirstLinkedLocationResolved)
{
    const Path media = folder.write("store/clip.mov", "media");
    std::filesystem::create_symlink(media.str(), folder.path("symlink.mov").str());
    MediaLocationInfo info;
    info.linkedLocations_.add(folder.path("symlink.mov"));
    info.linkedLocations_.add(L"/other");
    EXPECT_EQ(info.getLinkedLocationDisplayString(),
              std::filesystem::canonical(media.str()).wstring().c_str());
}

TEST_F(MediaLocationInfoOfDrives, ShowsALinkedLocationThatIsGoneAsItStands)
{
    MediaLocationInfo info;
    info.linkedLocations_.add(L"/no/such/place.mov");
    EXPECT_EQ(info.getLinkedLocationDisplayString(), L"/no/such/place.mov");
}

TEST(MediaLocationInfo, ReportsTheQuestionForLinkedLocationsWhereThereAreNone)
{
    testing::internal::CaptureStdout();
    const Path shown = MediaLocationInfo().getLinkedLocationDisplayString();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "assertion failed i < size_ at ole/Qz/Vector line 62\n");
    EXPECT_TRUE(shown.empty());
}
