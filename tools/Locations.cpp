#include "Locations.h"

#include "Answer.h"
#include "Session.h"
#include "fsys/DiskManager.h"
#include "support/PathHelpers.h"
#include "support/TextFile.h"

std::string nameOf(const DriveId& location)
{
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(location);
    return drive ? utf8(drive->getUserName(false)) : "";
}

std::string rootOf(const DriveId& location)
{
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(location);
    return drive ? utf8(drive->getPath()) : "";
}

std::string withSeparator(std::string folder) { return folder.ends_with('/') ? folder : folder + '/'; }

std::string labelOf(const DriveId& location)
{
    return location.valid() ? location.asString().str() + " " + nameOf(location) : "-";
}

std::vector<DriveId> allLocations()
{
    std::vector<DriveId> locations;
    DriveId id;
    for (bool more = DiskManager::getFirstMaterialVolume(id); more;
         more = DiskManager::getNextMaterialVolume(id))
        locations.push_back(id);
    return locations;
}

std::vector<std::string> listedRoots(const std::string& space)
{
    std::vector<std::string> roots;
    const TextFile list(joinPaths(wide(space), getMediaLocationsFilename()), true);
    for (unsigned i = 0; i < list.getLineCount(); ++i)
        roots.push_back(withSeparator(list.getLine(i).str()));
    return roots;
}

std::optional<DriveId> locationHolding(const LightweightString<wchar_t>& path)
{
    std::optional<DriveId> holding;
    std::size_t longest = 0;
    for (const DriveId& id : allLocations()) {
        const LightweightString<wchar_t> root = DiskManager::getDriveWithUniqueId(id).getRootLocation();
        if (root.size() > longest && path.startsWith(root)) {
            holding = id;
            longest = root.size();
        }
    }
    return holding;
}

std::optional<DriveId> knownLocation(const std::string& idOrPath)
{
    const std::optional<DriveId> location = findLocation(idOrPath);
    if (!location)
        complain("%s is no media location that can be reached", idOrPath.c_str());
    return location;
}

void complainAboutMissingLocations()
{
    for (const auto& root : DiskManager::getMissingMediaLocations())
        complain("%s is listed, but cannot be reached or written now", utf8(root).c_str());
}
