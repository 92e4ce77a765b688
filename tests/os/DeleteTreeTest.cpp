#include "os/linux/DeleteTree.h"

#include "PrivateMounts.h"
#include "common/TemporaryFolder.h"
#include "os/LastError.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace os;
namespace fs = std::filesystem;

namespace {

bool removeTree(const std::string& path)
{
    Progress progress;
    return deleteTree(path, progress);
}

}  // namespace

TEST(DeleteTree, RemovesAFile)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(removeTree(folder.file("clip", "x")));
    EXPECT_FALSE(fs::exists(folder / "clip"));
}

TEST(DeleteTree, RemovesAFolderWithAllItHolds)
{
    const TemporaryFolder folder;
    folder.folder("tree/a/b/c");
    folder.file("tree/a/b/c/.hidden");
    folder.file("tree/a/one");
    ASSERT_EQ(::mkfifo((folder / "tree/pipe").c_str(), 0600), 0);
    folder.file("other");
    EXPECT_TRUE(removeTree(folder / "tree/"));
    EXPECT_FALSE(fs::exists(folder / "tree"));
    EXPECT_TRUE(fs::exists(folder / "other"));
}

TEST(DeleteTree, FollowsNoLink)
{
    const TemporaryFolder folder;
    folder.folder("kept");
    folder.file("kept/clip");
    folder.folder("tree");
    fs::create_directory_symlink(folder / "kept", folder / "tree/link");
    EXPECT_TRUE(removeTree(folder / "tree"));
    EXPECT_TRUE(fs::exists(folder / "kept/clip"));
}

TEST(DeleteTree, RemovesALinkAndNotWhatItPointsAt)
{
    const TemporaryFolder folder;
    folder.folder("kept");
    folder.file("kept/clip");
    fs::create_directory_symlink(folder / "kept", folder / "link");
    EXPECT_TRUE(removeTree(folder / "link"));
    EXPECT_FALSE(fs::is_symlink(folder / "link"));
    EXPECT_TRUE(fs::exists(folder / "kept/clip"));
}

TEST(DeleteTree, RefusesPathsThatAreNoPlaceOfTheirOwn)
{
    const TemporaryFolder folder;
    folder.folder("a");
    folder.file("clip");
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    for (const std::string path : {"", "/", "//", "/.", "/./", "clip", "./clip", "a", ".", ".."}) {
        setLastErrno(ENOSPC);
        EXPECT_FALSE(removeTree(path)) << path;
        EXPECT_EQ(lastError(), errorFromErrno(EINVAL)) << path;
    }
    EXPECT_FALSE(removeTree(folder / "a/.."));
    EXPECT_FALSE(removeTree(folder / "a/../"));
    fs::current_path(before);
    EXPECT_TRUE(fs::exists(folder / "clip"));
    EXPECT_TRUE(fs::exists(folder / "a"));
}

TEST(DeleteTree, AMissingPathFails)
{
    const TemporaryFolder folder;
    EXPECT_FALSE(removeTree(folder / "missing"));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
}

TEST(DeleteTree, CrossesNoMount)
{
    const PrivateMounts mounts;
    if (!mounts.available())
        GTEST_SKIP() << "needs the right to mount";
    const TemporaryFolder folder;
    const std::string inner = folder.folder("tree/inner");
    folder.file("tree/clip");
    ASSERT_TRUE(PrivateMounts::mountMemory(inner));
    folder.file("tree/inner/kept");
    EXPECT_FALSE(removeTree(folder / "tree"));
    EXPECT_EQ(lastError(), errorFromErrno(EBUSY));
    EXPECT_TRUE(fs::exists(folder / "tree/inner/kept"));
    EXPECT_FALSE(fs::exists(folder / "tree/clip"));
    PrivateMounts::unmount(inner);
}

TEST(DeleteTree, CrossesNoMountOfTheSameFileSystem)
{
    const PrivateMounts mounts;
    if (!mounts.available())
        GTEST_SKIP() << "needs the right to mount";
    const TemporaryFolder folder;
    const std::string kept = folder.folder("kept");
    folder.file("kept/clip");
    const std::string inner = folder.folder("tree/inner");
    ASSERT_TRUE(PrivateMounts::bind(kept, inner));
    EXPECT_FALSE(removeTree(folder / "tree"));
    EXPECT_TRUE(fs::exists(folder / "kept/clip"));
    EXPECT_FALSE(removeTree(inner)) << "a mount point itself";
    EXPECT_EQ(lastError(), errorFromErrno(EBUSY));
    EXPECT_TRUE(fs::exists(folder / "kept/clip"));
    PrivateMounts::unmount(inner);
}
