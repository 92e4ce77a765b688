#include "LocationUpkeep.h"

#include "Help.h"
#include "Locations.h"
#include "Session.h"
#include "fsys/DiskManager.h"
#include "os/OS.h"

#include <algorithm>
#include <memory>

namespace {

struct UpkeepArguments
{
    std::string place;
    std::string name;
};

int renameLocation(const Options& options, const UpkeepArguments& given)
{
    if (given.name.empty() || given.name.find_first_of("\r\n") != std::string::npos) {
        complain("the name of a location must not be empty, and must not contain line breaks");
        return exitUsage;
    }
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<DriveId> location = knownLocation(given.place);
    if (!location)
        return exitNo;
    const std::string before = nameOf(*location);
    const bool saved = DiskManager::renameMediaLocation(*location, wide(given.name)) != 0;
    // Writing the file reports nothing, so it is read again.
    if (!saved || utf8(DiskManager::getMediaLocationUserName(*location)) != given.name) {
        complain("the name could not be written to %s%s",
                 utf8(DiskManager::getInfoFileNameFor(*location)).c_str(),
                 DiskManager::isVolumePreparedForMedia(*location) ? "" : "; try fsys location prepare first");
        return exitFailed;
    }
    if (options.json)
        answerJson({{"id", location->asString().str()},
                    {"old_name", before},
                    {"name", nameOf(*location)},
                    {"path", rootOf(*location)}});
    else
        answer("%s  %s\n", labelOf(*location).c_str(), rootOf(*location).c_str());
    return exitDone;
}

Json missingFolders(const DriveId& location)
{
    Json missing = Json::array();
    const MediaDrive& drive = DiskManager::getDriveWithUniqueId(location);
    for (const CookieType type : {CookieTypeVision, CookieTypeSound})
        if (!OS()->getFileManager()->directoryExists(drive.getLocation(type)))
            missing.push_back(utf8(drive.getLocation(type)));
    return missing;
}

int prepareLocation(const Options& options, const UpkeepArguments& given)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<DriveId> location = knownLocation(given.place);
    if (!location)
        return exitNo;
    const Json made = missingFolders(*location);
    if (!DiskManager::prepareVolumeForMedia(*location)) {
        complain("the media folders of location %s cannot be made", labelOf(*location).c_str());
        return exitFailed;
    }
    if (options.json)
        answerJson({{"id", location->asString().str()}, {"path", rootOf(*location)}, {"made", made}});
    for (const Json& folder : options.json ? Json::array() : made)
        answer("made %s\n", folder.get<std::string>().c_str());
    if (!options.json && made.empty())
        answer("%s was prepared already\n", labelOf(*location).c_str());
    return exitDone;
}

int listUnmounted(const Options& options)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    Json drives = Json::array();
    for (const auto& root : DiskManager::getUnmountedDrives())
        drives.push_back(utf8(root));
    if (options.json)
        answerJson({{"unmounted", drives}});
    for (const Json& drive : options.json ? Json::array() : drives)
        answer("%s\n", drive.get<std::string>().c_str());
    return exitDone;
}

struct Unmounted
{
    DriveId id;
    std::string root;    // with separator, as init compares it
    bool found = false;  // by discovery
};

std::vector<Unmounted> registeredNow()
{
    std::vector<Unmounted> drives;
    for (const DriveId& id : allLocations()) {
        const MediaDrive& drive = DiskManager::getDriveWithUniqueId(id);
        drives.push_back({id, withSeparator(utf8(drive.getPath())), drive.isAutoDiscovered()});
    }
    return drives;
}

// The list that the start reads to drop drives that discovery finds. Locations that somebody added come from
// another list; here they would only make adding them again look like a discovery. What is listed already
// stays.
bool keepAway(const Options& options, const std::vector<Unmounted>& drives)
{
    Vector<DiskManager::Path> listed = DiskManager::getUnmountedDrives();
    const unsigned before = listed.size();
    for (const Unmounted& drive : drives)
        if (drive.found && listed.locate(wide(drive.root)) < 0)
            listed.add(wide(drive.root));
    if (listed.size() == before)
        return true;
    std::string lines;
    for (const auto& root : listed)
        lines += utf8(root) + "\n";
    return OS()->getFileManager()->replaceFile(wide(projectSpaceOf(options) + "/UnmountedDrives.txt"), lines);
}

int unmount(const Options& options)
{
    const Session session(options);
    if (session.failed() || !session.canPersist())
        return exitFailed;
    std::vector<Unmounted> drives = registeredNow();
    DiskManager::unmountDrives(nullptr);
    std::erase_if(drives, [](const Unmounted& drive) { return DiskManager::isVolumePresent(drive.id); });
    if (drives.empty()) {
        complain("no location has an id behind 'Z'; nothing was unmounted");
        return exitNo;
    }
    if (!keepAway(options, drives)) {
        complain("the list of unmounted drives could not be written");
        return exitFailed;
    }
    Json unmounted = Json::array();
    for (const Unmounted& drive : drives)
        unmounted.push_back(
            {{"id", drive.id.asString().str()}, {"path", drive.root}, {"returns", !drive.found}});
    if (options.json)
        answerJson({{"unmounted", unmounted}});
    for (const Json& drive : options.json ? Json::array() : unmounted)
        answer("unmounted %s  %s%s\n", drive["id"].get<std::string>().c_str(),
               drive["path"].get<std::string>().c_str(),
               drive["returns"].get<bool>()
                   ? "  (added by hand: back at the next start; remove it to be rid of it)"
                   : "");
    return exitDone;
}

void addRename(CLI::App& location, const Options& options, Action& action)
{
    const auto given = std::make_shared<UpkeepArguments>();
    CLI::App* const rename = location.add_subcommand("rename", "Gives a media location another name");
    rename->add_option("ID", given->place, "id or path")->required();
    rename->add_option("NAME", given->name, "what people call it")->required();
    addHelp(*rename, {.notes = "The name is kept in the location itself, in its folder Material.",
                      .keys = "id, old_name, name, path",
                      .no = "no such location",
                      .failed = "the name could not be written",
                      .example = "fsys location rename 1 \"Raid A\""});
    rename->callback([&options, &action, given] {
        action = [&options, given] { return renameLocation(options, *given); };
    });
}

void addPrepare(CLI::App& location, const Options& options, Action& action)
{
    const auto given = std::make_shared<UpkeepArguments>();
    CLI::App* const prepare =
        location.add_subcommand("prepare", "Makes the folders Material and Sound where they are missing");
    prepare->add_option("ID", given->place, "id or path")->required();
    addHelp(*prepare, {.keys = "id, path, made (the folders that were missing)",
                       .done = "both folders are there",
                       .no = "no such location",
                       .failed = "a folder cannot be made",
                       .example = "fsys location prepare 1"});
    prepare->callback([&options, &action, given] {
        action = [&options, given] { return prepareLocation(options, *given); };
    });
}

}  // namespace

void addLocationUpkeep(CLI::App& location, const Options& options, Action& action)
{
    addRename(location, options, action);
    addPrepare(location, options, action);

    CLI::App* const unmounted =
        location.add_subcommand("unmounted", "Lists drives that discovery finds and the user has removed");
    addHelp(*unmounted, {.notes = "fsys location add brings one back.",
                         .keys = "unmounted (roots, with separator)",
                         .example = "fsys location unmounted"});
    unmounted->callback([&options, &action] { action = [&options] { return listUnmounted(options); }; });

    CLI::App* const unmountCommand =
        location.add_subcommand("unmount", "Takes out every location whose id is behind 'Z'");
    addHelp(
        *unmountCommand,
        {.notes =
             "Ids run from '1' through ':' and 'A' to 'Z' and on, so these are the 43rd location and later "
             "ones; ids that are no ASCII stay. Drives that were found by discovery stay away: they are "
             "added to the list of unmounted drives in the project space. Locations that somebody added "
             "come back at the next start; fsys location remove is for good.",
         .keys = "unmounted (id, path with separator, returns: at the next start)",
         .no = "there is none",
         .failed = "the list could not be written",
         .example = "fsys location unmount"});
    unmountCommand->callback([&options, &action] { action = [&options] { return unmount(options); }; });
}
