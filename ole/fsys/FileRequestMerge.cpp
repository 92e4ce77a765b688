// The part of FileRequest that joins neighbouring requests into one transfer.

#include "fsys/EngineState.h"
#include "fsys/FileRequest.h"
#include "fsys/Fsys.h"
#include "fsys/FsysBuf.h"
#include "fsys/FsysFile.h"

#include <algorithm>
#include <limits>
#include <utility>

// Merging: the time in which callers are added to a request.
//
// A completion works without the file's lock, so that one that may come is held off. None comes while the
// request waits in the queue: it leaves that state under the lock, which is held here.
class FileRequest::Merging
{
public:
    explicit Merging(FileRequest& request)
        : request_(request),
          waits_(request.state_.load(std::memory_order_acquire) == QUEUED),
          isPossible_(waits_ || request.beginMerge())
    {}
    ~Merging()
    {
        if (isPossible_ && !waits_)
            request_.endMerge();
    }
    Merging(const Merging&) = delete;
    Merging& operator=(const Merging&) = delete;

    [[nodiscard]] bool isPossible() const { return isPossible_; }

private:
    FileRequest& request_;
    const bool waits_;
    const bool isPossible_;
};

bool FileRequest::runs_into(const FileRequest* a, const FileRequest* b)
{
    if (!reaches(*a, *b))
        return false;
    if (a->is_read_)
        return true;
    const unsigned char* const first = a->buffer_ ? a->buffer_->getBuffer() : nullptr;
    const unsigned char* const second = b->buffer_ ? b->buffer_->getBuffer() : nullptr;
    return first && second && first + a->ByteCount_ == second;
}

std::uint32_t FileRequest::FurthestLength(const FileRequest* a, const FileRequest* b)
{
    const auto own = static_cast<std::int64_t>(a->ByteCount_);
    const auto reach = static_cast<std::int64_t>(b->position_ - a->position_) + b->ByteCount_;
    return static_cast<std::uint32_t>(std::max(own, reach));
}

unsigned FileRequest::Coalesce(FileRequest* other)
{
    if (is_read_ != other->is_read_ || synchronous_ != other->synchronous_)
        return 0;
    const Merging merging(*this);
    std::uint32_t offset = 0;
    if (!merging.isPossible() || !absorb(*other, offset))
        return 0;
    adoptCallers(*other, offset);
    return 1;
}

unsigned FileRequest::CoalesceCaller(const FileRequest& range, CompletionInfo&& caller)
{
    if (is_read_ != range.is_read_ || synchronous_ != range.synchronous_)
        return 0;
    const Merging merging(*this);
    if (!merging.isPossible() || !absorb(range, caller.bufferOffset))
        return 0;
    if (caller.function)
        completions_.add(std::move(caller));
    return 1;
}

bool FileRequest::absorb(const FileRequest& b, std::uint32_t& offset)
{
    const bool inside = encompasses(&b);
    const bool isStarted = status() == STARTED;
    if (!inside && (isStarted || std::uint64_t{ByteCount_} + b.ByteCount_ > file_->coalesceLength()))
        return false;

    const std::uint32_t oldLength = ByteCount_;
    offset = 0;
    if (runs_into(this, &b)) {
        if (b.position_ - position_ + b.ByteCount_ > std::numeric_limits<std::uint32_t>::max())
            return false;
        ByteCount_ = FurthestLength(this, &b);
        offset = static_cast<std::uint32_t>(b.position_ - position_);
        if (!is_read_)
            mergedBuffers_.push_back(b.buffer_);
    } else if (runs_into(&b, this)) {
        if (position_ - b.position_ + ByteCount_ > std::numeric_limits<std::uint32_t>::max())
            return false;
        const auto shift = static_cast<std::uint32_t>(position_ - b.position_);
        for (CompletionInfo& caller : completions_)
            caller.bufferOffset += shift;
        ByteCount_ = FurthestLength(&b, this);
        position_ = b.position_;
        if (!is_read_ && !isStarted) {
            // The data now begins where b's does; what was first lies right behind it.
            mergedBuffers_.push_back(buffer_);
            buffer_ = b.buffer_;
        }
    } else {
        return false;
    }

    if (const std::uint32_t growth = ByteCount_ - oldLength; growth != 0) {
        if (FsysBuf* const pool = Fsys::BufferSpace_)
            pool->reservedBytes.fetch_add(growth, std::memory_order_acq_rel);
        file_->addOutstanding(b.is_read_, growth);
    }
    engineStatistics.merges.fetch_add(1, std::memory_order_relaxed);
    return true;
}

void FileRequest::adoptCallers(FileRequest& other, std::uint32_t offset)
{
    for (const CompletionInfo& caller : other.completions_) {
        CompletionInfo adopted = caller;
        adopted.bufferOffset += offset;
        completions_.add(std::move(adopted));
    }
    // Whoever waits for the other request waits for this one from now on.
    if (other.syncContext_) {
        other.syncContext_->setRequest(this);
        adoptedSyncContexts_.push_back(std::move(other.syncContext_));
    }
}
