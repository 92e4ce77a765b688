#pragma once

#include "Qz/LightweightString.h"

#include <string>
#include <string_view>
#include <vector>

namespace os {

// PathText: what can be told about a path from its text. Paths in this folder are the bytes that the
// kernel takes; outside they are wide (Utf8.h carries any byte through).

// The bytes of a wide path; empty when it holds a zero, which would cut it short to another path.
[[nodiscard]] std::string pathBytes(const LightweightString<wchar_t>& path);
[[nodiscard]] LightweightString<wchar_t> widePath(std::string_view bytes);

// True for names that begin with two backslashes.
[[nodiscard]] bool isNetworkName(std::string_view path);
// True when path is worth a second try with backslashes read as separators. Network names are not: one
// that nobody could map to a place here must not hit a local folder of the same spelling.
[[nodiscard]] bool hasForeignSeparators(std::string_view path);
[[nodiscard]] std::string withOwnSeparators(std::string path);

// Components between separators, without empty ones and without ".".
[[nodiscard]] std::vector<std::string> pathComponents(std::string_view path);
// The path without doubled and trailing separators and without ".". ".." stays: only the disk can tell
// where it leads.
[[nodiscard]] std::string tidyPath(std::string_view path);
// True for folder itself and all below it; both tidy.
[[nodiscard]] bool isAtOrBelow(std::string_view path, std::string_view folder);

// Folder with trailing separator ("" when path has none), and the rest.
struct SplitPath
{
    std::string folder;
    std::string name;
};
[[nodiscard]] SplitPath splitPath(std::string_view path);

}  // namespace os
