#pragma once

#include "Qz/LightweightString.h"
#include "Qz/Ptr.h"
#include "fsys/Export.h"
#include "os/iFile.h"

// NetLogin: a workstation's login to a shared folder, held as an open lock file in that folder. A process
// has at most one.
//
// Lock file:  FOLDER/MACHINE.cli, without content. It stays when it is closed and is removed when the
//             process ends normally.
// Threads:    the application's main thread only; the two variables are plain values.
// Errors:     a lock file that cannot be opened makes NetLogin false, without a message.

// The open lock file; null, or a handle that is not open, when there is none.
extern FSYS_API Qz::Ptr<iFile> lockFilehandle;
// Its full path; empty when logged out.
extern FSYS_API LightweightString<wchar_t> lockFileName;

// The lock file of this machine in folder, which may end with the separator; nothing is looked up on disk.
[[nodiscard]] FSYS_API LightweightString<wchar_t>
getNetLoginLockFileName(const LightweightString<wchar_t>& folder);

// Logs in to folder; true when its lock file could be opened. A failure gives up the file that was held
// before but not its name, which NetLogout then clears.
// Log out before logging in again: a second login is granted, but no file is held afterwards.
FSYS_API bool NetLogin(const LightweightString<wchar_t>& folder);

// Gives up the lock file; true in every case, also when not logged in.
FSYS_API bool NetLogout();
