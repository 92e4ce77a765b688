// Reads that fail, and an engine that refuses them.

#include "MediaReaderFixture.h"

#include <cerrno>

using namespace readertest;
using fake::Op;

namespace {

class MediaReaderFaults : public ReaderTest
{
protected:
    static constexpr std::uint64_t apart = 1 << 20;
    const unsigned diskError = errorFromErrno(EIO);

    // That many failed reads, one after the other.
    void failReads(MediaReader& reader, unsigned count)
    {
        os.faults().failNext(Op::completion, diskError, count);
        for (unsigned i = 0; i < count; ++i)
            ASSERT_EQ(MediaErrorCode::readFailed, readOf(reader, i * apart, 10).code);
    }
    // Everything that a reader does, with whatever goes wrong meanwhile: an answer is right or an error.
    void useAReader(const std::string& bytes);
    // useAReader with the first call of op failing, then with the second, and so on until all have been.
    void failEach(Op op, unsigned code);
};

void MediaReaderFaults::useAReader(const std::string& bytes)
{
    const auto isRight = [&bytes](std::uint64_t offset, std::size_t length, const std::string& got,
                                  MediaErrorCode code) {
        return code != MediaErrorCode::none || got == bytes.substr(offset, length);
    };
    Answers answers;
    {
        MediaReader reader(L"/m/link.mov");
        if (!reader.isOpen()) {
            EXPECT_NE(MediaErrorCode::none, reader.openError().code);
            return;
        }
        const Got first = readOf(reader, 3, 5000);
        EXPECT_TRUE(isRight(3, 5000, first.bytes, first.code));
        EXPECT_EQ(first.bytes, bytes.substr(3, first.bytes.size()));
        for (std::uint64_t i = 0; i < 4; ++i)
            reader.readAsync(i * 6000, 5000, answers.at(i * 6000));
        reader.setReadAhead(1 << 20);
        for (std::uint64_t i = 0; i < 4; ++i) {
            const Got next = readOf(reader, 400'000 + i * 300'000, 300'000);
            EXPECT_TRUE(isRight(400'000 + i * 300'000, 300'000, next.bytes, next.code));
        }
        const MediaReadResult last = reader.readAsync(bytes.size() - 100, 200).get();
        EXPECT_TRUE(isRight(bytes.size() - 100, 200, textOf(last.data.bytes()), last.error.code));
    }
    const auto all = answers.all();
    EXPECT_EQ(4U, all.size());
    for (const auto& answer : all)
        EXPECT_TRUE(isRight(answer.offset, 5000, answer.bytes, answer.code)) << answer.offset;
}

void MediaReaderFaults::failEach(Op op, unsigned code)
{
    const std::string bytes = addPattern(L"/store/far.mov", 2'500'000);
    os.files().addFile(L"/m/link.mov", linkTo("/store/far.mov"));
    unsigned failed = 0;
    for (unsigned n = 1; failed + 1 == n; ++n) {
        SCOPED_TRACE(testing::Message() << "call " << n);
        os.faults().failNth(op, n, code);
        useAReader(bytes);
        failed = os.faults().fired(op);
    }
    os.faults().clear();
    EXPECT_LT(0U, failed);
}

}  // namespace

TEST_F(MediaReaderFaults, AFailedReadTellsWhatThePlatformSays)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    os.faults().failNext(Op::completion, diskError, 2);
    const Got got = readOf(reader, 10, 100);
    EXPECT_EQ(MediaErrorCode::readFailed, got.code);
    EXPECT_EQ(diskError, got.platformCode);
    EXPECT_EQ(std::string(100, '#'), got.untouched);
    const MediaReadResult result = reader.readAsync(10, 100).get();
    EXPECT_EQ(MediaErrorCode::readFailed, result.error.code);
    EXPECT_EQ(diskError, result.error.platformCode);
    EXPECT_NE(std::string::npos, result.error.text.find("/m/a.mov"));
    EXPECT_TRUE(result.data.empty());
    EXPECT_EQ(bytes.substr(10, 100), readOf(reader, 10, 100).bytes);
}

TEST_F(MediaReaderFaults, ALinkWhoseSizeCannotBeToldIsNotPlayedAsMedia)
{
    const std::string bytes = addPattern(L"/store/far.mov", 100'000);
    os.files().addFile(L"/m/link.mov", linkTo("/store/far.mov"));
    for (unsigned look = 1; look <= 3; ++look) {
        os.faults().failNth(Op::getFileSize, look, errorFromErrno(ETIMEDOUT));
        MediaReader reader(L"/m/link.mov");
        EXPECT_FALSE(reader.isOpen()) << look;
        os.faults().clear();
    }
    MediaReader reader(L"/m/link.mov");
    EXPECT_EQ(bytes.substr(10, 100), readOf(reader, 10, 100).bytes);
}

TEST_F(MediaReaderFaults, ALinkThatCanNeitherBeMeasuredNorReadIsNotPlayedAsMedia)
{
    const std::string bytes = addPattern(L"/store/far.mov", 100'000);
    os.files().addFile(L"/m/link.mov", linkTo("/store/far.mov"));
    os.faults().failAlways(Op::getFileSize, errorFromErrno(ETIMEDOUT));
    os.faults().failAlways(Op::read, errorFromErrno(ETIMEDOUT));
    EXPECT_FALSE(MediaReader(L"/m/link.mov").isOpen());
    FsysFile* file = nullptr;
    EXPECT_NE(FsysOpen(&file, L"/m/link.mov", 65'536, fsysOpenRead, nullptr), 1U);
    os.faults().clear();
    MediaReader reader(L"/m/link.mov");
    EXPECT_EQ(bytes.substr(10, 100), readOf(reader, 10, 100).bytes);
}

TEST_F(MediaReaderFaults, ATransferThatThePlatformDoesNotTakeFails)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    os.faults().failNext(Op::asyncRead, errorFromErrno(EAGAIN));
    const Got got = readOf(reader, 10, 100);
    EXPECT_EQ(MediaErrorCode::readFailed, got.code);
    EXPECT_EQ(errorFromErrno(EAGAIN), got.platformCode);
    EXPECT_EQ(bytes.substr(10, 100), readOf(reader, 10, 100).bytes);
}

TEST_F(MediaReaderFaults, WithoutMemoryForItAReadFailsAndSaysSo)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    os.faults().failAlways(Op::allocatePages, errorFromErrno(ENOMEM));
    EXPECT_EQ(MediaErrorCode::noMemory, readOf(reader, 10, 100).code);
    os.faults().clear();
    EXPECT_EQ(MediaErrorCode::none, readOf(reader, 10, 100).code);
}

TEST_F(MediaReaderFaults, AFileThatCannotBeAskedForItsSizeFailsItsReads)
{
    addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    os.faults().failAlways(Op::getInfo, errorFromErrno(ETIMEDOUT));
    EXPECT_EQ(0U, reader.size());
    const Got got = readOf(reader, 10, 100);
    EXPECT_EQ(MediaErrorCode::offline, got.code);
    EXPECT_EQ(errorFromErrno(ETIMEDOUT), got.platformCode);
    EXPECT_EQ(MediaErrorCode::offline, reader.readAsync(10, 100).get().error.code);
    os.faults().clear();
    os.faults().failNth(Op::getInfo, 2, diskError);  // after the transfer
    EXPECT_EQ(MediaErrorCode::readFailed, readOf(reader, 10, 100).code);
    EXPECT_EQ(MediaErrorCode::none, readOf(reader, 10, 100).code);
}

TEST_F(MediaReaderFaults, AFailureHurtsOnlyTheReadsThatItTouches)
{
    const std::string bytes = addPattern(L"/m/a.mov", 100'000);
    MediaReader reader(L"/m/a.mov");
    // While one read is under way the engine joins the neighbours behind it, whose transfer then fails once.
    hold();
    Answers answers;
    for (std::uint64_t i = 0; i < 20; ++i)
        reader.readAsync(i * 1000, 1000, answers.at(i * 1000));
    ASSERT_TRUE(os.transfers().awaitHeld(1));
    os.transfers().setAutomatic(true);
    os.transfers().failAll(diskError);
    for (const auto& answer : answers.await(20)) {
        EXPECT_EQ(MediaErrorCode::none, answer.code);
        EXPECT_TRUE(bytes.substr(answer.offset, 1000) == answer.bytes);
    }
}

TEST_F(MediaReaderFaults, AReaderSurvivesAnyNumberOfFailedReads)
{
    os.files().addSparseFile(L"/m/a.mov", 1ULL << 32);
    write(L"/m/a.mov", 5000, "found");
    MediaReader reader(L"/m/a.mov");
    const std::size_t openBefore = os.live().files;
    failReads(reader, 300);
    EXPECT_EQ("found", readOf(reader, 5000, 5).bytes);
    EXPECT_EQ("found", textOf(reader.readAsync(5000, 5).get().data.bytes()));
    EXPECT_LT(3U, os.log().count(Op::open, L"/m/a.mov"));
    // What was opened anew replaced what was there; one more may be on its way out.
    EXPECT_LE(os.live().files, openBefore + 2);
}

TEST_F(MediaReaderFaults, ManyFailuresAtOnceLeaveAReaderThatReads)
{
    os.files().addSparseFile(L"/m/a.mov", 1ULL << 32);
    MediaReader reader(L"/m/a.mov");
    hold();
    Answers answers;
    for (std::uint64_t i = 0; i < 100; ++i)
        reader.readAsync(i * apart, 100, answers.at(i));
    while (answers.count() < 100) {
        os.transfers().failAll(diskError);
        std::this_thread::yield();
    }
    for (const auto& answer : answers.all()) {
        EXPECT_EQ(MediaErrorCode::readFailed, answer.code);
        EXPECT_EQ(diskError, answer.platformCode);
    }
    os.transfers().setAutomatic(true);
    EXPECT_EQ(MediaErrorCode::none, readOf(reader, 5, 5).code);
}

TEST_F(MediaReaderFaults, RefusedReadsAreAskedForAgain)
{
    os.files().addSparseFile(L"/m/a.mov", 1ULL << 32);
    MediaReader reader(L"/m/a.mov");
    // Under its new name the file is not opened anew, so the failed reads stay in the engine's list and leave
    // room for less than the reader gives it.
    ASSERT_TRUE(os.files().renameFile(L"/m/a.mov", L"/m/b.mov"));
    failReads(reader, 30);
    Answers answers;
    for (std::uint64_t i = 0; i < 100; ++i)
        reader.readAsync((50 + i) * apart, 100, answers.at(i));
    for (const auto& answer : answers.await(100))
        EXPECT_EQ(MediaErrorCode::none, answer.code);
    EXPECT_EQ(100U, answers.count());
    EXPECT_EQ(8U, FsysGetLastError());  // there were refusals
    EXPECT_EQ(MediaErrorCode::none, readOf(reader, 5, 5).code);
}

TEST_F(MediaReaderFaults, RefusalsThatDoNotEndAreAFailure)
{
    os.files().addSparseFile(L"/m/a.mov", 1ULL << 32);
    MediaReader reader(L"/m/a.mov");
    ASSERT_TRUE(os.files().renameFile(L"/m/a.mov", L"/m/b.mov"));
    failReads(reader, 41);
    EXPECT_EQ(MediaErrorCode::readFailed, readOf(reader, 500 * apart, 5).code);
    // Back under its name it can be opened anew.
    ASSERT_TRUE(os.files().renameFile(L"/m/b.mov", L"/m/a.mov"));
    EXPECT_EQ(MediaErrorCode::none, reader.readAsync(500 * apart, 5).get().error.code);
}

TEST_F(MediaReaderFaults, AnOpeningThatFailsAnewLeavesTheReaderWithWhatItHas)
{
    os.files().addSparseFile(L"/m/a.mov", 1ULL << 32);
    MediaReader reader(L"/m/a.mov");
    os.faults().failOn(L"/m/a.mov", Op::open, errorFromErrno(EMFILE));
    failReads(reader, 20);
    EXPECT_EQ(MediaErrorCode::none, readOf(reader, 500 * apart, 5).code);
}

// --- each call fails once

TEST_F(MediaReaderFaults, EveryOpeningMayFail) { failEach(Op::open, errorFromErrno(EMFILE)); }
TEST_F(MediaReaderFaults, EveryReadOfALinkMayFail) { failEach(Op::read, diskError); }
TEST_F(MediaReaderFaults, EveryLookAtTheFileMayFail) { failEach(Op::getInfo, diskError); }
TEST_F(MediaReaderFaults, EveryStartOfATransferMayFail) { failEach(Op::asyncRead, diskError); }
TEST_F(MediaReaderFaults, EveryTransferMayFail) { failEach(Op::completion, diskError); }
TEST_F(MediaReaderFaults, EveryAttachmentToAPortMayFail) { failEach(Op::attach, diskError); }
TEST_F(MediaReaderFaults, EveryBlockOfMemoryMayBeMissing)
{
    failEach(Op::allocatePages, errorFromErrno(ENOMEM));
}
