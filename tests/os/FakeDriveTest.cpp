#include "os/testing/FakeOS.h"

#include <gtest/gtest.h>

namespace {

TEST(FakeDrive, AnswersWhatTheTestSetAndCountsTheQuestions)
{
    FakeOS os;
    const auto drive = os.files().addDrive({.type = iDiskDrive::eNetwork,
                                            .sectorSize = 0,
                                            .freeBytes = 3,
                                            .totalBytes = 9,
                                            .isSystemDisk = true,
                                            .isMounted = false,
                                            .root = L"/net/"});
    const Qz::Ptr<iDiskDrive> seen = os.getFileManager()->getDriveForPath(L"/net/a");
    ASSERT_EQ(seen.get(), drive.get());
    EXPECT_EQ(drive->queries().freeBytes, 0U);
    EXPECT_EQ(seen->getType(), iDiskDrive::eNetwork);
    EXPECT_EQ(seen->getSectorSize(), 0U);
    EXPECT_EQ(seen->getFreeBytes(), 3U);
    EXPECT_EQ(seen->getTotalBytes(), 9U);
    EXPECT_TRUE(seen->isSystemDisk());
    EXPECT_FALSE(seen->isMounted());
    EXPECT_EQ(seen->getRootPath(), LightweightString<wchar_t>(L"/net/"));
    const fake::DriveQueries asked = drive->queries();
    EXPECT_EQ(asked.type, 1U);
    EXPECT_EQ(asked.sectorSize, 1U);
    EXPECT_EQ(asked.freeBytes, 1U);
    EXPECT_EQ(asked.totalBytes, 1U);
    EXPECT_EQ(asked.isSystemDisk, 1U);
    EXPECT_EQ(asked.isMounted, 1U);
    EXPECT_EQ(asked.root, 1U);
    fake::DriveProperties full = drive->properties();
    full.freeBytes = 0;
    drive->set(full);
    EXPECT_EQ(seen->getFreeBytes(), 0U);
}

TEST(FakeDrive, APathLiesOnTheDriveWithTheLongestRoot)
{
    FakeOS os;
    EXPECT_FALSE(os.getFileManager()->getDriveForPath(L"/m/a"));
    const auto root = os.files().addDrive(L"/");
    const auto outer = os.files().addDrive(L"/m/");
    const auto inner = os.files().addDrive(L"/m/inner/");
    iFileManager& files = *os.getFileManager();
    EXPECT_EQ(files.getDriveForPath(L"/m/inner/not/there/yet").get(), inner.get());
    EXPECT_EQ(files.getDriveForPath(L"/m/inner").get(), inner.get());
    EXPECT_EQ(files.getDriveForPath(L"/m/inner2").get(), outer.get());
    EXPECT_EQ(files.getDriveForPath(L"/mm").get(), root.get());
    EXPECT_FALSE(files.getDriveForPath(L""));
    EXPECT_FALSE(files.getDriveForPath(L"m/a"));
    EXPECT_FALSE(files.getDriveForPath(L"\\\\host\\share\\a"));
    EXPECT_TRUE(os.files().hasFolder(L"/m/inner"));
    const auto disks = files.listDisks(1);
    ASSERT_EQ(disks.size(), 3U);
    EXPECT_EQ(disks[2].get(), inner.get());
    EXPECT_EQ(os.log().lines({fake::Op::listDisks}), (std::vector<std::string>{"listDisks 1"}));
    os.files().clearDrives();
    EXPECT_TRUE(files.listDisks(1).empty());
}

TEST(FakeNetworkNames, ComeFromSharesAndFromWhatTheTestSet)
{
    FakeOS os;
    iFileManager& files = *os.getFileManager();
    EXPECT_TRUE(files.getUNCName(L"/srv/media/a").isNull());
    os.files().setMachineName(L"HOST");
    os.files().addShare(L"\\\\HOST\\MEDIA", L"/srv/media/");
    os.files().setUNCName(L"/net", L"\\\\server\\clips");
    EXPECT_EQ(files.getMachineName(), LightweightString<wchar_t>(L"HOST"));
    EXPECT_EQ(files.getUNCName(L"/srv/media/dir/a.mov"), iFileManager::Path(L"\\\\HOST\\MEDIA\\dir\\a.mov"));
    EXPECT_EQ(files.getUNCName(L"/srv/media"), iFileManager::Path(L"\\\\HOST\\MEDIA"));
    EXPECT_EQ(files.getUNCName(L"/net/a"), iFileManager::Path(L"\\\\server\\clips\\a"));
    EXPECT_TRUE(files.getUNCName(L"/network").empty());
    ASSERT_EQ(files.listShares(L"HOST").size(), 1U);
    EXPECT_EQ(files.listShares(L"HOST")[0].localPath, iFileManager::Path(L"/srv/media/"));
    EXPECT_EQ(os.log().count(fake::Op::listShares), 2U);
    EXPECT_EQ(os.log().count(fake::Op::listShares, L"HOST"), 2U);
}

}  // namespace
