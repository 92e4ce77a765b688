#include "Command.h"
#include "Help.h"
#include "Locations.h"
#include "MediaSummary.h"
#include "Session.h"
#include "fsys/MediaStatus.h"
#include "support/PathHelpers.h"

#include <algorithm>
#include <memory>

namespace {

struct Arguments
{
    bool offlineOnly = false;
    std::string location;
};

struct Totals
{
    std::size_t clips = 0;
    std::size_t whole = 0;  // nothing offline
    std::size_t partly = 0;
    std::size_t away = 0;  // all offline
    std::size_t awayWithProxy = 0;
};

// What somebody has to make reachable for one file.
struct Place
{
    std::optional<DriveId> location;  // that holds the folder; none when no registered one does
    std::string folder;

    friend bool operator==(const Place&, const Place&) = default;
};

// A link is offline because its target is missing, other files because they have gone themselves.
Place placeOf(const TestedFile& file)
{
    const LightweightString<wchar_t> folder = getPath(file.isLink ? file.target : file.path);
    return {locationHolding(folder), utf8(folder)};
}

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

Json describe(const MediaSummary& summary)
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

void answerLine(const MediaSummary& summary)
{
    std::string locations;
    for (const DriveId& location : summary.locations())
        locations += (locations.empty() ? "" : ", ") + labelOf(location);
    std::string connect;
    for (const Place& place : placesToConnect(summary))
        connect += (connect.empty() ? "" : ", ") + (place.location ? labelOf(*place.location) + " " : "") +
                   place.folder;
    answer("%-19s %8zu  %-7s %-6s %-20s %s\n", summary.channels.front().cookie.asString(true).c_str(),
           summary.channels.size(), summary.offline(), summary.info.someProxyOnline() ? "online" : "-",
           locations.c_str(), connect.c_str());
}

void count(const MediaSummary& summary, Totals& totals)
{
    const std::string offline = summary.offline();
    ++totals.clips;
    ++(offline == "all" ? totals.away : offline == "some" ? totals.partly : totals.whole);
    if (offline == "all" && summary.info.someProxyOnline())
        ++totals.awayWithProxy;
}

bool isWanted(const MediaSummary& summary, bool offlineOnly, const std::optional<DriveId>& location)
{
    const std::vector<DriveId> locations = summary.locations();
    return (!offlineOnly || std::string(summary.offline()) != "none") &&
           (!location || std::find(locations.begin(), locations.end(), *location) != locations.end());
}

int showStatus(const Options& options, const Arguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    std::optional<DriveId> location;
    if (!given.location.empty() && !(location = knownLocation(given.location)))
        return exitNo;
    complainAboutMissingLocations();
    if (!options.json)
        answer("%-19s %8s  %-7s %-6s %-20s %s\n", "clip", "channels", "offline", "proxy", "locations",
               "connect");
    Totals totals;
    for (const Clip& clip : everyClip()) {
        const MediaSummary summary = summarise(clip);
        if (summary.locations().empty() || !isWanted(summary, given.offlineOnly, location))
            continue;
        count(summary, totals);
        if (options.json)
            answerJson(describe(summary));
        else
            answerLine(summary);
    }
    if (!options.json)
        answer("%zu clips: %zu whole, %zu in part offline, %zu offline (%zu of them with a proxy)\n",
               totals.clips, totals.whole, totals.partly, totals.away, totals.awayWithProxy);
    return exitDone;
}

}  // namespace

void addStatusCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<Arguments>();
    CLI::App* const command =
        app.add_subcommand("status", "Which clips can be reached, where they are, and what to connect");
    command->add_flag("--offline", given->offlineOnly, "only clips that are offline, wholly or in part");
    command->add_option("--location", given->location, "only clips with a file there: id or path")
        ->type_name("LOCATION");
    addHelp(*command,
            {.notes = "One line per clip: its channels count as one. A clip that only has proxies counts as "
                      "offline. Clips of locations that cannot be reached now are not known; which these are "
                      "stands on standard error.",
             .keys = "cookie (of the first channel), channels (how many), offline (all, some, none: of the "
                     "full-resolution files), proxy_online, locations (id, name; of proxies too), "
                     "primary_location (name), connect (what would bring back what is offline: location (id, "
                     "null for a folder outside of all), name, folder; for a link the folder of its target); "
                     "one object per clip",
             .done = "the question is answered, also when clips are offline",
             .no = "no such location",
             .example = "fsys status --offline"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return showStatus(options, *given); }; });
}
