#include "os/linux/PathText.h"

#include "common/TemporaryFolder.h"
#include "os/linux/PathOnDisk.h"

#include <gtest/gtest.h>

using namespace os;

TEST(PathText, BytesThatAreNoTextSurviveTheRoundTrip)
{
    const std::string name = "/m/\xff\x80 caf\xc3\xa9";
    EXPECT_EQ(pathBytes(widePath(name)), name);
}

TEST(PathText, AZeroInsideAPathMakesItNoPath)
{
    const LightweightString<wchar_t> cut(std::wstring(L"/etc/passwd\0.mov", 16));
    EXPECT_EQ(pathBytes(cut), "");
}

TEST(PathText, TidyPathDropsWhatSaysNothing)
{
    EXPECT_EQ(tidyPath("//a/./b///c/"), "/a/b/c");
    EXPECT_EQ(tidyPath("/"), "/");
    EXPECT_EQ(tidyPath("/."), "/");
    EXPECT_EQ(tidyPath("a//b/"), "a/b");
    EXPECT_EQ(tidyPath("/a/../b"), "/a/../b");
    EXPECT_EQ(tidyPath(""), "");
}

TEST(PathText, BelowNeedsAWholeComponent)
{
    EXPECT_TRUE(isAtOrBelow("/mnt/a", "/mnt/a"));
    EXPECT_TRUE(isAtOrBelow("/mnt/a/b", "/mnt/a"));
    EXPECT_FALSE(isAtOrBelow("/mnt/ab", "/mnt/a"));
    EXPECT_FALSE(isAtOrBelow("/mnt", "/mnt/a"));
    EXPECT_TRUE(isAtOrBelow("/mnt", "/"));
}

TEST(PathText, NetworkNamesHaveNoForeignSeparators)
{
    EXPECT_TRUE(hasForeignSeparators("/srv/media\\clip"));
    EXPECT_FALSE(hasForeignSeparators("/srv/media/clip"));
    EXPECT_FALSE(hasForeignSeparators("\\\\host\\share\\clip"));
}

TEST(PathOnDisk, APathIsTakenAsNamedWhenItIsThere)
{
    const TemporaryFolder folder;
    folder.folder("a");
    folder.file("a/b", "translated");
    EXPECT_EQ(pathAsFound(folder / "a\\b"), folder / "a/b");
    folder.file("a\\b", "as named");
    EXPECT_EQ(pathAsFound(folder / "a\\b"), folder / "a\\b");
}

TEST(PathOnDisk, AFileToBeMadeGoesToTheTranslatedFolderWhenThereIsOne)
{
    const TemporaryFolder folder;
    EXPECT_EQ(pathAsFound(folder / "a\\new"), folder / "a\\new");
    folder.folder("a");
    EXPECT_EQ(pathAsFound(folder / "a\\new"), folder / "a/new");
}
