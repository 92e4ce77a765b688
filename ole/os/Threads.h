#pragma once

#include "os/Export.h"
#include "os/iThreadServices.h"

// Starts a thread that runs body(argument). stackSize in bytes, 0 for the default; priority 1 is normal;
// flags 0. name shows in debuggers (15 bytes are kept).
// Returns the thread's id, 0 when no thread could be started: a generation in the high 16 bits, a slot
// (1 to 65535) in the low 16 bits.
[[nodiscard]] OS_API unsigned co_create(iThreadServices::Body body, const char* name, unsigned stackSize,
                                        void* argument, int priority, unsigned flags);

// Waits until the thread's body has returned and forgets the thread; id16 is the low 16 bits of its id.
// The body must have been told to end: nothing is cancelled, for it may hold locks. Called on the thread
// itself, it lets the thread go on alone. An unknown id is ignored.
OS_API void co_kill(unsigned id16);
