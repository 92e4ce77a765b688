#pragma once

#include "os/Export.h"

namespace os {

// One line for the log: which mechanism carries the asynchronous transfers of this process, and why.
// Made once, kept for ever.
[[nodiscard]] OS_API const char* backendChoiceText();

}  // namespace os
