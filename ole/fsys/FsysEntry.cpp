#include "fsys/FsysEntry.h"

#include "fsys/EngineState.h"
#include "fsys/Fsys.h"
#include "fsys/LeftRequests.h"
#include "os/BackendChoice.h"
#include "os/BusyWait.h"
#include "support/Log.h"

#include <mutex>

namespace {

constexpr int shutdownPriority = 499;

std::mutex& startGuard()
{
    static std::mutex* const lasting = new std::mutex;  // the shutdown may come after static destructors
    return *lasting;
}

// Which mechanism carries the transfers, and why: the first question of whoever reads a log.
void tellBackendOnce()
{
    static std::once_flag told;
    std::call_once(told, [] { Log("%s\n", os::backendChoiceText()); });
}

}  // namespace

unsigned FsysInitialize()
{
    const std::lock_guard<std::mutex> hold(startGuard());
    tellBackendOnce();
    if (theFsys == nullptr) {
        LeftRequests::releaseEnded();
        theFsys = new Fsys;
        Shutdown::addCallback(&FsysUninitialize, shutdownPriority);
    }
    return 1;
}

void FsysUninitialize(Shutdown::eExitType /*type*/)
{
    const std::lock_guard<std::mutex> hold(startGuard());
    // Still reachable while it ends: transfers that complete meanwhile settle its counters.
    delete theFsys.load();
    theFsys = nullptr;
    LeftRequests::releaseEnded();
}

unsigned FsysOpen(FsysFile** file, const LightweightString<wchar_t>& path, unsigned coalesceLength,
                  unsigned flags, FsysCompletionFunction fn)
{
    Fsys* const engine = theFsys;
    return engine ? engine->OpenFile(file, path, coalesceLength, flags, fn) : 0;
}

unsigned FsysClose(FsysFile* file, FsysCompletionFunction fn)
{
    Fsys* const engine = theFsys;
    return engine ? engine->Close(file, fn) : 0;
}

unsigned FsysGetLastError() { return FsysError; }

unsigned FsysSetCoalesceLength(FsysFile* file, unsigned length)
{
    Fsys* const engine = theFsys;
    return engine ? engine->SetCoalesceLength(file, length) : 0;
}

unsigned FsysGetWriteBytesOutstanding(unsigned* bytes)
{
    Fsys* const engine = theFsys;
    return engine ? engine->GetWriteBytesOutstanding(bytes) : 0;
}

void FsysSetNetworkWriteCaching(bool on) { NetworkWriteCaching = on; }
void FsysSetImmediateRequestHandling(bool immediate) { DeferRequestStart = !immediate; }
void FsysSetBusyWait(unsigned microseconds) { os::setBusyWait(microseconds); }
void FsysSetWriteSpeedWarning(bool on) { GlobalWriteSpeedWarningFlag = on; }
void FsysSetReadMaxCoalesceSize(unsigned bytes) { MaxReadCoalesceSize = bytes; }
void FsysSetWriteMaxCoalesceSize(unsigned bytes) { MaxWriteCoalesceSize = bytes; }
