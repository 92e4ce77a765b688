#include "os/linux/Transfer.h"

#include "os/linux/FileServer.h"
#include "os/linux/SharedDescriptor.h"
#include "os/linux/UncachedRead.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sched.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

// The kernel cuts requests a little below 2 GiB, at a length that no disk is aligned to; this one is
// a multiple of every alignment, so that the rest of an unbuffered transfer stays unbuffered.
constexpr std::size_t stepBytesMax = std::size_t{1} << 30;

// A file that can be waited for is refused a few times at most; anything else is an error.
constexpr unsigned refusalsMax = 100;

// Shorter reads are copied before another thread has been woken.
constexpr std::size_t sharedCopyBytesMin = std::size_t{16} * 1024;

constexpr auto positionMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

}  // namespace

bool Transfer::isValid() const { return position_ <= positionMax && count_ <= positionMax - position_; }

bool Transfer::isSeekable() const { return file_->isSeekable(); }

bool Transfer::isSlow() const { return file_->server() != nullptr; }

const void* Transfer::serverIdentity() const { return isSlow() ? file_->server()->identity() : nullptr; }

Transfer::Step Transfer::nextStep()
{
    Step step{};
    step.memory = memory_ + done_;
    step.count = static_cast<unsigned>(std::min(count_ - done_, stepBytesMax));
    step.position = position_ + done_;
    direct_ = mayBeDirect_ && file_->allowsDirect(step.position, step.memory, step.count);
    step.pastCache = kind_ == TransferKind::read && file_->uncachedFd() >= 0;
    step.fd = step.pastCache ? file_->uncachedFd() : direct_ ? file_->directFd() : file_->fd();
    step.onWorker = isSlow() || refusals_ > 0;
    return step;
}

bool Transfer::mayBeCached() const
{
    return kind_ == TransferKind::read && count_ >= sharedCopyBytesMin && file_->isRegular() &&
           !(mayBeDirect_ && file_->allowsDirect(position_, memory_, count_)) &&
           file_->cacheGuess().isWorthTrying();
}

bool Transfer::copyCached()
{
    const Step step = nextStep();
    const iovec piece = {step.memory, step.count};
    const ssize_t copied = preadv2(step.fd, &piece, 1, static_cast<off_t>(step.position), RWF_NOWAIT);
    // Whatever else was the matter is told again when the rest is asked for.
    const bool cannotTell = copied < 0 && errno == EOPNOTSUPP;
    if (copied >= 0 && advance(copied))
        return true;
    if (cannotTell)
        file_->cacheGuess().giveUp();
    else
        file_->cacheGuess().missed();
    return false;
}

bool Transfer::advance(std::int64_t result)
{
    if (result > 0) {
        done_ += static_cast<std::size_t>(result);
        refusals_ = 0;
        return done_ >= count_;
    }
    if (result == 0) {
        // A write that moves nothing and names no error would never end.
        if (kind_ == TransferKind::write && done_ < count_)
            error_ = EIO;
        if (kind_ == TransferKind::read && done_ < count_ && isSlow() && isSeekable() && !endsHere()) {
            if (++refusals_ < refusalsMax)
                return false;
            error_ = EIO;
        }
        return true;
    }
    if (result == -EINTR)
        return false;
    // A ring gives up the waiting requests of a thread that ends; the transfer is not the thread's.
    if ((result == -EAGAIN || result == -ECANCELED) && ++refusals_ < refusalsMax)
        return false;
    // Some file systems offer unbuffered transfers and then refuse one, across the end of file for example.
    if (result == -EINVAL && direct_) {
        mayBeDirect_ = false;
        return false;
    }
    error_ = static_cast<int>(-result);
    return true;
}

bool Transfer::endsHere() const { return os::endsAt(file_->fd(), position_ + done_, count_ - done_); }

void Transfer::clearRest()
{
    // After EFAULT the memory is not there.
    if (kind_ == TransferKind::read && done_ < count_ && error_ != EFAULT)
        std::memset(memory_ + done_, 0, count_ - done_);
}

namespace {

ssize_t callKernel(TransferKind kind, const Transfer::Step& step, bool seekable)
{
    const auto position = static_cast<off_t>(step.position);
    if (kind == TransferKind::read)
        return seekable ? pread(step.fd, step.memory, step.count, position)
                        : ::read(step.fd, step.memory, step.count);
    return seekable ? pwrite(step.fd, step.memory, step.count, position)
                    : ::write(step.fd, step.memory, step.count);
}

// Bytes, or a negated errno.
std::int64_t carryOut(TransferKind kind, const Transfer::Step& step, bool seekable)
{
    if (step.pastCache)
        return os::readPastCache(step.fd, step.memory, step.count, step.position);
    const ssize_t moved = callKernel(kind, step, seekable);
    return moved < 0 ? -static_cast<std::int64_t>(errno) : moved;
}

}  // namespace

void runTransfer(Transfer& transfer)
{
    for (;;) {
        const Transfer::Step step = transfer.nextStep();
        const std::int64_t moved = carryOut(transfer.kind(), step, transfer.isSeekable());
        if (transfer.advance(moved))
            return;
        if (moved < 0)
            sched_yield();
    }
}
