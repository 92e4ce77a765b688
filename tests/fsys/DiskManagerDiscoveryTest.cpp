#include "RegistryFixture.h"
#include "fsys/DiskManager.h"

namespace {

class DiskManagerDiscovery : public RegistryFixture
{
protected:
    // A disk that discovery takes, unless properties speak against it.
    Qz::Ptr<FakeDrive> addMediaDisk(fake::DriveProperties properties)
    {
        const auto disk = os.files().addDrive(properties);
        os.files().addFolder(properties.root + L"Material");
        return disk;
    }
    Qz::Ptr<FakeDrive> addMediaDisk(const wchar_t* root) { return addMediaDisk({.root = root}); }

    static unsigned registered()
    {
        unsigned count = 0;
        while (DiskManager::get_drive(static_cast<unsigned short>(count)).valid())
            ++count;
        return count;
    }
};

TEST_F(DiskManagerDiscovery, OnlyMountedLocalDisksWithAWritableMaterialFolderAreRegistered)
{
    addMediaDisk({.type = iDiskDrive::eNetwork, .root = L"/net/"});
    addMediaDisk({.type = iDiskDrive::eRemovable, .root = L"/usb/"});
    addMediaDisk({.isSystemDisk = true, .root = L"/system/"});
    addMediaDisk({.isMounted = false, .root = L"/gone/"});
    addMediaDisk({.isSystemDisk = true, .isMounted = false, .root = L"/both/"});
    os.files().addDrive(L"/plain/");
    addMediaDisk(L"/locked/");
    os.files().setWritable(L"/locked/Material/", false);
    addMediaDisk(L"/good/");
    EXPECT_TRUE(DiskManager::discoverVolumes());
    EXPECT_EQ(registered(), 1u);
    EXPECT_EQ(DiskManager::getMaterialVolumeName(DriveId('1'), false), L"/good");
    EXPECT_TRUE(DiskManager::isVolumeAutoDiscovered(DriveId('1')));
    EXPECT_EQ(os.log().count(fake::Op::isWritable, L"/good/Material/"), 1u);
}

TEST_F(DiskManagerDiscovery, AnyDiskAtAllMakesTheResultTrue)
{
    EXPECT_FALSE(DiskManager::discoverVolumes());
    os.files().addDrive(L"/plain/");
    EXPECT_TRUE(DiskManager::discoverVolumes());
    EXPECT_EQ(registered(), 0u);
}

TEST_F(DiskManagerDiscovery, OnlyTheListOfMountedVolumesIsAskedFor)
{
    DiskManager::discoverVolumes();
    EXPECT_EQ(os.log().count(fake::Op::listDisks), 1u);
    EXPECT_EQ(os.log().count(fake::Op::listDisks, L"1"), 1u);  // the flag
}

TEST_F(DiskManagerDiscovery, InitAndReInitLookForDisksUnlessToldNotTo)
{
    addMediaDisk(L"/a/");
    DiskManager::init(L"/project", true);
    DiskManager::reInit(true);
    EXPECT_EQ(os.log().count(fake::Op::listDisks), 0u);
    EXPECT_EQ(registered(), 0u);
    DiskManager::init(L"/project", false);
    EXPECT_EQ(os.log().count(fake::Op::listDisks), 1u);
    EXPECT_EQ(registered(), 1u);
    DiskManager::reInit(false);
    EXPECT_EQ(os.log().count(fake::Op::listDisks), 2u);
    EXPECT_EQ(registered(), 1u);
}

TEST_F(DiskManagerDiscovery, DisksAreRegisteredInTheOrderOfTheList)
{
    addMediaDisk(L"/z/");
    addMediaDisk(L"/a/");
    DiskManager::discoverVolumes();
    EXPECT_EQ(DiskManager::getMaterialVolumeName(DriveId('1'), false), L"/z");
    EXPECT_EQ(DiskManager::getMaterialVolumeName(DriveId('2'), false), L"/a");
}

TEST_F(DiskManagerDiscovery, ARootThatIsRegisteredIsReportedAndSkippedAndUsesNoId)
{
    addMediaDisk(L"/a/");
    addMediaDisk(L"/a/");
    addMediaDisk(L"/b/");
    EXPECT_EQ(printedBy([] { DiskManager::discoverVolumes(); }),
              "assertion failed false at ole/fsys/DiskManager line 1098\n");
    EXPECT_EQ(registered(), 2u);
    EXPECT_EQ(DiskManager::getVolume(L"/b/")->getId(), DriveId('2'));
}

TEST_F(DiskManagerDiscovery, ADiscoveredDriveGetsItsStoredNameItsSpaceAndIsScanned)
{
    addMediaDisk({.freeBytes = 8 * MB, .root = L"/a/"});
    os.files().addFile(L"/a/Material/MediaSpaceInfo.txt", "name=Archive\n");
    const Cookie cookie(CookieTypeVision, 0x100, 0);
    os.files().addFile(LightweightString<wchar_t>(L"/a/Material/") + cookie.asWString() + L".mov", "media");
    DiskManager::discoverVolumes();
    const auto drive = DiskManager::getVolume(DriveId('1'));
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->getName(), L"Archive");
    EXPECT_EQ(drive->getSpaceMB(), 8.0);
    EXPECT_EQ(drive->getType(), 1u);
    EXPECT_TRUE(SystemCache::fileExists(cookie));
}

TEST_F(DiskManagerDiscovery, ADiscoveredDriveWithoutStoredNameStaysUnnamed)
{
    addMediaDisk(L"/a/");
    DiskManager::discoverVolumes();
    EXPECT_TRUE(DiskManager::getVolume(DriveId('1'))->is_unnamed());
}

TEST_F(DiskManagerDiscovery, ARegisteredPathIsReportedAndItsDriveAnswered)
{
    const DriveId first = addPlace(L"/a/", 5 * MB);
    DriveId id;
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(DiskManager::addMaterialVolume(L"/a/", id, true)); }),
              "assertion failed false at ole/fsys/DiskManager line 904\n");
    EXPECT_EQ(id, first);
    EXPECT_EQ(registered(), 1u);
    EXPECT_TRUE(DiskManager::isVolumeAutoDiscovered(first));
    EXPECT_EQ(addPlace(L"/b/"), DriveId('2'));
}

TEST_F(DiskManagerDiscovery, AddingARegisteredPathRefreshesItsSpace)
{
    const auto disk = addDisk(L"/a/", 5 * MB);
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/a/", id, false));
    disk->set({.freeBytes = 30 * MB, .root = L"/a/"});
    ASSERT_EQ(DiskManager::getVolume(id)->getSpaceMB(), 5.0);
    printedBy([&] { EXPECT_TRUE(DiskManager::addMaterialVolume(L"/a/", id, false)); });
    EXPECT_EQ(DiskManager::getVolume(id)->getSpaceMB(), 30.0);
}

TEST_F(DiskManagerDiscovery, WithoutItsSeparatorARegisteredPathIsRegisteredAgain)
{
    addPlace(L"/a/");
    DriveId id;
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(DiskManager::addMaterialVolume(L"/a", id, false)); }), "");
    EXPECT_EQ(id, DriveId('2'));
    EXPECT_EQ(registered(), 2u);
}

TEST_F(DiskManagerDiscovery, AnUnwritablePathIsRefusedSilently)
{
    addDisk(L"/a/");
    os.files().setWritable(L"/a/", false);
    DriveId id('k');
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(DiskManager::addMaterialVolume(L"/a/", id, false)); }), "");
    EXPECT_EQ(id, DriveId('k'));
    EXPECT_EQ(registered(), 0u);
    EXPECT_EQ(log.logged + log.both, "");
}

TEST_F(DiskManagerDiscovery, TheTypeIsThatOfTheDiskOrLocal)
{
    addPlace(L"/net/", MB, iDiskDrive::eNetwork);
    EXPECT_EQ(DiskManager::getMediaDrive(0).getType(), 3u);
    os.files().addFolder(L"/folder");
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/folder", id, false));
    EXPECT_EQ(DiskManager::getVolume(id)->getType(), 1u);
    EXPECT_EQ(os.log().count(fake::Op::getDriveForPath, L"/folder/"), 1u);
}

TEST_F(DiskManagerDiscovery, AnAddedVolumeIsRefreshedAndNotScanned)
{
    const DriveId id = addPlace(L"/a/", 5 * MB);
    EXPECT_EQ(DiskManager::getVolume(id)->getSpaceMB(), 5.0);
    EXPECT_EQ(os.log().count(fake::Op::listDirectory), 0u);
}

TEST_F(DiskManagerDiscovery, TheEmptyPathIsNoMediaLocation)
{
    EXPECT_FALSE(DiskManager::addDriveForMediaLocation(L"", false));
    EXPECT_TRUE(os.log().calls().empty());
}

TEST_F(DiskManagerDiscovery, ALocationThatCannotBeAddedIsNeitherNamedNorScanned)
{
    EXPECT_EQ(printedBy([] { EXPECT_FALSE(DiskManager::addDriveForMediaLocation(L"/missing/", false)); }),
              "");
    EXPECT_EQ(os.log().count(fake::Op::listDirectory), 0u);
    EXPECT_EQ(log.logged + log.both, "");
}

TEST_F(DiskManagerDiscovery, ALocationIsNamedByItsDescriptionFile)
{
    addDisk(L"/x/Media1/");
    os.files().addFile(L"/x/Media1/Material/MediaSpaceInfo.txt", "name=Archive");
    EXPECT_TRUE(DiskManager::addDriveForMediaLocation(L"/x/Media1/", false));
    EXPECT_EQ(DiskManager::getMediaDrive(0).getName(), L"Archive");
}

TEST_F(DiskManagerDiscovery, ALocationWithoutDescriptionIsNamedByItsLastComponent)
{
    addDisk(L"/x/Media1/");
    addDisk(L"/x/Media2/");
    EXPECT_TRUE(DiskManager::addDriveForMediaLocation(L"/x/Media1/", true));
    EXPECT_TRUE(DiskManager::addDriveForMediaLocation(L"/x/Media2", false));
    EXPECT_EQ(DiskManager::getMediaDrive(0).getName(), L"Media1");
    EXPECT_TRUE(DiskManager::getMediaDrive(0).isAutoDiscovered());
    EXPECT_EQ(DiskManager::getMediaDrive(1).getName(), L"Media2");
    EXPECT_FALSE(DiskManager::getMediaDrive(1).isAutoDiscovered());
}

TEST_F(DiskManagerDiscovery, AnAddedLocationIsScanned)
{
    addDisk(L"/a/");
    const Cookie cookie(CookieTypeSound, 0x100, 1);
    os.files().addFile(LightweightString<wchar_t>(L"/a/Sound/") + cookie.asWString() + L".wav", "media");
    EXPECT_TRUE(DiskManager::addDriveForMediaLocation(L"/a/", false));
    EXPECT_TRUE(SystemCache::fileExists(cookie));
}

}  // namespace
