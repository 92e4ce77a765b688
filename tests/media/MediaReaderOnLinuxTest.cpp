// Readers on the real platform, by whichever backend the environment chooses, and many threads at once.

#include "MediaReaderFixture.h"
#include "common/TemporaryFolder.h"

#include <atomic>
#include <filesystem>

using namespace readertest;
namespace fs = std::filesystem;

namespace {

class MediaReaderOnLinux : public testing::Test
{
protected:
    MediaReaderOnLinux() { FsysInitialize(); }
    ~MediaReaderOnLinux() override { FsysUninitialize(Shutdown::eNormalExit); }

    TemporaryFolder folder;
};

class MediaReaderThreads : public ReaderTest
{
};

// Reads random ranges of a file that holds bytes, in every way that there is.
void readAtRandom(MediaReader& reader, const std::string& bytes, unsigned seed, unsigned rounds)
{
    std::mt19937 dice(seed);
    Answers answers;
    std::vector<std::pair<std::size_t, std::future<MediaReadResult>>> futures;
    std::size_t asked = 0;
    for (unsigned i = 0; i < rounds; ++i) {
        const std::size_t offset = dice() % bytes.size();
        const std::size_t length = 1 + dice() % 30'000;
        switch (dice() % 4) {
        case 0: {
            const Got got = readOf(reader, offset, length);
            EXPECT_TRUE(bytes.substr(offset, length) == got.bytes);
            break;
        }
        case 1:
            futures.emplace_back(offset, reader.readAsync(offset, length));
            break;
        case 2:
            reader.readAsync(offset, length, answers.at(offset));
            ++asked;
            break;
        default:
            if (const auto ticket = reader.readAsync(offset, length, answers.at(offset)); i % 2 == 0)
                reader.cancel(ticket);
            ++asked;
        }
    }
    for (auto& [offset, future] : futures) {
        const MediaReadResult result = future.get();
        EXPECT_FALSE(result.error) << result.error.text;
        EXPECT_TRUE(bytes.compare(offset, result.data.size(), textOf(result.data.bytes())) == 0);
    }
    const auto all = answers.await(asked);
    EXPECT_EQ(asked, all.size());
    for (const auto& answer : all) {
        EXPECT_TRUE(answer.code == MediaErrorCode::none || answer.code == MediaErrorCode::cancelled);
        EXPECT_TRUE(bytes.compare(answer.offset, answer.bytes.size(), answer.bytes) == 0);
    }
}

void readOnManyThreads(MediaReader& reader, const std::string& bytes)
{
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 6; ++seed)
        threads.emplace_back([&, seed] { readAtRandom(reader, bytes, seed, 60); });
    threads.emplace_back([&reader] {
        for (int i = 0; i < 50; ++i) {
            reader.setReadAhead(i % 3 == 0 ? 0 : 1 << 20);
            (void)reader.counters();
            (void)reader.size();
            std::this_thread::yield();
        }
    });
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace

TEST_F(MediaReaderOnLinux, EveryFileOfUpToThreeSectorsIsReadAtEveryInterestingPlace)
{
    for (std::size_t size = 0; size <= 3 * 512; size += size % 512 < 4 || size % 512 > 508 ? 1 : 63) {
        if (size == 512)
            continue;  // would be a link
        const std::string bytes = patternOf(size);
        MediaReader reader(wide(folder.file("a.mov", bytes)));
        ASSERT_TRUE(reader.isOpen()) << reader.openError().text;
        ASSERT_EQ(size, reader.size());
        ASSERT_EQ(bytes, readOf(reader, 0, size + 1).bytes);
        for (const std::size_t offset : {std::size_t{1}, size / 2, std::size_t{511}, std::size_t{512}})
            if (offset < size) {
                ASSERT_EQ(bytes.substr(offset, 600), readOf(reader, offset, 600).bytes);
            }
        ASSERT_EQ(MediaErrorCode::beyondEnd, readOf(reader, size, 1).code);
    }
}

TEST_F(MediaReaderOnLinux, SizesAroundTheEnginesBlocksAreReadWhole)
{
    for (const std::size_t block : {std::size_t{131072}, std::size_t{524288}}) {
        for (const std::size_t size : {block - 1, block, block + 1}) {
            const std::string bytes = patternOf(size);
            MediaReader reader(wide(folder.file("a.mov", bytes)));
            ASSERT_TRUE(bytes == readOf(reader, 0, size).bytes) << size;
            ASSERT_TRUE(bytes.substr(7) == textOf(reader.readAsync(7, size).get().data.bytes())) << size;
        }
    }
}

TEST_F(MediaReaderOnLinux, ALinkIsFollowedAsAWhole)
{
    const std::string bytes = patternOf(99'999);
    const std::string far = folder.file("far.mov", bytes);
    const Path link = wide(folder.file("a.mov", linkTo(far)));
    MediaReader reader(link);
    EXPECT_EQ(wide(far), reader.target());
    EXPECT_EQ(bytes.size(), reader.size());
    EXPECT_TRUE(bytes == readOf(reader, 0, 200'000).bytes);
}

TEST_F(MediaReaderOnLinux, WhatIsNoFileSaysSo)
{
    EXPECT_EQ(MediaErrorCode::notFound, MediaReader(wide(folder / "none.mov")).openError().code);
    EXPECT_EQ(MediaErrorCode::notAFile, MediaReader(wide(folder.path())).openError().code);
    EXPECT_EQ(MediaErrorCode::notAFile, MediaReader(L"/dev/null").openError().code);
    EXPECT_EQ(MediaErrorCode::offline,
              MediaReader(wide(folder.file("a.mov", linkTo(folder / "none.mov")))).openError().code);
}

TEST_F(MediaReaderOnLinux, FilesThatChangeSaySo)
{
    const std::string bytes = patternOf(300'000);
    const std::string path = folder.file("a.mov", bytes);
    MediaReader reader(wide(path));
    fs::resize_file(path, 1000);
    EXPECT_EQ(bytes.substr(0, 1000), readOf(reader, 0, 5000).bytes);
    EXPECT_EQ(MediaErrorCode::beyondEnd, readOf(reader, 1000, 1).code);
    std::ofstream(path, std::ios::binary | std::ios::app) << "more";
    EXPECT_EQ(bytes.substr(990, 10) + "more", readOf(reader, 990, 100).bytes);
    const std::string other = folder.file("b.mov", bytes);
    fs::rename(other, path);
    EXPECT_EQ(MediaErrorCode::fileVanished, readOf(reader, 0, 10).code);
    MediaReader again(wide(path));
    fs::remove(path);
    EXPECT_EQ(MediaErrorCode::fileVanished, again.readAsync(0, 10).get().error.code);
}

TEST_F(MediaReaderOnLinux, AFileThatIsRecordedIsReadAsItGrows)
{
    const std::string bytes = patternOf(2'000'000);
    const std::string path = folder.file("a.mov");
    std::thread recorder([&] {
        std::ofstream stream(path, std::ios::binary | std::ios::app);
        for (std::size_t at = 0; at < bytes.size(); at += 10'007)
            stream << bytes.substr(at, 10'007) << std::flush;
    });
    MediaReader reader(wide(path));
    reader.setReadAhead(1 << 20);
    std::string got;
    while (got.size() < bytes.size()) {
        const Got next = readOf(reader, got.size(), 33'333);
        if (next.code == MediaErrorCode::beyondEnd)
            continue;
        // The size that the recorder passed through on its way is no multiple of anything.
        ASSERT_EQ(MediaErrorCode::none, next.code);
        got += next.bytes;
        ASSERT_TRUE(bytes.compare(got.size() - next.bytes.size(), next.bytes.size(), next.bytes) == 0);
    }
    recorder.join();
}

TEST_F(MediaReaderOnLinux, ALargeFileIsReadSequentiallyWithAndWithoutReadAhead)
{
    const std::string bytes = patternOf(24'000'000);
    const Path path = wide(folder.file("a.mov", bytes));
    for (const std::uint64_t ahead : {0U, 4U << 20, 64U << 20}) {
        MediaReader reader(path);
        reader.setReadAhead(ahead);
        for (std::size_t at = 0; at < bytes.size(); at += 700'001)
            ASSERT_TRUE(bytes.compare(at, 700'001, readOf(reader, at, 700'001).bytes) == 0) << at;
        const auto counters = reader.counters();
        EXPECT_EQ(bytes.size(), counters.bytes);
        EXPECT_EQ(counters.requests, counters.waits + counters.cacheAnswers);
    }
}

TEST_F(MediaReaderOnLinux, ManyThreadsReadAtOnce)
{
    const std::string bytes = patternOf(3'000'000);
    MediaReader reader(wide(folder.file("a.mov", bytes)));
    readOnManyThreads(reader, bytes);
}

TEST_F(MediaReaderOnLinux, ManyReadersComeAndGo)
{
    const std::string bytes = patternOf(1'000'000);
    const Path path = wide(folder.file("a.mov", bytes));
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        threads.emplace_back([&, seed] {
            for (unsigned i = 0; i < 10; ++i) {
                MediaReader reader(path);
                reader.setReadAhead(i % 2 == 0 ? 1 << 20 : 0);
                readAtRandom(reader, bytes, seed * 100 + i, 10);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(MediaReaderThreads, ManyThreadsReadAtOnce)
{
    const std::string bytes = addPattern(L"/m/a.mov", 3'000'000);
    MediaReader reader(L"/m/a.mov");
    readOnManyThreads(reader, bytes);
}

TEST_F(MediaReaderThreads, ManyThreadsReadWhileTransfersFail)
{
    const std::string bytes = addPattern(L"/m/a.mov", 3'000'000);
    MediaReader reader(L"/m/a.mov");
    std::atomic<unsigned> failed{0};
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        threads.emplace_back([&, seed] {
            std::mt19937 dice(seed);
            for (int i = 0; i < 60; ++i) {
                const std::size_t offset = dice() % 2'900'000;
                if (i % 8 == 0)
                    os.faults().failNext(fake::Op::completion, errorFromErrno(EIO), 3);
                const Got got = readOf(reader, offset, 3000);
                failed += got.code == MediaErrorCode::none ? 0U : 1U;
                EXPECT_TRUE(bytes.compare(offset, got.bytes.size(), got.bytes) == 0);
                EXPECT_TRUE(got.code == MediaErrorCode::readFailed || got.bytes.size() == 3000);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_LT(0U, os.faults().fired());
    os.faults().clear();
    EXPECT_TRUE(bytes == readOf(reader, 0, bytes.size()).bytes);
}

TEST_F(MediaReaderThreads, ReadsAreCancelledWhileTheyAreMade)
{
    const std::string bytes = addPattern(L"/m/a.mov", 3'000'000);
    std::atomic<unsigned> ends{0};
    {
        MediaReader reader(L"/m/a.mov");
        std::atomic<bool> asking{true};
        std::thread canceller([&] {
            while (asking)
                (void)reader.cancelAll();
        });
        for (std::uint64_t i = 0; i < 300; ++i)
            reader.readAsync(i * 1000, 900, [&](const MediaReadResult& result) {
                EXPECT_TRUE(result.error.code == MediaErrorCode::none ||
                            result.error.code == MediaErrorCode::cancelled);
                ++ends;
            });
        asking = false;
        canceller.join();
    }
    EXPECT_EQ(300U, ends);
}
