#include "os/linux/AtomicSave.h"

#include "Save.h"
#include "common/TemporaryFolder.h"
#include "os/LastError.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace os;
namespace fs = std::filesystem;

namespace {

std::size_t entriesIn(const std::string& folder)
{
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

struct stat statusOf(const std::string& path)
{
    struct stat info = {};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0);
    return info;
}

// Makes writes beyond some bytes fail, as a full disk would, while it lives.
class SmallDisk
{
public:
    explicit SmallDisk(rlim_t bytes)
    {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit small{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
    }
    ~SmallDisk()
    {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

private:
    rlimit before_ = {};
    void (*handler_)(int) = SIG_DFL;
};

}  // namespace

TEST(AtomicSave, MakesAFile)
{
    const TemporaryFolder folder;
    const mode_t before = ::umask(027);
    EXPECT_TRUE(save(folder / "list", "contents"));
    ::umask(before);
    EXPECT_EQ(contentsOf(folder / "list"), "contents");
    EXPECT_EQ(statusOf(folder / "list").st_mode & 07777u, 0640u);
    EXPECT_EQ(entriesIn(folder.path()), 1u) << "no temporary file stays";
}

TEST(AtomicSave, ReplacesAFileByAnotherOne)
{
    const TemporaryFolder folder;
    folder.file("list", "a longer text than the new one");
    const ino_t before = statusOf(folder / "list").st_ino;
    EXPECT_TRUE(save(folder / "list", "new"));
    EXPECT_EQ(contentsOf(folder / "list"), "new");
    EXPECT_NE(statusOf(folder / "list").st_ino, before) << "written over, not replaced";
    EXPECT_EQ(entriesIn(folder.path()), 1u);
}

// Somebody who looks all the time sees no file that tells more than the one that is replaced.
TEST(AtomicSave, GivesNobodyRightsThatTheOldFileDoesNotGive)
{
    const TemporaryFolder folder;
    folder.file("list", "old");
    fs::permissions(folder / "list", fs::perms(0640));
    const mode_t before = ::umask(0);
    std::atomic<bool> ends{false};
    std::atomic<unsigned> seen{0};
    std::atomic<mode_t> rights{0};
    std::thread watcher([&] {
        while (!ends)
            for (const auto& entry : fs::directory_iterator(folder.path())) {
                struct stat info = {};
                if (entry.path().extension() != ".tmp" || ::lstat(entry.path().c_str(), &info) != 0)
                    continue;
                ++seen;
                rights |= info.st_mode & 07777;
            }
    });
    for (int i = 0; i < 1000 && (i < 5 || seen == 0); ++i)
        EXPECT_TRUE(save(folder / "list", std::string(1 << 20, 'n')));
    ends = true;
    watcher.join();
    ::umask(before);
    EXPECT_GT(seen, 0U);
    EXPECT_EQ(0U, rights & ~mode_t{0640});
}

TEST(AtomicSave, SavesAnEmptyFile)
{
    const TemporaryFolder folder;
    folder.file("list", "old");
    EXPECT_TRUE(save(folder / "list", ""));
    EXPECT_EQ(contentsOf(folder / "list"), "");
}

TEST(AtomicSave, KeepsPermissions)
{
    const TemporaryFolder folder;
    folder.file("list", "old");
    ASSERT_EQ(::chmod((folder / "list").c_str(), 0604), 0);
    EXPECT_TRUE(save(folder / "list", "new"));
    EXPECT_EQ(statusOf(folder / "list").st_mode & 07777u, 0604u);
}

TEST(AtomicSave, KeepsTheOwnerWhereItMay)
{
    const TemporaryFolder folder;
    folder.file("list", "old");
    if (::chown((folder / "list").c_str(), 12345, 23456) != 0)
        GTEST_SKIP() << "needs the right to give files away";
    EXPECT_TRUE(save(folder / "list", "new"));
    EXPECT_EQ(statusOf(folder / "list").st_uid, 12345u);
    EXPECT_EQ(statusOf(folder / "list").st_gid, 23456u);
}

TEST(AtomicSave, ReplacesWhatALinkPointsAt)
{
    const TemporaryFolder folder;
    folder.folder("real");
    folder.file("real/list", "old");
    fs::create_symlink("real/list", folder / "second");
    fs::create_symlink("second", folder / "first");
    EXPECT_TRUE(save(folder / "first", "new"));
    EXPECT_TRUE(fs::is_symlink(folder / "first"));
    EXPECT_TRUE(fs::is_symlink(folder / "second"));
    EXPECT_EQ(contentsOf(folder / "real/list"), "new");
    EXPECT_EQ(entriesIn(folder / "real"), 1u);
}

TEST(AtomicSave, MakesTheFileThatALinkPointsAt)
{
    const TemporaryFolder folder;
    folder.folder("real");
    fs::create_symlink(folder / "real/list", folder / "link");
    EXPECT_TRUE(save(folder / "link", "new"));
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(contentsOf(folder / "real/list"), "new");
}

TEST(AtomicSave, AFailedWriteLeavesTheOldFileAndNoOther)
{
    const TemporaryFolder folder;
    folder.file("list", "old");
    {
        const SmallDisk disk(4096);
        EXPECT_FALSE(save(folder / "list", std::string(10000, 'x')));
        EXPECT_EQ(lastError(), errorFromErrno(EFBIG));
    }
    EXPECT_EQ(contentsOf(folder / "list"), "old");
    EXPECT_EQ(entriesIn(folder.path()), 1u);
}

TEST(AtomicSave, AFailedFirstSaveLeavesNothing)
{
    const TemporaryFolder folder;
    {
        const SmallDisk disk(4096);
        EXPECT_FALSE(save(folder / "list", std::string(10000, 'x')));
    }
    EXPECT_EQ(entriesIn(folder.path()), 0u);
}

TEST(AtomicSave, RefusesWhatIsNoRegularFile)
{
    const TemporaryFolder folder;
    folder.folder("sub");
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(save(folder / "sub", "x"));
    EXPECT_EQ(lastError(), errorFromErrno(EISDIR));
    EXPECT_FALSE(save(folder / "pipe", "x"));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
    EXPECT_FALSE(save(folder / "missing/list", "x"));
    EXPECT_EQ(lastError(), errorFromErrno(ENOENT));
    EXPECT_EQ(entriesIn(folder.path()), 2u);
}

TEST(AtomicSave, TakesARelativePath)
{
    const TemporaryFolder folder;
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    EXPECT_TRUE(save("list", "new"));
    fs::current_path(before);
    EXPECT_EQ(contentsOf(folder / "list"), "new");
}
