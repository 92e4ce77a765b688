// The text files of media locations, on the real platform: what stands in their place or in them neither
// stops nor misleads the registry, and is not destroyed.

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "RegistryFixture.h"
#include "common/TemporaryFolder.h"

namespace fs = std::filesystem;

namespace {

class HostileLists : public testing::Test
{
protected:
    HostileLists()
    {
        for (const char* location : {"m/Material", "m/Sound", "n/Material", "space"})
            folder.folder(location);
    }
    ~HostileLists() override
    {
        DiskManager::deInit();
        SystemCache::invalidate();
    }

    void init() const { DiskManager::init(wide(folder / "space"), true); }
    [[nodiscard]] std::string root(const std::string& name) const { return folder / (name + "/"); }
    [[nodiscard]] bool isRegistered(const std::string& name) const
    {
        return static_cast<bool>(DiskManager::getVolume(wide(root(name))));
    }

    TemporaryFolder folder;
    RegistryLog log;
};

struct Stranger
{
    const char* what;
    std::function<void(const std::string& path)> make;
    fs::file_type type;
};

std::vector<Stranger> strangers()
{
    return {{"pipe", [](const std::string& path) { ASSERT_EQ(0, ::mkfifo(path.c_str(), 0600)); },
             fs::file_type::fifo},
            {"folder", [](const std::string& path) { fs::create_directories(path + "/full"); },
             fs::file_type::directory},
            {"symlink to itself", [](const std::string& path) { fs::create_symlink(path, path); },
             fs::file_type::symlink},
            {"device", [](const std::string& path) { fs::create_symlink("/dev/zero", path); },
             fs::file_type::symlink}};
}

}  // namespace

TEST_F(HostileLists, WhatIsNoFileIsAnEmptyListAndStays)
{
    for (const Stranger& stranger : strangers())
        for (const char* file :
             {"space/DefNetDrive.txt", "space/UnmountedDrives.txt", "m/Material/MediaSpaceInfo.txt"}) {
            stranger.make(folder / file);
            init();
            EXPECT_TRUE(DiskManager::addMediaLocation(wide(root("m")))) << stranger.what << ' ' << file;
            EXPECT_TRUE(isRegistered("m")) << stranger.what << ' ' << file;
            const DriveId id = DiskManager::getVolume(wide(root("m")))->getId();
            DiskManager::renameMediaLocation(id, L"Raid");
            EXPECT_EQ(L"Raid", DiskManager::getVolume(id)->getName());
            EXPECT_TRUE(DiskManager::removeMediaLocation(wide(root("m"))));
            EXPECT_EQ(stranger.type, fs::symlink_status(folder / file).type())
                << stranger.what << ' ' << file;
            for (const char* any :
                 {"space/DefNetDrive.txt", "space/UnmountedDrives.txt", "m/Material/MediaSpaceInfo.txt"})
                fs::remove_all(folder / any);
        }
}

TEST_F(HostileLists, ALineOfAHundredMegabytesIsNotReadAndNotReplaced)
{
    for (const char* file :
         {"space/DefNetDrive.txt", "space/UnmountedDrives.txt", "m/Material/MediaSpaceInfo.txt"}) {
        folder.file(file, "x");
        fs::resize_file(folder / file, 100U << 20);  // zeros are characters here, for one is none
        init();
        EXPECT_TRUE(DiskManager::addMediaLocation(wide(root("m"))));
        EXPECT_TRUE(isRegistered("m"));
        EXPECT_EQ(L"m", DiskManager::getVolume(wide(root("m")))->getName());
        EXPECT_EQ(100U << 20, fs::file_size(folder / file));
        EXPECT_TRUE(DiskManager::removeMediaLocation(wide(root("m"))));
        fs::remove(folder / file);
        fs::remove(folder / "space/DefNetDrive.txt");
    }
}

TEST_F(HostileLists, ListsOfAnyFormAreReadAsFarAsTheyAreOne)
{
    const std::string m = root("m");
    const std::string n = root("n");
    for (const std::string& list :
         {m + "\n" + n, m + "\r\n" + n + "\r\n", "\xEF\xBB\xBF" + m + "\n" + n + "\n",
          std::string("\0\0\n", 3) + m +
              "\n\x7f"
              "ELF\n" +
              n + "\n",
          m + "\n" + m + "\n" + n + "\n" + m + "\n", "\n\n" + m + "\n\n" + n + "\n\n",
          m + "../m/\n" + m + "\n" + n + "\n"}) {
        folder.file("space/DefNetDrive.txt", list);
        init();
        EXPECT_TRUE(isRegistered("m") && isRegistered("n")) << list;
        EXPECT_EQ(list, contentsOf(folder / "space/DefNetDrive.txt"));
    }
}

TEST_F(HostileLists, AListThatNamesItselfOrItsSpaceIsNoCircle)
{
    const std::string space = folder / "space/";
    folder.file("space/DefNetDrive.txt", space + "DefNetDrive.txt\n" + space + "\n" + folder.path() + "/\n" +
                                             root("m") + "\n" + root("m") + "Material/\n");
    init();
    EXPECT_TRUE(isRegistered("m"));
    SystemCache::initialise(true);
    EXPECT_EQ(0U, SystemCache::getScanCounts().clips);
}

TEST_F(HostileLists, OfHundredsOfLocationsThoseThatHaveAnIdAreRegisteredAndTheOthersAreTold)
{
    for (const unsigned count : {300U, 600U}) {
        std::string list;
        for (unsigned i = 0; i < count; ++i)
            list += folder.folder("many" + std::to_string(i)) + "/\n";
        folder.file("space/DefNetDrive.txt", list);
        init();
        const unsigned missing = DiskManager::getMissingMediaLocations().size();
        unsigned registered = 0;
        std::string ids;
        DriveId id;
        for (bool more = DiskManager::getFirstMaterialVolume(id); more;
             more = DiskManager::getNextMaterialVolume(id)) {
            ids += id.asChar();
            VolumeInfo info;
            EXPECT_EQ(1, DiskManager::getVolInfo(id, &info));
            EXPECT_EQ(DiskManager::getVolume(id)->getPath(),
                      wide(folder / ("many" + std::to_string(registered))));
            ++registered;
        }
        EXPECT_EQ(count, registered + missing);
        EXPECT_GE(registered, 200U);
        std::sort(ids.begin(), ids.end());
        EXPECT_EQ(ids.end(), std::adjacent_find(ids.begin(), ids.end()));
        // A look-up, a choice and the end of the registry go through all of them.
        EXPECT_TRUE(isRegistered("many0"));
        EXPECT_TRUE(DiskManager::findBestDrive(0.001, DiskManager::MostSpace).valid());
        DiskManager::updateDrives();
        EXPECT_EQ(list, contentsOf(folder / "space/DefNetDrive.txt"));
    }
}
