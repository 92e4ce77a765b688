#include "fsys/DiskManager.h"

#include "RegistryFixture.h"

#include <limits>

namespace {

class DiskManagerTest : public RegistryFixture
{
protected:
    static DriveId unknown() { return DriveId('x'); }
};

// --- look-ups

TEST_F(DiskManagerTest, AfterInitWithoutDiscoveryAndListTheRegistryIsEmpty)
{
    DriveId id('k');
    EXPECT_FALSE(DiskManager::getFirstMaterialVolume(id));
    EXPECT_EQ(id, DriveId('k'));
    EXPECT_EQ(DiskManager::find_best_disk(), DriveId('0'));
    EXPECT_EQ(DiskManager::get_drive(0), DriveId('0'));
    EXPECT_EQ(DiskManager::getMediaDrive(0).getId(), DriveId('0'));
    EXPECT_EQ(&DiskManager::getMediaDrive(0), &DiskManager::getDriveWithUniqueId(DriveId('0')));
}

TEST_F(DiskManagerTest, IdsCountUpFromOneInTheOrderOfRegistration)
{
    EXPECT_EQ(addPlace(L"/a/"), DriveId('1'));
    EXPECT_EQ(addPlace(L"/b/"), DriveId('2'));
    EXPECT_EQ(addPlace(L"/c/"), DriveId('3'));
    EXPECT_EQ(DiskManager::get_drive(0), DriveId('1'));
    EXPECT_EQ(DiskManager::get_drive(2), DriveId('3'));
}

TEST_F(DiskManagerTest, DeletingADriveClosesTheGapAndItsIdIsNotUsedAgain)
{
    addPlace(L"/a/");
    addPlace(L"/b/");
    addPlace(L"/c/");
    EXPECT_EQ(DiskManager::deleteMaterialVolume(DriveId('2')), 1);
    EXPECT_EQ(DiskManager::get_drive(1), DriveId('3'));
    EXPECT_EQ(DiskManager::find_index_for_drive(DriveId('3')), 1u);
    EXPECT_EQ(addPlace(L"/d/"), DriveId('4'));
    EXPECT_EQ(DiskManager::get_drive(2), DriveId('4'));
}

TEST_F(DiskManagerTest, DeletingAnUnknownDriveAnswersFive)
{
    addPlace(L"/a/");
    EXPECT_EQ(DiskManager::deleteMaterialVolume(unknown()), 5);
    EXPECT_TRUE(DiskManager::isVolumePresent(DriveId('1')));
}

TEST_F(DiskManagerTest, DeletingADriveTellsNobody)
{
    const Cookie cookie(CookieTypeVision, 0x100, 0);
    os.files().addFile(LightweightString<wchar_t>(L"/a/Material/") + cookie.asWString() + L".mov", "media");
    addPlace(L"/a/");
    SystemCache::addMediaLocation(DriveId('1'));
    ASSERT_TRUE(SystemCache::fileExists(cookie));
    const RegistryListener listener;
    EXPECT_EQ(DiskManager::deleteMaterialVolume(DriveId('1')), 1);
    EXPECT_TRUE(listener.texts.empty());
    EXPECT_TRUE(SystemCache::fileExists(cookie));
}

TEST_F(DiskManagerTest, LookUpsFindARegisteredDrive)
{
    addPlace(L"/a/");
    const DriveId id = addPlace(L"/b/", 5 * MB);
    ASSERT_FALSE(DiskManager::find(id).isEnd());
    EXPECT_EQ(DiskManager::find(id).index(), 1u);
    EXPECT_EQ(DiskManager::find(id).drive()->getId(), id);
    EXPECT_EQ(DiskManager::find_index_for_drive(id), 1u);
    EXPECT_TRUE(DiskManager::isVolumePresent(id));
    EXPECT_TRUE(DiskManager::isMaterialVolume(id));
    EXPECT_EQ(DiskManager::getVolume(id)->getPath(), L"/b");
    EXPECT_EQ(&DiskManager::getDriveWithUniqueId(id), DiskManager::getVolume(id).get());
    EXPECT_EQ(&DiskManager::getMediaDrive(1), DiskManager::getVolume(id).get());
    EXPECT_EQ(DiskManager::getMaterialVolumeName(id, false), L"/b");
    EXPECT_EQ(DiskManager::getMaterialVolumeName(id, true), L"/b");
    VolumeInfo info;
    EXPECT_EQ(DiskManager::getVolInfo(id, &info), 1);
    EXPECT_EQ(info.freeBytes, 5 * MB);
    EXPECT_FALSE(DiskManager::isVolumeAutoDiscovered(id));
}

TEST_F(DiskManagerTest, LookUpsOfAnUnknownIdGiveTheirDefaults)
{
    addPlace(L"/a/");
    DriveId id = unknown();
    EXPECT_TRUE(DiskManager::find(id).isEnd());
    EXPECT_EQ(DiskManager::find(id).index(), 1u);
    EXPECT_EQ(DiskManager::find_index_for_drive(id), 4294967295u);
    EXPECT_FALSE(DiskManager::isVolumePresent(id));
    EXPECT_FALSE(DiskManager::isMaterialVolume(id));
    EXPECT_FALSE(DiskManager::getVolume(id));
    EXPECT_EQ(DiskManager::getDriveWithUniqueId(id).getId(), DriveId('0'));
    EXPECT_EQ(DiskManager::get_drive(1), DriveId('0'));
    EXPECT_EQ(DiskManager::get_drive(65535), DriveId('0'));
    EXPECT_EQ(DiskManager::getMediaDrive(1).getId(), DriveId('0'));
    EXPECT_FALSE(DiskManager::getNextMaterialVolume(id));
    EXPECT_EQ(id, unknown());
    EXPECT_EQ(DiskManager::getMaterialVolumeName(id, true), L"");
    EXPECT_FALSE(DiskManager::isVolumeAutoDiscovered(id));
    EXPECT_EQ(log.logged + log.both, "");
}

TEST_F(DiskManagerTest, InfoOfAnUnknownOrUnreachableDriveIsZero)
{
    VolumeInfo info{.freeBytes = 3, .totalBytes = 4, .isLocal = true, .slow = true};
    EXPECT_EQ(DiskManager::getVolInfo(unknown(), &info), 0);
    EXPECT_EQ(info.freeBytes, 3u);
    EXPECT_EQ(info.totalBytes, 4u);
    EXPECT_TRUE(info.isLocal);
    EXPECT_TRUE(info.slow);
    const DriveId id = addPlace(L"/a/");
    os.files().clearDrives();
    EXPECT_EQ(DiskManager::getVolInfo(id, &info), 0);
    EXPECT_EQ(info.freeBytes, 3u);
    EXPECT_EQ(info.totalBytes, 4u);
    EXPECT_FALSE(info.slow);
}

TEST_F(DiskManagerTest, TheWalkFollowsTheOrderOfRegistrationAndEndsAtTheLast)
{
    addPlace(L"/c/");
    addPlace(L"/a/");
    DriveId id;
    EXPECT_TRUE(DiskManager::getFirstMaterialVolume(id));
    EXPECT_EQ(id, DriveId('1'));
    EXPECT_TRUE(DiskManager::getNextMaterialVolume(id));
    EXPECT_EQ(id, DriveId('2'));
    EXPECT_FALSE(DiskManager::getNextMaterialVolume(id));
    EXPECT_EQ(id, DriveId('2'));
}

TEST_F(DiskManagerTest, ADriveIsFoundByPathInOtherCaseAndByNameToTheLetterOnly)
{
    const DriveId id = addPlace(L"/Media/Disk1/");
    DiskManager::setMediaLocationUserName(id, L"Archive");
    EXPECT_EQ(DiskManager::getDriveWithPath(L"/media/DISK1"), id);
    EXPECT_EQ(DiskManager::getDriveWithPath(L"/media/disk1/"), DriveId('0'));
    EXPECT_EQ(DiskManager::getDriveWithName(L"Archive"), id);
    EXPECT_EQ(DiskManager::getDriveWithName(L"archive"), DriveId('0'));
}

TEST_F(DiskManagerTest, AnUnnamedDriveIsFoundByItsLocalNameAsName)
{
    const DriveId id = addPlace(L"/a/");
    EXPECT_EQ(DiskManager::getDriveWithName(L"/a"), id);
}

TEST_F(DiskManagerTest, TheFirstOfSeveralDrivesOfANameIsFound)
{
    const DriveId first = addPlace(L"/a/");
    const DriveId second = addPlace(L"/b/");
    DiskManager::setMediaLocationUserName(second, L"Archive");
    EXPECT_EQ(DiskManager::getDriveWithName(L"Archive"), second);
    DiskManager::setMediaLocationUserName(first, L"Archive");
    EXPECT_EQ(DiskManager::getDriveWithName(L"Archive"), first);
}

TEST_F(DiskManagerTest, TheEmptyPathIsNoDriveEvenWhereOneHasAnEmptyRoot)
{
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/", id, false));
    EXPECT_EQ(DiskManager::getDriveWithPath(L""), DriveId('0'));
}

TEST_F(DiskManagerTest, TheEmptyPathFindsOnlyADriveWithAnEmptyRoot)
{
    addPlace(L"/a/");
    EXPECT_FALSE(DiskManager::getVolume(L""));
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/", id, false));
    ASSERT_TRUE(DiskManager::getVolume(L""));
    EXPECT_EQ(DiskManager::getVolume(L"")->getId(), id);
}

TEST_F(DiskManagerTest, AVolumeIsFoundByItsRootWithTheSeparatorToTheLetter)
{
    const DriveId id = addPlace(L"/Media/");
    ASSERT_TRUE(DiskManager::getVolume(L"/Media/"));
    EXPECT_EQ(DiskManager::getVolume(L"/Media/")->getId(), id);
    EXPECT_FALSE(DiskManager::getVolume(L"/Media"));
    EXPECT_FALSE(DiskManager::getVolume(L"/media/"));
    EXPECT_FALSE(DiskManager::getVolume(L"/Media/Material/a.mov"));
}

TEST_F(DiskManagerTest, FindingAVolumeByPathOrIdAsksNothingOfThePlatform)
{
    const DriveId id = addPlace(L"/a/");
    os.log().clear();
    EXPECT_TRUE(DiskManager::getVolume(L"/a/"));
    EXPECT_FALSE(DiskManager::getVolume(L"/a/Material/x.mov"));
    EXPECT_TRUE(DiskManager::getVolume(id));
    EXPECT_EQ(DiskManager::getMaterialVolumeName(id, true), L"/a");
    EXPECT_TRUE(os.log().calls().empty());
}

TEST_F(DiskManagerTest, AVolumeThatWasTakenOutlivesItsRegistration)
{
    const DriveId id = addPlace(L"/a/");
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(id);
    DiskManager::deleteMaterialVolume(id);
    EXPECT_FALSE(DiskManager::getVolume(id));
    EXPECT_EQ(drive->getPath(), L"/a");
    EXPECT_EQ(drive->refCount(), 1u);
}

TEST_F(DiskManagerTest, WritableIsWhatThePlatformSays)
{
    os.files().addFolder(L"/a");
    EXPECT_TRUE(DiskManager::writableVolume(L"/a"));
    os.files().setWritable(L"/a", false);
    EXPECT_FALSE(DiskManager::writableVolume(L"/a"));
}

TEST_F(DiskManagerTest, WhetherAnIdIsWritableIsAskedOfItsDriveLetter)
{
    EXPECT_FALSE(DiskManager::isVolumeWritable(DriveId('D')));
    EXPECT_EQ(os.log().count(fake::Op::isWritable, L"D:\\"), 1u);
    os.files().setWritable(L"D:\\", true);
    EXPECT_TRUE(DiskManager::isVolumeWritable(DriveId('D')));
    addPlace(L"/a/");
    EXPECT_FALSE(DiskManager::isVolumeWritable(DriveId('1')));
}

TEST(DiskManagerPaths, TheDriveLetterIsTheFirstTwoCharacters)
{
    EXPECT_EQ(getDrive(L"X:/a"), L"X:");
    EXPECT_EQ(getDrive(L"X:"), L"X:");
    EXPECT_EQ(getDrive(L"X:/a:b"), L"X:");
    EXPECT_EQ(getDrive(L"a/b:c"), L"");
    EXPECT_EQ(getDrive(L":x"), L"");
    EXPECT_EQ(getDrive(L"::x"), L"");
    EXPECT_EQ(getDrive(L"/media"), L"");
    EXPECT_EQ(getDrive(L""), L"");
}

// --- lifecycle

TEST_F(DiskManagerTest, IdsStartAgainAtEachInit)
{
    addPlace(L"/a/");
    addPlace(L"/b/");
    DiskManager::init(L"/project", true);
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('1')));
    EXPECT_EQ(addPlace(L"/c/"), DriveId('1'));
}

TEST_F(DiskManagerTest, DeInitKeepsTheCountOfIds)
{
    addPlace(L"/a/");
    DiskManager::deInit();
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('1')));
    EXPECT_EQ(addPlace(L"/b/"), DriveId('2'));
}

TEST_F(DiskManagerTest, ReInitDiscoversUnlessToldNotTo)
{
    addDisk(L"/a/");
    os.files().addFolder(L"/a/Material");
    DiskManager::reInit(true);
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('1')));
    EXPECT_EQ(os.log().count(fake::Op::listDisks), 0u);
    DiskManager::reInit(false);
    EXPECT_TRUE(DiskManager::isVolumePresent(DriveId('1')));
}

TEST_F(DiskManagerTest, ShutdownEmptiesTheRegistryAtNormalExitOnly)
{
    const DriveId id = addPlace(L"/a/");
    DiskManagerShutdown(Shutdown::eAbnormalExit);
    EXPECT_TRUE(DiskManager::isVolumePresent(id));
    DiskManagerShutdown(Shutdown::eNormalExit);
    EXPECT_FALSE(DiskManager::isVolumePresent(id));
}

std::vector<int>* shutdownPriorities = nullptr;

void noteShutdown(Shutdown::Callback callback, int priority)
{
    if (callback == DiskManagerShutdown)
        shutdownPriorities->push_back(priority);
}

TEST(DiskManagerShutdownCallback, IsRegisteredByTheFirstInitAlone)
{
    inFreshProcess([] {
        FakeOS os;
        const ScopedOS installed(os);
        std::vector<int> priorities;
        shutdownPriorities = &priorities;
        Shutdown::setObserver(noteShutdown);
        DiskManager::init(L"/project", true);
        EXPECT_EQ(priorities, std::vector<int>({201}));
        DiskManager::init(L"/project", true);
        EXPECT_EQ(priorities, std::vector<int>({201}));
        Shutdown::setObserver(nullptr);
    });
}

TEST_F(DiskManagerTest, InitDiscoversLoadsTheListAndRefreshesSpaceInThisOrder)
{
    addDisk(L"/found/");
    os.files().addFolder(L"/found/Material");
    addDisk(L"/listed/", 6 * MB);
    os.files().addFile(L"/project/DefNetDrive.txt", "/listed/\n");
    const RegistryListener listener;
    DiskManager::init(L"/project", false);
    EXPECT_EQ(DiskManager::getMaterialVolumeName(DriveId('1'), false), L"/found");
    EXPECT_TRUE(DiskManager::isVolumeAutoDiscovered(DriveId('1')));
    EXPECT_EQ(DiskManager::getMaterialVolumeName(DriveId('2'), false), L"/listed");
    EXPECT_FALSE(DiskManager::isVolumeAutoDiscovered(DriveId('2')));
    EXPECT_EQ(DiskManager::getVolume(DriveId('2'))->getSpaceMB(), 6.0);
    EXPECT_EQ(listener.texts, std::vector<std::string>({"MediaLocationsChangeMsg", "disk manager update"}));
}

TEST_F(DiskManagerTest, AnUnmountedDriveThatTheUserHasListedIsBackAsALocationOfTheUser)
{
    addDisk(L"/a/");
    os.files().addFolder(L"/a/Material");
    os.files().addFile(L"/project/UnmountedDrives.txt", "/a/\n");
    os.files().addFile(L"/project/DefNetDrive.txt", "/a/\n");
    DiskManager::init(L"/project", false);
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('1')));  // what discovery found went first
    const auto drive = DiskManager::getVolume(L"/a/");
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->getId(), DriveId('2'));
    EXPECT_FALSE(drive->isAutoDiscovered());
}

// --- ids run out

TEST_F(DiskManagerTest, WhenAllIdsAreUsedRegistrationIsRefusedForGood)
{
    addFolders(255);
    EXPECT_EQ(DiskManager::get_drive(79), DriveId(static_cast<char>(0x80)));
    EXPECT_EQ(DiskManager::get_drive(207), DriveId('\0'));
    EXPECT_EQ(DiskManager::get_drive(254), DriveId('/'));
    os.files().addFolder(L"/more");
    DriveId id('k');
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_FALSE(DiskManager::addMaterialVolume(L"/more", id, false));
        EXPECT_EQ(id, DriveId('k'));
    }
    addDisk(L"/disk/");
    os.files().addFolder(L"/disk/Material");
    EXPECT_TRUE(DiskManager::discoverVolumes());
    EXPECT_FALSE(DiskManager::getVolume(L"/disk/"));
    EXPECT_EQ(DiskManager::get_drive(255), DriveId('0'));
    DiskManager::reInit(true);
    EXPECT_TRUE(DiskManager::addMaterialVolume(L"/more", id, false));
    EXPECT_EQ(id, DriveId('1'));
}

// --- space and messages

TEST_F(DiskManagerTest, UpdateDrivesRefreshesEveryDrive)
{
    const auto first = addDisk(L"/a/", 5 * MB);
    const auto second = addDisk(L"/b/", 6 * MB);
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/a/", id, false));
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/b/", id, false));
    first->set({.freeBytes = 50 * MB, .root = L"/a/"});
    second->set({.freeBytes = 60 * MB, .root = L"/b/"});
    EXPECT_EQ(DiskManager::getMediaDrive(0).getSpaceMB(), 5.0);
    DiskManager::updateDrives();
    EXPECT_EQ(DiskManager::getMediaDrive(0).getSpaceMB(), 50.0);
    EXPECT_EQ(DiskManager::getMediaDrive(1).getSpaceMB(), 60.0);
}

TEST_F(DiskManagerTest, SpaceIsRefreshedAtEveryCallButToldAtMostOnceInTwoSeconds)
{
    const auto disk = addDisk(L"/a/");
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/a/", id, false));
    const RegistryListener listener;
    const unsigned before = disk->queries().freeBytes;
    DiskManager::update_drives_and_groups();
    os.clock().advance(1999);
    DiskManager::update_drives_and_groups();
    EXPECT_EQ(disk->queries().freeBytes, before + 2);
    EXPECT_EQ(listener.texts, std::vector<std::string>({"disk manager update"}));
}

TEST_F(DiskManagerTest, AnEmptyRegistryIsNotUpdated)
{
    const RegistryListener listener;
    DiskManager::update_drives_and_groups();
    EXPECT_TRUE(listener.texts.empty());
}

TEST_F(DiskManagerTest, AnUpdateIsToldWhenMoreThanTwoSecondsHavePassed)
{
    addPlace(L"/a/");
    const RegistryListener listener;
    os.clock().setNow(5000);
    DiskManager::update_drives_and_groups();
    EXPECT_EQ(listener.count("disk manager update"), 1u);
    os.clock().setNow(7000);
    DiskManager::update_drives_and_groups();
    EXPECT_EQ(listener.count("disk manager update"), 1u);
    os.clock().setNow(7001);
    DiskManager::update_drives_and_groups();
    EXPECT_EQ(listener.count("disk manager update"), 2u);
}

TEST_F(DiskManagerTest, TheTwoSecondsAreCountedFromZeroAfterInit)
{
    addPlace(L"/a/");
    const RegistryListener listener;
    os.clock().setNow(2000);
    DiskManager::update_drives_and_groups();
    EXPECT_EQ(listener.count("disk manager update"), 0u);
    os.clock().setNow(2001);
    DiskManager::update_drives_and_groups();
    EXPECT_EQ(listener.count("disk manager update"), 1u);
}

TEST_F(DiskManagerTest, InitTellsAnUpdateHoweverRecentTheLastOneIs)
{
    addPlace(L"/a/");
    os.files().addFile(L"/project/DefNetDrive.txt", "/a/\n");
    const RegistryListener listener;
    os.clock().setNow(5000);
    DiskManager::update_drives_and_groups();
    ASSERT_EQ(listener.count("disk manager update"), 1u);
    os.clock().setNow(5500);
    DiskManager::init(L"/project", true);
    EXPECT_EQ(listener.count("disk manager update"), 2u);
}

TEST_F(DiskManagerTest, TheTwoSecondsAreCountedRightAcrossTheWrapOfTheClock)
{
    constexpr double wrap = 4294967296.0;
    addPlace(L"/a/");
    const RegistryListener listener;
    os.clock().setNow(wrap - 1000);
    DiskManager::update_drives_and_groups();
    os.clock().setNow(wrap + 1000);
    DiskManager::update_drives_and_groups();
    EXPECT_EQ(listener.count("disk manager update"), 1u);
    os.clock().setNow(wrap + 1001);
    DiskManager::update_drives_and_groups();
    EXPECT_EQ(listener.count("disk manager update"), 2u);
}

TEST_F(DiskManagerTest, AListenerMayRefreshSpaceAgain)
{
    addPlace(L"/a/");
    const RegistryListener listener([](const NotifyMsg&) { DiskManager::update_drives_and_groups(); });
    DiskManager::update_drives_and_groups();
    EXPECT_EQ(listener.texts.size(), 1u);
}

TEST_F(DiskManagerTest, TheThreeMessagesReachOneListenerOnTheThreadThatCausesThem)
{
    addPlace(L"/a/");
    const RegistryListener listener;
    DiskManager::update_drives_and_groups();
    DiskManager::issueMediaOnlineChangeNotification();
    DiskManager::informInterestedParties();
    EXPECT_EQ(listener.texts, std::vector<std::string>({"disk manager update", "MediaOnlineChangeMsg",
                                                        "MediaLocationsChangeMsg"}));
    EXPECT_EQ(listener.payloads, std::vector<bool>({false, false, false}));
    EXPECT_EQ(listener.threads, std::vector<std::thread::id>(3, std::this_thread::get_id()));
}

TEST_F(DiskManagerTest, AListenerHearsNothingAfterItsHandleIsGone)
{
    unsigned heard = 0;
    {
        const RegistryListener listener([&](const NotifyMsg&) { ++heard; });
        DiskManager::informInterestedParties();
    }
    DiskManager::informInterestedParties();
    EXPECT_EQ(heard, 1u);
}

}  // namespace
