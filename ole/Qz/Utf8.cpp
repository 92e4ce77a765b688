#include "Qz/Utf8.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

constexpr std::uint32_t escapeBase = 0xDC00;
constexpr std::uint32_t escapeFirst = 0xDC80;
constexpr std::uint32_t escapeLast = 0xDCFF;
constexpr std::uint32_t replacement = 0xFFFD;
constexpr std::uint32_t highestCode = 0x10FFFF;

constexpr bool isSurrogate(std::uint32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

struct Decoded
{
    std::uint32_t code;
    std::size_t length;  // bytes; 0 when the text does not begin with a valid sequence
};

std::uint32_t byteAt(std::string_view bytes, std::size_t index)
{
    return index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0;
}

// The sequence of length bytes whose first byte carries the given high bits of the code. A code that
// fits in fewer bytes than it takes is an overlong form: smallest is the first one that does not.
Decoded decodeTail(std::string_view bytes, std::uint32_t high, std::size_t length, std::uint32_t smallest)
{
    std::uint32_t code = high;
    for (std::size_t i = 1; i < length; ++i) {
        const std::uint32_t byte = byteAt(bytes, i);
        if ((byte & 0xC0) != 0x80)
            return {0, 0};
        code = code << 6 | (byte & 0x3F);
    }
    if (code < smallest || code > highestCode || isSurrogate(code))
        return {0, 0};
    return {code, length};
}

// REQUIRES: bytes is not empty.
Decoded decodeFirst(std::string_view bytes)
{
    const std::uint32_t lead = byteAt(bytes, 0);
    if (lead < 0x80)
        return {lead, 1};
    if ((lead & 0xE0) == 0xC0)
        return decodeTail(bytes, lead & 0x1F, 2, 0x80);
    if ((lead & 0xF0) == 0xE0)
        return decodeTail(bytes, lead & 0x0F, 3, 0x800);
    if ((lead & 0xF8) == 0xF0)
        return decodeTail(bytes, lead & 0x07, 4, 0x10000);
    return {0, 0};
}

// How many characters from the first on are their own code: almost all, in almost every name.
std::size_t asciiLength(std::string_view bytes)
{
    std::size_t length = 0;
    while (length < bytes.size() && static_cast<unsigned char>(bytes[length]) < 0x80)
        ++length;
    return length;
}

void appendByte(std::string& bytes, std::uint32_t byte) { bytes.push_back(static_cast<char>(byte & 0xFF)); }

void appendCode(std::string& bytes, std::uint32_t code)
{
    if (code < 0x80)
        return appendByte(bytes, code);
    if (code < 0x800) {
        appendByte(bytes, 0xC0 | code >> 6);
    } else {
        if (code < 0x10000) {
            appendByte(bytes, 0xE0 | code >> 12);
        } else {
            appendByte(bytes, 0xF0 | code >> 18);
            appendByte(bytes, 0x80 | (code >> 12 & 0x3F));
        }
        appendByte(bytes, 0x80 | (code >> 6 & 0x3F));
    }
    appendByte(bytes, 0x80 | (code & 0x3F));
}

}  // namespace

LightweightString<char> toUTF8(std::wstring_view text)
{
    if (!text.data())
        return {};
    std::string bytes;
    bytes.reserve(text.size());
    for (const wchar_t character : text) {
        const auto code = static_cast<std::uint32_t>(character);
        if (code >= escapeFirst && code <= escapeLast)
            appendByte(bytes, code - escapeBase);
        else
            appendCode(bytes, isSurrogate(code) || code > highestCode ? replacement : code);
    }
    return bytes;
}

void appendFromUTF8(std::wstring& text, std::string_view bytes)
{
    const std::size_t begin = text.size();
    text.resize(begin + bytes.size());  // no byte makes more than one character
    wchar_t* to = text.data() + begin;
    while (!bytes.empty()) {
        const std::size_t ascii = asciiLength(bytes);
        to = std::copy_n(bytes.begin(), ascii, to);
        bytes.remove_prefix(ascii);
        if (bytes.empty())
            break;
        const Decoded first = decodeFirst(bytes);
        *to++ = static_cast<wchar_t>(first.length ? first.code : escapeBase + byteAt(bytes, 0));
        bytes.remove_prefix(first.length ? first.length : 1);
    }
    text.resize(static_cast<std::size_t>(to - text.data()));
}

LightweightString<wchar_t> fromUTF8(std::string_view bytes)
{
    if (!bytes.data())
        return {};
    std::wstring text;
    text.reserve(bytes.size());
    appendFromUTF8(text, bytes);
    return text;
}

LightweightString<char> toUTF8(const wchar_t* zeroTerminated)
{
    return zeroTerminated ? toUTF8(std::wstring_view(zeroTerminated)) : LightweightString<char>();
}

LightweightString<wchar_t> fromUTF8(const char* zeroTerminated)
{
    return zeroTerminated ? fromUTF8(std::string_view(zeroTerminated)) : LightweightString<wchar_t>();
}
