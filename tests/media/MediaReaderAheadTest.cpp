// Reading ahead, and what a reader counts.

#include "MediaReaderFixture.h"

#include <cerrno>

using namespace readertest;
using fake::Op;

namespace {

constexpr std::size_t MB = 1 << 20;

class MediaReaderAhead : public ReaderTest
{
protected:
    std::size_t transfers() { return os.log().count(Op::asyncRead, L"/m/a.mov"); }
    void awaitTransfers(std::size_t count)
    {
        while (transfers() < count)
            std::this_thread::yield();
        while (os.transfers().delivered() < count)
            std::this_thread::yield();
    }
    // Each piece of the window has been looked at after its end, and then some.
    void awaitQuiet()
    {
        while (os.transfers().delivered() < os.transfers().accepted())
            std::this_thread::yield();
    }
};

using MediaReaderCounters = MediaReaderAhead;

}  // namespace

TEST_F(MediaReaderAhead, NothingIsReadAheadUnlessAskedFor)
{
    addPattern(L"/m/a.mov", 20 * MB);
    MediaReader reader(L"/m/a.mov");
    readOf(reader, 0, 1000);
    readOf(reader, 1000, 1000);
    readOf(reader, 2000, 1000);
    EXPECT_EQ(3U, transfers());
}

TEST_F(MediaReaderAhead, ASequentialReaderFindsItsDataThere)
{
    const std::string bytes = addPattern(L"/m/a.mov", 20 * MB);
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(4 * MB);
    readOf(reader, 0, 64 << 10);
    EXPECT_EQ(1U, transfers());  // one read makes no sequence
    readOf(reader, 64 << 10, 64 << 10);
    awaitTransfers(2 + 4);
    for (std::size_t at = 128 << 10; at < 4 * MB; at += 64 << 10)
        ASSERT_TRUE(bytes.substr(at, 64 << 10) == readOf(reader, at, 64 << 10).bytes) << at;
    const auto counters = reader.counters();
    EXPECT_EQ(64U, counters.requests);
    EXPECT_EQ(62U, counters.cacheAnswers);
    EXPECT_EQ(2U, counters.waits);
    EXPECT_EQ(4 * MB, counters.bytes);
}

TEST_F(MediaReaderAhead, TheWindowMovesWithItsReader)
{
    const std::string bytes = addPattern(L"/m/a.mov", 20 * MB + 77);
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(3 * MB);
    std::size_t at = 0;
    for (; at < bytes.size(); at += 100'000)
        ASSERT_TRUE(bytes.substr(at, 100'000) == readOf(reader, at, 100'000).bytes) << at;
    awaitQuiet();
    // Two reads of its own, then blocks of a megabyte up to the end of the file; nothing is read twice.
    EXPECT_EQ(2U + 20U, transfers());
}

TEST_F(MediaReaderAhead, AtLeastTheWindowIsOnItsWay)
{
    addPattern(L"/m/a.mov", 50 * MB);
    MediaReader reader(L"/m/a.mov");
    readOf(reader, 0, MB);
    reader.setReadAhead(10 * MB);
    hold();
    auto second = reader.readAsync(MB, MB);
    ASSERT_TRUE(os.transfers().awaitHeld(11));
    std::uint64_t end = 0;
    for (const auto& held : os.transfers().held())
        end = std::max(end, held.position + held.length);
    EXPECT_EQ(12 * MB, end);
    EXPECT_EQ(11U, os.transfers().heldCount());
    os.transfers().setAutomatic(true);
    os.transfers().completeAll();
    EXPECT_FALSE(second.get().error);
}

TEST_F(MediaReaderAhead, BlocksAreAsLargeAsLargeReads)
{
    addPattern(L"/m/a.mov", 40 * MB);
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(6 * MB);
    constexpr std::size_t frame = 3 * MB + 1;
    readOf(reader, 0, frame);
    readOf(reader, frame, frame);
    awaitTransfers(2 + 2);
    awaitQuiet();
    // A frame is then a view of one block: no memory of its own.
    const MediaReadResult result = reader.readAsync(2 * frame, frame).get();
    EXPECT_EQ(frame, result.data.size());
    const auto counters = reader.counters();
    EXPECT_EQ(1U, counters.cacheAnswers);
}

TEST_F(MediaReaderAhead, DataOfTheWindowOutlivesItsReader)
{
    const std::string bytes = addPattern(L"/m/a.mov", 20 * MB);
    MediaData inside;
    MediaData across;
    {
        MediaReader reader(L"/m/a.mov");
        reader.setReadAhead(4 * MB);
        readOf(reader, 0, 1000);
        readOf(reader, 1000, 1000);
        inside = reader.readAsync(2000, 1000).get().data;
        across = reader.readAsync(3000, 2 * MB).get().data;
    }
    EXPECT_TRUE(bytes.substr(2000, 1000) == textOf(inside.bytes()));
    EXPECT_TRUE(bytes.substr(3000, 2 * MB) == textOf(across.bytes()));
}

TEST_F(MediaReaderAhead, AJumpDropsTheWindow)
{
    const std::string bytes = addPattern(L"/m/a.mov", 60 * MB);
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(4 * MB);
    readOf(reader, 0, MB);
    readOf(reader, MB, MB);
    awaitTransfers(2 + 4);
    awaitQuiet();
    const auto pagesWithWindow = os.live().pages;
    EXPECT_TRUE(bytes.substr(40 * MB, 10) == readOf(reader, 40 * MB, 10).bytes);
    // The engine lets go of what it has finished by and by.
    while (os.live().pages >= pagesWithWindow)
        std::this_thread::yield();
    EXPECT_TRUE(bytes.substr(2 * MB, 10) == readOf(reader, 2 * MB, 10).bytes);
}

TEST_F(MediaReaderAhead, AFrameThatIsLeftOutKeepsTheWindow)
{
    const std::string bytes = addPattern(L"/m/a.mov", 20 * MB);
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(4 * MB);
    readOf(reader, 0, MB);
    readOf(reader, MB, MB);
    awaitTransfers(2 + 4);
    awaitQuiet();
    EXPECT_TRUE(bytes.substr(3 * MB, MB) == readOf(reader, 3 * MB, MB).bytes);
    EXPECT_EQ(1U, reader.counters().cacheAnswers);
    awaitTransfers(2 + 4 + 2);
}

TEST_F(MediaReaderAhead, TurningItOffDropsTheWindow)
{
    addPattern(L"/m/a.mov", 20 * MB);
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(4 * MB);
    readOf(reader, 0, MB);
    readOf(reader, MB, MB);
    awaitTransfers(2 + 4);
    reader.setReadAhead(0);
    readOf(reader, 2 * MB, 10);
    readOf(reader, 2 * MB + 10, 10);
    awaitQuiet();
    EXPECT_GE(8U, transfers());
}

TEST_F(MediaReaderAhead, AHugeWindowLeavesRoomForReads)
{
    os.files().addSparseFile(L"/m/a.mov", 1ULL << 36);
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(200 * MB);
    readOf(reader, 0, 1000);
    hold();
    auto second = reader.readAsync(1000, 1000);
    ASSERT_TRUE(os.transfers().awaitHeld(25));
    auto elsewhere = reader.readAsync(1ULL << 35, 1000);
    ASSERT_TRUE(os.transfers().awaitHeld(26));
    EXPECT_EQ(26U, os.transfers().heldCount());
    os.transfers().setAutomatic(true);
    os.transfers().completeAll();
    EXPECT_FALSE(second.get().error);
    EXPECT_FALSE(elsewhere.get().error);
}

TEST_F(MediaReaderAhead, TheWindowEndsWithTheFileAndGoesOnWhenItGrows)
{
    const std::string bytes = patternOf(5 * MB);
    os.files().addFile(L"/m/a.mov", bytes.substr(0, 3 * MB));
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(8 * MB);
    std::size_t at = 0;
    for (; at < 3 * MB; at += 256 << 10)
        ASSERT_TRUE(bytes.substr(at, 256 << 10) == readOf(reader, at, 256 << 10).bytes);
    EXPECT_EQ(MediaErrorCode::beyondEnd, readOf(reader, at, 10).code);
    write(L"/m/a.mov", 3 * MB, bytes.substr(3 * MB));
    for (; at < 5 * MB; at += 256 << 10)
        ASSERT_TRUE(bytes.substr(at, 256 << 10) == readOf(reader, at, 256 << 10).bytes);
}

TEST_F(MediaReaderAhead, AFailedBlockFailsNoReadThatCanBeReadAlone)
{
    const std::string bytes = addPattern(L"/m/a.mov", 20 * MB);
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(2 * MB);
    readOf(reader, 0, 1000);
    os.faults().failNth(Op::completion, 2, errorFromErrno(EIO));  // the first block, or the read beside it
    for (std::size_t at = 1000; at < 3 * MB; at += 50'000) {
        const Got got = readOf(reader, at, 50'000);
        ASSERT_EQ(MediaErrorCode::none, got.code) << at;
        ASSERT_TRUE(bytes.substr(at, 50'000) == got.bytes) << at;
    }
    EXPECT_EQ(1U, os.faults().fired());
}

TEST_F(MediaReaderAhead, ZerosOfAFileThatShrankUnderTheWindowAreNeverData)
{
    const std::string bytes = addPattern(L"/m/a.mov", 20 * MB);
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(4 * MB);
    readOf(reader, 0, 1000);
    hold();
    auto second = reader.readAsync(1000, 1000);
    ASSERT_TRUE(os.transfers().awaitHeld(1 + 4));
    resize(L"/m/a.mov", 2 * MB);
    os.transfers().setAutomatic(true);
    os.transfers().completeAll();
    ASSERT_FALSE(second.get().error);
    // Its blocks are looked at as they come in; the next call sees what came of it.
    ASSERT_FALSE(reader.readAsync(10, 10).get().error);
    write(L"/m/a.mov", 2 * MB, bytes.substr(2 * MB));
    EXPECT_TRUE(bytes.substr(2000, 4 * MB) == readOf(reader, 2000, 4 * MB).bytes);
}

TEST_F(MediaReaderAhead, AFileThatVanishedSaysSoThoughTheWindowHasTheData)
{
    addPattern(L"/m/a.mov", 20 * MB);
    MediaReader reader(L"/m/a.mov");
    reader.setReadAhead(4 * MB);
    readOf(reader, 0, 1000);
    readOf(reader, 1000, 1000);
    awaitTransfers(2 + 4);
    os.files().remove(L"/m/a.mov");
    EXPECT_EQ(MediaErrorCode::fileVanished, readOf(reader, 2000, 1000).code);
}

TEST_F(MediaReaderAhead, AReaderMayGoWithItsWindowUnderWay)
{
    addPattern(L"/m/a.mov", 20 * MB);
    hold();
    std::thread device;
    {
        MediaReader reader(L"/m/a.mov");
        reader.setReadAhead(4 * MB);
        auto one = reader.readAsync(0, 1000);
        auto two = reader.readAsync(1000, 1000);
        ASSERT_TRUE(os.transfers().awaitHeld(5));
        os.transfers().setAutomatic(true);
        device = std::thread([this] { os.transfers().completeAll(); });
    }
    device.join();
    EXPECT_EQ(0U, os.live().files);
}

// --- counters

TEST_F(MediaReaderCounters, EachReadThatGaveDataWasThereOrWaited)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    readOf(reader, 0, 5000);            // waits
    reader.readAsync(50'000, 1).get();  // waits
    EXPECT_EQ(2U, reader.counters().waits);
    // The engine answers from a read only once it has put it away, which is after its data was delivered.
    unsigned again = 0;
    for (; reader.counters().cacheAnswers < 2 && again < 100'000; ++again)
        again % 2 == 0 ? (void)readOf(reader, 1000, 1000) : (void)reader.readAsync(1000, 1000).get();
    readOf(reader, 100'000, 10);  // behind the end
    readOf(reader, 0, 0);         // nothing
    const auto counters = reader.counters();
    EXPECT_EQ(4U + again, counters.requests);
    EXPECT_EQ(5000U + 1 + 1000 * std::uint64_t{again}, counters.bytes);
    EXPECT_EQ(2U, counters.cacheAnswers);
    EXPECT_EQ(again, counters.waits);
}

TEST_F(MediaReaderCounters, TheWorstWaitIsTheLongestUntilTheDataIsThere)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    hold();
    auto read = reader.readAsync(0, 1000);
    ASSERT_TRUE(os.transfers().awaitHeld(1));
    os.clock().advance(7000);  // skips time
    os.transfers().completeNext();
    read.get();
    EXPECT_LE(7000, reader.counters().worstWaitMs);
    EXPECT_GT(60'000, reader.counters().worstWaitMs);
}

TEST_F(MediaReaderCounters, ReadsThatGaveNothingDidNotWait)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    os.faults().failNext(Op::completion, errorFromErrno(EIO));
    readOf(reader, 0, 1000);
    const auto counters = reader.counters();
    EXPECT_EQ(1U, counters.requests);
    EXPECT_EQ(0U, counters.bytes);
    EXPECT_EQ(0U, counters.waits + counters.cacheAnswers);
    EXPECT_EQ(0, counters.worstWaitMs);
}
