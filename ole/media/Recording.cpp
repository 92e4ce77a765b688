#include "media/Recording.h"

#include "os/Clock.h"
#include "os/LastError.h"
#include "os/Patience.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

namespace {

// The engine lists 40 requests of a file and makes callers wait when its list is full.
constexpr std::uint64_t listedBlocksMax = 32;

std::size_t blocksFor(std::uint64_t bytes)
{
    return static_cast<std::size_t>(
        std::clamp<std::uint64_t>(bytes / MediaWriter::blockBytes, 2, listedBlocksMax));
}

}  // namespace

MediaWriter::Recording::Recording(const LightweightString<wchar_t>& path, const std::optional<Clip>& clip,
                                  const MediaWriterOptions& options)
    : file_(path),
      clip_(clip),
      blocksMax_(blocksFor(options.bytesInFlight)),
      stallLimitMs_(options.stallLimitMs),
      memory_(std::make_shared<BlockMemory>()),
      queue_(blocksMax_, options.stallLimitMs),
      space_(path, options.lowSpaceBytes, options.onSpaceLow)
{
    if (options.hash)
        hash_.emplace();
}

void MediaWriter::Recording::begin()
{
    if (clip_ && (!clip_->cookie.valid() || clip_->name.getPath().empty())) {
        fail(MediaErrorCode::invalidArgument, 0);
        return;
    }
    if (const MediaError error = file_.begin()) {
        fail(error);
        return;
    }
    begun_ = true;
    space_.look(0);
}

MediaError MediaWriter::Recording::error() const
{
    const std::lock_guard<std::mutex> hold(guard_);
    return error_;
}

MediaWriter::Counters MediaWriter::Recording::counters() const
{
    const std::lock_guard<std::mutex> hold(guard_);
    return counters_;
}

void MediaWriter::Recording::fail(MediaErrorCode code, unsigned platformCode)
{
    try {
        fail(recordingError(code, platformCode, file_.path()));
    } catch (const std::bad_alloc&) {
        fail(MediaError{code, platformCode, {}});
    }
}

void MediaWriter::Recording::fail(MediaError error)
{
    const std::lock_guard<std::mutex> hold(guard_);
    if (!error_)
        error_ = std::move(error);
}

void MediaWriter::Recording::failToWrite(unsigned platformCode)
{
    const bool noMemory = errnoFromError(platformCode) == ENOMEM;
    fail(noMemory ? MediaErrorCode::noMemory : diskFullOr(MediaErrorCode::writeFailed, platformCode),
         platformCode);
}

bool MediaWriter::Recording::hasFailed() const
{
    const std::lock_guard<std::mutex> hold(guard_);
    return static_cast<bool>(error_);
}

bool MediaWriter::Recording::isWritable()
{
    if (result_)
        fail(MediaErrorCode::notOpen, 0);
    else if (begun_ && queue_.collect())
        waitUntilAtMost(blocksMax_);
    return !hasFailed();
}

// --- writing

bool MediaWriter::Recording::write(std::span<const std::byte> data)
{
    const double startedMs = now();
    bool waited = false;
    try {
        if (!isWritable())
            return false;
        space_.willWrite(data.size(), bytesUnderWay());
        // Who was told of low space may have ended the recording.
        if (!isWritable() || !takeIn(data, &waited))
            return false;
    } catch (const std::bad_alloc&) {
        fail(MediaErrorCode::noMemory, 0);
        return false;
    }
    endWrite(data.size());
    noteCounters(waited, startedMs);
    return true;
}

bool MediaWriter::Recording::takeIn(std::span<const std::byte> data, bool* waited)
{
    if (hash_)
        hash_->add(data);
    while (!data.empty()) {
        if (current_ && current_->isFull())
            sendFullBlock();
        if (!current_ && !beginBlock(waited))
            return false;
        data = data.subspan(current_->append(data));
    }
    return true;
}

bool MediaWriter::Recording::beginBlock(bool* waited)
{
    if (!waitUntilAtMost(blocksMax_ - 1, waited))
        return false;
    current_ = WriteBlock::make(memory_, queue_.ended(), nextBlock_);
    if (!current_) {
        fail(MediaErrorCode::noMemory, 0);
        return false;
    }
    nextBlock_ += blockBytes;
    return true;
}

void MediaWriter::Recording::endWrite(std::size_t bytes)
{
    if (bytes == 0)
        return;
    accepted_ += bytes;
    current_->endWholeWrite();
    if (current_->isFull())
        sendFullBlock();
}

void MediaWriter::Recording::sendFullBlock()
{
    const os::Patience patience(stallLimitMs_);
    queue_.add(current_);
    file_.write(current_);
    current_.reset();
}

bool MediaWriter::Recording::waitUntilAtMost(std::size_t blocks, bool* waited)
{
    switch (queue_.waitUntilAtMost(blocks, waited)) {
    case WriteQueue::Wait::done:
        return true;
    case WriteQueue::Wait::failed:
        failToWrite(queue_.failureCode());
        return false;
    case WriteQueue::Wait::stalled:
        break;
    }
    fail(MediaErrorCode::givenUp, 0);
    return false;
}

// --- flushing

bool MediaWriter::Recording::writeRest()
{
    if (!current_ || current_->getUsed() == 0)
        return true;
    const unsigned result = file_.writeNow(current_->position(), current_->getBuffer(), current_->getUsed());
    if (result == 1)
        return true;
    failToWrite(result);
    return false;
}

bool MediaWriter::Recording::flush()
{
    const os::Patience patience(stallLimitMs_);
    return isWritable() && waitUntilAtMost(0) && writeRest() && flushDevice();
}

// --- counters

std::uint64_t MediaWriter::Recording::bytesUnderWay() const
{
    return accepted_ - std::min(accepted_, std::max(queue_.writtenEnd(), flushed_));
}

void MediaWriter::Recording::noteCounters(bool waited, double startedMs)
{
    const double tookMs = now() - startedMs;
    const std::lock_guard<std::mutex> hold(guard_);
    ++counters_.writes;
    counters_.bytes = accepted_;
    counters_.bytesOnDisk = std::max(queue_.writtenEnd(), flushed_);
    counters_.waits += waited ? 1U : 0U;
    counters_.worstWaitMs = std::max(counters_.worstWaitMs, tookMs);
}

void MediaWriter::Recording::noteOnDisk()
{
    const std::lock_guard<std::mutex> hold(guard_);
    counters_.bytesOnDisk = std::max(queue_.writtenEnd(), flushed_);
}
