#pragma once

#include "Meter.h"
#include "Work.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

// FrameSink: a file that is written front to back, by one of several means.
//
// Threads: one.
class FrameSink
{
public:
    virtual ~FrameSink() = default;
    // Appends one frame; may return before it is on the disk. Throws when it cannot be written.
    virtual void write(std::span<const unsigned char> frame) = 0;
    // Everything is on the device when it returns.
    virtual void finish() = 0;
};

// peer: "fsys" (DirectWrite), "media" (MediaWriter), "pwrite" (unbuffered), "pwrite-cache", "ofstream".
// A file that is there goes.
[[nodiscard]] std::unique_ptr<FrameSink> makeSink(const std::string& peer, const std::string& path,
                                                  const Work& work);
[[nodiscard]] bool needsEngine(const std::string& sinkPeer);

namespace peers {

Json write(const Work& work);   // as fast as it goes, one file
Json record(const Work& work);  // one file per rate of work.framesPerSecond, each at its pace

}  // namespace peers
