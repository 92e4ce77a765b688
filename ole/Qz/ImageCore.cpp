#include "Qz/ImageCore.h"

namespace Qz::Image::Core {

Interface::~Interface() = default;

Data::Data(unsigned int width, unsigned int height, Format format, unsigned short bitsPerComponent,
           unsigned short bitsPerPixel, bool coreDataSet)
    : width_(width),
      height_(height),
      dataFormat_(format),
      bitsPerComponent_(bitsPerComponent),
      bitsPerPixel_(bitsPerPixel),
      coreDataSet_(coreDataSet)
{}

unsigned int Data::getWidth() const { return width_; }
unsigned int Data::getHeight() const { return height_; }
void Data::setWidth(unsigned int width) { width_ = width; }
void Data::setHeight(unsigned int height) { height_ = height; }
Format Data::getDataFormat() const { return dataFormat_; }
void Data::setDataFormat(Format format) { dataFormat_ = format; }
unsigned short Data::getBitsPerComponent() const { return bitsPerComponent_; }
void Data::setBitsPerComponent(unsigned short bits) { bitsPerComponent_ = bits; }
unsigned short Data::getBitsPerPixel() const { return bitsPerPixel_; }
void Data::setBitsPerPixel(unsigned short bits) { bitsPerPixel_ = bits; }
bool Data::getCoreDataSet() const { return coreDataSet_; }
void Data::setCoreDataSet(bool set) { coreDataSet_ = set; }

}  // namespace Qz::Image::Core
