#pragma once

#include "Qz/LightweightString.h"
#include "support/Export.h"

// PathHelpers: paths as texts. None of these looks at the disk, but deleteDirectory.
//
// Separators: '/', and in network names (two leading backslashes) the backslash too.

// directory and relative with exactly one '/' between them, however many they bring; relative alone when
// directory is empty.
[[nodiscard]] SUPPORT_API LightweightString<wchar_t> joinPaths(const LightweightString<wchar_t>& directory,
                                                               const LightweightString<wchar_t>& relative);
// The last component: what follows the last separator.
[[nodiscard]] SUPPORT_API LightweightString<wchar_t> stripPath(const LightweightString<wchar_t>& path);
// The directory of path, with its trailing separator; empty when path has none. A network name keeps
// its backslashes.
[[nodiscard]] SUPPORT_API LightweightString<wchar_t> getPath(const LightweightString<wchar_t>& path);
// path without the last '.' of its last component and what follows it; a name without one is unchanged.
// A '.' that begins the name counts like any other.
[[nodiscard]] SUPPORT_API LightweightString<wchar_t> stripExtension(const LightweightString<wchar_t>& path);
// A path as another operating system wrote it, in this system's form: backslashes become '/'. Network
// names (two leading backslashes) and drive letters stay as they are.
[[nodiscard]] SUPPORT_API LightweightString<wchar_t>
fixForeignOSFileName(const LightweightString<wchar_t>& path);
// Removes a file, or a folder with all it holds (iFileManager::deleteTree); false when refused or failed.
SUPPORT_API bool deleteDirectory(const LightweightString<wchar_t>& path);
// Name of the file in the project space that lists the user's media locations.
[[nodiscard]] SUPPORT_API LightweightString<wchar_t> getMediaLocationsFilename();
