#pragma once

#include <atomic>
#include <cstdint>

class Fsys;

// EngineState: what the whole process shares of the I/O engine.
//
// Threads:    any. The values are independent of each other, so each is atomic by itself and nothing is
//             promised about the order in which two of them are seen.

extern std::atomic<Fsys*> theFsys;  // the instance; null while the engine is not running

// Codes that FsysGetLastError answers with beside those of the platform (os/LastError.h). Never reset by
// success.
namespace EngineError {
constexpr std::uint32_t none = 1;           // nothing recorded yet
constexpr std::uint32_t shortTransfer = 0;  // a transfer ended before a caller's part, or was refused
constexpr std::uint32_t listFull = 8;       // a file's request list is full
constexpr std::uint32_t slowWrite = 9;      // a write took too long, or too much waits to be written
constexpr std::uint32_t noBuffer = 10;      // no memory for a transfer, 40 times in a row
}  // namespace EngineError

extern std::atomic<std::uint32_t> FsysError;
extern std::atomic<std::uint32_t> MaxReadCoalesceSize;   // bytes; kept for callers
extern std::atomic<std::uint32_t> MaxWriteCoalesceSize;  // bytes; kept for callers
extern std::atomic<bool> GlobalWriteSpeedWarningFlag;    // writes are checked for speed
extern std::atomic<bool> DeferRequestStart;              // coalescable requests are queued without a kick
extern std::atomic<bool> NetworkWriteCaching;            // writes to network drives are gathered

// Counts since the process started, for traces and measurements.
struct EngineStatistics
{
    std::atomic<std::uint64_t> readsStarted{0};
    std::atomic<std::uint64_t> bytesRead{0};  // asked of the platform, sector padding included
    std::atomic<std::uint64_t> merges{0};
};
extern EngineStatistics engineStatistics;
