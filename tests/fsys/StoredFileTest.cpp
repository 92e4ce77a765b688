#include "fsys/StoredFile.h"

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Qz/Utf8.h"

namespace {

using Path = LightweightString<wchar_t>;

constexpr DriveId drive('M');
constexpr DriveId otherDrive('N');

Path stored(const Path& path) { return StoredFile(MaterialFilename(drive, path), 1, 0).filename().getPath(); }

const std::vector<Path>& paths()
{
    static const std::vector<Path> all = {
        L"",
        L"/",
        L"//",
        L"clip.mov",
        L"/Material/",
        L"/Material/clip.mov",
        L"/Material/a name of exactly 24 c.m",
        L"/Material/a name of exactly 25 ch.m",
        L"/Material/a name of exactly 26 cha.m",
        L"/Material/caf\u00e9 \u00ff.mov",
        L"/Material/\u0100.mov",
        L"/Material/\u7247\u3042 and a long tail behind it.mov",
        L"/M\u00e9dia \u7247\U0001F3AC/\U0001F3AC.mov",
        std::wstring(5000, L'n'),
        std::wstring(3000, L'f') + L"/" + std::wstring(3000, L'\u7247'),
        fromUTF8("/Material/no \xff\xfe UTF-8 \xc3.mov"),
        // No text on disk gives these, but callers may.
        std::wstring{L'/', static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000),
                     static_cast<wchar_t>(-1)},
        std::wstring{L'/', static_cast<wchar_t>(0xDCC3), static_cast<wchar_t>(0xDCA9)},
        std::wstring(L"/with\0zero/and\0more", 19),
    };
    return all;
}

}  // namespace

TEST(StoredFile, GivesEveryPathBackAsItWas)
{
    for (const Path& path : paths()) {
        EXPECT_EQ(stored(path), path) << toUTF8(path).c_str();
        EXPECT_FALSE(stored(path).isNull());
    }
}

TEST(StoredFile, ANullPathStaysNull) { EXPECT_TRUE(stored(Path()).isNull()); }

TEST(StoredFile, KeepsDriveSizeAndStatus)
{
    const StoredFile file(MaterialFilename(drive, L"/Material/a.mov"), ~std::uint64_t{0}, eStatusOffline);
    EXPECT_EQ(file.drive(), drive);
    EXPECT_EQ(file.filename().getDrive(), drive);
    EXPECT_EQ(file.sizeBytes(), ~std::uint64_t{0});
    EXPECT_EQ(file.status(), eStatusOffline);
}

TEST(StoredFile, IsNoFileByDefault)
{
    const StoredFile none;
    EXPECT_FALSE(none.isPresent());
    EXPECT_FALSE(none.drive().valid());
    EXPECT_TRUE(none.filename().getPath().isNull());
    EXPECT_EQ(none.sizeBytes(), 0u);
    EXPECT_EQ(none.status(), eStatusUnknown);
    EXPECT_TRUE(none.isNamed(MaterialFilename()));
}

TEST(StoredFile, IsPresentWithADriveAndAPath)
{
    EXPECT_TRUE(StoredFile(MaterialFilename(drive, L"a"), 0, 0).isPresent());
    EXPECT_TRUE(StoredFile(MaterialFilename(drive, L"/folder/"), 0, 0).isPresent());
    EXPECT_FALSE(StoredFile(MaterialFilename(drive, L""), 0, 0).isPresent());
    EXPECT_FALSE(StoredFile(MaterialFilename(DriveId(), L"a"), 0, 0).isPresent());
}

TEST(StoredFile, KnowsItsNameFromEveryOther)
{
    for (const Path& path : paths())
        for (const Path& other : paths()) {
            const StoredFile file(MaterialFilename(drive, path), 0, 0);
            EXPECT_EQ(file.isNamed(MaterialFilename(drive, other)), path == other);
            EXPECT_FALSE(file.isNamed(MaterialFilename(otherDrive, other)));
        }
}

TEST(StoredFile, TheFolderMayEndAnywhereInThePath)
{
    const StoredFile file(drive, FolderName(L"/Material/pre"), L"fix/clip.mov", 0, 0);
    EXPECT_EQ(file.filename().getPath(), L"/Material/prefix/clip.mov");
    EXPECT_TRUE(file.isNamed(MaterialFilename(drive, L"/Material/prefix/clip.mov")));
}

TEST(StoredFile, AMoveLeavesNoFileBehind)
{
    for (const Path& path : paths()) {
        StoredFile from(MaterialFilename(drive, path), 7, eStatusOnline);
        StoredFile to(MaterialFilename(otherDrive, std::wstring(100, L'x')), 8, eStatusOffline);
        to = std::move(from);
        EXPECT_EQ(to.filename().getPath(), path);
        EXPECT_EQ(to.drive(), drive);
        EXPECT_EQ(to.sizeBytes(), 7u);
        EXPECT_EQ(to.status(), eStatusOnline);
    }
}

TEST(StoredFile, FitsAMillionTimes) { EXPECT_EQ(sizeof(StoredFile), 48u); }

TEST(FolderName, IsSharedByTheFilesInItAndGoesWithTheLast)
{
    const std::size_t before = FolderName::countHeld();
    {
        const StoredFile first(MaterialFilename(drive, L"/shared by two/a.mov"), 0, 0);
        EXPECT_EQ(FolderName::countHeld(), before + 1);
        {
            const StoredFile second(MaterialFilename(otherDrive, L"/shared by two/b.mov"), 0, 0);
            const StoredFile third(MaterialFilename(drive, L"/of its own/b.mov"), 0, 0);
            EXPECT_EQ(FolderName::countHeld(), before + 2);
        }
        EXPECT_EQ(FolderName::countHeld(), before + 1);
        EXPECT_EQ(first.filename().getPath(), L"/shared by two/a.mov");
    }
    EXPECT_EQ(FolderName::countHeld(), before);
}

TEST(FolderName, NoneIsNotTheFolderOfAnEmptyText)
{
    EXPECT_TRUE(FolderName().isNone());
    EXPECT_FALSE(FolderName(L"").isNone());
    EXPECT_EQ(FolderName().view(), L"");
    EXPECT_EQ(FolderName(L"").view(), L"");
}

TEST(FolderName, AssignmentToItselfAndToAnotherKeepsTheCount)
{
    const std::size_t before = FolderName::countHeld();
    {
        FolderName name(L"/one/");
        FolderName& same = name;
        name = same;
        EXPECT_EQ(name.view(), L"/one/");
        name = FolderName(L"/two/");
        EXPECT_EQ(name.view(), L"/two/");
        EXPECT_EQ(FolderName::countHeld(), before + 1);
    }
    EXPECT_EQ(FolderName::countHeld(), before);
}

TEST(FolderName, ThreadsMakeAndDropTheSameFoldersAtOnce)
{
    const std::size_t before = FolderName::countHeld();
    const auto work = [] {
        for (unsigned turn = 0; turn < 2'000; ++turn) {
            const std::wstring text = L"/turn " + std::to_wstring(turn % 3);
            const FolderName name(text);
            const FolderName copy(name);
            ASSERT_EQ(copy.view(), text);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i)
        threads.emplace_back(work);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(FolderName::countHeld(), before);
}
