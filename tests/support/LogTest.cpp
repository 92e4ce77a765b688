#include "support/Log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "LogRecorder.h"

namespace {

using Texts = std::vector<std::string>;

TEST(Log, ASinkGetsEachKindOfReport)
{
    LogRecorder recorder;
    Log("a %d", 1);
    LogBoth("b %ls\n", L"\u00F6");
    qa_splat("Outstanding writes not completed", 8);
    herc_putstr(32, 6, "text");
    EXPECT_EQ(recorder.texts, (Texts{"log a 1", "both b \xC3\xB6\n",
                                     "splat 8 Outstanding writes not completed", "debug 32 6 text"}));
}

TEST(Log, ASinkKeepsStandardOutputQuiet)
{
    LogRecorder recorder;
    testing::internal::CaptureStdout();
    LogBoth("to the sink\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(Log, InstallingASinkReturnsTheOneBefore)
{
    LogRecorder first;
    {
        LogRecorder second;
        Log("to the second");
        EXPECT_EQ(setLogSink(&first), &second);
        EXPECT_EQ(setLogSink(&second), &first);
        EXPECT_EQ(second.texts.size(), 1u);
    }
    Log("to the first");
    EXPECT_EQ(first.texts, Texts{"log to the first"});
}

TEST(Log, ThreadsMayLogAtTheSameTime)
{
    LogRecorder recorder;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([thread] {
            for (int i = 0; i < 200; ++i)
                Log("%d %ls", thread, L"whole");
        });
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_EQ(recorder.texts.size(), 800u);
    for (int thread = 0; thread < 4; ++thread)
        EXPECT_EQ(std::count(recorder.texts.begin(), recorder.texts.end(),
                             "log " + std::to_string(thread) + " whole"),
                  200);
}

TEST(QaSplat, NullTextIsEmpty)
{
    LogRecorder recorder;
    qa_splat(nullptr, 0);
    EXPECT_EQ(recorder.texts, Texts{"splat 0 "});
}

TEST(DebugScreen, ShowsTextWhereItWasPut)
{
    herc_putstr(3, 20, "abc");
    EXPECT_EQ(herc_row(20), "   abc");
    EXPECT_EQ(herc_row(21), "");
}

TEST(DebugScreen, TextGoesOverWhatStoodThereAndLeavesTheRest)
{
    herc_putstr(0, 22, "abcdef");
    herc_putstr(2, 22, "XY");
    EXPECT_EQ(herc_row(22), "abXYef");
    herc_putstr(4, 22, "  ");
    EXPECT_EQ(herc_row(22), "abXY");
}

TEST(DebugScreen, CutsOffWhatDoesNotFit)
{
    herc_putstr(126, 40, "abcd");
    EXPECT_EQ(herc_row(40), std::string(126, ' ') + "ab");
    EXPECT_EQ(herc_row(41), "");
    herc_putstr(-2, 40, "wxyz");
    EXPECT_EQ(herc_row(40), "yz" + std::string(124, ' ') + "ab");
    herc_putstr(2147483647, 40, "far");
    herc_putstr(-2147483647 - 1, 40, "far");
    EXPECT_EQ(herc_row(40), "yz" + std::string(124, ' ') + "ab");
    EXPECT_EQ(herc_row(39), "");
    EXPECT_EQ(herc_row(41), "");
}

TEST(DebugScreen, RowsOutsideOfTheScreenAreNone)
{
    herc_putstr(0, 63, "last");
    herc_putstr(0, 64, "below");
    herc_putstr(0, -1, "above");
    EXPECT_EQ(herc_row(63), "last");
    EXPECT_EQ(herc_row(64), "");
    EXPECT_EQ(herc_row(-1), "");
}

TEST(DebugScreen, ACharacterTakesOneCellWhateverItsBytes)
{
    herc_putstr(0, 24, "\xC3\xB6\xE6\x97\xA5z");
    herc_putstr(1, 24, "-");
    EXPECT_EQ(herc_row(24), "\xC3\xB6-z");
}

TEST(DebugScreen, ControlCharactersAreBlanks)
{
    herc_putstr(0, 25, "a\nb\tc\x7F");
    EXPECT_EQ(herc_row(25), "a b c");
}

TEST(DebugScreen, NullTextChangesNothing)
{
    herc_putstr(0, 26, "kept");
    herc_putstr(0, 26, nullptr);
    EXPECT_EQ(herc_row(26), "kept");
}

TEST(DebugScreen, IsKeptWhileASinkListens)
{
    LogRecorder recorder;
    herc_putstr(0, 27, "both");
    EXPECT_EQ(herc_row(27), "both");
    EXPECT_EQ(recorder.texts, Texts{"debug 0 27 both"});
}

TEST(DebugScreen, ThreadsMayWriteAtTheSameTime)
{
    std::thread other([] {
        for (int i = 0; i < 200; ++i)
            herc_putstr(0, 28, i % 2 ? "aaaa" : "bbbb");
    });
    for (int i = 0; i < 200; ++i) {
        const auto row = herc_row(28);
        EXPECT_TRUE(row == "" || row == "aaaa" || row == "bbbb") << row.c_str();
    }
    other.join();
}

}  // namespace
