#include "fsys/MediaFolders.h"

#include "Qz/StringHelpers.h"
#include "os/OS.h"

namespace mediaFolders {

LightweightString<wchar_t> nameOf(CookieType type)
{
    switch (type) {
    case CookieTypeVision:
        return L"Material";
    case CookieTypeSound:
        return L"Sound";
    default:
        return {};
    }
}

LightweightString<wchar_t> separator()
{
    const wchar_t text[] = {OS()->getFileManager()->getPathSeparator(), L'\0'};
    return text;
}

LightweightString<wchar_t> withSeparator(const LightweightString<wchar_t>& text)
{
    const LightweightString<wchar_t> end = separator();
    return text.endsWith(end) ? text : text + end;
}

}  // namespace mediaFolders

bool isValidFsysMediaFolderPath(const LightweightString<wchar_t>& path)
{
    constexpr std::size_t identifierLength = 3;  // as in "1:/"
    if (path.size() <= identifierLength || path[1] != L':' ||
        path[2] != OS()->getFileManager()->getPathSeparator())
        return false;
    const std::wstring_view place = path.view().substr(identifierLength);
    return Qz::startsWithIgnoringCase(place, mediaFolders::nameOf(CookieTypeVision)) ||
           Qz::startsWithIgnoringCase(place, mediaFolders::nameOf(CookieTypeSound));
}
