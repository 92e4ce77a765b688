#include "fsys/MediaFolders.h"

#include "RegistryFixture.h"
#include "fsys/MaterialFilename.h"

namespace {

const Cookie picture(CookieTypeVision, 0x1234, 0);
const Cookie sound(CookieTypeSound, 0x1234, 1);

class MediaFoldersTest : public RegistryFixture
{
protected:
    MediaFoldersTest() : drive(DiskManager::getVolume(addPlace(L"/m/"))) {}

    Qz::Ptr<MediaDrive> drive;
};

TEST_F(MediaFoldersTest, EachTypeOfMediaHasItsFolder)
{
    EXPECT_EQ(drive->getFolder(CookieTypeVision), L"Material");
    EXPECT_EQ(drive->getFolder(CookieTypeSound), L"Sound");
    EXPECT_EQ(drive->getFolder(CookieTypeInvalid), L"");
    EXPECT_EQ(drive->getFolder(picture), L"Material");
    EXPECT_EQ(drive->getFolder(sound), L"Sound");
    EXPECT_EQ(drive->getFolder(Cookie()), L"");
}

TEST_F(MediaFoldersTest, RelativeFoldersHaveASeparatorOnBothSides)
{
    EXPECT_EQ(drive->getFsysLocation(CookieTypeVision), L"/Material/");
    EXPECT_EQ(drive->getFsysLocation(CookieTypeSound), L"/Sound/");
    EXPECT_EQ(drive->getFsysLocation(CookieTypeInvalid), L"");
}

TEST_F(MediaFoldersTest, AbsoluteFoldersLieBelowTheRoot)
{
    EXPECT_EQ(drive->getLocation(CookieTypeVision), L"/m/Material/");
    EXPECT_EQ(drive->getLocation(CookieTypeSound), L"/m/Sound/");
}

TEST_F(MediaFoldersTest, ATypeWithoutFolderIsAtTheRootWithOneSeparator)
{
    EXPECT_EQ(drive->getLocation(CookieTypeInvalid), L"/m/");
    EXPECT_EQ(drive->getLocation(CookieTypeInvalid), drive->getRootLocation());
}

TEST_F(MediaFoldersTest, TheSeparatorIsThatOfThePlatform)
{
    os.files().setPathSeparator(L':');
    EXPECT_EQ(drive->getFsysLocation(CookieTypeVision), L":Material:");
    EXPECT_EQ(drive->getLocation(CookieTypeSound), L"/m:Sound:");
    EXPECT_TRUE(isValidFsysMediaFolderPath(L"1::Material:"));
    EXPECT_FALSE(isValidFsysMediaFolderPath(L"1:/Material/"));
}

TEST_F(MediaFoldersTest, ADriveWithAnEmptyRootHasNoLocations)
{
    DriveId id;
    ASSERT_TRUE(DiskManager::addMaterialVolume(L"/", id, false));
    const auto root = DiskManager::getVolume(id);
    for (const CookieType type : {CookieTypeVision, CookieTypeSound, CookieTypeInvalid})
        EXPECT_EQ(root->getLocation(type), L"");
    EXPECT_EQ(root->getLocation(picture, L"mov"), L"");
    EXPECT_EQ(root->getFsysLocation(CookieTypeVision), L"/Material/");
}

TEST_F(MediaFoldersTest, ADriveThatIsNotRegisteredHasNoLocations)
{
    const MediaDrive other(DriveId('9'), L"/m/", iDiskDrive::eLocal);
    EXPECT_EQ(other.getLocation(CookieTypeVision), L"");
}

TEST_F(MediaFoldersTest, AMediaFileIsNamedByItsCookieADotAndTheExtension)
{
    EXPECT_EQ(drive->getLocation(picture, L"mov"),
              LightweightString<wchar_t>(L"/m/Material/") + picture.asWString() + L".mov");
    EXPECT_EQ(drive->getLocation(sound, L"wav"),
              LightweightString<wchar_t>(L"/m/Sound/") + sound.asWString() + L".wav");
}

TEST_F(MediaFoldersTest, TheDotStandsBeforeAnEmptyExtensionToo)
{
    EXPECT_EQ(drive->getLocation(picture, L""),
              LightweightString<wchar_t>(L"/m/Material/") + picture.asWString() + L".");
    EXPECT_EQ(drive->getFsysLocation(picture, L"").getPath(),
              LightweightString<wchar_t>(L"/Material/") + picture.asWString() + L".");
}

TEST_F(MediaFoldersTest, TheRelativeNameOfAMediaFileCarriesTheDrive)
{
    const MaterialFilename name = drive->getFsysLocation(picture, L"mov");
    EXPECT_EQ(name.getDrive(), drive->getId());
    EXPECT_EQ(name.getPath(), LightweightString<wchar_t>(L"/Material/") + picture.asWString() + L".mov");
}

TEST_F(MediaFoldersTest, ACookieWithoutFolderHasADriveAndNoPath)
{
    const MaterialFilename name = drive->getFsysLocation(Cookie(), L"mov");
    EXPECT_EQ(name.getDrive(), drive->getId());
    EXPECT_TRUE(name.getPath().empty());
}

TEST_F(MediaFoldersTest, AMediaFolderPathIsRecognisedIgnoringCase)
{
    EXPECT_TRUE(isValidFsysMediaFolderPath(L"1:/material"));
    EXPECT_TRUE(isValidFsysMediaFolderPath(L"2:/Sound/x"));
    EXPECT_TRUE(isValidFsysMediaFolderPath(L"2:/SOUND"));
}

TEST_F(MediaFoldersTest, NeitherTheIdentifierNorWhatFollowsTheFolderIsChecked)
{
    EXPECT_TRUE(isValidFsysMediaFolderPath(L"1:/Materials"));
    EXPECT_TRUE(isValidFsysMediaFolderPath(L"0:/Soundtrack/x"));
    EXPECT_TRUE(isValidFsysMediaFolderPath(L"/:/Material/"));
}

TEST_F(MediaFoldersTest, OtherPathsAreNoMediaFolders)
{
    EXPECT_FALSE(isValidFsysMediaFolderPath(L""));
    EXPECT_FALSE(isValidFsysMediaFolderPath(L"1:/"));
    EXPECT_FALSE(isValidFsysMediaFolderPath(L"1x/Material"));
    EXPECT_FALSE(isValidFsysMediaFolderPath(L"1:xMaterial"));
    EXPECT_FALSE(isValidFsysMediaFolderPath(L"1:/Pictures"));
    EXPECT_FALSE(isValidFsysMediaFolderPath(L"1:/Materia"));
    EXPECT_FALSE(isValidFsysMediaFolderPath(L"1:/Soun"));
    EXPECT_FALSE(isValidFsysMediaFolderPath(L"1:/ Material"));
}

}  // namespace
