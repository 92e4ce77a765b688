#include "os/linux/PlaceGuard.h"

#include "os/linux/PathText.h"

#include <vector>

namespace os {

namespace {

// Ids of mounts are used again, and the same volume gets another one each time: what is mounted where
// tells more than the id.
bool isSameMount(const MountEntry& a, const MountEntry& b)
{
    return a.mountPoint == b.mountPoint && a.fsType == b.fsType && a.source == b.source && a.root == b.root;
}

}  // namespace

void PlaceGuard::note(const std::string& folder, const Place& place)
{
    if (!place.mount || place.mount->mountPoint == "/" || !folder.starts_with('/'))
        return;
    const std::lock_guard guard(lock_);
    noted_.emplace(tidyPath(folder), *place.mount);
}

bool PlaceGuard::isOffline(const std::string& path)
{
    std::vector<std::pair<std::string, MountEntry>> above;
    {
        const std::lock_guard guard(lock_);
        if (noted_.empty())
            return false;
        const std::string tidy = tidyPath(path);
        for (const auto& [folder, mount] : noted_)
            if (isAtOrBelow(tidy, folder))
                above.emplace_back(folder, mount);
    }
    for (const auto& [folder, mount] : above)
        if (hasMoved(folder, mount))
            return true;
    return false;
}

bool PlaceGuard::hasMoved(const std::string& folder, const MountEntry& noted) const
{
    const Place now = places_.find(folder);
    return !now.mount || !isSameMount(*now.mount, noted);
}

}  // namespace os
