#pragma once

#include "os/Export.h"

#include <cstdint>

// Short forms of OS()->getClock().
[[nodiscard]] OS_API std::uint32_t service_get_msecs();
[[nodiscard]] OS_API double service_get_msecs_precise();
// Milliseconds, same clock as service_get_msecs_precise.
[[nodiscard]] OS_API double now();
