#pragma once

#include "Qz/Ptr.h"
#include "os/CompletionPortHandler.h"
#include "os/Export.h"
#include "os/iClock.h"
#include "os/iFileManager.h"
#include "os/iPageMemory.h"
#include "os/iThreadServices.h"

// iOperatingSystem: all that the libraries above need of an operating system.
//
// Lifetime:   the real one is made on first use, from static initialisers too, and never destroyed.
class OS_API iOperatingSystem
{
public:
    virtual ~iOperatingSystem() = default;
    // Each never null; lives as long as the operating system.
    [[nodiscard]] virtual iFileManager* getFileManager() = 0;
    [[nodiscard]] virtual iThreadServices* getThreadServices() = 0;
    [[nodiscard]] virtual iClock* getClock() = 0;
    [[nodiscard]] virtual iPageMemory* getPageMemory() = 0;
    // The inside of a CompletionPortHandler.
    [[nodiscard]] virtual Qz::Ptr<iCompletionPort> createCompletionPort(const char* name,
                                                                        const IOCompletionCommand& command,
                                                                        int minThreads, int maxThreads,
                                                                        int concurrency, int priority) = 0;
};

// The operating system of this process; never null.
[[nodiscard]] OS_API iOperatingSystem* OS();

// Puts another one in its place and returns the one before; null brings the real one back. For tests:
// REQUIRES that nothing made by the one before is in use.
OS_API iOperatingSystem* setOS(iOperatingSystem* replacement);
