#pragma once

#include "os/Export.h"

#include <cstdint>

// iClock: time since the machine started, and waiting. Real time unless a test drives it.
class OS_API iClock
{
public:
    virtual ~iClock() = default;
    // Whole milliseconds; wraps after 49.7 days.
    [[nodiscard]] virtual std::uint32_t msecs() = 0;
    // Milliseconds with fractions, same clock.
    [[nodiscard]] virtual double msecsPrecise() = 0;
    // Returns after at least that many milliseconds.
    virtual void sleep(unsigned milliseconds) = 0;
};
