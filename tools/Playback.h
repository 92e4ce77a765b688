#pragma once

#include "Session.h"
#include "TimedTransfer.h"

#include <cstdint>
#include <string>
#include <vector>

// Playback: frames of several streams, each read before it is due.

constexpr double framesPerSecondMin = 0.01;
constexpr double framesPerSecondMax = 100000;
constexpr double secondsMin = 0.01;
constexpr double secondsMax = 1000000;

struct PlaybackPlan
{
    std::vector<Source> streams;
    double framesPerSecond = 25;
    std::uint64_t frameBytes = 0;
    double seconds = 5;
    bool keepTransfers = false;
};

struct PlaybackResult
{
    std::uint64_t framesDue = 0;
    std::uint64_t framesOnTime = 0;
    std::uint64_t framesLate = 0;          // their data came after they were due, or not at all
    double worstWaitMs = 0;                // the longest that a frame was overdue
    std::string error;                     // empty when every frame came
    std::vector<TimedTransfer> transfers;  // one for each frame, when the plan keeps them
};

// Plays the streams side by side, from their beginnings, over and over when they are short. Reads run a
// window of frames ahead of the clock, as those of a player do.
[[nodiscard]] PlaybackResult play(const PlaybackPlan& plan);
