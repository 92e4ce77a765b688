#include "os/linux/DirectoryListing.h"

#include "common/TemporaryFolder.h"
#include "os/LastError.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace os;

namespace {

std::vector<std::string> namesOf(const std::string& folder, const NameFilter& filter)
{
    std::vector<ListedFile> files;
    Progress progress;
    EXPECT_TRUE(listFolder(folder, filter, files, progress));
    std::vector<std::string> names;
    for (const ListedFile& file : files)
        names.push_back(file.name);
    return names;
}

using Names = std::vector<std::string>;

}  // namespace

TEST(DirectoryListing, SortsByTheBytesOfTheNames)
{
    const TemporaryFolder folder;
    for (const char* name : {"b", "a", "B", "\xc3\xa9", "\xff", ".hidden", "a.mov", "10", "9"})
        folder.file(name);
    EXPECT_EQ(namesOf(folder.path(), {}),
              (Names{".hidden", "10", "9", "B", "a", "a.mov", "b", "\xc3\xa9", "\xff"}));
}

TEST(DirectoryListing, TellsSizes)
{
    const TemporaryFolder folder;
    folder.file("empty");
    folder.file("five", "12345");
    std::vector<ListedFile> files;
    Progress progress;
    ASSERT_TRUE(listFolder(folder.path(), {}, files, progress));
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0].size, 0u);
    EXPECT_EQ(files[1].size, 5u);
}

TEST(DirectoryListing, HoldsOnlyRegularFilesAndLinksToThem)
{
    const TemporaryFolder folder;
    folder.file("file", "123");
    folder.folder("folder");
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("file", folder / "link");
    std::filesystem::create_symlink("pipe", folder / "linkToPipe");
    std::filesystem::create_symlink("folder", folder / "linkToFolder");
    std::filesystem::create_symlink("nowhere", folder / "linkToNothing");
    std::vector<ListedFile> files;
    Progress progress;
    ASSERT_TRUE(listFolder(folder.path(), {}, files, progress));
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0].name, "file");
    EXPECT_EQ(files[1].name, "link");
    EXPECT_EQ(files[1].size, 3u) << "the size of what the link points at";
}

TEST(DirectoryListing, AFolderThatCannotBeListedGivesNothing)
{
    const TemporaryFolder folder;
    std::vector<ListedFile> files{{"old", 1}};
    Progress progress;
    EXPECT_FALSE(listFolder(folder / "missing", {}, files, progress));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    EXPECT_TRUE(files.empty());
    EXPECT_FALSE(listFolder(folder.file("file"), {}, files, progress));
    EXPECT_EQ(lastError(), errorFromErrno(ENOTDIR));
}

TEST(DirectoryListing, APipeInPlaceOfTheFolderDoesNotHang)
{
    const TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    std::vector<ListedFile> files;
    Progress progress;
    EXPECT_FALSE(listFolder(folder / "pipe", {}, files, progress));
}

TEST(DirectoryListing, StarDotStarIsEveryName)
{
    const TemporaryFolder folder;
    for (const char* name : {"nodot", "a.mov", ".hidden"})
        folder.file(name);
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("*.*")), (Names{".hidden", "a.mov", "nodot"}));
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("*")), (Names{".hidden", "a.mov", "nodot"}));
}

TEST(DirectoryListing, WildcardsMatchAsUsual)
{
    const TemporaryFolder folder;
    for (const char* name : {"abc", "abc.mov", "abc.mov.idx", "abd.mov", "ab", "ABC.mov"})
        folder.file(name);
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("abc.mov.*")), (Names{"abc.mov.idx"}));
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("*.mov")), (Names{"ABC.mov", "abc.mov", "abd.mov"}));
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("ab?.mov")), (Names{"abc.mov", "abd.mov"}));
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("a*b*.mov*")),
              (Names{"abc.mov", "abc.mov.idx", "abd.mov"}));
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("ab")), (Names{"ab"}));
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("")), Names{});
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("?")), Names{});
}

TEST(DirectoryListing, AQuestionMarkIsOneCharacterAndNotOneByte)
{
    const TemporaryFolder folder;
    folder.file("\xc3\xa9.mov");
    folder.file("\xff.mov");
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("?.mov")).size(), 2u);
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("??.mov")).size(), 0u);
}

TEST(DirectoryListing, BracketsAreNoWildcards)
{
    const TemporaryFolder folder;
    folder.file("[ab].mov");
    folder.file("a.mov");
    EXPECT_EQ(namesOf(folder.path(), wildcardFilter("[ab].*")), (Names{"[ab].mov"}));
}

TEST(DirectoryListing, APrefixIsTakenLiterally)
{
    const TemporaryFolder folder;
    for (const char* name : {"take*.mov.idx", "take?.mov.idx", "takeX.mov.idx", "take*.mov"})
        folder.file(name);
    EXPECT_EQ(namesOf(folder.path(), prefixFilter("take*.mov.")), (Names{"take*.mov.idx"}));
}

TEST(DirectoryListing, ShowsProgressForEveryEntry)
{
    const TemporaryFolder folder;
    for (int i = 0; i < 10; ++i)
        folder.file("f" + std::to_string(i));
    std::vector<ListedFile> files;
    Progress progress;
    ASSERT_TRUE(listFolder(folder.path(), prefixFilter("none"), files, progress));
    EXPECT_GE(progress.steps(), 10u);
}

TEST(DirectoryListing, WildcardsThatAllButMatchEndInTime)
{
    const std::string name(200, 'a');
    std::string pattern;
    for (int i = 0; i < 60; ++i)
        pattern += "a*";
    EXPECT_FALSE(wildcardFilter(pattern + "b")(name));
    EXPECT_TRUE(wildcardFilter(pattern)(name));
}
