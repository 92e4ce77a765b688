// What a reader reads, and why one does not open.

#include "../fsys/CacheTest.h"
#include "MediaReaderFixture.h"

#include <cerrno>
#include <limits>

using namespace readertest;

namespace {

class MediaReaderBytes : public ReaderTest
{
};

class MediaReaderOpening : public ReaderTest
{
protected:
    static MediaErrorCode openingOf(const Path& path) { return MediaReader(path).openError().code; }
};

// Clips of the media cache, at "/m".
class MediaReaderClips : public cachetest::CacheTest
{
protected:
    MediaReaderClips() : CacheTest(FakeOS::Mode::realThreads) { FsysInitialize(); }
    ~MediaReaderClips() override { FsysUninitialize(Shutdown::eNormalExit); }

    // A file of the clip; the reader finds these bytes in it.
    MediaFileInfo add(const wchar_t* ending, const std::string& bytes)
    {
        const MediaFileInfo file = info(clip, ending, bytes.size());
        os.files().addFile(osPath(file), bytes);
        SystemCache::addFile(clip, file, false);
        return file;
    }
    static std::string allOf(MediaReader& reader) { return readOf(reader, 0, 1 << 20).bytes; }

    const Cookie clip = vision(0xC11B);
};

}  // namespace

TEST_F(MediaReaderBytes, EveryFileOfUpToThreeSectorsIsReadAtEveryInterestingPlace)
{
    for (std::size_t size = 0; size <= 3 * 512; ++size) {
        if (size == 512)
            continue;  // would be a link
        const std::string bytes = addPattern(L"/m/a.mov", size);
        MediaReader reader(L"/m/a.mov");
        ASSERT_TRUE(reader.isOpen()) << reader.openError().text;
        ASSERT_EQ(size, reader.size());
        const Got whole = readOf(reader, 0, size + 1);
        ASSERT_EQ(bytes, whole.bytes);
        ASSERT_EQ(size == 0 ? MediaErrorCode::beyondEnd : MediaErrorCode::none, whole.code);
        ASSERT_EQ("#", whole.untouched);
        for (const std::size_t offset : {std::size_t{1}, size / 2, size - 1, std::size_t{511},
                                         std::size_t{512}, std::size_t{513}, std::size_t{1024}}) {
            if (offset < size) {
                ASSERT_EQ(bytes.substr(offset, 300), readOf(reader, offset, 300).bytes)
                    << size << ' ' << offset;
            }
        }
        ASSERT_EQ(MediaErrorCode::beyondEnd, readOf(reader, size, 1).code);
    }
}

TEST_F(MediaReaderBytes, SizesAroundTheEnginesBlocksAreReadWhole)
{
    for (const std::size_t block : {std::size_t{131072}, std::size_t{524288}, std::size_t{4} << 20}) {
        for (const std::size_t size : {block - 512, block - 1, block, block + 1, block + 512}) {
            const std::string bytes = addPattern(L"/m/a.mov", size);
            MediaReader reader(L"/m/a.mov");
            const Got got = readOf(reader, 0, size);
            ASSERT_TRUE(bytes == got.bytes) << size;
            ASSERT_EQ(MediaErrorCode::none, got.code);
            ASSERT_TRUE(bytes == textOf(reader.readAsync(0, size + 7).get().data.bytes())) << size;
        }
    }
}

TEST_F(MediaReaderBytes, RandomRangesEqualTheFile)
{
    const std::string bytes = addPattern(L"/m/a.mov", 3'000'017);
    MediaReader reader(L"/m/a.mov");
    std::mt19937 dice(7);
    for (int i = 0; i < 400; ++i) {
        const std::size_t offset = dice() % bytes.size();
        const std::size_t length = 1 + dice() % (i % 10 == 0 ? 2'000'000 : 20'000);
        const Got got = readOf(reader, offset, length);
        ASSERT_TRUE(bytes.substr(offset, length) == got.bytes) << offset << '+' << length;
        ASSERT_EQ(MediaErrorCode::none, got.code);
        ASSERT_EQ(length - got.bytes.size(), got.untouched.size());
    }
}

TEST_F(MediaReaderBytes, ALongSynchronousReadIsWhole)
{
    const std::string bytes = addPattern(L"/m/a.mov", 30'000'001);
    MediaReader reader(L"/m/a.mov");
    EXPECT_TRUE(bytes.substr(3) == readOf(reader, 3, bytes.size()).bytes);
}

TEST_F(MediaReaderBytes, AReadOfNothingSucceedsEverywhere)
{
    addPattern(L"/m/a.mov", 100);
    MediaReader reader(L"/m/a.mov");
    EXPECT_EQ(MediaErrorCode::none, readOf(reader, 0, 0).code);
    EXPECT_EQ(MediaErrorCode::none, readOf(reader, 5000, 0).code);
    const MediaReadResult result = reader.readAsync(5000, 0).get();
    EXPECT_FALSE(result.error);
    EXPECT_TRUE(result.data.empty());
}

TEST_F(MediaReaderBytes, AReadAtTheEndOrBehindItSaysSo)
{
    addPattern(L"/m/a.mov", 1000);
    MediaReader reader(L"/m/a.mov");
    for (const std::uint64_t offset :
         {std::uint64_t{1000}, std::uint64_t{1001}, std::numeric_limits<std::uint64_t>::max()}) {
        const Got got = readOf(reader, offset, 10);
        EXPECT_EQ(MediaErrorCode::beyondEnd, got.code);
        EXPECT_EQ("", got.bytes);
        EXPECT_EQ("##########", got.untouched);
        EXPECT_EQ(MediaErrorCode::beyondEnd, reader.readAsync(offset, 10).get().error.code);
    }
}

TEST_F(MediaReaderBytes, AReadThatReachesBehindTheEndGivesWhatThereIs)
{
    const std::string bytes = addPattern(L"/m/a.mov", 1000);
    MediaReader reader(L"/m/a.mov");
    const Got got = readOf(reader, 990, 100);
    EXPECT_EQ(bytes.substr(990), got.bytes);
    EXPECT_EQ(MediaErrorCode::none, got.code);
    EXPECT_EQ(std::string(90, '#'), got.untouched);
    const MediaReadResult result = reader.readAsync(990, MediaReader::asyncBytesMax).get();
    EXPECT_EQ(bytes.substr(990), textOf(result.data.bytes()));
    EXPECT_FALSE(result.error);
}

TEST_F(MediaReaderBytes, ALinkIsFollowedAsAWhole)
{
    const std::string bytes = addPattern(L"/store/far.mov", 70'000);
    os.files().addFile(L"/m/a.mov", linkTo("/store/far.mov"));
    MediaReader reader(L"/m/a.mov");
    ASSERT_TRUE(reader.isOpen()) << reader.openError().text;
    EXPECT_EQ(Path(L"/m/a.mov"), reader.path());
    EXPECT_EQ(Path(L"/store/far.mov"), reader.target());
    EXPECT_EQ(bytes.size(), reader.size());
    EXPECT_TRUE(bytes == readOf(reader, 0, 100'000).bytes);
}

TEST_F(MediaReaderBytes, ATargetOfTheSizeOfALinkIsReadAsItIs)
{
    const std::string second = linkTo("/store/elsewhere.mov");
    addPattern(L"/store/elsewhere.mov", 2000);
    os.files().addFile(L"/store/small.mov", second);
    os.files().addFile(L"/m/a.mov", linkTo("/store/small.mov"));
    MediaReader reader(L"/m/a.mov");
    EXPECT_EQ(512U, reader.size());
    EXPECT_EQ(second, readOf(reader, 0, 600).bytes);
}

TEST_F(MediaReaderBytes, AFileOf512BytesThatBeginsWithRiffIsNoLink)
{
    std::string bytes = patternOf(512);
    bytes.replace(0, 4, "RIFF");
    os.files().addFile(L"/m/a.wav", bytes);
    MediaReader reader(L"/m/a.wav");
    EXPECT_EQ(reader.path(), reader.target());
    EXPECT_EQ(bytes, readOf(reader, 0, 600).bytes);
}

TEST_F(MediaReaderBytes, AFileOnANetworkDriveIsReadTheSame)
{
    fake::DriveProperties network;
    network.type = iDiskDrive::eNetwork;
    network.sectorSize = 0;
    network.root = L"/net/";
    os.files().addDrive(network);
    const std::string bytes = addPattern(L"/net/a.mov", 200'001);
    MediaReader reader(L"/net/a.mov");
    EXPECT_TRUE(bytes.substr(77) == readOf(reader, 77, 300'000).bytes);
    EXPECT_TRUE(bytes.substr(1, 1000) == textOf(reader.readAsync(1, 1000).get().data.bytes()));
}

TEST_F(MediaReaderBytes, AnAsynchronousReadLongerThanTheLongestIsRefused)
{
    addPattern(L"/m/a.mov", 1000);
    MediaReader reader(L"/m/a.mov");
    const MediaReadResult result = reader.readAsync(0, MediaReader::asyncBytesMax + 1).get();
    EXPECT_EQ(MediaErrorCode::invalidArgument, result.error.code);
    EXPECT_TRUE(result.data.empty());
}

TEST_F(MediaReaderBytes, ReadersOfOneFileAreIndependent)
{
    const std::string bytes = addPattern(L"/m/a.mov", 50'000);
    MediaReader one(L"/m/a.mov");
    MediaReader two(L"/m/a.mov");
    EXPECT_EQ(bytes.substr(100, 100), readOf(one, 100, 100).bytes);
    EXPECT_EQ(bytes.substr(40'000, 100), readOf(two, 40'000, 100).bytes);
}

// --- opening

TEST_F(MediaReaderOpening, AMissingFileIsNotFound)
{
    MediaReader reader(L"/m/none.mov");
    EXPECT_FALSE(reader.isOpen());
    EXPECT_EQ(MediaErrorCode::notFound, reader.openError().code);
    EXPECT_EQ(errorFromErrno(ENOENT), reader.openError().platformCode);
    EXPECT_NE(std::string::npos, reader.openError().text.find("/m/none.mov"));
    EXPECT_EQ(MediaErrorCode::notFound, openingOf(L"/m/none/none.mov"));
}

TEST_F(MediaReaderOpening, TheEmptyPathIsNoArgument)
{
    EXPECT_EQ(MediaErrorCode::invalidArgument, openingOf(L""));
}

TEST_F(MediaReaderOpening, AFolderOrAPipeIsNotAFile)
{
    os.files().addFolder(L"/m/folder");
    os.files().addDirect(L"/m/pipe");
    EXPECT_EQ(MediaErrorCode::notAFile, openingOf(L"/m/folder"));
    EXPECT_EQ(MediaErrorCode::notAFile, openingOf(L"/m/pipe"));
    os.files().addFile(L"/m/a.mov", linkTo("/m/folder"));
    EXPECT_EQ(MediaErrorCode::notAFile, openingOf(L"/m/a.mov"));
}

TEST_F(MediaReaderOpening, ALinkWithoutItsTargetIsOffline)
{
    os.files().addFile(L"/m/a.mov", linkTo("/gone/b.mov"));
    os.files().addFile(L"/m/b.mov", linkTo(""));
    EXPECT_EQ(MediaErrorCode::offline, openingOf(L"/m/a.mov"));
    EXPECT_EQ(MediaErrorCode::offline, openingOf(L"/m/b.mov"));
}

TEST_F(MediaReaderOpening, AServerThatDoesNotAnswerIsOffline)
{
    addPattern(L"/m/a.mov", 100);
    os.faults().failOn(L"/m/a.mov", fake::Op::open, errorFromErrno(ETIMEDOUT));
    EXPECT_EQ(MediaErrorCode::offline, openingOf(L"/m/a.mov"));
}

TEST_F(MediaReaderOpening, AFileThatMayNotBeReadTellsWhatThePlatformSays)
{
    addPattern(L"/m/a.mov", 100);
    os.files().addFile(L"/m/link.mov", linkTo("/m/a.mov"));
    os.faults().failOn(L"/m/a.mov", fake::Op::open, errorFromErrno(EACCES));
    const MediaError error = MediaReader(L"/m/a.mov").openError();
    EXPECT_EQ(MediaErrorCode::readFailed, error.code);
    EXPECT_EQ(errorFromErrno(EACCES), error.platformCode);
    EXPECT_EQ(MediaErrorCode::readFailed, openingOf(L"/m/link.mov"));
}

TEST_F(MediaReaderOpening, ALinkThatCannotBeReadTellsWhatThePlatformSays)
{
    addPattern(L"/m/b.mov", 100);
    os.files().addFile(L"/m/a.mov", linkTo("/m/b.mov"));
    os.faults().failOn(L"/m/a.mov", fake::Op::read, errorFromErrno(EIO));
    const MediaError error = MediaReader(L"/m/a.mov").openError();
    EXPECT_EQ(MediaErrorCode::readFailed, error.code);
    EXPECT_EQ(errorFromErrno(EIO), error.platformCode);
}

TEST_F(MediaReaderOpening, WithoutTheEngineNothingOpens)
{
    addPattern(L"/m/a.mov", 100);
    FsysUninitialize(Shutdown::eNormalExit);
    MediaReader reader(L"/m/a.mov");
    EXPECT_EQ(MediaErrorCode::engineNotRunning, reader.openError().code);
    MediaReader clip(Cookie(CookieTypeVision, 1, 0), DecodeFormat());
    EXPECT_EQ(MediaErrorCode::engineNotRunning, clip.openError().code);
    EXPECT_EQ(MediaErrorCode::notOpen, readOf(reader, 0, 10).code);
}

TEST_F(MediaReaderOpening, AReaderThatIsNotOpenAnswersEveryReadWithThat)
{
    Answers answers;
    {
        MediaReader reader(L"/m/none.mov");
        EXPECT_EQ(0U, reader.size());
        const Got got = readOf(reader, 0, 10);
        EXPECT_EQ(MediaErrorCode::notOpen, got.code);
        EXPECT_EQ("##########", got.untouched);
        EXPECT_EQ(MediaErrorCode::notOpen, reader.readAsync(0, 10).get().error.code);
        reader.readAsync(7, 10, answers.at(7));
        EXPECT_FALSE(reader.cancel(1));
        EXPECT_EQ(0U, reader.cancelAll());
        reader.setReadAhead(1 << 20);
    }
    ASSERT_EQ(1U, answers.count());
    EXPECT_EQ(MediaErrorCode::notOpen, answers.all()[0].code);
    EXPECT_NE(std::this_thread::get_id(), answers.all()[0].thread);
}

TEST_F(MediaReaderOpening, NothingStaysOpenBehindAReader)
{
    addPattern(L"/m/a.mov", 100'000);
    const fake::Live before = os.live();
    {
        MediaReader reader(L"/m/a.mov");
        readOf(reader, 0, 100'000);
        MediaReader none(L"/m/none.mov");
    }
    EXPECT_EQ(before.files, os.live().files);
}

// --- clips

TEST_F(MediaReaderClips, AClipIsReadByItsCookie)
{
    const std::string bytes = patternOf(30'000);
    const MediaFileInfo file = add(L".mov", bytes);
    MediaReader reader(clip, DecodeFormat());
    ASSERT_TRUE(reader.isOpen()) << reader.openError().text;
    EXPECT_EQ(osPath(file), reader.path());
    EXPECT_EQ(bytes, allOf(reader));
}

TEST_F(MediaReaderClips, TheFormatDecidesBetweenTheFileAndItsProxies)
{
    const std::string high = patternOf(30'000);
    const std::string small = patternOf(7'000);
    add(L".mov", high);
    add(L".A2.proxy.540.mov", small);
    MediaReader full(clip, DecodeFormat(eHighRes));
    MediaReader proxy(clip, DecodeFormat(eProxy));
    MediaReader fitting(clip, cachetest::formatOf(eAuto, 500));
    MediaReader tall(clip, cachetest::formatOf(eAuto, 1080));
    EXPECT_EQ(high, allOf(full));
    EXPECT_EQ(small, allOf(proxy));
    EXPECT_EQ(small, allOf(fitting));
    EXPECT_EQ(high, allOf(tall));
}

TEST_F(MediaReaderClips, ALinkOfAClipIsFollowedAsAWhole)
{
    const std::string bytes = patternOf(9'000);
    os.files().addFile(L"/store/far.mov", bytes);
    add(L".mov", linkTo("/store/far.mov"));
    MediaReader reader(clip, DecodeFormat());
    EXPECT_EQ(Path(L"/store/far.mov"), reader.target());
    EXPECT_EQ(bytes.size(), reader.size());
    EXPECT_EQ(bytes, allOf(reader));
}

TEST_F(MediaReaderClips, ATargetOfTheSizeOfALinkIsReadAsItIs)
{
    const std::string second = linkTo("/store/elsewhere.mov");
    os.files().addFile(L"/store/elsewhere.mov", patternOf(2000));
    os.files().addFile(L"/store/small.mov", second);
    add(L".mov", linkTo("/store/small.mov"));
    MediaReader reader(clip, DecodeFormat());
    EXPECT_EQ(second, allOf(reader));
}

TEST_F(MediaReaderClips, AnUnknownClipSaysSo)
{
    EXPECT_EQ(MediaErrorCode::unknownClip, MediaReader(vision(0xBAD), DecodeFormat()).openError().code);
    const MediaError error = MediaReader(Cookie(), DecodeFormat()).openError();
    EXPECT_EQ(MediaErrorCode::unknownClip, error.code);
    EXPECT_NE(std::string::npos, MediaReader(vision(0xBAD), DecodeFormat())
                                     .openError()
                                     .text.find(vision(0xBAD).asString(true).c_str()));
}

TEST_F(MediaReaderClips, AClipWhoseFileIsGoneIsOffline)
{
    const MediaFileInfo file = add(L".mov", patternOf(100));
    os.files().remove(osPath(file));
    EXPECT_EQ(MediaErrorCode::offline, MediaReader(clip, DecodeFormat()).openError().code);
}

TEST_F(MediaReaderClips, AClipWhoseFileGoesAfterItWasFoundOnlineIsOffline)
{
    const MediaFileInfo file = add(L".mov", patternOf(100));
    ASSERT_EQ(unsigned{eStatusOnline}, SystemCache::updateStatus(clip, eHighRes));
    os.files().remove(osPath(file));
    EXPECT_EQ(MediaErrorCode::offline, MediaReader(clip, DecodeFormat()).openError().code);
}

TEST_F(MediaReaderClips, AClipWhoseLinkLeadsNowhereIsOffline)
{
    add(L".mov", linkTo("/gone/far.mov"));
    EXPECT_EQ(MediaErrorCode::offline, MediaReader(clip, DecodeFormat()).openError().code);
}
