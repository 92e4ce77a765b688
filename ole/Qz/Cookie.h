#pragma once

#include "Qz/Export.h"
#include "Qz/LightweightString.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string_view>

// What a channel of a clip carries. The values are the letters of the text form.
enum CookieType : char {
    CookieTypeVision = 'V',   // pictures
    CookieTypeSound = 'S',    // sound
    CookieTypeInvalid = 'I',  // no cookie
};

// Cookie: the media identity of a clip, a shot or one channel of it.
//
// A cookie is a 64-bit clip number, a type and a channel (0 to 255). All channels of a clip share its
// number, so convertCookie derives one from another without a table.
//
// Text:       the complete form is always 19 characters, upper case letters and digits only: the type
//             letter ('V' or 'S'), the clip number in 16 hexadecimal digits, the channel in two. It
//             serves as the stem of media file names. The short form leaves out type and channel.
//             An invalid cookie prints as an empty text.
// Parsing:    takes upper and lower case and passes over blanks before and behind. Anything else gives
//             an invalid cookie (type 'I').
class QZ_API Cookie
{
public:
    // Characters of the complete form.
    static constexpr std::size_t completeLength = 19;

    // An invalid cookie.
    Cookie() noexcept = default;
    // REQUIRES: type is CookieTypeVision or CookieTypeSound; any other makes an invalid cookie.
    Cookie(CookieType type, std::uint64_t clip, unsigned char channel) noexcept;
    // Parses text: the complete form when complete is true; otherwise the short form as well, which
    // then names vision channel 0 of the clip.
    Cookie(const LightweightString<char>& text, bool complete);
    Cookie(const LightweightString<wchar_t>& text, bool complete);
    // Parses the complete form, without taking memory.
    [[nodiscard]] static Cookie fromCompleteForm(std::wstring_view text) noexcept;
    // A cookie that no other call, process or machine has made: time and random bits.
    [[nodiscard]] static Cookie makeNew(CookieType type = CookieTypeVision);

    // CookieTypeInvalid for an invalid cookie.
    [[nodiscard]] CookieType getType() const noexcept { return type_; }
    // The number that all channels of the clip share.
    [[nodiscard]] std::uint64_t getClip() const noexcept { return clip_; }
    // 0 to 255; those of each type count from a number of their own.
    [[nodiscard]] unsigned char getChannel() const noexcept { return channel_; }
    // True when it is of vision or of sound.
    [[nodiscard]] bool valid() const noexcept { return type_ != CookieTypeInvalid; }

    // The complete form, or the short form when complete is false.
    [[nodiscard]] LightweightString<char> asString(bool complete) const;
    // The complete form.
    [[nodiscard]] LightweightString<wchar_t> asWString() const;

    // Below 0, 0 or above 0: orders by clip, then type, then channel.
    [[nodiscard]] int compare(const Cookie& other) const noexcept;

    // Each as compare tells.
    friend bool operator==(const Cookie& a, const Cookie& b) noexcept { return a.compare(b) == 0; }
    friend bool operator<(const Cookie& a, const Cookie& b) noexcept { return a.compare(b) < 0; }

private:
    std::uint64_t clip_ = 0;
    CookieType type_ = CookieTypeInvalid;
    unsigned char channel_ = 0;
};

// The same clip with the given type and channel; an invalid cookie stays invalid.
[[nodiscard]] QZ_API Cookie convertCookie(const Cookie& cookie, CookieType type, unsigned char channel);
