#include "os/linux/PathText.h"

#include "Qz/Utf8.h"

#include <algorithm>

namespace os {

std::string pathBytes(const LightweightString<wchar_t>& path)
{
    if (path.find(L'\0') != LightweightString<wchar_t>::npos)
        return {};
    return toUTF8(path).str();
}

LightweightString<wchar_t> widePath(std::string_view bytes) { return fromUTF8(bytes); }

bool isNetworkName(std::string_view path) { return path.starts_with("\\\\"); }

bool hasForeignSeparators(std::string_view path)
{
    return !isNetworkName(path) && path.find('\\') != std::string_view::npos;
}

std::string withOwnSeparators(std::string path)
{
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

std::vector<std::string> pathComponents(std::string_view path)
{
    std::vector<std::string> components;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        const std::string_view component = path.substr(0, end);
        if (!component.empty() && component != ".")
            components.emplace_back(component);
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return components;
}

std::string tidyPath(std::string_view path)
{
    const bool absolute = path.starts_with('/');
    std::string tidy;
    for (const std::string& component : pathComponents(path)) {
        if (absolute || !tidy.empty())
            tidy += '/';
        tidy += component;
    }
    return tidy.empty() && absolute ? "/" : tidy;
}

bool isAtOrBelow(std::string_view path, std::string_view folder)
{
    if (folder == "/")
        return path.starts_with('/');
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

SplitPath splitPath(std::string_view path)
{
    const std::size_t separator = path.rfind('/');
    if (separator == std::string_view::npos)
        return {"", std::string(path)};
    return {std::string(path.substr(0, separator + 1)), std::string(path.substr(separator + 1))};
}

}  // namespace os
