#include "fsys/DecodeFormat.h"

#include "Qz/Assert.h"

namespace {

constexpr char knownLevel[] = "proxyLevel_ == eAuto || proxyLevel_ == eHighRes || proxyLevel_ == eProxy";

}  // namespace

DecodeFormat DecodeFormat::default_(eHighRes);

DecodeFormat::DecodeFormat() = default;

DecodeFormat::DecodeFormat(eProxyLevel level)
    : Data(0, 0xFFFFFFFFu, Qz::Image::Format::Any, 0, 0, true), proxyLevel_(level)
{}

DecodeFormat::DecodeFormat(const Qz::Image::Core::Data& data) { takeThroughSetters(data); }

DecodeFormat::~DecodeFormat() = default;

void DecodeFormat::setCoreData(const Qz::Image::Core::Data& data)
{
    takeThroughSetters(data);
    // Deliberate: once more past the setters, so that the fields hold what data holds, whatever a
    // derived class makes of the setters.
    Data::operator=(data);
    Qz::verify(hasKnownLevel(), knownLevel, "ole/fsys/DecodeFormat line 65");
}

eProxyLevel DecodeFormat::getProxyLevel() const
{
    Qz::verify(hasKnownLevel(), knownLevel, "ole/fsys/DecodeFormat line 73");
    return proxyLevel_;
}

void DecodeFormat::setProxyLevel(eProxyLevel level)
{
    proxyLevel_ = level;
    Qz::verify(hasKnownLevel(), knownLevel, "ole/fsys/DecodeFormat line 82");
}

void DecodeFormat::setDefault(DecodeFormat format)
{
    default_.takeThroughSetters(format);
    default_ = format;
}

DecodeFormat& DecodeFormat::getDefault() { return default_; }

void DecodeFormat::takeThroughSetters(const Qz::Image::Core::Data& data)
{
    setWidth(data.getWidth());
    setHeight(data.getHeight());
    setDataFormat(data.getDataFormat());
    setBitsPerComponent(data.getBitsPerComponent());
    setBitsPerPixel(data.getBitsPerPixel());
    setCoreDataSet(data.getCoreDataSet());
}
