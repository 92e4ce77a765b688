#pragma once

#include "MediaState.h"
#include "fsys/DriveId.h"

#include <chrono>
#include <deque>
#include <map>

// RecordingList: the unfinished recordings of locations and how fast they grow, from looking at their sizes.
//
// Never opens a recording: to learn whether somebody is at work on one it would have to be claimed for a
// moment, in which its recorder could not claim it.
class RecordingList
{
public:
    using Clock = std::chrono::steady_clock;

    // Lists anew what the locations hold; a location that cannot be listed keeps what it had.
    void look(const std::vector<DriveId>& online, Clock::time_point now);
    [[nodiscard]] std::vector<RecordingState> states(Clock::time_point now) const;

private:
    struct Sample
    {
        Clock::time_point time;
        std::uint64_t bytes;
    };
    struct Recording
    {
        DriveId location;
        std::string cookie;
        std::deque<Sample> samples;  // of the last seconds, at least one
        Clock::time_point grown;     // last seen to grow, or first seen
        bool hasGrown = false;
        bool isThere = true;
    };

    void lookInto(const DriveId& location, CookieType type, Clock::time_point now);
    void note(const DriveId& location, const std::string& file, std::uint64_t bytes, Clock::time_point now);

    std::map<std::string, Recording> recordings_;  // by path
};
