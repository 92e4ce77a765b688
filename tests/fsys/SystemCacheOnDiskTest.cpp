#include <filesystem>

#include <gtest/gtest.h>

#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"

#include "FileSpy.h"

namespace {

using Path = LightweightString<wchar_t>;

// The cache on the real platform, with one media location in a temporary folder.
class SystemCacheOnDisk : public testing::Test
{
protected:
    SystemCacheOnDisk()
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
        folder.write("Material/.keep", "x");
        EXPECT_TRUE(DiskManager::addMaterialVolume(folder.path(), drive, false));
    }
    ~SystemCacheOnDisk() override
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
    }

    [[nodiscard]] std::string fileOf(const std::string& ending) const
    {
        return "Material/" + clip.asString(true).str() + ending;
    }
    [[nodiscard]] Path pathOf(const std::string& ending) const { return folder.path(fileOf(ending).c_str()); }
    [[nodiscard]] MaterialFilename named(const wchar_t* ending) const
    {
        return {drive, L"/Material/" + clip.asWString() + ending};
    }
    [[nodiscard]] bool has(const std::string& ending) const { return folder.has(fileOf(ending).c_str()); }
    void write(const std::string& ending, const std::string& contents) const
    {
        folder.write(fileOf(ending).c_str(), contents);
    }

    TestFolder folder;
    DriveId drive;
    const Cookie clip{CookieTypeVision, 0xD15C, 0};
};

}  // namespace

TEST_F(SystemCacheOnDisk, AScanFilesFilesAndNoFolders)
{
    write(".mov", "media");
    write(".mov.vix", "index");
    write(".A1.proxy.540.mov", "proxy");
    std::filesystem::create_directories(toUTF8(folder.path("Material")).str() + "/" +
                                        Cookie(CookieTypeVision, 0xF01D, 0).asString(true).str() + ".dir");
    SystemCache::addMediaLocation(drive);

    Path file;
    EXPECT_TRUE(SystemCache::findFileForCookie(clip, file, DecodeFormat(eHighRes)));
    EXPECT_EQ(file, pathOf(".mov"));
    EXPECT_TRUE(SystemCache::findFileForCookie(clip, file, DecodeFormat(eProxy)));
    EXPECT_EQ(file, pathOf(".A1.proxy.540.mov"));
    EXPECT_EQ(SystemCache::fileSize(clip), 5u);
    EXPECT_EQ(SystemCache::getScanCounts().clips, 1u);
    EXPECT_FALSE(SystemCache::fileExists(Cookie(CookieTypeVision, 0xF01D, 0)));
    EXPECT_TRUE(SystemCache::fileExists(convertCookie(clip, CookieTypeSound, 1)));
}

TEST_F(SystemCacheOnDisk, RemovingAClipRemovesItsFilesAndCompanionsAndNothingElse)
{
    write(".mov", "media");
    write(".mov.vix", "index");
    write(".movie", "stranger");
    write(".proxy.540.mov", "proxy");
    SystemCache::addFile(clip, named(L".mov"), false);
    EXPECT_EQ(SystemCache::removeFile(clip, false, eHighRes), 1u);
    EXPECT_FALSE(has(".mov"));
    EXPECT_FALSE(has(".mov.vix"));
    EXPECT_TRUE(has(".movie"));
    EXPECT_TRUE(has(".proxy.540.mov"));
    EXPECT_FALSE(SystemCache::fileExists(clip));
}

TEST_F(SystemCacheOnDisk, ALinkIsFollowedAndItsTargetBelowTheFolderGoesWithIt)
{
    const Path target = folder.write("Material/media/real.mov", "real");
    const MaterialFilename link = named(L".mov");
    ASSERT_TRUE(MaterialLink::createLink(link.getOsPath(), target, false));
    SystemCache::addMediaLocation(drive);
    EXPECT_TRUE(SystemCache::isLinked(clip));
    Path file;
    EXPECT_TRUE(SystemCache::findFileForCookie(clip, file, DecodeFormat(eHighRes)));
    EXPECT_EQ(file, target);

    EXPECT_EQ(SystemCache::removeFile(clip, false, eHighRes | eProxy), 1u);
    EXPECT_FALSE(has(".mov"));
    EXPECT_FALSE(folder.has("Material/media/real.mov"));
    EXPECT_TRUE(folder.has("Material/media"));
}

TEST_F(SystemCacheOnDisk, DeletingALinkNeverReachesOutOfItsFolder)
{
    const TestFolder outside;
    outside.write("victim.mov", "precious");
    const std::string material = toUTF8(folder.path("Material")).str();
    std::filesystem::create_directory_symlink(toUTF8(outside.path()).str(), material + "/sub");
    std::filesystem::create_directories(material + "/dir");
    const std::string name = toUTF8(outside.path()).str().substr(1) + "/victim.mov";
    for (const std::string& target : {material + "/sub/victim.mov", material + "/dir/../sub/victim.mov",
                                      material + "/dir/../../../../../../" + name, material + "X/../" + name,
                                      toUTF8(outside.path("victim.mov")).str()}) {
        write(".mov", linkTo(target));
        SystemCache::addMediaLocation(drive);
        SystemCache::removeFile(clip, false, eHighRes | eProxy);
        EXPECT_FALSE(has(".mov")) << target;
        EXPECT_TRUE(outside.has("victim.mov")) << target;
    }
}

TEST_F(SystemCacheOnDisk, ATargetBelowALocationThatIsReachedThroughASymlinkGoesWithItsLink)
{
    const TestFolder elsewhere;
    const std::string symlink = toUTF8(elsewhere.path("l")).str();
    std::filesystem::create_directory_symlink(toUTF8(folder.path()).str(), symlink);
    folder.write("Material/media/real.mov", "real");
    write(".mov", linkTo(symlink + "/Material/media/real.mov"));
    FsysDirectoryEntry entry;
    EXPECT_EQ(entry.deleteFile(MaterialFilename(DriveId(), fromUTF8(symlink + "/" + fileOf(".mov")))), 1u);
    EXPECT_FALSE(has(".mov"));
    EXPECT_FALSE(folder.has("Material/media/real.mov"));
}

TEST_F(SystemCacheOnDisk, DeletingALinkWhoseTargetIsASymlinkRemovesTheSymlinkAlone)
{
    const TestFolder outside;
    const std::string victim = toUTF8(outside.write("victim.mov", "precious")).str();
    folder.write("Material/media/.keep", "x");
    const std::string target = toUTF8(folder.path("Material/media/real.mov")).str();
    std::filesystem::create_symlink(victim, target);
    write(".mov", linkTo(target));
    SystemCache::addMediaLocation(drive);
    SystemCache::removeFile(clip, false, eHighRes | eProxy);
    EXPECT_FALSE(std::filesystem::is_symlink(target));
    EXPECT_TRUE(outside.has("victim.mov"));
}

TEST_F(SystemCacheOnDisk, RealisingLinksDoesNotTouchRealMedia)
{
    write(".mov", "media");
    SystemCache::addMediaLocation(drive);
    SystemCache::realiseLinks(clip);
    EXPECT_EQ(folder.read(fileOf(".mov").c_str()), "media");
}
