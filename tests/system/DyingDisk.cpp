// A disk that dies between two calls. This program has an fsync of its own, in place of the system's.

#include "common/TemporaryFolder.h"
#include "os/linux/BoundedCalls.h"
#include "os/linux/DurableRename.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace {

bool diesBeforeSync = false;

// Without writing its log first.
int endFileSystem(int fd)
{
    std::uint32_t withoutLog = 2;
    return ::ioctl(fd, _IOR('X', 125, std::uint32_t), &withoutLog);
}

}  // namespace

extern "C" int fsync(int fd)
{
    if (diesBeforeSync && endFileSystem(fd) != 0)
        return -1;
    return static_cast<int>(::syscall(SYS_fsync, fd));
}

TEST(DyingDisk, NamesThatItNeverWroteAreNotCalledDurable)
{
    const TemporaryFolder folder;
    const std::string from = folder.file("old", "x");
    ASSERT_EQ(0, ::rename(from.c_str(), (folder.path() + "/new").c_str()));
    diesBeforeSync = true;
    EXPECT_EQ(EIO, os::syncFolder(folder.path()));
    diesBeforeSync = false;
}
