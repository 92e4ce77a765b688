#include "Command.h"
#include "Help.h"
#include "Interruption.h"
#include "Locations.h"
#include "MediaWatch.h"
#include "Session.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"

#include <memory>

namespace {

using Listener = Qz::Ptr<iCallbackBase<int, NotifyMsg>>;

Json describeLocations(const MediaWatch& watch)
{
    Json locations = Json::array();
    for (const DriveId& id : allLocations())
        locations.push_back({{"id", id.asString().str()},
                             {"name", nameOf(id)},
                             {"path", rootOf(id)},
                             {"online", watch.isOnline(id)}});
    return locations;
}

void tellOfFile(const std::string& message, const std::string& cookie, const MediaWatch& watch)
{
    const std::optional<DriveId> location = locationHolding(wide(watch.currentFile()));
    answerJson({{"message", message},
                {"cookie", cookie},
                {"file", watch.currentFile()},
                {"location", location ? Json(location->asString().str()) : Json(nullptr)}});
}

void tellOfLocations(const std::string& message, const MediaWatch& watch)
{
    answerJson({{"message", message}, {"locations", describeLocations(watch)}});
}

Listener listener(std::function<void(const NotifyMsg&)> hear)
{
    return new FunctionCallback<int, NotifyMsg>([hear = std::move(hear)](const NotifyMsg& message) {
        hear(message);
        return 0;
    });
}

// The handles that keep the listeners listed.
std::vector<Qz::Ptr<iObject>> listen(const MediaWatch& watch)
{
    std::vector<Qz::Ptr<iObject>> handles;
    for (const unsigned type : {SystemCache::fileAddedMsgType_, SystemCache::proxyAddedMsgType_,
                                SystemCache::fileRemovedMsgType_, SystemCache::proxyRemovedMsgType_}) {
        const std::string name = NotifyMsgTypeDictionary::instance().nameOf(type).str();
        handles.push_back(
            SystemCache::instance().addListener(listener([name, &watch](const NotifyMsg& message) {
                                                    tellOfFile(name, message.getText().str(), watch);
                                                }),
                                                static_cast<int>(type)));
    }
    handles.push_back(DiskManager::addListener(
        listener([&watch](const NotifyMsg& message) { tellOfLocations(message.getText().str(), watch); })));
    return handles;
}

int watchMedia(const Options& options)
{
    const Interruption interruption;
    const Session session(options);
    if (session.failed())
        return exitFailed;
    MediaWatch watch(projectSpaceOf(options));
    const std::vector<Qz::Ptr<iObject>> handles = listen(watch);
    tellOfLocations("watching", watch);
    while (!Interruption::isWanted() && answerArrived())
        watch.step();
    return exitDone;
}

}  // namespace

void addWatchCommand(CLI::App& app, const Options& options, Action& action)
{
    CLI::App* const command =
        app.add_subcommand("watch", "Prints what happens to clips and locations, until it is interrupted");
    addHelp(
        *command,
        {.notes =
             "One JSON object a line, written out at once, also without --json. It sees what any process of "
             "this machine does: media that is recorded, imported, replaced or removed in the folders "
             "Material and Sound of the locations, locations that are added, removed or renamed in the "
             "project space, and locations whose folder goes or comes back. A file is told of when it "
             "rests, a fifth of a second after its writer has closed it. Changes that other machines make on "
             "a network location are seen by looking every second. Media that is there when a location is "
             "added is not told of file by file.",
         .keys = "message: watching (once, at the start), SysCacheAdd, SysCacheDel (full-resolution file), "
                 "SysCacheAddProxy, SysCacheDelProxy, MediaLocationsChangeMsg, MediaOnlineChangeMsg\n"
                 "of the four about files: cookie, file (path), location (id, or null)\n"
                 "of the others: locations (id, name, path, online: its folder is there)",
         .done = "ended by SIGINT or SIGTERM",
         .example = "fsys watch"});
    command->callback([&options, &action] { action = [&options] { return watchMedia(options); }; });
}
