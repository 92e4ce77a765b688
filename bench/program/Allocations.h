#pragma once

#include <cstdint>

// Allocations: how often the whole process asks for memory with new, while counting is on.
//
// Threads: any.
namespace Allocations {

void startCounting();
// For those who allocate (NewAndDelete.cpp).
void countOne();
// Stops; the number since the start.
[[nodiscard]] std::uint64_t stopCounting();

// The index took or gave back pages of the platform, which malloc knows nothing of.
void countPages(std::int64_t bytes);
// Bytes that malloc has handed out and pages that were counted, and bytes that the process has in memory.
[[nodiscard]] std::uint64_t bytesInUse();
[[nodiscard]] std::uint64_t bytesResident();

}  // namespace Allocations
