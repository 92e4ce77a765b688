#pragma once

#include "os/FolderListing.h"
#include "os/linux/BoundedCalls.h"
#include "os/linux/NameFilter.h"

#include <string>

namespace os {

// DirectoryListing: the regular files of a folder with their sizes, sorted by the bytes of their names.
// Links count as what they point at; what vanishes meanwhile is left out. The filter sees the names alone,
// and the disk is asked for the sizes of those that pass it.

// False, with the last error set and no files, when folder cannot be listed. Steps progress with every
// question to the disk.
bool listFolder(const std::string& folder, const NameFilter& isWanted, FolderListing& files,
                Progress& progress);

}  // namespace os
