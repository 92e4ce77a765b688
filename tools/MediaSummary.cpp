#include "MediaSummary.h"

#include <algorithm>

namespace {

void note(const TestedChannel& channel, MediaLocationInfo& info)
{
    if (channel.high) {
        info.mediaStatuses_.add(channel.high->status);
        info.primaryLocations_.add(channel.high->record.getMaterialFilename());
        if (channel.high->isLink)
            info.linkedLocations_.add(channel.high->target);
    }
    for (const TestedFile& proxy : channel.proxies) {
        info.proxyStatuses_.add(proxy.status);
        if (proxy.isLink)
            info.linkedLocations_.add(proxy.target);
    }
}

}  // namespace

MediaSummary summarise(const Clip& clip)
{
    MediaSummary summary;
    for (const ClipChannel& channel : clip) {
        summary.channels.push_back({channel.cookie, highResFileOf(channel), proxyFilesOf(channel)});
        note(summary.channels.back(), summary.info);
    }
    return summary;
}

const char* MediaSummary::offline() const
{
    return info.allMediaOffline() ? "all" : info.someMediaOffline() ? "some" : "none";
}

std::string MediaSummary::primaryLocation() const { return utf8(info.getPrimaryLocationDisplayString()); }

std::string MediaSummary::linkedLocation() const
{
    return info.linkedLocations_.empty() ? "" : utf8(info.getLinkedLocationDisplayString());
}

std::vector<DriveId> MediaSummary::locations() const
{
    std::vector<DriveId> all;
    const auto add = [&](const TestedFile& file) {
        if (std::find(all.begin(), all.end(), file.location()) == all.end())
            all.push_back(file.location());
    };
    for (const TestedChannel& channel : channels) {
        if (channel.high)
            add(*channel.high);
        std::for_each(channel.proxies.begin(), channel.proxies.end(), add);
    }
    return all;
}
