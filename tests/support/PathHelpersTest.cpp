#include "support/PathHelpers.h"

#include <gtest/gtest.h>

#include "TempFolder.h"

namespace {

using Path = LightweightString<wchar_t>;

TEST(JoinPaths, PutsExactlyOneSeparatorBetween)
{
    EXPECT_EQ(joinPaths(L"/m", L"Material/a.mov"), L"/m/Material/a.mov");
    EXPECT_EQ(joinPaths(L"/m/", L"Material/a.mov"), L"/m/Material/a.mov");
    EXPECT_EQ(joinPaths(L"/m", L"/Material/a.mov"), L"/m/Material/a.mov");
    EXPECT_EQ(joinPaths(L"/m/", L"/Material/a.mov"), L"/m/Material/a.mov");
    EXPECT_EQ(joinPaths(L"/m///", L"//a"), L"/m/a");
}

TEST(JoinPaths, TouchesNoSeparatorsBesideTheJoint)
{
    EXPECT_EQ(joinPaths(L"//m//n", L"a//b/"), L"//m//n/a//b/");
}

TEST(JoinPaths, AnEmptyDirectoryLeavesTheSecondPartAsItIs)
{
    EXPECT_EQ(joinPaths(L"", L"/Material/x"), L"/Material/x");
    EXPECT_EQ(joinPaths(Path(), L"x"), L"x");
    EXPECT_EQ(joinPaths(Path(), Path()), L"");
}

TEST(JoinPaths, TheRootIsADirectory)
{
    EXPECT_EQ(joinPaths(L"/", L"a"), L"/a");
    EXPECT_EQ(joinPaths(L"/", L"/a"), L"/a");
    EXPECT_EQ(joinPaths(L"//", L"//"), L"/");
}

TEST(JoinPaths, AnEmptySecondPartLeavesTheDirectoryWithItsSeparator)
{
    EXPECT_EQ(joinPaths(L"/m", L""), L"/m/");
    EXPECT_EQ(joinPaths(L"/m/", Path()), L"/m/");
}

TEST(JoinPaths, ANetworkDirectoryKeepsItsBackslashes)
{
    EXPECT_EQ(joinPaths(L"\\\\srv\\share", L"/Material"), L"\\\\srv\\share/Material");
}

TEST(StripPath, IsWhatFollowsTheLastSeparator)
{
    EXPECT_EQ(stripPath(L"/m/Material/a.mov"), L"a.mov");
    EXPECT_EQ(stripPath(L"a.mov"), L"a.mov");
    EXPECT_EQ(stripPath(L"/m/"), L"");
    EXPECT_EQ(stripPath(L"/"), L"");
    EXPECT_EQ(stripPath(Path()), L"");
}

TEST(StripPath, ABackslashSeparatesInNetworkNamesOnly)
{
    EXPECT_EQ(stripPath(L"\\\\srv\\share\\a.mov"), L"a.mov");
    EXPECT_EQ(stripPath(L"\\\\srv\\share/a.mov"), L"a.mov");
    EXPECT_EQ(stripPath(L"\\\\srv/share\\a.mov"), L"a.mov");
    EXPECT_EQ(stripPath(L"/m/back\\slash.mov"), L"back\\slash.mov");
    EXPECT_EQ(stripPath(L"\\one\\backslash"), L"\\one\\backslash");
}

TEST(GetPath, KeepsTheTrailingSeparator)
{
    EXPECT_EQ(getPath(L"/m/Material/a.mov"), L"/m/Material/");
    EXPECT_EQ(getPath(L"/m/Mat/"), L"/m/Mat/");
    EXPECT_EQ(getPath(L"/a"), L"/");
}

TEST(GetPath, IsEmptyForANameAlone)
{
    EXPECT_EQ(getPath(L"a.mov"), L"");
    EXPECT_EQ(getPath(Path()), L"");
}

TEST(GetPath, ABackslashSeparatesInNetworkNamesOnly)
{
    EXPECT_EQ(getPath(L"\\\\srv\\share\\a.mov"), L"\\\\srv\\share\\");
    EXPECT_EQ(getPath(L"\\\\srv\\share\\d/a.mov"), L"\\\\srv\\share\\d/");
    EXPECT_EQ(getPath(L"m\\a.mov"), L"");
}

TEST(StripExtension, RemovesTheLastDotAndWhatFollows)
{
    EXPECT_EQ(stripExtension(L"clips/abc.mov"), L"clips/abc");
    EXPECT_EQ(stripExtension(L"clips/abc.540.mov"), L"clips/abc.540");
    EXPECT_EQ(stripExtension(L"abc."), L"abc");
}

TEST(StripExtension, ANameWithoutOneIsUnchanged)
{
    const Path name = L"clips/abc";
    EXPECT_TRUE(stripExtension(name).sharesBodyWith(name));
    EXPECT_EQ(stripExtension(Path()), L"");
}

TEST(StripExtension, LooksAtTheLastComponentOnly)
{
    EXPECT_EQ(stripExtension(L"d.x/abc"), L"d.x/abc");
    EXPECT_EQ(stripExtension(L"d.x/"), L"d.x/");
    EXPECT_EQ(stripExtension(L"\\\\srv\\d.x\\abc"), L"\\\\srv\\d.x\\abc");
    EXPECT_EQ(stripExtension(L"/d.x/a\\b.c\\d"), L"/d.x/a\\b");
}

TEST(StripExtension, ADotThatBeginsTheNameCountsLikeAnyOther)
{
    EXPECT_EQ(stripExtension(L"/m/.hidden"), L"/m/");
    EXPECT_EQ(stripExtension(L".hidden.mov"), L".hidden");
}

TEST(FixForeignOSFileName, TurnsBackslashesIntoSeparators)
{
    EXPECT_EQ(fixForeignOSFileName(L"media\\clips\\a.mov"), L"media/clips/a.mov");
    EXPECT_EQ(fixForeignOSFileName(L"\\media"), L"/media");
}

TEST(FixForeignOSFileName, LeavesDriveLettersAlone)
{
    EXPECT_EQ(fixForeignOSFileName(L"D:\\Media\\"), L"D:/Media/");
}

TEST(FixForeignOSFileName, LeavesNetworkNamesAlone)
{
    EXPECT_EQ(fixForeignOSFileName(L"\\\\srv\\share\\a"), L"\\\\srv\\share\\a");
}

TEST(FixForeignOSFileName, LeavesOurOwnPathsAlone)
{
    const Path path = L"/m/Material/a.mov";
    EXPECT_TRUE(fixForeignOSFileName(path).sharesBodyWith(path));
    EXPECT_EQ(fixForeignOSFileName(Path()), L"");
}

TEST(GetMediaLocationsFilename, IsTheNameOfTheListFile)
{
    EXPECT_EQ(getMediaLocationsFilename(), L"DefNetDrive.txt");
}

TEST(DeleteDirectory, RemovesAFile)
{
    const TempFolder folder;
    folder.write("a.mov", "x");
    EXPECT_TRUE(deleteDirectory(folder.wide("a.mov")));
    EXPECT_EQ(folder.read("a.mov"), "(missing)");
}

TEST(DeleteDirectory, RemovesAFolderWithAllItHoldsAndNothingElse)
{
    const TempFolder folder;
    folder.write("clip/a.mov", "x");
    folder.write("clip/proxy/b.mov", "x");
    folder.write("clip2/c.mov", "x");
    EXPECT_TRUE(deleteDirectory(folder.wide("clip")));
    EXPECT_FALSE(std::filesystem::exists(folder.path("clip")));
    EXPECT_EQ(folder.read("clip2/c.mov"), "x");
}

TEST(DeleteDirectory, RefusesWhatNamesNoPlaceOfItsOwn)
{
    EXPECT_FALSE(deleteDirectory(L""));
    EXPECT_FALSE(deleteDirectory(L"/"));
    EXPECT_FALSE(deleteDirectory(L"relative/path"));
}

TEST(DeleteDirectory, AMissingPathIsAFailure)
{
    const TempFolder folder;
    EXPECT_FALSE(deleteDirectory(folder.wide("nothing")));
}

}  // namespace
