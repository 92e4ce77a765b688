// What the file manager makes of mounts that come, go, and hang. Needs the right to mount.

#include "FileManagerFixture.h"
#include "PrivateMounts.h"
#include "os/Codes.h"
#include "os/LastError.h"

#include <cerrno>

namespace fs = std::filesystem;

class MountedPlaces : public FileManagerFixture
{
protected:
    void SetUp() override
    {
        if (!privateMounts.available())
            GTEST_SKIP() << "needs the right to mount";
        point = folder.folder("disk");
    }
    void TearDown() override
    {
        while (PrivateMounts::unmount(point)) {
        }
    }

    // Before the file manager first looks at the mount table: that of the main thread's new name space.
    PrivateMounts privateMounts;
    std::string point;
};

TEST_F(MountedPlaces, AMountIsADriveOfItsOwn)
{
    ASSERT_TRUE(PrivateMounts::mountMemory(point));
    const Qz::Ptr<iDiskDrive> drive = files.getDriveForPath(at("disk/clip"));
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->getRootPath(), wide(point + '/'));
    EXPECT_EQ(drive->getType(), iDiskDrive::eLocal);
    EXPECT_EQ(drive->getSectorSize(), 512u);
    EXPECT_EQ(drive->getTotalBytes(), 1u << 20);
    EXPECT_FALSE(drive->isSystemDisk());
    EXPECT_TRUE(drive->isMounted());
}

TEST_F(MountedPlaces, AMountIsListedOnceAndNotWhenItIsCovered)
{
    const auto countAtPoint = [this] {
        int count = 0;
        for (const auto& disk : files.listDisks(os::listMountedVolumes))
            count += disk->getRootPath() == wide(point + '/');
        return count;
    };
    EXPECT_EQ(countAtPoint(), 0);
    ASSERT_TRUE(PrivateMounts::mountMemory(point));
    EXPECT_EQ(countAtPoint(), 1);
    ASSERT_TRUE(PrivateMounts::mountMemory(point));
    EXPECT_EQ(countAtPoint(), 1);
}

TEST_F(MountedPlaces, ADriveThatWentIsNotMountedAndKeepsItsLastFigures)
{
    ASSERT_TRUE(PrivateMounts::mountMemory(point));
    const Qz::Ptr<iDiskDrive> drive = files.getDriveForPath(wide(point));
    ASSERT_EQ(drive->getTotalBytes(), 1u << 20);
    ASSERT_TRUE(PrivateMounts::unmount(point));
    EXPECT_FALSE(drive->isMounted());
    EXPECT_EQ(drive->getTotalBytes(), 1u << 20) << "not those of the disk below";
}

TEST_F(MountedPlaces, AReadOnlyMountIsNotWritable)
{
    ASSERT_TRUE(PrivateMounts::mountMemory(point));
    ASSERT_EQ(::mount(nullptr, point.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_FALSE(files.isWritable(wide(point)));
    EXPECT_EQ(lastError(), errorFromErrno(EROFS));
}

TEST_F(MountedPlaces, APlaceWhoseDiskHasGoneTakesNoRecording)
{
    ASSERT_TRUE(PrivateMounts::mountMemory(point));
    folder.folder("disk/Material");
    ASSERT_TRUE(files.isWritable(at("disk/Material")));
    ASSERT_TRUE(PrivateMounts::unmount(point));
    folder.folder("disk/Material");  // the same folder on the disk below
    folder.file("disk/Material/below", "123");

    EXPECT_FALSE(files.isWritable(at("disk/Material")));
    EXPECT_EQ(lastError(), errorFromErrno(ENODEV));
    EXPECT_FALSE(files.directoryExists(at("disk/Material/")));
    EXPECT_FALSE(files.getDriveForPath(at("disk/Material/clip")));
    setLastErrno(EIO);
    EXPECT_FALSE(files.open(at("disk/Material/clip"), os::accessWrite, os::creationOpenOrNew, 0, 0));
    EXPECT_EQ(lastError(), errorFromErrno(ENODEV));
    EXPECT_FALSE(files.open(at("disk/Material/clip"), os::accessRead, os::creationOpenOrNewRW, 0, 0));
    EXPECT_FALSE(files.open(at("disk/Material\\clip"), os::accessWrite, os::creationOpenOrNew, 0, 0));
    EXPECT_FALSE(files.replaceFile(at("disk/Material/list"), "x"));
    EXPECT_FALSE(files.createDirectory(at("disk/Material/sub")));
    EXPECT_TRUE(files.open(at("disk/Material/below"), os::accessRead, os::creationOpen, 0, 0));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "disk/Material"), fs::directory_iterator()), 1);
}

TEST_F(MountedPlaces, APlaceComesBackWithItsDisk)
{
    ASSERT_TRUE(PrivateMounts::mountMemory(point, "volume"));
    ASSERT_TRUE(files.isWritable(wide(point)));
    ASSERT_TRUE(PrivateMounts::unmount(point));
    EXPECT_FALSE(files.isWritable(wide(point)));
    ASSERT_TRUE(PrivateMounts::mountMemory(point, "other"));
    EXPECT_FALSE(files.isWritable(wide(point))) << "another volume at the same point";
    ASSERT_TRUE(PrivateMounts::unmount(point));
    ASSERT_TRUE(PrivateMounts::mountMemory(point, "volume"));
    EXPECT_TRUE(files.isWritable(wide(point)));
    EXPECT_TRUE(files.open(at("disk/clip"), os::accessWrite, os::creationNew, 0, 0));
}

TEST_F(MountedPlaces, OtherPlacesStayOnline)
{
    ASSERT_TRUE(PrivateMounts::mountMemory(point));
    folder.folder("disk2");
    ASSERT_TRUE(files.isWritable(wide(point)));
    ASSERT_TRUE(PrivateMounts::unmount(point));
    EXPECT_TRUE(files.isWritable(at("disk2")));
    EXPECT_TRUE(files.directoryExists(at("disk2")));
}

TEST_F(MountedPlaces, AServerThatHangsHoldsUpNobodyForLong)
{
    SilentServer server(point);
    if (!server.mounted())
        GTEST_SKIP() << "needs user-space file systems";
    EXPECT_FALSE(files.fileExists(at("disk/clip")));
    EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT));
    EXPECT_FALSE(files.directoryExists(wide(point)));
    EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT));
    EXPECT_FALSE(files.isWritable(wide(point)));
    EXPECT_FALSE(files.isOpenedDirectly(at("disk/clip")));
    EXPECT_EQ(files.getFileSize(at("disk/clip")), 0u);
    EXPECT_FALSE(files.deleteFile(at("disk/clip")));
    EXPECT_FALSE(files.createDirectory(at("disk/sub")));
    EXPECT_FALSE(files.replaceFile(at("disk/list"), "x"));
    EXPECT_FALSE(files.deleteTree(at("disk/sub")));
    EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT));
    std::string contents = "old";
    EXPECT_FALSE(files.readWholeFile(at("disk/list"), 100, contents));
    EXPECT_EQ(contents, "");
    Items items;
    EXPECT_FALSE(files.listDirectory(at("disk/*.*"), items));
    EXPECT_FALSE(files.listFilesWithPrefix(wide(point), L"a", items));
    EXPECT_EQ(files.resolvePath(at("disk/clip")), at("disk/clip"));
    EXPECT_TRUE(files.fileExists(wide(folder.file("local")))) << "other places go on";
    server.stop();
}

TEST_F(MountedPlaces, ADriveWhoseServerHangsIsStillDescribed)
{
    SilentServer server(point);
    if (!server.mounted())
        GTEST_SKIP() << "needs user-space file systems";
    const Qz::Ptr<iDiskDrive> drive = files.getDriveForPath(at("disk/sub/clip"));
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->getRootPath(), wide(point + '/'));
    EXPECT_EQ(drive->getType(), iDiskDrive::eNetwork);
    EXPECT_EQ(drive->getSectorSize(), 512u);
    EXPECT_EQ(drive->getFreeBytes(), 0u);
    EXPECT_EQ(drive->getTotalBytes(), 0u);
    EXPECT_FALSE(drive->isMounted());
    EXPECT_FALSE(drive->isSystemDisk());
    EXPECT_EQ(files.getUNCName(at("disk/sub/clip")), L"\\\\server\\media\\sub\\clip");
    EXPECT_EQ(files.getUNCName(at("disk/")), L"\\\\server\\media");
    server.stop();
}

TEST_F(MountedPlaces, ALinkThatLeadsToAServerHoldsUpNobody)
{
    SilentServer server(point);
    if (!server.mounted())
        GTEST_SKIP() << "needs user-space file systems";
    fs::create_symlink("disk/media", folder / "link");
    EXPECT_FALSE(files.fileExists(at("link/clip")));
    EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT));
    folder.folder("plain");
    EXPECT_FALSE(files.fileExists(at("disk\\clip"))) << "behind translated separators";
    EXPECT_EQ(lastError(), errorFromErrno(ETIMEDOUT));
    server.stop();
}
