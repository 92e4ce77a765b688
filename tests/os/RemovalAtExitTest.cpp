#include "os/linux/RemovalAtExit.h"

#include "common/TemporaryFolder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <unistd.h>

using namespace os;

TEST(RemovalAtExit, RemovesTheFileAtNormalExit)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("EDIT3.cli");
    const std::string other = folder.file("other");
    EXPECT_EXIT(
        {
            removeAtExit(path, false);
            removeAtExit(path, false);
            removeAtExit(folder / "missing", false);
            std::exit(std::filesystem::exists(path) ? 3 : 4);
        },
        testing::ExitedWithCode(3), "");
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(std::filesystem::exists(other));
}

TEST(RemovalAtExit, AnAbruptEndRemovesNothing)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("EDIT3.cli");
    EXPECT_EXIT(
        {
            removeAtExit(path, false);
            ::_exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(RemovalAtExit, AChildRemovesNothingOfItsParent)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("EDIT3.cli");
    removeAtExit(path, false);
    EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(RemovalAtExit, RemovesAFileOfAServerToo)
{
    // The child starts anew and finds its file through the environment: it needs a thread of its own,
    // which a plain fork of a process with threads may not start.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::optional<TemporaryFolder> folder;
    if (!std::getenv("FSYS_TEST_LOCK_FILE")) {
        folder.emplace();
        ::setenv("FSYS_TEST_LOCK_FILE", folder->file("EDIT3.cli").c_str(), 1);
    }
    EXPECT_EXIT(
        {
            removeAtExit(std::getenv("FSYS_TEST_LOCK_FILE"), true);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    ::unsetenv("FSYS_TEST_LOCK_FILE");
    ASSERT_TRUE(folder.has_value());
    EXPECT_FALSE(std::filesystem::exists(*folder / "EDIT3.cli"));
}
