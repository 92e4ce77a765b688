#include "os/LastError.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <thread>

TEST(LastError, KeepsErrnosApartFromTheCodesOfTheEngine)
{
    EXPECT_EQ(errorFromErrno(EPERM), 0x10001u);
    EXPECT_EQ(errorFromErrno(ENOENT), 0x10000u + ENOENT);
}

TEST(LastError, IsNeverZero)
{
    EXPECT_EQ(errorFromErrno(0), 0x10000u + EIO);
    EXPECT_EQ(errorFromErrno(-3), 0x10000u + EIO);
    EXPECT_EQ(errorFromErrno(0x10000), 0x10000u + EIO);
    setLastError(0);
    EXPECT_EQ(lastError(), 0x10000u + EIO);
    unsigned fresh = 0;
    std::thread([&] { fresh = lastError(); }).join();
    EXPECT_EQ(fresh, 0x10000u + EIO);
}

TEST(LastError, GivesTheErrnoBack)
{
    EXPECT_EQ(errnoFromError(errorFromErrno(EACCES)), EACCES);
    EXPECT_EQ(errnoFromError(0), 0);
    EXPECT_EQ(errnoFromError(1), 0);
    EXPECT_EQ(errnoFromError(0x10000), 0);
    EXPECT_EQ(errnoFromError(0x20000), 0);
    EXPECT_EQ(errnoFromError(0xFFFFFFFF), 0);
}

TEST(LastError, SettingAnErrnoReturnsAndKeepsItsCode)
{
    EXPECT_EQ(setLastErrno(ENOSPC), 0x10000u + ENOSPC);
    EXPECT_EQ(lastError(), 0x10000u + ENOSPC);
    setLastError(9);
    EXPECT_EQ(lastError(), 9u);
}

TEST(LastError, BelongsToItsThread)
{
    setLastErrno(ENOSPC);
    std::thread([] { setLastErrno(EACCES); }).join();
    EXPECT_EQ(lastError(), errorFromErrno(ENOSPC));
}

TEST(LastError, HasATextForEveryCode)
{
    EXPECT_EQ(errorText(errorFromErrno(ENOENT)), "No such file or directory");
    EXPECT_EQ(errorText(9), "error 9");
}
