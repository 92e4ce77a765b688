#include "os/linux/WholeFile.h"

#include "os/LastError.h"
#include "os/linux/ScopedFd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace os {

namespace {

// 0, or the errno that tells why fd is not worth reading.
int whyNotReadable(int fd)
{
    struct stat info = {};
    if (::fstat(fd, &info) != 0)
        return errno;
    if (S_ISDIR(info.st_mode))
        return EISDIR;
    return S_ISREG(info.st_mode) ? 0 : EINVAL;
}

// Reads to the end, but one byte past limit at most. False with errno set.
bool readToEnd(int fd, std::size_t limit, std::string& contents, Progress& progress)
{
    char piece[65536];
    while (contents.size() <= limit) {
        const std::size_t wanted = std::min(sizeof piece, limit + 1 - contents.size());
        const ssize_t got = ::read(fd, piece, wanted);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got == 0;
        contents.append(piece, static_cast<std::size_t>(got));
        progress.step();
    }
    errno = EFBIG;
    return false;
}

}  // namespace

bool readRegularFile(const std::string& path, std::size_t limit, std::string& contents, Progress& progress)
{
    contents.clear();
    const ScopedFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    int error = file.isOpen() ? whyNotReadable(file.get()) : errno;
    if (error == 0 && !readToEnd(file.get(), limit, contents, progress))
        error = errno;
    if (error == 0)
        return true;
    contents.clear();
    setLastErrno(error);
    return false;
}

}  // namespace os
