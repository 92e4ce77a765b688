#include "os/linux/MountTableReader.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace os {

namespace {

std::string wholeText(int fd)
{
    std::string text;
    char piece[16384];
    for (;;) {
        const ssize_t got = ::pread(fd, piece, sizeof piece, static_cast<off_t>(text.size()));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return text;
        text.append(piece, static_cast<std::size_t>(got));
    }
}

}  // namespace

MountTableReader::MountTableReader(std::string file) : file_(std::move(file)) {}

std::shared_ptr<const MountTable> MountTableReader::current()
{
    const std::lock_guard guard(lock_);
    // A child of fork shares the descriptor, and with it the notice of changes: whoever asks first
    // would take it from the other.
    if (!fd_.isOpen() || owner_ != ::getpid()) {
        openFile();
        reload();
    } else if (hasChanged()) {
        reload();
    }
    return table_;
}

unsigned MountTableReader::readCount()
{
    const std::lock_guard guard(lock_);
    return reads_;
}

void MountTableReader::openFile()
{
    fd_ = ScopedFd(::open(file_.c_str(), O_RDONLY | O_CLOEXEC));
    owner_ = ::getpid();
}

// The kernel reports a change of the table as urgent data, once per change and descriptor.
bool MountTableReader::hasChanged() const
{
    pollfd change{fd_.get(), POLLPRI, 0};
    return ::poll(&change, 1, 0) > 0 && (change.revents & (POLLPRI | POLLERR)) != 0;
}

void MountTableReader::reload()
{
    if (!fd_.isOpen()) {
        table_ = std::make_shared<MountTable>();
        return;
    }
    // A change while the text is read may tear it: read until one reading was left in peace.
    constexpr int attempts = 10;
    for (int i = 0; i < attempts; ++i) {
        table_ = std::make_shared<MountTable>(parseMountInfo(wholeText(fd_.get())));
        ++reads_;
        if (!hasChanged())
            return;
    }
}

}  // namespace os
