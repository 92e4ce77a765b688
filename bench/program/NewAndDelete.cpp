// The allocation operators of the whole process, shared libraries included: malloc, and counted. Not part of
// a sanitizer build, which brings its own; there nothing is counted.

#include "Allocations.h"

#include <cstdlib>
#include <new>

void* operator new(std::size_t bytes)
{
    Allocations::countOne();
    if (void* const memory = std::malloc(bytes ? bytes : 1))
        return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t bytes) { return operator new(bytes); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
