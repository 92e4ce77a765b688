#include "fsys/FsysPoll.h"

#include "fsys/FsysFile.h"
#include "os/OS.h"
#include "os/SubmissionBatch.h"
#include "os/Threads.h"
#include "support/Log.h"

#include <mutex>

FsysPoll::FsysPoll(Vector<FsysFile*>* files, CriticalSection* lock, bool reads, unsigned pollDelay,
                   unsigned spareDelay)
    : pollDelay_(pollDelay),
      kickEvent_(OS()->getThreadServices()->createEvent(0, 0, nullptr)),
      files_(files),
      lock_(lock),
      spareDelay_(spareDelay),
      reads_(reads)
{
    static_cast<void>(ensureThread());
}

bool FsysPoll::ensureThread()
{
    const std::lock_guard<std::mutex> hold(startGuard_);
    if (thread_ == 0)
        thread_ = co_create(StartPolling, "fsys poll", 0, this, 1, 0);
    if (thread_ == 0)
        Log("fsys: the %s poll thread could not be started\n", reads_ ? "read" : "write");
    return thread_ != 0;
}

FsysPoll::~FsysPoll()
{
    running_ = false;
    Kick();
    if (thread_ != 0)
        co_kill(thread_ & 0xFFFF);
}

void FsysPoll::Kick() { kickEvent_->set(); }

unsigned FsysPoll::Polltasks()
{
    pass();
    return 1;
}

unsigned FsysPoll::pass()
{
    const std::lock_guard<CriticalSection> hold(*lock_);
    const os::SubmissionBatch together;  // one entry into the kernel for what a pass starts
    unsigned started = 0;
    for (unsigned i = 0; i < files_->size() && running_; ++i) {
        FsysFile* const file = (*files_)[i];
        file->StartRequests(reads_ ? file->readRequests_ : file->writeRequests_);
        started += file->startedInPass_;
    }
    return started;
}

int FsysPoll::StartPolling(void* self)
{
    auto* const poll = static_cast<FsysPoll*>(self);
    for (;;) {
        // All that was kicked for until now is started by the pass that follows. The kicks of callers that
        // went on while this thread woke up would have it make another pass, over what they have queued
        // by then: a few reads, which are better merged with those that come.
        poll->kickEvent_->reset();
        if (!poll->running_)
            return 0;
        poll->brief_.worked(poll->pass());
        poll->waitForKick();
    }
}

void FsysPoll::waitForKick()
{
    if (brief_.look([this] { return kickEvent_->wait(0); }) || kickEvent_->wait(pollDelay_))
        brief_.came();
    else
        brief_.cameNot();
}
