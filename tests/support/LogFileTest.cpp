#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <list>
#include <sstream>
#include <string>

#include "ProbeProcess.h"
#include "TempFolder.h"

namespace {

const std::string defaultFile = ".local/state/fsys/fsys.log";

TEST(LogFile, IsMadeWithItsFoldersInTheStateFolderOfTheUser)
{
    const TempFolder home;
    const auto result = runProbe({{"HOME", home.path()}}, {"log", "hello\n"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(home.read(defaultFile), "hello\n");
    EXPECT_EQ(result.out + result.err, "");
}

TEST(LogFile, FollowsTheStateFolderThatIsNamed)
{
    const TempFolder folder;
    runProbe({{"HOME", folder.path()}, {"XDG_STATE_HOME", folder.path("state")}}, {"log", "hello"});
    EXPECT_EQ(folder.read("state/fsys/fsys.log"), "hello");
    EXPECT_EQ(folder.read(defaultFile), "(missing)");
}

TEST(LogFile, ARelativeStateFolderCountsAsNotNamed)
{
    const TempFolder home;
    runProbe({{"HOME", home.path()}, {"XDG_STATE_HOME", "state"}}, {"log", "hello"});
    EXPECT_EQ(home.read(defaultFile), "hello");
}

TEST(LogFile, IsTheOneThatIsNamed)
{
    const TempFolder folder;
    runProbe({{"HOME", folder.path()}, {"FSYS_LOG", folder.path("new/my.log")}}, {"log", "hello"});
    EXPECT_EQ(folder.read("new/my.log"), "hello");
    EXPECT_EQ(folder.read(defaultFile), "(missing)");
}

TEST(LogFile, IsNotMadeBeforeTheFirstText)
{
    const TempFolder home;
    EXPECT_EQ(runProbe({{"HOME", home.path()}}, {}).status, 0);
    EXPECT_FALSE(std::filesystem::exists(home.path(".local")));
}

TEST(LogFile, IsAppendedTo)
{
    const TempFolder folder;
    folder.write("my.log", "before\n");
    runProbe({{"FSYS_LOG", folder.path("my.log")}}, {"log", "one ", "log", "two\n"});
    EXPECT_EQ(folder.read("my.log"), "before\none two\n");
}

TEST(LogFile, LogBothWritesToStandardOutputToo)
{
    const TempFolder folder;
    const auto result = runProbe({{"FSYS_LOG", folder.path("my.log")}}, {"both", "a\n", "log", "b\n"});
    EXPECT_EQ(result.out, "a\n");
    EXPECT_EQ(folder.read("my.log"), "a\nb\n");
}

TEST(LogFile, LogBothLeavesStandardOutputToAProgramThatWantsItForItself)
{
    const TempFolder folder;
    const auto result = runProbe({{"FSYS_LOG", folder.path("my.log")}},
                                 {"quiet", "1", "both", "a\n", "quiet", "0", "both", "b\n"});
    EXPECT_EQ(result.out, "b\n");
    EXPECT_EQ(folder.read("my.log"), "a\nb\n");
}

TEST(LogFile, ACrashLosesNoTextThatWasLogged)
{
    const TempFolder folder;
    const auto result = runProbe({{"FSYS_LOG", folder.path("my.log")}}, {"log", "a\n", "both", "b\n", "die"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "b\n");
    EXPECT_EQ(folder.read("my.log"), "a\nb\n");
}

TEST(LogFile, WideTextIsUtf8WhateverTheLocaleOfTheUser)
{
    const TempFolder folder;
    for (const char* locale : {"C", "POSIX", "C.UTF-8", "nonsense"}) {
        const auto result = runProbe({{"FSYS_LOG", folder.path("my.log")}, {"LC_ALL", locale}}, {"wide"});
        EXPECT_EQ(result.out, "Added media location : /m/K\xC3\xB6ln \xF0\x9F\x8E\xAC\n") << locale;
    }
}

TEST(LogFile, ASplatIsALineWithItsLevel)
{
    const TempFolder folder;
    runProbe({{"FSYS_LOG", folder.path("my.log")}},
             {"splat", "Outstanding writes not completed", "8", "splat", "Timed out\n", "0"});
    EXPECT_EQ(folder.read("my.log"),
              "qa_splat(8): Outstanding writes not completed\nqa_splat(0): Timed out\n");
}

TEST(LogFile, WhatIsNamedAndCannotBeOpenedGivesWayToTheUsualPlace)
{
    const TempFolder folder;
    folder.write("file", "");
    runProbe({{"HOME", folder.path()}, {"FSYS_LOG", folder.path("file/my.log")}}, {"log", "hello"});
    EXPECT_EQ(folder.read(defaultFile), "hello");
}

TEST(LogFile, AFolderInItsPlaceDropsTextsForTheLogAlone)
{
    const TempFolder home;
    std::filesystem::create_directories(home.path(defaultFile));
    const auto result = runProbe({{"HOME", home.path()}}, {"log", "dropped", "both", "shown\n"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "shown\n");
}

TEST(LogFile, WithoutAnyPlaceTextsForTheLogAloneAreDropped)
{
    const auto result = runProbe({{"HOME", ""}}, {"log", "dropped", "both", "shown\n"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "shown\n");
}

TEST(LogFile, APipeThatNobodyReadsIsNotWaitedFor)
{
    const TempFolder folder;
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    const auto result = runProbe({{"HOME", folder.path()}, {"FSYS_LOG", folder.path("pipe")}}, {"log", "x"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(folder.read(defaultFile), "x");
}

TEST(LogFile, TextsOfSeveralProcessesStayWhole)
{
    const TempFolder folder;
    std::list<ProbeProcess> processes;
    for (const char letter : {'a', 'b', 'c'})
        processes.emplace_back(ProbeProcess::Environment{{"FSYS_LOG", folder.path("my.log")}},
                               std::vector<std::string>{"many", std::string(9000, letter), "100"});
    for (ProbeProcess& process : processes)
        EXPECT_EQ(process.wait().status, 0);

    std::istringstream log(folder.read("my.log"));
    int lines = 0;
    for (std::string line; std::getline(log, line); ++lines) {
        ASSERT_EQ(line.size(), 9000u);
        ASSERT_EQ(line, std::string(9000, line[0]));
    }
    EXPECT_EQ(lines, 300);
}

TEST(LogFile, WorksBeforeMainAndInStaticDestructors)
{
    const TempFolder folder;
    folder.write("prefs", "early=yes\n");
    const auto result = runProbe({{"FSYS_LOG", folder.path("my.log")},
                                  {"FSYS_PREFS", folder.path("prefs")},
                                  {"FSYS_CFG_Early", "42"},
                                  {"PROBE_EARLY", "1"},
                                  {"PROBE_LATE", "1"}},
                                 {"both", "in main\n"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "before main: 42 yes\nin main\nafter main: 42 yes\n");
    EXPECT_EQ(folder.read("my.log"), result.out);
}

}  // namespace
