// DiskManager: which drive takes new media.

#include "fsys/DiskManager.h"
#include "fsys/VolumeList.h"
#include "support/Preferences.h"

#include <limits>

namespace {

NarrowString taskKey(const char* task) { return NarrowString("Media Location (") + (task ? task : "") + ")"; }

// Truncates. Out of range gives the nearest limit; not-a-number gives the upper one.
std::int32_t toMinutes(double quotient)
{
    using Limits = std::numeric_limits<std::int32_t>;
    if (quotient <= Limits::min())
        return Limits::min();
    return quotient < Limits::max() ? static_cast<std::int32_t>(quotient) : Limits::max();
}

}  // namespace

DriveId DiskManager::findBestDrive(double megabytes, Match match)
{
    Qz::Ptr<MediaDrive> best;
    double bestSpace = match == BestFit ? 1e99 : 0.0;
    const VolumeList::Snapshot drives = volumes_.take();
    for (const auto& drive : *drives) {
        const double space = drive->getSpaceMB();
        if (!(space > megabytes))
            continue;
        // Strict, so that the first of equal drives is taken.
        if ((match == BestFit && bestSpace > space) || (match == MostSpace && space > bestSpace)) {
            best = drive;
            bestSpace = space;
        }
    }
    if (!best)
        return {};
    best->reserveSpace(megabytes);
    return best->getId();
}

DriveId DiskManager::find_best_disk()
{
    DriveId last;
    const VolumeList::Snapshot drives = volumes_.take();
    for (const auto& drive : *drives)
        if (drive->getSpaceMB() > 0.0)
            last = drive->getId();
    return last;
}

double DiskManager::getSpaceForRecording(const MediaDrive& drive) { return drive.getSpaceForRecording(); }

double DiskManager::getSpaceForRecording(const DriveId& id)
{
    // Held, since the platform is asked meanwhile and the drive may leave the registry.
    const Qz::Ptr<MediaDrive> drive = getVolume(id);
    return getSpaceForRecording(drive ? *drive : getDriveWithUniqueId(DriveId()));
}

std::int32_t DiskManager::get_mins_of_recording_left(const DriveId& id, double rateA, double rateB)
{
    const double bytes = getSpaceForRecording(id) * 1024.0 * 1024.0;
    if (bytes <= 0.0)
        return -1;
    const double rate = rateA + rateB;
    return rate == 0.0 ? std::numeric_limits<std::int32_t>::max() : toMinutes(bytes / rate);
}

void DiskManager::setDriveForTask(const char* task, const DriveId& id)
{
    if (id.valid())
        prefs().setPreference(taskKey(task), getMaterialVolumeName(getDriveWithUniqueId(id).getId(), false));
    else
        prefs().removePreference(taskKey(task));
}

DriveId DiskManager::getDriveForTask(const char* task, bool fallBackToBest)
{
    const DriveId id = getDriveWithPath(prefs().getPreference(taskKey(task), L""));
    return !id.valid() && fallBackToBest ? find_best_disk() : id;
}
