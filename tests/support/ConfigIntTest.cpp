#include "support/ConfigInt.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <tuple>
#include <vector>

#include "ProbeProcess.h"
#include "TempFolder.h"

namespace {

// What config_int says about key, default 5, in a process of its own.
ProbeProcess::Result ask(const ProbeProcess::Environment& environment, const std::string& key = "Key")
{
    return runProbe(environment, {"config", key, "5"});
}

void expectAnswer(const ProbeProcess::Result& result, const std::string& answer)
{
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, answer + '\n');
    EXPECT_EQ(result.err, "");
}

TEST(ConfigInt, AnUnknownKeyHasItsDefault) { expectAnswer(ask({}), "5"); }

TEST(ConfigInt, TheFileOfTheEnvironmentIsRead)
{
    const TempFolder folder;
    folder.write("my.conf", "Other = 1\nKey = 17\n");
    expectAnswer(ask({{"FSYS_CONFIG", folder.path("my.conf")}}), "17");
}

TEST(ConfigInt, TheFileOfTheUserIsReadWhenNoneIsNamed)
{
    const TempFolder home;
    home.write(".config/fsys/fsys.conf", "Key = 18\n");
    expectAnswer(ask({{"HOME", home.path()}}), "18");
    expectAnswer(ask({{"HOME", home.path()}, {"FSYS_CONFIG", ""}}), "18");
}

TEST(ConfigInt, TheConfigurationFolderOfTheUserMayBeElsewhere)
{
    const TempFolder home;
    home.write(".config/fsys/fsys.conf", "Key = 18\n");
    home.write("xdg/fsys/fsys.conf", "Key = 19\n");
    expectAnswer(ask({{"HOME", home.path()}, {"XDG_CONFIG_HOME", home.path("xdg")}}), "19");
    expectAnswer(ask({{"HOME", home.path()}, {"XDG_CONFIG_HOME", "xdg"}}), "18");
}

TEST(ConfigInt, ANamedFileTakesThePlaceOfAllOthers)
{
    const TempFolder home;
    home.write(".config/fsys/fsys.conf", "Key = 18\n");
    home.write("my.conf", "Other = 1\n");
    expectAnswer(ask({{"HOME", home.path()}, {"FSYS_CONFIG", home.path("my.conf")}}), "5");
    expectAnswer(ask({{"HOME", home.path()}, {"FSYS_CONFIG", "/dev/null"}}), "5");
}

TEST(ConfigInt, TheEnvironmentOverridesOneKey)
{
    const TempFolder folder;
    folder.write("my.conf", "Key = 17\nOther = 21\n");
    const ProbeProcess::Environment environment{{"FSYS_CONFIG", folder.path("my.conf")},
                                                {"FSYS_CFG_Key", "-3"}};
    expectAnswer(ask(environment), "-3");
    expectAnswer(ask(environment, "Other"), "21");
}

TEST(ConfigInt, KeysAreTakenByTheLetter)
{
    const TempFolder folder;
    folder.write("my.conf", "key = 17\n");
    expectAnswer(ask({{"FSYS_CONFIG", folder.path("my.conf")}, {"FSYS_CFG_KEY", "1"}}), "5");
}

TEST(ConfigInt, TheFileIsReadOnce)
{
    const TempFolder folder;
    folder.write("my.conf", "Key = 17\n");
    const auto result = runProbe({{"FSYS_CONFIG", folder.path("my.conf")}},
                                 {"config", "Key", "5", "write", folder.path("my.conf"),
                                  "Key = 99\nOther = 3\n", "config", "Key", "5", "config", "Other", "6"});
    EXPECT_EQ(result.out, "17\n17\n6\n");
}

TEST(ConfigInt, AValueThatIsNoIntegerIsReportedWithFileAndLine)
{
    const TempFolder folder;
    folder.write("my.conf", "# first\n\nKey = 12 ms\n");
    const auto result = ask({{"FSYS_CONFIG", folder.path("my.conf")}});
    EXPECT_EQ(result.out, "5\n");
    EXPECT_EQ(result.err, "fsys configuration: " + folder.path("my.conf") +
                              ":3: value '12 ms' of Key is not an integer; using 5\n");
}

TEST(ConfigInt, AValueOfTheEnvironmentThatIsNoIntegerIsReportedWithItsVariable)
{
    const TempFolder folder;
    folder.write("my.conf", "Key = 17\n");
    for (const std::string value : {"", " ", "x", "1.5", "0x10", "2147483648", "-2147483649", "1 2", "--1"}) {
        const auto result = ask({{"FSYS_CONFIG", folder.path("my.conf")}, {"FSYS_CFG_Key", value}});
        EXPECT_EQ(result.out, "5\n") << value;
        EXPECT_NE(result.err.find("FSYS_CFG_Key: value '" + value + "' of Key is not an integer"),
                  std::string::npos)
            << result.err;
    }
}

TEST(ConfigInt, AWrongValueIsReportedOncePerKey)
{
    const auto result = runProbe({{"FSYS_CFG_Key", "x"}, {"FSYS_CFG_Other", "y"}},
                                 {"config", "Key", "5", "config", "Key", "6", "config", "Other", "7"});
    EXPECT_EQ(result.out, "5\n6\n7\n");
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2);
}

TEST(ConfigInt, ANamedFileThatIsMissingIsReported)
{
    const TempFolder folder;
    const auto result = ask({{"FSYS_CONFIG", folder.path("my.conf")}});
    EXPECT_EQ(result.out, "5\n");
    EXPECT_EQ(result.err, "fsys configuration: " + folder.path("my.conf") + ": no such file\n");
}

TEST(ConfigInt, APipeOrAFolderInPlaceOfTheFileIsReportedAndNeverWaitedFor)
{
    const TempFolder folder;
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    for (const std::string& place : {folder.path("pipe"), folder.path(), std::string("/dev/zero")}) {
        const auto result = ask({{"FSYS_CONFIG", place}});
        EXPECT_EQ(result.out, "5\n") << place;
        EXPECT_EQ(result.err, "fsys configuration: " + place + ": not a file that can be read\n");
    }
}

TEST(ConfigInt, NoHomeMeansNoFileOfTheUser) { EXPECT_EQ(ask({{"HOME", ""}}).out, "5\n"); }

using Question = std::tuple<std::string, int, int>;
std::vector<Question>& questions()
{
    static std::vector<Question> all;
    return all;
}

TEST(ConfigInt, AnObserverSeesEveryQuestionAndItsAnswer)
{
    setenv("FSYS_CFG_SupportTestObserved", "8", 1);
    setConfigObserver(
        [](const char* key, int byDefault, int answer) { questions().emplace_back(key, byDefault, answer); });
    EXPECT_EQ(config_int("SupportTestObserved", 3), 8);
    EXPECT_EQ(config_int("SupportTestUnknown", -1), -1);
    setConfigObserver(nullptr);
    EXPECT_EQ(config_int("SupportTestObserved", 4), 8);
    unsetenv("FSYS_CFG_SupportTestObserved");
    EXPECT_EQ(questions(),
              (std::vector<Question>{{"SupportTestObserved", 3, 8}, {"SupportTestUnknown", -1, -1}}));
}

TEST(ConfigInt, AKeyThatIsNoneHasItsDefault)
{
    EXPECT_EQ(config_int(nullptr, 4), 4);
    EXPECT_EQ(config_int("", 4), 4);
}

}  // namespace
