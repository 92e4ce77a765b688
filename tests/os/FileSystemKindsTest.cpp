#include "os/linux/FileSystemKinds.h"

#include <gtest/gtest.h>

using namespace os;

TEST(FileSystemKinds, RemoteTypesAreNetworkDrives)
{
    for (const char* type :
         {"nfs", "nfs4", "cifs", "smb3", "smbfs", "afs", "ceph", "glusterfs", "lustre", "beegfs", "9p",
          "fuse.sshfs", "fuse.glusterfs", "davfs", "fuse.rclone", "fuse.smbnetfs", "fuse.s3fs"}) {
        EXPECT_EQ(driveTypeOf(type), iDiskDrive::eNetwork) << type;
        EXPECT_TRUE(mayHang(type)) << type;
    }
}

TEST(FileSystemKinds, DiscFormatsAreOptical)
{
    EXPECT_EQ(driveTypeOf("iso9660"), iDiskDrive::eOptical);
    EXPECT_EQ(driveTypeOf("udf"), iDiskDrive::eOptical);
}

TEST(FileSystemKinds, EverythingElseIsLocal)
{
    for (const char* type : {"ext4", "xfs", "btrfs", "zfs", "tmpfs", "overlay", "vfat", "exfat", "ntfs3",
                             "virtiofs", "unheard-of", ""}) {
        EXPECT_EQ(driveTypeOf(type), iDiskDrive::eLocal) << type;
        EXPECT_FALSE(mayHang(type)) << type;
        EXPECT_FALSE(isPseudoFileSystem(type)) << type;
    }
}

TEST(FileSystemKinds, AnyServerInUserSpaceMayHang)
{
    for (const char* type : {"fuse", "fuseblk", "fuse.unheard-of", "autofs"}) {
        EXPECT_TRUE(mayHang(type)) << type;
        EXPECT_EQ(driveTypeOf(type), iDiskDrive::eLocal) << type;
    }
    EXPECT_FALSE(mayHang("fusectl"));
}

TEST(FileSystemKinds, OnlyRemoteFoldersOfSecureShellsCutTheirAnswers)
{
    EXPECT_TRUE(cutsAnswers("fuse.sshfs"));
    for (const char* type : {"fuse.glusterfs", "fuse", "fuse.rclone", "nfs4", "cifs", "ext4", ""})
        EXPECT_FALSE(cutsAnswers(type)) << type;
}

TEST(FileSystemKinds, TablesOfTheKernelAreNoStorage)
{
    for (const char* type : {"proc", "sysfs", "devtmpfs", "devpts", "cgroup", "cgroup2", "mqueue", "autofs"})
        EXPECT_TRUE(isPseudoFileSystem(type)) << type;
}

TEST(FileSystemKinds, TheSystemsOwnMountPointsAreToldFromMedia)
{
    for (const char* point : {"/", "/boot", "/boot/efi", "/usr", "/usr/local", "/var", "/var/log", "/proc",
                              "/sys/fs", "/dev/shm", "/run", "/run/user/1000"})
        EXPECT_TRUE(isSystemMountPoint(point)) << point;
    for (const char* point : {"/media/disk", "/mnt", "/home", "/srv/media", "/run/media",
                              "/run/media/me/disk", "/variety", "/device"})
        EXPECT_FALSE(isSystemMountPoint(point)) << point;
}
