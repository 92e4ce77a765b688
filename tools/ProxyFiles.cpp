#include "ProxyFiles.h"

#include "Qz/StringHelpers.h"
#include "fsys/SystemCache.h"
#include "support/PathHelpers.h"

#include <filesystem>

std::optional<TestedFile> findProxy(const Cookie& cookie, const std::string& text)
{
    const std::string path = std::filesystem::absolute(text).lexically_normal().string();
    for (const TestedFile& proxy : proxyFilesOf({cookie, SystemCache::findEntryForCookie(cookie)}))
        if (utf8(stripPath(proxy.path)) == text || utf8(proxy.path) == path)
            return proxy;
    complain("%s is no proxy of %s", text.c_str(), cookie.asString(true).c_str());
    return std::nullopt;
}

Cookie cookieOfName(const LightweightString<wchar_t>& fileName)
{
    const LightweightString<wchar_t> stem = fileName.substr(0, fileName.find(L'.'));
    const Cookie cookie(stem, true);
    return Qz::equalsIgnoringCase(cookie.asWString(), stem) ? cookie : Cookie();
}

std::string whyNoProxyName(const Cookie& cookie, const std::string& name)
{
    const LightweightString<wchar_t> fileName = wide(name);
    const std::string stem = cookie.asString(true).str();
    if (name.find_first_of("/\\\n\r") != std::string::npos)
        return "it must be a name without folder";
    if (!(cookieOfName(fileName) == cookie))
        return "it must begin with the clip's cookie and a dot: " + stem + ".";
    if (!SystemCache::isEligible(fileName))
        return "it ends like a companion of media, which scans pass over";
    if (MediaFileInfo::getProxyHeight(fileName) == MediaFileInfo::noProxyHeight)
        return "it must carry a height, as in " + stem + ".A2.proxy.540.mov";
    return "";
}
