#pragma once

#include <string>

namespace fake {

// Name of the calling thread when the fake platform started it (a thread or a port thread), else "".
[[nodiscard]] std::string currentThreadName();
void setCurrentThreadName(const std::string& name);

}  // namespace fake
