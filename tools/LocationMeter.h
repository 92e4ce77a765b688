#pragma once

#include "DiskCounters.h"
#include "fsys/DriveId.h"

#include <chrono>
#include <deque>
#include <map>
#include <string>
#include <vector>

// LocationMeter: how busy the disks behind the media locations of a project space are, look by look.
//
// The figures are those of the whole disk and of everybody who uses it; locations on one disk have the same.
// Time:       a look at a server that does not answer takes 2 seconds once, and none until it has answered.
// Threads:    one.

// What happened between two looks.
struct DiskLoad
{
    double readMbPerS = 0;  // 10^6 bytes
    double writeMbPerS = 0;
    double queueDepth = 0;  // transfers under way, in the mean
    bool slow = false;
};

// One location as a look found it. What cannot be known is empty.
struct LocationLoad
{
    std::string id;  // empty while it is listed but not registered
    std::string name;
    std::string path;
    bool online = false;
    std::string disk;
    std::optional<DiskLoad> load;           // from the second look on
    std::optional<std::uint64_t> inFlight;  // at the moment of the look
    std::optional<std::uint64_t> freeBytes;
    std::optional<std::uint64_t> totalBytes;
    std::optional<std::int32_t> minutes;  // whole ones; -1 without room; empty while nobody writes
};

// None when the counters are of different disks or no time has passed. slowRate: bytes per millisecond that
// transfers of more than 10000 bytes must reach in the mean.
[[nodiscard]] std::optional<DiskLoad> loadBetween(const DiskCounters& before, const DiskCounters& after,
                                                  double seconds, int slowRate);

class LocationMeter
{
public:
    using Clock = std::chrono::steady_clock;

    // space: folder of the list of locations. REQUIRES: a Session has filled the registry from it.
    explicit LocationMeter(std::string space) : space_(std::move(space)) {}

    // All locations that are listed or registered now, in the order of their registration.
    [[nodiscard]] std::vector<LocationLoad> look();

private:
    struct Mark
    {
        Clock::time_point time;
        std::string disk;
        DiskCounters counters;
    };
    using Marks = std::deque<Mark>;

    void followList();
    [[nodiscard]] LocationLoad lookAt(const std::string& root);
    void measure(const std::string& root, const DriveId& id, LocationLoad& load);
    static double writtenPerMinute(const Marks& marks);

    std::string space_;
    std::vector<std::string> roots_;        // each with a separator at its end
    std::map<std::string, Marks> history_;  // by root: the looks of the last seconds
};
