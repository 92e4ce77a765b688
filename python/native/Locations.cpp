#include "Locations.h"

#include "Engine.h"
#include "Gil.h"
#include "Qz/Utf8.h"
#include "Raised.h"
#include "Texts.h"
#include "fsys/DiskManager.h"
#include "media/Recovery.h"
#include "os/OS.h"

#include <algorithm>

namespace py = pybind11;

namespace {

using Path = LightweightString<wchar_t>;

struct Location
{
    DriveId id;
    Path name;
    Path path;
    iDiskDrive::eType type = iDiskDrive::eUnknown;
    VolumeInfo volume;
    unsigned sectorBytes = 0;
    bool found = false;
    bool online = false;
};

// REQUIRES: the location is registered.
Location describedLocation(DriveId id)
{
    Location location;
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(id);
    if (!drive)
        throw Raised("unknownLocation", "no such location is registered");
    location.id = id;
    location.name = drive->getUserName(false);
    location.path = drive->getPath();
    location.type = drive->getType();
    DiskManager::getVolInfo(id, &location.volume);
    location.sectorBytes = drive->getSectorSize();
    location.found = drive->isAutoDiscovered();
    location.online = locations::isOnline(id);
    return location;
}

const char* nameOfType(iDiskDrive::eType type)
{
    switch (type) {
    case iDiskDrive::eLocal:
        return "local";
    case iDiskDrive::eRemovable:
        return "removable";
    case iDiskDrive::eNetwork:
        return "network";
    case iDiskDrive::eOptical:
        return "optical";
    case iDiskDrive::eUnknown:
        break;
    }
    return "unknown";
}

py::dict describe(const Location& location)
{
    py::dict told;
    told["id"] = texts::toPython(location.id);
    told["name"] = texts::toPython(location.name);
    told["path"] = texts::toPython(location.path);
    told["type"] = nameOfType(location.type);
    told["free_bytes"] = location.volume.freeBytes;
    told["total_bytes"] = location.volume.totalBytes;
    told["sector_bytes"] = location.sectorBytes;
    told["auto_discovered"] = location.found;
    told["slow"] = location.volume.slow;
    told["online"] = location.online;
    return told;
}

py::list listLocations()
{
    const std::vector<Location> listed = gil::without([&] {
        const engine::Use use;
        // Beside nobody who takes one out.
        const std::unique_lock alone = engine::changing();
        std::vector<Location> described;
        for (const DriveId& id : locations::all())
            described.push_back(describedLocation(id));
        return described;
    });
    py::list told;
    for (const Location& location : listed)
        told.append(describe(location));
    return told;
}

py::list missingLocations()
{
    const std::vector<Path> missing = gil::without([&] {
        const engine::Use use;
        const std::unique_lock alone = engine::changing();
        std::vector<Path> roots;
        for (const Path& root : DiskManager::getMissingMediaLocations())
            roots.push_back(root);
        return roots;
    });
    py::list told;
    for (const Path& root : missing)
        told.append(texts::toPython(root));
    return told;
}

void giveName(DriveId id, const Path& name)
{
    const bool saved = DiskManager::renameMediaLocation(id, name) != 0;
    // Writing the description file reports nothing, so it is read again.
    if (!saved || DiskManager::getMediaLocationUserName(id) != name)
        throw Raised(MediaError{MediaErrorCode::writeFailed, 0,
                                toUTF8(DiskManager::getInfoFileNameFor(id)).str() +
                                    ": the name could not be written"});
}

// What somebody else registered meanwhile is told by its case alone.
DriveId addRoot(const Path& root)
{
    if (!OS()->getFileManager()->directoryExists(root))
        throw Raised(MediaError{MediaErrorCode::notFound, 0, toUTF8(root).str() + " is no folder"});
    if (!DiskManager::addMediaLocation(root))
        throw Raised(
            MediaError{MediaErrorCode::alreadyExists, 0,
                       toUTF8(root).str() + " is a location already, or differs from one only in case"});
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(root);
    if (drive && drive->prepareForMedia())
        return drive->getId();
    DiskManager::removeMediaLocation(root);
    throw Raised(MediaError{MediaErrorCode::writeFailed, 0, toUTF8(root).str() + " cannot be written"});
}

py::dict addLocation(const py::str& path, const py::str& name)
{
    const Path root = locations::withSeparator(texts::toWide(path));
    const Path given = texts::toWide(name);
    return describe(gil::without([&] {
        const engine::Use use;
        const std::unique_lock alone = engine::changing();
        const DriveId id = addRoot(root);
        giveName(id, given.empty() ? DiskManager::getVolume(id)->getUserName(false) : given);
        return describedLocation(id);
    }));
}

void removeLocation(const py::str& id)
{
    const DriveId location = texts::toLocation(id);
    gil::without([&] {
        const engine::Use use;
        const std::unique_lock alone = engine::changing();
        const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(location);
        if (!drive || !DiskManager::removeMediaLocation(drive->getRootLocation()))
            throw Raised("unknownLocation", "no such location is registered");
    });
}

py::dict renameLocation(const py::str& id, const py::str& name)
{
    const DriveId location = texts::toLocation(id);
    const Path given = texts::toWide(name);
    return describe(gil::without([&] {
        const engine::Use use;
        const std::unique_lock alone = engine::changing();
        describedLocation(location);
        giveName(location, given);
        return describedLocation(location);
    }));
}

py::object bestLocation(std::uint64_t bytes)
{
    return texts::toPython(gil::without([&] {
        const engine::Use use;
        const std::unique_lock alone = engine::changing();
        DiskManager::updateDrives();
        return DiskManager::findBestDrive(static_cast<double>(bytes) / (1 << 20), DiskManager::MostSpace);
    }));
}

py::dict describe(const UnfinishedRecording& recording)
{
    py::dict told;
    told["location"] = texts::toPython(recording.location);
    told["path"] = texts::toPython(recording.path);
    told["final_path"] = texts::toPython(recording.finalPath);
    const bool isClip = recording.cookie.valid();
    told["cookie"] =
        isClip ? py::object(texts::fromUtf8(recording.cookie.asString(true).view())) : py::none();
    told["bytes"] = recording.bytes;
    told["good_bytes"] = recording.goodBytes;
    told["modified"] = static_cast<double>(recording.modifiedNs) / 1e9;
    told["in_use"] = recording.inUse;
    return told;
}

py::list unfinished(const py::str& location)
{
    const DriveId place = texts::toLocation(location);
    const std::vector<UnfinishedRecording> found = gil::without([&] {
        const engine::Use use;
        return findUnfinished(place);
    });
    py::list told;
    for (const UnfinishedRecording& recording : found)
        told.append(describe(recording));
    return told;
}

using Treatment = MediaError (*)(const UnfinishedRecording&);

// Looks it up again, so that what happened since it was listed counts.
void treat(const py::str& location, const py::str& path, Treatment treatment)
{
    const DriveId place = texts::toLocation(location);
    const Path wanted = texts::toWide(path);
    gil::without([&] {
        const engine::Use use;
        for (const UnfinishedRecording& recording : findUnfinished(place)) {
            if (recording.path != wanted)
                continue;
            if (const MediaError error = treatment(recording))
                throw Raised(error);
            return;
        }
        throw Raised(
            MediaError{MediaErrorCode::notFound, 0, toUTF8(wanted).str() + " is no unfinished recording"});
    });
}

void finishOne(const py::str& location, const py::str& path) { treat(location, path, &finishUnfinished); }
void removeOne(const py::str& location, const py::str& path) { treat(location, path, &removeUnfinished); }

}  // namespace

namespace locations {

std::vector<DriveId> all()
{
    std::vector<DriveId> ids;
    DriveId id;
    for (bool more = DiskManager::getFirstMaterialVolume(id); more;
         more = DiskManager::getNextMaterialVolume(id))
        ids.push_back(id);
    return ids;
}

bool isOnline(DriveId location)
{
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(location);
    if (!drive || !OS()->getFileManager()->directoryExists(drive->getRootLocation()))
        return false;
    // A disk that has gone leaves the folder that it was mounted on, and nobody may write there. What cannot
    // be written and has media folders is a disk that is read-only now.
    return DiskManager::writableVolume(drive->getRootLocation()) ||
           OS()->getFileManager()->directoryExists(drive->getLocation(CookieTypeVision));
}

Path withSeparator(const Path& root) { return root.endsWith(L"/") ? root : root + L"/"; }

void addTo(py::module_& module)
{
    module.def("locations", &listLocations);
    module.def("missing_locations", &missingLocations);
    module.def("add_location", &addLocation, py::arg("path"), py::arg("name"));
    module.def("remove_location", &removeLocation, py::arg("location"));
    module.def("rename_location", &renameLocation, py::arg("location"), py::arg("name"));
    module.def("best_location", &bestLocation, py::arg("bytes"));
    module.def("unfinished", &unfinished, py::arg("location"));
    module.def("finish_unfinished", &finishOne, py::arg("location"), py::arg("path"));
    module.def("remove_unfinished", &removeOne, py::arg("location"), py::arg("path"));
}

}  // namespace locations
