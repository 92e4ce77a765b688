#include "os/linux/Leftovers.h"

#include "Save.h"
#include "common/TemporaryFolder.h"
#include "os/linux/ScopedFd.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace os;
namespace fs = std::filesystem;

namespace {

std::vector<std::string> namesIn(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

using Names = std::vector<std::string>;

// A save of the file at path that the kernel kills at its first write.
void saveKilled(const std::string& path)
{
    const pid_t child = ::fork();
    if (child == 0) {
        const rlimit nothing{0, 0};
        ::setrlimit(RLIMIT_CORE, &nothing);
        ::setrlimit(RLIMIT_FSIZE, &nothing);
        ::signal(SIGXFSZ, SIG_DFL);
        save(path, "never to be seen");
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
}

class Leftovers : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!hasTrustedLocks(folder.path()))
            GTEST_SKIP() << "the file system of " << folder.path() << " is not one whose locks are trusted";
    }

    const TemporaryFolder folder;
    const std::string list = folder / "list";
    const std::string left = leftoverName(list, 0);
};

}  // namespace

TEST_F(Leftovers, TheNextSaveRemovesWhatAKilledOneLeft)
{
    ASSERT_TRUE(save(list, "old"));
    saveKilled(list);
    EXPECT_EQ(contentsOf(list), "old");
    EXPECT_EQ(namesIn(folder.path()), (Names{".list.fsys-save0.tmp", "list"}));
    EXPECT_TRUE(save(list, "new"));
    EXPECT_EQ(contentsOf(list), "new");
    EXPECT_EQ(namesIn(folder.path()), Names{"list"});
}

TEST_F(Leftovers, OfASaveThroughALinkLieBesideTheFileItself)
{
    folder.folder("real");
    fs::create_symlink("real/list", list);
    ASSERT_TRUE(save(list, "old"));
    saveKilled(list);
    EXPECT_EQ(namesIn(folder / "real").size(), 2U);
    EXPECT_TRUE(save(list, "new"));
    EXPECT_EQ(namesIn(folder / "real"), Names{"list"});
}

TEST_F(Leftovers, OfAnotherFileStay)
{
    saveKilled(list);
    saveKilled(folder / "list2");
    EXPECT_TRUE(save(folder / "list2", "new"));
    EXPECT_EQ(namesIn(folder.path()), (Names{".list.fsys-save0.tmp", "list2"}));
}

TEST_F(Leftovers, OfALiveWriterStayAndAreNotWritten)
{
    folder.file(".list.fsys-save0.tmp", "a writer's");
    {
        const ScopedFd writer(::open(left.c_str(), O_WRONLY | O_CLOEXEC));
        ASSERT_EQ(::flock(writer.get(), LOCK_EX), 0);
        EXPECT_TRUE(save(list, "new"));
        EXPECT_EQ(contentsOf(left), "a writer's");
        EXPECT_EQ(namesIn(folder.path()), (Names{".list.fsys-save0.tmp", "list"}));
    }
    EXPECT_TRUE(save(list, "newer"));
    EXPECT_EQ(namesIn(folder.path()), Names{"list"});
}

TEST_F(Leftovers, WhenAllTheirNamesAreTakenASaveGoesOnUnderAnother)
{
    std::vector<ScopedFd> writers;
    for (unsigned slot = 0; slot < leftoverNames; ++slot) {
        writers.emplace_back(::open(leftoverName(list, slot).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        ASSERT_EQ(::flock(writers.back().get(), LOCK_EX), 0);
    }
    EXPECT_TRUE(save(list, "new"));
    EXPECT_EQ(contentsOf(list), "new");
    EXPECT_EQ(namesIn(folder.path()).size(), leftoverNames + 1);
}

TEST_F(Leftovers, WhatNoSaveLeavesStays)
{
    folder.file("precious", "precious");
    const auto stays = [&](const char* what) {
        EXPECT_TRUE(save(list, "new")) << what;
        struct stat info = {};
        EXPECT_EQ(::lstat(left.c_str(), &info), 0) << what;
        EXPECT_EQ(contentsOf(folder / "precious"), "precious") << what;
        fs::remove_all(left);
    };
    fs::create_symlink("precious", left);
    stays("a link");
    fs::create_hard_link(folder / "precious", left);
    stays("a second name of another file");
    fs::create_directory(left);
    stays("a folder");
    ASSERT_EQ(::mkfifo(left.c_str(), 0600), 0);
    stays("a pipe");
    folder.file(".list.fsys-save0.tmp");
    if (::chown(left.c_str(), 12345, 23456) != 0)
        GTEST_SKIP() << "needs the right to give files away";
    stays("a file of another user");
}

TEST_F(Leftovers, OfASaveThatHadGivenItsFileToTheOwnerGo)
{
    ASSERT_TRUE(save(list, "old"));
    folder.file(".list.fsys-save0.tmp");
    if (::chown(list.c_str(), 12345, 23456) != 0 || ::chown(left.c_str(), 12345, 23456) != 0)
        GTEST_SKIP() << "needs the right to give files away";
    EXPECT_TRUE(save(list, "new"));
    EXPECT_EQ(namesIn(folder.path()), Names{"list"});
}

TEST_F(Leftovers, ANameThatIsTooLongForThemIsSavedAllTheSame)
{
    const std::string name(250, 'n');
    EXPECT_TRUE(save(folder / name, "new"));
    EXPECT_EQ(namesIn(folder.path()), Names{name});
}

// Each looks for leftovers while the others are between making a file and locking it.
TEST_F(Leftovers, SavesAtTheSameTimeDoNotTakeEachOthersFiles)
{
    constexpr int savers = 6;
    constexpr int rounds = 200;
    std::vector<std::thread> threads;
    std::atomic<int> failed{0};
    for (int i = 0; i < savers; ++i)
        threads.emplace_back([&, i] {
            for (int round = 0; round < rounds; ++round)
                failed += save(list, std::string(3000, static_cast<char>('a' + i))) ? 0 : 1;
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failed, 0);
    const std::string last = contentsOf(list);
    EXPECT_EQ(last, std::string(3000, last.at(0)));
    EXPECT_EQ(namesIn(folder.path()), Names{"list"});
}
