#include "os/linux/AtomicSave.h"

#include "os/LastError.h"
#include "os/linux/DurableRename.h"
#include "os/linux/Leftovers.h"
#include "os/linux/PathText.h"
#include "os/linux/ScopedFd.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace os {

namespace {

bool failWith(int error)
{
    setLastErrno(error);
    return false;
}

// Where the links that path is end; the last one may point at nothing.
std::string endOfLinks(std::string path)
{
    constexpr int linksMax = 40;
    char target[PATH_MAX];
    for (int i = 0; i < linksMax; ++i) {
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0)
            break;
        const std::string text(target, static_cast<std::size_t>(length));
        path = text.starts_with('/') ? text : splitPath(path).folder.append(text);
    }
    return path;
}

std::string randomName()
{
    std::uint64_t number = 0;
    if (::getrandom(&number, sizeof number, 0) != ssize_t{sizeof number})
        number = static_cast<std::uint64_t>(::getpid());
    std::string digits;
    for (int shift = 60; shift >= 0; shift -= 4)
        digits += "0123456789abcdef"[(number >> shift) & 15];
    return "." + digits + ".tmp";
}

// The file that becomes the new one. Gone at the end of the scope unless it has been renamed.
//
// Where locks can be trusted it has one of a few names that say whose it is, and is locked until it is
// renamed: one that nobody has locked was left by a save that was killed (removeLeftovers). Elsewhere, and
// while all these names are taken, it has a name that nobody can guess.
class TemporaryFile
{
public:
    explicit TemporaryFile(const std::string& target) : target_(target), folder_(splitPath(target).folder) {}
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile()
    {
        if (!path_.empty())
            ::unlink(path_.c_str());
    }

    // All return 0 or an errno.
    int create(mode_t mode)
    {
        const bool hasOwnName = hasTrustedLocks(folder_) && createWithOwnName(mode);
        return hasOwnName ? 0 : createWithRandomName(mode);
    }

    int write(const std::string& contents, Progress& progress)
    {
        std::size_t done = 0;
        while (done < contents.size()) {
            const ssize_t put = ::write(file_.get(), contents.data() + done, contents.size() - done);
            if (put < 0 && errno != EINTR)
                return errno;
            if (put == 0)
                return EIO;  // a server that takes nothing would be asked for ever
            done += put > 0 ? static_cast<std::size_t>(put) : 0;
            progress.step();
        }
        return 0;
    }

    void takeRightsOf(const struct stat& old)
    {
        // The owner first: changing it takes bits of the mode away.
        if (::fchown(file_.get(), old.st_uid, old.st_gid) != 0)
            errno = 0;
        if (::fchmod(file_.get(), old.st_mode & 07777) != 0)
            errno = 0;
    }

    // Either may be the first to tell of a write that failed. Closing gives the lock back, too early for one
    // that is locked; on a disk it tells nothing that the flush did not.
    int finish() { return ::fsync(file_.get()) == 0 && (isLocked_ || file_.close()) ? 0 : errno; }

    int renameTo(const std::string& path)
    {
        if (::rename(path_.c_str(), path.c_str()) != 0)
            return errno;
        path_.clear();
        return 0;
    }

private:
    bool createWithOwnName(mode_t mode)
    {
        removeLeftovers(target_);
        for (unsigned slot = 0; slot < leftoverNames; ++slot) {
            const std::string path = leftoverName(target_, slot);
            const int error = open(path, mode);
            if (error == 0 && lock(path))
                return true;
            if (error != 0 && error != EEXIST)
                return false;
        }
        return false;
    }

    // Before it was locked somebody may have taken it for a leftover, and another one have its name by now.
    bool lock(const std::string& path)
    {
        isLocked_ = ::flock(file_.get(), LOCK_EX | LOCK_NB) == 0 && isNamed(file_.get(), path);
        if (isLocked_)
            path_ = path;
        return isLocked_;
    }

    int createWithRandomName(mode_t mode)
    {
        constexpr int attempts = 16;
        int error = EEXIST;
        for (int i = 0; i < attempts && error == EEXIST; ++i) {
            const std::string path = folder_ + randomName();
            error = open(path, mode);
            if (error == 0)
                path_ = path;
        }
        return error;
    }

    int open(const std::string& path, mode_t mode)
    {
        file_ = ScopedFd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
        return file_.isOpen() ? 0 : errno;
    }

    const std::string& target_;
    const std::string folder_;
    std::string path_;
    ScopedFd file_;
    bool isLocked_ = false;
};

int whyNotReplaceable(const std::string& path, const struct stat& old)
{
    if (S_ISDIR(old.st_mode))
        return EISDIR;
    if (!S_ISREG(old.st_mode))
        return EINVAL;
    return ::access(path.c_str(), W_OK) == 0 ? 0 : errno;
}

}  // namespace

bool saveAtomically(const std::string& path, const std::string& contents, Progress& progress)
{
    const std::string target = endOfLinks(path);
    const std::string folder = splitPath(target).folder;
    struct stat old = {};
    const bool exists = ::lstat(target.c_str(), &old) == 0;
    if (!exists && errno != ENOENT)
        return failWith(errno);
    if (const int error = exists ? whyNotReplaceable(target, old) : 0)
        return failWith(error);

    // Private until it carries the rights of the old one.
    TemporaryFile file(target);
    if (const int error = file.create(exists ? 0600 : 0666))
        return failWith(error);
    if (const int error = file.write(contents, progress))
        return failWith(error);
    if (exists)
        file.takeRightsOf(old);
    progress.step();
    if (const int error = file.finish())
        return failWith(error);
    progress.step();
    if (const int error = file.renameTo(target))
        return failWith(error);
    progress.step();
    const int error = syncFolder(folder);
    return error == 0 || failWith(error);
}

}  // namespace os
