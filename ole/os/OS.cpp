#include "os/OS.h"

#include "os/linux/LinuxOS.h"

#include <atomic>

namespace {

// Constant-initialised, so that OS() works in static initialisers of any file.
std::atomic<iOperatingSystem*> replacementOS{nullptr};

}  // namespace

iOperatingSystem* OS()
{
    iOperatingSystem* replacement = replacementOS.load(std::memory_order_acquire);
    return replacement ? replacement : linuxOS();
}

iOperatingSystem* setOS(iOperatingSystem* replacement)
{
    iOperatingSystem* before = replacementOS.exchange(replacement, std::memory_order_acq_rel);
    return before ? before : linuxOS();
}
