// The mount table, with mount points that users name: every path lies on the mount whose point begins it.

#include "Fuzz.h"

#include <string>

#include "MountList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(textOf(data, size));
    const std::vector<Mount> mounts = mountsIn(text);
    for (const Mount& mount : mounts) {
        require(!mount.type.empty(), "a mount has a type");
        const Mount* const holding = mountHolding(mounts, mount.point);
        require(!holding || holding->point.size() <= mount.point.size(), "a mount holds no path above it");
        require(holding != nullptr, "a mount point lies on a mount");
    }
    return 0;
}
