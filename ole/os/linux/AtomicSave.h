#pragma once

#include "os/linux/BoundedCalls.h"

#include <string>

namespace os {

// Replaces the file at path, or at the end of the links that path is, by one with these contents. After
// a crash, a power loss, a full disk or a failure there is the old file or the new one, whole.
//
// Keeps permissions, and the owner where this process may set it. Refuses what is no regular file
// (EISDIR, EINVAL) and files that the caller may not write. A new file gets 0666 less the umask.
// Removes what earlier saves of the same file left that were killed (Leftovers.h).
// False leaves the old file and no other, with the last error set; a disk that fails while the folder is made
// durable is told as well, with the new file in its place.
bool saveAtomically(const std::string& path, const std::string& contents, Progress& progress);

}  // namespace os
