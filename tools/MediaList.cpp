#include "MediaList.h"

#include <set>

std::vector<ListedMedia> mediaOf(const Clip& clip)
{
    std::vector<ListedMedia> media;
    // A file may stand for both kinds, and a proxy that carries sound is filed under the sound cookies as
    // well.
    std::set<std::string> seen;
    const auto add = [&](const Cookie& cookie, const TestedFile& file) {
        if (seen.insert(utf8(file.path)).second)
            media.push_back({cookie, file.record, file.record.isProxy()});
    };
    for (const ClipChannel& channel : clip) {
        if (const std::optional<TestedFile> high = highResFileOf(channel)) {
            add(channel.cookie, *high);
            for (const TestedFile& copy : copiesOf(*high))
                add(channel.cookie, copy);
        }
        for (const TestedFile& proxy : proxyFilesOf(channel))
            add(channel.cookie, proxy);
    }
    return media;
}
