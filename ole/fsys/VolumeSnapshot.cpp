#include "fsys/VolumeSnapshot.h"

#include <algorithm>

std::size_t VolumeSnapshot::indexOf(const DriveId& id) const
{
    for (std::size_t i = 0; i < drives_.size(); ++i)
        if (drives_[i]->getId() == id)
            return i;
    return npos;
}

Qz::Ptr<MediaDrive> VolumeSnapshot::driveAt(const MediaDrive::Path& path) const
{
    for (const auto& drive : drives_)
        if (drive->getRootLocation() == path)
            return drive;
    // Most drives have no local share: the empty text stands for that and is no path to be found by.
    for (const auto& drive : drives_)
        if (!path.empty() && drive->getLocalShare() == path)
            return drive;
    return {};
}
