#pragma once

#include "MediaState.h"
#include "MountList.h"
#include "Pace.h"
#include "RecordingList.h"

#include <deque>
#include <map>
#include <string>

// MediaStateKeeper: gathers the state of a project space again and again, and keeps how throughput and space
// of each location went over the last minutes.
//
// Threads:  the application's control thread, as the registry.
// Time:     a server that stops answering costs a gathering a few seconds, once.
class MediaStateKeeper
{
public:
    using Clock = std::chrono::steady_clock;

    // recordRate: what a recording is expected to take where none is under way, in bytes per second.
    MediaStateKeeper(const MediaWatch& watch, double recordRate) : watch_(watch), recordRate_(recordRate) {}

    [[nodiscard]] const MediaState& gather();
    // Keys: locations, an array of path and of arrays of the same length: time, read_rate, write_rate,
    // free_bytes; null where a figure was not known.
    [[nodiscard]] Json history() const;

private:
    struct Sample
    {
        double time;
        std::optional<double> readRate;
        std::optional<double> writeRate;
        std::optional<std::uint64_t> freeBytes;
    };
    // What the last gathering saw of a location.
    struct Before
    {
        Clock::time_point time;
        std::optional<std::uint64_t> readBytes;
        std::optional<std::uint64_t> writtenBytes;
        std::optional<std::uint64_t> freeBytes;
        std::deque<Sample> samples;
    };

    [[nodiscard]] LocationState locationState(const DriveId& id, const std::vector<Mount>& mounts) const;
    void fillSpace(const DriveId& id, LocationState& location) const;
    void fillRecordRate(LocationState& location) const;
    void fillRates(LocationState& location);
    void gatherLocations();
    void gatherRecordings();
    void gatherClips();

    const MediaWatch& watch_;
    double recordRate_;
    MediaState state_;
    RecordingList recordings_;
    std::map<std::string, Before> before_;  // by path
    Pace recordingPace_{std::chrono::seconds(1)};
    Pace clipPace_{std::chrono::seconds(2)};
};
