// DiskManager: how places get into the registry.

#include "Qz/Assert.h"
#include "fsys/DiskManager.h"
#include "fsys/MediaFolders.h"
#include "fsys/SystemCache.h"
#include "fsys/VolumeList.h"
#include "os/Codes.h"
#include "os/OS.h"
#include "support/PathHelpers.h"

#include <optional>

namespace {

constexpr unsigned char noDrive = '0';
// The id that was given out last.
unsigned char lastId = noDrive;

// The next id; none when the counter has come round: ids are never given out twice.
std::optional<DriveId> takeNextId()
{
    const auto next = static_cast<unsigned char>(lastId + 1);
    if (next == noDrive)
        return {};
    lastId = next;
    return DriveId(static_cast<char>(next));
}

bool holdsMedia(const iDiskDrive& disk)
{
    if (disk.getType() != iDiskDrive::eLocal || disk.isSystemDisk() || !disk.isMounted())
        return false;
    // The root of a disk ends with the separator already.
    const auto folder =
        mediaFolders::withSeparator(disk.getRootPath() + mediaFolders::nameOf(CookieTypeVision));
    return OS()->getFileManager()->directoryExists(folder) && DiskManager::writableVolume(folder);
}

iDiskDrive::eType typeOfVolumeAt(const DiskManager::Path& path)
{
    const Qz::Ptr<iDiskDrive> volume =
        OS()->getFileManager()->getDriveForPath(mediaFolders::withSeparator(path));
    return volume ? volume->getType() : iDiskDrive::eLocal;
}

// What a place is called that has no description file: its last component.
DiskManager::Name nameFromPath(const DiskManager::Path& path)
{
    const bool closed = path.endsWith(mediaFolders::separator());
    return stripPath(closed ? path.substr(0, path.size() - 1) : path);
}

}  // namespace

void DiskManager::reInit(bool noDiscovery)
{
    lastId = noDrive;
    deInit();
    if (!noDiscovery)
        discoverVolumes();
}

bool DiskManager::discoverVolumes()
{
    const auto disks = OS()->getFileManager()->listDisks(os::listMountedVolumes);
    for (const auto& disk : disks)
        if (holdsMedia(*disk))
            discoverDisk(*disk);
    return !disks.empty();
}

void DiskManager::discoverDisk(const iDiskDrive& disk)
{
    const Path root = disk.getRootPath();
    if (getVolume(root)) {
        Qz::assertionFailed("false", "ole/fsys/DiskManager line 1098");
        return;
    }
    const Qz::Ptr<MediaDrive> drive = registerDrive(root, iDiskDrive::eLocal);
    if (!drive)
        return;
    drive->setAutoDiscovered(true);
    const Name name = getMediaLocationUserName(drive->getId());
    if (!name.empty())
        setMediaLocationUserName(drive->getId(), name);
    drive->update();
    SystemCache::addMediaLocation(drive->getId());
}

Qz::Ptr<MediaDrive> DiskManager::registerDrive(const Path& path, iDiskDrive::eType type)
{
    const std::optional<DriveId> id = takeNextId();
    if (!id)
        return {};
    const Qz::Ptr<MediaDrive> drive = new MediaDrive(*id, path, type);
    volumes_.append(drive);
    return drive;
}

bool DiskManager::addMaterialVolume(const Path& path, DriveId& id, bool autoDiscovered)
{
    if (!writableVolume(path))
        return false;
    const iDiskDrive::eType type = typeOfVolumeAt(path);
    Qz::Ptr<MediaDrive> drive = getVolume(path);
    if (drive)
        Qz::assertionFailed("false", "ole/fsys/DiskManager line 904");
    else
        drive = registerDrive(path, type);
    if (!drive)
        return false;
    id = drive->getId();
    drive->setAutoDiscovered(autoDiscovered);
    drive->update();
    return true;
}

bool DiskManager::addDriveForMediaLocation(const Path& path, bool autoDiscovered)
{
    if (path.empty())
        return false;
    DriveId id;
    const bool added = addMaterialVolume(path, id, autoDiscovered);
    if (added) {
        const Name stored = getMediaLocationUserName(id);
        setMediaLocationUserName(id, stored.empty() ? nameFromPath(path) : stored);
    }
    // Told in every case: the cache passes over the id that is no drive.
    SystemCache::addMediaLocation(id);
    return added;
}
