#include "fsys/FileRequest.h"

#include "Qz/Assert.h"
#include "fsys/CompletionCall.h"
#include "fsys/EngineState.h"
#include "fsys/Fsys.h"
#include "fsys/FsysBuf.h"
#include "fsys/FsysFile.h"
#include "fsys/LeftRequests.h"
#include "fsys/MemRef.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <thread>
#include <utility>

std::atomic<std::uint64_t> FileRequest::usageClock_{0};

void SyncFileRequest::SynchWaiter(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& /*data*/,
                                  RequestStatus /*status*/)
{
    const auto* self = dynamic_cast<SyncFileRequest*>(context.get());
    if (!self || !self->request_)
        return;
    // A reference of our own: the waiter may drop the last one as soon as it wakes.
    const Qz::Ptr<iThreadEvent> event = self->request_->syncEvent();
    event->set();
}

FileRequest::FileRequest(bool isRead, unsigned byteCount, unsigned long position, bool coalescable,
                         bool synchronous, const Qz::Ptr<iMemHolder>& buffer, FsysFile* file,
                         FsysCompletionFunction function, const Qz::Ptr<iObject>& context)
    : is_read_(isRead),
      synchronous_(synchronous),
      coalescable_(coalescable),
      position_(position),
      ByteCount_(byteCount),
      buffer_(buffer),
      file_(file)
{
    Qz::verify(ByteCount_ != 0, "ByteCount_ != 0", "ole/fsys/FileRequest line 59");
    if (function)
        completions_.add(CompletionInfo(function, context, position, byteCount));
    if (synchronous_) {
        // Manual reset: after a merge two callers wait on one event, and it may be set before they do.
        syncEvent_ = OS()->getThreadServices()->createEvent(1, 0, nullptr);
        syncContext_ = Qz::Ptr<SyncFileRequest>(new SyncFileRequest(this));
        completions_.add(CompletionInfo(&SyncFileRequest::SynchWaiter, syncContext_, position, byteCount));
    }
}

FileRequest::~FileRequest()
{
    if (syncContext_)
        syncContext_->setRequest(nullptr);
    for (const auto& adopted : adoptedSyncContexts_)
        adopted->setRequest(nullptr);
}

void FileRequest::destroy(FileRequest* request)
{
    const Qz::Ptr<iThreadEvent> event = request->syncEvent_;
    std::uint32_t seen = request->state_.load(std::memory_order_acquire);
    // Before it is marked, because its completion may delete it then.
    const bool isLeft = (seen & IN_FLIGHT) != 0;
    if (isLeft)
        LeftRequests::add(request);
    for (;;) {
        if (!(seen & IN_FLIGHT)) {
            if (isLeft)
                LeftRequests::remove(request);
            delete request;
            break;
        }
        // The callers go now, as their owner expects, unless they are being called already.
        const bool dropCallers = !(seen & FINISHING);
        if (!request->state_.compare_exchange_weak(seen, seen | ORPHAN | (dropCallers ? MERGING : 0),
                                                   std::memory_order_acq_rel))
            continue;
        if (dropCallers) {
            const Vector<CompletionInfo> dropped = std::exchange(request->completions_, {});
            request->endMerge();  // from here on the completion may delete the request
        }
        break;
    }
    if (event)
        event->set();
}

void FileRequest::setStatus(Status status)
{
    std::uint32_t seen = state_.load(std::memory_order_relaxed);
    while (!state_.compare_exchange_weak(seen, (seen & ~statusMask) | status, std::memory_order_acq_rel)) {
    }
}

bool FileRequest::isPending() const
{
    const Status now = status();
    return now == NEW || now == QUEUED || now == STARTED || now == COMPLETING;
}

bool FileRequest::beginMerge()
{
    std::uint32_t seen = state_.load(std::memory_order_acquire);
    do {
        // The status counts as much as the bits: the exchange that publishes the end clears them.
        const std::uint32_t status = seen & statusMask;
        if ((status != QUEUED && status != STARTED) || (seen & (FINISHING | ORPHAN)))
            return false;
    } while (!state_.compare_exchange_weak(seen, seen | MERGING, std::memory_order_acq_rel));
    return true;
}

bool FileRequest::beginFinish()
{
    std::uint32_t seen = state_.load(std::memory_order_acquire);
    for (;;) {
        if (seen & MERGING) {
            std::this_thread::yield();
            seen = state_.load(std::memory_order_acquire);
        } else if (state_.compare_exchange_weak(seen, seen | FINISHING, std::memory_order_acq_rel)) {
            return !(seen & ORPHAN);
        }
    }
}

void FileRequest::finish(FileRequest* request, Status finalStatus)
{
    if ((request->state_.exchange(finalStatus, std::memory_order_acq_rel) & ORPHAN) == 0)
        return;
    LeftRequests::remove(request);
    delete request;
}

void FileRequest::ReadSectorAdjust(unsigned sectorSize)
{
    if (sectorSize == 0)
        return;
    const auto head = static_cast<std::uint32_t>(position_ % sectorSize);
    const auto tail = static_cast<std::uint32_t>((std::uint64_t{ByteCount_} + head) % sectorSize);
    sectorOffset_ = -static_cast<std::int32_t>(head);
    sectorExtra_ = head + (sectorSize - tail) % sectorSize;
}

unsigned FileRequest::WriteSectorAdjust(unsigned sectorSize, const Qz::Ptr<iMemHolder>& segment)
{
    if (sectorSize == 0 || ByteCount_ == 0 || (position_ % sectorSize == 0 && ByteCount_ >= sectorSize))
        return 0;
    Qz::assertionFailed("false", "ole/fsys/FileRequest line 154");
    unsigned char* const staged = segment ? segment->getBuffer() : nullptr;
    if (!staged)
        return 0;

    const unsigned char* const data = buffer_->getBuffer();
    const auto r = static_cast<std::uint32_t>(position_ % sectorSize);
    const std::uint32_t head = sectorSize - r;
    const std::uint32_t n = std::min(head, ByteCount_);
    std::memcpy(staged + r, data, n);
    std::uint32_t fill = r + n;
    if (head <= ByteCount_) {
        // The first sector is full. Nobody lists this write, so its own completion frees it.
        auto* sector = new FileRequest(false, sectorSize, position_ - r, coalescable_, false, segment, file_,
                                       nullptr, Qz::Ptr<iObject>());
        sector->markOrphan();
        if (file_->LowLevelAsyncWrite(sector) != started) {
            file_->tellLoss(sector->position_, sectorSize, lastError());
            delete sector;
        }
        fill = 0;
    }
    sectorOffset_ += static_cast<std::int32_t>(n);
    sectorExtra_ -= n;
    const auto t = static_cast<std::uint32_t>(end() % sectorSize);
    if (t == 0 || t >= ByteCount_)
        return fill;
    std::memcpy(staged, data + (ByteCount_ - t), t);
    sectorExtra_ -= t;
    return t;
}

unsigned FileRequest::StartRequest(FsysFile* file)
{
    Qz::verify(status() == STARTED, "Status_ == STARTED", "ole/fsys/FileRequest line 231");
    if (!asyncContext_)
        asyncContext_ = OS()->getFileManager()->createAsyncContext(this);

    if (!is_read_) {
        file->setWriteSegmentFill(WriteSectorAdjust(file->GetSectorSize(), file->writeSegment()));
        return ByteCount_ + sectorExtra_ == 0 ? started : file->LowLevelAsyncWrite(this);
    }

    ReadSectorAdjust(file->GetSectorSize());
    if (ByteCount_ > std::numeric_limits<std::uint32_t>::max() - sectorExtra_)
        return 0;  // padded to sectors it would no longer fit the length that a transfer can have
    const std::uint32_t bytes = ByteCount_ + sectorExtra_;
    if (bytes == 0)
        return started;
    FsysBuf* const pool = Fsys::BufferSpace_;
    if (!pool)
        return noBuffer;
    buffer_ = pool->GetMemBlock(bytes, this);
    if (!buffer_)
        return noBuffer;
    pool->reservedBytes.fetch_sub(ByteCount_, std::memory_order_acq_rel);
    engineStatistics.readsStarted.fetch_add(1, std::memory_order_relaxed);
    engineStatistics.bytesRead.fetch_add(bytes, std::memory_order_relaxed);
    Use();
    return file->LowLevelAsyncRead(this);
}

int FileRequest::SeekCompletionFunction(std::uint64_t end) const
{
    int last = -1;
    for (const CompletionInfo& caller : completions_) {
        if (caller.position >= end)
            break;
        ++last;
    }
    return last;
}

unsigned FileRequest::doCallbacks()
{
    const Status now = status();
    if (!Qz::verify(now == COMPLETING || now == SLOW, "false", "ole/fsys/FileRequest line 515"))
        return 0;
    if (!Qz::verify(!completions_.empty(), "false", "ole/fsys/FileRequest line 521"))
        return 1;
    const int last = SeekCompletionFunction(position_ + bytesDone_);
    const auto served = static_cast<unsigned>(last + 1);
    for (unsigned i = 0; i < served; ++i)
        deliver(completions_[i]);
    if (served != completions_.size())
        NotifyError(EngineError::shortTransfer, served);
    completions_.clear();
    return 1;
}

void FileRequest::deliver(CompletionInfo& caller)
{
    // A holder of this call's own: the function may do with it what it likes.
    Qz::Ptr<iMemHolder> data;
    if (status() == SLOW) {
        Qz::assertionFailed("false", "ole/fsys/FileRequest line 537");
    } else if (!is_read_) {
        data = buffer_;
    } else {
        const std::int64_t offset = std::int64_t{caller.bufferOffset} - sectorOffset_;
        data = Qz::Ptr<iMemHolder>(new MemRef(buffer_, static_cast<unsigned>(offset), caller.byteCount));
    }
    callCompletion(caller.function, caller.context, data, eRequestSuccess);
}

unsigned FileRequest::NotifyError(unsigned code, unsigned first)
{
    const unsigned count = completions_.size();
    for (unsigned i = first; i < count; ++i) {
        FsysError = code;
        Qz::Ptr<iMemHolder> none;
        CompletionInfo& caller = completions_[i];
        callCompletion(caller.function, caller.context, none, eRequestError);
    }
    return 1;
}

unsigned FileRequest::CheckCompletionList() const
{
    const unsigned size = buffer_ ? buffer_->getSize() : 0;
    for (const CompletionInfo& caller : completions_) {
        if (caller.bufferOffset == 0)
            return 1;
        if (caller.bufferOffset > size)
            return 0;
    }
    return 0;
}

void FileRequest::WaitForSynchCompletion()
{
    const Qz::Ptr<iThreadEvent> event = syncEvent_;
    if (event)
        event->wait();
}

void FileRequest::Use() { usageStamp_ = usageClock_.fetch_add(1, std::memory_order_relaxed); }

void FileRequest::releaseBuffers()
{
    buffer_.reset();
    mergedBuffers_.clear();
}
