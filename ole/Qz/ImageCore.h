#pragma once

#include "Qz/Export.h"
#include "Qz/InternalRefCount.h"

#include <cstdint>

namespace Qz::Image {

// Format: the pixel layout of a picture. Stored as 32 bits; any value can be kept.
enum class Format : std::uint32_t {
    Unknown = 0,
    RGB24 = 1,
    RGBA32 = 2,
    YUV422 = 3,
    YUV420 = 4,
    V210 = 5,
    Any = 0xFFFFFFFFu,
};

namespace Core {

// Interface: the description of a picture, without its pixels.
// Units: width in pixels, height in lines. The order of the operations is part of the contract.
class QZ_API Interface : public virtual Qz::InternalRefCount
{
public:
    ~Interface() override;
    [[nodiscard]] virtual unsigned int getWidth() const = 0;
    [[nodiscard]] virtual unsigned int getHeight() const = 0;
    virtual void setWidth(unsigned int width) = 0;
    virtual void setHeight(unsigned int height) = 0;
    [[nodiscard]] virtual Format getDataFormat() const = 0;
    virtual void setDataFormat(Format format) = 0;
    [[nodiscard]] virtual unsigned short getBitsPerComponent() const = 0;
    virtual void setBitsPerComponent(unsigned short bits) = 0;
    [[nodiscard]] virtual unsigned short getBitsPerPixel() const = 0;
    virtual void setBitsPerPixel(unsigned short bits) = 0;
    [[nodiscard]] virtual bool getCoreDataSet() const = 0;
    virtual void setCoreDataSet(bool set) = 0;
};

// Data: keeps what it is told and answers with it; a default one describes nothing.
class QZ_API Data : public Interface
{
public:
    Data() = default;
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
    unsigned int width_ = 0;
    unsigned int height_ = 0;
    Format dataFormat_ = Format::Unknown;
    unsigned short bitsPerComponent_ = 0;
    unsigned short bitsPerPixel_ = 0;
    bool coreDataSet_ = false;
};

}  // namespace Core
}  // namespace Qz::Image
