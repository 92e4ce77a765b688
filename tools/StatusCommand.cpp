#include "ClipStatus.h"
#include "Command.h"
#include "Help.h"
#include "Locations.h"
#include "Session.h"

#include <algorithm>
#include <memory>

namespace {

struct StatusArguments
{
    bool offlineOnly = false;
    std::string location;
};

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

bool isWanted(const MediaSummary& summary, bool offlineOnly, const std::optional<DriveId>& location)
{
    const std::vector<DriveId> locations = summary.locations();
    return (!offlineOnly || std::string(summary.offline()) != "none") &&
           (!location || std::find(locations.begin(), locations.end(), *location) != locations.end());
}

int showStatus(const Options& options, const StatusArguments& given)
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
    ClipTotals totals;
    for (const Clip& clip : everyClip()) {
        const MediaSummary summary = summarise(clip);
        if (summary.locations().empty() || !isWanted(summary, given.offlineOnly, location))
            continue;
        totals.count(summary);
        if (options.json)
            answerJson(describeStatus(summary));
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
    const auto given = std::make_shared<StatusArguments>();
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
