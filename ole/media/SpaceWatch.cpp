#include "media/SpaceWatch.h"

#include "os/OS.h"

#include <algorithm>

namespace {

// Others fill the disk as well, so it is asked now and then in any case; but not for each small write when
// there is little left between what is free and the limit.
constexpr std::uint64_t longestStepBytes = std::uint64_t{16} << 20;
constexpr std::uint64_t shortestStepBytes = std::uint64_t{64} << 10;

}  // namespace

SpaceWatch::SpaceWatch(const LightweightString<wchar_t>& path, std::uint64_t lowBytes,
                       const Listener& listener)
    : path_(path), lowBytes_(lowBytes), listener_(listener)
{}

void SpaceWatch::look(std::uint64_t underWay)
{
    bytesUntilDue_ = longestStepBytes;
    if (!listener_)
        return;
    const Qz::Ptr<iDiskDrive> drive = OS()->getFileManager()->getDriveForPath(path_);
    if (!drive || drive->getTotalBytes() == 0)
        return;
    const std::uint64_t freeNow = drive->getFreeBytes();
    const std::uint64_t freeBytes = freeNow - std::min(freeNow, underWay);
    if (freeBytes >= lowBytes_) {
        isLow_ = false;
        bytesUntilDue_ = std::clamp(freeBytes - lowBytes_, shortestStepBytes, longestStepBytes);
    } else if (!isLow_) {
        isLow_ = true;
        try {
            listener_(freeBytes);
        } catch (...) {
            // The recording is worth more than what its listener had to say.
        }
    }
}

void SpaceWatch::willWrite(std::uint64_t bytes, std::uint64_t underWay)
{
    if (bytes < bytesUntilDue_)
        bytesUntilDue_ -= bytes;
    else
        look(underWay + bytes);
}
