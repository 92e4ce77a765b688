// libavformat's reads and seeks on the fake platform.

#include "av/AvInput.h"
#include "av/AvError.h"
#include "media/MediaReaderFixture.h"
#include "media/MediaWriter.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <limits>
#include <thread>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
}

using namespace readertest;

namespace {

constexpr unsigned forEver = std::numeric_limits<unsigned>::max();

// What libavformat gets; its error when it gets none.
struct Answer
{
    std::string bytes;
    int error = 0;
};

Answer readSome(const AvInput& input, int bytes)
{
    std::string buffer(static_cast<std::size_t>(bytes), '#');
    const int got = avio_read(input.context(), reinterpret_cast<unsigned char*>(buffer.data()), bytes);
    buffer.resize(static_cast<std::size_t>(std::max(got, 0)));
    return {buffer, std::min(got, 0)};
}

// The answer of the library itself, whatever libavformat has in its buffer.
int readPacket(const AvInput& input)
{
    std::uint8_t byte = 0;
    return input.context()->read_packet(input.context()->opaque, &byte, 1);
}

std::int64_t seekBy(const AvInput& input, std::int64_t offset, int whence)
{
    return input.context()->seek(input.context()->opaque, offset, whence);
}

class AvInputTest : public ReaderTest
{
protected:
    static AvInputOptions waiting(unsigned growthWaitMs)
    {
        AvInputOptions options;
        options.growthWaitMs = growthWaitMs;
        return options;
    }
    // How often an input has waited a moment for growth.
    [[nodiscard]] std::size_t polls()
    {
        const auto events = os.threads().events();
        const auto waits = os.clock().waits();
        return static_cast<std::size_t>(
            std::count_if(waits.begin(), waits.end(), [&events](const fake::WaitRecord& wait) {
                return wait.timeoutMs != 0U && events.at(wait.event).name == "end of input";
            }));
    }
    void awaitPoll()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        const std::size_t before = polls();
        while (polls() == before && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
    }

    const Path path = L"/m/a.mov";
    const Path partial = L"/m/a.mov.partial";
};

}  // namespace

TEST_F(AvInputTest, AllBytesAreReadAndThenTheEndOfFile)
{
    const std::string bytes = addPattern(path, 1'000'000);
    const AvInput input(path);
    ASSERT_TRUE(input.isOpen()) << input.error().text;
    std::string got;
    for (Answer next = readSome(input, 33'333); next.error == 0; next = readSome(input, 33'333))
        got += next.bytes;
    EXPECT_TRUE(got == bytes);
    EXPECT_EQ(AVERROR_EOF, readSome(input, 1).error);
    EXPECT_FALSE(input.error());
}

TEST_F(AvInputTest, ASeekLeadsToAnyPlace)
{
    const std::string bytes = addPattern(path, 1'000'000);
    const AvInput input(path);
    std::mt19937 dice(5);
    for (int i = 0; i < 200; ++i) {
        const std::size_t place = dice() % bytes.size();
        ASSERT_EQ(static_cast<std::int64_t>(place),
                  avio_seek(input.context(), static_cast<std::int64_t>(place), SEEK_SET));
        const int length = static_cast<int>(1 + dice() % 100'000);
        ASSERT_TRUE(bytes.substr(place, static_cast<std::size_t>(length)) == readSome(input, length).bytes);
    }
}

TEST_F(AvInputTest, ASeekCountsFromTheStartThePlaceOrTheEnd)
{
    addPattern(path, 1000);
    const AvInput input(path);
    EXPECT_EQ(700, seekBy(input, 700, SEEK_SET));
    EXPECT_EQ(650, seekBy(input, -50, SEEK_CUR));
    EXPECT_EQ(650, seekBy(input, 0, SEEK_CUR | AVSEEK_FORCE));
    EXPECT_EQ(990, seekBy(input, -10, SEEK_END));
    EXPECT_EQ(5000, seekBy(input, 4000, SEEK_END));
    EXPECT_EQ(AVERROR(EINVAL), seekBy(input, -1, SEEK_SET));
    EXPECT_EQ(AVERROR(EINVAL), seekBy(input, std::numeric_limits<std::int64_t>::max(), SEEK_CUR));
    EXPECT_EQ(AVERROR(EINVAL), seekBy(input, 0, 99));
    EXPECT_EQ(5000, seekBy(input, 0, SEEK_CUR)) << "a refused seek leads nowhere";
}

TEST_F(AvInputTest, TheSizeIsThatOfTheMoment)
{
    addPattern(path, 1000);
    const AvInput input(path);
    EXPECT_EQ(1000, avio_size(input.context()));
    resize(path, 123'456);
    EXPECT_EQ(123'456, avio_size(input.context()));
    resize(path, 0);
    EXPECT_EQ(0, avio_size(input.context()));
}

TEST_F(AvInputTest, BehindTheEndIsTheEndOfFile)
{
    const std::string bytes = addPattern(path, 1000);
    const AvInput input(path);
    // A short way libavformat goes by reading, which ends at the end.
    EXPECT_EQ(AVERROR_EOF, avio_seek(input.context(), 5000, SEEK_SET));
    EXPECT_EQ(5'000'000, avio_seek(input.context(), 5'000'000, SEEK_SET));
    EXPECT_EQ(AVERROR_EOF, readSome(input, 10).error);
    EXPECT_EQ(990, avio_seek(input.context(), 990, SEEK_SET));
    EXPECT_EQ(bytes.substr(990), readSome(input, 100).bytes);
}

TEST_F(AvInputTest, AnEmptyFileIsItsEnd)
{
    os.files().addFile(path, "");
    const AvInput input(path);
    EXPECT_EQ(0, avio_size(input.context()));
    EXPECT_EQ(AVERROR_EOF, readSome(input, 10).error);
}

TEST_F(AvInputTest, ALinkIsReadAsItsTarget)
{
    const std::string bytes = addPattern(L"/m/far.mov", 3000);
    os.files().addFile(path, linkTo("/m/far.mov"));
    const AvInput input(path);
    EXPECT_EQ("/m/far.mov", input.name());
    EXPECT_EQ(3000, avio_size(input.context()));
    EXPECT_EQ(bytes, readSome(input, 5000).bytes);
}

TEST_F(AvInputTest, AFileThatHasGrownIsReadOnAfterItsEnd)
{
    const std::string bytes = patternOf(100'000);
    os.files().addFile(path, bytes.substr(0, 1000));
    const AvInput input(path);
    EXPECT_EQ(bytes.substr(0, 1000), readSome(input, 2000).bytes);
    EXPECT_EQ(AVERROR_EOF, readSome(input, 1).error);
    write(path, 1000, bytes.substr(1000));
    const Answer first = readSome(input, 1);
    EXPECT_EQ(0, first.error);
    EXPECT_EQ("", first.bytes) << "libavformat has only found out that there is more";
    EXPECT_TRUE(bytes.substr(1000) == readSome(input, 100'000).bytes);
}

TEST_F(AvInputTest, AReadAtTheEndWaitsForGrowth)
{
    const std::string bytes = patternOf(100'000);
    os.files().addFile(path, bytes.substr(0, 1000));
    const AvInput input(path, waiting(forEver));
    EXPECT_EQ(1000U, readSome(input, 1000).bytes.size());
    std::thread recorder([&] {
        awaitPoll();
        write(path, 1000, bytes.substr(1000));
    });
    EXPECT_TRUE(bytes.substr(1000) == readSome(input, 99'000).bytes);
    recorder.join();
}

TEST_F(AvInputTest, GrowthThatDoesNotReachThePlaceIsWaitedOn)
{
    const std::string bytes = patternOf(10'000);
    os.files().addFile(path, bytes.substr(0, 1000));
    const AvInput input(path, waiting(forEver));
    std::thread recorder([&] {
        awaitPoll();
        write(path, 1000, bytes.substr(1000, 1000));
        awaitPoll();
        write(path, 2000, bytes.substr(2000));
    });
    EXPECT_EQ(5000, seekBy(input, 5000, SEEK_SET));
    EXPECT_EQ(1, readPacket(input));
    recorder.join();
}

TEST_F(AvInputTest, TheWaitBeginsAnewWithAllGrowth)
{
    const std::string bytes = patternOf(10'000);
    os.files().addFile(path, bytes.substr(0, 1000));
    const AvInput input(path, waiting(1'000'000));
    EXPECT_EQ(5000, seekBy(input, 5000, SEEK_SET));
    int got = 0;
    std::thread player([&] { got = readPacket(input); });
    awaitPoll();
    os.clock().advance(600'000);
    write(path, 1000, bytes.substr(1000, 1000));
    // The second of them began when the file had grown.
    awaitPoll();
    awaitPoll();
    os.clock().advance(600'000);
    awaitPoll();
    awaitPoll();
    write(path, 2000, bytes.substr(2000));
    player.join();
    EXPECT_EQ(1, got);
}

TEST_F(AvInputTest, AFileThatRestsIsWaitedForOnceUntilItGrows)
{
    const std::string bytes = patternOf(5000);
    os.files().addFile(path, bytes.substr(0, 1000));
    const AvInput input(path, waiting(50));
    EXPECT_EQ(1000U, readSome(input, 2000).bytes.size());
    EXPECT_EQ(AVERROR_EOF, readSome(input, 10).error);
    const std::size_t waits = polls();
    EXPECT_LT(0U, waits);
    EXPECT_NE(0, avio_feof(input.context()));
    EXPECT_EQ(waits, polls());
    write(path, 1000, bytes.substr(1000));
    EXPECT_EQ(0, avio_feof(input.context()));
    EXPECT_EQ(bytes.substr(1000), readSome(input, 4000).bytes);
    EXPECT_EQ(AVERROR_EOF, readSome(input, 10).error);
    EXPECT_LT(waits, polls());
}

TEST_F(AvInputTest, AWaitEndsWithTheRecording)
{
    const std::string bytes = addPattern(partial, 1000);
    const AvInput input(partial, waiting(forEver));
    EXPECT_EQ(bytes, readSome(input, 1000).bytes);
    std::thread recorder([&] {
        awaitPoll();
        os.files().renameFile(partial, path);
    });
    EXPECT_EQ(AVERROR_EOF, readSome(input, 10).error);
    recorder.join();
    EXPECT_FALSE(input.error());
}

TEST_F(AvInputTest, ARecordingWhoseHeadIsRewrittenIsReadToItsEndUnderItsFinalName)
{
    const std::string bytes = patternOf(2 * MediaWriter::blockBytes + 77);
    MediaWriter writer(path);
    ASSERT_TRUE(writer.write(std::as_bytes(std::span(bytes))));
    ASSERT_TRUE(writer.flush());
    AvInputOptions options;
    options.readAheadBytes = 0;
    const AvInput input(partial, options);
    std::string got = readSome(input, 1'000'000).bytes;
    os.clock().sleep(20);  // the file's times go on
    EXPECT_TRUE(writer.rewrite(0, std::as_bytes(std::span(bytes).first(99))));
    EXPECT_TRUE(writer.finish().complete);
    for (Answer next = readSome(input, 99'999); next.error == 0; next = readSome(input, 99'999))
        got += next.bytes;
    EXPECT_FALSE(input.error()) << input.error().text;
    EXPECT_EQ("/m/a.mov", input.name());
    EXPECT_TRUE(got == bytes) << got.size();
}

TEST_F(AvInputTest, StopEndsAWaitAndAllReadsAfterIt)
{
    addPattern(path, 1000);
    AvInput input(path, waiting(forEver));
    EXPECT_EQ(1000U, readSome(input, 1000).bytes.size());
    std::thread user([&] {
        awaitPoll();
        input.stop();
    });
    EXPECT_EQ(AVERROR_EXIT, readSome(input, 10).error);
    user.join();
    EXPECT_EQ(0, seekBy(input, 0, SEEK_SET));
    EXPECT_EQ(AVERROR_EXIT, readPacket(input));
}

TEST_F(AvInputTest, AFileThatVanishesIsAnErrorWithASentence)
{
    addPattern(path, 1'000'000);
    AvInputOptions options;
    options.readAheadBytes = 0;
    const AvInput input(path, options);
    readSome(input, 1000);
    os.files().remove(path);
    avio_seek(input.context(), 500'000, SEEK_SET);
    EXPECT_EQ(AVERROR(ESTALE), readSome(input, 1000).error);
    EXPECT_EQ(MediaErrorCode::fileVanished, input.error().code);
    EXPECT_NE(std::string::npos, input.error().text.find("/m/a.mov"));
}

TEST_F(AvInputTest, ARecordingThatIsRemovedEndsAWaitAndIsNoEndOfFile)
{
    const std::string bytes = addPattern(partial, 1000);
    const AvInput input(partial, waiting(forEver));
    EXPECT_EQ(bytes, readSome(input, 1000).bytes);
    std::thread recorder([&] {
        awaitPoll();
        os.files().remove(partial);
    });
    const int error = readSome(input, 10).error;
    recorder.join();
    EXPECT_EQ(AVERROR_EOF, error) << "of what there was of it";
    EXPECT_EQ(0, seekBy(input, 0, SEEK_SET));
    EXPECT_EQ(AVERROR(ESTALE), readPacket(input));
}

TEST_F(AvInputTest, ADiskThatFailsIsAnError)
{
    const std::string bytes = addPattern(path, 1'000'000);
    AvInputOptions options;
    options.readAheadBytes = 0;
    const AvInput input(path, options);
    os.faults().failAlways(fake::Op::completion, errorFromErrno(EIO));
    EXPECT_EQ(AVERROR(EIO), readSome(input, 1000).error);
    EXPECT_EQ(MediaErrorCode::readFailed, input.error().code);
    os.faults().clear();
    avio_seek(input.context(), 0, SEEK_SET);
    input.context()->error = 0;
    EXPECT_EQ(bytes.substr(0, 1000), readSome(input, 1000).bytes);
}

TEST_F(AvInputTest, WhatCannotBeOpenedHasNoContextAndSaysWhy)
{
    const AvInput none(L"/m/none.mov");
    EXPECT_FALSE(none.isOpen());
    EXPECT_EQ(nullptr, none.context());
    EXPECT_EQ(MediaErrorCode::notFound, none.error().code);
    addPattern(path, 1000);
    AvInputOptions options;
    options.bufferBytes = 0;
    const AvInput without(path, options);
    EXPECT_FALSE(without.isOpen());
    EXPECT_EQ(MediaErrorCode::invalidArgument, without.error().code);
    EXPECT_EQ(MediaErrorCode::unknownClip, AvInput(Cookie::makeNew(), DecodeFormat(eHighRes)).error().code);
}

TEST(AvError, EveryErrorHasACodeOfItsKind)
{
    EXPECT_EQ(0, avErrorOf(MediaErrorCode::none));
    EXPECT_EQ(AVERROR_EOF, avErrorOf(MediaErrorCode::beyondEnd));
    EXPECT_EQ(AVERROR_EXIT, avErrorOf(MediaErrorCode::cancelled));
    EXPECT_EQ(AVERROR(ENOSPC), avErrorOf(MediaErrorCode::diskFull));
    EXPECT_EQ(AVERROR(ENODEV), avErrorOf(MediaErrorCode::offline));
    EXPECT_EQ(AVERROR(ENOENT), avErrorOf(MediaErrorCode::unknownClip));
    EXPECT_EQ(AVERROR(EIO), avErrorOf(MediaErrorCode::fileShrank));
    for (auto code = 1U; code <= static_cast<unsigned>(MediaErrorCode::renameFailed); ++code)
        EXPECT_GT(0, avErrorOf(static_cast<MediaErrorCode>(code))) << code;
}
