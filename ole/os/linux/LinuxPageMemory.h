#pragma once

#include "os/iPageMemory.h"
#include "os/linux/PageCache.h"

// Page memory of this process; never null, never destroyed.
[[nodiscard]] iPageMemory* linuxPageMemory();

// The blocks behind it; for tests and diagnostics.
[[nodiscard]] PageCache& linuxPageCache();
