#pragma once

#include <string>

namespace os {

// Leftovers: the temporary files of saves that were killed.
//
// A save that is interrupted for good leaves the file that it was writing. The next save of the same file
// removes it, if it can be proved that nobody needs it: its name carries the whole name of the saved file and
// a number, it is a plain file of the user or of the saved file's owner, and nobody holds its lock, which its
// writer takes before the first byte and keeps until it is renamed.
// Threads:    any, also of several processes; a writer that has just made its file and not yet locked it may
//             lose it, and looks whether it did (isNamed).
// Errors:     none; what cannot be removed stays.

// How many temporary files of one saved file may have such names.
inline constexpr unsigned leftoverNames = 4;

// The name of a temporary file for the file at path; slot below leftoverNames.
[[nodiscard]] std::string leftoverName(const std::string& path, unsigned slot);
// A lock on a file in this folder keeps everybody away who could see the file. The empty path is the current
// folder.
[[nodiscard]] bool hasTrustedLocks(const std::string& folder);
// path is still the name of the open file.
[[nodiscard]] bool isNamed(int fd, const std::string& path);
// REQUIRES: path is the saved file itself and no link to it, and locks are trusted in its folder.
void removeLeftovers(const std::string& path);

}  // namespace os
