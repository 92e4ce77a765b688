#include "support/PreferenceStore.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "Qz/Utf8.h"
#include "os/LastError.h"
#include "os/testing/FakeOS.h"

namespace {

const LightweightString<wchar_t> path = L"/home/u/.config/fsys/preferences";

class PreferenceStoreTest : public testing::Test
{
protected:
    void fileHolds(const std::string& contents) { os_.files().addFile(path, contents); }
    [[nodiscard]] std::string file() { return os_.files().contents(path); }

    static std::string valueOf(const PreferenceStore& store, const std::string& key)
    {
        const std::string* value = store.find(key);
        return value ? *value : "(none)";
    }

    FakeOS os_;
    ScopedOS installed_{os_};
};

TEST_F(PreferenceStoreTest, AMissingFileHasNoPreferences)
{
    const PreferenceStore store(path);
    EXPECT_EQ(valueOf(store, "a"), "(none)");
    EXPECT_TRUE(store.complaints().empty());
}

TEST_F(PreferenceStoreTest, AFileInPlaceOfTheFolderLeavesNoPreferencesAndNothingToReport)
{
    os_.files().addFile(L"/home/u/.config/fsys", "x");
    PreferenceStore store(path);
    EXPECT_TRUE(store.complaints().empty());
    EXPECT_FALSE(store.set("a", "1"));
}

TEST_F(PreferenceStoreTest, AChangeIsSavedAtOnceInFoldersThatAreMadeWhenNeeded)
{
    os_.files().addFolder(L"/home/u");
    PreferenceStore store(path);
    EXPECT_TRUE(store.set("a", "1"));
    EXPECT_EQ(file(), "a=1\n");
    EXPECT_TRUE(store.set("b", "2"));
    EXPECT_EQ(file(), "a=1\nb=2\n");
    EXPECT_TRUE(store.set("a", "3"));
    EXPECT_EQ(file(), "a=3\nb=2\n");
    EXPECT_TRUE(store.remove("a"));
    EXPECT_EQ(file(), "b=2\n");
}

TEST_F(PreferenceStoreTest, AnEmptyValueIsAValue)
{
    PreferenceStore store(path);
    os_.files().addFolder(L"/home/u/.config/fsys");
    EXPECT_TRUE(store.set("a", ""));
    EXPECT_EQ(file(), "a=\n");
    EXPECT_EQ(valueOf(PreferenceStore(path), "a"), "");
}

TEST_F(PreferenceStoreTest, SpecialCharactersAreWrittenWithABackslash)
{
    fileHolds("");
    PreferenceStore store(path);
    EXPECT_TRUE(store.set("#k=\\", "a=b\\c\nd\re#"));
    EXPECT_EQ(file(), "\\#k\\=\\\\=a\\=b\\\\c\\nd\\re#\n");
    EXPECT_EQ(valueOf(PreferenceStore(path), "#k=\\"), "a=b\\c\nd\re#");
}

TEST_F(PreferenceStoreTest, AKeyThatBeginsAsAMarkOfByteOrderDoesSurvivesAtTheStartOfTheFile)
{
    const std::string key = "\xEF\xBB\xBFkey";
    fileHolds("");
    EXPECT_TRUE(PreferenceStore(path).set(key, "value"));
    EXPECT_EQ(valueOf(PreferenceStore(path), key), "value");
}

TEST_F(PreferenceStoreTest, EveryTextSurvivesTheFile)
{
    fileHolds("");
    const std::vector<std::string> texts{"",
                                         " ",
                                         "=",
                                         "==",
                                         "\\",
                                         "\\\\",
                                         "\\n",
                                         "\n",
                                         "\r",
                                         "\r\n",
                                         "#",
                                         "##",
                                         "a#b",
                                         "\\=",
                                         "=\\",
                                         "x\\",
                                         "K\xC3\xB6ln \xF0\x9F\x8E\xAC",
                                         "\xFF\x80",
                                         "\t",
                                         "'\"",
                                         "Media Location ()",
                                         " a ",
                                         "\\\\srv\\share\\"};
    PreferenceStore store(path);
    for (const std::string& key : texts)
        for (const std::string& value : texts)
            ASSERT_TRUE(store.set(key + '.' + value + "\xEF", value));
    for (const std::string& key : texts)
        ASSERT_TRUE(store.set(key, key));
    const PreferenceStore again(path);
    EXPECT_TRUE(again.complaints().empty());
    for (const std::string& key : texts) {
        EXPECT_EQ(valueOf(again, key), key);
        for (const std::string& value : texts)
            EXPECT_EQ(valueOf(again, key + '.' + value + "\xEF"), value);
    }
}

TEST_F(PreferenceStoreTest, AnEqualsSignThatNoBackslashPrecedesSeparatesOnce)
{
    fileHolds("a=b=c\n");
    EXPECT_EQ(valueOf(PreferenceStore(path), "a"), "b=c");
}

TEST_F(PreferenceStoreTest, OfSeveralLinesForOneKeyTheLastHolds)
{
    fileHolds("a=1\na=2\n");
    PreferenceStore store(path);
    EXPECT_EQ(valueOf(store, "a"), "2");
    EXPECT_TRUE(store.remove("a"));
    EXPECT_EQ(valueOf(PreferenceStore(path), "a"), "(none)");
}

TEST_F(PreferenceStoreTest, LinesThatAreNotUnderstoodAreReportedAndKept)
{
    const std::string broken = "no separator\nbad=escape \\x\nends=with\\\n\\q=1\n";
    fileHolds("a=1\n" + broken + "b=2\n");
    PreferenceStore store(path);
    EXPECT_EQ(store.complaints(),
              (std::vector<std::string>{"line 2 is not understood", "line 3 is not understood",
                                        "line 4 is not understood", "line 5 is not understood"}));
    EXPECT_EQ(valueOf(store, "a") + valueOf(store, "b"), "12");
    EXPECT_TRUE(store.set("a", "3"));
    EXPECT_EQ(file(), "a=3\n" + broken + "b=2\n");
}

TEST_F(PreferenceStoreTest, CommentsAndEmptyLinesAreKeptInSilence)
{
    fileHolds("# a=comment\n\na=1\n");
    PreferenceStore store(path);
    EXPECT_TRUE(store.complaints().empty());
    EXPECT_TRUE(store.set("b", "2"));
    EXPECT_EQ(file(), "# a=comment\n\na=1\nb=2\n");
}

TEST_F(PreferenceStoreTest, WhatChangesNothingIsNotSaved)
{
    fileHolds("a=1\n");
    PreferenceStore store(path);
    os_.faults().failAlways(fake::Op::replaceFile, errorFromErrno(EROFS));
    EXPECT_TRUE(store.set("a", "1"));
    EXPECT_TRUE(store.remove("unknown"));
    EXPECT_EQ(os_.faults().fired(), 0u);
}

TEST_F(PreferenceStoreTest, AChangeThatCannotBeSavedHoldsAllTheSameAndIsSavedWithTheNext)
{
    fileHolds("a=1\n");
    PreferenceStore store(path);
    os_.faults().failNext(fake::Op::replaceFile, errorFromErrno(ENOSPC), 2);
    EXPECT_FALSE(store.set("a", "2"));
    EXPECT_FALSE(store.remove("unknown"));  // tries again
    EXPECT_EQ(valueOf(store, "a"), "2");
    EXPECT_EQ(file(), "a=1\n");
    EXPECT_TRUE(store.set("b", "3"));
    EXPECT_EQ(file(), "a=2\nb=3\n");
}

TEST_F(PreferenceStoreTest, AFileThatCannotBeReadIsReportedAndNeverReplaced)
{
    fileHolds("a=1\n");
    os_.faults().failNext(fake::Op::readWholeFile, errorFromErrno(EIO));
    PreferenceStore store(path);
    EXPECT_EQ(store.complaints(), std::vector<std::string>{"cannot be read; changes will not be saved"});
    EXPECT_FALSE(store.set("b", "2"));
    EXPECT_EQ(valueOf(store, "b"), "2");
    EXPECT_EQ(file(), "a=1\n");
}

TEST_F(PreferenceStoreTest, WithoutAPlaceNothingIsSaved)
{
    PreferenceStore store(L"");
    EXPECT_TRUE(store.complaints().empty());
    EXPECT_FALSE(store.set("a", "1"));
    EXPECT_EQ(valueOf(store, "a"), "1");
}

TEST_F(PreferenceStoreTest, AFileOfZeroBytesHasNoPreferences)
{
    fileHolds(std::string(100, '\0'));
    PreferenceStore store(path);
    EXPECT_TRUE(store.complaints().empty());
    EXPECT_TRUE(store.set("a", "1"));
    EXPECT_EQ(file(), "a=1\n");
}

}  // namespace
