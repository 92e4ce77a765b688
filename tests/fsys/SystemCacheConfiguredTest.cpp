// What the configuration changes. It is read once per process, so each test is started in a process of its
// own with the variables that it names; see CMakeLists.txt.

#include <cstdlib>
#include <regex>

#include "fsys/SystemCache.h"
#include "support/ConfigInt.h"

#include "CacheTest.h"

using namespace cachetest;

namespace {

using Path = LightweightString<wchar_t>;

class SystemCacheConfigured : public CacheTest
{
protected:
    // The scan's lines between its head (separator, folder, count) and its tail (time, separator).
    std::vector<std::string> tracedLines()
    {
        SystemCache::addDirectory(MaterialFilename(driveM, L"/Material/"));
        const std::vector<std::string>& lines = captured.logged();
        if (lines.size() < 5)
            return {"no trace"};
        return {lines.begin() + 3, lines.end() - 2};
    }

    const Cookie clip = vision(0xABC);
    const Path stem = clip.asWString();
    const std::string stemBytes = toUTF8(stem).str();
};

constexpr const char* separator = "-------------------------------------------------------\n";

}  // namespace

// SystemCacheDebug=1

TEST_F(SystemCacheConfigured, ATracedScanHasAHeadAndATail)
{
    os.files().addFile(L"/m/Material/a.txt", "x");
    os.files().addFile(L"/m/Material/b.txt", "x");
    SystemCache::addDirectory(MaterialFilename(driveM, L"/Material/"));
    const std::vector<std::string>& lines = captured.logged();
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(lines[0], separator);
    EXPECT_EQ(lines[1], "SystemCache::addDirectory( /m/Material/*.* )\n");
    EXPECT_EQ(lines[2], "Num files 2\n");
    EXPECT_TRUE(std::regex_match(lines[5], std::regex("Time taken \\([0-9]+\\.[0-9]ms\\)\n"))) << lines[5];
    EXPECT_EQ(lines[6], separator);
    EXPECT_TRUE(captured.loggedBoth().empty());
}

TEST_F(SystemCacheConfigured, ATracedScanTellsWhatBecameOfEachFile)
{
    os.files().addFile(L"/m/Material/.hidden", "x");
    os.files().addFile(L"/m/Material/" + stem + L".mov", "media");
    os.files().addFile(L"/m/Material/" + stem + L".mov.vix", "x");
    os.files().addFile(L"/m/Material/" + stem + L".proxy.540.mov", "media");
    os.files().addFile(L"/m/Material/empty.x.vix", "");
    EXPECT_EQ(tracedLines(),
              (std::vector<std::string>{"skipped non-cookie file (.hidden)\n",
                                        "added cache entry     (" + stemBytes + ".mov)\n",
                                        "skipped ineligible file (" + stemBytes + ".mov.vix)\n",
                                        "augmented cache entry (" + stemBytes + ".proxy.540.mov)\n",
                                        "skipped empty file (empty.x.vix)\n"}));
}

TEST_F(SystemCacheConfigured, ATracedScanTellsCookiesThatPrintDifferentlyFromThoseInAnotherCase)
{
    os.files().addFile(L"/m/Material/ " + stem + L".mov", "media");
    os.files().addFile(L"/m/Material/v" + stem.substr(1) + L".mov", "media");
    EXPECT_EQ(tracedLines(),
              (std::vector<std::string>{"skipped non-cookie file ( " + stemBytes + ".mov)\n",
                                        "added cache entry     (v" + stemBytes.substr(1) + ".mov)\n"}));
}

TEST_F(SystemCacheConfigured, ATraceNamesFilesInUtf8)
{
    os.files().addFile(L"/m/Material/\u00e9.mov", "media");
    EXPECT_EQ(tracedLines(), std::vector<std::string>{"skipped non-cookie file (\xc3\xa9.mov)\n"});
}

TEST_F(SystemCacheConfigured, AFolderThatCannotBeListedIsTracedAsEmpty)
{
    SystemCache::addDirectory(MaterialFilename(driveM, L"/Missing/"));
    ASSERT_EQ(captured.logged().size(), 5u);
    EXPECT_EQ(captured.logged()[2], "Num files 0\n");
}

// --- nothing configured: what happens once per process

namespace {

class SystemCacheAtItsStart : public SystemCacheConfigured
{
};

}  // namespace

TEST_F(SystemCacheAtItsStart, TheFirstInitialiseScansAndTheSecondDoesNotUnlessForced)
{
    os.files().addFile(L"/m/Material/" + stem + L".mov", "media");
    SystemCache::initialise(false);
    EXPECT_TRUE(SystemCache::fileExists(clip));
    SystemCache::invalidate();
    os.log().clear();
    SystemCache::initialise(false);
    EXPECT_FALSE(SystemCache::fileExists(clip));
    EXPECT_EQ(os.log().fileSystemCalls(), 0u);
    SystemCache::initialise(true);
    EXPECT_TRUE(SystemCache::fileExists(clip));
}

// max_audio_chans_in_shot

namespace {

class AudioChannelsConfigured : public SystemCacheConfigured
{
protected:
    DriveId driveWithChannels(std::initializer_list<unsigned char> channels)
    {
        SystemCache::invalidate();
        for (const unsigned char channel : channels)
            SystemCache::addFile(sound(0xABC, channel), info(sound(0xABC, channel), L".wav"), false);
        return SystemCache::getDriveForCookie(clip, EditChanAudio);
    }
};

}  // namespace

TEST_F(AudioChannelsConfigured, TheMaximumIsReadOnceAndAtItsFirstUse)
{
    static unsigned asked = 0;
    setConfigObserver(
        [](const char* key, int, int) { asked += key == std::string("max_audio_chans_in_shot"); });
    ASSERT_EQ(setenv("FSYS_CFG_max_audio_chans_in_shot", "2", 1), 0);
    EXPECT_EQ(driveWithChannels({2}), driveM);
    ASSERT_EQ(setenv("FSYS_CFG_max_audio_chans_in_shot", "5", 1), 0);
    EXPECT_EQ(driveWithChannels({3}), DriveId());
    setConfigObserver(nullptr);
    EXPECT_EQ(asked, 1u);
}

TEST_F(AudioChannelsConfigured, MaximumZeroFindsNoDrive) { EXPECT_EQ(driveWithChannels({1, 2}), DriveId()); }

TEST_F(AudioChannelsConfigured, ANegativeMaximumTriesChannel1)
{
    EXPECT_EQ(driveWithChannels({1}), driveM);
    EXPECT_EQ(driveWithChannels({2}), DriveId());
}

TEST_F(AudioChannelsConfigured, ChannelsBeyondTheMaximumAreNotLookedAt)
{
    EXPECT_EQ(driveWithChannels({3}), DriveId());
    EXPECT_EQ(driveWithChannels({2, 3}), driveM);
}

TEST_F(AudioChannelsConfigured, AMaximumBeyondAllChannelsComesRoundToChannel0)
{
    EXPECT_EQ(driveWithChannels({0}), driveM);
    EXPECT_EQ(driveWithChannels({}), DriveId());
}
