#include "os/linux/MountTable.h"

#include "PrivateMounts.h"
#include "common/TemporaryFolder.h"
#include "os/linux/MountTableReader.h"

#include <gtest/gtest.h>

using namespace os;

namespace {

constexpr const char* ordinary = "22 1 8:2 / / rw,relatime shared:1 - ext4 /dev/sda2 rw,errors=remount-ro\n"
                                 "30 22 0:21 / /proc rw,nosuid - proc proc rw\n"
                                 "40 22 8:17 / /media/one rw,relatime shared:7 master:3 - xfs /dev/sdb1 rw\n"
                                 "41 40 0:50 / /media/one/inner rw - tmpfs tmpfs rw\n"
                                 "42 22 0:51 / /mnt/nas rw - cifs //nas/media rw,vers=3.0\n";

std::string pointOf(const MountTable& table, const std::string& path)
{
    const MountEntry* mount = table.find(path);
    return mount ? mount->mountPoint : "none";
}

}  // namespace

TEST(MountTable, ReadsEveryField)
{
    const auto entries =
        parseMountInfo("36 35 98:0 /mnt1 /mnt2 ro,noatime master:1 - ext3 /dev/root rw,errors=continue\n");
    ASSERT_EQ(entries.size(), 1u);
    const MountEntry& entry = entries[0];
    EXPECT_EQ(entry.id, 36);
    EXPECT_EQ(entry.parentId, 35);
    EXPECT_EQ(entry.major, 98u);
    EXPECT_EQ(entry.minor, 0u);
    EXPECT_EQ(entry.root, "/mnt1");
    EXPECT_EQ(entry.mountPoint, "/mnt2");
    EXPECT_EQ(entry.fsType, "ext3");
    EXPECT_EQ(entry.source, "/dev/root");
    EXPECT_TRUE(entry.readOnly);
}

TEST(MountTable, AReadOnlyVolumeMakesAReadOnlyMount)
{
    EXPECT_TRUE(parseMountInfo("1 0 8:1 / /a rw - ext4 /dev/sda1 ro,x\n").at(0).readOnly);
    EXPECT_FALSE(parseMountInfo("1 0 8:1 / /a rw - ext4 /dev/sda1 rw,errors=remount-ro\n").at(0).readOnly);
}

TEST(MountTable, TakesAnyNumberOfOptionalFields)
{
    EXPECT_EQ(parseMountInfo("1 0 8:1 / /a rw - ext4 /dev/sda1 rw").at(0).fsType, "ext4");
    EXPECT_EQ(parseMountInfo("1 0 8:1 / /a rw shared:1 master:2 propagate_from:3 - xfs s rw").at(0).fsType,
              "xfs");
}

TEST(MountTable, UndoesTheEscapesOfTheKernel)
{
    const auto entries = parseMountInfo(
        "1 0 0:5 /a\\040b /media/My\\040Disk\\011x\\012y\\134z rw - fuse.sshfs me@host:/a\\040b rw\n");
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].root, "/a b");
    EXPECT_EQ(entries[0].mountPoint, "/media/My Disk\tx\ny\\z");
    EXPECT_EQ(entries[0].source, "me@host:/a b");
}

TEST(MountTable, LeavesOtherBackslashesAlone)
{
    EXPECT_EQ(parseMountInfo("1 0 0:5 / /a\\09\\1 rw - x s rw\n").at(0).mountPoint, "/a\\09\\1");
}

TEST(MountTable, KeepsSourcesWithSlashesAndColons)
{
    const auto entries = parseMountInfo("1 0 0:5 / /a rw - cifs //srv/share rw\n"
                                        "2 0 0:6 / /b rw - nfs4 [fe80::1]:/export/x rw\n");
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].source, "//srv/share");
    EXPECT_EQ(entries[1].source, "[fe80::1]:/export/x");
}

TEST(MountTable, AnEmptySourceIsAField)
{
    const auto entries = parseMountInfo("1 0 0:5 / /a rw - tmpfs  rw\n");
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].source, "");
}

TEST(MountTable, SkipsLinesThatAreNone)
{
    const auto entries = parseMountInfo("\n"
                                        "garbage\n"
                                        "x 0 8:1 / /a rw - ext4 /dev/sda1 rw\n"
                                        "1 0 8:x / /a rw - ext4 /dev/sda1 rw\n"
                                        "1 0 8:1 / /a rw ext4 /dev/sda1 rw more fields without dash\n"
                                        "1 0 8:1 / /a rw - ext4\n"
                                        "1 0 8:1 / relative rw - ext4 /dev/sda1 rw\n"
                                        "2 0 8:1 / /good rw - ext4 /dev/sda1 rw\n"
                                        "3 0 8:1 / /cut rw -");
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].mountPoint, "/good");
}

TEST(MountTable, FindsTheLongestMountPointOfWholeComponents)
{
    const MountTable table(parseMountInfo(ordinary));
    EXPECT_EQ(pointOf(table, "/"), "/");
    EXPECT_EQ(pointOf(table, "/home/x"), "/");
    EXPECT_EQ(pointOf(table, "/media/one"), "/media/one");
    EXPECT_EQ(pointOf(table, "/media/one/clip"), "/media/one");
    EXPECT_EQ(pointOf(table, "/media/one2/clip"), "/");
    EXPECT_EQ(pointOf(table, "/media/one/inner/deep/clip"), "/media/one/inner");
    EXPECT_EQ(pointOf(table, "/media/one/innermost"), "/media/one");
}

TEST(MountTable, TheUpperOfTwoMountsOverOnePointCounts)
{
    const MountTable table(parseMountInfo("22 1 8:2 / / rw - ext4 /dev/sda2 rw\n"
                                          "40 22 8:17 / /m rw - xfs /dev/sdb1 rw\n"
                                          "41 40 8:33 / /m rw - xfs /dev/sdc1 rw\n"));
    ASSERT_NE(table.find("/m/x"), nullptr);
    EXPECT_EQ(table.find("/m/x")->id, 41);
    EXPECT_EQ(table.mountedAt("/m"), &table.entries()[2]);
}

TEST(MountTable, TheUpperOfTwoRootsCounts)
{
    const MountTable table(parseMountInfo("1 0 0:1 / / rw - rootfs rootfs rw\n"
                                          "22 1 8:2 / / rw - ext4 /dev/sda2 rw\n"
                                          "40 22 8:17 / /m rw - xfs /dev/sdb1 rw\n"));
    EXPECT_EQ(table.find("/x")->id, 22);
    EXPECT_EQ(table.find("/m/x")->id, 40);
}

TEST(MountTable, AMountBelowACoveredFolderIsNotSeen)
{
    const MountTable table(parseMountInfo("22 1 8:2 / / rw - ext4 /dev/sda2 rw\n"
                                          "40 22 8:17 / /m/inner rw - xfs /dev/sdb1 rw\n"
                                          "41 22 8:33 / /m rw - xfs /dev/sdc1 rw\n"));
    EXPECT_EQ(table.find("/m/inner/x")->id, 41);
    EXPECT_EQ(table.mountedAt("/m/inner"), nullptr);
}

TEST(MountTable, WithoutAMountOfTheRootTheLongestAndLatestPointCounts)
{
    const MountTable table(parseMountInfo("40 22 8:17 / /m rw - xfs /dev/sdb1 rw\n"
                                          "41 22 8:33 / /m rw - xfs /dev/sdc1 rw\n"
                                          "42 41 8:34 / /m/in rw - xfs /dev/sdd1 rw\n"));
    EXPECT_EQ(table.find("/m/x")->id, 41);
    EXPECT_EQ(table.find("/m/in/x")->id, 42);
    EXPECT_EQ(table.find("/elsewhere"), nullptr);
}

TEST(MountTable, MountsThatNameEachOtherAsParentsEndTheSearch)
{
    const MountTable table(parseMountInfo("22 1 8:2 / / rw - ext4 /dev/sda2 rw\n"
                                          "40 41 8:17 / /m rw - xfs /dev/sdb1 rw\n"
                                          "41 40 8:18 / /m rw - xfs /dev/sdc1 rw\n"
                                          "50 50 8:19 / /n rw - xfs /dev/sdd1 rw\n"));
    EXPECT_EQ(table.find("/m/x")->id, 22);
    EXPECT_EQ(table.find("/n/x")->id, 22);
}

TEST(MountTable, AnEmptyTableHoldsNothing)
{
    EXPECT_EQ(MountTable().find("/"), nullptr);
    EXPECT_EQ(MountTable().find(""), nullptr);
}

TEST(MountTableReader, ReadsTheTableOfThisProcessOnceWhileNothingChanges)
{
    MountTableReader reader("/proc/self/mountinfo");
    const auto table = reader.current();
    ASSERT_FALSE(table->entries().empty());
    ASSERT_NE(table->find("/"), nullptr);
    const unsigned reads = reader.readCount();
    const auto again = reader.current();
    // Somebody else may have mounted something meanwhile; then the table is another one.
    EXPECT_EQ(again == table, reader.readCount() == reads);
}

TEST(MountTableReader, SeesEveryMountAndUnmountAtOnce)
{
    const PrivateMounts mounts;
    if (!mounts.available())
        GTEST_SKIP() << "needs the right to mount";
    const TemporaryFolder folder;
    MountTableReader reader("/proc/self/mountinfo");
    EXPECT_EQ(reader.current()->mountedAt(folder.path()), nullptr);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(PrivateMounts::mountMemory(folder.path()));
        EXPECT_NE(reader.current()->mountedAt(folder.path()), nullptr);
        ASSERT_TRUE(PrivateMounts::unmount(folder.path()));
        EXPECT_EQ(reader.current()->mountedAt(folder.path()), nullptr);
    }
    const unsigned reads = reader.readCount();
    EXPECT_EQ(reader.current(), reader.current());
    EXPECT_EQ(reader.readCount(), reads);
}

TEST(MountTableReader, AnUnreadableTableIsEmpty)
{
    MountTableReader reader("/proc/no/such/file");
    EXPECT_TRUE(reader.current()->entries().empty());
}
