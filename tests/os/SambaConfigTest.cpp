#include "os/linux/SambaConfig.h"

#include "common/TemporaryFolder.h"
#include "os/linux/SambaText.h"

#include <gtest/gtest.h>

using namespace os;

namespace {

// "name=folder" for every share, in order.
std::vector<std::string> sharesIn(const std::string& config, const std::string& usershares = {})
{
    std::vector<std::string> result;
    for (const SambaShare& share : readSambaShares(config, usershares))
        result.push_back(share.name + '=' + share.folder);
    return result;
}

using Shares = std::vector<std::string>;

}  // namespace

TEST(SambaText, ReadsSectionsAndSettings)
{
    const auto lines = parseSambaText("# comment\n"
                                      "; another\n"
                                      "\n"
                                      "  [ My Share ]\r\n"
                                      "\tRead Only = Yes \r\n"
                                      "path = \"/srv/my media\"\n"
                                      "empty =\n"
                                      "a = b = c\n");
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0].kind, SambaLine::Kind::section);
    EXPECT_EQ(lines[0].name, "my share");
    EXPECT_EQ(lines[0].label, "My Share");
    EXPECT_EQ(lines[1].kind, SambaLine::Kind::setting);
    EXPECT_EQ(lines[1].name, "readonly");
    EXPECT_EQ(lines[1].value, "Yes");
    EXPECT_EQ(lines[2].value, "/srv/my media");
    EXPECT_EQ(lines[3].value, "");
    EXPECT_EQ(lines[4].value, "b = c");
}

TEST(SambaText, ABackslashAtTheEndContinuesALine)
{
    const auto lines = parseSambaText("path = /srv/\\\nmedia\nx = 1\\");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].value, "/srv/media");
    EXPECT_EQ(lines[1].value, "1");
}

TEST(SambaText, TellsMalformedLines)
{
    for (const char* text : {"words", "= value", "[open", "[]", "[  ]"})
        EXPECT_EQ(parseSambaText(text).at(0).kind, SambaLine::Kind::malformed) << text;
}

TEST(SambaText, KnowsYesAndNo)
{
    EXPECT_TRUE(isYes("YES") && isYes("true") && isYes("on") && isYes("1"));
    EXPECT_TRUE(isNo("No") && isNo("FALSE") && isNo("off") && isNo("0"));
    EXPECT_FALSE(isYes("no") || isNo("yes") || isYes("") || isNo(""));
}

TEST(SambaConfig, ListsSharesWithTheirFolders)
{
    const TemporaryFolder folder;
    const std::string config = folder.file("smb.conf", "[global]\n"
                                                       "workgroup = W\n"
                                                       "[Media]\n"
                                                       "  path = /srv/media//\n"
                                                       "[Whole]\n"
                                                       "  directory = /\n");
    EXPECT_EQ(sharesIn(config), (Shares{"Media=/srv/media/", "Whole=/"}));
}

TEST(SambaConfig, TheLongestNameComesFirst)
{
    const TemporaryFolder folder;
    const std::string config = folder.file("smb.conf", "[media]\npath=/1\n"
                                                       "[b]\npath=/2\n"
                                                       "[media2]\npath=/3\n"
                                                       "[a]\npath=/4\n");
    EXPECT_EQ(sharesIn(config), (Shares{"media2=/3/", "media=/1/", "a=/4/", "b=/2/"}));
}

TEST(SambaConfig, LeavesOutWhatExportsNoFixedFolder)
{
    const TemporaryFolder folder;
    const std::string config = folder.file("smb.conf", "path = /of/global\n"
                                                       "[GLOBAL]\npath = /tmp\n"
                                                       "[Homes]\npath = /home/x\n"
                                                       "[printers]\npath = /var/spool\n"
                                                       "[print$]\npath = /var/lib/drivers\n"
                                                       "[laser]\npath = /var/spool\nprintable = yes\n"
                                                       "[off]\npath = /srv/off\navailable = No\n"
                                                       "[user]\npath = /home/%U\n"
                                                       "[relative]\npath = media\n"
                                                       "[none]\ncomment = no folder\n"
                                                       "[on]\npath = /srv/on\navailable = yes\n");
    EXPECT_EQ(sharesIn(config), (Shares{"on=/srv/on/"}));
}

TEST(SambaConfig, AMissingFileExportsNothing)
{
    const TemporaryFolder folder;
    EXPECT_EQ(sharesIn(folder / "smb.conf"), Shares{});
    EXPECT_EQ(sharesIn(folder.path()), Shares{});
}

TEST(SambaConfig, SkipsMalformedLinesAndKeepsTheRest)
{
    const TemporaryFolder folder;
    const std::string config =
        folder.file("smb.conf", "garbage\n[media]\nmore garbage\n[broken\npath=/srv/m\n");
    EXPECT_EQ(sharesIn(config), (Shares{"media=/srv/m/"}));
}

TEST(SambaConfig, ASectionMayBeSpread)
{
    const TemporaryFolder folder;
    const std::string config =
        folder.file("smb.conf", "[Media]\npath=/old\n[other]\npath=/o\n[MEDIA]\npath=/new\n");
    EXPECT_EQ(sharesIn(config), (Shares{"Media=/new/", "other=/o/"}));
}

TEST(SambaConfig, FollowsIncludesInTheSectionThatNamesThem)
{
    const TemporaryFolder folder;
    folder.folder("more");
    folder.file("more/path.conf", "path = /srv/one\n");
    folder.file("more/shares.conf", "[two]\npath=/srv/two\n");
    const std::string config = folder.file("smb.conf", "[one]\n"
                                                       "include = " +
                                                           (folder / "more/path.conf") +
                                                           "\n"
                                                           "include = more/shares.conf\n"
                                                           "include = " +
                                                           (folder / "missing.conf") +
                                                           "\n"
                                                           "include = /etc/samba/%m.conf\n"
                                                           "include = registry\n");
    EXPECT_EQ(sharesIn(config), (Shares{"one=/srv/one/", "two=/srv/two/"}));
}

TEST(SambaConfig, IncludesThatGoInCirclesEndAndCostNoLaterFile)
{
    const TemporaryFolder folder;
    folder.file("a.conf", "[a]\npath=/a\ninclude = b.conf\ninclude = c.conf\n");
    folder.file("b.conf", "[b]\npath=/b\ninclude = a.conf\n");
    folder.file("c.conf", "[c]\npath=/c\n");
    EXPECT_EQ(sharesIn(folder / "a.conf"), (Shares{"a=/a/", "b=/b/", "c=/c/"}));
}

TEST(SambaConfig, IncludesThatMultiplyEnd)
{
    const TemporaryFolder folder;
    for (int i = 0; i < 30; ++i) {
        const std::string next = folder / ("f" + std::to_string(i + 1));
        folder.file("f" + std::to_string(i), "include = " + next + "\ninclude = " + next + "\n");
    }
    folder.file("f30", "[end]\npath=/end\n");
    const std::string config =
        folder.file("smb.conf", "[first]\npath=/f\ninclude = " + (folder / "f0") + "\n");
    EXPECT_EQ(sharesIn(config), (Shares{"first=/f/", "end=/end/"}));
}

TEST(SambaConfig, ReadsTheSharesOfUsers)
{
    const TemporaryFolder folder;
    folder.folder("users");
    folder.file("users/mine", "#VERSION 2\npath=/home/me/media\ncomment=\nusershare_acl=S-1-1-0:F\n"
                              "guest_ok=n\nsharename=Mine\n");
    folder.file("users/old", "#VERSION 1\r\npath=/home/me/old\r\n");
    folder.file("users/noversion", "path=/home/me/x\n");
    folder.file("users/future", "#VERSION 3\npath=/home/me/x\n");
    folder.file("users/relative", "#VERSION 2\npath=media\n");
    folder.file("users/nopath", "#VERSION 2\nsharename=nopath\n");
    folder.file("users/broken", "#VERSION 2\npath=/x\nwhat is this\n");
    folder.folder("users/folder");
    const std::string config =
        folder.file("smb.conf", "[global]\nUserShare Path = " + (folder / "users") + "\n");
    EXPECT_EQ(sharesIn(config), (Shares{"Mine=/home/me/media/", "old=/home/me/old/"}));
}

TEST(SambaConfig, UserSharesHaveAStandardPlace)
{
    const TemporaryFolder folder;
    folder.folder("standard");
    folder.file("standard/mine", "#VERSION 2\npath=/home/me\n");
    const std::string config = folder.file("smb.conf", "[global]\n");
    EXPECT_EQ(sharesIn(config, folder / "standard"), (Shares{"mine=/home/me/"}));
    EXPECT_EQ(sharesIn(config, ""), Shares{});
}

TEST(SambaConfig, TheEnvironmentNamesAnotherConfiguration)
{
    const TemporaryFolder folder;
    ::setenv("FSYS_SMB_CONF", folder.file("other.conf", "[x]\npath=/x\n").c_str(), 1);
    const auto shares = sambaShares();
    ::unsetenv("FSYS_SMB_CONF");
    ASSERT_EQ(shares.size(), 1u);
    EXPECT_EQ(shares[0].name, "x");
}
