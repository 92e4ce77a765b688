#pragma once

#include <string>

namespace os {

// Writes one line to standard error when the environment variable FSYS_OS_DEBUG is 1. This floor has no
// log; what is worth a line here matters to whoever hunts a fault in the set-up of a machine.
void debugLine(const std::string& text);

}  // namespace os
