#pragma once

#include "Progress.h"
#include "media/MediaReader.h"
#include "media/MediaWriter.h"

#include <cstdint>
#include <string>

// MediaCopy: all of a media file through reader and writer, hashed on the way.

struct MediaHash
{
    std::uint64_t bytes = 0;  // read
    std::string xxh128;       // of all of the file; empty after an error
    MediaError error;
};

// Reads the file from its first byte to its last. progress advances by bytes.
[[nodiscard]] MediaHash hashOfMedia(const LightweightString<wchar_t>& path, Progress& progress);

// Copies what reader reads to writer and finishes the recording. A copy that could not be made whole is
// removed. REQUIRES: both are open.
[[nodiscard]] MediaRecording copyMedia(MediaReader& reader, MediaWriter& writer, Progress& progress);
