#pragma once

#include "os/linux/MountTable.h"
#include "os/linux/Places.h"

#include <map>
#include <mutex>
#include <string>

namespace os {

// PlaceGuard: keeps recordings off the system disk when the disk of a media place has gone.
//
// A mount that goes away leaves its folder behind, and that folder is writable: the next recording would
// land on the disk below it. So a place on any mount but the root is noted with its mount when it is
// first found writable, and counts as offline while its path lies on another one. It is online again
// when the same volume is mounted there again.
//
// Threads: any.
class PlaceGuard
{
public:
    explicit PlaceGuard(const Places& places) : places_(places) {}

    // Notes a writable folder; place is where it lies now. A folder that is noted already stays so.
    void note(const std::string& folder, const Place& place);
    // True for paths at or below a noted folder whose mount is not the noted one.
    [[nodiscard]] bool isOffline(const std::string& path);

private:
    [[nodiscard]] bool hasMoved(const std::string& folder, const MountEntry& noted) const;

    const Places& places_;
    std::mutex lock_;
    std::map<std::string, MountEntry> noted_;
};

}  // namespace os
