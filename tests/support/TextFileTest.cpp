#include "support/TextFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include "TempFolder.h"
#include "os/LastError.h"
#include "os/testing/FakeOS.h"

namespace {

using Lines = std::vector<std::string>;

Lines linesOf(const TextFile& file)
{
    Lines lines;
    for (unsigned i = 0; i < file.getLineCount(); ++i)
        lines.push_back(file.getLine(i).str());
    return lines;
}

// The lines of a real file with that contents.
Lines linesIn(std::string_view contents)
{
    const TempFolder folder;
    folder.write("a.txt", std::string(contents));
    return linesOf(TextFile(folder.wide("a.txt"), true));
}

TEST(TextFile, ALineBreakAtTheEndMakesNoFurtherLine)
{
    EXPECT_EQ(linesIn("a\nb\n"), (Lines{"a", "b"}));
    EXPECT_EQ(linesIn("a\nb"), (Lines{"a", "b"}));
    EXPECT_EQ(linesIn("a\n\n"), (Lines{"a", ""}));
    EXPECT_EQ(linesIn("\n"), (Lines{""}));
    EXPECT_EQ(linesIn(""), Lines());
}

TEST(TextFile, BothKindsOfLineBreakAreUnderstood)
{
    EXPECT_EQ(linesIn("a\r\n\r\nb\nc\r\n"), (Lines{"a", "", "b", "c"}));
    EXPECT_EQ(linesIn("a\rb\r"), (Lines{"a\rb"}));
}

TEST(TextFile, AByteOrderMarkAtTheStartIsPassedOver)
{
    EXPECT_EQ(linesIn("\xEF\xBB\xBFname=x\n\xEF\xBB\xBFy\n"), (Lines{"name=x", "\xEF\xBB\xBFy"}));
    EXPECT_EQ(linesIn("\xEF\xBB\xBF"), Lines());
}

TEST(TextFile, BytesThatAreNoUtf8ComeBackUnchanged)
{
    EXPECT_EQ(linesIn("\xFF\xC3\n\x80"), (Lines{"\xFF\xC3", "\x80"}));
}

TEST(TextFile, AFileOfZeroBytesHasNoLines)
{
    EXPECT_EQ(linesIn(std::string(4096, '\0')), Lines());
    EXPECT_EQ(linesIn(std::string("a\0b\n", 4)), (Lines{std::string("a\0b", 3)}));
}

TEST(TextFile, WhatIsNoFileHasNoLines)
{
    const TempFolder folder;
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(TextFile(folder.wide("missing"), true).getLineCount(), 0u);
    EXPECT_EQ(TextFile(folder.wide(), true).getLineCount(), 0u);
    EXPECT_EQ(TextFile(folder.wide("pipe"), true).getLineCount(), 0u);
    EXPECT_EQ(TextFile(L"", true).getLineCount(), 0u);
}

TEST(TextFile, AFileAboveSixteenMebibytesHasNoLines)
{
    const TempFolder folder;
    folder.write("a.txt", "line\n");
    std::filesystem::resize_file(folder.path("a.txt"), 16u << 20);
    EXPECT_EQ(TextFile(folder.wide("a.txt"), true).getLineCount(), 2u);
    std::filesystem::resize_file(folder.path("a.txt"), (16u << 20) + 1);
    EXPECT_EQ(TextFile(folder.wide("a.txt"), true).getLineCount(), 0u);
}

TEST(TextFile, IsNotReadUnlessAskedTo)
{
    const TempFolder folder;
    folder.write("a.txt", "a\n");
    EXPECT_EQ(TextFile(folder.wide("a.txt"), false).getLineCount(), 0u);
}

TEST(TextFile, ALineOutOfRangeIsEmptyAndRemovingItDoesNothing)
{
    TextFile file(L"", false);
    file.appendLine("a");
    EXPECT_EQ(file.getLine(1), "");
    EXPECT_EQ(file.getLine(4294967295u), "");
    file.removeLine(1);
    file.removeLine(4294967295u);
    EXPECT_EQ(linesOf(file), Lines{"a"});
}

TEST(TextFile, LinesMayBeRemovedWhileAnIndexRunsToTheFirstCount)
{
    TextFile file(L"", false);
    for (const char* line : {"x", "x", "y"})
        file.appendLine(line);
    const unsigned count = file.getLineCount();
    for (unsigned i = 0; i < count; ++i)
        if (file.getLine(i) == "x")
            file.removeLine(i);
    EXPECT_EQ(linesOf(file), (Lines{"x", "y"}));
}

TEST(TextFile, SavesLinesWithTheLineBreakOfTheStyle)
{
    const TempFolder folder;
    TextFile file(folder.wide("a.txt"), false);
    file.appendLine("a");
    file.appendLine("");
    file.appendLine("b");
    EXPECT_TRUE(file.save(1));
    EXPECT_EQ(folder.read("a.txt"), "a\n\nb\n");
    EXPECT_TRUE(file.save(2));
    EXPECT_EQ(folder.read("a.txt"), "a\r\n\r\nb\r\n");
}

TEST(TextFile, SavingReplacesTheWholeFile)
{
    const TempFolder folder;
    folder.write("a.txt", "a long line that was there before\n");
    TextFile file(folder.wide("a.txt"), false);
    file.appendLine("x");
    EXPECT_TRUE(file.save(1));
    EXPECT_EQ(folder.read("a.txt"), "x\n");
    file.removeLine(0);
    EXPECT_TRUE(file.save(1));
    EXPECT_EQ(folder.read("a.txt"), "");
}

TEST(TextFile, SavingLeavesNothingElseInTheFolder)
{
    const TempFolder folder;
    TextFile file(folder.wide("a.txt"), false);
    EXPECT_TRUE(file.save(1));
    EXPECT_FALSE(TextFile(folder.wide("no/folder/a.txt"), false).save(1));
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        names.push_back(entry.path().filename());
    EXPECT_EQ(names, Lines{"a.txt"});
}

TEST(TextFile, WhatWasSavedIsWhatIsRead)
{
    const TempFolder folder;
    const Lines lines{"/m/K\xC3\xB6ln \xF0\x9F\x8E\xAC", "", "\\\\srv\\share", "\xFF", " blanks "};
    for (const int style : {1, 2}) {
        TextFile file(folder.wide("\xC3\xB6 \xFF.txt"), false);
        for (const std::string& line : lines)
            file.appendLine(line);
        ASSERT_TRUE(file.save(style));
        EXPECT_EQ(linesOf(TextFile(folder.wide("\xC3\xB6 \xFF.txt"), true)), lines);
    }
}

TEST(TextFile, AFailedSaveSaysSoAndLeavesTheOldFile)
{
    FakeOS os;
    const ScopedOS installed(os);
    os.files().addFile(L"/p/a.txt", "old\n");
    os.faults().failNext(fake::Op::replaceFile, errorFromErrno(ENOSPC));
    TextFile file(L"/p/a.txt", true);
    file.appendLine("new");
    EXPECT_FALSE(file.save(1));
    EXPECT_EQ(os.files().contents(L"/p/a.txt"), "old\n");
    EXPECT_TRUE(file.save(1));
    EXPECT_EQ(os.files().contents(L"/p/a.txt"), "old\nnew\n");
}

TEST(TextFile, AFileThatCouldNotBeLoadedIsNotReplaced)
{
    FakeOS os;
    const ScopedOS installed(os);
    os.files().addFile(L"/p/a.txt", "old\n");
    os.faults().failNext(fake::Op::readWholeFile, errorFromErrno(EIO));
    TextFile file(L"/p/a.txt", true);
    file.appendLine("new");
    EXPECT_EQ(linesOf(file), Lines{"new"});
    EXPECT_FALSE(file.save(1));
    EXPECT_EQ(os.files().contents(L"/p/a.txt"), "old\n");
    EXPECT_TRUE(TextFile(L"/p/a.txt", false).save(1));
}

}  // namespace
