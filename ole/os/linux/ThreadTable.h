#pragma once

#include "os/iThreadServices.h"

#include <mutex>
#include <pthread.h>
#include <vector>

// ThreadTable: the threads that were started and not yet ended, by slot.
//
// Threads:    any. mutex_ is not held while a thread is waited for.
class ThreadTable
{
public:
    // See co_create; 0 when every slot is taken or the system gives no thread.
    unsigned start(iThreadServices::Body body, const char* name, unsigned stackSize, void* argument);
    // See co_kill.
    void end(unsigned id16);

private:
    struct Slot
    {
        pthread_t thread{};
        unsigned generation = 0;
        bool running = false;  // started and not ended
        bool taken = false;    // the slot cannot be given out
    };

    // With mutex_ held: a free slot, 0 for none.
    unsigned takeSlot();

    std::mutex mutex_;
    std::vector<Slot> slots_{1};  // the first is never given out: ids are not 0
};
