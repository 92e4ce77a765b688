#include "os/linux/NetworkShares.h"

#include <gtest/gtest.h>

using namespace os;

namespace {

std::string nameOf(const std::string& fsType, const std::string& source, const std::string& root = "/")
{
    MountEntry mount;
    mount.fsType = fsType;
    mount.source = source;
    mount.root = root;
    return networkNameOfMount(mount);
}

}  // namespace

TEST(NetworkShares, NamesMountsByTheirSource)
{
    EXPECT_EQ(nameOf("cifs", "//srv/share"), "\\\\srv\\share");
    EXPECT_EQ(nameOf("cifs", "\\\\srv\\share\\sub"), "\\\\srv\\share\\sub");
    EXPECT_EQ(nameOf("cifs", "//srv/share/"), "\\\\srv\\share");
    EXPECT_EQ(nameOf("nfs", "srv:/export"), "\\\\srv\\export");
    EXPECT_EQ(nameOf("nfs4", "srv:/"), "\\\\srv");
    EXPECT_EQ(nameOf("nfs4", "[fe80::1]:/export/a"), "\\\\fe80::1\\export\\a");
    EXPECT_EQ(nameOf("nfs", "10.0.0.7:/a/b"), "\\\\10.0.0.7\\a\\b");
    EXPECT_EQ(nameOf("fuse.sshfs", "user@host:/path/x"), "\\\\host\\path\\x");
    EXPECT_EQ(nameOf("fuse.sshfs", "host:media"), "\\\\host\\media");
    EXPECT_EQ(nameOf("fuse.sshfs", "user@host:"), "\\\\host");
    EXPECT_EQ(nameOf("fuse.glusterfs", "srv:vol0"), "\\\\srv\\vol0");
    EXPECT_EQ(nameOf("ceph", "10.0.0.1:6789,10.0.0.2:6789:/media"), "\\\\10.0.0.1\\media");
    EXPECT_EQ(nameOf("lustre", "10.0.0.1@tcp:/scratch"), "\\\\10.0.0.1\\scratch");
    EXPECT_EQ(nameOf("davfs", "https://host:8443/dav/x"), "\\\\host\\dav\\x");
}

TEST(NetworkShares, ASourceWithoutAMachineHasNoName)
{
    for (const char* source : {"", "none", "beegfs_nodev", "/dev/sdb1", ":/export", "//", "/a:/b"})
        EXPECT_EQ(nameOf("9p", source), "") << source;
}

TEST(NetworkShares, AMountOfAFolderInsideTheExportNamesThatFolderOnce)
{
    EXPECT_EQ(nameOf("cifs", "//srv/share", "/sub"), "\\\\srv\\share\\sub");
    EXPECT_EQ(nameOf("nfs", "srv:/export/sub", "/sub"), "\\\\srv\\export\\sub");
}

TEST(NetworkShares, TheRestOfAPathFollowsWithBackslashes)
{
    EXPECT_EQ(networkNameBelow("\\\\srv\\s", "/mnt/nas", "/mnt/nas/a/b"), "\\\\srv\\s\\a\\b");
    EXPECT_EQ(networkNameBelow("\\\\srv\\s", "/mnt/nas", "/mnt/nas"), "\\\\srv\\s");
    EXPECT_EQ(networkNameBelow("\\\\srv\\s", "/mnt/nas", "/mnt/nas/"), "\\\\srv\\s");
    EXPECT_EQ(networkNameBelow("\\\\srv\\s", "/", "/a"), "\\\\srv\\s\\a");
}

TEST(NetworkShares, NamesPathsInExportedFoldersByTheInnermost)
{
    const std::vector<SambaShare> shares{{"all", "/srv/"}, {"media", "/srv/media/"}, {"root", "/"}};
    EXPECT_EQ(networkNameInShares("/srv/media/clip", "EDIT3", shares), "\\\\EDIT3\\media\\clip");
    EXPECT_EQ(networkNameInShares("/srv/media", "EDIT3", shares), "\\\\EDIT3\\media");
    EXPECT_EQ(networkNameInShares("/srv/media2/clip", "EDIT3", shares), "\\\\EDIT3\\all\\media2\\clip");
    EXPECT_EQ(networkNameInShares("/home", "EDIT3", shares), "\\\\EDIT3\\root\\home");
    EXPECT_EQ(networkNameInShares("/home", "EDIT3", {{"all", "/srv/"}}), "");
}
