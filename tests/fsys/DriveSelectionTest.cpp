#include "RegistryFixture.h"
#include "fsys/DiskManager.h"
#include "support/Preferences.h"
#include "support/TempFolder.h"

#include <cstdint>
#include <cstdlib>
#include <limits>

namespace {

// A name for preferences of the tests' own, in place of the user's. They are opened once per process, so it
// stays the same for all tests of one. The file itself is made on the fake platform; should it ever be made
// on the real one, it goes with its folder.
class OwnPreferences
{
public:
    OwnPreferences() { setenv("FSYS_PREFS", folder_.path("preferences").c_str(), 1); }

    [[nodiscard]] LightweightString<wchar_t> file() const { return folder_.wide("preferences"); }

private:
    TempFolder folder_;
};

// REQUIRES: the first call comes before the first use of prefs().
const OwnPreferences& ownPreferences()
{
    static const OwnPreferences preferences;
    return preferences;
}

// Callers pass the numbers.
static_assert(DiskManager::BestFit == 0 && DiskManager::MostSpace == 1);

class DriveSelection : public RegistryFixture
{
protected:
    DriveSelection()
    {
        ownPreferences();
        forget();
    }
    ~DriveSelection() override { forget(); }

    static void forget()
    {
        for (const char* key : {"Media Location (Record)", "Media Location (Render)", "Media Location ()"})
            prefs().removePreference(key);
    }
    static double spaceOf(DriveId id) { return DiskManager::getVolume(id)->getSpaceMB(); }
    // What is remembered under key, or "none".
    static LightweightString<wchar_t> remembered(const char* key)
    {
        return prefs().getPreference(key, L"none");
    }
};

// --- the best drive

TEST_F(DriveSelection, BestFitIsTheDriveWithTheLeastSpaceThatExceedsTheRequest)
{
    addPlace(L"/a/", 500 * MB);
    const DriveId fitting = addPlace(L"/b/", 200 * MB);
    const DriveId largest = addPlace(L"/c/", 800 * MB);
    EXPECT_EQ(DiskManager::findBestDrive(100, DiskManager::BestFit), fitting);
    EXPECT_EQ(spaceOf(fitting), 100.0);
    EXPECT_EQ(DiskManager::findBestDrive(100, DiskManager::MostSpace), largest);
    EXPECT_EQ(spaceOf(largest), 700.0);
    EXPECT_EQ(spaceOf(DriveId('1')), 500.0);
}

TEST_F(DriveSelection, ARequestOfExactlyTheFreeSpaceDoesNotFit)
{
    const DriveId id = addPlace(L"/a/", 100 * MB);
    EXPECT_EQ(DiskManager::findBestDrive(100, DiskManager::BestFit), DriveId('0'));
    EXPECT_EQ(DiskManager::findBestDrive(100, DiskManager::MostSpace), DriveId('0'));
    EXPECT_EQ(spaceOf(id), 100.0);
    EXPECT_EQ(DiskManager::findBestDrive(99.5, DiskManager::BestFit), id);
}

TEST_F(DriveSelection, OfEqualDrivesTheFirstIsChosen)
{
    addPlace(L"/a/", 300 * MB);
    addPlace(L"/b/", 300 * MB);
    EXPECT_EQ(DiskManager::findBestDrive(0, DiskManager::MostSpace), DriveId('1'));
    EXPECT_EQ(DiskManager::findBestDrive(0, DiskManager::BestFit), DriveId('1'));
}

TEST_F(DriveSelection, MostSpaceNeedsSomeSpaceWhateverIsAskedFor)
{
    addPlace(L"/a/", 0);
    EXPECT_EQ(DiskManager::findBestDrive(-10, DiskManager::MostSpace), DriveId('0'));
    EXPECT_EQ(DiskManager::findBestDrive(-10, DiskManager::BestFit), DriveId('1'));
}

TEST_F(DriveSelection, AnyOtherRuleChoosesAndReservesNothing)
{
    const DriveId id = addPlace(L"/a/", 300 * MB);
    EXPECT_EQ(DiskManager::findBestDrive(100, static_cast<DiskManager::Match>(2)), DriveId('0'));
    EXPECT_EQ(spaceOf(id), 300.0);
}

TEST_F(DriveSelection, WhatWasHandedOutIsMissingUntilTheNextRefresh)
{
    const DriveId id = addPlace(L"/a/", 300 * MB);
    EXPECT_EQ(DiskManager::findBestDrive(200, DiskManager::MostSpace), id);
    EXPECT_EQ(DiskManager::findBestDrive(200, DiskManager::MostSpace), DriveId('0'));
    DiskManager::updateDrives();
    EXPECT_EQ(DiskManager::findBestDrive(200, DiskManager::MostSpace), id);
}

TEST_F(DriveSelection, ChoosingADriveDoesNotRefreshIt)
{
    const auto disk = addDisk(L"/a/", 300 * MB);
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/a/", id, false));
    const unsigned before = disk->queries().freeBytes;
    DiskManager::findBestDrive(200, DiskManager::MostSpace);
    EXPECT_EQ(DiskManager::find_best_disk(), id);
    EXPECT_EQ(disk->queries().freeBytes, before);
}

TEST_F(DriveSelection, TheBestDiskIsTheLastWithAnySpace)
{
    addPlace(L"/a/", 50 * MB);
    addPlace(L"/b/", 0);
    const DriveId last = addPlace(L"/c/", 10 * MB);
    addPlace(L"/d/", 0);
    EXPECT_EQ(DiskManager::find_best_disk(), last);
}

TEST_F(DriveSelection, WithoutAnySpaceThereIsNoBestDisk)
{
    addPlace(L"/a/", 0);
    addPlace(L"/b/", 0);
    EXPECT_EQ(DiskManager::find_best_disk(), DriveId('0'));
}

// --- recording time

TEST_F(DriveSelection, SpaceForRecordingIsRefreshedAndLeavesTheReserve)
{
    const DriveId id = addPlace(L"/a/", 50 * MB);
    DiskManager::getVolume(id)->reserveSpace(40);
    EXPECT_EQ(DiskManager::getSpaceForRecording(id), 48.0);
    DiskManager::getVolume(id)->reserveSpace(40);
    EXPECT_EQ(DiskManager::getSpaceForRecording(*DiskManager::getVolume(id)), 48.0);
    EXPECT_EQ(DiskManager::getSpaceForRecording(DriveId('x')), -2.0);
}

TEST_F(DriveSelection, MinutesAreTheSpaceDividedByBothRates)
{
    const DriveId id = addPlace(L"/a/", 102 * MB);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, 1048576, 0), 100);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, 1048576, 1048576), 50);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, 3 * 1048576, 0), 33);
}

TEST_F(DriveSelection, MinutesAreThoseOfRefreshedFigures)
{
    const DriveId id = addPlace(L"/a/", 102 * MB);
    DiskManager::getVolume(id)->reserveSpace(60);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, 1048576, 0), 100);
}

TEST_F(DriveSelection, WithoutRoomForRecordingTheMinutesAreMinusOne)
{
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(addPlace(L"/a/", 2 * MB), 1, 1), -1);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(addPlace(L"/b/", 1 * MB), 1, 1), -1);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(DriveId('x'), 1, 1), -1);
}

TEST_F(DriveSelection, MinutesStayWithin32Bits)
{
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    const DriveId id = addPlace(L"/a/", 102 * MB);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, 0, 0), most);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, -0.0, -0.0), most);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, 1e-300, 0), most);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, 0.001, 0), most);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, -1e-300, 0),
              std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, -1048576, 0), -100);
    EXPECT_EQ(DiskManager::get_mins_of_recording_left(id, std::numeric_limits<double>::quiet_NaN(), 0), most);
}

// --- task drives

TEST_F(DriveSelection, ATaskRemembersTheRootOfItsDrive)
{
    const DriveId id = addPlace(L"/Media/");
    DiskManager::setDriveForTask("Record", id);
    EXPECT_EQ(remembered("Media Location (Record)"), L"/Media");
    EXPECT_EQ(os.files().contents(ownPreferences().file()), "Media Location (Record)=/Media\n");
    EXPECT_EQ(DiskManager::getDriveForTask("Record", false), id);
    EXPECT_EQ(DiskManager::getDriveForTask("Render", false), DriveId('0'));
}

TEST_F(DriveSelection, ATaskRemembersTheRootAndNotTheLocalShare)
{
    inFreshProcess([this] {  // shares are read once per process
        os.files().addShare(L"\\\\HOST\\MEDIA", L"/srv/media/");
        addDisk(L"\\\\HOST\\MEDIA\\x/", 5 * MB, iDiskDrive::eNetwork);
        os.files().setWritable(L"\\\\HOST\\MEDIA\\x", true);
        DriveId id;
        ASSERT_TRUE(DiskManager::addMaterialVolume(L"\\\\HOST\\MEDIA\\x", id, false));
        ASSERT_EQ(DiskManager::getMaterialVolumeName(id, true), L"/srv/media/x");
        DiskManager::setDriveForTask("Record", id);
        EXPECT_EQ(remembered("Media Location (Record)"), L"\\\\HOST\\MEDIA\\x");
        EXPECT_EQ(DiskManager::getDriveForTask("Record", false), id);
    });
}

TEST_F(DriveSelection, NoTaskAndTheEmptyTaskShareAKey)
{
    const DriveId id = addPlace(L"/Media/");
    DiskManager::setDriveForTask(nullptr, id);
    EXPECT_EQ(remembered("Media Location ()"), L"/Media");
    EXPECT_EQ(DiskManager::getDriveForTask("", false), id);
    DiskManager::setDriveForTask("", DriveId('0'));
    EXPECT_EQ(remembered("Media Location ()"), L"none");
    EXPECT_EQ(DiskManager::getDriveForTask(nullptr, false), DriveId('0'));
}

TEST_F(DriveSelection, ATaskDriveSurvivesAChangeOfIdsAndOfCase)
{
    addPlace(L"/Media/");
    DiskManager::setDriveForTask("Record", DriveId('1'));
    DiskManager::reInit(true);
    addPlace(L"/other/");
    const DriveId id = addPlace(L"/MEDIA/");
    EXPECT_EQ(DiskManager::getDriveForTask("Record", false), id);
}

TEST_F(DriveSelection, ATaskWhoseDriveIsGoneGetsNoneOrTheBestDisk)
{
    const DriveId gone = addPlace(L"/gone/");
    const DriveId best = addPlace(L"/best/");
    DiskManager::setDriveForTask("Record", gone);
    DiskManager::deleteMaterialVolume(gone);
    EXPECT_EQ(DiskManager::getDriveForTask("Record", false), DriveId('0'));
    EXPECT_EQ(DiskManager::getDriveForTask("Record", true), best);
}

TEST_F(DriveSelection, TheFallbackDoesNotReplaceAChoice)
{
    const DriveId chosen = addPlace(L"/a/");
    addPlace(L"/b/");
    DiskManager::setDriveForTask("Record", chosen);
    EXPECT_EQ(DiskManager::getDriveForTask("Record", true), chosen);
}

TEST_F(DriveSelection, NoDriveForgetsTheChoice)
{
    DiskManager::setDriveForTask("Record", addPlace(L"/a/"));
    DiskManager::setDriveForTask("Record", DriveId('0'));
    EXPECT_EQ(remembered("Media Location (Record)"), L"none");
}

TEST_F(DriveSelection, AnUnregisteredDriveIsRememberedAsTheEmptyRoot)
{
    DiskManager::setDriveForTask("Record", DriveId('x'));
    EXPECT_EQ(remembered("Media Location (Record)"), L"");
    EXPECT_EQ(DiskManager::getDriveForTask("Record", false), DriveId('0'));
}

}  // namespace
