#pragma once

#include <cstdint>
#include <string>
#include <vector>

// How a file is read: past the page cache, out of it, or through it with nothing in it at first.
enum class Mode { unbuffered, warm, cold };

// Work: what one measured run is asked to do. Filled in by the command line, then only read.
//
// Units: bytes, seconds, milliseconds where the name says so.
// Ends:  a run ends after `requests` or after `seconds`, whichever comes first; 0 means no such limit.
struct Work
{
    std::string peer;
    std::vector<std::string> paths;
    std::uint32_t block = 1U << 20;
    unsigned depth = 8;  // requests under way per file
    bool random = false;
    Mode mode = Mode::unbuffered;
    std::uint64_t requests = 0;
    double seconds = 1;
    bool once = false;         // ends where a file ends, instead of beginning again
    bool verify = false;       // compares what was asked for with what came
    bool coalescable = false;  // the engine may merge neighbours
    bool deferred = false;     // and waits for them
    std::uint32_t coalesceLength = 1U << 20;

    // Streams that are played or recorded.
    std::vector<double> framesPerSecond = {24};
    unsigned streams = 1;
    unsigned windowFrames = 5;  // a stream runs this far ahead of its clock
    unsigned slowOneIn = 0;     // every so-manieth frame takes its receiver slowMs; 0 none
    unsigned slowMs = 40;
    std::string recordTo;  // playback: a recording beside it goes to this file
    bool stopAtLate = false;

    // The index.
    std::uint64_t clips = 1'000'000;
    std::uint64_t finds = 2'000'000;
};
