#include "MediaList.h"

#include <set>

std::vector<ListedMedia> mediaOf(const Clip& clip)
{
    std::vector<ListedMedia> media;
    // A file may stand for both kinds, and a proxy that carries sound is filed under the sound cookies as
    // well.
    std::set<std::string> seen;
    const auto add = [&](const Cookie& cookie, const MediaFileInfo& file, bool isProxy) {
        if (!file.getMaterialFilename().getPath().empty() && seen.insert(utf8(file.getLinkFileName())).second)
            media.push_back({cookie, file, isProxy});
    };
    for (const ClipChannel& channel : clip) {
        add(channel.cookie, channel.entry->getHighResFile(), false);
        for (const MediaFileInfo& proxy : channel.entry->copyProxyFiles())
            add(channel.cookie, proxy, true);
    }
    return media;
}
