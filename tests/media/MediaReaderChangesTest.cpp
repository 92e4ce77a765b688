// Files that change while they are read.

#include "MediaReaderFixture.h"

#include <cerrno>

using namespace readertest;

namespace {

class MediaReaderChanges : public ReaderTest
{
protected:
    // Begins a read that the device holds, lets change happen, and ends it.
    template <class Change>
    MediaReadResult readWhile(MediaReader& reader, std::uint64_t offset, std::uint64_t bytes, Change change,
                              unsigned failure = 0)
    {
        hold();
        std::future<MediaReadResult> read = reader.readAsync(offset, bytes);
        EXPECT_TRUE(os.transfers().awaitHeld(1));
        change();
        os.transfers().setAutomatic(true);
        if (failure != 0)
            os.transfers().failNext(failure);
        else
            os.transfers().completeNext();
        return read.get();
    }
};

}  // namespace

TEST_F(MediaReaderChanges, AFileThatGrowsIsReadFurther)
{
    const std::string bytes = patternOf(300'000);
    os.files().addFile(L"/m/a.mov", bytes.substr(0, 1000));
    MediaReader reader(L"/m/a.mov");
    std::size_t size = 1000;
    EXPECT_EQ(bytes.substr(0, 1000), readOf(reader, 0, 300'000).bytes);
    for (const std::size_t next : {std::size_t{1001}, std::size_t{1536}, std::size_t{99'999}, bytes.size()}) {
        EXPECT_EQ(MediaErrorCode::beyondEnd, readOf(reader, size, 10).code);
        write(L"/m/a.mov", size, bytes.substr(size, next - size));
        size = next;
        EXPECT_EQ(size, reader.size());
        EXPECT_TRUE(bytes.substr(0, size) == readOf(reader, 0, 300'000).bytes) << size;
        EXPECT_TRUE(bytes.substr(0, size) == textOf(reader.readAsync(0, 300'000).get().data.bytes()));
    }
}

TEST_F(MediaReaderChanges, AFileThatIsRewrittenInPlaceIsReadAnew)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    readOf(reader, 0, 100);
    for (const char letter : {'x', 'y', 'z'}) {
        os.clock().sleep(20);  // the file's times go on
        write(L"/m/a.mov", 0, std::string(100'000, letter));
        EXPECT_EQ(std::string(100, letter), readOf(reader, 0, 100).bytes);
        EXPECT_EQ(std::string(600, letter), textOf(reader.readAsync(0, 600).get().data.bytes()));
    }
}

TEST_F(MediaReaderChanges, AnUnfinishedRecordingEndsAtItsFirstGap)
{
    constexpr std::size_t block = std::size_t{1} << 20;
    const std::string bytes = patternOf(3 * block);
    os.files().addFile(L"/m/a.mov.partial", bytes.substr(0, block));
    write(L"/m/a.mov.partial", 2 * block, bytes.substr(2 * block));
    MediaReader reader(L"/m/a.mov.partial");
    EXPECT_EQ(block, reader.size());
    EXPECT_TRUE(bytes.substr(0, block) == readOf(reader, 0, 3 * block).bytes);
    EXPECT_EQ(MediaErrorCode::beyondEnd, readOf(reader, block, 10).code);
    write(L"/m/a.mov.partial", block, bytes.substr(block, block));
    EXPECT_TRUE(bytes == readOf(reader, 0, 3 * block).bytes);
}

TEST_F(MediaReaderChanges, ASynchronousReadThatBringsNothingIsGivenUp)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    reader.setStallLimit(30);
    hold();
    EXPECT_EQ(MediaErrorCode::givenUp, readOf(reader, 4096, 4096).code);
    os.transfers().setAutomatic(true);
    os.transfers().completeAll();
    reader.setStallLimit(0);
    EXPECT_EQ(bytes.substr(4096, 4096), readOf(reader, 4096, 4096).bytes);
}

TEST_F(MediaReaderChanges, AFileThatShrankBetweenReadsEndsEarlier)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    readOf(reader, 0, 100'000);
    resize(L"/m/a.mov", 600);
    EXPECT_EQ(600U, reader.size());
    EXPECT_EQ(bytes.substr(0, 600), readOf(reader, 0, 100'000).bytes);
    EXPECT_EQ(MediaErrorCode::beyondEnd, readOf(reader, 600, 10).code);
}

TEST_F(MediaReaderChanges, AFileThatShrinksWhileItIsReadSaysSo)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    const MediaReadResult cut = readWhile(reader, 0, 5000, [this] { resize(L"/m/a.mov", 4999); });
    EXPECT_EQ(MediaErrorCode::fileShrank, cut.error.code);
    EXPECT_TRUE(cut.data.empty());
    resize(L"/m/a.mov", 100'000);
    const MediaReadResult gone = readWhile(reader, 50'000, 5000, [this] { resize(L"/m/a.mov", 100); });
    EXPECT_EQ(MediaErrorCode::fileShrank, gone.error.code);
    EXPECT_NE(std::string::npos, gone.error.text.find("/m/a.mov"));
}

TEST_F(MediaReaderChanges, AReadThatAShrinkingFileStillHoldsSucceeds)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    const MediaReadResult result = readWhile(reader, 100, 5000, [this] { resize(L"/m/a.mov", 5100); });
    EXPECT_FALSE(result.error) << result.error.text;
    EXPECT_EQ(bytes.substr(100, 5000), textOf(result.data.bytes()));
}

TEST_F(MediaReaderChanges, ASynchronousReadGivesWhatCameBeforeTheFileShrank)
{
    constexpr std::size_t piece = 4 << 20;
    const std::string bytes = addPattern(L"/m/a.mov", 5 * piece);
    MediaReader reader(L"/m/a.mov");
    hold();
    Got got;
    std::thread caller([&] { got = readOf(reader, 0, 5 * piece); });
    // At most four at once; the first two are there when the file is cut inside the third.
    ASSERT_TRUE(os.transfers().awaitHeld(4));
    const auto endOf = [this](std::uint64_t position) {
        for (std::size_t i = 0; i < os.transfers().heldCount(); ++i)
            if (os.transfers().held()[i].position == position)
                return os.transfers().completeAt(i);
        return false;
    };
    EXPECT_TRUE(endOf(0));
    EXPECT_TRUE(endOf(piece));
    resize(L"/m/a.mov", 2 * piece + 5);
    os.transfers().setAutomatic(true);
    os.transfers().completeAll();
    caller.join();
    EXPECT_EQ(MediaErrorCode::fileShrank, got.code);
    EXPECT_TRUE(got.bytes == bytes.substr(0, got.bytes.size()));
    EXPECT_TRUE(got.untouched == std::string(5 * piece - got.bytes.size(), '#'));
    EXPECT_EQ(2 * piece, got.bytes.size());
}

TEST_F(MediaReaderChanges, ZerosThatAShrinkingFileLeftAreNeverData)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    ASSERT_EQ(MediaErrorCode::fileShrank,
              readWhile(reader, 0, 50'000, [this] { resize(L"/m/a.mov", 1000); }).error.code);
    // The engine keeps what it read, made-up zeros and all, and would answer from it.
    write(L"/m/a.mov", 1000, bytes.substr(1000));
    EXPECT_TRUE(bytes.substr(0, 50'000) == readOf(reader, 0, 50'000).bytes);
    EXPECT_TRUE(bytes.substr(900, 3000) == textOf(reader.readAsync(900, 3000).get().data.bytes()));
}

TEST_F(MediaReaderChanges, AFileThatWasRemovedSaysSo)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    readOf(reader, 0, 1000);
    os.files().remove(L"/m/a.mov");
    const Got got = readOf(reader, 0, 1000);
    EXPECT_EQ(MediaErrorCode::fileVanished, got.code);
    EXPECT_EQ("", got.bytes);
    EXPECT_EQ(MediaErrorCode::fileVanished, reader.readAsync(0, 1000).get().error.code);
    EXPECT_EQ(100'000U, reader.size());
}

TEST_F(MediaReaderChanges, AFileThatIsRemovedWhileItIsReadSaysSo)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    const MediaReadResult result = readWhile(reader, 0, 1000, [this] { os.files().remove(L"/m/a.mov"); });
    EXPECT_EQ(MediaErrorCode::fileVanished, result.error.code);
    EXPECT_TRUE(result.data.empty());
}

TEST_F(MediaReaderChanges, AFailedReadOfARemovedFileSaysThatItWasRemoved)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    const MediaReadResult result = readWhile(
        reader, 0, 1000, [this] { os.files().remove(L"/m/a.mov"); }, errorFromErrno(ESTALE));
    EXPECT_EQ(MediaErrorCode::fileVanished, result.error.code);
}

TEST_F(MediaReaderChanges, AFileThatWasReplacedSaysSo)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    os.files().remove(L"/m/a.mov");
    os.files().addFile(L"/m/a.mov", std::string(100'000, 'n'));
    EXPECT_EQ(MediaErrorCode::fileVanished, readOf(reader, 0, 1000).code);
    MediaReader again(L"/m/a.mov");
    EXPECT_EQ(std::string(1000, 'n'), readOf(again, 0, 1000).bytes);
}

TEST_F(MediaReaderChanges, ATargetThatWasRemovedSaysSoThroughItsLink)
{
    addPattern(L"/store/far.mov", 100'000);
    os.files().addFile(L"/m/a.mov", linkTo("/store/far.mov"));
    MediaReader reader(L"/m/a.mov");
    os.files().remove(L"/store/far.mov");
    EXPECT_EQ(MediaErrorCode::fileVanished, readOf(reader, 0, 1000).code);
}

TEST_F(MediaReaderChanges, AFileThatWasRenamedIsReadOn)
{
    const std::string bytes = addPattern(L"/m/a.mov.partial", 100'000);
    MediaReader reader(L"/m/a.mov.partial");
    ASSERT_TRUE(os.files().renameFile(L"/m/a.mov.partial", L"/m/a.mov"));
    EXPECT_EQ(bytes.substr(5, 1000), readOf(reader, 5, 1000).bytes);
}

TEST_F(MediaReaderChanges, AFileThatShrankUnderAnotherNameIsNotReadOnFromAStranger)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    // After this the reader wants a fresh start, and its path leads elsewhere.
    ASSERT_EQ(MediaErrorCode::fileShrank, readWhile(reader, 0, 50'000, [this] {
                                              resize(L"/m/a.mov", 1000);
                                              ASSERT_TRUE(os.files().renameFile(L"/m/a.mov", L"/m/b.mov"));
                                              os.files().addFile(L"/m/a.mov", std::string(100'000, 'n'));
                                          }).error.code);
    const Got got = readOf(reader, 0, 500);
    EXPECT_EQ(MediaErrorCode::fileVanished, got.code);
    EXPECT_EQ("", got.bytes);
}
