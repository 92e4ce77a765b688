#include "os/linux/LinuxFile.h"

#include "os/Codes.h"
#include "os/LastError.h"
#include "os/linux/FileServer.h"
#include "os/linux/LinuxAsyncContext.h"
#include "os/linux/PortState.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <new>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool failWith(int errorNumber)
{
    setLastErrno(errorNumber);
    return false;
}

std::uint64_t unsignedSize(const struct stat& status)
{
    return status.st_size > 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

}  // namespace

LinuxFile::LinuxFile(const Qz::Ptr<SharedDescriptor>& descriptor, unsigned mode)
    : descriptor_(descriptor), mode_(mode), capability_(descriptor->isRegular() ? os::capabilityAsync : 0)
{}

Qz::Ptr<SharedDescriptor> LinuxFile::descriptor() const
{
    const std::lock_guard guard(mutex_);
    return descriptor_;
}

bool LinuxFile::isOpen() const { return static_cast<bool>(descriptor()); }

unsigned LinuxFile::getAsyncCapability() const { return capability_; }

template <class Result, class Question>
Result LinuxFile::ask(Result failed, Question question)
{
    const Qz::Ptr<SharedDescriptor> file = descriptor();
    if (!file) {
        setLastErrno(EBADF);
        return failed;
    }
    if (!file->server())
        return question(*file);
    const auto answer = file->server()->ask<Result>([file, question] { return question(*file); });
    return answer.value_or(failed);
}

namespace {

// A transfer that is given up ends in this memory and not in the caller's.
struct Passage
{
    explicit Passage(std::size_t bytes) : memory(new (std::nothrow) std::byte[bytes]) {}

    std::unique_ptr<std::byte[]> memory;
};

struct Moved
{
    std::size_t bytes = 0;
    int error = 0;  // errno
};

Moved moveNow(const SharedDescriptor& file, TransferKind kind, std::uint64_t position, void* buffer,
              std::size_t count)
{
    Transfer transfer(&file, kind, position, buffer, count);
    transfer.stayBuffered();
    runTransfer(transfer);
    return {transfer.done(), transfer.error()};
}

Moved moveThroughServer(const Qz::Ptr<SharedDescriptor>& file, TransferKind kind, std::uint64_t position,
                        std::byte* buffer, std::size_t count)
{
    const auto passage = std::make_shared<Passage>(count);
    if (!passage->memory)
        return {0, ENOMEM};
    if (kind == TransferKind::write)
        std::memcpy(passage->memory.get(), buffer, count);
    const auto moved = file->server()->move<Moved>([file, kind, position, passage, count] {
        return moveNow(*file, kind, position, passage->memory.get(), count);
    });
    if (!moved)
        return {0, errnoFromError(lastError())};
    if (kind == TransferKind::read)
        std::memcpy(buffer, passage->memory.get(), moved->bytes);
    return *moved;
}

// In pieces: each may take as long as a server may, and none needs much memory.
Moved moveInPieces(const Qz::Ptr<SharedDescriptor>& file, TransferKind kind, std::uint64_t position,
                   void* buffer, std::size_t count)
{
    constexpr std::size_t pieceBytesMax = std::size_t{4} << 20;
    Moved all;
    while (all.bytes < count) {
        const std::size_t piece = std::min(count - all.bytes, pieceBytesMax);
        const Moved moved = moveThroughServer(file, kind, position + all.bytes,
                                              static_cast<std::byte*>(buffer) + all.bytes, piece);
        all.bytes += moved.bytes;
        all.error = moved.error;
        if (moved.bytes < piece)
            break;
    }
    return all;
}

}  // namespace

bool LinuxFile::transferNow(TransferKind kind, std::uint64_t position, void* buffer, std::size_t count,
                            std::size_t* done)
{
    if (done)
        *done = 0;
    const Qz::Ptr<SharedDescriptor> file = descriptor();
    if (!file)
        return failWith(EBADF);
    if (!Transfer(file.get(), kind, position, buffer, count).isValid())
        return failWith(EINVAL);
    if (count == 0)
        return true;
    // A pipe waits for its other end, not for a server.
    const bool asksServer = file->server() && file->isSeekable();
    const Moved moved = asksServer ? moveInPieces(file, kind, position, buffer, count)
                                   : moveNow(*file, kind, position, buffer, count);
    if (done)
        *done = moved.bytes;
    if (moved.error != 0)
        return failWith(moved.error);
    return moved.bytes > 0 || failWith(ENODATA);
}

bool LinuxFile::read(std::uint64_t position, void* buffer, std::size_t count, std::size_t* done)
{
    return transferNow(TransferKind::read, position, buffer, count, done);
}

bool LinuxFile::write(std::uint64_t position, const void* buffer, std::size_t count, std::size_t* done)
{
    return transferNow(TransferKind::write, position, const_cast<void*>(buffer), count, done);
}

namespace {

std::optional<FILE_INFO> infoOf(const SharedDescriptor& file)
{
    struct stat status = {};
    if (fstat(file.fd(), &status) != 0) {
        setLastErrno(errno);
        return std::nullopt;
    }
    FILE_INFO info;
    info.size = unsignedSize(status);
    info.modifiedNs = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
    info.inode = status.st_ino;
    info.device = status.st_dev;
    info.links = status.st_nlink;
    return info;
}

std::optional<std::uint64_t> writtenSizeOf(const SharedDescriptor& file)
{
    const std::optional<FILE_INFO> info = infoOf(file);
    if (!info)
        return std::nullopt;
    // Every file ends in a hole, and one that is empty begins behind its end. File systems that know of no
    // holes answer with the end or refuse the question.
    const off_t hole = info->size == 0 ? 0 : lseek(file.fd(), 0, SEEK_HOLE);
    if (hole < 0 && errno != EINVAL && errno != EOPNOTSUPP && errno != ENXIO) {
        setLastErrno(errno);
        return std::nullopt;
    }
    return hole < 0 ? info->size : std::min(info->size, static_cast<std::uint64_t>(hole));
}

bool claimNow(const SharedDescriptor& file)
{
    // One byte that no file reaches: some servers enforce such locks, and then nobody is to be kept from the
    // contents. Of the handle and not of the process, so that two handles of one process compete.
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    range.l_start = std::numeric_limits<off_t>::max() - 1;
    range.l_len = 1;
    return fcntl(file.fd(), F_OFD_SETLK, &range) == 0 || failWith(errno == EACCES ? EWOULDBLOCK : errno);
}

bool flushNow(const SharedDescriptor& file) { return fsync(file.fd()) == 0 || failWith(errno); }

}  // namespace

bool LinuxFile::getInfo(FILE_INFO* info)
{
    const auto answer = ask(std::optional<FILE_INFO>(), infoOf);
    if (answer)
        *info = *answer;
    return answer.has_value();
}

std::uint64_t LinuxFile::getSize()
{
    FILE_INFO info;
    return getInfo(&info) ? info.size : 0;
}

bool LinuxFile::flush()
{
    const Qz::Ptr<SharedDescriptor> file = descriptor();
    if (!file)
        return failWith(EBADF);
    if (!file->server())
        return flushNow(*file);
    return file->server()->move<bool>([file] { return flushNow(*file); }).value_or(false);
}

bool LinuxFile::setSize(std::uint64_t bytes)
{
    if (bytes > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()))
        return isOpen() ? failWith(EINVAL) : failWith(EBADF);
    return ask(false, [bytes](const SharedDescriptor& file) {
        return ftruncate(file.fd(), static_cast<off_t>(bytes)) == 0 || failWith(errno);
    });
}

bool LinuxFile::getWrittenSize(std::uint64_t* bytes)
{
    const auto answer = ask(std::optional<std::uint64_t>(), writtenSizeOf);
    if (answer)
        *bytes = *answer;
    return answer.has_value();
}

bool LinuxFile::claim() { return ask(false, claimNow); }

bool LinuxFile::startTransfer(TransferKind kind, std::uint64_t position, void* buffer, std::size_t count,
                              const Qz::Ptr<iAsyncContext>& context)
{
    Qz::Ptr<SharedDescriptor> file;
    Qz::Ptr<PortState> port;
    {
        const std::lock_guard guard(mutex_);
        file = descriptor_;
        port = port_;
    }
    if (!file || !port)
        return failWith(EBADF);
    const Transfer transfer(file.get(), kind, position, buffer, count);
    // A completion counts its bytes in 32 bits.
    if (!transfer.isValid() || count > std::numeric_limits<unsigned>::max())
        return failWith(EINVAL);
    auto* started = dynamic_cast<LinuxAsyncContext*>(context.get());
    if (!started)
        return failWith(EINVAL);
    if (!started->begin(file, transfer))
        return failWith(EBUSY);
    if (port->submit(started))
        return true;
    started->abandon();
    return failWith(EBADF);
}

bool LinuxFile::asyncRead(std::uint64_t position, void* buffer, std::size_t count,
                          const Qz::Ptr<iAsyncContext>& context)
{
    return startTransfer(TransferKind::read, position, buffer, count, context);
}

bool LinuxFile::asyncWrite(std::uint64_t position, const void* buffer, std::size_t count,
                           const Qz::Ptr<iAsyncContext>& context)
{
    return startTransfer(TransferKind::write, position, const_cast<void*>(buffer), count, context);
}

void LinuxFile::close()
{
    Qz::Ptr<SharedDescriptor> last;
    const std::lock_guard guard(mutex_);
    last.swap(descriptor_);
}

bool LinuxFile::attachTo(const Qz::Ptr<PortState>& port)
{
    const std::lock_guard guard(mutex_);
    if (!descriptor_ || port_ || (mode_ & os::modeAsync) == 0 || capability_ == 0)
        return false;
    port_ = port;
    return true;
}

namespace {

int accessFlags(unsigned access)
{
    // A writer reads as well where it may: nothing that is opened for writing is then left without a way
    // to look at what is there.
    return (access & os::accessWrite) != 0 ? O_RDWR : O_RDONLY;
}

// Negative for a code that does not exist.
int creationFlags(unsigned creation)
{
    switch (creation) {
    case os::creationOpen:
        return 0;
    case os::creationNew:
        return O_CREAT | O_EXCL;
    case os::creationOpenOrNew:
    case os::creationOpenOrNewRW:
        return O_CREAT;
    default:
        return -1;
    }
}

int openDescriptor(const std::string& path, unsigned access, int creation)
{
    constexpr mode_t everybody = 0666;
    // O_NONBLOCK: a pipe or a device that stands where a file is expected must not hold the caller.
    const int others = creation | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    int fd = ::open(path.c_str(), accessFlags(access) | others, everybody);
    if (fd < 0 && errno == EACCES && (access & os::accessReadWrite) == os::accessWrite)
        fd = ::open(path.c_str(), O_WRONLY | others, everybody);
    return fd;
}

// errno of what forbids the use of an open descriptor, 0 for nothing.
int prepareDescriptor(int fd)
{
    struct stat status = {};
    if (fstat(fd, &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0)
        return errno;
    return 0;
}

void takeOwnership(int fd)
{
    // Best effort: only a privileged caller can change it, and only where it differs.
    static_cast<void>(fchown(fd, geteuid(), getegid()) == 0);
}

}  // namespace

Qz::Ptr<iFile> openLinuxFile(const std::string& utf8Path, unsigned access, unsigned creation, unsigned mode,
                             const std::shared_ptr<const os::FileServer>& server)
{
    const int flags = creationFlags(creation);
    if (flags < 0) {
        setLastErrno(EINVAL);
        return {};
    }
    const int fd = openDescriptor(utf8Path, access, flags);
    if (fd < 0) {
        setLastErrno(errno);
        return {};
    }
    if (const int error = prepareDescriptor(fd)) {
        ::close(fd);
        setLastErrno(error);
        return {};
    }
    if ((mode & os::modeSetOwner) != 0)
        takeOwnership(fd);
    const Qz::Ptr<SharedDescriptor> descriptor(new SharedDescriptor(fd, server));
    if ((mode & os::modeUnbuffered) != 0)
        descriptor->enableDirect();
    if (server && server->cutsAnswers())
        descriptor->enableUncachedReads();
    return Qz::Ptr<iFile>(new LinuxFile(descriptor, mode));
}
