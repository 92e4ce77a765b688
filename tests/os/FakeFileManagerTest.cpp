#include "os/Codes.h"
#include "os/LastError.h"
#include "os/testing/FakeOS.h"

#include <cerrno>

#include <gtest/gtest.h>

namespace {

using Items = std::vector<iFileManager::DirectoryItem>;
using Lines = std::vector<std::string>;

std::vector<std::wstring> names(const Items& items)
{
    std::vector<std::wstring> result;
    for (const auto& item : items)
        result.push_back(item.name.str());
    return result;
}

TEST(FakeFileManager, HoldsFilesAndFolders)
{
    FakeOS os;
    os.files().addFile(L"/m/Material/a.mov", "abc");
    iFileManager& files = *os.getFileManager();
    EXPECT_TRUE(files.fileExists(L"/m/Material/a.mov"));
    EXPECT_FALSE(files.fileExists(L"/m/Material"));
    EXPECT_FALSE(files.fileExists(L""));
    EXPECT_TRUE(files.directoryExists(L"/m/Material/"));
    EXPECT_FALSE(files.directoryExists(L"/m/Material/a.mov"));
    EXPECT_EQ(files.getFileSize(L"/m/Material/a.mov"), 3U);
    EXPECT_EQ(files.getFileSize(L"/m/Material"), 0U);
    EXPECT_EQ(files.getFileSize(L"/m/none"), 0U);
    EXPECT_EQ(os.files().contents(L"/m/Material/a.mov"), "abc");
}

TEST(FakeFileManager, TakesBackslashesForSeparatorsWhereThePathDoesNotExist)
{
    FakeOS os;
    os.files().addFile(L"/srv/media/a", "1");
    EXPECT_TRUE(os.getFileManager()->fileExists(L"/srv/media\\a"));
    os.files().addFile(L"/srv/media\\a", "22");
    EXPECT_EQ(os.getFileManager()->getFileSize(L"/srv/media\\a"), 2U);
}

TEST(FakeFileManager, CreationCodeDecidesWhetherAFileMustExist)
{
    FakeOS os;
    os.files().addFile(L"/old", "contents");
    iFileManager& files = *os.getFileManager();
    EXPECT_FALSE(files.open(L"/new", 3, os::creationOpen, 4, 0));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    EXPECT_FALSE(files.open(L"/old", 2, os::creationNew, 4, 0));
    EXPECT_EQ(lastError(), errorFromErrno(EEXIST));
    EXPECT_TRUE(files.open(L"/new1", 2, os::creationNew, 4, 0));
    EXPECT_TRUE(files.open(L"/new2", 2, os::creationOpenOrNew, 4, 0));
    EXPECT_TRUE(files.open(L"/new3", 3, os::creationOpenOrNewRW, 4, 32));
    EXPECT_TRUE(files.open(L"/old", 2, os::creationOpenOrNew, 4, 0));
    EXPECT_TRUE(files.open(L"/old", 3, os::creationOpenOrNewRW, 4, 0));
    EXPECT_EQ(os.files().contents(L"/old"), "contents");
    EXPECT_FALSE(files.open(L"/old", 3, 4, 4, 0));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
}

TEST(FakeFileManager, OpensNeitherFoldersNorFilesInMissingFolders)
{
    FakeOS os;
    os.files().addFolder(L"/m");
    EXPECT_FALSE(os.getFileManager()->open(L"/m", 1, 0, 4, 0));
    EXPECT_EQ(lastError(), errorFromErrno(EISDIR));
    EXPECT_FALSE(os.getFileManager()->open(L"/none/new", 2, 2, 4, 0));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
}

TEST(FakeFileManager, LogsEveryOpenWithItsFiveArgumentsAndItsResult)
{
    FakeOS os;
    os.files().addFile(L"/m/a");
    const auto file = os.getFileManager()->open(L"/m/a", 0x12, 2, 4, 7);
    EXPECT_FALSE(os.getFileManager()->open(L"/m/b", 1, 0, 4, 0));
    EXPECT_EQ(os.log().lines({fake::Op::open}), (Lines{"open /m/a 18 2 4 7", "open /m/b 1 0 4 0 = 10002"}));
    EXPECT_EQ(os.log().calls(fake::Op::open)[0].handle, 1U);
    EXPECT_EQ(os.log().count(fake::Op::open, L"/m/b"), 1U);
}

TEST(FakeFileManager, AnOpenCanFailAsPlannedAlsoWithAHandleThatIsNotOpen)
{
    FakeOS os;
    os.files().addFile(L"/a");
    os.faults().failNth(fake::Op::open, 2, errorFromErrno(EPERM));
    EXPECT_TRUE(os.getFileManager()->open(L"/a", 1, 0, 4, 0));
    EXPECT_FALSE(os.getFileManager()->open(L"/a", 1, 0, 4, 3));
    EXPECT_EQ(lastError(), 0x10001U);
    os.faults().add({.op = fake::Op::open, .code = 77, .closedHandle = true});
    const auto closed = os.getFileManager()->open(L"/a", 1, 0, 4, 0);
    ASSERT_TRUE(closed);
    EXPECT_FALSE(closed->isOpen());
    EXPECT_EQ(closed->getAsyncCapability(), 0U);
    EXPECT_EQ(lastError(), 77U);
    EXPECT_EQ(os.live().files, 0U);
}

TEST(FakeFileManager, ListsRegularFilesSortedByTheBytesOfTheirNames)
{
    FakeOS os;
    os.files().addFile(L"/m/b.mov", "12");
    os.files().addFile(L"/m/.hidden");
    os.files().addFile(L"/m/B.mov");
    os.files().addFile(L"/m/noDot", "1");
    os.files().addFile(L"/m/\u00e4");
    os.files().addFile(L"/m/\xDC80");  // the byte 0x80, which no UTF-8 begins with
    os.files().addFile(L"/m/sub/inner.mov");
    os.files().addFile(L"/mm/other");
    os.files().addLink(L"/m/link", L"/mm/other");
    os.files().addLink(L"/m/toFolder", L"/mm");
    os.files().addLink(L"/m/toNothing", L"/none");
    Items items;
    EXPECT_TRUE(os.getFileManager()->listDirectory(L"/m/*.*", items));
    EXPECT_EQ(names(items), (std::vector<std::wstring>{L".hidden", L"B.mov", L"b.mov", L"link", L"noDot",
                                                       L"\xDC80", L"\u00e4"}));
    EXPECT_EQ(items[2].size, 2U);
    FolderListing listing;
    EXPECT_TRUE(os.getFileManager()->listFiles(L"/m/*.*", listing));
    ASSERT_EQ(listing.size(), items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        EXPECT_EQ(items[i].name, listing[i].name);
        EXPECT_EQ(items[i].size, listing[i].size);
    }
}

TEST(FakeFileManager, WildcardsCountInTheLastPartOnly)
{
    FakeOS os;
    os.files().addFile(L"/m*/abc.mov");
    os.files().addFile(L"/m*/abc.mov.index");
    os.files().addFile(L"/mx/abc.mov.other");
    Items items;
    EXPECT_TRUE(os.getFileManager()->listDirectory(L"/m*/abc.mov.*", items));
    EXPECT_EQ(names(items), (std::vector<std::wstring>{L"abc.mov.index"}));
    EXPECT_TRUE(os.getFileManager()->listDirectory(L"/m*/a?c*v", items));
    EXPECT_EQ(names(items), (std::vector<std::wstring>{L"abc.mov"}));
    EXPECT_TRUE(os.getFileManager()->listFilesWithPrefix(L"/m*", L"abc.mov.", items));
    EXPECT_EQ(names(items), (std::vector<std::wstring>{L"abc.mov.index"}));
    EXPECT_TRUE(os.getFileManager()->listFilesWithPrefix(L"/m*/", L"a?c", items));
    EXPECT_TRUE(items.empty());
}

TEST(FakeFileManager, AFolderThatCannotBeListedGivesNoItems)
{
    FakeOS os;
    os.files().addFile(L"/m/a");
    os.files().setListable(L"/m", false);
    Items items{{L"old", 1}};
    EXPECT_FALSE(os.getFileManager()->listDirectory(L"/m/*.*", items));
    EXPECT_TRUE(items.empty());
    EXPECT_EQ(lastError(), errorFromErrno(EACCES));
    EXPECT_FALSE(os.getFileManager()->listDirectory(L"/none/*.*", items));
    os.files().setListable(L"/m", true);
    os.faults().failNext(fake::Op::listDirectory, errorFromErrno(EIO));
    EXPECT_FALSE(os.getFileManager()->listDirectory(L"/m/*.*", items));
    EXPECT_TRUE(os.getFileManager()->listDirectory(L"/m/*.*", items));
    EXPECT_EQ(items.size(), 1U);
    FolderListing listing;
    listing.add(L"old", 1);
    os.faults().failNext(fake::Op::listDirectory, errorFromErrno(EIO));
    EXPECT_FALSE(os.getFileManager()->listFiles(L"/m/*.*", listing));
    EXPECT_TRUE(listing.empty());
}

TEST(FakeFileManager, FollowsLinksInEveryPlace)
{
    FakeOS os;
    os.files().addFile(L"/real/clip", "data");
    os.files().addLink(L"/folder", L"/real");
    os.files().addLink(L"/real/alias", L"clip");
    os.files().addLink(L"/ring", L"/ring");
    iFileManager& files = *os.getFileManager();
    EXPECT_EQ(files.getFileSize(L"/folder/alias"), 4U);
    EXPECT_EQ(files.resolvePath(L"/folder/alias"), iFileManager::Path(L"/real/clip"));
    EXPECT_EQ(files.resolvePath(L"/none/x"), iFileManager::Path(L"/none/x"));
    EXPECT_FALSE(files.fileExists(L"/ring"));
    EXPECT_TRUE(files.deleteFile(L"/folder/alias"));
    EXPECT_TRUE(os.files().has(L"/real/clip"));
    EXPECT_TRUE(files.open(L"/folder/new", 2, 1, 4, 0));
    EXPECT_TRUE(os.files().has(L"/real/new"));
}

TEST(FakeFileManager, DeletesFilesOnly)
{
    FakeOS os;
    os.files().addFile(L"/m/a");
    iFileManager& files = *os.getFileManager();
    EXPECT_FALSE(files.deleteFile(L"/m"));
    EXPECT_EQ(lastError(), errorFromErrno(EISDIR));
    EXPECT_FALSE(files.deleteFile(L"/m/none"));
    os.faults().failNext(fake::Op::deleteFile, errorFromErrno(EPERM));
    EXPECT_FALSE(files.deleteFile(L"/m/a"));
    EXPECT_TRUE(os.files().has(L"/m/a"));
    EXPECT_TRUE(files.deleteFile(L"/m/a"));
    EXPECT_FALSE(os.files().has(L"/m/a"));
}

TEST(FakeFileManager, RenamesFilesAndReplacesNothing)
{
    FakeOS os;
    FakeFileManager& files = os.files();
    files.addFile(L"/m/a", "a");
    files.addFile(L"/m/b", "b");
    const Qz::Ptr<iFile> open = files.open(L"/m/b", os::accessRead, os::creationOpen, os::shareAll, 0);
    EXPECT_FALSE(files.renameFile(L"/m/a", L"/m/b"));
    EXPECT_EQ(lastError(), errorFromErrno(EEXIST));
    EXPECT_FALSE(files.renameFile(L"/m", L"/n"));
    EXPECT_EQ(lastError(), errorFromErrno(EISDIR));
    EXPECT_FALSE(files.renameFile(L"/m/none", L"/m/c"));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    EXPECT_FALSE(files.renameFile(L"/m/a", L"/nowhere/c"));
    os.faults().failNext(fake::Op::renameFile, errorFromErrno(EIO));
    EXPECT_FALSE(files.renameFile(L"/m/a", L"/m/c"));
    EXPECT_EQ(lastError(), errorFromErrno(EIO));
    EXPECT_TRUE(files.renameFile(L"/m/a", L"/m/c"));
    EXPECT_FALSE(files.has(L"/m/a"));
    EXPECT_EQ(files.contents(L"/m/c"), "a");
    FILE_INFO info;
    EXPECT_TRUE(files.deleteFile(L"/m/b"));
    EXPECT_TRUE(open->getInfo(&info));
    EXPECT_EQ(info.links, 0U);
}

TEST(FakeFileManager, DeletesTreesButNoRootAndNoMount)
{
    FakeOS os;
    os.files().addDrive(L"/media/disk/");
    os.files().addFile(L"/media/disk/clip/a/b");
    os.files().addFile(L"/media/disk/clips");
    os.files().addLink(L"/media/disk/clip/out", L"/media/disk/clips");
    iFileManager& files = *os.getFileManager();
    for (const wchar_t* refused : {L"", L"media/disk/clip", L"/", L"//", L"/media/disk", L"/media/"})
        EXPECT_FALSE(files.deleteTree(refused)) << refused;
    EXPECT_FALSE(files.deleteTree(L"/media/disk/none"));
    EXPECT_TRUE(files.deleteTree(L"/media/disk/clip"));
    EXPECT_FALSE(os.files().hasFolder(L"/media/disk/clip"));
    EXPECT_FALSE(os.files().has(L"/media/disk/clip/a/b"));
    EXPECT_TRUE(os.files().has(L"/media/disk/clips"));
    EXPECT_TRUE(files.deleteTree(L"/media/disk/clips"));
}

TEST(FakeFileManager, MakesOneFolderAtATime)
{
    FakeOS os;
    iFileManager& files = *os.getFileManager();
    EXPECT_FALSE(files.createDirectory(L"/a/b"));
    EXPECT_TRUE(files.createDirectory(L"/a/"));
    EXPECT_TRUE(files.createDirectory(L"/a/b"));
    EXPECT_FALSE(files.createDirectory(L"/a/b"));
    EXPECT_EQ(lastError(), errorFromErrno(EEXIST));
    os.faults().failOn(L"/a/c", fake::Op::createDirectory, errorFromErrno(ENOSPC));
    EXPECT_FALSE(files.createDirectory(L"/a/c"));
    EXPECT_TRUE(files.createDirectory(L"/a/d"));
}

TEST(FakeFileManager, WhatIsNotWritableRefusesChanges)
{
    FakeOS os;
    os.files().addFile(L"/m/a", "old");
    iFileManager& files = *os.getFileManager();
    EXPECT_TRUE(files.isWritable(L"/m"));
    EXPECT_FALSE(files.isWritable(L"/none"));
    os.files().setWritable(L"/m", false);
    EXPECT_FALSE(files.isWritable(L"/m/"));
    EXPECT_FALSE(files.open(L"/m/new", 2, 2, 4, 0));
    EXPECT_EQ(lastError(), errorFromErrno(EACCES));
    EXPECT_FALSE(files.createDirectory(L"/m/sub"));
    EXPECT_FALSE(files.deleteFile(L"/m/a"));
    os.files().setWritable(L"/m/a", false);
    EXPECT_FALSE(files.open(L"/m/a", 2, 2, 4, 0));
    EXPECT_FALSE(files.replaceFile(L"/m/a", "new"));
    EXPECT_TRUE(files.open(L"/m/a", 1, 0, 4, 0));
    EXPECT_EQ(os.files().contents(L"/m/a"), "old");
    os.files().setWritable(L"D:\\", true);
    EXPECT_TRUE(files.isWritable(L"D:\\"));
    EXPECT_EQ(os.log().count(fake::Op::isWritable, L"D:\\"), 1U);
}

TEST(FakeFileManager, ReadsAndReplacesWholeFiles)
{
    FakeOS os;
    iFileManager& files = *os.getFileManager();
    EXPECT_TRUE(files.replaceFile(L"/list", "one"));
    std::string contents = "rest";
    EXPECT_FALSE(files.readWholeFile(L"/list", 2, contents));
    EXPECT_TRUE(contents.empty());
    EXPECT_TRUE(files.readWholeFile(L"/list", 3, contents));
    EXPECT_EQ(contents, "one");
    os.faults().failNext(fake::Op::replaceFile, errorFromErrno(ENOSPC));
    EXPECT_FALSE(files.replaceFile(L"/list", "two and more"));
    EXPECT_EQ(os.files().contents(L"/list"), "one");
    EXPECT_TRUE(files.replaceFile(L"/list", "2"));
    EXPECT_EQ(os.files().contents(L"/list"), "2");
    EXPECT_FALSE(files.readWholeFile(L"/none", 9, contents));
    EXPECT_TRUE(contents.empty());
}

TEST(FakeFileManager, DirectPathsAreOpenedAsTheyAreWithoutTransfers)
{
    FakeOS os;
    os.files().addDirect(L"/dev/tape", "xyz");
    os.files().addFile(L"/m/a");
    iFileManager& files = *os.getFileManager();
    EXPECT_TRUE(files.isOpenedDirectly(L"/dev/tape"));
    EXPECT_FALSE(files.isOpenedDirectly(L"/m/a"));
    EXPECT_FALSE(files.isOpenedDirectly(L"/m"));
    EXPECT_FALSE(files.isOpenedDirectly(L"/none"));
    const auto file = files.open(L"/dev/tape", 1, 0, 0, 0);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->getAsyncCapability(), 0U);
}

TEST(FakeFileManager, TheAsyncCapabilityOfAFileCanBeSet)
{
    FakeOS os;
    os.files().addFile(L"/a");
    const auto file = os.getFileManager()->open(L"/a", 1, 0, 4, 0);
    EXPECT_EQ(file->getAsyncCapability(), 1U);
    os.files().setAsyncCapability(L"/a", 2);
    EXPECT_EQ(file->getAsyncCapability(), 2U);
}

TEST(FakeFileManager, QuestionsAboutTheTextAloneTouchNoFile)
{
    FakeOS os;
    EXPECT_TRUE(os.getFileManager()->hasDirectoryPart(L"/m/a"));
    EXPECT_FALSE(os.getFileManager()->hasDirectoryPart(L"a"));
    EXPECT_FALSE(os.getFileManager()->hasDirectoryPart(L""));
    EXPECT_EQ(os.getFileManager()->getPathSeparator(), L'/');
    EXPECT_EQ(os.log().fileSystemCalls(), 0U);
    EXPECT_FALSE(os.getFileManager()->fileExists(L"/m/a"));
    EXPECT_EQ(os.log().fileSystemCalls(), 1U);
    os.files().setPathSeparator(L'\\');
    EXPECT_EQ(os.getFileManager()->getPathSeparator(), L'\\');
}

TEST(FakeFileManager, KeepsReportsAndFilesToRemoveAtTheEnd)
{
    FakeOS os;
    os.files().addFile(L"/lock");
    os.getFileManager()->reportError(L"/m/link", 5);
    os.getFileManager()->registerForRemoval(L"/lock");
    ASSERT_EQ(os.files().reportedErrors().size(), 1U);
    EXPECT_EQ(os.files().reportedErrors()[0].first, iFileManager::Path(L"/m/link"));
    EXPECT_EQ(os.files().reportedErrors()[0].second, 5U);
    ASSERT_EQ(os.files().registeredForRemoval().size(), 1U);
    os.files().removeRegistered();
    EXPECT_FALSE(os.files().has(L"/lock"));
}

}  // namespace
