#pragma once

#include "Qz/InternalRefCount.h"
#include "Qz/Ptr.h"
#include "fsys/MediaDrive.h"

#include <cstddef>
#include <utility>
#include <vector>

// VolumeSnapshot: the registered drives, in the order of registration, as they were at one moment.
//
// Threads:    immutable, so look-ups need no lock; the drives in it take care of themselves.
// Ownership:  keeps its drives alive, also those that have left the registry since.
class FSYS_API VolumeSnapshot : public Qz::InternalRefCount
{
public:
    // In the order of registration.
    using Drives = std::vector<Qz::Ptr<MediaDrive>>;
    // What indexOf answers when there is no such drive.
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

    // Without drives.
    VolumeSnapshot() = default;
    // REQUIRES: none of them is null.
    explicit VolumeSnapshot(Drives drives) : drives_(std::move(drives)) {}

    // Drives.
    [[nodiscard]] std::size_t size() const { return drives_.size(); }
    // REQUIRES: index is below size().
    [[nodiscard]] const Qz::Ptr<MediaDrive>& at(std::size_t index) const { return drives_[index]; }
    // Each in the order of registration.
    [[nodiscard]] auto begin() const { return drives_.begin(); }
    [[nodiscard]] auto end() const { return drives_.end(); }

    // Index of the first drive of that id, or npos.
    [[nodiscard]] std::size_t indexOf(const DriveId& id) const;
    // The first drive whose root location is path to the letter, or, failing that, whose local share is;
    // null for none. A drive without a local share is not found by that.
    [[nodiscard]] Qz::Ptr<MediaDrive> driveAt(const MediaDrive::Path& path) const;

private:
    Drives drives_;
};

// VolumePosition: a place in the sequence of drives as it was when the place was taken.
class FSYS_API VolumePosition
{
public:
    // A place in drives; size() is the one behind the last. REQUIRES: drives is not null.
    VolumePosition(const Qz::Ptr<const VolumeSnapshot>& drives, std::size_t index)
        : drives_(drives), index_(index)
    {}

    // True for the place behind the last drive.
    [[nodiscard]] bool isEnd() const { return index_ >= drives_->size(); }
    // The place, counted from 0.
    [[nodiscard]] std::size_t index() const { return index_; }
    // REQUIRES: not the end.
    [[nodiscard]] const Qz::Ptr<MediaDrive>& drive() const { return drives_->at(index_); }

private:
    Qz::Ptr<const VolumeSnapshot> drives_;
    std::size_t index_;
};
