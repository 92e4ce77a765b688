#include "FileManagerFixture.h"
#include "os/Codes.h"
#include "os/LastError.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

class LinuxFileManager : public FileManagerFixture
{
};

using Names = std::vector<std::string>;

TEST_F(LinuxFileManager, TellsSizesAndExistence)
{
    folder.file("five", "12345");
    fs::create_symlink("five", folder / "link");
    fs::create_symlink("nowhere", folder / "broken");
    EXPECT_EQ(files.getFileSize(at("five")), 5u);
    EXPECT_EQ(files.getFileSize(at("link")), 5u);
    EXPECT_EQ(files.getFileSize(at("missing")), 0u);
    EXPECT_EQ(files.getFileSize(wide(folder.path())), 0u);
    EXPECT_TRUE(files.fileExists(at("five")));
    EXPECT_TRUE(files.fileExists(at("link")));
    EXPECT_FALSE(files.fileExists(at("broken")));
    EXPECT_FALSE(files.fileExists(at("missing")));
    EXPECT_FALSE(files.fileExists(wide(folder.path())));
    EXPECT_FALSE(files.fileExists(L""));
    EXPECT_FALSE(files.fileExists({}));
}

TEST_F(LinuxFileManager, SizesBeyondFourGigabytesAreWhole)
{
    ASSERT_EQ(::truncate(folder.file("big").c_str(), 5'000'000'000), 0);
    EXPECT_EQ(files.getFileSize(at("big")), 5'000'000'000u);
}

TEST_F(LinuxFileManager, DeletesFilesAndLinksButNoFolders)
{
    folder.file("clip");
    fs::create_symlink("clip", folder / "link");
    folder.folder("sub");
    EXPECT_TRUE(files.deleteFile(at("link")));
    EXPECT_TRUE(fs::exists(folder / "clip"));
    EXPECT_TRUE(files.deleteFile(at("clip")));
    EXPECT_FALSE(files.deleteFile(at("clip")));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    EXPECT_FALSE(files.deleteFile(at("sub")));
    EXPECT_EQ(lastError(), errorFromErrno(EISDIR));
    EXPECT_FALSE(files.deleteFile(L""));
    EXPECT_TRUE(fs::exists(folder / "sub"));
}

TEST_F(LinuxFileManager, RenamesFilesAndReplacesNothing)
{
    folder.file("clip", "clip");
    folder.file("other", "other");
    folder.folder("sub");
    EXPECT_FALSE(files.renameFile(at("clip"), at("other")));
    EXPECT_EQ(lastError(), errorFromErrno(EEXIST));
    EXPECT_EQ(contentsOf(folder / "other"), "other");
    EXPECT_FALSE(files.renameFile(at("missing"), at("new")));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    EXPECT_FALSE(files.renameFile(at("sub"), at("new")));
    EXPECT_EQ(lastError(), errorFromErrno(EISDIR));
    EXPECT_FALSE(files.renameFile(at("clip"), at("nowhere/new")));
    EXPECT_EQ(contentsOf(folder / "clip"), "clip");
    EXPECT_TRUE(files.renameFile(at("clip"), at("sub/new")));
    EXPECT_EQ(contentsOf(folder / "sub/new"), "clip");
    EXPECT_FALSE(fs::exists(folder / "clip"));
}

TEST_F(LinuxFileManager, RenamesWithBackslashesInBothNames)
{
    folder.folder("sub");
    folder.file("sub/clip", "clip");
    EXPECT_TRUE(files.renameFile(at("sub\\clip"), at("sub\\new")));
    EXPECT_EQ(contentsOf(folder / "sub/new"), "clip");
}

TEST_F(LinuxFileManager, ARemovedFileHasNoName)
{
    const Qz::Ptr<iFile> file =
        files.open(wide(folder.file("clip", "clip")), os::accessRead, os::creationOpen, os::shareAll, 0);
    ASSERT_TRUE(files.deleteFile(at("clip")));
    FILE_INFO info;
    ASSERT_TRUE(file->getInfo(&info));
    EXPECT_EQ(info.links, 0U);
}

TEST_F(LinuxFileManager, OpensOnlyWhatIsNeitherFileNorFolderDirectly)
{
    folder.file("clip");
    fs::create_symlink("clip", folder / "link");
    fs::create_symlink("nowhere", folder / "broken");
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    fs::create_symlink("pipe", folder / "linkToPipe");
    EXPECT_FALSE(files.isOpenedDirectly(at("clip")));
    EXPECT_FALSE(files.isOpenedDirectly(at("link")));
    EXPECT_FALSE(files.isOpenedDirectly(at("broken")));
    EXPECT_FALSE(files.isOpenedDirectly(at("missing")));
    EXPECT_FALSE(files.isOpenedDirectly(wide(folder.path())));
    EXPECT_FALSE(files.isOpenedDirectly(L""));
    EXPECT_TRUE(files.isOpenedDirectly(at("pipe")));
    EXPECT_TRUE(files.isOpenedDirectly(at("linkToPipe")));
    EXPECT_TRUE(files.isOpenedDirectly(L"/dev/null"));
}

TEST_F(LinuxFileManager, ReadsAndReplacesWholeFiles)
{
    std::string contents = "old";
    EXPECT_FALSE(files.readWholeFile(at("list"), 100, contents));
    EXPECT_EQ(contents, "");
    EXPECT_TRUE(files.replaceFile(at("list"), "one"));
    EXPECT_TRUE(files.readWholeFile(at("list"), 100, contents));
    EXPECT_EQ(contents, "one");
    EXPECT_FALSE(files.readWholeFile(at("list"), 2, contents));
    EXPECT_EQ(contents, "");
}

TEST_F(LinuxFileManager, FoldersMayBeNamedWithATrailingSeparator)
{
    folder.folder("sub");
    folder.file("clip");
    EXPECT_TRUE(files.directoryExists(at("sub")));
    EXPECT_TRUE(files.directoryExists(at("sub/")));
    EXPECT_FALSE(files.directoryExists(at("clip")));
    EXPECT_FALSE(files.directoryExists(at("missing/")));
    EXPECT_FALSE(files.directoryExists(L""));
}

TEST_F(LinuxFileManager, MakesOneLevelOfFolders)
{
    EXPECT_FALSE(files.createDirectory(at("a/b")));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    EXPECT_TRUE(files.createDirectory(at("a")));
    EXPECT_FALSE(files.createDirectory(at("a")));
    EXPECT_EQ(lastError(), errorFromErrno(EEXIST));
    EXPECT_TRUE(files.createDirectory(at("a/b/")));
    EXPECT_TRUE(fs::is_directory(folder / "a/b"));
}

TEST_F(LinuxFileManager, AMissingPathIsNotWritable)
{
    EXPECT_TRUE(files.isWritable(wide(folder.path())));
    EXPECT_TRUE(files.isWritable(wide(folder.path() + '/')));
    EXPECT_FALSE(files.isWritable(at("missing")));
    EXPECT_FALSE(files.isWritable(L""));
}

TEST_F(LinuxFileManager, ListsByPattern)
{
    folder.file("b.mov", "12");
    folder.file("a", "1");
    folder.folder("c.mov");
    Items items;
    EXPECT_TRUE(files.listDirectory(at("*.*"), items));
    ASSERT_EQ(namesOf(items), (Names{"a", "b.mov"}));
    EXPECT_EQ(items[1].size, 2u);
    EXPECT_TRUE(files.listDirectory(at("*.mov"), items));
    EXPECT_EQ(namesOf(items), Names{"b.mov"});
    EXPECT_FALSE(files.listDirectory(at("missing/*.*"), items));
    EXPECT_TRUE(items.empty());
    EXPECT_FALSE(files.listDirectory(L"", items));
}

TEST_F(LinuxFileManager, ListsInOnePieceAsItListsItems)
{
    for (int i = 0; i < 600; ++i)
        folder.file(std::to_string(i) + (i % 2 ? ".mov" : ".\xc3\xa9"),
                    std::string(static_cast<std::size_t>(i), 'x'));
    for (const char* pattern : {"*.*", "*.mov", "1?.*", "none"}) {
        Items items;
        FolderListing listing;
        EXPECT_TRUE(files.listDirectory(at(pattern), items));
        EXPECT_TRUE(files.listFiles(at(pattern), listing));
        ASSERT_EQ(listing.size(), items.size()) << pattern;
        for (std::size_t i = 0; i < items.size(); ++i) {
            EXPECT_EQ(items[i].name, listing[i].name);
            EXPECT_EQ(items[i].size, listing[i].size);
        }
    }
    FolderListing listing;
    listing.add(L"old", 1);
    EXPECT_FALSE(files.listFiles(at("missing/*.*"), listing));
    EXPECT_TRUE(listing.empty());
    EXPECT_FALSE(files.listFiles(L"", listing));
}

TEST_F(LinuxFileManager, OnlyTheLastComponentOfAPatternHasWildcards)
{
    folder.folder("x");
    folder.file("x/clip");
    Items items;
    EXPECT_FALSE(files.listDirectory(at("*/clip"), items));
    folder.folder("*");
    folder.file("*/other");
    EXPECT_TRUE(files.listDirectory(at("*/*.*"), items));
    EXPECT_EQ(namesOf(items), Names{"other"});
}

TEST_F(LinuxFileManager, ListsAPatternWithoutAFolder)
{
    folder.file("clip");
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    Items items;
    EXPECT_TRUE(files.listDirectory(L"*.*", items));
    fs::current_path(before);
    EXPECT_EQ(namesOf(items), Names{"clip"});
}

TEST_F(LinuxFileManager, ListsByLiteralPrefix)
{
    for (const char* name : {"*.mov", "*.mov.idx", "a.mov.idx"})
        folder.file(name, "1");
    Items items;
    EXPECT_TRUE(files.listFilesWithPrefix(wide(folder.path()), L"*.mov.", items));
    EXPECT_EQ(namesOf(items), Names{"*.mov.idx"});
    EXPECT_TRUE(files.listFilesWithPrefix(wide(folder.path() + '/'), L"", items));
    EXPECT_EQ(items.size(), 3u);
    EXPECT_FALSE(files.listFilesWithPrefix(at("missing"), L"", items));
    EXPECT_TRUE(items.empty());
}

TEST_F(LinuxFileManager, NamesThatAreNoTextCanBeListedAndDeleted)
{
    folder.file("bad\xff\xfe", "123");
    Items items;
    ASSERT_TRUE(files.listDirectory(at("*.*"), items));
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(files.getFileSize(wide(folder.path() + '/') + items[0].name), 3u);
    EXPECT_TRUE(files.deleteFile(wide(folder.path() + '/') + items[0].name));
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(LinuxFileManager, AZeroInAPathReachesNoOtherFile)
{
    folder.file("clip", "123");
    LightweightString<wchar_t> path = at("clip");
    path += L'\0';
    path += L'x';
    EXPECT_FALSE(files.fileExists(path));
    EXPECT_FALSE(files.deleteFile(path));
    EXPECT_FALSE(files.deleteTree(path));
    EXPECT_FALSE(files.open(path, os::accessRead, os::creationOpen, 0, 0));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    Items items;
    EXPECT_TRUE(files.listFilesWithPrefix(wide(folder.path()),
                                          LightweightString<wchar_t>(std::wstring(L"\0", 1)), items));
    EXPECT_TRUE(items.empty());
    EXPECT_TRUE(fs::exists(folder / "clip"));
}

TEST_F(LinuxFileManager, ReadsBackslashesAsSeparatorsWhenNothingIsThereAsNamed)
{
    folder.folder("sub");
    folder.file("sub/clip", "123");
    EXPECT_EQ(files.getFileSize(at("sub\\clip")), 3u);
    EXPECT_TRUE(files.fileExists(at("sub\\clip")));
    EXPECT_TRUE(files.directoryExists(at("sub\\")));
    EXPECT_TRUE(files.open(at("sub\\clip"), os::accessRead, os::creationOpen, 0, 0));
    Items items;
    EXPECT_TRUE(files.listDirectory(at("sub\\*.*"), items));
    EXPECT_EQ(namesOf(items), Names{"clip"});
    EXPECT_TRUE(files.listFilesWithPrefix(at("sub\\"), L"cl", items));
    EXPECT_EQ(namesOf(items), Names{"clip"});
    EXPECT_TRUE(files.open(at("sub\\new"), os::accessWrite, os::creationNew, 0, 0));
    EXPECT_TRUE(fs::exists(folder / "sub/new"));
    EXPECT_TRUE(files.deleteFile(at("sub\\clip")));
    EXPECT_FALSE(fs::exists(folder / "sub/clip"));
}

TEST_F(LinuxFileManager, APrefixNeverReachesIntoAnotherFolder)
{
    folder.folder("sub");
    folder.file("sub/clip.mov.idx");
    folder.file("clip.mov.idx");
    Items items;
    EXPECT_TRUE(files.listFilesWithPrefix(wide(folder.path()), L"sub\\clip.mov.", items));
    EXPECT_TRUE(items.empty());
    EXPECT_TRUE(files.listFilesWithPrefix(wide(folder.path()), L"sub/clip.mov.", items));
    EXPECT_TRUE(items.empty());
}

TEST_F(LinuxFileManager, AFileNamedWithABackslashComesFirst)
{
    folder.folder("sub");
    folder.file("sub/clip", "123");
    folder.file("sub\\clip", "12345");
    EXPECT_EQ(files.getFileSize(at("sub\\clip")), 5u);
    EXPECT_TRUE(files.deleteFile(at("sub\\clip")));
    EXPECT_TRUE(fs::exists(folder / "sub/clip"));
}

TEST_F(LinuxFileManager, ANetworkNameIsNoLocalPath)
{
    std::string name = folder.path();
    std::replace(name.begin(), name.end(), '/', '\\');
    EXPECT_FALSE(files.directoryExists(wide('\\' + name)));
    EXPECT_FALSE(files.getDriveForPath(wide('\\' + name)));
}

TEST_F(LinuxFileManager, DeletesTrees)
{
    folder.folder("tree/a");
    folder.file("tree/a/clip");
    EXPECT_TRUE(files.deleteTree(at("tree")));
    EXPECT_FALSE(fs::exists(folder / "tree"));
    EXPECT_FALSE(files.deleteTree(L""));
    EXPECT_FALSE(files.deleteTree(L"/"));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
}

TEST_F(LinuxFileManager, ResolvesToTheFinalFile)
{
    folder.folder("sub");
    folder.file("sub/clip");
    fs::create_symlink("sub", folder / "link");
    EXPECT_EQ(files.resolvePath(at("link/clip")), at("sub/clip"));
    EXPECT_EQ(files.resolvePath(at("link/../sub//clip")), at("sub/clip"));
}

TEST_F(LinuxFileManager, AnOfflineFileKeepsItsName)
{
    EXPECT_EQ(files.resolvePath(at("missing//clip")), at("missing//clip"));
    EXPECT_EQ(files.resolvePath(L""), L"");
}

TEST_F(LinuxFileManager, TheFolderPartIsToldFromTheTextAlone)
{
    EXPECT_TRUE(files.hasDirectoryPart(L"/no/such/file"));
    EXPECT_TRUE(files.hasDirectoryPart(L"proxy/clip"));
    EXPECT_FALSE(files.hasDirectoryPart(L"clip.mov"));
    EXPECT_FALSE(files.hasDirectoryPart(L"a\\b"));
    EXPECT_FALSE(files.hasDirectoryPart(L""));
}

TEST_F(LinuxFileManager, OpensWithTheCodes)
{
    EXPECT_FALSE(files.open(at("clip"), os::accessRead, os::creationOpen, os::shareAll, 0));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    ASSERT_TRUE(files.open(at("clip"), os::accessWrite, os::creationNew, os::shareAll, 0));
    EXPECT_FALSE(files.open(at("clip"), os::accessWrite, os::creationNew, os::shareAll, 0));
    EXPECT_EQ(lastError(), errorFromErrno(EEXIST));
    folder.file("clip", "12345");
    const Qz::Ptr<iFile> again =
        files.open(at("clip"), os::accessWrite, os::creationOpenOrNew, os::shareAll, 0);
    ASSERT_TRUE(again);
    EXPECT_TRUE(again->isOpen());
    EXPECT_EQ(again->getSize(), 5u);
    EXPECT_FALSE(files.open(L"", os::accessRead, os::creationOpen, 0, 0));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
}

TEST_F(LinuxFileManager, ExportedFoldersHaveNetworkNames)
{
    folder.folder("media");
    fs::create_symlink("media", folder / "link");
    ::setenv("FSYS_SMB_CONF", folder.file("smb.conf", "[Media]\npath=" + (folder / "media") + "\n").c_str(),
             1);
    const std::string machine = "\\\\" + toUTF8(files.getMachineName()).str();
    EXPECT_EQ(files.getUNCName(at("media/a/clip")), wide(machine + "\\Media\\a\\clip"));
    EXPECT_EQ(files.getUNCName(at("media/")), wide(machine + "\\Media"));
    EXPECT_EQ(files.getUNCName(at("link/clip")), wide(machine + "\\Media\\clip"));
    const auto shares = files.listShares(L"HOST");
    ::unsetenv("FSYS_SMB_CONF");
    ASSERT_EQ(shares.size(), 1u);
    EXPECT_EQ(shares[0].uncName, L"\\\\HOST\\Media");
    EXPECT_EQ(shares[0].localPath, at("media/"));
}

TEST_F(LinuxFileManager, APathThatNobodyElseReachesHasNoNetworkName)
{
    ::setenv("FSYS_SMB_CONF", (folder / "missing").c_str(), 1);
    EXPECT_TRUE(files.getUNCName(at("clip")).isNull());
    EXPECT_TRUE(files.getUNCName(L"").isNull());
    EXPECT_TRUE(files.getUNCName(L"clip").isNull());
    EXPECT_TRUE(files.getUNCName(L"\\\\host\\share").isNull());
    EXPECT_TRUE(files.listShares(L"HOST").empty());
    ::unsetenv("FSYS_SMB_CONF");
}

TEST_F(LinuxFileManager, TheMachineNameEndsAtTheFirstDot)
{
    char name[256] = {};
    ASSERT_EQ(::gethostname(name, sizeof name - 1), 0);
    const std::string whole = name;
    EXPECT_EQ(files.getMachineName(), wide(whole.substr(0, whole.find('.'))));
    EXPECT_FALSE(files.getMachineName().empty());
}

TEST_F(LinuxFileManager, EveryAbsolutePathHasADrive)
{
    const Qz::Ptr<iDiskDrive> drive = files.getDriveForPath(wide(folder.path()));
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->getType(), iDiskDrive::eLocal);
    EXPECT_GE(drive->getSectorSize(), 512u);
    EXPECT_GT(drive->getTotalBytes(), 0u);
    EXPECT_LE(drive->getFreeBytes(), drive->getTotalBytes());
    EXPECT_TRUE(drive->isMounted());
    EXPECT_TRUE(drive->getRootPath().endsWith(L"/"));
}

TEST_F(LinuxFileManager, AFileToBeMadeHasTheDriveOfItsNearestFolder)
{
    const Qz::Ptr<iDiskDrive> drive = files.getDriveForPath(at("not/yet/made"));
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->getRootPath(), files.getDriveForPath(wide(folder.path()))->getRootPath());
}

TEST_F(LinuxFileManager, PathsThatAreNoneHereHaveNoDrive)
{
    for (const wchar_t* path : {L"", L"clip", L"sub/clip", L"\\\\host\\share\\clip", L"C:\\clip"})
        EXPECT_FALSE(files.getDriveForPath(path)) << toUTF8(std::wstring_view(path)).c_str();
    EXPECT_FALSE(files.getDriveForPath({}));
}

TEST_F(LinuxFileManager, TheRootIsASystemDiskAndEndsWithTheSeparator)
{
    const Qz::Ptr<iDiskDrive> drive = files.getDriveForPath(L"/");
    ASSERT_TRUE(drive);
    EXPECT_TRUE(drive->isSystemDisk());
    EXPECT_EQ(drive->getRootPath(), L"/");
}

TEST_F(LinuxFileManager, ListsVolumesWithoutTheKernelsTables)
{
    const auto disks = files.listDisks(os::listMountedVolumes);
    std::vector<std::string> roots;
    for (const auto& disk : disks) {
        roots.push_back(toUTF8(disk->getRootPath()).str());
        EXPECT_TRUE(roots.back().ends_with('/')) << roots.back();
    }
    EXPECT_EQ(std::count(roots.begin(), roots.end(), "/"), 1);
    EXPECT_EQ(std::count(roots.begin(), roots.end(), "/proc/"), 0);
    EXPECT_EQ(std::count(roots.begin(), roots.end(), "/sys/"), 0);
    EXPECT_TRUE(files.listDisks(0).empty());
}

TEST_F(LinuxFileManager, ReportsErrorsOnlyWhenAskedTo)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    files.reportError(L"/m/clip", errorFromErrno(EACCES));
    ::setenv("FSYS_OS_DEBUG", "1", 1);
    files.reportError(L"/m/clip", errorFromErrno(EACCES));
    ::unsetenv("FSYS_OS_DEBUG");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "os: /m/clip: Permission denied\n");
}

TEST_F(LinuxFileManager, RemovesRegisteredFilesAtExit)
{
    folder.file("EDIT3.cli");
    folder.file("relative.cli");
    EXPECT_EXIT(
        {
            fs::current_path(folder.path());
            files.registerForRemoval(at("EDIT3.cli"));
            files.registerForRemoval(L"relative.cli");
            files.registerForRemoval(L"");
            fs::current_path("/");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_TRUE(!fs::exists(folder / "EDIT3.cli"));
    EXPECT_TRUE(!fs::exists(folder / "relative.cli"));
}

TEST_F(LinuxFileManager, MakesAContextForAnOwner)
{
    int owner = 0;
    const Qz::Ptr<iAsyncContext> context = files.createAsyncContext(&owner);
    ASSERT_TRUE(context);
    EXPECT_EQ(context->getOwner(), &owner);
}

TEST_F(LinuxFileManager, ListsALargeFolder)
{
    constexpr int count = 20000;
    const int parent = ::open(folder.path().c_str(), O_PATH | O_DIRECTORY);
    for (int i = 0; i < count; ++i)
        ::close(::openat(parent, std::to_string(i).c_str(), O_CREAT | O_WRONLY, 0600));
    ::close(parent);
    Items items;
    EXPECT_TRUE(files.listDirectory(at("*.*"), items));
    EXPECT_EQ(items.size(), static_cast<std::size_t>(count));
}
