#include "support/Preferences.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "ProbeProcess.h"
#include "TempFolder.h"

namespace {

const std::string defaultPlace = ".config/fsys/preferences";

TEST(Preferences, ComeBackInTheNextRun)
{
    const TempFolder folder;
    const ProbeProcess::Environment environment{{"FSYS_PREFS", folder.path("prefs")}};
    const std::string key = "Media Location (Record)";
    const std::string value = "/m/K\xC3\xB6ln = \xF0\x9F\x8E\xAC/";
    EXPECT_EQ(runProbe(environment, {"set", key, value}).out, "1\n");
    EXPECT_EQ(runProbe(environment, {"get", key, "none"}).out, value + '\n');
    EXPECT_EQ(runProbe(environment, {"remove", key}).out, "1\n");
    EXPECT_EQ(runProbe(environment, {"get", key, "none"}).out, "none\n");
}

TEST(Preferences, AnEmptyValueIsNotTheDefault)
{
    const TempFolder folder;
    const ProbeProcess::Environment environment{{"FSYS_PREFS", folder.path("prefs")}};
    EXPECT_EQ(runProbe(environment, {"set", "a", "", "get", "a", "none"}).out, "1\n\n");
    EXPECT_EQ(runProbe(environment, {"get", "a", "none"}).out, "\n");
}

TEST(Preferences, StandInTheConfigurationFolderOfTheUser)
{
    const TempFolder home;
    EXPECT_EQ(runProbe({{"HOME", home.path()}}, {"set", "a", "1"}).out, "1\n");
    EXPECT_EQ(home.read(defaultPlace), "a=1\n");
    EXPECT_EQ(runProbe({{"HOME", home.path()}, {"XDG_CONFIG_HOME", home.path("x/y")}}, {"set", "a", "2"}).out,
              "1\n");
    EXPECT_EQ(home.read("x/y/fsys/preferences"), "a=2\n");
    EXPECT_EQ(home.read(defaultPlace), "a=1\n");
}

TEST(Preferences, AreReadOnce)
{
    const TempFolder folder;
    folder.write("prefs", "a=1\n");
    EXPECT_EQ(runProbe({{"FSYS_PREFS", folder.path("prefs")}},
                       {"get", "a", "none", "write", folder.path("prefs"), "a=2\n", "get", "a", "none"})
                  .out,
              "1\n1\n");
}

TEST(Preferences, AFolderInPlaceOfTheFileKeepsChangesForThisRunOnly)
{
    const TempFolder home;
    std::filesystem::create_directories(home.path(defaultPlace));
    const auto result = runProbe({{"HOME", home.path()}}, {"set", "a", "1", "get", "a", "none"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "0\n1\n");
}

TEST(Preferences, AFileInPlaceOfTheirFolderIsNothingToReport)
{
    const TempFolder home;
    home.write(".config", "x");
    const auto result = runProbe({{"HOME", home.path()}, {"FSYS_LOG", home.path("log")}},
                                 {"get", "a", "none", "set", "a", "1", "log", "end"});
    EXPECT_EQ(result.out, "none\n0\n");
    EXPECT_EQ(home.read("log"), "end");
    EXPECT_EQ(home.read(".config"), "x");
}

TEST(Preferences, WithoutAPlaceTheyLastAsLongAsTheProcess)
{
    EXPECT_EQ(runProbe({{"HOME", ""}}, {"set", "a", "1", "get", "a", "none"}).out, "0\n1\n");
}

TEST(Preferences, ALineThatIsNotUnderstoodIsReportedInTheLog)
{
    const TempFolder folder;
    folder.write("prefs", "a=1\nbroken\n");
    const auto result = runProbe({{"FSYS_PREFS", folder.path("prefs")}, {"FSYS_LOG", folder.path("log")}},
                                 {"get", "a", "none", "get", "b", "none"});
    EXPECT_EQ(result.out, "1\nnone\n");
    EXPECT_EQ(folder.read("log"), "Preferences " + folder.path("prefs") + ": line 2 is not understood\n");
}

TEST(Preferences, ALogSinkMayAskForPreferences)
{
    const TempFolder folder;
    folder.write("prefs", "a=1\nbroken\n");
    const auto result = runProbe({{"FSYS_PREFS", folder.path("prefs")}}, {"asking", "get", "a", "none"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "the sink has 1\n1\n");
}

TEST(Preferences, ThreadsMayAskAndChangeAtTheSameTime)
{
    static const TempFolder folder;  // the place is found once per process
    setenv("FSYS_PREFS", folder.path("prefs").c_str(), 1);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([thread] {
            const std::string key = "support test " + std::to_string(thread);
            for (int i = 0; i < 20; ++i) {
                (void)prefs().setPreference(key, std::to_wstring(i));
                EXPECT_EQ(prefs().getPreference(key, L"none"), std::to_wstring(i));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(folder.read("prefs").size(), 4 * std::string("support test 0=19\n").size());
    unsetenv("FSYS_PREFS");
}

}  // namespace
