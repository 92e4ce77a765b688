// What the contract suite says about asynchronous transfers and completion ports.

#include "PlatformContract.h"
#include "os/LastError.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <random>
#include <set>

namespace {

using Port = Qz::Ptr<iCompletionPort>;

// Lets a number of threads meet.
class Meeting
{
public:
    explicit Meeting(unsigned members) : members_(members) {}
    // True when all have come within a minute.
    bool join()
    {
        std::unique_lock lock(mutex_);
        ++arrived_;
        changed_.notify_all();
        return changed_.wait_for(lock, std::chrono::seconds(60), [this] { return arrived_ >= members_; });
    }

private:
    const unsigned members_;
    unsigned arrived_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
};

// A door that opens once.
class Gate
{
public:
    void open()
    {
        const std::lock_guard guard(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void pass()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return open_; });
    }

private:
    bool open_ = false;
    std::mutex mutex_;
    std::condition_variable changed_;
};

}  // namespace

// --- one transfer

TEST_P(PlatformContract, AReadIsReportedOnceWithItsOwnerOnAThreadOfThePort)
{
    const std::string bytes = pattern(100'000);
    ASSERT_TRUE(makeFile("f", bytes));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f");
    ASSERT_TRUE(port->attach(file));
    std::string buffer(50'000, '\0');
    int owner = 0;
    ASSERT_TRUE(startRead(file, 1234, buffer, &owner));
    const auto completions = recorder.await(1);
    ASSERT_EQ(completions.size(), 1U);
    EXPECT_TRUE(completions[0].succeeded);
    EXPECT_EQ(completions[0].bytes, 50'000U);
    EXPECT_EQ(completions[0].owner, &owner);
    EXPECT_NE(completions[0].thread, std::this_thread::get_id());
    EXPECT_EQ(buffer, bytes.substr(1234, 50'000));
    port->shutDown();
    EXPECT_EQ(recorder.count(), 1U);
}

TEST_P(PlatformContract, AWriteIsReportedAndItsBytesAreInTheFile)
{
    ASSERT_TRUE(makeFile("f", "0123456789"));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f", os::accessReadWrite);
    ASSERT_TRUE(port->attach(file));
    const std::string bytes = pattern(70'000);
    ASSERT_TRUE(startWrite(file, 5, bytes));
    const auto completions = recorder.await(1);
    ASSERT_EQ(completions.size(), 1U);
    EXPECT_TRUE(completions[0].succeeded);
    EXPECT_EQ(completions[0].bytes, 70'000U);
    EXPECT_EQ(contentsOf("f"), "01234" + bytes);
}

TEST_P(PlatformContract, AReadAcrossTheEndSucceedsWithTheBytesThatThereAre)
{
    for (const unsigned mode : {asyncMode, unbufferedAsyncMode}) {
        const std::string name = "f" + std::to_string(mode);
        const std::string bytes = pattern(5000);
        ASSERT_TRUE(makeFile(name, bytes));
        CompletionRecorder recorder;
        const Port port = platform().createPort(recorder.command());
        const Qz::Ptr<iFile> file = platform().open(name, os::accessRead, os::creationOpen, mode);
        ASSERT_TRUE(port->attach(file));
        alignas(4096) static char buffer[8192];
        std::fill(std::begin(buffer), std::end(buffer), 'z');
        ASSERT_TRUE(file->asyncRead(0, buffer, sizeof buffer, platform().createAsyncContext(nullptr)));
        const auto completions = recorder.await(1);
        ASSERT_EQ(completions.size(), 1U);
        EXPECT_TRUE(completions[0].succeeded);
        EXPECT_EQ(completions[0].bytes, 5000U);
        EXPECT_EQ(std::string(buffer, 5000), bytes);
        for (std::size_t i = 5000; i < sizeof buffer; ++i)
            ASSERT_TRUE(buffer[i] == 'z' || buffer[i] == 0) << i;
    }
}

TEST_P(PlatformContract, AReadAtOrBehindTheEndSucceedsWithNoBytes)
{
    ASSERT_TRUE(makeFile("f", "0123"));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f");
    ASSERT_TRUE(port->attach(file));
    std::string at(512, 'z');
    std::string behind(512, 'z');
    ASSERT_TRUE(startRead(file, 4, at));
    ASSERT_TRUE(startRead(file, 1'000'000, behind));
    for (const auto& completion : recorder.await(2)) {
        EXPECT_TRUE(completion.succeeded);
        EXPECT_EQ(completion.bytes, 0U);
    }
    EXPECT_EQ(recorder.count(), 2U);
}

TEST_P(PlatformContract, ATransferOfNoBytesIsReportedToo)
{
    ASSERT_TRUE(makeFile("f", "0123"));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f", os::accessReadWrite);
    ASSERT_TRUE(port->attach(file));
    std::string nothing;
    ASSERT_TRUE(startRead(file, 1, nothing));
    ASSERT_TRUE(startWrite(file, 1, nothing));
    const auto completions = recorder.await(2);
    ASSERT_EQ(completions.size(), 2U);
    for (const auto& completion : completions) {
        EXPECT_TRUE(completion.succeeded);
        EXPECT_EQ(completion.bytes, 0U);
    }
}

TEST_P(PlatformContract, AFailedTransferCarriesItsCodeOnTheCompletingThread)
{
    ASSERT_TRUE(makeFile("f", "0123"));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> readOnly = openAsync("f", os::accessRead);
    ASSERT_TRUE(port->attach(readOnly));
    const std::string bytes = "no";
    setLastError(7);
    ASSERT_TRUE(startWrite(readOnly, 0, bytes));
    const auto completions = recorder.await(1);
    ASSERT_EQ(completions.size(), 1U);
    EXPECT_FALSE(completions[0].succeeded);
    EXPECT_EQ(completions[0].bytes, 0U);
    EXPECT_EQ(completions[0].lastError, errorFromErrno(EBADF));
    EXPECT_EQ(lastError(), 7U);
    EXPECT_EQ(contentsOf("f"), "0123");
}

TEST_P(PlatformContract, UnbufferedModeServesTransfersOfAnyAlignment)
{
    ASSERT_TRUE(makeFile("f", ""));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file =
        platform().open("f", os::accessReadWrite, os::creationOpen, unbufferedAsyncMode);
    ASSERT_TRUE(port->attach(file));
    const std::string bytes = pattern(1 << 16);
    alignas(4096) static char aligned[1 << 16];
    std::copy(bytes.begin(), bytes.end(), std::begin(aligned));
    const auto context = [this] { return platform().createAsyncContext(nullptr); };
    // Aligned, unaligned in position, in length, in memory; each write overlaps the one before.
    ASSERT_TRUE(file->asyncWrite(0, aligned, 16384, context()));
    recorder.await(1);
    ASSERT_TRUE(file->asyncWrite(16383, aligned + 16383, 8193, context()));
    recorder.await(2);
    ASSERT_TRUE(file->asyncWrite(24576, aligned + 24576, 8192 + 77, context()));
    recorder.await(3);
    ASSERT_TRUE(file->asyncWrite(32768, aligned + 32768, 32768, context()));
    for (const auto& completion : recorder.await(4))
        EXPECT_TRUE(completion.succeeded) << completion.lastError;
    EXPECT_EQ(contentsOf("f"), bytes);

    std::string unaligned(1 << 16, '\0');
    ASSERT_TRUE(startRead(file, 0, unaligned));
    recorder.await(5);
    EXPECT_EQ(unaligned, bytes);
    std::fill(std::begin(aligned), std::end(aligned), '\0');
    ASSERT_TRUE(file->asyncRead(4096, aligned, 8192, context()));
    recorder.await(6);
    EXPECT_EQ(std::string(aligned, 8192), bytes.substr(4096, 8192));
}

TEST_P(PlatformContract, AGrowingFileIsReadAsItStands)
{
    ASSERT_TRUE(makeFile("f", std::string(10, 'a')));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f", os::accessReadWrite);
    ASSERT_TRUE(port->attach(file));
    std::string buffer(100, '\0');
    ASSERT_TRUE(startRead(file, 0, buffer));
    EXPECT_EQ(recorder.await(1).at(0).bytes, 10U);
    ASSERT_TRUE(file->write(10, "bbbbb", 5, nullptr));
    ASSERT_TRUE(startRead(file, 0, buffer));
    EXPECT_EQ(recorder.await(2).at(1).bytes, 15U);
    EXPECT_EQ(buffer.substr(0, 15), "aaaaaaaaaabbbbb");
}

// --- what is refused

TEST_P(PlatformContract, AFileThatNoPortServesRefusesTransfers)
{
    ASSERT_TRUE(makeFile("f", "0123"));
    const Qz::Ptr<iFile> file = openAsync("f", os::accessReadWrite);
    std::string buffer(4, 'x');
    setLastError(0);
    EXPECT_FALSE(startRead(file, 0, buffer));
    EXPECT_NE(lastError(), 0U);
    setLastError(0);
    EXPECT_FALSE(startWrite(file, 0, buffer));
    EXPECT_NE(lastError(), 0U);
    EXPECT_EQ(contentsOf("f"), "0123");
}

TEST_P(PlatformContract, AFileThatWasNotOpenedForItIsNotAttached)
{
    ASSERT_TRUE(makeFile("f", "0123"));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    for (const unsigned mode : {os::modePlain, os::modeUnbuffered, os::attributeLockFile}) {
        const Qz::Ptr<iFile> file = platform().open("f", os::accessRead, os::creationOpen, mode);
        EXPECT_FALSE(port->attach(file)) << mode;
        std::string buffer(4, 'x');
        EXPECT_FALSE(startRead(file, 0, buffer)) << mode;
    }
    port->shutDown();
    EXPECT_EQ(recorder.count(), 0U);
}

TEST_P(PlatformContract, AFileIsAttachedOnceAndOnlyWhileOpen)
{
    ASSERT_TRUE(makeFile("f", "0123"));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Port other = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f");
    EXPECT_TRUE(port->attach(file));
    EXPECT_FALSE(port->attach(file));
    EXPECT_FALSE(other->attach(file));
    EXPECT_FALSE(port->attach(nullptr));
    const Qz::Ptr<iFile> closed = openAsync("f");
    closed->close();
    EXPECT_FALSE(port->attach(closed));
    std::string buffer(4, 'x');
    EXPECT_TRUE(startRead(file, 0, buffer));
    EXPECT_EQ(recorder.await(1).size(), 1U);
}

TEST_P(PlatformContract, AClosedFileRefusesTransfers)
{
    ASSERT_TRUE(makeFile("f", "0123"));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f");
    ASSERT_TRUE(port->attach(file));
    file->close();
    std::string buffer(4, 'x');
    setLastError(0);
    EXPECT_FALSE(startRead(file, 0, buffer));
    EXPECT_NE(lastError(), 0U);
    port->shutDown();
    EXPECT_EQ(recorder.count(), 0U);
}

TEST_P(PlatformContract, TransfersAtPositionsBeyondTheSignedRangeAreRefused)
{
    ASSERT_TRUE(makeFile("f", "0123"));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f", os::accessReadWrite);
    ASSERT_TRUE(port->attach(file));
    std::string buffer(4, 'x');
    for (const std::uint64_t position : {std::uint64_t{1} << 63, std::numeric_limits<std::uint64_t>::max()}) {
        setLastError(0);
        EXPECT_FALSE(startRead(file, position, buffer));
        EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
        setLastError(0);
        EXPECT_FALSE(startWrite(file, position, buffer));
        EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
    }
    port->shutDown();
    EXPECT_EQ(recorder.count(), 0U);
}

// --- lifetimes

TEST_P(PlatformContract, ThePlatformKeepsTheContextUntilTheCommandHasReturned)
{
    ASSERT_TRUE(makeFile("f", pattern(4096)));
    Gate gate;
    CompletionRecorder recorder([&gate](const auto&) { gate.pass(); });
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f");
    ASSERT_TRUE(port->attach(file));
    std::string buffer(4096, '\0');
    const Qz::Ptr<iAsyncContext> context = platform().createAsyncContext(&buffer);
    ASSERT_TRUE(file->asyncRead(0, buffer.data(), buffer.size(), context));
    EXPECT_GT(context->refCount(), 1U);
    gate.open();
    port->shutDown();
    EXPECT_EQ(context->refCount(), 1U);
    EXPECT_EQ(recorder.count(), 1U);
}

TEST_P(PlatformContract, ContextAndFileMayBeDroppedAsSoonAsTheTransferIsAccepted)
{
    const std::string bytes = pattern(1 << 20);
    ASSERT_TRUE(makeFile("f", bytes));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    constexpr std::size_t transfers = 16;
    std::vector<std::string> buffers(transfers, std::string(1 << 16, '\0'));
    for (std::size_t i = 0; i < transfers; ++i) {
        const Qz::Ptr<iFile> file = openAsync("f");
        ASSERT_TRUE(port->attach(file));
        ASSERT_TRUE(startRead(file, i << 16, buffers[i]));
        if (i % 2 == 0)
            file->close();
    }
    ASSERT_EQ(recorder.await(transfers).size(), transfers);
    for (std::size_t i = 0; i < transfers; ++i)
        EXPECT_EQ(buffers[i], bytes.substr(i << 16, 1 << 16)) << i;
}

TEST_P(PlatformContract, ACommandMayStartTheNextTransfer)
{
    const std::string bytes = pattern(100 * 512);
    ASSERT_TRUE(makeFile("f", bytes));
    const Qz::Ptr<iFile> file = openAsync("f");
    std::string buffer(512, '\0');
    std::string gathered;
    std::atomic<unsigned> refused{0};
    CompletionRecorder recorder([&](const auto&) {
        gathered += buffer;
        if (gathered.size() < bytes.size() && !startRead(file, gathered.size(), buffer))
            ++refused;
    });
    const Port port = platform().createPort(recorder.command());
    ASSERT_TRUE(port->attach(file));
    ASSERT_TRUE(startRead(file, 0, buffer));
    EXPECT_EQ(recorder.await(100).size(), 100U);
    EXPECT_EQ(refused, 0U);
    EXPECT_EQ(gathered, bytes);
}

TEST_P(PlatformContract, TransfersOutliveTheThreadThatStartedThem)
{
    const std::string bytes = pattern(1 << 22);
    ASSERT_TRUE(makeFile("f", bytes));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = platform().open("f", os::accessRead, os::creationOpen, unbufferedAsyncMode);
    ASSERT_TRUE(port->attach(file));
    constexpr std::size_t size = 1 << 18;
    const auto free = [this](void* memory) { platform().pages().release(memory, os::pagesRelease); };
    const std::unique_ptr<void, decltype(free)> memory(
        platform().pages().allocate(nullptr, bytes.size(), os::pagesReserveCommit, os::pagesReadWrite), free);
    ASSERT_TRUE(memory);
    char* const buffer = static_cast<char*>(memory.get());
    for (std::size_t at = 0; at < bytes.size(); at += size) {
        std::thread([&, at] {
            EXPECT_TRUE(file->asyncRead(at, buffer + at, size, platform().createAsyncContext(nullptr)));
        }).join();
    }
    const auto completions = recorder.await(bytes.size() / size);
    ASSERT_EQ(completions.size(), bytes.size() / size);
    for (const auto& completion : completions)
        EXPECT_TRUE(completion.succeeded) << completion.lastError;
    EXPECT_EQ(std::string(buffer, bytes.size()), bytes);
}

// --- the end of a port

TEST_P(PlatformContract, TheEndOfAPortWaitsForEveryAcceptedTransfer)
{
    ASSERT_TRUE(makeFile("f", pattern(1 << 20)));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f");
    ASSERT_TRUE(port->attach(file));
    std::vector<std::string> buffers(200, std::string(5000, '\0'));
    for (std::size_t i = 0; i < buffers.size(); ++i)
        ASSERT_TRUE(startRead(file, i * 5000, buffers[i]));
    port->shutDown();
    EXPECT_EQ(recorder.count(), buffers.size());
}

TEST_P(PlatformContract, AfterTheEndOfItsPortAFileWorksSynchronouslyOnly)
{
    ASSERT_TRUE(makeFile("f", "0123"));
    CompletionRecorder recorder;
    const Qz::Ptr<iFile> file = openAsync("f", os::accessReadWrite);
    const Qz::Ptr<iFile> later = openAsync("f");
    {
        const Port port = platform().createPort(recorder.command());
        ASSERT_TRUE(port->attach(file));
        port->shutDown();
        port->shutDown();
        EXPECT_FALSE(port->attach(later));
    }
    std::string buffer(4, 'x');
    setLastError(0);
    EXPECT_FALSE(startRead(file, 0, buffer));
    EXPECT_NE(lastError(), 0U);
    EXPECT_TRUE(file->write(0, "ab", 2, nullptr));
    EXPECT_TRUE(file->read(0, buffer.data(), 4, nullptr));
    EXPECT_EQ(buffer, "ab23");
    EXPECT_EQ(recorder.count(), 0U);
}

TEST_P(PlatformContract, APortMayEndOnAThreadOfItsOwn)
{
    ASSERT_TRUE(makeFile("f", pattern(1 << 16)));
    const Qz::Ptr<iFile> file = openAsync("f");
    std::vector<std::string> buffers(20, std::string(1000, '\0'));
    std::mutex mutex;
    Port port;
    CompletionRecorder recorder([&](const auto&) {
        Port ending;
        {
            const std::lock_guard guard(mutex);
            ending.swap(port);
        }
        ending.reset();
    });
    {
        const std::lock_guard guard(mutex);
        port = platform().createPort(recorder.command());
        ASSERT_TRUE(port->attach(file));
        for (std::size_t i = 0; i < buffers.size(); ++i)
            ASSERT_TRUE(startRead(file, i * 1000, buffers[i]));
    }
    EXPECT_EQ(recorder.await(buffers.size()).size(), buffers.size());
    EXPECT_FALSE(startRead(file, 0, buffers[0]));
}

TEST_P(PlatformContract, APortThatEndsWhileOthersStartTransfersReportsWhatItAccepted)
{
    ASSERT_TRUE(makeFile("f", pattern(1 << 16)));
    for (int round = 0; round < 20; ++round) {
        CompletionRecorder recorder;
        Port port = platform().createPort(recorder.command());
        const Qz::Ptr<iFile> file = openAsync("f");
        ASSERT_TRUE(port->attach(file));
        constexpr std::size_t starters = 3;
        std::atomic<std::size_t> accepted{0};
        std::vector<std::string> buffers(starters * 400, std::string(512, '\0'));
        std::vector<std::thread> threads;
        for (std::size_t t = 0; t < starters; ++t) {
            threads.emplace_back([&, t] {
                for (std::size_t i = 0; i < 400; ++i)
                    accepted += startRead(file, i * 100, buffers[t * 400 + i]) ? 1U : 0U;
            });
        }
        recorder.await(static_cast<std::size_t>(round) * 20);
        port->shutDown();
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(recorder.count(), accepted);
    }
}

// --- the threads of a port

TEST_P(PlatformContract, CommandsThatBlockDoNotHoldUpOthers)
{
    ASSERT_TRUE(makeFile("f", pattern(4096)));
    const Qz::Ptr<iFile> file = openAsync("f");
    std::vector<std::string> buffers(3, std::string(512, '\0'));
    Gate gate;
    CompletionRecorder recorder([&](const CompletionRecorder::Completion& completion) {
        if (completion.owner != &buffers[2])
            gate.pass();
    });
    const Port port = platform().createPort(recorder.command());
    ASSERT_TRUE(port->attach(file));
    for (std::string& buffer : buffers)
        ASSERT_TRUE(startRead(file, 0, buffer, &buffer));
    const auto first = recorder.await(1);
    gate.open();
    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first[0].owner, &buffers[2]);
    EXPECT_EQ(recorder.await(3).size(), 3U);
}

TEST_P(PlatformContract, APortGrowsWhileAllItsCommandsWaitForMore)
{
    ASSERT_TRUE(makeFile("f", pattern(4096)));
    const Qz::Ptr<iFile> file = openAsync("f");
    // More than a port starts with: each command waits until all of them run.
    constexpr unsigned together = 6;
    Meeting meeting(together);
    std::atomic<unsigned> met{0};
    CompletionRecorder recorder([&](const auto&) { met += meeting.join() ? 1U : 0U; });
    const Port port = platform().createPort(recorder.command());
    ASSERT_TRUE(port->attach(file));
    std::vector<std::string> buffers(together, std::string(512, '\0'));
    for (std::string& buffer : buffers)
        ASSERT_TRUE(startRead(file, 0, buffer));
    EXPECT_EQ(recorder.await(together).size(), together);
    EXPECT_EQ(met, together);
}

TEST_P(PlatformContract, ACommandMayWaitForACompletionOfItsOwnPort)
{
    ASSERT_TRUE(makeFile("f", pattern(4096)));
    const Qz::Ptr<iFile> file = openAsync("f");
    std::string inner(512, '\0');
    std::string outer(512, '\0');
    const Qz::Ptr<iThreadEvent> done = platform().threads().createEvent(1, 0, nullptr);
    std::atomic<bool> waited{false};
    CompletionRecorder recorder([&](const CompletionRecorder::Completion& completion) {
        if (completion.owner == &inner)
            done->set();
        else
            waited = startRead(file, 0, inner, &inner) && done->wait(60'000);
    });
    const Port port = platform().createPort(recorder.command());
    ASSERT_TRUE(port->attach(file));
    ASSERT_TRUE(startRead(file, 0, outer, &outer));
    EXPECT_EQ(recorder.await(2).size(), 2U);
    EXPECT_TRUE(waited);
}

// --- many at once

TEST_P(PlatformContract, ManyTransfersOfManyFilesBringTheRightBytes)
{
    constexpr std::size_t files = 12;
    constexpr std::size_t fileSize = 200'000;
    std::vector<std::string> contents;
    std::vector<Qz::Ptr<iFile>> handles;
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    for (std::size_t i = 0; i < files; ++i) {
        const std::string name = "f" + std::to_string(i);
        contents.push_back(pattern(fileSize, static_cast<unsigned>(i + 2)));
        ASSERT_TRUE(makeFile(name, contents.back()));
        handles.push_back(platform().open(name, os::accessRead, os::creationOpen,
                                          i % 2 == 0 ? asyncMode : unbufferedAsyncMode));
        ASSERT_TRUE(port->attach(handles.back()));
    }
    struct Read
    {
        std::size_t file;
        std::size_t position;
        std::string buffer;
    };
    std::mt19937 random(20'240'607);
    std::vector<Read> reads(1500);
    for (Read& read : reads) {
        read.file = random() % files;
        read.position = random() % fileSize;
        read.buffer.resize(1 + random() % 20'000);
        ASSERT_TRUE(startRead(handles[read.file], read.position, read.buffer, &read));
    }
    const auto completions = recorder.await(reads.size());
    ASSERT_EQ(completions.size(), reads.size());
    std::set<void*> owners;
    for (const auto& completion : completions) {
        ASSERT_TRUE(completion.succeeded);
        ASSERT_TRUE(owners.insert(completion.owner).second);
        const Read& read = *static_cast<Read*>(completion.owner);
        const std::string expected = contents[read.file].substr(read.position, read.buffer.size());
        ASSERT_EQ(completion.bytes, expected.size());
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), read.buffer.begin()));
    }
}

TEST_P(PlatformContract, SeveralThreadsStartTransfersOfOneFile)
{
    constexpr std::size_t starters = 4;
    constexpr std::size_t each = 250;
    constexpr std::size_t size = 700;
    ASSERT_TRUE(makeFile("f", ""));
    CompletionRecorder recorder;
    const Port port = platform().createPort(recorder.command());
    const Qz::Ptr<iFile> file = openAsync("f", os::accessWrite);
    ASSERT_TRUE(port->attach(file));
    const std::string bytes = pattern(starters * each * size);
    std::vector<std::string> parts;
    for (std::size_t i = 0; i < starters * each; ++i)
        parts.push_back(bytes.substr(i * size, size));
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < starters; ++t) {
        threads.emplace_back([&, t] {
            for (std::size_t i = t * each; i < (t + 1) * each; ++i)
                EXPECT_TRUE(startWrite(file, i * size, parts[i]));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(recorder.await(parts.size()).size(), parts.size());
    EXPECT_TRUE(contentsOf("f") == bytes);
}
