#include "os/linux/DirectoryListing.h"

#include "common/TemporaryFolder.h"
#include "os/LastError.h"
#include "os/linux/PathText.h"
#include "os/linux/ScopedFd.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>
#include <thread>

using namespace os;

namespace {

std::vector<std::string> namesOf(const std::string& folder, const NameFilter& filter)
{
    FolderListing files;
    Progress progress;
    EXPECT_TRUE(listFolder(folder, filter, files, progress));
    std::vector<std::string> names;
    for (std::size_t i = 0; i < files.size(); ++i)
        names.push_back(pathBytes(files[i].name));
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
    FolderListing files;
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
    FolderListing files;
    Progress progress;
    ASSERT_TRUE(listFolder(folder.path(), {}, files, progress));
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0].name, L"file");
    EXPECT_EQ(files[1].name, L"link");
    EXPECT_EQ(files[1].size, 3u) << "the size of what the link points at";
}

TEST(DirectoryListing, AFolderThatCannotBeListedGivesNothing)
{
    const TemporaryFolder folder;
    FolderListing files;
    files.add(L"old", 1);
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
    FolderListing files;
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

TEST(DirectoryListing, ShowsProgressWithEveryQuestionToTheDisk)
{
    const TemporaryFolder folder;
    for (int i = 0; i < 1000; ++i)
        folder.file("f" + std::to_string(i));
    FolderListing files;
    Progress progress;
    ASSERT_TRUE(listFolder(folder.path(), {}, files, progress));
    EXPECT_GT(progress.steps(), 1000u) << "the sizes, by whichever thread, and the names";
}

TEST(DirectoryListing, TheFilterSeesNamesBeforeTheDiskIsAskedForSizes)
{
    const TemporaryFolder folder;
    for (int i = 0; i < 1000; ++i)
        folder.file("f" + std::to_string(i));
    FolderListing files;
    Progress progress;
    ASSERT_TRUE(listFolder(folder.path(), prefixFilter("f99"), files, progress));
    EXPECT_EQ(files.size(), 11u);
    EXPECT_GE(progress.steps(), 11u + 2u) << "a read with names and one without";
    EXPECT_LT(progress.steps(), 100u);
}

TEST(DirectoryListing, ThousandsOfFilesAreSortedAndHaveTheirOwnSizes)
{
    const TemporaryFolder folder;
    std::map<std::string, std::uint64_t> made;
    for (unsigned i = 0; i < 3000; ++i) {
        // Long names that begin alike, and some that begin like others and end there.
        const std::string name =
            "V00000000" + std::to_string(i * 2654435761u % 100'000) + (i % 3 ? ".mov" : "");
        made[name] = i;
        folder.file(name);
        std::filesystem::resize_file(folder / name, i);
    }
    FolderListing files;
    Progress progress;
    ASSERT_TRUE(listFolder(folder.path(), {}, files, progress));
    ASSERT_EQ(files.size(), made.size());
    std::size_t at = 0;
    for (const auto& [name, size] : made) {
        ASSERT_EQ(pathBytes(files[at].name), name);
        ASSERT_EQ(files[at].size, size) << name;
        ++at;
    }
}

TEST(DirectoryListing, FilesThatComeAndGoMeanwhileDisturbNoOthers)
{
    const TemporaryFolder folder;
    for (int i = 0; i < 2000; ++i)
        folder.file("stays" + std::to_string(i), "123");
    const std::jthread changing([&](const std::stop_token& isOver) {
        while (!isOver.stop_requested()) {
            for (int i = 0; i < 100; ++i)
                folder.file("comes" + std::to_string(i));
            for (int i = 0; i < 100; ++i)
                std::filesystem::remove(folder / ("comes" + std::to_string(i)));
        }
    });
    for (int round = 0; round < 20; ++round) {
        FolderListing files;
        Progress progress;
        ASSERT_TRUE(listFolder(folder.path(), prefixFilter("stays"), files, progress));
        EXPECT_EQ(files.size(), 2000u);
        ASSERT_TRUE(listFolder(folder.path(), {}, files, progress));
        for (std::size_t i = 0; i < files.size(); ++i)
            if (files[i].name.starts_with(L"stays")) {
                ASSERT_EQ(files[i].size, 3u);
            }
        EXPECT_GE(files.size(), 2000u);
    }
}

TEST(DirectoryListing, AFolderThatIsRemovedWhileItIsReadHasNoFiles)
{
    const TemporaryFolder folder;
    const std::string gone = folder.folder("gone");
    FolderListing files;
    Progress progress;
    // Its descriptor is all that is left of it.
    const ScopedFd open(::open(gone.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(open.isOpen());
    std::filesystem::remove(gone);
    EXPECT_TRUE(listFolder("/proc/self/fd/" + std::to_string(open.get()), {}, files, progress));
    EXPECT_TRUE(files.empty());
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
