#pragma once

#include "Qz/Export.h"

namespace Qz {

// Prints "assertion failed CONDITION at PLACE" as one line on standard output and flushes it.
// place is a fixed text such as "ole/fsys/DiskManager line 200": the numbers name the rule that was
// broken and stay the same when code moves.
QZ_API void assertionFailed(const char* condition, const char* place);

// Reports a broken invariant and lets execution go on; returns holds.
inline bool verify(bool holds, const char* condition, const char* place)
{
    if (!holds)
        assertionFailed(condition, place);
    return holds;
}

}  // namespace Qz
