#pragma once

#include "os/linux/MountTable.h"
#include "os/linux/SambaConfig.h"

#include <string>
#include <vector>

namespace os {

// NetworkShares: the names under which other machines know the folders of this one. A network name is
// two backslashes, machine, backslash, share, and below that the path with backslashes; it never ends
// with a backslash.

// The name of a mount's root, from its source ("//server/share", "server:/export",
// "user@host:/folder"); empty when the source names no machine.
[[nodiscard]] std::string networkNameOfMount(const MountEntry& mount);
[[nodiscard]] std::string networkNameOfShare(const std::string& machine, const SambaShare& share);
// The name of path in the share with the longest folder that holds it; empty when none does.
[[nodiscard]] std::string networkNameInShares(const std::string& path, const std::string& machine,
                                              const std::vector<SambaShare>& shares);
// Name of a folder, and a path at or below that folder, to the path's name.
[[nodiscard]] std::string networkNameBelow(const std::string& folderName, const std::string& folder,
                                           const std::string& path);

}  // namespace os
