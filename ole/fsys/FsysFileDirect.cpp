// The part of FsysFile that its callers play and record with: DirectRead and DirectWrite.

#include "fsys/CompletionCall.h"
#include "fsys/EngineConfig.h"
#include "fsys/EngineState.h"
#include "fsys/FileRequest.h"
#include "fsys/FsysBuf.h"
#include "fsys/FsysFile.h"
#include "fsys/ListHold.h"
#include "os/OS.h"
#include "support/Log.h"

#include <cstring>

namespace {

constexpr unsigned gatherLimitBytes = 131072;
constexpr unsigned retryPauseMs = 20;

}  // namespace

unsigned FsysFile::DirectRead(long position, unsigned int bytes, bool coalescable, FsysCompletionFunction fn,
                              Qz::Ptr<iObject>& context)
{
    if (hasTooManyDeferred())
        return EngineError::listFull;
    Taken taken = Taken::left;
    bool kicks = false;
    {
        const ListHold hold(*lock_);
        taken = takeRead(static_cast<unsigned long>(position), bytes, coalescable, fn, context, kicks);
        if (kicks)
            holdForTransfer();
    }
    if (kicks) {
        // Without the lock: the thread that this wakes wants it.
        kick();
        release(this);
    }
    if (taken != Taken::left)
        return taken == Taken::accepted ? 1 : 0;
    auto* request = new FileRequest(true, bytes, static_cast<unsigned long>(position), coalescable, false,
                                    Qz::Ptr<iMemHolder>(), this, fn, context);
    if (cacheDisabled_ && !closing_) {
        // Deliberate: neither answered nor queued, and fn never runs.
        FileRequest::destroy(request);
    } else if (!SatisfyFromCache(request)) {
        if (const unsigned queued = QueueReadRequest(request); queued != 1) {
            FileRequest::destroy(request);
            return queued;
        }
    }
    position_ += bytes;
    return 1;
}

unsigned FsysFile::DirectWrite(Qz::Ptr<iMemHolder>& data, bool coalescable, FsysCompletionFunction fn,
                               Qz::Ptr<iObject>& context, bool synchronous)
{
    if (!data || !writeCache_)
        return 0;
    const Hold untilReturn(*this);
    if (!isASyncIOSupported())
        return writeThroughCache(data, coalescable, fn, context, false);
    const bool aligned =
        sectorSize_ == 0 || (position_ % sectorSize_ == 0 && data->getSize() % sectorSize_ == 0);
    const bool gathers =
        NetworkWriteCaching && (type_ == iDiskDrive::eNetwork || engineConfig.alwaysUseWriteCache == 1);
    if (!aligned || gathers || gathered() != 0)
        return writeThroughCache(data, coalescable, fn, context, true);
    return writeDirectly(data, coalescable, fn, context, synchronous);
}

unsigned FsysFile::writeDirectly(Qz::Ptr<iMemHolder>& data, bool coalescable, FsysCompletionFunction fn,
                                 Qz::Ptr<iObject>& context, bool synchronous)
{
    const unsigned size = data->getSize();
    auto* request =
        new FileRequest(false, size, position_, coalescable, synchronous, data, this, fn, context);
    if (const unsigned result = queueWithRetries(request); result != 1)
        return result;
    position_ += size;
    writeCacheStart_ = position_;
    return 1;
}

// Destroys a request that the queue did not take.
unsigned FsysFile::queueWithRetries(FileRequest* request)
{
    unsigned result = QueueWriteRequest(request);
    for (int retry = 0;
         result != 1 && FsysError == EngineError::listFull && retry < engineConfig.maxWriteRetries; ++retry) {
        OS()->getClock()->sleep(retryPauseMs);
        result = QueueWriteRequest(request);
    }
    if (result != 1)
        FileRequest::destroy(request);
    return result;
}

unsigned FsysFile::writeThroughCache(Qz::Ptr<iMemHolder>& data, bool coalescable, FsysCompletionFunction fn,
                                     Qz::Ptr<iObject>& context, bool flushAsync)
{
    if (closing_)
        return 0;
    // A reference of its own: a close on another thread takes the file's away while a flush waits.
    const Qz::Ptr<iMemHolder> cache = writeCache_;
    unsigned char* const start = cache->getBuffer();
    const unsigned size = data->getSize();
    if (!start || !data->getBuffer() || size > writeCacheBytes - gathered()) {
        Log("fsys: a write of %u bytes does not fit the write cache, which holds %u\n", size, gathered());
        return 0;
    }
    std::memcpy(writeCacheFill_, data->getBuffer(), size);
    writeCacheFill_ += size;
    const unsigned n = gathered();
    const unsigned k = sectorSize_ == 0 ? 0 : n % sectorSize_;
    const unsigned m = n - k;
    if (n <= gatherLimitBytes || m == 0) {
        if (fn)
            callCompletion(fn, context, data, eRequestSuccess);
        return 1;
    }
    if (const unsigned result = flushWholeSectors(m, coalescable, fn, context, flushAsync); result != 1)
        return result;
    position_ += m;
    std::memmove(start, start + m, k);
    writeCacheFill_ = start + k;
    writeCacheStart_ = position_;
    return 1;
}

// Deliberate: the synchronous flush calls no completion function for the write that overflowed the cache.
unsigned FsysFile::flushWholeSectors(unsigned bytes, bool coalescable, FsysCompletionFunction fn,
                                     const Qz::Ptr<iObject>& context, bool flushAsync)
{
    if (!flushAsync)
        return LowLevelWrite(writeCache_->getBuffer(), bytes);
    return queueWithRetries(
        new FileRequest(false, bytes, position_, coalescable, true, writeCache_, this, fn, context));
}
