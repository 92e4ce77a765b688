#include "os/linux/LinuxDisk.h"

#include "Qz/Ptr.h"
#include "common/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <limits>

using namespace os;

namespace {

class LinuxDisks : public testing::Test
{
protected:
    static constexpr std::uint64_t huge = std::numeric_limits<std::uint64_t>::max();

    Qz::Ptr<iDiskDrive> disk(const std::string& line)
    {
        return Qz::Ptr<iDiskDrive>(new LinuxDisk(parseMountInfo(line).at(0), services));
    }

    TemporaryFolder sysfs;
    MountTableReader mounts{"/proc/self/mountinfo"};
    BoundedCalls calls{60000};
    SpaceMemory space;
    LinuxDisk::Services services{mounts, calls, space, sysfs.path()};
};

}  // namespace

TEST_F(LinuxDisks, SpaceNeverOverflows)
{
    EXPECT_EQ(bytesOfBlocks(0, 4096), 0u);
    EXPECT_EQ(bytesOfBlocks(10, 0), 0u);
    EXPECT_EQ(bytesOfBlocks(1u << 31, 4096), std::uint64_t{1} << 43);
    EXPECT_EQ(bytesOfBlocks(huge / 4096, 4096), huge - 4095);
    EXPECT_EQ(bytesOfBlocks(huge, 4096), huge);
    EXPECT_EQ(bytesOfBlocks(huge, 1), huge);
}

TEST_F(LinuxDisks, RemembersTheSpaceOfEachVolume)
{
    EXPECT_EQ(space.lastKnown("a").totalBytes, 0u);
    space.remember("a", {1, 2});
    space.remember("b", {3, 4});
    EXPECT_EQ(space.lastKnown("a").freeBytes, 1u);
    EXPECT_EQ(space.lastKnown("b").totalBytes, 4u);
}

TEST_F(LinuxDisks, ARemovableDeviceIsARemovableDrive)
{
    sysfs.folder("dev/block/8:16/queue");
    sysfs.file("dev/block/8:16/removable", "1\n");
    sysfs.file("dev/block/8:16/queue/logical_block_size", "2048\n");
    const auto stick = disk("1 0 8:16 / /media/stick rw - vfat /dev/sdb rw\n");
    EXPECT_EQ(stick->getType(), iDiskDrive::eRemovable);
    EXPECT_EQ(stick->getSectorSize(), 2048u);
}

TEST_F(LinuxDisks, NetworkAndDiscsKeepTheirTypesOnAnyDevice)
{
    sysfs.folder("dev/block/11:0");
    sysfs.file("dev/block/11:0/removable", "1\n");
    EXPECT_EQ(disk("1 0 11:0 / /media/cd ro - iso9660 /dev/sr0 ro\n")->getType(), iDiskDrive::eOptical);
    EXPECT_EQ(disk("1 0 0:50 / /mnt/nas rw - nfs4 srv:/x rw\n")->getType(), iDiskDrive::eNetwork);
    EXPECT_EQ(disk("1 0 0:50 / /mnt/x rw - overlay overlay rw\n")->getType(), iDiskDrive::eLocal);
}

TEST_F(LinuxDisks, AVolumeThatIsNotInTheTableIsNotMounted)
{
    const TemporaryFolder folder;
    const auto gone = disk("1 0 0:50 / " + folder.path() + " rw - tmpfs gone rw\n");
    EXPECT_FALSE(gone->isMounted());
    EXPECT_EQ(gone->getTotalBytes(), 0u) << "not the space of the disk below";
    EXPECT_EQ(gone->getRootPath(), wide(folder.path() + '/'));
}
