#pragma once

#include "Qz/Export.h"
#include "Qz/InternalRefCount.h"

#include <cstdint>

namespace Qz::Image {

// Format: the pixel layout of a picture. Stored as 32 bits; any value can be kept.
enum class Format : std::uint32_t {
    Unknown = 0,        // nobody has said
    RGB24 = 1,          // 8 bits each of red, green and blue
    RGBA32 = 2,         // the same and 8 bits of opacity
    YUV422 = 3,         // luma for each pixel, chroma for every second of a line
    YUV420 = 4,         // chroma for every second of every second line
    V210 = 5,           // 4:2:2 with 10 bits a component, packed
    Any = 0xFFFFFFFFu,  // whatever there is
};

namespace Core {

// Interface: the description of a picture, without its pixels.
// Units: width in pixels, height in lines. The order of the operations is part of the contract.
class QZ_API Interface : public virtual Qz::InternalRefCount
{
public:
    ~Interface() override;
    // Pixels of a line.
    [[nodiscard]] virtual unsigned int getWidth() const = 0;
    // Lines.
    [[nodiscard]] virtual unsigned int getHeight() const = 0;
    // Pixels of a line; not checked.
    virtual void setWidth(unsigned int width) = 0;
    // Lines; not checked.
    virtual void setHeight(unsigned int height) = 0;
    // The layout of the pixels.
    [[nodiscard]] virtual Format getDataFormat() const = 0;
    // Takes any value.
    virtual void setDataFormat(Format format) = 0;
    // Bits of one colour of one pixel.
    [[nodiscard]] virtual unsigned short getBitsPerComponent() const = 0;
    // Bits of one colour of one pixel; not checked.
    virtual void setBitsPerComponent(unsigned short bits) = 0;
    // Bits of one pixel, of all its colours together.
    [[nodiscard]] virtual unsigned short getBitsPerPixel() const = 0;
    // Bits of one pixel; not checked against those of a component.
    virtual void setBitsPerPixel(unsigned short bits) = 0;
    // True when somebody has said that the values above are meant. No value sets it by itself.
    [[nodiscard]] virtual bool getCoreDataSet() const = 0;
    // Says so, or takes it back.
    virtual void setCoreDataSet(bool set) = 0;
};

// Data: keeps what it is told and answers with it; a default one describes nothing.
class QZ_API Data : public Interface
{
public:
    Data() = default;
    // Describes a picture by all six values.
    Data(unsigned int width, unsigned int height, Format format, unsigned short bitsPerComponent,
         unsigned short bitsPerPixel, bool coreDataSet);

    [[nodiscard]] unsigned int getWidth() const override;
    [[nodiscard]] unsigned int getHeight() const override;
    void setWidth(unsigned int width) override;
    void setHeight(unsigned int height) override;
    [[nodiscard]] Format getDataFormat() const override;
    void setDataFormat(Format format) override;
    [[nodiscard]] unsigned short getBitsPerComponent() const override;
    void setBitsPerComponent(unsigned short bits) override;
    [[nodiscard]] unsigned short getBitsPerPixel() const override;
    void setBitsPerPixel(unsigned short bits) override;
    [[nodiscard]] bool getCoreDataSet() const override;
    void setCoreDataSet(bool set) override;

protected:
    unsigned int width_ = 0;               // pixels
    unsigned int height_ = 0;              // lines
    Format dataFormat_ = Format::Unknown;  // of the pixels
    unsigned short bitsPerComponent_ = 0;  // of one colour
    unsigned short bitsPerPixel_ = 0;      // of all colours
    bool coreDataSet_ = false;             // the values are meant
};

}  // namespace Core
}  // namespace Qz::Image
