#include "os/linux/BackendSelect.h"

#include "CompletionRecorder.h"
#include "RefusedCall.h"
#include "common/TemporaryFolder.h"
#include "os/BackendChoice.h"
#include "os/Codes.h"
#include "os/SubmissionBatch.h"
#include "os/linux/LinuxAsyncContext.h"
#include "os/linux/LinuxCompletionPort.h"
#include "os/linux/LinuxFile.h"
#include "os/linux/ThreadPoolBackend.h"
#include "os/linux/UringBackend.h"

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/syscall.h>

namespace {

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

class NoSink : public TransferSink
{
public:
    void takeFinished(TransferList&) override {}
};

}  // namespace

TEST(BackendSelect, ARingThatWorksIsTaken)
{
    const BackendChoice choice = chooseBackend(nullptr, 0);
    EXPECT_EQ(choice.backend, IoBackend::uring);
    EXPECT_TRUE(contains(choice.text, "io_uring")) << choice.text;
    EXPECT_EQ(chooseBackend("", 0).backend, IoBackend::uring);
}

TEST(BackendSelect, WithoutARingThePoolServesAndTheReasonIsTold)
{
    const BackendChoice choice = chooseBackend(nullptr, EPERM);
    EXPECT_EQ(choice.backend, IoBackend::threads);
    EXPECT_TRUE(contains(choice.text, "thread pool")) << choice.text;
    EXPECT_TRUE(contains(choice.text, "Operation not permitted")) << choice.text;
}

TEST(BackendSelect, TheEnvironmentMayAskForEither)
{
    const BackendChoice pool = chooseBackend("threads", 0);
    EXPECT_EQ(pool.backend, IoBackend::threads);
    EXPECT_TRUE(contains(pool.text, "FSYS_IO_BACKEND=threads")) << pool.text;
    const BackendChoice ring = chooseBackend("uring", 0);
    EXPECT_EQ(ring.backend, IoBackend::uring);
    EXPECT_TRUE(contains(ring.text, "FSYS_IO_BACKEND=uring")) << ring.text;
}

TEST(BackendSelect, ARingThatIsAskedForAndCannotBeHadGivesWay)
{
    const BackendChoice choice = chooseBackend("uring", ENOSYS);
    EXPECT_EQ(choice.backend, IoBackend::threads);
    EXPECT_TRUE(contains(choice.text, "Function not implemented")) << choice.text;
    EXPECT_TRUE(contains(choice.text, "FSYS_IO_BACKEND=uring")) << choice.text;
}

TEST(BackendSelect, AnUnknownWishIsIgnoredAloud)
{
    const BackendChoice choice = chooseBackend("windows", 0);
    EXPECT_EQ(choice.backend, IoBackend::uring);
    EXPECT_TRUE(contains(choice.text, "FSYS_IO_BACKEND=windows is ignored")) << choice.text;
    EXPECT_EQ(chooseBackend("windows", EPERM).backend, IoBackend::threads);
}

TEST(BackendSelect, TheProcessChoosesOnceAndFollowsItsEnvironment)
{
    const char* wish = std::getenv("FSYS_IO_BACKEND");
    const BackendChoice& choice = backendChoice();
    EXPECT_EQ(&choice, &backendChoice());
    EXPECT_STREQ(os::backendChoiceText(), choice.text.c_str());
    if (wish && std::string(wish) == "threads") {
        EXPECT_EQ(choice.backend, IoBackend::threads);
    }
    if (choice.backend == IoBackend::threads) {
        EXPECT_TRUE(contains(choice.text, "thread pool"));
    } else {
        EXPECT_TRUE(contains(choice.text, "io_uring"));
    }
}

TEST(BackendSelect, MakesWhatIsAskedFor)
{
    NoSink sink;
    const auto pool = makeBackend(IoBackend::threads, "p", sink);
    EXPECT_NE(dynamic_cast<ThreadPoolBackend*>(pool.get()), nullptr);
    if (chooseBackend(nullptr, 0).backend == backendChoice().backend) {
        const auto ring = makeBackend(IoBackend::uring, "p", sink);
        EXPECT_NE(dynamic_cast<UringBackend*>(ring.get()), nullptr);
    }
}

namespace {

void expectPoolWhere(unsigned refusal)
{
    SCOPED_TRACE(refusal);
    const TemporaryFolder folder;
    const Qz::Ptr<iFile> file =
        openLinuxFile(folder.file("f", "abc"), os::accessRead, os::creationOpen, os::modeAsync, nullptr);
    NoSink sink;
    CompletionRecorder recorder;
    Qz::Ptr<iCompletionPort> port;
    const auto makePort = [&] {
        const auto backend = makeBackend(IoBackend::uring, "p", sink);
        EXPECT_NE(dynamic_cast<ThreadPoolBackend*>(backend.get()), nullptr);
        port = createLinuxCompletionPortOn(IoBackend::uring, "p", recorder.command(), 3);
    };
    ASSERT_TRUE(runRefused(SYS_io_uring_setup, makePort, refusal));
    ASSERT_TRUE(port->attach(file));
    char bytes[3] = {};
    ASSERT_TRUE(file->asyncRead(0, bytes, 3, createLinuxAsyncContext(nullptr)));
    ASSERT_EQ(recorder.await(1).size(), 1U);
    EXPECT_EQ(std::string(bytes, 3), "abc");
}

}  // namespace

// A sandbox, a kernel without rings, and one that has no memory or descriptors for another.
TEST(BackendSelect, APortWhoseRingIsRefusedWorksOnThePool)
{
    for (const int refusal : {EPERM, ENOSYS, ENOMEM, EMFILE, EINVAL})
        expectPoolWhere(static_cast<unsigned>(refusal));
}

// A sandbox that was set up after the choice: the ring is there and takes nothing.
TEST(BackendSelect, TransfersThatTheRingDoesNotTakeFailAndAreReported)
{
    const TemporaryFolder folder;
    CompletionRecorder recorder;
    const Qz::Ptr<iCompletionPort> port =
        createLinuxCompletionPortOn(IoBackend::uring, "p", recorder.command(), 3);
    const Qz::Ptr<iFile> file =
        openLinuxFile(folder.file("f", "abc"), os::accessRead, os::creationOpen, os::modeAsync, nullptr);
    ASSERT_TRUE(port->attach(file));
    if (backendChoice().backend != IoBackend::uring)
        GTEST_SKIP() << "no io_uring here";
    char bytes[600] = {};
    ASSERT_TRUE(runRefused(SYS_io_uring_enter, [&] {
        EXPECT_TRUE(file->asyncRead(0, bytes, 1, createLinuxAsyncContext(nullptr)));
        // More than the ring holds, handed on together.
        const os::SubmissionBatch batch;
        for (std::size_t i = 1; i < sizeof bytes; ++i)
            EXPECT_TRUE(file->asyncRead(0, &bytes[i], 1, createLinuxAsyncContext(nullptr)));
    }));
    const auto completions = recorder.await(sizeof bytes);
    ASSERT_EQ(completions.size(), sizeof bytes);
    for (const auto& completion : completions) {
        EXPECT_FALSE(completion.succeeded);
        EXPECT_EQ(completion.lastError, errorFromErrno(EPERM));
    }
    // Threads that are not refused go on.
    ASSERT_TRUE(file->asyncRead(0, bytes, 3, createLinuxAsyncContext(nullptr)));
    EXPECT_TRUE(recorder.await(sizeof bytes + 1).back().succeeded);
    EXPECT_EQ(std::string(bytes, 3), "abc");
}
