#pragma once

#include "os/iClock.h"

// The monotonic clock of the kernel, which counts from the start of the machine; never destroyed.
[[nodiscard]] iClock* linuxClock();
