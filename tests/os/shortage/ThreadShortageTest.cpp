// The platform where no thread can be started: not now, or never again.

#include "common/SystemFaults.h"
#include "common/TemporaryFolder.h"
#include "os/CompletionRecorder.h"
#include "os/TestServer.h"

#include "os/Codes.h"
#include "os/LastError.h"
#include "os/Threads.h"
#include "os/linux/BoundedCalls.h"
#include "os/linux/CallLane.h"
#include "os/linux/FileSizes.h"
#include "os/linux/LinuxAsyncContext.h"
#include "os/linux/LinuxCompletionPort.h"
#include "os/linux/LinuxFile.h"
#include "os/linux/PageCache.h"
#include "os/linux/ScopedFd.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>

namespace {

using system_faults::Call;
using system_faults::Fault;
using system_faults::Scope;

constexpr unsigned threadsOfPort = 3;  // beside the one that watches them

// first: the first thread that cannot be started; count: how many in a row.
Fault noThread(unsigned first = 1, unsigned count = Fault::forEver)
{
    return {Call::startThread, EAGAIN, first, count};
}

class PortsWithoutThreads : public testing::TestWithParam<IoBackend>
{
protected:
    Qz::Ptr<iCompletionPort> makePort()
    {
        return createLinuxCompletionPortOn(GetParam(), "short", recorder_.command(), threadsOfPort);
    }
    // A file of this machine, or one whose server may stop answering.
    Qz::Ptr<iFile> open(bool isSlow)
    {
        return openLinuxFile(folder_.file("f", "abc"), os::accessRead, os::creationOpen, os::modeAsync,
                             isSlow ? testServer() : nullptr);
    }
    // How one read ended.
    CompletionRecorder::Completion read(const Qz::Ptr<iFile>& file)
    {
        buffer_.assign(3, '\0');
        const std::size_t before = recorder_.count();
        EXPECT_TRUE(file->asyncRead(0, buffer_.data(), 3, createLinuxAsyncContext(nullptr)));
        const auto completions = recorder_.await(before + 1);
        EXPECT_EQ(completions.size(), before + 1) << "nobody tells how it ended";
        return completions.empty() ? CompletionRecorder::Completion{} : completions.back();
    }
    void expectRight(const CompletionRecorder::Completion& completion)
    {
        EXPECT_TRUE(completion.succeeded);
        EXPECT_EQ(buffer_, "abc");
    }

    TemporaryFolder folder_;
    CompletionRecorder recorder_;
    std::string buffer_;
};

INSTANTIATE_TEST_SUITE_P(On, PortsWithoutThreads, testing::Values(IoBackend::uring, IoBackend::threads),
                         [](const auto& given) {
                             return std::string(given.param == IoBackend::uring ? "Ring" : "Pool");
                         });

}  // namespace

// --- ports

TEST_P(PortsWithoutThreads, APortWithoutAnyTakesNoFile)
{
    const Scope none(noThread());
    const Qz::Ptr<iCompletionPort> port = makePort();
    EXPECT_FALSE(port->attach(open(false)));
    port->shutDown();
}

// The first thread can be had and no other: it waits in the backend, and nobody watches it.
TEST_P(PortsWithoutThreads, OneThreadAloneHearsOfTransfersThatEndElsewhere)
{
    const Scope oneOnly(noThread(2));
    const Qz::Ptr<iCompletionPort> port = makePort();
    for (const bool isSlow : {false, true}) {
        const Qz::Ptr<iFile> file = open(isSlow);
        ASSERT_TRUE(port->attach(file));
        for (unsigned i = 0; i < 20; ++i) {
            const auto completion = read(file);
            ASSERT_FALSE(HasFailure());
            if (isSlow || GetParam() == IoBackend::threads) {
                EXPECT_FALSE(completion.succeeded);
                EXPECT_EQ(completion.lastError, errorFromErrno(EAGAIN));
            } else {
                expectRight(completion);
            }
        }
    }
    port->shutDown();
}

TEST_P(PortsWithoutThreads, EachThreadOfAPortMayBeTheOneThatCannotBeStarted)
{
    for (unsigned first = 2; first <= threadsOfPort + 1; ++first)
        for (const unsigned count : {1U, Fault::forEver}) {
            SCOPED_TRACE("thread " + std::to_string(first) + ", " + std::to_string(count) + " in a row");
            Qz::Ptr<iCompletionPort> port;
            {
                const Scope few(noThread(first, count));
                port = makePort();
                ASSERT_GE(system_faults::fired(), 1U);
            }
            for (const bool isSlow : {false, true}) {
                const Qz::Ptr<iFile> file = open(isSlow);
                ASSERT_TRUE(port->attach(file));
                expectRight(read(file));
                expectRight(read(file));
            }
            port->shutDown();
        }
}

TEST_P(PortsWithoutThreads, TransfersThatFindNoWorkerFailAndLaterOnesAreServed)
{
    const Qz::Ptr<iCompletionPort> port = makePort();
    const Qz::Ptr<iFile> file = open(true);
    ASSERT_TRUE(port->attach(file));
    {
        const Scope none(noThread());
        const auto completion = read(file);
        EXPECT_FALSE(completion.succeeded);
        EXPECT_EQ(completion.lastError, errorFromErrno(EAGAIN));
        EXPECT_EQ(buffer_, std::string(3, '\0'));
    }
    expectRight(read(file));
    port->shutDown();
}

// --- calls with a deadline

TEST(CallsWithoutThreads, AreRefusedWithTheReasonAndRunWhenThereAreThreadsAgain)
{
    os::BoundedCalls calls(60'000);
    const auto answer = [](os::Progress&) { return 42; };
    {
        const Scope none(noThread());
        setLastErrno(ENOENT);
        EXPECT_FALSE(calls.call<int>("a", answer));
        EXPECT_EQ(lastError(), errorFromErrno(EAGAIN));
    }
    EXPECT_EQ(calls.call<int>("a", answer), 42);
}

// What gives something back is done on the caller's thread rather than never.
TEST(CallsWithoutThreads, AnEndIsCarriedOutAllTheSame)
{
    const auto lane = std::make_shared<os::CallLane>(1);
    const Scope none(noThread());
    bool ended = false;
    lane->end([&ended] { ended = true; }, std::chrono::milliseconds(0));
    EXPECT_TRUE(ended);
    EXPECT_EQ(system_faults::fired(), 1U);
}

// --- the rest

TEST(ThreadsThatCannotBeStarted, AreToldWithTheReason)
{
    const Scope none(noThread());
    setLastErrno(ENOENT);
    EXPECT_EQ(co_create([](void*) { return 0; }, "none", 0, nullptr, 1, 0), 0U);
    EXPECT_EQ(lastError(), errorFromErrno(EAGAIN));
}

TEST(ListingsWithoutThreads, AreCompleteAllTheSame)
{
    constexpr std::size_t files = os::FileSizes::namesAloneMax + 10;
    const TemporaryFolder folder;
    os::NameBatch batch;
    for (std::size_t i = 0; i < files; ++i) {
        const std::string name = std::to_string(i);
        folder.file(name, std::string(i, 'x'));
        batch.names.push_back(
            {static_cast<std::uint32_t>(batch.text.size()), static_cast<std::uint32_t>(name.size())});
        batch.text.append(name.c_str(), name.size() + 1);
    }
    const os::ScopedFd open(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const Scope none(noThread());
    os::Progress progress;
    os::FileSizes sizes(open.get(), progress);
    sizes.add(std::move(batch));
    sizes.finish();
    EXPECT_EQ(system_faults::fired(), 1U);
    std::size_t expected = 0;
    for (const os::NameBatch::Name& name : sizes.batches().front().names)
        ASSERT_EQ(name.size, expected++);
    EXPECT_EQ(expected, files);
}

// The bound on what is kept holds without the thread that gives back what rests; the next block starts it.
TEST(PagesWithoutThreads, AreKeptAndTheThreadIsTriedAgain)
{
    static auto* const pages = new PageCache;  // outlives its thread
    void* first = pages->take(nullptr, 4096);
    void* second = pages->take(nullptr, 4096);
    {
        const Scope none(noThread());
        EXPECT_TRUE(pages->give(first));
        EXPECT_EQ(system_faults::fired(), 1U);
        EXPECT_EQ(pages->keptBytes(), 4096U);
    }
    const Scope counted(noThread(100));
    EXPECT_TRUE(pages->give(second));
    EXPECT_EQ(system_faults::asked(Call::startThread), 1U);
}
