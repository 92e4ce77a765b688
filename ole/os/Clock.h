#pragma once

#include "os/Export.h"

#include <cstdint>

// Short form of OS()->getClock()->msecs().
[[nodiscard]] OS_API std::uint32_t service_get_msecs();
// Short form of OS()->getClock()->msecsPrecise().
[[nodiscard]] OS_API double service_get_msecs_precise();
// Milliseconds, same clock as service_get_msecs_precise.
[[nodiscard]] OS_API double now();
