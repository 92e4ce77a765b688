#include "os/linux/SysfsDevice.h"

#include "common/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

using namespace os;

namespace {

// The kernel's device tree as far as it is asked: a disk 8:0 with a partition 8:1.
class DeviceTree
{
public:
    DeviceTree(const std::string& sectorSize, const std::string& removable)
    {
        root_.folder("devices/sda/queue");
        root_.folder("devices/sda/sda1");
        root_.folder("dev/block");
        root_.file("devices/sda/queue/logical_block_size", sectorSize);
        root_.file("devices/sda/removable", removable);
        root_.file("devices/sda/sda1/partition", "1\n");
        std::filesystem::create_directory_symlink("../../devices/sda", root_ / "dev/block/8:0");
        std::filesystem::create_directory_symlink("../../devices/sda/sda1", root_ / "dev/block/8:1");
    }
    [[nodiscard]] const std::string& path() const { return root_.path(); }

private:
    TemporaryFolder root_;
};

}  // namespace

TEST(SysfsDevice, ADiskTellsItsSectorSize)
{
    const DeviceTree tree("4096\n", "0\n");
    EXPECT_EQ(sectorSizeOf({8, 0}, tree.path()), 4096u);
    EXPECT_FALSE(isRemovable({8, 0}, tree.path()));
}

TEST(SysfsDevice, APartitionHasWhatItsDiskHas)
{
    const DeviceTree tree("4096\n", "1\n");
    EXPECT_EQ(sectorSizeOf({8, 1}, tree.path()), 4096u);
    EXPECT_TRUE(isRemovable({8, 1}, tree.path()));
}

TEST(SysfsDevice, AnUnknownSectorSizeIsNeverZero)
{
    const DeviceTree zero("0\n", "0\n");
    EXPECT_EQ(sectorSizeOf({8, 0}, zero.path()), 512u);
    const DeviceTree text("none\n", "yes\n");
    EXPECT_EQ(sectorSizeOf({8, 0}, text.path()), 512u);
    EXPECT_FALSE(isRemovable({8, 0}, text.path()));
    EXPECT_EQ(sectorSizeOf({0, 44}, zero.path()), 512u);
    EXPECT_FALSE(isRemovable({0, 44}, zero.path()));
}

TEST(SysfsDevice, AMountWithABlockDeviceHasThatDevice)
{
    MountEntry mount;
    mount.major = 259;
    mount.minor = 3;
    mount.source = "/dev/null";
    EXPECT_EQ(deviceOf(mount).major, 259u);
    EXPECT_EQ(deviceOf(mount).minor, 3u);
}

TEST(SysfsDevice, AMountWithoutADeviceNumberHasTheDeviceOfItsSource)
{
    const TemporaryFolder folder;
    MountEntry mount;
    mount.minor = 44;
    mount.source = "/dev/null";  // no block device
    EXPECT_EQ(deviceOf(mount).major, 0u);
    EXPECT_EQ(deviceOf(mount).minor, 44u);
    mount.source = "/dev/fsys-test-block";
    if (::mknod(mount.source.c_str(), S_IFBLK | 0600, makedev(8, 1)) != 0)
        GTEST_SKIP() << "needs the right to make device files";
    EXPECT_EQ(deviceOf(mount).major, 8u);
    EXPECT_EQ(deviceOf(mount).minor, 1u);
    ::unlink(mount.source.c_str());
}
