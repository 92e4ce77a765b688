#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Ptr.h"
#include "Qz/Vector.h"
#include "fsys/CompletionFunction.h"
#include "os/CriticalSection.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

class FsysBuf;
class FsysFile;
class FsysPoll;
class IOCompletionReceiver;

// Fsys: the one module object of the I/O engine; callers reach it through FsysEntry.h.
//
// Threads:    operations from any thread.
// Locks:      one recursive lock per list of open files. A poll thread holds its list's lock for a whole
//             pass, so a close waits for a running pass before it takes its file from the list. A list's
//             lock is taken before a file's lock; completion threads take neither.
// Ownership:  owns the poll threads, the buffer pool and the completion receiver. Lists open files; each
//             belongs to its caller.
class Fsys
{
public:
    Fsys();
    // Closes listed files, then ends the poll threads, the pool and the receiver. Deliberate: of each list
    // the first, third, fifth ... file is closed; the others stay open for synchronous use and refuse
    // requests.
    virtual ~Fsys();
    Fsys(const Fsys&) = delete;
    Fsys& operator=(const Fsys&) = delete;

    unsigned OpenFile(FsysFile** file, const LightweightString<wchar_t>& path, unsigned coalesceLength,
                      unsigned flags, FsysCompletionFunction fn);
    unsigned Close(FsysFile* file, FsysCompletionFunction fn);
    unsigned SetCoalesceLength(FsysFile* file, unsigned length);
    unsigned GetWriteBytesOutstanding(unsigned* bytes);
    static unsigned CreateBufferSpace();
    static unsigned ReleaseBufferSpace();

    // Where reads get their memory; null while the engine is not running.
    static std::atomic<FsysBuf*> BufferSpace_;

    // Bytes of all files that are queued or in flight. A failed transfer's bytes stay counted.
    std::atomic<std::uint32_t> readBytesOutstanding{0};
    std::atomic<std::uint32_t> writeBytesOutstanding{0};

private:
    friend struct FsysTestAccess;

    [[nodiscard]] FsysPoll* pollFor(bool writes) const { return (writes ? writePoll_ : readPoll_).get(); }
    FsysFile* openDirectly(const LightweightString<wchar_t>& path, unsigned coalesceLength, unsigned flags,
                           unsigned sectorSize);
    FsysFile* openPath(const LightweightString<wchar_t>& path, unsigned coalesceLength, unsigned flags,
                       unsigned sectorSize, unsigned driveType);
    // What a failed open leaves behind; 0.
    static unsigned failOpen(FsysFile** file, FsysFile* opened, unsigned code);
    void attachToPort(FsysFile* file, bool writes);
    void enlist(FsysFile* file, bool writes);
    void closeListed(Vector<FsysFile*>& files, CriticalSection& lock);

    // A value of its own: the engine is reachable while it ends, when the polls have gone already.
    const unsigned writePollDelayMs_;
    std::unique_ptr<FsysPoll> readPoll_;
    std::unique_ptr<FsysPoll> writePoll_;
    Vector<FsysFile*> readFiles;
    Vector<FsysFile*> writeFiles;
    CriticalSection readFilesLock;
    CriticalSection writeFilesLock;
    std::mutex receiverGuard_;  // only around the making of the receiver
    Qz::Ptr<IOCompletionReceiver> completionReceiver;
};
