#pragma once

#include "os/Export.h"

#include <cstddef>

// iPageMemory: page-aligned memory for transfers.
//
// The codes are those of Codes.h; other codes fail. Releasing needs no size: the platform remembers it.
// Memory comes back zeroed or with bytes that this process itself put there.
// Threads: any.
class OS_API iPageMemory
{
public:
    virtual ~iPageMemory() = default;
    // Null when there is no memory or a code is not known. address is a wish and may be null.
    [[nodiscard]] virtual void* allocate(void* address, std::size_t size, unsigned type,
                                         unsigned protection) = 0;
    // False when memory did not come from allocate; null is ignored.
    virtual bool release(void* memory, unsigned freeType) = 0;
};
