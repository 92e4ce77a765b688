#include "fsys/EngineState.h"

std::atomic<Fsys*> theFsys{nullptr};
std::atomic<std::uint32_t> FsysError{EngineError::none};
std::atomic<std::uint32_t> MaxReadCoalesceSize{33177600};
std::atomic<std::uint32_t> MaxWriteCoalesceSize{4194304};
std::atomic<bool> GlobalWriteSpeedWarningFlag{true};
std::atomic<bool> DeferRequestStart{false};
std::atomic<bool> NetworkWriteCaching{false};
EngineStatistics engineStatistics;
