#pragma once

#include <cstdint>
#include <string>

namespace os {

// PathOnDisk: single questions about paths. Each may wait for a server (see BoundedCalls). Answers of
// "no" set the last error.

// The path as named when something is there, or nothing that its translated form could mean; else the
// translated form: backslashes as separators.
[[nodiscard]] std::string pathAsFound(const std::string& named);

enum class PathKind { none, file, folder, other };

// What path designates, links followed. size, where given, becomes the size of what is no folder.
[[nodiscard]] PathKind kindOf(const std::string& path, std::uint64_t* size = nullptr);

// The result of a system call as yes or no.
bool succeeded(int result);

}  // namespace os
