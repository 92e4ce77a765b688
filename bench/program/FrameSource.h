#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// How the thread of a stream gets one frame.
class FrameSource
{
public:
    virtual ~FrameSource() = default;
    virtual void read(unsigned char* buffer, std::size_t bytes, std::uint64_t position) = 0;
};

// Reads with FFmpeg's file protocol; throws in a program that was built without it.
[[nodiscard]] std::unique_ptr<FrameSource> makeFfmpegSource(const std::string& path);
