#pragma once

#include "os/linux/BoundedCalls.h"

#include <string>

namespace os {

// Gives the file at from the name to. A crash or power loss leaves it under one of the two. Nothing is
// replaced: what stands at to makes it fail with EEXIST. Refuses folders (EISDIR). False leaves the file
// under its old name, with the last error set; a disk that fails while the folder is made durable is told
// as well, with the file under its new name.
bool renameDurably(const std::string& from, const std::string& to, Progress& progress);

// Makes the names in a folder durable; 0 or an errno. Folders that cannot be opened or synchronised have no
// such promise to give; only a disk that fails counts. The empty path is the current folder.
int syncFolder(const std::string& folder);

}  // namespace os
