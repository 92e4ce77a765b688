#include "MediaWatch.h"

#include "Answer.h"
#include "Locations.h"
#include "MountList.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"
#include "os/LastError.h"
#include "os/OS.h"

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto stepLength = std::chrono::milliseconds(200);
constexpr unsigned stepsPerSecond = 5;
constexpr char descriptionFile[] = "MediaSpaceInfo.txt";

bool isFolder(const std::string& path) { return OS()->getFileManager()->directoryExists(wide(path)); }

std::vector<std::string> unmountedRoots()
{
    std::vector<std::string> roots;
    for (const auto& root : DiskManager::getUnmountedDrives())
        roots.push_back(utf8(root));
    return roots;
}

bool contains(const std::vector<std::string>& roots, const std::string& root)
{
    return std::find(roots.begin(), roots.end(), root) != roots.end();
}

bool registerRoot(const std::string& root, bool found)
{
    return !DiskManager::getVolume(wide(root)) && DiskManager::writableVolume(wide(root)) &&
           DiskManager::addDriveForMediaLocation(wide(root), found);
}

// Asked of the table of mounts and of the text of links: a server might not answer.
bool isOnServer(const std::vector<Mount>& mounts, const DriveId& location)
{
    const LightweightString<wchar_t> root = OS()->getFileManager()->resolvePath(wide(rootOf(location) + "/"));
    const Mount* const mount = mountHolding(mounts, utf8(root));
    return mount && isServed(*mount);
}

// The description file holds the name that users gave the location.
void followName(const DriveId& location)
{
    const DiskManager::Name name = DiskManager::getMediaLocationUserName(location);
    if (name.empty() || utf8(name) == nameOf(location))
        return;
    DiskManager::setMediaLocationUserName(location, name);
    DiskManager::informInterestedParties();
}

}  // namespace

// A disk that has gone leaves the folder that it was mounted on, and the platform lets nobody write there.
// What cannot be written and has media folders is a disk that is read-only now.
Reach reachOf(const std::string& root)
{
    setLastError(0);
    if (isFolder(root) && (DiskManager::writableVolume(wide(root)) ||
                           isFolder(root + utf8(MediaDrive::getFolder(CookieTypeVision)))))
        return Reach::online;
    return errnoFromError(lastError()) == ETIMEDOUT ? Reach::notResponding : Reach::offline;
}

MediaWatch::MediaWatch(std::string space) : space_(std::move(space)), unmounted_(unmountedRoots())
{
    watch_.add(space_);
    followRegistry();
    followFolders();
}

void MediaWatch::step()
{
    const auto end = Clock::now() + stepLength;
    for (auto now = Clock::now(); now < end; now = Clock::now()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now);
        const std::vector<FolderWatch::Change> changes = watch_.wait(static_cast<int>(left.count()));
        if (changes.empty())
            break;
        for (const FolderWatch::Change& change : changes)
            take(change);
    }
    if (++steps_ % stepsPerSecond == 0) {
        followLists();
        followFolders();
    }
    for (auto& [id, location] : locations_)
        for (const auto& folder : location.folders)
            folder->look(currentFile_);
}

Reach MediaWatch::reach(const DriveId& location) const
{
    const auto found = locations_.find(location);
    return found == locations_.end() ? Reach::online : found->second.reach;
}

std::vector<std::string> MediaWatch::missingRoots() const
{
    std::vector<std::string> roots = listedRoots(space_);
    std::erase_if(roots, [](const std::string& root) { return bool(DiskManager::getVolume(wide(root))); });
    return roots;
}

void MediaWatch::take(const FolderWatch::Change& change)
{
    if (change.folder == space_) {
        followLists();
        return;
    }
    for (auto& [id, location] : locations_)
        for (const auto& folder : location.folders) {
            if (folder->path() != change.folder)
                continue;
            if (change.name.empty())
                folder->noteDifferences();
            else if (change.name == descriptionFile)
                followName(id);
            else
                folder->noteChange(change.name);
        }
}

void MediaWatch::followLists()
{
    const bool left = unregisterUnlisted();
    const bool came = registerListed();
    if (!left && !came)
        return;
    followRegistry();
    followFolders();
    DiskManager::informInterestedParties();
}

bool MediaWatch::registerListed()
{
    bool any = false;
    for (const std::string& root : listedRoots(space_))
        any = registerRoot(root, false) || any;
    const std::vector<std::string> unmounted = unmountedRoots();
    for (const std::string& root : unmounted_)
        if (!contains(unmounted, root))
            any = registerRoot(root, true) || any;
    unmounted_ = unmounted;
    return any;
}

bool MediaWatch::unregisterUnlisted()
{
    const std::vector<std::string> listed = listedRoots(space_);
    const std::vector<std::string> unmounted = unmountedRoots();
    bool any = false;
    for (const DriveId& id : allLocations()) {
        const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(id);
        const std::string root = utf8(drive->getRootLocation());
        if (drive->isAutoDiscovered() ? !contains(unmounted, root) : contains(listed, root))
            continue;
        SystemCache::removeMediaLocation(id);
        DiskManager::deleteMaterialVolume(id);
        any = true;
    }
    return any;
}

void MediaWatch::followRegistry()
{
    for (auto location = locations_.begin(); location != locations_.end();) {
        if (DiskManager::isVolumePresent(location->first)) {
            ++location;
            continue;
        }
        for (const auto& folder : location->second.folders)
            watch_.remove(folder->path());
        location = locations_.erase(location);
    }
    const std::vector<Mount> mounts = mountList();
    for (const DriveId& id : allLocations()) {
        if (locations_.contains(id))
            continue;
        Location& location = locations_[id];
        location.onServer = isOnServer(mounts, id);
        for (const CookieType type : {CookieTypeVision, CookieTypeSound})
            location.folders.push_back(
                std::make_unique<MediaFolder>(id, utf8(MediaDrive::getFolder(type)), location.onServer));
        for (const auto& folder : location.folders)
            location.watched.push_back(!location.onServer && watch_.add(folder->path()));
        // What happened between the listing and the watch.
        for (const auto& folder : location.folders)
            folder->noteDifferences();
    }
}

void MediaWatch::followFolders()
{
    bool anyChange = false;
    const std::vector<Mount> mounts = mountList();
    for (auto& [id, location] : locations_) {
        const Reach reach = reachOf(rootOf(id) + "/");
        anyChange = anyChange || reach != location.reach;
        location.reach = reach;
        if (reach == Reach::online)
            followServer(id, location, mounts);
        if (reach != Reach::notResponding)
            for (std::size_t i = 0; i < location.folders.size(); ++i)
                followFolder(location, i);
        if (reach == Reach::online)
            followName(id);
    }
    if (anyChange)
        DiskManager::issueMediaOnlineChangeNotification();
}

// A server may have been mounted in the place of a disk. Asked while the place answers: links to one that
// does not lead nowhere.
void MediaWatch::followServer(const DriveId& id, Location& location, const std::vector<Mount>& mounts)
{
    location.onServer = isOnServer(mounts, id);
    for (const auto& folder : location.folders)
        folder->setOnServer(location.onServer);
}

void MediaWatch::followFolder(Location& location, std::size_t index)
{
    MediaFolder& folder = *location.folders[index];
    const bool watchedBefore = location.watched[index];
    // The kernel would ask the server what it is to watch, and wait for it.
    location.watched[index] = !location.onServer && watch_.add(folder.path());
    // Media in a folder that cannot be reached is not removed.
    if (folder.exists() && (location.onServer || !watchedBefore || !location.watched[index]))
        folder.noteDifferences();
}
