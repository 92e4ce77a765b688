// Lists the proxies of a clip, and tells which file to open for a picture of so many lines.
//   find_proxy PROJECT_SPACE COOKIE LINES

#include "Qz/Shutdown.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/FsysEntry.h"
#include "fsys/SystemCache.h"

#include <cstdio>
#include <cstdlib>
#include <list>

namespace {

void listProxies(const Cookie& clip)
{
    std::list<MediaFileInfo> proxies;
    SystemCache::getProxyFiles(clip, proxies);
    for (const MediaFileInfo& proxy : proxies) {
        // A clip without proxies may have its one file in this list as well, under a name that is none of a
        // proxy.
        if (!proxy.isProxy())
            continue;
        const std::string name = toUTF8(proxy.getLinkFileName()).str();
        if (proxy.getProxyHeight() == MediaFileInfo::noProxyHeight)
            std::printf("proxy %s\n", name.c_str());
        else
            std::printf("proxy %s, %u lines, %u audio channels\n", name.c_str(), proxy.getProxyHeight(),
                        proxy.getProxyAudioChannels());
    }
}

// The first proxy that is at least so tall; the full-resolution file where there is none.
bool tellFile(const Cookie& clip, unsigned lines)
{
    DecodeFormat wanted(eAuto);
    wanted.setHeight(lines);
    LightweightString<wchar_t> file;
    // An empty file means that the clip is known and there is nothing to open.
    if (!SystemCache::findFileForCookie(clip, file, wanted) || file.empty()) {
        std::fprintf(stderr, "no media of %s is reachable\n", clip.asString(true).c_str());
        return false;
    }
    std::printf("open %s\n", toUTF8(file).c_str());
    return true;
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    const unsigned long lines = argumentCount == 4 ? std::strtoul(arguments[3], nullptr, 10) : 0;
    if (lines == 0) {
        std::fprintf(stderr, "usage: find_proxy PROJECT_SPACE COOKIE LINES\n");
        return 2;
    }
    FsysInitialize();
    DiskManager::init(fromUTF8(arguments[1]), true);
    const Cookie clip(LightweightString<char>(arguments[2]), true);
    bool found = false;
    if (clip.valid()) {
        listProxies(clip);
        found = tellFile(clip, static_cast<unsigned>(lines));
    } else {
        std::fprintf(stderr, "%s is no cookie\n", arguments[2]);
    }
    Shutdown::run(Shutdown::eNormalExit);
    return found ? 0 : 1;
}
