#include "ClipStatus.h"

#include "Locations.h"
#include "fsys/MediaStatus.h"
#include "support/PathHelpers.h"

#include <algorithm>

namespace {

// A link is offline because its target is missing, other files because they have gone themselves.
Place placeOf(const TestedFile& file)
{
    const LightweightString<wchar_t> folder = getPath(file.isLink ? file.target : file.path);
    return {locationHolding(folder), utf8(folder)};
}

}  // namespace

std::vector<Place> placesToConnect(const MediaSummary& summary)
{
    std::vector<Place> places;
    for (const TestedChannel& channel : summary.channels) {
        if (!channel.high || channel.high->status != eStatusOffline)
            continue;
        const Place place = placeOf(*channel.high);
        if (std::find(places.begin(), places.end(), place) == places.end())
            places.push_back(place);
    }
    return places;
}

Json describeStatus(const MediaSummary& summary)
{
    Json locations = Json::array();
    for (const DriveId& location : summary.locations())
        locations.push_back({{"id", location.asString().str()}, {"name", nameOf(location)}});
    Json connect = Json::array();
    for (const Place& place : placesToConnect(summary))
        connect.push_back(
            {{"location", place.location ? Json(place.location->asString().str()) : Json(nullptr)},
             {"name", place.location ? nameOf(*place.location) : ""},
             {"folder", place.folder}});
    return {{"cookie", summary.channels.front().cookie.asString(true).str()},
            {"channels", summary.channels.size()},
            {"offline", summary.offline()},
            {"proxy_online", summary.info.someProxyOnline()},
            {"locations", locations},
            {"primary_location", summary.primaryLocation()},
            {"connect", connect}};
}

void ClipTotals::count(const MediaSummary& summary)
{
    const std::string offline = summary.offline();
    ++clips;
    ++(offline == "all" ? away : offline == "some" ? partly : whole);
    if (offline == "all" && summary.info.someProxyOnline())
        ++awayWithProxy;
}
