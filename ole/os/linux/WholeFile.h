#pragma once

#include "os/linux/BoundedCalls.h"

#include <cstddef>
#include <string>

namespace os {

// Reads a regular file of at most limit bytes. Never waits for a pipe or a device that stands in its
// place (EINVAL). A longer file fails (EFBIG). contents is empty after a failure, and the last error set.
bool readRegularFile(const std::string& path, std::size_t limit, std::string& contents, Progress& progress);

}  // namespace os
