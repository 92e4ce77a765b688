#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace os {

// Tells by its name whether a file is wanted; empty for all.
using NameFilter = std::function<bool(std::string_view)>;

// The names that pattern stands for. '*' is any number of characters, '?' one character; "*.*" is every
// name, also one without a dot.
[[nodiscard]] NameFilter wildcardFilter(std::string_view pattern);
[[nodiscard]] NameFilter prefixFilter(std::string prefix);

}  // namespace os
