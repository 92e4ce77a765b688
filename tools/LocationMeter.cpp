#include "LocationMeter.h"

#include "Answer.h"
#include "Locations.h"
#include "fsys/DiskManager.h"
#include "os/OS.h"
#include "support/ConfigInt.h"

#include <algorithm>
#include <utility>

namespace {

// Caches hand their bytes over in bursts, some seconds apart.
constexpr auto rememberedTime = std::chrono::seconds(10);
constexpr std::uint64_t smallTransfer = 10000;  // bytes; whatever is smaller says nothing about a disk

bool contains(const std::vector<std::string>& roots, const std::string& root)
{
    return std::find(roots.begin(), roots.end(), root) != roots.end();
}

bool isSlow(const DiskCounters::Direction& before, const DiskCounters::Direction& after, int slowRate)
{
    const std::uint64_t transfers = after.transfers - before.transfers;
    const std::uint64_t bytes = after.bytes - before.bytes;
    const std::uint64_t ms = after.busyMs - before.busyMs;
    return slowRate > 0 && bytes > smallTransfer * transfers &&
           bytes < static_cast<std::uint64_t>(slowRate) * ms;
}

bool hasGoneBack(const DiskCounters::Direction& before, const DiskCounters::Direction& after)
{
    return after.transfers < before.transfers || after.bytes < before.bytes || after.busyMs < before.busyMs;
}

// A disk that has gone leaves the folder that it was mounted on, and the platform lets nobody write there.
// What cannot be written and has media folders is a disk that is read-only now.
bool isThere(const std::string& root)
{
    iFileManager* const files = OS()->getFileManager();
    return files->directoryExists(wide(root)) &&
           (DiskManager::writableVolume(wide(root)) ||
            files->directoryExists(wide(root + utf8(MediaDrive::getFolder(CookieTypeVision)))));
}

// One that was added, or that could not be reached when the registry was filled, gets its id and name.
void registerIfThere(const std::string& root)
{
    if (!DiskManager::getVolume(wide(root)) && isThere(root) && DiskManager::writableVolume(wide(root)))
        DiskManager::addDriveForMediaLocation(wide(root), false);
}

}  // namespace

std::optional<DiskLoad> loadBetween(const DiskCounters& before, const DiskCounters& after, double seconds,
                                    int slowRate)
{
    if (seconds <= 0 || hasGoneBack(before.read, after.read) || hasGoneBack(before.written, after.written) ||
        after.waitedMs < before.waitedMs)
        return std::nullopt;
    const auto rate = [seconds](std::uint64_t from, std::uint64_t to) {
        return static_cast<double>(to - from) / 1e6 / seconds;
    };
    return DiskLoad{.readMbPerS = rate(before.read.bytes, after.read.bytes),
                    .writeMbPerS = rate(before.written.bytes, after.written.bytes),
                    .queueDepth = static_cast<double>(after.waitedMs - before.waitedMs) / 1000 / seconds,
                    .slow = isSlow(before.read, after.read, slowRate) ||
                            isSlow(before.written, after.written, slowRate)};
}

std::vector<LocationLoad> LocationMeter::look()
{
    followList();
    std::vector<LocationLoad> loads;
    for (const std::string& root : roots_)
        loads.push_back(lookAt(root));
    return loads;
}

void LocationMeter::followList()
{
    const std::vector<std::string> listed = listedRoots(space_);
    for (const std::string& root : listed)
        registerIfThere(root);
    roots_.clear();
    for (const DriveId& id : allLocations()) {
        const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(id);
        const std::string root = utf8(drive->getRootLocation());
        if (drive->isAutoDiscovered() || contains(listed, root))
            roots_.push_back(root);
    }
    for (const std::string& root : listed)
        if (!contains(roots_, root))
            roots_.push_back(root);
    std::erase_if(history_, [this](const auto& known) { return !contains(roots_, known.first); });
}

LocationLoad LocationMeter::lookAt(const std::string& root)
{
    LocationLoad load;
    load.path = root.size() > 1 ? root.substr(0, root.size() - 1) : root;
    load.name = load.path;
    const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(wide(root));
    const DriveId id = drive ? drive->getId() : DriveId();
    if (drive) {
        load.id = id.asString().str();
        load.name = nameOf(id);
    }
    load.online = isThere(root);
    if (!load.online) {
        history_.erase(root);
        return load;
    }
    // Users may have renamed it since; the file on the disk holds what they call it.
    const DiskManager::Name name = drive ? DiskManager::getMediaLocationUserName(id) : DiskManager::Name();
    if (!name.empty())
        load.name = utf8(name);
    measure(root, id, load);
    return load;
}

void LocationMeter::measure(const std::string& root, const DriveId& id, LocationLoad& load)
{
    const Qz::Ptr<iDiskDrive> volume = OS()->getFileManager()->getDriveForPath(wide(root));
    if (!volume)
        return;
    load.freeBytes = volume->getFreeBytes();
    load.totalBytes = volume->getTotalBytes();
    const CountedDisk disk = diskMountedAt(utf8(volume->getRootPath()));
    load.disk = disk.name;
    Marks& marks = history_[root];
    if (!disk.counters || (!marks.empty() && marks.back().disk != disk.name))
        marks.clear();
    if (!disk.counters)
        return;
    static const int slowRate = config_int("MinNetDiskRate", 300);
    const auto now = Clock::now();
    load.inFlight = disk.counters->inFlight;
    if (!marks.empty())
        load.load = loadBetween(marks.back().counters, *disk.counters,
                                std::chrono::duration<double>(now - marks.back().time).count(), slowRate);
    if (!marks.empty() && !load.load)
        marks.clear();
    marks.push_back({now, disk.name, *disk.counters});
    while (marks.size() > 2 && now - marks[1].time >= rememberedTime)
        marks.pop_front();
    const double rate = writtenPerMinute(marks);
    if (id.valid() && rate > 0)
        load.minutes = DiskManager::get_mins_of_recording_left(id, rate, 0);
}

double LocationMeter::writtenPerMinute(const Marks& marks)
{
    const double seconds = std::chrono::duration<double>(marks.back().time - marks.front().time).count();
    const std::uint64_t bytes = marks.back().counters.written.bytes - marks.front().counters.written.bytes;
    return seconds > 0 ? static_cast<double>(bytes) * 60 / seconds : 0;
}
