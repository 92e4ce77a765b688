#include "fsys/VolumeList.h"

#include <cstddef>
#include <utility>

namespace {

const VolumeSnapshot* noDrives()
{
    // Never destroyed: threads may look drives up while the process ends.
    static const VolumeSnapshot* const empty = [] {
        auto* snapshot = new VolumeSnapshot;
        snapshot->addRef();
        return snapshot;
    }();
    return empty;
}

}  // namespace

VolumeList::Snapshot VolumeList::take() const
{
    const std::lock_guard<std::mutex> hold(guard_);
    return {current_ ? current_ : noDrives()};
}

void VolumeList::append(const Qz::Ptr<MediaDrive>& drive)
{
    Snapshot before;  // released after the guard
    const std::lock_guard<std::mutex> hold(guard_);
    VolumeSnapshot::Drives drives;
    if (current_)
        drives.assign(current_->begin(), current_->end());
    drives.push_back(drive);
    before = exchange(new VolumeSnapshot(std::move(drives)));
}

bool VolumeList::remove(const DriveId& id)
{
    Snapshot before;
    const std::lock_guard<std::mutex> hold(guard_);
    const std::size_t index = current_ ? current_->indexOf(id) : VolumeSnapshot::npos;
    if (index == VolumeSnapshot::npos)
        return false;
    VolumeSnapshot::Drives drives(current_->begin(), current_->end());
    drives.erase(drives.begin() + static_cast<std::ptrdiff_t>(index));
    before = exchange(new VolumeSnapshot(std::move(drives)));
    return true;
}

void VolumeList::clear()
{
    Snapshot before;
    const std::lock_guard<std::mutex> hold(guard_);
    before = exchange(nullptr);
}

VolumeList::Snapshot VolumeList::exchange(const Snapshot& next)
{
    // The list holds its reference by hand, so that its own end has nothing to release.
    if (next)
        next->addRef();
    const VolumeSnapshot* const old = std::exchange(current_, next.get());
    Snapshot before(old);
    if (old)
        static_cast<void>(old->dropRef());  // not the last one: before holds another
    return before;
}
