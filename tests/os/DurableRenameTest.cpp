// A name that may not be durable is told of, whatever call finds out.

#include "os/linux/DurableRename.h"
#include "common/TemporaryFolder.h"
#include "os/LastError.h"
#include "os/linux/AtomicSave.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <functional>
#include <thread>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

namespace {

// From here on calls of this thread with that number fail with the error, if their argument (by its place)
// has one of the bits.
bool failCalls(unsigned number, unsigned argument, unsigned bits, unsigned error)
{
    constexpr unsigned allow = SECCOMP_RET_ALLOW;
    const unsigned place =
        static_cast<unsigned>(offsetof(seccomp_data, args) + argument * sizeof(seccomp_data::args[0]));
    sock_filter rules[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, number},
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, place},
        {BPF_JMP | BPF_JSET | BPF_K, 0, 1, bits},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | error},
        {BPF_RET | BPF_K, 0, 0, allow},
    };
    const sock_fprog program{6, rules};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool failOpeningFolders(unsigned error) { return failCalls(SYS_openat, 2, O_DIRECTORY, error); }

struct Result
{
    bool done = false;
    int error = 0;
};

// What a call answers on a thread on which folders cannot be opened.
Result without(unsigned error, const std::function<bool()>& call)
{
    Result result;
    std::thread([&] {
        ASSERT_TRUE(failOpeningFolders(error));
        result.done = call();
        result.error = errnoFromError(lastError());
    }).join();
    return result;
}

}  // namespace

TEST(DurableRename, TellsOfADiskThatDiesBeforeTheFolderIsOpened)
{
    for (const int error : {EIO, ENXIO, EMFILE, ENOENT}) {
        const TemporaryFolder folder;
        const std::string from = folder.file("from", "bytes");
        const Result result = without(static_cast<unsigned>(error), [&] {
            os::Progress progress;
            return os::renameDurably(from, folder / "to", progress);
        });
        EXPECT_FALSE(result.done) << error;
        EXPECT_EQ(error, result.error);
        EXPECT_EQ("bytes", contentsOf(folder / "to"));
    }
}

TEST(DurableRename, IsContentWithAFolderThatItMayNotOpen)
{
    for (const int error : {EACCES, EPERM}) {
        const TemporaryFolder folder;
        const std::string from = folder.file("from", "bytes");
        EXPECT_TRUE(without(static_cast<unsigned>(error),
                            [&] {
                                os::Progress progress;
                                return os::renameDurably(from, folder / "to", progress);
                            })
                        .done)
            << error;
    }
}

TEST(AtomicSave, TellsOfADiskThatDiesBeforeTheFolderIsOpened)
{
    const TemporaryFolder folder;
    const std::string path = folder.file("list.txt", "old");
    const Result result = without(EIO, [&] {
        os::Progress progress;
        return os::saveAtomically(path, "new", progress);
    });
    EXPECT_FALSE(result.done);
    EXPECT_EQ(EIO, result.error);
    EXPECT_EQ("new", contentsOf(path));
}
