#pragma once

#include <cstdint>
#include <string>

// CacheDropper: takes pieces of files out of the page cache again, on a thread of its own whose CPU time is
// known, so that a report can leave it out.
//
// Threads: any.
namespace CacheDropper {

// Soon; nobody waits for it.
void drop(const std::string& path, std::uint64_t position, std::uint64_t bytes);
// Does what is left and ends the thread; the CPU time, in microseconds, that all of it took.
double finish();

}  // namespace CacheDropper
