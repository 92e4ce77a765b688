#pragma once

#include "Qz/Ptr.h"
#include "os/Export.h"
#include "os/iThreadEvent.h"

// iThreadServices: threads and events of the platform. Callers start threads through Threads.h.
class OS_API iThreadServices
{
public:
    // What a thread runs; its result is not looked at.
    using Body = int (*)(void* argument);

    virtual ~iThreadServices() = default;

    // An event. Arguments: manual reset, initially signalled, name (null for none).
    virtual Qz::Ptr<iThreadEvent> createEvent(unsigned manualReset, unsigned signalled, const char* name) = 0;

    // See co_create and co_kill in Threads.h.
    virtual unsigned createThread(Body body, const char* name, unsigned stackSize, void* argument,
                                  int priority, unsigned flags) = 0;
    // See co_kill in Threads.h.
    virtual void endThread(unsigned id16) = 0;
};
