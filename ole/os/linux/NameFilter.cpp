#include "os/linux/NameFilter.h"

#include "Qz/Utf8.h"

namespace os {

namespace {

// Goes back to the last '*' on a mismatch, so the time is at most the product of the lengths.
bool matchesWildcards(std::wstring_view pattern, std::wstring_view name)
{
    constexpr std::size_t none = std::wstring_view::npos;
    std::size_t p = 0, n = 0, star = none, starName = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == L'*') {
            star = p++;
            starName = n;
        } else if (p < pattern.size() && (pattern[p] == L'?' || pattern[p] == name[n])) {
            ++p;
            ++n;
        } else if (star != none) {
            p = star + 1;
            n = ++starName;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of(L'*', p) == none;
}

}  // namespace

NameFilter wildcardFilter(std::string_view pattern)
{
    if (pattern == "*.*" || pattern == "*")
        return {};
    // Wide, so that '?' is one character and not one byte of it.
    return [wide = fromUTF8(pattern).str()](std::string_view name) {
        return matchesWildcards(wide, fromUTF8(name).view());
    };
}

NameFilter prefixFilter(std::string prefix)
{
    return [prefix = std::move(prefix)](std::string_view name) { return name.starts_with(prefix); };
}

}  // namespace os
