#include "fsys/MediaDrive.h"

#include "os/LastError.h"

#include "RegistryFixture.h"
#include "fsys/DiskManager.h"

#include <limits>
#include <type_traits>

namespace {

class MediaDriveTest : public RegistryFixture
{
protected:
    // The record that the registry made for root.
    Qz::Ptr<MediaDrive> place(const wchar_t* root, std::uint64_t freeBytes = 1000 * MB)
    {
        return DiskManager::getVolume(addPlace(root, freeBytes));
    }
};

TEST_F(MediaDriveTest, ADefaultRecordIsNoDrive)
{
    const MediaDrive drive;
    EXPECT_EQ(drive.getId(), DriveId('0'));
    EXPECT_TRUE(drive.is_unnamed());
    EXPECT_EQ(drive.getType(), 1u);
    EXPECT_EQ(drive.getSectorSize(), 0u);
    EXPECT_FALSE(drive.isSlow());
    EXPECT_TRUE(drive.getPath().empty());
    EXPECT_TRUE(drive.getUNCName().empty());
    EXPECT_TRUE(drive.getLocalShare().empty());
    EXPECT_FALSE(drive.isAutoDiscovered());
    EXPECT_EQ(drive.refCount(), 0u);
}

TEST_F(MediaDriveTest, ANamedRecordTakesTheSpaceOfTheDriveOfItsId)
{
    const DriveId id = addPlace(L"/m/", 7 * MB);
    const MediaDrive drive(id, L"Archive");
    EXPECT_EQ(drive.getName(), L"Archive");
    EXPECT_EQ(drive.getSpaceMB(), 7.0);
    EXPECT_EQ(drive.getCapacityMB(), 14.0);
    EXPECT_EQ(drive.getType(), 1u);
    EXPECT_EQ(drive.getSectorSize(), 0u);
    EXPECT_TRUE(drive.getPath().empty());
    EXPECT_EQ(drive.refCount(), 0u);
}

TEST_F(MediaDriveTest, ALocationIsMadeFromTheFixedPathAndAsksNoSpace)
{
    const auto disk = addDisk(L"/media/disk1/");
    os.files().setUNCName(L"/media/disk1", L"\\\\host\\disk1");
    const MediaDrive drive(DriveId('5'), L"\\media\\disk1", iDiskDrive::eLocal);
    EXPECT_EQ(drive.getId(), DriveId('5'));
    EXPECT_EQ(drive.getPath(), L"/media/disk1");
    EXPECT_EQ(drive.getUNCName(), L"\\\\host\\disk1");
    EXPECT_EQ(os.log().count(fake::Op::getUNCName, L"/media/disk1"), 1u);
    EXPECT_EQ(disk->queries().freeBytes, 0u);
    EXPECT_EQ(drive.getSpaceMB(), 0.0);
    EXPECT_EQ(drive.getCapacityMB(), 0.0);
    EXPECT_FALSE(drive.isSlow());
    EXPECT_FALSE(drive.isAutoDiscovered());
    EXPECT_EQ(drive.refCount(), 0u);
}

TEST_F(MediaDriveTest, ANetworkNameGivenAsPathKeepsItsBackslashes)
{
    const MediaDrive drive(DriveId('5'), L"\\\\server\\media\\x", iDiskDrive::eNetwork);
    EXPECT_EQ(drive.getPath(), L"\\\\server\\media\\x");
}

TEST_F(MediaDriveTest, ADriveThatNeverHadANetworkNameHoldsNoText)
{
    EXPECT_TRUE(place(L"/m/")->getUNCName().isNull());
}

TEST_F(MediaDriveTest, OneTrailingSeparatorIsRemovedFromTheRoot)
{
    EXPECT_EQ(MediaDrive(DriveId('5'), L"/media/disk1/", iDiskDrive::eLocal).getPath(), L"/media/disk1");
    EXPECT_EQ(MediaDrive(DriveId('5'), L"/media/disk1//", iDiskDrive::eLocal).getPath(), L"/media/disk1/");
    EXPECT_EQ(MediaDrive(DriveId('5'), L"/", iDiskDrive::eLocal).getPath(), L"");
    EXPECT_EQ(MediaDrive(DriveId('5'), L"", iDiskDrive::eLocal).getPath(), L"");
}

TEST_F(MediaDriveTest, TheRootLocationEndsWithOneSeparatorUnlessTheRootIsEmpty)
{
    EXPECT_EQ(MediaDrive(DriveId('5'), L"/m", iDiskDrive::eLocal).getRootLocation(), L"/m/");
    EXPECT_EQ(MediaDrive(DriveId('5'), L"/m/", iDiskDrive::eLocal).getRootLocation(), L"/m/");
    EXPECT_EQ(MediaDrive(DriveId('5'), L"/", iDiskDrive::eLocal).getRootLocation(), L"");
}

TEST_F(MediaDriveTest, TheSectorSizeComesFromTheDiskOr512)
{
    addDisk(L"/big/")->set({.sectorSize = 4096, .root = L"/big/"});
    MediaDrive big(DriveId('5'), L"/big/", iDiskDrive::eLocal);
    EXPECT_EQ(big.getSectorSize(), 4096u);

    addDisk(L"/unknown/")->set({.sectorSize = 0, .root = L"/unknown/"});
    MediaDrive unknown(DriveId('5'), L"/unknown/", iDiskDrive::eLocal);
    EXPECT_EQ(unknown.getSectorSize(), 512u);
    EXPECT_TRUE(unknown.setSectorSize());

    os.files().clearDrives();
    MediaDrive nowhere(DriveId('5'), L"/nowhere/", iDiskDrive::eLocal);
    EXPECT_EQ(nowhere.getSectorSize(), 512u);
    EXPECT_FALSE(nowhere.setSectorSize());
    EXPECT_FALSE(big.setSectorSize());
    EXPECT_EQ(big.getSectorSize(), 4096u);
}

TEST_F(MediaDriveTest, ReservedIdsAreNeverQueriedForSpace)
{
    for (const char id : {'*', '?'}) {
        MediaDrive drive(DriveId(id), L"any");
        drive.reserveSpace(-77.0);
        os.log().clear();
        drive.update();
        EXPECT_EQ(drive.getSpaceMB(), 77.0);
        EXPECT_EQ(os.log().count(fake::Op::getDriveForPath), 0u);
    }
}

TEST_F(MediaDriveTest, TheFifteenthLocationGetsAReservedIdAndNoSpace)
{
    addFolders(14);
    const DriveId id = addPlace(L"/m/", 50 * MB);
    EXPECT_EQ(id, DriveId('?'));
    EXPECT_EQ(DiskManager::getVolume(id)->getSpaceMB(), 0.0);
    EXPECT_EQ(DiskManager::getVolume(id)->getCapacityMB(), 0.0);
}

TEST_F(MediaDriveTest, SpaceIsKeptInWholeMegabytes)
{
    const auto drive = place(L"/m/", 5 * MB + 1023 * 1024);
    EXPECT_EQ(drive->getSpaceMB(), 5.0);
    EXPECT_EQ(drive->getSpaceBytes(), 5242880u);
    EXPECT_EQ(drive->getCapacityMB(), 11.0);
    EXPECT_EQ(drive->getCapacityBytes(), 11 * MB);
}

TEST_F(MediaDriveTest, BytesAreTruncated)
{
    const auto drive = place(L"/m/", 1 * MB);
    drive->reserveSpace(0.7);
    EXPECT_EQ(drive->getSpaceBytes(), 314572u);  // 314572.8
}

TEST_F(MediaDriveTest, BytesOfANegativeFigureAreZeroAndOfAHugeOneTheMost)
{
    const auto drive = place(L"/m/", 1 * MB);
    drive->reserveSpace(4.0);
    EXPECT_EQ(drive->getSpaceMB(), -3.0);
    EXPECT_EQ(drive->getSpaceBytes(), 0u);
    drive->reserveSpace(-3.0 - 8796093022208.0);  // leaves 2^43 MB, which is 2^63 bytes
    EXPECT_EQ(drive->getSpaceBytes(), 1ULL << 63);
    drive->reserveSpace(-1e20);
    EXPECT_EQ(drive->getSpaceBytes(), std::numeric_limits<std::uint64_t>::max());
}

TEST_F(MediaDriveTest, ADriveWithoutVolumeReportsNoSpace)
{
    const auto drive = place(L"/m/");
    EXPECT_GT(drive->getSpaceMB(), 0.0);
    os.files().clearDrives();
    drive->update();
    EXPECT_EQ(drive->getSpaceMB(), 0.0);
    EXPECT_EQ(drive->getCapacityMB(), 0.0);
}

TEST_F(MediaDriveTest, RecordingLeavesTwoMegabytesFree)
{
    EXPECT_EQ(place(L"/three/", 3 * MB)->getSpaceForRecording(), 1.0);
    EXPECT_EQ(place(L"/one/", 1 * MB)->getSpaceForRecording(), -1.0);
}

TEST_F(MediaDriveTest, SpaceForRecordingIsRefreshedFirst)
{
    const auto disk = addDisk(L"/m/", 10 * MB);
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/m/", id, false));
    disk->set({.freeBytes = 30 * MB, .root = L"/m/"});
    EXPECT_EQ(DiskManager::getVolume(id)->getSpaceForRecording(), 28.0);
    EXPECT_EQ(DiskManager::getVolume(id)->getSpaceMB(), 30.0);
}

TEST_F(MediaDriveTest, TheUserNameOfAnUnnamedDriveIsItsLocalNameAndTheFlagIsIgnored)
{
    const auto drive = place(L"/m/");
    EXPECT_TRUE(drive->is_unnamed());
    EXPECT_EQ(drive->getUserName(true), L"/m");
    EXPECT_EQ(drive->getUserName(false), L"/m");
    drive->setName(L"Archive");
    EXPECT_FALSE(drive->is_unnamed());
    EXPECT_EQ(drive->getUserName(true), L"Archive");
    EXPECT_EQ(drive->getUserName(false), L"Archive");
}

TEST_F(MediaDriveTest, HasNameComparesToTheLetter)
{
    const auto drive = place(L"/m/");
    EXPECT_TRUE(drive->has_name(L"/m"));
    EXPECT_FALSE(drive->has_name(L"/M"));
    drive->setName(L"Archive");
    EXPECT_TRUE(drive->has_name(L"Archive"));
    EXPECT_FALSE(drive->has_name(L"archive"));
    EXPECT_FALSE(drive->has_name(L"/m"));
}

TEST_F(MediaDriveTest, OnlyADriveWithoutNameAndLocalNameHasTheEmptyName)
{
    const auto drive = place(L"/m/");
    EXPECT_FALSE(drive->has_name(L""));
    drive->setName(L"Archive");
    EXPECT_FALSE(drive->has_name(L""));
    EXPECT_TRUE(MediaDrive().has_name(L""));
}

TEST_F(MediaDriveTest, TheLocalNameOfALocalDriveIsItsRoot)
{
    LightweightString<wchar_t> name;
    place(L"/m/")->getLocalName(name, true);
    EXPECT_EQ(name, L"/m");
}

TEST_F(MediaDriveTest, ACopyIsANamedSpaceRecordAndNoLocation)
{
    const auto disk = addDisk(L"/m/", 9 * MB);
    disk->set({.sectorSize = 4096, .freeBytes = 9 * MB, .totalBytes = 18 * MB, .root = L"/m/"});
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/m/", id, true));
    const auto drive = DiskManager::getVolume(id);
    drive->setName(L"Archive");
    drive->setSlow(true);

    const MediaDrive copy(*drive);
    EXPECT_EQ(copy.getId(), id);
    EXPECT_EQ(copy.getName(), L"Archive");
    EXPECT_EQ(copy.getSpaceMB(), 9.0);
    EXPECT_EQ(copy.getCapacityMB(), 18.0);
    EXPECT_TRUE(copy.getPath().empty());
    EXPECT_TRUE(copy.getRootLocation().empty());
    EXPECT_EQ(copy.getSectorSize(), 0u);
    EXPECT_FALSE(copy.isSlow());
    EXPECT_FALSE(copy.isAutoDiscovered());
    EXPECT_EQ(copy.refCount(), 0u);
}

TEST_F(MediaDriveTest, InfoTellsBytesTypeAndSlowness)
{
    const auto drive = place(L"/m/", 5 * MB + 1);
    drive->setSlow(true);
    VolumeInfo info;
    EXPECT_TRUE(drive->getInfo(&info));
    EXPECT_EQ(info.freeBytes, 5 * MB + 1);
    EXPECT_EQ(info.totalBytes, 10 * MB + 2);
    EXPECT_TRUE(info.isLocal);
    EXPECT_TRUE(info.slow);
}

TEST_F(MediaDriveTest, InfoWithoutVolumeFillsTheFlagsAndLeavesTheBytes)
{
    const auto drive = DiskManager::getVolume(addPlace(L"/net/", MB, iDiskDrive::eNetwork));
    os.files().clearDrives();
    VolumeInfo info{.freeBytes = 11, .totalBytes = 12, .isLocal = true, .slow = true};
    EXPECT_FALSE(drive->getInfo(&info));
    EXPECT_EQ(info.freeBytes, 11u);
    EXPECT_EQ(info.totalBytes, 12u);
    EXPECT_FALSE(info.isLocal);
    EXPECT_FALSE(info.slow);
}

TEST_F(MediaDriveTest, OnlyTypeOneIsLocal)
{
    addPlace(L"/usb/", MB, iDiskDrive::eRemovable);
    VolumeInfo info{.isLocal = true};
    EXPECT_EQ(DiskManager::getVolInfo(DriveId('1'), &info), 1);
    EXPECT_FALSE(info.isLocal);
}

TEST_F(MediaDriveTest, PreparingMakesTheMediaFoldersOnce)
{
    const auto drive = place(L"/m/");
    EXPECT_TRUE(drive->prepareForMedia());
    EXPECT_TRUE(os.files().hasFolder(L"/m/Material"));
    EXPECT_TRUE(os.files().hasFolder(L"/m/Sound"));
    os.log().clear();
    EXPECT_TRUE(drive->prepareForMedia());
    EXPECT_EQ(os.log().count(fake::Op::createDirectory), 0u);
}

TEST_F(MediaDriveTest, PreparingFailsWhereAFolderCannotBeMade)
{
    const auto drive = place(L"/m/");
    os.faults().failOn(L"/m/Sound", fake::Op::createDirectory, errorFromErrno(EACCES));
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(drive->prepareForMedia()); }),
              "assertion failed success at ole/fsys/DiskManager line 873\n");
    EXPECT_EQ(os.faults().fired(), 1u);
}

static_assert(std::is_base_of_v<iObject, MediaDrive>);

}  // namespace
