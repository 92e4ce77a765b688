#pragma once

#include "os/OS.h"

// The real operating system: puts the mechanisms of this folder together. Made on first use and never
// destroyed, so it serves static initialisers and destructors too.
[[nodiscard]] iOperatingSystem* linuxOS();
