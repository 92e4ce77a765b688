#include "fsys/Fsys.h"

#include "fsys/EngineConfig.h"
#include "fsys/EngineState.h"
#include "fsys/FileRequest.h"
#include "fsys/FsysBuf.h"
#include "fsys/FsysFile.h"
#include "fsys/FsysFlags.h"
#include "fsys/FsysPoll.h"
#include "fsys/IOCompletionReceiver.h"
#include "os/Codes.h"
#include "os/LastError.h"
#include "os/OS.h"
#include "support/Log.h"

#include <cstdio>
#include <memory>

namespace {

constexpr unsigned spareDelayMs = 50;
constexpr unsigned sectorSizeUnknown = 512;

unsigned delayOf(int configured) { return configured < 0 ? 0 : static_cast<unsigned>(configured); }

}  // namespace

std::atomic<FsysBuf*> Fsys::BufferSpace_{nullptr};

Fsys::Fsys() : writePollDelayMs_(delayOf(engineConfig.writePollDelayMs))
{
    CreateBufferSpace();
    readPoll_ = std::make_unique<FsysPoll>(&readFiles, &readFilesLock, true,
                                           delayOf(engineConfig.readPollDelayMs), spareDelayMs);
    writePoll_ =
        std::make_unique<FsysPoll>(&writeFiles, &writeFilesLock, false, writePollDelayMs_, spareDelayMs);
}

Fsys::~Fsys()
{
    closeListed(readFiles, readFilesLock);
    closeListed(writeFiles, writeFilesLock);
    readPoll_.reset();
    writePoll_.reset();
    for (const Vector<FsysFile*>* const files : {&readFiles, &writeFiles})
        for (FsysFile* const left : *files)
            left->giveUpWaitingRequests();
    // Out of reach from here on, but there until the last completion function has returned.
    const std::unique_ptr<FsysBuf> pool(BufferSpace_.exchange(nullptr));
    completionReceiver.reset();
}

void Fsys::closeListed(Vector<FsysFile*>& files, CriticalSection& lock)
{
    const std::lock_guard<CriticalSection> hold(lock);
    // Each close takes its file from the list, so the rising index passes over every second one.
    for (unsigned i = 0; i < files.size(); ++i)
        Close(files[i], nullptr);
    // Nobody will start the requests of files that stay open, so they take none.
    for (FsysFile* const left : files)
        left->refuseRequests();
}

unsigned Fsys::CreateBufferSpace()
{
    BufferSpace_ = new FsysBuf;
    return 1;
}

unsigned Fsys::ReleaseBufferSpace()
{
    delete BufferSpace_.exchange(nullptr);
    return 1;
}

unsigned Fsys::OpenFile(FsysFile** file, const LightweightString<wchar_t>& path, unsigned coalesceLength,
                        unsigned flags, FsysCompletionFunction /*fn*/)
{
    if (path.empty())
        return 0;
    iFileManager* const files = OS()->getFileManager();
    const Qz::Ptr<iDiskDrive> drive = files->getDriveForPath(path);
    const unsigned sectorSize = drive ? drive->getSectorSize() : sectorSizeUnknown;
    const unsigned driveType = drive ? drive->getType() : iDiskDrive::eNetwork;
    const bool writes = (flags & fsysOpenWrite) != 0;

    // Nobody would ever start the requests of such a file, and synchronous callers wait without limit.
    if (!pollFor(writes)->ensureThread())
        return failOpen(file, nullptr, lastError());

    FsysFile* opened = nullptr;
    const bool isDirect = files->isOpenedDirectly(path);
    if (isDirect) {
        opened = openDirectly(path, coalesceLength, flags, sectorSize);
        if (!opened)
            return 0;
    } else {
        opened = openPath(path, coalesceLength, flags, sectorSize, driveType);
        if (!opened) {
            *file = nullptr;
            return 0;
        }
    }
    if (writes && !opened->goToEnd())
        return failOpen(file, opened, lastError());
    if (!isDirect)
        attachToPort(opened, writes);
    enlist(opened, writes);
    *file = opened;
    return 1;
}

unsigned Fsys::failOpen(FsysFile** file, FsysFile* opened, unsigned code)
{
    if (opened)
        FsysFile::release(opened);
    *file = nullptr;
    FsysError = code;
    return 0;
}

FsysFile* Fsys::openDirectly(const LightweightString<wchar_t>& path, unsigned coalesceLength, unsigned flags,
                             unsigned sectorSize)
{
    const Qz::Ptr<iFile> handle =
        OS()->getFileManager()->open(path, flags, flags & fsysOpenWrite, os::shareNone, os::modePlain);
    if (!handle || !handle->isOpen())
        return nullptr;
    auto* file = new FsysFile(handle, pollFor((flags & fsysOpenWrite) != 0), sectorSize, iDiskDrive::eNetwork,
                              flags, coalesceLength);
    file->path_ = path;
    return file;
}

FsysFile* Fsys::openPath(const LightweightString<wchar_t>& path, unsigned coalesceLength, unsigned flags,
                         unsigned sectorSize, unsigned driveType)
{
    auto* file = new FsysFile(path, pollFor((flags & fsysOpenWrite) != 0), sectorSize,
                              static_cast<iDiskDrive::eType>(driveType), flags, coalesceLength);
    const unsigned result = file->LowLevelOpen(path, flags, driveType == iDiskDrive::eNetwork);
    if (result == 1)
        return file;
    FsysFile::release(file);
    FsysError = result;
    std::printf("LowLevelOpen error 0x%x\n", result);
    std::fflush(stdout);
    return nullptr;
}

void Fsys::attachToPort(FsysFile* file, bool writes)
{
    Qz::Ptr<IOCompletionReceiver> receiver;
    {
        const std::lock_guard<std::mutex> hold(receiverGuard_);
        if (!completionReceiver && file->isASyncIOSupported())
            completionReceiver = Qz::Ptr<IOCompletionReceiver>(new IOCompletionReceiver);
        receiver = completionReceiver;
    }
    // Deliberate: once there is a receiver every file is attached, whatever it supports.
    if (receiver)
        file->SetUpIoCompletionNotify(writes ? receiver->writePort() : receiver->readPort());
}

void Fsys::enlist(FsysFile* file, bool writes)
{
    if (writes)
        file->AllocWriteCache();
    const std::lock_guard<CriticalSection> hold(writes ? writeFilesLock : readFilesLock);
    (writes ? writeFiles : readFiles).add(file);
}

unsigned Fsys::Close(FsysFile* file, FsysCompletionFunction /*fn*/)
{
    file->refuseRequests();
    file->WaitForDrain();
    if (file->writeSegmentFill_ != 0) {
        if (const unsigned sent = file->SendWriteSegBuffer(); sent != 1)
            return sent;
        file->WaitForDrain();
    }
    const unsigned pauseMs = 2 * writePollDelayMs_;
    file->waitForRequests(file->writeRequests_, pauseMs);
    file->WaitForDrain();
    for (unsigned left = file->countPending(file->writeRequests_); left != 0; --left)
        qa_splat("Outstanding writes not completed", 8);
    file->waitForRequests(file->readRequests_, pauseMs);
    const bool writes = file->isForWriting();
    {
        const std::lock_guard<CriticalSection> hold(writes ? writeFilesLock : readFilesLock);
        (writes ? writeFiles : readFiles).removeItem(file);
    }
    file->FreeWriteCache();
    file->ClearMemoryRefs();
    file->destroyRequests(file->writeRequests_);
    file->LowLevelClose();
    FsysFile::release(file);
    return 1;
}

unsigned Fsys::SetCoalesceLength(FsysFile* file, unsigned length)
{
    file->setCoalesceLength(length);
    return 1;
}

unsigned Fsys::GetWriteBytesOutstanding(unsigned* bytes)
{
    *bytes = writeBytesOutstanding;
    return 1;
}
