// Rings that are refused, or fail half-way: the port then works on the pool, or without what was refused, and
// nothing of the ring is left behind.

#include "common/HeldByProcess.h"
#include "common/SystemFaults.h"
#include "common/TemporaryFolder.h"
#include "os/CompletionRecorder.h"
#include "os/RefusedCall.h"

#include "os/BackendChoice.h"
#include "os/Codes.h"
#include "os/CompletionPortHandler.h"
#include "os/OS.h"
#include "os/linux/LinuxAsyncContext.h"
#include "os/linux/LinuxCompletionPort.h"
#include "os/linux/LinuxFile.h"
#include "os/linux/LinuxPageMemory.h"
#include "os/linux/RingMemory.h"
#include "os/linux/ThreadPoolBackend.h"
#include "os/linux/UringBackend.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/io_uring.h>
#include <optional>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using system_faults::Call;
using system_faults::Scope;

constexpr std::size_t piece = std::size_t{64} * 1024;
constexpr std::size_t pieces = std::size_t{4} * RingMemory::usesBefore;  // the slots are used as well

struct Held
{
    long descriptors = descriptorsHeld();
    long threads = threadsHeld();
    long mappings = ringMappingsHeld();
};

class NoSink : public TransferSink
{
public:
    void takeFinished(TransferList&) override {}
};

// The whole of a file, read through a port that was made there and ended again.
class RingShortage : public testing::Test
{
protected:
    void SetUp() override
    {
        if (chooseBackend(nullptr, 0).backend != backendChoice().backend)
            GTEST_SKIP() << "no io_uring here: " << backendChoice().text;
        contents_.resize(pieces * piece);
        for (std::size_t i = 0; i < contents_.size(); ++i)
            contents_[i] = static_cast<char>('a' + (i / 5 + i / 4096) % 23);
        path_ = folder_.file("f", contents_);
        static_cast<void>(readAll());  // what is made once per process is there from here on
    }

    std::string readAll()
    {
        CompletionRecorder recorder;
        const Qz::Ptr<iCompletionPort> port =
            createLinuxCompletionPortOn(IoBackend::uring, "p", recorder.command(), 3);
        const Qz::Ptr<iFile> file =
            openLinuxFile(path_, os::accessRead, os::creationOpen, os::modeAsync, nullptr);
        EXPECT_TRUE(port->attach(file));
        iPageMemory* const pages = linuxPageMemory();
        auto* memory =
            static_cast<char*>(pages->allocate(nullptr, piece, os::pagesReserveCommit, os::pagesReadWrite));
        std::string read;
        for (std::size_t i = 0; i < pieces; ++i) {
            EXPECT_TRUE(file->asyncRead(i * piece, memory, piece, createLinuxAsyncContext(nullptr)));
            if (recorder.await(i + 1).back().succeeded)
                read.append(memory, piece);
        }
        pages->release(memory, os::pagesRelease);
        port->shutDown();
        return read;
    }

    static void expectNothingLeft(const Held& before)
    {
        EXPECT_EQ(descriptorsHeld(), before.descriptors);
        EXPECT_LE(threadsHeld(before.threads), before.threads);
        EXPECT_EQ(ringMappingsHeld(), before.mappings);
    }

    static bool isRing()
    {
        NoSink sink;
        return dynamic_cast<UringBackend*>(makeBackend(IoBackend::uring, "p", sink).get()) != nullptr;
    }

    template <class Refuse>
    void expectEqualReads(Refuse refuse, std::optional<bool> ring)
    {
        const Held before;
        bool refused = false;
        std::string read;
        std::thread([&] {
            refused = refuse();
            EXPECT_EQ(isRing(), ring.value_or(isRing()));
            read = readAll();
        }).join();
        ASSERT_TRUE(refused);
        EXPECT_TRUE(read == contents_) << read.size() << " bytes";
        expectNothingLeft(before);
    }

    TemporaryFolder folder_;
    std::string contents_;
    std::string path_;
};

}  // namespace

TEST_F(RingShortage, WithoutARefusalThereIsARing)
{
    expectEqualReads([] { return true; }, true);
}

TEST_F(RingShortage, ARefusedRingLeavesThePool)
{
    for (const int error : {EPERM, ENOMEM, EMFILE, ENFILE, ENOSYS, EINVAL}) {
        SCOPED_TRACE(error);
        expectEqualReads([=] { return refuseCall(SYS_io_uring_setup, static_cast<unsigned>(error)); }, false);
    }
}

// The kernel has made the ring, and its memory cannot be mapped: the first part, or the last.
TEST_F(RingShortage, ARingThatCannotBeMappedLeavesThePool)
{
    constexpr unsigned flags = 3;
    constexpr unsigned place = 5;
    constexpr unsigned ringFlags = MAP_SHARED | MAP_POPULATE;
    for (const unsigned offset :
         {static_cast<unsigned>(IORING_OFF_SQ_RING), static_cast<unsigned>(IORING_OFF_SQES)})
        for (const unsigned error : {unsigned{ENOMEM}, unsigned{EPERM}, unsigned{EAGAIN}}) {
            SCOPED_TRACE(std::to_string(offset) + ", " + std::to_string(error));
            expectEqualReads(
                [=] {
                    return refuseCall(SYS_mmap, Argument{flags, ringFlags}, Argument{place, offset}, error);
                },
                false);
        }
}

TEST_F(RingShortage, WithoutRegisteredMemoryTheRingReadsTheSame)
{
    for (const int error : {EPERM, ENOMEM, EINVAL, EOPNOTSUPP}) {
        SCOPED_TRACE(error);
        expectEqualReads([=] { return refuseCall(SYS_io_uring_register, static_cast<unsigned>(error)); },
                         true);
    }
}

TEST_F(RingShortage, ASlotThatCannotBeFilledIsTheLastOneThatIsTried)
{
    for (const int error : {ENOMEM, EPERM, EFAULT}) {
        SCOPED_TRACE(error);
        const Held before;
        const Scope none({Call::fillSlot, error, 1, system_faults::Fault::forEver});
        EXPECT_TRUE(readAll() == contents_);
        EXPECT_EQ(system_faults::fired(), 1U);
        expectNothingLeft(before);
    }
}

// A limit of the process, as users without rights have it: pinned memory counts, and rings with some kernels.
TEST_F(RingShortage, ALimitOfLockedMemoryLeavesTheRingWithoutSlotsOrThePool)
{
    rlimit usual = {};
    ASSERT_EQ(getrlimit(RLIMIT_MEMLOCK, &usual), 0);
    constexpr rlim_t enoughForRings = PageArena::chunkBytes / 4;
    const auto limitThisThread = [&](rlim_t bytes) {
        // Rights are those of a thread alone.
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct rights[2] = {};
        const rlimit limit = {bytes, usual.rlim_max};
        return syscall(SYS_capset, &header, rights) == 0 && setrlimit(RLIMIT_MEMLOCK, &limit) == 0;
    };
    expectEqualReads([&] { return limitThisThread(0); }, {});
    expectEqualReads([&] { return limitThisThread(enoughForRings); }, true);
    std::thread([&] {
        ASSERT_TRUE(limitThisThread(enoughForRings));
        UringRing ring;
        ASSERT_EQ(ring.build(8, 32), 0);
        ASSERT_EQ(ring.makeSlots(4), 0);
        void* const memory =
            mmap(nullptr, PageArena::chunkBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        EXPECT_EQ(ring.setSlot(0, memory, PageArena::chunkBytes), ENOMEM) << "the limit does not hold here";
        munmap(memory, PageArena::chunkBytes);
    }).join();
    ASSERT_EQ(setrlimit(RLIMIT_MEMLOCK, &usual), 0);
}

// No descriptor for a ring: the pool needs none.
TEST_F(RingShortage, AProcessOutOfDescriptorsWorksOnThePool)
{
    rlimit usual = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    const Held before;
    NoSink sink;
    const int lowest = dup(STDERR_FILENO);
    ASSERT_GE(lowest, 0);
    close(lowest);
    const rlimit full = {static_cast<rlim_t>(lowest), usual.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &full), 0);
    std::unique_ptr<TransferBackend> backend = makeBackend(IoBackend::uring, "p", sink);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
    EXPECT_NE(dynamic_cast<ThreadPoolBackend*>(backend.get()), nullptr);
    backend.reset();
    expectNothingLeft(before);
}

// The choice of a whole process, in one that has made none yet.
TEST(RingShortageDeathTest, AProcessThatIsRefusedRingsChoosesThePoolAndReads)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const unsigned call : {unsigned{SYS_io_uring_setup}, unsigned{SYS_io_uring_enter}})
        EXPECT_EXIT(
            {
                if (!refuseCall(call, ENOSYS))
                    std::_Exit(2);
                const TemporaryFolder folder;
                CompletionRecorder recorder;
                CompletionPortHandler port("p", recorder.command(), 3, 3, 3, 3);
                const Qz::Ptr<iFile> file =
                    OS()->getFileManager()->open(wide(folder.file("f", "abc")), os::accessRead,
                                                 os::creationOpen, os::shareAll, os::modeAsync);
                std::string buffer(3, '\0');
                const bool started =
                    port.attach(file) &&
                    file->asyncRead(0, buffer.data(), 3, OS()->getFileManager()->createAsyncContext(nullptr));
                const bool succeeded = started && recorder.await(1).back().succeeded && buffer == "abc";
                std::fprintf(stderr, "%s\n", os::backendChoiceText());
                std::_Exit(succeeded ? 0 : 1);
            },
            testing::ExitedWithCode(0), "thread pool .*Function not implemented");
}
