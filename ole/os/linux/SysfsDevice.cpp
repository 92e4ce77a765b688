#include "os/linux/SysfsDevice.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fstream>

namespace os {

namespace {

constexpr std::uint32_t sectorSizeUnknown = 512;

// A partition has neither queue nor removable flag of its own: they belong to the disk above it.
std::string diskFolder(DeviceNumber device, const std::string& sysfs)
{
    const std::string folder =
        sysfs + "/dev/block/" + std::to_string(device.major) + ':' + std::to_string(device.minor);
    const bool partition = ::access((folder + "/partition").c_str(), F_OK) == 0;
    return partition ? folder + "/.." : folder;
}

std::uint32_t numberIn(const std::string& file)
{
    std::ifstream stream(file);
    std::uint32_t number = 0;
    return stream >> number ? number : 0;
}

}  // namespace

DeviceNumber deviceOf(const MountEntry& mount)
{
    struct stat info = {};
    const bool anonymous = mount.major == 0;
    if (anonymous && mount.source.starts_with("/dev/") && ::stat(mount.source.c_str(), &info) == 0 &&
        S_ISBLK(info.st_mode))
        return {major(info.st_rdev), minor(info.st_rdev)};
    return {mount.major, mount.minor};
}

std::uint32_t sectorSizeOf(DeviceNumber device, const std::string& sysfs)
{
    const std::uint32_t size = numberIn(diskFolder(device, sysfs) + "/queue/logical_block_size");
    return size != 0 ? size : sectorSizeUnknown;
}

bool isRemovable(DeviceNumber device, const std::string& sysfs)
{
    return numberIn(diskFolder(device, sysfs) + "/removable") == 1;
}

}  // namespace os
