#include "CompletionRecorder.h"
#include "RefusedCall.h"
#include "common/TemporaryFolder.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/SubmissionBatch.h"
#include "os/linux/BackendSelect.h"
#include "os/linux/CacheGuess.h"
#include "os/linux/LinuxAsyncContext.h"
#include "os/linux/LinuxFile.h"
#include "os/linux/PortState.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t block = std::size_t{64} * 1024;
constexpr std::size_t blocks = 16;

// Bytes that tell their place.
std::string contents(std::size_t bytes)
{
    std::string text(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i)
        text[i] = static_cast<char>('a' + (i / 7 + i / 4096) % 23);
    return text;
}

constexpr std::size_t half = blocks * block / 2;

bool isCached(int fd, std::size_t position)
{
    char byte = 0;
    const iovec piece = {&byte, 1};
    return preadv2(fd, &piece, 1, static_cast<off_t>(position), RWF_NOWAIT) == 1;
}

bool tryToLeaveInCache(const std::string& path, const std::size_t* halfAt)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::string kept(half, '\0');
    bool left = fsync(fd) == 0 && posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED) == 0 &&
                posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM) == 0;
    if (halfAt)
        left =
            left && pread(fd, kept.data(), half, static_cast<off_t>(*halfAt)) == static_cast<ssize_t>(half);
    for (std::size_t i = 0; i < blocks; ++i) {
        const bool wanted = halfAt && i * block >= *halfAt && i * block < *halfAt + half;
        left = left && isCached(fd, i * block + block / 2) == wanted;
    }
    ::close(fd);
    return left;
}

// Leaves only the given half of the file in the page cache, or nothing of it; false where the system keeps
// more, as file systems of memory alone do. Pages in somebody else's hands cannot be dropped at that moment.
bool leaveInCache(const std::string& path, const std::size_t* halfAt)
{
    for (int i = 0; i < 200; ++i) {
        if (tryToLeaveInCache(path, halfAt))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

// Reads through the page cache that are long enough for a port's threads to share their copies.
class SharedCopies : public testing::Test
{
protected:
    void SetUp() override
    {
        const BackendChoice& choice = backendChoice();
        if (choice.text.find("cannot be used") != std::string::npos)
            GTEST_SKIP() << choice.text;
        port_ = makePort(recorder_);
        file_ = openAttached(port_, path_);
    }
    void TearDown() override
    {
        if (port_)
            port_->shutDown();
    }
    static Qz::Ptr<PortState> makePort(CompletionRecorder& recorder, unsigned threads = 3)
    {
        const Qz::Ptr<PortState> port(new PortState(IoBackend::uring, "copies", recorder.command(), threads));
        port->start();
        return port;
    }
    static Qz::Ptr<iFile> openAttached(const Qz::Ptr<PortState>& port, const std::string& path)
    {
        const Qz::Ptr<iFile> file =
            openLinuxFile(path, os::accessReadWrite, os::creationOpen, os::modeAsync, nullptr);
        EXPECT_TRUE(dynamic_cast<LinuxFile&>(*file).attachTo(port));
        return file;
    }
    static bool startRead(const Qz::Ptr<iFile>& file, std::string& buffer, std::size_t position)
    {
        return file->asyncRead(position, buffer.data(), buffer.size(), createLinuxAsyncContext(&buffer));
    }
    // Starts a read of each block together, into buffers_.
    void startAll()
    {
        const os::SubmissionBatch together;
        for (std::size_t i = 0; i < blocks; ++i)
            ASSERT_TRUE(startRead(file_, buffers_[i], i * block));
    }
    void expectAll()
    {
        for (std::size_t i = 0; i < blocks; ++i)
            EXPECT_EQ(buffers_[i], text_.substr(i * block, block)) << "block " << i;
    }
    static void expectSuccess(const std::vector<CompletionRecorder::Completion>& completions,
                              std::size_t count)
    {
        EXPECT_EQ(completions.size(), count);
        for (const CompletionRecorder::Completion& completion : completions) {
            EXPECT_TRUE(completion.succeeded);
            EXPECT_EQ(completion.bytes, block);
        }
    }

    TemporaryFolder folder_;
    const std::string text_ = contents(blocks * block);
    const std::string path_ = folder_.file("f", text_);
    std::vector<std::string> buffers_{blocks, std::string(block, 'z')};
    CompletionRecorder recorder_;
    Qz::Ptr<PortState> port_;
    Qz::Ptr<iFile> file_;
};

}  // namespace

// A thread that may not enter the ring finds out who reads.
TEST_F(SharedCopies, AreMadeByAThreadOfThePort)
{
    std::string small(512, 'z');
    ASSERT_TRUE(runRefused(SYS_io_uring_enter, [&] {
        startAll();
        expectSuccess(recorder_.await(blocks), blocks);
        ASSERT_TRUE(startRead(file_, small, 0));
    }));
    expectAll();
    const auto completions = recorder_.await(blocks + 1);
    ASSERT_EQ(completions.size(), blocks + 1);
    // Short reads are copied where they are started: the ring was asked, and could not be.
    EXPECT_FALSE(completions[blocks].succeeded);
    EXPECT_EQ(completions[blocks].lastError, errorFromErrno(EPERM));
}

TEST_F(SharedCopies, AReadThatIsHalfInTheCacheBringsAllItsBytes)
{
    for (const std::size_t cached : {std::size_t{0}, half}) {
        if (!leaveInCache(path_, &cached))
            GTEST_SKIP() << "the page cache keeps what it wants";
        std::string buffer(blocks * block, 'z');
        const std::size_t before = recorder_.count();
        ASSERT_TRUE(startRead(openAttached(port_, path_), buffer, 0));
        const auto completions = recorder_.await(before + 1);
        ASSERT_EQ(completions.size(), before + 1);
        EXPECT_TRUE(completions[before].succeeded);
        EXPECT_EQ(completions[before].bytes, blocks * block);
        EXPECT_TRUE(buffer == text_);
    }
}

TEST_F(SharedCopies, ReadsOfAFileThatIsNotInTheCacheBringTheirBytes)
{
    for (std::size_t round = 1; round <= 4; ++round) {
        if (!leaveInCache(path_, nullptr))
            GTEST_SKIP() << "the page cache keeps what it wants";
        startAll();
        expectSuccess(recorder_.await(round * blocks), round * blocks);
        expectAll();
    }
}

TEST_F(SharedCopies, EndAtTheEndOfTheFile)
{
    std::string across(text_.size(), 'z');
    std::string behind(text_.size(), 'z');
    ASSERT_TRUE(startRead(file_, across, text_.size() - 100));
    ASSERT_TRUE(startRead(file_, behind, text_.size()));
    for (const CompletionRecorder::Completion& completion : recorder_.await(2)) {
        EXPECT_TRUE(completion.succeeded);
        EXPECT_EQ(completion.bytes, completion.owner == &across ? 100U : 0U);
    }
    EXPECT_TRUE(across == text_.substr(text_.size() - 100) + std::string(text_.size() - 100, '\0'));
    EXPECT_TRUE(behind == std::string(text_.size(), '\0'));
}

// Wherever the cut meets a read: what it counts is the file's, what lies behind is zero.
TEST_F(SharedCopies, OfAFileThatShrinksBringItsBytesOrZeros)
{
    constexpr std::size_t kept = half + 1000;
    std::size_t before = 0;
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(file_->write(0, text_.data(), text_.size(), nullptr));
        std::thread cutter([&] { EXPECT_TRUE(file_->setSize(kept)); });
        startAll();
        cutter.join();
        const auto completions = recorder_.await(before + blocks);
        ASSERT_EQ(completions.size(), before + blocks);
        for (; before < completions.size(); ++before) {
            const CompletionRecorder::Completion& completion = completions[before];
            const auto& buffer = *static_cast<std::string*>(completion.owner);
            const auto index = static_cast<std::size_t>(&buffer - buffers_.data());
            EXPECT_TRUE(completion.succeeded);
            EXPECT_GE(index * block + completion.bytes, std::min(kept, (index + 1) * block));
            // A copy under way may see the zeroes that the cut leaves in the page across it.
            for (std::size_t i = 0; i < block; ++i) {
                const char here = buffer[i];
                const bool counted = i < completion.bytes;
                ASSERT_TRUE((counted && here == text_[index * block + i]) ||
                            ((!counted || index * block + i >= kept) && here == '\0'));
            }
        }
    }
}

TEST_F(SharedCopies, OfAFileThatIsClosedMeanwhileAreCompleted)
{
    {
        const os::SubmissionBatch together;
        startAll();
        file_->close();
        std::string more(block, 'z');
        EXPECT_FALSE(startRead(file_, more, 0));
        file_.reset();
    }
    expectSuccess(recorder_.await(blocks), blocks);
    expectAll();
}

TEST_F(SharedCopies, AreReportedBeforeTheirPortEnds)
{
    {
        const os::SubmissionBatch together;
        startAll();
        port_->shutDown();
        expectSuccess(recorder_.await(0), blocks);
        EXPECT_FALSE(startRead(file_, buffers_[0], 0));
    }
    expectAll();
}

TEST_F(SharedCopies, IntoMemoryThatIsNotThereFail)
{
    void* const nowhere = mmap(nullptr, text_.size(), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(nowhere, MAP_FAILED);
    ASSERT_TRUE(file_->asyncRead(0, nowhere, text_.size(), createLinuxAsyncContext(nullptr)));
    const auto completions = recorder_.await(1);
    ASSERT_EQ(completions.size(), 1U);
    EXPECT_FALSE(completions[0].succeeded);
    EXPECT_EQ(completions[0].lastError, errorFromErrno(EFAULT));
    munmap(nowhere, text_.size());
}

// Two of the three threads are in the first commands, and the third waits for the ring.
TEST_F(SharedCopies, DoNotWaitForCommandsThatBlock)
{
    std::atomic<unsigned> inside{0};
    std::promise<void> others;
    const std::shared_future<void> go = others.get_future().share();
    CompletionRecorder recorder([&](const auto&) {
        if (inside++ < 2)
            go.wait();
    });
    const Qz::Ptr<PortState> port = makePort(recorder);
    file_ = openAttached(port, path_);
    startAll();
    EXPECT_EQ(recorder.await(blocks - 2).size(), blocks - 2);
    others.set_value();
    EXPECT_EQ(recorder.await(blocks).size(), blocks);
    port->shutDown();
    expectAll();
}

TEST_F(SharedCopies, DoNotMakeAPortGrow)
{
    for (std::size_t round = 1; round <= 100; ++round) {
        startAll();
        EXPECT_EQ(recorder_.await(round * blocks).size(), round * blocks);
    }
    EXPECT_EQ(port_->threadCount(), 3U);
}

TEST_F(SharedCopies, APortOfOneThreadDeliversAllTheSame)
{
    CompletionRecorder recorder;
    const Qz::Ptr<PortState> port = makePort(recorder, 1);
    file_ = openAttached(port, path_);
    startAll();
    expectSuccess(recorder.await(blocks), blocks);
    port->shutDown();
    expectAll();
}

TEST(CacheGuess, AMissLetsTheNextReadsPassByUntried)
{
    CacheGuess guess;
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(guess.isWorthTrying());
    guess.missed();
    for (int i = 0; i < CacheGuess::untriedAfterMiss; ++i)
        EXPECT_FALSE(guess.isWorthTrying());
    EXPECT_TRUE(guess.isWorthTrying());
}

TEST(CacheGuess, WhatCannotBeToldIsNotTriedAgain)
{
    CacheGuess guess;
    guess.giveUp();
    for (int i = 0; i < 100; ++i)
        EXPECT_FALSE(guess.isWorthTrying());
}
