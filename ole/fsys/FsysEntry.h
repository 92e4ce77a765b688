#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Shutdown.h"
#include "fsys/CompletionFunction.h"
#include "fsys/Export.h"
#include "fsys/FsysFile.h"
#include "fsys/FsysFlags.h"

// FsysEntry: the entry functions of the I/O engine.
//
// Order:      FsysInitialize, then FsysOpen per file, reads and writes on the FsysFile, FsysClose per file.
//             FsysUninitialize runs with the process's shutdown.
// Threads:    any, with these limits: FsysInitialize and FsysUninitialize run while no other thread is
//             inside the engine; a file is closed once, by one thread, while no other uses it; none of
//             FsysOpen, FsysClose and FsysUninitialize is called from a completion function.
// Results:    1 is success, 0 failure. Every function that needs the engine returns 0 while it is not
//             running, with its out-parameters untouched.
// Paths:      operating-system paths.

// Starts the engine: two polling threads and the buffer pool. 1 also when it runs already.
FSYS_API unsigned FsysInitialize();

// Ends the engine; without one nothing happens. The exit type is not looked at. Files that are still open
// are closed, but of each list (reading, writing) only the first, third, fifth ... Those left open can be
// read and written synchronously; they take no requests and cannot be closed any more. Close files first.
FSYS_API void FsysUninitialize(Shutdown::eExitType type);

// Opens path. flags: fsysOpenRead, fsysOpenWrite; further bits go to the platform's open call unchanged.
// A file opened for writing is made if it is not there, and starts at its end. coalesceLength: bytes to
// which a queued request may grow by merging with its neighbours. fn is not used.
// 1: *file is the open file, to be closed with FsysClose. 0: an empty path, or a pipe or device that cannot
// be opened, leaves *file and FsysGetLastError as they were; any other failure sets *file to null and the
// last error to the platform's code, and prints a line on standard output.
FSYS_API unsigned FsysOpen(FsysFile** file, const LightweightString<wchar_t>& path, unsigned coalesceLength,
                           unsigned flags, FsysCompletionFunction fn);

// Writes what is gathered (twice, see FsysFile::DirectWrite), waits for what is outstanding, and ends the
// file; 1. A file with nothing outstanding closes at once; the longest wait is 14 seconds with the default
// poll delays. Requests that do not end meanwhile are given up: their completion functions do not run any
// more. fn is not used. Another result than 1: the file is still open but takes no requests.
FSYS_API unsigned FsysClose(FsysFile* file, FsysCompletionFunction fn);

// The last error of the whole process: the platform's code (0x10000 + errno), 0 a transfer that ended
// early or was refused, 8 a request list is full, 9 a write was slow, 10 no memory for a transfer. 1 before
// any. Success does not reset it.
[[nodiscard]] FSYS_API unsigned FsysGetLastError();

// Sets the bytes to which a queued request of file may grow by merging; 1.
FSYS_API unsigned FsysSetCoalesceLength(FsysFile* file, unsigned length);

// Stores the bytes of all files that wait to be written; 1. Bytes of failed writes stay counted.
FSYS_API unsigned FsysGetWriteBytesOutstanding(unsigned* bytes);

// True: writes to network drives are gathered in the write cache. Off at first.
FSYS_API void FsysSetNetworkWriteCaching(bool on);
// False: coalescable requests wait for the polling thread's next pass, so that neighbours can join them.
// True, as at first: reads are started at once. Coalescable writes wait for a pass in any case.
FSYS_API void FsysSetImmediateRequestHandling(bool immediate);
// True, as at first: completed writes are checked for speed (last error 9, the volume's slow flag).
FSYS_API void FsysSetWriteSpeedWarning(bool on);
// Low latency: for so many microseconds after the last piece of work the engine's threads go on looking for
// the next one before they sleep. 0, the configuration's "BusyWait" at first, for none; 100 covers a disk's
// small read. It costs up to two processors while requests come and none while there are none.
FSYS_API void FsysSetBusyWait(unsigned microseconds);
// Each is kept for callers and has no effect; the engine merges by each file's coalesce length.
FSYS_API void FsysSetReadMaxCoalesceSize(unsigned bytes);
FSYS_API void FsysSetWriteMaxCoalesceSize(unsigned bytes);
