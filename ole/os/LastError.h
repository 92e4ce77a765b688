#pragma once

#include "Qz/LightweightString.h"
#include "os/Export.h"

// LastError: the platform's error code of this thread.
//
// Codes:      0x10000 + errno. The offset keeps them apart from the engine's own small codes and from 1,
//             which means success where a result is "1 or an error code" (EPERM is 1 on Linux). A code
//             is never 0: a failure without errno counts as EIO.
// Threads:    one code per thread. A completion thread carries the code of the transfer that it is
//             delivering while the completion runs.
// Lifetime:   set by failing operations only; success leaves it as it is.

constexpr unsigned platformErrorBase = 0x10000;  // what is added to an errno

// The code of this thread; see Lifetime.
[[nodiscard]] OS_API unsigned lastError();
// Sets the code of this thread.
OS_API void setLastError(unsigned code);
// Sets and returns the code of an errno value.
OS_API unsigned setLastErrno(int errorNumber);
// The code of an errno value; that of EIO for 0.
[[nodiscard]] OS_API unsigned errorFromErrno(int errorNumber);
// The errno inside a code; 0 when the code is not a platform code.
[[nodiscard]] OS_API int errnoFromError(unsigned code);
// "No such file or directory"; for a code that is not the platform's, "error" and the number.
[[nodiscard]] OS_API LightweightString<char> errorText(unsigned code);
