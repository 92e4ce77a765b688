// The part of FsysFile that keeps the request lists: queueing, merging, eviction, start passes, and
// answering reads from finished ones.

#include "Qz/Assert.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/EngineConfig.h"
#include "fsys/EngineState.h"
#include "fsys/FileRequest.h"
#include "fsys/Fsys.h"
#include "fsys/FsysBuf.h"
#include "fsys/FsysFile.h"
#include "fsys/ListHold.h"
#include "fsys/MediaDrive.h"
#include "os/LastError.h"
#include "support/Log.h"

#include <algorithm>
#include <mutex>

namespace {

constexpr unsigned startTriesWithoutBuffer = 40;
constexpr std::uint64_t usageStampLimit = 4294967294U;

void reserve(std::uint32_t bytes)
{
    if (FsysBuf* const pool = Fsys::BufferSpace_)
        pool->reservedBytes.fetch_add(bytes, std::memory_order_acq_rel);
}

// The listed request that took over the callers of request, or null.
FileRequest* mergeInto(const Vector<FileRequest*>& list, FileRequest* request)
{
    for (FileRequest* const listed : list)
        if (listed->isNear(*request) && listed->Coalesce(request))
            return listed;
    return nullptr;
}

}  // namespace

bool FsysFile::countDeferred()
{
    const std::uint32_t deferred = deferredCount_.load(std::memory_order_relaxed) + 1;
    deferredCount_.store(deferred, std::memory_order_relaxed);
    return static_cast<std::int64_t>(deferred) > engineConfig.forcePollLimit;
}

bool FsysFile::hasTooManyDeferred() const
{
    return static_cast<std::int64_t>(deferredCount_.load(std::memory_order_relaxed)) >
           2 * std::int64_t{engineConfig.forcePollLimit};
}

bool FsysFile::hasRoom(const Vector<FileRequest*>& list)
{
    return static_cast<std::int64_t>(list.size()) <= engineConfig.maxRequestListSize;
}

// REQUIRES: the lock is held.
void FsysFile::enqueue(Vector<FileRequest*>* list, FileRequest* request)
{
    request->setStatus(FileRequest::QUEUED);
    addOutstanding(request->isRead(), request->ByteCount_);
    list->add(request);
}

unsigned FsysFile::QueueReadRequest(FileRequest* request)
{
    if (closing_)
        return 0;
    const Hold untilReturn(*this);
    const bool deferrable = request->isCoalescable() && DeferRequestStart;
    const bool synchronous = request->isSynchronous();
    // Taken before the poll thread can see the request, which may be over and evicted before we wait.
    Qz::Ptr<iThreadEvent> ended;
    bool merged = false;
    bool kicks = false;
    {
        const ListHold hold(*lock_);
        if (closing_)
            return 0;
        if (FileRequest* const survivor = mergeInto(*readRequests_, request)) {
            merged = true;
            ended = survivor->syncEvent();
            FileRequest::destroy(request);
        } else {
            ended = request->syncEvent();
            reserve(request->ByteCount_);
            enqueue(readRequests_, request);
        }
        // A merged request that may wait does so without a kick, even when its caller waits for it.
        kicks = !deferrable || (synchronous && !merged);
        if (deferrable && !synchronous)
            kicks = countDeferred();
    }
    if (kicks)
        kick();
    if (!synchronous)
        return 1;
    ended->wait();
    if (deferrable && merged) {
        {
            const ListHold hold(*lock_);
            kicks = countDeferred();
        }
        if (kicks)
            kick();
    }
    return 1;
}

FsysFile::Taken FsysFile::takeRead(std::uint64_t position, unsigned bytes, bool coalescable,
                                   FsysCompletionFunction fn, const Qz::Ptr<iObject>& context, bool& kicks)
{
    if (!hasRoom(*readRequests_)) {
        FsysError = EngineError::listFull;  // stays recorded, even when there is room now
        removeOldestRequest(readRequests_);
        kicks = true;
        if (!hasRoom(*readRequests_))
            return Taken::refused;
    }
    // A range that comes round to the beginning is too odd to be compared here.
    if (bytes == 0 || position + bytes < position || closing_ || cacheDisabled_ ||
        !listRead(position, bytes, coalescable, fn, context))
        return Taken::left;
    position_ += bytes;
    if (!coalescable || !DeferRequestStart || countDeferred())
        kicks = true;
    return Taken::accepted;
}

bool FsysFile::listRead(std::uint64_t position, unsigned bytes, bool coalescable, FsysCompletionFunction fn,
                        const Qz::Ptr<iObject>& context)
{
    const FileRequest range(true, bytes, position, coalescable, false, nullptr, this, nullptr, nullptr);
    // Finished reads come first, wherever they stand. Most reads are near nothing and are done with one look.
    const unsigned count = readRequests_->size();
    unsigned firstNear = count;
    for (unsigned i = 0; i < count; ++i) {
        const FileRequest* const listed = (*readRequests_)[i];
        if (!listed->isNear(range))
            continue;
        if (listed->answers(range))
            return false;
        firstNear = std::min(firstNear, i);
    }
    for (unsigned i = firstNear; i < count; ++i) {
        FileRequest* const listed = (*readRequests_)[i];
        if (listed->isNear(range) &&
            listed->CoalesceCaller(range, CompletionInfo(fn, context, position, bytes)))
            return true;
    }
    reserve(bytes);
    enqueue(readRequests_,
            new FileRequest(true, bytes, position, coalescable, false, nullptr, this, fn, context));
    return true;
}

unsigned FsysFile::QueueWriteRequest(FileRequest* request)
{
    if (closing_ || CheckRequestListSize(writeRequests_) == 0)
        return 0;
    const Hold untilReturn(*this);
    if (request->isSynchronous() || !request->isCoalescable()) {
        const Qz::Ptr<iThreadEvent> ended = request->syncEvent();
        reserve(request->ByteCount_);
        {
            const ListHold hold(*lock_);
            if (closing_)
                return 0;
            enqueue(writeRequests_, request);
        }
        // Deliberate: a synchronous write is started by the poll thread's own timer and the kick comes
        // after its completion.
        if (ended)
            ended->wait();
        kick();
        return 1;
    }
    bool kicks = false;
    {
        const ListHold hold(*lock_);
        if (closing_)
            return 0;
        if (DeferRequestStart && mergeInto(*writeRequests_, request)) {
            FileRequest::destroy(request);
        } else {
            reserve(request->ByteCount_);
            enqueue(writeRequests_, request);
        }
        kicks = countDeferred();
    }
    if (kicks)
        kick();
    return 1;
}

unsigned FsysFile::CheckRequestListSize(Vector<FileRequest*>* list)
{
    const auto fits = [this, list] {
        const ListHold hold(*lock_);
        return hasRoom(*list);
    };
    if (hasTooManyDeferred())
        return EngineError::listFull;
    if (fits())
        return 1;
    FsysError = EngineError::listFull;
    removeOldestRequest(list);
    kick();
    if (fits())
        return 1;  // the code stays recorded
    FsysError = EngineError::listFull;
    return 0;
}

void FsysFile::removeOldestRequest(Vector<FileRequest*>* list)
{
    const ListHold hold(*lock_);
    // Deliberate: each stamp is compared with a fixed bound, not with the smallest one seen, so the last
    // complete request of the list goes and not the one that served longest ago. A complete request at the
    // head stays.
    for (unsigned i = list->size(); i > 1; --i) {
        FileRequest* const request = (*list)[i - 1];
        if (request->status() == FileRequest::COMPLETE && request->usageStamp_ <= usageStampLimit) {
            list->removeIdx(i - 1);
            FileRequest::destroy(request);
            return;
        }
    }
}

bool FsysFile::anyQueued(const Vector<FileRequest*>& list, unsigned first)
{
    for (unsigned i = first; i < list.size(); ++i)
        if (list[i]->status() == FileRequest::QUEUED)
            return true;
    return false;
}

unsigned FsysFile::StartRequests(Vector<FileRequest*>* list)
{
    if (const Qz::Ptr<MediaDrive> volume = DiskManager::getVolume(path_); volume && deferredCount_ == 0)
        volume->setSlow(false);
    const ListHold hold(*lock_);
    deferredCount_ = 0;
    startedInPass_ = 0;
    removeOldestRequest(list);
    if (list->empty()) {
        removeOldestRequest(list);
        return 1;
    }
    // By index: a start failure's callback may queue on this file.
    for (unsigned i = 0; i < list->size(); ++i) {
        FileRequest* const request = (*list)[i];
        if (request->status() != FileRequest::QUEUED)
            continue;
        request->setStatus(FileRequest::STARTED);
        const unsigned result = request->StartRequest(this);
        if (result == FileRequest::started) {
            ++startedInPass_;
        } else if (result == FileRequest::noBuffer && ++request->startRetries_ < startTriesWithoutBuffer) {
            request->setStatus(FileRequest::QUEUED);
        } else {
            // For those behind it, whose own kicks this pass has answered; not for what its callers ask
            // again, nor where there is no memory, which only time can mend.
            const bool othersWait = result != FileRequest::noBuffer && anyQueued(*list, i + 1);
            failStart(list, request, result);
            if (othersWait)
                kick();
            return 0;
        }
    }
    removeOldestRequest(list);
    if (engineConfig.showRequestDebug != 0 && startedInPass_ != 0)
        Log("fsys: started requests of %s, %u listed\n", toUTF8(path_).c_str(), list->size());
    return 1;
}

// Deliberate: the callers hear of it here, on the polling thread and under the locks of its pass.
void FsysFile::failStart(Vector<FileRequest*>* list, FileRequest* request, unsigned result)
{
    const unsigned reason = result != 0 ? result : lastError();
    Log("Failed starting request ECODE %8x\n", result);
    if (!request->isRead())
        tellLoss(request->position_, request->ByteCount_, reason);
    subtractOutstanding(request->isRead(), request->ByteCount_);
    // From here on nothing merges into it: a caller that asks again must get a new request.
    request->beginFinish();
    request->NotifyError(result, 0);
    request->setStatus(FileRequest::FAILED);
    list->removeItem(request);
    FileRequest::destroy(request);
}

FileRequest* FsysFile::findCached(const FileRequest* request) const
{
    for (FileRequest* const listed : *readRequests_)
        if (listed->answers(*request))
            return listed;
    return nullptr;
}

unsigned FsysFile::SatisfyFromCache(FileRequest* request)
{
    if (closing_)
        return 0;
    {
        const ListHold hold(*lock_);
        FileRequest* const found = findCached(request);
        if (!found)
            return 0;
        found->Use();
        request->setStatus(FileRequest::COMPLETING);
        request->bytesDone_ = request->ByteCount_;
        request->sectorOffset_ = found->sectorOffset_;
        if (!request->completions_.empty())
            request->completions_[0].bufferOffset =
                static_cast<std::uint32_t>(request->position_ - found->position_);
        Qz::verify(!request->buffer_, "fr->buffer_ == NULL", "ole/fsys/FsysFile line 731");
        Qz::verify(static_cast<bool>(found->buffer_), "CachedFr->buffer_ != NULL",
                   "ole/fsys/FsysFile line 732");
        request->buffer_ = found->buffer_;
    }
    request->doCallbacks();
    FileRequest::destroy(request);
    return 1;
}
