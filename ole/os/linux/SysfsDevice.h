#pragma once

#include "os/linux/MountTable.h"

#include <cstdint>
#include <string>

namespace os {

// SysfsDevice: what the kernel's device tree says of the block device under a mount.

struct DeviceNumber
{
    unsigned major = 0;
    unsigned minor = 0;
};

// The device of a mount. File systems over several devices have a number of their own that is no
// device; then the device file named as the source counts.
[[nodiscard]] DeviceNumber deviceOf(const MountEntry& mount);
// Bytes per sector; 512 when the device does not say.
[[nodiscard]] std::uint32_t sectorSizeOf(DeviceNumber device, const std::string& sysfs);
[[nodiscard]] bool isRemovable(DeviceNumber device, const std::string& sysfs);

}  // namespace os
