// The part of FileRequest that joins neighbouring requests into one transfer.

#include "fsys/EngineState.h"
#include "fsys/FileRequest.h"
#include "fsys/Fsys.h"
#include "fsys/FsysBuf.h"
#include "fsys/FsysFile.h"

#include <algorithm>
#include <limits>

bool FileRequest::encompasses(const FileRequest* b) const
{
    return b->position_ >= position_ && b->end() <= end();
}

bool FileRequest::runs_into(const FileRequest* a, const FileRequest* b)
{
    const std::uint32_t gap = a->is_read_ ? CoalesceGap_ : 0;
    if (a->position_ > b->position_ || b->position_ > a->end() + gap)
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
    if (!beginMerge())
        return 0;
    const bool merged = absorb(*other);
    endMerge();
    return merged ? 1 : 0;
}

bool FileRequest::absorb(FileRequest& b)
{
    const bool inside = encompasses(&b);
    const bool isStarted = status() == STARTED;
    if (!inside && (isStarted || std::uint64_t{ByteCount_} + b.ByteCount_ > file_->coalesceLength()))
        return false;

    const std::uint32_t oldLength = ByteCount_;
    std::uint32_t offset = 0;
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
    adoptCallers(b, offset);
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
