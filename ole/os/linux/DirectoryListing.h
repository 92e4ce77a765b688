#pragma once

#include "os/linux/BoundedCalls.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace os {

// DirectoryListing: the regular files of a folder with their sizes, sorted by the bytes of their names.
// Links count as what they point at; what vanishes meanwhile is left out.

struct ListedFile
{
    std::string name;
    std::uint64_t size = 0;  // bytes
};

// Tells by its name whether a file is wanted; empty for all.
using NameFilter = std::function<bool(std::string_view)>;

// False, with the last error set and no files, when folder cannot be listed.
bool listFolder(const std::string& folder, const NameFilter& isWanted, std::vector<ListedFile>& files,
                Progress& progress);

// The names that pattern stands for. '*' is any number of characters, '?' one character; "*.*" is every
// name, also one without a dot.
[[nodiscard]] NameFilter wildcardFilter(std::string_view pattern);
[[nodiscard]] NameFilter prefixFilter(std::string prefix);

}  // namespace os
