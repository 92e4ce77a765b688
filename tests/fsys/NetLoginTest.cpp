#include "fsys/NetLogin.h"

#include <cstdlib>
#include <optional>

#include <gtest/gtest.h>

#include "Qz/Utf8.h"

#include "FileSpy.h"

namespace {

using Path = LightweightString<wchar_t>;

// Two shared folders and a machine called EDIT3 that is logged in to neither.
class NetLoginToAFolder : public testing::Test
{
protected:
    NetLoginToAFolder()
    {
        logOut();
        spy.machineName = L"EDIT3";
        std::filesystem::create_directories(a.str());
        std::filesystem::create_directories(b.str());
    }
    ~NetLoginToAFolder() override { logOut(); }

    static void logOut()
    {
        NetLogout();
        lockFilehandle = nullptr;
    }

    TestFolder folder;
    FileSpy spy;
    const Path a = folder.path("a");
    const Path b = folder.path("b");
};

}  // namespace

TEST_F(NetLoginToAFolder, NamesTheLockFileAfterTheMachine)
{
    EXPECT_EQ(getNetLoginLockFileName(L"/net/share/projects"), L"/net/share/projects/EDIT3.cli");
    EXPECT_EQ(getNetLoginLockFileName(L"/net/share/projects/"), L"/net/share/projects/EDIT3.cli");
    EXPECT_EQ(getNetLoginLockFileName(L""), L"/EDIT3.cli");
    EXPECT_EQ(spy.diskAccesses, 0);
}

TEST_F(NetLoginToAFolder, HoldsAnEmptyLockFileOpen)
{
    EXPECT_TRUE(NetLogin(a));
    EXPECT_TRUE(lockFilehandle && lockFilehandle->isOpen());
    EXPECT_EQ(lockFileName, folder.path("a/EDIT3.cli"));
    EXPECT_TRUE(folder.has("a/EDIT3.cli"));
    EXPECT_EQ(folder.read("a/EDIT3.cli"), "");
}

TEST_F(NetLoginToAFolder, OpensTheLockFileWithFixedCodes)
{
    NetLogin(a);
    EXPECT_EQ(spy.opens(), (std::vector<FileSpy::Opened>{{folder.path("a/EDIT3.cli"), 3, 3, 4, 32}}));
}

TEST_F(NetLoginToAFolder, TakesALockFileThatIsThereAlready)
{
    folder.write("a/EDIT3.cli", "");
    EXPECT_TRUE(NetLogin(a));
    EXPECT_TRUE(lockFilehandle);
}

TEST_F(NetLoginToAFolder, RegistersTheLockFileForRemoval)
{
    NetLogin(a);
    EXPECT_EQ(spy.registeredForRemoval, std::vector<Path>{folder.path("a/EDIT3.cli")});
}

TEST_F(NetLoginToAFolder, EndsWithALogout)
{
    NetLogin(a);
    EXPECT_TRUE(NetLogout());
    EXPECT_FALSE(lockFilehandle);
    EXPECT_TRUE(lockFileName.empty());
    EXPECT_TRUE(folder.has("a/EDIT3.cli")) << "a logout gives up the file and leaves it there";
}

TEST_F(NetLoginToAFolder, MayBeLoggedOutOfWithoutALogin)
{
    EXPECT_TRUE(NetLogout());
    EXPECT_FALSE(lockFilehandle);
    EXPECT_TRUE(lockFileName.empty());
    EXPECT_EQ(spy.diskAccesses, 0);
}

TEST_F(NetLoginToAFolder, FailsWhereThereIsNoFolder)
{
    EXPECT_FALSE(NetLogin(folder.path("missing")));
    EXPECT_FALSE(lockFilehandle);
    EXPECT_TRUE(lockFileName.empty());
    EXPECT_TRUE(spy.registeredForRemoval.empty());
}

TEST_F(NetLoginToAFolder, FailsWhereTheFileIsNotOpen)
{
    spy.openInvalid = true;
    EXPECT_FALSE(NetLogin(a));
    EXPECT_TRUE(lockFileName.empty());
    EXPECT_TRUE(spy.registeredForRemoval.empty());
}

TEST_F(NetLoginToAFolder, FollowsALogoutFromAnother)
{
    NetLogin(a);
    NetLogout();
    EXPECT_TRUE(NetLogin(b));
    EXPECT_TRUE(lockFilehandle && lockFilehandle->isOpen());
    EXPECT_EQ(lockFileName, folder.path("b/EDIT3.cli"));
}

TEST_F(NetLoginToAFolder, IsGrantedWithoutALockWhenTheOneBeforeWasNotEnded)
{
    EXPECT_TRUE(NetLogin(a));
    EXPECT_TRUE(NetLogin(b));
    EXPECT_FALSE(lockFilehandle);
    EXPECT_EQ(lockFileName, folder.path("b/EDIT3.cli"));
    EXPECT_TRUE(folder.has("b/EDIT3.cli"));
    EXPECT_TRUE(NetLogin(a)) << "and so is every further one";
    EXPECT_FALSE(lockFilehandle);
}

TEST_F(NetLoginToAFolder, ThatFailsGivesUpTheFileButNotTheNameOfTheOneBefore)
{
    NetLogin(a);
    Qz::Ptr<iFile> held = lockFilehandle;
    EXPECT_FALSE(NetLogin(folder.path("missing")));
    EXPECT_FALSE(lockFilehandle);
    EXPECT_EQ(held->refCount(), 1u);
    EXPECT_EQ(lockFileName, folder.path("a/EDIT3.cli"));
    EXPECT_TRUE(NetLogout());
    EXPECT_TRUE(lockFileName.empty());
}

TEST_F(NetLoginToAFolder, WhoseFileIsNotOpenGivesUpTheOneBeforeAndKeepsItsName)
{
    NetLogin(a);
    const Qz::Ptr<iFile> held = lockFilehandle;
    spy.openInvalid = true;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(NetLogin(b));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(spy.reportedErrors.empty());
    ASSERT_TRUE(lockFilehandle);
    EXPECT_FALSE(lockFilehandle->isOpen());
    EXPECT_NE(lockFilehandle, held);
    EXPECT_EQ(held->refCount(), 1u);
    EXPECT_EQ(lockFileName, folder.path("a/EDIT3.cli"));
    EXPECT_EQ(spy.registeredForRemoval, std::vector<Path>{folder.path("a/EDIT3.cli")});
}

TEST_F(NetLoginToAFolder, FailsWithoutAMessage)
{
    testing::internal::CaptureStdout();
    EXPECT_FALSE(NetLogin(folder.path("missing")));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(spy.reportedErrors.empty());
}

TEST_F(NetLoginToAFolder, LeavesNoDescriptorBehind)
{
    NetLogin(a);
    NetLogin(b);
    NetLogout();
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        EXPECT_FALSE(std::filesystem::read_symlink(entry.path(), gone).wstring().ends_with(L".cli"));
    }
}

TEST(NetLoginDeathTest, TheLockFileGoesWhenTheProcessEndsNormally)
{
    // The process that logs in starts this test anew, and finds the folder in its environment.
    constexpr const char* variable = "FSYS_TEST_LOGIN_FOLDER";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::optional<TestFolder> folder;
    if (!std::getenv(variable)) {
        folder.emplace();
        ::setenv(variable, toUTF8(folder->path()).c_str(), 1);
    }
    const auto logInAndEnd = [] {
        const bool loggedIn = NetLogin(fromUTF8(std::getenv(variable)));
        std::exit(loggedIn && std::filesystem::exists(lockFileName.str()) ? 0 : 1);
    };
    EXPECT_EXIT(logInAndEnd(), testing::ExitedWithCode(0), "");
    ::unsetenv(variable);
    EXPECT_TRUE(std::filesystem::is_empty(folder.value().path().str()));
}
