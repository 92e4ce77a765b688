#include "Qz/Cookie.h"

#include "Qz/Utf8.h"

#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <optional>
#include <random>
#include <string_view>

namespace {

constexpr std::size_t clipDigits = 16;
constexpr std::size_t channelDigits = 2;
static_assert(Cookie::completeLength == 1 + clipDigits + channelDigits);

constexpr bool canHold(CookieType type) { return type == CookieTypeVision || type == CookieTypeSound; }

// Texts of both widths are parsed as they are: a cookie has ASCII characters only.
template <class CharT>
using View = std::basic_string_view<CharT>;

template <class CharT>
constexpr bool isBlank(CharT character)
{
    return character == CharT(' ') || character == CharT('\t');
}

template <class CharT>
View<CharT> withoutBlanks(View<CharT> text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

template <class CharT>
std::optional<unsigned> digitValue(CharT digit)
{
    if (digit >= CharT('0') && digit <= CharT('9'))
        return static_cast<unsigned>(digit - CharT('0'));
    if (digit >= CharT('A') && digit <= CharT('F'))
        return static_cast<unsigned>(digit - CharT('A') + 10);
    if (digit >= CharT('a') && digit <= CharT('f'))
        return static_cast<unsigned>(digit - CharT('a') + 10);
    return std::nullopt;
}

template <class CharT>
std::optional<std::uint64_t> parseHex(View<CharT> digits)
{
    std::uint64_t value = 0;
    for (const CharT digit : digits) {
        const std::optional<unsigned> part = digitValue(digit);
        if (!part)
            return std::nullopt;
        value = value << 4 | *part;
    }
    return value;
}

template <class CharT>
std::optional<CookieType> parseType(CharT letter)
{
    if (letter == CharT('V') || letter == CharT('v'))
        return CookieTypeVision;
    if (letter == CharT('S') || letter == CharT('s'))
        return CookieTypeSound;
    return std::nullopt;
}

template <class CharT>
Cookie parseShort(View<CharT> text)
{
    const std::optional<std::uint64_t> clip = parseHex(text);
    return clip ? Cookie(CookieTypeVision, *clip, 0) : Cookie();
}

template <class CharT>
Cookie parseComplete(View<CharT> text)
{
    const std::optional<CookieType> type = parseType(text[0]);
    const std::optional<std::uint64_t> clip = parseHex(text.substr(1, clipDigits));
    const std::optional<std::uint64_t> channel = parseHex(text.substr(1 + clipDigits));
    if (!type || !clip || !channel)
        return {};
    return {*type, *clip, static_cast<unsigned char>(*channel)};
}

template <class CharT>
Cookie parse(View<CharT> text, bool complete)
{
    const View<CharT> stem = withoutBlanks(text);
    if (stem.size() == Cookie::completeLength)
        return parseComplete(stem);
    if (stem.size() == clipDigits && !complete)
        return parseShort(stem);
    return {};
}

void writeHex(char* end, std::size_t digits, std::uint64_t value)
{
    for (; digits > 0; --digits, value >>= 4)
        *--end = "0123456789ABCDEF"[value & 0xF];
}

// Spreads every input bit over the whole result.
std::uint64_t mixed(std::uint64_t value)
{
    value = (value ^ value >> 32) * 0xD6E8FEB86659FD93u;
    value = (value ^ value >> 32) * 0xD6E8FEB86659FD93u;
    return value ^ value >> 32;
}

std::uint64_t randomBits() noexcept
{
    try {
        std::random_device source;
        return std::uint64_t{source()} << 32 | source();
    } catch (const std::exception&) {
        return 0;  // time and counter remain
    }
}

}  // namespace

Cookie::Cookie(CookieType type, std::uint64_t clip, unsigned char channel) noexcept
{
    if (!canHold(type))
        return;
    clip_ = clip;
    type_ = type;
    channel_ = channel;
}

Cookie::Cookie(const LightweightString<char>& text, bool complete) : Cookie(parse(text.view(), complete)) {}

Cookie::Cookie(const LightweightString<wchar_t>& text, bool complete) : Cookie(parse(text.view(), complete))
{}

Cookie Cookie::fromCompleteForm(std::wstring_view text) noexcept { return parse(text, true); }

Cookie Cookie::makeNew(CookieType type)
{
    // Random bits tell machines and forked processes apart; time and counter keep the calls of one
    // process apart even where the source of randomness is poor.
    static std::atomic<std::uint64_t> calls{0};
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    const std::uint64_t moment = mixed(static_cast<std::uint64_t>(now)) + mixed(++calls);
    return {type, randomBits() ^ moment, 0};
}

LightweightString<char> Cookie::asString(bool complete) const
{
    if (!valid())
        return "";
    std::array<char, completeLength> text{};
    text[0] = type_;
    writeHex(text.data() + 1 + clipDigits, clipDigits, clip_);
    writeHex(text.data() + completeLength, channelDigits, channel_);
    const std::string_view whole(text.data(), text.size());
    return complete ? whole : whole.substr(1, clipDigits);
}

LightweightString<wchar_t> Cookie::asWString() const { return fromUTF8(asString(true)); }

int Cookie::compare(const Cookie& other) const noexcept
{
    if (clip_ != other.clip_)
        return clip_ < other.clip_ ? -1 : 1;
    if (type_ != other.type_)
        return type_ < other.type_ ? -1 : 1;
    return static_cast<int>(channel_) - static_cast<int>(other.channel_);
}

Cookie convertCookie(const Cookie& cookie, CookieType type, unsigned char channel)
{
    return cookie.valid() ? Cookie(type, cookie.getClip(), channel) : Cookie();
}
