#pragma once

#include "os/linux/BoundedCalls.h"

#include <string>

namespace os {

// Gives the file at from the name to. A crash or power loss leaves it under one of the two. Nothing is
// replaced: what stands at to makes it fail with EEXIST. Refuses folders (EISDIR). False leaves the file
// under its old name, with the last error set; a disk that fails while the folder is made durable is told
// as well, with the file under its new name.
bool renameDurably(const std::string& from, const std::string& to, Progress& progress);

// Makes the names in a folder durable; 0 or an errno. 0 also for folders that this user may not open and
// where the file system does not synchronise folders: these have no such promise to give. The empty path is
// the current folder.
int syncFolder(const std::string& folder);

}  // namespace os
