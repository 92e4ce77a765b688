#include "os/Threads.h"

#include "os/OS.h"

unsigned co_create(iThreadServices::Body body, const char* name, unsigned stackSize, void* argument,
                   int priority, unsigned flags)
{
    return OS()->getThreadServices()->createThread(body, name, stackSize, argument, priority, flags);
}

void co_kill(unsigned id16) { OS()->getThreadServices()->endThread(id16); }
