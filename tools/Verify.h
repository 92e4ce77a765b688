#pragma once

#include "Session.h"
#include "TimedTransfer.h"

#include <cstdint>
#include <string>
#include <vector>

// Result of reading a source from its first byte to its last.
struct ReadResult
{
    bool complete = false;
    std::uint64_t bytes = 0;
    double seconds = 0;
    std::vector<std::uint64_t> latenciesUs;  // from DirectRead to completion, one per read
    std::string hash;                        // XXH3-128, when asked for
    std::vector<TimedTransfer> transfers;    // one per read, when they are to be kept
};

// Reads source through DirectRead in pieces of blockBytes, depth at a time.
[[nodiscard]] ReadResult readThrough(const Source& source, unsigned blockBytes, unsigned depth, bool hash,
                                     bool keepTransfers = false);
