#include "os/linux/DeleteTree.h"

#include "os/LastError.h"
#include "os/linux/OpenFolder.h"
#include "os/linux/PathText.h"
#include "os/linux/ScopedFd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <vector>

namespace os {

namespace {

// Which mount something lies on. The device alone does not tell a folder that is mounted again inside
// its own file system; kernels before 5.8 tell no more.
struct MountIdentity
{
    std::uint64_t device = 0;
    std::uint64_t mount = 0;

    bool operator==(const MountIdentity&) const = default;
};

bool identify(int fd, MountIdentity& identity)
{
    struct statx info = {};
    if (::statx(fd, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_MNT_ID, &info) != 0)
        return false;
    identity.device = makedev(info.stx_dev_major, info.stx_dev_minor);
    identity.mount = (info.stx_mask & STATX_MNT_ID) != 0 ? info.stx_mnt_id : 0;
    return true;
}

// All names first: removing while reading may make the reading skip some.
bool namesIn(int fd, std::vector<std::string>& names)
{
    const OpenFolder folder(::fdopendir(::fcntl(fd, F_DUPFD_CLOEXEC, 0)));
    if (!folder)
        return false;
    errno = 0;
    while (const dirent* entry = ::readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
        errno = 0;
    }
    return errno == 0;
}

class TreeRemoval
{
public:
    TreeRemoval(MountIdentity mount, Progress& progress) : mount_(mount), progress_(progress) {}

    // Removes one entry of the folder parent. The first failure is kept; the rest goes on.
    void remove(int parent, const std::string& name)
    {
        progress_.step();
        if (::unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT)
            return;
        if (errno != EISDIR && errno != EPERM) {  // EPERM: what some file systems say for a folder
            note(errno);
            return;
        }
        const int whyNotFile = errno;
        const ScopedFd folder(
            ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
        if (!folder.isOpen()) {
            note(errno == ENOTDIR || errno == ELOOP ? whyNotFile : errno);
            return;
        }
        removeFolder(parent, name, folder.get());
    }

    [[nodiscard]] int error() const { return error_; }

private:
    void removeFolder(int parent, const std::string& name, int folder)
    {
        MountIdentity here;
        if (!identify(folder, here) || !(here == mount_)) {
            note(EBUSY);
            return;
        }
        std::vector<std::string> names;
        if (!namesIn(folder, names))
            note(errno);
        for (const std::string& inside : names)
            remove(folder, inside);
        if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT)
            note(errno);
    }

    void note(int error)
    {
        if (error_ == 0)
            error_ = error;
    }

    MountIdentity mount_;
    Progress& progress_;
    int error_ = 0;
};

int removeTree(const std::string& path, Progress& progress)
{
    const SplitPath split = splitPath(tidyPath(path));
    if (!path.starts_with('/') || split.name.empty() || split.name == "..")
        return EINVAL;
    const ScopedFd parent(::open(split.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    MountIdentity mount;
    if (!parent.isOpen() || !identify(parent.get(), mount))
        return errno;
    struct stat info = {};
    if (::fstatat(parent.get(), split.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return errno;
    TreeRemoval removal(mount, progress);
    removal.remove(parent.get(), split.name);
    return removal.error();
}

}  // namespace

bool deleteTree(const std::string& path, Progress& progress)
{
    const int error = removeTree(path, progress);
    if (error != 0)
        setLastErrno(error);
    return error == 0;
}

}  // namespace os
