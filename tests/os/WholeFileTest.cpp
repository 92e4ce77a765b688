#include "os/linux/WholeFile.h"

#include "common/TemporaryFolder.h"
#include "os/LastError.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace os;

namespace {

bool read(const std::string& path, std::size_t limit, std::string& contents)
{
    Progress progress;
    return readRegularFile(path, limit, contents, progress);
}

}  // namespace

TEST(WholeFile, ReadsAFileUpToTheLimit)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("list", std::string("a\0b", 3));
    std::string contents;
    EXPECT_TRUE(read(path, 3, contents));
    EXPECT_EQ(contents, std::string("a\0b", 3));
    EXPECT_TRUE(read(folder.file("empty"), 0, contents));
    EXPECT_EQ(contents, "");
}

TEST(WholeFile, ReadsMoreThanOnePiece)
{
    const TemporaryFolder folder;
    const std::string big(200000, 'x');
    std::string contents;
    EXPECT_TRUE(read(folder.file("big", big), 1u << 20, contents));
    EXPECT_EQ(contents, big);
}

TEST(WholeFile, ALongerFileFails)
{
    const TemporaryFolder folder;
    std::string contents = "old";
    EXPECT_FALSE(read(folder.file("list", "1234"), 3, contents));
    EXPECT_EQ(lastError(), errorFromErrno(EFBIG));
    EXPECT_EQ(contents, "");
}

TEST(WholeFile, APipeDoesNotHang)
{
    const TemporaryFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    std::string contents = "old";
    EXPECT_FALSE(read(folder / "pipe", 100, contents));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
    EXPECT_EQ(contents, "");
}

TEST(WholeFile, FoldersAndMissingFilesFail)
{
    const TemporaryFolder folder;
    std::string contents = "old";
    EXPECT_FALSE(read(folder.path(), 100, contents));
    EXPECT_EQ(lastError(), errorFromErrno(EISDIR));
    contents = "old";
    EXPECT_FALSE(read(folder / "missing", 100, contents));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    EXPECT_EQ(contents, "");
}
