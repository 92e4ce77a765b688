// Media folders that hold anything but media, on the real platform.

#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Qz/Utf8.h"
#include "common/TemporaryFolder.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"

namespace fs = std::filesystem;

namespace {

using Path = LightweightString<wchar_t>;

class HostileFolders : public testing::Test
{
protected:
    HostileFolders()
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
        folder.folder("Material");
        folder.folder("Sound");
        EXPECT_TRUE(DiskManager::addMaterialVolume(wide(folder.path()), drive, false));
    }
    ~HostileFolders() override
    {
        SystemCache::invalidate();
        DiskManager::reInit(true);
    }

    static Cookie clip(unsigned number) { return {CookieTypeVision, 0x1000 + number, 0}; }
    // Path of a file in the media folder that is named after a clip.
    [[nodiscard]] std::string named(unsigned number, const std::string& ending) const
    {
        return folder / ("Material/" + clip(number).asString(true).str() + ending);
    }
    void scan() const { SystemCache::addMediaLocation(drive); }
    // Bytes of the file that a clip is found in; "none".
    static std::string found(const Cookie& cookie)
    {
        Path path;
        if (!SystemCache::findFileForCookie(cookie, path, DecodeFormat(eHighRes)))
            return "none";
        return contentsOf(toUTF8(path).str());
    }

    TemporaryFolder folder;
    DriveId drive;
};

void bindSocket(const std::string& path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    path.copy(static_cast<char*>(address.sun_path), path.size());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    ::close(fd);
}

// How many files a large folder has; tests/full.sh asks for a million.
unsigned manyFiles()
{
    const char* count = std::getenv("FSYS_TEST_FOLDER_FILES");
    return count ? static_cast<unsigned>(std::strtoul(count, nullptr, 10)) : 2000;
}

void write(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace

TEST_F(HostileFolders, OnlyFilesAndSymlinksToFilesAreClips)
{
    write(named(0, ".mov"), "media");
    write(folder / "elsewhere", "elsewhere");
    fs::create_symlink(folder / "elsewhere", named(1, ".mov"));

    ASSERT_EQ(0, ::mkfifo(named(10, ".mov").c_str(), 0600));
    bindSocket(named(11, ".s"));
    fs::create_directories(named(12, ".mov"));
    fs::create_symlink(named(14, ".mov"), named(13, ".mov"));
    fs::create_symlink(named(13, ".mov"), named(14, ".mov"));
    fs::create_symlink(named(15, ".mov"), named(15, ".mov"));
    fs::create_symlink(folder / "nowhere", named(16, ".mov"));
    fs::create_directory_symlink(folder.path(), named(17, ".mov"));
    fs::create_symlink("/dev/zero", named(18, ".mov"));
    fs::create_symlink(named(10, ".mov"), named(19, ".mov"));
    write(named(20, ".mov"), "");
    scan();

    EXPECT_EQ("media", found(clip(0)));
    EXPECT_EQ("elsewhere", found(clip(1)));
    EXPECT_EQ(2U, SystemCache::getScanCounts().clips);
    for (unsigned i = 10; i <= 20; ++i)
        EXPECT_FALSE(SystemCache::fileExists(clip(i))) << i;
}

TEST_F(HostileFolders, ANameIsFoundAgainWhateverItsBytes)
{
    const std::string longest(255 - Cookie::completeLength - 1, 'x');
    const std::vector<std::string> endings{".mov",
                                           ".a\nb",
                                           ".\x01\x1b[31m\x7f",
                                           ".\xff\xfe\xc3",
                                           ".\xed\xa0\x80",
                                           ".\xc0\xaf",
                                           "." + longest,
                                           ".\U0001F3AC\U0001F600",
                                           ".*?[a]",
                                           ".back\\slash",
                                           ". . ",
                                           ".\"'$(reboot)`;",
                                           "",
                                           ".",
                                           "..."};
    for (unsigned i = 0; i < endings.size(); ++i)
        write(named(i, endings[i]), "media " + std::to_string(i));
    scan();
    for (unsigned i = 0; i < endings.size(); ++i)
        EXPECT_EQ("media " + std::to_string(i), found(clip(i))) << i;
    EXPECT_EQ(endings.size(), SystemCache::getScanCounts().clips);
}

TEST_F(HostileFolders, NamesThatDifferInCaseAreOneClipAndTheChoiceDoesNotDependOnTheDisk)
{
    const std::string name = clip(0xABC).asString(true).str();
    std::string lower = name;
    for (char& c : lower)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    std::set<std::string> chosen;
    for (const bool lowerFirst : {false, true}) {
        for (const std::string& first : {lowerFirst ? lower : name, lowerFirst ? name : lower})
            write(folder / ("Material/" + first + ".mov"), first);
        SystemCache::invalidate();
        scan();
        chosen.insert(found(clip(0xABC)));
        fs::remove(folder / ("Material/" + name + ".mov"));
        fs::remove(folder / ("Material/" + lower + ".mov"));
    }
    EXPECT_EQ(1U, chosen.size());
}

TEST_F(HostileFolders, NamesThatDifferInNormalisationAreTwoFilesOfTheirClips)
{
    write(named(1, ".\xc3\xa9"), "composed");
    write(named(2, ".e\xcc\x81"), "decomposed");
    scan();
    EXPECT_EQ("composed", found(clip(1)));
    EXPECT_EQ("decomposed", found(clip(2)));
}

TEST_F(HostileFolders, ProxiesOfAbsurdHeightsAndChannelCountsAreFiledAndFound)
{
    const std::array<const char*, 6> tags{".A255.proxy.4294967294.mov",
                                          ".A99999999999999999999.proxy.99999999999999999999.mov",
                                          ".A-1.proxy.-1.mov",
                                          ".A0.proxy.0.mov",
                                          ".A2147483648.proxy.2147483648.mov",
                                          ".Ax.proxy.y.mov"};
    for (unsigned i = 0; i < tags.size(); ++i)
        write(named(i, tags[i]), "proxy " + std::to_string(i));
    scan();
    for (unsigned i = 0; i < tags.size(); ++i) {
        EXPECT_EQ("proxy " + std::to_string(i), found(clip(i))) << tags[i];
        for (unsigned channel = 0; channel < 256; ++channel)
            (void)found(convertCookie(clip(i), CookieTypeSound, static_cast<unsigned char>(channel)));
    }
}

TEST_F(HostileFolders, ALargeFolderIsScannedWhole)
{
    const unsigned count = manyFiles();
    const std::string material = folder / "Material";
    const int at = ::open(material.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (unsigned i = 0; i < count; ++i) {
        const int file = ::openat(at, (clip(i).asString(true).str() + ".mov").c_str(),
                                  O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        ASSERT_EQ(1, ::write(file, "x", 1));
        ::close(file);
    }
    ::close(at);
    scan();
    EXPECT_EQ(count, SystemCache::getScanCounts().clips);
    for (unsigned i = 0; i < count; i += 1 + count / 1000)
        EXPECT_TRUE(SystemCache::fileExists(clip(i)));
}

TEST_F(HostileFolders, FilesThatComeGrowGoAndAreReplacedDuringAScanHurtNoOthers)
{
    constexpr unsigned still = 200;
    for (unsigned i = 0; i < still; ++i)
        write(named(i, ".mov"), "media " + std::to_string(i));
    std::atomic<bool> ends{false};
    std::thread restless([&] {
        for (unsigned round = 0; !ends; ++round) {
            const unsigned number = still + round % 50;
            const std::string path = named(number, ".mov");
            std::error_code ignored;
            switch (round / 50 % 5) {
            case 0:
                write(path, "new");
                break;
            case 1:
                std::ofstream(path, std::ios::app) << std::string(round % 5000, 'g');
                break;
            case 2:
                write(path + ".partial", "another");
                fs::rename(path + ".partial", path, ignored);
                break;
            case 3:
                fs::remove(path, ignored);
                break;
            default:
                fs::create_directories(path, ignored);
                fs::remove(path, ignored);
            }
        }
    });
    for (int scans = 0; scans < 40; ++scans) {
        SystemCache::invalidate();
        scan();
        for (unsigned i = 0; i < still; ++i)
            ASSERT_TRUE(SystemCache::fileExists(clip(i))) << i;
    }
    ends = true;
    restless.join();
    for (unsigned i = 0; i < still; ++i)
        EXPECT_EQ("media " + std::to_string(i), found(clip(i)));
}
