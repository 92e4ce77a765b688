#include "os/linux/DurableRename.h"

#include "os/LastError.h"
#include "os/linux/PathText.h"
#include "os/linux/ScopedFd.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace os {

namespace {

bool failWith(int error)
{
    setLastErrno(error);
    return false;
}

bool isMissingHere(int error) { return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP; }

// A folder that may be written and not read cannot be opened, and many servers do not synchronise folders.
// All else is a failure, also while opening: a disk that died a moment ago refuses already that.
bool promisesNothing(int error)
{
    return error == EACCES || error == EPERM || error == EBADF || isMissingHere(error);
}

// File systems of servers often know no renaming that replaces nothing. A second name comes nearest, because
// the kernel refuses one that is taken; where there are no second names only looking first is left.
int renameByLink(const std::string& from, const std::string& to)
{
    if (::link(from.c_str(), to.c_str()) == 0)
        return ::unlink(from.c_str()) == 0 ? 0 : errno;
    if (!isMissingHere(errno) && errno != EPERM && errno != EMLINK)
        return errno;
    struct stat taken = {};
    if (::lstat(to.c_str(), &taken) == 0)
        return EEXIST;
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

int renameWithoutReplacing(const std::string& from, const std::string& to)
{
    struct stat status = {};
    if (::lstat(from.c_str(), &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    return isMissingHere(errno) ? renameByLink(from, to) : errno;
}

// xfs says that a folder is synchronised when its disk has died a moment before and nothing of it was
// written. Whatever else the dead disk is asked fails.
bool syncOnLivingDisk(int fd)
{
    struct stat status = {};
    return ::fsync(fd) == 0 && ::fstat(fd, &status) == 0;
}

}  // namespace

int syncFolder(const std::string& folder)
{
    const ScopedFd fd(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.isOpen() && syncOnLivingDisk(fd.get()))
        return 0;
    return promisesNothing(errno) ? 0 : errno;
}

bool renameDurably(const std::string& from, const std::string& to, Progress& progress)
{
    if (const int error = renameWithoutReplacing(from, to))
        return failWith(error);
    progress.step();
    const std::string folder = splitPath(to).folder;
    if (const int error = syncFolder(folder))
        return failWith(error);
    const std::string before = splitPath(from).folder;
    const int error = before == folder ? 0 : syncFolder(before);
    return error == 0 || failWith(error);
}

}  // namespace os
