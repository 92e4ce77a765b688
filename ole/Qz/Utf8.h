#pragma once

#include "Qz/Export.h"
#include "Qz/LightweightString.h"

#include <string>
#include <string_view>

// Utf8: conversion between UTF-8 (names on disk, files, logs) and wide strings (names in memory).
//
// Every byte sequence survives the round trip bytes -> wide -> bytes unchanged, so no file is
// unreachable whatever its name: a byte that is not part of valid UTF-8 becomes the lone surrogate
// U+DC00 + byte (0xDC80 to 0xDCFF), and such a code goes back to that one byte. Encoded surrogates,
// overlong forms and values above U+10FFFF are not valid UTF-8 and are carried byte by byte.
// Wide codes that no UTF-8 has (other surrogates, above 0x10FFFF) become U+FFFD on the way out.
//
// Null:       a null string (a null pointer, a view of nothing) converts to a null string.
// Zero byte:  the pointer forms stop at the zero; the other forms convert everything given.

// The UTF-8 of a wide text, by the rules above.
[[nodiscard]] QZ_API LightweightString<char> toUTF8(std::wstring_view text);
// The wide text of bytes, by the rules above.
[[nodiscard]] QZ_API LightweightString<wchar_t> fromUTF8(std::string_view bytes);
[[nodiscard]] QZ_API LightweightString<wchar_t> fromUTF8(const char* zeroTerminated);
// Adds what fromUTF8 makes of bytes to the end of text, so that many conversions share one block of memory.
QZ_API void appendFromUTF8(std::wstring& text, std::string_view bytes);
// The UTF-8 of a wide text, by the rules above.
[[nodiscard]] QZ_API LightweightString<char> toUTF8(const wchar_t* zeroTerminated);
[[nodiscard]] inline LightweightString<char> toUTF8(const std::wstring& text)
{
    return toUTF8(std::wstring_view(text));
}
[[nodiscard]] inline LightweightString<char> toUTF8(const LightweightString<wchar_t>& text)
{
    return text.isNull() ? LightweightString<char>() : toUTF8(text.view());
}
// The wide text of bytes, by the rules above.
[[nodiscard]] inline LightweightString<wchar_t> fromUTF8(const std::string& bytes)
{
    return fromUTF8(std::string_view(bytes));
}
[[nodiscard]] inline LightweightString<wchar_t> fromUTF8(const LightweightString<char>& bytes)
{
    return bytes.isNull() ? LightweightString<wchar_t>() : fromUTF8(bytes.view());
}
