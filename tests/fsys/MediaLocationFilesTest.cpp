#include "RegistryFixture.h"
#include "fsys/DiskManager.h"
#include "os/LastError.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace {

constexpr wchar_t listFile[] = L"/project/DefNetDrive.txt";
constexpr wchar_t unmountedFile[] = L"/project/UnmountedDrives.txt";

class MediaLocationFiles : public RegistryFixture
{
protected:
    static std::vector<std::wstring> missing()
    {
        std::vector<std::wstring> paths;
        for (const auto& path : DiskManager::getMissingMediaLocations())
            paths.push_back(path.str());
        return paths;
    }
    // The lines about locations that could not be added; the cache logs lines of its own.
    [[nodiscard]] std::string missingLines() const
    {
        std::string lines;
        std::istringstream all(log.both);
        for (std::string line; std::getline(all, line);)
            if (line.starts_with("**"))
                lines += line + "\n";
        return lines;
    }
    // A file of the real file system, which unmountDrives writes to.
    static std::string realFile()
    {
        const auto* test = testing::UnitTest::GetInstance()->current_test_info();
        std::string name = testing::TempDir() + "/fsys_unmounted_" + test->name();
        std::filesystem::remove(name);
        return name;
    }
    static std::string realContents(const std::string& name)
    {
        std::ifstream file(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

// --- the description file

TEST_F(MediaLocationFiles, TheDescriptionFileLiesInTheMaterialFolder)
{
    EXPECT_EQ(DiskManager::getInfoFileNameFor(addPlace(L"/a/")), L"/a/Material/MediaSpaceInfo.txt");
    EXPECT_EQ(DiskManager::getInfoFileNameFor(DriveId('x')), L"/Material/MediaSpaceInfo.txt");
}

TEST_F(MediaLocationFiles, TheKeyOfTheUserNameIsReadIgnoringCase)
{
    const DriveId id = addPlace(L"/a/");
    os.files().addFile(L"/a/Material/MediaSpaceInfo.txt", "NAME=Archive\nname=Other\nrubbish\n");
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(DiskManager::getMediaLocationUserName(id), L"Archive"); }), "");
    EXPECT_EQ(log.logged + log.both, "");
}

TEST_F(MediaLocationFiles, TheUserNameIsUtf8AndMayHoldTheSeparator)
{
    const DriveId id = addPlace(L"/a/");
    os.files().addFile(L"/a/Material/MediaSpaceInfo.txt", "name=\xc3\x84rger = 2 ");
    EXPECT_EQ(DiskManager::getMediaLocationUserName(id), L"\u00c4rger = 2 ");
}

TEST_F(MediaLocationFiles, ADescriptionThatIsNoNameIsReported)
{
    const DriveId id = addPlace(L"/a/");
    for (const char* contents : {"Archive\n", "title=Archive\n", "=Archive\n", "\nname=Archive\n"}) {
        log.logged.clear();
        os.files().addFile(L"/a/Material/MediaSpaceInfo.txt", contents);
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(DiskManager::getMediaLocationUserName(id), L""); }),
                  "assertion failed false at ole/fsys/DiskManager line 185\n");
        EXPECT_EQ(log.logged, "Disk Manager - MediaSpaceInfo.txt contents corrupt\n");
        EXPECT_EQ(log.both, "");
    }
}

TEST_F(MediaLocationFiles, AMissingOrEmptyDescriptionIsAnEmptyNameWithoutAMessage)
{
    const DriveId id = addPlace(L"/a/");
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(DiskManager::getMediaLocationUserName(id), L""); }), "");
    os.files().addFile(L"/a/Material/MediaSpaceInfo.txt", "");
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(DiskManager::getMediaLocationUserName(id), L""); }), "");
    EXPECT_EQ(log.logged + log.both, "");
}

TEST_F(MediaLocationFiles, AUserNameIsSetInMemoryOnly)
{
    const DriveId id = addPlace(L"/a/");
    os.files().addFolder(L"/a/Material");
    DiskManager::setMediaLocationUserName(id, L"Archive");
    EXPECT_EQ(DiskManager::getVolume(id)->getName(), L"Archive");
    EXPECT_FALSE(os.files().has(L"/a/Material/MediaSpaceInfo.txt"));
}

TEST_F(MediaLocationFiles, NamingAnUnknownDriveIsReported)
{
    EXPECT_EQ(printedBy([] { DiskManager::setMediaLocationUserName(DriveId('x'), L"Archive"); }),
              "assertion failed false at ole/fsys/DiskManager line 200\n");
}

TEST_F(MediaLocationFiles, SavingADriveReplacesItsDescriptionByOneLine)
{
    const DriveId id = addPlace(L"/a/");
    os.files().addFile(L"/a/Material/MediaSpaceInfo.txt", "name=Old\nmore\n");
    DiskManager::setMediaLocationUserName(id, L"\u00c4rger");
    EXPECT_TRUE(DiskManager::saveDriveInfo(*DiskManager::getVolume(id)));
    EXPECT_EQ(os.files().contents(L"/a/Material/MediaSpaceInfo.txt"), "name=\xc3\x84rger\n");
}

TEST_F(MediaLocationFiles, AFullVolumeIsNotWrittenTo)
{
    const DriveId id = addPlace(L"/a/", 0);
    os.files().addFolder(L"/a/Material");
    EXPECT_FALSE(DiskManager::saveDriveInfo(*DiskManager::getVolume(id)));
    EXPECT_EQ(log.both, "Disk Manager : Insufficient space for MediaSpaceInfo.txt file on drive '1'.\n");
    EXPECT_FALSE(os.files().has(L"/a/Material/MediaSpaceInfo.txt"));
    EXPECT_EQ(os.log().count(fake::Op::replaceFile), 0u);
}

TEST_F(MediaLocationFiles, AVolumeThatDoesNotAnswerIsNotWrittenTo)
{
    const DriveId id = addPlace(L"/a/");
    os.files().addFolder(L"/a/Material");
    os.files().clearDrives();
    EXPECT_FALSE(DiskManager::saveDriveInfo(*DiskManager::getVolume(id)));
    EXPECT_EQ(log.both, "Disk Manager : Insufficient space for MediaSpaceInfo.txt file on drive '1'.\n");
    EXPECT_EQ(os.log().count(fake::Op::replaceFile), 0u);
}

TEST_F(MediaLocationFiles, ALaterInitWorksWithTheListsOfItsOwnProjectSpace)
{
    addDisk(L"/a/");
    addDisk(L"/b/");
    os.files().addFile(L"/other/DefNetDrive.txt", "/a/\n");
    DiskManager::init(L"/other", true);
    EXPECT_EQ(DiskManager::getMaterialVolumeName(DriveId('1'), false), L"/a");
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/b/"));
    EXPECT_EQ(os.files().contents(L"/other/DefNetDrive.txt"), "/a/\n/b/\n");
    EXPECT_FALSE(os.files().has(L"/project/DefNetDrive.txt"));
}

TEST_F(MediaLocationFiles, AWriteThatFailsIsNotReported)
{
    const DriveId id = addPlace(L"/a/");
    os.files().addFolder(L"/a/Material");
    os.faults().failNext(fake::Op::replaceFile, errorFromErrno(EIO));
    EXPECT_TRUE(DiskManager::saveDriveInfo(*DiskManager::getVolume(id)));
    EXPECT_EQ(os.faults().fired(), 1u);
}

TEST_F(MediaLocationFiles, RenamingALocationSavesItsNameAndTellsListeners)
{
    const DriveId id = addPlace(L"/a/");
    os.files().addFolder(L"/a/Material");
    const RegistryListener listener;
    EXPECT_EQ(DiskManager::renameMediaLocation(id, L"Archive"), 1);
    EXPECT_EQ(DiskManager::getVolume(id)->getName(), L"Archive");
    EXPECT_EQ(os.files().contents(L"/a/Material/MediaSpaceInfo.txt"), "name=Archive\n");
    EXPECT_EQ(listener.texts, std::vector<std::string>({"MediaLocationsChangeMsg"}));
}

TEST_F(MediaLocationFiles, ListenersHearOfARenamingWhenTheNameIsSetAndSaved)
{
    const DriveId id = addPlace(L"/a/");
    os.files().addFolder(L"/a/Material");
    std::string saved;
    LightweightString<wchar_t> name;
    const RegistryListener listener([&](const NotifyMsg&) {
        name = DiskManager::getVolume(id)->getName();
        saved = os.files().contents(L"/a/Material/MediaSpaceInfo.txt");
    });
    DiskManager::renameMediaLocation(id, L"Archive");
    EXPECT_EQ(name, L"Archive");
    EXPECT_EQ(saved, "name=Archive\n");
}

TEST_F(MediaLocationFiles, RenamingOnAFullVolumeNamesInMemoryAndTellsListeners)
{
    const DriveId id = addPlace(L"/a/", 0);
    const RegistryListener listener;
    EXPECT_EQ(DiskManager::renameMediaLocation(id, L"Archive"), 0);
    EXPECT_EQ(DiskManager::getVolume(id)->getName(), L"Archive");
    EXPECT_EQ(listener.texts.size(), 1u);
}

TEST_F(MediaLocationFiles, RenamingAnUnknownLocationDoesNothing)
{
    addPlace(L"/a/");
    const RegistryListener listener;
    EXPECT_EQ(DiskManager::renameMediaLocation(DriveId('x'), L"Archive"), 0);
    EXPECT_TRUE(listener.texts.empty());
}

TEST_F(MediaLocationFiles, ANameIsSaveableWhenADriveHasIt)
{
    DiskManager::setMediaLocationUserName(addPlace(L"/a/"), L"Archive");
    EXPECT_EQ(DiskManager::getSaveName(L"Archive"), L"Archive");
    EXPECT_EQ(DiskManager::getSaveName(L"archive"), L"");
    EXPECT_EQ(DiskManager::getSaveName(L"Other"), L"");
}

// --- preparing a drive

TEST_F(MediaLocationFiles, ADriveIsPreparedWhenBothFoldersExist)
{
    const DriveId id = addPlace(L"/a/");
    os.log().clear();
    EXPECT_FALSE(DiskManager::isVolumePreparedForMedia(id));
    EXPECT_EQ(os.log().count(fake::Op::directoryExists), 1u);  // the second is not asked for
    os.files().addFolder(L"/a/Material");
    EXPECT_FALSE(DiskManager::isVolumePreparedForMedia(id));
    os.files().addFolder(L"/a/Sound");
    EXPECT_TRUE(DiskManager::isVolumePreparedForMedia(id));
    EXPECT_EQ(os.log().count(fake::Op::directoryExists, L"/a/Material"), 3u);
    EXPECT_EQ(os.log().count(fake::Op::directoryExists, L"/a/Sound"), 2u);
}

TEST_F(MediaLocationFiles, PreparingMakesOnlyTheFolderThatIsMissing)
{
    const DriveId id = addPlace(L"/a/");
    os.files().addFolder(L"/a/Material");
    os.log().clear();
    EXPECT_TRUE(DiskManager::prepareVolumeForMedia(id));
    EXPECT_EQ(os.log().count(fake::Op::createDirectory), 1u);
    EXPECT_TRUE(os.files().hasFolder(L"/a/Sound"));
}

TEST_F(MediaLocationFiles, APictureFolderThatCannotBeMadeIsReportedAndEndsThePreparation)
{
    const DriveId id = addPlace(L"/a/");
    os.faults().failNext(fake::Op::createDirectory, errorFromErrno(EACCES));
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(DiskManager::prepareVolumeForMedia(id)); }),
              "assertion failed success at ole/fsys/DiskManager line 873\n");
    EXPECT_EQ(log.both, "DiskManager::prepareVolumeForMedia : Failed to create /a/Material\n");
    EXPECT_EQ(os.log().count(fake::Op::createDirectory), 1u);
    EXPECT_FALSE(os.files().hasFolder(L"/a/Sound"));
}

TEST_F(MediaLocationFiles, ASoundFolderThatCannotBeMadeIsReported)
{
    const DriveId id = addPlace(L"/a/");
    os.faults().failNth(fake::Op::createDirectory, 2, errorFromErrno(EACCES));
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(DiskManager::prepareVolumeForMedia(id)); }),
              "assertion failed success at ole/fsys/DiskManager line 873\n");
    EXPECT_EQ(log.both, "DiskManager::prepareVolumeForMedia : Failed to create /a/Sound\n");
    EXPECT_TRUE(os.files().hasFolder(L"/a/Material"));
}

// --- the list of locations

TEST_F(MediaLocationFiles, DoubledBackslashesOfTheListAreReadAsSingleOnes)
{
    os.files().addFile(listFile, "x\\\\y\\\\\\z\n\\\\\\\\server\\\\share\n\\\\server\\\\share\n");
    EXPECT_EQ(DiskManager::addDrivesFromFile(listFile), 1);
    EXPECT_EQ(missing(),
              std::vector<std::wstring>({L"x\\y\\\\z", L"\\\\\\\\server\\\\share", L"\\\\server\\\\share"}));
}

TEST_F(MediaLocationFiles, ALocationThatCannotBeAddedIsLoggedAndKeptAndTheRestIsLoaded)
{
    addDisk(L"/a/");
    addDisk(L"/b/");
    os.files().addFile(listFile, "/a/\n/go\\\\ne\xc3\x84/\n/b/\n");
    const RegistryListener listener;
    EXPECT_EQ(DiskManager::addDrivesFromFile(listFile), 1);
    EXPECT_EQ(missingLines(), "** Can't add material drive '/go\\\\ne\xc3\x84/'\n");
    EXPECT_EQ(missing(), std::vector<std::wstring>({L"/go\\ne\u00c4/"}));
    EXPECT_TRUE(DiskManager::getVolume(L"/a/"));
    EXPECT_TRUE(DiskManager::getVolume(L"/b/"));
    EXPECT_FALSE(DiskManager::isVolumeAutoDiscovered(DiskManager::getVolume(L"/b/")->getId()));
    EXPECT_EQ(listener.texts, std::vector<std::string>({"MediaLocationsChangeMsg"}));
}

TEST_F(MediaLocationFiles, ListenersHearOfAListWhenAllOfItHasBeenLoaded)
{
    addDisk(L"/a/");
    addDisk(L"/b/");
    os.files().addFile(listFile, "/a/\n/b/\n/gone/\n");
    bool loaded = false;
    const RegistryListener listener([&](const NotifyMsg&) {
        loaded = DiskManager::getVolume(L"/a/") && DiskManager::getVolume(L"/b/") && missing().size() == 1;
    });
    DiskManager::addDrivesFromFile(listFile);
    EXPECT_TRUE(loaded);
    EXPECT_EQ(listener.texts.size(), 1u);
}

TEST_F(MediaLocationFiles, TheMissingLocationsAreThoseOfTheLastList)
{
    os.files().addFile(listFile, "/gone/\n");
    DiskManager::addDrivesFromFile(listFile);
    EXPECT_EQ(missing().size(), 1u);
    os.files().addFile(listFile, "");
    EXPECT_EQ(DiskManager::addDrivesFromFile(listFile), 1);
    EXPECT_TRUE(missing().empty());
}

TEST_F(MediaLocationFiles, AListedLocationThatIsRegisteredIsPassedOver)
{
    addPlace(L"/a/");
    os.files().addFile(listFile, "/a/\n");
    EXPECT_EQ(printedBy([] { DiskManager::addDrivesFromFile(listFile); }), "");
    EXPECT_EQ(DiskManager::get_drive(1), DriveId('0'));
    EXPECT_TRUE(missing().empty());
}

TEST_F(MediaLocationFiles, AMissingListIsAnEmptyOne)
{
    const RegistryListener listener;
    EXPECT_EQ(DiskManager::addDrivesFromFile(L"/project/none.txt"), 1);
    EXPECT_EQ(listener.texts.size(), 1u);
    EXPECT_EQ(log.both, "");
}

TEST_F(MediaLocationFiles, AnEmptyLineOfTheListIsAMissingLocation)
{
    addDisk(L"/a/");
    os.files().addFile(listFile, "/a/\n\n");
    DiskManager::addDrivesFromFile(listFile);
    EXPECT_EQ(missingLines(), "** Can't add material drive ''\n");
    EXPECT_EQ(missing(), std::vector<std::wstring>({L""}));
}

TEST_F(MediaLocationFiles, TheMessageOfAMissingLocationIsCutAt4135Characters)
{
    os.files().addFile(listFile, std::string(5000, 'x') + "\n");
    DiskManager::addDrivesFromFile(listFile);
    const std::string start = "** Can't add material drive '";
    EXPECT_EQ(log.both, start + std::string(4135 - start.size(), 'x'));
    ASSERT_EQ(missing().size(), 1u);
    EXPECT_EQ(missing()[0].size(), 5000u);
}

// --- adding and removing

TEST_F(MediaLocationFiles, AnAddedLocationIsListedRegisteredScannedAndTold)
{
    addDisk(L"/\u00c4/");
    const Cookie cookie(CookieTypeVision, 0x100, 0);
    os.files().addFile(LightweightString<wchar_t>(L"/\u00c4/Material/") + cookie.asWString() + L".mov",
                       "media");
    os.files().addFile(listFile, "/other/\n");
    const RegistryListener listener;
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/\u00c4/"));
    EXPECT_EQ(os.files().contents(listFile), "/other/\n/\xc3\x84/\n");
    EXPECT_EQ(DiskManager::getVolume(L"/\u00c4/")->getName(), L"\u00c4");
    EXPECT_FALSE(DiskManager::isVolumeAutoDiscovered(DriveId('1')));
    EXPECT_TRUE(SystemCache::fileExists(cookie));
    EXPECT_EQ(listener.texts, std::vector<std::string>({"MediaLocationsChangeMsg"}));
}

TEST_F(MediaLocationFiles, APathWithALineBreakIsRefusedForItWouldComeBackAsTwo)
{
    addDisk(L"/a\n/b/");
    addDisk(L"/c\r");
    os.files().addFile(listFile, "/other/\n");
    const RegistryListener listener;
    for (const wchar_t* path : {L"/a\n/b/", L"/c\r"})
        EXPECT_FALSE(DiskManager::addMediaLocation(path));
    EXPECT_EQ(os.files().contents(listFile), "/other/\n");
    EXPECT_FALSE(DiskManager::getVolume(L"/a\n/b/"));
    EXPECT_NE(log.both.find("a path with a line break cannot be listed: /a\n/b/"), std::string::npos);
    EXPECT_TRUE(listener.texts.empty());
}

TEST_F(MediaLocationFiles, ADiscoveredDriveWithALineBreakInItsPathIsRemovedWithoutAnEntryForAnother)
{
    addDisk(L"/x\n/m/");
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/x\n/m/", id, true));
    EXPECT_TRUE(DiskManager::removeMediaLocation(L"/x\n/m/"));
    EXPECT_FALSE(os.files().has(unmountedFile));
}

TEST_F(MediaLocationFiles, ListenersHearOfAnAdditionWhenTheLocationIsListedNamedAndScanned)
{
    addDisk(L"/a/");
    const Cookie cookie(CookieTypeVision, 0x100, 0);
    os.files().addFile(LightweightString<wchar_t>(L"/a/Material/") + cookie.asWString() + L".mov", "media");
    bool added = false;
    const RegistryListener listener([&](const NotifyMsg&) {
        const auto drive = DiskManager::getVolume(L"/a/");
        added = drive && drive->getName() == L"a" && os.files().contents(listFile) == "/a/\n" &&
                SystemCache::fileExists(cookie);
    });
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/a/"));
    EXPECT_TRUE(added);
}

TEST_F(MediaLocationFiles, ALocationIsAddedOnceWhateverItsCase)
{
    addDisk(L"/a/");
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/a/"));
    const RegistryListener listener;
    EXPECT_FALSE(DiskManager::addMediaLocation(L"/a/"));
    EXPECT_FALSE(DiskManager::addMediaLocation(L"/A/"));
    EXPECT_EQ(os.files().contents(listFile), "/a/\n");
    EXPECT_TRUE(listener.texts.empty());
}

TEST_F(MediaLocationFiles, WithoutItsSeparatorALocationIsAddedEveryTime)
{
    addDisk(L"/a/");
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/a"));
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/a"));
    EXPECT_EQ(os.files().contents(listFile), "/a\n/a\n");
    EXPECT_EQ(DiskManager::get_drive(1), DriveId('2'));
}

TEST_F(MediaLocationFiles, ALocationThatCannotBeReachedIsListedAllTheSame)
{
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/gone/"));
    EXPECT_EQ(os.files().contents(listFile), "/gone/\n");
    EXPECT_EQ(DiskManager::get_drive(0), DriveId('0'));
}

TEST_F(MediaLocationFiles, AnAddedLocationIsBackWithItsNameAfterARestart)
{
    addDisk(L"/a/");
    os.files().addFolder(L"/a/Material");
    ASSERT_TRUE(DiskManager::addMediaLocation(L"/a/"));
    ASSERT_EQ(DiskManager::renameMediaLocation(DriveId('1'), L"Archive"), 1);
    DiskManager::init(L"/project", true);
    const auto drive = DiskManager::getVolume(L"/a/");
    ASSERT_TRUE(drive);
    EXPECT_EQ(drive->getName(), L"Archive");
}

TEST_F(MediaLocationFiles, TheOnlyUnmountedDriveComesBackAndItsListIsDeleted)
{
    addDisk(L"/a/");
    os.files().addFile(unmountedFile, "/a/\n");
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/a/"));
    EXPECT_FALSE(os.files().has(unmountedFile));
    EXPECT_EQ(os.log().count(fake::Op::deleteFile, unmountedFile), 1u);
    EXPECT_FALSE(os.files().has(listFile));
    EXPECT_TRUE(DiskManager::isVolumeAutoDiscovered(DriveId('1')));
}

TEST_F(MediaLocationFiles, AListOfUnmountedDrivesThatCannotBeDeletedIsLogged)
{
    addDisk(L"/a/");
    os.files().addFile(unmountedFile, "/a/\n");
    os.faults().failOn(unmountedFile, fake::Op::deleteFile, errorFromErrno(EACCES));
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/a/"));
    EXPECT_TRUE(os.files().has(unmountedFile));
    EXPECT_NE(log.logged.find("UnmountedDrives.txt could not be deleted: Permission denied"),
              std::string::npos);
}

TEST_F(MediaLocationFiles, OneOfTwoUnmountedDrivesComesBackAndTheOtherStaysListed)
{
    addDisk(L"/a/");
    os.files().addFile(unmountedFile, "/b/\n/a/\n");
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/a/"));
    EXPECT_EQ(os.files().contents(unmountedFile), "/b/\n");
    EXPECT_FALSE(os.files().has(listFile));
    EXPECT_TRUE(DiskManager::isVolumeAutoDiscovered(DriveId('1')));
}

TEST_F(MediaLocationFiles, OfADriveThatIsUnmountedTwiceOneEntryGoes)
{
    addDisk(L"/a/");
    os.files().addFile(unmountedFile, "/a/\n/b/\n/a/\n");
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/a/"));
    EXPECT_EQ(os.files().contents(unmountedFile), "/b/\n/a/\n");
    EXPECT_TRUE(DiskManager::isVolumeAutoDiscovered(DriveId('1')));
}

TEST_F(MediaLocationFiles, UnmountedDrivesAreComparedToTheLetter)
{
    addDisk(L"/a/");
    os.files().addFile(unmountedFile, "/A/\n");
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/a/"));
    EXPECT_EQ(os.files().contents(unmountedFile), "/A/\n");
    EXPECT_EQ(os.files().contents(listFile), "/a/\n");
    EXPECT_FALSE(DiskManager::isVolumeAutoDiscovered(DriveId('1')));
}

TEST_F(MediaLocationFiles, ARemovedDiscoveredDriveIsNotBackAfterARestart)
{
    addDisk(L"/a/");
    addDisk(L"/b/");
    os.files().addFolder(L"/a/Material");
    os.files().addFolder(L"/b/Material");
    DiskManager::init(L"/project", false);
    EXPECT_TRUE(DiskManager::removeMediaLocation(L"/a/"));
    EXPECT_EQ(os.files().contents(unmountedFile), "/a/\n");
    EXPECT_FALSE(DiskManager::getVolume(L"/a/"));
    DiskManager::init(L"/project", false);
    EXPECT_FALSE(DiskManager::getVolume(L"/a/"));
    EXPECT_TRUE(DiskManager::getVolume(L"/b/"));
    EXPECT_EQ(DiskManager::getUnmountedDrives().size(), 1u);
}

TEST_F(MediaLocationFiles, ARemovedUserLocationIsTakenOffTheListWhateverItsCase)
{
    addDisk(L"/Media/");
    os.files().addFile(listFile, "/other/\n/MEDIA/\n/last/\n/media/\n");
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/Media/", id, false));
    EXPECT_TRUE(DiskManager::removeMediaLocation(L"/media/"));
    EXPECT_EQ(os.files().contents(listFile), "/other/\n/last/\n");
    EXPECT_FALSE(os.files().has(unmountedFile));
    EXPECT_EQ(os.log().count(fake::Op::replaceFile, listFile), 2u);  // saved at each removal
}

TEST_F(MediaLocationFiles, OfTwoEqualLinesNextToEachOtherTheSecondStays)
{
    addPlace(L"/a/");
    os.files().addFile(listFile, "/a/\n/a/\n/b/\n/A/\n");
    EXPECT_TRUE(DiskManager::removeMediaLocation(L"/a/"));
    EXPECT_EQ(os.files().contents(listFile), "/a/\n/b/\n");
}

TEST_F(MediaLocationFiles, RemovingAnUnknownLocationDoesNothing)
{
    addPlace(L"/a/");
    const RegistryListener listener;
    EXPECT_FALSE(DiskManager::removeMediaLocation(L"/b/"));
    EXPECT_FALSE(DiskManager::removeMediaLocation(L"/a"));  // a root location ends with its separator
    EXPECT_TRUE(listener.texts.empty());
    EXPECT_TRUE(DiskManager::getVolume(L"/a/"));
}

TEST_F(MediaLocationFiles, ListenersHearOfARemovalWhenCacheAndRegistryHaveForgottenTheLocation)
{
    addDisk(L"/a/");
    const Cookie cookie(CookieTypeVision, 0x100, 0);
    os.files().addFile(LightweightString<wchar_t>(L"/a/Material/") + cookie.asWString() + L".mov", "media");
    ASSERT_TRUE(DiskManager::addMediaLocation(L"/a/"));
    ASSERT_TRUE(SystemCache::fileExists(cookie));
    bool forgotten = false;
    const RegistryListener listener([&](const NotifyMsg&) {
        forgotten = !SystemCache::fileExists(cookie) && !DiskManager::getVolume(L"/a/");
    });
    EXPECT_TRUE(DiskManager::removeMediaLocation(L"/a/"));
    EXPECT_TRUE(forgotten);
    EXPECT_EQ(listener.texts, std::vector<std::string>({"MediaLocationsChangeMsg"}));
    EXPECT_TRUE(os.files().has(LightweightString<wchar_t>(L"/a/Material/") + cookie.asWString() + L".mov"));
}

TEST_F(MediaLocationFiles, UnmountedDrivesAreDroppedByTheirRootWithSeparatorToTheLetter)
{
    addPlace(L"/a/");
    addPlace(L"/b/");
    addPlace(L"/c/");
    os.files().addFile(unmountedFile, "/a/\n/B/\n/c\n");
    const RegistryListener listener;
    DiskManager::discardUnmountedDrives();
    EXPECT_FALSE(DiskManager::getVolume(L"/a/"));
    EXPECT_TRUE(DiskManager::getVolume(L"/b/"));
    EXPECT_TRUE(DiskManager::getVolume(L"/c/"));
    EXPECT_TRUE(listener.texts.empty());
}

TEST_F(MediaLocationFiles, AnUnmountedSeparatorDropsTheDriveWithAnEmptyRoot)
{
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/", id, false));
    os.files().addFile(unmountedFile, "/\n");
    DiskManager::discardUnmountedDrives();
    EXPECT_FALSE(DiskManager::isVolumePresent(id));
}

TEST_F(MediaLocationFiles, EachUnmountedEntryDropsOneDrive)
{
    addPlace(L"/a/");
    DriveId second;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/a", second, false));
    os.files().addFile(unmountedFile, "/a/\n");
    DiskManager::discardUnmountedDrives();
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('1')));
    EXPECT_TRUE(DiskManager::isVolumePresent(second));
}

// --- unmounting by id

TEST_F(MediaLocationFiles, AnEmptyRegistryHasNothingToUnmount)
{
    EXPECT_FALSE(DiskManager::unmountDrives(nullptr));
}

TEST_F(MediaLocationFiles, DrivesWithIdsUpToZStayAndNoFileIsMade)
{
    os.files().addDrive(L"/");
    addFolders(42);
    const std::string file = realFile();
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(DiskManager::unmountDrives(file.c_str())); }), "");
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(DiskManager::get_drive(41), DriveId('Z'));
}

TEST_F(MediaLocationFiles, DrivesWithIdsAboveZAreUnmountedListedAndTold)
{
    os.files().addDrive(L"/");
    addFolders(44);
    const Cookie cookie(CookieTypeVision, 0x100, 0);
    os.files().addFile(LightweightString<wchar_t>(L"/d43/Material/") + cookie.asWString() + L".mov", "media");
    SystemCache::addMediaLocation(DriveId('['));
    const RegistryListener listener;
    const std::string file = realFile();
    EXPECT_TRUE(DiskManager::unmountDrives(file.c_str()));
    EXPECT_EQ(realContents(file), "/d43\n/d44\n");
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('[')));
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('\\')));
    EXPECT_TRUE(DiskManager::isVolumePresent(DriveId('Z')));
    EXPECT_EQ(listener.texts,
              std::vector<std::string>({"MediaLocationsChangeMsg", "MediaLocationsChangeMsg"}));
    EXPECT_TRUE(SystemCache::fileExists(cookie));  // the cache is not told
    std::filesystem::remove(file);
}

TEST_F(MediaLocationFiles, TheListOfUnmountedDrivesIsReplacedAndUtf8)
{
    os.files().addDrive(L"/");
    addFolders(42);
    os.files().addFolder(L"/\u00c4");
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/\u00c4", id, false));
    const std::string file = realFile();
    std::ofstream(file) << "an old line that is longer than the new one\n";
    EXPECT_TRUE(DiskManager::unmountDrives(file.c_str()));
    EXPECT_EQ(realContents(file), "/\xc3\x84\n");
    std::filesystem::remove(file);
}

TEST_F(MediaLocationFiles, DrivesGoSilentlyWhenTheirListCannotBeOpened)
{
    os.files().addDrive(L"/");
    addFolders(44);
    const std::string file = realFile() + "/no/such/folder";
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(DiskManager::unmountDrives(file.c_str())); }), "");
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('[')));
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('\\')));
    EXPECT_EQ(log.logged + log.both, "");
}

TEST_F(MediaLocationFiles, ADriveIsStillRegisteredWhenItsUnmountingIsTold)
{
    os.files().addDrive(L"/");
    addFolders(43);
    bool registered = false;
    const RegistryListener listener(
        [&](const NotifyMsg&) { registered = DiskManager::isVolumePresent(DriveId('[')); });
    EXPECT_TRUE(DiskManager::unmountDrives(nullptr));
    EXPECT_TRUE(registered);
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('[')));
}

TEST_F(MediaLocationFiles, IdsFrom0x80OnAreNegativeAndStay)
{
    os.files().addDrive(L"/");
    addFolders(80);
    EXPECT_TRUE(DiskManager::unmountDrives(nullptr));
    EXPECT_TRUE(DiskManager::isVolumePresent(DriveId(static_cast<char>(0x80))));
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId(static_cast<char>(0x7f))));
    EXPECT_EQ(DiskManager::get_drive(42), DriveId(static_cast<char>(0x80)));
}

TEST_F(MediaLocationFiles, ADriveWithoutInfoIsReportedAndTheWalkGoesOn)
{
    addFolders(43);
    std::string expected;
    for (int i = 0; i < 43; ++i)
        expected += "assertion failed ok == QzResult::OK at ole/fsys/DiskManager line 347\n";
    EXPECT_EQ(printedBy([] { EXPECT_TRUE(DiskManager::unmountDrives(nullptr)); }), expected);
    EXPECT_FALSE(DiskManager::isVolumePresent(DriveId('[')));
}

}  // namespace

TEST_F(MediaLocationFiles, AListThatCannotBeReadOrSavedIsLoggedAndKept)
{
    addDisk(L"/new/");
    os.files().addFile(listFile, "/other/\n");
    os.faults().failNext(fake::Op::replaceFile, errorFromErrno(ENOSPC));
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/new/"));
    EXPECT_NE(std::string::npos,
              log.logged.find("/project/DefNetDrive.txt could not be saved: No space left on device"));
    EXPECT_TRUE(DiskManager::removeMediaLocation(L"/new/"));
    os.faults().failAlways(fake::Op::readWholeFile, errorFromErrno(EIO));
    EXPECT_TRUE(DiskManager::addMediaLocation(L"/new/"));
    EXPECT_NE(std::string::npos,
              log.logged.find("/project/DefNetDrive.txt could not be read: Input/output error"));
    EXPECT_EQ("/other/\n", os.files().contents(listFile));
}
