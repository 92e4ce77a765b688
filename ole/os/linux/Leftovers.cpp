#include "os/linux/Leftovers.h"

#include "os/linux/PathText.h"
#include "os/linux/ScopedFd.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace os {

namespace {

constexpr std::uint32_t zfsMagic = 0x2FC12FC1;
constexpr std::uint32_t bcachefsMagic = 0xCA451A4E;

// One machine has these, and its kernel all their locks. Elsewhere, behind servers and in user space, a lock
// may be unknown to a writer on another machine or under another mount.
constexpr std::array<std::uint32_t, 9> magicsOfDisks = {
    EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC, BTRFS_SUPER_MAGIC,     F2FS_SUPER_MAGIC, TMPFS_MAGIC,
    RAMFS_MAGIC,      bcachefsMagic,   OVERLAYFS_SUPER_MAGIC, zfsMagic,
};

bool isSavedBy(const struct stat& left, const std::string& path)
{
    if (left.st_uid == ::geteuid())
        return true;
    struct stat saved = {};
    return ::lstat(path.c_str(), &saved) == 0 && saved.st_uid == left.st_uid;
}

void removeIfDead(const std::string& left, const std::string& path)
{
    struct stat found = {};
    if (::lstat(left.c_str(), &found) != 0 || !S_ISREG(found.st_mode) || found.st_nlink != 1 ||
        !isSavedBy(found, path))
        return;
    const ScopedFd file(::open(left.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    // Under the lock nobody else renames or removes it who keeps to these rules.
    if (file.isOpen() && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0 && isNamed(file.get(), left))
        ::unlink(left.c_str());
}

}  // namespace

std::string leftoverName(const std::string& path, unsigned slot)
{
    const SplitPath split = splitPath(path);
    return split.folder + '.' + split.name + ".fsys-save" + std::to_string(slot) + ".tmp";
}

bool hasTrustedLocks(const std::string& folder)
{
    struct statfs info = {};
    if (::statfs(folder.empty() ? "." : folder.c_str(), &info) != 0)
        return false;
    const auto magic = static_cast<std::uint32_t>(info.f_type);
    return std::find(magicsOfDisks.begin(), magicsOfDisks.end(), magic) != magicsOfDisks.end();
}

bool isNamed(int fd, const std::string& path)
{
    struct stat open = {};
    struct stat named = {};
    return ::fstat(fd, &open) == 0 && ::lstat(path.c_str(), &named) == 0 && open.st_ino == named.st_ino &&
           open.st_dev == named.st_dev;
}

void removeLeftovers(const std::string& path)
{
    for (unsigned slot = 0; slot < leftoverNames; ++slot)
        removeIfDead(leftoverName(path, slot), path);
}

}  // namespace os
