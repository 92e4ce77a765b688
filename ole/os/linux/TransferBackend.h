#pragma once

#include "os/linux/TransferList.h"

// TransferSink: takes transfers that ended without reaching the system.
class TransferSink
{
public:
    virtual ~TransferSink() = default;
    virtual void takeFinished(TransferList& finished) = 0;
};

// TransferBackend: the mechanism that carries the transfers of one port.
//
// A transfer that was submitted comes back exactly once, finished: by collect, or through the sink.
// Threads:    submit, flush and interrupt from any thread; collect on one thread at a time.
// Lifetime:   REQUIRES that no transfer is under way at the end.
class TransferBackend
{
public:
    virtual ~TransferBackend() = default;

    // Takes the transfer over. With more, it may lie until the next submit without more, or flush.
    virtual void submit(LinuxAsyncContext* transfer, bool more) = 0;
    virtual void flush() = 0;

    // Waits until transfers are finished or interrupt is called, and appends what is finished.
    virtual void collect(TransferList& finished) = 0;
    // Lets a collect that waits, or else the next one, return.
    virtual void interrupt() = 0;
    // True when a read of cached pages is copied inside submit or flush.
    [[nodiscard]] virtual bool copiesInSubmit() const = 0;
    // True when collect would return at once. REQUIRES that nobody collects.
    [[nodiscard]] virtual bool hasFinished() = 0;
};
