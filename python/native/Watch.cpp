#include "Watch.h"

#include "Engine.h"
#include "Gil.h"
#include "Locations.h"
#include "Qz/Utf8.h"
#include "Texts.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"
#include "support/PathHelpers.h"
#include "support/TextFile.h"

#include <algorithm>
#include <optional>

namespace py = pybind11;

namespace {

using Path = LightweightString<wchar_t>;
using Roots = std::vector<Path>;

// Roots that somebody has added, each with a separator at its end.
Roots listedRoots()
{
    Roots roots;
    const TextFile list(joinPaths(engine::space(), getMediaLocationsFilename()), true);
    for (unsigned i = 0; i < list.getLineCount(); ++i)
        roots.push_back(locations::withSeparator(fromUTF8(list.getLine(i))));
    return roots;
}

Roots unmountedRoots()
{
    Roots roots;
    for (const Path& root : DiskManager::getUnmountedDrives())
        roots.push_back(root);
    return roots;
}

bool contains(const Roots& roots, const Path& root)
{
    return std::find(roots.begin(), roots.end(), root) != roots.end();
}

void registerRoot(const Path& root, bool found)
{
    if (!DiskManager::getVolume(root) && DiskManager::writableVolume(root))
        DiskManager::addDriveForMediaLocation(root, found);
}

void unregisterUnlisted(const Roots& listed, const Roots& unmounted)
{
    for (const DriveId& id : locations::all()) {
        const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(id);
        const Path& root = drive->getRootLocation();
        if (drive->isAutoDiscovered() ? !contains(unmounted, root) : contains(listed, root))
            continue;
        SystemCache::removeMediaLocation(id);
        DiskManager::deleteMaterialVolume(id);
    }
}

// The description file holds the name that users gave the location.
void followName(DriveId id)
{
    const Path stored = DiskManager::getMediaLocationUserName(id);
    if (!stored.empty() && stored != DiskManager::getVolume(id)->getUserName(false))
        DiskManager::setMediaLocationUserName(id, stored);
}

py::object describe(const WatchEvent& event)
{
    py::dict told;
    const bool isFile = event.cookie.valid();
    told["kind"] = event.kind;
    told["cookie"] = isFile ? py::object(texts::fromUtf8(event.cookie.asString(true).view())) : py::none();
    told["path"] = texts::toPython(event.path);
    told["location"] = texts::toPython(event.location);
    told["name"] = isFile ? py::object(py::none()) : texts::toPython(event.name);
    return told;
}

}  // namespace

Watch::Watch(unsigned lookMs) : interval_(lookMs)
{
    gil::without([&] {
        unmounted_ = [] {
            const engine::Use use;
            return unmountedRoots();
        }();
        look([](const WatchEvent&) {});
    });
}

py::object Watch::next(unsigned waitMs)
{
    const std::optional<WatchEvent> event = gil::without([&]() -> std::optional<WatchEvent> {
        lookWhenDue();
        std::unique_lock hold(guard_);
        changed_.wait_for(hold, std::chrono::milliseconds(waitMs),
                          [&] { return stopped_ || !events_.empty(); });
        if (stopped_ || events_.empty())
            return std::nullopt;
        WatchEvent first = std::move(events_.front());
        events_.pop_front();
        return first;
    });
    return event ? describe(*event) : py::none();
}

void Watch::stop()
{
    engine::refuseAfterFork();
    const std::lock_guard hold(guard_);
    stopped_ = true;
    changed_.notify_all();
}

bool Watch::isStopped() const
{
    if (engine::isLost())
        return true;
    const std::lock_guard hold(guard_);
    return stopped_;
}

void Watch::lookWhenDue()
{
    engine::refuseAfterFork();
    const std::lock_guard alone(looking_);
    {
        const std::lock_guard hold(guard_);
        if (stopped_ || !events_.empty() || Clock::now() < due_)
            return;
    }
    look([this](const WatchEvent& event) {
        const std::lock_guard hold(guard_);
        events_.push_back(event);
        changed_.notify_one();
    });
}

void Watch::look(const Tell& tell)
{
    const engine::Use use;
    {
        const std::unique_lock alone = engine::changing();
        followLists();
        followRegistry(tell);
        for (auto& [id, place] : places_)
            followPlace(id, place, tell);
    }
    due_ = Clock::now() + interval_;
}

void Watch::followLists()
{
    const Roots listed = listedRoots();
    const Roots unmounted = unmountedRoots();
    unregisterUnlisted(listed, unmounted);
    for (const Path& root : listed)
        registerRoot(root, false);
    // A drive that is not unmounted any more is one that discovery finds.
    for (const Path& root : unmounted_)
        if (!contains(unmounted, root))
            registerRoot(root, true);
    unmounted_ = unmounted;
}

void Watch::followRegistry(const Tell& tell)
{
    for (auto at = places_.begin(); at != places_.end();) {
        if (DiskManager::isVolumePresent(at->first)) {
            ++at;
            continue;
        }
        for (WatchedFolder& folder : at->second.folders)
            folder.goOffline(tell);
        tell({"location-removed", {}, at->second.path, at->first, at->second.name});
        at = places_.erase(at);
    }
    for (const DriveId& id : locations::all()) {
        if (places_.contains(id))
            continue;
        const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(id);
        Place& place = places_[id];
        place.name = drive->getUserName(false);
        place.path = drive->getPath();
        place.online = locations::isOnline(id);
        for (const CookieType type : {CookieTypeVision, CookieTypeSound})
            place.folders.emplace_back(id, MediaDrive::getFsysLocation(type));
        tell({"location-added", {}, place.path, id, place.name});
    }
}

void Watch::followPlace(DriveId id, Place& place, const Tell& tell)
{
    const bool online = locations::isOnline(id);
    if (online != place.online) {
        place.online = online;
        if (!online)
            for (WatchedFolder& folder : place.folders)
                folder.goOffline(tell);
        tell({online ? "location-online" : "location-offline", {}, place.path, id, place.name});
    }
    if (!online)
        return;
    followName(id);
    if (const Path name = DiskManager::getVolume(id)->getUserName(false); name != place.name) {
        place.name = name;
        tell({"location-renamed", {}, place.path, id, name});
    }
    for (WatchedFolder& folder : place.folders)
        folder.look(tell);
}
