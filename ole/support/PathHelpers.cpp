#include "support/PathHelpers.h"

#include <algorithm>
#include <string>

#include "os/OS.h"

namespace {

using WideText = LightweightString<wchar_t>;

bool isNetworkName(const WideText& path) { return path.startsWith(L"\\\\"); }

// Where the last component begins.
std::size_t lastComponentAt(const WideText& path)
{
    const wchar_t* separators = isNetworkName(path) ? L"/\\" : L"/";
    const std::size_t last = path.view().find_last_of(separators);
    return last == WideText::npos ? 0 : last + 1;
}

}  // namespace

WideText joinPaths(const WideText& directory, const WideText& relative)
{
    if (directory.empty())
        return relative;
    const std::size_t directoryEnd = directory.view().find_last_not_of(L'/') + 1;  // 0 when all are '/'
    const std::size_t relativeStart = std::min(relative.view().find_first_not_of(L'/'), relative.size());
    std::wstring joined(directory.view().substr(0, directoryEnd));
    joined += L'/';
    joined += relative.view().substr(relativeStart);
    return joined;
}

WideText stripPath(const WideText& path) { return path.substr(lastComponentAt(path)); }

WideText getPath(const WideText& path) { return path.substr(0, lastComponentAt(path)); }

WideText stripExtension(const WideText& path)
{
    const std::size_t dot = path.rfind(L'.');
    return dot == WideText::npos || dot < lastComponentAt(path) ? path : path.substr(0, dot);
}

WideText fixForeignOSFileName(const WideText& path)
{
    if (isNetworkName(path) || path.find(L'\\') == WideText::npos)
        return path;
    std::wstring fixed = path.str();
    std::replace(fixed.begin(), fixed.end(), L'\\', L'/');
    return fixed;
}

bool deleteDirectory(const WideText& path) { return OS()->getFileManager()->deleteTree(path); }

WideText getMediaLocationsFilename() { return L"DefNetDrive.txt"; }
