#pragma once

// Codes: the numbers that callers pass to the platform. They are part of the contract between the
// engine and every platform (real, fake, recording), so tests compare them as they stand.
namespace os {

// iFileManager::open, second argument. The low two bits decide; callers may pass further bits, which a
// platform receives unchanged and ignores.
constexpr unsigned accessRead = 1;       // to be read
constexpr unsigned accessWrite = 2;      // to be written
constexpr unsigned accessReadWrite = 3;  // both

// Third argument.
constexpr unsigned creationOpen = 0;         // an existing file; fails when there is none
constexpr unsigned creationNew = 1;          // makes the file; fails when there is one
constexpr unsigned creationOpenOrNew = 2;    // opens or makes; never truncates
constexpr unsigned creationOpenOrNewRW = 3;  // the same, for a file that is read as well

// Fourth argument. No platform locks files: readers and writers of one file live side by side.
constexpr unsigned shareNone = 0;  // asks for the file alone
constexpr unsigned shareAll = 4;   // lets others open it too

// Fifth argument: open mode, or the attribute of a lock file.
constexpr unsigned modePlain = 0;           // buffered, synchronous use only
constexpr unsigned modeUnbuffered = 1;      // hint: transfers that allow it bypass the page cache
constexpr unsigned modeAsync = 2;           // may be attached to a completion port
constexpr unsigned modeSetOwner = 4;        // make the caller the file's owner; best effort
constexpr unsigned attributeLockFile = 32;  // an ordinary file; not deleted on close

// Page memory.
constexpr unsigned pagesReserveCommit =
    12288;                                // iPageMemory::allocate, type: address space with memory behind it
constexpr unsigned pagesReadWrite = 4;    // iPageMemory::allocate, protection: to be read and written
constexpr unsigned pagesRelease = 49152;  // iPageMemory::release: all of it

// iFileManager::listDisks.
constexpr unsigned listMountedVolumes = 1;

// iFile::getAsyncCapability.
constexpr unsigned capabilityAsync = 1;

}  // namespace os
