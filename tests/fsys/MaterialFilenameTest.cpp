#include "fsys/MaterialFilename.h"

#include <gtest/gtest.h>

#include "fsys/DiskManager.h"

#include "FileSpy.h"

namespace {

using Path = LightweightString<wchar_t>;

Path withExtension(const wchar_t* path, const wchar_t* extension)
{
    MaterialFilename file(DriveId('Q'), path);
    file.setExtension(extension);
    EXPECT_EQ(file.getDrive(), DriveId('Q'));
    return file.getPath();
}

class MaterialFilenameOnADrive : public testing::Test
{
protected:
    MaterialFilenameOnADrive() { DiskManager::reInit(true); }
    ~MaterialFilenameOnADrive() override { DiskManager::reInit(true); }

    static DriveId registered(const Path& root)
    {
        DriveId id;
        EXPECT_TRUE(DiskManager::addMaterialVolume(root, id, false));
        return id;
    }
};

}  // namespace

TEST(MaterialFilename, HasNoDriveAndNoPathAtFirst)
{
    const MaterialFilename none;
    EXPECT_EQ(none.getDrive(), DriveId('0'));
    EXPECT_TRUE(none.getPath().isNull());
    EXPECT_TRUE(none.getOsPath().empty());
}

TEST(MaterialFilename, SharesTheBodyOfItsPathWithCopies)
{
    const Path path = L"Material/abc.mov";
    const MaterialFilename file(DriveId('1'), path);
    const MaterialFilename copy = file;
    EXPECT_TRUE(file.getPath().sharesBodyWith(path));
    EXPECT_TRUE(copy.getPath().sharesBodyWith(path));
    EXPECT_EQ(copy.getDrive(), DriveId('1'));
}

TEST(MaterialFilename, HandsOutItsPathWithoutCopying)
{
    const Path path = L"abc";
    const MaterialFilename file(DriveId('1'), path);
    const Path handedOut = file.getPath();
    EXPECT_TRUE(handedOut.sharesBodyWith(path));
}

TEST(MaterialFilename, UsesThePathAsItStandsOnADriveThatIsNotRegistered)
{
    DiskManager::reInit(true);
    for (const wchar_t* path : {L"/a/b", L"a/b", L"C:\\a\\b", L""}) {
        EXPECT_EQ(MaterialFilename(DriveId('Z'), path).getOsPath(), path);
        EXPECT_EQ(MaterialFilename(DriveId('0'), path).getOsPath(), path);
    }
}

TEST(MaterialFilename, LeavesTheBodySharedWhereNothingIsComposed)
{
    const MaterialFilename file(DriveId('0'), L"/a/b");
    EXPECT_TRUE(file.getOsPath().sharesBodyWith(file.getPath()));
}

TEST(MaterialFilename, ReplacesTheLastExtension)
{
    EXPECT_EQ(withExtension(L"clips/abc.mov", L"wav"), L"clips/abc.wav");
    EXPECT_EQ(withExtension(L"clips/a.b.mov", L"wav"), L"clips/a.b.wav");
}

TEST(MaterialFilename, TakesTheExtensionAsItIsPassed)
{
    EXPECT_EQ(withExtension(L"clips/abc.mov", L".wav"), L"clips/abc..wav");
    EXPECT_EQ(withExtension(L"x", L""), L"x.");
    EXPECT_EQ(withExtension(L"x.mov", L""), L"x.");
}

TEST(MaterialFilename, GainsAnExtensionWhereItHadNone)
{
    EXPECT_EQ(withExtension(L"clips/abc", L"wav"), L"clips/abc.wav");
    EXPECT_EQ(withExtension(L"d.x/abc", L"mov"), L"d.x/abc.mov");
    EXPECT_EQ(withExtension(L"", L"mov"), L".mov");
}

TEST(MaterialFilename, ChangesItsOwnPathAndNotThatOfCopies)
{
    const MaterialFilename file(DriveId('1'), L"abc.mov");
    MaterialFilename copy = file;
    copy.setExtension(L"wav");
    EXPECT_EQ(file.getPath(), L"abc.mov");
    EXPECT_EQ(copy.getPath(), L"abc.wav");
}

TEST_F(MaterialFilenameOnADrive, JoinsTheRootAndThePathWithOneSeparator)
{
    const TestFolder folder;
    const DriveId id = registered(folder.path());
    EXPECT_EQ(MaterialFilename(id, L"/Material/a.mov").getOsPath(), folder.path("Material/a.mov"));
    EXPECT_EQ(MaterialFilename(id, L"Material/a.mov").getOsPath(), folder.path("Material/a.mov"));
}

TEST_F(MaterialFilenameOnADrive, UsesThePathAsItStandsAgainWhenTheDriveIsGone)
{
    const TestFolder folder;
    const DriveId id = registered(folder.path());
    const MaterialFilename file(id, L"/Material/a.mov");
    DiskManager::deleteMaterialVolume(id);
    EXPECT_EQ(file.getOsPath(), L"/Material/a.mov");
}

TEST_F(MaterialFilenameOnADrive, KeepsThePathWhereTheRootIsEmpty)
{
    FileSpy spy;
    spy.pathsAreWritable = true;
    const DriveId id = registered(L"/");
    ASSERT_TRUE(DiskManager::getMaterialVolumeName(id, true).empty());
    EXPECT_EQ(MaterialFilename(id, L"/Material/a.mov").getOsPath(), L"/Material/a.mov");
}

TEST_F(MaterialFilenameOnADrive, ComposesWithoutLookingAtTheDisk)
{
    const TestFolder folder;
    const DriveId id = registered(folder.path());
    const FileSpy spy;
    EXPECT_EQ(MaterialFilename(id, L"/no/such.mov").getOsPath(), folder.path("no/such.mov"));
    EXPECT_EQ(spy.diskAccesses, 0);
}
