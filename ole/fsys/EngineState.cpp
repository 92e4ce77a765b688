#include "fsys/EngineState.h"

#include "os/BusyWait.h"
#include "support/ConfigInt.h"

#include <algorithm>

std::atomic<Fsys*> theFsys{nullptr};
std::atomic<std::uint32_t> FsysError{EngineError::none};
std::atomic<std::uint32_t> MaxReadCoalesceSize{33177600};
std::atomic<std::uint32_t> MaxWriteCoalesceSize{4194304};
std::atomic<bool> GlobalWriteSpeedWarningFlag{true};
std::atomic<bool> DeferRequestStart{false};
std::atomic<bool> NetworkWriteCaching{false};
EngineStatistics engineStatistics;

namespace {

// The configuration is the first word on it; FsysSetBusyWait has the last.
[[maybe_unused]] const bool busyWaitConfigured = [] {
    os::setBusyWait(static_cast<unsigned>(std::max(0, config_int("BusyWait", 0))));
    return true;
}();

}  // namespace
