#pragma once

#include "os/iThreadServices.h"

// The threads and events of this process; never null, never destroyed.
[[nodiscard]] iThreadServices* linuxThreadServices();
