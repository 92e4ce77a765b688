#include "RegistryFixture.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialFilename.h"

#include <atomic>

namespace {

// Threads that look drives up as the I/O engine and players do.
class LookUpThreads
{
public:
    explicit LookUpThreads(unsigned count)
    {
        for (unsigned i = 0; i < count; ++i)
            threads_.emplace_back([this] {
                while (!stop_.load()) {
                    lookUp();
                    rounds_.fetch_add(1);
                }
            });
    }
    ~LookUpThreads() { stop(); }

    void awaitRounds(unsigned long rounds)
    {
        while (rounds_.load() < rounds)
            std::this_thread::yield();
    }
    void stop()
    {
        stop_ = true;
        for (auto& thread : threads_)
            thread.join();
        threads_.clear();
    }
    [[nodiscard]] unsigned long wrong() const { return wrong_.load(); }
    [[nodiscard]] unsigned long found() const { return found_.load(); }
    [[nodiscard]] unsigned long rounds() const { return rounds_.load(); }

private:
    void lookUp()
    {
        if (const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(L"/d1/")) {
            found_.fetch_add(1);
            drive->setSlow(!drive->isSlow());
            expect(drive->getPath() == L"/d1");
            const auto name = drive->getUserName(false);
            expect(name == L"/d1" || name == L"Archive" || name.empty());
        }
        DriveId id;
        for (bool more = DiskManager::getFirstMaterialVolume(id); more;
             more = DiskManager::getNextMaterialVolume(id)) {
            expect(id.valid());
            VolumeInfo info;
            DiskManager::getVolInfo(id, &info);
            const auto path = MaterialFilename(id, L"/x").getOsPath();
            expect(path == L"/x" || path.endsWith(L"/x"));
        }
        const DriveId third = DiskManager::get_drive(2);
        expect(!third.valid() || third == DriveId('3'));
        // None of the places has a volume, and so none has room.
        expect(DiskManager::get_mins_of_recording_left(DriveId('1'), 1, 1) == -1);
        static_cast<void>(DiskManager::find_best_disk());
    }
    void expect(bool holds)
    {
        if (!holds)
            wrong_.fetch_add(1);
    }

    std::atomic<bool> stop_{false};
    std::atomic<unsigned long> rounds_{0};
    std::atomic<unsigned long> found_{0};
    std::atomic<unsigned long> wrong_{0};
    std::vector<std::thread> threads_;
};

class DiskManagerThreads : public RegistryFixture
{
};

TEST_F(DiskManagerThreads, DrivesMayBeLookedUpWhileTheyComeAndGo)
{
    LookUpThreads threads(3);
    for (unsigned round = 0; round < 30; ++round) {
        DiskManager::reInit(true);
        os.log().clear();
        addFolders(3);
        DiskManager::setMediaLocationUserName(DriveId('1'), L"Archive");
        DiskManager::updateDrives();
        DiskManager::findBestDrive(0.0, DiskManager::MostSpace);
        threads.awaitRounds(threads.rounds() + 3);
        DiskManager::deleteMaterialVolume(DriveId('2'));
        DiskManager::deleteMaterialVolume(DriveId('1'));
    }
    threads.stop();
    EXPECT_EQ(threads.wrong(), 0u);
    EXPECT_GT(threads.found(), 0u);
}

TEST_F(DiskManagerThreads, ListenersMayChangeTheRegistryWhileItNamesADrive)
{
    addPlace(L"/a/");
    addPlace(L"/b/");
    const RegistryListener listener([](const NotifyMsg&) {
        DiskManager::deleteMaterialVolume(DriveId('1'));
        DiskManager::deleteMaterialVolume(DriveId('2'));
    });
    os.files().addFolder(L"/a/Material");
    EXPECT_EQ(DiskManager::renameMediaLocation(DriveId('1'), L"Archive"), 1);
    EXPECT_FALSE(DiskManager::getVolume(DriveId('2')));
    EXPECT_EQ(listener.count("MediaLocationsChangeMsg"), 1u);
}

}  // namespace
