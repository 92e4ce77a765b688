#include "RegistryFixture.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialFilename.h"
#include "os/testing/ForwardingFileManager.h"
#include "os/testing/ForwardingOS.h"

#include <atomic>
#include <chrono>
#include <future>

namespace {

using Path = LightweightString<wchar_t>;

// Shares are read once per process, so what depends on them runs in a process of its own.
class NetworkShares : public RegistryFixture
{
protected:
    // A machine that exports /srv/media/ and /srv/more/.
    void inExportingProcess(const std::function<void()>& body)
    {
        inFreshProcess([&] {
            os.files().setMachineName(L"host");
            os.files().addShare(L"\\\\HOST\\MEDIA", L"/srv/media/");
            os.files().addShare(L"\\\\HOST\\MORE", L"/srv/more/");
            body();
        });
    }
    DriveId addNamed(const wchar_t* root, const wchar_t* uncName)
    {
        os.files().setUNCName(Path(root).substr(0, Path(root).size() - 1), uncName);
        return addPlace(root);
    }
};

TEST_F(NetworkShares, ANameInAnExportedShareIsTheLocalPath)
{
    inExportingProcess([] {
        EXPECT_EQ(DiskManager::convertUNCtoLocalShare(L"\\\\host\\media\\clip"), L"/srv/media/clip");
        EXPECT_EQ(DiskManager::convertUNCtoLocalShare(L"\\\\HOST\\more\\a\\b"), L"/srv/more/a\\b");
    });
}

TEST_F(NetworkShares, TheNameOfAShareIsItsFolder)
{
    inExportingProcess(
        [] { EXPECT_EQ(DiskManager::convertUNCtoLocalShare(L"\\\\HOST\\MEDIA"), L"/srv/media/"); });
}

TEST_F(NetworkShares, NamesOfOtherMachinesAndSharesHaveNoLocalPath)
{
    inExportingProcess([] {
        EXPECT_EQ(DiskManager::convertUNCtoLocalShare(L"\\\\other\\media\\clip"), L"");
        EXPECT_EQ(DiskManager::convertUNCtoLocalShare(L"\\\\HOST\\MED"), L"");
        EXPECT_EQ(DiskManager::convertUNCtoLocalShare(L""), L"");
    });
}

TEST_F(NetworkShares, AShareAlsoClaimsLongerNamesAndDropsTheCharacterBehindItsOwn)
{
    inExportingProcess([] {
        EXPECT_EQ(DiskManager::convertUNCtoLocalShare(L"\\\\HOST\\MEDIA2\\clip"), L"/srv/media/\\clip");
    });
}

TEST_F(NetworkShares, TheFirstShareInTheListWins)
{
    inFreshProcess([this] {
        os.files().addShare(L"\\\\HOST\\M", L"/first/");
        os.files().addShare(L"\\\\HOST\\MEDIA", L"/second/");
        EXPECT_EQ(DiskManager::convertUNCtoLocalShare(L"\\\\HOST\\MEDIA"), L"/first/DIA");
    });
}

TEST_F(NetworkShares, TheSharesAreReadOncePerProcess)
{
    inExportingProcess([this] {
        os.log().clear();
        EXPECT_TRUE(DiskManager::discoverLocalShares());
        ASSERT_EQ(os.log().count(fake::Op::listShares), 1u);
        EXPECT_EQ(os.log().calls(fake::Op::listShares)[0].path, L"host");
        os.files().addShare(L"\\\\HOST\\LATE", L"/srv/late/");
        EXPECT_TRUE(DiskManager::discoverLocalShares());
        EXPECT_EQ(DiskManager::convertUNCtoLocalShare(L"\\\\HOST\\LATE\\clip"), L"");
        DiskManager::init(L"/project", false);
        EXPECT_EQ(DiskManager::convertUNCtoLocalShare(L"\\\\HOST\\LATE\\clip"), L"");
        EXPECT_EQ(os.log().count(fake::Op::listShares), 1u);
    });
}

TEST_F(NetworkShares, ANetworkDriveOnAnExportedShareKnowsItsLocalPath)
{
    inExportingProcess([] {
        const MediaDrive drive(DriveId('5'), L"\\\\HOST\\MEDIA\\x", iDiskDrive::eNetwork);
        EXPECT_EQ(drive.getLocalShare(), L"/srv/media/x");
        Path name;
        drive.getLocalName(name, true);
        EXPECT_EQ(name, L"/srv/media/x");
        drive.getLocalName(name, false);
        EXPECT_EQ(name, L"\\\\HOST\\MEDIA\\x");
        EXPECT_EQ(MediaDrive(DriveId('5'), L"\\\\HOST\\MEDIA\\x", iDiskDrive::eLocal).getLocalShare(), L"");
    });
}

TEST_F(NetworkShares, ACopyOfANetworkDriveHasNeitherItsTypeNorItsNames)
{
    inExportingProcess([this] {
        os.files().setUNCName(L"\\\\HOST\\MEDIA\\x", L"\\\\HOST\\MEDIA\\x");
        const MediaDrive drive(DriveId('5'), L"\\\\HOST\\MEDIA\\x", iDiskDrive::eNetwork);
        ASSERT_EQ(drive.getType(), iDiskDrive::eNetwork);
        ASSERT_EQ(drive.getUNCName(), L"\\\\HOST\\MEDIA\\x");
        ASSERT_EQ(drive.getLocalShare(), L"/srv/media/x");
        const MediaDrive copy(drive);
        EXPECT_EQ(copy.getId(), DriveId('5'));
        EXPECT_EQ(copy.getType(), iDiskDrive::eLocal);
        EXPECT_EQ(copy.getUNCName(), L"");
        EXPECT_EQ(copy.getLocalShare(), L"");
        EXPECT_EQ(copy.getPath(), L"");
    });
}

TEST_F(NetworkShares, ADriveIsFoundByItsLocalShareToTheLetter)
{
    inExportingProcess([this] {
        addDisk(L"\\\\HOST\\MEDIA\\x/", 5 * MB, iDiskDrive::eNetwork);
        os.files().setWritable(L"\\\\HOST\\MEDIA\\x", true);
        DriveId id;
        ASSERT_TRUE(DiskManager::addMaterialVolume(L"\\\\HOST\\MEDIA\\x", id, false));
        ASSERT_EQ(DiskManager::getVolume(id)->getLocalShare(), L"/srv/media/x");
        ASSERT_TRUE(DiskManager::getVolume(L"/srv/media/x"));
        EXPECT_EQ(DiskManager::getVolume(L"/srv/media/x")->getId(), id);
        EXPECT_FALSE(DiskManager::getVolume(L"/srv/media/X"));
        EXPECT_EQ(DiskManager::getMaterialVolumeName(id, true), L"/srv/media/x");
        EXPECT_EQ(DiskManager::getMaterialVolumeName(id, false), L"\\\\HOST\\MEDIA\\x");
        EXPECT_EQ(MaterialFilename(id, L"/Material/a.mov").getOsPath(), L"/srv/media/x/Material/a.mov");
        EXPECT_EQ(DiskManager::getVolume(id)->getLocation(CookieTypeVision), L"\\\\HOST\\MEDIA\\x/Material/");
        EXPECT_EQ(DiskManager::getVolume(id)->getUserName(true), L"\\\\HOST\\MEDIA\\x");
    });
}

TEST_F(NetworkShares, WhoeverAsksDuringTheFirstReadingGetsTheAnswerOfItsEnd)
{
    // Asks while the shares are being listed, from other threads.
    class Listing : public ForwardingFileManager
    {
    public:
        using ForwardingFileManager::ForwardingFileManager;
        std::vector<ShareInfo> listShares(const LightweightString<wchar_t>& machineName) override
        {
            ++listings;
            if (listings == 1) {
                std::promise<void> asking;
                answer = std::async(std::launch::async, [&asking] {
                    asking.set_value();
                    return DiskManager::convertUNCtoLocalShare(L"\\\\HOST\\MEDIA\\clip");
                });
                asking.get_future().wait();
                discovered = std::async(std::launch::async, &DiskManager::discoverLocalShares).get();
                // Ample time for an answer that does not wait.
                answeredEarly = answer.wait_for(std::chrono::milliseconds(50)) == std::future_status::ready;
            }
            return ForwardingFileManager::listShares(machineName);
        }
        std::future<Path> answer;
        std::atomic<unsigned> listings{0};
        bool discovered = false;
        bool answeredEarly = true;
    };
    inExportingProcess([this] {
        Listing files(os.files());
        ForwardingOS forwarding(os);
        forwarding.use(files);
        const ScopedOS installedForwarding(forwarding);
        EXPECT_TRUE(DiskManager::discoverLocalShares());
        EXPECT_TRUE(files.discovered);
        EXPECT_FALSE(files.answeredEarly);
        EXPECT_EQ(files.answer.get(), L"/srv/media/clip");
        EXPECT_EQ(files.listings, 1u);
    });
}

TEST_F(NetworkShares, ALinksNetworkTargetStaysAlsoWhereItsLocalShareLiesBelowTheLink)
{
    inFreshProcess([this] {
        os.files().addShare(L"\\\\HOST\\MEDIA", L"/m/Material/deep/");
        std::string contents("\\\\HOST\\MEDIA\\a.mov");
        contents.resize(512);
        os.files().addFile(L"/m/Material/link.mov", contents);
        os.files().addFile(L"\\\\HOST\\MEDIA\\a.mov", "media");
        os.files().addFile(L"/m/Material/deep/a.mov", "media");
        os.log().clear();
        EXPECT_EQ(FsysDirectoryEntry().deleteFile(MaterialFilename(DriveId('0'), L"/m/Material/link.mov")),
                  1u);
        EXPECT_EQ(os.log().count(fake::Op::listShares), 1u);  // the target was looked for locally
        EXPECT_EQ(os.log().count(fake::Op::deleteTree), 0u);
        EXPECT_TRUE(os.files().has(L"/m/Material/deep/a.mov"));
        EXPECT_FALSE(os.files().has(L"/m/Material/link.mov"));
    });
}

TEST_F(NetworkShares, ARootLocationComesBeforeALocalShare)
{
    inExportingProcess([this] {
        os.files().setWritable(L"\\\\HOST\\MEDIA", true);
        addDisk(L"\\\\HOST\\MEDIA/", 5 * MB, iDiskDrive::eNetwork);
        DriveId network;
        ASSERT_TRUE(DiskManager::addMaterialVolume(L"\\\\HOST\\MEDIA", network, false));
        ASSERT_EQ(DiskManager::getVolume(network)->getLocalShare(), L"/srv/media/");
        EXPECT_EQ(DiskManager::getVolume(L"/srv/media/")->getId(), network);
        addDisk(L"/srv/media/");
        DiskManager::reInit(true);
        os.files().clearDrives();
        addDisk(L"\\\\HOST\\MEDIA/", 5 * MB, iDiskDrive::eNetwork);
        DriveId local;
        ASSERT_TRUE(DiskManager::addMaterialVolume(L"/srv/media", local, false));
        ASSERT_TRUE(DiskManager::addMaterialVolume(L"\\\\HOST\\MEDIA", network, false));
        EXPECT_EQ(DiskManager::getVolume(L"/srv/media/")->getId(), local);
    });
}

TEST_F(NetworkShares, ANetworkNameBelongsToTheFirstDriveWhoseNameBeginsIt)
{
    const DriveId first = addNamed(L"/a/", L"\\\\server\\media");
    addNamed(L"/b/", L"\\\\server\\media\\deep");
    const MaterialFilename name = DiskManager::convertUNCtoFsysFilename(L"\\\\SERVER\\Media\\deep\\clip.mov");
    EXPECT_EQ(name.getDrive(), first);
    EXPECT_EQ(name.getPath(), L"\\deep\\clip.mov");
}

TEST_F(NetworkShares, ADriveWhoseNameDoesNotBeginTheNetworkNameIsPassedOver)
{
    addNamed(L"/a/", L"\\\\server\\other");
    const DriveId second = addNamed(L"/b/", L"\\\\server\\media");
    const MaterialFilename name = DiskManager::convertUNCtoFsysFilename(L"\\\\server\\media");
    EXPECT_EQ(name.getDrive(), second);
    EXPECT_EQ(name.getPath(), L"");
}

TEST_F(NetworkShares, ADriveWithoutNetworkNameMatchesEveryNetworkName)
{
    const DriveId plain = addPlace(L"/plain/");
    addNamed(L"/b/", L"\\\\server\\media");
    const MaterialFilename name = DiskManager::convertUNCtoFsysFilename(L"\\\\server\\media\\clip.mov");
    EXPECT_EQ(name.getDrive(), plain);
    EXPECT_EQ(name.getPath(), L"\\\\server\\media\\clip.mov");
}

TEST_F(NetworkShares, AForeignOrEmptyNetworkNameBelongsToNoDrive)
{
    addNamed(L"/a/", L"\\\\server\\media");
    for (const wchar_t* unc : {L"\\\\other\\media\\clip.mov", L"\\\\server", L""}) {
        const MaterialFilename name = DiskManager::convertUNCtoFsysFilename(unc);
        EXPECT_EQ(name.getDrive(), DriveId('0'));
        EXPECT_TRUE(name.getPath().empty());
    }
}

TEST_F(NetworkShares, AnEmptyNetworkNameMatchesNoDriveWithoutNetworkNameEither)
{
    addPlace(L"/plain/");
    EXPECT_EQ(DiskManager::convertUNCtoFsysFilename(L"").getDrive(), DriveId('0'));
}

TEST_F(NetworkShares, TheNetworkNameOfAMediaFileIsThatOfItsPath)
{
    const DriveId id = addNamed(L"/a/", L"\\\\server\\media");
    EXPECT_EQ(DiskManager::convertLocalToUNC(MaterialFilename(id, L"/Material/clip.mov")),
              L"\\\\server\\media\\Material\\clip.mov");
    EXPECT_EQ(DiskManager::convertLocalToUNC(MaterialFilename(DriveId('0'), L"/b/clip.mov")), L"");
}

}  // namespace
