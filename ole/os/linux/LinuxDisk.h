#pragma once

#include "os/iDiskDrive.h"
#include "os/linux/BoundedCalls.h"
#include "os/linux/MountTableReader.h"

#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace os {

struct DiskSpace
{
    std::uint64_t freeBytes = 0;
    std::uint64_t totalBytes = 0;
};

// Blocks times bytes per block; the largest number when it would not fit. Object stores report nearly
// 2^64 bytes.
[[nodiscard]] std::uint64_t bytesOfBlocks(std::uint64_t blocks, std::uint64_t blockSize);

// SpaceMemory: the last known space of every volume, for the time in which its server does not answer.
// Threads: any.
class SpaceMemory
{
public:
    void remember(const std::string& volume, DiskSpace space);
    [[nodiscard]] DiskSpace lastKnown(const std::string& volume);

private:
    std::mutex lock_;
    std::map<std::string, DiskSpace> known_;
};

// LinuxDisk: one entry of the mount table as a drive.
// Ownership: borrows the services, which outlive it. Others: see iDiskDrive.
class LinuxDisk final : public iDiskDrive
{
public:
    struct Services
    {
        MountTableReader& mounts;
        BoundedCalls& calls;
        SpaceMemory& space;
        std::string sysfs;
    };

    LinuxDisk(MountEntry mount, const Services& services);

    [[nodiscard]] eType getType() const override;
    [[nodiscard]] std::uint32_t getSectorSize() const override;
    [[nodiscard]] std::uint64_t getFreeBytes() const override { return space().freeBytes; }
    [[nodiscard]] std::uint64_t getTotalBytes() const override { return space().totalBytes; }
    [[nodiscard]] bool isSystemDisk() const override;
    [[nodiscard]] bool isMounted() const override;
    [[nodiscard]] LightweightString<wchar_t> getRootPath() const override;

private:
    [[nodiscard]] bool isInTable() const;
    [[nodiscard]] bool measure(DiskSpace& space) const;
    [[nodiscard]] DiskSpace space() const;

    MountEntry mount_;
    const Services& services_;
};

}  // namespace os
