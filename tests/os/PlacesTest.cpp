#include "os/linux/Places.h"

#include "PrivateMounts.h"
#include "common/TemporaryFolder.h"

#include <gtest/gtest.h>

using namespace os;
namespace fs = std::filesystem;

namespace {

// A mount table that says what the test wants of folders that are there.
class MadeUpMounts
{
public:
    explicit MadeUpMounts(const TemporaryFolder& folder) : folder_(folder)
    {
        lines_ = "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n";
    }
    void add(const std::string& point, const std::string& fsType, const std::string& source)
    {
        ++id_;
        lines_ += std::to_string(id_) + " 1 0:" + std::to_string(id_) + " / " + point + " rw - " + fsType +
                  ' ' + source + " rw\n";
    }
    Place find(const std::string& path)
    {
        MountTableReader reader(folder_.file("mountinfo", lines_));
        return Places(reader).find(path);
    }

private:
    const TemporaryFolder& folder_;
    std::string lines_;
    int id_ = 1;
};

}  // namespace

TEST(Places, AFileOfThisMachineIsOnNoServer)
{
    const TemporaryFolder folder;
    MadeUpMounts mounts(folder);
    const Place place = mounts.find(folder.file("clip"));
    ASSERT_NE(place.mount, nullptr);
    EXPECT_EQ(place.mount->mountPoint, "/");
    EXPECT_EQ(place.server, nullptr);
    EXPECT_TRUE(place.exists);
    EXPECT_EQ(place.path, folder / "clip");
}

TEST(Places, AMissingPathHasTheMountOfItsNearestAncestor)
{
    const TemporaryFolder folder;
    MadeUpMounts mounts(folder);
    mounts.add(folder.folder("disk"), "xfs", "/dev/sdb1");
    const Place place = mounts.find(folder / "disk/not/yet/made");
    ASSERT_NE(place.mount, nullptr);
    EXPECT_EQ(place.mount->mountPoint, folder / "disk");
    EXPECT_FALSE(place.exists);
    EXPECT_EQ(place.path, folder / "disk/not/yet/made");
}

TEST(Places, FollowsLinksToTheMountTheyLeadTo)
{
    const TemporaryFolder folder;
    MadeUpMounts mounts(folder);
    mounts.add(folder.folder("disk"), "xfs", "/dev/sdb1");
    folder.folder("disk/media");
    fs::create_symlink("disk/media", folder / "relative");
    fs::create_symlink(folder / "relative", folder / "absolute");
    const Place place = mounts.find(folder / "absolute/new");
    ASSERT_NE(place.mount, nullptr);
    EXPECT_EQ(place.mount->mountPoint, folder / "disk");
    EXPECT_EQ(place.path, folder / "disk/media/new");
}

TEST(Places, DotDotLeadsBackOut)
{
    const TemporaryFolder folder;
    MadeUpMounts mounts(folder);
    mounts.add(folder.folder("disk"), "xfs", "/dev/sdb1");
    const Place place = mounts.find(folder / "disk/../clip");
    EXPECT_EQ(place.mount->mountPoint, "/");
    EXPECT_EQ(place.path, folder / "clip");
    EXPECT_EQ(mounts.find("/../../..").path, "/");
}

TEST(Places, LinksThatGoInCirclesEnd)
{
    const TemporaryFolder folder;
    MadeUpMounts mounts(folder);
    fs::create_symlink("b", folder / "a");
    fs::create_symlink("a", folder / "b");
    const Place place = mounts.find(folder / "a/clip");
    EXPECT_FALSE(place.exists);
    ASSERT_NE(place.mount, nullptr);
    EXPECT_EQ(place.mount->mountPoint, "/");
}

TEST(Places, StopsAtTheFirstMountThatMayHang)
{
    const TemporaryFolder folder;
    MadeUpMounts mounts(folder);
    mounts.add(folder / "nas", "nfs4", "srv:/export");
    const Place place = mounts.find(folder / "nas/sub/clip");  // the folder is not even there
    ASSERT_NE(place.server, nullptr);
    EXPECT_EQ(place.server->mountPoint, folder / "nas");
    EXPECT_EQ(place.mount, place.server);
    EXPECT_EQ(place.path, folder / "nas/sub/clip");
}

TEST(Places, AMountBelowAServerIsReachedThroughTheServer)
{
    const TemporaryFolder folder;
    MadeUpMounts mounts(folder);
    mounts.add(folder / "nas", "nfs4", "srv:/export");
    MountTableReader reader(folder.file("mountinfo", "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
                                                     "2 1 0:5 / " +
                                                         (folder / "nas") +
                                                         " rw - nfs4 srv:/e rw\n"
                                                         "3 2 8:2 / " +
                                                         (folder / "nas/disk") + " rw - xfs /dev/sdb rw\n"));
    const Place place = Places(reader).find(folder / "nas/disk/clip");
    ASSERT_NE(place.server, nullptr);
    EXPECT_EQ(place.server->mountPoint, folder / "nas");
    ASSERT_NE(place.mount, nullptr);
    EXPECT_EQ(place.mount->mountPoint, folder / "nas/disk");
}

TEST(Places, ALinkToAServerIsNotEntered)
{
    const TemporaryFolder folder;
    MadeUpMounts mounts(folder);
    mounts.add(folder / "nas", "cifs", "//srv/share");
    fs::create_symlink("nas/media", folder / "link");
    const Place place = mounts.find(folder / "link/clip");
    ASSERT_NE(place.server, nullptr);
    EXPECT_EQ(place.path, folder / "nas/media/clip");
}

TEST(Places, ARootOnAServerMakesEveryPathOne)
{
    const TemporaryFolder folder;
    MountTableReader reader(folder.file("mountinfo", "1 0 0:5 / / rw - nfs srv:/root rw\n"));
    const Place place = Places(reader).find("/home/x");
    ASSERT_NE(place.server, nullptr);
    EXPECT_EQ(place.path, "/home/x");
}

TEST(Places, TakesARelativePathFromTheWorkingFolder)
{
    const TemporaryFolder folder;
    MadeUpMounts mounts(folder);
    mounts.add(folder.folder("disk"), "xfs", "/dev/sdb1");
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    const Place place = mounts.find("disk/clip");
    fs::current_path(before);
    EXPECT_EQ(place.mount->mountPoint, folder / "disk");
}

TEST(Places, WithoutATableThereIsNoMount)
{
    const TemporaryFolder folder;
    MountTableReader reader(folder / "missing");
    const Place place = Places(reader).find(folder.path());
    EXPECT_EQ(place.mount, nullptr);
    EXPECT_EQ(place.server, nullptr);
}
