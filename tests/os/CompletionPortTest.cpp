#include "os/CompletionPortHandler.h"

#include "CompletionRecorder.h"
#include "TestServer.h"
#include "common/TemporaryFolder.h"
#include "os/BusyWait.h"
#include "os/Codes.h"
#include "os/OS.h"
#include "os/SubmissionBatch.h"
#include "os/linux/LinuxAsyncContext.h"
#include "os/linux/LinuxFile.h"
#include "os/linux/PortState.h"
#include "os/linux/ThreadPoolBackend.h"
#include "os/linux/ThreadServices.h"

#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Threads of this process by that name.
unsigned threadsNamed(const std::string& name)
{
    unsigned found = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(entry.path() / "comm");
        std::string comm;
        std::getline(file, comm);
        found += comm == name ? 1U : 0U;
    }
    return found;
}

template <class Condition>
bool comesTrue(Condition condition)
{
    for (int i = 0; i < 6000; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

class Ports : public testing::TestWithParam<IoBackend>
{
protected:
    Qz::Ptr<PortState> makePort(CompletionRecorder& recorder, unsigned minThreads = 3)
    {
        const Qz::Ptr<PortState> port(new PortState(GetParam(), "ports", recorder.command(), minThreads));
        port->start();
        return port;
    }
    Qz::Ptr<iFile> openAttached(const Qz::Ptr<PortState>& port, const std::string& path)
    {
        const Qz::Ptr<iFile> file =
            openLinuxFile(path, os::accessRead, os::creationOpen, os::modeAsync, nullptr);
        EXPECT_TRUE(dynamic_cast<LinuxFile&>(*file).attachTo(port));
        return file;
    }
    static bool startRead(const Qz::Ptr<iFile>& file, std::string& buffer, std::uint64_t position = 0)
    {
        return file->asyncRead(position, buffer.data(), buffer.size(), createLinuxAsyncContext(nullptr));
    }

    TemporaryFolder folder_;
};

}  // namespace

TEST(CompletionPortHandler, ServesFilesOfTheOperatingSystemFromItsThreads)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("f", "abcdef");
    CompletionRecorder recorder;
    CompletionPortHandler port("FsysReads", recorder.command(), 3, 3, 3, 3);
    EXPECT_TRUE(comesTrue([] { return threadsNamed("FsysReads") >= 3; }));
    const Qz::Ptr<iFile> file = OS()->getFileManager()->open(wide(path), os::accessRead, os::creationOpen,
                                                             os::shareAll, os::modeAsync);
    ASSERT_TRUE(file);
    EXPECT_TRUE(port.attach(file));
    EXPECT_FALSE(port.attach(file));
    EXPECT_FALSE(port.attach(nullptr));
    std::string buffer(6, '\0');
    int owner = 0;
    ASSERT_TRUE(file->asyncRead(0, buffer.data(), 6, OS()->getFileManager()->createAsyncContext(&owner)));
    const auto completions = recorder.await(1);
    ASSERT_EQ(completions.size(), 1U);
    EXPECT_EQ(completions[0].owner, &owner);
    EXPECT_EQ(buffer, "abcdef");
}

TEST(CompletionPortHandler, ItsEndTakesTheThreadsAlong)
{
    CompletionRecorder recorder;
    {
        CompletionPortHandler port("FsysEnds", recorder.command(), 3, 3, 3, 3);
        EXPECT_TRUE(comesTrue([] { return threadsNamed("FsysEnds") >= 3; }));
    }
    EXPECT_TRUE(comesTrue([] { return threadsNamed("FsysEnds") == 0; }));
}

TEST(CompletionPortHandler, MayBeDestroyedByACommandOfItsOwn)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("f", std::string(4096, 'x'));
    CompletionPortHandler* port = nullptr;
    std::atomic<bool> destroyed{false};
    CompletionRecorder recorder([&](const auto&) {
        delete port;
        destroyed = true;
    });
    port = new CompletionPortHandler("FsysOwn", recorder.command(), 3, 3, 3, 3);
    const Qz::Ptr<iFile> file = OS()->getFileManager()->open(wide(path), os::accessRead, os::creationOpen,
                                                             os::shareAll, os::modeAsync);
    ASSERT_TRUE(port->attach(file));
    std::string buffer(4096, '\0');
    ASSERT_TRUE(file->asyncRead(0, buffer.data(), 4096, OS()->getFileManager()->createAsyncContext(nullptr)));
    EXPECT_EQ(recorder.await(1).size(), 1U);
    EXPECT_TRUE(destroyed);
    // The thread that the command ran on leaves by itself; the recorder must outlive it.
    EXPECT_TRUE(comesTrue([] { return threadsNamed("FsysOwn") == 0; }));
}

INSTANTIATE_TEST_SUITE_P(On, Ports, testing::Values(IoBackend::uring, IoBackend::threads),
                         [](const auto& given) {
                             return std::string(given.param == IoBackend::uring ? "Ring" : "Pool");
                         });

TEST_P(Ports, DeliverWhileTheirThreadsLookForWorkAndAfterTheySleep)
{
    const std::string path = folder_.file("f", "abc");
    os::setBusyWait(2000);
    CompletionRecorder recorder;
    const Qz::Ptr<PortState> port = makePort(recorder);
    const Qz::Ptr<iFile> file = openAttached(port, path);
    for (unsigned i = 1; i <= 20; ++i) {
        std::string buffer(3, '\0');
        ASSERT_TRUE(startRead(file, buffer));
        ASSERT_EQ(recorder.await(i).size(), i);
        EXPECT_EQ(buffer, "abc");
        if (i == 10)
            os::setBusyWait(0);
    }
    port->shutDown();
}

TEST_P(Ports, ACommandThatBlocksHoldsUpNobody)
{
    const std::string path = folder_.file("f", "abc");
    std::atomic<bool> first{true};
    std::promise<void> others;
    CompletionRecorder recorder([&](const auto&) {
        // The last of ten that arrive together lets the first one go on.
        if (first.exchange(false))
            others.get_future().wait();
    });
    const Qz::Ptr<PortState> port = makePort(recorder);
    const Qz::Ptr<iFile> file = openAttached(port, path);
    std::vector<std::string> buffers(10, std::string(3, '\0'));
    {
        const os::SubmissionBatch together;
        for (std::string& buffer : buffers)
            ASSERT_TRUE(startRead(file, buffer));
    }
    EXPECT_EQ(recorder.await(9).size(), 9U);
    others.set_value();
    EXPECT_EQ(recorder.await(10).size(), 10U);
    port->shutDown();
}

TEST_P(Ports, GrowWhileCommandsBlockAndShrinkAfterwards)
{
    const std::string path = folder_.file("f", std::string(4096, 'x'));
    constexpr unsigned blocked = 8;
    std::atomic<unsigned> inside{0};
    std::atomic<bool> open{false};
    CompletionRecorder recorder([&](const auto&) {
        ++inside;
        open.wait(false);
    });
    const Qz::Ptr<PortState> port = makePort(recorder);
    EXPECT_EQ(port->threadCount(), 3U);
    const Qz::Ptr<iFile> file = openAttached(port, path);
    std::vector<std::string> buffers(blocked, std::string(100, '\0'));
    for (std::string& buffer : buffers)
        ASSERT_TRUE(startRead(file, buffer));
    EXPECT_TRUE(comesTrue([&] { return inside == blocked; }));
    EXPECT_GE(port->threadCount(), blocked);
    open = true;
    open.notify_all();
    EXPECT_EQ(recorder.await(blocked).size(), blocked);
    EXPECT_TRUE(comesTrue([&] { return port->threadCount() == 3; }));

    // And once more: threads that left do not stand in the way of new ones.
    open = false;
    inside = 0;
    for (std::string& buffer : buffers)
        ASSERT_TRUE(startRead(file, buffer));
    EXPECT_TRUE(comesTrue([&] { return inside == blocked; }));
    open = true;
    open.notify_all();
    port->shutDown();
    EXPECT_EQ(recorder.count(), std::size_t{2} * blocked);
}

TEST_P(Ports, DoNotGrowBeyondTheirBound)
{
    const std::string path = folder_.file("f", std::string(4096, 'x'));
    std::atomic<unsigned> inside{0};
    std::atomic<bool> open{false};
    CompletionRecorder recorder([&](const auto&) {
        ++inside;
        open.wait(false);
    });
    const Qz::Ptr<PortState> port = makePort(recorder);
    const Qz::Ptr<iFile> file = openAttached(port, path);
    std::vector<std::string> buffers(PortState::threadsMax + 4, std::string(100, '\0'));
    for (std::string& buffer : buffers)
        ASSERT_TRUE(startRead(file, buffer));
    EXPECT_TRUE(comesTrue([&] { return inside == PortState::threadsMax; }));
    // Two looks of the watcher later there are no more.
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_EQ(port->threadCount(), PortState::threadsMax);
    EXPECT_EQ(inside, PortState::threadsMax);
    open = true;
    open.notify_all();
    port->shutDown();
    EXPECT_EQ(recorder.count(), buffers.size());
}

TEST_P(Ports, ShortCommandsDoNotMakeThemGrow)
{
    const std::string path = folder_.file("f", std::string(4096, 'x'));
    CompletionRecorder recorder;
    const Qz::Ptr<PortState> port = makePort(recorder);
    const Qz::Ptr<iFile> file = openAttached(port, path);
    std::vector<std::string> buffers(3000, std::string(100, '\0'));
    for (std::string& buffer : buffers)
        ASSERT_TRUE(startRead(file, buffer));
    EXPECT_EQ(recorder.await(buffers.size()).size(), buffers.size());
    EXPECT_EQ(port->threadCount(), 3U);
    port->shutDown();
}

TEST_P(Ports, TakeMoreTransfersThanARingHolds)
{
    const std::string path = folder_.file("f", std::string(4096, 'x'));
    std::atomic<bool> open{false};
    CompletionRecorder recorder([&](const auto&) { open.wait(false); });
    const Qz::Ptr<PortState> port = makePort(recorder);
    const Qz::Ptr<iFile> file = openAttached(port, path);
    constexpr std::size_t count = 10'000;
    std::string buffers(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        ASSERT_TRUE(file->asyncRead(0, &buffers[i], 1, createLinuxAsyncContext(nullptr)));
    open = true;
    open.notify_all();
    EXPECT_EQ(recorder.await(count).size(), count);
    EXPECT_EQ(buffers, std::string(count, 'x'));
    port->shutDown();
}

// A read of an empty pipe is still under way when another completion ends the port.
TEST_P(Ports, EndingOnAThreadOfTheirOwnStillWaitsForTheOthers)
{
    const std::string pipePath = folder_ / "pipe";
    ASSERT_EQ(mkfifo(pipePath.c_str(), 0600), 0);
    const Qz::Ptr<SharedDescriptor> pipe(
        new SharedDescriptor(::open(pipePath.c_str(), O_RDWR | O_CLOEXEC), nullptr));
    Qz::Ptr<PortState> port;
    std::string late(1, '\0');
    std::atomic<bool> lateCame{false};
    std::atomic<bool> waited{false};
    CompletionRecorder recorder([&](const CompletionRecorder::Completion& completion) {
        if (completion.owner == &late) {
            lateCame = true;
            return;
        }
        port->shutDown();
        waited = lateCame.load();
    });
    port = makePort(recorder);
    const Qz::Ptr<iFile> file = openAttached(port, folder_.file("f", "abc"));
    auto* context = new LinuxAsyncContext(&late);
    ASSERT_TRUE(context->begin(pipe, Transfer(pipe.get(), TransferKind::read, 0, late.data(), 1)));
    ASSERT_TRUE(port->submit(context));
    std::string buffer(3, '\0');
    ASSERT_TRUE(startRead(file, buffer));
    EXPECT_TRUE(comesTrue([&] { return !port->isOpen(); }));
    ASSERT_EQ(::write(pipe->fd(), "!", 1), 1);
    EXPECT_EQ(recorder.await(2).size(), 2U);
    EXPECT_TRUE(waited);
    EXPECT_EQ(late, "!");
}

// --- batches

TEST_P(Ports, ABatchIsHandedOnAtItsEnd)
{
    const std::string path = folder_.file("f", std::string(4096, 'x'));
    CompletionRecorder recorder;
    const Qz::Ptr<PortState> port = makePort(recorder);
    const Qz::Ptr<iFile> file = openAttached(port, path);
    std::vector<std::string> buffers(1000, std::string(10, '\0'));
    {
        const os::SubmissionBatch outer;
        for (std::string& buffer : buffers) {
            const os::SubmissionBatch inner;
            ASSERT_TRUE(startRead(file, buffer));
        }
    }
    EXPECT_EQ(recorder.await(buffers.size()).size(), buffers.size());
    for (const std::string& buffer : buffers)
        EXPECT_EQ(buffer, "xxxxxxxxxx");
    port->shutDown();
}

TEST_P(Ports, ABatchServesSeveralPorts)
{
    const std::string path = folder_.file("f", std::string(4096, 'x'));
    CompletionRecorder recorder;
    const Qz::Ptr<PortState> first = makePort(recorder);
    const Qz::Ptr<PortState> second = makePort(recorder);
    const Qz::Ptr<iFile> files[] = {openAttached(first, path), openAttached(second, path)};
    std::vector<std::string> buffers(10, std::string(10, '\0'));
    {
        const os::SubmissionBatch batch;
        for (std::size_t i = 0; i < buffers.size(); ++i)
            ASSERT_TRUE(startRead(files[i % 2], buffers[i]));
    }
    EXPECT_EQ(recorder.await(buffers.size()).size(), buffers.size());
    first->shutDown();
    second->shutDown();
}

TEST_P(Ports, WaitingForAnEventHandsABatchOn)
{
    const std::string path = folder_.file("f", std::string(4096, 'x'));
    const Qz::Ptr<iThreadEvent> done = linuxThreadServices()->createEvent(0, 0, nullptr);
    CompletionRecorder recorder([&](const auto&) { done->set(); });
    const Qz::Ptr<PortState> port = makePort(recorder);
    const Qz::Ptr<iFile> file = openAttached(port, path);
    std::string buffer(10, '\0');
    {
        const os::SubmissionBatch batch;
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(startRead(file, buffer));
            ASSERT_TRUE(done->wait(60'000));
        }
    }
    port->shutDown();
    EXPECT_EQ(recorder.count(), 3U);
}

TEST_P(Ports, APortThatEndsInsideABatchReportsWhatLiesReady)
{
    const std::string path = folder_.file("f", std::string(4096, 'x'));
    CompletionRecorder recorder;
    const Qz::Ptr<PortState> port = makePort(recorder);
    const Qz::Ptr<iFile> file = openAttached(port, path);
    std::vector<std::string> buffers(5, std::string(10, '\0'));
    {
        const os::SubmissionBatch batch;
        for (std::string& buffer : buffers)
            ASSERT_TRUE(startRead(file, buffer));
        port->shutDown();
        EXPECT_EQ(recorder.count(), buffers.size());
        EXPECT_FALSE(startRead(file, buffers[0]));
    }
    EXPECT_EQ(recorder.count(), buffers.size());
}

TEST_P(Ports, APortThatEndsOnAnotherThreadWaitsForTheBatch)
{
    const std::string path = folder_.file("f", std::string(4096, 'x'));
    for (int round = 0; round < 50; ++round) {
        CompletionRecorder recorder;
        const Qz::Ptr<PortState> port = makePort(recorder);
        const Qz::Ptr<iFile> file = openAttached(port, path);
        std::vector<std::string> buffers(5, std::string(10, '\0'));
        std::size_t accepted = 0;
        std::thread ender;
        {
            const os::SubmissionBatch batch;
            for (std::size_t i = 0; i < buffers.size(); ++i) {
                if (i == 1)
                    ender = std::thread([&] { port->shutDown(); });
                accepted += startRead(file, buffers[i]) ? 1U : 0U;
            }
        }
        ender.join();
        EXPECT_GE(accepted, 1U);
        EXPECT_EQ(recorder.count(), accepted);
    }
}

// --- the pool alone

TEST(ThreadPool, FilesOfADeadServerLeaveWorkersForTheOthers)
{
    const TemporaryFolder folder;
    CompletionRecorder recorder;
    const Qz::Ptr<PortState> port(new PortState(IoBackend::threads, "pool", recorder.command(), 3));
    port->start();
    // A pipe without a writer plays the server that does not answer: its reads wait.
    const std::string pipePath = folder / "pipe";
    ASSERT_EQ(mkfifo(pipePath.c_str(), 0600), 0);
    const Qz::Ptr<SharedDescriptor> dead(
        new SharedDescriptor(::open(pipePath.c_str(), O_RDWR | O_CLOEXEC), testServer()));
    const unsigned stuck = 2 * ThreadPoolBackend::workersMax;
    std::vector<std::string> bytes(stuck, std::string(1, '\0'));
    for (std::string& byte : bytes) {
        auto* context = new LinuxAsyncContext(&bytes);
        ASSERT_TRUE(context->begin(dead, Transfer(dead.get(), TransferKind::read, 0, byte.data(), 1)));
        ASSERT_TRUE(port->submit(context));
    }
    const Qz::Ptr<iFile> file =
        openLinuxFile(folder.file("f", "abc"), os::accessRead, os::creationOpen, os::modeAsync, nullptr);
    ASSERT_TRUE(dynamic_cast<LinuxFile&>(*file).attachTo(port));
    std::string buffer(3, '\0');
    ASSERT_TRUE(file->asyncRead(0, buffer.data(), 3, createLinuxAsyncContext(&buffer)));
    const auto completions = recorder.await(1);
    ASSERT_EQ(completions.size(), 1U);
    EXPECT_EQ(completions[0].owner, &buffer);
    EXPECT_EQ(buffer, "abc");
    const std::string answers(stuck, '!');
    ASSERT_EQ(::write(dead->fd(), answers.data(), answers.size()), static_cast<ssize_t>(answers.size()));
    EXPECT_EQ(recorder.await(stuck + 1).size(), stuck + 1);
    port->shutDown();
}
