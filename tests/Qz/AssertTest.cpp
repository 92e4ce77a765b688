#include "Qz/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

std::string contentsOf(const std::string& path)
{
    std::ostringstream contents;
    contents << std::ifstream(path).rdbuf();
    return contents.str();
}

[[noreturn]] void exitZeroWhenTheLineIsOutAtOnce(const std::string& path)
{
    const bool redirected = std::freopen(path.c_str(), "w", stdout) != nullptr;
    Qz::assertionFailed("ok", "here line 1");
    std::_Exit(redirected && contentsOf(path) == "assertion failed ok at here line 1\n" ? 0 : 1);
}

}  // namespace

TEST(Assert, AFailurePrintsConditionAndPlaceAsOneLine)
{
    testing::internal::CaptureStdout();
    Qz::assertionFailed("ok == QzResult::OK", "ole/fsys/DiskManager line 347");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "assertion failed ok == QzResult::OK at ole/fsys/DiskManager line 347\n");
}

TEST(Assert, PercentSignsInTheTextsAreNotFormats)
{
    testing::internal::CaptureStdout();
    Qz::assertionFailed("a % b", "%s%n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "assertion failed a % b at %s%n\n");
}

TEST(Assert, VerifyIsSilentAndTrueWhenTheConditionHolds)
{
    testing::internal::CaptureStdout();
    const bool answer = Qz::verify(true, "c", "p");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_TRUE(answer);
}

TEST(Assert, VerifyReportsAndGoesOnWhenTheConditionIsBroken)
{
    testing::internal::CaptureStdout();
    const bool answer = Qz::verify(false, "c", "p");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "assertion failed c at p\n");
    EXPECT_FALSE(answer);
}

TEST(Assert, TheLineLeavesTheProcessAtOnceEvenIntoAFile)
{
    const std::string path = testing::TempDir() + "qz_assert_flush.txt";
    EXPECT_EXIT(exitZeroWhenTheLineIsOutAtOnce(path), testing::ExitedWithCode(0), "");
    std::remove(path.c_str());
}
