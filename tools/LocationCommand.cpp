#include "Command.h"
#include "Help.h"
#include "LocationUpkeep.h"
#include "Locations.h"
#include "Session.h"
#include "fsys/DiskManager.h"
#include "os/OS.h"

#include <filesystem>
#include <memory>

namespace {

struct LocationArguments
{
    std::string place;
    std::string name;
};

Json describe(const MediaDrive& drive)
{
    VolumeInfo info;
    DiskManager::getVolInfo(drive.getId(), &info);
    return {{"id", drive.getId().asString().str()},
            {"name", utf8(drive.getUserName(true))},
            {"path", utf8(drive.getPath())},
            {"type", static_cast<unsigned>(drive.getType())},
            {"free_bytes", info.freeBytes},
            {"total_bytes", info.totalBytes},
            {"sector_size", drive.getSectorSize()},
            {"auto_discovered", drive.isAutoDiscovered()},
            {"slow", info.slow}};
}

int addLocation(const Options& options, const LocationArguments& given)
{
    const std::filesystem::path path = std::filesystem::absolute(given.place).lexically_normal();
    // Locations and names are kept as lines of text.
    if ((path.string() + given.name).find_first_of("\r\n") != std::string::npos) {
        complain("a media location and its name must not contain line breaks");
        return exitUsage;
    }
    // The registry takes it for a separator, so that it would name another folder.
    if (path.string().find('\\') != std::string::npos) {
        complain("the path of a media location must not contain a backslash: %s", path.c_str());
        return exitUsage;
    }
    const Session session(options);
    if (session.failed() || !session.canPersist())
        return exitFailed;
    if (!OS()->getFileManager()->directoryExists(wide(path.string()))) {
        complain("%s is not a folder", path.c_str());
        return exitFailed;
    }
    // The registry compares roots with their separator, so that a place is not registered twice.
    std::string root = path.string();
    if (root.back() != '/')
        root += '/';
    if (!DiskManager::addMediaLocation(wide(root))) {
        // The registry does not tell upper from lower case.
        complain(findLocation(root) ? "%s is a media location already"
                                    : "there is a media location that differs from %s only in case",
                 path.c_str());
        return exitNo;
    }
    const std::optional<DriveId> id = findLocation(root);
    if (!id || !DiskManager::prepareVolumeForMedia(*id)) {
        complain("%s cannot be written", path.c_str());
        DiskManager::removeMediaLocation(wide(root));
        return exitFailed;
    }
    const LightweightString<wchar_t> name =
        given.name.empty() ? DiskManager::getDriveWithUniqueId(*id).getUserName(true) : wide(given.name);
    DiskManager::renameMediaLocation(*id, name);
    const Json described = describe(DiskManager::getDriveWithUniqueId(*id));
    if (options.json)
        answerJson(described);
    else
        answer("%s  %s  %s\n", described["id"].get<std::string>().c_str(), utf8(name).c_str(), path.c_str());
    return exitDone;
}

int listLocations(const Options& options)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    complainAboutMissingLocations();
    Json locations = Json::array();
    for (const DriveId& id : allLocations())
        locations.push_back(describe(DiskManager::getDriveWithUniqueId(id)));
    if (options.json) {
        answerJson({{"locations", locations}});
        return exitDone;
    }
    answer("%-3s %-20s %-6s %10s %10s %7s %-5s %s\n", "id", "name", "type", "free", "total", "sector",
           "found", "path");
    for (const Json& location : locations)
        answer("%-3s %-20s %-6u %10s %10s %7u %-5s %s\n", location["id"].get<std::string>().c_str(),
               location["name"].get<std::string>().c_str(), location["type"].get<unsigned>(),
               readableBytes(location["free_bytes"].get<double>()).c_str(),
               readableBytes(location["total_bytes"].get<double>()).c_str(),
               location["sector_size"].get<unsigned>(),
               location["auto_discovered"].get<bool>() ? "auto" : "added",
               location["path"].get<std::string>().c_str());
    return exitDone;
}

int removeLocation(const Options& options, const LocationArguments& given)
{
    const Session session(options);
    if (session.failed() || !session.canPersist())
        return exitFailed;
    const std::optional<DriveId> id = findLocation(given.place);
    if (!id) {
        complain("%s is no media location that can be reached", given.place.c_str());
        return exitNo;
    }
    const LightweightString<wchar_t> root = DiskManager::getDriveWithUniqueId(*id).getRootLocation();
    if (!DiskManager::removeMediaLocation(root)) {
        complain("%s could not be removed", given.place.c_str());
        return exitFailed;
    }
    if (options.json)
        answerJson({{"removed", utf8(root)}});
    else
        answer("removed %s\n", utf8(root).c_str());
    return exitDone;
}

}  // namespace

static const std::string locationKeys =
    "id, name, path, type (0 unknown, 1 local, 2 removable, 3 network, 4 optical), free_bytes, total_bytes, "
    "sector_size (bytes), auto_discovered, slow (the volume was too slow for the engine's last transfers)";

void addLocationCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<LocationArguments>();
    CLI::App* const location = app.add_subcommand("location", "Media locations: the folders that hold media");
    location->require_subcommand(1);
    addGroupHelp(*location, "fsys location add /media/raid --name \"Raid A\"");

    CLI::App* const add =
        location->add_subcommand("add", "Registers and prepares a media location, for good");
    add->add_option("PATH", given->place, "folder")->type_name("DIR")->required();
    add->add_option("--name", given->name, "what people call it (default: the folder's name)");
    addHelp(*add,
            {.notes =
                 "It gets the folders Material and Sound. A drive that was removed after discovery had found "
                 "it comes back.",
             .keys = locationKeys,
             .no = "it is a media location already",
             .failed = "there is no such folder, or it cannot be written",
             .example = "fsys location add /media/raid --name \"Raid A\""});
    add->callback(
        [&options, &action, given] { action = [&options, given] { return addLocation(options, *given); }; });

    CLI::App* const list = location->add_subcommand("list", "Lists the media locations");
    addHelp(*list, {.notes = "Listed locations that cannot be reached now are named on standard error.",
                    .keys = "locations, an array; of each: " + locationKeys,
                    .example = "fsys --json location list"});
    list->callback([&options, &action] { action = [&options] { return listLocations(options); }; });

    CLI::App* const remove = location->add_subcommand("remove", "Forgets a media location; its media stays");
    remove->add_option("PATH|ID", given->place, "folder or id")->required();
    addHelp(*remove, {.notes = "A drive that discovery finds is kept away from now on.",
                      .keys = "removed (its root, with separator)",
                      .no = "no such location that can be reached",
                      .example = "fsys location remove 2"});
    remove->callback([&options, &action, given] {
        action = [&options, given] { return removeLocation(options, *given); };
    });

    addLocationUpkeep(*location, options, action);
}
