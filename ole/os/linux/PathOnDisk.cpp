#include "os/linux/PathOnDisk.h"

#include "os/LastError.h"
#include "os/linux/PathText.h"

#include <sys/stat.h>

#include <cerrno>

namespace os {

namespace {

bool isThere(const std::string& path)
{
    struct stat info = {};
    return ::lstat(path.c_str(), &info) == 0;
}

}  // namespace

std::string pathAsFound(const std::string& named)
{
    if (!hasForeignSeparators(named) || isThere(named))
        return named;
    const std::string translated = withOwnSeparators(named);
    // A file that is about to be made has its folder.
    return isThere(translated) || isThere(splitPath(translated).folder) ? translated : named;
}

PathKind kindOf(const std::string& path, std::uint64_t* size)
{
    struct stat info = {};
    if (!succeeded(::stat(path.c_str(), &info)))
        return PathKind::none;
    if (S_ISDIR(info.st_mode))
        return PathKind::folder;
    if (size)
        *size = static_cast<std::uint64_t>(info.st_size);
    return S_ISREG(info.st_mode) ? PathKind::file : PathKind::other;
}

bool succeeded(int result)
{
    if (result != 0)
        setLastErrno(errno);
    return result == 0;
}

}  // namespace os
