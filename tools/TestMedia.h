#pragma once

#include <cstdint>
#include <functional>
#include <string>

// TestMedia: media that any player opens, made on the spot: a moving test picture and a tone.

// Takes the next bytes of a file; false stops the making.
using ByteSink = std::function<bool(const void* data, std::size_t bytes)>;

struct PictureFormat
{
    unsigned width = 640;
    unsigned height = 360;
    unsigned framesPerSecond = 25;
    unsigned frames = 100;
    unsigned seed = 0;  // different pictures for different seeds
};

// An AVI file of uncompressed 24-bit pictures: colour bars over which a box moves.
bool makePicture(const PictureFormat& format, const ByteSink& sink);
// Bytes of one stored picture.
[[nodiscard]] std::uint32_t bytesPerFrame(const PictureFormat& format);

// A WAV file of 48,000 Hz, 16-bit stereo sound: a tone that rises.
bool makeSound(double seconds, const ByteSink& sink);
