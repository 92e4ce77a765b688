#pragma once

#include <string>

namespace os {

// Has the file at an absolute path removed at normal exit of this process, if it is still there. With
// mayHang the exit waits two seconds at most for its server. A child of fork that exits removes nothing:
// the paths are its parent's.
// Threads: any.
void removeAtExit(const std::string& path, bool mayHang);

}  // namespace os
