#pragma once

#include "Qz/ImageCore.h"
#include "fsys/Export.h"

// Which file of a clip is wanted. eHighRes and eProxy also serve as bits of media-type masks.
enum eProxyLevel : unsigned {
    eAuto = 0,     // a proxy as tall as the wanted picture where a height is given, else full resolution
    eHighRes = 1,  // the full-resolution file
    eProxy = 2,    // any proxy
};

// DecodeFormat: what a reader of media will decode to, and which file it wants for that.
//
// Threads:    a plain value. The default object is shared by all threads: set it while setting up, and
//             do not hold the reference across a setDefault of another thread.
// Errors:     a proxy level that is none of the three prints an assertion line, is kept and is used on.
class FSYS_API DecodeFormat : public Qz::Image::Core::Data
{
public:
    // Describes no picture; wants the full-resolution file.
    DecodeFormat();
    // Wants level for a picture of no given geometry: width 0, height and data format all bits set.
    // level is not checked here.
    DecodeFormat(eProxyLevel level);
    // The picture that data describes, at full resolution.
    DecodeFormat(const Qz::Image::Core::Data& data);
    DecodeFormat(const DecodeFormat&) = default;
    DecodeFormat& operator=(const DecodeFormat&) = default;
    ~DecodeFormat() override;

    // Takes over the six values of the picture; the proxy level stays.
    void setCoreData(const Qz::Image::Core::Data& data);
    // As it was given, also when it is none of the three.
    [[nodiscard]] eProxyLevel getProxyLevel() const;
    // See Errors.
    void setProxyLevel(eProxyLevel level);

    // Copies format into the default of the process.
    static void setDefault(DecodeFormat format);
    // The default itself, not a copy; DecodeFormat(eHighRes) until setDefault is called.
    [[nodiscard]] static DecodeFormat& getDefault();

private:
    [[nodiscard]] bool hasKnownLevel() const noexcept { return proxyLevel_ <= eProxy; }
    void takeThroughSetters(const Qz::Image::Core::Data& data);

    static DecodeFormat default_;

    eProxyLevel proxyLevel_ = eHighRes;
    [[maybe_unused]] bool flag_ = false;  // travels with copies; nothing in this library reads it
};
