#pragma once

#include "os/linux/BoundedCalls.h"

#include <string>

namespace os {

// Removes the file or link at path, or the folder with all it holds. Follows no link, path itself
// included, and enters no other mount. Whatever can be removed is; false, with the last error set, when
// anything is left.
//
// Refused (EINVAL): the empty path, relative paths, the root, paths that end in "..". Refused (EBUSY):
// mount points.
bool deleteTree(const std::string& path, Progress& progress);

}  // namespace os
