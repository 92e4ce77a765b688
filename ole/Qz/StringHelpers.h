#pragma once

#include "Qz/Export.h"
#include "Qz/LightweightString.h"

#include <string_view>

namespace Qz {

// Plain decimal: a minus sign for negative numbers, no leading zeros, no grouping.
[[nodiscard]] QZ_API LightweightString<wchar_t> WStringFromInteger(long value);

// True when text ends with character; ignoring case unless caseSensitive.
[[nodiscard]] QZ_API bool endsWith(const LightweightString<wchar_t>& text, wchar_t character,
                                   bool caseSensitive);

// Case rule of the whole system, independent of the locale: simple one-to-one folding of ASCII, Latin,
// Greek, Cyrillic and Armenian letters and of full-width forms, as of Unicode 15. Characters outside
// of these blocks compare as they are; nothing is normalised and no character folds to two.
[[nodiscard]] QZ_API wchar_t foldCase(wchar_t character) noexcept;
// True when both are the same but for case, by foldCase.
[[nodiscard]] QZ_API bool equalsIgnoringCase(std::wstring_view a, std::wstring_view b) noexcept;
// True when text begins with prefix, by foldCase; every text begins with the empty one.
[[nodiscard]] QZ_API bool startsWithIgnoringCase(std::wstring_view text, std::wstring_view prefix) noexcept;
[[nodiscard]] QZ_API bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept;  // ASCII

}  // namespace Qz
