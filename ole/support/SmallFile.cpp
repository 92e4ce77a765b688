#include "support/SmallFile.h"

#include <cerrno>
#include <cstddef>

#include "os/LastError.h"
#include "os/OS.h"

LoadResult loadSmallFile(const LightweightString<wchar_t>& path, std::string& contents)
{
    constexpr std::size_t bytesMax = std::size_t{16} << 20;
    if (OS()->getFileManager()->readWholeFile(path, bytesMax, contents))
        return LoadResult::loaded;
    const int error = errnoFromError(lastError());
    return error == ENOENT || error == ENOTDIR ? LoadResult::missing : LoadResult::unreadable;
}

std::vector<std::string_view> splitLines(std::string_view text)
{
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    std::vector<std::string_view> lines;
    if (text.find_first_not_of('\0') == std::string_view::npos)
        return lines;
    if (text.starts_with(byteOrderMark))
        text.remove_prefix(byteOrderMark.size());
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        lines.push_back(line);
    }
    return lines;
}
