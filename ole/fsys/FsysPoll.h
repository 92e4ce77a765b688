#pragma once

#include "Qz/Ptr.h"
#include "Qz/Vector.h"
#include "os/BriefLook.h"
#include "os/CriticalSection.h"
#include "os/iThreadEvent.h"

#include <atomic>
#include <mutex>

class FsysFile;

// FsysPoll: the thread that starts the queued requests of one list of open files.
//
// Threads:    Kick from any thread. Polltasks runs on the poll thread; tests may call it themselves.
// Locks:      takes the list's lock for a whole pass, then each file's lock in turn.
// Ownership:  owns its thread and kick event. Borrows the list and its lock; both outlive this object.
// Units:      milliseconds.
class FsysPoll
{
public:
    // Starts the thread at once. reads: serve the files' read lists, else their write lists. spareDelay is
    // kept and means nothing.
    FsysPoll(Vector<FsysFile*>* files, CriticalSection* lock, bool reads, unsigned pollDelay,
             unsigned spareDelay);
    // Ends the thread without another pass and waits for it. REQUIRES: not called on that thread.
    virtual ~FsysPoll();
    FsysPoll(const FsysPoll&) = delete;
    FsysPoll& operator=(const FsysPoll&) = delete;

    // Starts the thread if that has failed so far; false when it fails again.
    [[nodiscard]] bool ensureThread();
    // Wakes the thread, or makes its next wait return at once.
    void Kick();
    // One pass over all files, in list order; 1.
    unsigned Polltasks();
    // The thread's body; self is the FsysPoll. Passes, and waits for a kick or the poll delay in between.
    static int StartPolling(void* self);

    // What Kick signals. Files keep a reference, so that a kick never reaches a poll that has ended.
    [[nodiscard]] const Qz::Ptr<iThreadEvent>& kickEvent() const { return kickEvent_; }
    [[nodiscard]] unsigned pollDelay() const { return pollDelay_; }
    [[nodiscard]] unsigned spareDelay() const { return spareDelay_; }

private:
    // The requests that were started.
    unsigned pass();
    void waitForKick();

    const unsigned pollDelay_;
    std::mutex startGuard_;
    unsigned thread_ = 0;  // 0: no thread could be started; guarded by startGuard_
    Qz::Ptr<iThreadEvent> kickEvent_;
    Vector<FsysFile*>* const files_;
    CriticalSection* const lock_;
    const unsigned spareDelay_;
    std::atomic<bool> running_{true};
    const bool reads_;
    os::BriefLook brief_;  // its thread's
};
