#include "fsys/MaterialLink.h"

#include <csignal>

#include <gtest/gtest.h>

#include "Qz/Utf8.h"
#include "os/LastError.h"
#include "os/testing/FakeOS.h"

#include "FileSpy.h"

namespace {

using Path = LightweightString<wchar_t>;
using Opened = FileSpy::Opened;

MaterialFilename at(const Path& path) { return {DriveId('0'), path}; }

const std::string notAnOldLink = "assertion failed false at ole/fsys/MaterialLink line 129\n";

// Descriptors of this process that lead into folder.
std::size_t descriptorsInto(const TestFolder& folder)
{
    const std::wstring root = folder.path().str();
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        count += std::filesystem::read_symlink(entry.path(), gone).wstring().starts_with(root);
    }
    return count;
}

class MaterialLinkFile : public testing::Test
{
protected:
    TestFolder folder;
    Path target = L"not cleared";
};

}  // namespace

TEST_F(MaterialLinkFile, HoldsThePathOfTheRealFile)
{
    const Path link = folder.write("a.mov", linkTo("/mnt/store/clip.mov"));
    EXPECT_TRUE(MaterialLink::isLink(link));
    EXPECT_TRUE(MaterialLink::getLinkedFilename(link, target));
    EXPECT_EQ(target, L"/mnt/store/clip.mov");
    EXPECT_EQ(MaterialLink::resolveLink(at(link)), L"/mnt/store/clip.mov");
}

TEST_F(MaterialLinkFile, EndsItsTargetAtTheFirstZero)
{
    std::string contents = linkTo("/mnt/a");
    contents[100] = 'x';
    MaterialLink::getLinkedFilename(folder.write("a.mov", contents), target);
    EXPECT_EQ(target, L"/mnt/a");
}

TEST_F(MaterialLinkFile, MayBeFilledByItsTarget)
{
    const Path link = folder.write("a.mov", std::string(512, 'x'));
    EXPECT_TRUE(MaterialLink::getLinkedFilename(link, target));
    EXPECT_EQ(target, std::wstring(511, L'x').c_str());
}

TEST_F(MaterialLinkFile, OfZerosHasAnEmptyTarget)
{
    const Path link = folder.write("a.mov", std::string(512, '\0'));
    EXPECT_TRUE(MaterialLink::isLink(link));
    EXPECT_TRUE(MaterialLink::getLinkedFilename(link, target));
    EXPECT_TRUE(target.empty());
    EXPECT_FALSE(MaterialLink::linkedFileExists(at(link)));
}

TEST_F(MaterialLinkFile, IsNoneWhenItBeginsWithRiff)
{
    const Path media = folder.write("a.wav", linkTo("RIFFxxxxWAVE"));
    EXPECT_FALSE(MaterialLink::isLink(media));
    EXPECT_FALSE(MaterialLink::getLinkedFilename(media, target));
    EXPECT_EQ(target, media);
    EXPECT_TRUE(MaterialLink::isLink(folder.write("b.wav", linkTo("RIF/x"))));
    EXPECT_TRUE(MaterialLink::isLink(folder.write("c.wav", linkTo("riff"))));
}

TEST_F(MaterialLinkFile, IsNoneAndIsNotOpenedWhenItHasAnotherSize)
{
    const FileSpy spy;
    for (const std::size_t size : {0u, 511u, 513u, 1024u}) {
        const Path media = folder.write("a.mov", std::string(size, 'x'));
        EXPECT_FALSE(MaterialLink::isLink(media)) << size;
        EXPECT_FALSE(MaterialLink::getLinkedFilename(media, target)) << size;
        EXPECT_EQ(target, media);
        EXPECT_EQ(MaterialLink::resolveLink(at(media)), media);
    }
    EXPECT_TRUE(spy.opens().empty());
}

TEST_F(MaterialLinkFile, IsNoneWhenItDoesNotExist)
{
    const Path nothing = folder.path("nothing.mov");
    EXPECT_FALSE(MaterialLink::isLink(nothing));
    EXPECT_FALSE(MaterialLink::getLinkedFilename(nothing, target));
    EXPECT_EQ(target, nothing);
    EXPECT_FALSE(MaterialLink::linkedFileExists(at(nothing)));
}

TEST_F(MaterialLinkFile, MayBeReadIntoTheNameThatNamesIt)
{
    Path name = folder.write("a.mov", linkTo("/mnt/store/clip.mov"));
    EXPECT_TRUE(MaterialLink::getLinkedFilename(name, name));
    EXPECT_EQ(name, L"/mnt/store/clip.mov");

    name = folder.write("b.mov", "media");
    EXPECT_FALSE(MaterialLink::getLinkedFilename(name, name));
    EXPECT_EQ(name, folder.path("b.mov"));
}

TEST_F(MaterialLinkFile, ThatCannotBeOpenedIsReportedAndCountsAsNone)
{
    const Path link = folder.write("a.mov", linkTo("/mnt/store/clip.mov"));
    FileSpy spy;
    spy.failOpens = true;
    EXPECT_FALSE(MaterialLink::getLinkedFilename(link, target));
    EXPECT_TRUE(target.empty());
    EXPECT_FALSE(MaterialLink::isLink(link));
    EXPECT_TRUE(MaterialLink::resolveLink(at(link)).empty());
    EXPECT_FALSE(MaterialLink::linkedFileExists(at(link)));
    EXPECT_EQ(spy.reportedErrors, std::vector<Path>(4, link));
}

TEST_F(MaterialLinkFile, ThatIsNotOpenIsReportedAndCountsAsNone)
{
    const Path link = folder.write("a.mov", linkTo("/mnt/store/clip.mov"));
    FileSpy spy;
    spy.openInvalid = true;
    EXPECT_FALSE(MaterialLink::getLinkedFilename(link, target));
    EXPECT_TRUE(target.empty());
    EXPECT_FALSE(MaterialLink::isLink(link));
    EXPECT_EQ(spy.reportedErrors, std::vector<Path>(2, link));
    EXPECT_FALSE(MaterialLink::createLink(link, L"/mnt/b.mov", true));
    EXPECT_EQ(folder.read("a.mov"), linkTo("/mnt/store/clip.mov"));
}

TEST_F(MaterialLinkFile, ThatCannotBeReadIsReportedAndCountsAsNone)
{
    const Path link = folder.write("a.mov", linkTo("/mnt/store/clip.mov"));
    FileSpy spy;
    spy.failReads = true;
    EXPECT_FALSE(MaterialLink::getLinkedFilename(link, target));
    EXPECT_TRUE(target.empty());
    EXPECT_FALSE(MaterialLink::isLink(link));
    EXPECT_TRUE(MaterialLink::resolveLink(at(link)).empty());
    EXPECT_EQ(spy.reportedErrors, std::vector<Path>(3, link));
}

TEST_F(MaterialLinkFile, IsReadWithFixedCodesAndCounts)
{
    const Path link = folder.write("a.mov", linkTo("/mnt/store/clip.mov"));
    const FileSpy spy;
    MaterialLink::getLinkedFilename(link, target);
    EXPECT_EQ(spy.bytesAskedFor, 511u);
    static_cast<void>(MaterialLink::isLink(link));
    EXPECT_EQ(spy.bytesAskedFor, 4095u);
    EXPECT_EQ(spy.opens(), (std::vector<Opened>{{link, 1, 0, 4, 0}, {link, 1, 0, 4, 0}}));
    EXPECT_TRUE(spy.reportedErrors.empty());
}

TEST_F(MaterialLinkFile, IsWrittenWithFixedCodes)
{
    const Path link = folder.path("a.mov");
    const FileSpy spy;
    EXPECT_TRUE(MaterialLink::createLink(link, L"/mnt/a.mov", false));
    EXPECT_TRUE(MaterialLink::createLink(link, L"/mnt/b.mov", true));
    EXPECT_EQ(spy.opens(), (std::vector<Opened>{{link, 2, 1, 4, 0}, {link, 2, 2, 4, 0}}));
}

TEST_F(MaterialLinkFile, IsWrittenAsExactly512Bytes)
{
    for (const bool overwrite : {false, true}) {
        const char* name = overwrite ? "a.mov" : "b.mov";
        EXPECT_TRUE(MaterialLink::createLink(folder.path(name), L"/mnt/clip.mov", overwrite));
        EXPECT_EQ(folder.read(name), linkTo("/mnt/clip.mov"));
    }
}

TEST_F(MaterialLinkFile, IsWrittenAsZerosForAnEmptyTarget)
{
    EXPECT_TRUE(MaterialLink::createLink(folder.path("a.mov"), L"", false));
    EXPECT_EQ(folder.read("a.mov"), std::string(512, '\0'));
    EXPECT_TRUE(MaterialLink::createLink(folder.path("b.mov"), {}, false));
    EXPECT_EQ(folder.read("b.mov"), std::string(512, '\0'));
}

TEST_F(MaterialLinkFile, IsRewrittenWhole)
{
    folder.write("a.mov", std::string(512, 'x'));
    folder.write("b.mov", std::string(100, 'x'));
    EXPECT_TRUE(MaterialLink::createLink(folder.path("a.mov"), L"/mnt/new.mov", true));
    EXPECT_TRUE(MaterialLink::createLink(folder.path("b.mov"), L"/mnt/new.mov", true));
    EXPECT_EQ(folder.read("a.mov"), linkTo("/mnt/new.mov"));
    EXPECT_EQ(folder.read("b.mov"), linkTo("/mnt/new.mov"));
}

TEST_F(MaterialLinkFile, NeverOverwritesMedia)
{
    const std::string media(100000, 'm');
    for (const std::string& contents : {media, std::string(513, 'm')}) {
        const Path path = folder.write("a.mov", contents);
        testing::internal::CaptureStdout();
        EXPECT_FALSE(MaterialLink::createLink(path, L"/mnt/clip.mov", true));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), notAnOldLink);
        EXPECT_EQ(folder.read("a.mov"), contents);
    }
}

TEST_F(MaterialLinkFile, WithoutOverwriteNeedsANewName)
{
    for (const std::size_t size : {0u, 100u, 512u, 100000u}) {
        const Path path = folder.write("a.mov", std::string(size, 'm'));
        testing::internal::CaptureStdout();
        EXPECT_FALSE(MaterialLink::createLink(path, L"/mnt/clip.mov", false));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(folder.read("a.mov"), std::string(size, 'm'));
    }
}

TEST_F(MaterialLinkFile, CannotBeWrittenIntoAMissingFolder)
{
    EXPECT_FALSE(MaterialLink::createLink(folder.path("no/a.mov"), L"/mnt/clip.mov", false));
    EXPECT_FALSE(MaterialLink::createLink(folder.path("no/a.mov"), L"/mnt/clip.mov", true));
}

TEST_F(MaterialLinkFile, ThatCouldNotBeWrittenWholeIsRemovedAgain)
{
    FileSpy spy;
    spy.failWrites = true;
    for (const bool overwrite : {false, true}) {
        EXPECT_FALSE(MaterialLink::createLink(folder.path("a.mov"), L"/mnt/clip.mov", overwrite));
        EXPECT_FALSE(folder.has("a.mov"));
    }
}

TEST_F(MaterialLinkFile, ThatWasThereBeforeStaysWhenItCouldNotBeWritten)
{
    folder.write("a.mov", linkTo("/mnt/old.mov"));
    FileSpy spy;
    spy.failWrites = true;
    EXPECT_FALSE(MaterialLink::createLink(folder.path("a.mov"), L"/mnt/clip.mov", true));
    EXPECT_TRUE(folder.has("a.mov"));
}

TEST_F(MaterialLinkFile, ThatAnotherMadeMeanwhileStaysWhenItCouldNotBeWritten)
{
    // Another process makes the file after it was asked for and before it is opened.
    class Racing : public FileSpy
    {
    public:
        explicit Racing(const TestFolder& racedFolder) : folder_(racedFolder) {}
        Qz::Ptr<iFile> open(const Path& path, unsigned access, unsigned creation, unsigned share,
                            unsigned mode) override
        {
            folder_.write("a.mov", std::string(300, 'm'));
            return FileSpy::open(path, access, creation, share, mode);
        }

    private:
        const TestFolder& folder_;
    };
    Racing spy(folder);
    spy.failWrites = true;
    EXPECT_FALSE(MaterialLink::createLink(folder.path("a.mov"), L"/mnt/clip.mov", true));
    EXPECT_TRUE(folder.has("a.mov"));
}

namespace {

// A platform that cannot tell the size of an open file.
class MaterialLinkOfUnknownSize : public testing::Test
{
protected:
    MaterialLinkOfUnknownSize() { os.faults().failAlways(fake::Op::getInfo, errorFromErrno(EIO)); }

    // What is printed meanwhile.
    static std::string overwrite(const Path& path)
    {
        testing::internal::CaptureStdout();
        EXPECT_FALSE(MaterialLink::createLink(path, L"/mnt/clip.mov", true));
        return testing::internal::GetCapturedStdout();
    }

    FakeOS os;
    const ScopedOS installed{os};
};

}  // namespace

TEST_F(MaterialLinkOfUnknownSize, DoesNotGoOverWhatMayBeMedia)
{
    const std::string media(100000, 'm');
    os.files().addFile(L"/m/a.mov", media);
    EXPECT_EQ(overwrite(L"/m/a.mov"), "");
    EXPECT_EQ(os.files().contents(L"/m/a.mov"), media);
    EXPECT_EQ(os.faults().fired(fake::Op::getInfo), 1u);
}

TEST_F(MaterialLinkOfUnknownSize, RemovesNothing)
{
    os.files().addFile(L"/m/a.mov", "");
    os.faults().failAlways(fake::Op::write, errorFromErrno(ENOSPC));
    EXPECT_EQ(overwrite(L"/m/a.mov"), "");
    EXPECT_EQ(overwrite(L"/m/new.mov"), "");
    EXPECT_TRUE(os.files().has(L"/m/a.mov"));
    EXPECT_EQ(os.log().count(fake::Op::deleteFile), 0u);
}

TEST_F(MaterialLinkOfUnknownSize, IsWrittenAndTakenBackUnderANameThatNobodyHad)
{
    EXPECT_TRUE(MaterialLink::createLink(L"/a.mov", L"/mnt/clip.mov", false));
    EXPECT_EQ(os.files().contents(L"/a.mov"), linkTo("/mnt/clip.mov"));
    os.faults().failNext(fake::Op::write, errorFromErrno(ENOSPC));
    EXPECT_FALSE(MaterialLink::createLink(L"/b.mov", L"/mnt/clip.mov", false));
    EXPECT_FALSE(os.files().has(L"/b.mov"));
}

TEST_F(MaterialLinkFile, TakesATargetOf511Bytes)
{
    const std::string longest = "/" + std::string(510, 'x');
    EXPECT_TRUE(MaterialLink::createLink(folder.path("a.mov"), fromUTF8(longest), false));
    EXPECT_TRUE(MaterialLink::getLinkedFilename(folder.path("a.mov"), target));
    EXPECT_EQ(target, fromUTF8(longest));
}

TEST_F(MaterialLinkFile, CarriesEveryCharacter)
{
    const Path wanted = L"/mnt/Klänge/映像 \U0001F3AC/\xDC80.mov";
    EXPECT_TRUE(MaterialLink::createLink(folder.path("a.mov"), wanted, false));
    EXPECT_TRUE(MaterialLink::getLinkedFilename(folder.path("a.mov"), target));
    EXPECT_EQ(target, wanted);
}

using MaterialLinkDeathTest = MaterialLinkFile;

TEST_F(MaterialLinkDeathTest, ATargetOf512BytesStopsTheProcessBeforeTheFileIsOpened)
{
    for (const std::wstring& tooLong : {std::wstring(512, L'x'), std::wstring(256, L'ä')}) {
        folder.write("a.mov", "kept");
        EXPECT_EXIT(MaterialLink::createLink(folder.path("a.mov"), tooLong, true),
                    testing::KilledBySignal(SIGABRT), "");
        EXPECT_EQ(folder.read("a.mov"), "kept");
        EXPECT_EXIT(MaterialLink::createLink(folder.path("new.mov"), tooLong, false),
                    testing::KilledBySignal(SIGABRT), "");
        EXPECT_FALSE(folder.has("new.mov"));
    }
}

TEST_F(MaterialLinkFile, HasAnExistingTargetOrNot)
{
    const Path media = folder.write("store/clip.mov", "media");
    ASSERT_TRUE(MaterialLink::createLink(folder.path("a.mov"), media, false));
    EXPECT_TRUE(MaterialLink::linkedFileExists(at(folder.path("a.mov"))));
    EXPECT_FALSE(MaterialLink::linkedFileExists(at(media))) << "exists, but is no link";
    std::filesystem::remove(media.str());
    EXPECT_FALSE(MaterialLink::linkedFileExists(at(folder.path("a.mov"))));
}

TEST_F(MaterialLinkFile, IsClosedOnEveryPath)
{
    const Path link = folder.write("link.mov", linkTo("/mnt/a.mov"));
    const Path riff = folder.write("riff.wav", linkTo("RIFF"));
    const Path media = folder.write("media.mov", std::string(1000, 'm'));
    FileSpy spy;
    testing::internal::CaptureStdout();
    for (const bool failing : {false, true}) {
        spy.failReads = spy.failWrites = failing;
        for (const Path& path : {link, riff, media, folder.path("none")}) {
            MaterialLink::getLinkedFilename(path, target);
            static_cast<void>(MaterialLink::isLink(path));
            static_cast<void>(MaterialLink::resolveLink(at(path)));
            static_cast<void>(MaterialLink::linkedFileExists(at(path)));
            MaterialLink::createLink(path, L"/mnt/b.mov", false);
            MaterialLink::createLink(path, L"/mnt/b.mov", true);
        }
    }
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(spy.opens().empty());
    EXPECT_EQ(descriptorsInto(folder), 0u);
}
