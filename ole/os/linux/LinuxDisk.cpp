#include "os/linux/LinuxDisk.h"

#include "os/LastError.h"
#include "os/linux/FileSystemKinds.h"
#include "os/linux/PathText.h"
#include "os/linux/Places.h"
#include "os/linux/SysfsDevice.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <limits>
#include <optional>

namespace os {

namespace {

// Some servers keep no account of space and report a volume of no blocks. It is not full: nobody knows. It
// gets a figure that rules about free space let pass.
constexpr DiskSpace unknownSpace{std::uint64_t{1} << 40, std::uint64_t{1} << 40};

std::optional<DiskSpace> spaceAt(const std::string& mountPoint, bool isServer)
{
    struct statvfs info = {};
    if (::statvfs(mountPoint.c_str(), &info) != 0) {
        setLastErrno(errno);
        return {};
    }
    if (isServer && info.f_blocks == 0)
        return unknownSpace;
    return DiskSpace{bytesOfBlocks(info.f_bavail, info.f_frsize),
                     bytesOfBlocks(info.f_blocks, info.f_frsize)};
}

}  // namespace

std::uint64_t bytesOfBlocks(std::uint64_t blocks, std::uint64_t blockSize)
{
    std::uint64_t bytes = 0;
    return __builtin_mul_overflow(blocks, blockSize, &bytes) ? std::numeric_limits<std::uint64_t>::max()
                                                             : bytes;
}

void SpaceMemory::remember(const std::string& volume, DiskSpace space)
{
    const std::lock_guard guard(lock_);
    known_[volume] = space;
}

DiskSpace SpaceMemory::lastKnown(const std::string& volume)
{
    const std::lock_guard guard(lock_);
    const auto found = known_.find(volume);
    return found == known_.end() ? DiskSpace() : found->second;
}

LinuxDisk::LinuxDisk(MountEntry mount, const Services& services)
    : mount_(std::move(mount)), services_(services)
{}

iDiskDrive::eType LinuxDisk::getType() const
{
    const eType type = driveTypeOf(mount_.fsType);
    return type == eLocal && isRemovable(deviceOf(mount_), services_.sysfs) ? eRemovable : type;
}

std::uint32_t LinuxDisk::getSectorSize() const { return sectorSizeOf(deviceOf(mount_), services_.sysfs); }

bool LinuxDisk::isSystemDisk() const { return isSystemMountPoint(mount_.mountPoint); }

bool LinuxDisk::isMounted() const
{
    DiskSpace ignored;
    return measure(ignored);
}

LightweightString<wchar_t> LinuxDisk::getRootPath() const
{
    return widePath(mount_.mountPoint == "/" ? "/" : mount_.mountPoint + '/');
}

// Without this test the space of whatever lies under the mount point would be taken for the volume's.
bool LinuxDisk::isInTable() const
{
    const auto table = services_.mounts.current();
    const MountEntry* now = table->mountedAt(mount_.mountPoint);
    return now && now->id == mount_.id && now->source == mount_.source;
}

bool LinuxDisk::measure(DiskSpace& space) const
{
    if (!isInTable())
        return false;
    std::optional<DiskSpace> measured;
    if (mayHang(mount_.fsType)) {
        const auto answer = services_.calls.call<std::optional<DiskSpace>>(
            laneName(mount_), [point = mount_.mountPoint](Progress&) { return spaceAt(point, true); });
        measured = answer.value_or(std::nullopt);
    } else {
        measured = spaceAt(mount_.mountPoint, false);
    }
    if (measured)
        space = *measured;
    return measured.has_value();
}

DiskSpace LinuxDisk::space() const
{
    const std::string volume = mount_.mountPoint + '\n' + mount_.source;
    DiskSpace space;
    if (!measure(space))
        return services_.space.lastKnown(volume);
    services_.space.remember(volume, space);
    return space;
}

}  // namespace os
