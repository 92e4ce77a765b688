#include "support/ConfigStore.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "TempFolder.h"

namespace {

constexpr auto silent = ConfigStore::WhenMissing::silent;

// The value of key in a file of that text; "(none)" when it has none.
std::string valueIn(const std::string& text, const std::string& key)
{
    const TempFolder folder;
    folder.write("conf", text);
    ConfigStore store;
    store.addFile(folder.path("conf"), silent);
    const ConfigStore::Entry* entry = store.find(key);
    return entry ? entry->value : "(none)";
}

// What adding a file reports on standard error.
std::string reportsOf(const std::string& path)
{
    ConfigStore store;
    testing::internal::CaptureStderr();
    store.addFile(path, silent);
    return testing::internal::GetCapturedStderr();
}

TEST(ConfigStore, TheFileAddedFirstWins)
{
    const TempFolder folder;
    folder.write("user", "a = 1\n");
    folder.write("system", "a = 2\nb = 3\n");
    ConfigStore store;
    store.addFile(folder.path("user"), silent);
    store.addFile(folder.path("system"), silent);
    EXPECT_EQ(store.find("a")->value, "1");
    EXPECT_EQ(store.find("b")->value, "3");
    EXPECT_EQ(store.find("b")->place, folder.path("system") + ":2");
    EXPECT_EQ(store.find("c"), nullptr);
}

TEST(ConfigStore, TheFileOfTheUserComesBeforeThatOfTheMachine)
{
    setenv("XDG_CONFIG_HOME", "/x", 1);
    EXPECT_EQ(defaultConfigFiles(), (std::vector<std::string>{"/x/fsys/fsys.conf", "/etc/fsys.conf"}));
    unsetenv("XDG_CONFIG_HOME");
}

TEST(ConfigStore, BlanksAroundKeyAndValueDoNotCount)
{
    EXPECT_EQ(valueIn("  key=1", "key"), "1");
    EXPECT_EQ(valueIn("\tkey \t=\t 1 \n", "key"), "1");
    EXPECT_EQ(valueIn("two words = 1\n", "two words"), "1");
}

TEST(ConfigStore, ANumberSignStartsAComment)
{
    EXPECT_EQ(valueIn("# key = 1\n  # key = 2\n", "key"), "(none)");
    EXPECT_EQ(valueIn("key = 3 # three\n", "key"), "3");
    EXPECT_EQ(valueIn("key = # none\n", "key"), "");
}

TEST(ConfigStore, OfSeveralLinesForOneKeyTheLastHolds)
{
    EXPECT_EQ(valueIn("key = 1\nkey = 2\n", "key"), "2");
}

TEST(ConfigStore, LinesOfOtherSystemsAreUnderstood)
{
    EXPECT_EQ(valueIn("\xEF\xBB\xBFkey = 1\r\nlast = 2", "key"), "1");
    EXPECT_EQ(valueIn("key = 1\r\nlast = 2", "last"), "2");
}

TEST(ConfigStore, TheFirstEqualsSignSeparates) { EXPECT_EQ(valueIn("key = 1=2\n", "key"), "1=2"); }

TEST(ConfigStore, ALineOfAnotherFormIsReportedWithItsPlaceAndPassedOver)
{
    const TempFolder folder;
    folder.write("conf", "good = 1\nnonsense\n= 4\nkey = 2\n");
    EXPECT_EQ(reportsOf(folder.path("conf")),
              "fsys configuration: " + folder.path("conf") + ":2: line is not \"key = value\"\n" +
                  "fsys configuration: " + folder.path("conf") + ":3: line is not \"key = value\"\n");
    EXPECT_EQ(valueIn(folder.read("conf"), "key"), "2");
}

TEST(ConfigStore, AFileOfAnotherKindDoesNotFloodTheTerminal)
{
    const TempFolder folder;
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "prose\n";
    folder.write("conf", text);
    const std::string reports = reportsOf(folder.path("conf"));
    EXPECT_EQ(std::count(reports.begin(), reports.end(), '\n'), 20);
}

TEST(ConfigStore, AMissingFileIsSilentUnlessItWasNamed)
{
    const TempFolder folder;
    folder.write("file", "");
    EXPECT_EQ(reportsOf(folder.path("none")), "");
    EXPECT_EQ(reportsOf(folder.path("file/none")), "");
    EXPECT_EQ(reportsOf("/dev/null"), "");
}

TEST(ConfigStore, ABinaryFileIsReportedAndHasNoKeys)
{
    const TempFolder folder;
    folder.write("conf", std::string("key = 1\n\0\x01\x02", 11));
    EXPECT_EQ(reportsOf(folder.path("conf")),
              "fsys configuration: " + folder.path("conf") + ": not a text file\n");
    EXPECT_EQ(valueIn(folder.read("conf"), "key"), "(none)");
}

TEST(ConfigStore, AFileAboveOneMebibyteIsReportedAndHasNoKeys)
{
    const TempFolder folder;
    const std::string line = "key = 1\n";
    const std::string largest = line + std::string((1u << 20) - line.size(), '#');
    folder.write("conf", largest + '#');
    EXPECT_EQ(reportsOf(folder.path("conf")),
              "fsys configuration: " + folder.path("conf") + ": larger than 1 MiB\n");
    EXPECT_EQ(valueIn(largest, "key"), "1");
    EXPECT_EQ(valueIn(largest + '#', "key"), "(none)");
}

TEST(ConfigStore, AFileThatFailsWhileItIsReadIsReported)
{
    // A regular file whose first page nobody has mapped.
    EXPECT_EQ(reportsOf("/proc/self/mem"), "fsys configuration: /proc/self/mem: cannot be read\n");
}

TEST(ConfigStore, ALinkToAFileIsFollowed)
{
    const TempFolder folder;
    folder.write("conf", "key = 6\n");
    std::filesystem::create_symlink("conf", folder.path("link"));
    ConfigStore store;
    store.addFile(folder.path("link"), silent);
    ASSERT_NE(store.find("key"), nullptr);
    EXPECT_EQ(store.find("key")->value, "6");
}

TEST(ConfigValue, IsADecimalIntegerWithBlanksAround)
{
    EXPECT_EQ(parseConfigValue("0"), 0);
    EXPECT_EQ(parseConfigValue(" 42\t"), 42);
    EXPECT_EQ(parseConfigValue("-7"), -7);
    EXPECT_EQ(parseConfigValue("+7"), 7);
    EXPECT_EQ(parseConfigValue("010"), 10);
    EXPECT_EQ(parseConfigValue("2147483647"), INT_MAX);
    EXPECT_EQ(parseConfigValue("-2147483648"), INT_MIN);
}

TEST(ConfigValue, AnythingElseIsNone)
{
    for (const char* text : {"", " ", "-", "+", "+-1", "-+1", "++1", "- 1", "1x", "x1", "1 2", "1.0", "1e3",
                             "0x1", "2147483648", "-2147483649", "99999999999999999999", "\xD9\xA3"})
        EXPECT_EQ(parseConfigValue(text), std::nullopt) << text;
}

TEST(ConfigReport, QuotesAreShortAndWithoutControlCharacters)
{
    EXPECT_EQ(quotedForReport("a\x1B[2J\n"), "'a?[2J?'");
    EXPECT_EQ(quotedForReport(std::string(60, 'x')), '\'' + std::string(60, 'x') + '\'');
    EXPECT_EQ(quotedForReport(std::string(61, 'x')), '\'' + std::string(60, 'x') + "...'");
}

}  // namespace
