#include "TestMedia.h"

#include <array>
#include <cmath>
#include <numbers>
#include <vector>

namespace {

constexpr unsigned sampleRate = 48000;
constexpr std::uint32_t aviHasIndex = 0x10;
constexpr std::uint32_t aviKeyFrame = 0x10;

// Appends little-endian numbers and four-character codes.
class Chunk
{
public:
    Chunk& code(const char* text)
    {
        bytes_.append(text, 4);
        return *this;
    }
    Chunk& u16(std::uint32_t value) { return number(value, 2); }
    Chunk& u32(std::uint32_t value) { return number(value, 4); }
    [[nodiscard]] const std::string& bytes() const { return bytes_; }

private:
    Chunk& number(std::uint32_t value, unsigned width)
    {
        for (unsigned i = 0; i < width; ++i)
            bytes_ += static_cast<char>(value >> (8 * i) & 0xFF);
        return *this;
    }
    std::string bytes_;
};

std::uint32_t bytesPerLine(const PictureFormat& format) { return (format.width * 3 + 3) / 4 * 4; }

std::string aviHeader(const PictureFormat& f)
{
    const std::uint32_t frame = bytesPerFrame(f);
    const std::uint32_t movie = 4 + f.frames * (8 + frame);
    const std::uint32_t index = f.frames * 16;
    constexpr std::uint32_t mainHeader = 56, streamHeader = 56, streamFormat = 40;
    constexpr std::uint32_t streamList = 4 + 8 + streamHeader + 8 + streamFormat;
    constexpr std::uint32_t headerList = 4 + 8 + mainHeader + 8 + streamList;
    Chunk c;
    c.code("RIFF").u32(4 + 8 + headerList + 8 + movie + 8 + index).code("AVI ");
    c.code("LIST").u32(headerList).code("hdrl");
    c.code("avih").u32(mainHeader);
    c.u32(1000000 / f.framesPerSecond).u32(frame * f.framesPerSecond).u32(0).u32(aviHasIndex).u32(f.frames);
    c.u32(0).u32(1).u32(frame).u32(f.width).u32(f.height).u32(0).u32(0).u32(0).u32(0);
    c.code("LIST").u32(streamList).code("strl");
    c.code("strh").u32(streamHeader).code("vids").u32(0).u32(0).u32(0).u32(0);
    c.u32(1).u32(f.framesPerSecond).u32(0).u32(f.frames).u32(frame).u32(0xFFFFFFFF).u32(0);
    c.u16(0).u16(0).u16(f.width).u16(f.height);
    c.code("strf").u32(streamFormat).u32(streamFormat).u32(f.width).u32(f.height).u16(1).u16(24);
    c.u32(0).u32(frame).u32(0).u32(0).u32(0).u32(0);
    c.code("LIST").u32(movie).code("movi");
    return c.bytes();
}

std::string aviIndex(const PictureFormat& f)
{
    Chunk c;
    c.code("idx1").u32(f.frames * 16);
    for (std::uint32_t i = 0; i < f.frames; ++i)
        c.code("00db").u32(aviKeyFrame).u32(4 + i * (8 + bytesPerFrame(f))).u32(bytesPerFrame(f));
    return c.bytes();
}

// Blue, green, red of a colour bar.
std::array<unsigned char, 3> barColour(unsigned bar, unsigned seed)
{
    const unsigned bits = (7 - bar + seed) % 8;
    const auto level = [bits](unsigned bit) {
        return static_cast<unsigned char>((bits & bit) != 0 ? 200 : 24);
    };
    return {level(1), level(4), level(2)};
}

void drawFrame(const PictureFormat& f, unsigned frame, std::vector<unsigned char>& picture)
{
    const unsigned box = f.height / 4;
    const unsigned left = (frame * f.width / 50 + f.seed * 37) % (f.width - box);
    const unsigned top = (frame * f.height / 80) % (f.height - box);
    for (unsigned y = 0; y < f.height; ++y) {
        unsigned char* line = picture.data() + std::size_t{y} * bytesPerLine(f);
        for (unsigned x = 0; x < f.width; ++x, line += 3) {
            const bool inBox = x >= left && x < left + box && y >= top && y < top + box;
            const auto colour = barColour(x * 8 / f.width, f.seed);
            for (unsigned i = 0; i < 3; ++i)
                line[i] = inBox ? static_cast<unsigned char>(255 - y * 100 / f.height) : colour[i];
        }
    }
}

}  // namespace

std::uint32_t bytesPerFrame(const PictureFormat& format) { return bytesPerLine(format) * format.height; }

bool makePicture(const PictureFormat& format, const ByteSink& sink)
{
    const std::string header = aviHeader(format);
    if (!sink(header.data(), header.size()))
        return false;
    const std::string chunk = Chunk().code("00db").u32(bytesPerFrame(format)).bytes();
    std::vector<unsigned char> picture(bytesPerFrame(format));
    for (unsigned frame = 0; frame < format.frames; ++frame) {
        drawFrame(format, frame, picture);
        if (!sink(chunk.data(), chunk.size()) || !sink(picture.data(), picture.size()))
            return false;
    }
    const std::string index = aviIndex(format);
    return sink(index.data(), index.size());
}

bool makeSound(double seconds, const ByteSink& sink)
{
    const auto samples = static_cast<std::uint32_t>(seconds * sampleRate);
    const std::uint32_t dataBytes = samples * 4;
    Chunk header;
    header.code("RIFF").u32(36 + dataBytes).code("WAVE").code("fmt ").u32(16).u16(1).u16(2);
    header.u32(sampleRate).u32(sampleRate * 4).u16(4).u16(16).code("data").u32(dataBytes);
    if (!sink(header.bytes().data(), header.bytes().size()))
        return false;
    for (std::uint32_t second = 0; second * sampleRate < samples; ++second) {
        Chunk sound;
        for (std::uint32_t i = second * sampleRate; i < samples && i < (second + 1) * sampleRate; ++i) {
            const double time = i / static_cast<double>(sampleRate);
            const double phase = 2 * std::numbers::pi * (220 * time + 55 * time * time);
            const auto value = static_cast<std::uint32_t>(std::lround(8000 * std::sin(phase)));
            sound.u16(value & 0xFFFF).u16(value & 0xFFFF);
        }
        if (!sink(sound.bytes().data(), sound.bytes().size()))
            return false;
    }
    return true;
}
