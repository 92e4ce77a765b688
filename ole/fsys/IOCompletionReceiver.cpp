#include "fsys/IOCompletionReceiver.h"

#include "Qz/Assert.h"
#include "fsys/DiskManager.h"
#include "fsys/EngineConfig.h"
#include "fsys/EngineState.h"
#include "fsys/FileRequest.h"
#include "fsys/FsysFile.h"
#include "fsys/MediaDrive.h"
#include "os/Clock.h"
#include "os/LastError.h"
#include "support/Log.h"

#include <cstdio>

namespace {

constexpr std::uint32_t smallTransferBytes = 10000;  // too short to judge a drive by
constexpr std::uint32_t bytesPerKilobyte = 1000;

bool isSlow(std::uint32_t bytes, double rate, std::uint32_t outstanding, int queueLimit)
{
    if (bytes > smallTransferBytes && rate < engineConfig.minNetDiskRate)
        return true;
    return std::int64_t{outstanding / bytesPerKilobyte} > queueLimit;
}

void showReadBuffer(std::uint32_t bytes)
{
    char text[64];
    std::snprintf(text, sizeof text, "Rbytes in Fsys: %.1fKbytes ", bytes / 1000.0);
    herc_putstr(32, 8, text);
}

// Whole kilobytes, shown with a decimal.
void showWriteBuffer(std::uint32_t bytes)
{
    const std::uint32_t kilobytes = bytes / bytesPerKilobyte;
    char text[64];
    std::snprintf(text, sizeof text, "Wbytes in Fsys: %.1fKbytes ", static_cast<double>(kilobytes));
    herc_putstr(32, 6, text);
}

}  // namespace

IOCompletionReceiver::IOCompletionReceiver()
{
    const IOCompletionCommand command(this);
    readPort_ = std::make_unique<CompletionPortHandler>("FsysReads", command, 3, 3, 3, 3);
    writePort_ = std::make_unique<CompletionPortHandler>("FsysWrites", command, 3, 3, 3, 3);
}

IOCompletionReceiver::~IOCompletionReceiver()
{
    readPort_.reset();
    writePort_.reset();
}

int IOCompletionReceiver::executeCommand(IOCompletionCommand& /*command*/,
                                         CompletionPortHandlerCallbackContext& context)
{
    auto* const request = static_cast<FileRequest*>(context.context());
    if (!context.succeeded())
        fail(request);
    else if (request)
        succeed(request, context.bytesProcessed());
    return 1;
}

// Deliberate: a failed request's bytes stay counted as outstanding and it keeps its place in the list.
void IOCompletionReceiver::fail(FileRequest* request)
{
    const unsigned code = lastError();
    if (!Qz::verify(request != nullptr, "false", "ole/fsys/IoCompletion line 163"))
        return;
    FsysFile* const file = request->file();
    // What was gathered has been acknowledged already, and only the last of its callers hears of this.
    if (!request->isRead())
        file->tellLoss(request->position_, request->ByteCount_, code);
    if (request->beginFinish())
        request->NotifyError(code, 0);
    FileRequest::finish(request, FileRequest::FAILED);
    FsysFile::release(file);
}

void IOCompletionReceiver::succeed(FileRequest* request, std::uint32_t bytes)
{
    FsysFile* const file = request->file();
    const bool hasCallers = request->beginFinish();
    request->bytesDone_ = bytes;
    request->setStatus(FileRequest::COMPLETING);
    if (hasCallers) {
        // A transfer that took no measurable time gives no number below any limit.
        const double rate = bytes / (now() - request->startTimeMs_);
        checkSpeed(request, *file, rate);
        request->doCallbacks();
    }
    settle(request, *file);
    FileRequest::finish(request, FileRequest::COMPLETE);
    // The request may be evicted by now, and the file closed: its object lasts until this release.
    FsysFile::release(file);
}

void IOCompletionReceiver::checkSpeed(FileRequest* request, const FsysFile& file, double rate)
{
    const Qz::Ptr<MediaDrive> volume = DiskManager::getVolume(file.path());
    if (!volume)
        return;
    if (request->isRead()) {
        volume->setSlow(
            isSlow(request->bytesDone_, rate, file.readBytesOutstanding(), engineConfig.maxNetReadQueue));
        return;
    }
    const bool slow =
        GlobalWriteSpeedWarningFlag &&
        isSlow(request->bytesDone_, rate, file.writeBytesOutstanding(), engineConfig.maxNetWriteQueue);
    volume->setSlow(slow);
    if (slow) {
        request->setStatus(FileRequest::SLOW);
        FsysError = EngineError::slowWrite;
    }
}

void IOCompletionReceiver::settle(FileRequest* request, FsysFile& file)
{
    if (request->isRead()) {
        if (engineConfig.showReadBufferDebug != 0)
            showReadBuffer(file.readBytesOutstanding());
        file.subtractOutstanding(true, request->ByteCount_);
        return;
    }
    if (engineConfig.showWriteBufferDebug != 0)
        showWriteBuffer(file.writeBytesOutstanding());
    file.subtractOutstanding(false, request->ByteCount_);
    request->releaseBuffers();
    file.CheckOutstandingWrites();
}
