// The UTF-8 codec: every byte string survives the way through wide text, and what is taken for a character is
// one.

#include "Fuzz.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "Qz/StringHelpers.h"
#include "Qz/Utf8.h"

namespace {

bool isSurrogate(wchar_t code) { return code >= 0xD800 && code <= 0xDFFF; }
bool isEscape(wchar_t code) { return code >= 0xDC80 && code <= 0xDCFF; }
bool isCharacter(wchar_t code) { return static_cast<std::uint32_t>(code) <= 0x10FFFF && !isSurrogate(code); }

// Bytes that a valid sequence has, by the table of well-formed sequences; 0 when there is none.
std::size_t validLength(std::string_view bytes)
{
    const auto at = [&](std::size_t i) {
        return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u;
    };
    const auto within = [](unsigned byte, unsigned low, unsigned high) {
        return byte >= low && byte <= high;
    };
    const unsigned lead = at(0);
    if (lead < 0x80)
        return 1;
    const std::size_t length = within(lead, 0xC2, 0xDF)   ? 2
                               : within(lead, 0xE0, 0xEF) ? 3
                               : within(lead, 0xF0, 0xF4) ? 4
                                                          : 0;
    const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (length == 0 || !within(at(1), low, high))
        return 0;
    for (std::size_t i = 2; i < length; ++i)
        if (!within(at(i), 0x80, 0xBF))
            return 0;
    return length;
}

void checkBytes(std::string_view bytes)
{
    const LightweightString<wchar_t> wide = fromUTF8(bytes);
    require(toUTF8(wide).view() == bytes, "bytes survive the round trip");
    std::string_view rest = bytes;
    for (const wchar_t character : wide.view()) {
        const std::size_t length = validLength(rest);
        require(length ? isCharacter(character) : isEscape(character),
                "a character or an escape, as it should");
        rest.remove_prefix(std::max<std::size_t>(length, 1));
    }
    require(rest.empty(), "every byte is told");
    std::wstring appended = L"x";
    appendFromUTF8(appended, bytes);
    require(appended.substr(1) == wide.view(), "appending converts the same");
}

void checkWide(std::string_view bytes)
{
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
    const LightweightString<char> narrow = toUTF8(text);
    const LightweightString<wchar_t> again = fromUTF8(narrow);
    require(toUTF8(again) == narrow, "what was written comes back");
    if (std::all_of(text.begin(), text.end(), isCharacter))
        require(again.view() == text, "characters survive the round trip");
    const LightweightString<wchar_t> whole(text);
    require(Qz::equalsIgnoringCase(whole, whole), "a text equals itself");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes = size ? textOf(data, size) : std::string_view("");
    checkBytes(bytes);
    checkWide(bytes);
    return 0;
}
