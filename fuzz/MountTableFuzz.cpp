// The mount table: any text gives a table whose answers are mounts above the path that was asked for.

#include "Fuzz.h"

#include <string>

#include "os/linux/MountTable.h"
#include "os/linux/PathText.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const os::MountTable table(os::parseMountInfo(textOf(data, size)));
    const auto check = [&](const std::string& path) {
        const os::MountEntry* const mount = table.find(path);
        require(!mount || os::isAtOrBelow(path, mount->mountPoint), "a mount holds the path");
        const os::MountEntry* const exact = table.mountedAt(path);
        require(!exact || exact->mountPoint == path, "a mount is where it was asked for");
    };
    check("/");
    check("/media/raid/Material/a.mov");
    for (const os::MountEntry& entry : table.entries()) {
        require(entry.mountPoint.starts_with('/'), "a mount has a place");
        check(entry.mountPoint);
        check(entry.mountPoint + "/below");
    }
    return 0;
}
