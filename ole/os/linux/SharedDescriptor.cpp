#include "os/linux/SharedDescriptor.h"

#include "os/linux/FileServer.h"

#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// The same file again, unbuffered. The way over the descriptor cannot meet another file, as the path could.
int openDirect(int fd, int access)
{
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    return ::open(path.c_str(), access | O_DIRECT | O_CLOEXEC | O_NOCTTY);
}

bool isMultiple(std::uint64_t value, std::uint32_t alignment) { return value % alignment == 0; }

}  // namespace

SharedDescriptor::SharedDescriptor(int fd, std::shared_ptr<const os::FileServer> server)
    : fd_(fd), server_(std::move(server))
{
    struct stat status = {};
    regular_ = fstat(fd_, &status) == 0 && S_ISREG(status.st_mode);
    seekable_ = regular_ || lseek(fd_, 0, SEEK_CUR) >= 0;
}

SharedDescriptor::~SharedDescriptor()
{
    if (directFd_ >= 0)
        ::close(directFd_);
    // Closing tells the server, and a pipe that is closed late keeps its other end waiting.
    if (server_ && seekable_)
        server_->end([fd = fd_, other = uncachedFd_] {
            if (other >= 0 && other != fd)
                ::close(other);
            ::close(fd);
        });
    else
        ::close(fd_);
}

void SharedDescriptor::enableDirect()
{
    // User-space and network file systems take unbuffered requests and then answer some of them wrongly.
    if (server_ || !regular_)
        return;
    struct statx status = {};
    if (statx(fd_, "", AT_EMPTY_PATH, STATX_DIOALIGN, &status) != 0 ||
        (status.stx_mask & STATX_DIOALIGN) == 0)
        return;
    if (status.stx_dio_mem_align == 0 || status.stx_dio_offset_align == 0)
        return;
    memoryAlignment_ = status.stx_dio_mem_align;
    offsetAlignment_ = status.stx_dio_offset_align;
    const int flags = fcntl(fd_, F_GETFL);
    if (flags >= 0)
        directFd_ = openDirect(fd_, flags & O_ACCMODE);
}

void SharedDescriptor::enableUncachedReads()
{
    const int flags = regular_ ? fcntl(fd_, F_GETFL) : -1;
    if (flags < 0)
        return;
    // Writes go on through the kernel's memory. Where there are none, no second opening has to be waited for.
    if ((flags & O_ACCMODE) != O_RDONLY)
        uncachedFd_ = openDirect(fd_, O_RDONLY);
    else if (fcntl(fd_, F_SETFL, flags | O_DIRECT) == 0)
        uncachedFd_ = fd_;
}

bool SharedDescriptor::allowsDirect(std::uint64_t position, const void* memory, std::size_t count) const
{
    return directFd_ >= 0 && isMultiple(position, offsetAlignment_) && isMultiple(count, offsetAlignment_) &&
           isMultiple(reinterpret_cast<std::uintptr_t>(memory), memoryAlignment_);
}
