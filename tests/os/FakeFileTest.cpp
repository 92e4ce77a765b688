#include "os/Codes.h"
#include "os/LastError.h"
#include "os/testing/FakeOS.h"

#include <cerrno>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

Qz::Ptr<iFile> open(FakeOS& os, const wchar_t* path, unsigned access = 3, unsigned mode = 0)
{
    return os.getFileManager()->open(path, access, os::creationOpenOrNew, os::shareAll, mode);
}

TEST(FakeFile, ReadsUpToTheEndOfTheFile)
{
    FakeOS os;
    os.files().addFile(L"/a", "0123456789");
    const auto file = open(os, L"/a", 1);
    char buffer[16] = {};
    std::size_t done = 99;
    EXPECT_TRUE(file->read(6, buffer, 10, &done));
    EXPECT_EQ(done, 4U);
    EXPECT_STREQ(buffer, "6789");
    EXPECT_TRUE(file->read(10, buffer, 0, &done));
    EXPECT_FALSE(file->read(10, buffer, 1, &done));
    EXPECT_EQ(done, 0U);
    EXPECT_TRUE(file->read(0, buffer, 1, nullptr));
}

TEST(FakeFile, WritesAndFillsGapsWithZeros)
{
    FakeOS os;
    const auto file = open(os, L"/a");
    std::size_t done = 0;
    EXPECT_TRUE(file->write(3, "xy", 2, &done));
    EXPECT_EQ(done, 2U);
    EXPECT_EQ(os.files().contents(L"/a"), std::string("\0\0\0xy", 5));
    EXPECT_EQ(file->getSize(), 5U);
    os.clock().setNow(17);
    EXPECT_TRUE(file->write(0, "a", 1, nullptr));
    FILE_INFO info;
    EXPECT_TRUE(file->getInfo(&info));
    EXPECT_EQ(info.size, 5U);
    EXPECT_EQ(info.modifiedNs, 17000000);
    EXPECT_NE(info.inode, 0U);
}

TEST(FakeFile, LargePositionsCostNothing)
{
    FakeOS os;
    os.files().addSparseFile(L"/big", 1ULL << 42);
    const auto file = open(os, L"/big");
    EXPECT_TRUE(file->write((1ULL << 41) - 2, "abcd", 4, nullptr));
    char buffer[6] = {};
    EXPECT_TRUE(file->read((1ULL << 41) - 3, buffer, 6, nullptr));
    EXPECT_EQ(std::memcmp(buffer, "\0abcd\0", 6), 0);
    EXPECT_EQ(os.getFileManager()->getFileSize(L"/big"), 1ULL << 42);
}

TEST(FakeFile, RefusesNegativePositions)
{
    FakeOS os;
    const auto file = open(os, L"/a");
    const std::uint64_t negative = std::numeric_limits<std::uint64_t>::max();
    char byte = 0;
    EXPECT_FALSE(file->read(negative, &byte, 1, nullptr));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
    EXPECT_FALSE(file->write(negative, &byte, 1, nullptr));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
}

TEST(FakeFile, AFileOpenedForReadingCannotBeWritten)
{
    FakeOS os;
    os.files().addFile(L"/a", "old");
    const auto file = open(os, L"/a", 1);
    EXPECT_FALSE(file->write(0, "new", 3, nullptr));
    EXPECT_EQ(lastError(), errorFromErrno(EBADF));
    EXPECT_EQ(os.files().contents(L"/a"), "old");
}

TEST(FakeFile, AFileOpenedForWritingOnlyTellsItsContents)
{
    FakeOS os;
    os.files().addFile(L"/a", "old");
    char buffer[3] = {};
    EXPECT_TRUE(open(os, L"/a", 2)->read(0, buffer, 3, nullptr));
}

TEST(FakeFile, FailsAsPlannedAndTellsWhatItMovedBefore)
{
    FakeOS os;
    const auto file = open(os, L"/a");
    os.faults().add({.op = fake::Op::write, .code = errorFromErrno(ENOSPC), .bytes = 2});
    std::size_t done = 0;
    EXPECT_FALSE(file->write(0, "abcd", 4, &done));
    EXPECT_EQ(done, 2U);
    EXPECT_EQ(lastError(), errorFromErrno(ENOSPC));
    EXPECT_EQ(os.files().contents(L"/a"), "ab");
    os.faults().failNext(fake::Op::read, errorFromErrno(EIO));
    char byte = 'z';
    EXPECT_FALSE(file->read(0, &byte, 1, &done));
    EXPECT_EQ(done, 0U);
    EXPECT_EQ(byte, 'z');
    os.faults().failNext(fake::Op::getInfo, errorFromErrno(EIO));
    FILE_INFO info;
    info.size = 123;
    EXPECT_FALSE(file->getInfo(&info));
    EXPECT_EQ(info.size, 123U);
    EXPECT_EQ(os.faults().fired(), 3U);
}

TEST(FakeFile, AClosedHandleDoesNothing)
{
    FakeOS os;
    os.files().addFile(L"/a", "abc");
    const auto file = open(os, L"/a", 3, os::modeAsync);
    EXPECT_EQ(os.live().files, 1U);
    file->close();
    file->close();
    EXPECT_EQ(os.live().files, 0U);
    EXPECT_FALSE(file->isOpen());
    char byte = 0;
    FILE_INFO info;
    EXPECT_FALSE(file->read(0, &byte, 1, nullptr));
    EXPECT_FALSE(file->write(0, &byte, 1, nullptr));
    EXPECT_FALSE(file->getInfo(&info));
    EXPECT_EQ(file->getSize(), 0U);
    EXPECT_FALSE(file->asyncRead(0, &byte, 1, nullptr));
    EXPECT_EQ(lastError(), errorFromErrno(EBADF));
    EXPECT_EQ(os.log().count(fake::Op::close), 1U);
}

TEST(FakeFile, TheLogTellsInWhichOrderHandlesWereReleased)
{
    FakeOS os;
    auto sync = open(os, L"/a", 1, 0);
    auto async = open(os, L"/a", 1, 3);
    sync.reset();
    async.reset();
    const auto closes = os.log().calls(fake::Op::close);
    ASSERT_EQ(closes.size(), 2U);
    EXPECT_EQ(closes[0].handle, 1U);
    EXPECT_EQ(closes[1].handle, 2U);
    EXPECT_EQ(os.log().lines({fake::Op::close}), (Lines{"close /a", "close /a"}));
}

TEST(FakeFile, ADeletedFileLivesOnInItsHandles)
{
    FakeOS os;
    os.files().addFile(L"/a", "abc");
    const auto file = open(os, L"/a");
    EXPECT_TRUE(os.getFileManager()->deleteFile(L"/a"));
    char byte = 0;
    EXPECT_TRUE(file->read(2, &byte, 1, nullptr));
    EXPECT_EQ(byte, 'c');
    EXPECT_TRUE(file->write(0, "z", 1, nullptr));
    EXPECT_FALSE(os.files().has(L"/a"));
}

TEST(FakeFile, OutlivesItsPlatform)
{
    Qz::Ptr<iFile> file;
    {
        FakeOS os;
        os.files().addFile(L"/a", "abc");
        file = open(os, L"/a");
    }
    char byte = 0;
    EXPECT_TRUE(file->read(1, &byte, 1, nullptr));
    EXPECT_EQ(byte, 'b');
}

}  // namespace
