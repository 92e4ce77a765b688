// The part of FsysFile that hands requests to the platform and keeps account of what is outstanding.

#include "fsys/EngineState.h"
#include "fsys/FileRequest.h"
#include "fsys/Fsys.h"
#include "fsys/FsysFile.h"
#include "os/Clock.h"
#include "os/OS.h"

unsigned FsysFile::LowLevelAsyncRead(FileRequest* request)
{
    return issue(request, request->buffer_->getBuffer(), true);
}

unsigned FsysFile::LowLevelAsyncWrite(FileRequest* request)
{
    writesDrained_->reset();
    // Bytes that were staged off the front are skipped.
    return issue(request, request->buffer_->getBuffer() + request->sectorOffset_, false);
}

unsigned FsysFile::issue(FileRequest* request, unsigned char* data, bool reads)
{
    // A staged sector comes here without having been started, so it has no context yet.
    if (!request->asyncContext_)
        request->asyncContext_ = OS()->getFileManager()->createAsyncContext(request);
    request->startTimeMs_ = service_get_msecs_precise();
    request->transferLength_ = request->sectorExtra_ + request->ByteCount_;
    if (!asyncHandle_)
        return 0;

    // References of our own: once the platform has the transfer, the request may be gone at any moment.
    const Qz::Ptr<iAsyncContext> context = request->asyncContext_;
    const std::uint64_t position = request->transferPosition();
    const std::uint32_t length = request->transferLength_;
    holdForTransfer();
    request->enterFlight();
    const bool accepted = reads ? asyncHandle_->asyncRead(position, data, length, context)
                                : asyncHandle_->asyncWrite(position, data, length, context);
    if (accepted)
        return 1;
    request->refused();
    release(this);
    return 0;
}

void FsysFile::addOutstanding(bool isRead, std::uint32_t bytes)
{
    (isRead ? readBytesOutstanding_ : writeBytesOutstanding_).fetch_add(bytes, std::memory_order_acq_rel);
    if (Fsys* const engine = theFsys)
        (isRead ? engine->readBytesOutstanding : engine->writeBytesOutstanding)
            .fetch_add(bytes, std::memory_order_acq_rel);
}

void FsysFile::subtractOutstanding(bool isRead, std::uint32_t bytes)
{
    (isRead ? readBytesOutstanding_ : writeBytesOutstanding_).fetch_sub(bytes, std::memory_order_acq_rel);
    if (Fsys* const engine = theFsys)
        (isRead ? engine->readBytesOutstanding : engine->writeBytesOutstanding)
            .fetch_sub(bytes, std::memory_order_acq_rel);
}

void FsysFile::kick()
{
    if (kick_)
        kick_->set();
}
