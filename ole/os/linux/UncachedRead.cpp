#include "os/linux/UncachedRead.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/aio_abi.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace os {

namespace {

// A queue for one read at a time.
class ReadQueue
{
public:
    ReadQueue() : usable_(syscall(SYS_io_setup, 1U, &queue_) == 0) {}
    ~ReadQueue()
    {
        if (usable_)
            syscall(SYS_io_destroy, queue_);
    }
    ReadQueue(const ReadQueue&) = delete;
    ReadQueue& operator=(const ReadQueue&) = delete;

    // False where queues are forbidden or used up.
    [[nodiscard]] bool isUsable() const { return usable_; }

    [[nodiscard]] std::int64_t carryOut(iocb& request) const
    {
        iocb* requests[] = {&request};
        if (syscall(SYS_io_submit, queue_, 1L, requests) != 1)
            return -static_cast<std::int64_t>(errno);
        io_event event = {};
        // The memory is the kernel's until then, so there is no other way out.
        while (syscall(SYS_io_getevents, queue_, 1L, 1L, &event, nullptr) != 1) {
        }
        return event.res;
    }

private:
    aio_context_t queue_ = 0;
    const bool usable_;
};

}  // namespace

std::int64_t readPastCache(int fd, void* memory, std::size_t count, std::uint64_t position)
{
    thread_local const ReadQueue queue;
    if (!queue.isUsable()) {
        const ssize_t got = pread(fd, memory, count, static_cast<off_t>(position));
        return got < 0 ? -static_cast<std::int64_t>(errno) : got;
    }
    iocb request = {};
    request.aio_lio_opcode = IOCB_CMD_PREAD;
    request.aio_fildes = static_cast<unsigned>(fd);
    request.aio_buf = reinterpret_cast<std::uintptr_t>(memory);
    request.aio_nbytes = count;
    request.aio_offset = static_cast<std::int64_t>(position);
    return queue.carryOut(request);
}

// The kernel takes an answer that is too short for the end of the file, and keeps zeros for what lies behind
// until it is told to forget them.
bool endsAt(int fd, std::uint64_t position, std::size_t count)
{
    struct statx status = {};
    if (statx(fd, "", AT_EMPTY_PATH | AT_STATX_FORCE_SYNC, STATX_SIZE, &status) != 0)
        return false;
    if (status.stx_size <= position)
        return true;
    static_cast<void>(
        posix_fadvise(fd, static_cast<off_t>(position), static_cast<off_t>(count), POSIX_FADV_DONTNEED));
    return false;
}

}  // namespace os
