#pragma once

#include "Qz/Export.h"

// Shutdown: what has to be ended before the process may go, in a fixed order.
//
// Order:      higher priority runs earlier; equal priorities in reverse order of registration. The
//             I/O engine (499) ends before the drive registry (201) because its threads look drives up.
// Threads:    addCallback from any thread; callbacks run on the thread that calls run.
// Exit:       an application calls run itself while everything is alive. If it never does, an exit
//             hook, set by the first addCallback, runs what is still registered with eNormalExit.
namespace Shutdown {

// Why the process ends.
enum eExitType : int {
    eNormalExit = 0,    // in order
    eAbnormalExit = 1,  // because something failed
};

// Ends something; is told why.
using Callback = void (*)(eExitType);

// Registers callback; the same one may be registered more than once and then runs more than once. Null
// is ignored.
QZ_API void addCallback(Callback callback, int priority);

// Runs each registered callback once and forgets it. Callbacks registered meanwhile run as well.
QZ_API void run(eExitType type);

// Sees a registration.
using Observer = void (*)(Callback callback, int priority);
// Has observer see every registration, before it takes effect. Null restores the plain behaviour. For tests.
QZ_API void setObserver(Observer observer);

}  // namespace Shutdown
