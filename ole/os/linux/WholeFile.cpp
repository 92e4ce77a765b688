#include "os/linux/WholeFile.h"

#include "os/LastError.h"
#include "os/linux/ScopedFd.h"
#include "os/linux/UncachedRead.h"

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

// Best effort: where it is refused there is no other way to read.
void goPastCache(int fd)
{
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0)
        static_cast<void>(::fcntl(fd, F_SETFL, flags | O_DIRECT));
}

// As often as a server may answer with nothing before the end.
constexpr unsigned emptyAnswersMax = 100;

// Bytes, or -1 with errno set.
ssize_t readOnce(int fd, Answers answers, char* piece, std::size_t wanted, std::uint64_t position)
{
    if (answers != Answers::lostAsZeros)
        return ::pread(fd, piece, wanted, static_cast<off_t>(position));
    const std::int64_t got = readPastCache(fd, piece, wanted, position);
    if (got >= 0)
        return static_cast<ssize_t>(got);
    errno = static_cast<int>(-got);
    return -1;
}

// The same; 0 at the end of the file only.
ssize_t readPiece(int fd, Answers answers, char* piece, std::size_t wanted, std::uint64_t position)
{
    for (unsigned tries = 0; tries < emptyAnswersMax; ++tries) {
        const ssize_t got = readOnce(fd, answers, piece, wanted, position);
        if (got < 0 && errno == EINTR)
            continue;
        if (got != 0 || answers == Answers::whole || endsAt(fd, position, wanted))
            return got;
    }
    errno = EIO;
    return -1;
}

// Reads to the end, but one byte past limit at most. False with errno set.
bool readToEnd(int fd, Answers answers, std::size_t limit, std::string& contents, Progress& progress)
{
    char piece[65536];
    while (contents.size() <= limit) {
        const std::size_t wanted = std::min(sizeof piece, limit + 1 - contents.size());
        const ssize_t got = readPiece(fd, answers, piece, wanted, contents.size());
        if (got <= 0)
            return got == 0;
        contents.append(piece, static_cast<std::size_t>(got));
        progress.step();
    }
    errno = EFBIG;
    return false;
}

}  // namespace

bool readRegularFile(const std::string& path, std::size_t limit, std::string& contents, Progress& progress,
                     Answers answers)
{
    contents.clear();
    const ScopedFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    int error = file.isOpen() ? whyNotReadable(file.get()) : errno;
    if (error == 0 && answers == Answers::lostAsZeros)
        goPastCache(file.get());
    if (error == 0 && !readToEnd(file.get(), answers, limit, contents, progress))
        error = errno;
    if (error == 0)
        return true;
    contents.clear();
    setLastErrno(error);
    return false;
}

}  // namespace os
