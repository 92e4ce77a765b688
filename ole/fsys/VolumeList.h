#pragma once

#include "Qz/Ptr.h"
#include "fsys/VolumeSnapshot.h"

#include <mutex>

// VolumeList: the place where the present sequence of registered drives is published.
//
// Threads:    any. A change builds a new sequence and publishes it whole; whoever took the one before goes
//             on with that.
// Locks:      a guard of its own, held only while pointers and sequences are copied, never while a drive or
//             a sequence is released.
// Lifetime:   usable before main and until the very end of the process: it is initialised as a constant, and
//             its end releases nothing.
class VolumeList
{
public:
    using Snapshot = Qz::Ptr<const VolumeSnapshot>;

    constexpr VolumeList() = default;
    VolumeList(const VolumeList&) = delete;
    VolumeList& operator=(const VolumeList&) = delete;

    // The sequence as it is now; never null.
    [[nodiscard]] Snapshot take() const;
    void append(const Qz::Ptr<MediaDrive>& drive);
    // Takes the first drive of that id out; those behind it move one down. False when there is none.
    bool remove(const DriveId& id);
    void clear();

private:
    // Puts next in place of the present sequence and answers that one. REQUIRES: guard_ is held.
    Snapshot exchange(const Snapshot& next);

    mutable std::mutex guard_;
    const VolumeSnapshot* current_ = nullptr;  // holds one reference; null until the first change
};
