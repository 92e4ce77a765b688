// Recordings on the real platform: real files, real threads, whichever backend the environment chooses. With
// TMPDIR they go to the disk that it names.

#include "RecordingHelpers.h"
#include "common/TemporaryFolder.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class MediaWriterOnLinux : public testing::Test
{
protected:
    MediaWriterOnLinux() { FsysInitialize(); }
    ~MediaWriterOnLinux() override { FsysUninitialize(Shutdown::eNormalExit); }

    [[nodiscard]] LightweightString<wchar_t> file(const std::string& name) const
    {
        return wide(folder / name);
    }
    // Writes all and finishes.
    MediaRecording record(const std::string& name, const RandomWrites& writes, std::size_t flushEvery = 0)
    {
        MediaWriterOptions options;
        options.hash = true;
        options.bytesInFlight = 4 * mebibyte;
        MediaWriter writer(file(name), options);
        EXPECT_TRUE(writer.isOpen()) << writer.error().text;
        for (std::size_t i = 0; i < writes.count(); ++i) {
            EXPECT_TRUE(writer.write(writes[i])) << writer.error().text;
            const bool flushes = flushEvery != 0 && i % flushEvery == 0;
            EXPECT_TRUE(!flushes || writer.flush()) << writer.error().text;
        }
        return writer.finish();
    }

    TemporaryFolder folder;
};

// What the tool prints in front of the name; empty when there is no such tool.
std::string hashByTool(const std::string& path)
{
    const std::string command = "xxhsum -H2 '" + path + "' 2>/dev/null";
    FILE* const tool = ::popen(command.c_str(), "r");
    if (!tool)
        return {};
    std::array<char, 33> text{};
    const bool answered = std::fgets(text.data(), text.size(), tool) != nullptr;
    while (std::fgetc(tool) != EOF) {
    }
    return ::pclose(tool) == 0 && answered ? std::string(text.data()) : std::string();
}

constexpr const char* againVariable = "FSYS_TEST_AGAIN";

bool isAgain() { return std::getenv(againVariable) != nullptr; }

// Runs the present test again, in a process of its own that prepare has changed; its exit status.
int runAgain(const std::function<void()>& prepare)
{
    const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + '.' + test->name();
    const pid_t child = ::fork();
    if (child == 0) {
        prepare();
        ::setenv(againVariable, "1", 1);
        ::execl("/proc/self/exe", "media_tests", filter.c_str(), nullptr);
        ::_exit(127);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST_F(MediaWriterOnLinux, AThousandWritesOfRandomSizesAreExact)
{
    const RandomWrites writes(101, 1000, 150'000);
    const MediaRecording recorded = record("shot.mov", writes);
    EXPECT_TRUE(recorded.complete) << recorded.error.text;
    EXPECT_EQ(writes.all().size(), recorded.bytes);
    EXPECT_TRUE(contentsOf(folder / "shot.mov") == writes.all());
    EXPECT_FALSE(std::filesystem::exists(folder / "shot.mov.partial"));
}

TEST_F(MediaWriterOnLinux, EverySizeUpToThreeSectorsIsExact)
{
    for (std::size_t size = 0; size <= std::size_t{3} * 512;
         size += (size % 512 > 3 && size % 512 < 500) ? 61 : 1) {
        const std::string all = noise(size, static_cast<unsigned>(size));
        MediaWriter writer(file("small.mov"));
        ASSERT_TRUE(writer.write(bytesOf(all)));
        ASSERT_TRUE(writer.finish().complete) << size;
        ASSERT_TRUE(contentsOf(folder / "small.mov") == all) << size;
        std::filesystem::remove(folder / "small.mov");
    }
}

TEST_F(MediaWriterOnLinux, SizesAroundTheLimitsOfEngineAndBlocksAreExact)
{
    for (const std::size_t limit : {std::size_t{131072}, std::size_t{524288}, mebibyte, 8 * mebibyte})
        for (const std::size_t size : {limit - 512, limit - 1, limit, limit + 1, limit + 513}) {
            const std::string all = noise(size, static_cast<unsigned>(size));
            MediaWriter writer(file("shot.mov"));
            ASSERT_TRUE(writer.write(bytesOf(all)));
            ASSERT_TRUE(writer.finish().complete) << size;
            ASSERT_TRUE(contentsOf(folder / "shot.mov") == all) << size;
            std::filesystem::remove(folder / "shot.mov");
        }
}

TEST_F(MediaWriterOnLinux, AppendsAfterFlushesAreExact)
{
    // A flush writes the beginning of a block through the page cache, and the block follows unbuffered.
    const RandomWrites writes(103, 120, 700'000);
    EXPECT_TRUE(record("shot.mov", writes, 3).complete);
    EXPECT_TRUE(contentsOf(folder / "shot.mov") == writes.all());
}

TEST_F(MediaWriterOnLinux, SeveralWritersOnThreadsOfTheirOwnAreExact)
{
    constexpr unsigned streams = 4;
    std::vector<std::unique_ptr<RandomWrites>> writes;
    for (unsigned i = 0; i < streams; ++i)
        writes.push_back(std::make_unique<RandomWrites>(110 + i, 150, 300'000));
    std::vector<std::thread> threads;
    std::atomic<unsigned> complete{0};
    for (unsigned i = 0; i < streams; ++i)
        threads.emplace_back(
            [&, i] { complete += record(std::to_string(i) + ".mov", *writes[i], 40).complete ? 1U : 0U; });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(streams, complete);
    for (unsigned i = 0; i < streams; ++i)
        EXPECT_TRUE(contentsOf(folder / (std::to_string(i) + ".mov")) == writes[i]->all()) << i;
}

TEST_F(MediaWriterOnLinux, CountersAndErrorMayBeAskedFromOtherThreads)
{
    const RandomWrites writes(120, 200, 100'000);
    MediaWriter writer(file("shot.mov"));
    std::atomic<bool> done{false};
    std::thread asking([&] {
        std::uint64_t bytes = 0;
        while (!done) {
            const MediaWriter::Counters now = writer.counters();
            EXPECT_LE(bytes, now.bytes);
            EXPECT_LE(now.bytesOnDisk, writes.all().size());
            bytes = now.bytes;
            EXPECT_FALSE(writer.error());
        }
    });
    for (std::size_t i = 0; i < writes.count(); ++i)
        EXPECT_TRUE(writer.write(writes[i]));
    EXPECT_TRUE(writer.finish().complete);
    done = true;
    asking.join();
    EXPECT_EQ(writes.all().size(), writer.counters().bytesOnDisk);
}

TEST_F(MediaWriterOnLinux, TheHashIsTheOneThatTheToolPrints)
{
    const MediaRecording recorded = record("shot.mov", RandomWrites(130, 50, 200'000));
    const std::string printed = hashByTool(folder / "shot.mov");
    if (printed.empty())
        GTEST_SKIP() << "there is no xxhsum";
    EXPECT_EQ(printed, recorded.hash);
}

TEST_F(MediaWriterOnLinux, AtTheLargestFileThatIsAllowedTheWholeWritesAreKept)
{
    constexpr std::size_t limit = 1'536'000;
    if (!isAgain()) {
        EXPECT_EQ(0, runAgain([] {
                      ::signal(SIGXFSZ, SIG_IGN);
                      const struct rlimit most = {limit, limit};
                      ::setrlimit(RLIMIT_FSIZE, &most);
                  }));
        return;
    }
    const std::string all = noise(4 * mebibyte);
    MediaWriter writer(file("shot.mov"));
    for (std::size_t at = 0; at < all.size() && writer.write(bytesOf(all).subspan(at, 65'536));
         at += 65'536) {
    }
    const MediaRecording recorded = writer.finish();
    EXPECT_EQ(MediaErrorCode::diskFull, recorded.error.code);
    EXPECT_TRUE(recorded.hasFinalName);
    EXPECT_EQ(limit / 65'536 * 65'536, recorded.bytes);
    EXPECT_TRUE(contentsOf(folder / "shot.mov") == all.substr(0, recorded.bytes));
}

TEST_F(MediaWriterOnLinux, WithTheKeyThatGathersEverywhereItIsExactAsWell)
{
    // The key is read when the library is loaded.
    if (!isAgain()) {
        EXPECT_EQ(0, runAgain([] { ::setenv("FSYS_CFG_AlwaysUseWriteCache", "1", 1); }));
        return;
    }
    FsysSetNetworkWriteCaching(true);
    const RandomWrites writes(140, 200, 100'000);
    EXPECT_TRUE(record("shot.mov", writes).complete);
    FsysSetNetworkWriteCaching(false);
    EXPECT_TRUE(contentsOf(folder / "shot.mov") == writes.all());
}
