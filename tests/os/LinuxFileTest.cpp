#include "os/linux/LinuxFile.h"

#include "CompletionRecorder.h"
#include "common/TemporaryFolder.h"
#include "os/Codes.h"
#include "os/linux/LinuxAsyncContext.h"
#include "os/linux/LinuxCompletionPort.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned asyncUnbuffered = os::modeAsync | os::modeUnbuffered;

Qz::Ptr<iFile> openPlain(const std::string& path, unsigned access, unsigned creation = os::creationOpen)
{
    return openLinuxFile(path, access, creation, os::modePlain, nullptr);
}

// Descriptors of this process.
std::set<int> openDescriptors()
{
    std::set<int> found;
    for (int fd = 0; fd < 1024; ++fd)
        if (fcntl(fd, F_GETFD) != -1)
            found.insert(fd);
    return found;
}

// Files may grow to that many bytes meanwhile; the signal that the kernel sends beyond is ignored.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes) : oldHandler_(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit limit = old_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, oldHandler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit old_{};
    void (*oldHandler_)(int);
};

class LinuxFileTransfers : public testing::TestWithParam<IoBackend>
{
protected:
    Qz::Ptr<iFile> openAttached(const std::string& path, unsigned access, unsigned mode)
    {
        const Qz::Ptr<iFile> file = openLinuxFile(path, access, os::creationOpen, mode, nullptr);
        EXPECT_TRUE(port_->attach(file));
        return file;
    }

    TemporaryFolder folder_;
    CompletionRecorder recorder_;
    const Qz::Ptr<iCompletionPort> port_ =
        createLinuxCompletionPortOn(GetParam(), "linuxfile", recorder_.command(), 3);
};

}  // namespace

TEST(LinuxFile, DescriptorsAreNotInheritedByOtherPrograms)
{
    const TemporaryFolder folder;
    const std::set<int> before = openDescriptors();
    const Qz::Ptr<iFile> file =
        openLinuxFile(folder / "f", os::accessReadWrite, os::creationNew, asyncUnbuffered, nullptr);
    ASSERT_TRUE(file);
    unsigned opened = 0;
    for (const int fd : openDescriptors()) {
        if (before.count(fd) == 0) {
            ++opened;
            EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        }
    }
    EXPECT_GE(opened, 1U);
}

TEST(LinuxFile, ARefusedOpenLeavesNoDescriptorBehind)
{
    const TemporaryFolder folder;
    const std::set<int> before = openDescriptors();
    EXPECT_FALSE(openPlain(folder.path(), os::accessRead));
    EXPECT_EQ(lastError(), errorFromErrno(EISDIR));
    EXPECT_FALSE(openPlain(folder / "f", os::accessRead, 9));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
    EXPECT_EQ(openDescriptors(), before);
}

TEST(LinuxFile, APipeWithoutAnotherEndOpensAtOnceInEveryDirection)
{
    const TemporaryFolder folder;
    const std::string path = folder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_TRUE(openPlain(path, os::accessRead));
    const Qz::Ptr<iFile> both = openPlain(path, os::accessWrite);
    ASSERT_TRUE(both);
    // Position and size mean nothing to a pipe; what is written comes out.
    EXPECT_EQ(both->getSize(), 0U);
    EXPECT_TRUE(both->write(12345, "abc", 3, nullptr));
    char bytes[3] = {};
    EXPECT_TRUE(both->read(0, bytes, 3, nullptr));
    EXPECT_EQ(std::string(bytes, 3), "abc");
}

TEST(LinuxFile, TheDescriptorOfAPipeWaitsForBytesOnceItIsOpen)
{
    const TemporaryFolder folder;
    const std::string path = folder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const std::set<int> before = openDescriptors();
    const Qz::Ptr<iFile> pipe = openPlain(path, os::accessRead);
    for (const int fd : openDescriptors()) {
        if (before.count(fd) == 0) {
            EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
        }
    }
}

TEST(LinuxFile, ADeviceIsReadLikeAFile)
{
    const Qz::Ptr<iFile> zero = openPlain("/dev/zero", os::accessRead);
    ASSERT_TRUE(zero);
    EXPECT_EQ(zero->getAsyncCapability(), 0U);
    char bytes[16];
    std::fill(std::begin(bytes), std::end(bytes), 'x');
    EXPECT_TRUE(zero->read(100, bytes, sizeof bytes, nullptr));
    EXPECT_EQ(std::string(bytes, sizeof bytes), std::string(sizeof bytes, '\0'));
}

TEST(LinuxFile, AFileThatMayOnlyBeWrittenIsOpenedForWriting)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("f", "abc");
    ASSERT_EQ(chmod(path.c_str(), 0222), 0);
    ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
    const uid_t user = geteuid();
    constexpr uid_t nobody = 65534;
    if (user == 0) {
        ASSERT_EQ(chown(path.c_str(), nobody, nobody), 0);
        ASSERT_EQ(seteuid(nobody), 0);
    }
    const Qz::Ptr<iFile> writer = openPlain(path, os::accessWrite);
    const Qz::Ptr<iFile> reader = openPlain(path, os::accessRead);
    const unsigned code = lastError();
    ASSERT_EQ(seteuid(user), 0);
    ASSERT_TRUE(writer);
    EXPECT_EQ(writer->getSize(), 3U);
    EXPECT_TRUE(writer->write(3, "d", 1, nullptr));
    EXPECT_FALSE(reader);
    EXPECT_EQ(code, errorFromErrno(EACCES));
}

TEST(LinuxFile, SettingTheOwnerMakesTheFileTheCallersAndNeverFailsTheOpen)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("f", "abc");
    if (geteuid() == 0) {
        ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    }
    const Qz::Ptr<iFile> file = openLinuxFile(path, os::accessWrite, os::creationOpenOrNew,
                                              asyncUnbuffered | os::modeSetOwner, nullptr);
    ASSERT_TRUE(file);
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid());
    EXPECT_EQ(status.st_gid, getegid());
}

TEST(LinuxFile, InformationNamesTheFile)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("f", "abc");
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    FILE_INFO info;
    ASSERT_TRUE(openPlain(path, os::accessRead)->getInfo(&info));
    EXPECT_EQ(info.size, 3U);
    EXPECT_EQ(info.inode, status.st_ino);
    EXPECT_EQ(info.device, status.st_dev);
    EXPECT_EQ(info.modifiedNs / 1'000'000'000, status.st_mtim.tv_sec);
    EXPECT_EQ(info.modifiedNs % 1'000'000'000, status.st_mtim.tv_nsec);
}

TEST(LinuxFile, AWriteThatIsCutShortTellsHowMuchWentAndWhy)
{
    const TemporaryFolder folder;
    const Qz::Ptr<iFile> file = openPlain(folder / "f", os::accessWrite, os::creationNew);
    const std::string bytes(1000, 'x');
    std::size_t done = 0;
    const FileSizeLimit limit(600);
    EXPECT_FALSE(file->write(0, bytes.data(), bytes.size(), &done));
    EXPECT_EQ(done, 600U);
    EXPECT_EQ(lastError(), errorFromErrno(EFBIG));
}

INSTANTIATE_TEST_SUITE_P(On, LinuxFileTransfers, testing::Values(IoBackend::uring, IoBackend::threads),
                         [](const auto& given) {
                             return std::string(given.param == IoBackend::uring ? "Ring" : "Pool");
                         });

TEST_P(LinuxFileTransfers, AWriteThatIsCutShortFailsWithTheReasonOfTheRest)
{
    const std::string path = folder_.file("f");
    const Qz::Ptr<iFile> file = openAttached(path, os::accessWrite, os::modeAsync);
    const std::string bytes(1000, 'x');
    {
        const FileSizeLimit limit(600);
        ASSERT_TRUE(file->asyncWrite(0, bytes.data(), bytes.size(), createLinuxAsyncContext(nullptr)));
        recorder_.await(1);
    }
    const auto completions = recorder_.await(1);
    ASSERT_EQ(completions.size(), 1U);
    EXPECT_FALSE(completions[0].succeeded);
    EXPECT_EQ(completions[0].bytes, 0U);
    EXPECT_EQ(completions[0].lastError, errorFromErrno(EFBIG));
    EXPECT_EQ(contentsOf(path), std::string(600, 'x'));
}

// The kernel moves a little less than 2 GiB at once. One small piece of memory stands for all of it, many
// times over; unbuffered where possible, to spare the page cache.
TEST_P(LinuxFileTransfers, TransfersAboveTwoGiBComeWhole)
{
    constexpr std::size_t piece = std::size_t{64} << 20;
    constexpr std::size_t pieces = 34;
    constexpr std::size_t count = pieces * piece;
    const std::string path = folder_.file("f");
    ASSERT_EQ(truncate(path.c_str(), off_t{count} + 4096), 0);

    const int memory = memfd_create("window", MFD_CLOEXEC);
    ASSERT_GE(memory, 0);
    ASSERT_EQ(ftruncate(memory, off_t{piece}), 0);
    void* space = mmap(nullptr, count, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(space, MAP_FAILED);
    char* const begin = static_cast<char*>(space);
    for (std::size_t i = 0; i < pieces; ++i)
        ASSERT_NE(mmap(begin + i * piece, piece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, memory, 0),
                  MAP_FAILED);
    close(memory);

    const Qz::Ptr<iFile> file = openAttached(path, os::accessRead, asyncUnbuffered);
    ASSERT_TRUE(file->asyncRead(0, space, count, createLinuxAsyncContext(nullptr)));
    const auto completions = recorder_.await(1);
    ASSERT_EQ(completions.size(), 1U);
    EXPECT_TRUE(completions[0].succeeded);
    EXPECT_EQ(completions[0].bytes, count);
    munmap(space, count);
}

TEST_P(LinuxFileTransfers, CountsThatACompletionCannotTellAreRefused)
{
    const Qz::Ptr<iFile> file = openAttached(folder_.file("f", "abc"), os::accessRead, os::modeAsync);
    char byte = 0;
    EXPECT_FALSE(file->asyncRead(0, &byte, std::size_t{1} << 32, createLinuxAsyncContext(nullptr)));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));
}

TEST_P(LinuxFileTransfers, AContextThatIsUnderWayOrMissingIsRefused)
{
    std::mutex gate;
    std::unique_lock closed(gate);
    CompletionRecorder recorder([&gate](const auto&) { const std::lock_guard pass(gate); });
    const Qz::Ptr<iCompletionPort> port =
        createLinuxCompletionPortOn(GetParam(), "linuxfile", recorder.command(), 3);
    const Qz::Ptr<iFile> file =
        openLinuxFile(folder_.file("f", "abc"), os::accessRead, os::creationOpen, os::modeAsync, nullptr);
    ASSERT_TRUE(port->attach(file));
    char byte = 0;
    EXPECT_FALSE(file->asyncRead(0, &byte, 1, nullptr));
    EXPECT_EQ(lastError(), errorFromErrno(EINVAL));

    // Taken by hand, as the port takes it: no completion can free it before the second start.
    auto* context = new LinuxAsyncContext(nullptr);
    const Qz::Ptr<iAsyncContext> held(context);
    const Qz::Ptr<SharedDescriptor> descriptor(new SharedDescriptor(open("/dev/null", O_RDONLY), nullptr));
    ASSERT_TRUE(context->begin(descriptor, Transfer()));
    EXPECT_FALSE(file->asyncRead(0, &byte, 1, held));
    EXPECT_EQ(lastError(), errorFromErrno(EBUSY));
    context->abandon();
    EXPECT_TRUE(file->asyncRead(0, &byte, 1, held));
    closed.unlock();
    EXPECT_EQ(recorder.await(1).size(), 1U);
    EXPECT_EQ(byte, 'a');
}

TEST_P(LinuxFileTransfers, TheDescriptorGoesWithTheLastTransferOfAReleasedFile)
{
    const std::string path = folder_.file("f", std::string(1 << 16, 'x'));
    const std::set<int> before = openDescriptors();
    std::vector<std::string> buffers(8, std::string(1 << 16, '\0'));
    {
        const Qz::Ptr<iFile> file = openAttached(path, os::accessRead, asyncUnbuffered);
        for (std::string& buffer : buffers)
            ASSERT_TRUE(file->asyncRead(0, buffer.data(), buffer.size(), createLinuxAsyncContext(nullptr)));
    }
    ASSERT_EQ(recorder_.await(buffers.size()).size(), buffers.size());
    EXPECT_EQ(openDescriptors(), before);
    for (const std::string& buffer : buffers)
        EXPECT_EQ(buffer, std::string(1 << 16, 'x'));
}

TEST_P(LinuxFileTransfers, UnbufferedAndBufferedTransfersOfOneFileSeeEachOther)
{
    const std::string path = folder_.file("f", std::string(1 << 17, '0'));
    const Qz::Ptr<iFile> direct = openAttached(path, os::accessReadWrite, asyncUnbuffered);
    const Qz::Ptr<iFile> plain = openPlain(path, os::accessReadWrite);
    alignas(65536) static char block[65536];
    for (std::size_t round = 0; round < 20; ++round) {
        const char mark = static_cast<char>('a' + round);
        std::fill(std::begin(block), std::end(block), mark);
        ASSERT_TRUE(direct->asyncWrite(65536, block, sizeof block, createLinuxAsyncContext(nullptr)));
        ASSERT_TRUE(recorder_.await(2 * round + 1).at(2 * round).succeeded);
        std::string seen(sizeof block, '\0');
        ASSERT_TRUE(plain->read(65536, seen.data(), seen.size(), nullptr));
        ASSERT_EQ(seen, std::string(sizeof block, mark));
        ASSERT_TRUE(plain->write(65536 + 100, "!", 1, nullptr));
        ASSERT_TRUE(direct->asyncRead(65536, block, sizeof block, createLinuxAsyncContext(nullptr)));
        ASSERT_TRUE(recorder_.await(2 * round + 2).at(2 * round + 1).succeeded);
        ASSERT_EQ(block[100], '!');
        ASSERT_EQ(block[101], mark);
    }
}

// Blocks are recycled: what another file left in one must not show through a read that came up short.
TEST_P(LinuxFileTransfers, AReadClearsWhatItDidNotFill)
{
    const Qz::Ptr<iFile> file = openAttached(folder_.file("f", "abc"), os::accessRead, os::modeAsync);
    std::string atEnd(1000, 'z');
    ASSERT_TRUE(file->asyncRead(1, atEnd.data(), atEnd.size(), createLinuxAsyncContext(nullptr)));
    ASSERT_TRUE(recorder_.await(1).at(0).succeeded);
    EXPECT_EQ(atEnd, "bc" + std::string(998, '\0'));

    // A descriptor for writing only: the kernel refuses the read.
    const std::string path = folder_.file("g", "abc");
    const Qz::Ptr<SharedDescriptor> writeOnly(
        new SharedDescriptor(open(path.c_str(), O_WRONLY | O_CLOEXEC), nullptr));
    const Qz::Ptr<iFile> refused(new LinuxFile(writeOnly, os::modeAsync));
    ASSERT_TRUE(port_->attach(refused));
    std::string failed(1000, 'z');
    ASSERT_TRUE(refused->asyncRead(0, failed.data(), failed.size(), createLinuxAsyncContext(nullptr)));
    ASSERT_FALSE(recorder_.await(2).at(1).succeeded);
    EXPECT_EQ(failed, std::string(1000, '\0'));
}
