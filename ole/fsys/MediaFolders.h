#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "fsys/Export.h"

// MediaFolders: the two folders below the root of every media location, "Material" for pictures and
// "Sound" for sound.

namespace mediaFolders {

// Name of the folder for a type of media; empty for a type that has none.
[[nodiscard]] LightweightString<wchar_t> nameOf(CookieType type);

// text with the separator of this system at its end, appended only where it is missing.
[[nodiscard]] LightweightString<wchar_t> withSeparator(const LightweightString<wchar_t>& text);

// The separator of this system, as a text.
[[nodiscard]] LightweightString<wchar_t> separator();

}  // namespace mediaFolders

// True when path is a place in a media folder in its drive-relative form: a drive identifier, a colon, the
// separator and something that begins with the name of a media folder, ignoring case ("3:/Material/").
// The identifier is not checked, and what follows the folder's name is not either: "1:/Materials" passes.
[[nodiscard]] FSYS_API bool isValidFsysMediaFolderPath(const LightweightString<wchar_t>& path);
