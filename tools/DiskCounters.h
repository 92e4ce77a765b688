#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// DiskCounters: what the kernel counts of the disk, or the network mount, behind a mount point.
//
// The counts are those of the whole machine: every process and every folder on that disk is in them. Nothing
// here asks a file system, so nothing waits for a server.
// Units:      milliseconds, bytes; since the disk was found or the share was mounted.
struct DiskCounters
{
    struct Direction
    {
        std::uint64_t transfers = 0;  // that have ended
        std::uint64_t bytes = 0;
        std::uint64_t busyMs = 0;  // each transfer's own time, added up
    };
    Direction read;
    Direction written;
    std::uint64_t waitedMs = 0;                  // the time of all transfers, queues included, added up
    std::optional<std::uint64_t> inFlight = {};  // now
};

struct CountedDisk
{
    std::string name;  // "sda1"; of a network mount its source; empty when nobody counts
    std::optional<DiskCounters> counters;
};

// The disk behind a mount point, which may end with a separator. No counters for what is no disk and no
// network mount that the kernel counts for: file systems in memory and in user space, some network types.
[[nodiscard]] CountedDisk diskMountedAt(const std::string& mountPoint);

// --- from text alone

// The last mount at a point in the form of /proc/self/mountinfo.
struct MountLine
{
    std::string device;  // "8:1"
    std::string type;
    std::string source;
};
[[nodiscard]] std::optional<MountLine> mountLineAt(std::string_view mountInfo, std::string_view mountPoint);
// The file "stat" of a block device.
[[nodiscard]] std::optional<DiskCounters> countersOfBlockDevice(const std::string& stat);
// The part of /proc/self/mountstats that is about a mount point.
[[nodiscard]] std::optional<DiskCounters> countersOfNetworkMount(std::string_view mountStats,
                                                                 std::string_view mountPoint);
