#pragma once

#include "Qz/LightweightString.h"
#include "fsys/DriveId.h"

#include <pybind11/pybind11.h>
#include <string_view>

// Texts: between the texts of the libraries and those of Python.
//
// Both carry a byte of a file name that is no UTF-8 as the lone surrogate U+DC00 + byte, so that every name
// survives: os.fsencode gives the bytes back.
// All REQUIRE the interpreter's lock.
namespace texts {

using Wide = LightweightString<wchar_t>;

[[nodiscard]] pybind11::str toPython(std::wstring_view text);
[[nodiscard]] inline pybind11::str toPython(const Wide& text) { return toPython(text.view()); }
[[nodiscard]] pybind11::str fromUtf8(std::string_view text);
// A text with a zero character, which no path has, throws ValueError.
[[nodiscard]] Wide toWide(const pybind11::str& text);

// "1"; None for no location. Ids behind ASCII are the character of their number.
[[nodiscard]] pybind11::object toPython(DriveId location);
// A text of another length names no location.
[[nodiscard]] DriveId toLocation(const pybind11::str& text);

}  // namespace texts
