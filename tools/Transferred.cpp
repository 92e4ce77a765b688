#include "Transferred.h"

#include <array>
#include <fstream>
#include <string>

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {

constexpr std::uint64_t sectorBytes = 512;  // the kernel counts in these, whatever the device's own are
constexpr std::size_t sectorsRead = 2;
constexpr std::size_t sectorsWritten = 6;

std::optional<Transferred> countedFor(unsigned major, unsigned minor)
{
    std::ifstream file("/sys/dev/block/" + std::to_string(major) + ":" + std::to_string(minor) + "/stat");
    std::array<std::uint64_t, sectorsWritten + 1> counts{};
    for (std::uint64_t& count : counts)
        if (!(file >> count))
            return std::nullopt;
    return Transferred{counts[sectorsRead] * sectorBytes, counts[sectorsWritten] * sectorBytes};
}

}  // namespace

std::optional<Transferred> transferredOn(const Mount& mount)
{
    if (mount.major != 0)
        return countedFor(mount.major, mount.minor);
    // Some file systems have a number of their own and name their device only.
    struct stat device = {};
    if (isServed(mount) || !mount.source.starts_with("/dev/") || stat(mount.source.c_str(), &device) != 0 ||
        !S_ISBLK(device.st_mode))
        return std::nullopt;
    return countedFor(major(device.st_rdev), minor(device.st_rdev));
}
