#pragma once

#include "Qz/iObject.h"
#include "os/Export.h"

// iThreadEvent: a flag that threads wait for.
//
// An auto-reset event lets one waiter through per set and clears itself; sets without a waiter are
// remembered, many as one. A manual-reset event stays set until reset.
//
// Threads:    any. A waiter that waits when set is called wakes even if reset follows before it runs.
//             set does not touch the event after it has released a waiter, so a waiter may drop the
//             last reference as soon as it wakes.
// Units:      milliseconds.
class OS_API iThreadEvent : public iObject
{
public:
    // Signals: lets one waiter through, or all where the event is manual-reset.
    virtual void set() = 0;
    // Takes a signal back that nobody has used.
    virtual void reset() = 0;
    // Waits for as long as it takes.
    virtual void wait() = 0;
    // True when the event was signalled within the time.
    virtual bool wait(unsigned timeoutMs) = 0;
};
