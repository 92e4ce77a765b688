#include "fsys/FsysDirectoryEntry.h"

#include <cerrno>

#include "os/LastError.h"

#include "CacheTest.h"

using namespace cachetest;

namespace {

using Path = LightweightString<wchar_t>;

class FsysDirectoryEntryDeletion : public EntryTest
{
};

}  // namespace

// --- deleting from disk

TEST_F(FsysDirectoryEntryDeletion, DeleteFilesWithoutATypePrintsAnAssertionAndDeletesNothing)
{
    entry.addFile(clip, onDisk(clip, L".mov"));
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(entry.deleteFiles(0), 1u); }),
              "assertion failed mediaTypes != 0 at ole/fsys/FsysDirectoryEntry line 323\n");
    EXPECT_TRUE(os.files().has(osPath(info(clip, L".mov"))));
    EXPECT_EQ(entry.fileSize(), 10'000'000u);
}

TEST_F(FsysDirectoryEntryDeletion, DeleteFilesDeletesAndDropsTheKindsAskedFor)
{
    const Path high = osPath(onDisk(clip, L".mov"));
    const Path proxy = osPath(onDisk(clip, L".proxy.540.mov"));
    entry.addFile(clip, info(clip, L".mov"));
    entry.addFile(clip, info(clip, L".proxy.540.mov"));
    EXPECT_EQ(entry.deleteFiles(eProxy), 1u);
    EXPECT_FALSE(os.files().has(proxy));
    EXPECT_TRUE(os.files().has(high));
    EXPECT_TRUE(entry.getProxyFiles().empty());
    EXPECT_EQ(entry.deleteFiles(eHighRes), 1u);
    EXPECT_FALSE(os.files().has(high));
    EXPECT_EQ(entry.fileSize(), 0u);
    EXPECT_EQ(entry.deleteFiles(eHighRes | eProxy), 1u);  // nothing left: nothing to fail
}

TEST_F(FsysDirectoryEntryDeletion, ACompanionThatStaysBehindIsLogged)
{
    const Path high = osPath(onDisk(clip, L".mov"));
    entry.addFile(clip, info(clip, L".mov"));
    os.files().addFile(high + L".reapeaks", "peaks");
    os.faults().failOn(high + L".reapeaks", fake::Op::deleteFile, errorFromErrno(EACCES));
    EXPECT_EQ(entry.deleteFiles(eHighRes), 1u);
    ASSERT_EQ(captured.logged().size(), 1u);
    EXPECT_NE(captured.logged()[0].find(".mov.reapeaks could not be deleted: Permission denied"),
              std::string::npos);
}

TEST_F(FsysDirectoryEntryDeletion, TheLastDeletionThatFailedIsTheResult)
{
    for (const wchar_t* ending : {L".proxy.1.mov", L".proxy.2.mov", L".mov"})
        entry.addFile(clip, onDisk(clip, ending));
    os.faults().failOn(osPath(info(clip, L".proxy.1.mov")), fake::Op::deleteFile, errorFromErrno(EACCES));
    os.faults().failOn(osPath(info(clip, L".proxy.2.mov")), fake::Op::deleteFile, errorFromErrno(EPERM));
    EXPECT_EQ(entry.deleteFiles(eHighRes | eProxy), errorFromErrno(EPERM));
    EXPECT_EQ(os.faults().fired(), 2u);
    EXPECT_FALSE(os.files().has(osPath(info(clip, L".mov"))));
    EXPECT_TRUE(entry.getProxyFiles().empty());
}

TEST_F(FsysDirectoryEntryDeletion, AFailureOfTheHighResFileComesAfterThoseOfTheProxies)
{
    for (const wchar_t* ending : {L".proxy.1.mov", L".mov"})
        entry.addFile(clip, onDisk(clip, ending));
    os.faults().failOn(osPath(info(clip, L".proxy.1.mov")), fake::Op::deleteFile, errorFromErrno(EACCES));
    os.faults().failOn(osPath(info(clip, L".mov")), fake::Op::deleteFile, errorFromErrno(EPERM));
    EXPECT_EQ(entry.deleteFiles(eHighRes | eProxy), errorFromErrno(EPERM));
    EXPECT_EQ(os.faults().fired(), 2u);
}

TEST_F(FsysDirectoryEntryDeletion, CompanionsGoWithTheirMediaFile)
{
    const Path file = osPath(onDisk(clip, L".mov"));
    for (const wchar_t* ending : {L".partial", L".lvix", L"."})
        os.files().addFile(file + ending, "x");
    for (const wchar_t* ending : {L"x", L"2.partial"})  // strangers: the name does not go on with a '.'
        os.files().addFile(file + ending, "x");
    EXPECT_EQ(entry.deleteFile(named(clip, L".mov")), 1u);
    for (const wchar_t* ending : {L"", L".partial", L".lvix", L"."})
        EXPECT_FALSE(os.files().has(file + ending)) << toUTF8(Path(ending)).c_str();
    for (const wchar_t* ending : {L"x", L"2.partial"})
        EXPECT_TRUE(os.files().has(file + ending)) << toUTF8(Path(ending)).c_str();
}

TEST_F(FsysDirectoryEntryDeletion, CompanionsGoAlsoWhenTheMediaFileIsMissing)
{
    const Path file = osPath(info(clip, L".mov"));
    os.files().addFile(file + L".lvix", "x");
    EXPECT_EQ(entry.deleteFile(named(clip, L".mov")), errorFromErrno(ENOENT));
    EXPECT_FALSE(os.files().has(file + L".lvix"));
}

TEST_F(FsysDirectoryEntryDeletion, CompanionsThatCannotBeDeletedDoNotChangeTheResult)
{
    const Path file = osPath(onDisk(clip, L".mov"));
    os.files().addFile(file + L".lvix", "x");
    os.faults().failOn(file + L".lvix", fake::Op::deleteFile, errorFromErrno(EACCES));
    EXPECT_EQ(entry.deleteFile(named(clip, L".mov")), 1u);
    EXPECT_EQ(os.faults().fired(), 1u);
}

TEST_F(FsysDirectoryEntryDeletion, AFileWithAnEmptyNameHasNoCompanions)
{
    os.files().addFile(L"/m/.hidden", "x");
    os.files().addFile(L"/.hidden", "x");
    EXPECT_NE(entry.deleteFile(MaterialFilename()), 1u);
    EXPECT_NE(entry.deleteFile(MaterialFilename(DriveId(), L"/m/")), 1u);
    EXPECT_NE(entry.deleteFile(MaterialFilename(DriveId(), L"/")), 1u);
    EXPECT_TRUE(os.files().has(L"/m/.hidden"));
    EXPECT_TRUE(os.files().has(L"/.hidden"));
    EXPECT_EQ(os.log().count(fake::Op::listFilesWithPrefix), 0u);
}

TEST_F(FsysDirectoryEntryDeletion, WildcardsInANameAreLetters)
{
    os.files().addFile(L"/m/Material/a*.mov", "x");
    os.files().addFile(L"/m/Material/a*.mov.lvix", "x");
    os.files().addFile(L"/m/Material/abc.mov.lvix", "x");
    EXPECT_EQ(entry.deleteFile(MaterialFilename(driveM, L"/Material/a*.mov")), 1u);
    EXPECT_FALSE(os.files().has(L"/m/Material/a*.mov.lvix"));
    EXPECT_TRUE(os.files().has(L"/m/Material/abc.mov.lvix"));
}

namespace {

// Deletes a link in /m/Material to target; true when the target went with it.
class LinkDeletion : public EntryTest
{
protected:
    bool targetGoes(const Path& target)
    {
        os.files().addFile(target, "media");
        linkOnDisk(clip, L".mov", target);
        EXPECT_EQ(entry.deleteFile(named(clip, L".mov")), 1u);
        EXPECT_FALSE(os.files().has(osPath(info(clip, L".mov"))));
        return !os.files().has(target);
    }
};

}  // namespace

TEST_F(LinkDeletion, TakesATargetBelowTheLinksOwnFolder)
{
    EXPECT_TRUE(targetGoes(L"/m/Material/media/deep/a.mov"));
    EXPECT_TRUE(os.files().hasFolder(L"/m/Material/media/deep"));
}

TEST_F(LinkDeletion, ComparesFoldersIgnoringCase) { EXPECT_TRUE(targetGoes(L"/M/MATERIAL/media/a.mov")); }

TEST_F(LinkDeletion, LeavesATargetBesideTheLink) { EXPECT_FALSE(targetGoes(L"/m/Material/a.mov")); }

TEST_F(LinkDeletion, LeavesATargetInAFolderWhoseNameOnlyBeginsAlike)
{
    EXPECT_FALSE(targetGoes(L"/m/Material2/a.mov"));
}

TEST_F(LinkDeletion, LeavesATargetElsewhere) { EXPECT_FALSE(targetGoes(L"/far/away/a.mov")); }

TEST_F(LinkDeletion, LeavesATargetWhosePathLeadsOutOfTheFolder)
{
    os.files().addFile(L"/m/other/a.mov", "media");
    os.files().addFolder(L"/m/Material/x");
    linkOnDisk(clip, L".mov", L"/m/Material/x/../../other/a.mov");
    os.files().addFile(L"/m/Material/x/../../other/a.mov", "media");  // should a platform take ".." as a name
    entry.deleteFile(named(clip, L".mov"));
    EXPECT_TRUE(os.files().has(L"/m/other/a.mov"));
    EXPECT_EQ(os.log().count(fake::Op::deleteTree), 0u);
}

TEST_F(LinkDeletion, OfALinkWithoutAFolderTakesNoTarget)
{
    os.files().addFile(L"/far/away/a.mov", "media");
    std::string contents = "/far/away/a.mov";
    contents.resize(512);
    os.files().addFile(L"bare.mov", contents);
    entry.deleteFile(MaterialFilename(DriveId(), L"bare.mov"));
    EXPECT_TRUE(os.files().has(L"/far/away/a.mov"));
    EXPECT_EQ(os.log().count(fake::Op::deleteTree), 0u);
}

TEST_F(LinkDeletion, LeavesANetworkTarget)
{
    EXPECT_FALSE(targetGoes(L"\\\\server\\share\\media\\a.mov"));
    EXPECT_EQ(os.log().count(fake::Op::deleteTree), 0u);
}

TEST_F(LinkDeletion, LeavesATargetThatIsAFolder)
{
    os.files().addFile(L"/m/Material/media/dir/a.mov", "media");
    linkOnDisk(clip, L".mov", L"/m/Material/media/dir");
    EXPECT_EQ(entry.deleteFile(named(clip, L".mov")), 1u);
    EXPECT_TRUE(os.files().has(L"/m/Material/media/dir/a.mov"));
    EXPECT_EQ(os.log().count(fake::Op::deleteTree), 0u);
}

TEST_F(LinkDeletion, TakesTheTargetBeforeTheLink)
{
    EXPECT_TRUE(targetGoes(L"/m/Material/media/a.mov"));
    const Path link = osPath(info(clip, L".mov"));
    EXPECT_EQ(
        os.log().lines({fake::Op::deleteTree, fake::Op::deleteFile}),
        (std::vector<std::string>{"deleteTree /m/Material/media/a.mov", "deleteFile " + toUTF8(link).str()}));
}

TEST_F(LinkDeletion, TakesTheTargetAlsoWhenTheLinkItselfStays)
{
    os.files().addFile(L"/m/Material/media/a.mov", "media");
    const Path link = osPath(linkOnDisk(clip, L".mov", L"/m/Material/media/a.mov"));
    os.faults().failOn(link, fake::Op::deleteFile, errorFromErrno(EACCES));
    EXPECT_EQ(entry.deleteFile(named(clip, L".mov")), errorFromErrno(EACCES));
    EXPECT_FALSE(os.files().has(L"/m/Material/media/a.mov"));
    EXPECT_TRUE(os.files().has(link));
}

TEST_F(LinkDeletion, ATargetThatCannotBeDeletedIsLoggedAndTheLinkGoes)
{
    const Path target = L"/m/Material/media/a.mov";
    os.faults().failOn(target, fake::Op::deleteTree, errorFromErrno(EACCES));
    EXPECT_FALSE(targetGoes(target));
    ASSERT_EQ(captured.logged().size(), 1u);
    EXPECT_NE(captured.logged()[0].find("/media/a.mov could not be deleted: Permission denied"),
              std::string::npos);
}

TEST_F(LinkDeletion, OfRealMediaOfLinkSizeTakesNothingElse)
{
    os.files().addFile(osPath(info(clip, L".mov")), "RIFF" + std::string(508, '\0'));
    EXPECT_EQ(entry.deleteFile(named(clip, L".mov")), 1u);
    EXPECT_EQ(os.log().count(fake::Op::deleteTree), 0u);
}
